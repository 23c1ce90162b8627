#include "tav/vinta/vinta_mt_thread.h"

#include "support/failing_allocations.h"
#include "tav/vinta/vinta_log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

using tav_test::eachAllocationFails;
using tav_test::SparedAllocations;

namespace {

/// Starts a thread, and ends it however far that came.
template <class Thread>
void liveOnce(tavSharedPtr<Thread> const & thread) {
    try {
        thread->start();
    } catch (std::bad_alloc const &) {
    }
    thread->stopRunning();
    thread->close();
}

/// Runs the scenario with each of its allocations failing, with and without lines about it.
template <class Scenario>
void survivesEach(Scenario scenario) {
    for (char const * levels : {"(clear(NONE))", "(clear(TRACE))"}) {
        tavLogger::setup(
            levels, [](int, char const *) {}, false, tavLogger::NONE);
        scenario();
        long const failed = eachAllocationFails([&] {
            try {
                scenario();
            } catch (std::bad_alloc const &) {
            }
        });
        EXPECT_LT(3, failed) << levels;
    }
    tavLogger::setup("(clear(INFO))", nullptr, false, tavLogger::WARN);
}

} // namespace

TEST(ThreadWithoutMemory, AThreadStartsOrItsStarterIsTold) {
    std::atomic<bool> twice{false};
    survivesEach([&twice] {
        std::atomic<int> opened{0};
        liveOnce(tavSharedPtr<tavThread>(new tavThread_(
            "plain", nullptr, nullptr, [&opened] { return ++opened > 0; }, nullptr)));
        twice = twice || opened > 1;
    });
    EXPECT_FALSE(twice);
}

TEST(ThreadWithoutMemory, ATimerStartsOrItsStarterIsTold) {
    survivesEach([] {
        liveOnce(tavSharedPtr<tavTimerThread>(new tavTimerThread(
            "a timer with a long name", 1, [](bool) { return true; }, nullptr, -1)));
    });
}

TEST(ThreadWithoutMemory, AQueueStartsOrItsStarterIsTold) {
    survivesEach([] {
        tavSharedPtr<tavMsgQueueThread<int>> const queue(
            new tavMsgQueueThread<int>("queue", -1, [](int const &) {}));
        try {
            queue->start();
            queue->put(1);
            queue->flush();
        } catch (std::bad_alloc const &) {
        }
        queue->close();
    });
}

TEST(ThreadWithoutMemory, ATaskQueueStartsOrItsStarterIsTold) {
    survivesEach([] {
        tavTaskQueue queue("tasks", 2);
        try {
            queue.start();
            queue.put([] {});
        } catch (std::bad_alloc const &) {
        }
        queue.close();
    });
}

TEST(ThreadWithoutMemory, ASingleCallRunsOrItsCallerIsTold) {
    survivesEach([] {
        std::atomic<bool> ran{false};
        std::shared_ptr<std::thread> thread;
        try {
            thread = tav_async_run([&ran] { ran = true; }, "single", 0);
        } catch (std::bad_alloc const &) {
        }
        if (thread) {
            thread->join();
        }
        EXPECT_EQ(thread != nullptr, ran);
    });
}

TEST(ThreadWithoutMemory, AThreadThatStartedIsRegistered) {
    survivesEach([] {
        liveOnce(tavSharedPtr<tavThread>(new tavThread_(
            "alone", nullptr, nullptr,
            [] {
                SparedAllocations const spared;
                EXPECT_EQ(std::string(tav_istr(tavThread::currentName())), "alone");
                EXPECT_EQ(tavThread::currentId(), tavThread::current()->id());
                return false;
            },
            nullptr)));
    });
}

TEST(ThreadWithoutMemoryClose, ALineThatRaisesLeavesTheNextCloseToJoin) {
    static std::atomic<int> calls{0};
    calls = 0;
    tavSharedPtr<tavThread> const thread(new tavThread_(
        "held", [] { return true; }, nullptr, nullptr, nullptr));
    thread->start();
    tavLogger::setup(
        "(clear(DEBUG))",
        [](int, char const * text) {
            if (std::string(text).find("join thread begin...") != std::string::npos && ++calls == 1) {
                throw std::runtime_error("the callback failed");
            }
        },
        false, tavLogger::NONE);
    EXPECT_THROW(thread->close(), std::runtime_error);
    thread->close();
    EXPECT_TRUE(thread->broken());
    EXPECT_EQ(calls, 2);
    tavLogger::setup("(clear(INFO))", nullptr, false, tavLogger::WARN);
}

TEST(ThreadWithoutMemoryLife, ACallbackThatRaisesOnTheThreadEndsNothing) {
    tavLogger::setup(
        "(clear(TRACE))",
        [](int, char const *) {
            if (tavThread::currentName() != "main") {
                throw std::runtime_error("the callback failed");
            }
        },
        false, tavLogger::NONE);
    std::promise<void> fired;
    tavSharedPtr<tavTimerThread> const timer(new tavTimerThread(
        "timer", 1,
        [&fired](bool) {
            fired.set_value();
            return false;
        },
        nullptr, -1));
    timer->start();
    EXPECT_EQ(std::future_status::ready, fired.get_future().wait_for(std::chrono::seconds(10)));
    timer->close();
    tavLogger::setup("(clear(INFO))", nullptr, false, tavLogger::WARN);
}
