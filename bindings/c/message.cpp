#include "bindings/c/message.h"

#include "bindings/c/fields.h"
#include "tav/vinta/vinta_json2nbr.h"
#include "tav/vinta/vinta_tls_failure.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <locale>
#include <set>
#include <sstream>
#include <utility>
#include <vector>

namespace tav {
namespace json_client {

namespace {

namespace kinds = pml::field_type;
using pml::MetaClass;
using pml::MetaFactory;
using pml::MetaField;
using tls::failure;

tav_istr viewOf(std::string_view text) {
    return tav_istr(text.data(), text.size());
}

std::string_view bytesOf(tav_istr text) {
    return std::string_view(text.data(), text.size());
}

std::string textOf(tav_istr text) {
    return std::string(bytesOf(text));
}

MetaClass const * classNamed(tavString const & name, MetaClass const & within, MetaFactory const & factory) {
    for (MetaClass const & nested : within.classes) {
        if (nested.className == name) {
            return &nested;
        }
    }
    return within.className == name ? &within : factory.findClass(tav_istr(name));
}

/// The field of this name, of the class or of one of its bases.
MetaField const * fieldNamed(std::string_view name, MetaClass const & of, MetaFactory const & factory) {
    std::set<MetaClass const *> seen;
    for (MetaClass const * one = &of; one != nullptr && seen.insert(one).second;) {
        if (MetaField const * const field = one->findField(viewOf(name))) {
            return field;
        }
        one = one->superName.empty() ? nullptr : classNamed(one->superName, *one, factory);
    }
    return nullptr;
}

bool isList(int kind) {
    return kind == kinds::list_ || kind == kinds::ref_list_;
}

bool isObject(int kind) {
    return kind == kinds::object_ || kind == kinds::ref_;
}

bool isPlain(int kind) {
    return kind <= kinds::enum_;
}

/// Whether the text of a JSON number is within what a real number of type T holds.
template <class T>
bool fitsReal(std::string_view text) {
    constexpr std::size_t surely = 30;
    if (text.size() <= surely && text.find_first_of("eE") == std::string_view::npos) {
        return true;
    }
    std::istringstream in{std::string(text)};
    in.imbue(std::locale::classic());
    double value = 0;
    in >> value;
    return !in.fail() && std::abs(value) <= static_cast<double>(std::numeric_limits<T>::max());
}

/// Whether the digits are a number of type T.
template <class T>
bool fits(std::string_view digits) {
    T value = 0;
    auto const read = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return read.ec == std::errc() && read.ptr == digits.data() + digits.size();
}

bool fitsKind(std::string_view digits, int kind) {
    switch (kind) {
    case kinds::int8_: return fits<signed char>(digits);
    case kinds::int16_: return fits<short>(digits);
    case kinds::int32_:
    case kinds::enum_: return fits<int>(digits);
    case kinds::int64_:
    case kinds::time_: return fits<long long>(digits);
    case kinds::uint8_: return fits<unsigned char>(digits);
    case kinds::uint16_: return fits<unsigned short>(digits);
    case kinds::uint32_: return fits<unsigned>(digits);
    case kinds::uint64_: return fits<unsigned long long>(digits);
    case kinds::float_: return fitsReal<float>(digits);
    case kinds::double_: return fitsReal<double>(digits);
    default: return true;
    }
}

/// Whether a key of digits is the one way to write its number.
bool isPlainKey(std::string_view key, int kind) {
    std::string_view const digits = key.substr(!key.empty() && key.front() == '-' ? 1 : 0);
    bool const plain = digits == "0" ? digits.size() == key.size() : digits.substr(0, 1) != "0";
    return plain && fitsKind(key, kind);
}

/// What the transcoder would take in silence and make something else of is refused here, by its place: names
/// that no field has, numbers that would be cut, nulls that would be dropped, and values of another shape.
class Check {
public:
    Check(Document const & document, unsigned message, MetaFactory const & factory)
        : document_(document), message_(message), factory_(factory) {}

