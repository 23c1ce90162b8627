#include "tav/vinta/vinta_basetypes_text.h"

#include "support/exact.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <type_traits>
#include <utility>

using tav_test::ConstOp;
using tav_test::equates;
using tav_test::exact;
using tav_test::implicit;
using tav_test::made;
using tav_test::Op;
using tav_test::orders;

// What applications compile and link against: the exact forms of the text classes and functions.

extern "C" {
// The linkage is that of C; a header that says otherwise contradicts these.
decltype(tav_str_size) tav_str_size;
decltype(tav_str_compare) tav_str_compare;
decltype(tav_str_equals) tav_str_equals;
decltype(tav_str_starts_with) tav_str_starts_with;
decltype(tav_str_copy) tav_str_copy;
decltype(tav_wstr_size) tav_wstr_size;
decltype(tav_wstr_compare) tav_wstr_compare;
decltype(tav_wstr_equals) tav_wstr_equals;
decltype(tav_wstr_starts_with) tav_wstr_starts_with;
decltype(tav_wstr_copy) tav_wstr_copy;
decltype(tav_string_size) tav_string_size;
decltype(tav_string_is_empty) tav_string_is_empty;
decltype(tav_string_compare) tav_string_compare;
decltype(tav_string_to_array) tav_string_to_array;
decltype(tav_u8string_size) tav_u8string_size;
decltype(tav_u8string_is_empty) tav_u8string_is_empty;
decltype(tav_u8string_compare) tav_u8string_compare;
decltype(tav_u8string_to_array) tav_u8string_to_array;
decltype(tav_wstring_size) tav_wstring_size;
decltype(tav_wstring_is_empty) tav_wstring_is_empty;
decltype(tav_wstring_compare) tav_wstring_compare;
decltype(tav_wstring_to_array) tav_wstring_to_array;
}

namespace {

/// A value class: starts out empty, is copied and assigned.
template <class T>
constexpr bool value = std::is_default_constructible<T>::value && std::is_copy_constructible<T>::value &&
    std::is_copy_assignable<T>::value && std::is_move_constructible<T>::value && std::is_move_assignable<
        T>::value && std::is_same<T &, decltype(std::declval<T &>() = std::declval<T const &>())>::value;

template <class T>
constexpr bool prints = exact<std::ostream & (*)(std::ostream &, T const &)>(&::operator<<);
template <class T>
constexpr bool extracts = exact<void (*)(std::string const &, T &)>(&::operator>>);

using Text = char const *;
using Wide = wchar_t const *;

} // namespace

static_assert(value<tav_istr> && !std::is_polymorphic<tav_istr>::value, "");
static_assert(implicit<tav_istr, std::nullptr_t> && implicit<tav_istr, Text> && implicit<tav_istr, char *>,
              "");
static_assert(implicit<tav_istr, unsigned char const *> && implicit<tav_istr, std::string>, "");
static_assert(implicit<tav_istr, char const (&)[3]> && !implicit<tav_istr, void const *>, "");
static_assert(made<tav_istr, Text, unsigned> && made<tav_istr, unsigned char const *, unsigned>, "");
static_assert(made<tav_istr, void const *, unsigned> && made<tav_istr, char *, unsigned>, "");
static_assert(made<tav_istr, Text, int> && made<tav_istr, Text, std::size_t> && made<tav_istr, Text, short>,
              "");
static_assert(made<tav_istr, Text, long> && made<tav_istr, Text, unsigned short> &&
                  made<tav_istr, Text, char>,
              "");
static_assert(made<tav_istr, Text, long long> && made<tav_istr, Text, unsigned long long>, "");
static_assert(made<tav_istr, unsigned char const *, int> && made<tav_istr, unsigned char *, std::size_t>, "");
static_assert(made<tav_istr, void const *, int> && made<tav_istr, void *, std::size_t>, "");
static_assert(made<tav_istr, int const *, std::size_t>, "any pointer is one to void");
static_assert(made<tav_istr, std::nullptr_t, int> && made<tav_istr, std::nullptr_t, unsigned>, "");
static_assert(made<tav_istr, Text, Text> && made<tav_istr, char *, Text> && made<tav_istr, char *, char *>,
              "");
