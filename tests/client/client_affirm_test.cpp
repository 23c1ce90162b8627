#include "client/vinta_tls_client_impl.h"

#include "support/client_rig.h"
#include "support/log_capture.h"
#include "support/packet_bytes.h"

#include <gtest/gtest.h>

using namespace tav_test;

namespace {

Pkt asking(unsigned short code, unsigned long long sno, std::string body = bodyOf(5)) {
    Pkt out = mobile(code, sno, std::move(body));
    out.affirm = 0x20;
    return out;
}

class ClientAffirm : public ::testing::Test {
protected:
    void push(Pkt const & packet) { ASSERT_TRUE(rig.server->send(packet.framed())); }

    /// True if the next thing that the client sends is the receipt of a packet sent now: none came before it.
    bool nothingBefore() {
        push(asking(0x7000, 0x7777));
        Pkt const next = rig.receive();
        return next.code == 0x7000 && next.sno == 0x7777;
    }

    LogCapture log;
    ClientRig rig;
};

} // namespace

TEST_F(ClientAffirm, APacketThatAsksGetsItsReceiptByteForByte) {
    rig.connect();
    Pkt msg = asking(0x3001, 0x0102);
    msg.session = 0x1122334455667788ull;
    push(msg);
    EXPECT_EQ(hex(tav_istr(rig.server->receiveFrame())), "00043030010001021122334455667788");
}

TEST_F(ClientAffirm, TheReceiptKeepsVersionFlagsAndSession) {
    rig.connect();
    for (unsigned short const version : std::initializer_list<unsigned short>{1, 4, 5, 255}) {
        Pkt msg = asking(0x3001, 9);
        msg.version = version;
        msg.session = 77;
        std::string bytes = msg.bytes();
        bytes[5] = '\x83';
        rig.server->send(frame(bytes));
        std::string const receipt = rig.server->receiveFrame();
        Pkt const got = Pkt::of(receipt);
        EXPECT_EQ(got.version, version);
        EXPECT_EQ(receipt[5], '\x83');
        EXPECT_EQ(got.affirm, 0x30);
        EXPECT_EQ(got.code, 0x3001);
        EXPECT_EQ(got.sno, 9u);
        EXPECT_EQ(got.session, 77u);
        EXPECT_TRUE(got.body.empty());
    }
}

TEST_F(ClientAffirm, TheReceiptsExtensionTellsTheClientsTime) {
    rig.connect();
    Pkt msg = asking(0x3001, 9);
    msg.version = 6;
    msg.ext.serverTime = 123;
    msg.ext.clientTime = 4;
    msg.ext.traceId = tavString("trace");
    long long const before = tavTime::currentTimeMillis();
    push(msg);
    Pkt const got = rig.receive();
    EXPECT_EQ(got.version, 6);
    EXPECT_EQ(got.ext.serverTime.value(), 123);
    EXPECT_EQ(std::string(tav_istr(got.ext.traceId.value())), "trace");
    EXPECT_GE(got.ext.clientTime.value(), before);
    EXPECT_LE(got.ext.clientTime.value(), tavTime::currentTimeMillis());
    EXPECT_TRUE(got.body.empty());
}

TEST_F(ClientAffirm, AnExtensionIsMadeIfThereWasNone) {
    rig.connect();
    Pkt msg = asking(0x3001, 9);
    msg.version = 6;
    push(msg);
    Pkt const got = rig.receive();
    EXPECT_TRUE(got.ext.clientTime.has_value());
    EXPECT_FALSE(got.ext.serverTime.has_value());
    EXPECT_FALSE(got.ext.traceId.has_value());
}

TEST_F(ClientAffirm, TheHighNibbleTwoAsks) {
    rig.connect();
    for (unsigned char const affirm : std::initializer_list<unsigned char>{0x20, 0x21, 0x2f}) {
        Pkt msg = asking(0x3001, affirm);
        msg.affirm = affirm;
        push(msg);
        Pkt const got = rig.receive();
        EXPECT_EQ(got.sno, affirm);
        EXPECT_EQ(got.affirm, 0x30);
    }
}

TEST_F(ClientAffirm, NothingElseAsks) {
    rig.connect();
    Events got;
    rig.client.on_nbr_msg(0x3001, [&](unsigned long long sno, unsigned short, unsigned char const *, unsigned,
                                      tavMsgExt) { got.add(textOf(sno)); });
    for (unsigned char const affirm :
         std::initializer_list<unsigned char>{0x00, 0x02, 0x10, 0x1f, 0x30, 0x32, 0x60, 0xa0, 0xff}) {
        Pkt msg = mobile(0x3001, affirm);
        msg.affirm = affirm;
        push(msg);
    }
    push(old(5, 1));
    EXPECT_TRUE(nothingBefore());
    EXPECT_EQ(got.count(), 9u);
    EXPECT_EQ(log.count(" send back affirm"), 1u);
}

TEST_F(ClientAffirm, TheReceiptFollowsTheCallback) {
    rig.connect();
    Gate gate;
    rig.client.on_nbr_msg(
        0x3001, [&](unsigned long long, unsigned short, unsigned char const *, unsigned, tavMsgExt) {
            rig.client.send_nbr_msg(0x3002, nullptr, 0, tls::send_option());
            gate.pass();
        });
    push(asking(0x3001, 9));
    ASSERT_TRUE(gate.waitArrived());
    EXPECT_EQ(rig.receive().code, 0x3002);
    EXPECT_FALSE(log.contains(" send back affirm"));
    gate.open();
    EXPECT_EQ(rig.receive().code, 0x3001);
    EXPECT_TRUE(log.inOrder(
        {"<n> use type level callback 0x3001\n", "<n> on type level nbr msg \n", "<n> send back affirm"}));
}

