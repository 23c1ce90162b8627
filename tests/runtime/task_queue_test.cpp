#include "tav/vinta/vinta_mt_thread.h"

#include "support/bounded.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using tav_test::LogCapture;

static_assert(!std::is_copy_constructible<tavTaskQueue>::value &&
                  !std::is_copy_assignable<tavTaskQueue>::value,
              "");

std::string currentName() {
    tavString const name = tavThread::currentName();
    return std::string(name.data(), name.size());
}

/// Waits until all tasks put so far, on a queue of one thread, have run.
void drain(tavTaskQueue & queue) {
    std::promise<void> done;
    queue.put([&] { done.set_value(); });
    tav_test::await(done.get_future());
}

} // namespace

TEST(TavTaskQueue, ThreadsAreNumbered) {
    tavTaskQueue queue("q", 3);
    queue.start();
    std::mutex mutex;
    std::set<std::string> names;
    std::promise<void> gate;
    std::shared_future<void> const released = gate.get_future().share();
    std::promise<void> all;
    for (int i = 0; i < 3; ++i) {
        queue.put([&] {
            {
                std::lock_guard<std::mutex> guard(mutex);
                names.insert(currentName());
                if (names.size() == 3) {
                    all.set_value();
                }
            }
            tav_test::await(released);
        });
    }
    tav_test::await(all.get_future());
    gate.set_value();
    queue.close();
    EXPECT_EQ((std::set<std::string>{"q.0", "q.1", "q.2"}), names);
}

TEST(TavTaskQueue, NamesCarryTheStarters) {
    tavTaskQueue outer("net", 1);
    outer.start();
    std::promise<std::string> name;
    outer.put([&] {
        tavTaskQueue inner("q", 1);
        inner.start();
        std::promise<std::string> inside;
        inner.put([&] { inside.set_value(currentName()); });
        name.set_value(tav_test::got(inside.get_future()));
        inner.close();
    });
    EXPECT_EQ(tav_test::got(name.get_future()), "net.0.q.0");
    outer.close();
}

TEST(TavTaskQueue, OneThreadKeepsTheOrder) {
    tavTaskQueue queue("q", 1);
    std::vector<int> seen;
    for (int i = 0; i < 50; ++i) {
        queue.put([&seen, i] { seen.push_back(i); });
    }
    queue.start();
    for (int i = 50; i < 1000; ++i) {
        queue.put([&seen, i] { seen.push_back(i); });
    }
    drain(queue);
    queue.close();
    ASSERT_EQ(seen.size(), 1000u);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
}

TEST(TavTaskQueue, ManyThreadsAndProducersLoseNothing) {
    tavTaskQueue queue("q", 3);
    queue.start();
    std::atomic<int> ran{0};
    std::promise<void> all;
    constexpr int count = 4 * 2000;
    std::vector<std::thread> producers;
    for (int i = 0; i < 4; ++i) {
        producers.emplace_back([&] {
            for (int k = 0; k < count / 4; ++k) {
                queue.put([&] {
                    if (++ran == count) {
                        all.set_value();
                    }
                });
            }
        });
    }
    for (std::thread & producer : producers) {
        producer.join();
    }
    tav_test::await(all.get_future());
    queue.close();
    EXPECT_EQ(count, ran);
}

TEST(TavTaskQueue, TasksMayPut) {
    tavTaskQueue queue("q", 1);
    queue.start();
    std::promise<int> result;
    queue.put([&] { queue.put([&] { queue.put([&] { result.set_value(3); }); }); });
    EXPECT_EQ(tav_test::got(result.get_future()), 3);
    queue.close();
}

TEST(TavTaskQueue, TasksRunSideBySide) {
    tavTaskQueue queue("q", 2);
    queue.start();
    std::promise<void> first;
    std::promise<void> second;
    std::promise<void> done;
    queue.put([&] {
        first.set_value();
        tav_test::await(second.get_future());
        done.set_value();
    });
    queue.put([&] {
        tav_test::await(first.get_future());
        second.set_value();
    });
    tav_test::await(done.get_future());
    queue.close();
}

TEST(TavTaskQueue, ExceptionsHurtNoOtherTask) {
    LogCapture log;
    {
        tavTaskQueue queue("q", 1);
        queue.start();
        queue.put([] { throw std::runtime_error("task failed"); });
        queue.put([] { throw 5; });
        int ran = 0;
        queue.put([&] { ++ran; });
        drain(queue);
        queue.close();
        EXPECT_EQ(ran, 1);
    }
    EXPECT_EQ(log.count("<<< EXCEPTION >>> task failed\n    catch at tavThread::onLoop("), 1u);
    EXPECT_EQ(log.count("<<< EXCEPTION >>> unknown exception\n"), 1u);
}

TEST(TavTaskQueue, EmptyTaskDoesNothing) {
    LogCapture log;
    {
        tavTaskQueue queue("q", 1);
        queue.start();
        queue.put(nullptr);
        drain(queue);
        queue.close();
    }
    EXPECT_EQ(log.count("EXCEPTION"), 0u);
}

