#include "tav/vinta/vinta_json_parser.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

using tav::json::JsonArray;
using tav::json::JsonBoolean;
using tav::json::JsonNumber;
using tav::json::JsonObject;
using tav::json::JsonString;
using tav::json::JsonUnit;
using tav::json::JsonValue;

namespace {

std::string text(tavString const & v) {
    return std::string(v.data(), v.size());
}

JsonUnit number(char const * digits) {
    return JsonUnit(tavSharedPtr<JsonValue>(new JsonNumber(tav_istr(digits))));
}

JsonUnit string(tav_istr v) {
    return JsonUnit(tavSharedPtr<JsonValue>(new JsonString(v)));
}

JsonUnit boolean(bool v) {
    return JsonUnit(tavSharedPtr<JsonValue>(new JsonBoolean(v)));
}

/// What a fresh unit holds after `v` was written: "number 5", "string abc", "boolean true".
template <class T>
std::string written(T const & v) {
    JsonUnit unit;
    unit << v;
    switch (unit.type()) {
    case tav::JsonFieldNumber: return "number " + text(unit.numberValue().getValue());
    case tav::JsonFieldString: return "string " + text(unit.stringValue().getValue());
    case tav::JsonFieldBoolean: return unit.booleanValue().getValue() ? "boolean true" : "boolean false";
    default: return "other";
    }
}

/// What a target that holds `before` holds after reading.
template <class T>
T read(JsonUnit const & unit, T before = T()) {
    T v = before;
    EXPECT_EQ(&(unit >> v), &unit);
    return v;
}

/// The same text once as a number and once as a string.
template <class T>
void expectBoth(char const * digits, T expected) {
    SCOPED_TRACE(digits);
    EXPECT_EQ(read<T>(number(digits), T(77)), expected);
    EXPECT_EQ(read<T>(string(digits), T(77)), expected);
}

/// A value of each class that no number is read from.
std::vector<JsonUnit> unsuitableForNumbers() {
    JsonUnit array;
    array.newChild() << 5;
    JsonUnit object;
    object["a"] << 5;
    return {JsonUnit(), boolean(true), boolean(false), array, object};
}

template <class T>
void expectLeftAlone(T before) {
    for (JsonUnit const & unit : unsuitableForNumbers()) {
        EXPECT_EQ(read<T>(unit, before), before) << unit.type();
    }
}

} // namespace

TEST(JsonUnitWrite, NarrowIntegersAreNumbersOfDecimalDigits) {
    EXPECT_EQ(written('A'), "number 65");
    EXPECT_EQ(written(static_cast<char>(-1)), "number -1");
    EXPECT_EQ(written(static_cast<unsigned char>(255)), "number 255");
    EXPECT_EQ(written(static_cast<short>(-32768)), "number -32768");
    EXPECT_EQ(written(static_cast<unsigned short>(65535)), "number 65535");
    EXPECT_EQ(written(std::numeric_limits<int>::min()), "number -2147483648");
    EXPECT_EQ(written(5), "number 5");
    EXPECT_EQ(written(4294967295u), "number 4294967295");
}

TEST(JsonUnitWrite, WideIntegersAreStringsOfDecimalDigits) {
    EXPECT_EQ(written(5LL), "string 5");
    EXPECT_EQ(written(std::numeric_limits<long long>::min()), "string -9223372036854775808");
    EXPECT_EQ(written(std::numeric_limits<unsigned long long>::max()), "string 18446744073709551615");
    EXPECT_EQ(written(-5L), "string -5");
    EXPECT_EQ(written(std::numeric_limits<unsigned long>::max()), "string 18446744073709551615");
    JsonUnit unit;
    unit << 5LL;
    EXPECT_EQ(text(unit.toString(false)), "\"5\"");
}

TEST(JsonUnitWrite, FloatingPointHasSixSignificantDigits) {
    EXPECT_EQ(written(1.5), "number 1.5");
    EXPECT_EQ(written(3.14159265), "number 3.14159");
    EXPECT_EQ(written(2.0), "number 2");
    EXPECT_EQ(written(0.0), "number 0");
    EXPECT_EQ(written(-0.0001), "number -0.0001");
    EXPECT_EQ(written(0.00001), "number 1e-05");
    EXPECT_EQ(written(123456.0), "number 123456");
    EXPECT_EQ(written(1234567.0), "number 1.23457e+06");
    EXPECT_EQ(written(1e300), "number 1e+300");
    EXPECT_EQ(written(0.1f), "number 0.1");
    EXPECT_EQ(written(16777216.0f), "number 1.67772e+07");
}

