#ifndef TAV_VINTA_JSON_TREE_H
#define TAV_VINTA_JSON_TREE_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_basetypes_codec.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_basetypes_time.h"
#include "tav/vinta/vinta_locks.h"

#include <cstddef>
#include <iosfwd>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

/// JSON as a tree of counted values, a forgiving parser and a formatter.
///
/// The dialect: names may stand without quotes, strings between single quotes, a text may end behind an
/// opening bracket or a comma, and a number is kept as the text that it was read from.  A number of 16 or
/// more characters is written between quotes, and whoever reads a number takes a string too, so that no digit
/// is lost on the way.
///
///     tav::json::JsonUnit unit;
///     unit.decode("{name: 'Ann', tags: [1, 2]}");
///     tavString name = unit["name"].asString();
///     unit["age"] << 30;
///     tavString text = unit.toString(false);  // { "age":30, "name":"Ann", "tags":[ 1, 2 ] }
///
/// Trees of any depth are read, written and destroyed in bounded stack.  A tree must not contain itself.
///
/// Thread safety: values have no locks.  Any number of threads may call the const operations of a tree that
/// nobody changes, and hold handles to it; a tree that is being changed belongs to one thread.

namespace tav {

/// The kind of a JSON value.
enum JsonFieldType : int {
    JsonFieldNull = 0,
    JsonFieldBoolean = 1,
    JsonFieldNumber = 2,
    JsonFieldString = 3,
    JsonFieldArray = 4,
    JsonFieldObject = 5
};

namespace json {

class JsonArray;
class JsonBoolean;
class JsonFormatter;
class JsonNumber;
class JsonObject;
class JsonParser;
class JsonString;
class JsonUnit;

/// The base of all values.  JSON null has no object: it is an empty pointer.
class TAV_API JsonValue : public tavRefCountObject {
public:
    JsonValue() noexcept = default;
    JsonValue(JsonValue const & other) = default;
    /// Assigns nothing: what a value is stays with it.
    JsonValue & operator=(JsonValue const &) noexcept { return *this; }
    ~JsonValue() override;

    /// The code of the value's class; -1 in this class.
    virtual JsonFieldType type() const;

    /// The text of a string, without quotes or escapes; of any other value, what toString() gives.
    virtual tavString asString() const;

    /// The value as JSON text.
    virtual tavString toString() const = 0;

    /// Whether the value is no array and no object.
    virtual bool simple() const = 0;

    /// On one line, members that are null included.
    tavString toJson() const;

    /// On many lines, from level 1, without the members that are null.
    tavString toFormatted() const;

    /// On many lines, from level 1, names without quotes and classes shown as "@Class{".
    tavString toFormattedSample() const;

    /// From level 1: as toFormattedSample() if `b`, else on one line without the members that are null.
    tavString dump(bool b) const;

    /// By a JsonFormatter of these settings.
    tavString encode(bool pretty, bool skipNull, int level, bool sample) const;

private:
    friend class JsonArray;
    friend class JsonBoolean;
    friend class JsonFormatter;
    friend class JsonNumber;
    friend class JsonObject;
    friend class JsonParser;
    friend class JsonString;
    friend class JsonUnit;

    enum class Kind : unsigned char { other, boolean, number, string, array, object };

    explicit JsonValue(Kind kind) noexcept : kind_(kind) {}

    /// A value of a class that is not known here may hold whatever it likes.
    bool mayHoldValues() const noexcept { return kind_ >= Kind::array || kind_ == Kind::other; }

    /// Which of the classes of this header the object is; others may be derived, and are `other`.
    Kind const kind_ = Kind::other;
};

/// true or false.
class TAV_API JsonBoolean : public JsonValue {
public:
    explicit JsonBoolean(bool v = false) noexcept : JsonValue(Kind::boolean), value_(v) {}

    JsonFieldType type() const override;
    /// "true" or "false".
    tavString toString() const override;
    bool simple() const override;

    bool getValue() const { return value_; }
    void setValue(bool v) { value_ = v; }

    /// false for the text "false", true for any other, the empty one included.
    void fromString(tav_istr text);

private:
    bool value_;
};

/// A number, held as its text, which nothing checks.
class TAV_API JsonNumber : public JsonValue {
public:
    /// The empty text.
    JsonNumber() noexcept : JsonValue(Kind::number) {}
    /// The text as it stands.
    explicit JsonNumber(tav_istr text) : JsonValue(Kind::number), text_(text) {}

