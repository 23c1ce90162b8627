#include "tav/vinta/vinta_json2nbr.h"

#include "support/log_capture.h"
#include "support/meta_rig.h"
#include "tav/vinta/vinta_json_parser.h"
#include "tav/vinta/vinta_nbr_unit.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using tav::pml::MetaClass;
using tav::pml::MetaFactory;
using tav::pml::MetaField;
using tav_test::factoryOf;
using tav_test::field;
using tav_test::Kind;
using tav_test::LogCapture;
using tav_test::message;
using tav_test::metaClass;
using tav_test::wroteMembers;

namespace k = tav::pml::field_type;

namespace {

/// What write gives for a field `f` of this kind and tag 1, behind the tag.
std::string value(Kind kind, std::string const & json) {
    std::string const members = wroteMembers(message({field(1, "f", kind)}), "{\"f\":" + json + "}");
    return members.compare(0, 3, "01 ") == 0 ? members.substr(3) : members;
}

std::string valueOf(MetaField const & made, std::string const & json) {
    std::string const members = wroteMembers(message({made}), "{\"f\":" + json + "}");
    return members.compare(0, 3, "01 ") == 0 ? members.substr(3) : members;
}

MetaField ranged(Kind kind, char const * range) {
    MetaField made = field(1, "f", kind);
    made.range = tav::Range(range);
    return made;
}

std::string refused(char const * json, char const * kind) {
    return std::string("field f in class M should not be json ") + json + " type, expected type " + kind;
}

bool isInteger(Kind kind) {
    return kind >= k::int8_ && kind <= k::uint64_;
}

constexpr char ff8[] = "01 08 FF FF FF FF FF FF FF FF";

} // namespace

TEST(Json2NbrValues, BooleanByKind) {
    for (tav_test::NamedKind const & one : tav_test::allKinds()) {
        bool const taken =
            one.kind == k::bool_ || isInteger(one.kind) || one.kind == k::float_ || one.kind == k::double_;
        EXPECT_EQ(taken ? "01 01 01" : refused("boolean", one.name), value(one.kind, "true")) << one.name;
        EXPECT_EQ(taken ? "01 01 00" : refused("boolean", one.name), value(one.kind, "false")) << one.name;
    }
}

TEST(Json2NbrValues, NumberByKind) {
    for (tav_test::NamedKind const & one : tav_test::allKinds()) {
        MetaField made = field(1, "f", one.kind);
        made.validValues = {5};
        std::string expected = refused("number", one.name);
        if (one.kind == k::bool_) {
            expected = "01 01 00";
        } else if (isInteger(one.kind) || one.kind == k::time_ || one.kind == k::enum_) {
            expected = "01 01 05";
        } else if (one.kind == k::float_) {
            expected = "01 04 00 00 A0 40";
        } else if (one.kind == k::double_) {
            expected = "01 08 00 00 00 00 00 00 14 40";
        }
        EXPECT_EQ(valueOf(made, "5"), expected) << one.name;
    }
}

TEST(Json2NbrValues, StringByKind) {
    for (tav_test::NamedKind const & one : tav_test::allKinds()) {
        std::string expected = refused("string", one.name);
        if (one.kind == k::int64_ || one.kind == k::uint64_) {
            expected = "01 02 D2 04";
        } else if (one.kind == k::string_ || one.kind == k::wstring_ || one.kind == k::u8string_) {
            expected = "F1 04 31 32 33 34";
        } else if (one.kind == k::bytes_) {
            expected = "01 03 D7 6D F8";
        }
        EXPECT_EQ(value(one.kind, "\"1234\""), expected) << one.name;
    }
}

TEST(Json2NbrValues, NullArrayAndObjectPassForEveryKind) {
    for (tav_test::NamedKind const & one : tav_test::allKinds()) {
        EXPECT_EQ(value(one.kind, "null"), "00") << one.name;
        EXPECT_EQ(value(one.kind, "[]"), "FF 01 28 FF 01 29") << one.name;
        EXPECT_EQ(value(one.kind, "{}"), "FF 01 28 FF 01 29") << one.name;
    }
}

TEST(Json2NbrValues, KindWithoutANamePrintsAsItsNumber) {
    EXPECT_EQ(refused("number", "99"), value(static_cast<Kind>(99), "1"));
}

