#include "tav/vinta/vinta_json2nbr.h"

#include "support/log_capture.h"
#include "support/meta_rig.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using tav::pml::MetaClass;
using tav::pml::MetaFactory;
using tav::pml::MetaField;
using tav_test::factoryOf;
using tav_test::field;
using tav_test::hex;
using tav_test::Kind;
using tav_test::LogCapture;
using tav_test::message;
using tav_test::metaClass;
using tav_test::optional;
using tav_test::wrote;
using tav_test::wroteMembers;

namespace k = tav::pml::field_type;

namespace {

constexpr char noClass[] = "meta class not found, maybe neither __class__ nor __code__ given";

/// A class and what write does with it and with the code.
struct Outcome {
    std::string text;
    unsigned code;
};

Outcome writeWith(MetaFactory const & factory, std::string const & json, unsigned short code,
                  char const * className) {
    tavBytes out;
    try {
        tav::json2nbr::write(tav_istr(json), out, code, factory, className);
    } catch (std::invalid_argument const & e) {
        std::string const text = e.what();
        return Outcome{text.substr(0, text.find("\n    throw at ")), code};
    }
    return Outcome{hex(out), code};
}

/// "A" with the code 1 and the tag 1, "B" with the code 2 and the tag 2; both have the field "f".
MetaFactory twoClasses() {
    MetaClass a = metaClass("A", {field(1, "f", k::int32_)});
    a.code = "1";
    MetaClass b = metaClass("B", {field(2, "f", k::int32_)});
    b.code = "0x2";
    MetaFactory factory = factoryOf({a, b});
    factory.code2class[1] = "A";
    factory.code2class[2] = "B";
    return factory;
}

constexpr char asA[] = "FF 01 28 01 01 01 07 FF 01 29";
constexpr char asB[] = "FF 01 28 02 01 01 07 FF 01 29";

} // namespace

TEST(Json2NbrWrite, WorkedExampleByteForByte) {
    MetaFactory const factory = tav_test::helloFactory();
    Outcome const got = writeWith(
        factory, "{\"__class__\":\"im.Hello\",\"user\":\"ann\",\"seq\":\"5\",\"tags\":[\"a\"],\"mood\":1}",
        0xFFFF, "");
    EXPECT_EQ(got.text,
              "FF 01 28 04 01 01 01 02 01 01 05 03 FF 01 28 00 F1 01 61 FF 01 29 01 F1 03 61 6E 6E FF 01 29");
    EXPECT_EQ(got.code, 0x1F01u);
}

TEST(Json2NbrWrite, EmptyTextChangesNothingAndIsTold) {
    LogCapture log("clear(VERBOSE)");
    tavBytes out(tav_istr("old"));
    unsigned short code = 7;
    tav::json2nbr::write(tav_istr(), out, code, MetaFactory(), "M");
    EXPECT_EQ(hex(out), "6F 6C 64");
    EXPECT_EQ(code, 7);
    LogCapture::Record const line = log.find("json string is empty\n");
    EXPECT_EQ(line.level, tavLogger::VERBOSE);
    EXPECT_NE(line.text.find("JSON2NBR"), std::string::npos) << line.text;
    EXPECT_NE(line.text.find("vinta_json2nbr"), std::string::npos) << line.text;
}

TEST(Json2NbrWrite, OldBytesAreReplaced) {
    tavBytes out(tav_istr("old"));
    unsigned short code = 0xFFFF;
    tav::json2nbr::write("{}", out, code, message({}), "M");
    EXPECT_EQ(hex(out), "FF 01 28 FF 01 29");
}

TEST(Json2NbrWrite, TextMayLieInTheOutput) {
    tavBytes out(tav_istr("{\"f\":\"text\"}"));
    unsigned short code = 0xFFFF;
    tav::json2nbr::write(out, out, code, message({field(1, "f", k::string_)}), "M");
    EXPECT_EQ(hex(out), "FF 01 28 01 F1 04 74 65 78 74 FF 01 29");
}

