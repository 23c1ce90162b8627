#include "tav/vinta/vinta_basetypes_failures.h"

#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>

namespace {

template <class T>
std::string printed(T const & v) {
    std::ostringstream out;
    out << v;
    return out.str();
}

std::string bytes(std::initializer_list<int> values) {
    std::string out;
    for (int const v : values) {
        out += static_cast<char>(v);
    }
    return out;
}

std::string safePrint(std::string const & text) {
    return printed(tav::_Print(text));
}

constexpr long long smallest = std::numeric_limits<long long>::min();
constexpr long long largest = std::numeric_limits<long long>::max();

TEST(PrintingAsHex, PadsToItsWidth) {
    EXPECT_EQ(printed(tav::asHex(0xAB, 4, true)), "00AB");
    EXPECT_EQ(printed(tav::asHex(0xAB, 4, false)), "00ab");
    EXPECT_EQ(printed(tav::asHex(0, 2, true)), "00");
}

TEST(PrintingAsHex, NeverCuts) {
    EXPECT_EQ(printed(tav::asHex(0x12345, 4, true)), "12345");
}

TEST(PrintingAsHex, WidthZeroPadsNothing) {
    EXPECT_EQ(printed(tav::asHex(0xA, 0, true)), "A");
}

TEST(PrintingAsHex, WidthZeroKeepsTheStreamsOwnWidth) {
    std::ostringstream out;
    out << std::setw(6) << tav::asHex(0xA, 0, true);
    EXPECT_EQ(out.str(), "00000A");
}

TEST(PrintingAsHex, NegativeNumberHasSixteenDigits) {
    EXPECT_EQ(printed(tav::asHex(-1, 4, true)), "FFFFFFFFFFFFFFFF");
    EXPECT_EQ(printed(tav::asHex(smallest, 0, true)), "8000000000000000");
}

TEST(PrintingAsHex, LeavesTheStreamDecimalWithBlankFill) {
    std::ostringstream out;
    out << std::setfill('*') << std::hex << tav::asHex(1, 2, false) << std::setw(4) << 16;
    EXPECT_EQ(out.str(), "01  16");
    EXPECT_EQ(out.fill(), ' ');
}

TEST(PrintingAsHex, UpperCaseFlagStaysOnTheStream) {
    std::ostringstream out;
    out << tav::asHex(0xA, 0, true) << std::hex << 0xBC << tav::asHex(0xD, 0, false);
    EXPECT_EQ(out.str(), "ABCD");
    EXPECT_NE(out.flags() & std::ios::uppercase, std::ios::fmtflags());
    std::ostringstream lower;
    lower << tav::asHex(0xA, 0, false);
    EXPECT_EQ(lower.flags() & std::ios::uppercase, std::ios::fmtflags());
}

TEST(PrintingPrintAsHex, SpaceStandsBeforeEveryFourthByte) {
    EXPECT_EQ(printed(tav::printAsHex(bytes({1}))), "[01]");
    EXPECT_EQ(printed(tav::printAsHex(bytes({1, 2, 3, 4}))), "[01020304]");
    EXPECT_EQ(printed(tav::printAsHex(bytes({1, 2, 3, 4, 5}))), "[01020304 05]");
    EXPECT_EQ(printed(tav::printAsHex(bytes({1, 2, 3, 4, 5, 6, 7, 8, 9}))), "[01020304 05060708 09]");
}

TEST(PrintingPrintAsHex, DigitsAreUpperCaseAndUnsigned) {
    EXPECT_EQ(printed(tav::printAsHex(bytes({0xAB, 0xFF, 0x80, 0x0F}))), "[ABFF800F]");
}

TEST(PrintingPrintAsHex, EmptyPrintsBrackets) {
    EXPECT_EQ(printed(tav::printAsHex(tav_istr())), "[]");
    EXPECT_EQ(printed(tav::printAsHex(tav_istr(static_cast<char const *>(nullptr), 3u))), "[]");
}

TEST(PrintingPrintAsHex, TakesTwoPointers) {
    char const text[] = "0123";
    EXPECT_EQ(printed(tav::printAsHex(text + 1, text + 3)), "[3132]");
    EXPECT_EQ(printed(tav::printAsHex(text, text)), "[]");
}

TEST(PrintingPrintHexChar, PrintsTwoDigits) {
    EXPECT_EQ(printed(tav::printHexChar('\x0A')), "0A");
    EXPECT_EQ(printed(tav::printHexChar('\xFE')), "FE");
    EXPECT_EQ(printed(tav::printHexChar('\0')), "00");
}

TEST(PrintingPrinters, OnlyAsHexLeavesItsFlagsBehind) {
    std::string const text = bytes({1, 0xAB});
    std::ostringstream out;
    out << std::hex << std::setfill('*') << tav::printAsHex(text) << tav::_Print(text) << tav::_PrintHex(text)
        << tav::printHexChar('a') << tav::HexDump(text);
    EXPECT_EQ(out.flags() & std::ios::uppercase, std::ios::fmtflags());
    EXPECT_EQ(out.flags() & std::ios::basefield, std::ios::hex);
    EXPECT_EQ(out.fill(), '*');
}

TEST(PrintingPrintHex, PrefixesTheDecimalSize) {
    EXPECT_EQ(printed(tav::_PrintHex(bytes({1, 2, 3, 4}))), "[4]~x[01020304]");
    EXPECT_EQ(printed(tav::_PrintHex(bytes({1, 2, 3, 4, 5}))), "[5]~x[01020304 05]");
    EXPECT_EQ(printed(tav::_PrintHex(std::string(12, '\xEE'))), "[12]~x[EEEEEEEE EEEEEEEE EEEEEEEE]");
}

TEST(PrintingPrintHex, SizeIsDecimalOnAHexadecimalStream) {
    std::ostringstream out;
    out << std::hex << tav::_PrintHex(std::string(12, ' '));
    EXPECT_EQ(out.str(), "[12]~x[20202020 20202020 20202020]");
}

TEST(PrintingPrintHex, EmptyPrintsTheSizeAlone) {
    EXPECT_EQ(printed(tav::_PrintHex(tav_istr())), "[0]");
    EXPECT_EQ(printed(tav::_PrintHex(tav_istr(static_cast<char const *>(nullptr), 3u))), "[0]");
}

TEST(PrintingSafePrint, EmptyPrintsNothing) {
    EXPECT_EQ(safePrint(""), "");
    EXPECT_EQ(printed(tav::_Print(tav_istr())), "");
    EXPECT_EQ(printed(tav::_Print(tav_istr(static_cast<char const *>(nullptr), 3u))), "");
}

TEST(PrintingSafePrint, WorkedExample) {
    EXPECT_EQ(safePrint(bytes({'a', '~', 0x0A, 0x01, 0x02, 'b'})), "a~~~n[2]~x[0102]b");
}

TEST(PrintingSafePrint, PlainTextStaysAsItIs) {
    EXPECT_EQ(safePrint(" !az}|"), " !az}|");
}

TEST(PrintingSafePrint, ControlCharactersHaveEscapes) {
    EXPECT_EQ(safePrint("\t\r\n~"), "~t~r~n~~");
}

TEST(PrintingSafePrint, TabInsideARunStaysInIt) {
    EXPECT_EQ(safePrint(bytes({1, '\t', 2, 'x'})), "[3]~x[010902]x");
    EXPECT_EQ(safePrint(bytes({1, '\t'})), "[2]~x[0109]");
}

TEST(PrintingSafePrint, TabAheadOfARunIsAnEscape) {
    EXPECT_EQ(safePrint(bytes({'\t', 1})), "~t[1]~x[01]");
}

TEST(PrintingSafePrint, RunEndsAtLineEnds) {
    EXPECT_EQ(safePrint(bytes({1, '\r', 2, '\n', 3})), "[1]~x[01]~r[1]~x[02]~n[1]~x[03]");
}

TEST(PrintingSafePrint, RunEndsAtPrintableAndTilde) {
    EXPECT_EQ(safePrint(bytes({0, 'x', 0, '~', 0})), "[1]~x[00]x[1]~x[00]~~[1]~x[00]");
}

TEST(PrintingSafePrint, HighBytesAreUnprintable) {
    EXPECT_EQ(safePrint(bytes({0x7F, 0x80, 0xFF})), "[3]~x[7F80FF]");
}

TEST(PrintingSafePrint, RunStaysInsideTheView) {
    EXPECT_EQ(printed(tav::_Print(tav_istr("\x01\x02", 1u))), "[1]~x[01]");
}

char const dumpHead[] = "\n"
                        "     00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f  0123456789abcdef\n"
                        "---- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- --  ----------------\n";

TEST(PrintingHexDump, EmptyHasTheHeadOnly) {
    EXPECT_EQ(printed(tav::HexDump(tav_istr())), dumpHead);
    EXPECT_EQ(printed(tav::HexDump("")), dumpHead);
}

TEST(PrintingHexDump, SeventeenBytesFillTwoLines) {
    std::string const text = std::string("0123456789ABCDE") + bytes({0xAF}) + "x";
    EXPECT_EQ(printed(tav::HexDump(text)),
              dumpHead +
                  std::string("0000 30 31 32 33 34 35 36 37 38 39 41 42 43 44 45 AF  0123456789ABCDE.\n"
                              "0010 78                                               x               \n"));
}

TEST(PrintingHexDump, SixteenBytesFillOneLine) {
    EXPECT_EQ(printed(tav::HexDump(std::string(16, ' '))),
              dumpHead +
                  std::string("0000 20 20 20 20 20 20 20 20 20 20 20 20 20 20 20 20                  \n"));
}

TEST(PrintingHexDump, TextColumnShowsFrom20To7E) {
    std::string const blankColumns(9 * 3, ' ');
    std::string const blankText(9, ' ');
    EXPECT_EQ(printed(tav::HexDump(bytes({0x1F, 0x20, 0x7E, 0x7F, 0x80, 0x00, 0xFF}))),
              dumpHead + ("0000 1F 20 7E 7F 80 00 FF" + blankColumns + "  . ~...." + blankText + "\n"));
}

TEST(PrintingHexDump, OffsetIsUpperCaseAndGrowsBeyondFourDigits) {
    std::string const text = printed(tav::HexDump(std::string(0x10001, 'a')));
    EXPECT_NE(text.find("\n00A0 61 61"), std::string::npos);
    EXPECT_NE(text.find("\nFFF0 61 61"), std::string::npos);
    EXPECT_NE(text.find("\n10000 61   "), std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 17), "a               \n");
}