TEST(Json2NbrValues, NumbersAreCutToTheirWidth) {
    struct Row {
        Kind kind;
        char const * json;
        char const * bytes;
    };
    for (Row const & row : std::vector<Row>{
             {k::int8_, "-1", "01 02 FF FF"},
             {k::int8_, "200", "01 02 C8 FF"},
             {k::int8_, "300", "01 01 2C"},
             {k::uint8_, "200", "01 01 C8"},
             {k::uint8_, "-1", "01 01 FF"},
             {k::uint8_, "256", "01 01 00"},
             {k::int16_, "128", "01 02 80 00"},
             {k::int16_, "-1", "01 02 FF FF"},
             {k::int16_, "65536", "01 01 00"},
             {k::uint16_, "65535", "01 02 FF FF"},
             {k::int32_, "300", "01 02 2C 01"},
             {k::int32_, "-1", "01 04 FF FF FF FF"},
             {k::int32_, "4294967297", "01 01 01"},
             {k::uint32_, "4294967295", "01 04 FF FF FF FF"},
             {k::uint32_, "2147483648", "01 04 00 00 00 80"},
             {k::int64_, "-1", ff8},
             {k::int64_, "4294967296", "01 05 00 00 00 00 01"},
             {k::int64_, "9223372036854775808", "01 01 00"},
             {k::uint64_, "18446744073709551615", ff8},
             {k::uint64_, "18446744073709551616", "01 01 00"},
             {k::uint64_, "-1", ff8},
             {k::time_, "-1", ff8},
             {k::time_, "0", "01 01 00"},
             {k::float_, "1.0", "01 04 00 00 80 3F"},
             {k::float_, "-0.0", "01 04 00 00 00 80"},
             {k::float_, "1e999", "01 01 00"},
             {k::double_, "1.5", "01 08 00 00 00 00 00 00 F8 3F"},
             {k::double_, "0x10", "01 01 00"},
         }) {
        EXPECT_EQ(row.bytes, value(row.kind, row.json)) << row.kind << " " << row.json;
    }
}

TEST(Json2NbrValues, IntegersFollowTheRuleOfPrefixes) {
    EXPECT_EQ(value(k::int32_, "0x10"), "01 01 10");
    EXPECT_EQ(value(k::int32_, "010"), "01 01 08");
    EXPECT_EQ(value(k::int32_, "0b11"), "01 01 03");
    EXPECT_EQ(value(k::int32_, "08"), "01 01 08");
    EXPECT_EQ(value(k::int32_, "1.5"), "01 01 00");
    EXPECT_EQ(value(k::int32_, "1abc"), "01 01 00");
    EXPECT_EQ(value(k::int32_, "1 2"), "01 01 00");
    EXPECT_EQ(value(k::time_, "0x10"), "01 01 10");
}

TEST(Json2NbrValues, NumberAgreesWithTheReadingOfTheJsonUnit) {
    for (char const * text : {"0", "5", "-5", "127", "255", "-129", "65537", "0xff", "0777", "0b1", "0b",
                              "1e3", "12345678901234567890", "-9223372036854775808", "1.5", "3x"}) {
        SCOPED_TRACE(text);
        tav::json::JsonUnit unit;
        unit.decode(std::string("{\"f\":") + text + "}");
        tav::json::JsonUnit const & f = static_cast<tav::json::JsonUnit const &>(unit)["f"];
        auto const agrees = [&](Kind kind, auto target) {
            f >> target;
            tav::nbr::NbrOutputStream out;
            out << target;
            EXPECT_EQ(tav_test::hex(out.str()), value(kind, text)) << kind;
        };
        agrees(k::int8_, char());
        agrees(k::int16_, short());
        agrees(k::int32_, int());
        agrees(k::int64_, 0ll);
        agrees(k::uint8_, static_cast<unsigned char>(0));
        agrees(k::uint16_, static_cast<unsigned short>(0));
        agrees(k::uint32_, 0u);
        agrees(k::uint64_, 0ull);
        agrees(k::float_, 0.0f);
        agrees(k::double_, 0.0);
        agrees(k::time_, tavTime());
        agrees(k::bool_, false);
    }
}

