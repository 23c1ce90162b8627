#include "tav/vinta/vinta_pml_unit.h"

#include "support/failing_allocations.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

using tav::pml::Unit;
using tav_test::FailingAllocation;

namespace {

using UnitPtr = tavSharedPtr<Unit>;

/// A tree with children by name, a list, successors at two depths, and `shared` in two places.
UnitPtr tree(UnitPtr const & shared) {
    UnitPtr const top(new Unit);
    top->decode("a(b(1)c(d(2)e(f(3)g(4)))h(5)h(6))x(y(z(7)))w(8)");
    for (int i = 0; i < 20; ++i) {
        top->child(tav_istr("n" + std::to_string(i))).newChild().next(UnitPtr(new Unit("follows")));
    }
    top->addChild(shared);
    top->next()->addChild(shared);
    EXPECT_EQ((*top->next())["y"]["z"].value(), "7");
    return top;
}

} // namespace

TEST(PmlEnd, OfATreeAllocatesNothingAndLeavesWhatIsShared) {
    UnitPtr const shared = Unit::byValue("kept");
    {
        UnitPtr top = tree(shared);
        EXPECT_LT(3u, shared->getRefCount());
        FailingAllocation const failing(1);
        top.reset();
        EXPECT_FALSE(FailingAllocation::happened());
    }
    EXPECT_EQ(shared->getRefCount(), 1u);
    EXPECT_EQ(shared->value(), "kept");
}

TEST(PmlEnd, OfAPartThatIsHeldElsewhereComesLater) {
    UnitPtr top = tree(UnitPtr(new Unit));
    UnitPtr part = top->find("c");
    UnitPtr const inner = part->find("e");
    top.reset();
    EXPECT_EQ((*part)["e"]["g"].value(), "4");
    part.reset();
    EXPECT_EQ((*inner)["f"].value(), "3");
    EXPECT_EQ(inner->getRefCount(), 1u);
}

TEST(PmlEnd, OfAnUncountedChildIsItsOwners) {
    Unit own("own", "1");
    {
        Unit top;
        top.addChild(UnitPtr(&own, false));
        top.child("other").value("2");
    }
    EXPECT_EQ(own.value(), "1");
}

TEST(PmlEnd, OfDeepUnitsWithSuccessorsTakesNoStack) {
    UnitPtr top(new Unit);
    Unit * at = top.get();
    for (int i = 0; i < 300000; ++i) {
        at->next(Unit::byValue("beside"));
        at = &at->newChild();
    }
    for (int i = 0; i < 300000; ++i) {
        at = at->createNext().get();
    }
    UnitPtr const last = top->next();
    top.reset();
    EXPECT_EQ(last->getRefCount(), 1u);
}

TEST(PmlEndMove, AllocatesNothing) {
    Unit from;
    from.decode("a(b(1)c(d(2)))x(y)");
    FailingAllocation const failing(1);
    Unit made(std::move(from));
    Unit assigned;
    assigned = std::move(made);
    EXPECT_FALSE(FailingAllocation::happened());
    EXPECT_EQ(assigned["c"]["d"].value(), "2");
}
