#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <atomic>
#include <cerrno>

using namespace tav_test;

/// A system that does not watch over connections: this stands in for its function, in the whole program.
namespace {

/// The option of TCP that the system does not take; 0 for none.
std::atomic<int> lacking{0};

} // namespace

extern "C" int setsockopt(int socket, int level, int name, void const * value, socklen_t size) noexcept {
    if (level == IPPROTO_TCP && name == lacking) {
        errno = ENOPROTOOPT;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_setsockopt, socket, level, name, value, size));
}

namespace {

/// The WARN lines of a connection whose policy wants both watches, while the system lacks an option.
unsigned toldWithout(int name) {
    lacking = name;
    LogCapture log;
    ClientRig rig;
    tls::connect_option option = rig.option();
    tls::tls_policy policy;
    policy.tcp_keep_alive_s = 60;
    policy.tcp_keep_alive_interval_s = 10;
    policy.tcp_keep_alive_probes = 3;
    policy.tcp_user_timeout_ms = 60000;
    option.set_tls_policy(policy);
    rig.connect(option);
    lacking = 0;
    EXPECT_TRUE(rig.client.connected());
    EXPECT_TRUE(rig.settle()) << "the connection works without";
    unsigned told = 0;
    for (LogCapture::Record const & record : log.records()) {
        bool const is = record.text.find(" the system does not watch over the connection: "
                                         "Protocol not available\n") != std::string::npos;
        told += is && record.level == tavLogger::WARN ? 1u : 0u;
    }
    return told;
}

} // namespace

TEST(WatchRefusal, ConnectionOpensAndSaysWhatTheSystemLacks) {
    EXPECT_EQ(toldWithout(TCP_USER_TIMEOUT), 1u);
    EXPECT_EQ(toldWithout(TCP_KEEPIDLE), 1u);
    EXPECT_EQ(toldWithout(TCP_KEEPINTVL), 1u);
    EXPECT_EQ(toldWithout(TCP_KEEPCNT), 1u);
}

TEST(WatchRefusal, NothingIsSaidWhereTheSystemTakesAll) {
    EXPECT_EQ(toldWithout(0), 0u);
}
