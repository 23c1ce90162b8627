#ifndef TAV_KIT_MESSAGE_H
#define TAV_KIT_MESSAGE_H

#include "tav/kit/equal.h"
#include "tav/vinta/vinta_object.h"

#include <memory>
#include <type_traits>

/// Message classes and classes of objects without ceremony: a class states its name, its code and its fields.
///
///     struct Say : tav::kit::message<Say> {
///         static constexpr char const * type_name = "Say";
///         static constexpr unsigned short type_code = 0x3001;
///         tavString text;
///         int mood = 0;
///         void traverse(tavCodecStream & s) override {
///             ioField(s, 1, "text", text);
///             ioField(s, 2, "mood", mood);
///         }
///     };
///
/// All else is the same as of a class written by hand, byte for byte in every encoding: className, baseName,
/// msgcode, newInstance and assignFrom.  A class that adds to another one names it: `message<Said, Say>`; it
/// inherits the fields and states a name and a code of its own.  A wrong declaration does not compile, and
/// the first line says why; `tav::kit::check` finds the rest.
namespace tav {
namespace kit {

namespace detail {

/// The type of a `type_name` or `type_code` that a class inherits and does not state.
struct not_stated {};

/// Why a class can't be declared so.
enum class declaration_fault {
    none,
    hidden,
    no_name,
    name,
    no_code,
    code,
    base,
    object_of_message,
    constructor,
    assignment
};

/// The bases that oblige a class to list its fields.
class root_message : public tavMessage {
protected:
    void traverse(tavCodecStream & s) override = 0;
};
class root_object : public tavObject {
protected:
    void traverse(tavCodecStream & s) override = 0;
};

/// What a class derives from when it names Base; a wrong Base gives way to `Root`, so that its own message is
/// the only one.
template <class Base, class Plain, class Root>
using base_of =
    std::conditional_t<std::is_same<Base, Plain>::value || !std::is_base_of<Plain, Base>::value, Root, Base>;

template <class T, class = void>
struct public_name : std::false_type {};
template <class T>
struct public_name<T, std::void_t<decltype(T::type_name), decltype(T::type_code)>> : std::true_type {};

template <class T, class = void>
struct constant_code : std::false_type {};
template <class T>
struct constant_code<T, std::void_t<std::integral_constant<long long, static_cast<long long>(T::type_code)>>>
    : std::bool_constant<static_cast<long long>(T::type_code) >= 0 &&
                         static_cast<long long>(T::type_code) < 0xffff> {};

/// Whether T is a class of this kit, and not only derived from one.
template <class T, class = void>
struct is_declared : std::false_type {};
template <class T>
struct is_declared<T, std::void_t<typename T::kit_self>> : std::is_same<typename T::kit_self, T> {};

/// Whether the name of T can be had as the base of another class.
template <class T>
constexpr bool has_name() {
    if constexpr (is_declared<T>::value) {
        return true;
    } else {
        return !std::is_abstract<T>::value && std::is_default_constructible<T>::value;
    }
}

template <class Self, class Base, bool Coded>
constexpr declaration_fault fault_of() {
    using fault = declaration_fault;
    if constexpr (!public_name<Self>::value) {
        return fault::hidden;
    } else if constexpr (std::is_same<std::decay_t<decltype(Self::type_name)>, not_stated>::value) {
        return fault::no_name;
    } else if constexpr (std::is_member_pointer<decltype(&Self::type_name)>::value ||
                         !std::is_convertible<decltype(Self::type_name), tav_istr>::value) {
        return fault::name;
    } else if constexpr (Coded && std::is_same<std::decay_t<decltype(Self::type_code)>, not_stated>::value) {
        return fault::no_code;
    } else if constexpr (Coded && !constant_code<Self>::value) {
        return fault::code;
    } else if constexpr (!Coded && std::is_base_of<tavMessage, Base>::value) {
        return fault::object_of_message;
    } else if constexpr (!std::is_same<Base, root_message>::value &&
                         !std::is_same<Base, root_object>::value && !has_name<Base>()) {
        return fault::base;
    } else if constexpr (!std::is_abstract<Self>::value && !std::is_default_constructible<Self>::value) {
        return fault::constructor;
    } else if constexpr (!std::is_abstract<Self>::value && (!std::is_copy_constructible<Self>::value ||
                                                            !std::is_copy_assignable<Self>::value)) {
        return fault::assignment;
    } else {
        return fault::none;
    }
}

template <class Self, class Base, bool Coded>
constexpr void require_sound_declaration() {
    constexpr declaration_fault fault = fault_of<Self, Base, Coded>();
    static_assert(fault != declaration_fault::hidden, "tav::kit: type_name and type_code have to be public");
    static_assert(fault != declaration_fault::no_name, "tav::kit: the class has to state its type_name: "
                                                       "static constexpr char const * type_name = \"Say\"");
    static_assert(fault != declaration_fault::name,
                  "tav::kit: type_name has to be a text: static constexpr char const * type_name = \"Say\"");
    static_assert(fault != declaration_fault::no_code, "tav::kit: the class has to state its type_code: "
                                                       "static constexpr unsigned short type_code = 0x3001");
    static_assert(fault != declaration_fault::code,
                  "tav::kit: type_code has to be a constant number from 0 to 0xfffe");
    static_assert(fault != declaration_fault::object_of_message,
                  "tav::kit: a class whose base is a message is declared by message<Self, Base>");
    static_assert(fault != declaration_fault::base,
                  "tav::kit: the base class has to state its type_name, or to have a default constructor");
    static_assert(fault != declaration_fault::constructor,
                  "tav::kit: the class needs a public default constructor, to make new instances");
    static_assert(fault != declaration_fault::assignment,
                  "tav::kit: the class has to be copyable: no member may be const, a reference or unique");
}

/// The operations of a class that is declared so; they stand outside of it, where no field can be shadowed.
template <class Base>
tav_istr base_name() {
    if constexpr (std::is_same<Base, root_message>::value) {
        return "tavMessage";
    } else if constexpr (std::is_same<Base, root_object>::value) {
        return "tavObject";
    } else if constexpr (is_declared<Base>::value) {
        return Base::type_name;
    } else if constexpr (has_name<Base>()) {
        static tav_istr const name = Base().className();
        return name;
    } else {
        return tav_istr();
    }
}

template <class Self>
tavObject * new_of() {
    if constexpr (!std::is_abstract<Self>::value && std::is_default_constructible<Self>::value) {
        return new Self();
    } else {
        return nullptr;
    }
}

template <class Self>
void assign_to(Self & to, Self const * from) {
    if constexpr (std::is_copy_assignable<Self>::value) {
        if (from != nullptr) {
            to = *from;
        }
    }
}

template <class Self>
std::unique_ptr<Self> owned_as(tavObject * made) {
    std::unique_ptr<tavObject> owner(made);
    auto * const same = dynamic_cast<Self *>(made);
    if (same != nullptr) {
        owner.release();
    }
    return std::unique_ptr<Self>(same);
}

/// What is common to messages and other objects.
template <class Self, class Base, bool Coded>
class declared : public Base {
public:
    using kit_self = Self;

