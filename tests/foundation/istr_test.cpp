#include "tav/vinta/vinta_basetypes_text.h"

#include <gtest/gtest.h>

#include <climits>
#include <sstream>
#include <string>
#include <type_traits>

namespace {

std::string textOf(tav_istr v) {
    return v;
}

/// Its size says five bytes, its pointer says none.
tav_istr hollow() {
    return tav_istr(static_cast<char const *>(nullptr), 5u);
}

tav_istr bytes(char const * data, unsigned size) {
    return tav_istr(data, size);
}

} // namespace

TEST(TavIstr, TravelsInTwoWords) {
    EXPECT_EQ(sizeof(tav_istr), 16u);
    EXPECT_TRUE(std::is_trivially_copyable<tav_istr>::value);
}

TEST(TavIstr, DefaultIsNullAndEmpty) {
    tav_istr const v;
    EXPECT_EQ(v.data(), nullptr);
    EXPECT_EQ(v.begin(), nullptr);
    EXPECT_EQ(v.end(), nullptr);
    EXPECT_EQ(v.size(), 0u);
    EXPECT_EQ(v.left(), 0u);
    EXPECT_TRUE(v.empty());
    EXPECT_TRUE(v.eof());
    EXPECT_TRUE(!v);
    EXPECT_EQ(static_cast<void *>(v), nullptr);
}

TEST(TavIstr, NullTextGivesNullAndZero) {
    char const * const none = nullptr;
    unsigned char const * const noneUnsigned = nullptr;
    EXPECT_EQ(tav_istr(none).data(), nullptr);
    EXPECT_EQ(tav_istr(none).size(), 0u);
    EXPECT_EQ(tav_istr(noneUnsigned).data(), nullptr);
    EXPECT_EQ(tav_istr(noneUnsigned).size(), 0u);
    EXPECT_EQ(tav_istr(nullptr).data(), nullptr);
    EXPECT_EQ(tav_istr(nullptr).size(), 0u);
}

TEST(TavIstr, TextIsMeasuredToItsNul) {
    char const text[] = "ab\0cd";
    EXPECT_EQ(tav_istr(text).data(), text);
    EXPECT_EQ(tav_istr(text).size(), 2u);
    unsigned char const raw[] = {'x', 'y', 'z', 0};
    EXPECT_EQ(textOf(tav_istr(raw)), "xyz");
}

TEST(TavIstr, PointerAndCountAreTakenUnchanged) {
    char const text[] = "ab\0cd";
    EXPECT_EQ(tav_istr(text, 5u).size(), 5u);
    EXPECT_EQ(textOf(tav_istr(text, 5u)), std::string(text, 5));
    unsigned char const raw[] = {1, 2, 3};
    EXPECT_EQ(tav_istr(raw, 2u).size(), 2u);
    void const * const any = raw;
    EXPECT_EQ(tav_istr(any, 3u).data(), reinterpret_cast<char const *>(raw));
    EXPECT_EQ(hollow().size(), 5u);
    EXPECT_EQ(hollow().left(), 5u);
}

TEST(TavIstr, CountsOfEveryIntegerTypeCompile) {
    char const text[] = "abcdef";
    unsigned char const * const raw = reinterpret_cast<unsigned char const *>(text);
    void const * const any = text;
    EXPECT_EQ(tav_istr(text, 0).size(), 0u);
    EXPECT_EQ(tav_istr(text, 1).size(), 1u);
    EXPECT_EQ(tav_istr(text, 1l).size(), 1u);
    EXPECT_EQ(tav_istr(text, 1ul).size(), 1u);
    EXPECT_EQ(tav_istr(text, std::size_t{2}).size(), 2u);
    EXPECT_EQ(tav_istr(text, static_cast<unsigned short>(2)).size(), 2u);
    EXPECT_EQ(tav_istr(text, 2ll).size(), 2u);
    EXPECT_EQ(tav_istr(raw, 0).size(), 0u);
    EXPECT_EQ(tav_istr(raw, std::size_t{3}).size(), 3u);
    EXPECT_EQ(tav_istr(any, 0).size(), 0u);
    EXPECT_EQ(tav_istr(any, 4l).size(), 4u);
    EXPECT_EQ(tav_istr(nullptr, 0).size(), 0u);
    EXPECT_EQ(tav_istr(nullptr, 0u).data(), nullptr);
    EXPECT_EQ(tav_istr(nullptr, nullptr).data(), nullptr);
}

