#include "tav/vinta/vinta_tls_client.h"

#include "client/vinta_tls_client_impl.h"
#include "support/client_rig.h"
#include "support/log_capture.h"
#include "support/templates.h"

#include <gtest/gtest.h>

#include <functional>

using namespace tav_test;

namespace {

using All = std::vector<std::string>;

/// A compiled class for the code of im.Hello.
using Compiled = Msg<0x1f01>;

tls::send_option tracked(unsigned short ack = 0xffff, int wait_ms = 20000) {
    return tls::send_option(tls::timedout_option(wait_ms), tls::error_function(), tls::message_callback(),
                            ack, false, 4);
}

std::string fields(char const * text) {
    return hex(bytes((std::string("FF 01 28 ") + text + " FF 01 29").c_str()));
}

/// A client with a template.
class ClientJson : public ::testing::Test {
protected:
    tls::connect_option option() {
        tls::connect_option out = rig.option();
        out.metainfo = helloTemplate();
        return out;
    }
    void connect() { rig.connect(option()); }
    tls::client & client() { return rig.client; }

    std::shared_ptr<tls::send_info> send(std::string const & json, char const * class_or_code,
                                         tls::send_option const & how = tracked()) {
        return rig.client.send_json_msg(json.c_str(), how, class_or_code);
    }
    /// The code and body that come of a text, which was sent.
    std::string sent(std::string const & json, char const * class_or_code) {
        if (!send(json, class_or_code)) {
            return "not sent";
        }
        Pkt const pkt = rig.receive();
        return textOf(pkt.code) + " " + hex(pkt.body);
    }
    /// True if a text is refused with these words and nothing goes out.
    bool refused(std::string const & json, char const * class_or_code, std::string const & words) {
        log.clear();
        bool const null = send(json, class_or_code) == nullptr;
        LogCapture::Record const said = log.find("<<< EXCEPTION >>> " + words);
        return null && said.level == tavLogger::ERROR &&
               said.text.find("\n    catch at ") != std::string::npos && rig.server->quiet(20);
    }
    bool settled() { return rig.settle(); }

    /// Records a message that came as JSON.
    tls::json_function json(char const * level) {
        return [this, level = std::string(level)](unsigned long long sno, unsigned short code,
                                                  char const * text, tavMsgExt ext) {
            std::string const trace = ext.traceId.has_value() ? std::string(tav_istr(*ext.traceId)) : "";
            got.add(level + " " + textOf(sno) + " " + textOf(code) + " " + trace + text);
        };
    }

    LogCapture log;
    Events got;
    ClientRig rig;
};

} // namespace

TEST_F(ClientJson, SendsByClassName) {
    connect();
    EXPECT_EQ(sent(R"({"user":"ann","seq":"5","tags":["a"],"mood":1})", "im.Hello"),
              "7937 " + hex(helloBody()));
}

TEST_F(ClientJson, SendsByDecimalCode) {
    connect();
    EXPECT_EQ(sent(R"({"user":"ann","seq":"5","tags":["a"],"mood":1})", "7937"), "7937 " + hex(helloBody()));
    EXPECT_EQ(sent(R"({"note":"n"})", "4097"), "4097 " + fields("01 F1 01 6E"));
    EXPECT_EQ(sent(R"({"note":"n"})", "4097 and more"), "4097 " + fields("01 F1 01 6E"));
}

TEST_F(ClientJson, SendsByWhatTheJsonNames) {
    connect();
    EXPECT_EQ(sent(helloJson(), ""), "7937 " + hex(helloBody()));
    EXPECT_EQ(sent(helloJson(), nullptr), "7937 " + hex(helloBody()));
    EXPECT_EQ(sent(R"({"__code__":4097,"note":"n"})", nullptr), "4097 " + fields("01 F1 01 6E"));
    EXPECT_EQ(sent(R"({"__code__":"0x1001","note":"n"})", nullptr), "4097 " + fields("01 F1 01 6E"));
}

TEST_F(ClientJson, WhatTheJsonNamesGoesAheadOfTheArgument) {
    connect();
    EXPECT_EQ(sent(helloJson(), "im.Push"), "7937 " + hex(helloBody()));
    EXPECT_EQ(sent(R"({"__code__":4097,"note":"n"})", "7937"), "4097 " + fields("01 F1 01 6E"));
    EXPECT_EQ(sent(R"({"__code__":4097,"note":"n"})", "im.Hello"), "4097 " + fields("01 F1 01 6E"));
}

