#include "client/send_queue.h"

#include "client/send_info.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

namespace impl = tav::tls::impl;
using impl::send_queue;

namespace {

using Codes = std::vector<unsigned>;

send_queue::list packet(unsigned short code, bool tracked = false) {
    auto pkt = tav::im::Packet::create(true, 4);
    pkt->setCode(code);
    std::shared_ptr<impl::send_info> info;
    if (tracked) {
        info = std::make_shared<impl::send_info>("<q>", tavSharedPtr<impl::send_owner>(), code, code,
                                                 tav::tls::send_option(), 0);
    }
    send_queue::list one;
    one.push_back(send_queue::entry{std::move(pkt), std::move(info), impl::send_account::room()});
    return one;
}

/// A queue whose thread, once it is started, keeps the codes that it takes.
class Taker {
public:
    ~Taker() { queue.close(); }

    bool put(unsigned short code, bool tracked = false) {
        send_queue::list one = packet(code, tracked);
        bool const accepted = queue.put(one);
        EXPECT_EQ(one.empty(), accepted);
        return accepted;
    }
    /// What was taken, once these are as many; what there is by then after 10 s.
    Codes taken(std::size_t n) {
        std::unique_lock<std::mutex> guard(mutex_);
        changed_.wait_for(guard, std::chrono::seconds(10), [&] { return codes_.size() >= n; });
        return codes_;
    }

    /// Whether the next telling fails as without memory.
    std::atomic<bool> no_memory{false};
    /// How often the thread was told to work.
    std::atomic<unsigned> told{0};
    send_queue queue{[this] { return work(); }};

private:
    std::function<void()> work() {
        if (no_memory.exchange(false)) {
            throw std::bad_alloc();
        }
        ++told;
        return [this] {
            for (;;) {
                send_queue::list const one = queue.take();
                if (one.empty()) {
                    return;
                }
                std::lock_guard<std::mutex> const guard(mutex_);
                codes_.push_back(one.front().pkt->code());
                changed_.notify_all();
            }
        };
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    Codes codes_;
};

} // namespace

TEST(SendQueue, ThreadTakesPacketsInTheOrderOfPut) {
    Taker taker;
    taker.queue.start();
    Codes expected;
    for (unsigned short code = 1; code <= 100; ++code) {
        ASSERT_TRUE(taker.put(code));
        expected.push_back(code);
    }
    EXPECT_EQ(taker.taken(100), expected);
}

TEST(SendQueue, WhatIsPutAheadOfTheStartWaitsForIt) {
    Taker taker;
    ASSERT_TRUE(taker.put(1));
    ASSERT_TRUE(taker.put(2));
    taker.queue.start();
    EXPECT_EQ(taker.taken(2), (Codes{1, 2}));
}

TEST(SendQueue, PacketOfWhichTheThreadCouldNotBeToldWaitsForTheNext) {
    Taker taker;
    taker.queue.start();
    taker.no_memory = true;
    ASSERT_TRUE(taker.put(1));
    ASSERT_TRUE(taker.put(2));
    EXPECT_EQ(taker.taken(2), (Codes{1, 2}));
}

TEST(SendQueue, RetellTellsOfAPacketThatCouldNotBeTold) {
    Taker taker;
    taker.queue.start();
    taker.no_memory = true;
    ASSERT_TRUE(taker.put(1));
    taker.queue.retell();
    EXPECT_EQ(taker.taken(1), (Codes{1}));
}

TEST(SendQueue, ClosedQueueLeavesThePacketToTheCaller) {
    Taker taker;
    taker.queue.close();
    EXPECT_FALSE(taker.put(1));
    EXPECT_TRUE(taker.queue.take().empty());
}

TEST(SendQueue, CloseKeepsTheTrackedSendsThatWereNotTaken) {
    Taker taker;
    ASSERT_TRUE(taker.put(1));
    ASSERT_TRUE(taker.put(2, true));
    ASSERT_TRUE(taker.put(3, true));
    EXPECT_TRUE(taker.queue.take_left().empty());
    taker.queue.close();
    send_queue::list const left = taker.queue.take_left();
    ASSERT_EQ(left.size(), 2u);
    EXPECT_EQ(left.front().info->sno(), 2u);
    EXPECT_EQ(left.back().info->sno(), 3u);
    EXPECT_TRUE(taker.queue.take_left().empty());
}

TEST(SendQueue, TurnOfAnotherThreadIsAheadOfWhatComesMeanwhile) {
    Taker taker;
    taker.queue.start();
    ASSERT_TRUE(taker.queue.begin_turn());
    ASSERT_TRUE(taker.put(2));
    ASSERT_TRUE(taker.put(3));
    EXPECT_FALSE(taker.queue.begin_turn()) << "it is taken, and others wait";
    EXPECT_EQ(taker.told, 0u);
    send_queue::list left = packet(1);
    taker.queue.end_turn(left, false);
    EXPECT_EQ(taker.taken(3), (Codes{1, 2, 3}));
    EXPECT_EQ(taker.told, 1u);
}

TEST(SendQueue, TurnWithoutRestTellsNobody) {
    Taker taker;
    send_queue::list none;
    ASSERT_TRUE(taker.queue.begin_turn());
    taker.queue.end_turn(none, false);
    EXPECT_EQ(taker.told, 0u);
    ASSERT_TRUE(taker.queue.begin_turn());
    taker.queue.end_turn(none, true);
    EXPECT_EQ(taker.told, 1u) << "as it was asked for";
    EXPECT_FALSE(taker.queue.begin_turn()) << "the thread was told to work";
    taker.queue.start();
    ASSERT_TRUE(taker.put(1));
    EXPECT_EQ(taker.taken(1), (Codes{1}));
}

TEST(SendQueue, NobodyHasATurnAheadOfAPacketThatWaits) {
    Taker taker;
    taker.no_memory = true;
    ASSERT_TRUE(taker.put(1));
    EXPECT_FALSE(taker.queue.begin_turn());
    taker.queue.close();
    EXPECT_FALSE(taker.queue.begin_turn());
}

TEST(SendQueue, CloseWaitsForTheTurnOfAnotherThread) {
    Taker taker;
    taker.queue.start();
    ASSERT_TRUE(taker.queue.begin_turn());
    std::atomic<bool> closed{false};
    std::thread closer([&] {
        taker.queue.close();
        closed = true;
    });
    for (unsigned short code = 2;; ++code) {
        send_queue::list one = packet(code);
        if (!taker.queue.put(one)) {
            break;
        }
        std::this_thread::yield();
    }
    EXPECT_FALSE(closed);
    send_queue::list left = packet(1, true);
    taker.queue.end_turn(left, false);
    closer.join();
    send_queue::list const kept = taker.queue.take_left();
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(kept.front().info->sno(), 1u);
}

TEST(SendQueue, CloseDoesNotWaitForTheTurnOfItsOwnThread) {
    Taker taker;
    taker.queue.start();
    ASSERT_TRUE(taker.queue.begin_turn());
    taker.queue.close();
    send_queue::list none;
    taker.queue.end_turn(none, true);
    EXPECT_EQ(taker.told, 0u);
}
