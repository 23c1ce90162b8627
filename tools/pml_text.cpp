#include "tools/pml_text.h"

#include <algorithm>
#include <vector>

namespace tav {
namespace tool {

using pml::Unit;

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

tav_istr viewOf(std::string_view text) {
    return tav_istr(text.data(), static_cast<unsigned>(text.size()));
}

/// Where a unit that is being read ended ahead of its value.
enum class Head {
    complete,
    /// At a `)`: what was read is text of the unit around it.
    isText
};

} // namespace

class PmlBuilder {
public:
    PmlBuilder(std::string_view text, PmlText & to, Watch const & watch)
        : text_(text), to_(to), watch_(watch) {}

    void read();

private:
    /// A unit whose value is being read.
    struct Open {
        tavSharedPtr<Unit> unit;
        /// Where its `(` stands, and where the name of a child would begin.
        std::size_t bracket;
        std::size_t name;
    };

    bool atEnd() const { return at_ == text_.size(); }
    bool atComment() const { return text_.substr(at_, 2) == "(*"; }
    bool atBreak() const { return !atEnd() && (isBlank(text_[at_]) || atComment()); }
    bool skip();
    void takeWord(std::string & to, bool keepsBlank);
    [[noreturn]] void fail(char const * what, std::size_t at, std::string const & words) const;

    Head readHead(Unit & unit, UnitPlace & place, std::string & text);
    bool readWhole(tavSharedPtr<Unit> const & unit);
    void readValue(tavSharedPtr<Unit> const & outermost);
    void readQuoted(Open & open);
    void readChild();
    bool close();

