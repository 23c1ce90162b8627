#include "client/send_account.h"

#include "support/session_rig.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using tav::tls::limit_option;
using tav::tls::impl::counters;
using tav::tls::impl::queue_teller;
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

/// Room for so many messages whose bodies have so many bytes together.
limit_option bytes(unsigned messages, unsigned long long n) {
    limit_option limits;
    limits.queued_bytes = messages * send_account::message_cost + n;
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
    Told told(bytes(2, 100));
    auto const first = told.account->enter(60);
    EXPECT_FALSE(told.account->enter(41));
    auto const second = told.account->enter(40);
    EXPECT_TRUE(second);
    EXPECT_EQ(told.counted->copy().queued_bytes, 100u) << "the number is of the bodies alone";
}

TEST(SendAccount, EmptyMessagesHaveNoRoomOverTheLimitOfBytes) {
    Told told(bytes(3, 0));
    std::vector<send_account::room> rooms;
    for (int i = 0; i < 3; ++i) {
        rooms.push_back(told.account->enter(0));
        EXPECT_TRUE(rooms.back());
    }
    EXPECT_EQ(told.tellings, (std::vector<int>{1}));
    EXPECT_EQ(told.account->enter(0).refusal(), tav::tls::failure::queue_full);
    rooms.resize(1);
    EXPECT_EQ(told.tellings, (std::vector<int>{1, 0}));
    EXPECT_TRUE(told.account->enter(0));
}

TEST(SendAccount, OneMessageHasRoomHoweverLong) {
    Told told(bytes(1, 100));
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

TEST(SendAccount, TrackedSendWithoutAPlaceTakesNoRoomAndTellsNothing) {
    limit_option limits = frames(1);
    limits.tracked_sends = 1;
    Told told(limits);
    told.account->enter(1, true);
    ASSERT_EQ(told.tellings, (std::vector<int>{1, 0})) << "the first has gone out, and waits for its reply";
    auto const second = told.account->enter(1, true);
    EXPECT_FALSE(second);
    EXPECT_EQ(second.refusal(), tav::tls::failure::too_many_sends);
    EXPECT_EQ(told.tellings.size(), 2u);
    EXPECT_TRUE(told.account->enter(1)) << "others have room";
    told.account->untrack();
    auto const third = told.account->enter(1, true);
    EXPECT_TRUE(third);
    auto const fourth = told.account->enter(1, true);
    EXPECT_EQ(fourth.refusal(), tav::tls::failure::queue_full);
    told.account->untrack();
    EXPECT_TRUE(told.account->track()) << "who has no room keeps no place either";
}

TEST(SendAccount, ReceiptIsNeverRefusedAndStandsForAMessageThatIsNotHandled) {
    limit_option limits = frames(1);
    limits.received_waiting = 4;
    Told told(limits);
    auto const full = told.account->enter(1);
    std::vector<send_account::room> receipts;
    for (int i = 0; i < 3; ++i) {
        receipts.push_back(told.account->enter_receipt());
        EXPECT_TRUE(receipts.back());
    }
    EXPECT_EQ(told.tellings, (std::vector<int>{1}));
    EXPECT_EQ(told.counted->copy().queued_frames, 4u);
    EXPECT_FALSE(told.account->should_pause(0));
    EXPECT_TRUE(told.account->should_pause(1));
    EXPECT_FALSE(told.account->may_resume(0));
    EXPECT_FALSE(told.account->is_busy(2));
    EXPECT_TRUE(told.account->is_busy(3));
    receipts.pop_back();
    EXPECT_TRUE(told.account->may_resume(0));
    receipts.clear();
    EXPECT_EQ(told.counted->copy().queued_frames, 1u);
}

TEST(SendAccount, ReceiptsThatAreOverKeepNothingFromBeingRead) {
    limit_option limits;
    limits.received_waiting = 4;
    Told told(limits);
    std::vector<send_account::room> receipts;
    for (int i = 0; i < 4; ++i) {
        receipts.push_back(told.account->enter_receipt());
    }
    ASSERT_TRUE(told.account->should_pause(0));
    told.account->receipts_over();
    EXPECT_FALSE(told.account->should_pause(0));
    EXPECT_TRUE(told.account->may_resume(2));
    EXPECT_FALSE(told.account->may_resume(3)) << "messages count as ever";
    EXPECT_TRUE(told.account->should_pause(4));
    EXPECT_EQ(told.counted->copy().queued_frames, 4u) << "they wait all the same";
}

TEST(SendAccount, ConnectionThatIsReplacedTellsLowWaterAheadOfTheNext) {
    auto const teller = std::make_shared<queue_teller>();
    std::vector<std::string> tellings;
    auto const limitsOf = [&tellings](std::string name) {
        limit_option limits = frames(1);
        limits.on_queue = [&tellings, name](bool full) {
            tellings.push_back(name + (full ? " full" : " low"));
        };
        return limits;
    };
    send_account first(limitsOf("first"), nullptr, teller);
    auto waits = first.enter(1);
    send_account second(limitsOf("second"), nullptr, teller);
    auto const next = second.enter(1);
    EXPECT_EQ(tellings, (std::vector<std::string>{"first full", "first low", "second full"}));
    waits = send_account::room();
    EXPECT_EQ(tellings.size(), 3u) << "what goes of the first changes nothing";
}

TEST(SendAccount, FunctionsOfTwoConnectionsNeverRunAtOnce) {
    tav_test::Gate gate;
    auto const teller = std::make_shared<queue_teller>();
    std::atomic<bool> inside{false};
    std::atomic<bool> alone{true};
    std::vector<std::string> tellings;
    limit_option limits = frames(1);
    limits.on_queue = [&](bool full) {
        alone = !inside.exchange(true) && alone;
        if (tellings.empty()) {
            gate.pass();
        }
        tellings.push_back(full ? "full" : "low");
        inside = false;
    };
    send_account first(limits, nullptr, teller);
    send_account::room of_first;
    std::thread sender([&] { of_first = first.enter(1); });
    EXPECT_TRUE(gate.waitArrived());
    send_account second(limits, nullptr, teller);
    auto const of_second = second.enter(1);
    EXPECT_TRUE(of_second) << "a function that runs holds nobody back";
    gate.open();
    sender.join();
    EXPECT_TRUE(alone);
    EXPECT_EQ(tellings, (std::vector<std::string>{"full", "low", "full"}));
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

TEST(SendAccount, LowWaterFollowsARefusalHoweverTheThreadsMeet) {
    constexpr int rounds = 200000;
    std::vector<int> tellings;
    std::atomic<int> inside{0};
    std::atomic<bool> alone{true};
    limit_option limits = frames(1);
    limits.on_queue = [&](bool full) {
        alone = alone && ++inside == 1;
        tellings.push_back(full ? 1 : 0);
        --inside;
    };
    send_account account(limits, nullptr);
    std::mutex mutex;
    std::vector<send_account::room> waiting;
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (bool last = false; !last;) {
            last = done;
            std::vector<send_account::room> written;
            std::lock_guard<std::mutex> const guard(mutex);
            written.swap(waiting);
        }
    });
    for (int i = 0; i < rounds; ++i) {
        if (auto room = account.enter(1)) {
            std::lock_guard<std::mutex> const guard(mutex);
            waiting.push_back(std::move(room));
        }
    }
    done = true;
    writer.join();
    EXPECT_TRUE(alone);
    ASSERT_FALSE(tellings.empty());
    for (std::size_t i = 0; i < tellings.size(); ++i) {
        ASSERT_EQ(tellings[i], i % 2 == 0 ? 1 : 0) << i << " of " << tellings.size();
    }
    EXPECT_EQ(tellings.back(), 0) << "nothing waits, and nobody is told";
}

