#include "tav/vinta/vinta_object.h"

#include "support/log_capture.h"
#include "tav/vinta/vinta_json_parser.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

enum class Color { red = 1, blue = 4 };
enum class Nameless { none = 0 };

std::string const position = "\n    throw at tavObject::checkFields(vinta_object_json.cpp:";

/// An object with one field "f" of any type and meta.
template <class T>
class One : public tavObject {
public:
    T value{};
    tavCodecMeta meta;

    explicit One(tavCodecMeta const & m) : meta(m) {}

    tav_istr className() const override { return "One"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return nullptr; }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override { ioField(s, 1, "f", value, meta); }
};

/// What decoding raises, without the position; empty if it raises nothing.
std::string failureOf(tavObject & object, std::string const & json) {
    try {
        object.decodeJson(tav_istr(json));
    } catch (std::invalid_argument const & e) {
        std::string const text = e.what();
        std::size_t const at = text.find(position);
        EXPECT_NE(at, std::string::npos) << text;
        EXPECT_EQ(text.back(), ')');
        return text.substr(0, at);
    }
    return std::string();
}

/// The same for one field "f" of type code `type` and the JSON text of its value.
template <class T>
std::string failureOf(tavCodecMeta const & meta, std::string const & value) {
    One<T> object(meta);
    return failureOf(object, "{\"f\":" + value + "}");
}

std::string failureOfType(int type, std::string const & value) {
    return failureOf<int>(tavCodecMeta(type), value);
}

char const * const typeNames[] = {
    "bool",   "int8",   "int16", "int32",  "int64",   "uint8",    "uint16", "uint32",   "uint64", "float",
    "double", "char",   "wchar", "string", "wstring", "u8string", "bytes",  "time",     "enum",   "optional",
    "union",  "object", "ref",   "array",  "array2d", "array3d",  "list",   "ref_list", "map"};

std::string wrongType(char const * json, int type) {
    return std::string("field f in class One should not be json ") + json + " type, expected type " +
           typeNames[type];
}

/// A value that says that it is a string, and is none.
class Pretender : public tav::json::JsonValue {
public:
    tav::JsonFieldType type() const override { return tav::JsonFieldString; }
    tavString toString() const override { return "5"; }
    bool simple() const override { return true; }
};

class Inner : public tavObject {
public:
    int a = 0;
    tavString b;

    tav_istr className() const override { return "Inner"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Inner(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "a", a, tavCodecMeta(3));
        ioField(s, 2, "b", b, tavCodecMeta(13));
    }
};

class Outer : public tavObject {
public:
    int z = 0;
    Inner inner;
    tavOptional<Inner> maybe;
    std::vector<Inner> list;
    std::map<tavString, Inner> map;
    int y = 0;

    tav_istr className() const override { return "Outer"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new Outer(); }
    void assignFrom(tavObject const &) override {}

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "z", z, tavCodecMeta(3));
        ioField(s, 2, "inner", inner, tavCodecMeta(21));
        ioField(s, 3, "maybe", maybe, tavCodecMeta(21, false, nullptr, true));
        ioField(s, 4, "list", list, tavCodecMeta(26));
        ioField(s, 5, "map", map, tavCodecMeta(28));
        ioField(s, 6, "y", y, tavCodecMeta(3));
    }
};

} // namespace

TEST(CheckFields, BooleanBelongsToTheCodesFrom0To10) {
    for (int type = 0; type <= 28; ++type) {
        EXPECT_EQ(failureOfType(type, "true"), type <= 10 ? "" : wrongType("boolean", type));
    }
}

TEST(CheckFields, NumberBelongsToTheCodesFrom0To10AndTimeAndEnum) {
    for (int type = 0; type <= 28; ++type) {
        if (type != 18) {
            EXPECT_EQ(failureOfType(type, "5"), type <= 10 || type == 17 ? "" : wrongType("number", type));
        }
    }
}

TEST(CheckFields, StringBelongsToLargeIntegersAndTexts) {
    for (int type = 0; type <= 28; ++type) {
        bool const fits = type == 4 || type == 8 || (type >= 13 && type <= 16);
        EXPECT_EQ(failureOfType(type, "\"5\""), fits ? "" : wrongType("string", type));
    }
}

