#include "client/vinta_tls_client_impl.h"

#include "support/client_rig.h"
#include "support/log_capture.h"
#include "support/packet_bytes.h"

#include <gtest/gtest.h>

#include <thread>

using namespace tav_test;

namespace {

using std::to_string;

std::string textOfBytes(unsigned char const * data, unsigned size) {
    return hex(tav_istr(data, size));
}

std::string extText(tavMsgExt const & ext) {
    return std::string(ext.serverTime.has_value() ? " server " + to_string(ext.serverTime.value()) : "") +
           (ext.clientTime.has_value() ? " client " + to_string(ext.clientTime.value()) : "") +
           (ext.traceId.has_value() ? " trace " + std::string(tav_istr(ext.traceId.value())) : "");
}

tavMsgExt wholeExt() {
    tavMsgExt ext;
    ext.serverTime = 11;
    ext.clientTime = 12;
    ext.traceId = tavString("t");
    return ext;
}

/// Recording functions of each kind, under a level's name.
struct Recorder {
    Events & events;
    std::string level;

    tls::nbr_function nbr() const {
        return [events = &events, level = level](unsigned long long sno, unsigned short code,
                                                 unsigned char const * data, unsigned size, tavMsgExt ext) {
            events->add(level + " nbr " + to_string(sno) + " " + to_string(code) + " " +
                        textOfBytes(data, size) + extText(ext));
        };
    }
    tls::json_function json() const {
        return [events = &events, level = level](unsigned long long sno, unsigned short code,
                                                 char const * json, tavMsgExt ext) {
            events->add(level + " json " + to_string(sno) + " " + to_string(code) + " " + json +
                        extText(ext));
        };
    }
    tls::obj_function obj() const {
        return [events = &events, level = level](unsigned long long sno, tavMessage const & msg) {
            events->add(level + " obj " + to_string(sno) + " " + to_string(msg.sno) + " " +
                        to_string(msg.msgcode()) + " " + to_string(dynamic_cast<Ask const &>(msg).number) +
                        extText(msg.ext));
        };
    }
    tls::ptr_function ptr() const {
        return [events = &events, level = level](unsigned long long sno, tavSharedPtr<tavMessage> msg) {
            events->add(level + " ptr " + to_string(sno) + " " + to_string(msg->sno) + " " +
                        to_string(msg->msgcode()) + " " + to_string(dynamic_cast<Ask const &>(*msg).number) +
                        extText(msg->ext));
        };
    }
};

/// A client whose registered code is Ask's own, with recorders for the three levels.
class ClientDispatch : public ::testing::Test {
protected:
    void connect() { connect(rig.option()); }
    void connect(tls::connect_option const & option) { rig.connect(option); }

    /// Sends a message that waits for a reply of this code, and takes it at the far end.
    std::shared_ptr<tls::send_info> track(tls::message_callback const & callback, unsigned short ack,
                                          unsigned long long sno, int wait_ms = 20000) {
        tls::send_option option(tls::timedout_option(wait_ms), tls::error_function(), callback, ack, false,
                                4);
        option.sno = sno;
        auto const info = rig.client.send_nbr_msg(0x3000, nullptr, 0, option);
        rig.receive();
        return info;
    }
    void push(Pkt const & packet) { ASSERT_TRUE(rig.server->send(packet.framed())); }
    std::vector<std::string> settled() {
        EXPECT_TRUE(rig.settle());
        return got.all();
    }

    LogCapture log;
    Events got;
    Recorder const send{got, "send"};
    Recorder const type{got, "type"};
    Recorder const global{got, "global"};
    ClientRig rig;
};

using All = std::vector<std::string>;

std::string const five = hex(bodyOf(5));

} // namespace

TEST_F(ClientDispatch, TheSendThatWaitsComesFirst) {
    rig.client.on_nbr_msg(0x3001, type.nbr());
    tls::connect_option option = rig.option();
    option.set_nbr_msg_callback(global.nbr());
    connect(option);
    auto const info = track(send.nbr(), 0x3001, 7);
    push(mobile(0x3001, 7));
    EXPECT_EQ(settled(), (All{"send nbr 7 12289 " + five}));
    EXPECT_EQ(info->result(), tls::result_ok);
    push(mobile(0x3001, 7));
    EXPECT_EQ(settled().back(), "type nbr 7 12289 " + five);
}

