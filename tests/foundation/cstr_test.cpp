#include "tav/vinta/vinta_basetypes_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <cwchar>

namespace {

constexpr unsigned whole = 0xFFFFFFFFu;

int sign(int v) {
    return (v > 0) - (v < 0);
}

} // namespace

TEST(CStr, SizeOfNullIsZero) {
    EXPECT_EQ(tav_str_size(nullptr), 0u);
    EXPECT_EQ(tav_str_size(""), 0u);
    EXPECT_EQ(tav_str_size("abc"), 3u);
    EXPECT_EQ(tav_wstr_size(nullptr), 0u);
    EXPECT_EQ(tav_wstr_size(L""), 0u);
    EXPECT_EQ(tav_wstr_size(L"abc"), 3u);
}

TEST(CStr, CompareWithANullSideTellsWhichIsThere) {
    EXPECT_EQ(tav_str_compare(nullptr, nullptr, 3), 0);
    EXPECT_EQ(tav_str_compare("a", nullptr, 3), 1);
    EXPECT_EQ(tav_str_compare(nullptr, "a", 3), -1);
    EXPECT_EQ(tav_str_compare(nullptr, "", 0), -1);
    EXPECT_EQ(tav_wstr_compare(nullptr, nullptr, 3), 0);
    EXPECT_EQ(tav_wstr_compare(L"", nullptr, 0), 1);
    EXPECT_EQ(tav_wstr_compare(nullptr, L"a", 3), -1);
}

TEST(CStr, CompareGivesTheDifferenceOfTheFirstUnequalPair) {
    EXPECT_EQ(tav_str_compare("ad", "aa", whole), 3);
    EXPECT_EQ(tav_str_compare("aa", "ad", whole), -3);
    EXPECT_EQ(tav_str_compare("ab", "abA", whole), -'A');
    EXPECT_EQ(tav_wstr_compare(L"ad", L"aa", whole), 3);
    EXPECT_EQ(tav_wstr_compare(L"ab", L"abA", whole), -'A');
}

TEST(CStr, CompareLooksAtNoMoreThanTheLimit) {
    EXPECT_EQ(tav_str_compare("abc", "abd", 2), 0);
    EXPECT_EQ(tav_str_compare("abc", "abd", 3), -1);
    EXPECT_EQ(tav_str_compare("a", "b", 0), 0);
    EXPECT_EQ(tav_wstr_compare(L"abc", L"abd", 2), 0);
    EXPECT_EQ(tav_wstr_compare(L"abc", L"abd", 3), -1);
}

TEST(CStr, CompareStopsAtANulInBoth) {
    EXPECT_EQ(tav_str_compare("a\0x", "a\0y", 3), 0);
    EXPECT_EQ(tav_wstr_compare(L"a\0x", L"a\0y", 3), 0);
}

TEST(CStr, NarrowCharactersCompareSigned) {
    EXPECT_EQ(tav_str_compare("\x80", "a", 1), -128 - 'a');
    EXPECT_EQ(tav_str_compare("a", "\xFF", 1), 'a' + 1);
    EXPECT_EQ(tav_istr("\x80").compare("a"), 1); // the view goes the other way
}

TEST(CStr, WideDifferenceKeepsItsSignAtTheExtremes) {
    wchar_t const lowest[] = {WCHAR_MIN, 0};
    wchar_t const highest[] = {WCHAR_MAX, 0};
    EXPECT_EQ(tav_wstr_compare(lowest, highest, 1), INT_MIN);
    EXPECT_EQ(tav_wstr_compare(highest, lowest, 1), INT_MAX);
}

TEST(CStr, EqualsNeedsEqualLengths) {
    EXPECT_TRUE(tav_str_equals("abc", "abc"));
    EXPECT_FALSE(tav_str_equals("abc", "ab"));
    EXPECT_FALSE(tav_str_equals("abc", "abd"));
    EXPECT_TRUE(tav_str_equals("", ""));
    EXPECT_TRUE(tav_wstr_equals(L"abc", L"abc"));
    EXPECT_FALSE(tav_wstr_equals(L"abc", L"abcd"));
    EXPECT_FALSE(tav_wstr_equals(L"abc", L"abd"));
}

TEST(CStr, NullAndEmptyTextDiffer) {
    EXPECT_FALSE(tav_str_equals(nullptr, ""));
    EXPECT_FALSE(tav_str_equals("", nullptr));
    EXPECT_TRUE(tav_str_equals(nullptr, nullptr));
    EXPECT_FALSE(tav_wstr_equals(nullptr, L""));
    EXPECT_TRUE(tav_wstr_equals(nullptr, nullptr));
}

