#include "tav/vinta/vinta_mt_thread.h"

#include "support/bounded.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using tav_test::LogCapture;
using TimerPtr = tavSharedPtr<tavTimerThread>;
using Clock = std::chrono::steady_clock;

long long millisSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

TimerPtr make(int interval, std::function<bool(bool)> onTimer, int count,
              std::function<void()> onCancel = nullptr) {
    return TimerPtr(new tavTimerThread("tick", interval, std::move(onTimer), std::move(onCancel), count));
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

/// An interval that does not pass within a test.
constexpr int never = 3600000;

} // namespace

TEST(TavTimerThread, CountOfOneFiresOnceAndEndsByItself) {
    std::vector<bool> fired;
    TimerPtr const timer = make(
        1,
        [&](bool signalled) {
            fired.push_back(signalled);
            return true;
        },
        1);
    timer->start();
    EXPECT_TRUE(eventually([&] { return timer->broken(); }));
    timer->close();
    EXPECT_EQ(std::vector<bool>{false}, fired);
}

TEST(TavTimerThread, CountIsTheMostFirings) {
    int fired = 0;
    TimerPtr const timer = make(
        1,
        [&](bool) {
            ++fired;
            return true;
        },
        4);
    timer->start();
    EXPECT_TRUE(eventually([&] { return timer->broken(); }));
    timer->close();
    EXPECT_EQ(fired, 4);
}

TEST(TavTimerThread, CountOfZeroFiresOnce) {
    int fired = 0;
    TimerPtr const timer = make(
        1,
        [&](bool) {
            ++fired;
            return true;
        },
        0);
    timer->start();
    EXPECT_TRUE(eventually([&] { return timer->broken(); }));
    timer->close();
    EXPECT_EQ(fired, 1);
}

TEST(TavTimerThread, NegativeCountRepeatsUntilTheFunctionSaysNo) {
    int fired = 0;
    TimerPtr const timer = make(
        0, [&](bool) { return ++fired < 20; }, -1);
    timer->start();
    EXPECT_TRUE(eventually([&] { return timer->broken(); }));
    timer->close();
    EXPECT_EQ(fired, 20);
    EXPECT_FALSE(timer->running());
}

TEST(TavTimerThread, IntervalOfZeroOrLessNeverWaits) {
    for (int interval : {0, -5}) {
        int fired = 0;
        TimerPtr const timer = make(
            interval,
            [&](bool signalled) {
                EXPECT_FALSE(signalled);
                ++fired;
                return true;
            },
            100);
        timer->start();
        EXPECT_TRUE(eventually([&] { return timer->broken(); }));
        timer->close();
        EXPECT_EQ(fired, 100);
    }
}

TEST(TavTimerThread, FirstIntervalCountsFromConstruction) {
    Clock::time_point const made = Clock::now();
    std::promise<bool> fired;
    TimerPtr const timer = make(
        1000,
        [&](bool signalled) {
            fired.set_value(signalled);
            return false;
        },
        1);
    std::this_thread::sleep_for(std::chrono::milliseconds(1010)); // the interval passes before the start
    Clock::time_point const started = Clock::now();
    timer->start();
    EXPECT_FALSE(tav_test::got(fired.get_future()));
    EXPECT_GE(millisSince(made), 1000);
    EXPECT_LT(millisSince(started), 900);
    timer->close();
}

TEST(TavTimerThread, FiringWaitsForTheInterval) {
    Clock::time_point const made = Clock::now();
    std::promise<void> fired;
    TimerPtr const timer = make(
        40,
        [&](bool) {
            fired.set_value();
            return false;
        },
        1);
    timer->start();
    tav_test::await(fired.get_future());
    EXPECT_GE(millisSince(made), 38);
    timer->close();
}