TEST_F(ClientDispatch, TheTypeLevelComesBeforeTheGlobalOneAndStays) {
    rig.client.on_nbr_msg(0x3001, type.nbr());
    tls::connect_option option = rig.option();
    option.set_nbr_msg_callback(global.nbr());
    connect(option);
    push(mobile(0x3001, 1));
    push(mobile(0x3002, 2));
    push(mobile(0x3001, 3));
    EXPECT_EQ(settled(),
              (All{"type nbr 1 12289 " + five, "global nbr 2 12290 " + five, "type nbr 3 12289 " + five}));
}

TEST_F(ClientDispatch, AReplyOfAnotherCodeLeavesTheSendWaiting) {
    rig.client.on_nbr_msg(0x3009, type.nbr());
    tls::connect_option option = rig.option();
    option.set_nbr_msg_callback(global.nbr());
    connect(option);
    auto const info = track(send.nbr(), 0x3001, 7);
    push(mobile(0x3009, 7));
    push(mobile(0x300a, 7));
    push(mobile(0x3001, 8));
    EXPECT_EQ(settled(),
              (All{"type nbr 7 12297 " + five, "global nbr 7 12298 " + five, "global nbr 8 12289 " + five}));
    EXPECT_EQ(info->result(), tls::result_unknown);
    push(mobile(0x3001, 7));
    EXPECT_EQ(resultOf(info), tls::result_ok);
}

TEST_F(ClientDispatch, ALateReplyGoesToTheTypeOrGlobalLevel) {
    tls::connect_option option = rig.option();
    option.set_nbr_msg_callback(global.nbr());
    connect(option);
    auto const info = track(send.nbr(), 0x3001, 7);
    info->cancel();
    EXPECT_EQ(info->result(), tls::result_cancelled);
    push(mobile(0x3001, 7));
    EXPECT_EQ(settled(), (All{"global nbr 7 12289 " + five}));
}

TEST_F(ClientDispatch, SendLevelGivesEachKindItsArguments) {
    rig.client.register_message(0x3001, &Ask::create);
    connect();
    Pkt reply = mobile(0x3001, 1);
    reply.version = 6;
    reply.ext = wholeExt();
    tls::message_callback const kinds[] = {send.nbr(), send.ptr(), send.obj(), send.json()};
    for (tls::message_callback const & kind : kinds) {
        auto const info = track(kind, 0x3001, ++reply.sno);
        push(reply);
        EXPECT_EQ(resultOf(info), tls::result_ok);
    }
    std::string const ext = " server 11 client 12 trace t";
    EXPECT_EQ(settled(), (All{"send nbr 2 12289 " + five + ext, "send ptr 3 3 4660 5" + ext,
                              "send obj 4 4 4660 5" + ext, "send json 5 12289 null" + ext}));
    EXPECT_TRUE(log.inOrder({"<n> use send level callback \n", "send level on nbr #2 0x3001",
                             "<n> on send level nbr ack \n", "<n> use send level callback \n",
                             "send level on ptr #3 0x1234", "<n> on send level ptr ack \n",
                             "<n> use send level callback \n", "send level on obj #4 0x1234",
                             "<n> on send level object ack \n", "<n> use send level callback \n",
                             "<n> on send level json ack \n", "send level on json #5 0x3001 [4]"}));
}

TEST_F(ClientDispatch, TypeLevelGivesEachKindItsArguments) {
    rig.client.register_message(0x3001, &Ask::create);
    connect();
    Pkt msg = mobile(0x3001, 1);
    msg.version = 6;
    msg.ext = wholeExt();
    auto const next = [&] {
        ++msg.sno;
        push(msg);
        EXPECT_TRUE(rig.settle());
    };
    rig.client.on_nbr_msg(0x3001, type.nbr());
    next();
    rig.client.on_msg(0x3001, type.ptr());
    next();
    rig.client.on_msg(0x3001, type.obj());
    next();
    rig.client.on_json_msg(0x3001, type.json());
    next();
    std::string const ext = " server 11 client 12 trace t";
    EXPECT_EQ(got.all(), (All{"type nbr 2 12289 " + five + ext, "type ptr 3 3 4660 5" + ext,
                              "type obj 4 4 4660 5" + ext, "type json 5 12289 null" + ext}));
    EXPECT_TRUE(log.inOrder({"<n> use type level callback 0x3001\n", "<n> on type level nbr msg \n",
                             "<n> use type level callback 0x3001\n", "<n> on type level ptr msg \n",
                             "<n> use type level callback 0x3001\n", "<n> on type level object msg \n",
                             "<n> use type level callback 0x3001\n", "<n> on type level json msg \n",
                             "type level on json #5 0x3001 [4]"}));
}

