#ifndef TAV_VINTA_OBJECT_FIELDS_H
#define TAV_VINTA_OBJECT_FIELDS_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_codec.h"
#include "tav/vinta/vinta_nbr_write.h"

#include <charconv>
#include <cstddef>
#include <deque>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <system_error>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

/// The walk over fields: ioField, which traverse calls once for each field.
///
/// A field may be of any simple type of tavCodecStream or of its adapter types (std::string, tavWstring,
/// wchar_t), a tavEnum, a tavNumber, an object by value, a tavSharedPtr of an object, a tavOptional of these
/// and of the following, or a std::vector, std::list, std::deque, std::set, std::map or std::unordered_map of
/// any of all these; the keys of maps are text, integers or tavEnum.  Any other type fails to compile with
/// one line that says why.
///
/// A class that contains itself through a container or a tavSharedPtr is walked by recursion, one level for
/// each level of the data, and the walk sets no limit: whoever decodes such a class from untrusted bytes has
/// to limit its depth in traverse.

class tavNbrInStream;

namespace tav {
namespace detail {

/// Why a type can't be a field.
enum class FieldFault {
    none,
    type,
    constant,
    plainEnum,
    rawPointer,
    sharedPtr,
    nestedOptional,
    element,
    mapKey
};

/// Whether tavCodecStream has an io of its own for T.
template <class T>
inline constexpr bool isSimpleField =
    std::is_same<T, tavTime>::value || std::is_same<T, tavBytes>::value ||
    std::is_same<T, tavString>::value || std::is_same<T, double>::value || std::is_same<T, float>::value ||
    std::is_same<T, unsigned long long>::value || std::is_same<T, long long>::value ||
    std::is_same<T, unsigned long>::value || std::is_same<T, long>::value ||
    std::is_same<T, unsigned int>::value || std::is_same<T, int>::value ||
    std::is_same<T, unsigned short>::value || std::is_same<T, short>::value ||
    std::is_same<T, unsigned char>::value || std::is_same<T, char>::value || std::is_same<T, bool>::value;

/// Whether tavCodecStream adapts T.
template <class T>
inline constexpr bool isAdapterField = std::is_same<T, std::string>::value ||
                                       std::is_same<T, tavWstring>::value || std::is_same<T, wchar_t>::value;

template <class T>
inline constexpr bool isObjectField = std::is_convertible<T *, tavCodecInterface *>::value;

template <class T>
constexpr FieldFault faultOfOtherType() {
    if (std::is_const<T>::value) {
        return FieldFault::constant;
    }
    if (std::is_enum<T>::value) {
        return FieldFault::plainEnum;
    }
    return std::is_pointer<T>::value ? FieldFault::rawPointer : FieldFault::type;
}

/// How a value of type T travels.  A type that can travel has `fault` none, isEmpty, and io, which works in
/// the direction of the stream.
template <class T, class = void>
struct FieldWalk {
    static constexpr FieldFault fault = faultOfOtherType<T>();
};

template <class T>
struct FieldWalk<T, std::enable_if_t<isSimpleField<T> || isAdapterField<T>>> {
    static constexpr FieldFault fault = FieldFault::none;

    static bool isEmpty(T const & v) {
        if constexpr (std::is_arithmetic<T>::value) {
            return v == T();
        } else {
            return v.empty();
        }
    }

    static void io(tavCodecStream & s, T & v, tavCodecMeta const & meta) { s.io(v, meta); }
};

template <class E>
struct FieldWalk<tavEnum<E>> {
    static constexpr FieldFault fault = FieldFault::none;

    static bool isEmpty(tavEnum<E> const & v) { return v.value() == 0; }

    static void io(tavCodecStream & s, tavEnum<E> & v, tavCodecMeta const & meta) {
        int value = v.value();
        s.io(value, meta);
        // On output the object is only read.
        if (value != v.value()) {
            v = value;
        }
    }
};

template <class T, long long D>
struct FieldWalk<tavNumber<T, D>> {
    static constexpr FieldFault fault = FieldWalk<T>::fault;

    static bool isEmpty(tavNumber<T, D> const & v) { return static_cast<T>(v) == T(); }