TEST(CheckFields, CodeWithoutANameIsShownInDecimal) {
    EXPECT_EQ(failureOfType(-1, "true"),
              "field f in class One should not be json boolean type, expected type -1");
    EXPECT_EQ(failureOfType(-1, "5"),
              "field f in class One should not be json number type, expected type -1");
    EXPECT_EQ(failureOfType(-1, "\"x\""),
              "field f in class One should not be json string type, expected type -1");
    EXPECT_EQ(failureOfType(29, "5"),
              "field f in class One should not be json number type, expected type 29");
    EXPECT_EQ(failureOfType(127, "5"),
              "field f in class One should not be json number type, expected type unknown");
    EXPECT_EQ(failureOfType(126, "5"),
              "field f in class One should not be json number type, expected type null");
}

TEST(CheckFields, ArraysAndObjectsPassUnchecked) {
    for (int type = -1; type <= 28; ++type) {
        EXPECT_EQ(failureOfType(type, "[1]"), "");
        EXPECT_EQ(failureOfType(type, "{\"a\":1}"), "");
    }
}

TEST(CheckFields, OutputThatTheCheckRefuses) {
    One<tavTime> const time{tavCodecMeta(17)};
    One<tavTime> target{tavCodecMeta(17)};
    EXPECT_EQ(failureOf(target, std::string(time.encodeJson(false).data())), wrongType("string", 17));
    EXPECT_EQ(failureOf<tavTime>(tavCodecMeta(17), "5"), "");
    EXPECT_EQ(failureOf<char>(tavCodecMeta(11), "65"), wrongType("number", 11));
    EXPECT_EQ(failureOf<char>(tavCodecMeta(11), "\"65\""), wrongType("string", 11));
    EXPECT_EQ(failureOf<tavOptional<int>>(tavCodecMeta(19), "5"), wrongType("number", 19));
    EXPECT_EQ(failureOf<tavOptional<int>>(tavCodecMeta(19), "null"), "");
    EXPECT_EQ(failureOf<tavOptional<int>>(tavCodecMeta(3), "null"),
              "missing necessary field name(s) { f } in class One");
}

TEST(CheckFields, MissingAndNullFieldsAreNecessaryButForContainersAndOptionals) {
    for (int type = -1; type <= 28; ++type) {
        bool const free = type == 19 || type == 26 || type == 27 || type == 28;
        std::string const expected = free ? "" : "missing necessary field name(s) { f } in class One";
        One<int> object{tavCodecMeta(type)};
        EXPECT_EQ(failureOf(object, "{}"), expected) << type;
        EXPECT_EQ(failureOf(object, "{\"f\":null}"), expected) << type;
        EXPECT_EQ(failureOf(object, "[]"), expected) << type;
        One<int> optional{tavCodecMeta(type, false, nullptr, true)};
        EXPECT_EQ(failureOf(optional, "{}"), "") << type;
        EXPECT_EQ(failureOf(optional, "{\"f\":null}"), "") << type;
    }
}

TEST(CheckFields, MissingNamesComeInOneFailureInTheOrderOfTheFields) {
    Outer outer;
    EXPECT_EQ(failureOf(outer, "{\"inner\":{\"a\":1,\"b\":\"x\"}}"),
              "missing necessary field name(s) { z y } in class Outer");
    EXPECT_EQ(failureOf(outer, "{}"), "missing necessary field name(s) { z inner y } in class Outer");
}

TEST(CheckFields, WrongValueGoesAheadOfMissingNames) {
    Outer outer;
    EXPECT_EQ(failureOf(outer, "{\"y\":\"5\"}"),
              "field y in class Outer should not be json string type, expected type int32");
}

TEST(CheckFields, ObjectsWithinAreCheckedFirst) {
    std::string const good = "{\"a\":1,\"b\":\"x\"}";
    std::string const bad = "{\"a\":1}";
    std::string const expected = "missing necessary field name(s) { b } in class Inner";
    Outer outer;
    EXPECT_EQ(failureOf(outer, "{\"inner\":" + bad + "}"), expected);
    EXPECT_EQ(failureOf(outer, "{\"z\":1,\"y\":2,\"inner\":" + good + ",\"maybe\":" + bad + "}"), expected);
    EXPECT_EQ(
        failureOf(outer, "{\"z\":1,\"y\":2,\"inner\":" + good + ",\"list\":[" + good + "," + bad + "]}"),
        expected);
    EXPECT_EQ(failureOf(outer, "{\"z\":1,\"y\":2,\"inner\":" + good + ",\"map\":{\"k\":" + bad + "}}"),
              expected);
    EXPECT_EQ(failureOf(outer, "{\"z\":1,\"y\":2,\"inner\":" + good + ",\"list\":[" + good +
                                   "],\"map\":{\"k\":" + good + ",\"n\":null},\"unknown\":[true]}"),
              "");
}