TEST(PrintingHexDump, OutlivesTheBytes) {
    std::string text = "abc";
    tav::HexDump const dump(text);
    std::string const before = printed(dump);
    text = "xyz";
    EXPECT_EQ(printed(dump), before);
    EXPECT_NE(before.find("61 62 63"), std::string::npos);
}

TEST(PrintingStringger, BuildsATextFromWhateverPrints) {
    tav::stringger text;
    text << 1 << " and " << 'c' << std::string("|") << 2.5 << tav_istr("view") << tav::printHexChar('a');
    EXPECT_EQ(text.str(), "1 and c|2.5view61");
    EXPECT_EQ(text.str(), "1 and c|2.5view61");
}

TEST(PrintingStringger, TakesManipulators) {
    tav::stringger text;
    text << std::hex << 255 << std::endl << std::dec << std::setw(4) << 7 << std::flush;
    EXPECT_EQ(text.str(), "ff\n   7");
}

TEST(PrintingStringger, WorksAsATemporary) {
    EXPECT_EQ((tav::stringger() << 1 << "x").str(), "1x");
}

TEST(PrintingStringger, StartsEmpty) {
    EXPECT_EQ(tav::stringger().str(), "");
}

TEST(PrintingStringger, MovesItsText) {
    tav::stringger first;
    first << "kept";
    tav::stringger second(std::move(first));
    second << " on";
    EXPECT_EQ(second.str(), "kept on");
    tav::stringger third;
    third << "lost";
    third = std::move(second);
    EXPECT_EQ(third.str(), "kept on");
    EXPECT_FALSE(std::is_copy_constructible<tav::stringger>::value);
}

