#include "tav/vinta/vinta_basetypes_text.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

std::string str(tavString const & s) {
    return std::string(s.data(), s.size());
}
std::string str(tavU8string const & s) {
    return std::string(s.data(), s.size());
}
std::wstring str(tavWstring const & s) {
    return std::wstring(s.data(), s.size());
}

/// A view that claims 4 GiB; only its size may be looked at.
tav_istr immense() {
    return tav_istr("x", 0xFFFFFFFFu);
}

template <class Exception, class Call>
std::string whatOf(Call && call) {
    try {
        call();
    } catch (Exception const & e) {
        return e.what();
    }
    return "<nothing thrown>";
}

/// The decoder written out bit by bit, to hold the quick one against.
wchar_t plainRead(std::string const & text, std::size_t & at) {
    if (at >= text.size()) {
        return 0;
    }
    unsigned const lead = static_cast<unsigned char>(text[at++]);
    if (lead < 0x80) {
        return static_cast<wchar_t>(lead);
    }
    int count = 0;
    while (count < 4 && (lead & (0x40u >> count)) != 0) {
        ++count;
    }
    unsigned value = lead & (0x7Fu >> count);
    for (int i = 0; i < count && at < text.size(); ++i) {
        unsigned const next = static_cast<unsigned char>(text[at]);
        if ((next & 0xC0) != 0x80) {
            break;
        }
        ++at;
        value = ((value << 6) & 0xFFFF) | (next & 0x3F);
    }
    return static_cast<wchar_t>(value);
}

std::wstring plainToWstring(std::string const & text) {
    std::wstring result;
    std::size_t at = 0;
    for (wchar_t unit = plainRead(text, at); unit != 0; unit = plainRead(text, at)) {
        result += unit;
    }
    return result;
}

} // namespace

TEST(TavString, ConstructorsCopyBytes) {
    EXPECT_EQ(str(tavString()), "");
    EXPECT_EQ(str(tavString("abc")), "abc");
    EXPECT_EQ(str(tavString("a\0b", 3)), std::string("a\0b", 3));
    EXPECT_EQ(str(tavString("abc", 0)), "");
    EXPECT_EQ(str(tavString(std::string("abc"))), "abc");
    std::string const named("named");
    EXPECT_EQ(str(tavString(named)), "named");
    EXPECT_EQ(str(tavString(tav_istr("abcd", 2u))), "ab");
    EXPECT_EQ(str(tavString(tav_istr(static_cast<char const *>(nullptr), 5u))), "");
    EXPECT_EQ(str(tavString("\xFF\xFE")), "\xFF\xFE");
}

TEST(TavString, CopyKeepsAndMoveTakes) {
    tavString a("a text that is too long for the small buffer");
    tavString const copy(a);
    EXPECT_EQ(copy, a);
    char const * const bytes = a.data();
    tavString const moved(std::move(a));
    EXPECT_EQ(moved.data(), bytes);
    EXPECT_EQ(moved, copy);
}

TEST(TavString, WideTextIsEncoded) {
    EXPECT_EQ(str(tavString(L"a\u00E9")), "a\xC3\xA9");
    EXPECT_EQ(str(tavString(std::wstring(L"\u20AC"))), "\xE2\x82\xAC");
    EXPECT_EQ(str(tavString(tav_iwstr(L"\u20ACxy", 2u))), "\xE2\x82\xACx");
    EXPECT_EQ(str(tavString(tav_iwstr())), "");
}

TEST(TavString, AssignmentsReplace) {
    tavString s("old");
    s = "literal";
    EXPECT_EQ(str(s), "literal");
    s = std::string("string");
    EXPECT_EQ(str(s), "string");
    s = tav_istr("view!", 4u);
    EXPECT_EQ(str(s), "view");
    tavString const other("other");
    s = other;
    EXPECT_EQ(str(s), "other");
    s = tavString("moved");
    EXPECT_EQ(str(s), "moved");
    s = tav_istr(s).removeLeft(2);
    EXPECT_EQ(str(s), "ved");
    s = L"\u00E9";
    EXPECT_EQ(str(s), "\xC3\xA9");
}

TEST(TavString, StreamOperatorAppends) {
    tavString s;
    s << 'a' << "bc" << tav_istr("defg", 2u) << std::string("f") << tavString("gh");
    EXPECT_EQ(str(s), "abcdefgh");
    char const * const none = nullptr;
    s << none << tav_istr();
    EXPECT_EQ(str(s), "abcdefgh");
    s << '\0';
    EXPECT_EQ(s.size(), 9u);
}

TEST(TavString, WriteAppends) {
    tavString s;
    s.write('a').write("bc").write(tav_istr("d")).write(std::string("e")).write(tavString("f"));
    char const * const none = nullptr;
    s.write(none);
    EXPECT_EQ(str(s), "abcdef");
}

TEST(TavString, AppendsOfItselfAreWhole) {
    tavString s("0123456789abcdef");
    s << s;
    EXPECT_EQ(str(s), "0123456789abcdef0123456789abcdef");
    s << tav_istr(s).leftstr(20);
    EXPECT_EQ(str(s), "0123456789abcdef0123456789abcdef0123456789abcdef0123");
    s.insert(1, tav_istr(s).leftstr(3));
    EXPECT_EQ(str(s).substr(0, 8), "00121234");
}

