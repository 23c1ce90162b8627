#include "tav/vinta/vinta_pml_field_types.h"

#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using tav::pml::ClassType;
using tav::pml::Unit;
using tav_test::LogCapture;
namespace field_type = tav::pml::field_type;

namespace {

typedef tavEnum<field_type::values> Kind;

struct KindRow {
    int value;
    char const * name;
};

constexpr KindRow kinds[] = {
    {0, "bool"},     {1, "int8"},      {2, "int16"},    {3, "int32"},     {4, "int64"},   {5, "uint8"},
    {6, "uint16"},   {7, "uint32"},    {8, "uint64"},   {9, "float"},     {10, "double"}, {11, "char"},
    {12, "wchar"},   {13, "string"},   {14, "wstring"}, {15, "u8string"}, {16, "bytes"},  {17, "time"},
    {18, "enum"},    {19, "optional"}, {20, "union"},   {21, "object"},   {22, "ref"},    {23, "array"},
    {24, "array2d"}, {25, "array3d"},  {26, "list"},    {27, "ref_list"}, {28, "map"},    {126, "null"},
    {127, "unknown"}};

struct AliasRow {
    char const * name;
    char const * kind;
    bool optional;
};

constexpr AliasRow aliasRows[] = {
    {"boolean", "bool", false},   {"byte", "int8", false},    {"sbyte", "int8", false},
    {"short", "int16", false},    {"int", "int32", false},    {"long", "int64", false},
    {"longlong", "int64", false}, {"ubyte", "uint8", false},  {"ushort", "uint16", false},
    {"uint", "uint32", false},    {"ulong", "uint64", false}, {"ulonglong", "uint64", false},
    {"Boolean", "bool", true},    {"Byte", "int8", true},     {"Sbyte", "int8", true},
    {"Short", "int16", true},     {"Integer", "int32", true}, {"Long", "int64", true},
    {"Longlong", "int64", true},  {"Ubyte", "uint8", true},   {"Ushort", "uint16", true},
    {"Uinteger", "uint32", true}, {"Ulong", "uint64", true},  {"Ulonglong", "uint64", true},
    {"Float", "float", true},     {"Double", "double", true}};

template <class T>
std::string printed(T const & v) {
    std::ostringstream out;
    out << v;
    return out.str();
}

field_type::values valueOf(int number) {
    return static_cast<field_type::values>(number);
}

} // namespace

TEST(FieldTypes, EveryKindHasItsNumberAndName) {
    field_type::Initializer const initializer;
    std::map<tavString, int> const numbers = Kind::numbers();
    std::set<int> const values = Kind::values();
    EXPECT_EQ(numbers.size(), 31u);
    EXPECT_EQ(values.size(), 31u);
    for (KindRow const & kind : kinds) {
        ASSERT_EQ(numbers.count(kind.name), 1u) << kind.name;
        EXPECT_EQ(kind.value, numbers.at(kind.name));
        EXPECT_EQ(values.count(kind.value), 1u);
        EXPECT_EQ(kind.name, printed(Kind(valueOf(kind.value))));
    }
}

TEST(FieldTypes, EnumeratorsAreTheNamesWithAnUnderscore) {
    EXPECT_EQ(field_type::bool_, 0);
    EXPECT_EQ(field_type::uint64_, 8);
    EXPECT_EQ(field_type::time_, 17);
    EXPECT_EQ(field_type::enum_, 18);
    EXPECT_EQ(field_type::array3d_, 25);
    EXPECT_EQ(field_type::map_, 28);
    EXPECT_EQ(field_type::null_, 126);
    EXPECT_EQ(field_type::unknown_, 127);
}

TEST(FieldTypes, KindsUpToTimeAreSimple) {
    for (KindRow const & kind : kinds) {
        EXPECT_EQ(kind.value <= 17, field_type::isSimple(kind.value)) << kind.name;
    }
}

TEST(FieldTypes, ADefaultKindIsUnknown) {
    EXPECT_EQ(Kind().value(), 127);
    EXPECT_EQ(field_type::unknown_, Kind());
}

TEST(FieldTypes, AKindWithoutANamePrintsItsNumber) {
    field_type::Initializer const initializer;
    EXPECT_EQ(printed(Kind(valueOf(99))), "99");
    EXPECT_THROW(Kind(99), tavInvalidEnumValue);
}

TEST(FieldTypes, EveryAliasHasItsKind) {
    field_type::Initializer const first;
    field_type::Initializer const second;
    std::lock_guard<tavMutex const> guard(field_type::mtx());
    std::map<tavString, field_type::AliasValue> const & aliases = field_type::aliases();
    EXPECT_EQ(aliases.size(), 26u);
    EXPECT_EQ(&aliases, &field_type::Initializer::aliases());
    EXPECT_EQ(&field_type::mtx(), &field_type::Initializer::mtx());
    for (AliasRow const & row : aliasRows) {
        ASSERT_EQ(aliases.count(row.name), 1u) << row.name;
        EXPECT_EQ(row.kind, printed(Kind(aliases.at(row.name).value))) << row.name;
        EXPECT_EQ(row.optional, aliases.at(row.name).optional) << row.name;
    }
}