TEST(PrintingRange, EmptyPermitsEveryNumber) {
    tav::Range const none;
    EXPECT_TRUE(none.empty());
    EXPECT_TRUE(none.check(0));
    EXPECT_TRUE(none.check(smallest));
    EXPECT_TRUE(none.check(largest));
    EXPECT_EQ(printed(none), "{ }");
}

TEST(PrintingRange, EmptyPatternSucceeds) {
    tav::Range range;
    EXPECT_TRUE(range.setup(""));
    EXPECT_TRUE(range.setup(tav_istr()));
    EXPECT_TRUE(range.empty());
}

TEST(PrintingRange, SingleNumberHoldsItself) {
    tav::Range const range("5");
    EXPECT_FALSE(range.empty());
    EXPECT_TRUE(range.check(5));
    EXPECT_FALSE(range.check(4));
    EXPECT_FALSE(range.check(6));
    EXPECT_EQ(printed(range), "{ 5:5 }");
}

TEST(PrintingRange, IntervalIncludesBothEnds) {
    tav::Range const range("1..3");
    EXPECT_FALSE(range.check(0));
    EXPECT_TRUE(range.check(1));
    EXPECT_TRUE(range.check(2));
    EXPECT_TRUE(range.check(3));
    EXPECT_FALSE(range.check(4));
}

