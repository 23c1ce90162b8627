#include "tav/vinta/vinta_json_parser.h"

#include "support/repeated.h"
#include "support/small_stack.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using tav::json::JsonArray;
using tav::json::JsonFormatter;
using tav::json::JsonObject;
using tav::json::JsonParser;
using tav::json::JsonUnit;
using tav::json::JsonValue;
using tav_test::onSmallStack;
using tav_test::repeated;

namespace {

constexpr unsigned deep = 200000;

std::string bytes(tavString const & text) {
    return std::string(tav_istr(text));
}

/// The failure's text up to its position; empty if there is none.
std::string failure(std::string const & text) {
    try {
        JsonParser::from(text);
        return std::string();
    } catch (std::invalid_argument const & e) {
        std::string const what = e.what();
        return what.substr(0, what.find("\n    throw at "));
    }
}

/// A value that tells of its end.
class Told : public JsonValue {
public:
    explicit Told(int & ended) : ended_(ended) {}
    ~Told() override { ++ended_; }
    tavString toString() const override { return "told"; }
    bool simple() const override { return true; }

private:
    int & ended_;
};

/// A value of another class that holds a unit.
class Holder : public JsonValue {
public:
    explicit Holder(JsonUnit const & unit) : unit_(unit) {}
    tavString toString() const override { return "holder"; }
    bool simple() const override { return true; }

private:
    JsonUnit unit_;
};

/// The plainest possible reader, one function to a rule, to compare with.  It writes what it reads.
class PlainReader {
public:
    /// The compact form, or "! " and the failure.
    static std::string read(std::string const & text) {
        PlainReader reader(text);
        try {
            reader.skip();
            if (reader.peek() == '{') {
                return reader.object();
            }
            if (reader.peek() == '[') {
                return reader.array();
            }
            return "! not object or array";
        } catch (std::string const & e) {
            return "! " + e;
        }
    }

private:
    explicit PlainReader(std::string const & text) : text_(text) {}

    bool more() const { return at_ < text_.size(); }
    char peek() const { return more() ? text_[at_] : '\0'; }
    static bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
    static bool isToken(char c) { return c != '\0' && std::string("{}[]:,\"'").find(c) != std::string::npos; }

    void skip() {
        while (more() && isBlank(peek())) {
            ++at_;
        }
    }

    std::string fail(char const * what) const { return std::string(what) + " : " + text_.substr(at_); }

    std::string quoted() {
        std::size_t const first = at_;
        char const quote = text_[at_++];
        while (more() && text_[at_] != quote) {
            at_ += text_[at_] == '\\' ? 2 : 1;
        }
        at_ = std::min(at_ + (more() ? 1 : 0), text_.size());
        return text_.substr(first, at_ - first);
    }

    std::string token() {
        skip();
        std::size_t const first = at_;
        while (more() && !isToken(peek())) {
            ++at_;
        }
        std::string out = text_.substr(first, at_ - first);
        while (!out.empty() && isBlank(out.back())) {
            out.pop_back();
        }
        return out;
    }

    std::string name() {
        skip();
        std::string out;
        if (peek() == '"' || peek() == '\'') {
            out = quoted();
            skip();
        } else {
            out = token();
            if (!more()) {
                throw fail("no name");
            }
        }
        if (peek() == ':') {
            ++at_;
            return out;
        }
        if (peek() == '}') {
            return std::string();
        }
        throw fail("no name");
    }

    /// The text of the value; empty for null.
    std::string value() {
        skip();
        if (peek() == '{') {
            return object();
        }
        if (peek() == '[') {
            return array();
        }
        if (peek() == '"' || peek() == '\'') {
            tavOptional<tavString> const plain = tav::json::JsonString::unescape(quoted());
            return plain ? bytes(tav::json::JsonString::escape(plain)) : std::string();
        }
        std::string const word = token();
        if (more() && peek() != ',' && peek() != '}' && peek() != ']') {
            throw fail("no value end");
        }
        tavSharedPtr<JsonValue> const simple = JsonParser::fromSimple(word);
        return simple ? bytes(simple->toString()) : std::string();
    }

    std::string object() {
        ++at_;
        std::map<std::string, std::string> members;
        while (more()) {
            std::string const written = name();
            tavOptional<tavString> const plain = tav::json::JsonString::unescape(written);
            if (!written.empty() && plain && !plain->empty()) {
                std::string const key = bytes(*plain);
                members[key] = value();
            }
            skip();
            if (peek() == '}') {
                ++at_;
                break;
            }
            if (peek() != ',') {
                throw fail("pair value no end");
            }
            ++at_;
        }
        std::string out = "{";
        for (auto const & member : members) {
            out += (out.size() > 1 ? ", \"" : " \"") + member.first +
                   "\":" + (member.second.empty() ? "null" : member.second);
        }
        return out + " }";
    }

