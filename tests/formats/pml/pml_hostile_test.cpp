#include "tav/vinta/vinta_pml_unit.h"

#include "support/repeated.h"
#include "support/small_stack.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

using tav::pml::Unit;
using tav_test::onSmallStack;
using tav_test::repeated;

namespace {

constexpr unsigned deep = 300000;

/// The plainest possible reader, one function to a rule, to compare with.
class PlainReader {
public:
    struct Node {
        std::string name, type, value;
        std::vector<Node> children;
    };

    /// The units, or the failure's text in `error`.
    static std::vector<Node> read(std::string const & text, std::string & error) {
        PlainReader reader(text);
        std::vector<Node> units;
        error.clear();
        if (text.empty()) {
            units.emplace_back();
            return units;
        }
        try {
            Node first;
            if (reader.unit(first)) {
                throw std::string("invalid pml: extra )");
            }
            units.push_back(first);
            reader.skip();
            while (!reader.end()) {
                Node following;
                if (reader.unit(following)) {
                    break;
                }
                units.push_back(following);
                reader.skip();
            }
        } catch (std::string const & e) {
            error = e;
        }
        return units;
    }

private:
    explicit PlainReader(std::string const & text) : text_(text.substr(0, text.find('\0'))) {}

    bool end() const { return at_ >= text_.size(); }
    char now() const { return text_[at_]; }
    static bool blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
    bool comment() const { return text_.compare(at_, 2, "(*") == 0; }

    bool skip() {
        bool any = false;
        while (!end()) {
            if (blank(now())) {
                any = true;
                ++at_;
            } else if (comment()) {
                std::size_t const close = text_.find("*)", at_ + 2);
                at_ = close == std::string::npos ? text_.size() : close + 2;
            } else {
                break;
            }
        }
        return any;
    }

    // The stop mark is true.
    bool name(Node & node) {
        std::string word;
        for (;;) {
            if (end()) {
                return false;
            }
            if (now() == ')') {
                node.value += word;
                return true;
            }
            if (now() == ':' || now() == '(') {
                node.name += word;
                return false;
            }
            word += now();
            ++at_;
            if (!end() && (blank(now()) || comment())) {
                node.name += word;
                skip();
                word.clear();
            }
        }
    }

    bool type(Node & node) {
        std::string word;
        for (;;) {
            if (end()) {
                return false;
            }
            if (now() == ')') {
                node.value += ":" + word;
                return true;
            }
            if (now() == '(') {
                node.type += word;
                return false;
            }
            word += now();
            ++at_;
            if (!end() && (blank(now()) || comment())) {
                node.type += word;
                node.type += skip() ? " " : "";
                word.clear();
            }
        }
    }

    bool unit(Node & node) {
        skip();
        need("empty for pml unit");
        if (name(node)) {
            return true;
        }
        need("empty after pml name");
        skip();
        need("no pml type or value");
        if (now() == ':') {
            ++at_;
            skip();
            need("no pml type");
            if (type(node)) {
                return true;
            }
            skip();
            need("no pml value");
        }
        if (now() == ')') {
            return true;
        }
        if (now() != '(') {
            throw std::string("no pml value begin tag");
        }
        ++at_;
        skip();
        need("no pml value end tag");
        value(node);
        return false;
    }

    void value(Node & node) {
        std::string word;
        for (;;) {
            need("no pml value end tag");
            char const c = now();
            if (c == ')') {
                node.value += word;
                ++at_;
                return;
            }
            if (c == '"' || c == '\'') {
                ++at_;
                std::string quoted;
                while (!end() && now() != c) {
                    if (now() == '^') {
                        ++at_;
                        if (end()) {
                            break;
                        }
                    }
                    quoted += now();
                    ++at_;
                }
                need("no pml value end tag");
                ++at_;
                node.value += quoted;
                skip();
                word.clear();
            } else if (c == ':' || c == '(') {
                node.value += word;
                Node child;
                child.name = node.value;
                while (!child.name.empty() && blank(child.name.back())) {
                    child.name.pop_back();
                }
                if (unit(child)) {
                    node.value += child.value;
                    ++at_;
                    return;
                }
                node.value.clear();
                node.children.push_back(child);
                skip();
                word.clear();
            } else {
                word += c;
                ++at_;
                if (!end() && (blank(now()) || comment())) {
                    node.value += word;
                    node.value += skip() ? " " : "";
                    word.clear();
                }
            }
        }
    }

    void need(char const * failure) const {
        if (end()) {
            throw std::string(failure);
        }
    }