TEST(FieldTypes, TheNameOfAKindIsItsOwnWithoutAConfiguration) {
    LogCapture const log;
    for (KindRow const & kind : kinds) {
        EXPECT_EQ(kind.name, field_type::getTypeName(valueOf(kind.value), Unit(), false, nullptr));
        EXPECT_EQ(kind.name, field_type::getTypeName(valueOf(kind.value), Unit(), true, nullptr));
    }
    EXPECT_EQ(field_type::getTypeName(valueOf(99), Unit(), false, nullptr), "99");
    tavLogger::flush();
    EXPECT_EQ(log.count("not defined"), 0u);
}

TEST(FieldTypes, TheConfigurationNamesKindsAndTheirOptionalForms) {
    Unit cfg;
    cfg.child("types").child("int32").value("int");
    cfg.child("types").child("int32?").value("Integer");
    cfg.child("types").child("string").value("String");
    EXPECT_EQ(field_type::getTypeName(field_type::int32_, cfg, false, nullptr), "int");
    EXPECT_EQ(field_type::getTypeName(field_type::int32_, cfg, true, nullptr), "Integer");
    EXPECT_EQ(field_type::getTypeName(field_type::string_, cfg, false, nullptr), "String");
    EXPECT_EQ(field_type::getTypeName(field_type::string_, cfg, true, nullptr), "String");
    EXPECT_EQ(field_type::getTypeName(field_type::double_, cfg, true, nullptr), "double");
}

TEST(FieldTypes, AnEmptyNameInTheConfigurationIsAName) {
    Unit cfg;
    cfg.child("types").child("int32");
    EXPECT_EQ(field_type::getTypeName(field_type::int32_, cfg, false, nullptr), "");
}

TEST(FieldTypes, MissingIsClearedByAnOptionalFormAndLeftElse) {
    Unit cfg;
    cfg.child("types").child("int32").value("int");
    cfg.child("types").child("int32?").value("Integer");
    cfg.child("types").child("string").value("String");
    bool missing = true;
    field_type::getTypeName(field_type::int32_, cfg, false, &missing);
    field_type::getTypeName(field_type::string_, cfg, true, &missing);
    field_type::getTypeName(field_type::double_, cfg, true, &missing);
    EXPECT_TRUE(missing);
    field_type::getTypeName(field_type::int32_, cfg, true, &missing);
    EXPECT_FALSE(missing);
    field_type::getTypeName(field_type::double_, cfg, true, &missing);
    EXPECT_FALSE(missing);
}

TEST(FieldTypes, ANameThatIsNotDefinedIsLogged) {
    Unit cfg("cfg", "value");
    {
        LogCapture const log("clear(VERBOSE)");
        EXPECT_EQ(field_type::getTypeName(field_type::double_, cfg, true, nullptr), "double");
        ASSERT_TRUE(log.waitFor("type {double} not defined in template cfg"));
        LogCapture::Record const record = log.find("type {double} not defined in template cfg");
        EXPECT_EQ(record.level, tavLogger::VERBOSE);
        EXPECT_NE(record.text.find("[TAV]field_type::getTypeName("), std::string::npos) << record.text;
        EXPECT_EQ(record.text.substr(record.text.rfind(") ")),
                  ") type {double} not defined in template cfg\n");
        EXPECT_EQ(log.count("not defined"), 1u);
    }
    {
        LogCapture const log("clear(DEBUG)");
        field_type::getTypeName(field_type::double_, cfg, true, nullptr);
        tavLogger::flush();
        EXPECT_EQ(log.count("not defined"), 0u);
    }
}

TEST(FieldTypes, ANameThatIsNotDefinedIsLoggedUnderTheDefaultTagOnly) {
    Unit cfg;
    cfg.child("types").child("int32?").value("Integer");
    {
        LogCapture const log("clear(ASSERT)TAV(VERBOSE)");
        EXPECT_EQ(field_type::getTypeName(field_type::int32_, cfg, true, nullptr), "Integer");
        EXPECT_EQ(field_type::getTypeName(field_type::int32_, cfg, false, nullptr), "int32");
        ASSERT_TRUE(log.waitFor("type {int32} not defined in template cfg"));
        EXPECT_EQ(log.count("not defined"), 1u);
    }
    {
        LogCapture const log("clear(VERBOSE)TAV(DEBUG)");
        field_type::getTypeName(field_type::int32_, cfg, false, nullptr);
        tavLogger::flush();
        EXPECT_EQ(log.count("not defined"), 0u);
    }
}

TEST(FieldTypes, AConfigurationWithANameOnlyIsEmptyAndLogsNothing) {
    LogCapture const log("clear(VERBOSE)");
    EXPECT_EQ(field_type::getTypeName(field_type::int32_, Unit("cfg", "type", ""), true, nullptr), "int32");
    tavLogger::flush();
    EXPECT_EQ(log.count("not defined"), 0u);
}

TEST(FieldTypes, MayBeUsedByManyThreadsFromTheStart) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            std::string const own = "own" + std::to_string(i) + "type";
            for (int n = 0; n < 200; ++n) {
                field_type::Initializer const initializer;
                field_type::addAlias(tavString(own), field_type::int16_, false);
                ClassType type("map{Integer,list{string}}?", Unit());
                EXPECT_EQ(field_type::map_, type.type);
                EXPECT_EQ(field_type::int32_, type.keyType);
                ClassType const mine{tav_istr(own), Unit()};
                EXPECT_EQ(field_type::int16_, mine.type);
            }
            std::lock_guard<tavMutex const> guard(field_type::mtx());
            field_type::aliases().erase(tavString(own));
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
}
