#include "tav/vinta/vinta_pml_unit.h"

#include <gtest/gtest.h>

#include <climits>
#include <set>
#include <sstream>
#include <thread>
#include <type_traits>
#include <vector>

using tav::pml::Unit;

namespace {

typedef tavSharedPtr<Unit> UnitPtr;

UnitPtr made(char const * name, char const * value = "") {
    return UnitPtr(new Unit(tav_istr(name), tav_istr(value)));
}

/// The values of some children, joined by commas.
std::string values(std::vector<UnitPtr> const & units) {
    std::string out;
    for (UnitPtr const & unit : units) {
        out += (out.empty() ? "" : ",") + unit->value();
    }
    return out;
}

long long asInt(char const * value) {
    return Unit(tav_istr("n"), tav_istr(value)).asInt64Value();
}

double asDouble(char const * value) {
    return Unit(tav_istr("n"), tav_istr(value)).asDoubleValue();
}

/// True if `T` is the type of the declaration given; else it does not compile.
template <class T>
constexpr bool declared(T) {
    return true;
}

static_assert(std::is_same<Unit::const_iterator, std::vector<UnitPtr>::const_iterator>::value, "");
static_assert(std::is_same<Unit::map_iterator, std::multimap<std::string, UnitPtr>::const_iterator>::value,
              "");
static_assert(declared<Unit & (Unit::*)(tav_istr)>(&Unit::child), "");
static_assert(declared<Unit const & (Unit::*)(tav_istr) const>(&Unit::child), "");
static_assert(declared<Unit & (Unit::*)(tav_istr, tav_istr, int)>(&Unit::child), "");
static_assert(declared<Unit const & (Unit::*)(tav_istr, tav_istr, int) const>(&Unit::child), "");
static_assert(declared<Unit & (Unit::*)(tav_istr)>(&Unit::operator[]), "");
static_assert(declared<Unit const & (Unit::*)(tav_istr) const>(&Unit::operator[]), "");
static_assert(declared<Unit & (Unit::*)(tav_istr)>(&Unit::operator()), "");
static_assert(declared<Unit const & (Unit::*)(tav_istr) const>(&Unit::operator()), "");
static_assert(declared<bool (Unit::*)(tav_istr) const>(&Unit::hasChild), "");
static_assert(declared<UnitPtr (Unit::*)(tav_istr)>(&Unit::find), "");
static_assert(declared<UnitPtr (Unit::*)(tav_istr) const>(&Unit::find), "");
static_assert(declared<Unit const & (Unit::*)(unsigned) const>(&Unit::at), "");
static_assert(declared<UnitPtr (Unit::*)(unsigned) const>(&Unit::findAt), "");
static_assert(declared<std::vector<UnitPtr> (Unit::*)() const>(&Unit::children), "");
static_assert(declared<std::vector<UnitPtr> (Unit::*)(tav_istr) const>(&Unit::children), "");
static_assert(declared<std::pair<Unit::map_iterator, Unit::map_iterator> (Unit::*)(tav_istr) const>(
                  &Unit::child_equal_range),
              "");
static_assert(declared<unsigned (Unit::*)() const>(&Unit::size), "");
static_assert(declared<unsigned (Unit::*)() const>(&Unit::numofChildren), "");
static_assert(declared<void (Unit::*)(UnitPtr)>(&Unit::addChild), "");
static_assert(declared<void (Unit::*)(Unit const &)>(&Unit::append), "");
static_assert(declared<Unit & (Unit::*)()>(&Unit::newChild), "");
static_assert(declared<void (Unit::*)(Unit const &)>(&Unit::setValue), "");
static_assert(declared<UnitPtr (Unit::*)() const>(&Unit::next), "");
static_assert(declared<void (Unit::*)(UnitPtr)>(&Unit::next), "");
static_assert(declared<UnitPtr (Unit::*)() const>(&Unit::getNext), "");
static_assert(declared<UnitPtr (Unit::*)()>(&Unit::createNext), "");
static_assert(declared<std::string (Unit::*)() const>(&Unit::asStringValue), "");
static_assert(declared<bool (Unit::*)() const>(&Unit::asBoolValue), "");
static_assert(declared<long long (Unit::*)() const>(&Unit::asInt64Value), "");
static_assert(declared<double (Unit::*)() const>(&Unit::asDoubleValue), "");
static_assert(declared<Unit const & (*)()>(&Unit::null), "");
static_assert(declared<UnitPtr (*)(tav_istr)>(&Unit::byValue), "");
static_assert(declared<Unit & (Unit::*)(tav_istr)>(&Unit::decode), "");
static_assert(declared<std::string (Unit::*)(bool, bool, int, bool, bool) const>(&Unit::encode), "");
static_assert(declared<void (Unit::*)(std::string &, bool, bool, int, bool, bool) const>(&Unit::encode), "");
static_assert(declared<std::string (Unit::*)(bool, bool) const>(&Unit::toCompacted), "");
static_assert(declared<std::string (Unit::*)(bool, bool, bool) const>(&Unit::toString), "");

} // namespace

