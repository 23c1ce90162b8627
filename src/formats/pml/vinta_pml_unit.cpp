#include "tav/vinta/vinta_pml_tree.h"

#include "foundation/number_text.h"
#include "foundation/report.h"
#include "foundation/unshared_count.h"
#include "foundation/views.h"

#include <array>
#include <charconv>
#include <memory>
#include <string_view>

namespace tav {
namespace pml {

using detail::bytesOf;

namespace {

enum ByteClass : unsigned char {
    blankByte = 1,
    escapeByte = 2,
    specialByte = 4,
    /// Ends a run of bare text in a value: a quote, `:`, `(`, `)` or a blank.
    stopByte = 8
};

constexpr std::array<unsigned char, 256> makeByteClasses() {
    std::array<unsigned char, 256> classes{};
    auto const mark = [&classes](std::string_view bytes, unsigned bits) {
        for (char const c : bytes) {
            auto & entry = classes[static_cast<unsigned char>(c)];
            entry = static_cast<unsigned char>(entry | bits);
        }
    };
    mark(" \t\r\n", blankByte | stopByte);
    mark("^\"'", escapeByte);
    mark(":()*^\"'", specialByte);
    mark(":()\"'", stopByte);
    return classes;
}

constexpr std::array<unsigned char, 256> byteClasses = makeByteClasses();

bool is(char c, ByteClass which) {
    return (byteClasses[static_cast<unsigned char>(c)] & which) != 0;
}

/// Up to this many children are looked up one by one; more get a map.
constexpr std::size_t plainLookUpLimit = 12;

/// The bytes still to be read.
struct Cursor {
    char const * at;
    char const * end;

    bool atEnd() const { return at == end; }
    bool atComment() const { return end - at >= 2 && at[0] == '(' && at[1] == '*'; }
    bool atBreak() const { return at != end && (is(*at, blankByte) || atComment()); }