    JsonFieldType type() const override;
    /// The text, between double quotes if it has 16 or more bytes.
    tavString toString() const override;
    bool simple() const override;

    /// The text.
    tavString const & getValue() const { return text_; }

    /// Reads the text as an integer of 16 bits, in decimal, or by its prefix in hexadecimal, binary or octal,
    /// and cuts it to the width of `v`, which keeps its value if the text is no number.
    void getValue(tavNumber<char, 0> & v) const;
    void getValue(tavNumber<unsigned char, 0> & v) const;

    /// Takes the text as it stands, or the decimal digits of `v`.
    void setValue(tav_istr text);
    void setValue(tavNumber<char, 0> const & v);
    void setValue(tavNumber<unsigned char, 0> const & v);

    /// Takes the text without its quotes, if it begins and ends with the same one, else as it stands.
    void fromString(tav_istr text);

private:
    tavString text_;
};

/// A string, held without quotes and escapes.
class TAV_API JsonString : public JsonValue {
public:
    /// The empty string.
    JsonString() noexcept : JsonValue(Kind::string) {}
    /// The text as it stands.
    explicit JsonString(tav_istr text) : JsonValue(Kind::string), text_(text) {}

    JsonFieldType type() const override;
    /// The string itself.
    tavString asString() const override;
    /// The string as escape() writes it.
    tavString toString() const override;
    bool simple() const override;

    /// The string itself.
    tavString const & getValue() const { return text_; }

    /// Takes the text as it stands.
    void setValue(tav_istr text);

    /// Takes what unescape() makes of the text; the empty string if that is nothing.
    void fromString(tav_istr text);

    /// A string of what unescape() makes of the text; null if that is nothing.
    static tavSharedPtr<JsonString> from(tav_istr text);

    /// The text between double quotes, with backslashes ahead of `\`, `"` and `/`, and with the bytes 1 to 31
    /// as escapes; all other bytes stand as they are.  "null" without quotes for an absent text.
    static tavString escape(tavOptional<tavString> const & text);

    /// The text without its quotes and escapes; absent for "null" without quotes.
    ///
    /// The escape `\u` gives the decimal digits of its 16-bit hexadecimal number and not a character, so
    /// escape and unescape are no exact inverses for bytes below 32 that have no escape of one letter.
    static tavOptional<tavString> unescape(tav_istr text);

private:
    friend class JsonFormatter;
    friend class JsonParser;

    tavString text_;
};

/// A handle to a value: copies share it.  A unit without a value is JSON null.
///
/// Reading through a unit never changes it.  The views and operations that are not const coerce: a value of
/// another class is replaced by a new empty one of the asked class, and the old one loses this reference.
class TAV_API JsonUnit {
public:
    typedef std::map<tavString, JsonUnit>::const_iterator const_iterator;

    JsonUnit() noexcept = default;
    JsonUnit(std::nullptr_t) noexcept {}
    JsonUnit(tavSharedPtr<JsonValue> const & value) : value_(value) {}
    JsonUnit(tavSharedPtr<JsonValue> && value) noexcept : value_(std::move(value)) {}

    bool isNull() const { return !value_; }
    JsonFieldType type() const;
    /// True for null, booleans, numbers and strings.
    bool simple() const;
    tavSharedPtr<JsonValue> const & value() const { return value_; }
    void setNull();

    /// The value's asString(); the empty string for null.
    tavString asString() const;
    /// The value's toFormatted() if `pretty`, else its toJson(); "null" for null.
    tavString toString(bool pretty) const;
    /// Prints the value's toString(); "null" for null.
    void dump(std::ostream & out) const;

    /// The value, if it is of that class, else null.
    JsonArray const * arrayValue() const;
    JsonBoolean const * booleanValue() const;
    JsonNumber const * numberValue() const;
    JsonObject const * objectValue() const;
    JsonString const * stringValue() const;

    /// The value, coerced.
    JsonArray & arrayValue();
    JsonBoolean & booleanValue();
    JsonNumber & numberValue();
    JsonObject & objectValue();
    JsonString & stringValue();

    /// The member of that name; coerces to an object and inserts a null member if there is none.
    JsonUnit & child(tav_istr name);
    JsonUnit & operator[](tav_istr name);

    /// The member of that name; null() if there is none or the value is no object.
    JsonUnit const & child(tav_istr name) const;
    JsonUnit const & operator[](tav_istr name) const;

    /// The one null unit that lives as long as the process.
    static JsonUnit const & null();

    /// Appends a null element; coerces to an array.
    JsonUnit & newChild();

