#include "tav/vinta/vinta_json2nbr.h"

#include "support/log_capture.h"
#include "support/meta_rig.h"

#include <gtest/gtest.h>

#include <string>

using tav::pml::MetaFactory;
using tav::pml::MetaField;
using tav_test::factoryOf;
using tav_test::field;
using tav_test::Kind;
using tav_test::message;
using tav_test::metaClass;
using tav_test::readMembers;
using tav_test::readOut;

namespace k = tav::pml::field_type;

namespace {

MetaField secret(MetaField made, char const * mask = "...***...") {
    made.isProtected = true;
    made.spec = mask;
    return made;
}

constexpr char hello[] = "F1 0B 68 65 6C 6C 6F 20 77 6F 72 6C 64";

/// What dump shows of a protected field `f` of this kind; what stands behind its name.
std::string shown(Kind kind, std::string const & nbr, char const * mask = "...***...") {
    std::string const text = readMembers(message({secret(field(1, "f", kind), mask)}), "01 " + nbr, true);
    std::string const head = "@M{ [1]f:";
    return text.compare(0, head.size(), head) == 0 ? text.substr(head.size(), text.size() - head.size() - 2)
                                                   : text;
}

} // namespace

TEST(Json2NbrDump, NamesCarryTheirTagsAndTheClassStandsAhead) {
    MetaFactory const factory = tav_test::helloFactory();
    char const * const nbr =
        "FF 01 28 04 01 01 01 02 01 01 05 03 FF 01 28 00 F1 01 61 FF 01 29 01 F1 03 61 6E 6E FF 01 29";
    EXPECT_EQ("@im.Hello{ [1]user:\"ann\", [2]seq:\"5\", [3]tags:[ \"a\" ], [4]mood:1 }",
              readOut(factory, nbr, true, "im.Hello"));
}

TEST(Json2NbrDump, NamesSortWithTheirTags) {
    EXPECT_EQ(
        "@M{ [10]b:2, [1]a:1, [2]c:3 }",
        readMembers(message({field(1, "a", k::int32_), field(10, "b", k::int32_), field(2, "c", k::int32_)}),
                    "01 01 01 01 0A 01 01 02 02 01 01 03", true));
}

TEST(Json2NbrDump, MissingFieldsAreNoFailure) {
    EXPECT_EQ("@M{ }", readMembers(message({field(1, "f", k::int32_)}), "", true));
    EXPECT_EQ("missing necessary field id(s) { 1 } in class M",
              readMembers(message({field(1, "f", k::int32_)}), "", false));
}

TEST(Json2NbrDump, UnknownClassGivesNull) {
    EXPECT_EQ("null", readOut(message({}), "FF 01 28 FF 01 29", true, "X"));
}

TEST(Json2NbrDump, NullMembersAreShown) {
    EXPECT_EQ("@M{ [1]f:null }", readMembers(message({field(1, "f", k::int32_)}), "01 00", true));
}

TEST(Json2NbrDump, ProtectedTextsAndBytesAreMasked) {
    EXPECT_EQ("\"hel***rld[11]\"", shown(k::string_, hello));
    EXPECT_EQ("\"hel***rld[11]\"", shown(k::wstring_, hello));
    EXPECT_EQ("\"hel***rld[11]\"", shown(k::u8string_, hello));
    EXPECT_EQ("\"hel***rld[11]\"", shown(k::bytes_, hello));
    EXPECT_EQ("\"***[11]\"", shown(k::string_, hello, "***"));
    EXPECT_EQ("\"***[11]\"", shown(k::string_, hello, ""));
    EXPECT_EQ("\"***[0]\"", shown(k::string_, "F1 00", "***"));
    EXPECT_EQ("\"***[0]\"", shown(k::bytes_, "01 00", "***"));
    EXPECT_EQ("null", shown(k::string_, "00"));
}

TEST(Json2NbrDump, OtherProtectedKindsAreShownWhole) {
    EXPECT_EQ("\"a\"", shown(k::char_, "F1 01 61"));
    EXPECT_EQ("\"a\"", shown(k::wchar_, "F1 01 61"));
    EXPECT_EQ("5", shown(k::int32_, "01 01 05"));
    EXPECT_EQ("\"5\"", shown(k::int64_, "01 01 05"));
    EXPECT_EQ("true", shown(k::bool_, "01 01 01"));
}

TEST(Json2NbrDump, WithoutDumpNothingIsMasked) {
    EXPECT_EQ("{ \"__class__\":\"M\", \"f\":\"hello world\" }",
              readMembers(message({secret(field(1, "f", k::string_))}), std::string("01 ") + hello));
    EXPECT_EQ("{ \"__class__\":\"M\", \"f\":\"aGVsbG8gd29ybGQ=\" }",
              readMembers(message({secret(field(1, "f", k::bytes_))}), std::string("01 ") + hello));
}

TEST(Json2NbrDump, WithoutProtectionNothingIsMasked) {
    MetaField open = field(1, "f", k::string_);
    open.spec = "***";
    EXPECT_EQ("@M{ [1]f:\"hello world\" }", readMembers(message({open}), std::string("01 ") + hello, true));
}

TEST(Json2NbrDump, ElementsOfAProtectedListAreMasked) {
    EXPECT_EQ("@M{ [1]f:[ \"hel***rld[11]\" ] }",
              readMembers(message({secret(field(1, "f", k::list_, k::string_))}),
                          std::string("01 FF 01 28 00 ") + hello + " FF 01 29", true));
}

TEST(Json2NbrDump, KeysAndValuesOfAProtectedMapAreMasked) {
    EXPECT_EQ(
        "@M{ [1]f:{ k***[1]:\"hel***rld[11]\" } }",
        readMembers(message({secret(field(1, "f", k::map_, k::string_))}),
                    std::string("01 FF 01 28 00 FF 01 28 01 F1 01 6B 02 ") + hello + " FF 01 29 FF 01 29",
                    true));
}

TEST(Json2NbrDump, NestedNamesCarryTheirTagsToo) {
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "f", k::ref_, k::unknown_, "Sub")}),
                                           metaClass("Sub", {secret(field(7, "x", k::string_), "***")})});
    EXPECT_EQ("@M{ [1]f:{ [7]x:\"***[1]\" } }",
              readMembers(factory, "01 FF 01 28 07 F1 01 61 FF 01 29", true));
}

TEST(Json2NbrDump, TemplateProtectsAField) {
    MetaFactory const factory = tav_test::fromTemplate("M:object(\n"
                                                       "    __class__(M)\n"
                                                       "    [1]user:string()\n"
                                                       "    [2]pwd:string({***})\n"
                                                       "    [3]card:string({..**..})\n"
                                                       ")\n");
    EXPECT_EQ("@M{ [1]user:\"ann\", [2]pwd:\"***[2]\", [3]card:\"12**45[5]\" }",
              readMembers(factory, "01 F1 03 61 6E 6E 02 F1 02 61 62 03 F1 05 31 32 33 34 35", true));
}