TEST(Json2NbrValues, LargeIntegersAsTextAreDigitsOnly) {
    for (Kind kind : {k::int64_, k::uint64_}) {
        EXPECT_EQ(value(kind, "\"5\""), "01 01 05");
        EXPECT_EQ(value(kind, "\"\""), "01 01 00");
        EXPECT_EQ(value(kind, "\"010\""), "01 01 08");
        EXPECT_EQ(value(kind, "\"99999999999999999999\""), "01 01 00");
        for (char const * bad : {"-5", "+5", "0x10", "5 ", " 5", "1.5", "x", "-", "+"}) {
            EXPECT_EQ(std::string("field f in class M not all digits for large integer ") + bad,
                      value(kind, std::string("\"") + bad + "\""));
        }
    }
    EXPECT_EQ(value(k::int64_, "\"9223372036854775807\""), "01 08 FF FF FF FF FF FF FF 7F");
    EXPECT_EQ(value(k::int64_, "\"18446744073709551615\""), "01 01 00");
    EXPECT_EQ(ff8, value(k::uint64_, "\"18446744073709551615\""));
    EXPECT_EQ(value(k::int64_, "5"), "01 01 05");
}

TEST(Json2NbrValues, TextsGoAsTheyAre) {
    EXPECT_EQ(value(k::string_, "\"\""), "F1 00");
    EXPECT_EQ(value(k::wstring_, "\"\xC3\xA4\""), "F1 02 C3 A4");
    EXPECT_EQ(value(k::u8string_, "\"\\n\""), "F1 01 0A");
    EXPECT_EQ(value(k::string_, "\"x \""), "F1 02 78 20");
    EXPECT_EQ(value(k::string_, "\"null\""), "F1 04 6E 75 6C 6C");
    std::string const longText(200, 'x');
    EXPECT_EQ(value(k::string_, "\"" + longText + "\"").substr(0, 11), "F2 C8 00 78");
}

TEST(Json2NbrValues, TextsAndBytesOfEverySizeGoAsTheStreamWritesThem) {
    for (unsigned size : {1u, 127u, 128u, 255u, 256u, 65535u, 65536u, 70000u}) {
        std::string const plain(size, 'A');
        tav::nbr::NbrOutputStream texts;
        texts << tavString(tav_istr(plain));
        EXPECT_EQ(tav_test::hex(texts.str()), value(k::string_, "\"" + plain + "\"")) << size;
        tavBytes decoded;
        tavBase64::decode(tav_istr(plain), decoded);
        tav::nbr::NbrOutputStream data;
        data << decoded;
        EXPECT_EQ(tav_test::hex(data.str()), value(k::bytes_, "\"" + plain + "\"")) << size;
    }
}

TEST(Json2NbrValues, BytesOfTextThatIsNoBase64AreWhatTheDecoderMakesOfIt) {
    for (char const * odd : {"a", "ab", "abc", "=", "====", "aG k=", "a*Gk=", "aGk=aGk=", "\xC3\xA4"}) {
        tavBytes decoded;
        tavBase64::decode(tav_istr(odd), decoded);
        tav::nbr::NbrOutputStream data;
        data << decoded;
        EXPECT_EQ(tav_test::hex(data.str()), value(k::bytes_, std::string("\"") + odd + "\"")) << odd;
    }
}

TEST(Json2NbrValues, BytesAreBase64) {
    EXPECT_EQ(value(k::bytes_, "\"aGk=\""), "01 02 68 69");
    EXPECT_EQ(value(k::bytes_, "\"\""), "01 00");
}

TEST(Json2NbrValues, EnumTakesOnlyItsValues) {
    MetaField mood = field(1, "f", k::enum_);
    mood.validValues = {0, 1, -7};
    EXPECT_EQ(valueOf(mood, "0"), "01 01 00");
    EXPECT_EQ(valueOf(mood, "0x1"), "01 01 01");
    EXPECT_EQ(valueOf(mood, "-7"), "01 04 F9 FF FF FF");
    EXPECT_EQ(valueOf(mood, "7"), "field f in class M has invalid enum value 7, valid values { -7 0 1 }");
    EXPECT_EQ(valueOf(mood, "1.5"), "field f in class M has invalid enum value -1, valid values { -7 0 1 }");
    EXPECT_EQ(valueOf(mood, "4294967296"),
              "field f in class M has invalid enum value -1, valid values { -7 0 1 }");
    EXPECT_EQ(refused("string", "enum"), valueOf(mood, "\"1\""));
    EXPECT_EQ(refused("boolean", "enum"), valueOf(mood, "true"));
    EXPECT_EQ(value(k::enum_, "0"), "field f in class M has invalid enum value 0, valid values { }");
}