TEST(Json2NbrWrite, EmptyObjectOfAClassWithoutNecessaryFieldsIsSixBytes) {
    MetaClass m = metaClass("M", {});
    m.code = "1F02";
    Outcome const got = writeWith(factoryOf({m}), "{}", 0xFFFF, "M");
    EXPECT_EQ(got.text, "FF 01 28 FF 01 29");
    EXPECT_EQ(got.code, 0x1F02u);
}

TEST(Json2NbrWrite, ParserFailurePassesThroughAndLeavesTheOutput) {
    tavBytes out(tav_istr("old"));
    unsigned short code = 7;
    try {
        tav::json2nbr::write("{\"a\":1", out, code, message({}), "M");
        FAIL() << "nothing raised";
    } catch (std::invalid_argument const & e) {
        EXPECT_EQ(std::string(e.what()).find("pair value no end : "), 0u) << e.what();
        EXPECT_NE(std::string(e.what()).find("vinta_json_parser"), std::string::npos) << e.what();
    }
    EXPECT_EQ(hex(out), "6F 6C 64");
    EXPECT_EQ(code, 7);
    EXPECT_EQ(wrote(message({}), "123"), "not object or array");
}

TEST(Json2NbrWrite, FailureLeavesTheOutputAndNamesItsPlace) {
    LogCapture log("clear(ERROR)");
    tavBytes out(tav_istr("old"));
    unsigned short code = 0xFFFF;
    try {
        tav::json2nbr::write("{\"f\":true}", out, code, message({field(1, "f", k::string_)}), "M");
        FAIL() << "nothing raised";
    } catch (std::invalid_argument const & e) {
        std::string const text = e.what();
        EXPECT_EQ(text.find("field f in class M should not be json boolean type, expected type string\n"
                            "    throw at json2nbr::writeToSimple(vinta_json2nbr.cpp:"),
                  0u)
            << text;
    }
    EXPECT_EQ(hex(out), "6F 6C 64");
    LogCapture::Record const line =
        log.find("<EXCEPTION> field f in class M should not be json boolean type, "
                 "expected type string\n");
    EXPECT_EQ(line.level, tavLogger::ERROR);
    EXPECT_NE(line.text.find("TAV"), std::string::npos) << line.text;
    EXPECT_EQ(log.records().size(), 1u);
}

TEST(Json2NbrWrite, TextThatIsNoJsonIsToldOnce) {
    LogCapture log("clear(INFO)");
    for (char const * json : {"123", "{\"a\":1", "{\"a\":1]", "[1", "{a", "{\"a\":\"x\"y}", " "}) {
        log.clear();
        wrote(message({}), json);
        EXPECT_EQ(log.records().size(), 1u) << json;
        EXPECT_EQ(log.count("<EXCEPTION> "), 1u) << json;
    }
}

TEST(Json2NbrWrite, NoClassAndNoCodeFails) {
    EXPECT_EQ(noClass, writeWith(twoClasses(), "{}", 0xFFFF, "").text);
    EXPECT_EQ(noClass, writeWith(twoClasses(), "{}", 0xFFFF, "C").text);
}

TEST(Json2NbrWrite, ArgumentNameGivesTheClassAndItsCode) {
    Outcome const got = writeWith(twoClasses(), "{\"f\":7}", 0xFFFF, "B");
    EXPECT_EQ(got.text, asB);
    EXPECT_EQ(got.code, 2u);
}

TEST(Json2NbrWrite, MemberClassTakesThePlaceOfTheArgument) {
    EXPECT_EQ(writeWith(twoClasses(), "{\"__class__\":\"B\",\"f\":7}", 0xFFFF, "A").text, asB);
    EXPECT_EQ(writeWith(twoClasses(), "{__class__:B,f:7}", 0xFFFF, "A").text, asB);
    EXPECT_EQ(noClass, writeWith(twoClasses(), "{\"__class__\":\"\",\"f\":7}", 0xFFFF, "A").text);
}

TEST(Json2NbrWrite, MemberClassThatIsNoStringLeavesTheArgument) {
    EXPECT_EQ(writeWith(twoClasses(), "{\"__class__\":5,\"f\":7}", 0xFFFF, "A").text, asA);
    EXPECT_EQ(writeWith(twoClasses(), "{\"__class__\":null,\"f\":7}", 0xFFFF, "A").text, asA);
}