TEST(TavIstr, TwoPointersOrTwoViewsGiveTheDistanceOfTheirStarts) {
    char const text[] = "abcdef";
    EXPECT_EQ(textOf(tav_istr(text + 1, text + 4)), "bcd");
    EXPECT_EQ(textOf(tav_istr(tav_istr(text), tav_istr(text).find('d'))), "abc");
    unsigned char const raw[] = {'q', 0, 'r'};
    EXPECT_EQ(tav_istr(raw, raw + 3).size(), 3u);
}

TEST(TavIstr, StringIsViewedInPlace) {
    std::string const text("a\0b", 3);
    tav_istr const v(text);
    EXPECT_EQ(v.data(), text.data());
    EXPECT_EQ(v.size(), 3u);
}

TEST(TavIstr, EmptyTestsPointerOrSize) {
    tav_istr const noSize("abc", 0u);
    EXPECT_TRUE(noSize.empty());
    EXPECT_TRUE(noSize.eof());
    EXPECT_TRUE(!noSize);
    EXPECT_EQ(static_cast<void *>(noSize), nullptr);
    EXPECT_TRUE(hollow().empty());
    EXPECT_TRUE(hollow().eof());
    EXPECT_TRUE(!hollow());
    EXPECT_EQ(static_cast<void *>(hollow()), nullptr);
    tav_istr const full("abc");
    EXPECT_FALSE(full.empty());
    EXPECT_FALSE(full.eof());
    EXPECT_FALSE(!full);
    EXPECT_EQ(static_cast<void *>(full), reinterpret_cast<void *>(1));
    EXPECT_TRUE(full ? true : false);
}

TEST(TavIstr, HollowViewNeverTouchesBytes) {
    tav_istr const v = hollow();
    EXPECT_EQ(v[0], '\0');
    EXPECT_EQ(*v, '\0');
    EXPECT_EQ(v.firstChar(), '\0');
    EXPECT_EQ(v.lastChar(), '\0');
    EXPECT_EQ(v.begin(), v.end());
    EXPECT_EQ(textOf(v), "");
    EXPECT_TRUE(v.find('a').empty());
    EXPECT_TRUE(v.find_one_of("abc").empty());
    EXPECT_EQ(v.find_last('a').size(), 5u);
    EXPECT_EQ(v.find_last_one_of("abc").size(), 5u);
    EXPECT_EQ(v.rfind('a'), 0xFFFFFFFFu);
    EXPECT_TRUE(v.skipBlank().empty());
    EXPECT_TRUE(v.trimRight().empty());
    EXPECT_TRUE(v.trim().empty());
    EXPECT_TRUE(v.trim('a').empty());
    EXPECT_FALSE(v.beginWith("a"));
    EXPECT_FALSE(v.endWith("a"));
    EXPECT_TRUE(v.beginWith(""));
    EXPECT_TRUE(v.endWith(""));
    EXPECT_TRUE(tav_istr("abc").beginWith(v));
    EXPECT_TRUE(tav_istr("abc").endWith(v));
    EXPECT_TRUE(tav_istr("abc").find_one_of(v).empty());
    std::ostringstream out;
    out << v;
    EXPECT_EQ(out.str(), "");
}

TEST(TavIstr, HollowViewStaysNullWhenCutOrMoved) {
    EXPECT_EQ(hollow().leftstr(2).data(), nullptr);
    EXPECT_EQ(hollow().leftstr(2).size(), 2u);
    EXPECT_EQ(hollow().rightstr(2).data(), nullptr);
    EXPECT_EQ(hollow().rightstr(9).data(), nullptr);
    EXPECT_EQ(hollow().substr(1, 2).data(), nullptr);
    EXPECT_EQ(hollow().removeLeft(2).data(), nullptr);
    EXPECT_EQ(hollow().removeLeft(2).size(), 3u);
    EXPECT_EQ(hollow().removeRight(2).data(), nullptr);
    EXPECT_EQ(hollow().find('x').data(), nullptr);
    EXPECT_EQ((hollow() + 2).data(), nullptr);
    EXPECT_EQ((hollow() + 2).size(), 3u);
    EXPECT_EQ((hollow() - 1).data(), nullptr);
    tav_istr v = hollow();
    EXPECT_EQ(v.readByte(), 0);
    EXPECT_EQ(v.data(), nullptr);
    EXPECT_EQ(v.next(2).data(), nullptr);
    EXPECT_EQ(v.size(), 2u);
    EXPECT_EQ(v.readBigEndianUint32(), 0u);
    EXPECT_EQ(v.data(), nullptr);
    EXPECT_EQ(hollow().readDigits(3), 0);
}

