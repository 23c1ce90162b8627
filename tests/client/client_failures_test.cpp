#include "tav/vinta/vinta_tls_client.h"

#include "support/bounded.h"
#include "support/client_rig.h"
#include "support/names.h"
#include "support/templates.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

using namespace tav_test;
using tls::failure;
using tls::last_failure;

namespace {

tls::send_option tracked(int wait_ms = 60000) {
    return tls::send_option(wait_ms, tls::timedout_function(), false, 4);
}

/// A message that no stream takes.
struct Raising : Ask {
    void traverse(tavCodecStream &) override { throw std::runtime_error("no fields today"); }
};

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

TEST(ClientFailures, FrameThatIsNoneIsOneBreakByErrorHoweverTheConnectionEnds) {
    for (bool const closed : {true, false}) {
        ClientRig rig;
        Events named;
        tls::connect_option option = rig.option();
        option.set_on_error([&named](unsigned long long, unsigned short, int, char const *) {
            named.add(last_failure().message());
        });
        rig.connect(option);
        rig.server->send("\x01\x01\x01\x01");
        ASSERT_TRUE(named.wait(1));
        EXPECT_EQ(named.all()[0], "the peer sent what is no frame");
        EXPECT_EQ(rig.client.statistics().breaks_by_error, 1u);
        if (closed) {
            rig.client.close();
            ASSERT_TRUE(rig.server->waitClosed());
        } else {
            // What is written is the first to find the peer gone, as nothing is read any more.
            rig.server->reset();
            ASSERT_TRUE(eventually([&] {
                rig.client.send_msg(Ask(1), tls::send_option());
                return named.count() == 2;
            }));
            EXPECT_EQ(named.all()[1], "the peer sent what is no frame") << "the first cause stays";
        }
        EXPECT_TRUE(eventually([&] { return !rig.client.connected(); }));
        tls::statistics const all = rig.client.statistics();
        EXPECT_EQ(all.breaks_by_error, 1u);
        EXPECT_EQ(all.closes + all.breaks_by_peer + all.breaks_by_silence, 0u);
    }
}

TEST(ClientFailures, FunctionThatTellsAFailureFindsItsName) {
    ClientRig rig;
    Events named;
    tls::connect_option option = rig.option();
    option.set_on_error([&named](unsigned long long, unsigned short, int, char const *) {
        named.add("error: " + last_failure().message());
    });
    option.timedout.set_on_timedout([&named](unsigned long long, unsigned short, bool cancelled) {
        named.add((cancelled ? "cancelled: " : "timed out: ") + last_failure().message());
    });
    {
        ClientRig unanswered;
        tls::connect_option other = option;
        other.port = unanswered.peer.portText();
        other.timedout.wait_ms(1);
        EXPECT_EQ(endOf(unanswered.client, other), failure::timed_out);
        ASSERT_TRUE(named.wait(1));
    }
    rig.connect(option);
    auto const ask = [&](int wait_ms) {
        tls::send_option own = tracked(wait_ms);
        own.set_on_timedout([&named](unsigned long long, unsigned short, bool cancelled) {
            named.add((cancelled ? "send cancelled: " : "send timed out: ") + last_failure().message());
        });
        return rig.client.send_msg(Ask(1), own);
    };
    auto const late = ask(1);
    EXPECT_EQ(waitedHere(late), tls::result_timedout);
    EXPECT_EQ(last_failure(), failure::timed_out);
    EXPECT_FALSE(rig.client.send_msg(tavSharedPtr<tavMessage>(), tracked()));
    ASSERT_EQ(last_failure(), failure::encoding_failed);
    auto const cancelled = ask(60000);
    cancelled->cancel();
    EXPECT_EQ(last_failure(), failure::none) << "what it was before the function was called";
    auto const lost = ask(60000);
    for (int number = 1; number <= 3; ++number) {
        rig.receive();
    }
    rig.server->close();
    EXPECT_EQ(waitedHere(lost), tls::result_cancelled);
    EXPECT_EQ(last_failure(), failure::closed_by_peer);
    ASSERT_TRUE(named.wait(5));
    std::vector<std::string> all = named.all();
    std::sort(all.begin() + 3, all.end());
    EXPECT_EQ(all,
              (std::vector<std::string>{"timed out: timed out", "send timed out: timed out",
                                        "send cancelled: cancelled", "error: the peer closed the connection",
                                        "send cancelled: the peer closed the connection"}));
}

TEST(ClientFailures, WaitTellsWhyItsConnectFailed) {
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.port = "1";
    auto const info = rig.client.start(option);
    EXPECT_EQ(waitedHere(info), tls::result_error);
    EXPECT_EQ(last_failure(), failure::refused);
    std::error_code on_library_thread;
    Events done;
    option = rig.option();
    option.set_on_open([&] {
        auto const again = rig.client.reconnect(tls::timedout_option());
        EXPECT_EQ(waitedHere(again), tls::result_error);
        on_library_thread = last_failure();
        done.add("done");
    });
    auto const opened = rig.client.start(option);
    rig.server = rig.peer.accept();
    ASSERT_TRUE(rig.server->handshake());
    ASSERT_TRUE(done.wait(1));
    EXPECT_EQ(on_library_thread, failure::would_wait_for_itself);
}

TEST(ClientFailures, ProxyThatRefusesHasItsName) {
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.proxy_host = option.host;
    option.proxy_port = option.port;
    option.set_on_http_proxy_connect([](unsigned, char const *, unsigned short) { return 7; });
    option.timedout.wait_ms(200);
    EXPECT_EQ(endOf(rig.client, option), failure::proxy_refused);
}

TEST(ClientFailures, HostWithoutAnAddressIsNotFound) {
    Names names;
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.host = "nobody.test";
    EXPECT_EQ(endOf(rig.client, option), failure::host_not_found);
    EXPECT_EQ(names.asked(), std::vector<std::string>{"nobody.test"});
}

TEST(ClientFailures, PeerThatSpeaksNoTlsFailsTheHandshake) {
    ClientRig rig;
    auto const info = rig.client.start(rig.option());
    auto const server = rig.peer.accept();
    server->sendPlain("HTTP/1.1 400 Bad Request\r\n\r\n");
    EXPECT_EQ(resultOf(info), tls::result_error);
    EXPECT_EQ(info->error(), failure::handshake_failed);
}

TEST(ClientFailures, ErrorOfTlsOnAnOpenConnectionIsALostOne) {
    ClientRig rig;
    rig.connect();
    auto const waiting = rig.client.send_msg(Ask(1), tracked());
    rig.receive();
    rig.server->sendPlain("this is no record of TLS, whatever it is");
    EXPECT_EQ(resultOf(waiting), tls::result_cancelled);
    EXPECT_EQ(waiting->error(), failure::connection_lost);
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().breaks_by_error == 1; }));
}