    static void io(tavCodecStream & s, tavNumber<T, D> & v, tavCodecMeta const & meta) {
        s.io(FieldAccess::number(v), meta);
    }
};

template <class T>
struct FieldWalk<T, std::enable_if_t<isObjectField<T> && !std::is_const<T>::value>> {
    static constexpr FieldFault fault = FieldFault::none;

    static bool isEmpty(tavCodecInterface const & v) { return v.empty(); }

    static void io(tavCodecStream & s, tavCodecInterface & v, tavCodecMeta const &) { v.io(s); }
};

/// On input an object that is held already is filled, whoever else holds it; else one is made.
template <class T>
struct FieldWalk<tavSharedPtr<T>> {
    static constexpr FieldFault fault = isObjectField<T> && std::is_default_constructible<T>::value
                                            ? FieldFault::none
                                            : FieldFault::sharedPtr;

    static bool isEmpty(tavSharedPtr<T> const & v) { return !v || FieldWalk<T>::isEmpty(*v); }

    static void io(tavCodecStream & s, tavSharedPtr<T> & v, tavCodecMeta const & meta) {
        if (s.isOutputStream()) {
            if (!v) {
                s.writeNull();
                return;
            }
        } else {
            if (s.isNull()) {
                return;
            }
            if (!v) {
                v = tavSharedPtr<T>(new T());
            }
        }
        FieldWalk<T>::io(s, *v, meta);
    }
};

template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<tavOptional<T>> : std::true_type {};

template <class T>
struct FieldWalk<tavOptional<T>> {
    static constexpr FieldFault fault =
        IsOptional<T>::value ? FieldFault::nestedOptional : FieldWalk<T>::fault;

    static void io(tavCodecStream & s, tavOptional<T> & v, tavCodecMeta const & meta) {
        if (s.isOutputStream()) {
            if (v.has_value()) {
                FieldWalk<T>::io(s, v.value(), meta);
            } else {
                s.writeNull();
            }
        } else if (!s.isNull()) {
            FieldWalk<T>::io(s, FieldAccess::set(v), tavCodecMeta());
        }
    }
};

/// The meta of a container's elements as they are written: the default one, but a protected field stays
/// protected to its last element.
inline tavCodecMeta elementMeta(tavCodecMeta const & field) {
    return field.isProtected ? field : tavCodecMeta();
}

/// The streams of a list's elements while they are read.  The room for them is used again by the thread's
/// next list.  Of NBR one stream is set on each element in turn, past the virtual operations, so that a list
/// takes no memory beside its document; not of a class that is derived from its stream.
class TAV_API InputChildren {
public:
    explicit InputChildren(tavCodecStream & s);
    ~InputChildren();
    InputChildren(InputChildren const &) = delete;
    InputChildren & operator=(InputChildren const &) = delete;

    std::size_t size() const { return size_; }

    /// The stream of the next element, to be asked for `size` times at most.  The one before is not used any
    /// more.
    tavCodecStream * next();

private:
    struct Streams;

    Streams * streams_ = nullptr;
    /// The stream that serves for all elements; null if each has its own.
    tavNbrInStream * nbr_ = nullptr;
    std::size_t at_ = 0;
    std::size_t size_ = 0;
};

/// Makes room in the containers that can.
template <class C>
auto reserve(C & v, std::size_t size, int) -> decltype(v.reserve(size)) {
    v.reserve(size);
}
template <class C>
void reserve(C &, std::size_t, long) {}

/// Fills one element that was just made; a stream without a value leaves it as it is.
template <class T>
void readElement(tavCodecStream * s, T & v) {
    if (s && !s->isNull()) {
        FieldWalk<T>::io(*s, v, tavCodecMeta());
    }
}

template <class T, bool Moved>
constexpr FieldFault faultOfElement() {
    if (FieldWalk<T>::fault != FieldFault::none) {
        return FieldWalk<T>::fault;
    }
    return std::is_default_constructible<T>::value && (!Moved || std::is_move_constructible<T>::value)
               ? FieldFault::none
               : FieldFault::element;
}

/// Lists and sets.  A field that is present replaces what the container held.
template <class C>
struct ElementsWalk {
    using Element = typename C::value_type;

    static bool isEmpty(C const & v) { return v.empty(); }