TEST(TavTaskQueue, CloseKeepsRemainingTasksUnrunUntilDestroyed) {
    std::atomic<int> ran{0};
    auto const kept = std::make_shared<int>(0);
    LogCapture log;
    {
        tavTaskQueue queue("q", 1);
        queue.start();
        std::promise<void> entered;
        queue.put([&] {
            entered.set_value();
            log.waitFor("thead break running ", 2);
        });
        tav_test::await(entered.get_future());
        for (int i = 0; i < 5; ++i) {
            queue.put([&ran, kept] { ++ran; });
        }
        queue.close();
        EXPECT_EQ(ran, 0);
        EXPECT_EQ(kept.use_count(), 6);
    }
    EXPECT_EQ(kept.use_count(), 1);
}

TEST(TavTaskQueue, CloseTellsAllBeforeItClosesTheFirst) {
    LogCapture log;
    {
        tavTaskQueue queue("q", 3);
        queue.start();
        queue.close();
    }
    EXPECT_TRUE(
        log.inOrder({"break running {q.0.", "break running {q.1.", "break running {q.2.", "closing... {q.0.",
                     "break running {q.0.", "on_stop {q.0.", "join thread end...q.0", "closing... {q.1.",
                     "break running {q.1.", "on_stop {q.1.", "join thread end...q.1", "closing... {q.2.",
                     "break running {q.2.", "on_stop {q.2.", "join thread end...q.2"}));
    EXPECT_EQ(log.count("thead break running "), 6u);
    EXPECT_EQ(log.count("thead closing... "), 3u);
}

TEST(TavTaskQueue, NoWakeUpIsLostAtTheClose) {
    for (int i = 0; i < 150; ++i) {
        tavTaskQueue queue("q", 3);
        queue.start();
        if (i % 2 != 0) {
            drain(queue);
        }
        queue.close();
    }
}

TEST(TavTaskQueue, SecondCloseIsHarmless) {
    tavTaskQueue queue("q", 2);
    queue.start();
    queue.close();
    queue.close();
}

TEST(TavTaskQueue, WithoutThreadsNothingStarts) {
    for (int count : {0, -3}) {
        LogCapture log;
        tavTaskQueue queue("q", count);
        queue.start();
        bool ran = false;
        queue.put([&] { ran = true; });
        queue.close();
        EXPECT_FALSE(ran);
        EXPECT_EQ(log.count("thead"), 0u);
    }
}

TEST(TavTaskQueue, CreationStartsNothing) {
    LogCapture log;
    tavTaskQueue const queue("q", 2);
    EXPECT_EQ(log.count("thead"), 0u);
}

TEST(TavTaskQueue, OnLoopByHandRunsOneTask) {
    tavTaskQueue queue("q", 0);
    int ran = 0;
    queue.put([&] { ++ran; });
    queue.put([&] { ++ran; });
    EXPECT_TRUE(queue.on_loop());
    EXPECT_EQ(ran, 1);
    EXPECT_TRUE(queue.on_loop());
    EXPECT_EQ(ran, 2);
}

TEST(TavTaskQueue, OnLoopByHandWaitsForATask) {
    tavTaskQueue queue("q", 0);
    std::thread::id where;
    std::thread other([&] {
        while (where == std::thread::id()) {
            EXPECT_TRUE(queue.on_loop());
        }
    });
    std::thread::id const foreign = other.get_id();
    queue.put([&] { where = std::this_thread::get_id(); });
    other.join();
    EXPECT_EQ(foreign, where);
}

TEST(TavTaskQueue, OnLoopByHandWaitsAlsoOnAThreadThatIsToldToStop) {
    tavTaskQueue queue("q", 0);
    std::promise<void> inLoop;
    std::promise<void> stopped;
    std::atomic<bool> ran{false};
    int waits = 0;
    tavSharedPtr<tavThread> const thread(new tavThread_(
        "foreign",
        [&] {
            inLoop.set_value();
            tav_test::await(stopped.get_future());
            auto const start = std::chrono::steady_clock::now();
            while (!ran) {
                queue.on_loop();
                ++waits;
            }
            EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
            return false;
        },
        nullptr, nullptr, nullptr));
    thread->start();
    tav_test::await(inLoop.get_future());
    thread->stopRunning();
    stopped.set_value();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    queue.put([&] { ran = true; });
    thread->close();
    EXPECT_TRUE(ran);
    // One wait for the task; not a loop that spins since its thread is told to stop.
    EXPECT_LE(waits, 3);
}

TEST(TavTaskQueue, OnStopWakesWhoWaits) {
    tavTaskQueue queue("q", 0);
    std::atomic<bool> returned{false};
    std::thread other([&] {
        queue.on_loop();
        returned = true;
    });
    while (!returned) {
        queue.on_stop();
        std::this_thread::yield();
    }
    other.join();
    EXPECT_TRUE(returned);
}

TEST(TavTaskQueue, DestroyedWithoutCloseTheThreadsFinishWhatIsThere) {
    std::promise<void> gate;
    std::shared_future<void> const released = gate.get_future().share();
    std::promise<void> last;
    {
        tavTaskQueue queue("left", 1);
        queue.start();
        queue.put([released] { tav_test::await(released); });
        queue.put([&] { last.set_value(); });
    }
    gate.set_value();
    tav_test::await(last.get_future());
    SUCCEED();
}