TEST(TavIstr, IndexBehindTheSizeReadsZero) {
    tav_istr const v("abc", 2u);
    EXPECT_EQ(v[0], 'a');
    EXPECT_EQ(v[1], 'b');
    EXPECT_EQ(v[2], '\0');
    EXPECT_EQ(v[0xFFFFFFFFu], '\0');
}

TEST(TavIstr, FirstAndLastCharOfEmptyAreZero) {
    EXPECT_EQ(*tav_istr("abc", 0u), '\0');
    EXPECT_EQ(tav_istr("abc", 0u).firstChar(), '\0');
    EXPECT_EQ(tav_istr("abc", 0u).lastChar(), '\0');
    EXPECT_EQ(*tav_istr("abc"), 'a');
    EXPECT_EQ(tav_istr("abc").firstChar(), 'a');
    EXPECT_EQ(tav_istr("abc").lastChar(), 'c');
}

TEST(TavIstr, CompareIsUnsignedAndGivesMinusOneZeroOne) {
    EXPECT_EQ(tav_istr("a").compare("z"), -1);
    EXPECT_EQ(tav_istr("z").compare("a"), 1);
    EXPECT_EQ(tav_istr("abc").compare("abc"), 0);
    EXPECT_EQ(tav_istr("\x80").compare("a"), 1);
    EXPECT_EQ(tav_istr("a").compare("\xFF"), -1);
}

TEST(TavIstr, CompareBreaksTiesByLength) {
    EXPECT_EQ(tav_istr("ab").compare("abc"), -1);
    EXPECT_EQ(tav_istr("abc").compare("ab"), 1);
    EXPECT_EQ(tav_istr("").compare("a"), -1);
    EXPECT_EQ(tav_istr().compare("a"), -1);
    EXPECT_EQ(tav_istr("a").compare(tav_istr()), 1);
}

TEST(TavIstr, CompareGoesOnBehindANul) {
    EXPECT_EQ(bytes("a\0b", 3).compare(bytes("a\0c", 3)), -1);
    EXPECT_EQ(bytes("a\0b", 3).compare(bytes("a\0b", 3)), 0);
}

TEST(TavIstr, EmptyViewsAreEqualWhateverTheirPointers) {
    EXPECT_EQ(tav_istr().compare(tav_istr("x", 0u)), 0);
    EXPECT_EQ(tav_istr("x", 0u).compare(tav_istr()), 0);
    EXPECT_EQ(hollow().compare(tav_istr()), 0);
    EXPECT_EQ(hollow().compare(tav_istr("")), 0);
    EXPECT_EQ(hollow().compare("a"), -1);
    EXPECT_TRUE(hollow() == tav_istr());
    EXPECT_TRUE(tav_istr() == tav_istr("x", 0u));
}

TEST(TavIstr, AllSixComparisonsTakeTwoViews) {
    tav_istr const a("a");
    tav_istr const b("b");
    EXPECT_TRUE(a == tav_istr("a"));
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(a != b);
    EXPECT_FALSE(a != tav_istr("a"));
    EXPECT_TRUE(a < b);
    EXPECT_FALSE(b < a);
    EXPECT_FALSE(a < a);
    EXPECT_TRUE(a <= b);
    EXPECT_TRUE(a <= a);
    EXPECT_FALSE(b <= a);
    EXPECT_TRUE(b > a);
    EXPECT_FALSE(a > a);
    EXPECT_TRUE(b >= a);
    EXPECT_TRUE(a >= a);
    EXPECT_FALSE(a >= b);
}

