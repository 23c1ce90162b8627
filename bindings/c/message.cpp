#include "bindings/c/message.h"

#include "bindings/c/fields.h"
#include "bindings/c/template_check.h"
#include "tav/vinta/vinta_json2nbr.h"
#include "tav/vinta/vinta_tls_failure.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
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
    T value = 0;
    in >> value;
    // One that is too small is read as zero.
    return !in.fail() && (value != 0 || text.substr(0, text.find_first_of("eE")).find_first_of("123456789") ==
                                            std::string_view::npos);
}

/// The shortest text that reads back as the number; null if there is none.
template <class T>
std::string realText(T value) {
    if (!std::isfinite(value)) {
        return "null";
    }
#if defined(__cpp_lib_to_chars)
    char text[64];
    return std::string(text, std::to_chars(text, text + sizeof(text), value).ptr);
#else
    std::string text;
    for (int digits = std::numeric_limits<T>::digits10; digits <= std::numeric_limits<T>::max_digits10;
         ++digits) {
        std::ostringstream out;
        out.imbue(std::locale::classic());
        out.precision(digits);
        out << value;
        text = out.str();
        std::istringstream in(text);
        in.imbue(std::locale::classic());
        T back = 0;
        in >> back;
        if (back == value) {
            break;
        }
    }
    return text;
#endif
}

/// The real number of type T whose bits the digits tell.
template <class T, class Bits>
std::string realOfBits(std::string_view digits) {
    static_assert(sizeof(T) == sizeof(Bits), "all bits of a number");
    Bits bits = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), bits);
    T value = 0;
    std::memcpy(&value, &bits, sizeof(value));
    return realText(value);
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

/// The kinds that come as strings of digits, and may be sent so.
bool isLarge(int kind) {
    return kind == kinds::int64_ || kind == kinds::uint64_ || kind == kinds::time_;
}

bool isWhole(int kind) {
    return (kind >= kinds::int8_ && kind <= kinds::uint64_) || kind == kinds::time_ || kind == kinds::enum_;
}

bool isTextKey(int kind) {
    return kind >= kinds::string_ && kind <= kinds::u8string_;
}

/// Whether a key of digits is the one way to write its number.
bool isPlainKey(std::string_view key, int kind) {
    std::string_view const digits = key.substr(!key.empty() && key.front() == '-' ? 1 : 0);
    bool const plain = digits == "0" ? digits.size() == key.size() : digits.substr(0, 1) != "0";
    return plain && fitsKind(key, kind);
}

/// The bits of a number of 64 bits, which are the same on the wire with a sign and without.
unsigned long long bitsOf(std::string_view digits) {
    unsigned long long bits = 0;
    if (!digits.empty() && digits.front() == '-') {
        long long value = 0;
        std::from_chars(digits.data(), digits.data() + digits.size(), value);
        return static_cast<unsigned long long>(value);
    }
    std::from_chars(digits.data(), digits.data() + digits.size(), bits);
    return bits;
}

bool isNecessary(MetaField const & field) {
    int const kind = field.classType.type.value();
    return !field.classType.optional && kind != kinds::optional_ && kind != kinds::map_ && !isList(kind);
}

