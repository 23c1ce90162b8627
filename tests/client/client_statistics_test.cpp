#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"

#include <gtest/gtest.h>

using namespace tav_test;

namespace {

tls::send_option tracked(int wait_ms = 60000) {
    tls::send_option option(wait_ms, tls::timedout_function(), false, 4);
    option.ack = 0x1235;
    return option;
}

/// A number of the client's once it has come to what is wanted, or as it is by then: threads of the library's
/// count each in its own time.
unsigned long long counted(ClientRig const & rig, unsigned long long tls::statistics::*number,
                           unsigned long long wanted) {
    eventually([&] { return rig.client.statistics().*number == wanted; });
    return rig.client.statistics().*number;
}

} // namespace

TEST(ClientStatistics, NewClientHasDoneNothing) {
    tls::client client("n");
    tls::statistics const all = client.statistics();
    EXPECT_EQ(all.prometheus("n"), tls::statistics().prometheus("n"));
}

TEST(ClientStatistics, MessagesFramesAndBytesAreCountedEachWay) {
    ClientRig rig;
    rig.connect();
    rig.client.send_msg(Ask(1), tls::send_option());
    rig.client.send_msg(Ask(2), tls::send_option());
    std::size_t sent = 0;
    for (int i = 0; i < 2; ++i) {
        sent += rig.server->receiveFrame().size() + 4;
    }
    std::string const push = mobile(0x2345, 1).framed();
    rig.server->send(push);
    rig.server->send(push);
    rig.server->send(push);
    rig.server->send(frame(""));
    EXPECT_EQ(counted(rig, &tls::statistics::heartbeats_received, 1u), 1u);
    EXPECT_EQ(counted(rig, &tls::statistics::pushes, 3u), 3u);
    EXPECT_EQ(counted(rig, &tls::statistics::frames_sent, 2u), 2u);
    EXPECT_EQ(counted(rig, &tls::statistics::messages_sent, 2u), 2u);
    EXPECT_EQ(counted(rig, &tls::statistics::bytes_sent, sent), sent);
    EXPECT_EQ(counted(rig, &tls::statistics::messages_received, 3u), 3u);
    EXPECT_EQ(counted(rig, &tls::statistics::frames_received, 4u), 4u);
    EXPECT_EQ(counted(rig, &tls::statistics::bytes_received, 3 * push.size() + 4), 3 * push.size() + 4);
    EXPECT_EQ(counted(rig, &tls::statistics::replies, 0u), 0u);
    EXPECT_EQ(counted(rig, &tls::statistics::queued_frames, 0u), 0u);
    EXPECT_EQ(counted(rig, &tls::statistics::received_waiting, 0u), 0u);
}

TEST(ClientStatistics, SendsAreCountedByTheirEnd) {
    ClientRig rig;
    rig.connect();
    auto const answered = rig.client.send_msg(Ask(1), tracked());
    rig.server->send(mobile(0x1235, rig.receive().sno).framed());
    EXPECT_EQ(resultOf(answered), tls::result_ok);
    auto const late = rig.client.send_msg(Ask(2), tracked(1));
    EXPECT_EQ(resultOf(late), tls::result_timedout);
    auto const cancelled = rig.client.send_msg(Ask(3), tracked());
    cancelled->cancel();
    EXPECT_EQ(resultOf(cancelled), tls::result_cancelled);
    auto const waiting = rig.client.send_msg(Ask(4), tracked());
    EXPECT_EQ(counted(rig, &tls::statistics::replies, 1u), 1u);
    EXPECT_EQ(counted(rig, &tls::statistics::tracked_sends, 1u), 1u);
    rig.client.close();
    EXPECT_EQ(resultOf(waiting), tls::result_cancelled);
    EXPECT_FALSE(rig.client.send_msg(Ask(5), tracked()));
    EXPECT_EQ(counted(rig, &tls::statistics::sends_ok, 1u), 1u);
    EXPECT_EQ(counted(rig, &tls::statistics::sends_timedout, 1u), 1u);
    EXPECT_EQ(counted(rig, &tls::statistics::sends_cancelled, 2u), 2u);
    EXPECT_EQ(counted(rig, &tls::statistics::sends_refused, 1u), 1u);
    EXPECT_EQ(counted(rig, &tls::statistics::tracked_sends, 0u), 0u);
}