    /// Steps over blanks and comments; true if there was a blank.
    bool skip() {
        bool blank = false;
        while (at != end) {
            if (is(*at, blankByte)) {
                blank = true;
                ++at;
            } else if (atComment()) {
                std::string_view const rest(at + 2, static_cast<std::size_t>(end - at - 2));
                std::size_t const close = rest.find("*)");
                at = close == std::string_view::npos ? end : rest.data() + close + 2;
            } else {
                break;
            }
        }
        return blank;
    }
};

enum class Ended { normally, atStopMark };

std::string_view between(char const * first, char const * last) {
    return std::string_view(first, static_cast<std::size_t>(last - first));
}

// What reads a text tells it to a target, which has
// - name, type and value, each with a piece of that of the unit in hand, and quoted, with one of its value
// that
//   stands between quotes;
// - child(): a unit begins below the one in hand, with its value so far for a name; it is then in hand;
// - join(): that unit is none, and its value is text of the one around it, which is in hand again;
// - enter(): the unit that began is one whose value follows;
// - close(): the unit in hand ends, and the one around it is in hand; false if there is none;
// - begin() and append(): a further unit of the sequence begins, and is whole.

/// Reads a name, or behind a colon a type, up to the byte that ends it.
template <class Target>
Ended decodeName(Cursor & in, Target & to) {
    char const * word = in.at;
    while (!in.atEnd()) {
        char const c = *in.at;
        if (c == ')') {
            to.value(between(word, in.at));
            return Ended::atStopMark;
        }
        if (c == ':' || c == '(') {
            to.name(between(word, in.at));
            return Ended::normally;
        }
        ++in.at;
        if (in.atBreak()) {
            to.name(between(word, in.at));
            in.skip();
            word = in.at;
        }
    }
    return Ended::normally;
}

template <class Target>
Ended decodeType(Cursor & in, Target & to) {
    char const * word = in.at;
    while (!in.atEnd()) {
        char const c = *in.at;
        if (c == ')') {
            to.value(":");
            to.value(between(word, in.at));
            return Ended::atStopMark;
        }
        if (c == '(') {
            to.type(between(word, in.at));
            return Ended::normally;
        }
        ++in.at;
        if (in.atBreak()) {
            to.type(between(word, in.at));
            if (in.skip()) {
                to.type(" ");
            }
            word = in.at;
        }
    }
    return Ended::normally;
}

/// Reads a unit up to its first byte behind the `(`.
template <class Target>
Ended decodeUnit(Cursor & in, Target & to) {
    in.skip();
    if (in.atEnd()) {
        detail::raise(detail::here("tav::pml::decodeUnit"), "empty for pml unit");
    }
    if (decodeName(in, to) == Ended::atStopMark) {
        return Ended::atStopMark;
    }
    if (in.atEnd()) {
        detail::raise(detail::here("tav::pml::decodeUnit"), "empty after pml name");
    }
    in.skip();
    if (in.atEnd()) {
        detail::raise(detail::here("tav::pml::decodeUnit"), "no pml type or value");
    }
    if (*in.at == ':') {
        ++in.at;
        in.skip();
        if (in.atEnd()) {
            detail::raise(detail::here("tav::pml::decodeUnit"), "no pml type");
        }
        if (decodeType(in, to) == Ended::atStopMark) {
            return Ended::atStopMark;
        }
        in.skip();
        if (in.atEnd()) {
            detail::raise(detail::here("tav::pml::decodeUnit"), "no pml value");
        }
    }
    if (*in.at == ')') {
        return Ended::atStopMark;
    }
    if (*in.at != '(') {
        detail::raise(detail::here("tav::pml::decodeUnit"), "no pml value begin tag");
    }
    ++in.at;
    in.skip();
    if (in.atEnd()) {
        detail::raise(detail::here("tav::pml::decodeUnit"), "no pml value end tag");
    }
    return Ended::normally;
}

/// Steps over the quoted text at the cursor and what may follow it.
std::string_view takeQuoted(Cursor & in) {
    char const * const first = in.at;
    char const quote = *in.at++;
    while (!in.atEnd() && *in.at != quote) {
        in.at += *in.at == '^' && in.end - in.at >= 2 ? 2 : 1;
    }
    if (!in.atEnd()) {
        ++in.at;
    }
    std::string_view const text = between(first, in.at);
    in.skip();
    return text;
}

/// Reads the value of the unit in hand, from behind its `(` to behind its `)`, with all that lies below.
template <class Target>
void decodeValue(Cursor & in, Target & to) {
    char const * word = in.at;
    // Behind the `)` of the unit in hand; false if it was the outermost one.
    auto const close = [&] {
        ++in.at;
        if (!to.close()) {
            return false;
        }
        in.skip();
        word = in.at;
        return true;
    };
    while (!in.atEnd()) {
        char const c = *in.at;
        if (c == ')') {
            to.value(between(word, in.at));
            if (!close()) {
                return;
            }
        } else if (c == '"' || c == '\'') {
            to.quoted(takeQuoted(in));
            word = in.at;
        } else if (c == ':' || c == '(') {
            to.value(between(word, in.at));
            to.child();
            if (decodeUnit(in, to) == Ended::atStopMark) {
                to.join();
                if (!close()) {
                    return;
                }
            } else {
                to.enter();
            }
            word = in.at;
        } else {
            ++in.at;
            while (!in.atEnd() && !is(*in.at, stopByte)) {
                ++in.at;
            }
            if (in.atBreak()) {
                to.value(between(word, in.at));
                if (in.skip()) {
                    to.value(" ");
                }
                word = in.at;
            }
        }
    }
    detail::raise(detail::here("tav::pml::decodeValue"), "no pml value end tag");
}

template <class Target>
Ended decodeWhole(Cursor & in, Target & to) {
    if (decodeUnit(in, to) == Ended::atStopMark) {
        return Ended::atStopMark;
    }
    decodeValue(in, to);
    return Ended::normally;
}

/// Reads a text of one or more units.
template <class Target>
void decodeSequence(std::string_view text, Target & to) {
    Cursor in{text.data(), text.data() + text.size()};
    if (decodeWhole(in, to) == Ended::atStopMark) {
        detail::raise(detail::here("tav::pml::Unit::decode"), "invalid pml: extra )");
    }
    for (in.skip(); !in.atEnd(); in.skip()) {
        to.begin();
        if (decodeWhole(in, to) == Ended::atStopMark) {
            return;
        }
        to.append();
    }
}

/// Keeps nothing but the depth: to find out whether a text fails.
class NoUnits {
public:
    void name(std::string_view) {}
    void type(std::string_view) {}
    void value(std::string_view) {}
    void quoted(std::string_view) {}
    void child() {}
    void join() {}
    void enter() { ++depth_; }
    bool close() {
        if (depth_ == 0) {
            return false;
        }
        --depth_;
        return true;
    }
    void begin() {}
    void append() {}

private:
    std::size_t depth_ = 0;
};

/// A unit of a text: nobody but the reader knows it before it stands in its tree.
class ReadUnit final : public Unit {
public:
    static void * operator new(std::size_t size) {
        void * const memory = ::operator new(size);
        detail::nextCountIsUnshared();
        return memory;
    }
    static void operator delete(void * unit) noexcept { ::operator delete(unit); }
};

/// Makes the units of a text, beginning with a given one.  Once they cost many times the text, the text has
/// to be good: so one that must fail costs little, whatever stands in it.
class UnitBuilder {
public:
    UnitBuilder(std::string_view text, Unit & first)
        : text_(text),
          trusted_(18 * text.size() + plentiful),
          current_(&first),
          inHand_(&first),
          last_(&first) {}

