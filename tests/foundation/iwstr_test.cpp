#include "tav/vinta/vinta_basetypes_text.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

std::wstring textOf(tav_iwstr v) {
    return v;
}

tav_iwstr hollow() {
    return tav_iwstr(nullptr, 5u);
}

int sign(int v) {
    return (v > 0) - (v < 0);
}

} // namespace

TEST(TavIwstr, DefaultIsNullAndEmpty) {
    tav_iwstr const v;
    EXPECT_EQ(v.data(), nullptr);
    EXPECT_EQ(v.begin(), nullptr);
    EXPECT_EQ(v.end(), nullptr);
    EXPECT_EQ(v.size(), 0u);
    EXPECT_TRUE(v.empty());
    EXPECT_TRUE(v.eof());
    EXPECT_TRUE(!v);
    EXPECT_EQ(static_cast<void *>(v), nullptr);
}

TEST(TavIwstr, ConstructorsTakeTextCountAndString) {
    wchar_t const * const none = nullptr;
    EXPECT_EQ(tav_iwstr(none).size(), 0u);
    EXPECT_EQ(tav_iwstr(none).data(), nullptr);
    EXPECT_EQ(tav_iwstr(L"abc").size(), 3u);
    EXPECT_EQ(textOf(tav_iwstr(L"abc", 2u)), L"ab");
    EXPECT_EQ(tav_iwstr(L"abc", 0).size(), 0u);
    std::wstring const text(L"a\0b", 3);
    EXPECT_EQ(tav_iwstr(text).size(), 3u);
    EXPECT_EQ(tav_iwstr(text).data(), text.data());
}

TEST(TavIwstr, EmptyTestsPointerOrSize) {
    EXPECT_TRUE(hollow().empty());
    EXPECT_TRUE(!hollow());
    EXPECT_EQ(hollow().size(), 5u);
    EXPECT_EQ(static_cast<void *>(hollow()), nullptr);
    EXPECT_TRUE(tav_iwstr(L"abc", 0u).eof());
    EXPECT_EQ(static_cast<void *>(tav_iwstr(L"abc")), reinterpret_cast<void *>(1));
}

TEST(TavIwstr, HollowViewNeverTouchesUnits) {
    EXPECT_EQ(*hollow(), L'\0');
    EXPECT_EQ(hollow()[0], L'\0');
    EXPECT_EQ(textOf(hollow()), L"");
    EXPECT_EQ(hollow().begin(), hollow().end());
    EXPECT_EQ(hollow().skipBlank().data(), nullptr);
    EXPECT_EQ(hollow().skipBlank().size(), 5u);
    EXPECT_EQ(hollow().substr(1, 2).data(), nullptr);
    EXPECT_EQ(hollow().removeLeft(2).data(), nullptr);
    tav_iwstr v = hollow();
    ++v;
    EXPECT_EQ(v.data(), nullptr);
    EXPECT_EQ(v.size(), 4u);
    std::ostringstream out;
    out << hollow();
    EXPECT_EQ(out.str(), "");
}

TEST(TavIwstr, ReadingBehindTheEndGivesZero) {
    tav_iwstr const v(L"abc", 2u);
    EXPECT_EQ(*v, L'a');
    EXPECT_EQ(v[1], L'b');
    EXPECT_EQ(v[2], L'\0');
    EXPECT_EQ(*tav_iwstr(L"abc", 0u), L'\0');
}

TEST(TavIwstr, MovesForwardClampedAndBackUnchecked) {
    wchar_t const text[] = L"abcd";
    tav_iwstr v(text);
    EXPECT_EQ(textOf(v++), L"abcd");
    EXPECT_EQ(textOf(++v), L"cd");
    v += 9;
    EXPECT_EQ(v.size(), 0u);
    ++v;
    EXPECT_EQ(v.data(), text + 4);
    v += -3;
    EXPECT_EQ(textOf(v), L"bcd");
    v.advance(1u);
    EXPECT_EQ(textOf(v), L"cd");
    v.advance(0xFFFFFFFFu);
    EXPECT_EQ(textOf(v), L"bcd");
}