    /// Strings of digits that are to be handed on as numbers, by where they begin and end.
    std::vector<std::pair<std::size_t, std::size_t>> const & numbers() const { return numbers_; }

    void run(MetaClass const & cls) {
        unsigned const end = document_.node(message_).next;
        spots_.resize(end - message_);
        spots_[0] = Spot{kinds::object_, &cls, &cls, nullptr};
        for (unsigned i = message_ + 1; i < end; ++i) {
            spots_[i - message_] = look(i, spots_[document_.node(i).parent - message_]);
        }
    }

private:
    /// What a value has to be: of a kind, for a field of a class; null if nobody knows.
    struct Spot {
        int kind = kinds::unknown_;
        /// Of an object.
        MetaClass const * cls = nullptr;
        MetaClass const * owner = nullptr;
        MetaField const * field = nullptr;
    };

    [[noreturn]] void refuse(unsigned i, std::string const & why) const {
        std::string const path = document_.path(i);
        throw Failure(static_cast<int>(failure::value_does_not_fit), "value_does_not_fit", path + ": " + why,
                      path, static_cast<long long>(document_.node(i).begin));
    }

    Spot look(unsigned i, Spot const & in) {
        Node const & value = document_.node(i);
        Spot spot;
        if (isObject(in.kind)) {
            if (in.cls == nullptr) {
                return spot;
            }
            MetaField const * const field = fieldNamed(value.name, *in.cls, factory_);
            if (field == nullptr) {
                std::string const path = document_.path(i);
                throw Failure(100, "unknown_field",
                              path + ": the class " + textOf(tav_istr(in.cls->className)) +
                                  " has no such field",
                              path, static_cast<long long>(value.begin));
            }
            spot = Spot{field->classType.type.value(), nullptr, in.cls, field};
        } else if (isList(in.kind) || in.kind == kinds::map_) {
            if (value.kind == Kind::null && isList(in.kind)) {
                refuse(i, "a list holds no null");
            }
            if (in.kind == kinds::map_) {
                checkKey(i, in.field->classType.keyType.value());
            }
            spot = Spot{in.field->classType.elementType.value(), nullptr, in.owner, in.field};
        } else {
            return spot;
        }
        if (isObject(spot.kind)) {
            spot.cls = classNamed(spot.field->classType.name, *spot.owner, factory_);
        }
        checkShape(i, spot);
        if (isObject(in.kind)) {
            checkRules(i, spot);
        }
        return spot;
    }

    /// What the template says of the numbers of a field.
    void checkRules(unsigned i, Spot const & spot) const {
        Node const & value = document_.node(i);
        bool const whole = spot.kind < kinds::float_ || spot.kind == kinds::enum_;
        if (value.kind != Kind::number || !whole || !fits<long long>(value.text)) {
            return;
        }
        long long number = 0;
        std::from_chars(value.text.data(), value.text.data() + value.text.size(), number);
        std::set<int> const & values = spot.field->validValues;
        if (spot.kind == kinds::enum_ && !values.empty() && values.count(static_cast<int>(number)) == 0) {
            refuse(i, "the enum has no such value");
        }
        if (!spot.field->range.check(number)) {
            refuse(i, "the field does not hold this number");
        }
    }

    void checkKey(unsigned i, int kind) const {
        std::string_view const key = document_.node(i).name;
        if (key.empty()) {
            refuse(i, "the empty text can't be a key");
        }
        bool const number = kind < kinds::float_ || kind == kinds::time_ || kind == kinds::enum_;
        if (number && !isPlainKey(key, kind)) {
            refuse(i, "the keys of this map do not hold this number");
        }
    }

    void checkShape(unsigned i, Spot const & spot) {
        Node const & value = document_.node(i);
        bool const object = isObject(spot.kind) || spot.kind == kinds::map_;
        if (value.kind == Kind::null || spot.kind == kinds::unknown_) {
            return;
        }
        if (isList(spot.kind) && value.kind != Kind::array) {
            refuse(i, "this has to be an array");
        }
        if (object && value.kind != Kind::object) {
            refuse(i, "this has to be an object");
        }
        if (isPlain(spot.kind)) {
            checkPlain(i, spot.kind);
        }
    }

