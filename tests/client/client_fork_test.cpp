#include "support/client_rig.h"
#include "support/in_child.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

using namespace tav;
using namespace tav_test;

TEST(ClientFork, FinalizeInTheChildLeavesTheParentsConnectionAlone) {
    GatewayRig rig;
    tls::client & client = tls::client::instance("forked");
    ASSERT_EQ(resultOf(client.start(rig.option())), tls::result_ok);
    EXPECT_TRUE(inChild([] {
        tls::client::finalize();
        tls::client::finalize();
        return true;
    }));
    EXPECT_TRUE(client.connected());
    EXPECT_EQ(&client, &tls::client::instance("forked"));
    client.close();
    ASSERT_EQ(resultOf(client.start(rig.option())), tls::result_ok);
    EXPECT_TRUE(tls::client::destroy("forked"));
}

TEST(ClientFork, EndOfAParentsClientInTheChildTouchesNothing) {
    ClientRig rig;
    auto client = std::make_unique<tls::client>("own");
    auto const info = client->start(rig.option());
    rig.server = rig.peer.accept();
    ASSERT_TRUE(rig.server->handshake());
    ASSERT_EQ(resultOf(info), tls::result_ok);
    EXPECT_TRUE(inChild([&client] {
        client.reset();
        return true;
    }));
    EXPECT_TRUE(client->connected());
}

#if TAV_TEST_CHILD_HAS_THREADS
TEST(ClientFork, ChildMayHaveClientsOfItsOwn) {
    GatewayRig rig;
    tls::client & parents = tls::client::instance("forked");
    ASSERT_EQ(resultOf(parents.start(rig.option())), tls::result_ok);
    EXPECT_TRUE(inChild([&rig, &parents] {
        tls::client & own = tls::client::instance("forked");
        bool const connected = resultOf(own.start(rig.option())) == tls::result_ok;
        tls::client::finalize();
        return connected && &own != &parents;
    }));
    EXPECT_TRUE(parents.connected());
    EXPECT_TRUE(tls::client::destroy("forked"));
}
#endif