TEST(PmlUnit, DefaultUnitIsEmptyButNotNull) {
    Unit unit;
    EXPECT_EQ(unit.name(), "");
    EXPECT_EQ(unit.type(), "");
    EXPECT_EQ(unit.value(), "");
    EXPECT_EQ(unit.comment(), "");
    EXPECT_EQ(unit.id(), 0);
    EXPECT_EQ(unit.size(), 0u);
    EXPECT_TRUE(unit.simple());
    EXPECT_TRUE(unit.empty());
    EXPECT_FALSE(unit.isNull());
    EXPECT_FALSE(unit.next());
}

TEST(PmlUnit, ConstructorsFillTheFieldsTheyName) {
    EXPECT_EQ(Unit(7).id(), 7);
    EXPECT_EQ(Unit(0).id(), 0);
    EXPECT_EQ(Unit(tav_istr("a")).name(), "a");
    EXPECT_EQ(Unit("a").name(), "a");
    Unit two("a", "v");
    EXPECT_EQ(two.name(), "a");
    EXPECT_EQ(two.value(), "v");
    EXPECT_EQ(two.type(), "");
    Unit three(tav_istr("a"), tav_istr("t"), tav_istr("v"));
    EXPECT_EQ(three.name(), "a");
    EXPECT_EQ(three.type(), "t");
    EXPECT_EQ(three.value(), "v");
}

TEST(PmlUnit, ConstructorsFromIdAndNameAreExplicit) {
    EXPECT_FALSE((std::is_convertible<int, Unit>::value));
    EXPECT_FALSE((std::is_convertible<tav_istr, Unit>::value));
}

TEST(PmlUnit, IsACountedObjectWithVirtualDestructor) {
    EXPECT_TRUE((std::is_base_of<tavRefCountObject, Unit>::value));
    EXPECT_TRUE(std::has_virtual_destructor<Unit>::value);
}

TEST(PmlUnit, SettersReturnTheUnitForChaining) {
    Unit unit;
    Unit & same = unit.name("a").type("t").value("v").id(3);
    EXPECT_EQ(&unit, &same);
    EXPECT_EQ(unit.name(), "a");
    EXPECT_EQ(unit.type(), "t");
    EXPECT_EQ(unit.value(), "v");
    EXPECT_EQ(unit.id(), 3);
}

TEST(PmlUnit, NonConstAccessorsGiveTheStringsThemselves) {
    Unit unit;
    unit.name() = "a";
    unit.type() += "t";
    unit.value() += "v";
    unit.value() += "w";
    Unit const & view = unit;
    EXPECT_EQ(view.name(), "a");
    EXPECT_EQ(view.type(), "t");
    EXPECT_EQ(view.value(), "vw");
}

TEST(PmlUnit, SettersTakeBytesWithNulAndNullViews) {
    Unit unit;
    unit.value(tav_istr("a\0b", 3u));
    EXPECT_EQ(unit.value(), std::string("a\0b", 3));
    unit.value(tav_istr());
    EXPECT_EQ(unit.value(), "");
}

