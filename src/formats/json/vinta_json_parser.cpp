#include "tav/vinta/vinta_json_tree.h"

#include "formats/json/json_text.h"
#include "foundation/number_text.h"
#include "foundation/report.h"
#include "foundation/tree_nodes.h"
#include "foundation/views.h"

#include <array>
#include <cstddef>
#include <iterator>
#include <ostream>
#include <string_view>
#include <typeinfo>

namespace tav {
namespace json {

using detail::appendEscaped;
using detail::appendUnescaped;
using detail::betweenQuotes;
using detail::bytesOf;
using detail::findQuote;
using detail::isQuote;

namespace {

enum ByteClass : unsigned char { blankByte = 1, tokenByte = 2 };

constexpr std::array<unsigned char, 256> makeByteClasses() {
    std::array<unsigned char, 256> classes{};
    for (char const c : std::string_view(" \t\r\n")) {
        classes[static_cast<unsigned char>(c)] = blankByte;
    }
    for (char const c : std::string_view("{}[]:,\"'")) {
        classes[static_cast<unsigned char>(c)] = tokenByte;
    }
    return classes;
}

constexpr std::array<unsigned char, 256> byteClasses = makeByteClasses();

bool is(char c, ByteClass which) {
    return byteClasses[static_cast<unsigned char>(c)] == which;
}

bool isDigit(char c) {
    return static_cast<unsigned char>(c - '0') < 10;
}

tav_istr viewOf(std::string_view text) {
    return tav_istr(text.data(), text.size());
}

void appendNumberText(std::string & out, std::string_view text) {
    if (text.size() < 16) {
        out.append(text);
        return;
    }
    out += '"';
    out.append(text);
    out += '"';
}

void appendIndent(std::string & out, bool pretty, long long level) {
    if (!pretty) {
        out += ' ';
        return;
    }
    std::size_t const blanks = level > 0 ? static_cast<std::size_t>(level) * 4 : 0;
    // A text that no string can hold is refused before it takes the memory.
    detail::checkGrowth(out.size(), blanks + 1);
    out += '\n';
    out.append(blanks, ' ');
}

/// The destruction of trees on this thread.  Values are destroyed inside one another down to a fixed depth;
/// what lies below is put aside and destroyed by the outermost one, so that the stack stays bounded.
struct Destruction {
    unsigned depth;
    std::vector<JsonUnit> * below;
};
[[gnu::tls_model("initial-exec")]] thread_local Destruction destruction{0, nullptr};

constexpr unsigned plainDepth = 32;

/// Runs `clear`, which destroys the children of a value, at the right depth; beyond it, runs `move` instead,
/// which hands over those children that may hold values.
template <class Clear, class Move>
void destroyChildren(Clear clear, Move move) {
    Destruction & state = destruction;
    if (state.depth >= plainDepth) {
        move(*state.below);
        return;
    }
    if (state.depth > 0) {
        ++state.depth;
        clear();
        --state.depth;
        return;
    }
    detail::NodeReturn const together;
    std::vector<JsonUnit> below;
    state.below = &below;
    state.depth = 1;
    clear();
    while (!below.empty()) {
        JsonUnit const unit = std::move(below.back());
        below.pop_back();
    }
    state.depth = 0;
    state.below = nullptr;
}

/// A value that is made here: it has its count beside it, and while a text is read, it lies beside the others
/// of that text.
template <class Value>
class Node final : public Value {
    static_assert(alignof(Value) <= alignof(void *), "nodes are aligned as pointers are");

public:
    using Value::Value;
    static void * operator new(std::size_t size) { return detail::newCountedNode(size); }
    static void operator delete(void * node) noexcept { detail::deleteNode(node); }
};

/// What JsonParser::fromSimple makes of a text, not yet referred to.
JsonValue * makeSimple(std::string_view text) {
    if (text.empty() || text == "null") {
        return nullptr;
    }
    char const digit = text[0] == '-' && text.size() >= 2 ? text[1] : text[0];
    if (isDigit(digit)) {
        return new Node<JsonNumber>(viewOf(text));
    }
    if (text == "true" || text == "false") {
        return new Node<JsonBoolean>(text == "true");
    }
    return new Node<JsonString>(viewOf(text));
}

/// Whether a value is of this class itself, and not of one that may write another text.
template <class Value>
bool isPlain(JsonValue const & v) {
    std::type_info const & type = typeid(v);
    return type == typeid(Node<Value>) || type == typeid(Value);
}

} // namespace

JsonValue::~JsonValue() = default;

JsonFieldType JsonValue::type() const {
    return static_cast<JsonFieldType>(-1);
}

tavString JsonValue::asString() const {
    return toString();
}

tavString JsonValue::toJson() const {
    return encode(false, false, 0, false);
}

tavString JsonValue::toFormatted() const {
    return encode(true, true, 1, false);
}

tavString JsonValue::toFormattedSample() const {
    return encode(true, false, 1, true);
}

tavString JsonValue::dump(bool b) const {
    return encode(b, !b, 1, b);
}

tavString JsonValue::encode(bool pretty, bool skipNull, int level, bool sample) const {
    return JsonFormatter(this, pretty, skipNull, level, sample).toString();
}

JsonFieldType JsonBoolean::type() const {
    return JsonFieldBoolean;
}

tavString JsonBoolean::toString() const {
    return value_ ? "true" : "false";
}

bool JsonBoolean::simple() const {
    return true;
}

void JsonBoolean::fromString(tav_istr text) {
    value_ = text != "false";
}

JsonFieldType JsonNumber::type() const {
    return JsonFieldNumber;
}

tavString JsonNumber::toString() const {
    std::string out;
    appendNumberText(out, bytesOf(text_));
    return tavString(std::move(out));
}

bool JsonNumber::simple() const {
    return true;
}

void JsonNumber::getValue(tavNumber<char, 0> & v) const {
    short work = 0;
    if (detail::readInteger(bytesOf(text_), work)) {
        v = static_cast<char>(work);
    }
}

void JsonNumber::getValue(tavNumber<unsigned char, 0> & v) const {
    unsigned short work = 0;
    if (detail::readInteger(bytesOf(text_), work)) {
        v = static_cast<unsigned char>(work);
    }
}

void JsonNumber::setValue(tav_istr text) {
    text_ = text;
}

void JsonNumber::setValue(tavNumber<char, 0> const & v) {
    text_ = viewOf(detail::NumberText(static_cast<short>(v)).view());
}

void JsonNumber::setValue(tavNumber<unsigned char, 0> const & v) {
    text_ = viewOf(detail::NumberText(static_cast<unsigned short>(v)).view());
}

void JsonNumber::fromString(tav_istr text) {
    text_ = betweenQuotes(bytesOf(text)) ? text.substr(1, text.size() - 2) : text;
}

JsonFieldType JsonString::type() const {
    return JsonFieldString;
}

tavString JsonString::asString() const {
    return text_;
}

tavString JsonString::toString() const {
    std::string out;
    appendEscaped(out, bytesOf(text_));
    return tavString(std::move(out));
}

bool JsonString::simple() const {
    return true;
}

void JsonString::setValue(tav_istr text) {
    text_ = text;
}

void JsonString::fromString(tav_istr text) {
    text_ = std::move(unescape(text).value());
}

tavSharedPtr<JsonString> JsonString::from(tav_istr text) {
    tavOptional<tavString> plain = unescape(text);
    if (!plain) {
        return nullptr;
    }
    tavSharedPtr<JsonString> made(new Node<JsonString>);
    made->text_ = std::move(*plain);
    return made;
}

tavString JsonString::escape(tavOptional<tavString> const & text) {
    if (!text) {
        return "null";
    }
    std::string out;
    appendEscaped(out, bytesOf(*text));
    return tavString(std::move(out));
}

tavOptional<tavString> JsonString::unescape(tav_istr text) {
    std::string_view const bytes = bytesOf(text);
    if (bytes == "null") {
        return tavOptional<tavString>();
    }
    if (bytes.size() < 2) {
        return tavString(text);
    }
    std::string out;
    appendUnescaped(out, bytes);
    return tavString(std::move(out));
}

template <class Value>
Value & JsonUnit::coerce(JsonValue::Kind kind) {
    JsonValue * held = holding(kind);
    if (held == nullptr) {
        value_ = tavSharedPtr<JsonValue>(new Node<Value>);
        held = value_.get();
    }
    return static_cast<Value &>(*held);
}

JsonFieldType JsonUnit::type() const {
    return value_ ? value_->type() : JsonFieldNull;
}

bool JsonUnit::simple() const {
    return !value_ || value_->simple();
}

void JsonUnit::setNull() {
    value_.reset();
}

tavString JsonUnit::asString() const {
    return value_ ? value_->asString() : tavString();
}

tavString JsonUnit::toString(bool pretty) const {
    if (!value_) {
        return "null";
    }
    return pretty ? value_->toFormatted() : value_->toJson();
}

void JsonUnit::dump(std::ostream & out) const {
    if (value_) {
        out << value_->toString();
    } else {
        out << "null";
    }
}

JsonArray const * JsonUnit::arrayValue() const {
    return static_cast<JsonArray const *>(holding(JsonValue::Kind::array));
}

JsonBoolean const * JsonUnit::booleanValue() const {
    return static_cast<JsonBoolean const *>(holding(JsonValue::Kind::boolean));
}

JsonNumber const * JsonUnit::numberValue() const {
    return static_cast<JsonNumber const *>(holding(JsonValue::Kind::number));
}

JsonObject const * JsonUnit::objectValue() const {
    return static_cast<JsonObject const *>(holding(JsonValue::Kind::object));
}

JsonString const * JsonUnit::stringValue() const {
    return static_cast<JsonString const *>(holding(JsonValue::Kind::string));
}

JsonArray & JsonUnit::arrayValue() {
    return coerce<JsonArray>(JsonValue::Kind::array);
}

JsonBoolean & JsonUnit::booleanValue() {
    return coerce<JsonBoolean>(JsonValue::Kind::boolean);
}

JsonNumber & JsonUnit::numberValue() {
    return coerce<JsonNumber>(JsonValue::Kind::number);
}

JsonObject & JsonUnit::objectValue() {
    return coerce<JsonObject>(JsonValue::Kind::object);
}

JsonString & JsonUnit::stringValue() {
    return coerce<JsonString>(JsonValue::Kind::string);
}

JsonUnit & JsonUnit::child(tav_istr name) {
    return objectValue().get(name);
}

JsonUnit & JsonUnit::operator[](tav_istr name) {
    return child(name);
}

JsonUnit const & JsonUnit::child(tav_istr name) const {
    JsonObject const * const object = objectValue();
    JsonUnit const * const member = object != nullptr ? object->get(name) : nullptr;
    return member != nullptr ? *member : null();
}

JsonUnit const & JsonUnit::operator[](tav_istr name) const {
    return child(name);
}

JsonUnit const & JsonUnit::null() {
    // Never destroyed, so that it may still be asked for while the process ends.
    static JsonUnit const * const unit = new JsonUnit();
    return *unit;
}

JsonUnit & JsonUnit::newChild() {
    return arrayValue().newChild();
}

JsonUnit::const_iterator JsonUnit::begin() const {
    JsonObject const * const object = objectValue();
    return object != nullptr ? object->begin() : const_iterator();
}

JsonUnit::const_iterator JsonUnit::end() const {
    JsonObject const * const object = objectValue();
    return object != nullptr ? object->end() : const_iterator();
}

void JsonUnit::decode(tav_istr text) {
    value_ = JsonParser::from(text);
}

JsonArray & JsonArray::operator=(JsonArray const & other) {
    // The old elements end last: `other` may lie below one of them.
    std::vector<JsonUnit> taken(other.elements_);
    elements_.swap(taken);
    return *this;
}

JsonArray::~JsonArray() {
    destroyChildren([this] { elements_.clear(); },
                    [this](std::vector<JsonUnit> & below) {
                        for (JsonUnit & unit : elements_) {
                            if (!unit.isNull() && unit.value()->mayHoldValues()) {
                                below.push_back(std::move(unit));
                            }
                        }
                    });
}

JsonFieldType JsonArray::type() const {
    return JsonFieldArray;
}

tavString JsonArray::toString() const {
    return toJson();
}

bool JsonArray::simple() const {
    return false;
}

void JsonArray::add(JsonUnit const & unit) {
    elements_.push_back(unit);
}

void JsonArray::add(JsonUnit && unit) {
    if (elements_.capacity() == 0) {
        elements_.reserve(4);
    }
    elements_.push_back(std::move(unit));
}

JsonUnit & JsonArray::newChild() {
    elements_.emplace_back();
    return elements_.back();
}

JsonObject & JsonObject::operator=(JsonObject const & other) {
    // The old members end last: `other` may lie below one of them.
    Members taken(other.members_);
    members_.swap(taken);
    return *this;
}

JsonObject::~JsonObject() {
    destroyChildren([this] { members_.clear(); },
                    [this](std::vector<JsonUnit> & below) {
                        for (Members::value_type & member : members_) {
                            JsonUnit & unit = member.second;
                            if (!unit.isNull() && unit.value()->mayHoldValues()) {
                                below.push_back(std::move(unit));
                            }
                        }
                    });
}

JsonFieldType JsonObject::type() const {
    return JsonFieldObject;
}

tavString JsonObject::toString() const {
    return toJson();
}

bool JsonObject::simple() const {
    return false;
}

void * JsonObject::takeNode(std::size_t size) {
    return detail::newNode(size);
}

void JsonObject::giveNode(void * node) noexcept {
    detail::deleteNode(node);
}

JsonUnit & JsonObject::get(tav_istr name) {
    NameLess const less;
    Members::iterator at = members_.end();
    if (!members_.empty() && !less(std::prev(at)->first, name)) {
        at = members_.lower_bound(name);
        if (!less(name, at->first)) {
            return at->second;
        }
    }
    return members_.emplace_hint(at, name, nullptr)->second;
}

JsonUnit & JsonObject::operator[](tav_istr name) {
    return get(name);
}

JsonUnit const * JsonObject::get(tav_istr name) const {
    const_iterator const at = members_.find(name);
    return at != members_.end() ? &at->second : nullptr;
}

void JsonObject::put(tav_istr name, JsonUnit const & unit) {
    put(name, JsonUnit(unit));
}

void JsonObject::put(tav_istr name, JsonUnit && unit) {
    // Next to the end it is one comparison, and elsewhere one search.
    members_.emplace_hint(members_.end(), name, nullptr)->second = std::move(unit);
}

/// Reads one text.  The containers that are open stand in a list, so that the stack is the same at any depth.
class [[gnu::visibility("hidden")]] JsonParser::Reader {
public:
    explicit Reader(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

    tavSharedPtr<JsonValue> parse();

private:
    /// Makes the container whose bracket is under the cursor, and steps over that.
    JsonValue * open();

    /// Reads an element, or a name and its value, into `container`.  A container is only opened: it is
    /// returned, and what it holds is still to be read.
    JsonValue * parseItem(JsonValue & container);

    /// The same in a text that is bound to fail: nothing is kept, and one container of a kind stands for all.
    JsonValue * skipItem(bool object);

    /// Reads what stands behind an item; true if it ends the container.
    bool parseEnd(JsonValue const & container);

    /// The name up to its colon, unescaped; empty if there is no value to read.
    tav_istr parseName();

    /// A new value that is no container; null for null.
    JsonValue * parseSimple();

    /// Takes the string whose quote is under the cursor, if it stands between its quotes as it is.
    bool takePlain(std::string_view & text);

    /// The string whose quote is under the cursor, with its quotes; the last one may be missing.
    std::string_view takeQuoted();

    std::string_view takeToken();

    void skipBlanks() {
        // No blank is above this one, and most bytes are.
        char const * at = at_;
        while (at != end_ && static_cast<unsigned char>(*at) <= ' ' && is(*at, blankByte)) {
            ++at;
        }
        at_ = at;
    }

    bool atOneOf(char a, char b) const {
        return at_ != end_ && (*at_ == a || *at_ == b);
    }

    /// Raises the words and what is left of the text.
    [[noreturn]] void fail(detail::Site site, char const * what) const;

    char const * at_;
    char const * end_;
    /// The last name that had escapes.
    std::string name_;
    /// What stands for the containers that skipItem opens.
    tavSharedPtr<JsonValue> skippedArray_;
    tavSharedPtr<JsonValue> skippedObject_;
    detail::NodeScope nodes_;
};

tavSharedPtr<JsonValue> JsonParser::Reader::parse() {
    skipBlanks();
    if (!atOneOf('{', '[')) {
        detail::raise(detail::here("tav::json::JsonParser::from"), "not object or array");
    }
    tavSharedPtr<JsonValue> root(open());
    std::vector<JsonValue *> outer;
    JsonValue * container = root.get();
    // Each inner container needs a byte that ends it.  Once there are not enough of them left, only the place
    // of the failure is still to be found, and no memory goes into a tree that nobody will see.
    bool lost = false;
    for (;;) {
        // A text may end ahead of an item: that ends the container.
        bool ended = at_ == end_;
        if (!ended) {
            JsonValue * const inner =
                lost ? skipItem(container->kind_ == JsonValue::Kind::object) : parseItem(*container);
            if (inner != nullptr) {
                outer.push_back(container);
                container = inner;
                lost = lost || outer.size() > static_cast<std::size_t>(end_ - at_);
                continue;
            }
            ended = parseEnd(*container);
        }
        while (ended) {
            if (outer.empty()) {
                return root;
            }
            container = outer.back();
            outer.pop_back();
            ended = parseEnd(*container);
        }
    }
}

JsonValue * JsonParser::Reader::open() {
    bool const object = *at_++ == '{';
    if (object) {
        return new Node<JsonObject>;
    }
    return new Node<JsonArray>;
}

JsonValue * JsonParser::Reader::parseItem(JsonValue & container) {
    bool const object = container.kind_ == JsonValue::Kind::object;
    tav_istr name;
    if (object) {
        name = parseName();
        if (name.empty()) {
            return nullptr;
        }
    }
    skipBlanks();
    bool const opens = atOneOf('{', '[');
    tavSharedPtr<JsonValue> value(opens ? open() : parseSimple());
    JsonValue * const inner = opens ? value.get() : nullptr;
    if (object) {
        static_cast<JsonObject &>(container).put(name, std::move(value));
    } else if (value) {
        static_cast<JsonArray &>(container).add(std::move(value));
    }
    return inner;
}

JsonValue * JsonParser::Reader::skipItem(bool object) {
    if (object && parseName().empty()) {
        return nullptr;
    }
    skipBlanks();
    if (!atOneOf('{', '[')) {
        tavSharedPtr<JsonValue> const dropped(parseSimple());
        return nullptr;
    }
    tavSharedPtr<JsonValue> & skipped = *at_ == '{' ? skippedObject_ : skippedArray_;
    if (skipped) {
        ++at_;
    } else {
        skipped = open();
    }
    return skipped.get();
}

bool JsonParser::Reader::parseEnd(JsonValue const & container) {
    bool const object = container.kind_ == JsonValue::Kind::object;
    skipBlanks();
    if (atOneOf(object ? '}' : ']', ',')) {
        return *at_++ != ',';
    }
    if (object) {
        fail(detail::here("tav::json::JsonParser::parseObject"), "pair value no end");
    }
    fail(detail::here("tav::json::JsonParser::parseArray"), "array value no end");
}

tav_istr JsonParser::Reader::parseName() {
    skipBlanks();
    std::string_view name;
    bool escaped = false;
    if (at_ != end_ && isQuote(*at_)) {
        escaped = !takePlain(name);
        if (escaped) {
            name = takeQuoted();
        }
        skipBlanks();
    } else {
        name = takeToken();
        escaped = name.find('\\') != std::string_view::npos;
        if (name == "null") {
            name = std::string_view();
        }
    }
    if (!atOneOf(':', '}')) {
        fail(detail::here("tav::json::JsonParser::parseName"), "no name");
    }
    if (*at_ == '}') {
        return tav_istr();
    }
    ++at_;
    if (!escaped || name.size() < 2) {
        return viewOf(name);
    }
    name_.clear();
    appendUnescaped(name_, name);
    return viewOf(name_);
}

JsonValue * JsonParser::Reader::parseSimple() {
    if (at_ != end_ && isQuote(*at_)) {
        std::string_view plain;
        if (takePlain(plain)) {
            return new Node<JsonString>(viewOf(plain));
        }
        tavOptional<tavString> text = JsonString::unescape(viewOf(takeQuoted()));
        JsonString * const made = new Node<JsonString>;
        made->text_.swap(text.value());
        return made;
    }
    std::string_view const token = takeToken();
    if (at_ != end_ && *at_ != ',' && *at_ != '}' && *at_ != ']') {
        fail(detail::here("tav::json::JsonParser::parseValue"), "no value end");
    }
    return makeSimple(token);
}

bool JsonParser::Reader::takePlain(std::string_view & text) {
    char const * const first = at_ + 1;
    char const * const last = findQuote(first, end_, *at_);
    if (last == end_ || *last != *at_) {
        return false;
    }
    text = std::string_view(first, static_cast<std::size_t>(last - first));
    at_ = last + 1;
    return true;
}

std::string_view JsonParser::Reader::takeQuoted() {
    char const * const first = at_;
    char const quote = *at_;
    at_ = findQuote(at_ + 1, end_, quote);
    while (at_ != end_ && *at_ != quote) {
        at_ += end_ - at_ >= 2 ? 2 : 1;
        at_ = findQuote(at_, end_, quote);
    }
    at_ += at_ != end_ ? 1 : 0;
    return std::string_view(first, static_cast<std::size_t>(at_ - first));
}

std::string_view JsonParser::Reader::takeToken() {
    skipBlanks();
    char const * const first = at_;
    while (at_ != end_ && !is(*at_, tokenByte)) {
        ++at_;
    }
    char const * last = at_;
    while (last != first && is(last[-1], blankByte)) {
        --last;
    }
    return std::string_view(first, static_cast<std::size_t>(last - first));
}

void JsonParser::Reader::fail(detail::Site site, char const * what) const {
    std::string message(what);
    message += " : ";
    message.append(at_, static_cast<std::size_t>(end_ - at_));
    detail::raise(site, message);
}

tavSharedPtr<JsonValue> JsonParser::from(tav_istr text) {
    return Reader(bytesOf(text)).parse();
}

tavSharedPtr<JsonValue> JsonParser::fromSimple(tav_istr token) {
    return makeSimple(bytesOf(token));
}

/// Writes one tree.  The containers that are open stand in a list, so that the stack is the same at any
/// depth.
class [[gnu::visibility("hidden")]] JsonFormatter::Writer {
public:
    Writer(JsonFormatter const & settings, std::string & out) : settings_(settings), out_(out) {}