TEST(Json2NbrWrite, CodeDecidesOverTheName) {
    Outcome const got = writeWith(twoClasses(), "{\"f\":7}", 2, "A");
    EXPECT_EQ(got.text, asB);
    EXPECT_EQ(got.code, 2u);
}

TEST(Json2NbrWrite, UnknownCodeFailsThoughTheNameIsKnown) {
    Outcome const got = writeWith(twoClasses(), "{\"f\":7}", 3, "A");
    EXPECT_EQ(noClass, got.text);
    EXPECT_EQ(got.code, 3u);
}

TEST(Json2NbrWrite, MemberCodeTakesThePlaceOfTheArgument) {
    Outcome const got = writeWith(twoClasses(), "{\"__code__\":2,\"f\":7}", 1, "A");
    EXPECT_EQ(got.text, asB);
    EXPECT_EQ(got.code, 2u);
}

TEST(Json2NbrWrite, MemberCodeDecidesOverMemberClass) {
    Outcome const got = writeWith(twoClasses(), "{\"__class__\":\"A\",\"__code__\":2,\"f\":7}", 0xFFFF, "A");
    EXPECT_EQ(got.text, asB);
    EXPECT_EQ(got.code, 2u);
    EXPECT_EQ(noClass, writeWith(twoClasses(), "{\"__class__\":\"A\",\"__code__\":3,\"f\":7}", 1, "A").text);
}

TEST(Json2NbrWrite, CodeOfAClassThatIsNotThereFails) {
    MetaFactory factory = twoClasses();
    factory.code2class[9] = "Gone";
    EXPECT_EQ(noClass, writeWith(factory, "{\"f\":7}", 9, "A").text);
}

TEST(Json2NbrWrite, GivenCodeIsNotReplacedByTheClassesOwn) {
    MetaFactory factory = twoClasses();
    factory.code2class[9] = "B";
    Outcome const got = writeWith(factory, "{\"f\":7}", 9, "");
    EXPECT_EQ(got.text, asB);
    EXPECT_EQ(got.code, 9u);
}

TEST(Json2NbrWrite, CodeIsSettledAheadOfTheMembersAndStaysAfterAFailure) {
    Outcome got = writeWith(twoClasses(), "{\"f\":\"x\"}", 0xFFFF, "B");
    EXPECT_EQ(got.text, "field f in class B should not be json string type, expected type int32");
    EXPECT_EQ(got.code, 2u);
    got = writeWith(twoClasses(), "{\"__code__\":1}", 2, "");
    EXPECT_EQ(got.text, "missing necessary field name(s) { f } in class A");
    EXPECT_EQ(got.code, 1u);
    EXPECT_EQ(writeWith(twoClasses(), "{\"__code__\":3}", 2, "A").code, 3u);
    EXPECT_EQ(writeWith(twoClasses(), "{\"__code__\":65535}", 2, "C").code, 0xFFFFu);
}

TEST(Json2NbrWrite, MemberCodeFollowsTheIntegerRule) {
    MetaFactory const factory = tav_test::helloFactory();
    std::string const rest = ",user:ann,seq:5,mood:0}";
    for (char const * code : {"\"0x1F01\"", "7937", "\"7937\"", "0x1f01", "017401", "73473"}) {
        SCOPED_TRACE(code);
        Outcome const got = writeWith(factory, std::string("{__code__:") + code + rest, 0xFFFF, "");
        EXPECT_EQ(got.text, "FF 01 28 04 01 01 00 02 01 01 05 01 F1 03 61 6E 6E FF 01 29");
        EXPECT_EQ(got.code, 0x1F01u);
    }
}

TEST(Json2NbrWrite, MemberCodeThatIsNoNumberCountsAsZeroOrNotAtAll) {
    EXPECT_EQ(writeWith(twoClasses(), "{\"__code__\":\"x\",\"f\":7}", 0xFFFF, "A").code, 0u);
    EXPECT_EQ(noClass, writeWith(twoClasses(), "{\"__code__\":\"x\",\"f\":7}", 0xFFFF, "A").text);
    EXPECT_EQ(writeWith(twoClasses(), "{\"__code__\":true,\"f\":7}", 0xFFFF, "A").text, asA);
    EXPECT_EQ(writeWith(twoClasses(), "{\"__code__\":null,\"f\":7}", 0xFFFF, "A").text, asA);
}