TEST(JsonUnitWrite, TimeIsAStringOfMilliseconds) {
    EXPECT_EQ(written(tavTime::milliseconds(1654052969007)), "string 1654052969007");
    EXPECT_EQ(written(tavTime::milliseconds(-1)), "string -1");
    EXPECT_EQ(written(tavTime()), "string 0");
}

TEST(JsonUnitWrite, BooleanIsABoolean) {
    EXPECT_EQ(written(true), "boolean true");
    EXPECT_EQ(written(false), "boolean false");
}

TEST(JsonUnitWrite, TextOfEachFormIsAString) {
    EXPECT_EQ(written("abc"), "string abc");
    char const * const none = nullptr;
    EXPECT_EQ(written(none), "string ");
    EXPECT_EQ(written(tav_istr("a\0b", 3)), std::string("string a\0b", 10));
    EXPECT_EQ(written(tavString("x\"y")), "string x\"y");
    EXPECT_EQ(written(std::string("\xff\x80")), "string \xff\x80");
    EXPECT_EQ(written(std::wstring(L"a\u20ac")), "string a\xe2\x82\xac");
    EXPECT_EQ(written("5"), "string 5");
    EXPECT_EQ(written("null"), "string null");
}

TEST(JsonUnitWrite, BytesAreAStringOfBase64WithoutLineBreaks) {
    EXPECT_EQ(written(tavBytes(tav_istr("abc"))), "string YWJj");
    EXPECT_EQ(written(tavBytes(tav_istr("ab"))), "string YWI=");
    EXPECT_EQ(written(tavBytes()), "string ");
    std::string expected("string ");
    for (int i = 0; i < 100; ++i) {
        expected += "YWJj";
    }
    std::string source;
    for (int i = 0; i < 100; ++i) {
        source += "abc";
    }
    EXPECT_EQ(written(tavBytes(tav_istr(source))), expected);
    JsonUnit unit = string("old");
    unit << tavBytes();
    EXPECT_EQ(text(unit.asString()), "");
}

TEST(JsonUnitWrite, ReplacesWhateverTheUnitHolds) {
    JsonUnit unit;
    unit["a"]["b"] << 1;
    unit << 5;
    EXPECT_EQ(text(unit.toString(false)), "5");
    unit << true;
    EXPECT_EQ(text(unit.toString(false)), "true");
    unit << "x";
    EXPECT_EQ(text(unit.toString(false)), "\"x\"");
    unit.newChild();
    unit << 6LL;
    EXPECT_EQ(text(unit.toString(false)), "\"6\"");
    unit << 7;
    EXPECT_EQ(unit.type(), tav::JsonFieldNumber);
}

TEST(JsonUnitWrite, GoesThroughACopyOnlyIfTheClassStays) {
    JsonUnit a;
    a << 5;
    JsonUnit b = a;
    b << 6;
    EXPECT_EQ(read<int>(a), 6);
    b << "x";
    EXPECT_EQ(read<int>(a), 6);
    EXPECT_EQ(text(b.asString()), "x");
    JsonUnit c = b;
    c << 8LL;
    EXPECT_EQ(text(b.asString()), "8");
}

TEST(JsonUnitWrite, GivesTheUnit) {
    JsonUnit unit;
    EXPECT_EQ(&(unit << 1), &unit);
    EXPECT_EQ(&(unit << 1LL), &unit);
    EXPECT_EQ(&(unit << 1.5), &unit);
    EXPECT_EQ(&(unit << true), &unit);
    EXPECT_EQ(&(unit << "x"), &unit);
    EXPECT_EQ(&(unit << std::wstring()), &unit);
    EXPECT_EQ(&(unit << tavBytes()), &unit);
    EXPECT_EQ(&(unit << tavTime()), &unit);
}

TEST(JsonUnitWrite, TakesATextThatTheReplacedValueHolds) {
    JsonUnit unit = number("12345678901234567890123456789012345678901234567890");
    unit << unit.numberValue().getValue();
    EXPECT_EQ(text(unit.stringValue().getValue()), "12345678901234567890123456789012345678901234567890");
    unit << unit.stringValue().getValue();
    EXPECT_EQ(text(unit.stringValue().getValue()), "12345678901234567890123456789012345678901234567890");
    unit << tav_istr(unit.stringValue().getValue()).substr(5, 30);
    EXPECT_EQ(text(unit.stringValue().getValue()), "678901234567890123456789012345");
    unit["a"] << unit.child("a").toString(false);
    unit << unit["a"].stringValue().getValue();
    EXPECT_EQ(text(unit.stringValue().getValue()), "null");
}

