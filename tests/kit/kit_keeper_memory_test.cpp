#include "tav/kit/keeper.h"

#include "support/failing_allocations.h"
#include "support/keeper_rig.h"

#include <gtest/gtest.h>

#include <chrono>

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