    /// The members of an object in the order of their names; an empty range for any other value.
    const_iterator begin() const;
    const_iterator end() const;

    /// Takes the value of the text, or raises and keeps what it has: see JsonParser::from.
    void decode(tav_istr text);

    /// Write a number in decimal; one of floating point with six significant digits.
    JsonUnit & operator<<(char v);
    JsonUnit & operator<<(unsigned char v);
    JsonUnit & operator<<(short v);
    JsonUnit & operator<<(unsigned short v);
    JsonUnit & operator<<(int v);
    JsonUnit & operator<<(unsigned int v);
    JsonUnit & operator<<(float v);
    JsonUnit & operator<<(double v);

    /// Write a string of decimal digits: 64 bits may be more than a reader of JSON numbers keeps.
    JsonUnit & operator<<(long v);
    JsonUnit & operator<<(unsigned long v);
    JsonUnit & operator<<(long long v);
    JsonUnit & operator<<(unsigned long long v);
    /// The milliseconds since 1970.
    JsonUnit & operator<<(tavTime const & v);

    JsonUnit & operator<<(bool v);

    /// Write a string: bytes as they are, wide text as UTF-8, a byte buffer in base64.  A null pointer is the
    /// empty string.
    JsonUnit & operator<<(char const * v);
    JsonUnit & operator<<(tav_istr v);
    JsonUnit & operator<<(tavString const & v);
    JsonUnit & operator<<(std::string const & v);
    JsonUnit & operator<<(std::wstring const & v);
    JsonUnit & operator<<(tavBytes const & v);

    /// Read a number or a string as an integer: decimal, or by its prefix hexadecimal, binary or octal, cut
    /// to the target's width.  A text that is no number stores 0; any other value leaves the target alone.
    JsonUnit const & operator>>(char & v) const;
    JsonUnit const & operator>>(unsigned char & v) const;
    JsonUnit const & operator>>(short & v) const;
    JsonUnit const & operator>>(unsigned short & v) const;
    JsonUnit const & operator>>(int & v) const;
    JsonUnit const & operator>>(unsigned int & v) const;
    JsonUnit const & operator>>(long & v) const;
    JsonUnit const & operator>>(unsigned long & v) const;
    JsonUnit const & operator>>(long long & v) const;
    JsonUnit const & operator>>(unsigned long long & v) const;
    /// The same, decimal only.
    JsonUnit const & operator>>(float & v) const;
    JsonUnit const & operator>>(double & v) const;
    /// The same as for long long: the milliseconds since 1970.
    JsonUnit const & operator>>(tavTime & v) const;

    /// Reads a boolean; any other value leaves the target alone.
    JsonUnit const & operator>>(bool & v) const;

    /// Read a string; any other value leaves the target alone.
    JsonUnit const & operator>>(tavString & v) const;
    JsonUnit const & operator>>(std::string & v) const;
    JsonUnit const & operator>>(std::wstring & v) const;
    /// From base64.
    JsonUnit const & operator>>(tavBytes & v) const;

private:
    JsonValue * holding(JsonValue::Kind kind) const noexcept {
        return value_ && value_->kind_ == kind ? value_.get() : nullptr;
    }

    template <class Value>
    Value & coerce(JsonValue::Kind kind);

    tavSharedPtr<JsonValue> value_;
};

/// A sequence of units.
class TAV_API JsonArray : public JsonValue {
public:
    typedef std::vector<JsonUnit>::const_iterator const_iterator;

    JsonArray() noexcept : JsonValue(Kind::array) {}
    JsonArray(JsonArray const & other) = default;
    /// Takes the elements of `other`, which may be one of this array's own.
    JsonArray & operator=(JsonArray const & other);
    ~JsonArray() override;

    JsonFieldType type() const override;
    /// As toJson().
    tavString toString() const override;
    bool simple() const override;

    /// Appends the unit; the value is shared.
    void add(JsonUnit const & unit);
    void add(JsonUnit && unit);

    /// The element of that index, which must be below size().
    JsonUnit const & at(unsigned i) const { return elements_.data()[i]; }

    const_iterator begin() const { return elements_.begin(); }
    const_iterator end() const { return elements_.end(); }
    std::vector<JsonUnit> const & elements() const { return elements_; }
    unsigned size() const { return static_cast<unsigned>(elements_.size()); }

    /// Appends a null element.  The reference is valid until the next element comes.
    JsonUnit & newChild();

private:
    std::vector<JsonUnit> elements_;
};

/// Units by name, in the order of the names' bytes.
class TAV_API JsonObject : public JsonValue {
public:
    typedef JsonUnit::const_iterator const_iterator;