TEST(TavString, WideUnitsAreWrittenAsOneToThreeBytes) {
    auto const written = [](unsigned code) {
        tavString s;
        s.write(static_cast<wchar_t>(code));
        return str(s);
    };
    EXPECT_EQ(written(0x00), std::string(1, '\0'));
    EXPECT_EQ(written(0x41), "A");
    EXPECT_EQ(written(0x7F), "\x7F");
    EXPECT_EQ(written(0x80), "\xC2\x80");
    EXPECT_EQ(written(0x7FF), "\xDF\xBF");
    EXPECT_EQ(written(0x800), "\xE0\xA0\x80");
    EXPECT_EQ(written(0xD83D), "\xED\xA0\xBD");
    EXPECT_EQ(written(0xFFFF), "\xEF\xBF\xBF");
}

TEST(TavString, CodePointAbove16BitsIsWrittenAsTwoSurrogates) {
    tavString s;
    s.write(static_cast<wchar_t>(0x1F600));
    EXPECT_EQ(str(s), "\xED\xA0\xBD\xED\xB8\x80");
    tavString first;
    first.write(static_cast<wchar_t>(0x10000));
    EXPECT_EQ(str(first), "\xED\xA0\x80\xED\xB0\x80");
    tavString last;
    last.write(static_cast<wchar_t>(0x10FFFF));
    EXPECT_EQ(str(last), "\xED\xAF\xBF\xED\xBF\xBF");
    tavString text;
    text.fromWstring(L"a\U0001F600z");
    EXPECT_EQ(str(text), "a\xED\xA0\xBD\xED\xB8\x80z");
    EXPECT_EQ(str(tavString(L"\U0001F600")), "\xED\xA0\xBD\xED\xB8\x80");
}

TEST(TavString, UnitThatIsNoCodePointIsWrittenByItsLow16Bits) {
    tavString above;
    above.write(static_cast<wchar_t>(0x110041));
    EXPECT_EQ(str(above), "A");
    tavString negative;
    negative.write(static_cast<wchar_t>(-1));
    EXPECT_EQ(str(negative), "\xEF\xBF\xBF");
    wchar_t const text[] = {static_cast<wchar_t>(-0x7FFFFFBF), static_cast<wchar_t>(0x110042), 0};
    tavString both;
    both.fromWstring(text);
    EXPECT_EQ(str(both), "AB");
}

TEST(TavString, SurrogatePairOfUnitsEncodesToSixBytes) {
    wchar_t const pair[] = {0xD83D, 0xDE00, 0};
    tavString s;
    s.fromWstring(pair);
    EXPECT_EQ(str(s), "\xED\xA0\xBD\xED\xB8\x80");
    EXPECT_EQ(s.size(), 6u);
}

TEST(TavString, FromWstringWritesEachUnitAsWriteDoes) {
    for (unsigned const code : {0x7Fu, 0x80u, 0x7FFu, 0x800u, 0xFFFFu, 0x10000u, 0x10FFFFu, 0x110000u}) {
        tavString written("x");
        written.write(static_cast<wchar_t>(code)).write(L'z');
        wchar_t const units[] = {static_cast<wchar_t>(code), L'z'};
        tavString appended("x");
        appended.fromWstring(tav_iwstr(units, 2u));
        EXPECT_EQ(str(appended), str(written)) << code;
    }
}

TEST(TavString, FromWstringAppends) {
    tavString s("x=");
    s.fromWstring(L"ab");
    s.fromWstring(std::wstring(L"\0c", 2));
    s.fromWstring(tav_iwstr());
    EXPECT_EQ(str(s), std::string("x=ab\0c", 6));
}

TEST(TavString, ConcatenatesByTheBar) {
    tavString const a("ab");
    EXPECT_EQ(str(a | tavString("cd")), "abcd");
    EXPECT_EQ(str(a | "cd"), "abcd");
    EXPECT_EQ(str(a), "ab");
    EXPECT_EQ(str(a | "c" | "d"), "abcd");
    EXPECT_EQ(str(a | static_cast<char const *>(nullptr)), "ab");
    EXPECT_EQ(str(tavString("a\0b", 3) | tavString("\0c", 2)), std::string("a\0b\0c", 5));
}

TEST(TavString, SizesAndBytes) {
    tavString s("abc");
    EXPECT_EQ(s.size(), 3u);
    EXPECT_EQ(s.length(), 3u);
    EXPECT_FALSE(s.empty());
    EXPECT_FALSE(s.isEmpty());
    EXPECT_EQ(s.end() - s.begin(), 3);
    EXPECT_STREQ(s.data(), "abc");
    s.clear();
    EXPECT_EQ(s.size(), 0u);
    EXPECT_TRUE(s.empty());
    EXPECT_TRUE(s.isEmpty());
}

TEST(TavString, CharactersAreReadAndSetInPlace) {
    tavString s("abc");
    EXPECT_EQ(s.charAt(0), 'a');
    EXPECT_EQ(s[2], 'c');
    s.setCharAt(1, 'x');
    EXPECT_EQ(str(s), "axc");
}