    static void io(tavCodecStream & s, C & v, tavCodecMeta const & meta) {
        if (s.isOutputStream()) {
            write(s, v, elementMeta(meta));
        } else {
            read(s, v);
        }
    }

private:
    static constexpr bool isBits = std::is_same<typename C::reference, std::vector<bool>::reference>::value;

    static void write(tavCodecStream & s, C & v, tavCodecMeta const & meta) {
        if constexpr (isSimpleField<Element> && !isBits) {
            if (tavBytes * const nbr = FieldAccess::nbrBuffer(s)) {
                tav::nbr::detail::writeMarker(*nbr, '(');
                for (Element const & element : v) {
                    tav::nbr::detail::writeMember(*nbr, 0, element);
                }
                tav::nbr::detail::writeMarker(*nbr, ')');
                return;
            }
        }
        s.enter(tav_istr(), tav_istr());
        s.makeArrayValue();
        for (auto && element : v) {
            tavSharedPtr<tavCodecStream> const child = s.getOutputChild();
            if (!child) {
                continue;
            }
            if constexpr (isBits) {
                bool bit = element;
                FieldWalk<bool>::io(*child, bit, meta);
            } else {
                FieldWalk<Element>::io(*child, const_cast<Element &>(element), meta);
            }
        }
        s.leave();
    }

    static void read(tavCodecStream & s, C & v) {
        v.clear();
        InputChildren children(s);
        reserve(v, children.size(), 0);
        for (std::size_t left = children.size(); left != 0; --left) {
            append(children.next(), v, 0);
        }
    }

    /// The form of lists; vector<bool> and sets have no reference to a new element, and go through a local.
    template <class S>
    static auto append(tavCodecStream * child, S & v, int)
        -> std::enable_if_t<!isBits, decltype(v.emplace_back(), void())> {
        v.emplace_back();
        readElement(child, v.back());
    }

    template <class S>
    static void append(tavCodecStream * child, S & v, long) {
        Element element = Element();
        readElement(child, element);
        v.insert(v.end(), std::move(element));
    }
};

template <class T, class A>
struct FieldWalk<std::vector<T, A>> : ElementsWalk<std::vector<T, A>> {
    static constexpr FieldFault fault = faultOfElement<T, true>();
};

template <class T, class A>
struct FieldWalk<std::list<T, A>> : ElementsWalk<std::list<T, A>> {
    static constexpr FieldFault fault = faultOfElement<T, false>();
};

template <class T, class A>
struct FieldWalk<std::deque<T, A>> : ElementsWalk<std::deque<T, A>> {
    static constexpr FieldFault fault = faultOfElement<T, false>();
};

template <class T, class L, class A>
struct FieldWalk<std::set<T, L, A>> : ElementsWalk<std::set<T, L, A>> {
    static constexpr FieldFault fault = faultOfElement<T, true>();
};

/// How a key of type K becomes the name of a combined map's entry, and back.  Integers and enums are decimal;
/// a name that is no number gives 0, and one that is too large its low bits.
template <class K, class = void>
struct KeyText {
    static constexpr bool supported = false;
};

/// The number at the front of `text`: an optional sign and decimal digits up to the end, else 0.
TAV_API unsigned long long numberOfKey(tav_istr text);

template <class K>
struct KeyText<K, std::enable_if_t<std::is_integral<K>::value && isSimpleField<K>>> {
    static constexpr bool supported = true;

    template <class Use>
    static void use(K key, Use && with) {
        char text[24];
        std::conditional_t<std::is_signed<K>::value, long long, unsigned long long> const number = key;
        char const * const end = std::to_chars(std::begin(text), std::end(text), number).ptr;
        with(tav_istr(text, end));
    }
    static K from(tavString const & text) { return static_cast<K>(numberOfKey(text)); }
};

template <class E>
struct KeyText<tavEnum<E>> {
    static constexpr bool supported = true;

    template <class Use>
    static void use(tavEnum<E> const & key, Use && with) {
        KeyText<int>::use(key.value(), with);
    }
    static tavEnum<E> from(tavString const & text) { return tavEnum<E>(KeyText<int>::from(text)); }
};

template <>
struct KeyText<tavString> {
    static constexpr bool supported = true;

    template <class Use>
    static void use(tavString const & key, Use && with) {
        with(tav_istr(key));
    }
    static tavString const & from(tavString const & text) { return text; }
};

template <>
struct KeyText<std::string> {
    static constexpr bool supported = true;