// The first message is more than sockets hold, so that what is behind it waits until the peer reads.
TEST(ClientStatistics, WhatWaitsToBeSentIsCountedToTheByte) {
    ClientRig rig;
    rig.connect();
    Ask long_one(1);
    long_one.text = tavString(std::string(15000000, 'x'));
    std::string const large = std::string(tav_istr(long_one.encode(true)));
    std::string const small = bodyOf(2);
    auto const send = [&](std::string const & body) {
        return rig.client.send_nbr_msg(0x1234, reinterpret_cast<unsigned char const *>(body.data()),
                                       static_cast<unsigned>(body.size()), tracked());
    };
    auto const first = send(large);
    auto const second = send(small);
    auto const third = send(small);
    ASSERT_TRUE(first && second && third);
    EXPECT_EQ(rig.client.statistics().queued_frames, 3u);
    EXPECT_EQ(rig.client.statistics().queued_bytes, large.size() + 2 * small.size());
    EXPECT_EQ(rig.client.statistics().tracked_sends, 3u);
    for (std::size_t const size : {large.size(), small.size(), small.size()}) {
        EXPECT_EQ(rig.receive().body.size(), size);
    }
    EXPECT_EQ(counted(rig, &tls::statistics::queued_frames, 0u), 0u);
    EXPECT_EQ(counted(rig, &tls::statistics::queued_bytes, 0u), 0u);
    EXPECT_EQ(counted(rig, &tls::statistics::tracked_sends, 3u), 3u);
    rig.client.cancel_all();
    EXPECT_EQ(resultOf(third), tls::result_cancelled);
    EXPECT_EQ(counted(rig, &tls::statistics::tracked_sends, 0u), 0u);
    EXPECT_EQ(counted(rig, &tls::statistics::sends_cancelled, 3u), 3u);
}

TEST(ClientStatistics, WhatWaitsForItsCallbackIsCountedToTheByte) {
    Gate gate;
    ClientRig rig;
    rig.client.on_nbr_msg(0x2345, [&](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                      tavMsgExt) { gate.pass(); });
    rig.connect();
    std::string const push = mobile(0x2345, 1).framed();
    rig.server->send(push);
    ASSERT_TRUE(gate.waitArrived());
    EXPECT_EQ(rig.client.statistics().received_waiting, 0u) << "its callback has begun";
    rig.server->send(push + push + push);
    EXPECT_EQ(counted(rig, &tls::statistics::received_waiting, 3u), 3u);
    EXPECT_EQ(counted(rig, &tls::statistics::received_waiting_bytes, 3 * (push.size() - 4)),
              3 * (push.size() - 4));
    gate.open();
    EXPECT_EQ(counted(rig, &tls::statistics::received_waiting, 0u), 0u);
    EXPECT_EQ(counted(rig, &tls::statistics::received_waiting_bytes, 0u), 0u);
}

TEST(ClientStatistics, WhatAConnectionLeavesAtItsEndWaitsNoMore) {
    Gate gate;
    ClientRig rig;
    rig.connect();
    rig.client.on_nbr_msg(0x2345, [&](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                      tavMsgExt) { gate.pass(); });
    std::string const push = mobile(0x2345, 1).framed();
    rig.server->send(push + push + push);
    ASSERT_TRUE(gate.waitArrived());
    rig.client.close();
    gate.open();
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().received_waiting == 0; }))
        << "what a close drops does not wait any more";
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().closes == 1; }));
}

TEST(ClientStatistics, ReceiptsAreCountedEachWay) {
    ClientRig rig;
    rig.connect();
    Pkt wanted = mobile(0x2345, 1);
    wanted.affirm = 0x20;
    rig.server->send(wanted.framed());
    EXPECT_EQ(rig.receive().affirm & 0xf0, 0x30);
    Pkt receipt = mobile(0x2345, 2);
    receipt.affirm = 0x30;
    rig.server->send(receipt.framed());
    EXPECT_EQ(counted(rig, &tls::statistics::receipts_received, 1u), 1u);
    EXPECT_EQ(counted(rig, &tls::statistics::receipts_sent, 1u), 1u);
}