TEST(Json2NbrValues, RangeOfAnEnumIsNotChecked) {
    MetaField mood = ranged(k::enum_, "6..9");
    mood.validValues = {1};
    EXPECT_EQ(valueOf(mood, "1"), "01 01 01");
}

TEST(Json2NbrValues, ListElementsAreCheckedAsTheField) {
    MetaField moods = field(1, "f", k::list_, k::enum_);
    moods.validValues = {0, 1};
    EXPECT_EQ(valueOf(moods, "[1,0]"), "FF 01 28 00 01 01 01 00 01 01 00 FF 01 29");
    EXPECT_EQ(valueOf(moods, "[1,2]"), "field f in class M has invalid enum value 2, valid values { 0 1 }");
    MetaField ages = field(1, "f", k::list_, k::int32_);
    ages.range = tav::Range("0..150");
    EXPECT_EQ(valueOf(ages, "[18,151]"),
              "field f in class M has invalid number value 151, valid values { 0:150 }");
    MetaField keyed = field(1, "f", k::map_, k::string_, "", k::int64_);
    keyed.range = tav::Range("0..5");
    EXPECT_EQ(valueOf(keyed, "{\"6\":\"x\"}"),
              "field f in class M has invalid number value 6, valid values { 0:5 }");
}

TEST(Json2NbrValues, EveryRefusalNamesItsPlace) {
    MetaField mood = field(1, "mood", k::enum_);
    mood.validValues = {1};
    MetaField age = field(2, "age", k::int32_);
    age.range = tav::Range("0..5");
    MetaFactory const factory =
        message({mood, age, field(3, "large", k::int64_), field(4, "map", k::map_, k::bool_, "", k::int8_)});
    for (char const * json :
         {"{mood:2}", "{mood:true}", "{mood:x}", "{age:6}", "{large:\"-5\"}", "{map:1}", "{map:{k:true}}"}) {
        tavBytes out;
        unsigned short code = 0xFFFF;
        try {
            tav::json2nbr::write(json, out, code, factory, "M");
            FAIL() << json;
        } catch (std::invalid_argument const & e) {
            EXPECT_NE(
                std::string(e.what()).find("\n    throw at json2nbr::writeToSimple(vinta_json2nbr.cpp:"),
                std::string::npos)
                << e.what();
        }
    }
}

TEST(Json2NbrValues, TextThatIsNoNumberIsAnEnumOfMinusOneAndWrittenAsZero) {
    MetaField mood = field(1, "f", k::enum_);
    mood.validValues = {-1};
    EXPECT_EQ(valueOf(mood, "1.5"), "01 01 00");
}

TEST(Json2NbrValues, RangeIsCheckedOnTheConvertedInteger) {
    EXPECT_EQ(valueOf(ranged(k::int32_, "0..150"), "18"), "01 01 12");
    EXPECT_EQ(valueOf(ranged(k::int32_, "0..150"), "151"),
              "field f in class M has invalid number value 151, valid values { 0:150 }");
    EXPECT_EQ(valueOf(ranged(k::int8_, "50..60"), "300"),
              "field f in class M has invalid number value 44, valid values { 50:60 }");
    EXPECT_EQ(valueOf(ranged(k::int8_, "0..5"), "-1"),
              "field f in class M has invalid number value -1, valid values { 0:5 }");
    EXPECT_EQ(valueOf(ranged(k::uint8_, "0..5"), "200"),
              "field f in class M has invalid number value 200, valid values { 0:5 }");
    EXPECT_EQ(valueOf(ranged(k::int64_, "0..5"), "\"6\""),
              "field f in class M has invalid number value 6, valid values { 0:5 }");
    EXPECT_EQ(valueOf(ranged(k::int64_, "0..5"), "\"5\""), "01 01 05");
    EXPECT_EQ(valueOf(ranged(k::uint64_, "0..5"), "18446744073709551615"),
              "field f in class M has invalid number value 18446744073709551615, valid values { 0:5 }");
    EXPECT_EQ(valueOf(ranged(k::int32_, "1..5"), "1.5"),
              "field f in class M has invalid number value 0, valid values { 1:5 }");
}