TEST(CStr, StartsWithComparesOverThePrefix) {
    EXPECT_TRUE(tav_str_starts_with("abc", "ab"));
    EXPECT_TRUE(tav_str_starts_with("abc", ""));
    EXPECT_FALSE(tav_str_starts_with("ab", "abc"));
    EXPECT_FALSE(tav_str_starts_with("abc", "b"));
    EXPECT_FALSE(tav_str_starts_with("abc", nullptr));
    EXPECT_FALSE(tav_str_starts_with(nullptr, ""));
    EXPECT_TRUE(tav_str_starts_with(nullptr, nullptr));
    EXPECT_TRUE(tav_wstr_starts_with(L"abc", L"ab"));
    EXPECT_FALSE(tav_wstr_starts_with(L"ab", L"abc"));
    EXPECT_FALSE(tav_wstr_starts_with(L"abc", nullptr));
}

namespace {

template <class Char>
struct Copied {
    unsigned result;
    Char dst[16];
};

Copied<char> copy(unsigned capacity, char const * src, unsigned n) {
    Copied<char> c;
    std::fill(std::begin(c.dst), std::end(c.dst), '#');
    c.result = tav_str_copy(c.dst, capacity, src, n);
    return c;
}

Copied<wchar_t> copy(unsigned capacity, wchar_t const * src, unsigned n) {
    Copied<wchar_t> c;
    std::fill(std::begin(c.dst), std::end(c.dst), L'#');
    c.result = tav_wstr_copy(c.dst, capacity, src, n);
    return c;
}

} // namespace

TEST(CStrCopy, SourceThatEndsIsTerminatedBehindItsText) {
    Copied<char> const c = copy(10, "abc", whole);
    EXPECT_EQ(c.result, 3u);
    EXPECT_EQ(std::memcmp(c.dst, "abc\0####", 8), 0);
    Copied<wchar_t> const w = copy(10, L"abc", whole);
    EXPECT_EQ(w.result, 3u);
    EXPECT_EQ(std::wmemcmp(w.dst, L"abc\0####", 8), 0);
}

TEST(CStrCopy, ReturnsTheLimitAndNotTheNumberCopied) {
    Copied<char> const c = copy(10, "abc", 7);
    EXPECT_EQ(c.result, 7u);
    EXPECT_EQ(std::memcmp(c.dst, "abc\0#####", 9), 0);
    EXPECT_EQ(copy(5, "abc", 100).result, 4u);
    EXPECT_EQ(copy(5, L"abc", 100).result, 4u);
}

TEST(CStrCopy, LimitEqualToTheLengthCountsAsEnded) {
    Copied<char> const byCapacity = copy(4, "abc", whole);
    EXPECT_EQ(byCapacity.result, 3u);
    EXPECT_EQ(std::memcmp(byCapacity.dst, "abc\0###", 7), 0);
    Copied<char> const byCount = copy(10, "abc", 3);
    EXPECT_EQ(byCount.result, 3u);
    EXPECT_EQ(std::memcmp(byCount.dst, "abc\0###", 7), 0);
}

TEST(CStrCopy, CutTextIsTerminatedOnePlaceFurther) {
    Copied<char> const c = copy(4, "abcdef", whole);
    EXPECT_EQ(c.result, 3u);
    EXPECT_EQ(std::memcmp(c.dst, "abc#\0###", 8), 0);
    Copied<char> const n = copy(10, "abcdef", 2);
    EXPECT_EQ(n.result, 2u);
    EXPECT_EQ(std::memcmp(n.dst, "ab#\0###", 7), 0);
    Copied<wchar_t> const w = copy(4, L"abcdef", whole);
    EXPECT_EQ(w.result, 3u);
    EXPECT_EQ(std::wmemcmp(w.dst, L"abc#\0###", 8), 0);
}

TEST(CStrCopy, LimitOfZeroWithTextLeftWritesTheSecondPlace) {
    Copied<char> const c = copy(1, "abc", whole);
    EXPECT_EQ(c.result, 0u);
    EXPECT_EQ(std::memcmp(c.dst, "#\0##", 4), 0);
    EXPECT_EQ(std::memcmp(copy(9, "abc", 0).dst, "#\0##", 4), 0);
}