TEST(SendAccount, TurnWhileTheFunctionRunsIsToldBehindItOnItsThread) {
    tav_test::Gate gate;
    std::mutex mutex;
    std::vector<std::pair<int, std::thread::id>> tellings;
    limit_option limits = frames(2);
    limits.on_queue = [&](bool full) {
        if (full) {
            gate.pass();
        }
        std::lock_guard<std::mutex> const guard(mutex);
        tellings.emplace_back(full ? 1 : 0, std::this_thread::get_id());
    };
    send_account account(limits, nullptr);
    auto first = account.enter(1);
    send_account::room second;
    std::thread sender([&] { second = account.enter(1); });
    std::thread::id const id = sender.get_id();
    EXPECT_TRUE(gate.waitArrived());
    first = send_account::room();
    {
        std::lock_guard<std::mutex> const guard(mutex);
        EXPECT_TRUE(tellings.empty());
    }
    gate.open();
    sender.join();
    EXPECT_EQ(tellings, (std::vector<std::pair<int, std::thread::id>>{{1, id}, {0, id}}));
}

TEST(SendAccount, TurnsInTheFunctionAreToldBehindIt) {
    std::vector<int> tellings;
    send_account * inner = nullptr;
    send_account::room first;
    limit_option limits = frames(1);
    limits.on_queue = [&](bool full) {
        tellings.push_back(full ? 1 : 0);
        if (tellings.size() == 1) {
            // The room is the outer call's own still, so that none is left to be given back here.
            EXPECT_FALSE(inner->enter(1));
            EXPECT_EQ(tellings.size(), 1u);
        } else if (tellings.size() == 2) {
            first = inner->enter(1);
            EXPECT_TRUE(first);
            EXPECT_EQ(tellings.size(), 2u) << "one telling at a time";
        }
    };
    send_account account(limits, nullptr);
    inner = &account;
    first = account.enter(1);
    first = send_account::room();
    EXPECT_EQ(tellings, (std::vector<int>{1, 0, 1}));
    first = send_account::room();
    EXPECT_EQ(tellings, (std::vector<int>{1, 0, 1, 0}));
}

TEST(SendAccount, RefusedSendTakesNoRoomFromOthers) {
    send_account account(bytes(2, 100), nullptr);
    auto const waits = account.enter(1);
    std::atomic<bool> done{false};
    std::atomic<unsigned> refused{0};
    std::thread large([&] {
        while (!done) {
            refused += account.enter(1000) ? 0 : 1;
        }
    });
    while (refused == 0) {
        std::this_thread::yield();
    }
    unsigned lost = 0;
    for (int i = 0; i < 200000; ++i) {
        lost += account.enter(10) ? 0 : 1;
    }
    done = true;
    large.join();
    EXPECT_EQ(lost, 0u);
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