TEST_F(ClientDispatch, GlobalLevelGivesEachKindItsArguments) {
    rig.client.register_message(0x3001, &Ask::create);
    Pkt msg = mobile(0x3001, 1);
    msg.version = 6;
    msg.ext = wholeExt();
    tls::connect_option option = rig.option();
    auto const next = [&] {
        connect(option);
        ++msg.sno;
        push(msg);
        EXPECT_TRUE(rig.settle());
    };
    option.set_nbr_msg_callback(global.nbr());
    next();
    option.set_ptr_msg_callback(global.ptr());
    next();
    option.set_obj_msg_callback(global.obj());
    next();
    option.set_json_msg_callback(global.json());
    next();
    std::string const ext = " server 11 client 12 trace t";
    EXPECT_EQ(got.all(), (All{"global nbr 2 12289 " + five + ext, "global ptr 3 3 4660 5" + ext,
                              "global obj 4 4 4660 5" + ext, "global json 5 12289 null" + ext}));
    EXPECT_TRUE(log.inOrder({"<n> use global callback \n", "<n> on global level nbr msg \n",
                             "<n> use global callback \n", "<n> on global level ptr msg \n",
                             "<n> use global callback \n", "<n> on global level object msg \n",
                             "<n> use global callback \n", "<n> on global level json msg \n",
                             "global level on json #5 0x3001 [4]"}));
}

TEST_F(ClientDispatch, AnObjectCallbackWithoutAClassLosesTheMessageAtTheSendLevel) {
    rig.client.on_nbr_msg(0x3001, type.nbr());
    connect();
    auto const object = track(send.obj(), 0x3001, 7);
    push(mobile(0x3001, 7));
    EXPECT_EQ(resultOf(object), tls::result_ok);
    auto const pointer = track(send.ptr(), 0x3001, 8);
    push(mobile(0x3001, 8));
    EXPECT_EQ(resultOf(pointer), tls::result_ok);
    EXPECT_EQ(settled(), All{});
    EXPECT_EQ(log.count("<n> on send level json ack \n"), 2u);
}

TEST_F(ClientDispatch, AnObjectCallbackWithoutAClassLosesTheMessageAtTheTypeLevel) {
    tls::connect_option option = rig.option();
    option.set_nbr_msg_callback(global.nbr());
    connect(option);
    rig.client.on_msg(0x3001, type.obj());
    push(mobile(0x3001, 1));
    EXPECT_EQ(settled(), All{});
    rig.client.on_msg(0x3001, type.ptr());
    push(mobile(0x3001, 2));
    EXPECT_EQ(settled(), All{});
    EXPECT_EQ(log.count("<n> on type level json msg \n"), 2u);
    // So does a callback without a function: it is there.
    rig.client.on_nbr_msg(0x3001, tls::nbr_function());
    push(mobile(0x3001, 3));
    EXPECT_EQ(settled(), All{});
}

TEST_F(ClientDispatch, AnObjectCallbackWithoutAClassLosesTheMessageAtTheGlobalLevel) {
    tls::connect_option option = rig.option();
    option.set_obj_msg_callback(global.obj());
    connect(option);
    push(mobile(0x3001, 1));
    EXPECT_EQ(settled(), All{});
    EXPECT_EQ(log.count("<n> on global level json msg \n"), 1u);
    rig.client.register_message(0x3001, &Ask::create);
    push(mobile(0x3001, 2));
    EXPECT_EQ(settled(), (All{"global obj 2 2 4660 5"}));
    rig.client.unregister_message(0x3001);
    push(mobile(0x3001, 3));
    EXPECT_EQ(settled().size(), 1u);
}

TEST_F(ClientDispatch, AMessageThatIsLostForLackOfAClassIsToldAtEachLevel) {
    std::string const rest = " is lost: its callback takes objects, and no class is registered for the code; "
                             "register one with register_message, or take the message as NBR or JSON\n";
    tls::connect_option option = rig.option();
    option.set_ptr_msg_callback(global.ptr());
    connect(option);
    track(send.obj(), 0x3001, 7);
    push(mobile(0x3001, 7));
    rig.client.on_msg(0x3002, type.ptr());
    push(mobile(0x3002, 1));
    push(mobile(0x3003, 1));
    EXPECT_EQ(settled(), All{});
    for (char const * const code : {"3001", "3002", "3003"}) {
        LogCapture::Record const record = log.find("<n> message 0x" + std::string(code) + rest);
        EXPECT_EQ(record.level, tavLogger::WARN) << code;
    }
    EXPECT_EQ(log.count(rest), 3u);
}