    template <class Use>
    static void use(std::string const & key, Use && with) {
        with(tav_istr(key));
    }
    static std::string from(tavString const & text) { return std::string(text.data(), text.size()); }
};

template <>
struct KeyText<tavWstring> {
    static constexpr bool supported = true;

    template <class Use>
    static void use(tavWstring const & key, Use && with) {
        tavString text;
        text.fromWstring(key);
        with(tav_istr(text));
    }
    static tavWstring from(tavString const & text) { return tavWstring(text.toWstring()); }
};

template <>
struct KeyText<wchar_t> {
    static constexpr bool supported = true;

    template <class Use>
    static void use(wchar_t key, Use && with) {
        tavString text;
        text.write(key);
        with(tav_istr(text));
    }
    static wchar_t from(tavString const & text) {
        std::wstring const wide = text.toWstring();
        return wide.empty() ? L'\0' : wide.front();
    }
};

template <class K, class V>
constexpr FieldFault faultOfEntry() {
    return KeyText<K>::supported ? faultOfElement<V, true>() : FieldFault::mapKey;
}

/// Maps, in the form that the stream asks for.  A field that is present replaces what the map held; of
/// entries with one key the last stays.
template <class M>
struct EntriesWalk {
    using Key = typename M::key_type;
    using Value = typename M::mapped_type;

    static bool isEmpty(M const & v) { return v.empty(); }

    static void io(tavCodecStream & s, M & v, tavCodecMeta const & meta) {
        bool const combined = s.isMapEntryCombined();
        if (s.isOutputStream()) {
            s.enter(tav_istr(), tav_istr());
            if (combined) {
                writeNamed(s, v, elementMeta(meta));
            } else {
                writeListed(s, v, elementMeta(meta));
            }
            s.leave();
            return;
        }
        v.clear();
        if (combined) {
            readNamed(s, v);
        } else {
            readListed(s, v);
        }
    }

private:
    static void writeNamed(tavCodecStream & s, M & v, tavCodecMeta const & meta) {
        s.makeObjectValue();
        for (auto & entry : v) {
            KeyText<Key>::use(entry.first, [&](tav_istr name) {
                tavSharedPtr<tavCodecStream> const child = s.child(0, name);
                if (child) {
                    FieldWalk<Value>::io(*child, entry.second, meta);
                }
            });
        }
    }

    static void writeListed(tavCodecStream & s, M & v, tavCodecMeta const & meta) {
        s.makeArrayValue();
        for (auto & entry : v) {
            tavSharedPtr<tavCodecStream> const element = s.getOutputChild();
            if (!element) {
                continue;
            }
            element->enter(tav_istr(), tav_istr());
            if (tavSharedPtr<tavCodecStream> const key = element->child(1, "key")) {
                FieldWalk<Key>::io(*key, const_cast<Key &>(entry.first), meta);
            }
            if (tavSharedPtr<tavCodecStream> const value = element->child(2, "value")) {
                FieldWalk<Value>::io(*value, entry.second, meta);
            }
            element->leave();
        }
    }

    static void readNamed(tavCodecStream & s, M & v) {
        std::map<tavString, tavSharedPtr<tavCodecStream>> children;
        s.getInputChildMap(children);
        for (auto const & child : children) {
            Value value = Value();
            readElement(child.second.get(), value);
            v.insert_or_assign(KeyText<Key>::from(child.first), std::move(value));
        }
    }

