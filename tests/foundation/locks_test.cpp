#include "tav/vinta/vinta_locks.h"

#include "support/failing_allocations.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using MonitorGuard = std::lock_guard<tavMonitor const>;

long long millisSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

/// Several threads that wait on one monitor, each until it is let go by a token.
class Waiters {
public:
    explicit Waiters(unsigned count, int ms = -1) {
        for (unsigned i = 0; i < count; ++i) {
            threads_.emplace_back([this, ms] {
                MonitorGuard guard(monitor);
                ++waiting;
                ready.signal();
                while (tokens == 0) {
                    lastResult = monitor.waitInLock(ms);
                }
                --tokens;
                --waiting;
                ready.signal();
            });
        }
        awaitWaiting(count);
    }
    ~Waiters() {
        {
            MonitorGuard guard(monitor);
            tokens = 1000;
            monitor.signalAllInLock();
        }
        for (std::thread & thread : threads_) {
            thread.join();
        }
    }

    /// Returns when exactly `count` are inside the wait: the lock is free only while they wait.
    void awaitWaiting(unsigned count) {
        for (;;) {
            {
                MonitorGuard guard(monitor);
                if (waiting == count) {
                    return;
                }
            }
            ready.wait(1);
        }
    }

    tavMonitor monitor;
    tavMonitor ready;
    unsigned waiting = 0;
    unsigned tokens = 0;
    bool lastResult = false;

private:
    std::vector<std::thread> threads_;
};

static_assert(sizeof(tavMutex) == sizeof(void *), "one pointer");
static_assert(sizeof(tavMonitor) == sizeof(void *), "one pointer");
static_assert(!std::is_copy_constructible<tavMutex>::value && !std::is_copy_assignable<tavMutex>::value, "");
static_assert(!std::is_copy_constructible<tavMonitor>::value && !std::is_copy_assignable<tavMonitor>::value,
              "");

template <class A, class B>
constexpr bool same = std::is_same<A, B>::value;

using OnMutex = void (tavMutex::*)() const;
using OnNullMutex = void (tavNullMutex::*)() const;
using OnMonitor = void (tavMonitor::*)() const;
using WaitOnMonitor = bool (tavMonitor::*)(int) const;
static_assert(same<decltype(&tavMutex::lock), OnMutex> && same<decltype(&tavMutex::unlock), OnMutex>, "");
static_assert(same<decltype(&tavNullMutex::lock), OnNullMutex> &&
                  same<decltype(&tavNullMutex::unlock), OnNullMutex>,
              "");
static_assert(same<decltype(&tavMonitor::lock), OnMonitor> && same<decltype(&tavMonitor::unlock), OnMonitor>,
              "");
static_assert(same<decltype(&tavMonitor::signal), OnMonitor> &&
                  same<decltype(&tavMonitor::signalAll), OnMonitor> &&
                  same<decltype(&tavMonitor::signalInLock), OnMonitor> &&
                  same<decltype(&tavMonitor::signalAllInLock), OnMonitor>,
              "");
static_assert(same<decltype(&tavMonitor::wait), WaitOnMonitor> &&
                  same<decltype(&tavMonitor::waitInLock), WaitOnMonitor>,
              "");

struct Uncopied : tavNonCopyable {};
static_assert(std::is_default_constructible<Uncopied>::value, "");
static_assert(!std::is_copy_constructible<Uncopied>::value && !std::is_copy_assignable<Uncopied>::value, "");
static_assert(std::is_empty<tavNonCopyable>::value && !std::is_default_constructible<tavNonCopyable>::value,
              "");
static_assert(std::is_empty<tavNullMutex>::value, "");

} // namespace

TEST(LocksMutex, IsNotMadeWithoutMemory) {
    tav_test::FailingAllocation const failing(1);
    EXPECT_THROW(tavMutex(), std::bad_alloc);
}

