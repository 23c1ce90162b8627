#include "tav/vinta/vinta_pml_unit.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>

using tav::pml::Unit;

namespace {

typedef tavSharedPtr<Unit> UnitPtr;

UnitPtr made(char const * name, char const * value = "") {
    return UnitPtr(new Unit(tav_istr(name), tav_istr(value)));
}

/// A unit in which everything is set, with so many children that look-ups make a map.
void fill(Unit & unit) {
    unit.name("a").type("t").value("v").id(4);
    for (int i = 0; i < 50; ++i) {
        unit.child("longer", tav_istr("c" + std::to_string(i)), 9).value(tav_istr(std::to_string(i)));
    }
    EXPECT_EQ("7", unit.child("c7").value());
    unit.child("c7").name("renamed");
    unit.createNext();
}

void expectFilled(Unit const & unit, Unit const * first, Unit const * next) {
    EXPECT_EQ("a", unit.name());
    EXPECT_EQ("t", unit.type());
    EXPECT_EQ("v", unit.value());
    EXPECT_EQ(4, unit.id());
    ASSERT_EQ(50u, unit.size());
    EXPECT_EQ(first, &unit.at(0));
    EXPECT_EQ("longer", unit.at(0).comment());
    EXPECT_EQ("7", unit.child("c7").value());
    EXPECT_FALSE(unit.hasChild("renamed"));
    EXPECT_EQ(next, unit.next().get());
}

void expectNew(Unit const & unit) {
    EXPECT_EQ("", unit.name());
    EXPECT_EQ("", unit.type());
    EXPECT_EQ("", unit.value());
    EXPECT_EQ("", unit.comment());
    EXPECT_EQ(0, unit.id());
    EXPECT_EQ(0u, unit.size());
    EXPECT_FALSE(unit.hasChild("c7"));
    EXPECT_TRUE(unit.children("c7").empty());
    EXPECT_FALSE(unit.next());
}

TEST(PmlCopy, SharesChildrenAndNext) {
    Unit parent;
    Unit & unit = parent.child("comment", "a", 4);
    unit.type("t").value("v");
    unit.child("c").value("1");
    unit.createNext();
    Unit const copy(unit);
    EXPECT_EQ("a", copy.name());
    EXPECT_EQ("t", copy.type());
    EXPECT_EQ("v", copy.value());
    EXPECT_EQ("comment", copy.comment());
    EXPECT_EQ(4, copy.id());
    EXPECT_EQ(0u, copy.getRefCount());
    EXPECT_EQ(unit.find("c"), copy.find("c"));
    EXPECT_EQ(unit.next(), copy.next());
    Unit assigned;
    assigned.child("gone");
    assigned = unit;
    EXPECT_FALSE(assigned.hasChild("gone"));
    EXPECT_EQ(unit.find("c"), assigned.find("c"));
    EXPECT_EQ(unit.next(), assigned.next());
    EXPECT_EQ(4, assigned.id());
    EXPECT_EQ("comment", assigned.comment());
}

TEST(PmlCopy, KeepsTheNamesOfEntryAndGrowsApart) {
    for (int others : {0, 50}) {
        Unit unit;
        unit.child("a").value("1");
        for (int i = 0; i < others; ++i) {
            unit.addChild(made("other"));
        }
        EXPECT_TRUE(unit.hasChild("a"));
        unit.child("a").name("b");
        Unit copy(unit);
        EXPECT_EQ("1", copy.child("a").value());
        EXPECT_FALSE(copy.hasChild("b"));
        copy.child("new");
        EXPECT_FALSE(unit.hasChild("new"));
        EXPECT_EQ(unit.size() + 1, copy.size());
    }
}

TEST(PmlMove, WithoutCountingAndLeavesANewUnit) {
    static_assert(std::is_nothrow_move_constructible<Unit>::value, "vectors of units move them");
    static_assert(std::is_nothrow_move_assignable<Unit>::value, "");
    Unit unit;
    fill(unit);
    Unit const * const first = &unit.at(0);
    Unit const * const next = unit.next().get();
    Unit moved(std::move(unit));
    EXPECT_EQ(1u, first->getRefCount());
    expectFilled(moved, first, next);
    expectNew(unit);
    Unit assigned;
    fill(assigned);
    assigned.child("gone");
    assigned = std::move(moved);
    EXPECT_EQ(1u, first->getRefCount());
    EXPECT_EQ(1u, next->getRefCount());
    expectFilled(assigned, first, next);
    expectNew(moved);
    EXPECT_FALSE(assigned.hasChild("gone"));

    unit.child("again").value("1");
    EXPECT_EQ("1", unit.child("again").value());
    moved = std::move(unit);
    EXPECT_EQ("1", moved.child("again").value());
}

TEST(PmlMove, TakesTheCommentAlong) {
    Unit parent;
    Unit moved(std::move(parent.child("comment", "a", 4)));
    EXPECT_EQ("comment", moved.comment());
    EXPECT_EQ("", parent.at(0).comment());
    Unit assigned;
    assigned = std::move(moved);
    EXPECT_EQ("comment", assigned.comment());
    EXPECT_EQ("", moved.comment());
}

TEST(PmlMove, LeavesTheCountsAlone) {
    UnitPtr const from = made("a", "1");
    UnitPtr const also = from;
    UnitPtr const to = made("b", "2");
    Unit const fresh(std::move(*from));
    EXPECT_EQ(0u, fresh.getRefCount());
    EXPECT_EQ(2u, from->getRefCount());
    *from = std::move(*to);
    EXPECT_EQ("2", from->value());
    EXPECT_EQ(2u, from->getRefCount());
    EXPECT_EQ(1u, to->getRefCount());
}

TEST(PmlMove, FromAPartOfItselfOrFromItself) {
    Unit unit(tav_istr("root"));
    unit.child("a").child("b").value("1");
    unit.child("a").createNext()->name("n");
    unit = std::move(unit.child("a"));
    EXPECT_EQ("a", unit.name());
    EXPECT_EQ("1", unit.child("b").value());
    unit = std::move(*unit.next());
    EXPECT_EQ("n", unit.name());
    Unit & same = unit;
    unit = std::move(same);
    EXPECT_EQ("n", unit.name());
}

} // namespace
