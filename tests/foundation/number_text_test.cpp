#include "foundation/number_text.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <locale>
#include <random>
#include <sstream>
#include <string>

using tav::detail::NumberText;
using tav::detail::readDecimal;
using tav::detail::readFloating;
using tav::detail::readFloatingPart;
using tav::detail::readHexCode;
using tav::detail::readInteger;
using tav::detail::readPrefixed;
using tav::detail::readRadix;

namespace {

constexpr int untouched = -77;

/// The integer, or -77 if the text is none.
template <class T = long long>
T integer(std::string const & text) {
    T value = static_cast<T>(untouched);
    bool const counts = readInteger(text, value);
    EXPECT_TRUE(counts || value == static_cast<T>(untouched)) << text;
    return value;
}

double floating(std::string const & text) {
    double value = untouched;
    bool const counts = readFloating(text, value);
    EXPECT_TRUE(counts || value == untouched) << text;
    return value;
}

double floatingPart(std::string const & text) {
    double value = untouched;
    readFloatingPart(text, value);
    return value;
}

template <class T>
std::string text(T v) {
    return std::string(NumberText(v).view());
}

/// What a stream makes of the whole text; false if it fails or leaves something.
template <class T>
bool extract(std::string const & text, T & out) {
    std::istringstream in(text);
    T value = 0;
    if (!(in >> value)) {
        return false;
    }
    if (in.get() != std::char_traits<char>::eof()) {
        return false;
    }
    out = value;
    return true;
}

template <class T>
void expectLikeStream(std::string const & input) {
    T expected = 5;
    T read = 5;
    EXPECT_EQ(extract(input, expected), readDecimal(input, read)) << '[' << input << ']';
    EXPECT_EQ(read, expected) << '[' << input << ']';
}

template <class T>
void expectFloatLikeStream(std::string const & input) {
    T expected = 5;
    T read = 5;
    EXPECT_EQ(extract(input, expected), readFloating(input, read)) << '[' << input << ']';
    EXPECT_EQ(read, expected) << '[' << input << ']';
    EXPECT_EQ(std::signbit(expected), std::signbit(read)) << '[' << input << ']';
}

std::string randomText(std::mt19937 & random, std::string const & letters, unsigned most) {
    std::string out;
    for (std::size_t n = random() % (most + 1); n > 0; --n) {
        out += letters[random() % letters.size()];
    }
    return out;
}

} // namespace

TEST(NumberText, IntegerInDecimal) {
    EXPECT_EQ(integer("0"), 0);
    EXPECT_EQ(integer("42"), 42);
    EXPECT_EQ(integer("-42"), -42);
    EXPECT_EQ(integer("+42"), 42);
    EXPECT_EQ(integer(" \t\n\v\f\r42"), 42);
    EXPECT_EQ(integer(" +42"), 42);
    EXPECT_EQ(LLONG_MAX, integer("9223372036854775807"));
    EXPECT_EQ(LLONG_MIN, integer("-9223372036854775808"));
}

TEST(NumberText, TextThatIsNoIntegerFails) {
    for (char const * bad : {"",
                             " ",
                             "-",
                             "+",
                             "+-1",
                             "-+1",
                             "++1",
                             "- 1",
                             "1 ",
                             "1.5",
                             "1e3",
                             "x",
                             "1x",
                             ".",
                             "9223372036854775808",
                             "-9223372036854775809",
                             "0x",
                             "0b",
                             "0X",
                             "0B",
                             "0xg",
                             "0b2",
                             "0b12",
                             "0x-1",
                             "0x+1",
                             "0x 1",
                             "0b-1",
                             "-0x10",
                             "+0x10",
                             " 0x10",
                             "0 ",
                             "0-5"}) {
        EXPECT_EQ(untouched, integer(bad)) << bad;
    }
}

TEST(NumberText, HexadecimalBehindPrefix) {
    EXPECT_EQ(integer("0x10"), 16);
    EXPECT_EQ(integer("0X10"), 16);
    EXPECT_EQ(integer("0xabCDEF"), 0xabcdef);
    EXPECT_EQ(integer("0x0"), 0);
    EXPECT_EQ(integer("0xFFFFFFFFFFFFFFFF"), -1);
    EXPECT_EQ(integer("0x000FFFFFFFFFFFFFFFF"), -1);
    EXPECT_EQ(untouched, integer("0x10000000000000000"));
}

TEST(NumberText, BinaryBehindPrefix) {
    EXPECT_EQ(integer("0b101"), 5);
    EXPECT_EQ(integer("0B101"), 5);
    EXPECT_EQ(integer("0b" + std::string(64, '1')), -1);
    EXPECT_EQ(untouched, integer("0b1" + std::string(64, '0')));
}

TEST(NumberText, OctalComesBeforeDecimal) {
    EXPECT_EQ(integer("010"), 8);
    EXPECT_EQ(integer("00"), 0);
    EXPECT_EQ(integer("0010"), 8);
    EXPECT_EQ(integer("01777777777777777777777"), -1);
    EXPECT_EQ(integer("04553207"), 1234567);
}

