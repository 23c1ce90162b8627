#include "client/broken_end.h"

#include <gtest/gtest.h>

#include <asio/error.hpp>

#include <chrono>

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
