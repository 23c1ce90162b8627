#include "client/receive_queue.h"

#include "client/counters.h"
#include "client/send_account.h"
#include "foundation/scope_exit.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace impl = tav::tls::impl;
using impl::receive_queue;

namespace {

using Texts = std::vector<std::string>;

tavBytes frame(std::string const & text) {
    tavBytes out;
    out.writeBytes(tav_istr(text));
    return out;
}

std::string text(tavBytes const & bytes) {
    return std::string(reinterpret_cast<char const *>(bytes.data()), bytes.size());
}

/// A queue whose frames are kept; its thread can be held back.
class Reader {
public:
    explicit Reader(unsigned limit = 0)
        : queue("<q>", account(limit), [this](tavBytes const & body) {
              std::unique_lock<std::mutex> guard(mutex_);
              texts_.push_back(text(body));
              changed_.notify_all();
              changed_.wait_for(guard, std::chrono::seconds(10), [this] { return !held_; });
          }) {}
    ~Reader() {
        hold(false);
        queue.close();
    }

    void start() {
        queue.start(this, [this](tavBytes body) {
            tav::detail::ScopeExit const handled([this] {
                if (queue.done()) {
                    ++idle;
                }
            });
            queue.taken(body);
            queue.deliver(std::move(body));
        });
    }
    void hold(bool v) {
        std::lock_guard<std::mutex> const guard(mutex_);
        held_ = v;
        changed_.notify_all();
    }
    /// What was given to the application, once these are as many; what there is by then after 10 s.
    Texts given(std::size_t n) {
        std::unique_lock<std::mutex> guard(mutex_);
        changed_.wait_for(guard, std::chrono::seconds(10), [&] { return texts_.size() >= n; });
        return texts_;
    }

    std::shared_ptr<impl::counters> const counted = std::make_shared<impl::counters>();
    std::atomic<unsigned> idle{0};

private:
    std::shared_ptr<impl::send_account> account(unsigned limit) const {
        tav::tls::limit_option limits;
        limits.received_waiting = limit;
        return std::make_shared<impl::send_account>(limits, counted);
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    Texts texts_;
    bool held_ = false;

public:
    receive_queue queue;
};

} // namespace

TEST(ReceiveQueue, FramesComeInTheirOrder) {
    Reader reader;
    reader.start();
    Texts expected;
    for (int i = 0; i < 100; ++i) {
        expected.push_back(std::to_string(i));
        reader.queue.put(frame(expected.back()));
    }
    EXPECT_EQ(reader.given(100), expected);
}

TEST(ReceiveQueue, WithoutAThreadFramesAreDeliveredAtOnce) {
    Reader reader;
    reader.queue.put(frame("a"));
    EXPECT_EQ(reader.given(1), Texts{"a"});
    EXPECT_FALSE(reader.queue.any_left());
}

TEST(ReceiveQueue, CloseHandlesWhatWaitsAndDropsWhatComesLater) {
    Reader reader;
    reader.hold(true);
    reader.start();
    reader.queue.put(frame("a"));
    ASSERT_EQ(reader.given(1), Texts{"a"});
    reader.queue.put(frame("b"));
    reader.queue.put(frame("c"));
    EXPECT_EQ(reader.queue.waiting(), 2u);
    EXPECT_EQ(reader.counted->received_waiting, 2u);
    EXPECT_EQ(reader.counted->received_waiting_bytes, 2u);
    EXPECT_TRUE(reader.queue.any_left());
    reader.hold(false);
    reader.queue.close();
    reader.queue.put(frame("d"));
    EXPECT_EQ(reader.given(3), (Texts{"a", "b", "c"}));
    EXPECT_FALSE(reader.queue.any_left());
    EXPECT_GE(reader.idle, 1u);
    EXPECT_EQ(reader.counted->received_waiting, 0u);
    EXPECT_EQ(reader.counted->received_waiting_bytes, 0u);
}

TEST(ReceiveQueue, IsFullAtTheLimitAndGoesOnAtHalfOfIt) {
    Reader reader(4);
    reader.hold(true);
    reader.start();
    reader.queue.put(frame("0"));
    ASSERT_EQ(reader.given(1).size(), 1u);
    for (char const * const each : {"1", "2"}) {
        reader.queue.put(frame(each));
    }
    EXPECT_FALSE(reader.queue.full());
    reader.queue.put(frame("3"));
    EXPECT_TRUE(reader.queue.full());
    EXPECT_EQ(reader.queue.waiting(), 3u) << "the fourth is in hand";
    EXPECT_TRUE(reader.queue.pause());
    EXPECT_TRUE(reader.queue.paused());
    EXPECT_FALSE(reader.queue.end_pause()) << "too much waits yet";
    reader.hold(false);
    EXPECT_EQ(reader.given(4).size(), 4u);
    EXPECT_TRUE(reader.queue.end_pause());
    EXPECT_FALSE(reader.queue.end_pause()) << "one ends it";
    EXPECT_FALSE(reader.queue.paused());
}

TEST(ReceiveQueue, PauseIsNoneWhenEnoughWasHandledMeanwhile) {
    Reader reader(4);
    EXPECT_FALSE(reader.queue.pause());
    EXPECT_FALSE(reader.queue.paused());
    reader.queue.pause_on();
    EXPECT_TRUE(reader.queue.end_pause());
}

TEST(ReceiveQueue, WhatWasNeverHandledCountsAsWaitingNoLonger) {
    auto const counted = std::make_shared<impl::counters>();
    {
        receive_queue queue("<q>", std::make_shared<impl::send_account>(tav::tls::limit_option(), counted),
                            receive_queue::handler());
        queue.start(nullptr, receive_queue::handler());
        queue.put(frame("abc"));
        EXPECT_EQ(counted->received_waiting, 1u);
        queue.close();
        EXPECT_EQ(counted->received_waiting_bytes, 3u) << "the handler has not said that it was taken";
    }
    EXPECT_EQ(counted->received_waiting, 0u);
    EXPECT_EQ(counted->received_waiting_bytes, 0u);
}