    std::string array() {
        ++at_;
        std::string out = "[";
        while (more()) {
            std::string const one = value();
            if (!one.empty()) {
                out += (out.size() > 1 ? ", " : " ") + one;
            }
            skip();
            if (peek() == ']') {
                ++at_;
                break;
            }
            if (peek() != ',') {
                throw fail("array value no end");
            }
            ++at_;
        }
        return out + " ]";
    }

    std::string const & text_;
    std::size_t at_ = 0;
};

std::string readAndWritten(std::string const & text) {
    std::string const failed = failure(text);
    return failed.empty() ? bytes(JsonParser::from(text)->toJson()) : "! " + failed;
}

} // namespace

TEST(JsonHostileDepth, ArraysAreReadWrittenAndDestroyedInBoundedStack) {
    onSmallStack([] {
        std::string const text = repeated("[", deep) + repeated("]", deep);
        tavSharedPtr<JsonValue> value = JsonParser::from(text);
        EXPECT_TRUE(repeated("[ ", deep - 1) + "[ ]" + repeated(" ]", deep - 1) == bytes(value->toJson()));
        value.reset();
    });
}

TEST(JsonHostileDepth, ObjectsAreReadWrittenAndDestroyedInBoundedStack) {
    onSmallStack([] {
        std::string const text = repeated("{\"a\":", deep) + "1" + repeated("}", deep);
        tavSharedPtr<JsonValue> value = JsonParser::from(text);
        EXPECT_TRUE(repeated("{ \"a\":", deep) + "1" + repeated(" }", deep) == bytes(value->toJson()));
        value.reset();
    });
}

TEST(JsonHostileDepth, UnclosedTextsFailInBoundedStack) {
    onSmallStack([] {
        EXPECT_EQ(failure(repeated("[", deep)), "array value no end : ");
        EXPECT_EQ(failure(repeated("{\"a\":", deep)), "pair value no end : ");
        EXPECT_EQ(failure(repeated("{a:[", deep)), "pair value no end : ");
        EXPECT_EQ(failure(repeated("[{a:", deep) + "x:"), "no value end : :");
        EXPECT_EQ(failure(repeated("[{a:", deep) + "{ "), "no name : ");
    });
}

TEST(JsonHostileDepth, PrettyTextOfADeepTreeInBoundedStack) {
    onSmallStack([] {
        constexpr unsigned depth = 2000;
        JsonUnit unit;
        unit.decode(repeated("[{a:", depth) + repeated("}]", depth));
        std::string const text = bytes(unit.toString(true));
        JsonUnit again;
        again.decode(text);
        EXPECT_EQ(unit.toString(false).size(),
                  again.toString(false).size() + std::string("\"a\":null ").size());
    });
}

TEST(JsonHostileDepth, ATreeBuiltByHandIsDestroyedInBoundedStack) {
    onSmallStack([] {
        JsonUnit root;
        JsonUnit * at = &root;
        for (unsigned i = 0; i < deep; ++i) {
            at = i % 2 == 0 ? &at->newChild() : &at->child("a");
        }
    });
    onSmallStack([] {
        JsonUnit root;
        for (unsigned i = 0; i < deep; ++i) {
            JsonUnit outer;
            outer.newChild().numberValue();
            outer.arrayValue().add(root);
            outer.newChild().objectValue();
            root = outer;
        }
    });
}

TEST(JsonHostileDepth, ValuesOfAForeignClassMayHoldOthersInBoundedStack) {
    onSmallStack([] {
        JsonUnit root;
        for (unsigned i = 0; i < deep; ++i) {
            JsonUnit outer;
            JsonUnit holder{tavSharedPtr<JsonValue>(new Holder(root))};
            if (i % 2 == 0) {
                outer.arrayValue().add(holder);
            } else {
                outer["a"] = holder;
            }
            root = outer;
        }
    });
}

TEST(JsonHostileDepth, AssignmentDropsADeepTreeInBoundedStack) {
    onSmallStack([] {
        JsonUnit unit;
        unit.decode(repeated("[", deep) + repeated("]", deep));
        unit.arrayValue() = JsonArray();
        EXPECT_EQ(unit.toString(false), "[ ]");
        unit.decode(repeated("{a:", deep) + repeated("}", deep));
        unit.objectValue() = JsonObject();
        EXPECT_EQ(unit.toString(false), "{ }");
    });
}

