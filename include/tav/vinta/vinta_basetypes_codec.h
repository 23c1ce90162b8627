#ifndef TAV_VINTA_BASETYPES_CODEC_H
#define TAV_VINTA_BASETYPES_CODEC_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_basetypes_failures.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_basetypes_time.h"
#include "tav/vinta/vinta_locks.h"

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

/// The ground of the codec framework: what can travel through a stream, how a field is described, the
/// wrappers for optional, preset and enumerated values, and the stream interface that every encoding serves.

class tavCodecStream;

namespace tav {
namespace detail {
struct FieldAccess;
} // namespace detail
} // namespace tav

/// The root of pure interfaces.
class TAV_API tavInterface {
public:
    tavInterface() = default;
    tavInterface(tavInterface const &) = default;
    tavInterface & operator=(tavInterface const &) = default;
    virtual ~tavInterface();
};

/// Whatever can be sent through a stream.
class TAV_API tavCodecInterface : public tavInterface {
public:
    tavCodecInterface() = default;
    tavCodecInterface(tavCodecInterface const &) = default;
    tavCodecInterface & operator=(tavCodecInterface const &) = default;
    ~tavCodecInterface() override;

    /// Writes the value to `s`, or fills it from `s`: the direction lies in the stream.
    virtual void io(tavCodecStream & s) = 0;

    /// Whether a stream that hides empty values may leave an optional field of this value out.  False here.
    virtual bool empty() const;
};

/// Whatever has a message code.
class TAV_API tavMsgInterface : public tavInterface {
public:
    tavMsgInterface() = default;
    tavMsgInterface(tavMsgInterface const &) = default;
    tavMsgInterface & operator=(tavMsgInterface const &) = default;
    ~tavMsgInterface() override;

    virtual unsigned short msgcode() const = 0;
};

/// Describes one field.  Made anew for each field of each pass, so making one allocates nothing.
/// Thread safety: const operations of a shared one; else as any plain value.
class TAV_API tavCodecMeta {
public:
    /// `type` is a field type code, or -1 for a class that states none.  `spec` is a constant text that must
    /// outlive the description; null is the empty text.
    tavCodecMeta(int fieldType = -1, bool protectedField = false, char const * specText = nullptr,
                 bool optionalField = false)
        : type(fieldType), isProtected(protectedField), spec(specText), optional(optionalField) {}
    tavCodecMeta(tavCodecMeta const & other) noexcept
        : type(other.type), isProtected(other.isProtected), spec(other.spec), optional(other.optional) {}
    tavCodecMeta & operator=(tavCodecMeta const & other);
    ~tavCodecMeta() {
        if (range_.load(std::memory_order_relaxed) != nullptr) {
            dropRange();
        }
    }

    /// The field type code, or -1.
    int type;
    /// The value must be masked where it is shown.
    bool isProtected;
    /// The mask of a protected field, such as "...***..."; the valid values of a number or an enum.  Not
    /// owned.
    tav_istr spec;
    /// The field may be left out, and may be missing.
    bool optional;

    /// The numbers of `spec`, read from it when this, rangeIsEmpty or checkRange first asks; none if the
    /// field is protected, whose `spec` is a mask.  Lives as long as the description, and is not read again
    /// when `spec` changes after that.
    tav::Range const & range() const;

    bool isOptional() const { return optional; }

    /// Whether there is no range.
    bool rangeIsEmpty() const;

    /// Whether the range permits `v`, as one without numbers always does.
    bool checkRange(long long v) const;

private:
    void dropRange();

    mutable std::atomic<tav::Range const *> range_{nullptr};
};

/// Prints `{type, isProtected, spec, optional}`.
TAV_API std::ostream & operator<<(std::ostream & out, tavCodecMeta const & v);

/// One entry of a collected field list.
struct TAV_API tavFieldMeta {
    tavFieldMeta();
    tavFieldMeta(int fieldId, tav_istr fieldName, std::set<int> const & validValues,
                 tavCodecMeta const & fieldMeta);