static_assert(made<tav_istr, tav_istr, tav_istr>, "");
static_assert(exact<ConstOp<tav_istr, Text>>(&tav_istr::data), "");
static_assert(exact<ConstOp<tav_istr, Text>>(&tav_istr::begin), "");
static_assert(exact<ConstOp<tav_istr, Text>>(&tav_istr::end), "");
static_assert(exact<ConstOp<tav_istr, unsigned>>(&tav_istr::size), "");
static_assert(exact<ConstOp<tav_istr, unsigned>>(&tav_istr::left), "");
static_assert(exact<ConstOp<tav_istr, bool>>(&tav_istr::empty), "");
static_assert(exact<ConstOp<tav_istr, bool>>(&tav_istr::eof), "");
static_assert(exact<ConstOp<tav_istr, bool>>(&tav_istr::operator!), "");
static_assert(exact<ConstOp<tav_istr, void *>>(&tav_istr::operator void *), "");
static_assert(exact<ConstOp<tav_istr, std::string>>(&tav_istr::operator std::string), "");
static_assert(implicit<void *, tav_istr> && implicit<std::string, tav_istr> && implicit<bool, tav_istr>, "");
static_assert(exact<ConstOp<tav_istr, char, unsigned>>(&tav_istr::operator[]), "");
static_assert(exact<ConstOp<tav_istr, char>>(&tav_istr::operator*), "");
static_assert(exact<ConstOp<tav_istr, char>>(&tav_istr::firstChar), "");
static_assert(exact<ConstOp<tav_istr, char>>(&tav_istr::lastChar), "");
static_assert(exact<ConstOp<tav_istr, int, tav_istr const &>>(&tav_istr::compare), "");
static_assert(orders<tav_istr, tav_istr> && orders<tav_istr, Text> && orders<Text, tav_istr>, "");
static_assert(orders<tav_istr, char[3]> && orders<char[3], tav_istr>, "a literal stands on either side");
static_assert(equates<tav_istr, std::string> && equates<std::string, tav_istr>, "");
static_assert(equates<tav_istr, std::nullptr_t>, "");
static_assert(exact<ConstOp<tav_istr, bool, tav_istr>>(&tav_istr::beginWith), "");
static_assert(exact<ConstOp<tav_istr, bool, tav_istr>>(&tav_istr::match), "");
static_assert(exact<ConstOp<tav_istr, bool, tav_istr>>(&tav_istr::endWith), "");
static_assert(exact<ConstOp<tav_istr, tav_istr, char>>(&tav_istr::find), "");
static_assert(exact<ConstOp<tav_istr, tav_istr, tav_istr>>(&tav_istr::find_one_of), "");
static_assert(exact<ConstOp<tav_istr, tav_istr, char>>(&tav_istr::find_last), "");
static_assert(exact<ConstOp<tav_istr, tav_istr, tav_istr>>(&tav_istr::find_last_one_of), "");
static_assert(exact<ConstOp<tav_istr, unsigned, char>>(&tav_istr::rfind), "");
static_assert(exact<ConstOp<tav_istr, tav_istr, unsigned>>(&tav_istr::leftstr), "");
static_assert(exact<ConstOp<tav_istr, tav_istr, unsigned>>(&tav_istr::rightstr), "");
static_assert(exact<ConstOp<tav_istr, tav_istr, unsigned, unsigned>>(&tav_istr::substr), "");
static_assert(exact<ConstOp<tav_istr, tav_istr, unsigned>>(&tav_istr::removeLeft), "");
static_assert(exact<ConstOp<tav_istr, tav_istr, unsigned>>(&tav_istr::removeRight), "");
static_assert(exact<ConstOp<tav_istr, tav_istr>>(&tav_istr::skipBlank), "");
static_assert(exact<ConstOp<tav_istr, tav_istr>>(&tav_istr::trimLeft), "");
static_assert(exact<ConstOp<tav_istr, tav_istr>>(&tav_istr::trimRight), "");
static_assert(exact<ConstOp<tav_istr, tav_istr>>(&tav_istr::trim), "");
static_assert(exact<ConstOp<tav_istr, tav_istr, char>>(&tav_istr::trim), "");
static_assert(exact<Op<tav_istr, tav_istr &, int>>(&tav_istr::advance), "");
static_assert(exact<Op<tav_istr, tav_istr &, unsigned>>(&tav_istr::advance), "");
static_assert(exact<Op<tav_istr, tav_istr &, int>>(&tav_istr::operator+=), "");
static_assert(exact<Op<tav_istr, tav_istr &, int>>(&tav_istr::operator-=), "");
static_assert(exact<ConstOp<tav_istr, tav_istr, int>>(&tav_istr::operator+), "");
static_assert(exact<ConstOp<tav_istr, tav_istr, int>>(&tav_istr::operator-), "");
static_assert(exact<Op<tav_istr, tav_istr &>>(&tav_istr::operator++), "");
static_assert(exact<Op<tav_istr, tav_istr, int>>(&tav_istr::operator++), "");
static_assert(exact<Op<tav_istr, tav_istr &>>(&tav_istr::operator--), "");
static_assert(exact<Op<tav_istr, tav_istr, int>>(&tav_istr::operator--), "");
static_assert(exact<Op<tav_istr, tav_istr, unsigned>>(&tav_istr::next), "");
static_assert(exact<Op<tav_istr, tav_istr, unsigned>>(&tav_istr::readBytes), "");
static_assert(exact<Op<tav_istr, unsigned char>>(&tav_istr::readByte), "");
static_assert(exact<Op<tav_istr, unsigned short>>(&tav_istr::readBigEndianUint16), "");
static_assert(exact<Op<tav_istr, short>>(&tav_istr::readBigEndianInt16), "");
static_assert(exact<Op<tav_istr, unsigned>>(&tav_istr::readBigEndianUint32), "");
static_assert(exact<Op<tav_istr, int>>(&tav_istr::readBigEndianInt32), "");
static_assert(exact<Op<tav_istr, unsigned long long>>(&tav_istr::readBigEndianUint64), "");
static_assert(exact<Op<tav_istr, long long>>(&tav_istr::readBigEndianInt64), "");
static_assert(exact<Op<tav_istr, int, int>>(&tav_istr::readDigits), "");