    std::string_view text_;
    PmlText & to_;
    Watch const & watch_;
    std::size_t at_ = 0;
    std::size_t word_ = 0;
    std::size_t bracket_ = 0;
    /// A quote or comment that has no end.
    std::size_t unclosed_ = std::string_view::npos;
    std::vector<Open> open_;
};

/// What was never closed took all that follows, and is the mistake; what is no PML at all is told so.
void PmlBuilder::fail(char const * what, std::size_t at, std::string const & words) const {
    if (unclosed_ != std::string_view::npos) {
        throw PmlFault(what, unclosed_,
                       text_[unclosed_] == '(' ? "this comment has no end: *)" : "this quote has no end");
    }
    std::size_t const first = text_.find_first_not_of(" \t\r\n");
    std::string_view const begin =
        first == std::string_view::npos ? std::string_view() : text_.substr(first, 2);
    std::string const other = begin.substr(0, 1) == "{"                    ? "JSON"
                              : begin.substr(0, 1) == "<"                  ? "XML"
                              : begin == "\xFF\xFE" || begin == "\xFE\xFF" ? "UTF-16"
                                                                           : "";
    if (!other.empty()) {
        throw PmlFault(what, first, "this looks like " + other + ", and is no PML: units as name:type(...)");
    }
    throw PmlFault(what, at, words);
}

/// Steps over blanks and comments; true if there was a blank.
bool PmlBuilder::skip() {
    bool blank = false;
    while (!atEnd()) {
        if (isBlank(text_[at_])) {
            blank = true;
            ++at_;
        } else if (atComment()) {
            std::size_t const close = text_.find("*)", at_ + 2);
            unclosed_ = close == std::string_view::npos ? at_ : unclosed_;
            at_ = close == std::string_view::npos ? text_.size() : close + 2;
        } else {
            break;
        }
    }
    return blank;
}

/// Steps over a byte of a word.  Where the word ends with it the word is taken, and what follows skipped.
void PmlBuilder::takeWord(std::string & to, bool keepsBlank) {
    ++at_;
    if (atBreak()) {
        to += text_.substr(word_, at_ - word_);
        bool const blank = skip();
        to += blank && keepsBlank ? " " : "";
        word_ = at_;
    }
}

/// Reads a unit up to its first byte behind the `(`; what is text of the unit around it goes to `text`.
Head PmlBuilder::readHead(Unit & unit, UnitPlace & place, std::string & text) {
    skip();
    if (atEnd()) {
        fail("empty for pml unit", at_, "there is no unit here: name:type(...)");
    }
    place.name = word_ = at_;
    while (!atEnd() && text_[at_] != ':' && text_[at_] != '(') {
        if (text_[at_] == ')') {
            text += text_.substr(word_, at_ - word_);
            return Head::isText;
        }
        takeWord(unit.name(), false);
    }
    if (atEnd()) {
        fail("empty after pml name", at_, "a unit is name:type(...), and this one has no (");
    }
    unit.name() += text_.substr(word_, at_ - word_);
    place.type = place.name;
    if (text_[at_] == ':') {
        ++at_;
        skip();
        if (atEnd()) {
            fail("no pml type", at_, "a unit is name:type(...), and behind this : is nothing");
        }
        place.type = word_ = at_;
        while (!atEnd() && text_[at_] != '(') {
            if (text_[at_] == ')') {
                text += ':';
                text += text_.substr(word_, at_ - word_);
                return Head::isText;
            }
            takeWord(unit.type(), true);
        }
        if (atEnd()) {
            fail("no pml value", at_, "a unit is name:type(...), and this one has no (");
        }
        unit.type() += text_.substr(word_, at_ - word_);
    }
    bracket_ = at_++;
    skip();
    if (atEnd()) {
        fail("no pml value end tag", bracket_, "this ( has no )");
    }
    place.value = at_;
    return Head::complete;
}

/// False if a `)` stood in the place of the unit.
bool PmlBuilder::readWhole(tavSharedPtr<Unit> const & unit) {
    UnitPlace & place = to_.places_[unit.get()];
    std::string text;
    if (readHead(*unit, place, text) == Head::isText) {
        return false;
    }
    readValue(unit);
    return true;
}

void PmlBuilder::read() {
    tavSharedPtr<Unit> last(new Unit());
    to_.first_ = last;
    if (!text_.empty()) {
        if (!readWhole(last)) {
            fail("invalid pml: extra )", at_, "a ) without a (");
        }
        for (skip(); !atEnd(); skip()) {
            tavSharedPtr<Unit> const further(new Unit());
            if (!readWhole(further)) {
                break;
            }
            last->next(further);
            last = further;
        }
    }
    to_.end_ = at_;
}

void PmlBuilder::readQuoted(Open & open) {
    std::size_t const first = at_;
    char const quote = text_[at_++];
    while (!atEnd() && text_[at_] != quote) {
        at_ += text_[at_] == '^' && text_.size() - at_ >= 2 ? 2 : 1;
    }
    unclosed_ = atEnd() ? first : unclosed_;
    at_ += atEnd() ? 0 : 1;
    pml::unescape(open.unit->value(), viewOf(text_.substr(first, at_ - first)));
    skip();
}

/// Reads the head of a child, whose name is the text so far.
void PmlBuilder::readChild() {
    Open & around = open_.back();
    std::string const & text = around.unit->value();
    std::size_t size = text.size();
    while (size > 0 && isBlank(text[size - 1])) {
        --size;
    }
    tavSharedPtr<Unit> const child(new Unit());
    child->name() = text.substr(0, size);
    UnitPlace place;
    std::size_t const name = around.name;
    std::string joined;
    if (readHead(*child, place, joined) == Head::isText) {
        around.unit->value() += joined;
        close();
        return;
    }
    bool const untyped = place.type == place.name;
    place.type = untyped ? name : place.type;
    place.name = name;
    to_.places_[child.get()] = place;
    open_.push_back(Open{child, bracket_, at_});
    word_ = at_;
}

/// The innermost unit ends here; false if it was the outermost one.
bool PmlBuilder::close() {
    tavSharedPtr<Unit> const closed = open_.back().unit;
    to_.places_[closed.get()].end = at_++;
    open_.pop_back();
    if (watch_) {
        watch_(at_, text_.size());
    }
    if (open_.empty()) {
        return false;
    }
    open_.back().unit->value().clear();
    open_.back().unit->addChild(closed);
    skip();
    word_ = open_.back().name = at_;
    return true;
}

void PmlBuilder::readValue(tavSharedPtr<Unit> const & outermost) {
    open_.clear();
    open_.push_back(Open{outermost, bracket_, at_});
    word_ = at_;
    while (!atEnd()) {
        Open & open = open_.back();
        char const c = text_[at_];
        if (c == ')') {
            open.unit->value() += text_.substr(word_, at_ - word_);
            close();
        } else if (c == '"' || c == '\'') {
            readQuoted(open);
            word_ = at_;
        } else if (c == ':' || c == '(') {
            open.unit->value() += text_.substr(word_, at_ - word_);
            readChild();
        } else {
            takeWord(open.unit->value(), true);
        }
        if (open_.empty()) {
            return;
        }
    }
    fail("no pml value end tag", open_.back().bracket, "this ( has no )");
}

PmlText::PmlText(std::string_view text, Watch const & watch) {
    PmlBuilder(text.substr(0, text.find('\0')), *this, watch).read();
}

UnitPlace const & PmlText::place(Unit const & unit) const {
    static UnitPlace const nowhere;
    auto const found = places_.find(&unit);
    return found != places_.end() ? found->second : nowhere;
}

} // namespace tool
} // namespace tav