TEST(LocksMutex, StaticOneIsMadeWhenThereIsMemoryAgain) {
    auto const get = []() -> tavMutex const & {
        static tavMutex const the;
        return the;
    };
    {
        tav_test::FailingAllocation const failing(1);
        EXPECT_THROW(get(), std::bad_alloc);
    }
    get().lock();
    get().unlock();
}

TEST(LocksMutex, IsRecursiveAndFreeAfterAsManyUnlocks) {
    tavMutex const mutex;
    int value = 0;
    mutex.lock();
    mutex.lock();
    mutex.unlock();
    std::thread other([&] {
        std::lock_guard<tavMutex const> guard(mutex);
        value = 2;
    });
    value = 1;
    std::this_thread::yield();
    EXPECT_EQ(value, 1);
    mutex.unlock();
    other.join();
    EXPECT_EQ(value, 2);
}

TEST(LocksMutex, ExcludesOtherThreads) {
    tavMutex mutex;
    unsigned count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int k = 0; k < 5000; ++k) {
                std::lock_guard<tavMutex const> guard(mutex);
                ++count;
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 20000u);
}

TEST(LocksNullMutex, LocksNothing) {
    tavNullMutex const mutex;
    mutex.lock();
    mutex.lock();
    mutex.unlock();
    std::thread([&] { mutex.lock(); }).join();
    SUCCEED();
}

TEST(LocksMonitor, WaitOfZeroWithoutSignalIsFalseAtOnce) {
    tavMonitor const monitor;
    Clock::time_point const start = Clock::now();
    EXPECT_FALSE(monitor.wait(0));
    monitor.lock();
    EXPECT_FALSE(monitor.waitInLock(0));
    monitor.unlock();
    EXPECT_LT(millisSince(start), 5000);
}

TEST(LocksMonitor, WaitOfZeroReleasesAndRegainsTheLock) {
    tavMonitor monitor;
    monitor.lock();
    EXPECT_FALSE(monitor.waitInLock(0));
    bool entered = false;
    std::thread other([&] {
        MonitorGuard guard(monitor);
        entered = true;
    });
    std::this_thread::yield();
    EXPECT_FALSE(entered);
    monitor.unlock();
    other.join();
    EXPECT_TRUE(entered);
}

TEST(LocksMonitor, WaitRunsOutWithFalseAfterItsTime) {
    tavMonitor const monitor;
    Clock::time_point const start = Clock::now();
    EXPECT_FALSE(monitor.wait(30));
    EXPECT_GE(millisSince(start), 30);
}

TEST(LocksMonitor, SignalBeforeTheWaitIsNotKept) {
    tavMonitor const monitor;
    monitor.signal();
    monitor.signalAll();
    EXPECT_FALSE(monitor.wait(5));
}

TEST(LocksMonitor, WaitOfMinusOneIsWokenWithTrue) {
    Waiters waiters(1, -1);
    {
        MonitorGuard guard(waiters.monitor);
        ++waiters.tokens;
        waiters.monitor.signalInLock();
    }
    waiters.awaitWaiting(0);
    MonitorGuard guard(waiters.monitor);
    EXPECT_TRUE(waiters.lastResult);
}

TEST(LocksMonitor, WaitOfAnyNegativeTimeIsUnsigned) {
    Waiters waiters(1, static_cast<int>(0x80000000u));
    {
        MonitorGuard guard(waiters.monitor);
        ++waiters.tokens;
    }
    waiters.monitor.signal();
    waiters.awaitWaiting(0);
    MonitorGuard guard(waiters.monitor);
    EXPECT_TRUE(waiters.lastResult);
}

TEST(LocksMonitor, PlainWaitIsWokenBySignal) {
    tavMonitor monitor;
    std::atomic<bool> done{false};
    bool result = false;
    std::thread other([&] {
        result = monitor.wait(-1);
        done = true;
    });
    while (!done) {
        monitor.signal();
        std::this_thread::yield();
    }
    other.join();
    EXPECT_TRUE(result);
}