TEST(CStrCopy, EmptySourceTerminatesAtTheFirstPlace) {
    Copied<char> const c = copy(9, "", whole);
    EXPECT_EQ(c.result, 0u);
    EXPECT_EQ(std::memcmp(c.dst, "\0###", 4), 0);
    Copied<char> const n = copy(9, "", 5);
    EXPECT_EQ(n.result, 5u);
    EXPECT_EQ(std::memcmp(n.dst, "\0###", 4), 0);
}

TEST(CStrCopy, CapacityOfZeroWrapsSoThatTheCountIsTheLimit) {
    Copied<char> const c = copy(0, "abcdef", whole);
    EXPECT_EQ(c.result, 6u);
    EXPECT_EQ(std::memcmp(c.dst, "abcdef\0##", 9), 0);
    Copied<char> const n = copy(0, "abcdef", 2);
    EXPECT_EQ(n.result, 2u);
    EXPECT_EQ(std::memcmp(n.dst, "ab#\0##", 6), 0);
}

TEST(CString, WorksOnThePointerHeldAtTheArgument) {
    char const * none = nullptr;
    char const * empty = "";
    char const * text = "abc";
    char const * other = "abd";
    EXPECT_EQ(tav_string_size(&none), 0u);
    EXPECT_EQ(tav_string_size(&text), 3u);
    EXPECT_TRUE(tav_string_is_empty(&none));
    EXPECT_TRUE(tav_string_is_empty(&empty));
    EXPECT_FALSE(tav_string_is_empty(&text));
    EXPECT_EQ(tav_string_compare(&text, &text), 0);
    EXPECT_EQ(tav_string_compare(&text, &other), -1);
    EXPECT_EQ(tav_string_compare(&text, &none), 1);
    EXPECT_EQ(tav_string_compare(&none, &empty), -1);
    EXPECT_EQ(sign(tav_string_compare(&empty, &text)), -1);
}

TEST(CString, Utf8FormsAreTheSame) {
    char const * none = nullptr;
    char const * text = "abc";
    char const * high = "\x80";
    EXPECT_EQ(tav_u8string_size(&none), 0u);
    EXPECT_EQ(tav_u8string_size(&text), 3u);
    EXPECT_TRUE(tav_u8string_is_empty(&none));
    EXPECT_FALSE(tav_u8string_is_empty(&text));
    EXPECT_EQ(tav_u8string_compare(&text, &text), 0);
    EXPECT_EQ(sign(tav_u8string_compare(&high, &text)), -1);
    char dst[8];
    std::memset(dst, '#', sizeof dst);
    EXPECT_EQ(tav_u8string_to_array(&text, dst, 3), 2u);
    EXPECT_EQ(std::memcmp(dst, "ab#\0####", 8), 0);
}

TEST(CString, WideFormsAreTheSame) {
    wchar_t const * none = nullptr;
    wchar_t const * empty = L"";
    wchar_t const * text = L"abc";
    EXPECT_EQ(tav_wstring_size(&none), 0u);
    EXPECT_EQ(tav_wstring_size(&text), 3u);
    EXPECT_TRUE(tav_wstring_is_empty(&none));
    EXPECT_TRUE(tav_wstring_is_empty(&empty));
    EXPECT_FALSE(tav_wstring_is_empty(&text));
    EXPECT_EQ(tav_wstring_compare(&text, &text), 0);
    EXPECT_EQ(tav_wstring_compare(&text, &none), 1);
    EXPECT_EQ(sign(tav_wstring_compare(&empty, &text)), -1);
    wchar_t dst[8];
    std::wmemset(dst, L'#', 8);
    EXPECT_EQ(tav_wstring_to_array(&text, dst, 8), 3u);
    EXPECT_EQ(std::wmemcmp(dst, L"abc\0####", 8), 0);
}

TEST(CString, ToArrayCopiesTheWholeText) {
    char const * text = "abc";
    char dst[8];
    std::memset(dst, '#', sizeof dst);
    EXPECT_EQ(tav_string_to_array(&text, dst, 8), 3u);
    EXPECT_EQ(std::memcmp(dst, "abc\0####", 8), 0);
    std::memset(dst, '#', sizeof dst);
    EXPECT_EQ(tav_string_to_array(&text, dst, 2), 1u);
    EXPECT_EQ(std::memcmp(dst, "a#\0#####", 8), 0);
    char const * none = nullptr;
    EXPECT_EQ(tav_string_to_array(&none, dst, 8), 0u);
    EXPECT_EQ(dst[0], '\0');
}
