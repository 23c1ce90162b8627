#include "tav/vinta/vinta_tls_client.h"

#include "support/silent_end.h"

#include <gtest/gtest.h>

using namespace tav_test;

// A peer that reads nothing lets the system send nothing, though it answers when asked for room.
TEST(ClientWatch, PeerThatTakesNothingEndsTheConnectionByTheUserTimeout) {
    constexpr unsigned user_timeout_ms = 300;
    constexpr int more_than_sockets_hold = 16;
    LogCapture log;
    HeardEnd heard;
    ClientRig rig;
    tls::connect_option option = rig.option();
    heard.listen(option);
    tls::tls_policy policy;
    policy.tcp_user_timeout_ms = user_timeout_ms;
    option.set_tls_policy(policy);
    rig.connect(option);
    Ask large(1);
    large.text = tavString(std::string(1u << 20, 'x'));
    auto const send = [&](int wait_ms) {
        return rig.client.send_msg(large, tls::send_option(wait_ms, tls::timedout_function(), false, 4));
    };
    auto const tracked = send(60000);
    for (int i = 0; i < more_than_sockets_hold; ++i) {
        send(0);
    }
    EXPECT_TRUE(heard.isOfASilentEnd()) << heard.code << " " << heard.name;
    EXPECT_TRUE(silentEndIsLogged(log));
    EXPECT_EQ(resultOf(tracked), tls::result_cancelled);
    EXPECT_EQ(tracked->error(), tls::failure::connection_lost);
    EXPECT_TRUE(brokeOnce(rig.client));
    EXPECT_FALSE(rig.client.connected());
}