TEST(Json2NbrWrite, MemberCodeFFFFMeansByName) {
    Outcome const got = writeWith(twoClasses(), "{\"__code__\":65535,\"f\":7}", 2, "A");
    EXPECT_EQ(got.text, asA);
    EXPECT_EQ(got.code, 1u);
    EXPECT_EQ(writeWith(twoClasses(), "{\"__code__\":\"0xffff\",\"f\":7}", 2, "A").text, asA);
    EXPECT_EQ(writeWith(twoClasses(), "{\"__code__\":-1,\"f\":7}", 2, "A").text, asA);
}

TEST(Json2NbrWrite, ClassWithoutCodeGivesZero) {
    Outcome const got = writeWith(message({}), "{}", 0xFFFF, "M");
    EXPECT_EQ(got.text, "FF 01 28 FF 01 29");
    EXPECT_EQ(got.code, 0u);
}

TEST(Json2NbrWrite, ClassCodeIsReadByTheRuleOfMessageCodes) {
    MetaClass m = metaClass("M", {});
    for (auto const & pair : std::vector<std::pair<char const *, unsigned>>{
             {"1f01", 0x1F01}, {"0x1F01", 0x1F01}, {"10", 0x10}, {"1g", 0x0F}, {"11F01", 0x1F01}}) {
        m.code = pair.first;
        EXPECT_EQ(pair.second, writeWith(factoryOf({m}), "{}", 0xFFFF, "M").code) << pair.first;
    }
}

TEST(Json2NbrWrite, TopLevelArrayIsAnObjectWithoutMembers) {
    EXPECT_EQ(wrote(message({}), "[1,2]"), "FF 01 28 FF 01 29");
    EXPECT_EQ(wrote(message({field(1, "f", k::int32_)}), "[1]"),
              "missing necessary field name(s) { f } in class M");
}

TEST(Json2NbrWrite, TagsGoInTheOrderOfNamesAndNotOfTheClass) {
    MetaFactory const factory =
        message({field(1, "c", k::int32_), field(2, "a", k::int32_), field(3, "b", k::int32_)});
    EXPECT_EQ(wroteMembers(factory, "{c:3,a:1,b:2}"), "02 01 01 01 03 01 01 02 01 01 01 03");
}

TEST(Json2NbrWrite, NamesAreOrderedByTheirBytes) {
    MetaFactory const factory =
        message({field(1, "\xC3\xA4", k::int32_), field(2, "ab", k::int32_), field(3, "a", k::int32_),
                 field(4, "Z", k::int32_), field(5, "\x7F", k::int32_)});
    EXPECT_EQ(wroteMembers(factory, "{\"\xC3\xA4\":1,\"ab\":2,\"a\":3,\"Z\":4,\"\x7F\":5}"),
              "04 01 01 04 03 01 01 03 02 01 01 02 05 01 01 05 01 01 01 01");
}

TEST(Json2NbrWrite, TagIsTheLowByteOfTheId) {
    MetaFactory const factory =
        message({field(300, "a", k::int32_), field(200, "b", k::int32_), field(-1, "c", k::int32_)});
    EXPECT_EQ(wroteMembers(factory, "{a:1,b:2,c:3}"), "2C 01 01 01 C8 01 01 02 FF 01 01 03");
}

TEST(Json2NbrWrite, LastOfTwoMembersOfOneNameStands) {
    EXPECT_EQ(wroteMembers(message({field(1, "f", k::int32_)}), "{f:1,f:2}"), "01 01 01 02");
}

