#include "support/in_child.h"
#include "support/silent_end.h"

#include <gtest/gtest.h>

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>

// A peer on loopback answers each probe, whatever it does: the network itself has to go.  So the test has one
// of its own, which the system must let it have.

using namespace tav_test;

namespace {

/// Takes this process's loopback up or down.
bool setLoopback(bool up) {
    int const socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    request.ifr_name[0] = 'l';
    request.ifr_name[1] = 'o';
    request.ifr_flags = up ? IFF_UP : 0;
    bool const done = ::ioctl(socket, SIOCSIFFLAGS, &request) == 0;
    ::close(socket);
    return done;
}

/// Whether keep-alive ends a connection that its network has left, and the application hears of it.
bool endsByKeepAlive() {
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0 || !setLoopback(true)) {
        std::perror("a network of the test's own");
        return false;
    }
    LogCapture log;
    HeardEnd heard;
    ClientRig rig;
    tls::connect_option option = rig.option();
    heard.listen(option);
    tls::tls_policy policy;
    policy.tcp_keep_alive_s = 1;
    policy.tcp_keep_alive_interval_s = 1;
    policy.tcp_keep_alive_probes = 1;
    option.set_tls_policy(policy);
    rig.connect(option);
    return setLoopback(false) && heard.isOfASilentEnd() && silentEndIsLogged(log) && brokeOnce(rig.client);
}

} // namespace

TEST(ClientKeepAlive, PeerThatIsGoneEndsTheConnection) {
    EXPECT_TRUE(inChild([] { return endsByKeepAlive(); }));
}