    void checkPlain(unsigned i, int kind) {
        Node const & value = document_.node(i);
        bool const large = kind == kinds::int64_ || kind == kinds::uint64_ || kind == kinds::time_;
        bool const text = kind >= kinds::char_ && kind <= kinds::bytes_;
        switch (value.kind) {
        case Kind::object:
        case Kind::array: refuse(i, "this has to be a plain value");
        case Kind::number:
            if (text) {
                refuse(i, "this has to be a string");
            }
            if (kind == kinds::bool_) {
                refuse(i, "this has to be true or false");
            }
            if (!fitsKind(value.text, kind)) {
                refuse(i, "the field does not hold this number");
            }
            return;
        case Kind::string:
            if (large && !fitsKind(value.text, kind)) {
                refuse(i, "the field does not hold this number");
            }
            if (!text && !large) {
                refuse(i, "this may not be a string");
            }
            if (large && (kind == kinds::time_ || value.text.front() == '-')) {
                numbers_.emplace_back(value.begin, value.end);
            }
            if (kind == kinds::bytes_ && !isBase64(value.text)) {
                refuse(i, "this has to be base64");
            }
            return;
        case Kind::boolean:
            if (kind != kinds::bool_) {
                refuse(i, "this may not be a boolean");
            }
            return;
        case Kind::null: return;
        }
    }

    Document const & document_;
    unsigned const message_;
    MetaFactory const & factory_;
    std::vector<Spot> spots_;
    std::vector<std::pair<std::size_t, std::size_t>> numbers_;
};

/// JSON in the library's dialect, which has the same form but gives no character for the escape \u.  A JSON
/// string between backslashes u is read again as a text of its own.
std::string inDialect(std::string_view json) {
    std::string out;
    out.reserve(json.size());
    while (!json.empty()) {
        std::size_t const run = json.find('\\');
        out.append(json.substr(0, run));
        if (run == std::string_view::npos) {
            break;
        }
        json.remove_prefix(run);
        std::size_t size = 2;
        if (json[1] == 'u') {
            size = 6;
            bool const pair = json[2] == 'd' || json[2] == 'D' ? json[3] >= '8' : false;
            size += pair ? 6 : 0;
            std::string const quoted = "\"" + std::string(json.substr(0, size)) + "\"";
            Document one;
            Failure fault(0, std::string(), std::string());
            one.read(quoted, fault);
            std::string_view const plain = one.node(Document::root).text;
            if (plain == "\"" || plain == "\\") {
                out += '\\';
            }
            out.append(plain);
        } else {
            out.append(json.substr(0, 2));
        }
        json.remove_prefix(size);
    }
    return out;
}

/// The member that a text of the transcoder blames: "field age in class ...", or the first of
/// "... field name(s) { user seq } in class ...".
std::string blamedField(std::string_view text) {
    for (std::string_view const front : {"field name(s) { ", "field "}) {
        std::size_t const at = text.find(front);
        if (at != std::string_view::npos) {
            std::string_view const rest = text.substr(at + front.size());
            return std::string(rest.substr(0, rest.find(' ')));
        }
    }
    return std::string();
}

Failure failureOf(std::string const & text, std::string const & member) {
    bool const missing = text.find("missing necessary field") != std::string::npos;
    std::string const blamed = blamedField(text);
    std::string const field = member + (member.empty() || blamed.empty() ? "" : ".") + blamed;
    if (missing) {
        return Failure(static_cast<int>(failure::field_missing), "field_missing", text, field);
    }
    return Failure(static_cast<int>(failure::value_does_not_fit), "value_does_not_fit", text, field);
}

/// How names are marked for reading: names of fields begin with one of these, so that they are told from keys
/// of maps, which are base64 or digits.
constexpr char plain_mark = 'f';
constexpr char keyed_mark = 'm';

bool isTextKey(int kind) {
    return kind >= kinds::char_ && kind <= kinds::u8string_;
}

/// Names come out of the transcoder as they are, without escapes.  Keys of maps, which a peer chooses, are
/// read as bytes here, so that they come in base64 and nothing in them is taken for JSON.
void markNames(MetaFactory & factory) {
    std::vector<MetaClass *> left;
    for (auto & each : factory.classes) {
        left.push_back(&each.second);
    }
    while (!left.empty()) {
        MetaClass & cls = *left.back();
        left.pop_back();
        for (MetaField & field : cls.fields) {
            bool const keyed =
                field.classType.type.value() == kinds::map_ && isTextKey(field.classType.keyType.value());
            field.idName.name =
                tavString((keyed ? keyed_mark : plain_mark) + textOf(tav_istr(field.idName.name)));
            if (keyed) {
                field.classType.keyType = kinds::bytes_;
            }
        }
        for (MetaClass & nested : cls.classes) {
            left.push_back(&nested);
        }
    }
}

/// Makes plain JSON of what the transcoder has read with marked names.
class Unmarking {
public:
    explicit Unmarking(std::string_view text) : text_(text) {}