TEST(LocksMonitor, EachSignalWakesOneWaiter) {
    Waiters waiters(3);
    for (unsigned left = 3; left > 0; --left) {
        waiters.awaitWaiting(left);
        {
            MonitorGuard guard(waiters.monitor);
            ++waiters.tokens;
        }
        waiters.monitor.signal();
        waiters.awaitWaiting(left - 1);
    }
}

TEST(LocksMonitor, SignalAllWakesAllWaiters) {
    Waiters waiters(3);
    {
        MonitorGuard guard(waiters.monitor);
        waiters.tokens = 3;
    }
    waiters.monitor.signalAll();
    waiters.awaitWaiting(0);
}

TEST(LocksMonitor, SignalAllInLockWakesAllWaiters) {
    Waiters waiters(3);
    {
        MonitorGuard guard(waiters.monitor);
        waiters.tokens = 3;
        waiters.monitor.signalAllInLock();
    }
    waiters.awaitWaiting(0);
}

TEST(LocksMonitor, LockIsRecursive) {
    tavMonitor const monitor;
    monitor.lock();
    monitor.lock();
    monitor.signal();
    monitor.unlock();
    EXPECT_FALSE(monitor.waitInLock(1));
    monitor.unlock();
    std::thread([&] {
        monitor.lock();
        monitor.unlock();
    }).join();
}

TEST(LocksMonitor, WhoHoldsItTwiceWaitsAndHoldsItTwiceAfter) {
    tavMonitor const monitor;
    monitor.lock();
    monitor.lock();
    EXPECT_FALSE(monitor.waitInLock(1));
    std::atomic<bool> entered{false};
    std::thread other([&] {
        MonitorGuard guard(monitor);
        entered = true;
    });
    monitor.unlock();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_FALSE(entered);
    monitor.unlock();
    other.join();
    EXPECT_TRUE(entered);
}

TEST(LocksMonitor, NoSignalIsLostBetweenTwoThreads) {
    tavMonitor monitor;
    constexpr int rounds = 3000;
    int turn = 0;
    auto const play = [&](int mine) {
        for (int i = 0; i < rounds; ++i) {
            MonitorGuard guard(monitor);
            while (turn % 2 != mine) {
                ASSERT_TRUE(monitor.waitInLock(60000));
            }
            ++turn;
            monitor.signalInLock();
        }
    };
    std::thread other([&] { play(1); });
    play(0);
    other.join();
    EXPECT_EQ(2 * rounds, turn);
}

TEST(LocksMonitor, SignalReachesTheWaiterOfOneWhoWaitsNext) {
    tavMonitor monitor;
    int turn = 0;
    std::thread other([&] {
        MonitorGuard guard(monitor);
        while (turn != 1) {
            ASSERT_TRUE(monitor.waitInLock(60000));
        }
        turn = 2;
        monitor.signalInLock();
    });
    {
        MonitorGuard guard(monitor);
        turn = 1;
        monitor.signalInLock();
        while (turn != 2) {
            ASSERT_TRUE(monitor.waitInLock(60000));
        }
    }
    other.join();
}

TEST(LocksMonitor, SignalOfAnInnerLockIsNotLost) {
    Waiters waiters(1);
    {
        MonitorGuard outer(waiters.monitor);
        waiters.monitor.signalAll();
        waiters.monitor.signal();
        waiters.tokens = 1;
    }
    waiters.awaitWaiting(0);
    EXPECT_TRUE(waiters.lastResult);
}

TEST(LocksMonitor, MayBeDestroyedOnceTheStateIsSeen) {
    for (int i = 0; i < 200; ++i) {
        bool entered = false;
        auto monitor = std::make_unique<tavMonitor>();
        std::thread other([&entered, &on = *monitor] {
            MonitorGuard guard(on);
            entered = true;
            on.signalInLock();
        });
        {
            MonitorGuard guard(*monitor);
            while (!entered) {
                monitor->waitInLock(-1);
            }
        }
        monitor.reset();
        other.join();
        ASSERT_TRUE(entered);
    }
}
