#include "tav/kit/coroutine.h"
#include "tav/kit/keeper.h"

#include "support/keeper_rig.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace tav_test;
using state = kit::keeper_state;

kit::task<std::string> ask(kit::keeper & keeper, Say say) {
    auto const reply = co_await kit::request<Said>(keeper, say, 30s, kit::use_awaitable);
    co_return textOfResult(reply);
}

kit::task<std::string> tell(kit::keeper & keeper, Say say) {
    auto const sent = co_await kit::post(keeper, say, 30s, kit::use_awaitable);
    co_return textOfResult(sent);
}

} // namespace

TEST(KitKeeperCoroutine, AwaitsThroughTheOutbox) {
    TlsPeer peer;
    KeeperRig rig(peer.portText());
    rig.keeper.start();
    std::future<std::string> asked = kit::spawn(ask(rig.keeper, Say(1)));
    std::future<std::string> told = kit::spawn(tell(rig.keeper, Say(2)));
    EXPECT_EQ(rig.keeper.waiting(), 2u);
    auto const server = rig.accept(peer);
    ASSERT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 0; }));
    server->send(mobile(Said::type_code, Pkt::of(server->receiveFrame()).sno).framed());
    EXPECT_EQ(got(std::move(asked)), "ok");
    EXPECT_EQ(got(std::move(told)), "ok");
}

// Ten wait for room on one thread, which is none of theirs.
TEST(KitKeeperCoroutine, WaitsForRoomAndHoldsUpNoThread) {
    constexpr int many = 10;
    GatewayRig gateway;
    kit::keeper_option how;
    how.outbox = 1;
    how.policy = kit::when_full::wait;
    KeeperRig rig(std::to_string(gateway.gateway.port()), how);
    rig.keeper.start();
    std::vector<std::future<std::string>> all;
    for (int i = 0; i < many; ++i) {
        all.push_back(kit::spawn(ask(rig.keeper, Say(i))));
    }
    EXPECT_EQ(rig.keeper.waiting(), static_cast<std::size_t>(many));
    ASSERT_TRUE(rig.timer->run([&] { return rig.keeper.waiting() == 0; }));
    for (auto & each : all) {
        EXPECT_EQ(got(std::move(each)), "ok");
    }
    EXPECT_EQ(gateway.gateway.stats().packets, static_cast<unsigned>(many));
}

TEST(KitKeeperCoroutine, StopEndsWhatWaitsForRoom) {
    ClosedPort closed;
    kit::keeper_option how;
    how.outbox = 1;
    how.policy = kit::when_full::wait;
    KeeperRig rig(closed.port(), how);
    rig.keeper.start();
    std::future<std::string> first = kit::spawn(ask(rig.keeper, Say(1)));
    std::future<std::string> second = kit::spawn(ask(rig.keeper, Say(2)));
    EXPECT_EQ(rig.keeper.waiting(), 2u);
    rig.keeper.stop();
    EXPECT_EQ(got(std::move(first)), "stopped");
    EXPECT_EQ(got(std::move(second)), "stopped");
}

TEST(KitKeeperCoroutine, DroppedAwaitLeavesTheOutbox) {
    ClosedPort closed;
    KeeperRig rig(closed.port());
    rig.keeper.start();
    {
        auto const dropped = kit::request<Said>(rig.keeper, Say(1), 30s, kit::use_awaitable);
        EXPECT_EQ(rig.keeper.waiting(), 1u);
    }
    EXPECT_EQ(rig.keeper.waiting(), 0u);
}