TEST(TavIstr, AllSixComparisonsTakeALiteralOnEitherSide) {
    std::string const holder("ab"); // another address than any literal's
    tav_istr const v(holder);
    EXPECT_TRUE(v == "ab");
    EXPECT_TRUE("ab" == v);
    EXPECT_FALSE(v != "ab");
    EXPECT_FALSE("ab" != v);
    EXPECT_TRUE(v != "abc");
    EXPECT_TRUE("abc" != v);
    EXPECT_TRUE(v < "b");
    EXPECT_TRUE("a" < v);
    EXPECT_FALSE(v < "ab");
    EXPECT_TRUE(v <= "ab");
    EXPECT_TRUE("ab" <= v);
    EXPECT_FALSE("b" <= v);
    EXPECT_TRUE(v > "a");
    EXPECT_TRUE("b" > v);
    EXPECT_FALSE(v > "ab");
    EXPECT_TRUE(v >= "ab");
    EXPECT_TRUE("ab" >= v);
    EXPECT_FALSE("a" >= v);
}

TEST(TavIstr, ALiteralComparesUnsignedToo) {
    tav_istr const v("\x80");
    EXPECT_TRUE(v > "a");
    EXPECT_FALSE(v <= "a");
    EXPECT_FALSE("a" > v);
    EXPECT_FALSE("a" >= v);
    EXPECT_FALSE(v < "a");
    EXPECT_FALSE(tav_istr("a") >= "b");
    EXPECT_FALSE("b" < tav_istr("a"));
    EXPECT_FALSE("\x80" < v);
    EXPECT_FALSE("\x80" > v);
}

TEST(TavIstr, ComparisonsTakeStringsPointersAndNull) {
    std::string const text("ab");
    char writable[] = "ab";
    tav_istr const v("ab");
    EXPECT_TRUE(v == text);
    EXPECT_TRUE(text == v);
    EXPECT_TRUE(v < std::string("b"));
    EXPECT_TRUE(v == writable);
    EXPECT_FALSE(v == nullptr);
    EXPECT_TRUE(tav_istr() == nullptr);
    EXPECT_TRUE(tav_istr("") == 0);
    EXPECT_TRUE(v != nullptr);
}

TEST(TavIstr, BeginWithNeedsAllOfTheText) {
    tav_istr const v("abc");
    EXPECT_TRUE(v.beginWith("ab"));
    EXPECT_TRUE(v.beginWith("abc"));
    EXPECT_FALSE(v.beginWith("abcd"));
    EXPECT_FALSE(v.beginWith("b"));
    EXPECT_TRUE(v.beginWith(""));
    EXPECT_TRUE(v.match("ab"));
    EXPECT_FALSE(v.match("abcd"));
    EXPECT_FALSE(v.match("abd"));
    EXPECT_TRUE(tav_istr().beginWith(""));
    EXPECT_FALSE(tav_istr().beginWith("a"));
}

TEST(TavIstr, EndWithNeedsAllOfTheText) {
    tav_istr const v("abc");
    EXPECT_TRUE(v.endWith("bc"));
    EXPECT_TRUE(v.endWith("abc"));
    EXPECT_FALSE(v.endWith("zabc"));
    EXPECT_FALSE(v.endWith("b"));
    EXPECT_TRUE(v.endWith(""));
    EXPECT_TRUE(tav_istr().endWith(""));
}

TEST(TavIstr, FindGivesTheRestOrAnEmptyViewAtTheEnd) {
    tav_istr const v("abcb");
    EXPECT_EQ(textOf(v.find('b')), "bcb");
    EXPECT_EQ(v.find('x').data(), v.end());
    EXPECT_EQ(v.find('x').size(), 0u);
    EXPECT_EQ(bytes("a\0b", 3).find('\0').size(), 2u);
    EXPECT_EQ(bytes("a\x80", 2).find('\x80').size(), 1u);
}

TEST(TavIstr, FindOneOfGivesTheRestOrAnEmptyViewAtTheEnd) {
    tav_istr const v("key=val;x");
    EXPECT_EQ(textOf(v.find_one_of(";=")), "=val;x");
    EXPECT_EQ(textOf(v.find_one_of("=k")), "key=val;x");
    EXPECT_EQ(textOf(v.find_one_of(";")), ";x");
    EXPECT_EQ(v.find_one_of("?!").data(), v.end());
    EXPECT_TRUE(v.find_one_of("?!").empty());
    EXPECT_TRUE(v.find_one_of("").empty());
    EXPECT_EQ(bytes("ab\xF0q", 4).find_one_of("\xF0\x41").size(), 2u);
}

