#include "tav/kit/keeper.h"

#include "support/failing_allocations.h"
#include "support/in_child.h"
#include "support/joining_thread.h"
#include "support/keeper_rig.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <list>
#include <memory>

namespace {

using namespace std::chrono_literals;
using namespace tav_test;
using state = kit::keeper_state;

/// Has allocations of this thread alone fail.
class OwnAlone {
public:
    OwnAlone() {
        allocationsOwn = true;
        onlyOwnAllocations = true;
    }
    ~OwnAlone() {
        onlyOwnAllocations = false;
        allocationsOwn = false;
    }
    OwnAlone(OwnAlone const &) = delete;
    OwnAlone & operator=(OwnAlone const &) = delete;
};

} // namespace

TEST(KitKeeperMemory, StopGoesWithoutAny) {
    ClosedPort closed;
    OwnAlone const own;
    bool failed = true;
    for (long n = 1; failed; ++n) {
        ASSERT_LT(n, 1000);
        KeeperRig rig(closed.port());
        rig.keeper.start();
        int ends = 0;
        for (int i = 0; i < 3; ++i) {
            kit::request<Said>(rig.keeper, Say(i), 600s, [&](kit::result<Said> const & v) {
                ends += v.error() == kit::failure::stopped ? 1 : 0;
            });
        }
        ASSERT_TRUE(rig.comesTo(state::waiting));
        ASSERT_EQ(rig.keeper.waiting(), 3u);
        {
            FailingAllocation const failing(n);
            rig.keeper.stop();
            failed = FailingAllocation::happened();
        }
        EXPECT_EQ(ends, 3) << n;
        EXPECT_EQ(rig.keeper.status().state, state::stopped) << n;
        EXPECT_EQ(rig.keeper.status().cause, kit::failure::stopped) << n;
        EXPECT_EQ(rig.keeper.waiting(), 0u) << n;
    }
}

TEST(KitKeeperMemory, EndOfAParentsKeeperInTheChildTakesNone) {
    ClosedPort closed;
    tls::client client("parents");
    auto keeper = std::make_unique<kit::keeper>(client, quietOption(closed.port()));
    EXPECT_TRUE(inChild([&] {
        OwnAlone const own;
        FailingAllocation const failing(1);
        keeper.reset();
        return !FailingAllocation::happened();
    }));
}

TEST(KitKeeperMemory, StopWithoutAnyClosesTheConnection) {
    tav::gateway::Options options;
    options.faults.silence = true;
    GatewayRig gateway(options);
    OwnAlone const own;
    bool failed = true;
    for (long n = 1; failed; ++n) {
        ASSERT_LT(n, 1000);
        KeeperRig rig(std::to_string(gateway.gateway.port()));
        rig.keeper.start();
        ASSERT_TRUE(rig.comesTo(state::up));
        int ends = 0;
        kit::request<Said>(rig.keeper, Say(1), 600s, [&](kit::result<Said> const & v) {
            ends += v.error() == kit::failure::stopped ? 1 : 0;
        });
        {
            FailingAllocation const failing(n);
            rig.keeper.stop();
            failed = FailingAllocation::happened();
        }
        EXPECT_EQ(ends, 1) << n;
        EXPECT_TRUE(eventually([&] { return !rig.keeper.client().connected(); })) << n;
    }
}

namespace {

/// A gateway on this machine by a name that is too long to be kept without memory.
kit::keeper_option byALongName(GatewayRig const & rig) {
    kit::keeper_option how;
    how.gateways = {{"0:0:0:0:0:ffff:127.0.0.1", std::to_string(rig.gateway.port()), 0}};
    return how;
}

/// Whether it is up in the end, in the keeper's own time.
bool isUpLater(KeeperRig const & rig) {
    return eventually([&] {
        rig.timer->advance(100ms);
        return rig.keeper.status().state == state::up && rig.keeper.client().connected();
    });
}

} // namespace

namespace {

/// Three messages wait for the connection; each allocation of the step that sends them fails in turn.
void expectEndOfEach(kit::keeper_option const & how) {
    OwnAlone const own;
    bool failed = true;
    for (long n = 1; failed; ++n) {
        ASSERT_LT(n, 1000);
        std::atomic<int> ends{0};
        KeeperRig rig("1", how);
        rig.keeper.start();
        rig.timer->pump();
        // Those for whom there is no room stand until there is.
        std::list<JoiningThread> senders;
        for (int i = 0; i < 3; ++i) {
            senders.emplace_back([&rig, &ends, i] {
                kit::request<Said>(rig.keeper, Say(i), 600s, [&ends](kit::result<Said> const &) { ++ends; });
            });
        }
        ASSERT_TRUE(eventually([&] { return rig.keeper.waiting() == 3 && rig.timer->due(); }));
        {
            FailingAllocation const failing(n);
            rig.timer->pump();
            failed = FailingAllocation::happened();
        }
        EXPECT_TRUE(rig.timer->run([&] { return ends == 3; })) << n;
        EXPECT_EQ(rig.keeper.status().state, state::up) << n;
    }
}

} // namespace

TEST(KitKeeperMemory, MessagesThatWaitedHaveTheirEnd) {
    GatewayRig gateway;
    expectEndOfEach(byALongName(gateway));
}

TEST(KitKeeperMemory, MessagesThatWaitedForTheOutboxHaveTheirEnd) {
    GatewayRig gateway;
    kit::keeper_option how = byALongName(gateway);
    how.outbox = 1;
    how.policy = kit::when_full::wait;
    expectEndOfEach(how);
}

TEST(KitKeeperMemory, BreakIsComeBackFrom) {
    GatewayRig gateway;
    OwnAlone const own;
    bool failed = true;
    for (long n = 1; failed; ++n) {
        ASSERT_LT(n, 1000);
        KeeperRig rig("1", byALongName(gateway));
        rig.keeper.start();
        ASSERT_TRUE(rig.comesTo(state::up));
        gateway.gateway.drop();
        ASSERT_TRUE(eventually([&] { return rig.timer->due(); }));
        {
            FailingAllocation const failing(n);
            rig.timer->pump();
            failed = FailingAllocation::happened();
        }
        EXPECT_TRUE(isUpLater(rig)) << n << " " << rig.keeper.status().state;
    }
}

namespace {

class Sleeper final : public kit::keeper_timer::sleeper {
public:
    void wake() noexcept override { ++wakes; }
    std::atomic<int> wakes{0};
};

} // namespace

TEST(KitKeeperMemory, WhoWasWokenOnceIsWokenAgainWithoutAny) {
    kit::keeper_timer & timer = kit::detail::process_timer::instance();
    timer.enroll();
    auto const one = std::make_shared<Sleeper>();
    timer.wake_at(one, timer.now());
    ASSERT_TRUE(eventually([&] { return one->wakes == 1; }));
    OwnAlone const own;
    for (int n = 2; n < 20; ++n) {
        {
            FailingAllocation const failing(1);
            timer.wake_at(one, timer.now() + 50s);
            timer.wake_at(one, timer.now());
            EXPECT_FALSE(FailingAllocation::happened()) << n;
        }
        ASSERT_TRUE(eventually([&] { return one->wakes == n; })) << n;
    }
    timer.leave();
}
