#include "tav/vinta/vinta_locks.h"

#include "support/failing_allocations.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <set>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

/// Counts the living ones.
struct Counted : tavSharedObject {
    explicit Counted(int & alive, int number = 0) : living(&alive), value(number) { ++*living; }
    Counted(Counted const & other) : tavRefCountObject(other), tavSharedObject(other) {
        living = other.living;
        value = other.value;
        ++*living;
    }
    Counted & operator=(Counted const &) = default;
    ~Counted() override { --*living; }
    int * living;
    int value;
};

struct Left : public virtual tavSharedObject {};
struct Right : public virtual tavSharedObject {};
struct Both : Left, Right {
    explicit Both(int & alive) : living(&alive) { ++*living; }
    ~Both() override { --*living; }
    int * living;
};

struct Derived : Counted {
    using Counted::Counted;
};

struct Plain : tavRefCountObject {};
static_assert(noexcept(new (static_cast<void *>(nullptr))
                           Plain) && noexcept(new (static_cast<void *>(nullptr))
                                                  Plain(std::declval<Plain const &>())) &&
                  std::is_nothrow_copy_assignable<Plain>::value,
              "making and counting allocates nothing");

using Ptr = tavSharedPtr<Counted>;

static_assert(sizeof(Ptr) == 2 * sizeof(void *), "a pointer and a flag");
static_assert(std::is_convertible<Counted *, Ptr>::value, "counting is implicit");
static_assert(!std::is_convertible<Ptr, bool>::value && std::is_constructible<bool, Ptr>::value, "");
static_assert(std::is_convertible<tavSharedPtr<Derived>, Ptr>::value, "to a base pointee");
static_assert(!std::is_convertible<Ptr, tavSharedPtr<Derived>>::value, "not from it");
static_assert(!std::is_convertible<tavSharedPtr<Left>, tavSharedPtr<Right>>::value, "nor to a relative");
static_assert(std::is_nothrow_move_constructible<Ptr>::value && std::is_nothrow_move_assignable<Ptr>::value,
              "");
static_assert(std::is_base_of<tavRefCountObject, tavSharedObject>::value, "");
static_assert(!std::is_destructible<tavRefCountObject>::value &&
                  !std::is_destructible<tavSharedObject>::value,
              "");
static_assert(
    noexcept(std::declval<Counted &>().incRefCount()) && noexcept(
        std::declval<Counted &>()
            .decRefCount()) && noexcept(std::declval<Counted const &>()
                                            .getRefCount()) && noexcept(std::declval<Counted &>()
                                                                            .swap(std::declval<Counted &>())),
    "");

} // namespace