TEST(Json2NbrWrite, UnknownMemberIsToldAndDropped) {
    LogCapture log("clear(INFO)");
    EXPECT_EQ(wroteMembers(message({field(1, "f", k::int32_)}), "{\"f\":1,\"g\":2}"), "01 01 01 01");
    LogCapture::Record const line = log.find("not found field name [g] in class M\n");
    EXPECT_EQ(line.level, tavLogger::INFO);
    EXPECT_NE(line.text.find("JSON2NBR"), std::string::npos) << line.text;
    EXPECT_NE(line.text.find("json2nbr::write("), std::string::npos) << line.text;
    EXPECT_EQ(log.count("not found field name"), 1u);
}

TEST(Json2NbrWrite, UnknownMemberThatBeginsWithTwoUnderscoresIsDroppedInSilence) {
    LogCapture log("clear(INFO)");
    EXPECT_EQ(wroteMembers(message({field(1, "f", k::int32_)}), "{\"__x\":1,\"__\":2,\"_y\":3,\"f\":1}"),
              "01 01 01 01");
    EXPECT_EQ(log.count("not found field name"), 1u);
    EXPECT_TRUE(log.contains("not found field name [_y] in class M"));
}

TEST(Json2NbrWrite, MemberCodeIsAMemberLikeAnyOtherAndMemberClassIsNot) {
    MetaFactory factory =
        message({field(1, "__code__", k::int32_), optional(field(2, "__class__", k::string_))});
    factory.code2class[5] = "M";
    EXPECT_EQ(wroteMembers(factory, "{\"__class__\":\"M\",\"__code__\":5}"), "01 01 01 05");
    EXPECT_EQ(wrote(message({field(2, "__class__", k::string_)}), "{\"__class__\":\"M\"}"),
              "missing necessary field name(s) { __class__ } in class M");
}

TEST(Json2NbrWrite, NullIsANullValueAndCountsAsPresent) {
    EXPECT_EQ(wroteMembers(message({field(1, "f", k::int32_), field(2, "g", k::object_)}),
                           "{\"f\":null,\"g\":null}"),
              "01 00 02 00");
}

TEST(Json2NbrWrite, MissingNecessaryFieldsAreListedInTheOrderOfTheClass) {
    MetaFactory const factory =
        message({field(1, "user", k::string_), field(2, "mood", k::int32_), field(3, "seq", k::int64_),
                 optional(field(4, "opt", k::int32_)), field(5, "wrapped", k::optional_),
                 field(6, "list", k::list_), field(7, "refs", k::ref_list_), field(8, "map", k::map_)});
    EXPECT_EQ(wrote(factory, "{mood:1}"), "missing necessary field name(s) { user seq } in class M");
    EXPECT_EQ(wrote(factory, "{}"), "missing necessary field name(s) { user mood seq } in class M");
    EXPECT_EQ(wrote(factory, "{user:a,mood:1,x:5}"), "missing necessary field name(s) { seq } in class M");
    EXPECT_EQ(wroteMembers(factory, "{user:a,mood:1,seq:2}"), "02 01 01 01 03 01 01 02 01 F1 01 61");
}

TEST(Json2NbrWrite, EveryKindButTheOpenOnesIsNecessary) {
    for (tav_test::NamedKind const & one : tav_test::allKinds()) {
        bool const open = one.kind == k::optional_ || one.kind == k::list_ || one.kind == k::ref_list_ ||
                          one.kind == k::map_;
        EXPECT_EQ(open ? "FF 01 28 FF 01 29" : "missing necessary field name(s) { f } in class M",
                  wrote(message({field(1, "f", one.kind)}), "{}"))
            << one.name;
        EXPECT_EQ(wrote(message({optional(field(1, "f", one.kind))}), "{}"), "FF 01 28 FF 01 29") << one.name;
    }
}

TEST(Json2NbrWrite, MissingFieldsAreToldAfterAllValuesPassed) {
    MetaFactory const factory = message({field(1, "a", k::int32_), field(2, "b", k::int32_)});
    EXPECT_EQ(wrote(factory, "{b:x}"),
              "field b in class M should not be json string type, expected type int32");
    EXPECT_EQ(wrote(factory, "{b:1}"), "missing necessary field name(s) { a } in class M");
}