static_assert(value<tav_iwstr> && implicit<tav_iwstr, Wide> && implicit<tav_iwstr, std::wstring>, "");
static_assert(made<tav_iwstr, Wide, unsigned> && made<tav_iwstr, Wide, int>, "");
static_assert(exact<ConstOp<tav_iwstr, Wide>>(&tav_iwstr::data), "");
static_assert(exact<ConstOp<tav_iwstr, Wide>>(&tav_iwstr::begin), "");
static_assert(exact<ConstOp<tav_iwstr, Wide>>(&tav_iwstr::end), "");
static_assert(exact<ConstOp<tav_iwstr, unsigned>>(&tav_iwstr::size), "");
static_assert(exact<ConstOp<tav_iwstr, bool>>(&tav_iwstr::empty), "");
static_assert(exact<ConstOp<tav_iwstr, bool>>(&tav_iwstr::eof), "");
static_assert(exact<ConstOp<tav_iwstr, bool>>(&tav_iwstr::operator!), "");
static_assert(exact<ConstOp<tav_iwstr, void *>>(&tav_iwstr::operator void *), "");
static_assert(exact<ConstOp<tav_iwstr, std::wstring>>(&tav_iwstr::operator std::wstring), "");
static_assert(implicit<void *, tav_iwstr> && implicit<std::wstring, tav_iwstr>, "");
static_assert(exact<ConstOp<tav_iwstr, wchar_t>>(&tav_iwstr::operator*), "");
static_assert(exact<ConstOp<tav_iwstr, wchar_t, unsigned>>(&tav_iwstr::operator[]), "");
static_assert(exact<Op<tav_iwstr, tav_iwstr &>>(&tav_iwstr::operator++), "");
static_assert(exact<Op<tav_iwstr, tav_iwstr, int>>(&tav_iwstr::operator++), "");
static_assert(exact<Op<tav_iwstr, tav_iwstr &, int>>(&tav_iwstr::operator+=), "");
static_assert(exact<Op<tav_iwstr, tav_iwstr &, unsigned>>(&tav_iwstr::advance), "");
static_assert(exact<ConstOp<tav_iwstr, tav_iwstr, unsigned, unsigned>>(&tav_iwstr::substr), "");
static_assert(exact<ConstOp<tav_iwstr, tav_iwstr, unsigned>>(&tav_iwstr::removeLeft), "");
static_assert(exact<ConstOp<tav_iwstr, bool, tav_iwstr>>(&tav_iwstr::beginWith), "");
static_assert(exact<ConstOp<tav_iwstr, tav_iwstr>>(&tav_iwstr::skipBlank), "");
static_assert(exact<ConstOp<tav_iwstr, int, tav_iwstr const &>>(&tav_iwstr::compare), "");
static_assert(orders<tav_iwstr, tav_iwstr> && orders<tav_iwstr, Wide> && orders<Wide, tav_iwstr>, "");
static_assert(orders<tav_iwstr, wchar_t[3]> && orders<wchar_t[3], tav_iwstr>, "");

