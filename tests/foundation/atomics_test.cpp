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

TEST(AtomicsInt, StartsAtZeroOrTheValueOrTheOthersValue) {
    EXPECT_EQ(tavAtomicInt().get(), 0u);
    tavAtomicInt const a(7);
    EXPECT_EQ(a.get(), 7u);
    tavAtomicInt const b(a);
    EXPECT_EQ(b.get(), 7u);
}

TEST(AtomicsInt, CopyIsACounterOfItsOwn) {
    tavAtomicInt a(7);
    tavAtomicInt b(a);
    ++b;
    EXPECT_EQ(a.get(), 7u);
    EXPECT_EQ(b.get(), 8u);
}

TEST(AtomicsInt, SetAndAssignmentWrite) {
    tavAtomicInt a;
    a.set(3);
    EXPECT_EQ(a.get(), 3u);
    EXPECT_EQ(&a, &(a = 4u));
    EXPECT_EQ(a.get(), 4u);
    tavAtomicInt b(9);
    EXPECT_EQ(&a, &(a = b));
    EXPECT_EQ(a.get(), 9u);
    tavAtomicInt & same = a;
    a = same;
    EXPECT_EQ(a.get(), 9u);
}

TEST(AtomicsInt, OperatorsReturnTheNewValue) {
    tavAtomicInt a(5);
    EXPECT_EQ(++a, 6u);
    EXPECT_EQ(--a, 5u);
    EXPECT_EQ(a += 10, 15u);
    EXPECT_EQ(a -= 3, 12u);
    EXPECT_EQ(a.get(), 12u);
}

TEST(AtomicsInt, WrapsAround) {
    tavAtomicInt a;
    EXPECT_EQ(--a, 0xFFFFFFFFu);
    EXPECT_EQ(++a, 0u);
    EXPECT_EQ(a -= 2, 0xFFFFFFFEu);
    EXPECT_EQ(a += 3, 1u);
}

TEST(AtomicsInt, CountsOnManyThreads) {
    tavAtomicInt a;
    onThreads(4, [&] {
        for (int i = 0; i < 5000; ++i) {
            ++a;
            a += 3;
            --a;
            a -= 1;
        }
    });
    EXPECT_EQ(a.get(), 40000u);
}

TEST(AtomicsInt, CrossedAssignmentsNeverLockEachOther) {
    tavAtomicInt a(1);
    tavAtomicInt b(1);
    onThreads(2, [&] {
        for (int i = 0; i < 5000; ++i) {
            a = b;
            b = a;
        }
    });
    EXPECT_EQ(a.get(), 1u);
    EXPECT_EQ(b.get(), 1u);
}

TEST(AtomicsInt, ManyMayLiveAndEndOnOtherThreads) {
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
        ASSERT_EQ(made.back()->get(), 0u);
    }
    std::thread([&] { made.clear(); }).join();
    EXPECT_TRUE(made.empty());
}

TEST(AtomicsInt, OutlivesTheThreadsOwnObjects) {
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
    EXPECT_EQ(seen.get(), 3u);
}

TEST(AtomicsInt64, HasTheSameOperationsWithSixtyFourBits) {
    EXPECT_EQ(tavAtomicInt64().get(), 0u);
    tavAtomicInt64 a(0x1'0000'0000ull);
    EXPECT_EQ(--a, 0xFFFFFFFFull);
    EXPECT_EQ(++a, 0x1'0000'0000ull);
    EXPECT_EQ(a += 0x2'0000'0000ull, 0x3'0000'0000ull);
    EXPECT_EQ(0x2'FFFF'FFFFull, a -= 1);
    tavAtomicInt64 b(a);
    EXPECT_EQ(0x2'FFFF'FFFFull, b.get());
    b.set(5);
    EXPECT_EQ(b.get(), 5u);
    a = b;
    EXPECT_EQ(a.get(), 5u);
    a = 6ull;
    EXPECT_EQ(a.get(), 6u);
    EXPECT_EQ(b.get(), 5u);
    tavAtomicInt64 & same = a;
    a = same;
    EXPECT_EQ(a.get(), 6u);
}

TEST(AtomicsInt64, WrapsAround) {
    tavAtomicInt64 a;
    EXPECT_EQ(--a, 0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(++a, 0u);
}

TEST(AtomicsInt64, CountsOnManyThreads) {
    tavAtomicInt64 a(0xFFFFFFF0ull);
    onThreads(4, [&] {
        for (int i = 0; i < 5000; ++i) {
            ++a;
        }
    });
    EXPECT_EQ(0xFFFFFFF0ull + 20000, a.get());
}

TEST(AtomicsLong, StartsAtZeroAndReturnsTheNewValue) {
    tavAtomicLong a;
    EXPECT_EQ(a.get(), 0u);
    EXPECT_EQ(++a, 1u);
    EXPECT_EQ(a += 10, 11u);
    EXPECT_EQ(a.get(), 11u);
}

TEST(AtomicsLong, CarriesIntoTheHighWord) {
    tavAtomicLong a;
    EXPECT_EQ(a += 0x7FFFFFFF, 0x7FFFFFFFull);
    EXPECT_EQ(a += 0x7FFFFFFF, 0xFFFFFFFEull);
    EXPECT_EQ(++a, 0xFFFFFFFFull);
    EXPECT_EQ(++a, 0x1'0000'0000ull);
    EXPECT_EQ(++a, 0x1'0000'0001ull);
}

TEST(AtomicsLong, NegativeAdditionCarriesToo) {
    tavAtomicLong a;
    a += 5;
    EXPECT_EQ(a += -1, 0x1'0000'0004ull);
    EXPECT_EQ(a.get(), 0x1'0000'0004ull);
}

TEST(AtomicsLong, NegativeAdditionToZeroDoesNotCarry) {
    tavAtomicLong a;
    EXPECT_EQ(a += -1, 0xFFFFFFFFull);
}

TEST(AtomicsLong, AdditionOfZeroChangesNothing) {
    tavAtomicLong a;
    ++a;
    EXPECT_EQ(a += 0, 1u);
}
