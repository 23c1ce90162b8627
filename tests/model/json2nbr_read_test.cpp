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
using tav_test::bytes;
using tav_test::factoryOf;
using tav_test::field;
using tav_test::Kind;
using tav_test::LogCapture;
using tav_test::message;
using tav_test::metaClass;
using tav_test::optional;
using tav_test::readMembers;
using tav_test::readOut;

namespace k = tav::pml::field_type;

namespace {

constexpr char helloBytes[] =
    "FF 01 28 04 01 01 01 02 01 01 05 03 FF 01 28 00 F1 01 61 FF 01 29 01 F1 03 61 6E 6E FF "
    "01 29";
constexpr char helloText[] =
    "{ \"__class__\":\"im.Hello\", \"mood\":1, \"seq\":\"5\", \"tags\":[ \"a\" ], \"user\":\"ann\" }";

/// An object of the class M with one member.
std::string withMember(std::string const & member) {
    return "{ \"__class__\":\"M\", " + member + " }";
}

/// What read gives for a field `f` of this kind and the tag 1.
std::string value(Kind kind, std::string const & nbr) {
    std::string const text = readMembers(message({field(1, "f", kind)}), "01 " + nbr);
    std::string const head = "{ \"__class__\":\"M\", \"f\":";
    return text.compare(0, head.size(), head) == 0 ? text.substr(head.size(), text.size() - head.size() - 2)
                                                   : text;
}

std::string readWithCode(MetaFactory const & factory, std::string const & nbr, unsigned short code) {
    tavString json;
    std::string const data = bytes(nbr.c_str());
    tav::json2nbr::read(json, tav_istr(data), code, factory, false);
    return std::string(json.data(), json.size());
}

} // namespace

TEST(Json2NbrRead, WorkedExampleByNameAndByCode) {
    MetaFactory const factory = tav_test::helloFactory();
    EXPECT_EQ(helloText, readOut(factory, helloBytes, false, "im.Hello"));
    EXPECT_EQ(helloText, readWithCode(factory, helloBytes, 0x1F01));
}

TEST(Json2NbrRead, EmptyBytesChangeNothingAndAreTold) {
    LogCapture log("clear(VERBOSE)");
    tavString json("old");
    tav::json2nbr::read(json, tav_istr(), tavString("M"), message({}), false);
    EXPECT_EQ(json, "old");
    tav::json2nbr::read(json, tav_istr(), static_cast<unsigned short>(1), message({}), false);
    EXPECT_EQ(json, "old");
    EXPECT_EQ(log.count("nbr bytes is empty\n"), 2u);
    LogCapture::Record const line = log.find("nbr bytes is empty");
    EXPECT_EQ(line.level, tavLogger::VERBOSE);
    EXPECT_NE(line.text.find("JSON2NBR"), std::string::npos) << line.text;
}

TEST(Json2NbrRead, UnknownClassGivesNull) {
    EXPECT_EQ(readOut(message({}), "FF 01 28 FF 01 29", false, "X"), "null");
    EXPECT_EQ(readOut(message({}), "FF 01 28 FF 01 29", true, "X"), "null");
    EXPECT_EQ(readOut(message({}), "FF 01 28 FF 01 29", false, ""), "null");
    EXPECT_EQ(readWithCode(message({}), "FF 01 28 FF 01 29", 5), "null");
}

TEST(Json2NbrRead, CodeOfAClassThatIsNotThereGivesNull) {
    MetaFactory factory = message({});
    factory.code2class[5] = "Gone";
    EXPECT_EQ(readWithCode(factory, "FF 01 28 FF 01 29", 5), "null");
}

TEST(Json2NbrRead, MemberClassIsTheNameOfTheClassItself) {
    MetaFactory factory = message({});
    factory.classes["Other"] = metaClass("Own", {});
    EXPECT_EQ(readOut(factory, "FF 01 28 FF 01 29", false, "Other"), "{ \"__class__\":\"Own\" }");
    EXPECT_EQ(readOut(factory, "FF 01 28 FF 01 29", true, "Other"), "@Own{ }");
}