TEST(NumberText, OctalThatFailsIsDecimal) {
    EXPECT_EQ(integer("08"), 8);
    EXPECT_EQ(integer("019"), 19);
    // Does not fit 64 bits in octal, and reads in decimal no better.
    EXPECT_EQ(untouched, integer("02000000000000000000000"));
    EXPECT_EQ(integer("03000000000000000008"), 3000000000000000008);
}

TEST(NumberText, PrefixedFormIsCutToTheTarget) {
    EXPECT_EQ(integer<short>("0x12345"), 0x2345);
    EXPECT_EQ(integer<short>("0xFFFF"), -1);
    EXPECT_EQ(integer<unsigned short>("0xFFFFF"), 0xFFFF);
    EXPECT_EQ(integer<int>("0xFFFFFFFFFFFFFFFF"), -1);
}

TEST(NumberText, DecimalMustFitTheTarget) {
    EXPECT_EQ(integer<short>("32767"), 32767);
    EXPECT_EQ(untouched, integer<short>("32768"));
    EXPECT_EQ(integer<short>("-32768"), -32768);
    EXPECT_EQ(untouched, integer<short>("-32769"));
    EXPECT_EQ(ULLONG_MAX, integer<unsigned long long>("18446744073709551615"));
    EXPECT_EQ(integer<unsigned long long>("18446744073709551616"),
              static_cast<unsigned long long>(untouched));
}

TEST(NumberText, MinusWrapsAnUnsignedTarget) {
    EXPECT_EQ(ULLONG_MAX, integer<unsigned long long>("-1"));
    EXPECT_EQ(integer<unsigned short>("-65535"), 1u);
    EXPECT_EQ(integer<unsigned short>("-65536"), static_cast<unsigned short>(untouched));
    EXPECT_EQ(integer<unsigned short>("--1"), static_cast<unsigned short>(untouched));
    EXPECT_EQ(integer<unsigned short>("-"), static_cast<unsigned short>(untouched));
}

TEST(NumberText, RadixTakesDigitsAlone) {
    unsigned long long value = 5;
    EXPECT_FALSE(readRadix("", 16, value));
    EXPECT_FALSE(readRadix("-1", 16, value));
    EXPECT_FALSE(readRadix("0x1", 16, value));
    EXPECT_FALSE(readRadix("8", 8, value));
    EXPECT_EQ(value, 5u);
    EXPECT_TRUE(readRadix("ff", 16, value));
    EXPECT_EQ(value, 255u);
}

TEST(NumberText, PrefixedNeedsTheLeadingZero) {
    unsigned long long value = 5;
    EXPECT_FALSE(readPrefixed("", value));
    EXPECT_FALSE(readPrefixed("0", value));
    EXPECT_FALSE(readPrefixed("10", value));
    EXPECT_EQ(value, 5u);
}

TEST(NumberText, DecimalIsReadAsAStreamReadsIt) {
    std::mt19937 random(7);
    for (int i = 0; i < 20000; ++i) {
        std::string const input = randomText(random, "0123456789012345678901234567890123456789+-- \t.x", 7);
        expectLikeStream<short>(input);
        expectLikeStream<unsigned short>(input);
        expectLikeStream<long long>(input);
        expectLikeStream<unsigned long long>(input);
    }
    for (int i = 0; i < 3000; ++i) {
        std::string const input =
            (i % 2 != 0 ? "-" : "") + std::to_string(random() % 20) + randomText(random, "0123456789", 20);
        expectLikeStream<int>(input);
        expectLikeStream<unsigned>(input);
        expectLikeStream<long long>(input);
        expectLikeStream<unsigned long long>(input);
    }
}

TEST(NumberText, FloatingNeedsAllOfTheText) {
    EXPECT_EQ(floating("1.5"), 1.5);
    EXPECT_EQ(floating(" -1.5"), -1.5);
    EXPECT_EQ(floating("+1.5"), 1.5);
    EXPECT_EQ(floating(".5"), 0.5);
    EXPECT_EQ(floating("5."), 5.0);
    EXPECT_EQ(floating("1.5e3"), 1500.0);
    EXPECT_EQ(floating("010"), 10.0);
    for (char const * bad :
         {"",     "-",   ".",   "e5",  ".e5",  "1e",       "1e+",  "1.5 ",  "1.5x", "1.5.2", "1e5e3",
          "1e5.", "+-1", "inf", "nan", "-inf", "infinity", "0x10", "0x1p3", "1,5",  "1e999", "-1e999"}) {
        EXPECT_EQ(untouched, floating(bad)) << bad;
    }
}