/// A string as the library's reader takes it, which gives no character for the escape \u.
void appendQuoted(std::string & out, std::string_view text) {
    out += '"';
    for (char const c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    out += '"';
}

/// What the transcoder would take in silence and make something else of is refused here, by its place: names
/// that no field has, numbers and keys that would be cut, nulls that would be dropped, values of another
/// shape, and fields that are missing, within objects too.  The rest is what the transcoder writes.
class Check {
public:
    Check(Document const & document, unsigned message, MetaFactory const & factory)
        : document_(document), message_(message), factory_(factory) {}

    /// The names and values alone.
    void runValues(MetaClass const & cls) {
        unsigned const end = document_.node(message_).next;
        spots_.resize(end - message_);
        spots_[0] = Spot{kinds::object_, &cls, &cls, nullptr};
        for (unsigned i = message_ + 1; i < end; ++i) {
            spots_[i - message_] = look(i, spotOf(document_.node(i).parent));
        }
    }

    void run(MetaClass const & cls) {
        runValues(cls);
        unsigned const end = document_.node(message_).next;
        for (unsigned i = message_; i < end; ++i) {
            if (isObject(spotOf(i).kind) && document_.node(i).kind == Kind::object) {
                checkMissing(i, *spotOf(i).cls);
            }
        }
    }

    /// The message for the transcoder: numbers are numbers, keys of maps are strings or digits without a
    /// sign, and a member that is null is not there.
    std::string text() const {
        std::string out;
        std::vector<unsigned> open;
        auto const close = [&] {
            out += document_.node(open.back()).kind == Kind::object ? '}' : ']';
            open.pop_back();
        };
        unsigned const end = document_.node(message_).next;
        for (unsigned i = message_; i < end; ++i) {
            while (!open.empty() && i == document_.node(open.back()).next) {
                close();
            }
            Node const & value = document_.node(i);
            if (value.kind == Kind::null && isObject(spotOf(value.parent).kind)) {
                continue;
            }
            if (!open.empty()) {
                out += out.back() == '{' || out.back() == '[' ? "" : ",";
                putName(out, i);
            }
            if (value.kind == Kind::object || value.kind == Kind::array) {
                out += value.kind == Kind::object ? '{' : '[';
                open.push_back(i);
            } else {
                putValue(out, i);
            }
        }
        while (!open.empty()) {
            close();
        }
        return out;
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

    Spot const & spotOf(unsigned i) const { return spots_[i - message_]; }

    [[noreturn]] void refuse(unsigned i, std::string const & why) const {
        std::string const path = document_.path(i);
        throw Failure(static_cast<int>(failure::value_does_not_fit), "value_does_not_fit", path + ": " + why,
                      path, static_cast<long long>(document_.node(i).begin));
    }

    void putName(std::string & out, unsigned i) const {
        Node const & value = document_.node(i);
        if (document_.node(value.parent).kind != Kind::object) {
            return;
        }
        Spot const & in = spotOf(value.parent);
        if (in.kind == kinds::map_ && isLarge(in.field->classType.keyType.value())) {
            appendQuoted(out, std::to_string(bitsOf(value.name)));
        } else {
            appendQuoted(out, value.name);
        }
        out += ':';
    }

    void putValue(std::string & out, unsigned i) const {
        Node const & value = document_.node(i);
        switch (value.kind) {
        case Kind::boolean: out += value.truth ? "true" : "false"; return;
        case Kind::number: out += value.text; return;
        case Kind::string:
            if (!isLarge(spotOf(i).kind)) {
                appendQuoted(out, value.text);
            } else if (value.text.front() == '-') {
                out += std::to_string(static_cast<long long>(bitsOf(value.text)));
            } else {
                out += std::to_string(bitsOf(value.text));
            }
            return;
        default: out += "null";
        }
    }

    Spot look(unsigned i, Spot const & in) const {
        Node const & value = document_.node(i);
        Spot spot;
        if (isObject(in.kind)) {
            MetaField const * const field = fieldNamed(value.name, *in.cls, factory_);
            if (field == nullptr) {
                std::string const path = document_.path(i);
                throw Failure(code_unknown_field, "unknown_field",
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
            // Of a list in a list the kind is not known, nor is there a class of its name.
            bool const unknown = in.kind == kinds::list_ && spot.kind == kinds::unknown_ &&
                                 classNamed(in.field->classType.name, *in.owner, factory_) == nullptr;
            if (isList(spot.kind) || spot.kind == kinds::map_ || unknown) {
                refuse(i, "a list or map within a list or map can't be sent");
            }
        } else {
            return spot;
        }
        if (isObject(spot.kind)) {
            spot.cls = classNamed(spot.field->classType.name, *spot.owner, factory_);
        }
        checkShape(i, spot);
        return spot;
    }

    void checkKey(unsigned i, int kind) const {
        std::string_view const key = document_.node(i).name;
        if (key.empty()) {
            refuse(i, "the empty text can't be a key");
        }
        if (!isTextKey(kind) && kind != kinds::bytes_ && !isLarge(kind)) {
            refuse(i, "a map with keys of this kind can't be sent");
        }
        if (isLarge(kind) && !isPlainKey(key, kind)) {
            refuse(i, "the keys of this map do not hold this number");
        }
        if (kind == kinds::bytes_ && !isBase64(key)) {
            refuse(i, "this key has to be base64");
        }
    }

    void checkShape(unsigned i, Spot const & spot) const {
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
        if (isObject(spot.kind) && spot.cls == nullptr) {
            refuse(i, "the template has no class for this");
        }
        if (isPlain(spot.kind)) {
            checkPlain(i, spot);
        }
    }

    void checkPlain(unsigned i, Spot const & spot) const {
        Node const & value = document_.node(i);
        int const kind = spot.kind;
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
            checkNumber(i, spot);
            return;
        case Kind::string:
            if (isLarge(kind)) {
                checkNumber(i, spot);
            } else if (!text) {
                refuse(i, "this may not be a string");
            } else if (kind == kinds::char_ || kind == kinds::wchar_) {
                refuse(i, "a field of one character can't be sent");
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

    /// What the kind holds, and of that what the template allows.
    void checkNumber(unsigned i, Spot const & spot) const {
        std::string_view const digits = document_.node(i).text;
        if (!fitsKind(digits, spot.kind)) {
            refuse(i, "the field does not hold this number");
        }
        if (!isWhole(spot.kind)) {
            return;
        }
        auto const number = static_cast<long long>(bitsOf(digits));
        std::set<int> const & values = spot.field->validValues;
        if (spot.kind == kinds::enum_ && values.count(static_cast<int>(number)) == 0) {
            refuse(i, "the enum has no such value");
        }
        if (spot.kind != kinds::enum_ && spot.kind != kinds::time_ && !spot.field->range.check(number)) {
            refuse(i, "the field does not hold this number");
        }
    }

    void checkMissing(unsigned object, MetaClass const & cls) const {
        std::set<MetaClass const *> seen;
        for (MetaClass const * one = &cls; one != nullptr && seen.insert(one).second;) {
            for (MetaField const & field : one->fields) {
                std::string_view const name = bytesOf(tav_istr(field.idName.name));
                unsigned const i = isNecessary(field) ? document_.member(object, name) : message_;
                if (i == 0 || document_.node(i).kind == Kind::null) {
                    std::string const path = document_.path(object) + "." + std::string(name);
                    throw Failure(static_cast<int>(failure::field_missing), "field_missing",
                                  path + ": this is necessary", path,
                                  static_cast<long long>(document_.node(object).begin));
                }
            }
            one = one->superName.empty() ? nullptr : classNamed(one->superName, *one, factory_);
        }
    }

    Document const & document_;
    unsigned const message_;
    MetaFactory const & factory_;
    std::vector<Spot> spots_;
};

/// The letters that names are marked with for reading.  They tell what is in a field: how it is to be read
/// if it is a map, and whether its bits are those of real numbers.
struct Mark {
    enum class Shape : unsigned char { plain, map, text_map };
    enum class Real : unsigned char { none, single, twofold };

    Shape shape = Shape::plain;
    Real real = Real::none;

    char letter() const {
        return static_cast<char>('a' + static_cast<int>(shape) * 3 + static_cast<int>(real));
    }
    static Mark of(char letter) {
        int const number = letter - 'a';
        return Mark{static_cast<Shape>(number / 3), static_cast<Real>(number % 3)};
    }
};

/// Has real numbers read as whole ones of the same bits.
template <class Enum>
Mark::Real takeReal(Enum & kind) {
    if (kind.value() == kinds::float_) {
        kind = kinds::uint32_;
        return Mark::Real::single;
    }
    if (kind.value() == kinds::double_) {
        kind = kinds::uint64_;
        return Mark::Real::twofold;
    }
    return Mark::Real::none;
}

template <class Change>
void changeFields(MetaFactory & factory, Change const & change) {
    std::vector<MetaClass *> left;
    for (auto & each : factory.classes) {
        left.push_back(&each.second);
    }
    while (!left.empty()) {
        MetaClass & cls = *left.back();
        left.pop_back();
        for (MetaField & field : cls.fields) {
            change(field);
        }
        for (MetaClass & nested : cls.classes) {
            left.push_back(&nested);
        }
    }
}

/// Names come out of the transcoder as they are, without escapes.  Keys of maps, which a peer chooses, are
/// read as bytes here, so that they come in base64 and nothing in them is taken for JSON.  Real numbers would
/// come with six digits, so their bits are read.
void markToRead(MetaFactory & factory) {
    changeFields(factory, [](MetaField & field) {
        auto & type = field.classType;
        Mark mark;
        if (type.type.value() == kinds::map_) {
            bool const texts = isTextKey(type.keyType.value()) || type.keyType.value() == kinds::char_ ||
                               type.keyType.value() == kinds::wchar_;
            mark.shape = texts ? Mark::Shape::text_map : Mark::Shape::map;
            if (texts) {
                type.keyType = kinds::bytes_;
            }
        }
        bool const holds = type.type.value() == kinds::map_ || isList(type.type.value());
        mark.real = takeReal(holds ? type.elementType : type.type);
        field.idName.name = tavString(mark.letter() + textOf(tav_istr(field.idName.name)));
    });
}

/// Keys of maps are written as digits without a sign.
void markToWrite(MetaFactory & factory) {
    changeFields(factory, [](MetaField & field) {
        auto & type = field.classType;
        if (type.type.value() == kinds::map_ && isLarge(type.keyType.value())) {
            type.keyType = kinds::uint64_;
        }
    });
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
                open_.push_back(c == '{' ? next_ : Within::array);
                next_ = Within::object;
                name_next_ = c == '{';
                put();
            } else if (c == '}' || c == ']') {
                if (!open_.empty()) {
                    open_.pop_back();
                }
                put();
            } else if (c == ',') {
                name_next_ = !open_.empty() && open_.back() != Within::array;
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
    enum class Within : unsigned char { object, map, text_map, array };

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
        } else if (real_ == Mark::Real::twofold) {
            out_ += realOfBits<double, unsigned long long>(inside);
        } else {
            out_ += '"';
            escaped(inside);
            out_ += '"';
        }
    }

    void name(std::string_view marked) {
        if (open_.back() == Within::text_map) {
            tavBytes bytes;
            tavBase64::decode(viewOf(marked), bytes);
            appendString(out_, bytesOf(tav_istr(bytes)));
            return;
        }
        if (open_.back() == Within::map || marked.empty()) {
            appendString(out_, marked);
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
        Mark const mark = Mark::of(marked.front());
        next_ = mark.shape == Mark::Shape::text_map ? Within::text_map
                : mark.shape == Mark::Shape::map    ? Within::map
                                                    : Within::object;
        real_ = mark.real;
        appendString(out_, marked.substr(1));
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
        if (known && real_ == Mark::Real::single) {
            out_ += realOfBits<float, unsigned>(word);
        } else {
            out_.append(known ? word : std::string_view("null"));
        }
        at_ = std::max(end, at_ + 1);
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::string out_;
    std::vector<Within> open_;
    bool name_next_ = false;
    /// What the next brace opens.
    Within next_ = Within::object;
    /// Of the field whose values come.
    Mark::Real real_ = Mark::Real::none;
};

/// Whether readers that recurse, as those of most languages do, come to the end of it.
bool isShallow(Document const & document) {
    constexpr unsigned deepest = 200;
    std::vector<unsigned> depths(document.nodes().size());
    for (unsigned i = 1; i < depths.size(); ++i) {
        depths[i] = depths[document.node(i).parent] + 1;
        if (depths[i] > deepest) {
            return false;
        }
    }
    return true;
}

/// `member` is the one that has the text.
MetaFactory factoryOf(std::string const & text, std::string const & member) {
    try {
        pml::PmlInputStream in{viewOf(text)};
        MetaFactory made(in);
        if (made.classes.empty()) {
            throw Failure(static_cast<int>(failure::bad_template), "bad_template",
                          "the template has no class", member);
        }
        checkTemplate(made, in.unit(), text, member);
        return made;
    } catch (std::invalid_argument const & e) {
        throw Failure(static_cast<int>(failure::bad_template), "bad_template", wordsOf(e), member);
    }
}

} // namespace

bool isBase64(std::string_view text) {
    std::size_t const pads = text.size() - std::min(text.size(), text.find_last_not_of('=') + 1);
    return text.size() % 4 == 0 && pads <= 2 && std::all_of(text.begin(), text.end(), tavBase64::isBase64) &&
           text.substr(0, text.size() - pads).find('=') == std::string_view::npos;
}

Template::Template(std::string text, std::string const & member)
    : text_(std::move(text)), given_(factoryOf(text_, member)), to_write_(given_), to_read_(given_) {
    markToWrite(to_write_);
    markToRead(to_read_);
}

std::string Template::classOf(unsigned short code) const {
    return textOf(tav_istr(given_.findClassName(code)));
}

unsigned short Template::codeOf(std::string_view class_name) const {
    for (auto const & each : given_.code2class) {
        if (bytesOf(tav_istr(each.second)) == class_name) {
            return each.first;
        }
    }
    return no_code;
}

MetaClass const & Template::sendable(std::string const & class_name) const {
    MetaClass const * const cls = given_.findClass(viewOf(class_name));
    if (cls == nullptr || codeOf(class_name) == no_code) {
        throw Failure(static_cast<int>(failure::template_lacks_class), "template_lacks_class",
                      "class: the template has " +
                          std::string(cls == nullptr ? "no class " : "no code for the class ") + class_name,
                      "class");
    }
    return *cls;
}

void Template::checkValues(Document const & document, unsigned node, std::string const & class_name) const {
    Check(document, node, given_).runValues(sendable(class_name));
}

void Template::checkEmpty(unsigned short code) const {
    std::set<MetaClass const *> seen;
    MetaClass const * one = given_.findClass(code);
    while (one != nullptr && seen.insert(one).second) {
        for (MetaField const & field : one->fields) {
            if (isNecessary(field)) {
                throw Failure(code_bad_reply, "bad_reply",
                              "the message is empty, and lacks " + textOf(tav_istr(field.idName.name)));
            }
        }
        one = one->superName.empty() ? nullptr : classNamed(one->superName, *one, given_);
    }
}

Encoded Template::encode(Document const & document, unsigned node, std::string const & class_name) const {
    Encoded out;
    Check check(document, node, given_);
    check.run(sendable(class_name));
    out.code = codeOf(class_name);
    out.class_name = class_name;
    std::string const text = check.text();
    try {
        json2nbr::write(viewOf(text), out.body, out.code, to_write_, viewOf(class_name));
    } catch (std::invalid_argument const &) {
        // Its words may have the rest of the message in them, which is for nobody's log.
        std::string const path = document.path(node);
        throw Failure(static_cast<int>(failure::value_does_not_fit), "value_does_not_fit",
                      path + ": the library can't encode this", path,
                      static_cast<long long>(document.node(node).begin));
    }
    return out;
}

std::string Template::decode(tav_istr body, unsigned short code) const {
    if (body.empty()) {
        checkEmpty(code);
        return "{}";
    }
    tavString json;
    try {
        json2nbr::read(json, body, code, to_read_, false);
    } catch (std::invalid_argument const & e) {
        throw Failure(code_bad_reply, "bad_reply", wordsOf(e));
    }
    std::string out = Unmarking(bytesOf(tav_istr(json))).run();
    if (out == "{}") {
        checkEmpty(code);
    }
    Document strict;
    Failure fault(0, std::string(), std::string());
    if (!strict.read(out, fault)) {
        throw Failure(code_bad_reply, "bad_reply", "the message has no form in JSON: " + fault.text);
    }
    if (!isShallow(strict)) {
        throw Failure(code_bad_reply, "bad_reply", "the message is nested more than 200 deep");
    }
    return out;
}

} // namespace json_client
} // namespace tav