TEST(Json2NbrRead, FieldNamedClassTakesThePlaceOfTheName) {
    EXPECT_EQ(readMembers(message({field(1, "__class__", k::string_)}), "01 F1 01 61"),
              "{ \"__class__\":\"a\" }");
}

TEST(Json2NbrRead, WhatIsNotNbrFailsAndLeavesTheText) {
    tavString json("old");
    std::string const data = bytes("28 00");
    for (char const * cls : {"M", "X"}) {
        try {
            tav::json2nbr::read(json, tav_istr(data), tavString(cls), message({}), false);
            FAIL() << "nothing raised";
        } catch (std::invalid_argument const & e) {
            EXPECT_EQ(std::string(e.what()).find(
                          "DecodeException: maybe not nbr: invalid high part of lengthOfSize 28\n"),
                      0u)
                << e.what();
        }
        EXPECT_EQ(json, "old");
    }
}

TEST(Json2NbrRead, MissingFieldsFailByTheirIdsAndLeaveTheText) {
    MetaFactory const factory =
        message({field(1, "a", k::int32_), field(200, "b", k::int32_), optional(field(3, "c", k::int32_)),
                 field(4, "l", k::list_), field(5, "r", k::ref_list_), field(6, "m", k::map_),
                 field(7, "o", k::optional_), field(-2, "n", k::int32_)});
    EXPECT_EQ(readMembers(factory, ""), "missing necessary field id(s) { 1 200 -2 } in class M");
    EXPECT_EQ(readMembers(factory, "01 01 01 05 FE 00 C8 00"),
              "missing necessary field id(s) { 200 } in class M");
    tavString json("old");
    std::string const data = bytes("FF 01 28 FF 01 29");
    try {
        tav::json2nbr::read(json, tav_istr(data), tavString("M"), factory, false);
        FAIL() << "nothing raised";
    } catch (std::invalid_argument const & e) {
        EXPECT_NE(std::string(e.what()).find("throw at json2nbr::checkNecessaryFields(vinta_json2nbr.cpp:"),
                  std::string::npos)
            << e.what();
    }
    EXPECT_EQ(json, "old");
}

TEST(Json2NbrRead, MissingFieldsOfBasesComeFirst) {
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "m", k::int32_)}, "B"),
                                           metaClass("B", {field(2, "b", k::int32_)}, "C"),
                                           metaClass("C", {field(3, "c", k::int32_)}, "Nowhere")});
    EXPECT_EQ(readMembers(factory, ""), "missing necessary field id(s) { 3 2 1 } in class M");
    EXPECT_EQ(readMembers(factory, "03 01 01 03 02 01 01 02 01 01 01 01"),
              "{ \"__class__\":\"M\", \"b\":2, \"c\":3, \"m\":1 }");
}

TEST(Json2NbrRead, NullMemberCountsAsPresent) {
    EXPECT_EQ(withMember("\"f\":null"), readMembers(message({field(1, "f", k::int32_)}), "01 00"));
}

TEST(Json2NbrRead, DocumentWithoutAValueIsNotChecked) {
    EXPECT_EQ(readOut(message({field(1, "f", k::int32_)}), "00"), "{ \"__class__\":\"M\" }");
    EXPECT_EQ(readOut(message({field(1, "f", k::int32_)}), "00 00"), "{ \"__class__\":\"M\" }");
}

TEST(Json2NbrRead, SimpleValueHasNoMembersAndIsChecked) {
    EXPECT_EQ(readOut(message({field(1, "f", k::int32_)}), "01 01 05"),
              "missing necessary field id(s) { 1 } in class M");
    EXPECT_EQ(readOut(message({}), "01 01 05"), "{ \"__class__\":\"M\" }");
    EXPECT_EQ(readOut(message({field(1, "f", k::int32_)}), "01 01 05", true), "@M{ }");
}

