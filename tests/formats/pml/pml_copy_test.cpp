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
    EXPECT_EQ(unit.child("c7").value(), "7");
    unit.child("c7").name("renamed");
    unit.createNext();
}

void expectFilled(Unit const & unit, Unit const * first, Unit const * next) {
    EXPECT_EQ(unit.name(), "a");
    EXPECT_EQ(unit.type(), "t");
    EXPECT_EQ(unit.value(), "v");
    EXPECT_EQ(unit.id(), 4);
    ASSERT_EQ(unit.size(), 50u);
    EXPECT_EQ(first, &unit.at(0));
    EXPECT_EQ(unit.at(0).comment(), "longer");
    EXPECT_EQ(unit.child("c7").value(), "7");
    EXPECT_FALSE(unit.hasChild("renamed"));
    EXPECT_EQ(next, unit.next().get());
}

void expectNew(Unit const & unit) {
    EXPECT_EQ(unit.name(), "");
    EXPECT_EQ(unit.type(), "");
    EXPECT_EQ(unit.value(), "");
    EXPECT_EQ(unit.comment(), "");
    EXPECT_EQ(unit.id(), 0);
    EXPECT_EQ(unit.size(), 0u);
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
    EXPECT_EQ(copy.name(), "a");
    EXPECT_EQ(copy.type(), "t");
    EXPECT_EQ(copy.value(), "v");
    EXPECT_EQ(copy.comment(), "comment");
    EXPECT_EQ(copy.id(), 4);
    EXPECT_EQ(copy.getRefCount(), 0u);
    EXPECT_EQ(unit.find("c"), copy.find("c"));
    EXPECT_EQ(unit.next(), copy.next());
    Unit assigned;
    assigned.child("gone");
    assigned = unit;
    EXPECT_FALSE(assigned.hasChild("gone"));
    EXPECT_EQ(unit.find("c"), assigned.find("c"));
    EXPECT_EQ(unit.next(), assigned.next());
    EXPECT_EQ(assigned.id(), 4);
    EXPECT_EQ(assigned.comment(), "comment");
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
        EXPECT_EQ(copy.child("a").value(), "1");
        EXPECT_FALSE(copy.hasChild("b"));
        copy.child("new");
        EXPECT_FALSE(unit.hasChild("new"));
        EXPECT_EQ(unit.size() + 1, copy.size());
    }
}

TEST(PmlCopyMove, WithoutCountingAndLeavesANewUnit) {
    static_assert(std::is_nothrow_move_constructible<Unit>::value, "vectors of units move them");
    static_assert(std::is_nothrow_move_assignable<Unit>::value, "");
    Unit unit;
    fill(unit);
    Unit const * const first = &unit.at(0);
    Unit const * const next = unit.next().get();
    Unit moved(std::move(unit));
    EXPECT_EQ(first->getRefCount(), 1u);
    expectFilled(moved, first, next);
    expectNew(unit);
    Unit assigned;
    fill(assigned);
    assigned.child("gone");
    assigned = std::move(moved);
    EXPECT_EQ(first->getRefCount(), 1u);
    EXPECT_EQ(next->getRefCount(), 1u);
    expectFilled(assigned, first, next);
    expectNew(moved);
    EXPECT_FALSE(assigned.hasChild("gone"));

    unit.child("again").value("1");
    EXPECT_EQ(unit.child("again").value(), "1");
    moved = std::move(unit);
    EXPECT_EQ(moved.child("again").value(), "1");
}

TEST(PmlCopyMove, TakesTheCommentAlong) {
    Unit parent;
    Unit moved(std::move(parent.child("comment", "a", 4)));
    EXPECT_EQ(moved.comment(), "comment");
    EXPECT_EQ(parent.at(0).comment(), "");
    Unit assigned;
    assigned = std::move(moved);
    EXPECT_EQ(assigned.comment(), "comment");
    EXPECT_EQ(moved.comment(), "");
}

TEST(PmlCopyMove, LeavesTheCountsAlone) {
    UnitPtr const from = made("a", "1");
    UnitPtr const also = from;
    UnitPtr const to = made("b", "2");
    Unit const fresh(std::move(*from));
    EXPECT_EQ(fresh.getRefCount(), 0u);
    EXPECT_EQ(from->getRefCount(), 2u);
    *from = std::move(*to);
    EXPECT_EQ(from->value(), "2");
    EXPECT_EQ(from->getRefCount(), 2u);
    EXPECT_EQ(to->getRefCount(), 1u);
}

TEST(PmlCopyMove, FromAPartOfItselfOrFromItself) {
    Unit unit(tav_istr("root"));
    unit.child("a").child("b").value("1");
    unit.child("a").createNext()->name("n");
    unit = std::move(unit.child("a"));
    EXPECT_EQ(unit.name(), "a");
    EXPECT_EQ(unit.child("b").value(), "1");
    unit = std::move(*unit.next());
    EXPECT_EQ(unit.name(), "n");
    Unit & same = unit;
    unit = std::move(same);
    EXPECT_EQ(unit.name(), "n");
}

} // namespace