TEST(TavString, ComparisonsGoByUnsignedBytesThenLength) {
    tavString const a("ab");
    tavString const b("abc");
    tavString const high("\x80");
    EXPECT_TRUE(a == tavString("ab"));
    EXPECT_TRUE(a != b);
    EXPECT_TRUE(a < b);
    EXPECT_TRUE(a <= b);
    EXPECT_TRUE(a <= a);
    EXPECT_TRUE(b > a);
    EXPECT_TRUE(b >= a);
    EXPECT_TRUE(a < high);
    EXPECT_FALSE(high < a);
    EXPECT_TRUE(a.equals("ab"));
    EXPECT_FALSE(a.equals("abc"));
    EXPECT_TRUE(tavString("a\0b", 3) != tavString("a\0c", 3));
}

TEST(TavString, EqualityTakesTextOnEitherSide) {
    tavString const s("ab");
    EXPECT_TRUE(s == "ab");
    EXPECT_TRUE("ab" == s);
    EXPECT_TRUE(s != "b");
    EXPECT_TRUE("b" != s);
    EXPECT_TRUE(s == tav_istr("ab"));
    EXPECT_TRUE(tav_istr("ab") == s);
    EXPECT_TRUE(s != tav_istr("b"));
    EXPECT_TRUE(tav_istr("b") != s);
    EXPECT_TRUE(s == std::string("ab"));
    EXPECT_TRUE(std::string("ab") == s);
    EXPECT_TRUE(s != std::string("b"));
    EXPECT_TRUE(std::string("b") != s);
    EXPECT_TRUE(tavString() == nullptr);
    EXPECT_TRUE(s != 0);
    EXPECT_TRUE(s < "b");
    EXPECT_TRUE("a" < s);
}

TEST(TavString, NoComparisonHoldsTheOtherWay) {
    tavString const a("ab");
    tavString const b("abc");
    EXPECT_FALSE(a == b);
    EXPECT_FALSE(a != tavString("ab"));
    EXPECT_FALSE(a < a);
    EXPECT_FALSE(b <= a);
    EXPECT_FALSE(a > a);
    EXPECT_FALSE(a >= b);
    EXPECT_TRUE(a >= a);
    EXPECT_FALSE(a == "b");
    EXPECT_FALSE("b" == a);
    EXPECT_FALSE(a != "ab");
    EXPECT_FALSE("ab" != a);
    EXPECT_FALSE(a == tav_istr("b"));
    EXPECT_FALSE(tav_istr("b") == a);
    EXPECT_FALSE(a != tav_istr("ab"));
    EXPECT_FALSE(tav_istr("ab") != a);
    EXPECT_FALSE(a == std::string("b"));
    EXPECT_FALSE(std::string("b") == a);
    EXPECT_FALSE(a != std::string("ab"));
    EXPECT_FALSE(std::string("ab") != a);
}

TEST(TavString, StartsAndEndsWith) {
    tavString const s("abc");
    EXPECT_TRUE(s.startsWith("ab"));
    EXPECT_TRUE(s.startsWith(""));
    EXPECT_FALSE(s.startsWith("abcd"));
    EXPECT_TRUE(s.endsWith("bc"));
    EXPECT_TRUE(s.endsWith(""));
    EXPECT_FALSE(s.endsWith("xabc"));
}

TEST(TavString, IsDigitsAllowsOneSignAndNothingElse) {
    EXPECT_TRUE(tavString("").isDigits());
    EXPECT_TRUE(tavString("+").isDigits());
    EXPECT_TRUE(tavString("-").isDigits());
    EXPECT_TRUE(tavString("0123456789").isDigits());
    EXPECT_TRUE(tavString("-12").isDigits());
    EXPECT_TRUE(tavString("+12").isDigits());
    EXPECT_FALSE(tavString("1a").isDigits());
    EXPECT_FALSE(tavString("--1").isDigits());
    EXPECT_FALSE(tavString("1-").isDigits());
    EXPECT_FALSE(tavString(" 1").isDigits());
    EXPECT_FALSE(tavString("\xB2").isDigits());
}

TEST(TavString, IndexOfFindsTheFirstFromStart) {
    tavString const s("abcabc");
    EXPECT_EQ(s.indexOf("abc"), 0);
    EXPECT_EQ(s.indexOf("c"), 2);
    EXPECT_EQ(s.indexOf(1, "abc"), 3);
    EXPECT_EQ(s.indexOf(3, "abc"), 3);
    EXPECT_EQ(s.indexOf(4, "abc"), -1);
    EXPECT_EQ(s.indexOf("x"), -1);
    EXPECT_EQ(s.indexOf("abcabca"), -1);
    EXPECT_EQ(s.indexOf(100, "a"), -1);
    EXPECT_EQ(s.indexOf(-1, "a"), -1);
}

TEST(TavString, IndexOfNothingYieldsTheStart) {
    tavString const s("abc");
    EXPECT_EQ(s.indexOf(""), 0);
    EXPECT_EQ(s.indexOf(2, ""), 2);
    EXPECT_EQ(s.indexOf(3, ""), 3);
    EXPECT_EQ(s.indexOf(4, ""), -1);
    EXPECT_EQ(s.indexOf(-1, ""), -1);
    EXPECT_EQ(tavString().indexOf(""), 0);
}