TEST(PrintingRange, PrintsInOrderOfFirstValue) {
    EXPECT_EQ(printed(tav::Range("9,1,3..5")), "{ 1:1 3:5 9:9 }");
    EXPECT_EQ(printed(tav::Range("7")), "{ 7:7 }");
}

TEST(PrintingRange, ChecksEveryInterval) {
    tav::Range const range("1,3..5,9");
    for (long long v = -1; v <= 11; ++v) {
        EXPECT_EQ(range.check(v), v == 1 || (v >= 3 && v <= 5) || v == 9) << v;
    }
}

TEST(PrintingRange, OverlappingIntervalsAllCount) {
    tav::Range const range("1..10,5..6");
    EXPECT_TRUE(range.check(8));
    EXPECT_TRUE(range.check(5));
    EXPECT_FALSE(range.check(11));
}

TEST(PrintingRange, NegativeNumbersAndTheirIntervals) {
    tav::Range const range("-5..-3");
    EXPECT_EQ(printed(range), "{ -5:-3 }");
    EXPECT_TRUE(range.check(-4));
    EXPECT_FALSE(range.check(-2));
}

TEST(PrintingRange, IntervalFromHighToLowHoldsNothing) {
    tav::Range const range("5..1");
    EXPECT_EQ(printed(range), "{ 5:1 }");
    EXPECT_FALSE(range.empty());
    for (long long v = 0; v <= 6; ++v) {
        EXPECT_FALSE(range.check(v)) << v;
    }
}

TEST(PrintingRange, NumbersAreWhatAStreamExtracts) {
    char const * const texts[] = {"",
                                  "5",
                                  " 5",
                                  "\t\n\v\f\r 5",
                                  "5 ",
                                  "+5",
                                  "-5",
                                  "- 5",
                                  "--5",
                                  "+",
                                  "-",
                                  "x",
                                  "12x34",
                                  "0x10",
                                  "010",
                                  "1 2",
                                  "9223372036854775807",
                                  "9223372036854775808",
                                  "-9223372036854775808",
                                  "-9223372036854775809",
                                  "18446744073709551616",
                                  "99999999999999999999999999x",
                                  "-99999999999999999999999999"};
    for (char const * const text : texts) {
        long long expected = 0;
        std::istringstream(text) >> expected;
        tav::Range const range(std::string("7..") + text);
        EXPECT_EQ(printed(range), "{ 7:" + std::to_string(expected) + " }") << '"' << text << '"';
    }
    EXPECT_EQ(printed(tav::Range("x")), "{ 0:0 }");
    EXPECT_EQ(printed(tav::Range(" ")), "{ 0:0 }");
    EXPECT_EQ(printed(tav::Range("99999999999999999999")), "{ 9223372036854775807:9223372036854775807 }");
}

TEST(PrintingRange, NumbersStayInsideTheView) {
    EXPECT_EQ(printed(tav::Range(tav_istr("7..12", 4u))), "{ 7:1 }");
    EXPECT_EQ(printed(tav::Range(tav_istr("7.. 5", 4u))), "{ 7:0 }");
    EXPECT_EQ(printed(tav::Range(tav_istr("7..-5", 4u))), "{ 7:0 }");
    EXPECT_EQ(printed(tav::Range(tav_istr("12,3", 2u))), "{ 12:12 }");
}