static_assert(value<tav_utf8> && implicit<tav_utf8, Text> && implicit<tav_utf8, std::string>, "");
static_assert(made<tav_utf8, Text, unsigned> && made<tav_utf8, Text, int>, "");
static_assert(exact<ConstOp<tav_utf8, Text>>(&tav_utf8::data), "");
static_assert(exact<ConstOp<tav_utf8, Text>>(&tav_utf8::begin), "");
static_assert(exact<ConstOp<tav_utf8, Text>>(&tav_utf8::end), "");
static_assert(exact<ConstOp<tav_utf8, unsigned>>(&tav_utf8::size), "");
static_assert(exact<ConstOp<tav_utf8, bool>>(&tav_utf8::empty), "");
static_assert(exact<ConstOp<tav_utf8, bool>>(&tav_utf8::operator!), "");
static_assert(exact<ConstOp<tav_utf8, void *>>(&tav_utf8::operator void *), "");
static_assert(exact<ConstOp<tav_utf8, char, unsigned>>(&tav_utf8::operator[]), "");
static_assert(exact<ConstOp<tav_utf8, std::string>>(&tav_utf8::operator std::string), "");
static_assert(implicit<void *, tav_utf8> && implicit<std::string, tav_utf8>, "");

using Release = std::function<void(char *)>;
static_assert(value<tav_ostr> && implicit<tav_ostr, Release>, "");
static_assert(made<tav_ostr, char *, unsigned, Release> && made<tav_ostr, void *, unsigned, Release>, "");
static_assert(made<tav_ostr, unsigned char *, unsigned, Release>, "");
static_assert(made<tav_ostr, char *, unsigned, std::nullptr_t>, "");
static_assert(!made<tav_ostr, char const *, unsigned, Release>, "the block is written to");
static_assert(exact<ConstOp<tav_ostr, char *>>(&tav_ostr::buffer), "");
static_assert(exact<ConstOp<tav_ostr, char *>>(&tav_ostr::data), "");
static_assert(exact<ConstOp<tav_ostr, unsigned>>(&tav_ostr::size), "");
static_assert(exact<ConstOp<tav_ostr, unsigned>>(&tav_ostr::max_size), "");
static_assert(exact<Op<tav_ostr, void>>(&tav_ostr::free), "");

static_assert(value<tavString> && implicit<tavString, Text> && implicit<tavString, std::string>, "");
static_assert(implicit<tavString, std::string const &> && implicit<tavString, tav_istr>, "");
static_assert(implicit<tavString, Wide> && implicit<tavString, std::wstring> &&
                  implicit<tavString, tav_iwstr>,
              "");