    void name(std::string_view text) { inHand_->name().append(text); }
    void type(std::string_view text) { inHand_->type().append(text); }
    void value(std::string_view text) { inHand_->value().append(text); }
    void quoted(std::string_view text) { unescape(inHand_->value(), detail::viewOf(text)); }

    void child() {
        std::string const & text = current_->value();
        std::size_t size = text.size();
        while (size > 0 && is(text[size - 1], blankByte)) {
            --size;
        }
        child_ = made(size);
        child_->name().assign(text, 0, size);
        inHand_ = child_.get();
    }

    void join() {
        current_->value() += child_->value();
        child_.reset();
        inHand_ = current_;
    }

    void enter() {
        current_ = inHand_;
        open_.push_back(std::move(child_));
    }

    bool close() {
        if (open_.empty()) {
            return false;
        }
        tavSharedPtr<Unit> closed = std::move(open_.back());
        open_.pop_back();
        current_ = inHand_ = open_.empty() ? outermost() : open_.back().get();
        current_->value().clear();
        current_->addChild(std::move(closed));
        return true;
    }

    /// A further unit of the sequence begins, which is appended when it is whole.
    void begin() {
        further_ = made(0);
        current_ = inHand_ = further_.get();
    }

    void append() {
        last_->next(further_);
        last_ = further_.get();
        further_.reset();
    }

private:
    /// What any text may cost.
    static constexpr std::size_t plentiful = 512 * 1024;
    /// About what a unit costs beside its texts: its count, its place and its name among its siblings.
    static constexpr std::size_t unitCost = sizeof(Unit) + 192;

    Unit * outermost() { return further_ ? further_.get() : last_; }

    tavSharedPtr<Unit> made(std::size_t nameSize) {
        cost_ += unitCost + 3 * nameSize;
        if (cost_ > trusted_) {
            NoUnits none;
            decodeSequence(text_, none);
            trusted_ = ~std::size_t(0);
        }
        return tavSharedPtr<Unit>(new ReadUnit());
    }

