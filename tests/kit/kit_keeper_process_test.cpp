#include "tav/kit/keeper.h"

#include "support/in_child.h"
#include "support/keeper_rig.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

using namespace std::chrono_literals;
using namespace tav_test;
using state = kit::keeper_state;

constexpr unsigned watchdog_s = 20;

bool comesUp(kit::keeper & keeper) {
    keeper.start();
    return eventually([&] { return keeper.status().state == state::up; });
}

/// Outlives main, as does what its callbacks use.
GatewayRig & lastingGateway() {
    static GatewayRig & the = *new GatewayRig;
    return the;
}
kit::keeper_option busy(std::atomic<int> & calls) {
    kit::keeper_option how;
    how.first_wait = 1ms;
    how.longest_wait = 5ms;
    how.on_state = [&calls](kit::keeper_status const &) { ++calls; };
    return how;
}
std::atomic<int> calls{0};

std::unique_ptr<kit::keeper> & staticOwner() {
    static std::unique_ptr<kit::keeper> owner;
    return owner;
}

/// Behind the destruction of what callbacks use nothing is told any more.
void lookForCalls() {
    int const before = calls;
    lastingGateway().gateway.drop();
    std::this_thread::sleep_for(300ms);
    if (calls != before) {
        ::_exit(3);
    }
}

class KitKeeperProcess : public ::testing::Test {
protected:
    void SetUp() override { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

tls::connect_option optionOfGateway(GatewayRig & rig) {
    return quietOption(std::to_string(rig.gateway.port()));
}

} // namespace

TEST_F(KitKeeperProcess, ExitBesideAKeeperIsNoHangAndTellsNothing) {
    EXPECT_EXIT(
        {
            ::alarm(watchdog_s);
            std::atexit(&lookForCalls);
            auto & keeper = *new kit::keeper(optionOfGateway(lastingGateway()), busy(calls));
            if (!comesUp(keeper)) {
                ::_exit(4);
            }
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(KitKeeperProcess, ExitMayDestroyAKeeperOfAStaticObject) {
    EXPECT_EXIT(
        {
            ::alarm(watchdog_s);
            staticOwner();
            staticOwner() = std::make_unique<kit::keeper>(optionOfGateway(lastingGateway()), busy(calls));
            if (!comesUp(*staticOwner())) {
                ::_exit(4);
            }
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(KitKeeperProcess, ExitInAStateFunctionIsNoHang) {
    EXPECT_EXIT(
        {
            ::alarm(watchdog_s);
            kit::keeper_option how;
            how.on_state = [](kit::keeper_status const & v) {
                if (v.state == state::up) {
                    std::exit(0);
                }
            };
            auto & keeper = *new kit::keeper(optionOfGateway(lastingGateway()), how);
            keeper.start();
            Gate never;
            never.pass();
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(KitKeeperProcess, ExitBesideAStateFunctionThatHangsIsNoHang) {
    EXPECT_EXIT(
        {
            ::alarm(watchdog_s);
            Gate & never = *new Gate;
            kit::keeper_option how;
            how.on_state = [&](kit::keeper_status const &) { never.pass(); };
            auto & keeper = *new kit::keeper(optionOfGateway(lastingGateway()), how);
            keeper.start();
            if (!never.waitArrived()) {
                ::_exit(4);
            }
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(KitKeeperProcess, EndOfAParentsKeeperInTheChildTouchesNothing) {
    GatewayRig gateway;
    auto keeper = std::make_unique<kit::keeper>(optionOfGateway(gateway));
    ASSERT_TRUE(comesUp(*keeper));
    EXPECT_TRUE(inChild([&] {
        keeper->start();
        keeper->stop();
        keeper.reset();
        return true;
    }));
    EXPECT_EQ(keeper->status().state, state::up);
    EXPECT_TRUE(got(kit::request<Said>(*keeper, Say(1), 10s)));
}

#if TAV_TEST_CHILD_HAS_THREADS
TEST_F(KitKeeperProcess, ChildMayHaveKeepersOfItsOwn) {
    GatewayRig gateway;
    kit::keeper parents(optionOfGateway(gateway));
    ASSERT_TRUE(comesUp(parents));
    EXPECT_TRUE(inChild([&] {
        unsigned const before = threadsNow();
        bool answered = false;
        {
            kit::keeper own(optionOfGateway(gateway));
            own.start();
            answered = got(kit::request<Said>(own, Say(1), 8s)).has_value();
        }
        return answered && eventually([&] { return threadsNow() <= before; });
    }));
    EXPECT_EQ(parents.status().state, state::up);
}
#endif