static_assert(implicit<tavString, char const (&)[3]> && implicit<tavString, wchar_t const (&)[3]>, "");
static_assert(made<tavString, Text, unsigned> && made<tavString, Text, int>, "");
static_assert(!made<tavString, char> && !made<tavString, tavU8string>, "");
static_assert(exact<Op<tavString, tavString &, Text>>(&tavString::operator=), "");
static_assert(exact<Op<tavString, tavString &, std::string const &>>(&tavString::operator=), "");
static_assert(exact<Op<tavString, tavString &, tav_istr>>(&tavString::operator=), "");
static_assert(exact<Op<tavString, tavString &, tavString const &>>(&tavString::operator=), "");
static_assert(exact<Op<tavString, tavString &, tavString &&>>(&tavString::operator=), "");
static_assert(exact<Op<tavString, tavString &, char>>(&tavString::operator<<), "");
static_assert(exact<Op<tavString, tavString &, Text>>(&tavString::operator<<), "");
static_assert(exact<Op<tavString, tavString &, tav_istr>>(&tavString::operator<<), "");
static_assert(exact<Op<tavString, tavString &, std::string const &>>(&tavString::operator<<), "");
static_assert(exact<Op<tavString, tavString &, tavString const &>>(&tavString::operator<<), "");
static_assert(exact<Op<tavString, tavString &, char>>(&tavString::write), "");
static_assert(exact<Op<tavString, tavString &, Text>>(&tavString::write), "");
static_assert(exact<Op<tavString, tavString &, tav_istr>>(&tavString::write), "");
static_assert(exact<Op<tavString, tavString &, std::string const &>>(&tavString::write), "");
static_assert(exact<Op<tavString, tavString &, tavString const &>>(&tavString::write), "");
static_assert(exact<Op<tavString, tavString &, wchar_t>>(&tavString::write), "");
static_assert(exact<ConstOp<tavString, tavString, tavString const &>>(&tavString::operator|), "");
static_assert(exact<ConstOp<tavString, tavString, Text>>(&tavString::operator|), "");
static_assert(exact<ConstOp<tavString, unsigned>>(&tavString::size), "");
static_assert(exact<ConstOp<tavString, unsigned>>(&tavString::length), "");
static_assert(exact<ConstOp<tavString, bool>>(&tavString::empty), "");
static_assert(exact<ConstOp<tavString, bool>>(&tavString::isEmpty), "");
static_assert(exact<ConstOp<tavString, Text>>(&tavString::data), "");
static_assert(exact<ConstOp<tavString, Text>>(&tavString::begin), "");
static_assert(exact<ConstOp<tavString, Text>>(&tavString::end), "");
static_assert(exact<Op<tavString, void>>(&tavString::clear), "");
static_assert(exact<ConstOp<tavString, char, int>>(&tavString::charAt), "");
static_assert(exact<ConstOp<tavString, char, int>>(&tavString::operator[]), "");
static_assert(exact<Op<tavString, void, int, char>>(&tavString::setCharAt), "");
static_assert(exact<ConstOp<tavString, bool, tav_istr>>(&tavString::equals), "");
static_assert(orders<tavString, tavString> && orders<tavString, Text> && orders<Text, tavString>, "");
static_assert(orders<tavString, char[3]> && orders<char[3], tavString>, "");
static_assert(equates<tavString, tav_istr> && equates<tav_istr, tavString>, "");
static_assert(equates<tavString, std::string> && equates<std::string, tavString>, "");
static_assert(exact<ConstOp<tavString, bool, tav_istr>>(&tavString::startsWith), "");
static_assert(exact<ConstOp<tavString, bool, tav_istr>>(&tavString::endsWith), "");
static_assert(exact<ConstOp<tavString, bool>>(&tavString::isDigits), "");
static_assert(exact<ConstOp<tavString, int, tav_istr>>(&tavString::indexOf), "");
static_assert(exact<ConstOp<tavString, int, int, tav_istr>>(&tavString::indexOf), "");
static_assert(exact<ConstOp<tavString, int, tav_istr>>(&tavString::indexOfAnyChar), "");
static_assert(exact<ConstOp<tavString, int, char, int>>(&tavString::indexOfChar), "");
static_assert(exact<ConstOp<tavString, int, tav_istr>>(&tavString::lastIndexOf), "");
static_assert(exact<ConstOp<tavString, int, int, tav_istr>>(&tavString::lastIndexOf), "");
static_assert(exact<ConstOp<tavString, int, tav_istr>>(&tavString::lastIndexOfAnyChar), "");
static_assert(exact<ConstOp<tavString, int, char, int>>(&tavString::lastIndexOfChar), "");
static_assert(exact<ConstOp<tavString, tavString, int, int>>(&tavString::substring), "");
static_assert(exact<Op<tavString, tavString &, int, int>>(&tavString::remove), "");
static_assert(exact<Op<tavString, tavString &, int, tav_istr>>(&tavString::insert), "");
static_assert(exact<ConstOp<tavString, tavString, tav_istr, tav_istr>>(&tavString::replace), "");
static_assert(exact<ConstOp<tavString, tavString, char, char>>(&tavString::replaceCharacter), "");
static_assert(exact<ConstOp<tavString, tavString>>(&tavString::toUpperCase), "");
static_assert(exact<ConstOp<tavString, tavString>>(&tavString::trim), "");
static_assert(exact<Op<tavString, void, tavString &>>(&tavString::swap), "");
static_assert(exact<Op<tavString, void, tav_iwstr>>(&tavString::fromWstring), "");
static_assert(exact<ConstOp<tavString, std::wstring>>(&tavString::toWstring), "");
static_assert(exact<ConstOp<tavString, std::wstring>>(&tavString::operator std::wstring), "");
static_assert(exact<ConstOp<tavString, tav_istr>>(&tavString::operator tav_istr), "");
static_assert(implicit<std::wstring, tavString> && implicit<tav_istr, tavString>, "");
static_assert(exact<tavString const & (*)()>(&tavString::null), "");
static_assert(exact<tavString (*)(long long, bool, int)>(&tavString::from), "");
static_assert(exact<wchar_t (*)(tav_istr &)>(&tavString::read), "");