TEST(CheckFields, RunsAfterTheValuesWereStored) {
    Outer outer;
    EXPECT_NE(failureOf(outer, "{\"z\":7,\"inner\":{\"a\":8,\"b\":\"x\"},\"y\":true,\"list\":5}"), "");
    EXPECT_EQ(outer.z, 7);
    EXPECT_EQ(outer.inner.a, 8);
}

TEST(CheckFields, RangeOfANumber) {
    tavCodecMeta const meta(3, false, "1,3..5", false);
    for (char const * const good : {"1", "3", "4", "5", "0x5", "05"}) {
        EXPECT_EQ(failureOf<int>(meta, good), "") << good;
    }
    EXPECT_EQ(failureOf<int>(meta, "2"),
              "field f in class One has invalid number value 2, valid values 1,3..5");
    EXPECT_EQ(failureOf<int>(meta, "6"),
              "field f in class One has invalid number value 6, valid values 1,3..5");
    EXPECT_EQ(failureOf<int>(meta, "-1"),
              "field f in class One has invalid number value -1, valid values 1,3..5");
    EXPECT_EQ(failureOf<int>(meta, "0x10"),
              "field f in class One has invalid number value 16, valid values 1,3..5");
    EXPECT_EQ(failureOf<int>(meta, "4294967297"),
              "field f in class One has invalid number value 4294967297, valid values 1,3..5");
    EXPECT_EQ(failureOf<int>(meta, "true"), "");
    EXPECT_EQ(failureOf<tavTime>(tavCodecMeta(17, false, "1", false), "2"),
              "field f in class One has invalid number value 2, valid values 1");
    EXPECT_EQ(failureOf<unsigned long long>(tavCodecMeta(8, false, "0..9", false), "18446744073709551615"),
              "field f in class One has invalid number value 18446744073709551615, valid values 0..9");
}

TEST(CheckFields, RangeOfAFloatingPointNumberIsThatOfItsWholePart) {
    tavCodecMeta const meta(10, false, "1..3", false);
    EXPECT_EQ(failureOf<double>(meta, "1.5"), "");
    EXPECT_EQ(failureOf<double>(meta, "3"), "");
    EXPECT_EQ(failureOf<double>(meta, "4.5"),
              "field f in class One has invalid number value 4.5, valid values 1..3");
    EXPECT_EQ(failureOf<double>(meta, "0.5"),
              "field f in class One has invalid number value 0.5, valid values 1..3");
    EXPECT_EQ(failureOf<double>(meta, "1e300"),
              "field f in class One has invalid number value 1e+300, valid values 1..3");
    EXPECT_EQ(failureOf<double>(meta, "-1e300"),
              "field f in class One has invalid number value -1e+300, valid values 1..3");
}

TEST(CheckFields, TextWithoutNumbersIsNoRange) {
    EXPECT_EQ(failureOf<int>(tavCodecMeta(3, false, "", false), "77"), "");
    EXPECT_EQ(failureOf<int>(tavCodecMeta(3, false, ",5", false), "77"), "");
}

TEST(CheckFields, FailedPatternChecksNoMoreThanItsSoundPart) {
    tav_test::LogCapture const log;
    EXPECT_EQ(failureOf<int>(tavCodecMeta(3, false, "1.3", false), "77"), "");
    EXPECT_TRUE(log.contains("invalid pattern: 1.3"));
    tavCodecMeta const meta(3, false, "5,1.3", false);
    EXPECT_EQ(failureOf<int>(meta, "5"), "");
    EXPECT_EQ(failureOf<int>(meta, "1"),
              "field f in class One has invalid number value 1, valid values 5,1.3");
}

TEST(CheckFields, MaskOfANumberIsNeverReadAsARange) {
    tav_test::LogCapture const log;
    for (char const * const mask : {"***", "...***...", "5", "1..9", "1.3"}) {
        EXPECT_EQ(failureOf<int>(tavCodecMeta(3, true, mask), "1234"), "") << mask;
        EXPECT_EQ(failureOf<long long>(tavCodecMeta(4, true, mask), "\"1234\""), "") << mask;
    }
    EXPECT_TRUE(log.records().empty());
}

TEST(CheckFields, ValueOfAnUnsignedNumberIsShownWithItsSign) {
    tavCodecMeta const meta(8, false, "0..9", false);
    EXPECT_EQ(failureOf<unsigned long long>(meta, "-1"),
              "field f in class One has invalid number value -1, valid values 0..9");
    EXPECT_EQ(failureOf<unsigned long long>(meta, "9223372036854775808"),
              "field f in class One has invalid number value 9223372036854775808, valid values 0..9");
    EXPECT_EQ(failureOf<unsigned long long>(meta, "9"), "");
}