TEST(SharedPtrRefCountObject, StartsAtZeroAndIsNotFreedUncounted) {
    int alive = 0;
    {
        Counted object(alive);
        EXPECT_EQ(object.getRefCount(), 0u);
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

TEST(SharedPtrRefCountObject, IsDeletedWhenTheCountFallsToZero) {
    int alive = 0;
    Counted * const object = new Counted(alive);
    object->incRefCount();
    object->incRefCount();
    EXPECT_EQ(object->getRefCount(), 2u);
    object->decRefCount();
    EXPECT_EQ(object->getRefCount(), 1u);
    EXPECT_EQ(alive, 1);
    object->decRefCount();
    EXPECT_EQ(alive, 0);
}

TEST(SharedPtrRefCountObject, IsMadeCopiedAndCountedWithoutAnAllocation) {
    long const failed = tav_test::eachAllocationFails([] {
        int alive = 0;
        Counted object(alive, 1);
        Counted const copy(object);
        Ptr const pointer(&object, false);
        object.incRefCount();
        Ptr const counted(&object);
        EXPECT_EQ(object.getRefCount(), 2u);
        EXPECT_EQ(copy.getRefCount(), 0u);
    });
    EXPECT_EQ(failed, 0);
}

TEST(SharedPtrRefCountObject, ManyThreadsMayTakeTheFirstReference) {
    for (int round = 0; round < 200; ++round) {
        int alive = 0;
        Counted object(alive);
        Ptr const held(&object, false);
        std::vector<std::thread> threads;
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([&object] { object.incRefCount(); });
        }
        for (std::thread & thread : threads) {
            thread.join();
        }
        ASSERT_EQ(object.getRefCount(), 3u);
    }
}

TEST(SharedPtrRefCountObject, CopyStartsAtZero) {
    int alive = 0;
    Ptr const first(new Counted(alive, 4));
    Counted const copy(*first);
    EXPECT_EQ(copy.getRefCount(), 0u);
    EXPECT_EQ(first->getRefCount(), 1u);
    EXPECT_EQ(copy.value, 4);
}

TEST(SharedPtrRefCountObject, AssignmentLeavesBothCounts) {
    int alive = 0;
    Ptr const a(new Counted(alive, 1));
    Ptr const more(a);
    Ptr const b(new Counted(alive, 2));
    *b = *a;
    EXPECT_EQ(a->getRefCount(), 2u);
    EXPECT_EQ(b->getRefCount(), 1u);
    EXPECT_EQ(b->value, 1);
}

TEST(SharedPtrRefCountObject, SwapExchangesTheCountsOnly) {
    int alive = 0;
    Counted a(alive, 1);
    Counted b(alive, 2);
    a.incRefCount();
    a.incRefCount();
    a.incRefCount();
    b.incRefCount();
    a.swap(b);
    EXPECT_EQ(a.getRefCount(), 1u);
    EXPECT_EQ(b.getRefCount(), 3u);
    EXPECT_EQ(a.value, 1);
    EXPECT_EQ(b.value, 2);
    a.swap(a);
    EXPECT_EQ(a.getRefCount(), 1u);
}

TEST(SharedPtrObject, SeveralPathsToTheRootHaveOneCount) {
    int alive = 0;
    {
        tavSharedPtr<Both> const both(new Both(alive));
        tavSharedPtr<Left> const left(both);
        tavSharedPtr<Right> const right(both);
        tavSharedPtr<tavRefCountObject> const root(both);
        EXPECT_EQ(both->getRefCount(), 4u);
        EXPECT_EQ(root->getRefCount(), 4u);
        EXPECT_TRUE(left == both);
        EXPECT_TRUE(right == root);
    }
    EXPECT_EQ(alive, 0);
}

TEST(TavSharedPtr, DefaultAndNullAreEmpty) {
    Ptr const a;
    Ptr const b(nullptr);
    Ptr const c(static_cast<Counted *>(nullptr));
    for (Ptr const * p : {&a, &b, &c}) {
        EXPECT_EQ(p->get(), nullptr);
        EXPECT_FALSE(static_cast<bool>(*p));
        EXPECT_TRUE(!*p);
        EXPECT_TRUE(p->counted());
    }
    EXPECT_FALSE(Ptr(nullptr, false).counted());
}

TEST(TavSharedPtr, CountsAndFreesWithTheLast) {
    int alive = 0;
    {
        Ptr a(new Counted(alive, 3));
        EXPECT_TRUE(a.counted());
        EXPECT_EQ(a->getRefCount(), 1u);
        {
            Ptr const b(a);
            EXPECT_EQ(a->getRefCount(), 2u);
            EXPECT_EQ(a.get(), b.get());
            EXPECT_EQ((*b).value, 3);
            EXPECT_TRUE(static_cast<bool>(b));
            EXPECT_FALSE(!b);
        }
        EXPECT_EQ(a->getRefCount(), 1u);
        EXPECT_EQ(alive, 1);
        a.reset();
        EXPECT_EQ(alive, 0);
        EXPECT_FALSE(a);
        a.reset();
    }
    EXPECT_EQ(alive, 0);
}

TEST(TavSharedPtr, UncountedLeavesAStackObjectAlone) {
    int alive = 0;
    Counted object(alive);
    {
        Ptr const a(&object, false);
        Ptr const b(a);
        Ptr c;
        c = b;
        tavSharedPtr<tavRefCountObject> const base(c);
        EXPECT_FALSE(a.counted());
        EXPECT_FALSE(b.counted());
        EXPECT_FALSE(c.counted());
        EXPECT_FALSE(base.counted());
        EXPECT_EQ(object.getRefCount(), 0u);
        c.reset();
    }
    EXPECT_EQ(object.getRefCount(), 0u);
    EXPECT_EQ(alive, 1);
}

TEST(TavSharedPtr, TheFlagMayBeGiven) {
    int alive = 0;
    {
        Ptr const counted(new Counted(alive), true);
        EXPECT_TRUE(counted.counted());
        EXPECT_EQ(counted->getRefCount(), 1u);
        {
            Ptr const uncounted(counted.get(), false);
            EXPECT_EQ(counted->getRefCount(), 1u);
        }
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

TEST(TavSharedPtr, AssignmentCountsNewAndReleasesOld) {
    int alive = 0;
    Ptr a(new Counted(alive, 1));
    Ptr b(new Counted(alive, 2));
    a = b;
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(b->getRefCount(), 2u);
    EXPECT_EQ(a->value, 2);
    Ptr & same = a;
    a = same;
    EXPECT_EQ(b->getRefCount(), 2u);
    a = nullptr;
    EXPECT_FALSE(a);
    EXPECT_EQ(b->getRefCount(), 1u);
    b = new Counted(alive, 5);
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(b->value, 5);
}

TEST(TavSharedPtr, MoveTransfersWithoutCounting) {
    int alive = 0;
    Ptr a(new Counted(alive));
    Counted * const object = a.get();
    Ptr b(std::move(a));
    EXPECT_EQ(object, b.get());
    EXPECT_EQ(b->getRefCount(), 1u);
    EXPECT_EQ(a.get(), nullptr); // NOLINT(bugprone-use-after-move)
    Ptr c(new Counted(alive));
    c = std::move(b);
    EXPECT_EQ(object, c.get());
    EXPECT_EQ(c->getRefCount(), 1u);
    EXPECT_EQ(b.get(), nullptr); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(alive, 1);
    Ptr & same = c;
    c = std::move(same);
    EXPECT_EQ(object, c.get());
    EXPECT_EQ(alive, 1);
}

TEST(TavSharedPtr, MoveKeepsTheFlag) {
    int alive = 0;
    Counted object(alive);
    Ptr a(&object, false);
    Ptr b(std::move(a));
    EXPECT_FALSE(b.counted());
    tavSharedPtr<tavRefCountObject> c(std::move(b));
    EXPECT_FALSE(c.counted());
    EXPECT_EQ(&object, c.get());
}

TEST(TavSharedPtr, ConvertsToABasePointee) {
    int alive = 0;
    {
        tavSharedPtr<Derived> d(new Derived(alive, 8));
        Ptr base(d);
        EXPECT_EQ(base->getRefCount(), 2u);
        EXPECT_EQ(base->value, 8);
        base = d;
        EXPECT_EQ(base->getRefCount(), 2u);
        Ptr moved(std::move(d));
        EXPECT_EQ(base->getRefCount(), 2u);
        EXPECT_EQ(d.get(), nullptr); // NOLINT(bugprone-use-after-move)
        tavSharedPtr<Counted const> const readable(moved);
        EXPECT_EQ(base->getRefCount(), 3u);
    }
    EXPECT_EQ(alive, 0);
}

TEST(TavSharedPtr, SwapExchangesBothFields) {
    int alive = 0;
    Counted object(alive, 1);
    Ptr a(&object, false);
    Ptr b(new Counted(alive, 2));
    a.swap(b);
    EXPECT_TRUE(a.counted());
    EXPECT_EQ(a->value, 2);
    EXPECT_FALSE(b.counted());
    EXPECT_EQ(b->value, 1);
    EXPECT_EQ(a->getRefCount(), 1u);
}

TEST(TavSharedPtr, ComparesAddresses) {
    int alive = 0;
    Ptr const a(new Counted(alive));
    Ptr const same(a);
    Ptr const other(new Counted(alive));
    Ptr const null;
    tavSharedPtr<tavRefCountObject> const base(a);
    EXPECT_TRUE(a == same);
    EXPECT_FALSE(a != same);
    EXPECT_TRUE(a != other);
    EXPECT_FALSE(a == other);
    EXPECT_TRUE(a == base);
    EXPECT_TRUE(base != other);
    EXPECT_TRUE(null == nullptr);
    EXPECT_TRUE(nullptr == null);
    EXPECT_FALSE(null != nullptr);
    EXPECT_FALSE(nullptr != null);
    EXPECT_TRUE(a != nullptr);
    EXPECT_TRUE(nullptr != a);
    EXPECT_TRUE((a < other) != (other < a));
    EXPECT_FALSE(a < same);
    std::set<Ptr> const set{a, same, other};
    EXPECT_EQ(set.size(), 2u);
}

TEST(TavSharedPtr, AnOwnerMayDropItselfInTheMiddleOfAReset) {
    struct Node : tavSharedObject {
        tavSharedPtr<Node> next;
    };
    tavSharedPtr<Node> first(new Node);
    first->next = new Node;
    first = tavSharedPtr<Node>(first->next);
    EXPECT_EQ(first->getRefCount(), 1u);
    first = first->next;
    EXPECT_FALSE(first);
}

TEST(TavSharedPtr, IsSharedBetweenThreads) {
    int alive = 0;
    {
        Ptr const shared(new Counted(alive));
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([copy = shared] {
                for (int k = 0; k < 3000; ++k) {
                    Ptr const again(copy);
                    ASSERT_EQ(again->value, 0);
                }
            });
        }
        for (std::thread & thread : threads) {
            thread.join();
        }
        EXPECT_EQ(shared->getRefCount(), 1u);
    }
    EXPECT_EQ(alive, 0);
}

TEST(TavSharedPtr, TheLastOfManyThreadsFreesOnce) {
    for (int round = 0; round < 200; ++round) {
        int alive = 0;
        Ptr shared(new Counted(alive));
        std::thread a([copy = shared]() mutable { copy.reset(); });
        std::thread b([copy = std::move(shared)]() mutable { copy.reset(); });
        a.join();
        b.join();
        ASSERT_EQ(alive, 0);
    }
}