    static void readListed(tavCodecStream & s, M & v) {
        InputChildren children(s);
        reserve(v, children.size(), 0);
        for (std::size_t left = children.size(); left != 0; --left) {
            tavCodecStream * const child = children.next();
            Key key = Key();
            Value value = Value();
            if (child != nullptr && !child->isNull()) {
                readElement(child->child(1, "key").get(), key);
                readElement(child->child(2, "value").get(), value);
            }
            v.insert_or_assign(std::move(key), std::move(value));
        }
    }
};

template <class K, class V, class L, class A>
struct FieldWalk<std::map<K, V, L, A>> : EntriesWalk<std::map<K, V, L, A>> {
    static constexpr FieldFault fault = faultOfEntry<K, V>();
};

template <class K, class V, class H, class Q, class A>
struct FieldWalk<std::unordered_map<K, V, H, Q, A>> : EntriesWalk<std::unordered_map<K, V, H, Q, A>> {
    static constexpr FieldFault fault = faultOfEntry<K, V>();
};

/// The valid values of whatever is no enum.  Never destroyed: objects may be encoded until the process ends.
inline std::set<int> const & noValues() {
    static std::set<int> const & none = *new std::set<int>;
    return none;
}

/// The valid values that a field declares: those of an enum, and of an optional one.
template <class T>
struct FieldValues {
    static std::set<int> const & get() { return noValues(); }
};

template <class E>
struct FieldValues<tavEnum<E>> {
    static std::set<int> const & get() { return FieldAccess::valuesOf<E>(); }
};

template <class E>
struct FieldValues<tavOptional<tavEnum<E>>> : FieldValues<tavEnum<E>> {};

/// Whether an output stream passes the field over.
template <class T>
bool isLeftOut(tavCodecStream & s, T const & value, tavCodecMeta const & meta) {
    if (!meta.isOptional() || !s.isOutputStream()) {
        return false;
    }
    if constexpr (IsOptional<T>::value) {
        return !value.has_value();
    } else {
        return s.hideEmpty() && FieldWalk<T>::isEmpty(value);
    }
}

/// Raises std::invalid_argument with "invalid enum field name ", the name, " value " and the value.
[[noreturn]] TAV_API void raiseInvalidEnumField(tav_istr name, int value);

} // namespace detail
} // namespace tav

/// Takes one field through `s`: tells the stream of it, leaves it out if it is optional and without a value
/// and the stream is an output stream that hides it, and else writes or fills `value` on the field's child
/// stream. A field that an input stream lacks keeps its value.  `id` travels as its low eight bits where
/// encodings use ids; `name` must outlive a stream that collects fields.
///
/// A tavOptional is left out only if the meta is optional and it is unset, whatever the stream hides; with
/// other metas an unset one travels as a null.
///
/// Raises std::invalid_argument for an enum value that is not registered, and what the stream raises.
template <class T>
void ioField(tavCodecStream & s, int id, tav_istr name, T & value,
             tavCodecMeta const & meta = tavCodecMeta()) {
    using tav::detail::FieldFault;
    constexpr FieldFault fault = tav::detail::FieldWalk<T>::fault;
    static_assert(fault != FieldFault::type, "ioField: no stream carries a value of this type");
    static_assert(fault != FieldFault::constant, "ioField: the value is const, and input streams assign it");
    static_assert(fault != FieldFault::plainEnum, "ioField: an enum has to be wrapped as tavEnum<E>");
    static_assert(fault != FieldFault::rawPointer,
                  "ioField: an object is held by value or by tavSharedPtr, not by a plain pointer");
    static_assert(fault != FieldFault::sharedPtr,
                  "ioField: the class of a tavSharedPtr must be a default constructible tavCodecInterface");
    static_assert(fault != FieldFault::nestedOptional,
                  "ioField: an optional of an optional has no null of its own");
    static_assert(fault != FieldFault::element,
                  "ioField: the elements of a container must be default constructible and movable");
    static_assert(fault != FieldFault::mapKey, "ioField: the keys of a map are text, integers or tavEnum<E>");
    if constexpr (fault == FieldFault::none) {
        if constexpr (tav::detail::isSimpleField<T>) {
            if (tavBytes * const nbr = tav::detail::FieldAccess::nbrBuffer(s)) {
                if (!tav::detail::isLeftOut(s, value, meta)) {
                    tav::detail::FieldAccess::markFilled(s);
                    tav::nbr::detail::writeMember(*nbr, static_cast<unsigned char>(id), value);
                }
                return;
            }
        }
        s.on_each_field_meta(id, name, tav::detail::FieldValues<T>::get(), meta);
        if (tav::detail::isLeftOut(s, value, meta)) {
            return;
        }
        tav::detail::FieldAccess::markFilled(s);
        tavSharedPtr<tavCodecStream> const child = s.child(id, name);
        if (!child) {
            return;
        }
        try {
            tav::detail::FieldWalk<T>::io(*child, value, meta);
        } catch (tavInvalidEnumValue const & e) {
            tav::detail::raiseInvalidEnumField(name, e.value());
        }
    }
}

#endif