TEST(TavString, IndexOfAnyChar) {
    tavString const s("abc");
    EXPECT_EQ(s.indexOfAnyChar("cb"), 1);
    EXPECT_EQ(s.indexOfAnyChar("x"), -1);
    EXPECT_EQ(s.indexOfAnyChar(""), -1);
    EXPECT_EQ(tavString().indexOfAnyChar("a"), -1);
}

TEST(TavString, IndexOfChar) {
    tavString const s("abcabc");
    EXPECT_EQ(s.indexOfChar('b', 0), 1);
    EXPECT_EQ(s.indexOfChar('b', 2), 4);
    EXPECT_EQ(s.indexOfChar('b', 5), -1);
    EXPECT_EQ(s.indexOfChar('c', 6), -1);
    EXPECT_EQ(s.indexOfChar('a', -1), -1);
    EXPECT_EQ(s.indexOfChar('x', 0), -1);
}

TEST(TavString, LastIndexOfLooksAtPositionZeroOnly) {
    tavString const s("abcabc");
    EXPECT_EQ(s.lastIndexOf("abc"), 0);
    EXPECT_EQ(s.lastIndexOf("bc"), -1);
    EXPECT_EQ(s.lastIndexOf(""), 0);
    EXPECT_EQ(s.lastIndexOf("abcabcd"), -1);
}

TEST(TavString, LastIndexOfFromAStart) {
    tavString const s("abcabc");
    EXPECT_EQ(s.lastIndexOf(5, "abc"), 3);
    EXPECT_EQ(s.lastIndexOf(3, "abc"), 3);
    EXPECT_EQ(s.lastIndexOf(2, "abc"), 0);
    EXPECT_EQ(s.lastIndexOf(-1, "abc"), 3);
    EXPECT_EQ(s.lastIndexOf(100, "c"), 5);
    EXPECT_EQ(s.lastIndexOf(5, "x"), -1);
    EXPECT_EQ(s.lastIndexOf(4, ""), 4);
    EXPECT_EQ(s.lastIndexOf(9, ""), 6);
    EXPECT_EQ(s.lastIndexOf(-1, ""), 6);
}

TEST(TavString, LastIndexOfAnyCharTestsTheFirstByteOnly) {
    EXPECT_EQ(tavString("xay").lastIndexOfAnyChar("a"), -1);
    EXPECT_EQ(tavString("xay").lastIndexOfAnyChar("ax"), 0);
    EXPECT_EQ(tavString("xay").lastIndexOfAnyChar(""), -1);
    EXPECT_EQ(tavString().lastIndexOfAnyChar("a"), -1);
}

TEST(TavString, LastIndexOfChar) {
    tavString const s("abcabc");
    EXPECT_EQ(s.lastIndexOfChar('b', 5), 4);
    EXPECT_EQ(s.lastIndexOfChar('b', 3), 1);
    EXPECT_EQ(s.lastIndexOfChar('b', 0), -1);
    EXPECT_EQ(s.lastIndexOfChar('a', 0), 0);
    EXPECT_EQ(s.lastIndexOfChar('c', 100), 5);
    EXPECT_EQ(s.lastIndexOfChar('c', -1), 5);
    EXPECT_EQ(s.lastIndexOfChar('x', 5), -1);
    EXPECT_EQ(tavString().lastIndexOfChar('a', 0), -1);
}

TEST(TavString, SubstringTakesAStartAndAnEnd) {
    tavString const s("abcdef");
    EXPECT_EQ(str(s.substring(1, 3)), "bc");
    EXPECT_EQ(str(s.substring(0, 0)), "");
    EXPECT_EQ(str(s.substring(2, -1)), "cdef");
    EXPECT_EQ(str(s.substring(4, 100)), "ef");
    EXPECT_EQ(str(s.substring(6, -1)), "");
    EXPECT_EQ(str(s.substring(4, 2)), "ef");
    EXPECT_EQ(str(s.substring(4, -7)), "ef");
    EXPECT_EQ(str(s), "abcdef");
}

TEST(TavString, RemoveTakesAStartAndAnEnd) {
    auto const removed = [](int start, int end) {
        tavString s("abcdef");
        s.remove(start, end);
        return str(s);
    };
    EXPECT_EQ(removed(1, 3), "adef");
    EXPECT_EQ(removed(2, 2), "abcdef");
    EXPECT_EQ(removed(2, -1), "ab");
    EXPECT_EQ(removed(4, 2), "abcd");
    EXPECT_EQ(removed(4, 100), "abcd");
    EXPECT_EQ(removed(6, -1), "abcdef");
    EXPECT_EQ(removed(0, 6), "");
    tavString s("abc");
    EXPECT_EQ(&s.remove(0, 1), &s);
}

TEST(TavString, PositionBeyondTheEndFails) {
    tavString s("abc");
    std::string const text = "invalid string position";
    EXPECT_EQ(whatOf<std::out_of_range>([&] { s.substring(4, -1); }), text);
    EXPECT_EQ(whatOf<std::out_of_range>([&] { s.substring(-1, -1); }), text);
    EXPECT_EQ(whatOf<std::out_of_range>([&] { s.substring(INT_MIN, INT_MAX); }), text);
    EXPECT_EQ(whatOf<std::out_of_range>([&] { s.remove(4, -1); }), text);
    EXPECT_EQ(whatOf<std::out_of_range>([&] { s.remove(-1, 2); }), text);
    EXPECT_EQ(str(s), "abc");
}