    std::string run() {
        while (at_ < text_.size()) {
            char const c = text_[at_];
            if (c == '"') {
                string();
            } else if (c == '{' || c == '[') {
                open_.push_back(c == '{' ? (keyed_ ? Within::map : Within::object) : Within::array);
                keyed_ = false;
                name_next_ = c == '{';
                put();
            } else if (c == '}' || c == ']') {
                if (!open_.empty()) {
                    open_.pop_back();
                }
                put();
            } else if (c == ',') {
                name_next_ = !open_.empty() && open_.back() != Within::array;
                keyed_ = false;
                put();
            } else if (c == ':' || c == ' ') {
                put();
            } else {
                literal();
            }
        }
        return std::move(out_);
    }

private:
    enum class Within : unsigned char { object, map, array };

    void put() { out_ += text_[at_++]; }

    void string() {
        std::size_t const first = ++at_;
        while (at_ < text_.size() && text_[at_] != '"') {
            at_ += text_[at_] == '\\' ? 2 : 1;
        }
        at_ = std::min(at_, text_.size());
        std::string_view const inside = text_.substr(first, at_ - first);
        at_ = std::min(at_ + 1, text_.size());
        if (name_next_) {
            name_next_ = false;
            name(inside);
        } else {
            out_ += '"';
            escaped(inside);
            out_ += '"';
        }
    }

    void name(std::string_view marked) {
        if (open_.back() == Within::map) {
            tavBytes bytes;
            tavBase64::decode(viewOf(marked), bytes);
            appendString(out_, bytesOf(tav_istr(bytes)));
            return;
        }
        if (marked == "__class__") {
            // ": " and the name of the class, of which the caller knows already, and the comma behind it.
            at_ = text_.find('"', at_);
            at_ = at_ == std::string_view::npos ? text_.size() : text_.find('"', at_ + 1);
            at_ = at_ == std::string_view::npos ? text_.size() : at_ + 1;
            name_next_ = at_ < text_.size() && text_[at_] == ',';
            at_ += name_next_ ? 1 : 0;
            return;
        }
        bool const field = !marked.empty() && (marked.front() == keyed_mark || marked.front() == plain_mark);
        keyed_ = field && marked.front() == keyed_mark;
        appendString(out_, marked.substr(field ? 1 : 0));
    }

    /// Escapes stay as they are; what stands between them gets its own.
    void escaped(std::string_view inside) {
        while (!inside.empty()) {
            std::size_t const run = std::min(inside.find('\\'), inside.size());
            appendEscaped(out_, inside.substr(0, run));
            inside.remove_prefix(run);
            std::size_t const size = std::min<std::size_t>(2, inside.size());
            out_.append(inside.substr(0, size));
            inside.remove_prefix(size);
        }
    }