TEST_F(ClientDispatch, AMessageThatACallbackTakesOrNoneIsThereForIsNotToldAsLost) {
    rig.client.register_message(0x3001, &Ask::create);
    rig.client.on_msg(0x3001, type.obj());
    rig.client.on_nbr_msg(0x3002, type.nbr());
    rig.client.on_json_msg(0x3003, type.json());
    connect();
    for (unsigned short const code : std::initializer_list<unsigned short>{0x3001, 0x3002, 0x3003, 0x3004}) {
        push(mobile(code, 1));
    }
    EXPECT_EQ(settled().size(), 3u);
    EXPECT_FALSE(log.contains(" is lost: "));
}

TEST_F(ClientDispatch, ASendWithoutACallbackEndsAllTheSame) {
    rig.client.on_nbr_msg(0x3001, type.nbr());
    connect();
    auto const info = track(tls::message_callback(), 0x3001, 7);
    push(mobile(0x3001, 7));
    EXPECT_EQ(resultOf(info), tls::result_ok);
    EXPECT_EQ(settled(), All{});
    EXPECT_TRUE(log.inOrder(
        {"<n> use send level callback \n", "<n> on send level json ack \n", "<n> removed waiting msg #7"}));
}

TEST_F(ClientDispatch, TheSendEndsAfterItsCallback) {
    connect();
    Gate gate;
    auto const info = track(tls::nbr_function([&](unsigned long long, unsigned short, unsigned char const *,
                                                  unsigned, tavMsgExt) { gate.pass(); }),
                            0x3001, 7);
    push(mobile(0x3001, 7));
    ASSERT_TRUE(gate.waitArrived());
    EXPECT_EQ(info->result(), tls::result_unknown);
    gate.open();
    EXPECT_EQ(resultOf(info), tls::result_ok);
    EXPECT_LT(info->option().wait_ms(), 0);
    EXPECT_TRUE(info->option().callback_.empty());
}

TEST_F(ClientDispatch, ACallbackThatSendsUnderItsOwnNumberGetsThatReplyToo) {
    connect();
    std::shared_ptr<tls::send_info> second;
    tls::nbr_function const again = [&](unsigned long long sno, unsigned short, unsigned char const *,
                                        unsigned, tavMsgExt) {
        tls::send_option option(20000, tls::timedout_function(), tls::error_function(), send.nbr(), 0x3001,
                                false, 4);
        option.sno = sno;
        second = rig.client.send_nbr_msg(0x3000, nullptr, 0, option);
        // The new send is under way before this callback, and with it the first send, ends.
        rig.receive();
    };
    auto const first = track(again, 0x3001, 7);
    push(mobile(0x3001, 7));
    EXPECT_EQ(resultOf(first), tls::result_ok);
    ASSERT_TRUE(rig.settle());
    ASSERT_TRUE(second);
    EXPECT_EQ(second->result(), tls::result_unknown);
    push(mobile(0x3001, 7));
    EXPECT_EQ(resultOf(second), tls::result_ok);
    EXPECT_EQ(settled(), (All{"send nbr 7 12289 " + five}));
}

TEST_F(ClientDispatch, RepliesMatchBySixteenBitsInMobilePackets) {
    connect();
    auto const info = track(send.nbr(), 0x3001, 0x123457ull);
    EXPECT_EQ(info->sno(), 0x3457u);
    push(mobile(0x3001, 0x3457));
    EXPECT_EQ(resultOf(info), tls::result_ok);
    EXPECT_EQ(settled(), (All{"send nbr 13399 12289 " + five}));
}

TEST_F(ClientDispatch, RepliesMatchByAllBitsInOldPackets) {
    connect();
    tls::send_option option(20000, tls::timedout_function(), tls::error_function(), send.nbr(), 0x06, false,
                            4);
    option.sno = 0x1122334455667788ull;
    auto const info = rig.client.send_nbr_msg(0x05, nullptr, 0, option);
    EXPECT_EQ(rig.receive().sno, 0x1122334455667788ull);
    rig.client.set_old_msg_default_callback(type.nbr());
    push(old(0x06, 0x7788));
    push(old(0x06, 0x1122334455667788ull));
    EXPECT_EQ(resultOf(info), tls::result_ok);
    EXPECT_EQ(settled(), (All{"type nbr 30600 6 " + five, "send nbr 1234605616436508552 6 " + five}));
}

