#include "tav/vinta/vinta_json_tree.h"

#include "formats/json/json_scanner.h"
#include "formats/json/json_text.h"
#include "foundation/number_text.h"
#include "foundation/report.h"
#include "foundation/tree_end.h"
#include "foundation/tree_nodes.h"
#include "foundation/views.h"

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
using detail::JsonScanner;
using detail::viewOf;

namespace {

bool isDigit(char c) {
    return static_cast<unsigned char>(c - '0') < 10;
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

using End = detail::TreeEnd<JsonUnit, 32, detail::NodeReturn>;

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
    End::destroy([this] { elements_.clear(); },
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
    End::destroy([this] { members_.clear(); },
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
    explicit Reader(std::string_view text) : text_(text), trusted_(16 * text.size() + plentiful) {}

    tavSharedPtr<JsonValue> parse();

    // What readJson builds with.
    void open(bool object, JsonScanner::Piece const & name);
    void string(JsonScanner::Piece const & name, JsonScanner::Piece const & text);
    void token(JsonScanner::Piece const & name, std::string_view text);
    bool close(bool & object);
    bool outgrows() const {
        return cost_ > trusted_;
    }
    void trust() {
        trusted_ = ~std::size_t(0);
    }

private:
    /// What any text may cost.
    static constexpr std::size_t plentiful = 256 * 1024;
    /// About what a value costs, with its place in the container and what the allocator adds.
    static constexpr std::size_t simpleCost = 112;
    static constexpr std::size_t memberCost = 112;
    static constexpr std::size_t containerCost = 208;

    /// A value of the innermost container, to which nothing refers yet; null is kept as a member only.
    void put(JsonScanner::Piece const & name, tavSharedPtr<JsonValue> value);
    tav_istr nameOf(JsonScanner::Piece const & name);

    std::string_view text_;
    tavSharedPtr<JsonValue> root_;
    /// The innermost container, and those around it.
    JsonValue * container_ = nullptr;
    std::vector<JsonValue *> outer_;
    std::size_t cost_ = 0;
    /// As long as the tree costs no more than this, it may be that of a text that fails.
    std::size_t trusted_;
    /// The last name that had escapes.
    std::string name_;
    detail::NodeScope nodes_;
};

tavSharedPtr<JsonValue> JsonParser::Reader::parse() {
    if (detail::JsonFault const fault = detail::readJson(text_, *this)) {
        root_.reset();
        detail::raiseJsonFault(fault);
    }
    return std::move(root_);
}

void JsonParser::Reader::open(bool object, JsonScanner::Piece const & name) {
    JsonValue * const made = object ? static_cast<JsonValue *>(new Node<JsonObject>)
                                    : static_cast<JsonValue *>(new Node<JsonArray>);
    cost_ += containerCost;
    if (container_ == nullptr) {
        root_ = tavSharedPtr<JsonValue>(made);
    } else {
        put(name, tavSharedPtr<JsonValue>(made));
        outer_.push_back(container_);
    }
    container_ = made;
}

void JsonParser::Reader::string(JsonScanner::Piece const & name, JsonScanner::Piece const & text) {
    cost_ += simpleCost + text.text.size();
    if (!text.raw) {
        put(name, tavSharedPtr<JsonValue>(new Node<JsonString>(viewOf(text.text))));
        return;
    }
    tavOptional<tavString> plain = JsonString::unescape(viewOf(text.text));
    JsonString * const made = new Node<JsonString>;
    tavSharedPtr<JsonValue> value(made);
    made->text_.swap(plain.value());
    put(name, std::move(value));
}

void JsonParser::Reader::token(JsonScanner::Piece const & name, std::string_view text) {
    cost_ += simpleCost + text.size();
    put(name, tavSharedPtr<JsonValue>(makeSimple(text)));
}

bool JsonParser::Reader::close(bool & object) {
    if (outer_.empty()) {
        return false;
    }
    container_ = outer_.back();
    outer_.pop_back();
    object = container_->kind_ == JsonValue::Kind::object;
    return true;
}

void JsonParser::Reader::put(JsonScanner::Piece const & name, tavSharedPtr<JsonValue> value) {
    if (container_->kind_ == JsonValue::Kind::object) {
        cost_ += memberCost + name.text.size();
        static_cast<JsonObject &>(*container_).put(nameOf(name), std::move(value));
    } else if (value) {
        static_cast<JsonArray &>(*container_).add(std::move(value));
    }
}

tav_istr JsonParser::Reader::nameOf(JsonScanner::Piece const & name) {
    if (!name.raw || name.text.size() < 2) {
        return viewOf(name.text);
    }
    name_.clear();
    appendUnescaped(name_, name.text);
    return viewOf(name_);
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

namespace detail {

namespace {

/// Builds nothing, but for the kinds of what is open.
class NoBuilder {
public:
    void open(bool object, JsonScanner::Piece const &) { open_.push_back(object); }
    void string(JsonScanner::Piece const &, JsonScanner::Piece const &) {}
    void token(JsonScanner::Piece const &, std::string_view) {}
    bool close(bool & object) {
        open_.pop_back();
        if (open_.empty()) {
            return false;
        }
        object = open_.back();
        return true;
    }
    static bool outgrows() { return false; }
    void trust() {}

private:
    std::vector<bool> open_;
};

[[noreturn]] void raiseWithRest(Site site, char const * what, std::string_view rest) {
    std::string message(what);
    message.reserve(message.size() + 3 + rest.size());
    raise(site, message.append(" : ").append(rest));
}

} // namespace

JsonFault findJsonFault(std::string_view text) {
    NoBuilder none;
    return readJson(text, none);
}

void raiseJsonFault(JsonFault const & fault) {
    switch (fault.kind) {
    case JsonFault::object:
        raiseWithRest(here("tav::json::JsonParser::parseObject"), "pair value no end", fault.rest);
    case JsonFault::array:
        raiseWithRest(here("tav::json::JsonParser::parseArray"), "array value no end", fault.rest);
    case JsonFault::name: raiseWithRest(here("tav::json::JsonParser::parseName"), "no name", fault.rest);
    case JsonFault::value:
        raiseWithRest(here("tav::json::JsonParser::parseValue"), "no value end", fault.rest);
    default: raise(here("tav::json::JsonParser::from"), "not object or array");
    }
}

} // namespace detail
} // namespace tav