    std::string text_;
    std::size_t at_ = 0;
};

std::string shown(PlainReader::Node const & node) {
    std::string out = "{" + node.name + "|" + node.type + "|" + node.value;
    for (PlainReader::Node const & child : node.children) {
        out += shown(child);
    }
    return out + "}";
}

std::string shown(Unit const & unit) {
    std::string out = "{" + unit.name() + "|" + unit.type() + "|" + unit.value();
    for (tavSharedPtr<Unit> const & child : unit) {
        out += shown(*child);
    }
    return out + "}";
}

/// The outcome of a text: units, or "!" and the failure.
std::string outcome(std::string const & text) {
    Unit unit;
    try {
        unit.decode(tav_istr(text));
    } catch (std::invalid_argument const & e) {
        std::string const what = e.what();
        return "!" + what.substr(0, what.find("\n    throw at "));
    }
    std::string out;
    for (Unit const * at = &unit; at != nullptr; at = at->next().get()) {
        out += shown(*at);
    }
    return out;
}

std::string plainOutcome(std::string const & text) {
    std::string error;
    std::vector<PlainReader::Node> const units = PlainReader::read(text, error);
    std::string out;
    for (PlainReader::Node const & unit : units) {
        out += shown(unit);
    }
    return error.empty() ? out : "!" + error;
}

} // namespace

TEST(PmlHostile, EveryShortTextOfTheMarksReadsAsThePlainReaderDoes) {
    std::string const alphabet = "ab (:)*\"^";
    for (unsigned length = 0; length <= 4; ++length) {
        std::vector<unsigned> digits(length, 0);
        for (;;) {
            std::string text;
            for (unsigned const digit : digits) {
                text += alphabet[digit];
            }
            ASSERT_EQ(plainOutcome(text), outcome(text)) << text;
            ASSERT_EQ(plainOutcome("r(" + text + ")"), outcome("r(" + text + ")")) << text;
            unsigned at = 0;
            while (at < length && ++digits[at] == alphabet.size()) {
                digits[at++] = 0;
            }
            if (at == length) {
                break;
            }
        }
    }
}

TEST(PmlHostile, RandomTextsReadAsThePlainReaderDoes) {
    std::mt19937 random(20240301);
    std::string const alphabet = std::string("abc  \t\n((()))::**\"\"''^^\x80") + '\0';
    for (int round = 0; round < 10000; ++round) {
        std::string text(random() % 40, ' ');
        for (char & c : text) {
            c = alphabet[random() % alphabet.size()];
        }
        ASSERT_EQ(plainOutcome(text), outcome(text)) << text;
    }
}

TEST(PmlHostile, RandomBytesGiveAValueOrAFailure) {
    std::mt19937 random(7);
    for (int round = 0; round < 5000; ++round) {
        std::string text(random() % 60, ' ');
        for (char & c : text) {
            c = static_cast<char>(random());
        }
        ASSERT_EQ(plainOutcome(text), outcome(text));
    }
}

TEST(PmlHostile, EveryCutOfATextGivesAValueOrAFailure) {
    std::string const text = "(*c*) r : t (\"q^\"\" a(1) b:int(x:y) 'z' (*d*) c((1)(2)) rest)next(x)";
    for (std::size_t size = 0; size <= text.size(); ++size) {
        // A block of its own, so that a read behind the end is seen.
        std::vector<char> const bytes(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(size));
        Unit unit;
        std::string got;
        try {
            unit.decode(tav_istr(bytes.data(), static_cast<unsigned>(size)));
            for (Unit const * at = &unit; at != nullptr; at = at->next().get()) {
                got += shown(*at);
            }
        } catch (std::invalid_argument const & e) {
            std::string const what = e.what();
            got = "!" + what.substr(0, what.find("\n    throw at "));
        }
        ASSERT_EQ(plainOutcome(text.substr(0, size)), got) << size;
    }
}

TEST(PmlHostile, TreesComeBackFromTheirText) {
    std::mt19937 random(99);
    std::string const bytes = "ab(:)*^\"'";
    for (int round = 0; round < 2000; ++round) {
        Unit root(tav_istr("r"));
        std::vector<Unit *> all{&root};
        for (unsigned i = 0; i < 10; ++i) {
            Unit & parent = *all[random() % all.size()];
            Unit & child = parent.newChild().name("n").type(random() % 2 == 0 ? "t" : "");
            all.push_back(&child);
        }
        for (Unit * unit : all) {
            if (unit->simple()) {
                for (auto i = random() % 6; i > 0; --i) {
                    unit->value() += bytes[random() % bytes.size()];
                }
            }
        }
        ASSERT_EQ(shown(root), outcome(root.toPml())) << root.toPml();
        ASSERT_EQ(shown(root), outcome(root.toFormatted())) << root.toFormatted();
    }
}