TEST(Json2NbrRead, OnlyTheFirstValueOfADocumentIsRead) {
    EXPECT_EQ(withMember("\"f\":5"), readOut(message({field(1, "f", k::int32_)}),
                                             "FF 01 28 01 01 01 05 FF 01 29 FF 01 28 01 01 01 06 FF 01 29"));
}

TEST(Json2NbrRead, UnknownTagIsToldAndCountsAsSeen) {
    LogCapture log("clear(INFO)");
    MetaFactory const factory = message({field(1, "f", k::int32_)});
    EXPECT_EQ(withMember("\"f\":5"), readMembers(factory, "09 01 01 01 01 01 01 05"));
    LogCapture::Record const line = log.find("not found field id [9] in class M\n");
    EXPECT_EQ(line.level, tavLogger::INFO);
    EXPECT_NE(line.text.find("JSON2NBR"), std::string::npos) << line.text;
    EXPECT_NE(line.text.find("json2nbr::read("), std::string::npos) << line.text;
}

TEST(Json2NbrRead, IdAbove127IsWrittenAndNeverFound) {
    LogCapture log("clear(INFO)");
    MetaFactory const factory = message({optional(field(200, "f", k::int32_))});
    EXPECT_EQ(tav_test::wroteMembers(factory, "{f:5}"), "C8 01 01 05");
    EXPECT_EQ(readMembers(factory, "C8 01 01 05"), "{ \"__class__\":\"M\" }");
    EXPECT_TRUE(log.contains("not found field id [-56] in class M"));
}

TEST(Json2NbrRead, NegativeIdIsFound) {
    EXPECT_EQ(withMember("\"f\":5"), readMembers(message({field(-56, "f", k::int32_)}), "C8 01 01 05"));
    EXPECT_EQ(withMember("\"f\":5"), readMembers(message({field(127, "f", k::int32_)}), "7F 01 01 05"));
    EXPECT_EQ(withMember("\"f\":5"), readMembers(message({field(-128, "f", k::int32_)}), "80 01 01 05"));
}

TEST(Json2NbrRead, MembersComeInTheOrderOfNames) {
    EXPECT_EQ(
        readMembers(message({field(1, "b", k::int32_), field(2, "a", k::int32_)}), "01 01 01 02 02 01 01 01"),
        "{ \"__class__\":\"M\", \"a\":1, \"b\":2 }");
}

TEST(Json2NbrRead, LastOfTwoMembersOfOneTagStands) {
    EXPECT_EQ(withMember("\"f\":6"),
              readMembers(message({field(1, "f", k::int32_)}), "01 01 01 05 01 01 01 06"));
    EXPECT_EQ(withMember("\"f\":null"),
              readMembers(message({field(1, "f", k::int32_)}), "01 01 01 05 01 00"));
}

TEST(Json2NbrRead, ListsOfOneTagAreJoined) {
    EXPECT_EQ(withMember("\"f\":[ 1, 2 ]"),
              readMembers(message({field(1, "f", k::list_, k::int32_)}),
                          "01 FF 01 28 00 01 01 01 FF 01 29 01 FF 01 28 00 01 01 02 FF 01 29"));
}

TEST(Json2NbrRead, CutDocumentGivesWhatWasComplete) {
    MetaFactory const factory = message({field(1, "f", k::int32_), optional(field(2, "g", k::int32_))});
    EXPECT_EQ(withMember("\"f\":5"), readOut(factory, "FF 01 28 01 01 01 05 02"));
    EXPECT_EQ(withMember("\"f\":5"), readOut(factory, "FF 01 28 01 01 01 05"));
    EXPECT_EQ(withMember("\"f\":5"), readOut(factory, "FF 01 28 01 01 04 05"));
}