TEST(TavString, GrowthBeyondTheMaximumFails) {
    tavString s("a");
    std::string const text = "string too long";
    EXPECT_EQ(whatOf<std::length_error>([&] { s << immense(); }), text);
    EXPECT_EQ(whatOf<std::length_error>([&] { s.write(immense()); }), text);
    EXPECT_EQ(whatOf<std::length_error>([&] { s.insert(0, immense()); }), text);
    EXPECT_EQ(str(s), "a");
    EXPECT_EQ(whatOf<std::length_error>([] { tav::detail::checkGrowth(1, 0xFFFFFFFFu); }), text);
    EXPECT_EQ(whatOf<std::length_error>([] { tav::detail::checkGrowth(0, 0x100000000u); }), text);
    EXPECT_EQ(whatOf<std::length_error>([] { tav::detail::checkGrowth(0x100000000u, 0); }), text);
    EXPECT_NO_THROW(tav::detail::checkGrowth(1, 0xFFFFFFFEu));
    EXPECT_NO_THROW(tav::detail::checkGrowth(0xFFFFFFFFu, 0));
    tavU8string u("a");
    EXPECT_EQ(whatOf<std::length_error>([&] { u << immense(); }), text);
    EXPECT_EQ(str(u), "a");
    tavWstring w(L"a");
    EXPECT_EQ(whatOf<std::length_error>([&] { w << tav_iwstr(L"x", 0xFFFFFFFFu); }), text);
    EXPECT_EQ(str(w), L"a");
}

TEST(TavString, InsertBeyondTheEndAppends) {
    auto const inserted = [](int pos) {
        tavString s("abc");
        s.insert(pos, "XY");
        return str(s);
    };
    EXPECT_EQ(inserted(0), "XYabc");
    EXPECT_EQ(inserted(1), "aXYbc");
    EXPECT_EQ(inserted(3), "abcXY");
    EXPECT_EQ(inserted(9), "abcXY");
    EXPECT_EQ(inserted(-1), "abcXY");
    tavString s("abc");
    EXPECT_EQ(&s.insert(0, tav_istr()), &s);
    EXPECT_EQ(str(s), "abc");
}

TEST(TavString, ReplaceGoesFromTheLeftWithoutOverlap) {
    EXPECT_EQ(str(tavString("aaaa").replace("aa", "b")), "bb");
    EXPECT_EQ(str(tavString("aaa").replace("aa", "b")), "ba");
    EXPECT_EQ(str(tavString("abab").replace("b", "")), "aa");
    EXPECT_EQ(str(tavString("ab").replace("a", "aa")), "aab");
    EXPECT_EQ(str(tavString("abc").replace("cd", "x")), "abc");
    EXPECT_EQ(str(tavString("abc").replace("abc", "x")), "x");
    EXPECT_EQ(str(tavString("").replace("a", "x")), "");
    EXPECT_EQ(str(tavString("xay").replace("a", "<a>")), "x<a>y");
}

TEST(TavString, ReplaceOfNothingIsACopy) {
    EXPECT_EQ(str(tavString("abc").replace("", "x")), "abc");
    EXPECT_EQ(str(tavString("abc").replace(tav_istr(), "x")), "abc");
}

TEST(TavString, ReplaceCharacterChangesEach) {
    tavString const s("a.b.c");
    EXPECT_EQ(str(s.replaceCharacter('.', '/')), "a/b/c");
    EXPECT_EQ(str(s), "a.b.c");
}

TEST(TavString, UpperCaseChangesAsciiLettersOnly) {
    EXPECT_EQ(str(tavString("azAZ09`{\xC3\xA9").toUpperCase()), "AZAZ09`{\xC3\xA9");
}

TEST(TavString, TrimIsTheViewsTrim) {
    EXPECT_EQ(str(tavString("\v ab \v\n").trim()), "ab \v");
}

TEST(TavString, SwapExchanges) {
    tavString a("a");
    tavString b("b");
    a.swap(b);
    EXPECT_EQ(str(a), "b");
    EXPECT_EQ(str(b), "a");
}

TEST(TavString, NullIsOneEmptyString) {
    EXPECT_TRUE(tavString::null().empty());
    EXPECT_EQ(&tavString::null(), &tavString::null());
}

TEST(TavString, FromWritesDecimalOrHexadecimal) {
    EXPECT_EQ(str(tavString::from(0)), "0");
    EXPECT_EQ(str(tavString::from(-255)), "-255");
    EXPECT_EQ(str(tavString::from(LLONG_MIN)), "-9223372036854775808");
    EXPECT_EQ(str(tavString::from(255, false, 9)), "255");
    EXPECT_EQ(str(tavString::from(255, true, 4)), "0x00FF");
    EXPECT_EQ(str(tavString::from(255, true)), "0xFF");
    EXPECT_EQ(str(tavString::from(0, true)), "0x0");
    EXPECT_EQ(str(tavString::from(0x12345, true, 4)), "0x12345");
    EXPECT_EQ(str(tavString::from(255, true, -4)), "0xFF");
    EXPECT_EQ(str(tavString::from(-1, true, 4)), "0xFFFFFFFFFFFFFFFF");
}