TEST(TavIstr, FindLastOfAbsentByteIsTheWholeView) {
    tav_istr const v("ab");
    EXPECT_EQ(v.find_last('x').data(), v.data());
    EXPECT_EQ(v.find_last('x').size(), 2u);
    EXPECT_EQ(v.rfind('x'), 0xFFFFFFFFu);
    EXPECT_EQ(v.rfind('a'), 0u);
    EXPECT_EQ(textOf(tav_istr("a.b.c").find_last('.')), ".c");
    EXPECT_EQ(tav_istr("a.b.c").rfind('.'), 3u);
    EXPECT_EQ(tav_istr().rfind('a'), 0xFFFFFFFFu);
}

TEST(TavIstr, FindLastOneOfNeverLooksAtTheFirstByte) {
    EXPECT_EQ(textOf(tav_istr("a/b\\c").find_last_one_of("/\\")), "\\c");
    tav_istr const v("/bc");
    EXPECT_EQ(v.find_last_one_of("/").data(), v.data());
    EXPECT_EQ(v.find_last_one_of("/").size(), 3u);
    EXPECT_EQ(v.find_last_one_of("x").size(), 3u);
    EXPECT_EQ(tav_istr("a").find_last_one_of("a").size(), 1u);
    EXPECT_EQ(textOf(tav_istr("ab").find_last_one_of("b")), "b");
}

TEST(TavIstr, FindLastOneOfDoesNotReadOnePastTheEnd) {
    tav_istr const v("abc/", 3u);
    EXPECT_EQ(v.find_last_one_of("/").data(), v.data());
    std::string const exact(64, 'q'); // a sanitizer sees a step outside
    EXPECT_EQ(tav_istr(exact).find_last_one_of("z").size(), 64u);
}

TEST(TavIstr, LeftstrIsClamped) {
    tav_istr const v("abc");
    EXPECT_EQ(textOf(v.leftstr(2)), "ab");
    EXPECT_EQ(textOf(v.leftstr(0)), "");
    EXPECT_EQ(textOf(v.leftstr(5)), "abc");
    EXPECT_EQ(textOf(v.leftstr(0xFFFFFFFFu)), "abc");
}

TEST(TavIstr, RightstrBeyondTheSizeIsEmptyAtTheEnd) {
    tav_istr const v("abc");
    EXPECT_EQ(textOf(v.rightstr(2)), "bc");
    EXPECT_EQ(textOf(v.rightstr(3)), "abc");
    EXPECT_EQ(v.rightstr(5).size(), 0u);
    EXPECT_EQ(v.rightstr(5).data(), v.end());
    EXPECT_EQ(v.rightstr(0xFFFFFFFFu).size(), 0u);
}

TEST(TavIstr, RemoveRightBeyondTheSizeIsTheWhole) {
    tav_istr const v("abc");
    EXPECT_EQ(textOf(v.removeRight(1)), "ab");
    EXPECT_EQ(textOf(v.removeRight(3)), "");
    EXPECT_EQ(textOf(v.removeRight(5)), "abc");
    EXPECT_EQ(textOf(v.removeRight(0xFFFFFFFFu)), "abc");
}

TEST(TavIstr, RemoveLeftBeyondTheSizeIsEmpty) {
    tav_istr const v("abc");
    EXPECT_EQ(textOf(v.removeLeft(1)), "bc");
    EXPECT_EQ(textOf(v.removeLeft(5)), "");
    EXPECT_EQ(v.removeLeft(5).data(), v.end());
    EXPECT_EQ(v.removeLeft(0xFFFFFFFFu).size(), 0u);
}

TEST(TavIstr, SubstrClampsPositionThenCount) {
    tav_istr const v("abcdef");
    EXPECT_EQ(textOf(v.substr(1, 3)), "bcd");
    EXPECT_EQ(textOf(v.substr(4, 9)), "ef");
    EXPECT_EQ(textOf(v.substr(9, 1)), "");
    EXPECT_EQ(textOf(v.substr(0xFFFFFFFFu, 0xFFFFFFFFu)), "");
    EXPECT_EQ(textOf(v.substr(0, 0xFFFFFFFFu)), "abcdef");
}