TEST(PmlHostile, DeepTreesAreReadWrittenCopiedAndDestroyedInBoundedStack) {
    std::string const text = repeated("a(", deep) + "1" + repeated(")", deep);
    onSmallStack([&text] {
        Unit unit;
        unit.decode(tav_istr(text));
        EXPECT_EQ(text, unit.toPml());
        EXPECT_EQ(text, unit.toCompacted(true, true));
        unsigned depth = 1;
        for (Unit const * at = &unit; !at->simple(); at = &at->child("a")) {
            ++depth;
        }
        EXPECT_EQ(deep, depth);
        Unit copy(unit);
        unit.clear();
        EXPECT_EQ(text, copy.toPml());
        copy = Unit();
        EXPECT_TRUE(copy.empty());
    });
}

TEST(PmlHostile, DeepTreesWithTypesAndValuesInBoundedStack) {
    std::string const text = repeated("a:t(b(1)", deep) + repeated("v)", deep);
    onSmallStack([&text] {
        Unit unit;
        unit.decode(tav_istr(text));
        EXPECT_EQ(unit.value(), "v");
        EXPECT_EQ(unit.child("b").value(), "1");
        std::string const written = unit.toPml();
        EXPECT_EQ(repeated("a:t(b(1)", deep - 1) + "a:t(b(1)__value__(v))" +
                      repeated("__value__(v))", deep - 1),
                  written);
    });
}

TEST(PmlHostile, DeepUnfinishedTextFailsInBoundedStack) {
    for (std::string const & text : {repeated("(", deep), repeated("a(b:c(", deep),
                                     repeated("a(", deep) + ":", repeated("a(1 ", deep) + "\""}) {
        onSmallStack([&text] {
            Unit unit;
            EXPECT_THROW(unit.decode(tav_istr(text)), std::invalid_argument);
        });
    }
}

TEST(PmlHostile, LongSequencesInBoundedStack) {
    std::string const text = repeated("a(1)", deep);
    onSmallStack([&text] {
        Unit unit;
        unit.decode(tav_istr(text));
        EXPECT_EQ(text, unit.toPml());
        Unit assigned;
        assigned = unit;
        unit.next(tavSharedPtr<Unit>());
        EXPECT_EQ(text, assigned.toPml());
        assigned = Unit();
        EXPECT_FALSE(assigned.next());
    });
}

TEST(PmlHostile, TreesMadeByHandAreDestroyedInBoundedStack) {
    onSmallStack([] {
        tavSharedPtr<Unit> unit(new Unit(tav_istr("a")));
        for (unsigned i = 0; i < deep; ++i) {
            tavSharedPtr<Unit> parent(new Unit(tav_istr("a")));
            parent->addChild(unit);
            parent->createNext()->next(unit);
            parent->child_equal_range("a");
            unit = parent;
        }
        tavSharedPtr<Unit> const inner = unit->find("a");
        unit.reset();
        EXPECT_EQ(inner->getRefCount(), 1u);
    });
}

TEST(PmlHostile, ManySiblingsStayQuick) {
    std::string const text = "r(" + repeated("a(1)", deep) + repeated("\"x\" ", deep) + "z)";
    Unit unit;
    unit.decode(tav_istr(text));
    EXPECT_EQ(deep, unit.size());
    EXPECT_EQ(deep, unit.children("a").size());
    EXPECT_EQ(deep + 1, unit.value().size());
    for (unsigned i = 0; i < 1000; ++i) {
        EXPECT_FALSE(unit.hasChild("b"));
    }
}

TEST(PmlHostile, RunsOfCommentsColonsAndBlanksStayQuick) {
    EXPECT_EQ(Unit().decode(tav_istr("a(" + repeated("(*", deep) + "*))")).value(), "");
    EXPECT_EQ(Unit().decode(tav_istr("a(x" + repeated(" (**)", deep) + "y)")).value(), "x y");
    EXPECT_EQ(deep + 1, Unit().decode(tav_istr("a(x" + repeated(":", deep) + ")")).value().size());
    EXPECT_EQ(deep, Unit().decode(tav_istr(repeated("a ", deep) + "(1)")).name().size());
}