TEST(Json2NbrRead, SimpleValuesByKind) {
    struct Row {
        Kind kind;
        char const * nbr;
        char const * json;
    };
    for (Row const & row : std::vector<Row>{
             {k::bool_, "01 01 01", "true"},
             {k::bool_, "01 01 02", "true"},
             {k::bool_, "01 01 00", "false"},
             {k::int8_, "01 02 FF FF", "-1"},
             {k::int8_, "01 01 41", "65"},
             {k::int16_, "01 02 FF FF", "-1"},
             {k::int32_, "01 02 FF FF", "65535"},
             {k::int32_, "01 04 FF FF FF FF", "-1"},
             {k::int64_, "01 01 05", "\"5\""},
             {k::int64_, "01 08 FF FF FF FF FF FF FF FF", "\"-1\""},
             {k::uint8_, "01 01 C8", "200"},
             {k::uint16_, "01 02 FF FF", "65535"},
             {k::uint32_, "01 04 FF FF FF FF", "4294967295"},
             {k::uint64_, "01 08 FF FF FF FF FF FF FF FF", "\"18446744073709551615\""},
             {k::float_, "01 04 00 00 80 3F", "1"},
             {k::float_, "01 01 01", "1.4013e-45"},
             {k::double_, "01 01 01", "4.94066e-324"},
             {k::double_, "01 08 00 00 00 00 00 00 F8 3F", "1.5"},
             {k::char_, "F1 01 61", "\"a\""},
             {k::wchar_, "F1 01 61", "\"a\""},
             {k::string_, "F1 02 68 69", "\"hi\""},
             {k::wstring_, "F1 02 C3 A4", "\"\xC3\xA4\""},
             {k::u8string_, "F1 01 0A", "\"\\n\""},
             {k::bytes_, "01 02 68 69", "\"aGk=\""},
             {k::time_, "01 01 05", "\"5\""},
             {k::enum_, "01 01 07", "7"},
         }) {
        EXPECT_EQ(row.json, value(row.kind, row.nbr)) << row.kind << " " << row.nbr;
    }
}

TEST(Json2NbrRead, ValueWithoutDataGivesZeroOrEmptyText) {
    for (char const * nbr : {"01 00", "F1 00", "FF 01 28 FF 01 29"}) {
        for (tav_test::NamedKind const & one : tav_test::allKinds()) {
            if (one.kind > k::enum_) {
                continue;
            }
            std::string expected = "0";
            if (one.kind == k::bool_) {
                expected = "false";
            } else if (one.kind == k::int64_ || one.kind == k::uint64_ || one.kind == k::time_) {
                expected = "\"0\"";
            } else if (one.kind >= k::char_ && one.kind <= k::bytes_) {
                expected = "\"\"";
            }
            EXPECT_EQ(value(one.kind, nbr), expected) << one.name << " " << nbr;
        }
    }
}

TEST(Json2NbrRead, NullIsNullForEveryKind) {
    LogCapture log("clear(INFO)");
    for (tav_test::NamedKind const & one : tav_test::allKinds()) {
        EXPECT_EQ(value(one.kind, "00"), "null") << one.name;
    }
    EXPECT_EQ(log.count("JSON2NBR"), 0u);
}

TEST(Json2NbrRead, OtherKindsAreToldAndStayNull) {
    for (tav_test::NamedKind const & one : tav_test::allKinds()) {
        bool const other = one.kind == k::optional_ || one.kind == k::union_ || one.kind == k::array_ ||
                           one.kind == k::array2d_ || one.kind == k::array3d_ || one.kind == k::null_ ||
                           one.kind == k::unknown_;
        LogCapture log("clear(INFO)");
        std::string const got = value(one.kind, "01 01 05");
        std::string const line = std::string("<ERROR> not yet supported field type: ") + one.name + "\n";
        EXPECT_EQ(other ? 1u : 0u, log.count("not yet supported")) << one.name;
        if (other) {
            EXPECT_EQ(got, "null") << one.name;
            EXPECT_EQ(log.find(line).level, tavLogger::ERROR) << one.name;
            EXPECT_NE(log.find(line).text.find("JSON2NBR"), std::string::npos);
            EXPECT_NE(log.find(line).text.find("readFrom"), std::string::npos);
        }
    }
}