TEST(TavString, ViewsAndWideTextConvert) {
    tavString const s("a\xC3\xA9");
    tav_istr const v = s;
    EXPECT_EQ(v.data(), s.data());
    EXPECT_EQ(v.size(), 3u);
    std::wstring const wide = s;
    EXPECT_EQ(wide, L"a\u00E9");
}

namespace {

struct Decoded {
    unsigned unit;
    unsigned left;
};

Decoded decode(std::string const & text) {
    tav_istr v(text);
    unsigned const unit = static_cast<unsigned>(tavString::read(v));
    return {unit, v.size()};
}

} // namespace

TEST(TavStringRead, TakesSequencesOfOneToThreeBytes) {
    EXPECT_EQ(decode("Az").unit, 0x41u);
    EXPECT_EQ(decode("Az").left, 1u);
    EXPECT_EQ(decode("\xC3\xA9z").unit, 0xE9u);
    EXPECT_EQ(decode("\xC3\xA9z").left, 1u);
    EXPECT_EQ(decode("\xE2\x82\xACz").unit, 0x20ACu);
    EXPECT_EQ(decode("\xE2\x82\xACz").left, 1u);
    EXPECT_EQ(decode("\xED\xA0\xBD").unit, 0xD83Du);
    EXPECT_EQ(decode("\xEF\xBF\xBF").unit, 0xFFFFu);
}

TEST(TavStringRead, LongerSequencesLoseTheirHighBits) {
    EXPECT_EQ(decode("\xF0\x9F\x98\x80z").unit, 0xF600u);
    EXPECT_EQ(decode("\xF0\x9F\x98\x80z").left, 1u);
    EXPECT_EQ(decode("\xF0\x90\x80\x80").unit, 0u); // U+10000
    EXPECT_EQ(decode("\xF4\x8F\xBF\xBF").unit, 0xFFFFu);
}

TEST(TavStringRead, LeadsFromF8HaveFourContinuations) {
    EXPECT_EQ(decode("\xF8\x81\x82\x83\x84z").left, 1u);
    EXPECT_EQ(decode("\xF8\x81\x82\x83\x84z").unit, 0x20C4u);
    EXPECT_EQ(decode("\xFF\x81\x82\x83\x84\x85").left, 1u);
    EXPECT_EQ(decode("\xFFz").unit, 0x07u);
    EXPECT_EQ(decode("\xF8z").unit, 0x00u);
    EXPECT_EQ(decode("\xF7z").unit, 0x07u);
    EXPECT_EQ(decode("\xF7\x80\x80\x80\x80").left, 1u);
}

TEST(TavStringRead, StrayContinuationYieldsItsLowSevenBits) {
    EXPECT_EQ(decode("\xA9").unit, 0x29u);
    EXPECT_EQ(decode("\x80z").unit, 0x00u);
    EXPECT_EQ(decode("\xBF\xBF").unit, 0x3Fu);
    EXPECT_EQ(decode("\xBF\xBF").left, 1u);
}

TEST(TavStringRead, CutSequenceYieldsWhatWasAccumulated) {
    EXPECT_EQ(decode("\xC3").unit, 0x03u);
    EXPECT_EQ(decode("\xC3z").unit, 0x03u);
    EXPECT_EQ(decode("\xC3z").left, 1u);
    EXPECT_EQ(decode("\xE2\x82").unit, 0x82u);
    EXPECT_EQ(decode("\xE2\x82z").left, 1u);
    EXPECT_EQ(decode("\xE2\xC3\xA9").unit, 0x02u);
    EXPECT_EQ(decode("\xE2\xC3\xA9").left, 2u);
}

TEST(TavStringRead, EmptyViewGivesZero) {
    EXPECT_EQ(decode("").unit, 0u);
    tav_istr hollow(static_cast<char const *>(nullptr), 5u);
    EXPECT_EQ(tavString::read(hollow), L'\0');
}

TEST(TavStringToWstring, EndsAtAnyDecodedZero) {
    EXPECT_EQ(tavString("ab\0cd", 5).toWstring(), L"ab");
    EXPECT_EQ(tavString("ab\xC0\x80"
                        "cd")
                  .toWstring(),
              L"ab");
    EXPECT_EQ(tavString("ab\x80"
                        "cd")
                  .toWstring(),
              L"ab");
    EXPECT_EQ(tavString("ab\xF0\x90\x80\x80"
                        "cd")
                  .toWstring(),
              L"ab");
    EXPECT_EQ(tavString().toWstring(), L"");
}

TEST(TavStringToWstring, NeverJoinsOrMakesAPair) {
    std::wstring const halves = tavString("\xED\xA0\xBD\xED\xB8\x80").toWstring();
    ASSERT_EQ(halves.size(), 2u);
    EXPECT_EQ(static_cast<unsigned>(halves[0]), 0xD83Du);
    EXPECT_EQ(static_cast<unsigned>(halves[1]), 0xDE00u);
    std::wstring const emoji = tavString("\xF0\x9F\x98\x80").toWstring();
    ASSERT_EQ(emoji.size(), 1u);
    EXPECT_EQ(static_cast<unsigned>(emoji[0]), 0xF600u);
}