    std::string_view text_;
    std::size_t cost_ = 0;
    std::size_t trusted_;
    /// The unit whose value is being read, and the one in hand: that one or a child of it that began.
    Unit * current_;
    Unit * inHand_;
    /// The last whole unit of the sequence, and the one that is being read behind it.
    Unit * last_;
    tavSharedPtr<Unit> further_;
    tavSharedPtr<Unit> child_;
    /// The children whose values are being read, outermost first.
    std::vector<tavSharedPtr<Unit>> open_;
};

} // namespace

bool isEscapeChar(char c) {
    return is(c, escapeByte);
}

bool isSpecialChar(char c) {
    return is(c, specialByte);
}

void escape(std::string & out, tav_istr const & text) {
    std::string_view const bytes = bytesOf(text);
    if (bytes.empty()) {
        return;
    }
    bool quoted = is(bytes.front(), blankByte) || is(bytes.back(), blankByte);
    for (std::size_t i = 0; i < bytes.size() && !quoted; ++i) {
        quoted = is(bytes[i], specialByte);
    }
    if (!quoted) {
        out.append(bytes);
        return;
    }
    out += '"';
    std::size_t first = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (is(bytes[i], escapeByte)) {
            out.append(bytes, first, i - first);
            out += '^';
            first = i;
        }
    }
    out.append(bytes, first, bytes.size() - first);
    out += '"';
}

void unescape(std::string & out, tav_istr const & text) {
    std::string_view bytes = bytesOf(text);
    bool const quoted =
        bytes.size() >= 2 && (bytes.front() == '"' || bytes.front() == '\'') && bytes.back() == bytes.front();
    if (!quoted) {
        out.append(bytes);
        return;
    }
    bytes = bytes.substr(1, bytes.size() - 2);
    for (;;) {
        std::size_t const caret = bytes.find('^');
        out.append(bytes.substr(0, caret));
        if (caret == std::string_view::npos) {
            return;
        }
        bytes.remove_prefix(caret + 1);
        if (!bytes.empty()) {
            out += bytes.front();
            bytes.remove_prefix(1);
        }
    }
}

Unit::Unit() = default;

Unit::Unit(int id) : id_(id) {}

Unit::Unit(tav_istr name) : name_(bytesOf(name)) {}

Unit::Unit(tav_istr name, tav_istr value) : name_(bytesOf(name)), value_(bytesOf(value)) {}

Unit::Unit(tav_istr name, tav_istr type, tav_istr value)
    : name_(bytesOf(name)), type_(bytesOf(type)), value_(bytesOf(value)) {}

Unit::Unit(Unit const & other)
    : tavRefCountObject(other),
      name_(other.name_),
      type_(other.type_),
      value_(other.value_),
      id_(other.id_),
      comment_(other.comment_),
      children_(other.children_),
      entries_(other.entries_),
      next_(other.next_) {}

Unit & Unit::operator=(Unit const & other) {
    if (this != &other) {
        // What is replaced goes last, as `other` may be a part of it.
        Unit former(other);
        swapContents(former);
    }
    return *this;
}

Unit::Unit(Unit && other) noexcept {
    swapContents(other);
}

Unit & Unit::operator=(Unit && other) noexcept {
    // What is replaced goes last, as `other` may be a part of it.
    Unit former(std::move(other));
    swapContents(former);
    return *this;
}

/// The end of units, in the same stack whatever the depth, and without an allocation.
struct Unit::End {
    /// Whether dropping the pointer ends the unit.
    [[gnu::visibility("hidden")]] static bool isLast(tavSharedPtr<Unit> const & unit) {
        return unit && unit.counted() && unit->getRefCount() == 1;
    }

