#include "tav/kit/coroutine.h"

#include "support/bounded.h"
#include "support/talk_rig.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace tav_test;
using kit::use_awaitable;

kit::task<int> ask(tls::client & client, int number) {
    auto const reply = co_await kit::request<Said>(client, Say(number), 5s, use_awaitable);
    co_return reply->number;
}

kit::task<int> sum(tls::client & client, int upTo) {
    int total = 0;
    for (int i = 1; i <= upTo; ++i) {
        total += co_await ask(client, i);
    }
    co_return total;
}

kit::task<std::error_code> failureOf(tls::client & client, kit::within terms) {
    auto const reply = co_await kit::request<Said>(client, Say(1), terms, use_awaitable);
    co_return reply.error();
}

/// Tells that it goes.
struct Witness {
    explicit Witness(std::atomic<int> & count) : gone(count) {}
    ~Witness() { ++gone; }
    Witness(Witness const &) = delete;
    Witness & operator=(Witness const &) = delete;
    std::atomic<int> & gone;
};

} // namespace

TEST(KitCoroutine, AwaitsTheReply) {
    TalkRig rig;
    EXPECT_EQ(got(kit::spawn(ask(*rig.client, 7))), 7);
}

TEST(KitCoroutine, TasksAwaitTasks) {
    TalkRig rig;
    EXPECT_EQ(got(kit::spawn(sum(*rig.client, 100))), 5050);
}

TEST(KitCoroutine, RequestsMayBeUnderWayTogether) {
    tav::gateway::Options slow;
    slow.faults.delay_ms = 200;
    TalkRig rig(slow);
    auto const both = [](tls::client & client) -> kit::task<int> {
        auto first = kit::request<Said>(client, Say(1), 5s, use_awaitable);
        auto second = kit::request<Said>(client, Say(2), 5s, use_awaitable);
        int const two = (co_await std::move(second))->number;
        co_return (co_await std::move(first))->number * 10 + two;
    };
    EXPECT_EQ(got(kit::spawn(both(*rig.client))), 12);
}

TEST(KitCoroutine, FailuresComeAsResults) {
    TalkRig rig(neverAnswering());
    kit::cancellation stop;
    EXPECT_EQ(got(kit::spawn(failureOf(*rig.client, 100ms))), kit::failure::timed_out);
    EXPECT_EQ(got(kit::spawn(failureOf(*rig.client, 0ms))), kit::failure::timed_out);
    auto cancelled = kit::spawn(failureOf(*rig.client, kit::within(10s).unless(stop)));
    stop.cancel();
    EXPECT_EQ(got(std::move(cancelled)), kit::failure::cancelled);
    EXPECT_EQ(got(kit::spawn(failureOf(*rig.client, kit::within(10s).unless(stop)))),
              kit::failure::cancelled);
    auto closed = kit::spawn(failureOf(*rig.client, 10s));
    rig.client->close();
    EXPECT_EQ(got(std::move(closed)), kit::failure::disconnected);
    ASSERT_TRUE(eventually([&] { return !rig.client->connected(); }));
    EXPECT_EQ(got(kit::spawn(failureOf(*rig.client, 10s))), kit::failure::not_connected);
}

TEST(KitCoroutine, EndOfTheClientResumesWhatAwaitsIt) {
    TalkRig rig(neverAnswering());
    std::vector<std::future<std::error_code>> ends;
    for (int i = 0; i < 50; ++i) {
        ends.push_back(kit::spawn(failureOf(*rig.client, 10s)));
    }
    rig.client.reset();
    for (auto & end : ends) {
        EXPECT_EQ(got(std::move(end)), kit::failure::disconnected);
    }
}