TEST(Json2NbrRead, ListElementsHaveTheElementKind) {
    MetaFactory const factory = message({field(1, "f", k::list_, k::int32_)});
    EXPECT_EQ(withMember("\"f\":[ 7, null, 300 ]"),
              readMembers(factory, "01 FF 01 28 00 01 01 07 00 00 00 01 02 2C 01 FF 01 29"));
    EXPECT_EQ(withMember("\"f\":[ 7 ]"), readMembers(factory, "01 FF 01 28 09 01 01 07 FF 01 29"));
    EXPECT_EQ(withMember("\"f\":[ ]"), readMembers(factory, "01 FF 01 28 FF 01 29"));
    EXPECT_EQ(withMember("\"f\":[ ]"), readMembers(factory, "01 01 01 07"));
}

TEST(Json2NbrRead, ListOfReferencesGivesNullElementsAndTellsOfEach) {
    LogCapture log("clear(INFO)");
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "f", k::ref_list_, k::unknown_, "Sub")}),
                                           metaClass("Sub", {field(7, "x", k::int32_)})});
    EXPECT_EQ(withMember("\"f\":[ null, null ]"),
              readMembers(factory, "01 FF 01 28 00 FF 01 28 07 01 01 01 FF 01 29 00 01 01 01 FF 01 29"));
    EXPECT_EQ(log.count("<ERROR> not yet supported field type: unknown\n"), 2u);
}

TEST(Json2NbrRead, MapEntriesBecomeMembers) {
    MetaFactory const factory = message({field(4, "f", k::map_, k::int32_)});
    EXPECT_EQ(withMember("\"f\":{ \"j\":8, \"k\":9 }"),
              readMembers(factory, "04 FF 01 28 00 FF 01 28 01 F1 01 6B 02 01 01 09 FF 01 29 "
                                   "00 FF 01 28 02 01 01 08 01 F1 01 6A FF 01 29 FF 01 29"));
    EXPECT_EQ(withMember("\"f\":{ }"), readMembers(factory, "04 FF 01 28 FF 01 29"));
    EXPECT_EQ(withMember("\"f\":{ }"), readMembers(factory, "04 01 01 05"));
}

TEST(Json2NbrRead, LastKeyAndLastValueOfAnEntryCount) {
    EXPECT_EQ(
        withMember("\"f\":{ \"b\":2 }"),
        readMembers(message({field(4, "f", k::map_, k::int32_)}),
                    "04 FF 01 28 00 FF 01 28 01 F1 01 61 02 01 01 01 02 01 01 02 01 F1 01 62 FF 01 29 FF 01 "
                    "29"));
}

TEST(Json2NbrRead, EntryWithoutKeyOrValue) {
    MetaFactory const factory = message({field(4, "f", k::map_, k::int32_)});
    EXPECT_EQ(withMember("\"f\":{ \"\":9 }"),
              readMembers(factory, "04 FF 01 28 00 FF 01 28 02 01 01 09 FF 01 29 FF "
                                   "01 29"));
    EXPECT_EQ(withMember("\"f\":{ \"0\":9 }"),
              readMembers(message({field(4, "f", k::map_, k::int32_, "", k::int64_)}),
                          "04 FF 01 28 00 FF 01 28 02 01 01 09 FF 01 29 FF 01 29"));
    EXPECT_EQ(withMember("\"f\":{ \"k\":null }"),
              readMembers(factory, "04 FF 01 28 00 FF 01 28 01 F1 01 6B FF 01 29 FF 01 29"));
    EXPECT_EQ(withMember("\"f\":{ \"\":null }"), readMembers(factory, "04 FF 01 28 00 00 FF 01 29"));
    EXPECT_EQ(withMember("\"f\":{ \"\":null }"), readMembers(factory, "04 FF 01 28 00 01 01 05 FF 01 29"));
}