    /// -1 by default.
    int id;
    /// A constant text, not owned.
    tav_istr name;
    /// The valid values of an enum field, empty for other fields.
    std::set<int> values;
    tavCodecMeta meta;
};

/// A value that may be unset.  The T of one that was never set, or that was reset, is value-initialised.
template <class T>
class TAV_API tavOptional {
    static_assert(std::is_object<T>::value && !std::is_const<T>::value && !std::is_array<T>::value,
                  "tavOptional<T>: T must be a plain value type, no reference, array or const type");

public:
    tavOptional() : value_() {}
    tavOptional(T const & v) : value_(v), set_(true) {}
    tavOptional(T && v) : value_(std::move(v)), set_(true) {}

    tavOptional & operator=(T const & v) {
        value_ = v;
        set_ = true;
        return *this;
    }
    tavOptional & operator=(T && v) {
        value_ = std::move(v);
        set_ = true;
        return *this;
    }

    bool has_value() const { return set_; }
    explicit operator bool() const { return set_; }

    /// The value; what an unset one holds may be read too.
    T & value() { return value_; }
    T const & value() const { return value_; }
    T & operator*() { return value_; }
    T const & operator*() const { return value_; }
    T * operator->() { return std::addressof(value_); }
    T const * operator->() const { return std::addressof(value_); }

    /// Unsets it.
    void reset() {
        value_ = T();
        set_ = false;
    }

private:
    friend struct tav::detail::FieldAccess;

    T value_;
    bool set_ = false;
};

/// A number or truth value that starts out with the value D.
template <class T, long long D>
class TAV_API tavNumber {
    static_assert(std::is_arithmetic<T>::value, "tavNumber<T, D>: T must be a number type or bool");

public:
    tavNumber() : value_(static_cast<T>(D)) {}
    tavNumber(T v) : value_(v) {}
    tavNumber & operator=(T v) {
        value_ = v;
        return *this;
    }
    operator T() const { return value_; }

private:
    friend struct tav::detail::FieldAccess;

    T value_;
};

namespace tav {

/// The number that a default tavEnum<E> holds; to be specialised for an E whose default is not 0.
template <class E>
struct TAV_API EnumDefault {
    static constexpr int value = 0;
};

namespace detail {

/// The names and numbers that are registered for one enum.
/// Thread safety: all operations; only an addition, and the first question after it, take a lock.
class TAV_API EnumRegistry {
public:
    EnumRegistry();
    ~EnumRegistry();
    EnumRegistry(EnumRegistry const &) = delete;
    EnumRegistry & operator=(EnumRegistry const &) = delete;

    /// The one registry of an enum, whichever program, library or plugin asks, and however these hide their
    /// symbols.  It lives as long as the process.  An enum of an unnamed namespace belongs to one source
    /// file, which asks once: each call makes a registry for it.
    static EnumRegistry & of(std::type_info const & type);

    /// A repeated number or name replaces the entry of that number or name.
    void add(int value, char const * name);

    /// The name, a null view if there is none.  The view lives as long as the registry.
    tav_istr name(int value) const;

    /// Whether `value` is registered, or nothing is.
    bool permits(int value) const;

    /// The registered numbers.  The set lives as long as the registry and never changes: after an addition
    /// there is another one.
    std::set<int> const & values() const;

    /// A copy of the numbers by name.
    std::map<tavString, int> numbers() const;

private:
    struct Snapshot;
    struct Impl;

    Snapshot const & snapshot() const;

    std::unique_ptr<Impl> impl_;
};

} // namespace detail
} // namespace tav

/// A value of the enum E, held and sent as one int.  Names may be registered for E; once there are any, an
/// int without a name is refused with tavInvalidEnumValue, except one that equals the value already held: so
/// a default without a name survives a round trip.  A program and all of its libraries share the names of E,
/// which are safe for all threads; a value is for one.
template <class E>
class TAV_API tavEnum : public tavEnumBase {
    static_assert(std::is_enum<E>::value, "tavEnum<E>: E must be an enum");

public:
    /// Holds tav::EnumDefault<E>::value.
    tavEnum() = default;
    tavEnum(E v) : value_(static_cast<int>(v)) {}
    /// Raises tavInvalidEnumValue as assignment does.
    tavEnum(int v) { *this = v; }