TEST(PmlUnit, ChildMakesAnAbsentChildOnce) {
    Unit unit;
    Unit & a = unit.child("a");
    EXPECT_EQ(a.name(), "a");
    EXPECT_EQ(unit.size(), 1u);
    EXPECT_EQ(&a, &unit.child("a"));
    EXPECT_EQ(&a, &unit["a"]);
    EXPECT_EQ(&a, &unit("a"));
    EXPECT_EQ(unit.size(), 1u);
    unit["b"];
    unit("c");
    EXPECT_EQ(unit.numofChildren(), 3u);
    EXPECT_TRUE(unit.hasChild("c"));
}

TEST(PmlUnit, ConstChildOfAbsentNameIsTheNullUnitAndMakesNothing) {
    Unit const unit;
    EXPECT_TRUE(unit.child("a").isNull());
    EXPECT_TRUE(unit["a"].isNull());
    EXPECT_TRUE(unit("a").isNull());
    EXPECT_TRUE(unit.child("a", "b", 1).isNull());
    EXPECT_EQ(unit.size(), 0u);
}

TEST(PmlUnit, ChildFindsTheFirstOfAName) {
    Unit unit;
    unit.addChild(made("a", "1"));
    unit.addChild(made("b", "2"));
    unit.addChild(made("a", "3"));
    Unit const & view = unit;
    EXPECT_EQ(unit.child("a").value(), "1");
    EXPECT_EQ(view.child("a").value(), "1");
    EXPECT_EQ(view["a"].value(), "1");
    EXPECT_EQ(view("a").value(), "1");
    EXPECT_EQ(unit.size(), 3u);
}

TEST(PmlUnit, ChildWithAlternativeTakesTheNameAsComment) {
    Unit unit;
    Unit & child = unit.child("long name", "ln", 4);
    EXPECT_EQ(child.name(), "ln");
    EXPECT_EQ(child.comment(), "long name");
    EXPECT_EQ(child.id(), 4);
    EXPECT_TRUE(unit.hasChild("ln"));
    EXPECT_FALSE(unit.hasChild("long name"));
}

TEST(PmlUnit, ChildWithEmptyAlternativeGoesByNameAndLeavesTheComment) {
    Unit unit;
    unit.child("x", "a", 1);
    Unit & child = unit.child("a", "", 5);
    EXPECT_EQ(unit.size(), 1u);
    EXPECT_EQ(child.comment(), "x");
    EXPECT_EQ(child.id(), 5);
}

TEST(PmlUnit, ConstChildWithAlternativeLooksUpTheAlternative) {
    Unit unit;
    unit.addChild(made("a", "1"));
    unit.addChild(made("b", "2"));
    Unit const & view = unit;
    EXPECT_EQ(view.child("a", "b", 9).value(), "2");
    EXPECT_EQ(view.child("a", "", 9).value(), "1");
    EXPECT_TRUE(view.child("a", "c", 9).isNull());
    EXPECT_EQ(view.child("a").id(), 0);
}

TEST(PmlUnit, FindGivesTheFirstChildOrANullPointer) {
    Unit unit;
    unit.addChild(made("a", "1"));
    unit.addChild(made("a", "2"));
    Unit const & view = unit;
    EXPECT_EQ(unit.find("a")->value(), "1");
    EXPECT_EQ(view.find("a")->value(), "1");
    EXPECT_FALSE(unit.find("b"));
    EXPECT_FALSE(view.find("b"));
    EXPECT_EQ(unit.size(), 2u);
}

TEST(PmlUnit, AtOutOfRangeIsTheNullUnitAndFindAtANullPointer) {
    Unit unit;
    unit.addChild(made("a", "1"));
    EXPECT_EQ(unit.at(0).value(), "1");
    EXPECT_TRUE(unit.at(1).isNull());
    EXPECT_TRUE(unit.at(UINT_MAX).isNull());
    EXPECT_EQ(unit.findAt(0)->value(), "1");
    EXPECT_FALSE(unit.findAt(1));
}