TEST(JsonHostileDepth, CoercingADeepTreeDropsItInBoundedStack) {
    onSmallStack([] {
        JsonUnit unit;
        unit.decode(repeated("{a:[", deep) + repeated("]}", deep));
        unit.numberValue();
        unit.decode(repeated("[", deep) + repeated("]", deep));
        unit.decode("{}");
        EXPECT_EQ(unit.toString(false), "{ }");
    });
}

TEST(JsonHostileDepth, DeepSampleClassInBoundedStack) {
    onSmallStack([] {
        JsonUnit unit;
        unit.decode(repeated("{__class__:", deep / 10) + "X" + repeated("}", deep / 10));
        constexpr unsigned inner = deep / 10 - 1;
        EXPECT_TRUE("@" + repeated("{ \"__class__\":", inner) + "\"X\"" + repeated(" }", inner) + "{ }" ==
                    bytes(unit.value()->encode(false, false, 0, true)));
    });
}

TEST(JsonHostileSharing, ASharedPartOutlivesTheTree) {
    int ended = 0;
    JsonUnit part;
    {
        JsonUnit root;
        JsonUnit * at = &root;
        for (int i = 0; i < 500; ++i) {
            at = i % 2 == 0 ? &at->newChild() : &at->child("a");
            if (i == 100) {
                at->objectValue().put("told", JsonUnit(tavSharedPtr<JsonValue>(new Told(ended))));
                part = *at;
                at = &at->child("deeper");
            }
        }
        at->arrayValue().add(JsonUnit(tavSharedPtr<JsonValue>(new Told(ended))));
    }
    EXPECT_EQ(ended, 0);
    EXPECT_EQ(part.value()->getRefCount(), 1u);
    EXPECT_EQ(part["told"].asString(), "told");
    part.setNull();
    EXPECT_EQ(ended, 2);
}

TEST(JsonHostileSharing, AValueHeldManyTimesEndsOnce) {
    onSmallStack([] {
        int ended = 0;
        {
            // Each level holds the one below twice, and the lowest is held from everywhere.
            JsonUnit const leaf(tavSharedPtr<JsonValue>(new Told(ended)));
            JsonUnit root;
            root.arrayValue().add(leaf);
            for (unsigned i = 0; i < 10000; ++i) {
                JsonUnit outer;
                outer.arrayValue().add(root);
                outer.newChild()["x"] = root;
                outer.arrayValue().add(leaf);
                root = outer;
            }
            EXPECT_EQ(leaf.value()->getRefCount(), 10002u);
        }
        EXPECT_EQ(ended, 1);
    });
}

TEST(JsonHostileSharing, AnUncountedValueIsLeftAlone) {
    JsonArray inner;
    inner.newChild().numberValue().setValue("1");
    {
        JsonUnit root;
        JsonUnit * at = &root;
        for (int i = 0; i < 100; ++i) {
            at = &at->newChild();
        }
        *at = JsonUnit(tavSharedPtr<JsonValue>(&inner, false));
    }
    EXPECT_EQ(inner.toString(), "[ 1 ]");
}

