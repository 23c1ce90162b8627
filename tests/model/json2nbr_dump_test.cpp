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
    EXPECT_EQ(readOut(factory, nbr, true, "im.Hello"),
              "@im.Hello{ [1]user:\"ann\", [2]seq:\"5\", [3]tags:[ \"a\" ], [4]mood:1 }");
}

TEST(Json2NbrDump, NamesSortWithTheirTags) {
    EXPECT_EQ(
        readMembers(message({field(1, "a", k::int32_), field(10, "b", k::int32_), field(2, "c", k::int32_)}),
                    "01 01 01 01 0A 01 01 02 02 01 01 03", true),
        "@M{ [10]b:2, [1]a:1, [2]c:3 }");
}

TEST(Json2NbrDump, MissingFieldsAreNoFailure) {
    EXPECT_EQ(readMembers(message({field(1, "f", k::int32_)}), "", true), "@M{ }");
    EXPECT_EQ(readMembers(message({field(1, "f", k::int32_)}), "", false),
              "missing necessary field id(s) { 1 } in class M");
}

TEST(Json2NbrDump, UnknownClassGivesNull) {
    EXPECT_EQ(readOut(message({}), "FF 01 28 FF 01 29", true, "X"), "null");
}

TEST(Json2NbrDump, NullMembersAreShown) {
    EXPECT_EQ(readMembers(message({field(1, "f", k::int32_)}), "01 00", true), "@M{ [1]f:null }");
}

TEST(Json2NbrDump, ProtectedTextsAndBytesAreMasked) {
    EXPECT_EQ(shown(k::string_, hello), "\"hel***rld[11]\"");
    EXPECT_EQ(shown(k::wstring_, hello), "\"hel***rld[11]\"");
    EXPECT_EQ(shown(k::u8string_, hello), "\"hel***rld[11]\"");
    EXPECT_EQ(shown(k::bytes_, hello), "\"hel***rld[11]\"");
    EXPECT_EQ(shown(k::string_, hello, "***"), "\"***[11]\"");
    EXPECT_EQ(shown(k::string_, hello, ""), "\"***[11]\"");
    EXPECT_EQ(shown(k::string_, "F1 00", "***"), "\"***[0]\"");
    EXPECT_EQ(shown(k::bytes_, "01 00", "***"), "\"***[0]\"");
    EXPECT_EQ(shown(k::string_, "00"), "null");
}

TEST(Json2NbrDump, OtherProtectedKindsAreShownWhole) {
    EXPECT_EQ(shown(k::char_, "F1 01 61"), "\"a\"");
    EXPECT_EQ(shown(k::wchar_, "F1 01 61"), "\"a\"");
    EXPECT_EQ(shown(k::int32_, "01 01 05"), "5");
    EXPECT_EQ(shown(k::int64_, "01 01 05"), "\"5\"");
    EXPECT_EQ(shown(k::bool_, "01 01 01"), "true");
}

TEST(Json2NbrDump, WithoutDumpNothingIsMasked) {
    EXPECT_EQ(readMembers(message({secret(field(1, "f", k::string_))}), std::string("01 ") + hello),
              "{ \"__class__\":\"M\", \"f\":\"hello world\" }");
    EXPECT_EQ(readMembers(message({secret(field(1, "f", k::bytes_))}), std::string("01 ") + hello),
              "{ \"__class__\":\"M\", \"f\":\"aGVsbG8gd29ybGQ=\" }");
}

TEST(Json2NbrDump, WithoutProtectionNothingIsMasked) {
    MetaField open = field(1, "f", k::string_);
    open.spec = "***";
    EXPECT_EQ(readMembers(message({open}), std::string("01 ") + hello, true), "@M{ [1]f:\"hello world\" }");
}

TEST(Json2NbrDump, ElementsOfAProtectedListAreMasked) {
    EXPECT_EQ(readMembers(message({secret(field(1, "f", k::list_, k::string_))}),
                          std::string("01 FF 01 28 00 ") + hello + " FF 01 29", true),
              "@M{ [1]f:[ \"hel***rld[11]\" ] }");
}

TEST(Json2NbrDump, KeysAndValuesOfAProtectedMapAreMasked) {
    EXPECT_EQ(
        readMembers(message({secret(field(1, "f", k::map_, k::string_))}),
                    std::string("01 FF 01 28 00 FF 01 28 01 F1 01 6B 02 ") + hello + " FF 01 29 FF 01 29",
                    true),
        "@M{ [1]f:{ k***[1]:\"hel***rld[11]\" } }");
}

TEST(Json2NbrDump, NestedNamesCarryTheirTagsToo) {
    MetaFactory const factory = factoryOf({metaClass("M", {field(1, "f", k::ref_, k::unknown_, "Sub")}),
                                           metaClass("Sub", {secret(field(7, "x", k::string_), "***")})});
    EXPECT_EQ(readMembers(factory, "01 FF 01 28 07 F1 01 61 FF 01 29", true),
              "@M{ [1]f:{ [7]x:\"***[1]\" } }");
}

TEST(Json2NbrDump, TemplateProtectsAField) {
    MetaFactory const factory = tav_test::fromTemplate("M:object(\n"
                                                       "    __class__(M)\n"
                                                       "    [1]user:string()\n"
                                                       "    [2]pwd:string({***})\n"
                                                       "    [3]card:string({..**..})\n"
                                                       ")\n");
    EXPECT_EQ(readMembers(factory, "01 F1 03 61 6E 6E 02 F1 02 61 62 03 F1 05 31 32 33 34 35", true),
              "@M{ [1]user:\"ann\", [2]pwd:\"***[2]\", [3]card:\"12**45[5]\" }");
}