    /// Lets go of a unit.  While the units below it end, each one keeps the one above it in the place of its
    /// successor, which waits in the place that it leaves among its parent's children.
    [[gnu::visibility("hidden")]] static void of(tavSharedPtr<Unit> unit) noexcept {
        while (isLast(unit)) {
            unit->forgetNames();
            std::vector<tavSharedPtr<Unit>> & children = unit->children_;
            if (children.empty()) {
                tavSharedPtr<Unit> above = std::move(unit->next_);
                unit = std::move(above);
                continue;
            }
            tavSharedPtr<Unit> child = std::move(children.back());
            if (!isLast(child)) {
                children.pop_back();
                continue;
            }
            children.back() = std::move(child->next_);
            child->next_ = std::move(unit);
            unit = std::move(child);
        }
    }
};

Unit::~Unit() {
    forgetNames();
    while (!children_.empty()) {
        tavSharedPtr<Unit> child = std::move(children_.back());
        children_.pop_back();
        End::of(std::move(child));
    }
    End::of(std::move(next_));
}

std::string & Unit::name() {
    return name_;
}

std::string & Unit::type() {
    return type_;
}

std::string & Unit::value() {
    return value_;
}

std::string const & Unit::name() const {
    return name_;
}

std::string const & Unit::type() const {
    return type_;
}

std::string const & Unit::value() const {
    return value_;
}

std::string const & Unit::comment() const {
    return comment_;
}

Unit & Unit::name(tav_istr v) {
    name_ = bytesOf(v);
    return *this;
}

Unit & Unit::type(tav_istr v) {
    type_ = bytesOf(v);
    return *this;
}

Unit & Unit::value(tav_istr v) {
    value_ = bytesOf(v);
    return *this;
}

int Unit::id() const {
    return id_;
}

Unit & Unit::id(int v) {
    id_ = v;
    return *this;
}

Unit & Unit::child(tav_istr name) {
    if (tavSharedPtr<Unit> const * const found = lookUp(name)) {
        return **found;
    }
    tavSharedPtr<Unit> made(new Unit(name));
    Unit & result = *made;
    enter(std::move(made), std::string(bytesOf(name)));
    return result;
}

Unit & Unit::operator[](tav_istr name) {
    return child(name);
}

Unit & Unit::operator()(tav_istr name) {
    return child(name);
}

Unit const & Unit::child(tav_istr name) const {
    tavSharedPtr<Unit> const * const found = lookUp(name);
    return found != nullptr ? **found : null();
}

Unit const & Unit::operator[](tav_istr name) const {
    return child(name);
}

Unit const & Unit::operator()(tav_istr name) const {
    return child(name);
}

Unit & Unit::child(tav_istr name, tav_istr alternative, int id) {
    if (alternative.empty()) {
        return child(name).id(id);
    }
    Unit & result = child(alternative);
    result.comment_ = bytesOf(name);
    return result.id(id);
}

Unit const & Unit::child(tav_istr name, tav_istr alternative, int) const {
    return child(alternative.empty() ? name : alternative);
}

bool Unit::hasChild(tav_istr name) const {
    return lookUp(name) != nullptr;
}

tavSharedPtr<Unit> Unit::find(tav_istr name) {
    return static_cast<Unit const *>(this)->find(name);
}

tavSharedPtr<Unit> Unit::find(tav_istr name) const {
    tavSharedPtr<Unit> const * const found = lookUp(name);
    return found != nullptr ? *found : tavSharedPtr<Unit>();
}

Unit const & Unit::at(unsigned i) const {
    return i < children_.size() ? *children_[i] : null();
}

tavSharedPtr<Unit> Unit::findAt(unsigned i) const {
    return i < children_.size() ? children_[i] : tavSharedPtr<Unit>();
}

std::vector<tavSharedPtr<Unit>> Unit::children() const {
    return children_;
}

std::vector<tavSharedPtr<Unit>> Unit::children(tav_istr name) const {
    std::vector<tavSharedPtr<Unit>> result;
    if (entries_.size() > plainLookUpLimit) {
        auto const range = child_equal_range(name);
        for (map_iterator at = range.first; at != range.second; ++at) {
            result.push_back(at->second);
        }
        return result;
    }
    for (Entry const & entry : entries_) {
        if (entry.name == bytesOf(name)) {
            result.push_back(children_[entry.index]);
        }
    }
    return result;
}

std::pair<Unit::map_iterator, Unit::map_iterator> Unit::child_equal_range(tav_istr name) const {
    return names().equal_range(std::string(bytesOf(name)));
}

Unit::const_iterator Unit::begin() const {
    return children_.begin();
}

Unit::const_iterator Unit::end() const {
    return children_.end();
}

unsigned Unit::size() const {
    return static_cast<unsigned>(children_.size());
}

unsigned Unit::numofChildren() const {
    return size();
}

void Unit::addChild(tavSharedPtr<Unit> child) {
    if (child) {
        std::string name = child->name_;
        enter(std::move(child), std::move(name));
    }
}

void Unit::append(Unit const & child) {
    addChild(tavSharedPtr<Unit>(new Unit(child)));
}

Unit & Unit::newChild() {
    children_.push_back(tavSharedPtr<Unit>(new Unit()));
    return *children_.back();
}

void Unit::clear() {
    value_.clear();
    forgetNames();
    entries_.clear();
    children_.clear();
}

void Unit::setValue(Unit const & other) {
    if (this == &other) {
        return;
    }
    // What is replaced goes last, as `other` may be a part of it.
    std::vector<tavSharedPtr<Unit>> children(other.children_);
    std::vector<Entry> entries(other.entries_);
    type_ = other.type_;
    value_ = other.value_;
    forgetNames();
    entries_.swap(entries);
    children_.swap(children);
}

tavSharedPtr<Unit> Unit::next() const {
    return next_;
}

void Unit::next(tavSharedPtr<Unit> v) {
    next_ = std::move(v);
}

tavSharedPtr<Unit> Unit::getNext() const {
    return next_;
}

tavSharedPtr<Unit> Unit::createNext() {
    if (!next_) {
        next_ = tavSharedPtr<Unit>(new Unit(static_cast<int>(static_cast<unsigned>(id_) + 1u)));
    }
    return next_;
}

std::string Unit::asStringValue() const {
    return value_;
}

bool Unit::asBoolValue() const {
    return !empty() && value_ != "false";
}

long long Unit::asInt64Value() const {
    long long value = 0;
    detail::readInteger(value_, value);
    return value;
}

double Unit::asDoubleValue() const {
    double value = 0;
    detail::readFloatingPart(value_, value);
    return value;
}

bool Unit::simple() const {
    return children_.empty();
}

bool Unit::empty() const {
    return children_.empty() && value_.empty();
}

bool Unit::isNull() const {
    return this == &null();
}

Unit const & Unit::null() {
    // Never destroyed, so that it may still be asked for while the process ends.
    static Unit const * const unit = new Unit();
    return *unit;
}

tavSharedPtr<Unit> Unit::byValue(tav_istr value) {
    tavSharedPtr<Unit> unit(new Unit());
    unit->value(value);
    return unit;
}

Unit & Unit::decode(tav_istr text) {
    std::string_view bytes = bytesOf(text);
    if (bytes.empty()) {
        return *this;
    }
    bytes = bytes.substr(0, bytes.find('\0'));
    UnitBuilder builder(bytes, *this);
    decodeSequence(bytes, builder);
    return *this;
}

struct Unit::WriteOptions {
    bool formatted;
    bool skipEmpty;
    bool withType;
    bool withId;