    tavEnum & operator=(E v) {
        value_ = static_cast<int>(v);
        return *this;
    }
    tavEnum & operator=(int v) {
        if (v != value_ && !registry().permits(v)) {
            throw tavInvalidEnumValue("invalid enum value", v);
        }
        value_ = v;
        return *this;
    }

    operator E() const { return static_cast<E>(value_); }
    int value() const { return value_; }

    /// The registered name, a null view if there is none.  The view lives as long as the program.
    tav_istr name() const { return registry().name(value_); }

    /// Registers a name.  A repeated value or name replaces the entry of that value or name.
    static void add(E v, char const * name) { registry().add(static_cast<int>(v), name); }

    /// The registered values.
    static std::set<int> values() { return registry().values(); }

    /// The registered values by name.
    static std::map<tavString, int> numbers() { return registry().numbers(); }

private:
    friend struct tav::detail::FieldAccess;

    static tav::detail::EnumRegistry & registry() {
        static tav::detail::EnumRegistry & shared = tav::detail::EnumRegistry::of(typeid(E));
        return shared;
    }

    int value_ = tav::EnumDefault<E>::value;
};

/// Prints the name, or the number in decimal if there is none.
template <class E>
std::ostream & operator<<(std::ostream & out, tavEnum<E> const & v) {
    tav_istr const name = v.name();
    if (name.data() != nullptr) {
        return out << name;
    }
    return out << std::to_string(v.value());
}

namespace std {
template <class E>
struct hash<tavEnum<E>> {
    size_t operator()(tavEnum<E> const & v) const noexcept { return hash<int>()(v.value()); }
};
} // namespace std

/// A stream of one encoding.  It writes the values that it is given references of, or fills them.  One is
/// made for one pass over one object and dropped after it; child streams share its buffer or tree and must
/// not outlive it.  A stream and the object under it belong to one thread for the length of the pass.
///
/// A class that overrides an io needs `using tavCodecStream::io;`, or the three adapters are hidden.
class TAV_API tavCodecStream : public tavSharedObject {
public:
    tavCodecStream();
    ~tavCodecStream() override;

    /// Whether this is an input stream that holds no value.  False here.
    virtual bool isNull() const;

    /// Whether this is an output stream that leaves out optional fields without a value.  False here.
    virtual bool hideEmpty() const;

    /// The direction.
    virtual bool isOutputStream() const = 0;

    /// The stream of one field; null on input if the field is absent.  Encodings use the id or the name.
    virtual tavSharedPtr<tavCodecStream> child(int id, tav_istr name) = 0;

    /// On output: the stream of the next element of a list.
    virtual tavSharedPtr<tavCodecStream> getOutputChild() = 0;