TEST(PmlUnit, ChildrenIsACopyInOrderOfArrival) {
    Unit unit;
    unit.addChild(made("b", "1"));
    unit.addChild(made("a", "2"));
    std::vector<UnitPtr> copy = unit.children();
    copy.clear();
    EXPECT_EQ(unit.size(), 2u);
    EXPECT_EQ(values(unit.children()), "1,2");
    EXPECT_EQ(values(std::vector<UnitPtr>(unit.begin(), unit.end())), "1,2");
}

TEST(PmlUnit, ChildrenOfANameComeInOrderOfArrival) {
    Unit unit;
    unit.addChild(made("a", "1"));
    unit.addChild(made("b", "2"));
    unit.addChild(made("a", "3"));
    EXPECT_EQ(values(unit.children("a")), "1,3");
    EXPECT_TRUE(unit.children("c").empty());
}

TEST(PmlUnit, EqualRangeHoldsAllOfANameInOrderOfArrival) {
    Unit unit;
    for (char const * value : {"1", "2", "3"}) {
        unit.addChild(made("a", value));
        unit.addChild(made("b", "x"));
    }
    std::string found;
    auto const range = unit.child_equal_range("a");
    for (Unit::map_iterator at = range.first; at != range.second; ++at) {
        EXPECT_EQ(at->first, "a");
        found += at->second->value();
    }
    EXPECT_EQ(found, "123");
    EXPECT_EQ(range.second->first, "b");
    auto const none = unit.child_equal_range("c");
    EXPECT_TRUE(none.first == none.second);
}

TEST(PmlUnit, ManyChildrenAreFoundAsFewAre) {
    Unit unit;
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 100; ++i) {
            unit.addChild(
                made(std::to_string(i).c_str(), (std::to_string(round) + "." + std::to_string(i)).c_str()));
        }
    }
    unit.newChild().name("99x");
    for (int i = 0; i < 100; ++i) {
        std::string const name = std::to_string(i);
        EXPECT_EQ("0." + name, unit.child(tav_istr(name)).value());
        EXPECT_EQ("0." + name, unit.find(tav_istr(name))->value());
        EXPECT_EQ("0." + name + ",1." + name, values(unit.children(tav_istr(name))));
    }
    EXPECT_FALSE(unit.hasChild("100"));
    EXPECT_FALSE(unit.hasChild("99x"));
    EXPECT_EQ(unit.size(), 201u);
    unit.child("100").value("new");
    EXPECT_EQ(unit.find("100")->value(), "new");
    EXPECT_EQ(unit.size(), 202u);
}

TEST(PmlUnit, NamesAreBytesWithNulAndTheEmptyOne) {
    Unit unit;
    unit.child(tav_istr("a\0b", 3u)).value("1");
    unit.child(tav_istr()).value("2");
    EXPECT_FALSE(unit.hasChild("a"));
    EXPECT_EQ(unit.find(tav_istr("a\0b", 3u))->value(), "1");
    EXPECT_EQ(unit.find("")->value(), "2");
}

TEST(PmlUnit, RenamingAChildChangesNoEntry) {
    for (int others : {0, 50}) {
        Unit unit;
        UnitPtr child = made("a", "1");
        unit.addChild(child);
        for (int i = 0; i < others; ++i) {
            unit.addChild(made("other"));
        }
        child->name("b");
        EXPECT_TRUE(unit.hasChild("a"));
        EXPECT_FALSE(unit.hasChild("b"));
        EXPECT_EQ(unit.child("a").name(), "b");
    }
}

TEST(PmlUnit, NewChildIsEnteredUnderNoName) {
    Unit unit;
    unit.newChild().name("a").value("1");
    EXPECT_EQ(unit.size(), 1u);
    EXPECT_FALSE(unit.hasChild("a"));
    EXPECT_FALSE(unit.hasChild(""));
    EXPECT_EQ(unit.at(0).value(), "1");
    EXPECT_EQ(unit.toPml(), "(a(1))");
    unit.child("a").value("2");
    EXPECT_EQ(unit.size(), 2u);
    EXPECT_EQ(unit.child("a").value(), "2");
}