TEST(Json2NbrWrite, MissingFieldsNameTheirPlace) {
    tavBytes out;
    unsigned short code = 0xFFFF;
    try {
        tav::json2nbr::write("{}", out, code, message({field(1, "f", k::int32_)}), "M");
        FAIL() << "nothing raised";
    } catch (std::invalid_argument const & e) {
        EXPECT_NE(std::string(e.what()).find("throw at json2nbr::checkNecessaryFields(vinta_json2nbr.cpp:"),
                  std::string::npos)
            << e.what();
    }
    try {
        tav::json2nbr::write("{}", out, code = 0xFFFF, message({}), "X");
        FAIL() << "nothing raised";
    } catch (std::invalid_argument const & e) {
        EXPECT_NE(std::string(e.what()).find("throw at json2nbr::write(vinta_json2nbr.cpp:"),
                  std::string::npos)
            << e.what();
    }
}

TEST(Json2NbrWrite, FieldsOfBasesAreFoundAndNecessaryBasesFirst) {
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "m", k::int32_)}, "B"),
                                           metaClass("B", {field(2, "b", k::int32_)}, "C"),
                                           metaClass("C", {field(3, "c", k::int32_)}, "Nowhere")});
    EXPECT_EQ(wroteMembers(factory, "{m:1,b:2,c:3}"), "02 01 01 02 03 01 01 03 01 01 01 01");
    EXPECT_EQ(wrote(factory, "{}"), "missing necessary field name(s) { c b m } in class M");
    EXPECT_EQ(wrote(factory, "{b:2}"), "missing necessary field name(s) { c m } in class M");
    LogCapture log("clear(INFO)");
    wrote(factory, "{m:1,b:2,c:3,d:4}");
    EXPECT_TRUE(log.contains("not found field name [d] in class M\n"));
}

TEST(Json2NbrWrite, NearestFieldOfANameIsTaken) {
    MetaFactory const factory = factoryOf(
        {metaClass("M", {field(1, "f", k::int32_)}, "B"), metaClass("B", {field(2, "f", k::string_)})});
    EXPECT_EQ(wroteMembers(factory, "{f:5}"), "01 01 01 05");
}

TEST(Json2NbrWrite, NameOfAFieldTwiceMissingIsToldTwice) {
    MetaFactory const factory = factoryOf(
        {metaClass("M", {field(1, "f", k::int32_)}, "B"), metaClass("B", {field(2, "f", k::string_)})});
    EXPECT_EQ(wrote(factory, "{}"), "missing necessary field name(s) { f f } in class M");
}

TEST(Json2NbrWrite, ManyFieldsAreAllLookedFor) {
    std::vector<MetaField> fields;
    std::string json = "{";
    for (short i = 0; i < 100; ++i) {
        std::string const name = "f" + std::to_string(i);
        fields.push_back(field(i, name.c_str(), k::int32_));
        json += (i != 0 ? "," : "") + name + ":1";
    }
    MetaFactory const factory = message(fields);
    EXPECT_EQ(100u * 4 * 3 - 1, wroteMembers(factory, json + "}").size());
    EXPECT_EQ(wrote(factory, json.substr(0, json.rfind(',')) + "}"),
              "missing necessary field name(s) { f99 } in class M");
    EXPECT_EQ(wrote(factory, "{" + json.substr(json.find(',') + 1) + "}"),
              "missing necessary field name(s) { f0 } in class M");
}

TEST(Json2NbrWrite, NestedMembersGoInTheOrderOfTheirNamesToo) {
    MetaFactory const factory = factoryOf({metaClass("M", {optional(field(1, "z", k::int32_)),
                                                           optional(field(2, "m", k::ref_, k::unknown_, "M")),
                                                           field(3, "a", k::list_, k::object_, "M")})});
    EXPECT_EQ(wroteMembers(factory, "{z:9,m:{z:7,z:6},a:[{z:3,m:{z:2}},{z:4,z:5}]}"),
              "03 FF 01 28 00 FF 01 28 02 FF 01 28 01 01 01 02 FF 01 29 01 01 01 03 FF 01 29 "
              "00 FF 01 28 01 01 01 05 FF 01 29 FF 01 29 02 FF 01 28 01 01 01 06 FF 01 29 01 01 01 09");
}