TEST_F(ClientDispatch, OldMessagesGoToTheirOwnCallbackAndArriveWidened) {
    tls::connect_option option = rig.option();
    option.set_nbr_msg_callback(global.nbr());
    connect(option);
    rig.client.set_old_msg_default_callback(Recorder{got, "old"}.nbr());
    push(old(0x00, 1));
    push(old(0x7f, 2));
    push(old(0x80, 3));
    push(old(0x91, 4));
    push(old(0xff, 5));
    EXPECT_EQ(settled(), (All{"old nbr 1 0 " + five, "old nbr 2 127 " + five, "old nbr 3 65408 " + five,
                              "old nbr 4 65425 " + five, "old nbr 5 65535 " + five}));
    EXPECT_EQ(log.count("<n> on_old_nbr_msg_ not null\n"), 5u);
    EXPECT_TRUE(log.inOrder({"<n> use global callback \n", "<n> on_old_nbr_msg_ not null\n"}));
}

TEST_F(ClientDispatch, OldMessagesWithoutTheirCallbackReachNobody) {
    tls::connect_option option = rig.option();
    option.set_nbr_msg_callback(global.nbr());
    connect(option);
    push(old(0x91, 1));
    EXPECT_EQ(settled(), All{});
    EXPECT_TRUE(log.inOrder({"<n> use global callback \n", "<n> on_old_nbr_msg_ is null\n"}));
    rig.client.set_old_msg_default_callback(Recorder{got, "old"}.nbr());
    rig.client.set_old_msg_default_callback(tls::nbr_function());
    push(old(0x91, 2));
    EXPECT_EQ(settled(), All{});
}

TEST_F(ClientDispatch, OldMessagesAtTheTypeLevelKeepTheirCode) {
    connect();
    rig.client.set_old_msg_default_callback(Recorder{got, "old"}.nbr());
    rig.client.on_nbr_msg(0x91, type.nbr());
    push(old(0x91, 1));
    EXPECT_EQ(settled(), (All{"type nbr 1 145 " + five}));
    rig.client.register_message(0x91, &Ask::create);
    rig.client.on_msg(0x91, type.ptr());
    push(old(0x91, 2));
    EXPECT_EQ(settled().back(), "type ptr 2 2 4660 5");
}

TEST_F(ClientDispatch, OldMessagesGiveNoExtension) {
    connect();
    rig.client.set_old_msg_default_callback(Recorder{got, "old"}.nbr());
    // A code below 0x100 in a packet that has an extension.
    Pkt msg = mobile(0x0091, 1);
    msg.version = 6;
    msg.ext = wholeExt();
    push(msg);
    EXPECT_EQ(settled(), (All{"old nbr 1 65425 " + five}));
}

TEST_F(ClientDispatch, WithoutAnyCallbackTheMessageIsLostQuietly) {
    connect();
    push(mobile(0x3001, 1));
    EXPECT_EQ(settled(), All{});
    EXPECT_TRUE(log.inOrder(
        {"<n> recv pkt #1 0x3001", "<n> use global callback \n", "<n> on global level json msg \n"}));
    EXPECT_FALSE(log.contains("EXCEPTION"));
}

TEST_F(ClientDispatch, TheServersSessionGoesIntoWhatIsSent) {
    connect();
    Events done;
    rig.client.on_nbr_msg(0x3001, [&](unsigned long long, unsigned short, unsigned char const *, unsigned,
                                      tavMsgExt) { done.add("done"); });
    Pkt msg = mobile(0x3001, 1);
    msg.session = 0xfedcba9876543210ull;
    push(msg);
    ASSERT_TRUE(done.wait(1));
    rig.client.send_nbr_msg(0x3002, nullptr, 0, tls::send_option());
    EXPECT_EQ(rig.receive().session, 0xfedcba9876543210ull);
    // A packet's session counts before its body is looked at.
    msg.session = 5;
    msg.body = "hello";
    push(msg);
    ASSERT_TRUE(log.waitFor("<<< EXCEPTION >>> "));
    rig.client.send_nbr_msg(0x3002, nullptr, 0, tls::send_option());
    EXPECT_EQ(rig.receive().session, 5u);
}