    void prefix(std::string & out, int level) const {
        if (formatted) {
            out += '\n';
            out.append(level > 0 ? static_cast<std::size_t>(level) * 4 : 0, ' ');
        }
    }

    /// All that stands ahead of the value.
    void head(std::string & out, Unit const & unit, int level) const {
        prefix(out, level);
        if (withId) {
            char digits[16];
            char * const end = std::to_chars(digits, digits + sizeof digits, unit.id_).ptr;
            out += '[';
            out.append(digits, static_cast<std::size_t>(end - digits));
            out += ']';
        }
        out += unit.name_;
        if (!unit.comment_.empty() && withId && formatted) {
            out += "(*";
            out += unit.comment_;
            out += "*)";
        }
        if (!unit.type_.empty() && withType) {
            out += ':';
            out += unit.type_;
        }
        out += '(';
    }

    /// A whole unit without children.
    void simple(std::string & out, Unit const & unit, int level) const {
        head(out, unit, level);
        escape(out, tav_istr(unit.value_));
        out += ')';
    }
};

std::string Unit::encode(bool formatted, bool skipEmpty, int level, bool withType, bool withId) const {
    std::string out;
    encode(out, formatted, skipEmpty, level, withType, withId);
    return out;
}

void Unit::encode(std::string & out, bool formatted, bool skipEmpty, int level, bool withType,
                  bool withId) const {
    WriteOptions const options{formatted, skipEmpty, withType, withId};
    for (Unit const * unit = this; unit != nullptr; unit = unit->next_.get()) {
        unit->encode_i(out, level, options);
    }
}

std::string Unit::toCompacted(bool skipEmpty, bool withType) const {
    return encode(false, skipEmpty, 0, withType, false);
}

std::string Unit::toPml() const {
    return encode(false, false, 0, true, false);
}

std::string Unit::toFormatted() const {
    return encode(true, false, 0, true, false);
}

std::string Unit::toFullFormatted() const {
    return encode(true, false, 1, true, true);
}

std::string Unit::toString(bool formatted, bool skipEmpty, bool withType) const {
    return formatted ? toFormatted() : toCompacted(skipEmpty, withType);
}

/// The children's map, made if need be.
Unit::NameMap const & Unit::names() const {
    NameMap * map = childMap_.load(std::memory_order_acquire);
    if (map == nullptr) {
        auto made = std::make_unique<NameMap>();
        for (Entry const & entry : entries_) {
            made->emplace(entry.name, children_[entry.index]);
        }
        if (childMap_.compare_exchange_strong(map, made.get(), std::memory_order_acq_rel)) {
            map = made.release();
        }
    }
    return *map;
}

/// Where the first child of this name is held; null if there is none.  Valid until the unit is changed.
tavSharedPtr<Unit> const * Unit::lookUp(tav_istr name) const {
    std::string_view const wanted = bytesOf(name);
    if (entries_.size() <= plainLookUpLimit) {
        for (Entry const & entry : entries_) {
            if (entry.name == wanted) {
                return &children_[entry.index];
            }
        }
        return nullptr;
    }
    NameMap const & map = names();
    std::string const key(wanted);
    map_iterator const found = map.lower_bound(key);
    return found != map.end() && found->first == key ? &found->second : nullptr;
}

/// Appends a child under this name.
void Unit::enter(tavSharedPtr<Unit> child, std::string name) {
    if (NameMap * const map = childMap_.load(std::memory_order_relaxed)) {
        map->emplace(name, child);
    }
    entries_.push_back(Entry{std::move(name), static_cast<unsigned>(children_.size())});
    children_.push_back(std::move(child));
}

void Unit::forgetNames() noexcept {
    if (NameMap * const map = childMap_.load(std::memory_order_relaxed)) {
        childMap_.store(nullptr, std::memory_order_relaxed);
        delete map;
    }
}

/// Exchanges all but the counts.
void Unit::swapContents(Unit & other) noexcept {
    name_.swap(other.name_);
    type_.swap(other.type_);
    value_.swap(other.value_);
    std::swap(id_, other.id_);
    comment_.swap(other.comment_);
    children_.swap(other.children_);
    entries_.swap(other.entries_);
    next_.swap(other.next_);
    forgetNames();
    other.forgetNames();
}

/// Writes this unit with all that lies below, without those that follow it.
void Unit::encode_i(std::string & out, int level, WriteOptions const & options) const {
    struct Frame {
        Unit const * unit;
        std::size_t next;
    };
    WriteOptions const oneLine{false, false, options.withType, options.withId};
    // The units whose children are being written, outermost first.
    std::vector<Frame> open;
    auto const begin = [&](Unit const & unit) {
        int const depth = level + static_cast<int>(open.size());
        if (options.skipEmpty && unit.empty()) {
            return;
        }
        if (unit.children_.empty()) {
            options.simple(out, unit, depth);
            return;
        }
        options.head(out, unit, depth);
        if (unit.children_.size() == 1 && unit.children_[0]->children_.empty() && unit.value_.empty()) {
            oneLine.simple(out, *unit.children_[0], 0);
            out += ')';
            return;
        }
        open.push_back(Frame{&unit, 0});
    };
    begin(*this);
    while (!open.empty()) {
        Frame & frame = open.back();
        Unit const & unit = *frame.unit;
        if (frame.next < unit.children_.size()) {
            Unit const & child = *unit.children_[frame.next++];
            begin(child);
            continue;
        }
        int const depth = level + static_cast<int>(open.size());
        if (!unit.value_.empty()) {
            options.simple(out, Unit(tav_istr("__value__"), tav_istr(unit.value_)), depth);
        }
        options.prefix(out, depth - 1);
        out += ')';
        open.pop_back();
    }
}

std::ostream & operator<<(std::ostream & out, Unit const & v) {
    return out << v.toPml();
}

} // namespace pml
} // namespace tav