TEST(Json2NbrRead, OnlyKeysThatBecomeStringsSurvive) {
    struct Row {
        Kind key;
        char const * name;
    };
    for (Row const & row : std::vector<Row>{{k::string_, "5"},
                                            {k::wstring_, "5"},
                                            {k::u8string_, "5"},
                                            {k::char_, "5"},
                                            {k::int64_, "53"},
                                            {k::uint64_, "53"},
                                            {k::time_, "53"},
                                            {k::bytes_, "NQ=="},
                                            {k::int8_, ""},
                                            {k::int32_, ""},
                                            {k::uint32_, ""},
                                            {k::bool_, ""},
                                            {k::enum_, ""},
                                            {k::double_, ""},
                                            {k::unknown_, ""},
                                            {k::object_, ""}}) {
        EXPECT_EQ(withMember(std::string("\"f\":{ \"") + row.name + "\":9 }"),
                  readMembers(message({field(4, "f", k::map_, k::int32_, "", row.key)}),
                              "04 FF 01 28 00 FF 01 28 01 F1 01 35 02 01 01 09 FF 01 29 FF 01 29"))
            << row.key;
    }
}

TEST(Json2NbrRead, LostKeysFallTogetherAndTheLastValueStands) {
    EXPECT_EQ(withMember("\"f\":{ \"\":8 }"),
              readMembers(message({field(4, "f", k::map_, k::int32_, "", k::int32_)}),
                          "04 FF 01 28 00 FF 01 28 01 01 01 01 02 01 01 09 FF 01 29 "
                          "00 FF 01 28 01 01 01 02 02 01 01 08 FF 01 29 FF 01 29"));
}

TEST(Json2NbrRead, ObjectsByTheirClass) {
    LogCapture log("clear(INFO)");
    MetaFactory const factory =
        factoryOf({metaClass("M", {field(1, "f", k::ref_, k::unknown_, "Sub")}),
                   metaClass("Sub", {field(7, "x", k::int32_), field(8, "y", k::int32_)})});
    EXPECT_EQ(withMember("\"f\":{ \"x\":5 }"),
              readMembers(factory, "01 FF 01 28 07 01 01 05 09 01 01 01 FF 01 29"));
    EXPECT_EQ(log.find("not found field id [9] in class Sub\n").level, tavLogger::INFO);
    EXPECT_EQ(withMember("\"f\":{ }"), readMembers(factory, "01 FF 01 28 FF 01 29"));
    EXPECT_EQ(withMember("\"f\":{ }"), readMembers(factory, "01 01 01 05"));
}

TEST(Json2NbrRead, ObjectsOfOneTagAreJoined) {
    MetaFactory const factory =
        factoryOf({metaClass("M", {field(1, "f", k::ref_, k::unknown_, "Sub")}),
                   metaClass("Sub", {field(7, "x", k::int32_), field(8, "y", k::int32_)})});
    EXPECT_EQ(withMember("\"f\":{ \"x\":6, \"y\":7 }"),
              readMembers(factory,
                          "01 FF 01 28 07 01 01 05 08 01 01 07 FF 01 29 01 FF 01 28 07 01 01 06 FF 01 29"));
    EXPECT_EQ(withMember("\"f\":null"), readMembers(factory, "01 FF 01 28 07 01 01 05 FF 01 29 01 00"));
}

TEST(Json2NbrRead, SimpleValueOfAMissingClassIsToldToo) {
    LogCapture log("clear(INFO)");
    MetaFactory const factory = message({field(1, "f", k::ref_, k::unknown_, "Nowhere")});
    EXPECT_EQ(withMember("\"f\":{ }"), readMembers(factory, "01 01 01 05"));
    EXPECT_EQ(log.count("not found class Nowhere\n"), 1u);
    EXPECT_NE(log.find("not found class").text.find("json2nbr::readFrom("), std::string::npos);
}