static_assert(value<tavU8string> && implicit<tavU8string, Text> && implicit<tavU8string, std::string>, "");
static_assert(implicit<tavU8string, tav_istr> && implicit<tavU8string, tav_utf8>, "");
static_assert(made<tavU8string, Text, unsigned> && made<tavU8string, Text, int>, "");
static_assert(exact<Op<tavU8string, tavU8string &, Text>>(&tavU8string::operator=), "");
static_assert(exact<Op<tavU8string, tavU8string &, std::string const &>>(&tavU8string::operator=), "");
static_assert(exact<Op<tavU8string, tavU8string &, tav_utf8>>(&tavU8string::operator=), "");
static_assert(exact<Op<tavU8string, tavU8string &, tavU8string const &>>(&tavU8string::operator=), "");
static_assert(exact<Op<tavU8string, tavU8string &, Text>>(&tavU8string::operator<<), "");
static_assert(exact<Op<tavU8string, tavU8string &, std::string const &>>(&tavU8string::operator<<), "");
static_assert(exact<Op<tavU8string, tavU8string &, tav_utf8>>(&tavU8string::operator<<), "");
static_assert(exact<Op<tavU8string, tavU8string &, tavU8string const &>>(&tavU8string::operator<<), "");
static_assert(exact<Op<tavU8string, tavU8string &, char>>(&tavU8string::operator+=), "");
static_assert(exact<Op<tavU8string, tavU8string &, tav_utf8>>(&tavU8string::operator+=), "");
static_assert(exact<ConstOp<tavU8string, tavU8string, tavU8string const &>>(&tavU8string::operator+), "");
static_assert(exact<ConstOp<tavU8string, tavU8string, Text>>(&tavU8string::operator+), "");
static_assert(exact<ConstOp<tavU8string, Text>>(&tavU8string::data), "");
static_assert(exact<ConstOp<tavU8string, unsigned>>(&tavU8string::size), "");
static_assert(exact<ConstOp<tavU8string, bool>>(&tavU8string::empty), "");
static_assert(exact<ConstOp<tavU8string, tav_utf8>>(&tavU8string::operator tav_utf8), "");
static_assert(implicit<tav_utf8, tavU8string> && orders<tavU8string, tavU8string>, "");
static_assert(orders<tavU8string, char[3]> && orders<char[3], tavU8string>, "");

static_assert(value<tavWstring> && implicit<tavWstring, Wide> && implicit<tavWstring, std::wstring>, "");
static_assert(implicit<tavWstring, tav_iwstr>, "");
static_assert(made<tavWstring, Wide, unsigned> && made<tavWstring, Wide, int>, "");
static_assert(exact<Op<tavWstring, tavWstring &, Wide>>(&tavWstring::operator=), "");
static_assert(exact<Op<tavWstring, tavWstring &, std::wstring const &>>(&tavWstring::operator=), "");
static_assert(exact<Op<tavWstring, tavWstring &, tav_iwstr>>(&tavWstring::operator=), "");
static_assert(exact<Op<tavWstring, tavWstring &, tavWstring const &>>(&tavWstring::operator=), "");
static_assert(exact<Op<tavWstring, tavWstring &, Wide>>(&tavWstring::operator<<), "");
static_assert(exact<Op<tavWstring, tavWstring &, std::wstring const &>>(&tavWstring::operator<<), "");
static_assert(exact<Op<tavWstring, tavWstring &, tav_iwstr>>(&tavWstring::operator<<), "");
static_assert(exact<Op<tavWstring, tavWstring &, tavWstring const &>>(&tavWstring::operator<<), "");
static_assert(exact<Op<tavWstring, tavWstring &, wchar_t>>(&tavWstring::operator+=), "");
static_assert(exact<Op<tavWstring, tavWstring &, tav_iwstr>>(&tavWstring::operator+=), "");
static_assert(exact<ConstOp<tavWstring, tavWstring, tavWstring const &>>(&tavWstring::operator+), "");
static_assert(exact<ConstOp<tavWstring, tavWstring, Wide>>(&tavWstring::operator+), "");
static_assert(exact<ConstOp<tavWstring, Wide>>(&tavWstring::data), "");
static_assert(exact<ConstOp<tavWstring, unsigned>>(&tavWstring::size), "");
static_assert(exact<ConstOp<tavWstring, bool>>(&tavWstring::empty), "");
static_assert(exact<ConstOp<tavWstring, tav_iwstr>>(&tavWstring::operator tav_iwstr), "");
static_assert(exact<ConstOp<tavWstring, void, std::wstring &>>(&tavWstring::operator>>), "");
static_assert(implicit<tav_iwstr, tavWstring> && orders<tavWstring, tavWstring>, "");
static_assert(orders<tavWstring, wchar_t[3]> && orders<wchar_t[3], tavWstring>, "");