TEST(JsonUnitRead, IntegersFromNumberOrString) {
    expectBoth<char>("-7", -7);
    expectBoth<unsigned char>("200", 200);
    expectBoth<short>("-300", -300);
    expectBoth<unsigned short>("60000", 60000);
    expectBoth<int>("-70000", -70000);
    expectBoth<unsigned int>("4000000000", 4000000000u);
    expectBoth<long>("-5000000000", -5000000000L);
    expectBoth<unsigned long>("18446744073709551615", std::numeric_limits<unsigned long>::max());
    expectBoth<long long>("-9223372036854775808", std::numeric_limits<long long>::min());
    expectBoth<unsigned long long>("18446744073709551615", std::numeric_limits<unsigned long long>::max());
}

TEST(JsonUnitRead, IntegersTakePrefixes) {
    expectBoth<int>("0x10", 16);
    expectBoth<int>("0XfF", 255);
    expectBoth<int>("0b101", 5);
    expectBoth<int>("0B11", 3);
    expectBoth<int>("010", 8);
    expectBoth<int>("0", 0);
    expectBoth<char>("0x41", 65);
    expectBoth<unsigned char>("0377", 255);
    expectBoth<long long>("0xFFFFFFFFFFFFFFFF", -1);
    expectBoth<unsigned long long>("0b11", 3);
}

TEST(JsonUnitRead, AFormThatDoesNotCountFallsBackToDecimal) {
    expectBoth<int>("08", 8);
    expectBoth<int>("0189", 189);
    expectBoth<int>("+5", 5);
    expectBoth<int>(" 5", 5);
}

TEST(JsonUnitRead, ATextThatIsNoNumberStoresZero) {
    for (char const * const bad :
         {"abc", "", "1.5", "1e3", "5 ", "1 2", "1abc", "0x", "0b", "0xg", "0b12", "-", "--5", "-0x10",
          "\"5\"", "99999999999999999999", "0x10000000000000000"}) {
        expectBoth<char>(bad, 0);
        expectBoth<unsigned char>(bad, 0);
        expectBoth<short>(bad, 0);
        expectBoth<unsigned short>(bad, 0);
        expectBoth<int>(bad, 0);
        expectBoth<unsigned int>(bad, 0);
        expectBoth<long>(bad, 0);
        expectBoth<unsigned long>(bad, 0);
        expectBoth<long long>(bad, 0);
        expectBoth<unsigned long long>(bad, 0);
    }
    expectBoth<long long>("18446744073709551615", 0);
}

TEST(JsonUnitRead, IntegersAreCutToTheWidthOfTheTarget) {
    expectBoth<unsigned char>("300", 44);
    expectBoth<char>("200", static_cast<char>(-56));
    expectBoth<unsigned short>("65537", 1);
    expectBoth<short>("32768", -32768);
    expectBoth<int>("4294967301", 5);
    expectBoth<unsigned int>("4294967301", 5);
    expectBoth<unsigned int>("-1", 4294967295u);
    expectBoth<unsigned long long>("-1", std::numeric_limits<unsigned long long>::max());
}

TEST(JsonUnitRead, NumericTargetsKeepTheirValueForAnyOtherClass) {
    expectLeftAlone<char>('x');
    expectLeftAlone<unsigned char>(200);
    expectLeftAlone<short>(-3);
    expectLeftAlone<unsigned short>(3);
    expectLeftAlone<int>(-4);
    expectLeftAlone<unsigned int>(4);
    expectLeftAlone<long>(-5);
    expectLeftAlone<unsigned long>(5);
    expectLeftAlone<long long>(-6);
    expectLeftAlone<unsigned long long>(6);
    expectLeftAlone<float>(1.5f);
    expectLeftAlone<double>(2.5);
    expectLeftAlone<tavTime>(tavTime::milliseconds(7));
}

