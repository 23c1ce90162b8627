#include "tav/vinta/vinta_xml_node.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

using tav::xml::Attr;
using tav::xml::Content;
using tav::xml::MetaInfo;
using tav::xml::Node;
using tav::xml::VarInfo;

namespace {

std::string dumped(MetaInfo const & meta) {
    std::string out;
    meta.dump(out);
    return out;
}

std::string id(MetaInfo const & meta) {
    std::string out;
    meta.dumpId(out);
    return out;
}

std::string mini(VarInfo const & info) {
    std::string out;
    info.dumpMiniMeta(out);
    return out;
}

std::string sample(VarInfo const & info, char const * text, int mode) {
    std::string out;
    info.dumpSampleValue(out, text, mode);
    return out;
}

std::pair<int, std::string> parsed(char const * type) {
    std::string rest = "former";
    int const known = VarInfo::parseType(type, rest);
    return {known, rest};
}

std::string miniType(char const * type) {
    Attr attr;
    attr.vartype() = type;
    return attr.getMiniMetaType();
}

using Parsed = std::pair<int, std::string>;

VarInfo const & constant(VarInfo const & info) {
    return info;
}

} // namespace

TEST(XmlMetaInfo, StartsWithoutIdAndEmpty) {
    MetaInfo const meta;
    EXPECT_EQ(meta.varid, -9999);
    EXPECT_FALSE(meta.optional);
    EXPECT_FALSE(meta.multiple);
    EXPECT_FALSE(meta.hexical);
    EXPECT_FALSE(meta.protectedValue);
    EXPECT_EQ(dumped(meta), "");
    EXPECT_EQ(id(meta), "");
}

TEST(XmlMetaInfo, ConstructorAndSetMetaSetTheirFields) {
    MetaInfo meta(7, "name", "Int32", "5", true, false, true);
    EXPECT_EQ(meta.varid, 7);
    EXPECT_EQ(meta.varname, "name");
    EXPECT_EQ(meta.vartype, "Int32");
    EXPECT_EQ(meta.defaultValue, "5");
    EXPECT_TRUE(meta.optional);
    EXPECT_FALSE(meta.multiple);
    EXPECT_TRUE(meta.protectedValue);
    meta.memo = "kept";
    meta.setMeta(8, "n", "List<Int32>", "", false, true, false);
    EXPECT_EQ(meta.varid, 8);
    EXPECT_EQ(meta.varname, "n");
    EXPECT_EQ(meta.vartype, "List<Int32>");
    EXPECT_EQ(meta.defaultValue, "");
    EXPECT_FALSE(meta.optional);
    EXPECT_TRUE(meta.multiple);
    EXPECT_FALSE(meta.protectedValue);
    EXPECT_EQ(meta.memo, "kept");
}

TEST(XmlMetaInfo, DumpsItsAttributesInOrder) {
    MetaInfo meta(7, "v", "Uint32", "5", true, true, true);
    meta.superclass = "S";
    meta.hexical = true;
    meta.values = "1,2";
    meta.memo = "m<";
    EXPECT_EQ(
        dumped(meta),
        " type=\"Uint32\" super=\"S\" optional=\"true\" multiple=\"true\" hexical=\"true\" protected=\"true\""
        " limited=\"true\" default=\"5\" values=\"1,2\" varname=\"v\" memo=\"m&lt;\"");
}

TEST(XmlMetaInfo, HexicalIsToldForUnsignedTypesOnly) {
    MetaInfo meta;
    meta.hexical = true;
    meta.vartype = "Int32";
    EXPECT_EQ(dumped(meta), " type=\"Int32\"");
    meta.vartype = "Uint8";
    EXPECT_EQ(dumped(meta), " type=\"Uint8\" hexical=\"true\"");
}

TEST(XmlMetaInfo, IdIsDecimalOrHexadecimal) {
    MetaInfo meta;
    meta.varid = 10;
    EXPECT_EQ(id(meta), " id=\"10\"");
    meta.hexical = true;
    EXPECT_EQ(id(meta), " id=\"0x00000a\"");
    meta.varid = 0;
    EXPECT_EQ(id(meta), " id=\"0x000000\"");
}

TEST(XmlMetaVarInfo, ReadingCreatesNothing) {
    Attr const attr;
    EXPECT_EQ(attr.varid(), -9999);
    EXPECT_FALSE(attr.optional());
    EXPECT_FALSE(attr.multiple());
    EXPECT_FALSE(attr.hexical());
    EXPECT_FALSE(attr.protectedValue());
    EXPECT_EQ(&tav::xml::nullString(), &attr.vartype());
    EXPECT_EQ(&tav::xml::nullString(), &attr.superclass());
    EXPECT_EQ(&tav::xml::nullString(), &attr.defaultValue());
    EXPECT_EQ(&tav::xml::nullString(), &attr.values());
    EXPECT_EQ(&tav::xml::nullString(), &attr.varname());
    EXPECT_EQ(&tav::xml::nullString(), &attr.memo());
}

TEST(XmlMetaVarInfo, WritingCreatesWithTheDefaults) {
    Content content;
    EXPECT_EQ(content.varid(), -9999);
    EXPECT_NE(&tav::xml::nullString(), &constant(content).memo());
    content.varid() = 3;
    content.optional() = true;
    content.multiple() = true;
    content.hexical() = true;
    content.protectedValue() = true;
    content.vartype() = "t";
    content.superclass() = "s";
    content.defaultValue() = "d";
    content.values() = "v";
    content.varname() = "n";
    content.memo() = "m";
    VarInfo const & info = content;
    EXPECT_EQ(info.varid(), 3);
    EXPECT_TRUE(info.optional());
    EXPECT_TRUE(info.multiple());
    EXPECT_TRUE(info.hexical());
    EXPECT_TRUE(info.protectedValue());
    EXPECT_EQ(info.vartype() + info.superclass() + info.defaultValue() + info.values() + info.varname() +
                  info.memo(),
              "tsdvnm");
}