TEST(TavIwstr, SubstrAndRemoveLeftAreClamped) {
    tav_iwstr const v(L"abcdef");
    EXPECT_EQ(textOf(v.substr(1, 3)), L"bcd");
    EXPECT_EQ(textOf(v.substr(5, 9)), L"f");
    EXPECT_EQ(textOf(v.substr(9, 9)), L"");
    EXPECT_EQ(textOf(v.removeLeft(4)), L"ef");
    EXPECT_EQ(textOf(v.removeLeft(0xFFFFFFFFu)), L"");
    EXPECT_EQ(v.removeLeft(9).data(), v.end());
}

TEST(TavIwstr, BeginWithNeedsAllOfTheText) {
    tav_iwstr const v(L"abc");
    EXPECT_TRUE(v.beginWith(L"ab"));
    EXPECT_TRUE(v.beginWith(L"abc"));
    EXPECT_TRUE(v.beginWith(L""));
    EXPECT_TRUE(v.beginWith(tav_iwstr()));
    EXPECT_FALSE(v.beginWith(L"abcd"));
    EXPECT_FALSE(v.beginWith(L"b"));
}

TEST(TavIwstr, SkipBlankDropsLeadingBlanks) {
    EXPECT_EQ(textOf(tav_iwstr(L" \t\n\v\f\rx ").skipBlank()), L"x ");
    EXPECT_EQ(textOf(tav_iwstr(L"x").skipBlank()), L"x");
}

TEST(TavIwstr, SkipBlankReadsOnBehindTheCount) {
    wchar_t const text[] = L"    x";
    tav_iwstr const rest = tav_iwstr(text, 2u).skipBlank();
    EXPECT_EQ(rest.data(), text + 4);
    EXPECT_EQ(rest.size(), 0u);
    tav_iwstr const toNul = tav_iwstr(L"   ", 1u).skipBlank();
    EXPECT_EQ(*toNul.data(), L'\0');
    EXPECT_EQ(toNul.size(), 0u);
}

TEST(TavIwstr, CompareGivesADifferenceOfUnits) {
    EXPECT_EQ(tav_iwstr(L"ac").compare(L"aa"), 2);
    EXPECT_EQ(tav_iwstr(L"a").compare(L"e"), -4);
    EXPECT_EQ(tav_iwstr(L"abc").compare(L"abc"), 0);
}

TEST(TavIwstr, CompareBreaksTiesBySize) {
    EXPECT_EQ(sign(tav_iwstr(L"ab").compare(L"abc")), -1);
    EXPECT_EQ(sign(tav_iwstr(L"abc").compare(L"ab")), 1);
    EXPECT_EQ(sign(tav_iwstr(L"").compare(L"ab")), -1);
    EXPECT_EQ(tav_iwstr(L"abz", 2u).compare(L"aba"), -1);
    EXPECT_EQ(tav_iwstr(L"aba").compare(tav_iwstr(L"abz", 2u)), 1);
    EXPECT_EQ(tav_iwstr(L"abz", 2u).compare(tav_iwstr(L"aba", 2u)), 0);
}

TEST(TavIwstr, CompareStopsAtANulInBoth) {
    std::wstring const a(L"x\0a", 3);
    std::wstring const b(L"x\0b", 3);
    EXPECT_EQ(tav_iwstr(a).compare(tav_iwstr(b)), 0);
    EXPECT_TRUE(tav_iwstr(a) == tav_iwstr(b));
    EXPECT_EQ(sign(tav_iwstr(L"x\0", 2u).compare(tav_iwstr(b))), -1);
}

TEST(TavIwstr, EmptyViewsAreEqualWhateverTheirPointers) {
    EXPECT_EQ(tav_iwstr().compare(tav_iwstr(L"")), 0);
    EXPECT_EQ(tav_iwstr(L"").compare(tav_iwstr()), 0);
    EXPECT_EQ(hollow().compare(tav_iwstr()), 0);
    EXPECT_EQ(tav_iwstr().compare(L"a"), -1);
    EXPECT_EQ(tav_iwstr(L"a").compare(tav_iwstr()), 1);
}