TEST(CheckFields, ValueOfAForeignClassPassesUnchecked) {
    tav::json::JsonUnit unit;
    unit["f"] = tav::json::JsonUnit(tavSharedPtr<tav::json::JsonValue>(new Pretender));
    tavJsonInStreamImpl impl(unit);
    tavJsonInStream s(&impl, false);
    One<long long> object{tavCodecMeta(4, false, "1..9", false)};
    EXPECT_NO_THROW(object.io(s));
}

TEST(CheckFields, MaskOfATextIsNeverReadAsARange) {
    tav_test::LogCapture const log;
    tavCodecMeta const meta(13, true, "...***...", false);
    EXPECT_EQ(failureOf<tavString>(meta, "\"secret\""), "");
    EXPECT_TRUE(log.records().empty());
}

TEST(CheckFields, LargeIntegersAsAString) {
    for (int const type : {4, 8}) {
        tavCodecMeta const meta(type);
        EXPECT_EQ(failureOf<long long>(meta, "\"123\""), "");
        EXPECT_EQ(failureOf<long long>(meta, "\"5\""), "");
        EXPECT_EQ(failureOf<long long>(meta, "\"00\""), "");
        EXPECT_EQ(failureOf<long long>(meta, "\"99999999999999999999999\""), "");
        for (char const * const bad : {"\"12a\"", "\"\"", "\"+\"", "\"-\"", "\"--5\"", "\"+-5\"", "\"5-\"",
                                       "\"-1a\"", "\"- 5\"", "\" 5\"", "\"5 \"", "\"0x10\"", "\"1.5\"",
                                       "\"'5'\"", "\"\\\"5\\\"\"", "\"'\"", "\"\\\"\"", "abc"}) {
            EXPECT_EQ(failureOf<long long>(meta, bad),
                      "field f in class One not all digits for large integer")
                << bad;
        }
        EXPECT_EQ(failureOf<long long>(meta, "-5"), "");
        EXPECT_EQ(failureOf<long long>(meta, "1.5"), "");
    }
}

TEST(CheckFields, SignedLargeIntegersAsAStringHaveOneSignAtMost) {
    One<long long> object{tavCodecMeta(4)};
    EXPECT_EQ(failureOf(object, "{\"f\":\"-5\"}"), "");
    EXPECT_EQ(object.value, -5);
    EXPECT_EQ(failureOf(object, "{\"f\":\"+5\"}"), "");
    EXPECT_EQ(object.value, 5);
    EXPECT_EQ(failureOf(object, "{\"f\":\"-9223372036854775808\"}"), "");
    EXPECT_EQ(object.value, std::numeric_limits<long long>::min());
    for (char const * const sign : {"\"-5\"", "\"+5\""}) {
        EXPECT_EQ(failureOf<unsigned long long>(tavCodecMeta(8), sign),
                  "field f in class One not all digits for large integer");
    }
}

TEST(CheckFields, SignedLargeIntegersComeBackFromTheirOwnJson) {
    for (long long const value : {-1LL, -5LL, 7LL, std::numeric_limits<long long>::min()}) {
        One<long long> from{tavCodecMeta(4)};
        from.value = value;
        One<long long> to{tavCodecMeta(4)};
        EXPECT_EQ(failureOf(to, std::string(from.encodeJson(false).data())), "");
        EXPECT_EQ(to.value, value);
    }
}

TEST(CheckFields, RangeOfALargeIntegerAsAString) {
    tavCodecMeta const meta(4, false, "1..9,20", false);
    EXPECT_EQ(failureOf<long long>(meta, "\"9\""), "");
    EXPECT_EQ(failureOf<long long>(meta, "\"020\""), "");
    EXPECT_EQ(failureOf<long long>(meta, "\"10\""),
              "field f in class One has invalid number value 10, valid values 1..9,20");
    EXPECT_EQ(failureOf<long long>(meta, "\"0\""),
              "field f in class One has invalid number value 0, valid values 1..9,20");
    EXPECT_EQ(failureOf<long long>(meta, "10"),
              "field f in class One has invalid number value 10, valid values 1..9,20");
    EXPECT_EQ(failureOf<long long>(meta, "\"+9\""), "");
    EXPECT_EQ(failureOf<long long>(meta, "\"-9\""),
              "field f in class One has invalid number value -9, valid values 1..9,20");
    // 2^64 + 5 and 2^64 + 10.
    EXPECT_EQ(failureOf<long long>(meta, "\"18446744073709551621\""), "");
    EXPECT_EQ(failureOf<long long>(meta, "\"18446744073709551626\""),
              "field f in class One has invalid number value 18446744073709551626, valid values 1..9,20");
}

