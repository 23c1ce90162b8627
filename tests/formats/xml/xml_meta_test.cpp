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
    EXPECT_EQ(-9999, meta.varid);
    EXPECT_FALSE(meta.optional);
    EXPECT_FALSE(meta.multiple);
    EXPECT_FALSE(meta.hexical);
    EXPECT_FALSE(meta.protectedValue);
    EXPECT_EQ("", dumped(meta));
    EXPECT_EQ("", id(meta));
}

TEST(XmlMetaInfo, ConstructorAndSetMetaSetTheirFields) {
    MetaInfo meta(7, "name", "Int32", "5", true, false, true);
    EXPECT_EQ(7, meta.varid);
    EXPECT_EQ("name", meta.varname);
    EXPECT_EQ("Int32", meta.vartype);
    EXPECT_EQ("5", meta.defaultValue);
    EXPECT_TRUE(meta.optional);
    EXPECT_FALSE(meta.multiple);
    EXPECT_TRUE(meta.protectedValue);
    meta.memo = "kept";
    meta.setMeta(8, "n", "List<Int32>", "", false, true, false);
    EXPECT_EQ(8, meta.varid);
    EXPECT_EQ("n", meta.varname);
    EXPECT_EQ("List<Int32>", meta.vartype);
    EXPECT_EQ("", meta.defaultValue);
    EXPECT_FALSE(meta.optional);
    EXPECT_TRUE(meta.multiple);
    EXPECT_FALSE(meta.protectedValue);
    EXPECT_EQ("kept", meta.memo);
}

TEST(XmlMetaInfo, DumpsItsAttributesInOrder) {
    MetaInfo meta(7, "v", "Uint32", "5", true, true, true);
    meta.superclass = "S";
    meta.hexical = true;
    meta.values = "1,2";
    meta.memo = "m<";
    EXPECT_EQ(
        " type=\"Uint32\" super=\"S\" optional=\"true\" multiple=\"true\" hexical=\"true\" protected=\"true\""
        " limited=\"true\" default=\"5\" values=\"1,2\" varname=\"v\" memo=\"m&lt;\"",
        dumped(meta));
}

TEST(XmlMetaInfo, HexicalIsToldForUnsignedTypesOnly) {
    MetaInfo meta;
    meta.hexical = true;
    meta.vartype = "Int32";
    EXPECT_EQ(" type=\"Int32\"", dumped(meta));
    meta.vartype = "Uint8";
    EXPECT_EQ(" type=\"Uint8\" hexical=\"true\"", dumped(meta));
}

TEST(XmlMetaInfo, IdIsDecimalOrHexadecimal) {
    MetaInfo meta;
    meta.varid = 10;
    EXPECT_EQ(" id=\"10\"", id(meta));
    meta.hexical = true;
    EXPECT_EQ(" id=\"0x00000a\"", id(meta));
    meta.varid = 0;
    EXPECT_EQ(" id=\"0x000000\"", id(meta));
}