TEST(TavStringToWstring, NulAtEveryPlaceOfARunEndsTheText) {
    for (std::size_t size = 0; size < 40; ++size) {
        for (std::size_t nul = 0; nul < size; ++nul) {
            std::string text(size, 'a');
            text[nul] = '\0';
            EXPECT_EQ(tavString(text).toWstring(), std::wstring(nul, L'a')) << size << ' ' << nul;
        }
        EXPECT_EQ(tavString(std::string(size, 'a')).toWstring(), std::wstring(size, L'a'));
    }
}

TEST(TavStringToWstring, AgreesWithThePlainDecoderOnRandomBytes) {
    std::mt19937 random(20240517u);
    std::string const leads = "aZ \x7F\x80\xBF\xC0\xC3\xDF\xE0\xED\xEF\xF0\xF4\xF7\xF8\xFC\xFF";
    for (int round = 0; round < 20000; ++round) {
        std::string text(random() % 40, 'q');
        for (char & c : text) {
            switch (random() % 4) {
            case 0: c = static_cast<char>(random() % 256); break;
            case 1: c = leads[random() % leads.size()]; break;
            case 2: c = static_cast<char>(0x80 + random() % 64); break;
            default: break;
            }
        }
        ASSERT_EQ(tavString(text).toWstring(), plainToWstring(text)) << testing::PrintToString(text);
    }
}

TEST(TavStringToWstring, UndoesTheEncodingOfEvery16BitUnit) {
    std::wstring all;
    for (unsigned unit = 1; unit <= 0xFFFF; ++unit) {
        all += static_cast<wchar_t>(unit);
        tavString s;
        s.write(static_cast<wchar_t>(unit));
        tav_istr v = s;
        ASSERT_EQ(static_cast<unsigned>(tavString::read(v)), unit);
        ASSERT_TRUE(v.eof());
    }
    EXPECT_TRUE(tavString(all).toWstring() == all);
}

TEST(TavU8string, ConstructorsCopyWithoutConversion) {
    EXPECT_EQ(str(tavU8string()), "");
    EXPECT_EQ(str(tavU8string("\xFFz")), "\xFFz");
    EXPECT_EQ(str(tavU8string("a\0b", 3)), std::string("a\0b", 3));
    EXPECT_EQ(str(tavU8string(std::string("s"))), "s");
    EXPECT_EQ(str(tavU8string(tav_istr("abc", 2u))), "ab");
    EXPECT_EQ(str(tavU8string(tav_utf8("abc", 1u))), "a");
    tavU8string const one("one");
    EXPECT_EQ(str(tavU8string(one)), "one");
}

TEST(TavU8string, AssignsAndAppends) {
    tavU8string s;
    s = "a";
    EXPECT_EQ(str(s), "a");
    s = std::string("b");
    EXPECT_EQ(str(s), "b");
    s = tav_utf8("c");
    EXPECT_EQ(str(s), "c");
    s = tav_istr("d");
    EXPECT_EQ(str(s), "d");
    tavU8string const other("e");
    s = other;
    s << "f" << std::string("g") << tav_utf8("h") << tavU8string("i") << tav_istr("j");
    s += 'k';
    s += tav_utf8("l");
    s += "m";
    EXPECT_EQ(str(s), "efghijklm");
    EXPECT_EQ(str(other + tavU8string("x")), "ex");
    EXPECT_EQ(str(other + "y"), "ey");
    EXPECT_EQ(s.size(), 9u);
    EXPECT_FALSE(s.empty());
    EXPECT_TRUE(tavU8string().empty());
}

TEST(TavU8string, ComparesByUnsignedBytes) {
    tavU8string const a("a");
    tavU8string const high("\x80");
    EXPECT_TRUE(a == tavU8string("a"));
    EXPECT_TRUE(a != high);
    EXPECT_TRUE(a < high);
    EXPECT_TRUE(a <= high);
    EXPECT_TRUE(high > a);
    EXPECT_TRUE(high >= a);
    EXPECT_TRUE(a == "a");
    EXPECT_FALSE(a == high);
    EXPECT_FALSE(a != tavU8string("a"));
    EXPECT_FALSE(high < a);
    EXPECT_FALSE(high <= a);
    EXPECT_FALSE(a > high);
    EXPECT_FALSE(a >= high);
    EXPECT_TRUE(a < tavU8string("aa"));
    EXPECT_FALSE(a < a);
    EXPECT_TRUE(a <= a);
    EXPECT_FALSE(a > a);
    EXPECT_TRUE(a >= a);
}

TEST(TavU8string, NullTextIsEmpty) {
    char const * const none = nullptr;
    EXPECT_TRUE(tavU8string(none).empty());
    tavU8string s("a");
    s << none << tav_utf8(nullptr, 5u);
    EXPECT_EQ(str(s + none), "a");
    s = none;
    EXPECT_TRUE(s.empty());
}

TEST(TavU8string, ConvertsToItsView) {
    tavU8string const s("abc");
    tav_utf8 const v = s;
    EXPECT_EQ(v.data(), s.data());
    EXPECT_EQ(v.size(), 3u);
}