    void write() {
        begin(settings_.value);
        while (!open_.empty()) {
            JsonUnit const * const unit = next(open_.back());
            if (unit != nullptr) {
                begin(unit->value().get());
            } else {
                end();
            }
        }
    }

private:
    struct Container {
        bool object;
        bool first;
        JsonObject::const_iterator member;
        JsonObject::const_iterator lastMember;
        JsonArray::const_iterator element;
        JsonArray::const_iterator lastElement;
    };

    static bool isClassName(tavString const & name) {
        return name == "__class__";
    }

    /// Writes a simple value, or the opening of a container, which is then open.
    void begin(JsonValue const * value);

    /// Writes what stands ahead of the next child and returns it; null behind the last one.
    JsonUnit const * next(Container & container);

    /// Writes the end of the innermost container.
    void end();

    void separate(Container & container) {
        bool const first = container.first;
        container.first = false;
        if (!settings_.pretty) {
            out_.append(first ? " " : ", ");
            return;
        }
        if (!first) {
            out_ += ',';
        }
        indent(0);
    }

    /// On a line of the level of the innermost container, plus one, minus `back`.
    void indent(int back) {
        appendIndent(out_, settings_.pretty, settings_.level + static_cast<long long>(open_.size()) - back);
    }

    JsonFormatter const & settings_;
    std::string & out_;
    std::vector<Container> open_;
};

void JsonFormatter::Writer::begin(JsonValue const * v) {
    if (v == nullptr) {
        out_.append("null", 4);
        return;
    }
    switch (v->kind_) {
    case JsonValue::Kind::object: {
        JsonObject const & object = static_cast<JsonObject const &>(*v);
        JsonUnit const * const name = settings_.sample ? object.get("__class__") : nullptr;
        if (name != nullptr) {
            out_ += '@';
            out_.append(bytesOf(name->asString()));
        }
        out_ += '{';
        open_.push_back(Container{true, true, object.begin(), object.end(), {}, {}});
        break;
    }
    case JsonValue::Kind::array: {
        JsonArray const & array = static_cast<JsonArray const &>(*v);
        out_ += '[';
        open_.push_back(Container{false, true, {}, {}, array.begin(), array.end()});
        break;
    }
    default:
        if (isPlain<JsonString>(*v)) {
            appendEscaped(out_, bytesOf(static_cast<JsonString const *>(v)->getValue()));
        } else if (isPlain<JsonNumber>(*v)) {
            appendNumberText(out_, bytesOf(static_cast<JsonNumber const *>(v)->getValue()));
        } else {
            out_.append(bytesOf(v->toString()));
        }
        break;
    }
}

JsonUnit const * JsonFormatter::Writer::next(Container & container) {
    if (!container.object) {
        if (container.element == container.lastElement) {
            return nullptr;
        }
        separate(container);
        return &*container.element++;
    }
    for (; container.member != container.lastMember; ++container.member) {
        tavString const & name = container.member->first;
        JsonUnit const & unit = container.member->second;
        if ((settings_.skipNull && unit.isNull()) || (settings_.sample && isClassName(name))) {
            continue;
        }
        separate(container);
        std::string_view const bytes = bytesOf(name);
        if (settings_.sample) {
            out_.append(bytes);
        } else {
            out_ += '"';
            out_.append(bytes);
            out_ += '"';
        }
        if (settings_.pretty) {
            out_.append(" : ", 3);
        } else {
            out_ += ':';
        }
        ++container.member;
        return &unit;
    }
    return nullptr;
}

void JsonFormatter::Writer::end() {
    indent(1);
    out_ += open_.back().object ? '}' : ']';
    open_.pop_back();
}

JsonFormatter::JsonFormatter(JsonValue const * v, bool prettyText, bool skipNulls, int closingLevel,
                             bool asSample)
    : value(v), pretty(prettyText), skipNull(skipNulls), level(closingLevel), sample(asSample) {}

void JsonFormatter::format(tavString & out) const {
    std::string text;
    Writer(*this, text).write();
    out << text;
}

tavString JsonFormatter::toString() const {
    std::string text;
    Writer(*this, text).write();
    return tavString(std::move(text));
}

void JsonFormatter::indent(tavString & out, bool pretty, int level) {
    std::string text;
    appendIndent(text, pretty, level);
    out << text;
}

} // namespace json
} // namespace tav