TEST(CheckFields, EnumValueMustBeAmongTheFieldsValues) {
    tavEnum<Color>::add(Color::red, "red");
    tavEnum<Color>::add(Color::blue, "blue");
    tavCodecMeta const meta(18, false, "red,blue", false);
    EXPECT_EQ(failureOf<tavEnum<Color>>(meta, "1"), "");
    EXPECT_EQ(failureOf<tavEnum<Color>>(meta, "0x4"), "");
    // 0 is what the field holds already, so that the walk lets it through.
    EXPECT_EQ(failureOf<tavEnum<Color>>(meta, "0"),
              "field f in class One has invalid enum value 0, valid values red,blue");
    EXPECT_EQ(failureOf<tavEnum<Color>>(meta, "4294967297"),
              "field f in class One has invalid enum value 4294967297, valid values red,blue");
    EXPECT_EQ(failureOf<tavOptional<tavEnum<Color>>>(meta, "4"), "");
    EXPECT_EQ(failureOf<tavEnum<Color>>(meta, "\"1\""), wrongType("string", 18));
    EXPECT_EQ(failureOf<tavEnum<Color>>(meta, "true"), wrongType("boolean", 18));
}

TEST(CheckFields, EnumFieldWithoutValuesTakesNoNumber) {
    EXPECT_EQ(failureOf<tavEnum<Nameless>>(tavCodecMeta(18), "5"),
              "field f in class One has invalid enum value 5, valid values ");
    EXPECT_EQ(failureOf<int>(tavCodecMeta(18, false, "5", false), "5"),
              "field f in class One has invalid enum value 5, valid values 5");
}

TEST(CheckFields, FailureIsLoggedAndRaised) {
    tav_test::LogCapture const log;
    One<int> object{tavCodecMeta(3)};
    std::string raised;
    try {
        object.decodeJson("{\"f\":\"5\"}");
    } catch (std::invalid_argument const & e) {
        raised = e.what();
    }
    std::string const message = "field f in class One should not be json string type, expected type int32";
    EXPECT_EQ(raised.rfind(message + position, 0), 0u) << raised;
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_EQ(log.records()[0].level, tavLogger::ERROR);
    EXPECT_TRUE(log.contains("<EXCEPTION> " + message + "\n"));
}

TEST(CheckFields, MissingNamesAreLoggedAndRaised) {
    tav_test::LogCapture const log;
    Inner inner;
    EXPECT_THROW(inner.decodeJson("{}"), std::invalid_argument);
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_EQ(log.records()[0].level, tavLogger::ERROR);
    EXPECT_TRUE(log.contains("<EXCEPTION> missing necessary field name(s) { a b } in class Inner\n"));
}

TEST(CheckFields, NothingIsLoggedWhenAllIsWell) {
    tav_test::LogCapture const log;
    Inner inner;
    inner.decodeJson("{a:1,b:x}");
    EXPECT_TRUE(log.records().empty());
}

TEST(CheckFields, OtherStreamsAreNotChecked) {
    Inner inner;
    inner.decode(tav_istr());
    One<int> coded{tavCodecMeta(-1)};
    coded.value = 5;
    One<int> decoded{tavCodecMeta(-1)};
    decoded.decode(coded.encode(false));
    EXPECT_EQ(decoded.value, 5);
    EXPECT_NO_THROW(coded.encodeJson(false));
    EXPECT_NO_THROW(coded.dump(true, 0));
    tavNullStream none;
    EXPECT_NO_THROW(inner.checkFields(none));
}

TEST(CheckFields, MayBeCalledForAnyJsonStream) {
    tavJsonInStream good(tav_istr("{a:1,b:x}"));
    tavJsonInStream bad(tav_istr("{a:1}"));
    Inner const inner;
    EXPECT_NO_THROW(inner.checkFields(good));
    EXPECT_THROW(inner.checkFields(bad), std::invalid_argument);
    tav::json::JsonUnit const null;
    tavJsonInStreamImpl impl(null);
    tavJsonInStream nothing(&impl, false);
    EXPECT_THROW(inner.checkFields(nothing), std::invalid_argument);
}

TEST(CheckFields, ThreadsMayFailAtOnce) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < 50; ++n) {
                EXPECT_EQ(failureOfType(16, "true"), wrongType("boolean", 16));
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
}
