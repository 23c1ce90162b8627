#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

using namespace tav_test;
using tls::failure;
using tls::last_failure;

namespace {

/// By how many seconds the calling thread's monotonic clock is behind.
thread_local long clock_lag = 0;

} // namespace

/// Stands in for the system's function in the whole program, libraries included.
extern "C" int clock_gettime(clockid_t id, struct timespec * out) noexcept {
    int const result = static_cast<int>(::syscall(SYS_clock_gettime, id, out));
    if (result == 0 && id == CLOCK_MONOTONIC) {
        out->tv_sec -= clock_lag;
    }
    return result;
}

TEST(ClientSilence, EndsTheConnectionAndItsSendsByName) {
    LogCapture log;
    ClientRig rig;
    Events named;
    tls::connect_option option = rig.option();
    // What comes from here on seems to have come long ago.
    option.set_on_open([] { clock_lag = 100; });
    option.set_on_heartbeat_timedout([&] { named.add("connection: " + last_failure().message()); });
    rig.connect(option);
    auto const waiting = rig.client.send_msg(Ask(1), tls::send_option(
                                                         60000,
                                                         [&](unsigned long long, unsigned short, bool) {
                                                             named.add("send: " + last_failure().message());
                                                         },
                                                         false, 4));
    ASSERT_TRUE(waiting);
    rig.receive();
    rig.client.should_check_heartbeat(true);
    rig.server->send(mobile(0x7000, 1).framed());
    ASSERT_TRUE(named.wait(2));
    std::string const silent = tls::make_error_code(failure::peer_silent).message();
    EXPECT_EQ(named.count("connection: " + silent), 1u);
    EXPECT_EQ(named.count("send: " + silent), 1u);
    EXPECT_EQ(resultOf(waiting), tls::result_cancelled);
    EXPECT_EQ(waiting->error(), failure::peer_silent);
    EXPECT_TRUE(eventually([&] { return !rig.client.connected(); }));
    rig.client.close();
    ASSERT_TRUE(log.waitFor("<n> session destruct")) << "the close has been done";
    tls::statistics const all = rig.client.statistics();
    EXPECT_EQ(all.breaks_by_silence, 1u);
    EXPECT_EQ(all.breaks_by_peer + all.breaks_by_error + all.closes, 0u);
}

TEST(ClientSilence, HeartbeatsThatAreSentAreCounted) {
    LogCapture log;
    ClientRig rig;
    // The connection seems to have been made, and nothing sent on it, a while ago.
    log.at("<n> on_start", [] { clock_lag = 40; });
    rig.connect();
    EXPECT_EQ(rig.client.statistics().heartbeats_sent, 0u);
    rig.client.should_check_heartbeat(true);
    EXPECT_EQ(rig.server->receiveFrame(), "") << "a heartbeat is an empty frame";
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().heartbeats_sent == 1; }));
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().frames_sent == 1; }));
    EXPECT_EQ(rig.client.statistics().messages_sent, 0u);
    EXPECT_TRUE(rig.client.connected());
}
