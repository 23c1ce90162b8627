#include "tav/vinta/vinta_locks.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

static_assert(sizeof(tavAtomicInt) == sizeof(void *), "one pointer");
static_assert(sizeof(tavAtomicInt64) == sizeof(void *), "one pointer");
static_assert(sizeof(tavAtomicLong) == 2 * sizeof(void *), "two words");

template <class A, class B>
constexpr bool same = std::is_same<A, B>::value;

template <class Counter, class V>
constexpr bool isCounterOf = same<decltype(&Counter::get), V (Counter::*)() const> &&
    same<decltype(&Counter::set), void (Counter::*)(V)> && same<decltype(++std::declval<Counter &>()), V> &&
        same<decltype(--std::declval<Counter &>()), V> && same<decltype(&Counter::operator+=),
                                                               V (Counter::*)(V)> &&
            same<decltype(&Counter::operator-=), V (Counter::*)(V)> && std::is_convertible<V, Counter>::value;
static_assert(isCounterOf<tavAtomicInt, unsigned>, "");
static_assert(isCounterOf<tavAtomicInt64, unsigned long long>, "");
static_assert(same<decltype(&tavAtomicLong::get), unsigned long long (tavAtomicLong::*)() const> &&
                  same<decltype(&tavAtomicLong::operator++), unsigned long long (tavAtomicLong::*)()> &&
                  same<decltype(&tavAtomicLong::operator+=), unsigned long long (tavAtomicLong::*)(int)>,
              "");

template <class F>
void onThreads(int count, F const & run) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(run);
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
}

} // namespace

TEST(TavAtomicInt, StartsAtZeroOrTheValueOrTheOthersValue) {
    EXPECT_EQ(0u, tavAtomicInt().get());
    tavAtomicInt const a(7);
    EXPECT_EQ(7u, a.get());
    tavAtomicInt const b(a);
    EXPECT_EQ(7u, b.get());
}

TEST(TavAtomicInt, CopyIsACounterOfItsOwn) {
    tavAtomicInt a(7);
    tavAtomicInt b(a);
    ++b;
    EXPECT_EQ(7u, a.get());
    EXPECT_EQ(8u, b.get());
}

TEST(TavAtomicInt, SetAndAssignmentWrite) {
    tavAtomicInt a;
    a.set(3);
    EXPECT_EQ(3u, a.get());
    EXPECT_EQ(&a, &(a = 4u));
    EXPECT_EQ(4u, a.get());
    tavAtomicInt b(9);
    EXPECT_EQ(&a, &(a = b));
    EXPECT_EQ(9u, a.get());
    tavAtomicInt & same = a;
    a = same;
    EXPECT_EQ(9u, a.get());
}

TEST(TavAtomicInt, OperatorsReturnTheNewValue) {
    tavAtomicInt a(5);
    EXPECT_EQ(6u, ++a);
    EXPECT_EQ(5u, --a);
    EXPECT_EQ(15u, a += 10);
    EXPECT_EQ(12u, a -= 3);
    EXPECT_EQ(12u, a.get());
}

TEST(TavAtomicInt, WrapsAround) {
    tavAtomicInt a;
    EXPECT_EQ(0xFFFFFFFFu, --a);
    EXPECT_EQ(0u, ++a);
    EXPECT_EQ(0xFFFFFFFEu, a -= 2);
    EXPECT_EQ(1u, a += 3);
}

TEST(TavAtomicInt, CountsOnManyThreads) {
    tavAtomicInt a;
    onThreads(4, [&] {
        for (int i = 0; i < 5000; ++i) {
            ++a;
            a += 3;
            --a;
            a -= 1;
        }
    });
    EXPECT_EQ(40000u, a.get());
}

TEST(TavAtomicInt, CrossedAssignmentsNeverLockEachOther) {
    tavAtomicInt a(1);
    tavAtomicInt b(1);
    onThreads(2, [&] {
        for (int i = 0; i < 5000; ++i) {
            a = b;
            b = a;
        }
    });
    EXPECT_EQ(1u, a.get());
    EXPECT_EQ(1u, b.get());
}