TEST(Json2NbrValues, RangeIsCheckedForEveryIntegerKindAndBoolOnly) {
    for (tav_test::NamedKind const & one : tav_test::allKinds()) {
        if (one.kind > k::double_ && one.kind != k::time_) {
            continue;
        }
        std::string const got = valueOf(ranged(one.kind, "6..9"), "5");
        bool const checked = one.kind == k::bool_ || isInteger(one.kind);
        EXPECT_EQ(checked, got.find("has invalid number value") != std::string::npos)
            << one.name << " " << got;
    }
    EXPECT_EQ(valueOf(ranged(k::bool_, "1..1"), "1"),
              "field f in class M has invalid number value 0, valid values { 1:1 }");
    EXPECT_EQ(valueOf(ranged(k::int32_, "6..9"), "true"), "01 01 01");
}

TEST(Json2NbrValues, ListElementsHaveTheElementKind) {
    MetaFactory const factory = message({field(1, "f", k::list_, k::int32_)});
    EXPECT_EQ(wroteMembers(factory, "{f:[7,300]}"), "01 FF 01 28 00 01 01 07 00 01 02 2C 01 FF 01 29");
    EXPECT_EQ(wroteMembers(factory, "{f:[]}"), "01 FF 01 28 FF 01 29");
    EXPECT_EQ(refused("string", "int32"), wroteMembers(factory, "{f:[7,x]}"));
}

TEST(Json2NbrValues, ListInAListKeepsTheElementKind) {
    MetaFactory const factory = message({field(1, "f", k::list_, k::int32_)});
    EXPECT_EQ(wroteMembers(factory, "{f:[[1],2]}"),
              "01 FF 01 28 00 FF 01 28 00 01 01 01 FF 01 29 00 01 01 02 FF 01 29");
}

TEST(Json2NbrValues, ArrayOnASimpleFieldHasElementsOfNoKind) {
    EXPECT_EQ(refused("number", "unknown"), value(k::int32_, "[1]"));
}

TEST(Json2NbrValues, MapEntriesInTheOrderOfNames) {
    MetaFactory const factory = message({field(4, "f", k::map_, k::int32_)});
    EXPECT_EQ(wroteMembers(factory, "{f:{k:9}}"),
              "04 FF 01 28 00 FF 01 28 01 F1 01 6B 02 01 01 09 FF 01 29 FF 01 29");
    EXPECT_EQ(
        wroteMembers(factory, "{f:{b:2,a:null}}"),
        "04 FF 01 28 00 FF 01 28 01 F1 01 61 02 00 FF 01 29 00 FF 01 28 01 F1 01 62 02 01 01 02 FF 01 29 "
        "FF 01 29");
}

TEST(Json2NbrValues, MapKeysAreStringsOfTheKeyKind) {
    auto const keyed = [](Kind key, char const * json) {
        return wroteMembers(message({field(1, "f", k::map_, k::bool_, "", key)}), json);
    };
    EXPECT_EQ(keyed(k::int64_, "{f:{\"5\":true}}"),
              "01 FF 01 28 00 FF 01 28 01 01 01 05 02 01 01 01 FF 01 29 FF 01 29");
    EXPECT_EQ(keyed(k::bytes_, "{f:{\"aGk=\":true}}"),
              "01 FF 01 28 00 FF 01 28 01 01 02 68 69 02 01 01 01 FF 01 29 FF 01 29");
    EXPECT_EQ(keyed(k::uint64_, "{f:{x:true}}"), "field f in class M not all digits for large integer x");
    EXPECT_EQ(refused("string", "int32"), keyed(k::int32_, "{f:{\"5\":true}}"));
    EXPECT_EQ(refused("string", "unknown"), keyed(k::unknown_, "{f:{\"5\":true}}"));
}