    JsonObject() : JsonValue(Kind::object) {}
    JsonObject(JsonObject const & other) = default;
    /// Takes the members of `other`, which may be one of this object's own.
    JsonObject & operator=(JsonObject const & other);
    ~JsonObject() override;

    JsonFieldType type() const override;
    /// As toJson().
    tavString toString() const override;
    bool simple() const override;

    /// The member of that name; inserts a null one if there is none.  The reference is valid as long as the
    /// object.
    JsonUnit & get(tav_istr name);
    JsonUnit & operator[](tav_istr name);

    /// The member of that name, or null.
    JsonUnit const * get(tav_istr name) const;

    /// Replaces or inserts a member; the value is shared.
    void put(tav_istr name, JsonUnit const & unit);
    void put(tav_istr name, JsonUnit && unit);

    const_iterator begin() const { return members_.begin(); }
    const_iterator end() const { return members_.end(); }

private:
    /// The order of names, also against views.
    struct NameLess {
        using is_transparent = void;
        template <class A, class B>
        bool operator()(A const & a, B const & b) const noexcept {
            unsigned char const first = firstOf(a);
            unsigned char const other = firstOf(b);
            return first != other ? first < other : tav_istr(a).compare(b) < 0;
        }
        static unsigned char firstOf(tavString const & name) noexcept {
            return static_cast<unsigned char>(*name.data());
        }
        static unsigned char firstOf(tav_istr name) noexcept { return static_cast<unsigned char>(*name); }
    };

    /// Takes the members' nodes from takeNode(): while a text is read, many of them share one allocation.
    template <class T>
    struct NodeAllocator {
        typedef T value_type;
        NodeAllocator() noexcept = default;
        template <class U>
        NodeAllocator(NodeAllocator<U> const &) noexcept {}
        T * allocate(std::size_t n) {
            static_assert(alignof(T) <= alignof(void *), "nodes are aligned as pointers are");
            return static_cast<T *>(takeNode(n * sizeof(T)));
        }
        void deallocate(T * p, std::size_t) noexcept { giveNode(p); }
        bool operator==(NodeAllocator const &) const noexcept { return true; }
        bool operator!=(NodeAllocator const &) const noexcept { return false; }
    };

    typedef std::map<tavString, JsonUnit, NameLess, NodeAllocator<std::pair<tavString const, JsonUnit>>>
        Members;
    static_assert(std::is_same<Members::const_iterator, const_iterator>::value,
                  "order and allocator must play no part in the type of an iterator");

    /// Memory for a node of at most pointer alignment, and its return, which may be on any thread.
    static void * takeNode(std::size_t size);
    static void giveNode(void * node) noexcept;

    Members members_;
};

/// Reads JSON text.  The values own their text: nothing refers to the bytes that were read.  The values of
/// one text share allocations of at most 32 kB each, so a value that is kept when the rest of its tree is
/// gone may keep that much besides itself.
class TAV_API JsonParser {
public:
    JsonParser() = delete;

    /// The object or array that the text begins with; what stands behind it is not looked at.
    /// @throws std::invalid_argument if the text is none, with the cause and the text from there on
    static tavSharedPtr<JsonValue> from(tav_istr text);

    /// The value of a bare word: null for "null" and the empty text, a boolean for "true" and "false", a
    /// number for a text that begins with a digit, or a minus and a digit; a string of the text as it stands
    /// for anything else.
    static tavSharedPtr<JsonValue> fromSimple(tav_istr token);

private:
    class Reader;
};

/// Writes JSON text.
class TAV_API JsonFormatter {
public:
    JsonFormatter(JsonValue const * value, bool pretty, bool skipNull, int level, bool sample);

    /// Not owned; null is JSON null.
    JsonValue const * value;
    /// Each member and element on a line of its own, indented by four blanks for each level.
    bool pretty;
    /// Leaves out the members that are null; elements stay.
    bool skipNull;
    /// The level of the value's closing bracket.
    int level;
    /// Names without quotes, and a member "__class__" shown as "@" and its text ahead of the object.
    bool sample;

    /// Appends.
    void format(tavString & out) const;
    tavString toString() const;

    /// Appends a line feed and the blanks of the level if `pretty`, else one blank.
    static void indent(tavString & out, bool pretty, int level);

private:
    class Writer;
};

} // namespace json
} // namespace tav

#endif