TEST(TavIstr, LeftSideLosesSixKindsOfBlank) {
    tav_istr const v(" \t\n\v\f\rx ");
    EXPECT_EQ(textOf(v.skipBlank()), "x ");
    EXPECT_EQ(textOf(v.trimLeft()), "x ");
    EXPECT_EQ(v.size(), 8u);
    EXPECT_EQ(textOf(tav_istr("\x08x").skipBlank()), "\x08x");
    EXPECT_EQ(textOf(tav_istr("\x0Ex").skipBlank()), "\x0Ex");
    EXPECT_EQ(textOf(tav_istr("\xA0x").skipBlank()), "\xA0x");
}

TEST(TavIstr, SkipBlankStaysInsideTheView) {
    tav_istr const v("  x", 2u);
    EXPECT_EQ(v.skipBlank().size(), 0u);
    EXPECT_EQ(v.skipBlank().data(), v.end());
}

TEST(TavIstr, RightSideLosesFourKindsOfBlank) {
    EXPECT_EQ(textOf(tav_istr("x \t\r\n").trimRight()), "x");
    EXPECT_EQ(textOf(tav_istr("x\v").trimRight()), "x\v");
    EXPECT_EQ(textOf(tav_istr("x\f ").trimRight()), "x\f");
    EXPECT_EQ(textOf(tav_istr(" \n").trimRight()), "");
}

TEST(TavIstr, TrimDoesTheLeftThenTheRight) {
    EXPECT_EQ(textOf(tav_istr("\v x y\v \n").trim()), "x y\v");
    EXPECT_EQ(textOf(tav_istr("   ").trim()), "");
    EXPECT_EQ(textOf(tav_istr().trim()), "");
}

TEST(TavIstr, TrimOfACharacterRemovesAtMostOneOnEachSide) {
    EXPECT_EQ(textOf(tav_istr("\"a\"").trim('"')), "a");
    EXPECT_EQ(textOf(tav_istr("\"\"a\"\"").trim('"')), "\"a\"");
    EXPECT_EQ(textOf(tav_istr("\"a").trim('"')), "a");
    EXPECT_EQ(textOf(tav_istr("a\"").trim('"')), "a");
    EXPECT_EQ(textOf(tav_istr("\"\"").trim('"')), "");
    EXPECT_EQ(textOf(tav_istr("a").trim('"')), "a");
}

TEST(TavIstr, TrimOfASingleQuoteIsEmpty) {
    EXPECT_EQ(tav_istr("\"").trim('"').size(), 0u);
    EXPECT_EQ(tav_istr("").trim('"').size(), 0u);
}

TEST(TavIstr, AdvanceIsClampedForward) {
    tav_istr v("abc");
    v.advance(2);
    EXPECT_EQ(textOf(v), "c");
    v.advance(7u);
    EXPECT_EQ(v.size(), 0u);
    EXPECT_EQ(v.data(), tav_istr("abc").end());
}

TEST(TavIstr, AdvanceByZeroOrLessIsUnchecked) {
    char const text[] = "abc";
    tav_istr v(text + 2, 1u);
    v.advance(-2);
    EXPECT_EQ(v.data(), text);
    EXPECT_EQ(v.size(), 3u);
    v.advance(0);
    EXPECT_EQ(v.size(), 3u);
    tav_istr w(text + 1, 2u);
    w.advance(0xFFFFFFFFu);
    EXPECT_EQ(w.data(), text);
    EXPECT_EQ(w.size(), 3u);
}

TEST(TavIstr, MovingTakesCountsOfEveryIntegerType) {
    char const text[] = "abcdefgh";
    tav_istr v(text);
    v.advance(1l);
    v.advance(std::size_t{1});
    v.advance(static_cast<short>(1));
    v += 1;
    v += 1u;
    v += 1l;
    EXPECT_EQ(textOf(v), "gh");
    v -= 1;
    v -= 1u;
    v -= std::size_t{1};
    EXPECT_EQ(textOf(v), "defgh");
    EXPECT_EQ(textOf(v + 1), "efgh");
    EXPECT_EQ(textOf(v + 1u), "efgh");
    EXPECT_EQ(textOf(v + 1l), "efgh");
    EXPECT_EQ(textOf(v + 0), "defgh");
    EXPECT_EQ(textOf(v - 1), "cdefgh");
    EXPECT_EQ(textOf(v - 1u), "cdefgh");
    EXPECT_EQ(textOf(v - std::size_t{2}), "bcdefgh");
    EXPECT_EQ(textOf(v - 0), "defgh");
}