TEST(Json2NbrValues, MapOfMapsAndListsKeepsTheElementKind) {
    EXPECT_EQ(
        wroteMembers(message({field(1, "f", k::map_, k::map_)}), "{f:{a:{b:{}}}}"),
        "01 FF 01 28 00 FF 01 28 01 F1 01 61 02 FF 01 28 00 FF 01 28 01 F1 01 62 02 FF 01 28 FF 01 29 FF 01 "
        "29 FF 01 29 FF 01 29 FF 01 29");
    EXPECT_EQ(wroteMembers(message({field(1, "f", k::map_, k::int32_)}), "{f:{a:[1]}}"),
              "01 FF 01 28 00 FF 01 28 01 F1 01 61 02 FF 01 28 00 01 01 01 FF 01 29 FF 01 29 FF 01 29");
}

TEST(Json2NbrValues, ObjectsInAListOfMapsAreMapsAllTheWayDown) {
    MetaFactory const factory = message({field(1, "f", k::list_, k::map_)});
    EXPECT_EQ(
        wroteMembers(factory, "{f:[{a:{}}]}"),
        "01 FF 01 28 00 FF 01 28 00 FF 01 28 01 F1 01 61 02 FF 01 28 FF 01 29 FF 01 29 FF 01 29 FF 01 29");
    EXPECT_EQ(refused("number", "map"), wroteMembers(factory, "{f:[{a:1}]}"));
}

TEST(Json2NbrValues, FailureOfAFieldOfABaseNamesTheClassOfTheObject) {
    MetaFactory const factory =
        factoryOf({metaClass("M", {}, "B"), metaClass("B", {field(2, "b", k::int32_)})});
    EXPECT_EQ(wroteMembers(factory, "{b:x}"),
              "field b in class M should not be json string type, expected type int32");
}

TEST(Json2NbrValues, ClassWithinABaseIsNotSeenFromTheObjectsClass) {
    LogCapture log("clear(INFO)");
    MetaClass base = metaClass("B", {field(2, "b", k::object_, k::unknown_, "Within")});
    base.classes.push_back(metaClass("Within", {field(7, "x", k::int32_)}));
    MetaFactory const factory = factoryOf({metaClass("M", {}, "B"), base});
    EXPECT_EQ(wroteMembers(factory, "{b:{x:5}}", "B"), "02 FF 01 28 07 01 01 05 FF 01 29");
    EXPECT_EQ(log.count("not found class"), 0u);
    EXPECT_EQ(wroteMembers(factory, "{b:{x:5}}"), "02 FF 01 28 FF 01 29");
    EXPECT_EQ(log.count("not found class Within\n"), 1u);
}

TEST(Json2NbrValues, MemberClassIsSkippedAtTheTopOnly) {
    MetaFactory const factory =
        factoryOf({metaClass("M", {field(1, "f", k::ref_, k::unknown_, "Sub")}),
                   metaClass("Sub", {field(7, "__class__", k::string_), field(8, "__code__", k::int32_)})});
    EXPECT_EQ(wroteMembers(factory, "{f:{__class__:a,__code__:5}}"),
              "01 FF 01 28 07 F1 01 61 08 01 01 05 FF 01 29");
}

TEST(Json2NbrValues, ObjectOfAClassOfTheFactory) {
    MetaFactory const factory =
        factoryOf({metaClass("M", {field(1, "f", k::ref_, k::unknown_, "Sub")}),
                   metaClass("Sub", {field(7, "x", k::int32_), field(8, "y", k::string_)})});
    EXPECT_EQ(wroteMembers(factory, "{f:{y:a,x:5}}"), "01 FF 01 28 07 01 01 05 08 F1 01 61 FF 01 29");
}

TEST(Json2NbrValues, NestedObjectsAreNotCheckedForMissingFields) {
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "f", k::ref_, k::unknown_, "Sub")}),
                                           metaClass("Sub", {field(7, "x", k::int32_)})});
    EXPECT_EQ(wroteMembers(factory, "{f:{}}"), "01 FF 01 28 FF 01 29");
}

TEST(Json2NbrValues, NestedClassComesAheadOfTheFactorys) {
    MetaClass m = metaClass("M", {field(1, "f", k::object_, k::unknown_, "Sub")});
    m.classes.push_back(metaClass("Sub", {field(7, "x", k::int32_)}));
    MetaFactory const factory = factoryOf({m, metaClass("Sub", {field(9, "x", k::int32_)})});
    EXPECT_EQ(wroteMembers(factory, "{f:{x:5}}"), "01 FF 01 28 07 01 01 05 FF 01 29");
}