TEST(PmlUnit, AddChildSharesAndAppendCopies) {
    Unit unit;
    UnitPtr child = made("a", "1");
    unit.addChild(child);
    unit.append(*child);
    child->value("2");
    EXPECT_EQ(unit.at(0).value(), "2");
    EXPECT_EQ(unit.at(1).value(), "1");
    EXPECT_EQ(child->getRefCount(), 2u);
    EXPECT_EQ(values(unit.children("a")), "2,1");
}

TEST(PmlUnit, AddingANullPointerDoesNothing) {
    Unit unit;
    unit.addChild(UnitPtr());
    EXPECT_TRUE(unit.empty());
}

TEST(PmlUnit, AddChildTakesUncountedPointers) {
    Unit inner(tav_istr("a"), tav_istr("1"));
    {
        Unit unit;
        unit.addChild(UnitPtr(&inner, false));
        EXPECT_EQ(&inner, &unit.child("a"));
        EXPECT_EQ(unit.toPml(), "(a(1))");
    }
    EXPECT_EQ(inner.getRefCount(), 0u);
    EXPECT_EQ(inner.value(), "1");
}

TEST(PmlUnit, ClearKeepsNameTypeIdCommentAndNext) {
    Unit parent;
    Unit & unit = parent.child("comment", "a", 4);
    unit.type("t").value("v");
    unit.child("c");
    unit.createNext()->name("n");
    unit.clear();
    EXPECT_TRUE(unit.empty());
    EXPECT_FALSE(unit.hasChild("c"));
    EXPECT_EQ(unit.name(), "a");
    EXPECT_EQ(unit.type(), "t");
    EXPECT_EQ(unit.comment(), "comment");
    EXPECT_EQ(unit.id(), 4);
    EXPECT_EQ(unit.next()->name(), "n");
}

TEST(PmlUnit, SetValueSharesChildrenAndKeepsNameIdAndComment) {
    Unit other(tav_istr("o"), tav_istr("ot"), tav_istr("ov"));
    other.id(9);
    other.child("c").value("1");
    Unit parent;
    Unit & unit = parent.child("comment", "a", 4);
    unit.type("t").value("v");
    unit.child("gone");
    unit.setValue(other);
    EXPECT_EQ(unit.name(), "a");
    EXPECT_EQ(unit.comment(), "comment");
    EXPECT_EQ(unit.id(), 4);
    EXPECT_EQ(unit.type(), "ot");
    EXPECT_EQ(unit.value(), "ov");
    EXPECT_FALSE(unit.hasChild("gone"));
    EXPECT_EQ(other.find("c"), unit.find("c"));
}

TEST(PmlUnit, SetValueAndAssignmentTakeAPartOfTheUnitItself) {
    Unit unit;
    unit.child("a").child("b").value("1");
    unit.setValue(unit.child("a"));
    EXPECT_EQ(unit.toPml(), "(b(1))");
    unit = unit.child("b");
    EXPECT_EQ(unit.toPml(), "b(1)");
    Unit & same = unit;
    unit = same;
    unit.setValue(same);
    EXPECT_EQ(unit.toPml(), "b(1)");
}

TEST(PmlUnit, NextIsSetReadAndMade) {
    Unit unit(5);
    UnitPtr const next = unit.createNext();
    EXPECT_EQ(next->id(), 6);
    EXPECT_EQ(next, unit.createNext());
    EXPECT_EQ(next, unit.next());
    EXPECT_EQ(next, unit.getNext());
    unit.next(made("n"));
    EXPECT_EQ(unit.next()->name(), "n");
    unit.next(UnitPtr());
    EXPECT_FALSE(unit.getNext());
}

TEST(PmlUnit, StringValueIsTheValue) {
    EXPECT_EQ(Unit(tav_istr("a"), tav_istr("v")).asStringValue(), "v");
}

TEST(PmlUnit, BoolValueIsFalseForEmptyAndTheWordFalseOnly) {
    EXPECT_FALSE(Unit().asBoolValue());
    EXPECT_FALSE(Unit(tav_istr("a"), tav_istr("false")).asBoolValue());
    EXPECT_TRUE(Unit(tav_istr("a"), tav_istr("False")).asBoolValue());
    EXPECT_TRUE(Unit(tav_istr("a"), tav_istr("0")).asBoolValue());
    Unit parent;
    parent.child("c");
    EXPECT_TRUE(parent.asBoolValue());
    parent.value("false");
    EXPECT_FALSE(parent.asBoolValue());
}