TEST(PrintingRange, LeadingSeparatorEndsThePattern) {
    tav::Range range;
    EXPECT_TRUE(range.setup(",5"));
    EXPECT_TRUE(range.empty());
    EXPECT_TRUE(range.setup(".5"));
    EXPECT_TRUE(range.setup("..5"));
    EXPECT_TRUE(range.empty());
}

TEST(PrintingRange, EmptyElementEndsThePatternAndKeepsWhatWasRead) {
    tav::Range range;
    EXPECT_TRUE(range.setup("1,,5"));
    EXPECT_EQ(printed(range), "{ 1:1 }");
}

TEST(PrintingRange, TrailingCommaIsSkipped) {
    EXPECT_EQ(printed(tav::Range("1,")), "{ 1:1 }");
    EXPECT_EQ(printed(tav::Range("1..2,")), "{ 1:2 }");
}

TEST(PrintingRange, MissingUpperBoundIsZero) {
    EXPECT_EQ(printed(tav::Range("-4..")), "{ -4:0 }");
    EXPECT_EQ(printed(tav::Range("1..,3")), "{ 1:0 3:3 }");
    EXPECT_EQ(printed(tav::Range("1...5")), "{ 1:0 }");
}

TEST(PrintingRange, UpperBoundReachesToTheNextComma) {
    EXPECT_EQ(printed(tav::Range("1..2..3,4")), "{ 1:2 4:4 }");
}

TEST(PrintingRange, SameFirstValueOverwrites) {
    EXPECT_EQ(printed(tav::Range("1..9,1..3")), "{ 1:3 }");
    EXPECT_EQ(printed(tav::Range("1..3,1")), "{ 1:1 }");
}

TEST(PrintingRange, SetupAddsToWhatIsThere) {
    tav::Range range("1");
    EXPECT_TRUE(range.setup("3..4"));
    EXPECT_EQ(printed(range), "{ 1:1 3:4 }");
}

TEST(PrintingRange, SinglePointFailsAndDisablesTheCheck) {
    tav::Range range;
    EXPECT_FALSE(range.setup("1.3"));
    EXPECT_TRUE(range.empty());
    EXPECT_TRUE(range.check(1000));
    EXPECT_FALSE(range.setup("1."));
    EXPECT_FALSE(range.setup("1.,3"));
    EXPECT_TRUE(range.empty());
}

TEST(PrintingRange, FailedPatternKeepsWhatWasRead) {
    tav::Range range;
    EXPECT_FALSE(range.setup("1,2..3,4.5,6"));
    EXPECT_EQ(printed(range), "{ 1:1 2:3 }");
}

TEST(PrintingRange, CopiesAreEqualAndApart) {
    tav::Range const first("1..3");
    tav::Range second(first);
    second.setup("9");
    EXPECT_EQ(printed(first), "{ 1:3 }");
    EXPECT_EQ(printed(second), "{ 1:3 9:9 }");
}

TEST(PrintingRange, BadPatternIsLoggedAtError) {
    tav_test::LogCapture log;
    EXPECT_FALSE(tav::Range().setup("1,1.3"));
    ASSERT_TRUE(log.waitFor("invalid pattern: "));
    auto const record = log.find("invalid pattern: ");
    EXPECT_EQ(record.level, tavLogger::ERROR);
    EXPECT_NE(record.text.find("[TAV]Range::setup(vinta_basetypes_failures.cpp:"), std::string::npos)
        << record.text;
    EXPECT_NE(record.text.find(") invalid pattern: 1,1.3\n"), std::string::npos) << record.text;
}

TEST(PrintingRange, GoodPatternsLogNothing) {
    tav_test::LogCapture log;
    tav::Range const range("1,3..5");
    EXPECT_TRUE(range.check(4));
    EXPECT_FALSE(range.check(6));
    tav::Range().setup("1.3");
    ASSERT_TRUE(log.waitFor("invalid pattern: "));
    EXPECT_EQ(log.count("Range::"), 1u);
}

} // namespace
