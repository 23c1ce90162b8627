#include "tav/vinta/vinta_pml_field_types.h"

#include "support/log_capture.h"
#include "tav/vinta/vinta_pml_streams.h"

#include <gtest/gtest.h>

#include <mutex>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

using tav::pml::ClassType;
using tav::pml::Unit;
using tav_test::LogCapture;
namespace field_type = tav::pml::field_type;

namespace {

/// Kinds print by their names also where nothing was parsed.
field_type::Initializer const names;

/// All of a type in one line: kind 'name', and what differs from a fresh type.
std::string shown(ClassType const & type) {
    std::ostringstream out;
    out << type.type << " '" << type.name << '\'';
    if (!type.keyName.empty()) {
        out << " key '" << type.keyName << '\'';
    }
    if (type.keyType != field_type::unknown_) {
        out << " keyType " << type.keyType;
    }
    if (type.elementType != field_type::unknown_) {
        out << " element " << type.elementType;
    }
    if (type.optional) {
        out << " optional";
    }
    if (type.isRef) {
        out << " isRef";
    }
    for (tavString const & dimension : type.dimensions) {
        out << " [" << dimension << ']';
    }
    return out.str();
}

/// What the text is parsed to, with "no: " ahead if it is said to name no kind.
std::string parsed(char const * text, Unit const & cfg = Unit()) {
    ClassType type(text, false);
    bool const known = type.parse(cfg);
    return (known ? "" : "no: ") + shown(type);
}

/// The same by the constructor.
std::string made(char const * text, Unit const & cfg = Unit()) {
    return shown(ClassType(text, cfg));
}

std::string written(ClassType type) {
    Unit unit;
    tavPmlOutStreamImpl impl(unit);
    tavPmlOutStream s(&impl, false);
    type.io(s);
    return unit.value();
}

struct Row {
    char const * text;
    char const * result;
};

std::ostream & operator<<(std::ostream & out, Row const & row) {
    return out << '"' << row.text << '"';
}

class ClassTypeParsedText : public testing::TestWithParam<Row> {};

constexpr char const * simpleKinds[] = {"bool",   "int8",   "int16",   "int32",    "int64",  "uint8",
                                        "uint16", "uint32", "uint64",  "float",    "double", "char",
                                        "wchar",  "string", "wstring", "u8string", "bytes",  "time"};

/// A configuration with names for some kinds.
Unit configuration() {
    Unit cfg;
    Unit & types = cfg.child("types");
    types.child("int32").value("int");
    types.child("int32?").value("Integer");
    types.child("string").value("String");
    types.child("bool?").value("Boolean");
    return cfg;
}

} // namespace