TEST_F(ClientDispatch, TheLogShowsAnObjectOrItsNbr) {
    rig.client.register_message(0x3001, &Ask::create);
    connect();
    Pkt msg = mobile(0x3001, 7);
    msg.session = 0x1200000000000034ull;
    push(msg);
    msg.code = 0x3002;
    push(msg);
    ASSERT_TRUE(rig.settle());
    std::string const ends =
        " /127.0.***:" + rig.client.get_local_addr().port + "<->127.0.***:" + rig.peer.portText();
    LogCapture::Record const object = log.find("<n> recv pkt #7 0x3001 12***34 v4 [");
    EXPECT_EQ(object.level, tavLogger::INFO);
    EXPECT_NE(object.text.find(ends + " obj @Msg{"), std::string::npos) << object.text;
    LogCapture::Record const nbr = log.find("<n> recv pkt #7 0x3002 12***34 v4 [");
    EXPECT_EQ(nbr.level, tavLogger::INFO);
    EXPECT_NE(nbr.text.find(ends + " nbr "), std::string::npos) << nbr.text;
    LogCapture::Record const dump = log.find("<n> recv buf /\n");
    EXPECT_EQ(dump.level, tavLogger::VERBOSE);
    EXPECT_TRUE(log.inOrder({"<n> recv buf /\n", "<n> recv pkt #7 0x3001", "<n> use global callback \n",
                             "<n> recv buf /\n", "<n> recv pkt #7 0x3002", "<n> use global callback \n"}));
}

TEST_F(ClientDispatch, AShortFrameIsDropped) {
    tls::connect_option option = rig.option();
    option.set_nbr_msg_callback(global.nbr());
    connect(option);
    std::string const sixteen = mobile(0x3001, 1, "").bytes();
    ASSERT_EQ(sixteen.size(), 16u);
    rig.server->send(frame(sixteen.substr(0, 1)) + frame(sixteen.substr(0, 15)));
    EXPECT_EQ(settled(), All{});
    EXPECT_EQ(log.count("<n> nbr buf too small\n"), 2u);
    EXPECT_EQ(log.find("<n> nbr buf too small\n").level, tavLogger::ERROR);
    EXPECT_FALSE(log.contains("recv pkt #1 "));
    rig.server->send(frame(sixteen));
    EXPECT_EQ(settled(), (All{"global nbr 1 12289 "}));
}

TEST_F(ClientDispatch, AnEmptyFrameReachesNoCallback) {
    tls::connect_option option = rig.option();
    option.set_nbr_msg_callback(global.nbr());
    connect(option);
    rig.server->send(frame("") + frame(""));
    EXPECT_EQ(settled(), All{});
    EXPECT_EQ(log.count("<n> empty body\n"), 2u);
}

TEST_F(ClientDispatch, AnOldPacketWithAWrongHeadIsDroppedInOneLine) {
    tls::connect_option option = rig.option();
    option.set_nbr_msg_callback(global.nbr());
    connect(option);
    rig.client.set_old_msg_default_callback(Recorder{got, "old"}.nbr());
    std::string bytes = old(5, 1).bytes();
    bytes[0] = '\1';
    rig.server->send(frame(bytes));
    EXPECT_EQ(settled(), All{});
    EXPECT_EQ(log.count("invalid data "), 1u);
    EXPECT_FALSE(log.contains("EXCEPTION"));
    EXPECT_FALSE(log.contains("recv pkt #1 "));
}

TEST_F(ClientDispatch, TheSecondByteSelectsTheLayout) {
    connect();
    rig.client.on_nbr_msg(0x3001, type.nbr());
    rig.client.on_nbr_msg(5, type.nbr());
    Pkt seven = mobile(0x3001, 1);
    seven.version = 7;
    push(seven);
    push(old(5, 2));
    EXPECT_EQ(settled(), (All{"type nbr 1 12289 " + five, "type nbr 2 5 " + five}));
}