TEST(TavWstring, ConstructsAssignsAndAppends) {
    EXPECT_EQ(str(tavWstring()), L"");
    EXPECT_EQ(str(tavWstring(L"ab")), L"ab");
    EXPECT_EQ(str(tavWstring(L"a\0b", 3)), std::wstring(L"a\0b", 3));
    EXPECT_EQ(str(tavWstring(std::wstring(L"s"))), L"s");
    EXPECT_EQ(str(tavWstring(tav_iwstr(L"abc", 2u))), L"ab");
    tavWstring s;
    s = L"a";
    EXPECT_EQ(str(s), L"a");
    s = std::wstring(L"b");
    EXPECT_EQ(str(s), L"b");
    s = tav_iwstr(L"c");
    EXPECT_EQ(str(s), L"c");
    tavWstring const other(L"d");
    s = other;
    s << L"e" << std::wstring(L"f") << tav_iwstr(L"g") << tavWstring(L"h");
    s += L'i';
    s += tav_iwstr(L"j");
    EXPECT_EQ(str(s), L"defghij");
    EXPECT_EQ(str(other + tavWstring(L"x")), L"dx");
    EXPECT_EQ(str(other + L"y"), L"dy");
    EXPECT_EQ(s.size(), 7u);
    EXPECT_TRUE(tavWstring().empty());
    EXPECT_FALSE(s.empty());
}

TEST(TavWstring, NullTextIsEmpty) {
    wchar_t const * const none = nullptr;
    EXPECT_TRUE(tavWstring(none).empty());
    tavWstring s(L"a");
    s << none << tav_iwstr(nullptr, 5u);
    EXPECT_EQ(str(s + none), L"a");
    s = none;
    EXPECT_TRUE(s.empty());
}

TEST(TavWstring, ComparesAndConverts) {
    tavWstring const a(L"a");
    tavWstring const b(L"b");
    EXPECT_TRUE(a == tavWstring(L"a"));
    EXPECT_TRUE(a != b);
    EXPECT_TRUE(a < b);
    EXPECT_TRUE(a <= b);
    EXPECT_TRUE(b > a);
    EXPECT_TRUE(b >= a);
    EXPECT_FALSE(a == b);
    EXPECT_FALSE(a != tavWstring(L"a"));
    EXPECT_FALSE(b < a);
    EXPECT_FALSE(b <= a);
    EXPECT_FALSE(a > b);
    EXPECT_FALSE(a >= b);
    EXPECT_TRUE(a < tavWstring(L"aa"));
    EXPECT_FALSE(a < a);
    EXPECT_TRUE(a <= a);
    EXPECT_FALSE(a > a);
    EXPECT_TRUE(a >= a);
    tav_iwstr const v = a;
    EXPECT_EQ(v.data(), a.data());
    EXPECT_EQ(v.size(), 1u);
    std::wstring out(L"old");
    a >> out;
    EXPECT_EQ(out, L"a");
}

TEST(StringChar, ConvertsBothWays) {
    tavChar const none;
    tavChar const c = 'x';
    EXPECT_EQ(static_cast<char>(none), '\0');
    EXPECT_EQ(static_cast<char>(c), 'x');
    tavWchar const wnone;
    tavWchar const w = L'\u20AC';
    EXPECT_EQ(L'\0', static_cast<wchar_t>(wnone));
    EXPECT_EQ(L'\u20AC', static_cast<wchar_t>(w));
}

TEST(StringTextStreams, WriteBytesAsTheyAre) {
    std::ostringstream out;
    out.width(10);
    out << tavString("a\0b", 3) << tavU8string("\xFF") << tavChar('c');
    EXPECT_EQ(out.str(), std::string("a\0b\xFF"
                                     "c",
                                     5));
}

TEST(StringTextStreams, EncodeWideText) {
    std::ostringstream out;
    out << tavWstring(L"\u00E9") << tavWchar(L'\u20AC') << tavWchar(static_cast<wchar_t>(0x1F600));
    EXPECT_EQ(out.str(), "\xC3\xA9\xE2\x82\xAC\xED\xA0\xBD\xED\xB8\x80");
}

TEST(StringTextParsing, MakesValuesOfText) {
    std::string const text("\xC3\xA9z\0q", 5);
    tavString s("old");
    text >> s;
    EXPECT_EQ(str(s), text);
    tavU8string u("old");
    text >> u;
    EXPECT_EQ(str(u), text);
    tavWstring w(L"old");
    text >> w;
    EXPECT_EQ(str(w), L"\u00E9z");
    tavChar c = 'o';
    text >> c;
    EXPECT_EQ(static_cast<char>(c), '\xC3');
    tavWchar wc = L'o';
    text >> wc;
    EXPECT_EQ(L'\u00E9', static_cast<wchar_t>(wc));
}

TEST(StringTextParsing, EmptyTextGivesZero) {
    std::string const text;
    tavString s("old");
    text >> s;
    EXPECT_TRUE(s.empty());
    tavWstring w(L"old");
    text >> w;
    EXPECT_TRUE(w.empty());
    tavChar c = 'o';
    text >> c;
    EXPECT_EQ(static_cast<char>(c), '\0');
    tavWchar wc = L'o';
    text >> wc;
    EXPECT_EQ(L'\0', static_cast<wchar_t>(wc));
}