TEST(ClientStatistics, ConnectsAndEndsAreCountedByCause) {
    ClientRig rig;
    rig.connect();
    rig.server->close();
    ASSERT_TRUE(rig.events.wait(2));
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().breaks_by_peer == 1; }));
    rig.reconnect();
    rig.server->reset();
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().breaks_by_error == 1; }));
    rig.reconnect();
    rig.client.close();
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().closes == 1; }));
    tls::connect_option nobody = rig.option();
    nobody.port = "1";
    EXPECT_EQ(resultOf(rig.client.start(nobody)), tls::result_error);
    EXPECT_EQ(counted(rig, &tls::statistics::connects_failed, 1u), 1u);
    EXPECT_EQ(counted(rig, &tls::statistics::connects_begun, 4u), 4u);
    EXPECT_EQ(counted(rig, &tls::statistics::connects_up, 3u), 3u);
    EXPECT_EQ(counted(rig, &tls::statistics::breaks_by_peer, 1u), 1u);
    EXPECT_EQ(counted(rig, &tls::statistics::breaks_by_error, 1u), 1u);
    EXPECT_EQ(counted(rig, &tls::statistics::closes, 1u), 1u);
    EXPECT_EQ(counted(rig, &tls::statistics::breaks_by_silence, 0u), 0u);
}

TEST(ClientStatistics, ConnectionThatIsReplacedIsAClose) {
    ClientRig rig;
    rig.connect();
    rig.reconnect();
    EXPECT_EQ(counted(rig, &tls::statistics::closes, 1u), 1u);
    rig.connect();
    EXPECT_EQ(counted(rig, &tls::statistics::closes, 2u), 2u);
    tls::statistics const all = rig.client.statistics();
    EXPECT_EQ(all.connects_begun, 3u);
    EXPECT_EQ(all.connects_up, 3u);
    EXPECT_EQ(all.connects_failed, 0u);
    EXPECT_EQ(all.breaks_by_peer + all.breaks_by_error + all.breaks_by_silence, 0u);
}

TEST(ClientStatistics, EachConnectThatFailsIsCountedOnce) {
    ClientRig rig;
    auto const ends = [&](tls::connect_option const & option, tls::result_type result) {
        EXPECT_EQ(resultOf(rig.client.start(option)), result);
    };
    auto const settled = [&](unsigned long long n) {
        return eventually([&] {
            tls::statistics const all = rig.client.statistics();
            return all.connects_begun == n && all.connects_failed == n;
        });
    };
    tls::connect_option option = rig.option();
    option.metainfo = "not } pml [";
    ends(option, tls::result_error);
    EXPECT_TRUE(settled(1)) << "a template that can't be read";
    option = rig.option();
    tls::tls_policy policy;
    policy.trusted_pem = "no certificate";
    option.set_tls_policy(policy);
    ends(option, tls::result_error);
    EXPECT_TRUE(settled(2)) << "a policy that can't be kept";
    option = rig.option();
    option.timedout.wait_ms(1);
    ends(option, tls::result_timedout);
    EXPECT_TRUE(settled(3)) << "no answer in time";
    // The peer that failed to answer is gone, so that the attempt ends a second time.
    rig.peer.accept()->reset();
    EXPECT_TRUE(rig.events.wait(4)) << "two bad options, the limit and the reset";
    EXPECT_TRUE(settled(3));
    option = rig.option();
    option.proxy_host = option.host;
    option.proxy_port = option.port;
    option.set_on_http_proxy_connect([](unsigned, char const *, unsigned short) { return 7; });
    option.timedout.wait_ms(200);
    EXPECT_NE(resultOf(rig.client.start(option)), tls::result_ok);
    EXPECT_TRUE(settled(4)) << "a proxy that refuses";
    EXPECT_EQ(rig.client.statistics().connects_up, 0u);
}

TEST(ClientStatistics, LongestCallbackIsKept) {
    ClientRig rig;
    rig.client.on_nbr_msg(
        0x2345, [](unsigned long long, unsigned short, unsigned char const *, unsigned, tavMsgExt) {
            auto const end = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
            while (std::chrono::steady_clock::now() < end) {
            }
        });
    rig.connect();
    rig.server->send(mobile(0x2345, 1).framed());
    EXPECT_TRUE(eventually([&] { return rig.client.statistics().longest_callback_us >= 20000; }));
    ASSERT_TRUE(rig.settle());
    EXPECT_GE(rig.client.statistics().longest_callback_us, 20000u);
}
