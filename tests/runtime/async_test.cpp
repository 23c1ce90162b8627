#include "tav/vinta/vinta_mt_thread.h"

#include "support/bounded.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using tav_test::LogCapture;
using Clock = std::chrono::steady_clock;

long long millisSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

std::string currentName() {
    tavString const name = tavThread::currentName();
    return std::string(name.data(), name.size());
}

} // namespace

TEST(TavAsyncRun, RunsTheFunctionOnANamedThread) {
    std::string name;
    std::string id;
    bool object = true;
    std::shared_ptr<std::thread> const thread = tav_async_run(
        [&] {
            name = currentName();
            id = tavThread::currentId();
            object = static_cast<bool>(tavThread::current());
        },
        "job", 0);
    ASSERT_TRUE(thread);
    EXPECT_TRUE(thread->joinable());
    std::string const expected = tavThread::getThreadId(thread->get_id());
    thread->join();
    EXPECT_EQ(name, "job");
    EXPECT_EQ(id, expected);
    EXPECT_FALSE(object);
}

TEST(TavAsyncRun, NamesCarryTheCreators) {
    std::string name;
    tav_async_run([&] { tav_async_run([&] { name = currentName(); }, "inner", 0)->join(); }, "outer", 0)
        ->join();
    EXPECT_EQ(name, "outer.inner");
}

TEST(TavAsyncRun, HasEnteredWhenItReturns) {
    for (int i = 0; i < 50; ++i) {
        LogCapture log;
        std::shared_ptr<std::thread> const thread = tav_async_run([] {}, "in", 0);
        EXPECT_EQ(log.count("enter thread {in."), 1u);
        thread->join();
    }
}

TEST(TavAsyncRun, LogsItsSteps) {
    LogCapture log;
    std::shared_ptr<std::thread> const thread = tav_async_run([] {}, "steps", 1);
    std::string const named = "{steps." + tavThread::getThreadId(thread->get_id()) + "}\n";
    thread->join();
    EXPECT_TRUE(log.inOrder({") starting thread {steps}\n", ") enter thread " + named, ") delay 1ms " + named,
                             ") leave thread " + named}));
    EXPECT_TRUE(log.inOrder({") enter thread " + named, ") started thread " + named}));
    struct Row {
        char const * text;
        char const * func;
    };
    for (Row const & row :
         {Row{"starting thread {", "[TAV]tav_async_run("}, Row{"started thread {", "[TAV]tav_async_run("},
          Row{"enter thread {", "[TAV]tav_async_run_entry("}, Row{"delay 1ms {", "[TAV]tav_async_run_entry("},
          Row{"leave thread {", "[TAV]tav_async_run_entry("}}) {
        LogCapture::Record const record = log.find(row.text);
        EXPECT_EQ(record.level, tavLogger::DEBUG) << row.text;
        EXPECT_NE(record.text.find(row.func), std::string::npos) << record.text;
    }
    for (char const * text : {"enter thread {", "delay 1ms {", "leave thread {"}) {
        EXPECT_NE(log.find(text).text.find("{steps}[TAV]"), std::string::npos) << text;
    }
}

TEST(TavAsyncRun, WithoutDelayLogsNone) {
    LogCapture log;
    tav_async_run([] {}, "quick", 0)->join();
    EXPECT_EQ(log.count("delay "), 0u);
}

TEST(TavAsyncRun, DelayComesBeforeTheFunctionAndAfterTheReturn) {
    std::atomic<bool> ran{false};
    Clock::time_point const start = Clock::now();
    std::shared_ptr<std::thread> const thread = tav_async_run([&] { ran = true; }, "late", 1000);
    EXPECT_LT(millisSince(start), 900);
    EXPECT_FALSE(ran);
    thread->join();
    EXPECT_GE(millisSince(start), 1000);
    EXPECT_TRUE(ran);
}

TEST(TavAsyncRun, EmptyFunctionIsAllowed) {
    LogCapture log;
    tav_async_run(nullptr, "nothing", 0)->join();
    EXPECT_EQ(log.count("leave thread {nothing."), 1u);
}

TEST(TavAsyncRun, IsForgottenAfterTheEnd) {
    tav_async_run([] {}, "over", 0)->join();
    LogCapture log;
    tavThread::printThreads();
    EXPECT_EQ(log.count("thread not closed"), 0u);
}

TEST(TavAsyncRun, FunctionGoesWithTheThread) {
    auto const kept = std::make_shared<int>(0);
    tav_async_run([kept] {}, "kept", 0)->join();
    EXPECT_EQ(kept.use_count(), 1);
}

TEST(TavAsyncRunDeathTest, ExceptionOfTheFunctionEndsTheProcess) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_DEATH(tav_async_run([] { throw std::runtime_error("in the function"); }, "die", 0)->join(),
                 "in the function");
}

TEST(TavAsyncRun, ManyAtOnce) {
    std::atomic<int> ran{0};
    std::vector<std::shared_ptr<std::thread>> threads;
    for (int i = 0; i < 32; ++i) {
        threads.push_back(tav_async_run([&] { ++ran; }, "many", 0));
    }
    for (std::shared_ptr<std::thread> const & thread : threads) {
        thread->join();
    }
    EXPECT_EQ(ran, 32);
}

TEST(TavAsyncCall, RunsDetached) {
    std::promise<std::string> name;
    tav_async_call([&] { name.set_value(currentName()); }, "call", 0);
    EXPECT_EQ(tav_test::got(name.get_future()), "call");
}

TEST(TavAsyncCall, LogsTheDetachingWithTheRegisteredName) {
    LogCapture log;
    std::promise<void> gate;
    std::promise<std::string> id;
    tav_async_call(
        [&] {
            id.set_value(tavThread::currentId());
            tav_test::await(gate.get_future());
        },
        "loose", 0);
    LogCapture::Record const record =
        log.find(") detach thread {loose." + tav_test::got(id.get_future()) + "}\n");
    EXPECT_EQ(record.level, tavLogger::DEBUG);
    EXPECT_NE(record.text.find("[TAV]tav_async_call("), std::string::npos);
    gate.set_value();
    EXPECT_TRUE(log.waitFor("leave thread {loose."));
    EXPECT_TRUE(log.inOrder({"started thread {loose.", "detach thread {loose.", "leave thread {loose."}));
}

TEST(TavAsyncCall, DelayIsKept) {
    std::promise<void> ran;
    Clock::time_point const start = Clock::now();
    tav_async_call([&] { ran.set_value(); }, "delayed", 50);
    tav_test::await(ran.get_future());
    EXPECT_GE(millisSince(start), 50);
}