TEST_P(ClassTypeParsedText, IsTheType) {
    LogCapture const log("clear(ASSERT)");
    EXPECT_EQ(GetParam().result, parsed(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(
    KindsThatAreNotSimple, ClassTypeParsedText,
    testing::Values(
        Row{"enum", "no: object ''"}, Row{"optional", "no: object ''"}, Row{"union", "no: object ''"},
        Row{"object", "no: object ''"}, Row{"ref", "no: object ''"}, Row{"array", "no: object ''"},
        Row{"array2d", "no: object '2d'"}, Row{"array3d", "no: object '3d'"}, Row{"list", "no: object ''"},
        Row{"ref_list", "no: object '_list'"}, Row{"map", "no: object ''"}, Row{"null", "no: object ''"},
        Row{"unknown", "no: object ''"}, Row{"enum{Foo}", "enum 'Foo'"},
        Row{"optional{Foo}", "optional 'Foo' optional"}, Row{"union{Foo}", "union 'Foo'"},
        Row{"object{Foo}", "object 'Foo'"}, Row{"ref{Foo}", "ref 'Foo'"}, Row{"array{Foo}", "array 'Foo'"},
        Row{"array2d{Foo}", "no: object '2d{Foo}'"}, Row{"array3d{Foo}", "no: object '3d{Foo}'"},
        Row{"list{Foo}", "list 'Foo' element object"}, Row{"ref_list{Foo}", "no: object '_list{Foo}'"},
        Row{"map{Foo}", "map 'Foo'"}, Row{"null{Foo}", "null 'Foo'"}, Row{"unknown{Foo}", "unknown 'Foo'"}));

INSTANTIATE_TEST_SUITE_P(
    WorkedTexts, ClassTypeParsedText,
    testing::Values(Row{"", "string 'string' optional"}, Row{"int32", "int32 'int32'"},
                    Row{"Integer", "int32 'int32' optional"}, Row{"string?", "string 'string' optional"},
                    Row{"list{string}", "list 'string' element string"},
                    Row{"list{Foo}", "list 'Foo' element object"}, Row{"list{ref{Foo}}", "ref_list 'Foo'"},
                    Row{"map{string,int64}", "map 'int64' key 'string' keyType string element int64"},
                    Row{"enum{Color}", "enum 'Color'"}, Row{"enum{ref{Color}}", "enum 'Color' isRef"},
                    Row{"Foo", "no: object 'Foo'"}, Row{"int32[4]", "int32 'int32' [4]"}));

INSTANTIATE_TEST_SUITE_P(Prefixes, ClassTypeParsedText,
                         testing::Values(Row{"stringList", "string 'string'"},
                                         Row{"stringx", "string 'string'"}, Row{"int323", "int32 'int32'"},
                                         Row{"int128", "int32 'int32'"}, Row{"int8x", "int8 'int8'"},
                                         Row{"interface", "int32 'int32'"}, Row{"longitude", "int64 'int64'"},
                                         Row{"Longitude", "int64 'int64' optional"},
                                         Row{"boolean", "bool 'bool'"}, Row{"bytesize", "bytes 'bytes'"},
                                         Row{"bytecode", "int8 'int8'"}, Row{"timer", "time 'time'"},
                                         Row{"charge", "char 'char'"}, Row{"doublet", "double 'double'"},
                                         Row{"Doublet", "double 'double' optional"},
                                         Row{"string{Foo}", "string 'string'"}, Row{"bool,", "bool 'bool'"},
                                         Row{"booleans{x}?", "bool 'bool' optional"}));

INSTANTIATE_TEST_SUITE_P(
    CutPrefixes, ClassTypeParsedText,
    testing::Values(Row{"listing", "no: object 'ing'"}, Row{"nullable", "no: object 'able'"},
                    Row{"listint64", "int32 'int32'"}, Row{"mapbool", "no: object 'bool'"},
                    Row{"arraylist{Foo}", "list 'Foo' element object"}, Row{"arraybool", "bool 'bool'"},
                    Row{"mapstring", "string 'string'"}, Row{"enumfloat", "float 'float'"},
                    Row{"enumenum", "no: object 'enum'"}, Row{"optionalenum{Foo}", "no: object 'enum{Foo}'"},
                    Row{"reflist{Foo}", "no: object 'list{Foo}'"},
                    Row{"listmap{a,Foo}", "map 'Foo' key 'a' keyType object element object"},
                    Row{"listInteger", "int32 'int32' optional"}, Row{"refshort", "int16 'int16'"},
                    Row{"maplistref", "no: object 'listref'"},
                    Row{"arrayenumlistmapnullobjectref", "no: object ''"},
                    Row{"array2d{x}", "no: object '2d{x}'"}, Row{"list?", "no: object '' optional"},
                    Row{"listing?[2]", "no: object 'ing' optional [2]"}));

INSTANTIATE_TEST_SUITE_P(
    Braces, ClassTypeParsedText,
    testing::Values(Row{"list{}", "no: object '{}'"}, Row{"map{}", "no: object '{}'"},
                    Row{"optional{}", "no: object '{}'"}, Row{"list{ }", "list ' ' element object"},
                    Row{"list{}}", "list '}' element object"}, Row{"list{{}", "list '{' element object"},
                    Row{"list{Foo} ", "no: object '{Foo} '"}, Row{"list {Foo}", "no: object ' {Foo}'"},
                    Row{"list{Foo", "no: object '{Foo'"}, Row{"listFoo}", "no: object 'Foo}'"},
                    Row{" list{Foo}", "no: object ' list{Foo}'"}, Row{"list{Foo}x", "no: object '{Foo}x'"},
                    Row{"list}", "no: object '}'"}, Row{"object{list{Foo}}", "object 'list{Foo}'"},
                    Row{"union{string}", "union 'string'"}));

INSTANTIATE_TEST_SUITE_P(
    Suffixes, ClassTypeParsedText,
    testing::Values(Row{"int32?", "int32 'int32' optional"}, Row{"int32??", "int32 'int32' optional"},
                    Row{"Foo?", "no: object 'Foo' optional"}, Row{"Foo??", "no: object 'Foo?' optional"},
                    Row{"?", "no: object '' optional"}, Row{"[4]", "no: object '' [4]"},
                    Row{"Foo[4]", "no: object 'Foo' [4]"}, Row{"int32[2][3]", "int32 'int32' [3] [2]"},
                    Row{"int32[ 2 ]", "int32 'int32' [2]"}, Row{"int32[]", "int32 'int32' []"},
                    Row{"int32?[4]", "int32 'int32' optional [4]"},
                    Row{"int32[4]?", "int32 'int32' optional"},
                    Row{"Foo[4]?", "no: object 'Foo[4]' optional"}, Row{"int32[4", "int32 'int32'"},
                    Row{"Foo]", "no: object 'Foo]'"}, Row{"Foo[1]x[2]", "no: object 'Foo' [2] [1]"},
                    Row{"Foo]x[2]", "no: object 'Foo]x' [2]"}, Row{"Foo[1]]", "no: object 'Foo' [1]]"},
                    Row{"Foo[x[1]", "no: object 'Foo[x' [1]"},
                    Row{"Foo[1]x[[2]", "no: object 'Foo[1]x[' [2]"}, Row{"Foo[1] ", "no: object 'Foo[1] '"},
                    Row{"list{Foo}?[2]", "list 'Foo' element object optional [2]"},
                    Row{"list{int32[3]}[2]", "no: object '{int32' [2] [3]"},
                    Row{"list{int32[3]}", "list 'int32' element int32"},
                    Row{"Foo[?]", "no: object 'Foo' [?]"}));

INSTANTIATE_TEST_SUITE_P(Optionals, ClassTypeParsedText,
                         testing::Values(Row{"optional{int32}", "int32 'int32' optional"},
                                         Row{"optional{optional{int32}}", "int32 'int32' optional"},
                                         Row{"optional{list{string}}", "list 'string' optional"},
                                         Row{"optional{ref{Foo}}", "ref 'Foo' optional"},
                                         Row{"optional{Integer}", "int32 'int32' optional"},
                                         Row{"optional{enum{ref{Color}}}", "enum 'Color' optional"},
                                         Row{"optional{map{string,int32}}", "map 'int32' optional"},
                                         Row{"optional{int32[4]}", "int32 'int32' optional"},
                                         Row{"optional{listing}", "optional 'listing' optional"},
                                         Row{"optional{optional{Foo}}", "optional 'Foo' optional"}));

INSTANTIATE_TEST_SUITE_P(
    Enums, ClassTypeParsedText,
    testing::Values(Row{"enum{int32}", "enum 'int32'"}, Row{"enum{object{Foo}}", "enum 'object{Foo}'"},
                    Row{"enum{enum{Foo}}", "enum 'enum{Foo}'"}, Row{"enum{listing}", "enum 'listing'"},
                    Row{"enum{optional{ref{Foo}}}", "enum 'Foo' isRef"},
                    Row{"enum{ref{Foo}?}", "enum 'Foo' isRef"}, Row{"enum{Foo}?", "enum 'Foo' optional"},
                    Row{"enum{ref{Color}}?[3]", "enum 'Color' optional isRef [3]"}));

INSTANTIATE_TEST_SUITE_P(
    Lists, ClassTypeParsedText,
    testing::Values(
        Row{"list{int32?}", "list 'int32' element int32"}, Row{"list{Integer}", "list 'int32' element int32"},
        Row{"list{Foo?}", "list 'Foo?' element object"},
        Row{"list{listing}", "list 'listing' element object"}, Row{"list{list{string}}", "list 'string'"},
        Row{"list{list{Foo}}", "list 'Foo'"}, Row{"list{object{Foo}}", "list 'Foo'"},
        Row{"list{enum{Color}}", "list 'Color'"}, Row{"list{map{string,int32}}", "list 'int32'"},
        Row{"list{optional{int32}}", "list 'int32' element int32"}, Row{"list{optional{Foo}}", "list 'Foo'"},
        Row{"list{optional{ref{Foo}}}", "ref_list 'Foo'"}, Row{"list{list{ref{Foo}}}", "list 'Foo'"},
        Row{"list{?}", "list '?' element object"}, Row{"list{ref{Foo}}?", "ref_list 'Foo' optional"}));

INSTANTIATE_TEST_SUITE_P(
    Maps, ClassTypeParsedText,
    testing::Values(Row{"map{string}", "map 'string'"},
                    Row{"map{ string , int64 }", "map 'int64' key 'string' keyType string element int64"},
                    Row{"map{Foo,Bar}", "map 'Bar' key 'Foo' keyType object element object"},
                    Row{"map{string,}", "map 'string' key 'string' keyType string element string"},
                    Row{"map{,int32}", "map 'int32' key 'string' keyType string element int32"},
                    Row{"map{string,listing}", "map 'ing' key 'string' keyType string element object"},
                    Row{"map{listing,int32}", "map 'int32' key 'ing' keyType object element int32"},
                    Row{"map{string,list{int32}}", "map 'int32' key 'string' keyType string element list"},
                    Row{"map{string,ref{Foo}}", "map 'Foo' key 'string' keyType string element ref"},
                    Row{"map{string,map{int32,bool}}", "map 'bool' key 'string' keyType string element map"},
                    Row{"map{map{x,y},z}", "map 'y},z' key '{x' keyType object element object"},
                    Row{"map{list{int8},int32}", "map 'int32' key 'int8' keyType list element int32"},
                    Row{"map{enum{Color},int32[3]}", "map 'int32' key 'Color' keyType enum element int32"},
                    Row{"map{Integer,Foo?}", "map 'Foo' key 'int32' keyType int32 element object"}));

TEST(ClassType, EverySimpleKindWithAnythingBehindItIsThatKind) {
    for (char const * kind : simpleKinds) {
        std::string const name(kind);
        std::string const result = name + " '" + name + "'";
        for (char const * tail : {"", "x", " ", "{Foo}", "{", "_t", "List", "]"}) {
            EXPECT_EQ(result, parsed((name + tail).c_str())) << name << tail;
        }
        EXPECT_EQ(result + " optional", parsed((name + "?").c_str()));
        EXPECT_EQ(result + " [7]", parsed((name + "[7]").c_str()));
        EXPECT_EQ("list '" + name + "' element " + name, parsed(("list{" + name + "}").c_str()));
        EXPECT_EQ(result + " optional", parsed(("optional{" + name + "}").c_str()));
        EXPECT_EQ("enum '" + name + "'", parsed(("enum{" + name + "}").c_str()));
        EXPECT_EQ("map '" + name + "' key '" + name + "' keyType " + name + " element " + name,
                  parsed(("map{" + name + "," + name + "}").c_str()));
    }
}

TEST(ClassType, EveryAliasWithAnythingBehindItIsItsKind) {
    static struct {
        char const * alias;
        char const * kind;
    } const rows[] = {
        {"boolean", "bool"},  {"byte", "int8"},       {"sbyte", "int8"},     {"short", "int16"},
        {"int", "int32"},     {"long", "int64"},      {"longlong", "int64"}, {"ubyte", "uint8"},
        {"ushort", "uint16"}, {"uint", "uint32"},     {"ulong", "uint64"},   {"ulonglong", "uint64"},
        {"Boolean", "bool"},  {"Byte", "int8"},       {"Sbyte", "int8"},     {"Short", "int16"},
        {"Integer", "int32"}, {"Long", "int64"},      {"Longlong", "int64"}, {"Ubyte", "uint8"},
        {"Ushort", "uint16"}, {"Uinteger", "uint32"}, {"Ulong", "uint64"},   {"Ulonglong", "uint64"},
        {"Float", "float"},   {"Double", "double"}};
    for (auto const & row : rows) {
        std::string const alias(row.alias);
        std::string const kind(row.kind);
        bool const capital = alias[0] < 'a';
        std::string const result = kind + " '" + kind + "'";
        for (char const * tail : {"", "x", "{Foo}", "_t"}) {
            EXPECT_EQ(result + (capital ? " optional" : ""), parsed((alias + tail).c_str()));
        }
        EXPECT_EQ(result + " optional", parsed((alias + "?").c_str()));
        EXPECT_EQ("list '" + kind + "' element " + kind, parsed(("list{" + alias + "}").c_str()));
    }
}

TEST(ClassType, TheConstructorMakesARefOfAnObject) {
    EXPECT_EQ(made("Foo"), "ref 'Foo' isRef");
    EXPECT_EQ(made("object{Foo}"), "ref 'Foo' isRef");
    EXPECT_EQ(made("listing"), "ref 'ing' isRef");
    EXPECT_EQ(made("list{}"), "ref '{}' isRef");
    EXPECT_EQ(made("Foo?[2]"), "ref 'Foo' optional isRef [2]");
    EXPECT_EQ(made("ref{Foo}"), "ref 'Foo'");
    EXPECT_EQ(made("optional{Foo}"), "optional 'Foo' optional");
    EXPECT_EQ(made("list{Foo}"), "list 'Foo' element object");
    EXPECT_EQ(made("interface"), "int32 'int32'");
    EXPECT_EQ(made(""), "string 'string' optional");
}

TEST(ClassType, TheOtherConstructorsParseNothing) {
    EXPECT_EQ(shown(ClassType()), "unknown ''");
    EXPECT_EQ(shown(ClassType("list{Foo}", false)), "string 'list{Foo}'");
    EXPECT_EQ(shown(ClassType("list{Foo}", true)), "string 'list{Foo}' optional");
    EXPECT_EQ(shown(ClassType("v", "k", true, field_type::map_, field_type::int8_)),
              "map 'v' key 'k' element int8 optional");
}

TEST(ClassType, IsACodecInterfaceThatIsNeverEmpty) {
    ClassType const type;
    tavCodecInterface const & codec = type;
    EXPECT_FALSE(codec.empty());
}

TEST(ClassType, AnOptionalTypeStaysOptional) {
    ClassType type("int32", true);
    EXPECT_TRUE(type.parse(Unit()));
    EXPECT_EQ(shown(type), "int32 'int32' optional");
}

TEST(ClassType, NamesComeFromTheConfiguration) {
    Unit const cfg = configuration();
    EXPECT_EQ(parsed("int32", cfg), "int32 'int'");
    EXPECT_EQ(parsed("int", cfg), "int32 'int'");
    EXPECT_EQ(parsed("int32?", cfg), "int32 'Integer' optional");
    EXPECT_EQ(parsed("Integer", cfg), "int32 'Integer' optional");
    EXPECT_EQ(parsed("optional{int32}", cfg), "int32 'Integer' optional");
    EXPECT_EQ(parsed("", cfg), "string 'String' optional");
    EXPECT_EQ(parsed("double", cfg), "double 'double'");
    EXPECT_EQ(parsed("list{int32}", cfg), "list 'int' element int32");
    EXPECT_EQ(parsed("list{int32?}", cfg), "list 'Integer' element int32");
    EXPECT_EQ(parsed("map{int32,int32?}", cfg), "map 'Integer' key 'int' keyType int32 element int32");
    EXPECT_EQ(parsed("map{Integer,bool?}", cfg), "map 'Boolean' key 'Integer' keyType int32 element bool");
    EXPECT_EQ(parsed("enum{int32}", cfg), "enum 'int32'");
}

TEST(ClassType, AnEmptyTextIsTheOptionalFormOfString) {
    Unit cfg = configuration();
    cfg.child("types").child("string?").value("Text");
    EXPECT_EQ(parsed("", cfg), "string 'Text' optional");
    EXPECT_EQ(parsed("string", cfg), "string 'String'");
    EXPECT_EQ(parsed("map{,}", cfg), "map 'Text' key 'Text' keyType string element string");
}

TEST(ClassType, ObjectIsReferenceGivesMapsTheOptionalForms) {
    Unit cfg = configuration();
    for (char const * yes : {"true", "1"}) {
        cfg.child("objectIsReference").value(yes);
        EXPECT_EQ(parsed("map{int32,int32}", cfg), "map 'Integer' key 'Integer' keyType int32 element int32");
        EXPECT_EQ(parsed("map{string,Foo}", cfg), "map 'Foo' key 'String' keyType string element object");
        EXPECT_EQ(parsed("list{int32}", cfg), "list 'int' element int32");
        EXPECT_EQ(parsed("int32", cfg), "int32 'int'");
    }
    for (char const * no : {"false", "0", "TRUE", ""}) {
        cfg.child("objectIsReference").value(no);
        EXPECT_EQ(parsed("map{int32,int32}", cfg), "map 'int' key 'int' keyType int32 element int32");
    }
}

TEST(ClassType, CheckChangesNothingIfThePrefixIsNotThere) {
    ClassType type("Foo", false);
    EXPECT_FALSE(type.check("list", field_type::list_, Unit()));
    EXPECT_EQ(shown(type), "string 'Foo'");
}

TEST(ClassType, CheckCutsThePrefixAndSetsTheKindAlsoIfItFails) {
    ClassType type("listing", false);
    EXPECT_FALSE(type.check("list", field_type::list_, Unit()));
    EXPECT_EQ(shown(type), "list 'ing'");
    ClassType braces("list{}", false);
    EXPECT_FALSE(braces.check("list", field_type::list_, Unit()));
    EXPECT_EQ(shown(braces), "list '{}'");
}

TEST(ClassType, CheckTakesTheKindThatItIsGiven) {
    ClassType simple("anything", true);
    EXPECT_TRUE(simple.check("any", field_type::int32_, configuration()));
    EXPECT_EQ(shown(simple), "int32 'Integer' optional");
    ClassType list("vec{list{ref{Foo}}}", false);
    EXPECT_TRUE(list.check("vec", field_type::list_, Unit()));
    EXPECT_EQ(shown(list), "list 'Foo'");
    ClassType map("m{string,Foo}", false);
    EXPECT_TRUE(map.check("m", field_type::map_, Unit()));
    EXPECT_EQ(shown(map), "map 'Foo' key 'string' keyType string element object");
    ClassType none("{Foo}", false);
    EXPECT_TRUE(none.check("", field_type::union_, Unit()));
    EXPECT_EQ(shown(none), "union 'Foo'");
    // A check reads neither dimensions nor the mark of an optional type.
    ClassType suffix("list{Foo}?", false);
    EXPECT_FALSE(suffix.check("list", field_type::list_, Unit()));
}

TEST(ClassType, CheckDoesNothingMoreForOtherKinds) {
    for (field_type::values const kind :
         {field_type::union_, field_type::object_, field_type::ref_, field_type::array_, field_type::array2d_,
          field_type::array3d_, field_type::ref_list_, field_type::null_, field_type::unknown_}) {
        std::ostringstream name;
        name << tavEnum<field_type::values>(kind);
        for (char const * inner : {"Foo", "list{string}?", "ref{Foo}", "int32", "a,b"}) {
            ClassType type{tav_istr("k{" + std::string(inner) + "}"), false};
            EXPECT_TRUE(type.check("k", kind, configuration()));
            EXPECT_EQ(name.str() + " '" + inner + '\'', shown(type));
        }
    }
}

TEST(ClassType, CheckKeepsWhatTheInnerTextDoesNotTell) {
    ClassType type("v", "key", true, field_type::map_, field_type::int8_);
    type.isRef = true;
    type.keyType = field_type::int16_;
    type.dimensions.emplace_back("4");
    type.name = "union{Foo}";
    EXPECT_TRUE(type.check("union", field_type::union_, Unit()));
    EXPECT_EQ(shown(type), "union 'Foo' key 'key' keyType int16 element int8 optional isRef [4]");
    type.name = "optional{Foo}";
    EXPECT_TRUE(type.check("optional", field_type::optional_, Unit()));
    EXPECT_EQ(shown(type), "optional 'Foo' key 'key' keyType int16 element int8 optional isRef [4]");
}

TEST(ClassType, AMapWithoutACommaIsLogged) {
    LogCapture const log("clear(ERROR)");
    EXPECT_EQ(parsed("map{string}"), "map 'string'");
    ASSERT_TRUE(log.waitFor(") no ',' found for map type: string\n"));
    EXPECT_EQ(log.find("no ',' found for map type: ").level, tavLogger::ERROR);
    EXPECT_NE(log.find("no ',' found for map type: ").text.find("[TAV]"), std::string::npos);
    EXPECT_EQ(parsed("list{map{x}}"), "list 'x'");
    ASSERT_TRUE(log.waitFor("no ',' found for map type: x\n"));
    EXPECT_EQ(log.count("no ',' found"), 2u);
}

TEST(ClassType, WhatIsNotDefinedIsLoggedEachTime) {
    LogCapture const log("clear(VERBOSE)");
    Unit const cfg = configuration();
    parsed("double", cfg);
    parsed("double", cfg);
    ASSERT_TRUE(log.waitFor("type {double} not defined in template cfg", 2));
    parsed("int32", cfg);
    parsed("Foo", cfg);
    tavLogger::flush();
    EXPECT_EQ(log.count("not defined"), 2u);
}

TEST(ClassType, IoWritesTheTypeAsATextThatReadsBack) {
    for (char const * text :
         {"int32", "string?", "list{string}", "list{Foo}", "map{string,int64}", "enum{Color}",
          "enum{ref{Color}}", "ref{Foo}", "object{Foo}", "int32[4]", "int32?[4]", "union{Foo}",
          "list{Foo}?[2]", "null{Foo}", "unknown{Foo}", "array{Foo}", "optional{Foo}?"}) {
        ClassType type(text, false);
        type.parse(Unit());
        std::string again = written(type);
        if (!type.dimensions.empty() && type.optional) {
            // The dimensions are written behind the mark.
            EXPECT_EQ(again[again.find('[') - 1], '?');
        }
        EXPECT_EQ(text, again);
        EXPECT_EQ(shown(type), parsed(again.c_str()));
    }
}

TEST(ClassType, IoWritesEveryPart) {
    EXPECT_EQ(written(ClassType("", Unit())), "string?");
    EXPECT_EQ(written(ClassType("Foo", Unit())), "ref{Foo}");
    EXPECT_EQ(written(ClassType("list{ref{Foo}}", Unit())), "ref_list{Foo}");
    EXPECT_EQ(written(ClassType()), "unknown{}");
    EXPECT_EQ(written(ClassType("int32[2][3]", Unit())), "int32[3][2]");
    EXPECT_EQ(written(ClassType("list{list{string}}", Unit())), "list{string}");
    ClassType type("v", "k", true, field_type::map_, field_type::object_);
    type.isRef = true;
    EXPECT_EQ(written(type), "map{k,ref{v}}?");
    type.type = field_type::ref_list_;
    EXPECT_EQ(written(type), "ref_list{k,v}?");
    type.type = field_type::int8_;
    EXPECT_EQ(written(type), "int8?");
    type.type = static_cast<field_type::values>(99);
    EXPECT_EQ(written(type), "99{k,ref{v}}?");
}

TEST(ClassType, IoOfAnInputStreamChangesNothing) {
    ClassType type("list{Foo}", Unit());
    tavPmlInStream s("a(int32)");
    type.io(s);
    EXPECT_EQ(shown(type), "list 'Foo' element object");
}

TEST(ClassType, AliasesMayBeAdded) {
    field_type::addAlias("vec", field_type::list_, false);
    field_type::Initializer::addAlias("Money", field_type::double_, true);
    field_type::addAlias("Crate", field_type::list_, true);
    EXPECT_EQ(parsed("vec{Foo}"), "list 'Foo' element object");
    EXPECT_EQ(parsed("vector"), "no: object 'tor'");
    EXPECT_EQ(parsed("MoneyBag"), "double 'double' optional");
    EXPECT_EQ(parsed("Crate{Foo}"), "list 'list' optional");
    field_type::addAlias("Money", field_type::float_, false);
    EXPECT_EQ(parsed("MoneyBag"), "float 'float'");
    {
        std::lock_guard<tavMutex const> guard(field_type::mtx());
        for (char const * name : {"vec", "Money", "Crate"}) {
            EXPECT_EQ(field_type::aliases().erase(name), 1u);
        }
    }
    EXPECT_EQ(parsed("MoneyBag"), "no: object 'MoneyBag'");
}

TEST(ClassType, AnAliasThatWasReplacedStaysSo) {
    field_type::addAlias("int", field_type::int64_, true);
    field_type::Initializer const again;
    EXPECT_EQ(parsed("int"), "int64 'int64' optional");
    EXPECT_EQ(parsed("Integer"), "int32 'int32' optional");
    field_type::addAlias("int", field_type::int32_, false);
    EXPECT_EQ(parsed("int"), "int32 'int32'");
}

TEST(ClassType, AliasesAreTriedInAscendingOrderOfTheirNames) {
    field_type::addAlias("Zoo", field_type::double_, false);
    field_type::addAlias("Zo", field_type::float_, false);
    EXPECT_EQ(parsed("Zoom"), "float 'float'");
    // A cut prefix leaves the remainder to the aliases that follow, and to these only.
    field_type::addAlias("Keep", field_type::list_, false);
    EXPECT_EQ(parsed("Keepbyte"), "int8 'int8'");
    EXPECT_EQ(parsed("KeepLong"), "int64 'int64' optional");
    EXPECT_EQ(parsed("KeepByte"), "no: object 'Byte'");
    EXPECT_EQ(parsed("Keepstring"), "no: object 'string'");
    std::lock_guard<tavMutex const> guard(field_type::mtx());
    for (char const * name : {"Zoo", "Zo", "Keep"}) {
        EXPECT_EQ(field_type::aliases().erase(name), 1u);
    }
}

TEST(ClassType, KindsMayBeAdded) {
    parsed("zebra{X}"); // the kinds as they are were looked at
    tavEnum<field_type::values>::add(static_cast<field_type::values>(50), "zebra");
    EXPECT_EQ(parsed("zebra{X}"), "zebra 'X'");
    EXPECT_EQ(parsed("zebras"), "no: object 's'");
}