    /// JSON has no number that is none or has no end: null stands for it.
    void literal() {
        std::size_t const end = std::min(text_.find_first_of(",]}: ", at_), text_.size());
        std::string_view const word = text_.substr(at_, end - at_);
        bool const known = word == "true" || word == "false" || isNumber(word);
        out_.append(known ? word : std::string_view("null"));
        at_ = std::max(end, at_ + 1);
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::string out_;
    std::vector<Within> open_;
    bool name_next_ = false;
    /// The next object is a map whose keys are texts.
    bool keyed_ = false;
};

MetaFactory factoryOf(std::string const & text) {
    try {
        pml::PmlInputStream in{viewOf(text)};
        MetaFactory made(in);
        if (made.classes.empty()) {
            throw Failure(static_cast<int>(failure::bad_template), "bad_template",
                          "the template has no class", "template");
        }
        return made;
    } catch (std::invalid_argument const & e) {
        throw Failure(static_cast<int>(failure::bad_template), "bad_template", wordsOf(e), "template");
    }
}

} // namespace

bool isBase64(std::string_view text) {
    std::size_t const pads = text.size() - std::min(text.size(), text.find_last_not_of('=') + 1);
    return text.size() % 4 == 0 && pads <= 2 && std::all_of(text.begin(), text.end(), tavBase64::isBase64) &&
           text.substr(0, text.size() - pads).find('=') == std::string_view::npos;
}

Template::Template(std::string text)
    : text_(std::move(text)), to_write_(factoryOf(text_)), to_read_(factoryOf(text_)) {
    markNames(to_read_);
}

std::string Template::classOf(unsigned short code) const {
    return textOf(tav_istr(to_write_.findClassName(code)));
}

unsigned short Template::codeOf(std::string_view class_name) const {
    for (auto const & each : to_write_.code2class) {
        if (bytesOf(tav_istr(each.second)) == class_name) {
            return each.first;
        }
    }
    return no_code;
}

Encoded Template::encode(Document const & document, unsigned node, std::string const & class_name) const {
    Encoded out;
    MetaClass const * const cls = to_write_.findClass(viewOf(class_name));
    out.code = codeOf(class_name);
    if (cls == nullptr || out.code == no_code) {
        throw Failure(static_cast<int>(failure::template_lacks_class), "template_lacks_class",
                      "class: the template has " +
                          std::string(cls == nullptr ? "no class " : "no code for the class ") + class_name,
                      "class");
    }
    Check check(document, node, to_write_);
    check.run(*cls);
    out.class_name = class_name;
    std::string_view const all = document.raw(node);
    std::size_t const front = document.node(node).begin;
    std::size_t at = front;
    std::string text;
    for (auto const & each : check.numbers()) {
        text += inDialect(all.substr(at - front, each.first - at));
        text.append(all.substr(each.first + 1 - front, each.second - each.first - 2));
        at = each.second;
    }
    text += inDialect(all.substr(at - front));
    try {
        json2nbr::write(viewOf(text), out.body, out.code, to_write_, viewOf(class_name));
    } catch (std::invalid_argument const & e) {
        throw failureOf(wordsOf(e), document.path(node));
    }
    return out;
}

std::string Template::decode(tav_istr body, unsigned short code) const {
    if (body.empty()) {
        return "{}";
    }
    tavString json;
    try {
        json2nbr::read(json, body, code, to_read_, false);
    } catch (std::invalid_argument const & e) {
        throw Failure(102, "bad_reply", wordsOf(e));
    }
    std::string out = Unmarking(bytesOf(tav_istr(json))).run();
    Document strict;
    Failure fault(0, std::string(), std::string());
    if (!strict.read(out, fault)) {
        throw Failure(102, "bad_reply", "the message has no form in JSON: " + fault.text);
    }
    return out;
}

} // namespace json_client
} // namespace tav