TEST(JsonUnitRead, FloatingPointIsDecimalOnly) {
    expectBoth<double>("1.5", 1.5);
    expectBoth<double>("1e3", 1000.0);
    expectBoth<double>("-2.5e-1", -0.25);
    expectBoth<double>("010", 10.0);
    expectBoth<double>("0x10", 0.0);
    expectBoth<double>("abc", 0.0);
    expectBoth<double>("1.5x", 0.0);
    expectBoth<double>("", 0.0);
    expectBoth<double>("0.1", 0.1);
    expectBoth<float>("0.1", 0.1f);
    expectBoth<float>("1e300", 0.0f);
    expectBoth<float>("nan", 0.0f);
    expectBoth<double>("1e999", 0.0);
}

TEST(JsonUnitRead, TimeIsReadAsA64BitNumber) {
    tavTime const before = tavTime::milliseconds(7);
    EXPECT_EQ(read<tavTime>(number("1654052969007"), before), tavTime::milliseconds(1654052969007));
    EXPECT_EQ(read<tavTime>(string("-5"), before), tavTime::milliseconds(-5));
    EXPECT_EQ(read<tavTime>(string("0x10"), before), tavTime::milliseconds(16));
    EXPECT_EQ(read<tavTime>(string("2022-06-01"), before), tavTime());
}

TEST(JsonUnitRead, BooleanFromABooleanOnly) {
    EXPECT_TRUE(read<bool>(boolean(true), false));
    EXPECT_FALSE(read<bool>(boolean(false), true));
    for (bool const before : {false, true}) {
        EXPECT_EQ(read<bool>(number("0"), before), before);
        EXPECT_EQ(read<bool>(number("1"), before), before);
        EXPECT_EQ(read<bool>(string("true"), before), before);
        EXPECT_EQ(read<bool>(string("false"), before), before);
        EXPECT_EQ(read<bool>(JsonUnit(), before), before);
    }
}

TEST(JsonUnitRead, TextFromAStringOnly) {
    EXPECT_EQ(text(read<tavString>(string(tav_istr("a\0b", 3)), "old")), std::string("a\0b", 3));
    EXPECT_EQ(read<std::string>(string("abc"), "old"), "abc");
    EXPECT_EQ(read<std::string>(string(""), "old"), "");
    EXPECT_EQ(read<std::wstring>(string("a\xe2\x82\xac"), L"old"), L"a\u20ac");
    std::vector<JsonUnit> others = unsuitableForNumbers();
    others.push_back(number("5"));
    for (JsonUnit const & unit : others) {
        EXPECT_EQ(text(read<tavString>(unit, "old")), "old");
        EXPECT_EQ(read<std::string>(unit, "old"), "old");
        EXPECT_EQ(read<std::wstring>(unit, L"old"), L"old");
    }
}

TEST(JsonUnitRead, BytesFromAStringOfBase64Only) {
    auto const bytes = [](JsonUnit const & unit) {
        tavBytes v(tav_istr("old"));
        unit >> v;
        return std::string(reinterpret_cast<char const *>(v.data()), v.size());
    };
    EXPECT_EQ(bytes(string("YWJj")), "abc");
    EXPECT_EQ(bytes(string("YW\r\nI=")), "ab");
    EXPECT_EQ(bytes(string("")), "");
    EXPECT_EQ(bytes(number("1234")), "old");
    EXPECT_EQ(bytes(boolean(true)), "old");
    EXPECT_EQ(bytes(JsonUnit()), "old");
}

TEST(JsonUnitRead, ComesBackFromWhatWasWritten) {
    JsonUnit unit;
    unit << std::numeric_limits<unsigned long long>::max();
    EXPECT_EQ(read<unsigned long long>(unit), std::numeric_limits<unsigned long long>::max());
    unit << static_cast<char>(-128);
    EXPECT_EQ(read<char>(unit), static_cast<char>(-128));
    unit << 0.25f;
    EXPECT_EQ(read<float>(unit), 0.25f);
    unit << tavBytes(tav_istr("\xff\xfe\x00\x01", 4));
    EXPECT_EQ(text(unit.asString()), "//4AAQ==");
    EXPECT_EQ(text(unit.toString(false)), "\"\\/\\/4AAQ==\"");
    JsonUnit again;
    again.decode(tav_istr("[" + std::string(unit.toString(false).data()) + "]"));
    tavBytes bytes;
    again.arrayValue().at(0) >> bytes;
    EXPECT_EQ(tav_istr(bytes), tav_istr("\xff\xfe\x00\x01", 4));
}