TEST(TavTimerThread, PeriodCountsFromTheStartOfTheCallback) {
    int fired = 0;
    Clock::time_point firstStart;
    long long second = -1;
    TimerPtr const timer = make(
        300,
        [&](bool) {
            if (++fired == 1) {
                firstStart = Clock::now();
                std::this_thread::sleep_for(std::chrono::milliseconds(350));
            } else {
                second = millisSince(firstStart);
            }
            return true;
        },
        2);
    timer->start();
    EXPECT_TRUE(eventually([&] { return timer->broken(); }));
    timer->close();
    EXPECT_GE(second, 350);
    EXPECT_LT(second, 640);
}

TEST(TavTimerThread, StopWakesItForOneLastSignalledCall) {
    // Only a timer that sleeps already makes the last call, and sleeping cannot be seen from outside: the
    // stop comes later and later until it has met a sleeping one.
    std::vector<bool> fired;
    for (int delay = 1; fired.empty() && delay < 10000; delay *= 2) {
        TimerPtr const timer = make(
            never,
            [&](bool signalled) {
                fired.push_back(signalled);
                return true;
            },
            -1);
        timer->start();
        std::this_thread::sleep_for(std::chrono::milliseconds(delay));
        Clock::time_point const start = Clock::now();
        timer->close();
        EXPECT_LT(millisSince(start), 20000);
    }
    EXPECT_EQ(std::vector<bool>{true}, fired);
}

TEST(TavTimerThread, NoStopIsLost) {
    for (int i = 0; i < 300; ++i) {
        std::atomic<int> signalled{0};
        TimerPtr const timer = make(
            never,
            [&](bool s) {
                signalled += s ? 1 : 0;
                return true;
            },
            -1);
        timer->start();
        timer->stopRunning();
        ASSERT_TRUE(eventually([&] { return timer->broken(); }));
        // A stop ahead of the first round ends the loop before it.
        ASSERT_LE(signalled, 1);
        timer->close();
    }
}

TEST(TavTimerThread, StopAheadOfTheWaitCountsAsSignalled) {
    std::vector<bool> fired;
    TimerPtr const timer = make(
        never,
        [&](bool signalled) {
            fired.push_back(signalled);
            return true;
        },
        -1);
    timer->stopRunning();
    EXPECT_TRUE(timer->on_loop());
    EXPECT_EQ(std::vector<bool>{true}, fired);
}

TEST(TavTimerThread, RoundIsTrueWhileTheFunctionSaysSoAndTheCountLasts) {
    bool more = true;
    TimerPtr const timer = make(
        0, [&](bool) { return more; }, 3);
    EXPECT_TRUE(timer->on_loop());
    EXPECT_TRUE(timer->on_loop());
    EXPECT_FALSE(timer->on_loop());
    TimerPtr const endless = make(
        0, [&](bool) { return more; }, -2);
    EXPECT_TRUE(endless->on_loop());
    more = false;
    EXPECT_FALSE(endless->on_loop());
}

TEST(TavTimerThread, NotifyIsASignalToo) {
    std::promise<bool> fired;
    TimerPtr const timer = make(
        never,
        [&](bool signalled) {
            fired.set_value(signalled);
            return false;
        },
        -1);
    timer->start();
    std::future<bool> result = fired.get_future();
    while (result.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
        timer->notify();
    }
    EXPECT_TRUE(result.get());
    timer->close();
}

TEST(TavTimerThread, ThrowingFunctionMayFireOnceMore) {
    int fired = 0;
    TimerPtr const timer = make(
        1,
        [&](bool) -> bool {
            if (++fired == 2) {
                throw std::runtime_error("in the timer");
            }
            return true;
        },
        2);
    timer->start();
    EXPECT_TRUE(eventually([&] { return timer->broken(); }));
    timer->close();
    EXPECT_EQ(fired, 3);
}

