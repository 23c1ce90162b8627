#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>

using namespace tav_test;

namespace {

/// By how much this program's wall clock is wrong, in seconds.
std::atomic<long> wall_step{0};

} // namespace

/// Stands in for the system's function in the whole program, libraries included.
extern "C" int clock_gettime(clockid_t id, struct timespec * out) noexcept {
    int const result = static_cast<int>(::syscall(SYS_clock_gettime, id, out));
    if (result == 0 && id == CLOCK_REALTIME) {
        out->tv_sec += wall_step;
    }
    return result;
}

namespace {

class ClientClock : public ::testing::TestWithParam<long> {
protected:
    void TearDown() override { wall_step = 0; }
    void step() { wall_step = GetParam(); }

    /// Waits until timers have had several ticks.
    static void letTick() {
        eventually([] { return false; }, 350);
    }

    static tls::send_option limited(int wait_ms) {
        return tls::send_option(tls::timedout_option(wait_ms), false, 4);
    }

    LogCapture log;
};

std::string direction(::testing::TestParamInfo<long> const & info) {
    return info.param > 0 ? "Forward" : "Back";
}

INSTANTIATE_TEST_SUITE_P(StepsAnHour, ClientClock, ::testing::Values(3600L, -3600L), direction);

} // namespace

TEST_P(ClientClock, TheStepIsSeenInTimesThatAreShown) {
    long long const before = tavTime::currentTimeMillis();
    step();
    long long const moved = tavTime::currentTimeMillis() - before;
    EXPECT_GE(moved, GetParam() * 1000);
    EXPECT_LT(moved, GetParam() * 1000 + 60000);
}

TEST_P(ClientClock, ATimerKeepsItsInterval) {
    std::atomic<unsigned> rare{0};
    tavSharedPtr<tavTimerThread> const slow(new tavTimerThread(
        "slow", 1800000,
        [&](bool signalled) {
            rare += signalled ? 0u : 1u;
            return true;
        },
        nullptr, -1));
    auto const made = std::chrono::steady_clock::now();
    Events fired;
    tavSharedPtr<tavTimerThread> const quick(new tavTimerThread(
        "quick", 300,
        [&](bool) {
            fired.add("tick");
            return true;
        },
        nullptr, 2));
    step();
    slow->start();
    quick->start();
    EXPECT_TRUE(fired.wait(1));
    EXPECT_GE(std::chrono::steady_clock::now() - made, std::chrono::milliseconds(298));
    EXPECT_TRUE(fired.wait(2));
    EXPECT_GE(std::chrono::steady_clock::now() - made, std::chrono::milliseconds(596));
    EXPECT_EQ(rare, 0u);
    slow->close();
    quick->close();
}

TEST_P(ClientClock, ASendKeepsItsLimit) {
    ClientRig rig;
    rig.connect();
    auto const early = rig.client.send_msg(Ask(1), limited(400));
    auto const late = rig.client.send_msg(Ask(2), limited(1800000));
    step();
    EXPECT_EQ(resultOf(early), tls::result_timedout);
    letTick();
    EXPECT_EQ(late->result(), tls::result_unknown);
    auto const after = rig.client.send_msg(Ask(3), limited(200));
    EXPECT_EQ(resultOf(after), tls::result_timedout);
}

TEST_P(ClientClock, AConnectKeepsItsLimit) {
    for (bool const early : {true, false}) {
        ClientRig rig;
        tls::connect_option option = rig.option();
        option.timedout.wait_ms(early ? 600 : 1800000);
        auto const info = rig.client.start(option);
        auto const silent = rig.peer.accept();
        step();
        if (early) {
            EXPECT_EQ(resultOf(info), tls::result_timedout);
        } else {
            letTick();
            EXPECT_EQ(info->result(), tls::result_pending);
        }
        wall_step = 0;
        rig.client.close();
        resultOf(info);
    }
}

TEST_P(ClientClock, ASupervisedConnectionNeitherEndsNorBeats) {
    ClientRig rig;
    rig.connect();
    rig.client.should_check_heartbeat(true);
    step();
    letTick();
    EXPECT_TRUE(rig.client.connected());
    EXPECT_TRUE(rig.server->quiet(0));
    EXPECT_EQ(rig.events.count(), 1u);
}

TEST_P(ClientClock, AStartIsToldAsTooFastByTheTimeThatHasPassed) {
    ClientRig rig;
    rig.connect();
    step();
    rig.reconnect();
    EXPECT_TRUE(log.contains("<n> reconnect too fast, sleep "));
}