TEST(NumberText, FloatingThatIsTooSmallIsZero) {
    EXPECT_EQ(floating("1e-999"), 0.0);
    EXPECT_TRUE(std::signbit(floating("-1e-999")));
    EXPECT_EQ(floating("0e999999999999999999999"), 0.0);
    EXPECT_EQ(floating("0." + std::string(500, '0') + "1"), 0.0);
    EXPECT_EQ(floating("1000e-99999999999999999999"), 0.0);
    EXPECT_EQ(untouched, floating("0.001e99999999999999999999"));
    EXPECT_EQ(untouched, floating("1" + std::string(500, '0')));
    float value = 1;
    EXPECT_TRUE(readFloating("1e-60", value));
    EXPECT_EQ(value, 0.0f);
    EXPECT_FALSE(readFloating("1e60", value));
    EXPECT_EQ(value, 0.0f);
}

TEST(NumberText, FloatingIsReadAsAStreamReadsIt) {
    std::mt19937 random(8);
    for (int i = 0; i < 30000; ++i) {
        std::string const input = randomText(random, "0123456789012345...eE+-", 8);
        expectFloatLikeStream<double>(input);
        expectFloatLikeStream<float>(input);
    }
    for (int i = 0; i < 3000; ++i) {
        std::string const input = randomText(random, "0123456789", 6) + "." +
                                  randomText(random, "0123456789", 20) + "e" +
                                  std::to_string(static_cast<int>(random() % 700) - 350);
        expectFloatLikeStream<double>(input);
        expectFloatLikeStream<float>(input);
    }
}

TEST(NumberText, FloatingPartStopsWhereTheNumberEnds) {
    EXPECT_EQ(floatingPart("1.5x"), 1.5);
    EXPECT_EQ(floatingPart(" +1.5 2"), 1.5);
    EXPECT_EQ(floatingPart("0x10"), 0.0);
    EXPECT_EQ(floatingPart("1.5.2"), 1.5);
    EXPECT_EQ(untouched, floatingPart("1e"));
    EXPECT_EQ(untouched, floatingPart("1e+x"));
    EXPECT_EQ(untouched, floatingPart("x1"));
    EXPECT_EQ(untouched, floatingPart("1e999"));
    float value = 0;
    EXPECT_TRUE(readFloatingPart("2.5;", value));
    EXPECT_EQ(value, 2.5f);
}

TEST(NumberText, HexCode) {
    EXPECT_EQ(readHexCode(""), 0);
    EXPECT_EQ(readHexCode("0x"), 0);
    EXPECT_EQ(readHexCode("1F01"), 0x1F01);
    EXPECT_EQ(readHexCode("0x1f01"), 0x1f01);
    EXPECT_EQ(readHexCode("ffff"), 0xFFFF);
    EXPECT_EQ(readHexCode("12345"), 0x2345);
    EXPECT_EQ(readHexCode("0x41"), 0x41);
}

TEST(NumberText, StrayDigitOfAHexCodeCountsAsMinusOne) {
    EXPECT_EQ(readHexCode("g"), 0xFFFF);
    EXPECT_EQ(readHexCode("1g"), 0x000F);
    EXPECT_EQ(readHexCode("g1"), 0xFFF1);
    EXPECT_EQ(readHexCode("zz"), 0xFFEF);
    // Only a small x makes a prefix, and only one is stepped over.
    EXPECT_EQ(readHexCode("0X1"), 0xFFF1);
    EXPECT_EQ(readHexCode("0x0x1"), 0xFFF1);
}

TEST(NumberText, IntegersToDecimal) {
    EXPECT_EQ(text(0), "0");
    EXPECT_EQ(text(static_cast<short>(-1)), "-1");
    EXPECT_EQ(text(LLONG_MIN), "-9223372036854775808");
    EXPECT_EQ(text(ULLONG_MAX), "18446744073709551615");
    std::string out("n=");
    tav::detail::appendNumber(out, 65535u);
    EXPECT_EQ(out, "n=65535");
}

TEST(NumberText, FloatingToSixDigits) {
    EXPECT_EQ(text(0.0), "0");
    EXPECT_EQ(text(-0.0), "-0");
    EXPECT_EQ(text(0.1), "0.1");
    EXPECT_EQ(text(3.14159265358979), "3.14159");
    EXPECT_EQ(text(123456.7), "123457");
    EXPECT_EQ(text(1234567.0), "1.23457e+06");
    EXPECT_EQ(text(0.00001), "1e-05");
    EXPECT_EQ(text(static_cast<double>(0.5f)), "0.5");
}

TEST(NumberText, FloatingIsWrittenAsAStreamWritesIt) {
    double const limits[] = {std::numeric_limits<double>::max(),
                             std::numeric_limits<double>::min(),
                             std::numeric_limits<double>::denorm_min(),
                             std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::quiet_NaN(),
                             -std::numeric_limits<double>::quiet_NaN(),
                             999999.5,
                             99999.95,
                             0.0001,
                             0.00009999995};
    std::mt19937_64 random(9);
    auto const compare = [](double v) {
        std::ostringstream out;
        out.imbue(std::locale::classic());
        out << v;
        EXPECT_EQ(out.str(), text(v));
    };
    for (double const v : limits) {
        compare(v);
    }
    for (int i = 0; i < 5000; ++i) {
        compare(
            std::ldexp(static_cast<double>(random() % 100000000), static_cast<int>(random() % 200) - 100));
    }
}