TEST_F(ClientJson, ACodeDropsTheClassText) {
    connect();
    EXPECT_TRUE(refused(R"({"note":"n"})", "65535", "meta class not found, maybe neither"));
    EXPECT_EQ(sent(R"({"__class__":"im.Push","note":"n"})", "65535"), "4097 " + fields("01 F1 01 6E"));
    EXPECT_EQ(sent(R"({"__class__":"im.Push","note":"n"})", "65535im.Hello"),
              "4097 " + fields("01 F1 01 6E"));
    EXPECT_TRUE(refused(R"({"note":"n"})", "70000", "meta class not found, maybe neither"));
    EXPECT_TRUE(refused(R"({"note":"n"})", "0x1001", "meta class not found, maybe neither"));
}

TEST_F(ClientJson, ATextThatBeginsWithADigitIsNeverAClass) {
    tls::connect_option odd = rig.option();
    odd.metainfo = "A:object(__class__(65535) __code__(1001) [1]n:int32?())"
                   "B:object(__class__(5im) __code__(1002) [1]n:int32?())";
    rig.connect(odd);
    EXPECT_EQ(client().find_code_by_class("65535"), 0x1001);
    EXPECT_EQ(client().find_code_by_class("5im"), 0x1002);
    EXPECT_TRUE(refused("{}", "65535", "meta class not found"));
    EXPECT_TRUE(refused("{}", "5im", "meta class not found"));
    EXPECT_EQ(sent(R"({"__class__":"5im"})", ""), "4098 " + hex(bytes("FF 01 28 FF 01 29")));
}

TEST_F(ClientJson, TheCodeCanBeGivenAsANumber) {
    auto const core = std::make_shared<impl::Client>("core");
    core->init__();
    auto const info = core->start__(option(), false);
    auto const server = rig.peer.accept();
    ASSERT_TRUE(server->handshake());
    ASSERT_EQ(resultOf(info), tls::result_ok);
    ASSERT_TRUE(core->messages().send_json(R"({"note":"n"})", tracked(), static_cast<unsigned short>(4097)));
    Pkt const pkt = Pkt::of(server->receiveFrame());
    EXPECT_EQ(textOf(pkt.code) + " " + hex(pkt.body), "4097 " + fields("01 F1 01 6E"));
    EXPECT_FALSE(
        core->messages().send_json(R"({"note":"n"})", tracked(), static_cast<unsigned short>(0x1f03)));
    core->fini__();
}

TEST_F(ClientJson, ThePacketTakesWhatTheOptionSays) {
    connect();
    tls::send_option how = tracked(0x1f02);
    how.sno = 0x123;
    how.grey = true;
    how.version = 6;
    how.ext.traceId = tavString("t");
    auto const info = send(helloJson(), "im.Hello", how);
    ASSERT_TRUE(info);
    Pkt const pkt = rig.receive();
    EXPECT_EQ(pkt.sno, 0x123u);
    EXPECT_TRUE(pkt.grey);
    EXPECT_EQ(pkt.version, 6);
    ASSERT_TRUE(pkt.ext.traceId.has_value());
    EXPECT_EQ(*pkt.ext.traceId, "t");
    EXPECT_EQ(info->sno(), 0x123u);
    EXPECT_EQ(info->msgcode(), 0x1f01);
    EXPECT_EQ(info->result(), tls::result_unknown);
}

TEST_F(ClientJson, WithoutASequenceNumberItGetsOne) {
    connect();
    auto const first = send(helloJson(), "im.Hello");
    auto const second = send(helloJson(), "im.Hello");
    ASSERT_TRUE(first && second);
    EXPECT_NE(first->sno(), 0u);
    EXPECT_EQ(second->sno(), first->sno() + 1);
    EXPECT_EQ(rig.receive().sno, first->sno() & 0xffffu);
}

TEST_F(ClientJson, WithoutAWaitItIsSentAndNotTracked) {
    connect();
    EXPECT_FALSE(send(helloJson(), "im.Hello", tls::send_option()));
    EXPECT_EQ(rig.receive().code, 0x1f01);
    EXPECT_TRUE(log.contains("<n> send result: empty\n"));
}