TEST(TavIstr, PlusAndMinusLeaveTheReceiver) {
    char const text[] = "abc";
    tav_istr const v(text + 1, 2u);
    EXPECT_EQ(textOf(v + 1), "c");
    EXPECT_EQ((v + 9).size(), 0u);
    EXPECT_EQ(textOf(v - 1), "abc");
    EXPECT_EQ(textOf(v - -1), "c");
    EXPECT_EQ((v - -9).size(), 0u);
    EXPECT_EQ(textOf(v), "bc");
}

TEST(TavIstr, IncrementStopsAtTheEnd) {
    tav_istr v("ab");
    EXPECT_EQ(textOf(v++), "ab");
    EXPECT_EQ(textOf(v), "b");
    EXPECT_EQ(textOf(++v), "");
    EXPECT_EQ(textOf(++v), "");
    tav_istr w("abc");
    EXPECT_EQ(textOf(++w), "bc");
    EXPECT_EQ(textOf(v++), "");
    EXPECT_EQ(v.size(), 0u);
}

TEST(TavIstr, DecrementStepsBackUnchecked) {
    char const text[] = "abc";
    tav_istr v(text + 2, 1u);
    EXPECT_EQ(textOf(v--), "c");
    EXPECT_EQ(textOf(v), "bc");
    EXPECT_EQ(textOf(--v), "abc");
    EXPECT_EQ(v.data(), text);
}

TEST(TavIstr, NextTakesClampedAndMovesOn) {
    tav_istr v("abcd");
    EXPECT_EQ(textOf(v.next(2)), "ab");
    EXPECT_EQ(textOf(v.readBytes(1)), "c");
    EXPECT_EQ(textOf(v.next(9)), "d");
    EXPECT_EQ(textOf(v.next(1)), "");
    EXPECT_TRUE(v.eof());
}

TEST(TavIstr, NextOfAHugeCountTakesAllAndMovesSigned) {
    char const text[] = "abcd";
    tav_istr v(text + 1, 3u);
    EXPECT_EQ(textOf(v.next(0xFFFFFFFFu)), "bcd");
    EXPECT_EQ(v.data(), text);
    EXPECT_EQ(v.size(), 4u);
    tav_istr w(text + 2, 2u);
    EXPECT_EQ(textOf(w.readBytes(0xFFFFFFFEu)), "cd");
    EXPECT_EQ(w.data(), text);
    tav_istr x(text);
    EXPECT_EQ(textOf(x.next(0x7FFFFFFFu)), "abcd");
    EXPECT_EQ(x.size(), 0u);
}

TEST(TavIstr, ReadByteIsUnsignedAndZeroAtTheEnd) {
    tav_istr v("\xFFz");
    EXPECT_EQ(v.readByte(), 0xFF);
    EXPECT_EQ(v.readByte(), 'z');
    EXPECT_EQ(v.readByte(), 0);
    EXPECT_EQ(v.size(), 0u);
}

TEST(TavIstr, BigEndianReadsTakeTheMostSignificantByteFirst) {
    char const data[] = "\x81\x02\x03\x04\x05\x06\x07\x08\x09";
    tav_istr v = bytes(data, 9);
    EXPECT_EQ(v.readBigEndianUint16(), 0x8102);
    EXPECT_EQ(v.size(), 7u);
    v = bytes(data, 9);
    EXPECT_EQ(v.readBigEndianInt16(), static_cast<short>(0x8102));
    v = bytes(data, 9);
    EXPECT_EQ(v.readBigEndianUint32(), 0x81020304u);
    EXPECT_EQ(v.size(), 5u);
    v = bytes(data, 9);
    EXPECT_EQ(v.readBigEndianInt32(), static_cast<int>(0x81020304u));
    v = bytes(data, 9);
    EXPECT_EQ(v.readBigEndianUint64(), 0x8102030405060708ull);
    EXPECT_EQ(v.size(), 1u);
    v = bytes(data, 9);
    EXPECT_EQ(v.readBigEndianInt64(), static_cast<long long>(0x8102030405060708ull));
    EXPECT_EQ(v.readByte(), 9);
}