static_assert(value<tavChar> && implicit<tavChar, char> && implicit<char, tavChar>, "");
static_assert(exact<ConstOp<tavChar, char>>(&tavChar::operator char), "");
static_assert(value<tavWchar> && implicit<tavWchar, wchar_t> && implicit<wchar_t, tavWchar>, "");
static_assert(exact<ConstOp<tavWchar, wchar_t>>(&tavWchar::operator wchar_t), "");

static_assert(prints<tav_istr> && prints<tav_iwstr> && prints<tavString> && prints<tavU8string>, "");
static_assert(prints<tavWstring> && prints<tavChar> && prints<tavWchar>, "");
static_assert(extracts<tavString> && extracts<tavU8string> && extracts<tavWstring>, "");
static_assert(extracts<tavChar> && extracts<tavWchar>, "");

using Texts = char const * const *;
using Wides = wchar_t const * const *;
static_assert(exact<unsigned (*)(Text)>(&tav_str_size), "");
static_assert(exact<int (*)(Text, Text, unsigned)>(&tav_str_compare), "");
static_assert(exact<bool (*)(Text, Text)>(&tav_str_equals), "");
static_assert(exact<bool (*)(Text, Text)>(&tav_str_starts_with), "");
static_assert(exact<unsigned (*)(char *, unsigned, Text, unsigned)>(&tav_str_copy), "");
static_assert(exact<unsigned (*)(Wide)>(&tav_wstr_size), "");
static_assert(exact<int (*)(Wide, Wide, unsigned)>(&tav_wstr_compare), "");
static_assert(exact<bool (*)(Wide, Wide)>(&tav_wstr_equals), "");
static_assert(exact<bool (*)(Wide, Wide)>(&tav_wstr_starts_with), "");
static_assert(exact<unsigned (*)(wchar_t *, unsigned, Wide, unsigned)>(&tav_wstr_copy), "");
static_assert(exact<unsigned (*)(Texts)>(&tav_string_size), "");
static_assert(exact<bool (*)(Texts)>(&tav_string_is_empty), "");
static_assert(exact<int (*)(Texts, Texts)>(&tav_string_compare), "");
static_assert(exact<unsigned (*)(Texts, char *, unsigned)>(&tav_string_to_array), "");
static_assert(exact<unsigned (*)(Texts)>(&tav_u8string_size), "");
static_assert(exact<bool (*)(Texts)>(&tav_u8string_is_empty), "");
static_assert(exact<int (*)(Texts, Texts)>(&tav_u8string_compare), "");
static_assert(exact<unsigned (*)(Texts, char *, unsigned)>(&tav_u8string_to_array), "");
static_assert(exact<unsigned (*)(Wides)>(&tav_wstring_size), "");
static_assert(exact<bool (*)(Wides)>(&tav_wstring_is_empty), "");
static_assert(exact<int (*)(Wides, Wides)>(&tav_wstring_compare), "");
static_assert(exact<unsigned (*)(Wides, wchar_t *, unsigned)>(&tav_wstring_to_array), "");