TEST(KitCoroutine, RefusedSendsInALoopNeedNoStack) {
    tls::client client("kit");
    auto const loop = [](tls::client & to) -> kit::task<int> {
        int refused = 0;
        for (int i = 0; i < 20000; ++i) {
            auto const reply = co_await kit::request<Said>(to, Say(i), 1s, use_awaitable);
            refused += reply.error() == kit::failure::not_connected ? 1 : 0;
        }
        co_return refused;
    };
    EXPECT_EQ(got(kit::spawn(loop(client))), 20000);
}

TEST(KitCoroutine, TasksThatEndAtOnceInALoopNeedNoStack) {
    auto const one = []() -> kit::task<int> { co_return 1; };
    auto const loop = [&one]() -> kit::task<int> {
        int total = 0;
        for (int i = 0; i < 200000; ++i) {
            total += co_await one();
        }
        co_return total;
    };
    EXPECT_EQ(got(kit::spawn(loop())), 200000);
}

TEST(KitCoroutine, WhatATaskRaisesComesOutOfItsFuture) {
    TalkRig rig(neverAnswering());
    // The result of a failure has no value to take.
    EXPECT_THROW(got(kit::spawn([](tls::client & client) -> kit::task<int> {
                     auto const reply = co_await kit::request<Said>(client, Say(1), 50ms, use_awaitable);
                     co_return reply->number;
                 }(*rig.client))),
                 std::system_error);
    EXPECT_THROW(got(kit::spawn([]() -> kit::task<> {
                     throw std::runtime_error("task");
                     co_return;
                 }())),
                 std::runtime_error);
}

TEST(KitCoroutine, GoesOnWhereTheReplyCameWithoutAnExecutor) {
    TalkRig rig;
    auto const where = [](tls::client & client) -> kit::task<std::string> {
        (void)co_await kit::request<Said>(client, Say(1), 5s, use_awaitable);
        co_return threadName();
    };
    // A reply that is there already goes on at once.
    std::string const name = got(kit::spawn(where(*rig.client)));
    EXPECT_TRUE(name.find("receiver") != std::string::npos || name == threadName()) << name;
}

TEST(KitCoroutine, GoesOnOnItsExecutorWhateverTheEnd) {
    TalkRig rig;
    tavTaskQueue queue("executor", 1);
    queue.start();
    kit::executor const executor = [&queue](std::function<void()> task) { queue.put(std::move(task)); };
    auto const where = [](tls::client & client, kit::within terms) -> kit::task<std::string> {
        auto const reply = co_await kit::request<Said>(client, Say(1), terms, use_awaitable);
        co_return threadName() + (reply ? " ok" : " " + reply.error().message());
    };
    auto const end = [&](kit::within terms) {
        return got(kit::spawn(where(*rig.client, terms.on(executor))));
    };
    EXPECT_EQ(end(5s), "executor.0 ok");
    rig.gateway.gateway.setFaults(neverAnswering().faults);
    EXPECT_EQ(end(100ms), "executor.0 timed out");
    EXPECT_EQ(end(0ms), "executor.0 timed out");
    rig.client->close();
    ASSERT_TRUE(eventually([&] { return !rig.client->connected(); }));
    EXPECT_EQ(end(5s), "executor.0 not connected");
    queue.close();
}

TEST(KitCoroutine, ExecutorThatDropsItsTasksStrandsNoCoroutine) {
    TalkRig rig;
    kit::executor const drops = [](std::function<void()>) {};
    auto const ended = [](tls::client & client, kit::within terms) -> kit::task<bool> {
        co_return (co_await kit::request<Said>(client, Say(1), terms, use_awaitable)).has_value();
    };
    EXPECT_TRUE(got(kit::spawn(ended(*rig.client, kit::within(5s).on(drops)))));
}

TEST(KitCoroutine, DroppedAwaitableCancels) {
    TalkRig rig(neverAnswering());
    { auto const dropped = kit::request<Said>(*rig.client, Say(1), 10s, use_awaitable); }
    auto moved = kit::request<Said>(*rig.client, Say(1), 10s, use_awaitable);
    { auto const last = std::move(moved); }
    rig.client.reset();
}

