#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"
#include "support/templates.h"

#include <gtest/gtest.h>

using namespace tav_test;
using tls::failure;
using tls::last_failure;

namespace {

tls::send_option tracked(int wait_ms = 60000) {
    return tls::send_option(wait_ms, tls::timedout_function(), false, 4);
}

/// Why a start of this option ends.
std::error_code endOf(tls::client & client, tls::connect_option const & option) {
    auto const info = client.start(option);
    resultOf(info);
    return info->error();
}

} // namespace

TEST(ClientFailures, SendWithoutAConnectionIsNotConnected) {
    tls::client client("n");
    EXPECT_FALSE(client.send_msg(Ask(1), tracked()));
    EXPECT_EQ(last_failure(), failure::not_connected);
    EXPECT_EQ(client.statistics().sends_refused, 1u);
}

TEST(ClientFailures, UntrackedSendThatWentOutIsNoFailure) {
    ClientRig rig;
    rig.connect();
    EXPECT_FALSE(rig.client.send_msg(Ask(1), tls::send_option()));
    EXPECT_EQ(last_failure(), failure::none);
}

TEST(ClientFailures, EmptyAddressIsBad) {
    tls::client client("n");
    tls::connect_option option;
    EXPECT_FALSE(client.start(option));
    EXPECT_EQ(last_failure(), failure::bad_address);
    option.host = "127.0.0.1";
    EXPECT_FALSE(client.start(option));
    EXPECT_EQ(last_failure(), failure::bad_address);
}

TEST(ClientFailures, PortThatIsNoneIsBad) {
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.port = "70000";
    EXPECT_EQ(endOf(rig.client, option), failure::bad_address);
}

TEST(ClientFailures, ConnectEndsByName) {
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.port = "1";
    EXPECT_EQ(endOf(rig.client, option), failure::refused);
    option = rig.option();
    option.metainfo = "not } pml [";
    EXPECT_EQ(endOf(rig.client, option), failure::bad_template);
    option = rig.option();
    option.timedout.wait_ms(1);
    EXPECT_EQ(endOf(rig.client, option), failure::timed_out);
}

TEST(ClientFailures, ConnectThatCameUpHasNone) {
    ClientRig rig;
    auto const info = rig.client.start(rig.option());
    rig.finish(info);
    EXPECT_FALSE(info->error());
}

TEST(ClientFailures, RefusedCertificateHasItsName) {
    ClientRig rig;
    tls::connect_option option = rig.option();
    TempFile const other(TlsIdentity::stranger().ca);
    option.ca = other.path();
    auto const info = rig.client.start(option);
    auto const server = rig.peer.accept();
    server->handshake();
    EXPECT_EQ(resultOf(info), tls::result_error);
    EXPECT_EQ(info->error(), failure::certificate_refused);
}

TEST(ClientFailures, PolicyThatCannotBeKeptHasItsName) {
    ClientRig rig;
    tls::connect_option option = rig.option();
    tls::tls_policy policy;
    policy.trusted_pem = "no certificate";
    option.set_tls_policy(policy);
    EXPECT_EQ(endOf(rig.client, option), failure::bad_policy);
}

TEST(ClientFailures, SecondReconnectIsBusy) {
    ClientRig rig;
    auto const info = rig.client.start(rig.option());
    ASSERT_TRUE(rig.peer.pending(10000));
    EXPECT_EQ(rig.client.reconnect(tls::timedout_option()), info);
    EXPECT_EQ(last_failure(), failure::busy);
    rig.finish(info);
}

TEST(ClientFailures, SendEndsByName) {
    ClientRig rig;
    rig.connect();
    auto const late = rig.client.send_msg(Ask(1), tracked(1));
    EXPECT_FALSE(late->error());
    EXPECT_EQ(resultOf(late), tls::result_timedout);
    EXPECT_EQ(late->error(), failure::timed_out);
    auto const cancelled = rig.client.send_msg(Ask(2), tracked());
    cancelled->cancel();
    EXPECT_EQ(cancelled->error(), failure::cancelled);
    auto const lost = rig.client.send_msg(Ask(3), tracked());
    for (int number = 1; number <= 3; ++number) {
        rig.receive();
    }
    rig.server->close();
    EXPECT_EQ(resultOf(lost), tls::result_cancelled);
    EXPECT_EQ(lost->error(), failure::closed_by_peer);
    rig.reconnect();
    auto const closed = rig.client.send_msg(Ask(4), tracked());
    rig.client.close();
    EXPECT_EQ(resultOf(closed), tls::result_cancelled);
    EXPECT_EQ(closed->error(), failure::cancelled);
    rig.reconnect();
    auto const cut = rig.client.send_msg(Ask(5), tracked());
    rig.receive();
    rig.server->reset();
    EXPECT_EQ(resultOf(cut), tls::result_cancelled);
    EXPECT_EQ(cut->error(), failure::connection_lost);
}

TEST(ClientFailures, SendsOfAConnectionThatGotNoFrameAreNamedForIt) {
    ClientRig rig;
    rig.connect();
    auto const waiting = rig.client.send_msg(Ask(1), tracked());
    rig.receive();
    rig.server->send("\x01\x01\x01\x01");
    ASSERT_TRUE(rig.events.wait(2));
    rig.client.close();
    EXPECT_EQ(resultOf(waiting), tls::result_cancelled);
    EXPECT_EQ(waiting->error(), failure::bad_frame);
}

TEST(ClientFailures, SendAndWaitTellsItsOwn) {
    ClientRig rig;
    rig.connect();
    Answer ack;
    EXPECT_EQ(rig.client.send_and_wait(Ask(1), ack, 1), tls::result_timedout);
    EXPECT_EQ(last_failure(), failure::timed_out);
}

TEST(ClientFailures, BodyThatNoFrameCarriesIsTooLong) {
    ClientRig rig;
    rig.connect();
    std::string const body(0x1000000, 'x');
    EXPECT_FALSE(rig.client.send_nbr_msg(0x1234, reinterpret_cast<unsigned char const *>(body.data()),
                                         static_cast<unsigned>(body.size()), tracked()));
    EXPECT_EQ(last_failure(), failure::body_too_long);
}

TEST(ClientFailures, JsonThatCannotBeSentSaysWhy) {
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.metainfo = helloTemplate();
    rig.connect(option);
    auto const why = [&](char const * json, char const * name) {
        EXPECT_FALSE(rig.client.send_json_msg(json, tracked(), name)) << json;
        return last_failure();
    };
    EXPECT_EQ(why("{\"user\":[1", "im.Hello"), failure::bad_json);
    EXPECT_EQ(why("{\"user\":\"ann\"}", "no.Such"), failure::template_lacks_class);
    EXPECT_EQ(why("{\"user\":\"ann\",\"seq\":\"text\"}", "im.Hello"), failure::value_does_not_fit);
    EXPECT_EQ(why("{}", "im.Hello"), failure::field_missing);
}