TEST(Json2NbrRead, ClassWithinABaseIsNotSeenFromTheObjectsClass) {
    MetaClass base = metaClass("B", {field(2, "b", k::object_, k::unknown_, "Within")});
    base.classes.push_back(metaClass("Within", {field(7, "x", k::int32_)}));
    MetaFactory const factory = factoryOf({metaClass("M", {}, "B"), base});
    char const * const nbr = "02 FF 01 28 07 01 01 05 FF 01 29";
    EXPECT_EQ(readMembers(factory, nbr, false, "B"), "{ \"__class__\":\"B\", \"b\":{ \"x\":5 } }");
    EXPECT_EQ(withMember("\"b\":{ }"), readMembers(factory, nbr));
}

TEST(Json2NbrRead, NestedClassComesAheadOfTheFactorys) {
    MetaClass m = metaClass("M", {field(1, "f", k::object_, k::unknown_, "Sub")});
    m.classes.push_back(metaClass("Sub", {field(7, "x", k::int32_)}));
    MetaFactory const factory = factoryOf({m, metaClass("Sub", {field(7, "z", k::int32_)})});
    EXPECT_EQ(withMember("\"f\":{ \"x\":5 }"), readMembers(factory, "01 FF 01 28 07 01 01 05 FF 01 29"));
}

TEST(Json2NbrRead, FieldsOfTheBasesOfANestedClassAreFound) {
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "f", k::ref_, k::unknown_, "Sub")}),
                                           metaClass("Sub", {field(7, "x", k::int32_)}, "Base"),
                                           metaClass("Base", {field(8, "y", k::int32_)})});
    EXPECT_EQ(withMember("\"f\":{ \"y\":5 }"), readMembers(factory, "01 FF 01 28 08 01 01 05 FF 01 29"));
}

TEST(Json2NbrRead, MissingNestedClassIsToldOnceAndTheObjectStaysEmpty) {
    LogCapture log("clear(INFO)");
    MetaFactory const factory = message({field(1, "f", k::ref_, k::unknown_, "Nowhere")});
    EXPECT_EQ(withMember("\"f\":{ }"), readMembers(factory, "01 FF 01 28 01 01 01 05 02 01 01 05 FF 01 29"));
    EXPECT_EQ(log.count("not found class Nowhere\n"), 1u);
    EXPECT_EQ(log.find("not found class Nowhere").level, tavLogger::ERROR);
    EXPECT_NE(log.find("not found class").text.find("JSON2NBR"), std::string::npos);
}

TEST(Json2NbrRead, ListsAndMapsOfObjects) {
    MetaFactory const factory = factoryOf(
        {metaClass("M", {field(1, "l", k::list_, k::object_, "Sub"), field(2, "m", k::map_, k::ref_, "Sub")}),
         metaClass("Sub", {field(7, "x", k::int32_)})});
    EXPECT_EQ(
        readMembers(factory,
                    "01 FF 01 28 00 FF 01 28 07 01 01 01 FF 01 29 00 FF 01 28 07 01 01 02 FF 01 29 FF 01 "
                    "29 02 FF 01 28 00 FF 01 28 01 F1 01 61 02 FF 01 28 07 01 01 03 FF 01 29 FF 01 29 "
                    "FF 01 29"),
        "{ \"__class__\":\"M\", \"l\":[ { \"x\":1 }, { \"x\":2 } ], \"m\":{ \"a\":{ \"x\":3 } } }");
}

TEST(Json2NbrRead, ObjectWithinTheMapOfAMapKeepsItsElements) {
    EXPECT_EQ(withMember("\"f\":{ \"a\":{ \"b\":{ } } }"),
              readMembers(
                  message({field(1, "f", k::map_, k::map_)}),
                  "01 FF 01 28 00 FF 01 28 01 F1 01 61 02 FF 01 28 00 FF 01 28 01 F1 01 62 02 FF 01 28 FF 01 "
                  "29 FF 01 29 FF 01 29 FF 01 29 FF 01 29"));
}