TEST(ClientFailures, MessageThatCannotBeEncodedSaysSo) {
    ClientRig rig;
    rig.connect();
    EXPECT_FALSE(rig.client.send_msg(Raising(), tracked()));
    EXPECT_EQ(last_failure(), failure::encoding_failed);
    EXPECT_EQ(rig.client.statistics().sends_refused, 1u);
}

TEST(ClientFailures, SendAndWaitTellsItsOwn) {
    ClientRig rig;
    rig.connect();
    Answer ack;
    EXPECT_EQ(rig.client.send_and_wait(Ask(1), ack, 1), tls::result_timedout);
    EXPECT_EQ(last_failure(), failure::timed_out);
}

TEST(ClientFailures, WaitForNothingIsAFailure) {
    ClientRig rig;
    rig.connect();
    EXPECT_EQ(rig.client.send_and_wait(Ask(1), tavSharedPtr<tavMessage>(), 1000), tls::result_error);
    EXPECT_EQ(last_failure(), failure::other);
    EXPECT_EQ(rig.client.statistics().sends_refused, 1u);
}

TEST(ClientFailures, WaitForAReplyThatNeverEndsIsRefusedAndCounted) {
    ClientRig rig;
    Events done;
    tls::connect_option option = rig.option();
    option.set_on_open([&] {
        Answer answer;
        EXPECT_EQ(rig.client.send_and_wait(Ask(1), answer, 1000), tls::result_error);
        EXPECT_EQ(last_failure(), failure::would_wait_for_itself);
        done.add("done");
    });
    rig.connect(option);
    ASSERT_TRUE(done.wait(1));
    EXPECT_EQ(rig.client.statistics().sends_refused, 1u);
    EXPECT_EQ(rig.client.statistics().messages_sent, 0u);
}

TEST(ClientFailures, CallsThatAskLeaveTheLastOneAsItIs) {
    tls::client client("n");
    EXPECT_FALSE(client.send_msg(Ask(1), tracked()));
    EXPECT_FALSE(client.connected());
    EXPECT_EQ(client.statistics().sends_refused, 1u);
    client.close();
    EXPECT_EQ(last_failure(), failure::not_connected);
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
