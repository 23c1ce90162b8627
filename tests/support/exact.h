#ifndef TAV_TESTS_SUPPORT_EXACT_H
#define TAV_TESTS_SUPPORT_EXACT_H

#include <type_traits>
#include <utility>

/// For tests of what applications compile and link against: the exact forms of classes and functions.
namespace tav_test {

/// Whether an operation has exactly the type T, but for noexcept; if not, this does not compile.
template <class T>
constexpr bool exact(T) {
    return true;
}

template <class C, class R, class... A>
using Op = R (C::*)(A...);
template <class C, class R, class... A>
using ConstOp = R (C::*)(A...) const;

/// Whether T is made of the arguments; of a single one without being named, or only if it is.
template <class T, class... A>
constexpr bool made = std::is_constructible<T, A...>::value;
template <class T, class A>
constexpr bool implicit = std::is_convertible<A, T>::value;
template <class T, class A>
constexpr bool onlyExplicit = made<T, A> && !implicit<T, A>;

template <class T>
constexpr bool isCopied = std::is_copy_constructible<T>::value && std::is_copy_assignable<T>::value;

/// Whether an expression of the one kind compares with one of the other.
template <class A, class B>
constexpr bool equates =
    std::is_same<bool, decltype(std::declval<A const &>() == std::declval<B const &>())>::value &&
        std::is_same<bool, decltype(std::declval<A const &>() != std::declval<B const &>())>::value;
template <class A, class B>
constexpr bool orders = equates<A, B> &&
    std::is_same<bool, decltype(std::declval<A const &>() < std::declval<B const &>())>::value &&
        std::is_same<bool, decltype(std::declval<A const &>() <= std::declval<B const &>())>::value &&
            std::is_same<bool, decltype(std::declval<A const &>() > std::declval<B const &>())>::value &&
                std::is_same<bool, decltype(std::declval<A const &>() >= std::declval<B const &>())>::value;

} // namespace tav_test

#endif
