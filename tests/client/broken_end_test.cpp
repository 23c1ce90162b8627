#include "client/broken_end.h"

#include <gtest/gtest.h>

#include <asio/error.hpp>

#include <atomic>
#include <chrono>
#include <thread>

using std::chrono::milliseconds;
using tav::tls::impl::broken_end;

TEST(BrokenEnd, BeginsWithItsError) {
    asio::io_context io;
    broken_end end(io);
    EXPECT_FALSE(end.begun());
    end.begin(asio::error::connection_reset);
    EXPECT_TRUE(end.begun());
    EXPECT_EQ(end.error(), asio::error::connection_reset);
    EXPECT_FALSE(end.told());
}

TEST(BrokenEnd, IsToldOnce) {
    asio::io_context io;
    broken_end end(io);
    end.begin(asio::error::eof);
    EXPECT_TRUE(end.tell());
    EXPECT_TRUE(end.told());
    EXPECT_FALSE(end.tell());
}

TEST(BrokenEnd, LimitCallsWhenTheTimeIsOver) {
    asio::io_context io;
    broken_end end(io);
    end.begin(asio::error::eof);
    int calls = 0;
    end.limit(milliseconds(1), [&] { calls += end.tell() ? 1 : 0; });
    EXPECT_EQ(io.run(), 1u);
    EXPECT_EQ(calls, 1);
}

TEST(BrokenEnd, LimitIsDroppedByTheTellingAndByACancellation) {
    asio::io_context io;
    for (bool const told : {true, false}) {
        broken_end end(io);
        end.begin(asio::error::eof);
        int calls = 0;
        end.limit(std::chrono::hours(1), [&] { ++calls; });
        if (told) {
            EXPECT_TRUE(end.tell());
        } else {
            end.cancel();
        }
        EXPECT_EQ(io.run(), 1u) << told;
        EXPECT_EQ(calls, 0) << told;
        io.restart();
    }
}

TEST(BrokenEnd, CancellationMeetsALimitOnAnotherThread) {
    asio::io_context io;
    broken_end end(io);
    end.begin(asio::error::eof);
    std::atomic<bool> done{false};
    std::atomic<int> cancelled{0};
    std::thread other([&] {
        for (; !done; ++cancelled) {
            end.cancel();
        }
    });
    int calls = 0;
    for (int i = 0; i < 1000 || cancelled == 0; ++i) {
        end.limit(std::chrono::hours(1), [&] { ++calls; });
    }
    done = true;
    other.join();
    end.cancel();
    EXPECT_GE(io.run(), 1000u) << "each limit has ended";
    EXPECT_EQ(calls, 0);
}