TEST(TavAtomicInt, ManyMayLiveAndEndOnOtherThreads) {
    constexpr unsigned count = 10000;
    std::vector<std::unique_ptr<tavAtomicInt>> made;
    std::thread([&] {
        for (unsigned i = 0; i < count; ++i) {
            made.push_back(std::make_unique<tavAtomicInt>(i));
        }
    }).join();
    for (unsigned i = 0; i < count; ++i) {
        ASSERT_EQ(i, made[i]->get());
    }
    made.clear();
    for (unsigned i = 0; i < count; ++i) {
        made.push_back(std::make_unique<tavAtomicInt>());
        ASSERT_EQ(0u, made.back()->get());
    }
    std::thread([&] { made.clear(); }).join();
    EXPECT_TRUE(made.empty());
}

TEST(TavAtomicInt, OutlivesTheThreadsOwnObjects) {
    static tavAtomicInt seen;
    seen.set(0);
    struct AtTheEnd {
        tavAtomicInt counter{1};
        ~AtTheEnd() {
            tavAtomicInt late(2);
            seen += counter.get() + late.get();
        }
    };
    std::thread([] {
        // Made before the first counter of the thread, so that it goes after everything that counter set up.
        static thread_local std::unique_ptr<AtTheEnd> last;
        last = std::make_unique<AtTheEnd>();
        tavAtomicInt first;
    }).join();
    EXPECT_EQ(3u, seen.get());
}

TEST(TavAtomicInt64, HasTheSameOperationsWithSixtyFourBits) {
    EXPECT_EQ(0u, tavAtomicInt64().get());
    tavAtomicInt64 a(0x1'0000'0000ull);
    EXPECT_EQ(0xFFFFFFFFull, --a);
    EXPECT_EQ(0x1'0000'0000ull, ++a);
    EXPECT_EQ(0x3'0000'0000ull, a += 0x2'0000'0000ull);
    EXPECT_EQ(0x2'FFFF'FFFFull, a -= 1);
    tavAtomicInt64 b(a);
    EXPECT_EQ(0x2'FFFF'FFFFull, b.get());
    b.set(5);
    EXPECT_EQ(5u, b.get());
    a = b;
    EXPECT_EQ(5u, a.get());
    a = 6ull;
    EXPECT_EQ(6u, a.get());
    EXPECT_EQ(5u, b.get());
    tavAtomicInt64 & same = a;
    a = same;
    EXPECT_EQ(6u, a.get());
}

TEST(TavAtomicInt64, WrapsAround) {
    tavAtomicInt64 a;
    EXPECT_EQ(0xFFFFFFFFFFFFFFFFull, --a);
    EXPECT_EQ(0u, ++a);
}

TEST(TavAtomicInt64, CountsOnManyThreads) {
    tavAtomicInt64 a(0xFFFFFFF0ull);
    onThreads(4, [&] {
        for (int i = 0; i < 5000; ++i) {
            ++a;
        }
    });
    EXPECT_EQ(0xFFFFFFF0ull + 20000, a.get());
}

TEST(TavAtomicLong, StartsAtZeroAndReturnsTheNewValue) {
    tavAtomicLong a;
    EXPECT_EQ(0u, a.get());
    EXPECT_EQ(1u, ++a);
    EXPECT_EQ(11u, a += 10);
    EXPECT_EQ(11u, a.get());
}

TEST(TavAtomicLong, CarriesIntoTheHighWord) {
    tavAtomicLong a;
    EXPECT_EQ(0x7FFFFFFFull, a += 0x7FFFFFFF);
    EXPECT_EQ(0xFFFFFFFEull, a += 0x7FFFFFFF);
    EXPECT_EQ(0xFFFFFFFFull, ++a);
    EXPECT_EQ(0x1'0000'0000ull, ++a);
    EXPECT_EQ(0x1'0000'0001ull, ++a);
}

TEST(TavAtomicLong, NegativeAdditionCarriesToo) {
    tavAtomicLong a;
    a += 5;
    EXPECT_EQ(0x1'0000'0004ull, a += -1);
    EXPECT_EQ(0x1'0000'0004ull, a.get());
}

TEST(TavAtomicLong, NegativeAdditionToZeroDoesNotCarry) {
    tavAtomicLong a;
    EXPECT_EQ(0xFFFFFFFFull, a += -1);
}

TEST(TavAtomicLong, AdditionOfZeroChangesNothing) {
    tavAtomicLong a;
    ++a;
    EXPECT_EQ(1u, a += 0);
}