    /// On input: appends the streams of all elements in order.
    virtual void getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> & children) = 0;

    /// Whether a map's entries are children named by their keys.  If not, each entry is a list element that
    /// holds an object of the members 1 (key) and 2 (value).
    virtual bool isMapEntryCombined() const = 0;

    /// On input: the streams of a combined map by key.
    virtual void getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> & children) = 0;

    /// An object begins.
    virtual void enter(tav_istr className, tav_istr baseName) = 0;

    /// An object ends.
    virtual void leave() = 0;

    /// One simple value, in both directions.  On input a value that the stream lacks leaves the target alone,
    /// unless the encoding says otherwise.
    virtual void io(tavTime & v, tavCodecMeta const & meta) = 0;
    virtual void io(tavBytes & v, tavCodecMeta const & meta) = 0;
    virtual void io(tavString & v, tavCodecMeta const & meta) = 0;
    virtual void io(double & v, tavCodecMeta const & meta) = 0;
    virtual void io(float & v, tavCodecMeta const & meta) = 0;
    virtual void io(unsigned long long & v, tavCodecMeta const & meta) = 0;
    virtual void io(long long & v, tavCodecMeta const & meta) = 0;
    virtual void io(unsigned long & v, tavCodecMeta const & meta) = 0;
    virtual void io(long & v, tavCodecMeta const & meta) = 0;
    virtual void io(unsigned int & v, tavCodecMeta const & meta) = 0;
    virtual void io(int & v, tavCodecMeta const & meta) = 0;
    virtual void io(unsigned short & v, tavCodecMeta const & meta) = 0;
    virtual void io(short & v, tavCodecMeta const & meta) = 0;
    virtual void io(unsigned char & v, tavCodecMeta const & meta) = 0;
    virtual void io(char & v, tavCodecMeta const & meta) = 0;
    virtual void io(bool & v, tavCodecMeta const & meta) = 0;

    /// Writes an absent value.  Nothing here.
    virtual void writeNull();

    /// Tells a stream that builds a tree that this node is an array, also when no element follows.  Nothing
    /// here.
    virtual void makeArrayValue();

    /// The same for an object.  Nothing here.
    virtual void makeObjectValue();

    /// Called for every declared field ahead of anything else.  `values` are the valid values of an enum
    /// field. Nothing here.
    virtual void on_each_field_meta(int id, tav_istr name, std::set<int> const & values,
                                    tavCodecMeta const & meta);

    /// Goes through the io of tavString.  On input the target is always assigned, also without a value.
    void io(std::string & v, tavCodecMeta const & meta);

    /// The same for wide text.
    void io(tavWstring & v, tavCodecMeta const & meta);

    /// A text of one wide character.  On input the first one of the text, if there is any.
    void io(wchar_t & v, tavCodecMeta const & meta);

    /// True until the walk meets a field that is not left out.
    bool isEmpty() const { return empty_; }

private:
    friend struct tav::detail::FieldAccess;

    bool empty_ = true;
    tavBytes * nbr_ = nullptr;
};

namespace tav {
namespace vinta {

/// A two-way table between numbers and names.  Distinct objects may be used by distinct threads; const
/// operations of one object by many.
class TAV_API EnumValues {
public:
    EnumValues();

    /// Enters the pair both ways; a repeated value or name replaces the entry of that value or name.
    void add(int value, char const * name);

    /// The name, valid until the table changes; a null view if the value is unknown.
    tav_istr getName(int value) const;

    /// The value, -1 if the name is unknown.
    int getValue(tav_istr name) const;

    void clear();

private:
    std::map<int, tavString> names_;
    std::map<tavString, int> values_;
};

/// A marker without state.
class TAV_API EnumObject {
public:
    EnumObject & operator=(EnumObject const & other) = default;
};

} // namespace vinta

namespace detail {

/// What the walk over fields may touch and others may not.
struct FieldAccess {
    static void markFilled(tavCodecStream & s) { s.empty_ = false; }

    /// The buffer that a stream of the NBR encoding appends to and nothing else: a plain field may be written
    /// there by its bytes, past the virtual operations.  Null for every other stream.
    static tavBytes * nbrBuffer(tavCodecStream & s) { return s.nbr_; }
    static void setNbrBuffer(tavCodecStream & s, tavBytes * buffer) { s.nbr_ = buffer; }

    /// Makes `s` as new, for a stream that serves one field after another.
    static void markEmpty(tavCodecStream & s) { s.empty_ = true; }

    /// Marks `v` as set and leaves its inner value.
    template <class T>
    static T & set(tavOptional<T> & v) {
        v.set_ = true;
        return v.value_;
    }

    template <class T, long long D>
    static T & number(tavNumber<T, D> & v) {
        return v.value_;
    }

    template <class E>
    static std::set<int> const & valuesOf() {
        return tavEnum<E>::registry().values();
    }
};

} // namespace detail
} // namespace tav

#endif