    static constexpr not_stated type_name{};
    static constexpr not_stated type_code{};

    tav_istr className() const override {
        if constexpr (fault_of<Self, Base, Coded>() == declaration_fault::none) {
            return Self::type_name;
        } else {
            return tav_istr();
        }
    }

    tav_istr baseName() const override { return base_name<Base>(); }

    /// A new default object, which the caller owns.
    tavObject * newInstance() const override { return new_of<Self>(); }

    /// Takes over the fields of an object of this class or of one derived from it; nothing from any other.
    /// The parameter's name gets out of the way of fields.
    void assignFrom(tavObject const & kit_from) override {
        assign_to(static_cast<Self &>(*this), dynamic_cast<Self const *>(&kit_from));
    }

    /// A copy, of the class that the object really has.
    std::unique_ptr<Self> clone() const { return owned_as<Self>(tavObject::clone()); }

protected:
    declared() { require_sound_declaration<Self, Base, Coded>(); }
};

} // namespace detail

/// A message class Self.  Base is tavMessage, another class of this kit, or a message class written by hand.
/// Self is the class itself: another one's `message<...>` as base does not compile.
template <class Self, class Base = tavMessage>
class message : public detail::declared<Self, detail::base_of<Base, tavMessage, detail::root_message>, true> {
public:
    unsigned short msgcode() const override {
        if constexpr (detail::constant_code<Self>::value) {
            return static_cast<unsigned short>(Self::type_code);
        } else {
            return 0xffff;
        }
    }

private:
    friend Self;
    message() {
        static_assert(std::is_base_of<tavMessage, Base>::value,
                      "tav::kit: the base of a message class is a message class");
    }
};

/// A class of objects that travel within messages.
template <class Self, class Base = tavObject>
class object : public detail::declared<Self, detail::base_of<Base, tavObject, detail::root_object>, false> {
private:
    friend Self;
    object() {
        static_assert(std::is_base_of<tavObject, Base>::value,
                      "tav::kit: the base of a class of objects is tavObject or a class derived from it");
    }
};

/// Whether two objects are of one class and hold the same in every field, to any depth.  A NaN equals itself;
/// the order of an unordered map does not count, and neither do a message's `sno` and `ext`, which are no
/// fields.
template <class T, class = std::enable_if_t<detail::is_declared<T>::value>>
bool operator==(T const & a, T const & b) {
    return detail::equal_fields(a, b);
}

template <class T, class = std::enable_if_t<detail::is_declared<T>::value>>
bool operator!=(T const & a, T const & b) {
    return !detail::equal_fields(a, b);
}

} // namespace kit
} // namespace tav

/// A call that lacks the name or the value does not compile, and says so.
template <class T>
void ioField(tavCodecStream &, int, T &&) {
    static_assert(!std::is_same<T, T>::value,
                  "ioField: a field has an id, a name and a value, as in ioField(s, 1, \"text\", text)");
}

#endif
