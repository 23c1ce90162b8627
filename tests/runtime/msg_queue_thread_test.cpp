#include "tav/vinta/vinta_mt_thread.h"

#include "support/bounded.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using tav_test::LogCapture;
using Clock = std::chrono::steady_clock;
using Queue = tavMsgQueueThread<int>;
using QueuePtr = tavSharedPtr<Queue>;

long long millisSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

QueuePtr make(std::function<void(int const &)> handler, int timeout = -1) {
    return QueuePtr(new Queue("batch", timeout, std::move(handler)));
}

template <class F>
bool eventually(F const & condition) {
    auto const end = Clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (Clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

/// Takes a millisecond for each of more values than the longest wait has.
constexpr int backlog = 5000;

void nap() {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

std::vector<int> numbers(int count) {
    std::vector<int> all(static_cast<std::size_t>(count));
    std::iota(all.begin(), all.end(), 0);
    return all;
}

} // namespace

TEST(TavMsgQueueThread, HandsItemsOverInOrderOnItsThread) {
    std::vector<int> seen;
    std::string where;
    QueuePtr const queue = make([&](int const & i) {
        seen.push_back(i);
        where = tavThread::currentId();
    });
    queue->put(0);
    queue->start();
    for (int i = 1; i < 2000; ++i) {
        queue->put(i);
    }
    queue->flush();
    EXPECT_EQ(numbers(2000), seen);
    EXPECT_EQ(queue->id(), where);
    queue->close();
}

TEST(TavMsgQueueThread, TakesConstantAndMovedItems) {
    std::vector<std::string> seen;
    tavSharedPtr<tavMsgQueueThread<std::string>> const queue(new tavMsgQueueThread<std::string>(
        "text", -1, [&](std::string const & text) { seen.push_back(text); }));
    std::string const constant(100, 'a');
    std::string moved(100, 'b');
    queue->put(constant);
    queue->put(std::move(moved));
    queue->flush();
    EXPECT_EQ((std::vector<std::string>{std::string(100, 'a'), std::string(100, 'b')}), seen);
    EXPECT_EQ(std::string(100, 'a'), constant);

    tavSharedPtr<tavMsgQueueThread<std::unique_ptr<int>>> const single(
        new tavMsgQueueThread<std::unique_ptr<int>>(
            "single", -1, [&](std::unique_ptr<int> const & p) { seen.push_back(std::to_string(*p)); }));
    single->put(std::make_unique<int>(7));
    single->flush();
    EXPECT_EQ(seen.back(), "7");
}

TEST(TavMsgQueueThread, ManyProducersLoseNothingAndKeepTheirOrder) {
    constexpr int each = 3000;
    std::vector<std::vector<int>> seen(4);
    QueuePtr const queue =
        make([&](int const & i) { seen[static_cast<std::size_t>(i / each)].push_back(i % each); });
    queue->start();
    std::vector<std::thread> producers;
    for (int p = 0; p < 4; ++p) {
        producers.emplace_back([&queue, p] {
            for (int i = 0; i < each; ++i) {
                queue->put(p * each + i);
            }
        });
    }
    for (std::thread & producer : producers) {
        producer.join();
    }
    queue->flush();
    queue->close();
    for (std::vector<int> const & one : seen) {
        EXPECT_EQ(numbers(each), one);
    }
}

TEST(TavMsgQueueThread, HandlerHoldsNoLockAndMayPut) {
    std::vector<int> seen;
    Queue * self = nullptr;
    QueuePtr const queue = make([&](int const & i) {
        seen.push_back(i);
        if (i < 5) {
            self->put(i + 1);
        }
    });
    self = queue.get();
    queue->start();
    queue->put(0);
    queue->flush();
    EXPECT_EQ(numbers(6), seen);
    queue->close();
}

TEST(TavMsgQueueThread, SlowHandlerBlocksNoProducer) {
    std::promise<void> entered;
    std::promise<void> gate;
    std::atomic<int> handled{0};
    QueuePtr const queue = make([&](int const & i) {
        if (i == 0) {
            entered.set_value();
            tav_test::await(gate.get_future());
        }
        ++handled;
    });
    queue->start();
    queue->put(0);
    tav_test::await(entered.get_future());
    for (int i = 1; i < 100; ++i) {
        queue->put(i);
    }
    EXPECT_EQ(handled, 0);
    gate.set_value();
    queue->flush();
    EXPECT_EQ(handled, 100);
    queue->close();
}

TEST(TavMsgQueueThread, FlushCountsTheBatchInTheHandlersHands) {
    std::promise<void> entered;
    std::promise<void> gate;
    std::atomic<bool> handled{false};
    QueuePtr const queue = make([&](int const &) {
        entered.set_value();
        tav_test::await(gate.get_future());
        handled = true;
    });
    queue->start();
    queue->put(1);
    tav_test::await(entered.get_future());
    std::thread opener([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        gate.set_value();
    });
    queue->flush();
    EXPECT_TRUE(handled);
    opener.join();
    queue->close();
}

TEST(TavMsgQueueThread, FlushOfAnEmptyQueueReturnsAtOnce) {
    QueuePtr const queue = make([](int const &) {});
    Clock::time_point const start = Clock::now();
    queue->flush();
    queue->start();
    queue->flush();
    queue->close();
    queue->flush();
    EXPECT_LT(millisSince(start), 900);
}

TEST(TavMsgQueueThread, FlushEndsAsSoonAsTheQueueIsDone) {
    QueuePtr const queue = make([](int const &) {});
    queue->start();
    Clock::time_point const start = Clock::now();
    for (int i = 0; i < 300; ++i) {
        queue->put(i);
        queue->flush();
    }
    // With a nap of 20 ms in each this would take 6 seconds.
    EXPECT_LT(millisSince(start), 3000);
    queue->close();
}

TEST(TavMsgQueueThread, FlushGivesUpAfterAboutASecond) {
    std::promise<void> gate;
    std::promise<void> entered;
    QueuePtr const queue = make([&](int const & i) {
        if (i == 0) {
            entered.set_value();
            tav_test::await(gate.get_future());
        }
    });
    queue->start();
    queue->put(0);
    tav_test::await(entered.get_future());
    queue->put(1);
    Clock::time_point const start = Clock::now();
    queue->flush();
    long long const waited = millisSince(start);
    EXPECT_GE(waited, 950);
    EXPECT_LT(waited, 3000);
    gate.set_value();
    queue->close();
}

TEST(TavMsgQueueThread, FlushOfAStoppedThreadHandlesOnTheCaller) {
    std::vector<int> seen;
    std::thread::id where;
    QueuePtr const queue = make([&](int const & i) {
        seen.push_back(i);
        where = std::this_thread::get_id();
    });
    queue->start();
    queue->close();
    for (int i = 0; i < 10; ++i) {
        queue->put(i);
    }
    queue->flush();
    EXPECT_EQ(numbers(10), seen);
    EXPECT_EQ(std::this_thread::get_id(), where);
}

TEST(TavMsgQueueThread, FlushOfAnUnstartedThreadHandlesOnTheCaller) {
    std::vector<int> seen;
    QueuePtr const queue = make([&](int const & i) { seen.push_back(i); });
    queue->put(0);
    queue->put(1);
    queue->flush();
    EXPECT_EQ(numbers(2), seen);
}

TEST(TavMsgQueueThread, FlushWhoseThreadStopsMeanwhileTakesOver) {
    std::promise<void> entered;
    std::promise<void> gate;
    std::vector<int> seen;
    QueuePtr const queue = make([&](int const & i) {
        if (i == 0) {
            entered.set_value();
            tav_test::await(gate.get_future());
        }
        seen.push_back(i);
    });
    queue->start();
    queue->put(0);
    tav_test::await(entered.get_future());
    queue->put(1);
    queue->put(2);
    queue->stopRunning();
    std::thread flusher([&] { queue->flush(); });
    gate.set_value();
    flusher.join();
    EXPECT_EQ(numbers(3), seen);
    queue->close();
}

TEST(TavMsgQueueThread, FlushOnItsOwnThreadDoesNothing) {
    std::promise<long long> took;
    Queue * self = nullptr;
    QueuePtr const queue = make([&](int const & i) {
        if (i == 0) {
            self->put(1);
            Clock::time_point const start = Clock::now();
            self->flush();
            took.set_value(millisSince(start));
        }
    });
    self = queue.get();
    queue->start();
    queue->put(0);
    EXPECT_LT(tav_test::got(took.get_future()), 900);
    queue->close();
}

TEST(TavMsgQueueThread, FlushInsideTheHandlerDoesNothingWhereverItRuns) {
    std::vector<int> seen;
    Queue * self = nullptr;
    QueuePtr const queue = make([&](int const & i) {
        seen.push_back(i);
        if (i == 0) {
            self->put(2);
            self->flush();
        }
    });
    self = queue.get();
    queue->put(0);
    queue->put(1);
    Clock::time_point const start = Clock::now();
    queue->flush();
    EXPECT_LT(millisSince(start), 900);
    EXPECT_EQ(numbers(3), seen);
}

TEST(TavMsgQueueThread, FlushByManyThreadsHandlesEachItemOnceAndInOrder) {
    std::atomic<int> inside{0};
    std::atomic<bool> twice{false};
    std::vector<int> seen;
    QueuePtr const queue = make([&](int const & i) {
        twice = twice || ++inside != 1;
        seen.push_back(i);
        --inside;
    });
    for (int round = 0; round < 20; ++round) {
        for (int i = 0; i < 50; ++i) {
            queue->put(round * 50 + i);
        }
        std::vector<std::thread> flushers;
        for (int i = 0; i < 4; ++i) {
            flushers.emplace_back([&] { queue->flush(); });
        }
        for (std::thread & flusher : flushers) {
            flusher.join();
        }
        ASSERT_EQ(numbers(round * 50 + 50), seen);
    }
    EXPECT_FALSE(twice);
}

TEST(TavMsgQueueThread, PutsAndFlushesOfManyThreadsLoseNoWakeUp) {
    std::atomic<int> handled{0};
    QueuePtr const queue = make([&](int const &) { ++handled; });
    queue->start();
    std::atomic<bool> late{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 400; ++i) {
                queue->put(i);
                Clock::time_point const start = Clock::now();
                queue->flush();
                late = late || millisSince(start) >= 1000;
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    EXPECT_EQ(handled, 1200);
    EXPECT_FALSE(late);
    queue->close();
}

TEST(TavMsgQueueThread, CloseLeavesItemsForTheDestructor) {
    std::promise<void> entered;
    LogCapture log;
    std::vector<int> seen;
    std::thread::id last;
    {
        QueuePtr const queue = make([&](int const & i) {
            if (i == 0) {
                entered.set_value();
                log.waitFor("thead on_stop ");
            }
            seen.push_back(i);
            last = std::this_thread::get_id();
        });
        queue->start();
        queue->put(0);
        tav_test::await(entered.get_future());
        queue->put(1);
        queue->put(2);
        queue->close();
        EXPECT_EQ(numbers(1), seen);
    }
    EXPECT_EQ(numbers(3), seen);
    EXPECT_EQ(std::this_thread::get_id(), last);
}

TEST(TavMsgQueueThread, DestructorHandlesWhatAnUnstartedOneHolds) {
    std::vector<int> seen;
    {
        QueuePtr const queue = make([&](int const & i) { seen.push_back(i); });
        queue->put(0);
        queue->put(1);
    }
    EXPECT_EQ(numbers(2), seen);
}

TEST(TavMsgQueueThread, DestructorOnItsOwnThreadHandlesWhatIsLeft) {
    LogCapture log;
    std::promise<void> dropped;
    std::promise<void> entered;
    std::promise<void> handled;
    std::string owner;
    std::string handler;
    {
        QueuePtr queue = make([&](int const & i) {
            if (i == 0) {
                owner = tavThread::currentId();
                entered.set_value();
                tav_test::await(dropped.get_future());
            } else {
                handler = tavThread::currentId();
                handled.set_value();
            }
        });
        queue->start();
        queue->put(0);
        tav_test::await(entered.get_future());
        queue->put(1);
        queue->stopRunning();
        queue->detach();
        queue.reset();
    }
    dropped.set_value();
    tav_test::await(handled.get_future());
    EXPECT_EQ(owner, handler);
    EXPECT_TRUE(log.waitFor("leave thread {batch."));
    EXPECT_TRUE(log.waitFor("thead fini {batch."));
}

TEST(TavMsgQueueThread, DestructorSurvivesAThrowingHandler) {
    LogCapture log;
    std::vector<int> seen;
    {
        QueuePtr const queue = make([&](int const & i) {
            seen.push_back(i);
            if (i % 2 == 0) {
                throw std::runtime_error("in the destructor");
            }
        });
        for (int i = 0; i < 4; ++i) {
            queue->put(i);
        }
    }
    EXPECT_EQ(numbers(4), seen);
    EXPECT_EQ(log.count("<<< EXCEPTION >>> in the destructor\n    catch at tavThread::onLoop("), 2u);
}

TEST(TavMsgQueueThread, ThrowingHandlerLosesItsOwnItemOnly) {
    LogCapture log;
    std::vector<int> seen;
    {
        QueuePtr const queue = make([&](int const & i) {
            if (i == 1) {
                throw std::runtime_error("handler failed");
            }
            seen.push_back(i);
        });
        for (int i = 0; i < 5; ++i) {
            queue->put(i);
        }
        queue->start();
        queue->put(5);
        queue->flush();
        queue->close();
    }
    EXPECT_EQ((std::vector<int>{0, 2, 3, 4, 5}), seen);
    EXPECT_EQ(log.count("<<< EXCEPTION >>> handler failed"), 1u);
}

TEST(TavMsgQueueThread, FlushGivesTheCallerTheHandlersException) {
    QueuePtr const queue = make([&](int const & i) {
        if (i == 0) {
            throw std::runtime_error("to the caller");
        }
    });
    queue->put(0);
    queue->put(1);
    EXPECT_THROW(queue->flush(), std::runtime_error);
    queue->flush();
}

TEST(TavMsgQueueThread, EmptyHandlerDropsItems) {
    LogCapture log;
    {
        QueuePtr const queue = make(nullptr);
        queue->start();
        queue->put(1);
        queue->flush();
        queue->close();
        queue->put(2);
    }
    EXPECT_EQ(log.count("EXCEPTION"), 0u);
}

TEST(TavMsgQueueThread, OneRoundTakesTheWholeQueue) {
    std::vector<int> seen;
    QueuePtr const queue = make([&](int const & i) { seen.push_back(i); });
    for (int i = 0; i < 10; ++i) {
        queue->put(i);
    }
    EXPECT_TRUE(queue->on_loop());
    EXPECT_EQ(numbers(10), seen);
}

TEST(TavMsgQueueThread, OneRoundWaitsItsTimeoutOnce) {
    QueuePtr const queue = make([](int const &) {}, 30);
    Clock::time_point const start = Clock::now();
    EXPECT_TRUE(queue->on_loop());
    EXPECT_GE(millisSince(start), 30);
    QueuePtr const none = make([](int const &) {}, 0);
    EXPECT_TRUE(none->on_loop());
}

TEST(TavMsgQueueThread, RoundAfterAStopWaitsNoMoreButHandlesWhatIsThere) {
    int handled = 0;
    QueuePtr const queue = make([&](int const &) { ++handled; }, -1);
    queue->stopRunning();
    EXPECT_TRUE(queue->on_loop());
    queue->put(1);
    EXPECT_TRUE(queue->on_loop());
    EXPECT_EQ(handled, 1);
}

TEST(TavMsgQueueThread, ShortTimeoutDoesNotEndTheThread) {
    std::promise<void> handled;
    QueuePtr const queue = make([&](int const &) { handled.set_value(); }, 1);
    queue->start();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(queue->loopRunning());
    queue->put(1);
    tav_test::await(handled.get_future());
    queue->close();
}

TEST(TavMsgQueueThread, NoWakeUpIsLostAtTheClose) {
    for (int i = 0; i < 300; ++i) {
        QueuePtr const queue = make([](int const &) {});
        queue->start();
        if (i % 2 != 0) {
            queue->put(1);
        }
        queue->close();
        ASSERT_TRUE(queue->broken());
    }
}

TEST(TavMsgQueueThread, BaseMonitorIsNotTheQueues) {
    std::promise<void> handled;
    QueuePtr const queue = make([&](int const &) { handled.set_value(); });
    queue->start();
    queue->lock();
    std::thread([&] { queue->put(1); }).join();
    EXPECT_EQ(std::future_status::ready, handled.get_future().wait_for(std::chrono::seconds(10)));
    std::thread([&] { queue->on_stop(); }).join();
    queue->unlock();
    queue->close();
}

TEST(TavMsgQueueThread, CloseAndDestructorTogetherWaitAboutASecondForABacklog) {
    std::promise<void> entered;
    std::vector<int> seen;
    Clock::time_point start;
    {
        QueuePtr const queue = make([&](int const & i) {
            if (i == 0) {
                entered.set_value();
            }
            seen.push_back(i);
            nap();
        });
        for (int i = 0; i < backlog; ++i) {
            queue->put(i);
        }
        queue->start();
        tav_test::await(entered.get_future());
        start = Clock::now();
        queue->close();
        EXPECT_GE(millisSince(start), 900);
    }
    EXPECT_LT(millisSince(start), 2500);
    EXPECT_LT(seen.size(), static_cast<std::size_t>(backlog));
    EXPECT_EQ(numbers(static_cast<int>(seen.size())), seen);
}

TEST(TavMsgQueueThread, CloseLetsTheThreadHandleTheBatchThatItHas) {
    std::promise<void> entered;
    LogCapture log;
    std::vector<int> seen;
    QueuePtr const queue = make([&](int const & i) {
        if (i == 0) {
            entered.set_value();
            log.waitFor("thead on_stop ");
        }
        seen.push_back(i);
    });
    for (int i = 0; i < 100; ++i) {
        queue->put(i);
    }
    queue->start();
    tav_test::await(entered.get_future());
    queue->close();
    EXPECT_EQ(numbers(100), seen);
}

TEST(TavMsgQueueThread, FlushOnTheCallerEndsAfterAboutASecondAndLosesNothing) {
    std::vector<int> seen;
    bool slow = true;
    QueuePtr const queue = make([&](int const & i) {
        seen.push_back(i);
        if (slow) {
            nap();
        }
    });
    for (int i = 0; i < backlog; ++i) {
        queue->put(i);
    }
    Clock::time_point const start = Clock::now();
    queue->flush();
    EXPECT_GE(millisSince(start), 900);
    EXPECT_LT(millisSince(start), 2500);
    ASSERT_LT(seen.size(), static_cast<std::size_t>(backlog));
    slow = false;
    queue->put(backlog);
    queue->flush();
    queue->flush();
    EXPECT_EQ(numbers(backlog + 1), seen);
}

TEST(TavMsgQueueThread, DestructorWaitsAboutASecondForABacklog) {
    std::vector<int> seen;
    Clock::time_point start;
    {
        QueuePtr const queue = make([&](int const & i) {
            seen.push_back(i);
            nap();
        });
        for (int i = 0; i < backlog; ++i) {
            queue->put(i);
        }
        start = Clock::now();
    }
    EXPECT_GE(millisSince(start), 900);
    EXPECT_LT(millisSince(start), 2500);
    EXPECT_EQ(numbers(static_cast<int>(seen.size())), seen);
}

TEST(TavMsgQueueThread, StoppedThreadLeavesTheRestInItsOrder) {
    std::promise<void> entered;
    std::vector<int> seen;
    std::atomic<bool> slow{true};
    QueuePtr const queue = make([&](int const & i) {
        if (i == 0) {
            entered.set_value();
        }
        seen.push_back(i);
        if (slow) {
            nap();
        }
    });
    for (int i = 0; i < backlog; ++i) {
        queue->put(i);
    }
    queue->start();
    tav_test::await(entered.get_future());
    queue->close();
    ASSERT_LT(seen.size(), static_cast<std::size_t>(backlog));
    slow = false;
    queue->put(backlog);
    queue->flush();
    queue->flush();
    EXPECT_EQ(numbers(backlog + 1), seen);
}