// A coroutine type of somebody else's, which is destroyed while it waits.
TEST(KitCoroutine, DestroyedCoroutineIsNeverResumed) {
    struct Owned {
        struct promise_type {
            Owned get_return_object() { return {std::coroutine_handle<promise_type>::from_promise(*this)}; }
            std::suspend_never initial_suspend() const noexcept { return {}; }
            std::suspend_always final_suspend() const noexcept { return {}; }
            void return_void() const noexcept {}
            void unhandled_exception() const noexcept { std::terminate(); }
        };
        std::coroutine_handle<promise_type> handle;
    };
    std::atomic<int> gone{0};
    std::atomic<int> resumed{0};
    TalkRig rig(neverAnswering());
    auto const wait = [&](kit::within terms) -> Owned {
        Witness const witness(gone);
        (void)co_await kit::request<Said>(*rig.client, Say(1), terms, use_awaitable);
        ++resumed;
    };
    wait(10s).handle.destroy();
    EXPECT_EQ(gone, 1);

    // It waits for its turn on an executor as it goes.
    std::vector<std::function<void()>> queued;
    kit::executor const later = [&](std::function<void()> task) { queued.push_back(std::move(task)); };
    kit::cancellation stop;
    Owned const queuing = wait(kit::within(10s).on(later).unless(stop));
    stop.cancel();
    ASSERT_EQ(queued.size(), 1u);
    queuing.handle.destroy();
    queued[0]();
    queued.clear();
    EXPECT_EQ(gone, 2);
    rig.client.reset();
    EXPECT_EQ(resumed, 0);
}

TEST(KitCoroutine, TaskThatIsDroppedUnstartedDoesNothing) {
    TalkRig rig;
    { auto const unstarted = ask(*rig.client, 1); }
    EXPECT_EQ(got(kit::spawn(ask(*rig.client, 2))), 2);
    EXPECT_EQ(rig.gateway.gateway.stats().packets, 1u);
}

TEST(KitCoroutine, WaitingCoroutinesHoldNoThread) {
    tav::gateway::Options slow;
    slow.faults.delay_ms = 300;
    TalkRig rig(slow);
    unsigned const before = threadsNow();
    std::vector<std::future<int>> replies;
    for (int i = 0; i < 500; ++i) {
        replies.push_back(kit::spawn(ask(*rig.client, i)));
    }
    EXPECT_LE(threadsNow(), before);
    for (int i = 0; i < 500; ++i) {
        EXPECT_EQ(got(std::move(replies[static_cast<std::size_t>(i)])), i);
    }
}

TEST(KitCoroutine, ConfirmedSendIsAwaitedToo) {
    tav::gateway::Options echo;
    echo.echo = true;
    TalkRig rig(echo);
    auto const confirmed = [](tls::client & client) -> kit::task<bool> {
        co_return (co_await kit::send(client, Say(1), 5s, use_awaitable)).has_value();
    };
    EXPECT_TRUE(got(kit::spawn(confirmed(*rig.client))));
}

// Replies, time-outs, a cancellation and a break of the connection on several threads at once.
TEST(KitCoroutine, EachCoroutineGoesOnOnce) {
    TalkRig rig;
    kit::cancellation stop;
    std::atomic<int> ends{0};
    auto const one = [&](int i) -> kit::task<> {
        (void)co_await kit::request<Said>(*rig.client, Say(i),
                                          kit::within(std::chrono::milliseconds(1 + i % 5)).unless(stop),
                                          use_awaitable);
        ++ends;
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = t; i < 400; i += 4) {
                kit::spawn(one(i));
                if (i == 200) {
                    rig.gateway.gateway.drop(true);
                }
                if (i == 300) {
                    stop.cancel();
                }
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(eventually([&] { return ends == 400; }));
    rig.client.reset();
    EXPECT_EQ(ends, 400);
}