TEST(XmlVarInfo, ReadingCreatesNothing) {
    Attr const attr;
    EXPECT_EQ(-9999, attr.varid());
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

TEST(XmlVarInfo, WritingCreatesWithTheDefaults) {
    Content content;
    EXPECT_EQ(-9999, content.varid());
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
    EXPECT_EQ(3, info.varid());
    EXPECT_TRUE(info.optional());
    EXPECT_TRUE(info.multiple());
    EXPECT_TRUE(info.hexical());
    EXPECT_TRUE(info.protectedValue());
    EXPECT_EQ("tsdvnm", info.vartype() + info.superclass() + info.defaultValue() + info.values() +
                            info.varname() + info.memo());
}

TEST(XmlVarInfo, SetMetaCreates) {
    Node node("a");
    node.setMeta(1, "n", "Int8", "d", true, false, false);
    EXPECT_EQ(1, constant(node).varid());
    EXPECT_EQ("Int8", constant(node).vartype());
    EXPECT_TRUE(constant(node).optional());
}

TEST(XmlVarInfo, KnownTypesHaveNumbers) {
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

TEST(XmlVarInfo, TypesWrapInThreeForms) {
    EXPECT_EQ(Parsed(17, "Int32"), parsed("List<Int32>"));
    EXPECT_EQ(Parsed(17, "Int32"), parsed("List(Int32)"));
    EXPECT_EQ(Parsed(17, "Int32"), parsed("List Int32"));
    EXPECT_EQ(Parsed(16, "List<Int32>"), parsed("Optional<List<Int32>>"));
    EXPECT_EQ(Parsed(15, "Color"), parsed("Enum(Color)"));
    EXPECT_EQ(Parsed(17, "Int32"), parsed("List<Int32"));
    EXPECT_EQ(Parsed(17, ""), parsed("List<>"));
    EXPECT_EQ(Parsed(17, ""), parsed("List<"));
}

TEST(XmlVarInfo, ShortTypeIsOutOfEnumAndOptionalInLowerCase) {
    EXPECT_EQ("int32", miniType("Int32"));
    EXPECT_EQ("int32", miniType("Optional<Int32>"));
    EXPECT_EQ("color", miniType("Enum<Color>"));
    EXPECT_EQ("color", miniType("Optional(Enum Color)"));
    EXPECT_EQ("list<int32>", miniType("Optional<List<Int32>>"));
    EXPECT_EQ("enum", miniType("Enum"));
    EXPECT_EQ("im.hello", miniType("im.Hello"));
    EXPECT_EQ("", miniType(""));
}

TEST(XmlVarInfo, MiniDescriptionHasIdTypeAndMark) {
    Attr attr;
    EXPECT_EQ("{}", mini(attr));
    attr.vartype() = "Int32";
    EXPECT_EQ("{int32}", mini(attr));
    attr.varid() = 7;
    EXPECT_EQ("{7 int32}", mini(attr));
    attr.optional() = true;
    EXPECT_EQ("{7 int32?}", mini(attr));
    attr.multiple() = true;
    EXPECT_EQ("{7 int32*}", mini(attr));
    attr.hexical() = true;
    EXPECT_EQ("{0x000007 int32*}", mini(attr));
    attr.vartype().clear();
    EXPECT_EQ("{0x000007*}", mini(attr));
    attr.varid() = 0x1234567;
    EXPECT_EQ("{0x1234567*}", mini(attr));
}

TEST(XmlVarInfo, SampleValueGoesByModeAndProtection) {
    Attr attr;
    attr.vartype() = "String";
    for (int const mode : {0, 2, 3}) {
        EXPECT_EQ("abcdefgh", sample(attr, "abcdefgh", mode));
    }
    EXPECT_EQ("abcdefgh{string}", sample(attr, "abcdefgh", 1));
    attr.protectedValue() = true;
    EXPECT_EQ("abcdefgh", sample(attr, "abcdefgh", 0));
    EXPECT_EQ("********{string}", sample(attr, "abcdefgh", 1));
    EXPECT_EQ("abcdefgh", sample(attr, "abcdefgh", 2));
    EXPECT_EQ("ab***gh[8]", sample(attr, "abcdefgh", 3));
    EXPECT_EQ("ab***gh[8]", VarInfo::getProtectedString("abcdefgh"));
    EXPECT_EQ("********", VarInfo::getProtectedSampleString());
}

TEST(XmlVarInfo, CopiesHaveADescriptionOfTheirOwn) {
    Attr attr("n", "v");
    attr.varid() = 5;
    Attr copy(attr);
    attr.varid() = 6;
    EXPECT_EQ(5, constant(copy).varid());
    EXPECT_EQ("n", copy.name());
    copy = attr;
    EXPECT_EQ(6, constant(copy).varid());
    copy = Attr();
    EXPECT_EQ(-9999, constant(copy).varid());
}