TEST(TavIwstr, AllSixComparisonsTakeViewsAndLiterals) {
    std::wstring const holder(L"ab");
    tav_iwstr const v(holder);
    EXPECT_TRUE(v == tav_iwstr(L"ab"));
    EXPECT_TRUE(v != tav_iwstr(L"b"));
    EXPECT_TRUE(v < tav_iwstr(L"b"));
    EXPECT_TRUE(v <= tav_iwstr(L"ab"));
    EXPECT_TRUE(v > tav_iwstr(L"a"));
    EXPECT_TRUE(v >= tav_iwstr(L"ab"));
    EXPECT_FALSE(v < tav_iwstr(L"ab"));
    EXPECT_FALSE(v > tav_iwstr(L"ab"));
    EXPECT_TRUE(v == L"ab");
    EXPECT_TRUE(L"ab" == v);
    EXPECT_TRUE(v != L"abc");
    EXPECT_TRUE(L"abc" != v);
    EXPECT_TRUE(v < L"b");
    EXPECT_TRUE(L"a" < v);
    EXPECT_TRUE(v <= L"ab");
    EXPECT_TRUE(L"ab" <= v);
    EXPECT_TRUE(v > L"a");
    EXPECT_TRUE(L"b" > v);
    EXPECT_TRUE(v >= L"ab");
    EXPECT_TRUE(L"ab" >= v);
}

TEST(TavIwstr, NoComparisonHoldsTheOtherWay) {
    tav_iwstr const v(L"ab");
    EXPECT_FALSE(v == tav_iwstr(L"b"));
    EXPECT_FALSE(v != tav_iwstr(L"ab"));
    EXPECT_FALSE(v <= tav_iwstr(L"a"));
    EXPECT_FALSE(v >= tav_iwstr(L"b"));
    EXPECT_FALSE(v == L"b");
    EXPECT_FALSE(L"b" == v);
    EXPECT_FALSE(v != L"ab");
    EXPECT_FALSE(L"ab" != v);
    EXPECT_FALSE(v < L"ab");
    EXPECT_FALSE(L"ab" < v);
    EXPECT_FALSE(v <= L"a");
    EXPECT_FALSE(L"b" <= v);
    EXPECT_FALSE(v > L"ab");
    EXPECT_FALSE(L"ab" > v);
    EXPECT_FALSE(v >= L"b");
    EXPECT_FALSE(L"a" >= v);
}

TEST(TavIwstr, StreamsAsUtf8) {
    std::ostringstream out;
    out << tav_iwstr(L"a\u00E9\u20AC");
    EXPECT_EQ(out.str(), "a\xC3\xA9\xE2\x82\xAC");
}

TEST(IwstrUtf8, IsAReadOnlyView) {
    tav_utf8 const none;
    EXPECT_EQ(none.data(), nullptr);
    EXPECT_EQ(none.begin(), none.end());
    EXPECT_EQ(none.size(), 0u);
    EXPECT_TRUE(none.empty());
    EXPECT_TRUE(!none);
    EXPECT_TRUE(tav_utf8("a", 0u).empty());
    EXPECT_FALSE(tav_utf8("a", 1u).empty());
    EXPECT_EQ(static_cast<void *>(none), nullptr);
    EXPECT_EQ(none[0], '\0');
    char const * const null = nullptr;
    EXPECT_EQ(tav_utf8(null).size(), 0u);
    tav_utf8 const v("abc");
    EXPECT_EQ(v.size(), 3u);
    EXPECT_EQ(v.end() - v.begin(), 3);
    EXPECT_FALSE(!v);
    EXPECT_EQ(static_cast<void *>(v), reinterpret_cast<void *>(1));
    EXPECT_EQ(v[2], 'c');
    EXPECT_EQ(v[3], '\0');
    EXPECT_EQ(static_cast<std::string>(v), "abc");
    EXPECT_EQ(tav_utf8("abc", 2u).size(), 2u);
    EXPECT_EQ(tav_utf8("abc", 2u)[2], '\0');
    std::string const text("x\0y", 3);
    EXPECT_EQ(tav_utf8(text).data(), text.data());
    EXPECT_EQ(static_cast<std::string>(tav_utf8(text)), text);
}