TEST_F(ClientDispatch, ABodyThatIsNotNbrIsDroppedBeforeAnyCallback) {
    rig.client.on_nbr_msg(0x3001, type.nbr());
    tls::connect_option option = rig.option();
    option.set_nbr_msg_callback(global.nbr());
    connect(option);
    rig.client.set_old_msg_default_callback(Recorder{got, "old"}.nbr());
    auto const info = track(send.nbr(), 0x3005, 7, 400);
    for (std::string const & bad : {std::string("\x05\x01"), std::string("hello"), std::string("\xf5\x01")}) {
        push(mobile(0x3001, 1, bad));
        push(mobile(0x3002, 1, bad));
        push(mobile(0x3005, 7, bad));
        push(old(5, 1, bad));
    }
    EXPECT_EQ(settled(), All{});
    EXPECT_EQ(log.count("<<< EXCEPTION >>> "), 12u);
    LogCapture::Record const record = log.find("<<< EXCEPTION >>> ");
    EXPECT_EQ(record.level, tavLogger::ERROR);
    EXPECT_NE(record.text.find("\n    catch at "), std::string::npos);
    EXPECT_NE(record.text.find("on_recv"), std::string::npos) << record.text;
    EXPECT_EQ(resultOf(info), tls::result_timedout);
    push(mobile(0x3001, 2));
    EXPECT_EQ(settled(), (All{"type nbr 2 12289 " + five}));
}

TEST_F(ClientDispatch, ARegisteredClassThatDoesNotFitIsDropped) {
    rig.client.register_message(0x3001, &Ask::create);
    rig.client.on_nbr_msg(0x3001, type.nbr());
    connect();
    push(mobile(0x3001, 1, "no nbr"));
    EXPECT_EQ(settled(), All{});
    EXPECT_EQ(log.count("<<< EXCEPTION >>> "), 1u);
}

TEST_F(ClientDispatch, ACreatorOfNoMessageCountsAsNone) {
    rig.client.register_message(0x3001, [] { return new tavMsgExt; });
    rig.client.register_message(0x3002, [] { return static_cast<tavObject *>(nullptr); });
    rig.client.on_msg(0x3001, type.ptr());
    rig.client.on_json_msg(0x3002, type.json());
    connect();
    push(mobile(0x3001, 1));
    push(mobile(0x3002, 2));
    EXPECT_EQ(settled(), (All{"type json 2 12290 null"}));
}

TEST_F(ClientDispatch, ACallbackThatThrowsLosesItsOwnMessageOnly) {
    rig.client.register_message(0x3001, &Ask::create);
    connect();
    unsigned n = 0;
    rig.client.on_nbr_msg(
        0x3001, [&](unsigned long long sno, unsigned short, unsigned char const *, unsigned, tavMsgExt) {
            got.add(to_string(sno));
            if (++n == 1) {
                throw std::runtime_error("from the callback");
            }
            if (n == 2) {
                throw 42;
            }
        });
    push(mobile(0x3001, 1));
    push(mobile(0x3001, 2));
    push(mobile(0x3001, 3));
    EXPECT_EQ(settled(), (All{"1", "2", "3"}));
    LogCapture::Record const record = log.find("<<< EXCEPTION >>> from the callback\n    catch at ");
    EXPECT_EQ(record.level, tavLogger::ERROR);
    EXPECT_EQ(log.count("<<< EXCEPTION >>> "), 2u);
    EXPECT_TRUE(rig.client.connected());
}

TEST_F(ClientDispatch, ASendWhoseCallbackThrowsEndsByItsLimit) {
    rig.client.on_nbr_msg(0x3001, type.nbr());
    connect();
    auto const info = track(tls::nbr_function([&](unsigned long long, unsigned short, unsigned char const *,
                                                  unsigned, tavMsgExt) {
                                got.add("called");
                                throw std::runtime_error("from the callback");
                            }),
                            0x3001, 7, 500);
    push(mobile(0x3001, 7));
    EXPECT_EQ(settled(), (All{"called"}));
    EXPECT_EQ(resultOf(info), tls::result_timedout);
}

TEST_F(ClientDispatch, GlobalAndOldCallbacksMayThrowToo) {
    tls::connect_option option = rig.option();
    option.set_json_msg_callback([](unsigned long long, unsigned short, char const *, tavMsgExt) {
        throw std::runtime_error("from global");
    });
    connect(option);
    rig.client.set_old_msg_default_callback([](unsigned long long, unsigned short, unsigned char const *,
                                               unsigned,
                                               tavMsgExt) { throw std::runtime_error("from old"); });
    push(mobile(0x3001, 1));
    push(old(5, 1));
    ASSERT_TRUE(rig.settle());
    EXPECT_TRUE(log.contains("<<< EXCEPTION >>> from global"));
    EXPECT_TRUE(log.contains("<<< EXCEPTION >>> from old"));
}