TEST_F(ClientAffirm, TheReceiptIsLoggedWithItsPacketAndNotTracked) {
    rig.connect();
    Pkt msg = asking(0x3001, 9);
    msg.session = 0x1200000000000034ull;
    push(msg);
    rig.receive();
    LogCapture::Record const record = log.find("<n> send back affirm");
    EXPECT_EQ(record.level, tavLogger::INFO);
    EXPECT_NE(record.text.find("#9 0x3001 12***34 affirmed v4 [0]"), std::string::npos) << record.text;
    EXPECT_FALSE(log.contains(" add sending #"));
}

TEST_F(ClientAffirm, EachLevelGivesAReceipt) {
    tls::connect_option option = rig.option();
    Events got;
    option.set_nbr_msg_callback([&](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                    tavMsgExt) { got.add("global"); });
    rig.connect(option);
    rig.client.on_nbr_msg(0x3001, [&](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                      tavMsgExt) { got.add("type"); });
    rig.client.set_old_msg_default_callback([&](unsigned long long, unsigned short, unsigned char const *,
                                                unsigned, tavMsgExt) { got.add("old"); });
    tls::send_option tracked(20000, tls::timedout_function(), tls::error_function(),
                             tls::nbr_function([&](unsigned long long, unsigned short, unsigned char const *,
                                                   unsigned, tavMsgExt) { got.add("send"); }),
                             0x3005, false, 4);
    tracked.sno = 1;
    auto const info = rig.client.send_nbr_msg(0x3004, nullptr, 0, tracked);
    rig.receive();
    push(asking(0x3005, 1));
    EXPECT_EQ(rig.receive().code, 0x3005);
    EXPECT_EQ(resultOf(info), tls::result_ok);
    push(asking(0x3001, 2));
    EXPECT_EQ(rig.receive().code, 0x3001);
    push(asking(0x3002, 3));
    EXPECT_EQ(rig.receive().code, 0x3002);
    push(asking(0x0005, 4));
    Pkt const last = rig.receive();
    EXPECT_EQ(last.code, 5);
    EXPECT_EQ(last.version, 4);
    EXPECT_EQ(got.all(), (std::vector<std::string>{"send", "type", "global", "old"}));
}

TEST_F(ClientAffirm, WhatNobodyTookGetsAReceiptToo) {
    rig.connect();
    rig.client.on_msg(0x3002, tls::obj_function([](unsigned long long, tavMessage const &) {}));
    push(asking(0x3001, 1));
    EXPECT_EQ(rig.receive().sno, 1u);
    push(asking(0x3002, 2));
    EXPECT_EQ(rig.receive().sno, 2u);
    push(asking(0x0005, 3));
    EXPECT_EQ(rig.receive().sno, 3u);
}

TEST_F(ClientAffirm, AThrowingCallbackGivesNone) {
    rig.connect();
    rig.client.on_nbr_msg(0x3001, [](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                     tavMsgExt) { throw std::runtime_error("no"); });
    push(asking(0x3001, 1));
    EXPECT_TRUE(nothingBefore());
    EXPECT_TRUE(log.contains("<<< EXCEPTION >>> no"));
}

TEST_F(ClientAffirm, ABodyThatIsNotNbrGivesNone) {
    rig.connect();
    push(asking(0x3001, 1, "not nbr"));
    EXPECT_TRUE(nothingBefore());
    EXPECT_TRUE(log.contains("<<< EXCEPTION >>> "));
}

TEST_F(ClientAffirm, AfterCancelAllNoneGoesOut) {
    rig.connect();
    rig.client.cancel_all();
    ASSERT_TRUE(eventually([&] { return !rig.client.connected(); }));
    push(asking(0x3001, 1));
    ASSERT_TRUE(log.waitFor("<n> send back affirm"));
    ASSERT_TRUE(log.waitFor("<n> not connected\n"));
    EXPECT_TRUE(rig.server->quiet(0));
}

TEST_F(ClientAffirm, ReceiptsKeepTheOrderOfTheMessages) {
    rig.connect();
    std::string all;
    for (unsigned i = 1; i <= 100; ++i) {
        all += asking(0x3001, i).framed();
    }
    rig.server->send(all);
    for (unsigned i = 1; i <= 100; ++i) {
        ASSERT_EQ(rig.receive().sno, i);
    }
}

TEST(ClientAffirmGateway, CountsThemAsGood) {
    LogCapture log("clear(NONE)");
    GatewayRig rig;
    tls::client c("n");
    ASSERT_EQ(resultOf(c.start(rig.option())), tls::result_ok);
    ASSERT_TRUE(rig.gateway.wait([](tav::gateway::Stats const & s) { return s.open == 1; }));
    rig.gateway.push(0x3001, bodyOf(1), true);
    rig.gateway.push(0x3001, bodyOf(1), true, 6);
    rig.gateway.push(0x3001, "not nbr", true);
    rig.gateway.push(0x3001, bodyOf(1), true);
    EXPECT_TRUE(rig.gateway.wait([](tav::gateway::Stats const & s) { return s.receipts_good == 3; }));
    EXPECT_EQ(rig.gateway.stats().receipts_wrong, 0u);
    EXPECT_EQ(rig.gateway.stats().receipts_asked, 4u);
}