TEST(TavIstr, BigEndianReadsCountMissingBytesAsZero) {
    tav_istr v("\x12");
    EXPECT_EQ(v.readBigEndianUint16(), 0x1200);
    EXPECT_TRUE(v.eof());
    EXPECT_EQ(v.readBigEndianUint16(), 0);
    unsigned long long const whole = 0x1122334455667788ull;
    char const data[] = "\x11\x22\x33\x44\x55\x66\x77\x88";
    for (unsigned n = 0; n <= 8; ++n) {
        unsigned long long const kept = n == 0 ? 0 : whole & (~0ull << (64 - 8 * n));
        std::string const exact(data, n); // a sanitizer sees a step outside
        tav_istr w(exact);
        EXPECT_EQ(w.readBigEndianUint64(), kept) << n;
        EXPECT_EQ(w.size(), 0u) << n;
        tav_istr x(exact);
        EXPECT_EQ(x.readBigEndianUint32(), static_cast<unsigned>(kept >> 32)) << n;
        EXPECT_EQ(x.size(), n > 4 ? n - 4 : 0u) << n;
        tav_istr y(exact);
        EXPECT_EQ(y.readBigEndianInt64(), static_cast<long long>(kept)) << n;
        tav_istr z(exact);
        EXPECT_EQ(z.readBigEndianInt32(), static_cast<int>(kept >> 32)) << n;
        EXPECT_EQ(z.size(), n > 4 ? n - 4 : 0u) << n;
        tav_istr s(exact);
        EXPECT_EQ(s.readBigEndianInt16(), static_cast<short>(kept >> 48)) << n;
        EXPECT_EQ(s.size(), n > 2 ? n - 2 : 0u) << n;
    }
}

TEST(TavIstr, ReadDigitsSkipsWhatIsNoDigit) {
    tav_istr v("ab12cd345");
    EXPECT_EQ(v.readDigits(4), 12);
    EXPECT_EQ(textOf(v), "cd345");
    EXPECT_EQ(v.readDigits(2), 34);
    EXPECT_EQ(textOf(v), "5");
    EXPECT_EQ(v.readDigits(4), 5);
    EXPECT_TRUE(v.eof());
    EXPECT_EQ(v.readDigits(4), 0);
}

TEST(TavIstr, ReadDigitsWithoutAnyConsumesAll) {
    tav_istr v("abc");
    EXPECT_EQ(v.readDigits(2), 0);
    EXPECT_TRUE(v.eof());
}

TEST(TavIstr, ReadDigitsOfNoDigitsConsumesTheSkipOnly) {
    tav_istr v("ab12");
    EXPECT_EQ(v.readDigits(0), 0);
    EXPECT_EQ(textOf(v), "12");
    EXPECT_EQ(v.readDigits(-1), 0);
    EXPECT_EQ(textOf(v), "12");
}

TEST(TavIstr, ReadDigitsStaysInsideTheView) {
    tav_istr v("123", 2u);
    EXPECT_EQ(v.readDigits(9), 12);
    EXPECT_EQ(v.size(), 0u);
    tav_istr w("ab1", 2u);
    EXPECT_EQ(w.readDigits(9), 0);
    EXPECT_EQ(w.size(), 0u);
}

TEST(TavIstr, ReadDigitsWraps) {
    tav_istr v("4294967297");
    EXPECT_EQ(v.readDigits(10), 1);
    tav_istr w("2147483648");
    EXPECT_EQ(w.readDigits(20), INT_MIN);
    tav_istr x("9\xB2");
    EXPECT_EQ(x.readDigits(9), 9);
    EXPECT_EQ(x.size(), 1u);
}

TEST(TavIstr, ConvertsToAString) {
    std::string const byInit = tav_istr("ab");
    std::string const byCast(tav_istr("cd"));
    std::string byAssignment;
    byAssignment = tav_istr("ef");
    EXPECT_EQ(byInit, "ab");
    EXPECT_EQ(byCast, "cd");
    EXPECT_EQ(byAssignment, "ef");
    EXPECT_EQ(static_cast<std::string>(bytes("a\0b", 3)).size(), 3u);
}

TEST(TavIstr, StreamsItsBytesWithoutRegardToTheWidth) {
    std::ostringstream out;
    out.width(10);
    out << bytes("a\0b", 3);
    EXPECT_EQ(out.str(), std::string("a\0b", 3));
}

TEST(TavIstr, IteratesOverItsBytes) {
    std::string collected;
    for (char const c : tav_istr("abc")) {
        collected += c;
    }
    EXPECT_EQ(collected, "abc");
    for (char const c : hollow()) {
        collected += c;
    }
    EXPECT_EQ(collected, "abc");
}
