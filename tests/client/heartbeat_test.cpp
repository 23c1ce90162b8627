#include "client/heartbeat.h"

#include <gtest/gtest.h>

#include <optional>

using tav::tls::impl::heartbeat;

namespace {

constexpr long long interval = heartbeat::interval_ms;
constexpr long long patience = heartbeat::interval_ms * heartbeat::misses;

} // namespace

TEST(Heartbeat, IsNotWantedAtFirst) {
    heartbeat beat(0);
    EXPECT_FALSE(beat.wanted());
    beat.wanted(true);
    EXPECT_TRUE(beat.wanted());
}

TEST(Heartbeat, IsDueBehindAQuietInterval) {
    heartbeat beat(1000);
    EXPECT_FALSE(beat.due(1000 + interval));
    EXPECT_TRUE(beat.due(1001 + interval));
    beat.sent(1001 + interval);
    EXPECT_FALSE(beat.due(1001 + 2 * interval));
}

TEST(Heartbeat, IsMissedWhenNothingWasHeardForSoManyIntervals) {
    heartbeat beat(0);
    EXPECT_FALSE(beat.missed(patience));
    EXPECT_TRUE(beat.missed(patience + 1));
    beat.heard(patience);
    EXPECT_FALSE(beat.missed(2 * patience));
    beat.resumed(2 * patience);
    EXPECT_FALSE(beat.missed(3 * patience));
    EXPECT_TRUE(beat.missed(3 * patience + 1));
}

TEST(Heartbeat, BytesThatNoReadHasToldOfCountAsHeard) {
    heartbeat beat(0);
    beat.listened(10, 0);
    beat.listened(11, 500);
    EXPECT_FALSE(beat.missed(500 + patience));
    beat.listened(11, 900);
    EXPECT_TRUE(beat.missed(501 + patience));
}

TEST(Heartbeat, BytesOfAReadCountFromTheRead) {
    heartbeat beat(0);
    beat.listened(10, 0);
    beat.heard(100);
    beat.listened(20, 700);
    EXPECT_TRUE(beat.missed(101 + patience));
}

TEST(Heartbeat, SocketThatCannotTellItsBytesLeavesThemAsTheyWere) {
    heartbeat beat(0);
    beat.listened(10, 0);
    beat.listened(std::nullopt, 300);
    beat.listened(10, 600);
    EXPECT_TRUE(beat.missed(1 + patience));
}