TEST(TavTimerThread, CancelIsCalledOnTheClosingThreadWhileItRuns) {
    std::thread::id canceller;
    int cancelled = 0;
    TimerPtr const timer = make(
        never, [](bool) { return true; }, -1,
        [&] {
            ++cancelled;
            canceller = std::this_thread::get_id();
        });
    timer->start();
    timer->close();
    EXPECT_EQ(cancelled, 1);
    EXPECT_EQ(std::this_thread::get_id(), canceller);
}

TEST(TavTimerThread, CancelIsCalledHoweverFastTheStopEndsIt) {
    for (int i = 0; i < 200; ++i) {
        int cancelled = 0;
        LogCapture slow;
        TimerPtr const timer = make(
            never, [](bool) { return true; }, -1, [&] { ++cancelled; });
        timer->start();
        timer->close();
        ASSERT_EQ(cancelled, 1);
        timer->close();
        timer->on_stop();
        ASSERT_EQ(cancelled, 1);
    }
}

TEST(TavTimerThread, CancelIsNotCalledAfterAStopThatHasEndedIt) {
    int cancelled = 0;
    TimerPtr const timer = make(
        never, [](bool) { return true; }, -1, [&] { ++cancelled; });
    timer->start();
    timer->stopRunning();
    EXPECT_TRUE(eventually([&] { return timer->broken(); }));
    timer->close();
    EXPECT_EQ(cancelled, 0);
}

TEST(TavTimerThread, CancelIsCalledAlsoIfItWasNeverStarted) {
    int cancelled = 0;
    TimerPtr const timer = make(
        never, [](bool) { return true; }, -1, [&] { ++cancelled; });
    timer->close();
    EXPECT_EQ(cancelled, 1);
    timer->on_stop();
    EXPECT_EQ(cancelled, 2);
}

TEST(TavTimerThread, CancelIsNotCalledAfterTheEnd) {
    int cancelled = 0;
    TimerPtr const timer = make(
        0, [](bool) { return false; }, -1, [&] { ++cancelled; });
    timer->start();
    EXPECT_TRUE(eventually([&] { return timer->broken(); }));
    timer->close();
    EXPECT_EQ(cancelled, 0);
}

TEST(TavTimerThread, EmptyFunctionsAreAllowed) {
    TimerPtr const timer = make(0, nullptr, -1, nullptr);
    timer->start();
    EXPECT_TRUE(eventually([&] { return timer->broken(); }));
    timer->close();
    TimerPtr const waiting = make(
        never, [](bool) { return true; }, -1, nullptr);
    waiting->start();
    waiting->close();
    EXPECT_TRUE(waiting->broken());
}

TEST(TavTimerThread, LogsItsLife) {
    LogCapture log;
    {
        TimerPtr const timer = make(
            never, [](bool) { return true; }, -1);
        timer->start();
        timer->close();
    }
    struct Row {
        char const * text;
        char const * func;
    };
    for (Row const & row : {Row{") started timer tick\n", "[TAV]tavTimerThread::on_open("},
                            Row{") cancel timer tick\n", "[TAV]tavTimerThread::on_stop("},
                            Row{") closed timer tick\n", "[TAV]tavTimerThread::on_close("}}) {
        LogCapture::Record const record = log.find(row.text);
        EXPECT_EQ(record.level, tavLogger::INFO) << row.text;
        EXPECT_NE(record.text.find(row.func), std::string::npos) << record.text;
    }
    EXPECT_TRUE(log.inOrder(
        {"started timer", "thead started. ", "thead on_stop ", "cancel timer", "join thread end"}));
    EXPECT_TRUE(log.inOrder({"thead started. ", "closed timer", "thead closed. ", "join thread end"}));
}

TEST(TavTimerThread, FinishedTimerLogsNoCancel) {
    LogCapture log;
    {
        TimerPtr const timer = make(
            0, [](bool) { return false; }, -1);
        timer->start();
        EXPECT_TRUE(eventually([&] { return timer->broken(); }));
        timer->close();
    }
    EXPECT_EQ(log.count("cancel timer"), 0u);
    EXPECT_EQ(log.count("closed timer tick"), 1u);
}