TEST(JsonHostileSharing, ThreadsReadOneTree) {
    JsonUnit root;
    root.decode("{a:[1,2,{b:'x/y'}],c:{d:{e:[true,null]}}}");
    JsonUnit const & constant = root;
    std::string const expected = bytes(constant.toString(false));
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&constant, &expected] {
            for (int n = 0; n < 200; ++n) {
                JsonUnit const mine = constant["c"]["d"];
                EXPECT_EQ(mine.toString(false), "{ \"e\":[ true ] }");
                EXPECT_EQ(bytes(constant.toString(false)), expected);
                EXPECT_TRUE(constant["none"].isNull());
                tavSharedPtr<JsonValue> const held = constant["a"].value();
                EXPECT_EQ(tav::JsonFieldArray, held->type());
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    EXPECT_EQ(root.value()->getRefCount(), 1u);
}

TEST(JsonHostileSharing, PartsOfATreeEndOnOtherThreads) {
    for (int round = 0; round < 20; ++round) {
        std::vector<JsonUnit> parts;
        {
            JsonUnit root;
            std::string text = "[";
            for (int i = 0; i < 400; ++i) {
                text += "{name:'a name that is longer than a short one " + std::to_string(i) +
                        "',n:[1,{x:true}]},";
            }
            root.decode(text);
            parts = root.arrayValue().elements();
        }
        std::vector<std::thread> threads;
        for (std::size_t t = 0; t < 4; ++t) {
            std::vector<JsonUnit> mine;
            for (std::size_t i = t; i < parts.size(); i += 4) {
                mine.push_back(std::move(parts[i]));
            }
            threads.emplace_back([t, mine = std::move(mine)]() mutable {
                for (std::size_t i = 0; i < mine.size(); ++i) {
                    JsonUnit & unit = mine[i];
                    EXPECT_EQ("a name that is longer than a short one " + std::to_string(i * 4 + t),
                              bytes(unit["name"].asString()));
                    unit["added"].numberValue().setValue("1");
                    unit["n"].arrayValue().add(unit["name"]);
                    unit["n"].newChild()["y"].booleanValue();
                    if (i % 3 == 0) {
                        unit.setNull();
                    }
                }
            });
        }
        for (std::thread & thread : threads) {
            thread.join();
        }
    }
}

TEST(JsonHostileSharing, APartOutlivesAFailedText) {
    JsonUnit kept;
    EXPECT_THROW(kept.decode("[{a:'x'},{b:" + repeated("[1],", 1000)), std::invalid_argument);
    EXPECT_TRUE(kept.isNull());
    kept.decode("{a:{b:[1,2,3]}}");
    kept = JsonUnit(kept["a"]["b"].value());
    for (int i = 0; i < 100; ++i) {
        kept.newChild().decode("{c:[" + std::to_string(i) + "]}");
    }
    EXPECT_EQ(kept.arrayValue().at(102).toString(false), "{ \"c\":[ 99 ] }");
    EXPECT_EQ(kept.arrayValue().at(2).asString(), "3");
}

TEST(JsonHostileSharing, ThreadsDestroyTheirOwnTrees) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < 20; ++n) {
                JsonUnit unit;
                unit.decode(repeated("[{a:", 200) + repeated("}]", 200));
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
}

TEST(JsonHostileRandom, ReadsAsThePlainReaderDoes) {
    std::string const letters = "{{{}}}[[[]]]:::,,,\"\"''\\ \t\nabnull1-\x80u0";
    std::mt19937 random(5);
    unsigned good = 0;
    for (int i = 0; i < 30000; ++i) {
        std::string text(1, i % 2 == 0 ? '{' : '[');
        for (std::size_t n = random() % 24; n > 0; --n) {
            text += letters[random() % letters.size()];
        }
        std::string const expected = PlainReader::read(text);
        EXPECT_EQ(readAndWritten(text), expected) << text;
        good += expected[0] != '!' ? 1 : 0;
    }
    EXPECT_GT(good, 1000u);
}

TEST(JsonHostileRandom, CutAndDamagedTextsReadAsThePlainReaderDoes) {
    std::string const whole =
        "{ \"name\" : \"Ann \\\"x\\\" \\u0041\\n\", tags:['a',\"b\",c d,null,,12,-1.5e3],"
        "\"in\":{\"deep\":[[[]],{},{\"e\":true}]},'last':12345678901234567890} tail";
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        std::string const cut = whole.substr(0, size);
        EXPECT_EQ(PlainReader::read(cut), readAndWritten(cut)) << cut;
    }
    std::mt19937 random(6);
    std::string const letters = "{}[]:,\"'\\ x1";
    for (int i = 0; i < 5000; ++i) {
        std::string damaged = whole;
        for (std::size_t n = 1 + random() % 3; n > 0; --n) {
            damaged[random() % damaged.size()] = letters[random() % letters.size()];
        }
        EXPECT_EQ(PlainReader::read(damaged), readAndWritten(damaged)) << damaged;
    }
}

TEST(JsonHostileRandom, TextsAreReadWithinTheirBounds) {
    // Each text in a block of its own size, so that a sanitizer sees a step outside.
    std::string const whole = "{\"abcdefgh\":[\"ijklmnop\\\\\",'x\\'y'],n:-12 ,t:true}";
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        std::vector<char> const block(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        std::string const cut = whole.substr(0, size);
        try {
            EXPECT_EQ(PlainReader::read(cut),
                      bytes(JsonParser::from(tav_istr(block.data(), block.size()))->toJson()));
        } catch (std::invalid_argument const &) {
            EXPECT_EQ(PlainReader::read(cut)[0], '!') << cut;
        }
        tav::json::JsonString::unescape(tav_istr(block.data(), block.size()));
        tav::json::JsonString::escape(tavString(block.data(), static_cast<unsigned>(block.size())));
    }
}