TEST(InterfaceText, ViewsAreMadeOfNullAndOfLiteralCounts) {
    char const * const text = "abc";
    EXPECT_EQ(tav_istr(text, 0).data(), text);
    EXPECT_EQ(tav_istr(nullptr).data(), nullptr);
    EXPECT_EQ(tav_istr(nullptr, 0).data(), nullptr);
    EXPECT_EQ(tav_istr(nullptr, 7).size(), 7u);
    EXPECT_EQ(tav_istr(text, sizeof("ab") - 1).size(), 2u);
    EXPECT_EQ(tav_istr(text, text + 2), "ab");
    EXPECT_EQ(tav_istr(static_cast<void const *>(text), 1L), "a");
    EXPECT_EQ(tav_istr(tav_istr(text), tav_istr(text + 1)), "a");
}

TEST(InterfaceText, ViewsMoveByCountsOfEveryIntegerType) {
    tav_istr view = "abcdefghij";
    view.advance(1).advance(1u).advance(std::size_t{1}).advance(short{1});
    EXPECT_EQ(view, "efghij");
    view += 1;
    view += 1u;
    view -= std::size_t{1};
    view -= 1LL;
    EXPECT_EQ(view, "efghij");
    EXPECT_EQ(view + 1, "fghij");
    EXPECT_EQ(view + 2ul, "ghij");
    EXPECT_EQ(view - 1, "defghij");
    EXPECT_EQ(view - 2u, "cdefghij");
    EXPECT_EQ(*view++, 'e');
    EXPECT_EQ(*--view, 'e');
    EXPECT_EQ(view[0], 'e');
}

TEST(InterfaceText, LiteralsCompareAsTextOnEitherSide) {
    std::string const other = "ab";
    tav_istr const view = other;
    tavString const string = view;
    EXPECT_TRUE("ab" == view && view == "ab" && !("ab" != view));
    EXPECT_TRUE("aa" < view && view < "ac" && "ab" <= view && view >= "ab" && "ac" > view);
    EXPECT_TRUE("ab" == string && string == view && view == string && string == other && other == string);
    EXPECT_TRUE(view == other && other == view);
    EXPECT_TRUE(L"ab" == tav_iwstr(L"ab") && L"aa" < tav_iwstr(L"ab"));
    EXPECT_TRUE(tavU8string("ab") == "ab" && tavWstring(L"ab") != L"ac");
}

TEST(InterfaceText, ViewsAreConditions) {
    tav_istr const full = "a";
    EXPECT_TRUE(full ? true : false);
    EXPECT_FALSE(tav_istr() ? true : false);
    EXPECT_FALSE(tav_iwstr() ? true : false);
    EXPECT_TRUE(tav_utf8("a") && full);
}

TEST(InterfaceText, StringsAreBuiltOfEveryPieceOfText) {
    tavString string;
    string << 'a' << "b" << tav_istr("c") << std::string("d") << tavString("e");
    string.write('f')
        .write("g")
        .write(tav_istr("h"))
        .write(std::string("i"))
        .write(tavString("j"))
        .write(L'k');
    EXPECT_EQ(string, "abcdefghijk");
    EXPECT_EQ(tavString(L"w") | "x" | tavString("y"), "wxy");
    string = L"\u00e4";
    EXPECT_EQ(string, "\xC3\xA4");
    string = nullptr;
    EXPECT_TRUE(string.isEmpty());
    tavU8string narrow("a");
    narrow << "b" << std::string("c") << tav_utf8("d") << tavU8string("e");
    narrow += 'f';
    narrow += "g";
    EXPECT_EQ(narrow + "h" + tavU8string("i"), "abcdefghi");
    tavWstring wide(L"a");
    wide << L"b" << std::wstring(L"c") << tav_iwstr(L"d") << tavWstring(L"e");
    wide += L'f';
    wide += L"g";
    EXPECT_EQ(wide + L"h" + tavWstring(L"i"), L"abcdefghi");
    std::wstring copy;
    wide >> copy;
    EXPECT_EQ(copy, L"abcdefg");
}

TEST(InterfaceText, NumbersAreWrittenWithDefaults) {
    EXPECT_EQ(tavString::from(255), "255");
    EXPECT_EQ(tavString::from(255, true), tavString::from(255, true, 0));
    EXPECT_EQ(tavString::from(7).indexOf("7"), 0);
}

TEST(InterfaceText, CharactersStandForThemselves) {
    tavChar const none;
    tavChar const one = 'a';
    tavWchar const wide = L'b';
    EXPECT_EQ(none, '\0');
    EXPECT_TRUE(one == 'a' && wide == L'b');
    tavChar read;
    std::string("z") >> read;
    EXPECT_TRUE(read == 'z');
}
