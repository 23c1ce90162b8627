#include "client/send_account.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

using tav::tls::limit_option;
using tav::tls::impl::counters;
using tav::tls::impl::send_account;

namespace {

/// An account whose tellings of high (1) and low (0) water are kept.
struct Told {
    explicit Told(limit_option limits) : counted(std::make_shared<counters>()) {
        limits.on_queue = [this](bool full) { tellings.push_back(full ? 1 : 0); };
        account = std::make_unique<send_account>(limits, counted);
    }

    std::vector<int> tellings;
    std::shared_ptr<counters> counted;
    std::unique_ptr<send_account> account;
};

limit_option frames(unsigned n) {
    limit_option limits;
    limits.queued_frames = n;
    return limits;
}

limit_option bytes(unsigned long long n) {
    limit_option limits;
    limits.queued_bytes = n;
    return limits;
}

} // namespace

TEST(SendAccount, WithoutLimitsEverythingHasRoom) {
    Told told{limit_option()};
    std::vector<send_account::room> rooms;
    for (int i = 0; i < 1000; ++i) {
        rooms.push_back(told.account->enter(1u << 20));
        ASSERT_TRUE(rooms.back());
        ASSERT_TRUE(told.account->track());
    }
    EXPECT_EQ(told.counted->copy().queued_frames, 1000u);
    EXPECT_EQ(told.counted->copy().queued_bytes, 1000ull << 20);
    EXPECT_EQ(told.counted->copy().tracked_sends, 1000u);
    rooms.clear();
    EXPECT_EQ(told.counted->copy().queued_frames, 0u);
    EXPECT_EQ(told.counted->copy().queued_bytes, 0u);
    EXPECT_TRUE(told.tellings.empty());
}

TEST(SendAccount, FrameOverTheLimitHasNoRoomUntilOneLeaves) {
    Told told(frames(2));
    auto first = told.account->enter(1);
    auto const second = told.account->enter(1);
    EXPECT_TRUE(first && second);
    EXPECT_FALSE(told.account->enter(1));
    EXPECT_EQ(told.counted->copy().queued_frames, 2u);
    first = send_account::room();
    EXPECT_TRUE(told.account->enter(1));
}

TEST(SendAccount, BytesOverTheLimitHaveNoRoom) {
    Told told(bytes(100));
    auto const first = told.account->enter(60);
    EXPECT_FALSE(told.account->enter(41));
    EXPECT_TRUE(told.account->enter(40));
}

TEST(SendAccount, OneMessageHasRoomHoweverLong) {
    Told told(bytes(100));
    auto const first = told.account->enter(1000);
    EXPECT_TRUE(first);
    EXPECT_FALSE(told.account->enter(1));
}

TEST(SendAccount, HighAndLowWaterTakeTurns) {
    Told told(frames(4));
    std::vector<send_account::room> rooms;
    for (int i = 0; i < 4; ++i) {
        rooms.push_back(told.account->enter(1));
    }
    EXPECT_EQ(told.tellings, (std::vector<int>{1}));
    EXPECT_FALSE(told.account->enter(1));
    EXPECT_EQ(told.tellings, (std::vector<int>{1}));
    rooms.pop_back();
    EXPECT_EQ(told.tellings, (std::vector<int>{1}));
    rooms.pop_back();
    EXPECT_EQ(told.tellings, (std::vector<int>{1, 0}));
    rooms.clear();
    EXPECT_EQ(told.tellings, (std::vector<int>{1, 0}));
}

TEST(SendAccount, FunctionThatThrowsLosesNothing) {
    limit_option limits = frames(1);
    limits.on_queue = [](bool) { throw std::runtime_error("water"); };
    send_account account(limits, nullptr);
    {
        auto const room = account.enter(1);
        EXPECT_TRUE(room);
    }
    EXPECT_TRUE(account.enter(1));
}

TEST(SendAccount, TrackedSendOverTheLimitIsRefused) {
    limit_option limits;
    limits.tracked_sends = 1;
    Told told(limits);
    EXPECT_TRUE(told.account->track());
    EXPECT_FALSE(told.account->track());
    told.account->untrack();
    EXPECT_TRUE(told.account->track());
    EXPECT_EQ(told.counted->copy().tracked_sends, 1u);
}

TEST(SendAccount, ThreadsNeverHoldMoreThanTheLimit) {
    auto const counted = std::make_shared<counters>();
    send_account account(frames(3), counted);
    std::atomic<unsigned> inside{0};
    std::atomic<unsigned> most{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                if (auto const room = account.enter(1)) {
                    unsigned const now = ++inside;
                    unsigned seen = most;
                    while (seen < now && !most.compare_exchange_weak(seen, now)) {
                    }
                    --inside;
                }
            }
        });
    }
    for (std::thread & each : threads) {
        each.join();
    }
    EXPECT_LE(most, 3u);
    EXPECT_GE(most, 1u);
    EXPECT_EQ(counted->copy().queued_frames, 0u);
}

TEST(SendAccount, ReadingStopsAtTheLimitAndGoesOnAtHalf) {
    limit_option limits;
    limits.received_waiting = 10;
    send_account const account(limits, nullptr);
    EXPECT_FALSE(account.should_pause(9));
    EXPECT_TRUE(account.should_pause(10));
    EXPECT_FALSE(account.may_resume(6));
    EXPECT_TRUE(account.may_resume(5));
    EXPECT_FALSE(send_account(limit_option(), nullptr).should_pause(1u << 30));
}