TEST(PmlUnit, IntegerValueInDecimal) {
    EXPECT_EQ(asInt(""), 0);
    EXPECT_EQ(asInt("0"), 0);
    EXPECT_EQ(asInt("42"), 42);
    EXPECT_EQ(asInt("-42"), -42);
    EXPECT_EQ(asInt("+42"), 42);
    EXPECT_EQ(asInt(" \t\n\v\f\r42"), 42);
    EXPECT_EQ(asInt(" 017"), 17);
    EXPECT_EQ(asInt("42 "), 0);
    EXPECT_EQ(asInt("42x"), 0);
    EXPECT_EQ(asInt("x"), 0);
    EXPECT_EQ(asInt("+"), 0);
    EXPECT_EQ(asInt("-"), 0);
    EXPECT_EQ(asInt("+-1"), 0);
    EXPECT_EQ(asInt("-+1"), 0);
    EXPECT_EQ(asInt("++1"), 0);
    EXPECT_EQ(asInt("+ 1"), 0);
    EXPECT_EQ(asInt("1.5"), 0);
    EXPECT_EQ(LLONG_MAX, asInt("9223372036854775807"));
    EXPECT_EQ(LLONG_MIN, asInt("-9223372036854775808"));
    EXPECT_EQ(asInt("9223372036854775808"), 0);
    EXPECT_EQ(asInt("-9223372036854775809"), 0);
}

TEST(PmlUnit, IntegerValueInHexadecimalAndBinary) {
    EXPECT_EQ(asInt("0xff"), 255);
    EXPECT_EQ(asInt("0XFF"), 255);
    EXPECT_EQ(asInt("0xFFFFFFFFFFFFFFFF"), -1);
    EXPECT_EQ(asInt("0x10000000000000000"), 0);
    EXPECT_EQ(asInt("0x"), 0);
    EXPECT_EQ(asInt("0xg"), 0);
    EXPECT_EQ(asInt("0x1 "), 0);
    EXPECT_EQ(asInt("0x-1"), 0);
    EXPECT_EQ(asInt("0x+1"), 0);
    EXPECT_EQ(asInt("0b101"), 5);
    EXPECT_EQ(asInt("0B101"), 5);
    EXPECT_EQ(asInt("0b102"), 0);
    EXPECT_EQ(asInt("0b"), 0);
    EXPECT_EQ(asInt("0b1111111111111111111111111111111111111111111111111111111111111111"), -1);
    EXPECT_EQ(asInt("0b11111111111111111111111111111111111111111111111111111111111111111"), 0);
}

TEST(PmlUnit, IntegerValueWithLeadingZeroIsOctalAndElseDecimal) {
    EXPECT_EQ(asInt("017"), 15);
    EXPECT_EQ(asInt("00"), 0);
    EXPECT_EQ(asInt("08"), 8);
    EXPECT_EQ(asInt("019"), 19);
    EXPECT_EQ(asInt("01777777777777777777777"), -1);
    EXPECT_EQ(asInt("03777777777777777777777"), 0);
    EXPECT_EQ(asInt("0-7"), 0);
}

TEST(PmlUnit, IntegerOctalBeyond64BitsIsTriedAsDecimal) {
    EXPECT_EQ(asInt("07777777777777777777777"), 0);
    EXPECT_EQ(asInt("09000000000000000000"), 9000000000000000000LL);
}

TEST(PmlUnit, DoubleValueIsDecimal) {
    EXPECT_EQ(asDouble(""), 0.0);
    EXPECT_EQ(asDouble("1.5"), 1.5);
    EXPECT_EQ(asDouble("-1.5"), -1.5);
    EXPECT_EQ(asDouble("+1.5"), 1.5);
    EXPECT_EQ(asDouble(" 1.5"), 1.5);
    EXPECT_EQ(asDouble(".5"), 0.5);
    EXPECT_EQ(asDouble("5."), 5.0);
    EXPECT_EQ(asDouble("1.5e3"), 1500.0);
    EXPECT_EQ(asDouble("1.5E-2"), 0.015);
    EXPECT_EQ(asDouble("1.5e+2"), 150.0);
}