TEST_F(ClientDispatch, MessagesComeOneAtATimeInTheirOrderOnTheReceiver) {
    std::atomic<int> inside{0};
    std::string threads;
    std::vector<unsigned long long> order;
    tls::connect_option option = rig.option();
    option.set_nbr_msg_callback(
        [&](unsigned long long sno, unsigned short, unsigned char const *, unsigned, tavMsgExt) {
            EXPECT_EQ(inside.fetch_add(1), 0);
            threads = threadName();
            order.push_back(sno);
            --inside;
        });
    connect(option);
    std::string all;
    for (unsigned i = 1; i <= 200; ++i) {
        all += mobile(0x3001, i).framed();
    }
    rig.server->send(all);
    ASSERT_TRUE(rig.settle());
    ASSERT_EQ(order.size(), 200u);
    for (unsigned i = 0; i < 200; ++i) {
        EXPECT_EQ(order[i], i + 1);
    }
    EXPECT_EQ(threads, "<n>session.0.receiver");
}

TEST_F(ClientDispatch, ACallbackMayReplaceItselfAndRegister) {
    connect();
    rig.client.on_nbr_msg(
        0x3001, [&](unsigned long long, unsigned short, unsigned char const *, unsigned, tavMsgExt) {
            std::string const mine = "first";
            rig.client.on_msg(0x3001, type.ptr());
            rig.client.register_message(0x3001, &Ask::create);
            rig.client.set_old_msg_default_callback(Recorder{got, "old"}.nbr());
            got.add(mine);
        });
    push(mobile(0x3001, 1));
    push(mobile(0x3001, 2));
    push(old(5, 3));
    EXPECT_EQ(settled(), (All{"first", "type ptr 2 2 4660 5", "old nbr 3 5 " + five}));
}

TEST_F(ClientDispatch, RegistrationsBesideMessagesAreSafe) {
    connect();
    std::atomic<bool> done{false};
    std::thread other([&] {
        while (!done) {
            rig.client.on_nbr_msg(0x3001, type.nbr());
            rig.client.on_json_msg(0x3001, type.json());
            rig.client.register_message(0x3001, &Ask::create);
            rig.client.set_old_msg_default_callback(type.nbr());
            rig.client.unregister_message(0x3001);
        }
    });
    for (unsigned i = 0; i < 100; ++i) {
        rig.server->send(mobile(0x3001, 1).framed() + old(5, 2).framed());
    }
    EXPECT_TRUE(rig.settle());
    done = true;
    other.join();
}

TEST_F(ClientDispatch, AFrameWithoutASessionOrWithoutBytesIsDropped) {
    auto const core = std::make_shared<tls::impl::Client>("core");
    core->init__();
    core->messages().on_recv(tavBytes(tav_istr("0123456789abcdef")));
    EXPECT_EQ(log.find("<core> no session\n").level, tavLogger::ERROR);
    TlsPeer peer;
    Events events;
    auto const info = core->start__(optionFor(peer.port(), events), false);
    auto const server = peer.accept();
    ASSERT_TRUE(server->handshake());
    ASSERT_EQ(resultOf(info), tls::result_ok);
    log.clear();
    core->messages().on_recv(tavBytes());
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_EQ(log.records()[0].level, tavLogger::VERBOSE);
    EXPECT_TRUE(log.contains("<core> recv empty buf\n"));
    core->fini__();
}

TEST_F(ClientDispatch, HostileFramesNeverStopTheReceiver) {
    tls::connect_option option = rig.option();
    option.set_nbr_msg_callback(global.nbr());
    rig.client.register_message(0x3001, &Ask::create);
    connect(option);
    std::string const good = mobile(0x3001, 1).bytes();
    std::string ext = good;
    ext[1] = '\6';
    unsigned state = 1;
    for (unsigned i = 0; i < 300; ++i) {
        std::string bytes = i % 2 == 0 ? good : ext;
        for (unsigned k = 0; k < 3; ++k) {
            state = state * 1664525u + 1013904223u;
            bytes[(state >> 8) % bytes.size()] = static_cast<char>(state >> 24);
        }
        // No packet that asks for a receipt, which would have to be read.
        bytes[2] = '\0';
        rig.server->send(frame(bytes.substr(0, bytes.size() - (state >> 16) % 4)));
    }
    EXPECT_TRUE(rig.settle());
    EXPECT_TRUE(rig.client.connected());
}