TEST(XmlMetaVarInfo, SetMetaCreates) {
    Node node("a");
    node.setMeta(1, "n", "Int8", "d", true, false, false);
    EXPECT_EQ(constant(node).varid(), 1);
    EXPECT_EQ(constant(node).vartype(), "Int8");
    EXPECT_TRUE(constant(node).optional());
}

TEST(XmlMetaVarInfo, KnownTypesHaveNumbers) {
    char const * const types[] = {"Bool",   "Int8",  "Uint8",  "Int16",    "Uint16", "Int32",
                                  "Uint32", "Int64", "Uint64", "Float",    "Double", "String",
                                  "Time",   "Bytes", "Enum",   "Optional", "List"};
    for (int i = 0; i < 17; ++i) {
        EXPECT_EQ(Parsed(i + 1, ""), parsed(types[i]));
    }
    EXPECT_EQ(Parsed(0, "Map"), parsed("Map"));
    EXPECT_EQ(Parsed(0, "bool"), parsed("bool"));
    EXPECT_EQ(Parsed(0, "Int"), parsed("Int"));
    EXPECT_EQ(Parsed(0, "Foo<Int8>"), parsed("Foo<Int8>"));
    EXPECT_EQ(Parsed(0, ""), parsed(""));
}

TEST(XmlMetaVarInfo, TypesWrapInThreeForms) {
    EXPECT_EQ(Parsed(17, "Int32"), parsed("List<Int32>"));
    EXPECT_EQ(Parsed(17, "Int32"), parsed("List(Int32)"));
    EXPECT_EQ(Parsed(17, "Int32"), parsed("List Int32"));
    EXPECT_EQ(Parsed(16, "List<Int32>"), parsed("Optional<List<Int32>>"));
    EXPECT_EQ(Parsed(15, "Color"), parsed("Enum(Color)"));
    EXPECT_EQ(Parsed(17, "Int32"), parsed("List<Int32"));
    EXPECT_EQ(Parsed(17, ""), parsed("List<>"));
    EXPECT_EQ(Parsed(17, ""), parsed("List<"));
}

TEST(XmlMetaVarInfo, ShortTypeIsOutOfEnumAndOptionalInLowerCase) {
    EXPECT_EQ(miniType("Int32"), "int32");
    EXPECT_EQ(miniType("Optional<Int32>"), "int32");
    EXPECT_EQ(miniType("Enum<Color>"), "color");
    EXPECT_EQ(miniType("Optional(Enum Color)"), "color");
    EXPECT_EQ(miniType("Optional<List<Int32>>"), "list<int32>");
    EXPECT_EQ(miniType("Enum"), "enum");
    EXPECT_EQ(miniType("im.Hello"), "im.hello");
    EXPECT_EQ(miniType(""), "");
}

TEST(XmlMetaVarInfo, MiniDescriptionHasIdTypeAndMark) {
    Attr attr;
    EXPECT_EQ(mini(attr), "{}");
    attr.vartype() = "Int32";
    EXPECT_EQ(mini(attr), "{int32}");
    attr.varid() = 7;
    EXPECT_EQ(mini(attr), "{7 int32}");
    attr.optional() = true;
    EXPECT_EQ(mini(attr), "{7 int32?}");
    attr.multiple() = true;
    EXPECT_EQ(mini(attr), "{7 int32*}");
    attr.hexical() = true;
    EXPECT_EQ(mini(attr), "{0x000007 int32*}");
    attr.vartype().clear();
    EXPECT_EQ(mini(attr), "{0x000007*}");
    attr.varid() = 0x1234567;
    EXPECT_EQ(mini(attr), "{0x1234567*}");
}

TEST(XmlMetaVarInfo, SampleValueGoesByModeAndProtection) {
    Attr attr;
    attr.vartype() = "String";
    for (int const mode : {0, 2, 3}) {
        EXPECT_EQ(sample(attr, "abcdefgh", mode), "abcdefgh");
    }
    EXPECT_EQ(sample(attr, "abcdefgh", 1), "abcdefgh{string}");
    attr.protectedValue() = true;
    EXPECT_EQ(sample(attr, "abcdefgh", 0), "abcdefgh");
    EXPECT_EQ(sample(attr, "abcdefgh", 1), "********{string}");
    EXPECT_EQ(sample(attr, "abcdefgh", 2), "abcdefgh");
    EXPECT_EQ(sample(attr, "abcdefgh", 3), "ab***gh[8]");
    EXPECT_EQ(VarInfo::getProtectedString("abcdefgh"), "ab***gh[8]");
    EXPECT_EQ(VarInfo::getProtectedSampleString(), "********");
}

TEST(XmlMetaVarInfo, CopiesHaveADescriptionOfTheirOwn) {
    Attr attr("n", "v");
    attr.varid() = 5;
    Attr copy(attr);
    attr.varid() = 6;
    EXPECT_EQ(constant(copy).varid(), 5);
    EXPECT_EQ(copy.name(), "n");
    copy = attr;
    EXPECT_EQ(constant(copy).varid(), 6);
    copy = Attr();
    EXPECT_EQ(constant(copy).varid(), -9999);
}