TEST(PmlUnit, DoubleValueOfATextThatFailsIsZero) {
    EXPECT_EQ(asDouble("x"), 0.0);
    EXPECT_EQ(asDouble("."), 0.0);
    EXPECT_EQ(asDouble("-"), 0.0);
    EXPECT_EQ(asDouble("+-1"), 0.0);
    EXPECT_EQ(asDouble("1e"), 0.0);
    EXPECT_EQ(asDouble("1e+"), 0.0);
    EXPECT_EQ(asDouble("e5"), 0.0);
    EXPECT_EQ(asDouble("inf"), 0.0);
    EXPECT_EQ(asDouble("nan"), 0.0);
    EXPECT_EQ(asDouble("1e999"), 0.0);
    EXPECT_EQ(asDouble("0x10"), 0.0);
}

TEST(PmlUnit, DoubleValueReadsAsAStreamDoes) {
    for (char const * text : {"1.5abc", "1.5 2", "12,5", "1..2", "1.2.3", "1e5e5", "--1", "007.5", "1-2",
                              "1e-5-", "\v2", "5.e1", ".e1", "1e1.5", "-.5e1", "00", "-0"}) {
        std::istringstream in(text);
        double expected = 0;
        if (!(in >> expected)) {
            expected = 0;
        }
        EXPECT_EQ(asDouble(text), expected) << text;
    }
}

TEST(PmlUnit, IntegerValueReadsDecimalAsAStreamThatUsesUpTheText) {
    for (char const * text :
         {"5", "-5", "+5", " 5", "5 ", "", "-", "1e3", "1,000", "99999999999999999999", "\r7",
          "\x01"
          "7",
          "--5", "-05", "+08"}) {
        std::istringstream in(text);
        long long expected = 0;
        if (!(in >> expected) || in.peek() != std::istringstream::traits_type::eof()) {
            expected = 0;
        }
        EXPECT_EQ(asInt(text), expected) << text;
    }
}

TEST(PmlUnit, SimpleLooksAtChildrenEmptyAtBoth) {
    Unit unit;
    unit.value("v");
    EXPECT_TRUE(unit.simple());
    EXPECT_FALSE(unit.empty());
    unit.value("");
    unit.newChild();
    EXPECT_FALSE(unit.simple());
    EXPECT_FALSE(unit.empty());
}

TEST(PmlUnit, NullIsOneUnit) {
    EXPECT_EQ(&Unit::null(), &Unit::null());
    EXPECT_TRUE(Unit::null().isNull());
    EXPECT_TRUE(Unit::null().empty());
    EXPECT_FALSE(Unit(Unit::null()).isNull());
    EXPECT_TRUE(Unit::null().child("a").isNull());
    auto const none = Unit::null().child_equal_range("a");
    EXPECT_TRUE(none.first == none.second);
}

TEST(PmlUnit, ByValueMakesAUnitWithoutName) {
    UnitPtr const unit = Unit::byValue("v");
    EXPECT_EQ(unit->name(), "");
    EXPECT_EQ(unit->value(), "v");
    EXPECT_EQ(unit->getRefCount(), 1u);
}

TEST(PmlUnit, ManyThreadsMayLookUpInOneTree) {
    Unit unit;
    for (int i = 0; i < 200; ++i) {
        unit.addChild(made(std::to_string(i).c_str(), std::to_string(i).c_str()));
    }
    Unit const & view = unit;
    std::vector<std::thread> threads;
    std::atomic<int> found{0};
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&view, &found] {
            for (int i = 0; i < 200; ++i) {
                std::string const name = std::to_string(i);
                found += view.child(tav_istr(name)).value() == name ? 1 : 0;
            }
            auto const range = view.child_equal_range("7");
            found += std::distance(range.first, range.second) == 1 ? 1 : 0;
            found += Unit::null().hasChild("x") ? 0 : 1;
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    EXPECT_EQ(8 * 202, found.load());
}