TEST_F(ClientJson, AnOldCodeGoesInAnOldPacket) {
    tls::connect_option old = rig.option();
    old.metainfo = "Old:object(__class__(im.Old) __code__(91) [1]n:int32())";
    rig.connect(old);
    ASSERT_TRUE(send(R"({"n":5})", "im.Old"));
    Pkt const pkt = rig.receive();
    EXPECT_EQ(pkt.version, 0);
    EXPECT_EQ(pkt.code, 0x91);
}

TEST_F(ClientJson, SaysWhatItSends) {
    connect();
    auto const info = send(R"({"__class__":"im.Reply","text":"hi","token":"tell nobody"})", "im.Reply");
    ASSERT_TRUE(info);
    rig.receive();
    EXPECT_TRUE(
        log.inOrder({"<n> send json msg @im.Reply\n", "<n> send json msg  0x1F02\n", "<n> send pkt #",
                     "<n> send result: sno = #" + textOf(info->sno()) + ", send result = unknown\n"}));
    EXPECT_EQ(log.find("<n> send json msg @").level, tavLogger::INFO);
    EXPECT_EQ(log.find("<n> send json msg  0x1F02\n").level, tavLogger::VERBOSE);
    EXPECT_EQ(log.find("<n> send result: ").level, tavLogger::INFO);
    LogCapture::Record const packet = log.find("<n> send pkt #");
    EXPECT_EQ(packet.level, tavLogger::INFO);
    EXPECT_NE(packet.text.find(" 0x1F02 "), std::string::npos) << packet.text;
    EXPECT_NE(packet.text.find(" / json " + replyLogged() + "\n"), std::string::npos) << packet.text;
    EXPECT_FALSE(log.contains("tell nobody"));
    EXPECT_FALSE(log.contains(" nbr "));
}

TEST_F(ClientJson, SaysWhatItCantSendToo) {
    connect();
    EXPECT_FALSE(send("{}", "im.Hello"));
    EXPECT_TRUE(log.inOrder({"<n> send json msg @im.Hello\n", "<n> send json msg  0x1F01\n",
                             "<<< EXCEPTION >>> missing necessary", "<n> send result: empty\n"}));
    log.clear();
    EXPECT_FALSE(send("{}", "7939"));
    EXPECT_TRUE(log.inOrder({"<n> send json msg @7939\n", "<n> send json msg  0x1F03\n",
                             "<<< EXCEPTION >>> meta class not found", "<n> send result: empty\n"}));
    EXPECT_EQ(log.count("<n> send json msg  0x"), 1u);
    log.clear();
    EXPECT_FALSE(client().send_json_msg("{}", tracked(), nullptr));
    EXPECT_TRUE(log.inOrder({"<n> send json msg @\n", "<n> send json msg  0xFFFF\n"}));
    EXPECT_EQ(log.find("<n> send json msg  0x").level, tavLogger::VERBOSE);
}

TEST_F(ClientJson, FailuresStandUnderTheDefaultTag) {
    connect();
    tavLogger::setLogLevel("(clear(NONE)TAV(ERROR))");
    EXPECT_TRUE(refused("{}", "im.Hello", "missing necessary field name(s)"));
    client().on_json_msg(0x1f02, json("type"));
    rig.server->send(mobile(0x1f02, 1, replyCut()).framed());
    ASSERT_TRUE(settled());
    EXPECT_EQ(log.find("<<< EXCEPTION >>> missing necessary field id(s)").level, tavLogger::ERROR);
}

TEST_F(ClientJson, AnyBodyOfAKnownCodeIsLoggedAsJson) {
    connect();
    std::string const body = replyBody();
    ASSERT_TRUE(client().send_nbr_msg(0x1f02, reinterpret_cast<unsigned char const *>(body.data()),
                                      static_cast<unsigned>(body.size()), tracked()));
    EXPECT_TRUE(log.contains(" / json " + replyLogged() + "\n"));
    log.clear();
    ASSERT_TRUE(client().send_nbr_msg(0x1f03, reinterpret_cast<unsigned char const *>(body.data()),
                                      static_cast<unsigned>(body.size()), tracked()));
    EXPECT_TRUE(log.contains(" / nbr "));
    EXPECT_FALSE(log.contains(" json "));
}

