#include "tav/vinta/vinta_pml_meta.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <type_traits>
#include <vector>

using tav::pml::ClassType;
using tav::pml::IdName;
using tav::pml::MetaClass;
using tav::pml::MetaEnum;
using tav::pml::MetaFactory;
using tav::pml::MetaField;
using tav::pml::PmlInputStream;
using tav::pml::Unit;
using tav::pml::ValueComment;
namespace field_type = tav::pml::field_type;

namespace {

/// Whether the type of an operation is the one that was asked for; an overload that has it must exist.
template <class T>
constexpr bool declared(T) {
    return true;
}

/// Whether `member` is a public member of exactly this type.
template <class T, class Class>
constexpr bool holds(T Class::*) {
    return true;
}

/// A record of the model: a codec value that starts out by itself, is copied, and is moved without failure.
template <class T>
constexpr bool isRecord() {
    return std::is_base_of<tavCodecInterface, T>::value && std::is_default_constructible<T>::value &&
           std::is_copy_constructible<T>::value && std::is_copy_assignable<T>::value &&
           std::is_nothrow_move_constructible<T>::value && std::is_nothrow_move_assignable<T>::value &&
           declared<void (T::*)(tavCodecStream &)>(&T::io);
}

static_assert(isRecord<IdName>() && isRecord<ValueComment>() && isRecord<MetaField>(), "");
static_assert(isRecord<MetaEnum>() && isRecord<MetaClass>(), "");
static_assert(std::is_base_of<tavCodecInterface, MetaFactory>::value, "");
static_assert(declared<void (MetaFactory::*)(tavCodecStream &)>(&MetaFactory::io), "");

static_assert(std::is_constructible<IdName, tav_istr>::value && !std::is_convertible<tav_istr, IdName>::value,
              "");
static_assert(declared<tavString (IdName::*)(bool) const>(&IdName::toString), "");
static_assert(holds<short>(&IdName::id) && holds<tavString>(&IdName::name), "");

static_assert(std::is_constructible<ValueComment, tav_istr>::value &&
                  !std::is_convertible<tav_istr, ValueComment>::value,
              "");
static_assert(holds<tavString>(&ValueComment::value) && holds<tavString>(&ValueComment::comment), "");

static_assert(std::is_constructible<MetaField, Unit const &, Unit const &>::value &&
                  !std::is_constructible<MetaField, Unit const &>::value,
              "the configuration has no default");
static_assert(holds<IdName>(&MetaField::idName) && holds<ClassType>(&MetaField::classType), "");
static_assert(holds<ValueComment>(&MetaField::valueComment) && holds<bool>(&MetaField::isProtected), "");
static_assert(holds<tavString>(&MetaField::spec) && holds<std::set<int>>(&MetaField::validValues), "");
static_assert(holds<tav::Range>(&MetaField::range), "");

static_assert(std::is_constructible<MetaEnum, tav_istr, Unit const &>::value, "");
static_assert(holds<tavString>(&MetaEnum::name) && holds<Unit>(&MetaEnum::values), "");

static_assert(!std::is_constructible<MetaClass, Unit const &, Unit const &>::value,
              "classes are read by the factory alone");
static_assert(declared<MetaField const * (MetaClass::*)(tav_istr) const>(&MetaClass::findField), "");
static_assert(declared<MetaField const * (MetaClass::*)(short) const>(&MetaClass::findField), "");
static_assert(holds<Unit>(&MetaClass::unit) && holds<tavString>(&MetaClass::name), "");
static_assert(holds<tavString>(&MetaClass::typeText) && holds<tavString>(&MetaClass::className), "");
static_assert(holds<tavString>(&MetaClass::superName) && holds<tavString>(&MetaClass::code), "");
static_assert(holds<tavEnum<field_type::values>>(&MetaClass::kind), "");
static_assert(holds<bool>(&MetaClass::isList) && holds<bool>(&MetaClass::isRef), "");
static_assert(holds<std::set<tavString>>(&MetaClass::imports), "");
static_assert(holds<std::vector<MetaClass>>(&MetaClass::classes), "");
static_assert(holds<std::vector<MetaEnum>>(&MetaClass::enums), "");
static_assert(holds<std::vector<MetaField>>(&MetaClass::fields), "");

static_assert(std::is_constructible<MetaFactory, PmlInputStream &>::value &&
                  !std::is_convertible<PmlInputStream &, MetaFactory>::value,
              "");
static_assert(declared<MetaClass const * (MetaFactory::*)(tav_istr) const>(&MetaFactory::findClass), "");
static_assert(declared<MetaClass const * (MetaFactory::*)(unsigned short) const>(&MetaFactory::findClass),
              "");
static_assert(declared<tavString (MetaFactory::*)(unsigned short) const>(&MetaFactory::findClassName), "");
static_assert(declared<MetaEnum const * (MetaFactory::*)(tav_istr) const>(&MetaFactory::findEnum), "");
static_assert(holds<std::map<tavString, MetaEnum>>(&MetaFactory::enums), "");
static_assert(holds<std::map<tavString, MetaClass>>(&MetaFactory::classes), "");
static_assert(holds<std::map<unsigned short, tavString>>(&MetaFactory::code2class), "");

/// A class of which every member differs from its start.
MetaClass full() {
    MetaClass c;
    c.unit.name("[1]u").child("member").value("v");
    c.name = "u";
    c.typeText = "im.U";
    c.className = "im$U";
    c.superName = "Base";
    c.code = "1F01";
    c.kind = field_type::ref_list_;
    c.isList = true;
    c.isRef = true;
    c.imports = {"a", "b"};
    c.classes.resize(2);
    c.classes[1].className = "Nested";
    c.enums.push_back(MetaEnum("E", Unit()));
    c.fields.push_back(MetaField());
    c.fields[0].idName = IdName(tav_istr("[7]seq"));
    c.fields[0].range = tav::Range("1..9");
    c.fields[0].validValues = {3};
    return c;
}

void expectFull(MetaClass const & c) {
    EXPECT_EQ(c.unit.name(), "[1]u");
    EXPECT_EQ(c.unit.child("member").value(), "v");
    EXPECT_EQ(c.name, "u");
    EXPECT_EQ(c.typeText, "im.U");
    EXPECT_EQ(c.className, "im$U");
    EXPECT_EQ(c.superName, "Base");
    EXPECT_EQ(c.code, "1F01");
    EXPECT_EQ(field_type::ref_list_, c.kind);
    EXPECT_TRUE(c.isList);
    EXPECT_TRUE(c.isRef);
    EXPECT_EQ((std::set<tavString>{"a", "b"}), c.imports);
    ASSERT_EQ(c.classes.size(), 2u);
    EXPECT_EQ(c.classes[1].className, "Nested");
    ASSERT_EQ(c.enums.size(), 1u);
    EXPECT_EQ(c.enums[0].name, "E");
    ASSERT_EQ(c.fields.size(), 1u);
    EXPECT_EQ(c.fields[0].idName.id, 7);
    EXPECT_FALSE(c.fields[0].range.check(10));
    EXPECT_EQ((std::set<int>{3}), c.fields[0].validValues);
}

TEST(MetaInterface, CopiesOfAClassHaveEveryMember) {
    MetaClass const c = full();
    MetaClass const made(c);
    expectFull(made);
    MetaClass assigned;
    assigned.classes.resize(5);
    assigned = c;
    expectFull(assigned);
    expectFull(c);
    EXPECT_EQ(c.unit.findAt(0), made.unit.findAt(0));
}

TEST(MetaInterface, MovesOfAClassHaveEveryMember) {
    MetaClass c = full();
    MetaClass made(std::move(c));
    expectFull(made);
    MetaClass assigned;
    assigned.classes.resize(5);
    assigned = std::move(made);
    expectFull(assigned);
}

TEST(MetaInterface, MovesOfAClassCountNothing) {
    MetaClass c = full();
    Unit const * const member = &c.unit.at(0);
    MetaClass made(std::move(c));
    EXPECT_EQ(member, &made.unit.at(0));
    EXPECT_EQ(member->getRefCount(), 1u);
    MetaClass assigned;
    assigned = std::move(made);
    EXPECT_EQ(member, &assigned.unit.at(0));
    EXPECT_EQ(member->getRefCount(), 1u);
}

} // namespace