TEST(Json2NbrValues, ObjectOfItsOwnClassAndOfItsBases) {
    MetaFactory const factory =
        factoryOf({metaClass("M", {tav_test::optional(field(1, "f", k::ref_, k::unknown_, "M"))}, "B"),
                   metaClass("B", {tav_test::optional(field(2, "b", k::int32_))})});
    EXPECT_EQ(wroteMembers(factory, "{f:{f:{},b:5}}"),
              "01 FF 01 28 02 01 01 05 01 FF 01 28 FF 01 29 FF 01 29");
}

TEST(Json2NbrValues, FailureInANestedObjectNamesItsClass) {
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "f", k::ref_, k::unknown_, "Sub")}),
                                           metaClass("Sub", {field(7, "x", k::list_, k::int32_)})});
    EXPECT_EQ(wroteMembers(factory, "{f:{x:[a]}}"),
              "field x in class Sub should not be json string type, expected type int32");
}

TEST(Json2NbrValues, MissingNestedClassIsToldOnceForEachMember) {
    LogCapture log("clear(INFO)");
    MetaFactory const factory = message({field(1, "f", k::ref_, k::unknown_, "Nowhere")});
    EXPECT_EQ(wroteMembers(factory, "{f:{a:1,b:2}}"), "01 FF 01 28 FF 01 29");
    EXPECT_EQ(log.count("not found class Nowhere\n"), 2u);
    EXPECT_EQ(log.find("not found class Nowhere").level, tavLogger::ERROR);
    EXPECT_NE(log.find("not found class Nowhere").text.find("JSON2NBR"), std::string::npos);
    log.clear();
    EXPECT_EQ(wroteMembers(factory, "{f:{}}"), "01 FF 01 28 FF 01 29");
    EXPECT_EQ(log.count("not found class"), 0u);
}

TEST(Json2NbrValues, UnknownNestedMemberIsToldUnlessItBeginsWithTwoUnderscores) {
    LogCapture log("clear(INFO)");
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "f", k::ref_, k::unknown_, "Sub")}),
                                           metaClass("Sub", {field(7, "x", k::int32_)})});
    EXPECT_EQ(wroteMembers(factory, "{f:{x:1,z:2,__class__:Sub}}"), "01 FF 01 28 07 01 01 01 FF 01 29");
    EXPECT_EQ(log.count("not found field name"), 1u);
    LogCapture::Record const line = log.find("not found field name [z] in class Sub\n");
    EXPECT_EQ(line.level, tavLogger::INFO);
    EXPECT_NE(line.text.find("JSON2NBR"), std::string::npos) << line.text;
    EXPECT_NE(line.text.find("json2nbr::writeTo("), std::string::npos) << line.text;
}

TEST(Json2NbrValues, ListOfObjects) {
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "f", k::list_, k::object_, "Sub")}),
                                           metaClass("Sub", {field(7, "x", k::int32_)})});
    EXPECT_EQ(wroteMembers(factory, "{f:[{x:1},{x:2}]}"),
              "01 FF 01 28 00 FF 01 28 07 01 01 01 FF 01 29 00 FF 01 28 07 01 01 02 FF 01 29 FF 01 29");
}

TEST(Json2NbrValues, ListOfReferencesWorksByTheClassName) {
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "f", k::ref_list_, k::unknown_, "Sub")}),
                                           metaClass("Sub", {field(7, "x", k::int32_)})});
    EXPECT_EQ(wroteMembers(factory, "{f:[{x:1}]}"), "01 FF 01 28 00 FF 01 28 07 01 01 01 FF 01 29 FF 01 29");
}

TEST(Json2NbrValues, MapOfObjects) {
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "f", k::map_, k::ref_, "Sub")}),
                                           metaClass("Sub", {field(7, "x", k::int32_)})});
    EXPECT_EQ(wroteMembers(factory, "{f:{a:{x:1}}}"),
              "01 FF 01 28 00 FF 01 28 01 F1 01 61 02 FF 01 28 07 01 01 01 FF 01 29 FF 01 29 FF 01 29");
}