TEST_F(ClientJson, WhatCantBeReadIsRefusedWithItsReason) {
    connect();
    EXPECT_TRUE(
        refused("{}", "im.Nobody", "meta class not found, maybe neither __class__ nor __code__ given"));
    EXPECT_TRUE(refused("{}", "", "meta class not found, maybe neither __class__ nor __code__ given"));
    EXPECT_TRUE(refused(R"({"__code__":7939})", "im.Hello", "meta class not found"));
    EXPECT_TRUE(refused("text", "im.Hello", ""));
    EXPECT_TRUE(refused(R"({"user":"a)", "im.Hello", ""));
    EXPECT_TRUE(
        refused("{}", "im.Hello", "missing necessary field name(s) { user seq mood } in class im.Hello"));
    EXPECT_TRUE(refused(R"({"user":5})", "im.Hello",
                        "field user in class im.Hello should not be json number type, expected type string"));
    EXPECT_TRUE(refused(R"({"user":"a","seq":"-5","mood":0})", "im.Hello",
                        "field seq in class im.Hello not all digits for large integer -5"));
    EXPECT_TRUE(refused(R"({"user":"a","seq":5,"mood":7})", "im.Hello",
                        "field mood in class im.Hello has invalid enum value 7, valid values { 0 1 }"));
    EXPECT_EQ(sent(helloJson(), nullptr), "7937 " + hex(helloBody()));
}

TEST_F(ClientJson, AnEmptyTextIsAnEmptyBodyOfTheCodeGiven) {
    connect();
    EXPECT_EQ(sent("", "4097"), "4097 ");
    EXPECT_TRUE(log.contains(" / json \n"));
    EXPECT_EQ(log.find("json string is empty\n").level, tavLogger::VERBOSE);
    // No text, no look at the class: there is no code then.
    EXPECT_EQ(sent("", "im.Hello"), "65535 ");
    ASSERT_TRUE(client().send_json_msg(nullptr, tracked(), nullptr));
    Pkt const pkt = rig.receive();
    EXPECT_EQ(pkt.code, 0xffff);
    EXPECT_TRUE(pkt.body.empty());
    EXPECT_FALSE(log.contains("<<< EXCEPTION >>> "));
}

TEST_F(ClientJson, WithoutATemplateNothingCanBeSent) {
    rig.connect();
    EXPECT_TRUE(refused(helloJson(), "im.Hello", "meta class not found"));
    EXPECT_TRUE(refused(helloJson(), "7937", "meta class not found"));
    EXPECT_EQ(sent("", "7937"), "7937 ");
    EXPECT_TRUE(log.contains(" / json \n"));
}

TEST_F(ClientJson, WithoutAConnectionItIsRefused) {
    EXPECT_FALSE(send(helloJson(), "im.Hello"));
    EXPECT_TRUE(log.contains("<<< EXCEPTION >>> meta class not found"));
    connect();
    rig.server->close();
    ASSERT_TRUE(rig.events.wait(2));
    EXPECT_FALSE(send(helloJson(), "im.Hello"));
    EXPECT_TRUE(log.contains("<n> session not connected\n"));
}

TEST_F(ClientJson, AReplyReachesTheSendAsJson) {
    connect();
    tls::send_option how = tracked(0x1f02);
    how.set_json_ack_callback(json("send"));
    auto const info = send(helloJson(), "im.Hello", how);
    Pkt reply = mobile(0x1f02, rig.receive().sno, replyBody());
    reply.version = 6;
    reply.ext.traceId = tavString("t ");
    rig.server->send(reply.framed());
    EXPECT_EQ(resultOf(info), tls::result_ok);
    EXPECT_EQ(got.all(), (All{"send " + textOf(reply.sno) + " 7938 t " + replyRead()}));
    EXPECT_TRUE(log.inOrder(
        {"<n> use send level callback \n", "<n> on send level json ack \n",
         "send level on json #" + textOf(reply.sno) + " 0x1f02 [" + textOf(replyRead().size()) + "]\n"}));
}

TEST_F(ClientJson, ACodesMessagesReachItsCallback) {
    client().on_json_msg(0x1f02, json("type"));
    connect();
    rig.server->send(mobile(0x1f02, 1, replyBody()).framed() + mobile(0x1f02, 2, replyBody()).framed());
    ASSERT_TRUE(settled());
    EXPECT_EQ(got.all(), (All{"type 1 7938 " + replyRead(), "type 2 7938 " + replyRead()}));
}

TEST_F(ClientJson, AClassesMessagesReachItsCallbackOnceTheTemplateIsKnown) {
    connect();
    client().on_json_msg("im.Reply", json("class"));
    EXPECT_TRUE(log.contains("<n> setup type level json msg callback, class = im.Reply\n"));
    rig.server->send(mobile(0x1f02, 1, replyBody()).framed() + mobile(0x1f01, 2, helloBody()).framed());
    ASSERT_TRUE(settled());
    EXPECT_EQ(got.all(), (All{"class 1 7938 " + replyRead()}));
}

TEST_F(ClientJson, AClassSetBeforeTheStartCountsAsAllOnes) {
    client().on_json_msg("im.Reply", json("class"));
    tls::connect_option with = option();
    with.set_json_msg_callback(json("global"));
    rig.connect(with);
    rig.server->send(mobile(0x1f02, 1, replyBody()).framed() + mobile(0xffff, 2, replyBody()).framed());
    ASSERT_TRUE(settled());
    EXPECT_EQ(got.all(), (All{"global 1 7938 " + replyRead(), "class 2 65535 null"}));
}

TEST_F(ClientJson, AllOtherMessagesReachTheGlobalCallback) {
    tls::connect_option with = option();
    with.set_json_msg_callback(json("global"));
    rig.connect(with);
    rig.server->send(mobile(0x1f01, 1, helloBody()).framed() + mobile(0x4000, 2, helloBody()).framed());
    ASSERT_TRUE(settled());
    EXPECT_EQ(got.all(), (All{"global 1 7937 " + helloRead(), "global 2 16384 null"}));
}

TEST_F(ClientJson, AMessageWithACompiledClassReachesAJsonCallbackTooAsText) {
    client().register_message(0x1f01, &Compiled::create);
    tls::connect_option with = option();
    with.metainfo = "Msg:object(__class__(Msg) __code__(1F01) [1]number:int32() [2]text:string())";
    with.set_json_msg_callback(json("global"));
    rig.connect(with);
    tls::send_option how = tracked(0x1f01);
    how.set_json_ack_callback(json("send"));
    auto const info = send(R"({"number":5,"text":"t"})", "Msg", how);
    ASSERT_TRUE(info);
    Pkt const pkt = rig.receive();
    std::string const text = R"({ "__class__":"Msg", "number":5, "text":"t" })";
    rig.server->send(mobile(0x1f01, pkt.sno, pkt.body).framed());
    EXPECT_EQ(resultOf(info), tls::result_ok);
    rig.server->send(mobile(0x1f01, 2, pkt.body).framed());
    ASSERT_TRUE(settled());
    client().on_json_msg(0x1f01, json("type"));
    rig.server->send(mobile(0x1f01, 3, pkt.body).framed());
    ASSERT_TRUE(settled());
    EXPECT_EQ(got.all(), (All{"send " + textOf(pkt.sno) + " 7937 " + text, "global 2 7937 " + text,
                              "type 3 7937 " + text}));
    EXPECT_TRUE(log.contains("<n> recv pkt #2 0x1F01"));
    EXPECT_NE(log.find("<n> recv pkt #2 0x1F01").text.find(" obj "), std::string::npos);
}

TEST_F(ClientJson, TheLogMasksWhatTheCallbackGetsPlain) {
    client().on_json_msg(0x1f02, json("type"));
    connect();
    rig.server->send(mobile(0x1f02, 1, replyBody()).framed());
    ASSERT_TRUE(settled());
    EXPECT_EQ(got.all(), (All{"type 1 7938 " + replyRead()}));
    std::string const ends =
        " /127.0.***:" + client().get_local_addr().port + "<->127.0.***:" + rig.peer.portText();
    LogCapture::Record const packet = log.find("<n> recv pkt #1 0x1F02");
    EXPECT_EQ(packet.level, tavLogger::INFO);
    EXPECT_NE(packet.text.find(ends + " json " + replyLogged() + "\n"), std::string::npos) << packet.text;
    EXPECT_FALSE(log.contains("\"tell nobody\""));
}

TEST_F(ClientJson, AReplyThatLacksAFieldLeavesTheSendToItsLimit) {
    client().on_json_msg(0x1f01, json("type"));
    connect();
    tls::send_option how = tracked(0x1f02, 300);
    how.set_json_ack_callback(json("send"));
    auto const info = send(helloJson(), "im.Hello", how);
    unsigned long long const sno = rig.receive().sno;
    Pkt cut = mobile(0x1f02, sno, replyCut());
    cut.affirm = 0x20;
    rig.server->send(cut.framed() + mobile(0x1f01, 2, helloBody()).framed());
    ASSERT_TRUE(got.wait(1));
    EXPECT_TRUE(log.contains("<<< EXCEPTION >>> missing necessary field id(s) { 2 } in class im.Reply"));
    EXPECT_EQ(resultOf(info), tls::result_timedout);
    EXPECT_EQ(got.all(), (All{"type 2 7937 " + helloRead()}));
    EXPECT_TRUE(rig.server->quiet(20));
}

TEST_F(ClientJson, AMessageThatLacksAFieldIsLostAloneAtTheOtherLevelsToo) {
    client().on_json_msg(0x1f02, json("type"));
    tls::connect_option with = option();
    with.metainfo += "Cut:object(__class__(im.Cut) __code__(1F03) [1]text:string() [2]more:string())";
    with.set_json_msg_callback(json("global"));
    rig.connect(with);
    for (unsigned short const code : std::vector<unsigned short>{0x1f02, 0x1f03}) {
        Pkt cut = mobile(code, 1, replyCut());
        cut.affirm = 0x20;
        rig.server->send(cut.framed());
        cut.sno = 2;
        cut.body = replyBody();
        rig.server->send(cut.framed());
        Pkt const receipt = rig.receive();
        EXPECT_EQ(receipt.code, code);
        EXPECT_EQ(receipt.sno, 2u);
        EXPECT_EQ(receipt.affirm, 0x30);
    }
    EXPECT_EQ(got.all(),
              (All{"type 2 7938 " + replyRead(),
                   R"(global 2 7939 { "__class__":"im.Cut", "more":"tell nobody", "text":"hi" })"}));
    EXPECT_EQ(log.count("<<< EXCEPTION >>> missing necessary field id(s) { 2 } in class "), 2u);
    EXPECT_TRUE(rig.server->quiet(20));
}

TEST_F(ClientJson, AJsonStepThatFailsLosesTheMessageEvenWithNobodyToTell) {
    client().on_msg(0x1f02,
                    tls::obj_function([this](unsigned long long, tavMessage const &) { got.add("obj"); }));
    connect();
    Pkt cut = mobile(0x1f02, 1, replyCut());
    cut.affirm = 0x20;
    rig.server->send(cut.framed());
    cut.sno = 2;
    cut.body = replyBody();
    rig.server->send(cut.framed());
    EXPECT_EQ(rig.receive().sno, 2u);
    EXPECT_EQ(got.count(), 0u);
    EXPECT_TRUE(
        log.inOrder({"<n> on type level json msg \n", "<<< EXCEPTION >>> missing necessary field id(s)",
                     "<n> on type level json msg \n"}));
}

TEST_F(ClientJson, OldMessagesReachAJsonCallbackOfTheirCode) {
    tls::connect_option with = rig.option();
    with.metainfo = "Old:object(__class__(im.Old) __code__(91) [1]n:int32())";
    with.set_json_msg_callback(json("global"));
    rig.connect(with);
    client().set_old_msg_default_callback([this](unsigned long long, unsigned short, unsigned char const *,
                                                 unsigned, tavMsgExt) { got.add("old"); });
    client().on_json_msg("im.Old", json("type"));
    rig.server->send(old(0x91, 1, bytes("FF 01 28 01 01 01 05 FF 01 29")).framed() +
                     old(0x92, 2, bytes("FF 01 28 01 01 01 05 FF 01 29")).framed());
    ASSERT_TRUE(settled());
    EXPECT_EQ(got.all(), (All{R"(type 1 145 { "__class__":"im.Old", "n":5 })", "old"}));
}

TEST_F(ClientJson, ABodyThatIsNotNbrIsDropped) {
    client().on_json_msg(0x1f02, json("type"));
    connect();
    rig.server->send(mobile(0x1f02, 1, "junk").framed() + mobile(0x1f02, 2, replyBody()).framed());
    ASSERT_TRUE(settled());
    EXPECT_EQ(got.all(), (All{"type 2 7938 " + replyRead()}));
    EXPECT_TRUE(log.contains("<<< EXCEPTION >>> "));
}

TEST_F(ClientJson, ABodyIsReadWhetherOrNotItIsLogged) {
    client().on_json_msg(0x1f02, json("type"));
    client().on_nbr_msg(0x4000, [this](unsigned long long sno, unsigned short, unsigned char const *,
                                       unsigned, tavMsgExt) { got.add("nbr " + textOf(sno)); });
    connect();
    for (char const * levels : {"(clear(WARN))", "(clear(NONE))"}) {
        tavLogger::setLogLevel(levels);
        rig.server->send(mobile(0x4000, 1, "junk").framed() + mobile(0x4000, 2, replyBody()).framed() +
                         mobile(0x1f02, 3, "junk").framed() + mobile(0x1f02, 4, replyBody()).framed());
    }
    ASSERT_TRUE(settled());
    std::string const json = "type 4 7938 " + replyRead();
    EXPECT_EQ(got.all(), (All{"nbr 2", json, "nbr 2", json}));
}

TEST_F(ClientJson, AnEmptyBodyIsAnEmptyTextOfAnyCode) {
    client().on_json_msg(0x1f02, json("type"));
    client().on_json_msg(0x4000, json("type"));
    connect();
    rig.server->send(mobile(0x1f02, 1, std::string()).framed() + mobile(0x4000, 2, std::string()).framed());
    ASSERT_TRUE(settled());
    EXPECT_EQ(got.all(), (All{"type 1 7938 ", "type 2 16384 "}));
    EXPECT_NE(log.find("<n> recv pkt #1 ").text.find(" json \n"), std::string::npos);
    EXPECT_NE(log.find("<n> recv pkt #2 ").text.find(" json \n"), std::string::npos);
    EXPECT_EQ(log.find("nbr bytes is empty\n").level, tavLogger::VERBOSE);
}

TEST_F(ClientJson, ACallbackThatThrowsLosesItsOwnMessageOnly) {
    tls::json_function const record = json("type");
    client().on_json_msg(
        0x1f02, [record](unsigned long long sno, unsigned short code, char const * text, tavMsgExt ext) {
            if (sno == 1) {
                throw std::runtime_error("no thanks");
            }
            record(sno, code, text, ext);
        });
    connect();
    Pkt asked = mobile(0x1f02, 1, replyBody());
    asked.affirm = 0x20;
    rig.server->send(asked.framed());
    asked.sno = 2;
    rig.server->send(asked.framed());
    Pkt const receipt = rig.receive();
    EXPECT_EQ(receipt.sno, 2u);
    EXPECT_EQ(receipt.affirm, 0x30);
    EXPECT_EQ(got.all(), (All{"type 2 7938 " + replyRead()}));
    EXPECT_TRUE(log.contains("<<< EXCEPTION >>> no thanks"));
}

TEST_F(ClientJson, ACallbackMaySendJsonItself) {
    client().on_json_msg(0x1f02, [this](unsigned long long, unsigned short, char const *, tavMsgExt) {
        send(helloJson(), "im.Hello");
    });
    connect();
    rig.server->send(mobile(0x1f02, 1, replyBody()).framed());
    EXPECT_EQ(rig.receive().code, 0x1f01);
}

TEST_F(ClientJson, SendsReceivesAndNewTemplatesMayMeet) {
    client().on_json_msg(0x1f02, json("type"));
    connect();
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([this, &done] {
            while (!done) {
                send(helloJson(), "im.Hello", tls::send_option());
                client().find_class_by_code(0x1f01);
                client().find_code_by_class("im.Hello");
                tavNullStream nothing;
                client().io(nothing);
            }
        });
    }
    for (int i = 0; i < 5; ++i) {
        rig.server->send(mobile(0x1f02, 1, replyBody()).framed());
        rig.connect(option());
    }
    done = true;
    for (std::thread & each : threads) {
        each.join();
    }
    rig.server->send(mobile(0x1f02, 9, replyBody()).framed());
    EXPECT_TRUE(eventually([&] { return got.count("type 9 7938 " + replyRead()) == 1; }));
}