TEST(IwstrUtf8, HollowViewNeverTouchesBytes) {
    tav_utf8 const v(nullptr, 5u);
    EXPECT_TRUE(v.empty());
    EXPECT_EQ(v.size(), 5u);
    EXPECT_EQ(v[0], '\0');
    EXPECT_EQ(v.begin(), v.end());
    EXPECT_EQ(static_cast<std::string>(v), "");
}

TEST(IwstrOstr, ConstructorsKeepPointerAndSize) {
    char text[4] = "abc";
    unsigned char raw[2] = {1, 2};
    void * const any = raw;
    std::function<void(char *)> const none;
    tav_ostr const a(text, 3, none);
    EXPECT_EQ(a.data(), text);
    EXPECT_EQ(a.buffer(), text);
    EXPECT_EQ(a.size(), 3u);
    EXPECT_EQ(a.max_size(), 3u);
    EXPECT_EQ(tav_ostr(raw, 2, none).data(), reinterpret_cast<char *>(raw));
    EXPECT_EQ(tav_ostr(any, 1, none).data(), reinterpret_cast<char *>(raw));
    EXPECT_EQ(tav_ostr(none).data(), nullptr);
    EXPECT_EQ(tav_ostr(none).size(), 0u);
    EXPECT_EQ(tav_ostr().data(), nullptr);
    EXPECT_EQ(tav_ostr().size(), 0u);
}

TEST(IwstrOstr, FreeReleasesAndKeepsTheSize) {
    char text[4] = "abc";
    char * released = nullptr;
    int calls = 0;
    tav_ostr v(text, 3, [&](char * data) {
        released = data;
        ++calls;
    });
    v.free();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(released, text);
    EXPECT_EQ(v.data(), nullptr);
    EXPECT_EQ(v.size(), 3u);
    EXPECT_EQ(v.max_size(), 3u);
}

TEST(IwstrOstr, FreeCallsTheFunctionWithNullToo) {
    char text[2] = "a";
    std::vector<char *> seen;
    tav_ostr v(text, 1, [&](char * data) { seen.push_back(data); });
    v.free();
    v.free();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[1], nullptr);
    tav_ostr w([&](char * data) { seen.push_back(data); });
    w.free();
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[2], nullptr);
}

TEST(IwstrOstr, FreeWithoutAFunctionOnlyForgets) {
    char text[2] = "a";
    tav_ostr v(text, 1, nullptr);
    v.free();
    EXPECT_EQ(v.data(), nullptr);
    EXPECT_EQ(v.size(), 1u);
    EXPECT_STREQ(text, "a");
}

TEST(IwstrOstr, DestructorReleasesNothing) {
    char text[2] = "a";
    int calls = 0;
    {
        tav_ostr const v(text, 1, [&](char *) { ++calls; });
    }
    EXPECT_EQ(calls, 0);
}

TEST(IwstrOstr, CopiesAndMovesCarryAllThreeFields) {
    char text[2] = "a";
    int calls = 0;
    tav_ostr first(text, 1, [&](char *) { ++calls; });
    tav_ostr copy(first);
    EXPECT_EQ(copy.data(), text);
    EXPECT_EQ(copy.size(), 1u);
    copy.free();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(first.data(), text);
    tav_ostr moved(std::move(first));
    EXPECT_EQ(moved.data(), text);
    EXPECT_EQ(moved.size(), 1u);
    tav_ostr assigned;
    assigned = moved;
    assigned.free();
    EXPECT_EQ(calls, 2);
    moved.free();
    EXPECT_EQ(calls, 3);
}
