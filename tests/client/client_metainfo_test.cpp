#include "client/vinta_tls_client_impl_metainfo.h"

#include "support/bounded.h"
#include "support/client_rig.h"
#include "support/log_capture.h"
#include "support/recording_stream.h"
#include "support/templates.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <stdexcept>
#include <thread>
#include <type_traits>

using namespace tav_test;
using impl::metainfo;

namespace {

unsigned short const none = 0xffff;

/// The kinds of fields have names, as they have once there is a client.
class ClientMetainfoModel : public ::testing::Test {
protected:
    tav::pml::field_type::Initializer const names;
    LogCapture log;
};

/// A client that is connected with templates.
class ClientMetainfoTemplates : public ::testing::Test {
protected:
    tls::connect_option option(std::string const & text) {
        tls::connect_option out = rig.option();
        out.metainfo = text;
        return out;
    }
    std::string classOf(unsigned short code) {
        return std::string(tav_istr(rig.client.find_class_by_code(code)));
    }
    unsigned short codeOf(char const * name) const { return rig.client.find_code_by_class(name); }

    LogCapture log;
    ClientRig rig;
};

template <class Action>
std::string failureOf(Action const & action) {
    try {
        action();
    } catch (std::invalid_argument const & e) {
        return e.what();
    }
    return std::string();
}

/// Reads a text as a template and uses what came of it.
bool readable(std::string const & text) {
    try {
        metainfo const model(text);
        model.find_class_by_code(0x1f01);
        model.find_code_by_class("im.Hello");
        try {
            model.message_to_json(tav_istr(helloBody()), 0x1f01, false);
        } catch (std::invalid_argument const &) {
            // The class lost a field, or wants another one.
        }
        return true;
    } catch (std::invalid_argument const &) {
        return false;
    }
}

} // namespace

static_assert(std::is_base_of<tavCodecInterface, metainfo>::value, "it can be described by a stream");
static_assert(!std::is_copy_constructible<metainfo>::value, "its stream views its own text");

TEST_F(ClientMetainfoModel, AnEmptyTextDescribesNothing) {
    metainfo const model((std::string()));
    EXPECT_TRUE(model.find_class_by_code(0).empty());
    EXPECT_TRUE(model.find_class_by_code(0x1f01).empty());
    EXPECT_EQ(model.find_code_by_class("im.Hello"), none);
    EXPECT_EQ(model.find_code_by_class(""), none);
    EXPECT_FALSE(model.describes(0x1f01));
    EXPECT_EQ(model.message_to_json(tav_istr(helloBody()), 0x1f01, false), "null");
    EXPECT_EQ(model.message_to_json(tav_istr(helloBody()), 0x1f01, true), "null");
    tavBytes body;
    unsigned short code = none;
    EXPECT_NE(failureOf([&] {
                  model.json_to_message(tav_istr(helloJson()), body, code, "im.Hello");
              }).find("meta class not found, maybe neither __class__ nor __code__ given"),
              std::string::npos);
}

TEST_F(ClientMetainfoModel, FindsClassesByCodeAndCodesByClass) {
    metainfo const model(helloTemplate());
    EXPECT_EQ(model.find_class_by_code(0x1f01), "im.Hello");
    EXPECT_EQ(model.find_class_by_code(0x1f02), "im.Reply");
    EXPECT_EQ(model.find_class_by_code(4097), "im.Push");
    EXPECT_TRUE(model.find_class_by_code(0x1f03).empty());
    EXPECT_TRUE(model.describes(0x1f01));
    EXPECT_FALSE(model.describes(0x1f03));
    EXPECT_EQ(model.find_code_by_class("im.Hello"), 0x1f01);
    EXPECT_EQ(model.find_code_by_class("im.Reply"), 0x1f02);
    EXPECT_EQ(model.find_code_by_class("im.Push"), 4097);
}

TEST_F(ClientMetainfoModel, AClassWithoutACodeAndAnUnknownOneHaveNone) {
    metainfo const model(helloTemplate() + "None:object(__class__(im.None) __code__(FFFF))");
    EXPECT_EQ(model.find_code_by_class("im.Bare"), none);
    EXPECT_EQ(model.find_code_by_class("im.None"), none);
    EXPECT_EQ(model.find_code_by_class("im.hello"), none);
    EXPECT_EQ(model.find_code_by_class("Hello"), none);
    EXPECT_EQ(model.find_code_by_class(tav_istr()), none);
    EXPECT_TRUE(model.find_class_by_code(none).empty());
}

TEST_F(ClientMetainfoModel, JsonBecomesABodyAndItsCode) {
    metainfo const model(helloTemplate());
    tavBytes body;
    unsigned short code = none;
    model.json_to_message(tav_istr(helloJson()), body, code, tav_istr());
    EXPECT_EQ(hex(tav_istr(body)), hex(tav_istr(helloBody())));
    EXPECT_EQ(code, 0x1f01);

    code = 0x1001;
    model.json_to_message(R"({"note":"n"})", body, code, tav_istr());
    EXPECT_EQ(hex(tav_istr(body)), "FF 01 28 01 F1 01 6E FF 01 29");
    EXPECT_EQ(code, 0x1001);
}

TEST_F(ClientMetainfoModel, FailuresLeaveTheBody) {
    metainfo const model(helloTemplate());
    tavBytes body;
    body << 'x';
    unsigned short code = none;
    EXPECT_FALSE(failureOf([&] { model.json_to_message("{", body, code, "im.Nobody"); }).empty());
    EXPECT_FALSE(failureOf([&] { model.json_to_message("no json", body, code, "im.Hello"); }).empty());
    EXPECT_FALSE(failureOf([&] { model.json_to_message(R"({"user":5})", body, code, "im.Hello"); }).empty());
    EXPECT_FALSE(failureOf([&] { model.json_to_message("{}", body, code, "im.Hello"); }).empty());
    EXPECT_EQ(hex(tav_istr(body)), "78");
}

TEST_F(ClientMetainfoModel, ABodyBecomesJsonForTheApplicationAndMaskedTextForTheLog) {
    metainfo const model(helloTemplate());
    EXPECT_EQ(model.message_to_json(tav_istr(helloBody()), 0x1f01, false), helloRead());
    EXPECT_EQ(model.message_to_json(tav_istr(helloBody()), 0x1f01, true), helloLogged());
    EXPECT_EQ(model.message_to_json(tav_istr(replyBody()), 0x1f02, false), replyRead());
    EXPECT_EQ(model.message_to_json(tav_istr(replyBody()), 0x1f02, true), replyLogged());
}

TEST_F(ClientMetainfoModel, OnlyTheApplicationsFormMissesNecessaryFields) {
    metainfo const model(helloTemplate());
    EXPECT_NE(failureOf([&] {
                  model.message_to_json(tav_istr(replyCut()), 0x1f02, false);
              }).find("missing necessary field id(s) { 2 } in class im.Reply"),
              std::string::npos);
    EXPECT_EQ(model.message_to_json(tav_istr(replyCut()), 0x1f02, true), R"(@im.Reply{ [1]text:"hi" })");
}

TEST_F(ClientMetainfoModel, AnEmptyBodyIsAnEmptyTextAndOtherBytesFail) {
    metainfo const model(helloTemplate());
    EXPECT_EQ(model.message_to_json(tav_istr(), 0x1f01, false), "");
    EXPECT_EQ(model.message_to_json(tav_istr(), 0x1f03, true), "");
    EXPECT_FALSE(failureOf([&] { model.message_to_json("junk", 0x1f01, true); }).empty());
    EXPECT_FALSE(failureOf([&] { model.message_to_json("junk", 0x1f03, true); }).empty());
}

TEST_F(ClientMetainfoModel, DescribesItselfWithTheFactory) {
    metainfo model(helloTemplate());
    RecordingStream::Calls calls;
    RecordingStream out(calls, RecordingStream::Options());
    model.io(out);
    ASSERT_GE(calls.size(), 4u);
    EXPECT_EQ(calls.front(), "enter 'metainfo' ''");
    EXPECT_NE(std::find(calls.begin(), calls.end(), "child 1:factory"), calls.end());
    EXPECT_NE(std::find(calls.begin(), calls.end(), "/1:factory enter 'factory' ''"), calls.end());
    EXPECT_EQ(calls.back(), "leave");
    bool code = false;
    for (std::string const & call : calls) {
        code = code || call.find("im.Hello") != std::string::npos;
    }
    EXPECT_TRUE(code);
}

TEST_F(ClientMetainfoModel, AStreamThatReadsChangesNothing) {
    metainfo model(helloTemplate());
    RecordingStream::Calls calls;
    Node const empty = Node::object({});
    RecordingStream in(calls, RecordingStream::Options(), empty);
    model.io(in);
    EXPECT_EQ(model.find_class_by_code(0x1f01), "im.Hello");
    EXPECT_EQ(model.find_code_by_class("im.Reply"), 0x1f02);
}

TEST_F(ClientMetainfoModel, ABadTemplateFailsWithItsReason) {
    EXPECT_NE(failureOf([] { metainfo const model("Hello:object(__class__(im.Hello)"); }).find("throw at"),
              std::string::npos);
}

TEST_F(ClientMetainfoModel, AnyCutOfATemplateIsReadOrRefused) {
    std::string const text = helloTemplate();
    for (std::size_t n = 0; n <= text.size(); ++n) {
        readable(text.substr(0, n));
        readable(text.substr(n));
    }
    EXPECT_TRUE(readable(text));
}

TEST_F(ClientMetainfoModel, AnyBytesAreReadOrRefused) {
    std::mt19937 random(7);
    std::string const alphabet = "()[]{}:*\"'^ \n_,?.0x1FAabeitlmnorsu\x00\xff";
    for (int round = 0; round < 2000; ++round) {
        std::string text = round % 2 != 0 ? helloTemplate() : std::string();
        std::size_t const changes = 1 + random() % 60;
        for (std::size_t i = 0; i < changes; ++i) {
            char const c = alphabet[random() % alphabet.size()];
            text.insert(text.begin() + static_cast<std::ptrdiff_t>(random() % (text.size() + 1)), c);
        }
        readable(text);
    }
}

TEST_F(ClientMetainfoModel, ClientsMayBeMadeWhileTemplatesAreRead) {
    std::thread makes([] {
        for (int i = 0; i < 20; ++i) {
            tls::client const made("made");
        }
    });
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(readable(helloTemplate()));
    }
    makes.join();
}

TEST_F(ClientMetainfoModel, DepthCostsNoStack) {
    std::string open;
    for (unsigned i = 0; i < 100000; ++i) {
        open += "[1]a:object(__class__(A)";
    }
    EXPECT_FALSE(readable(open));
    constexpr unsigned depth = 5000;
    std::string text;
    for (unsigned i = 0; i < depth; ++i) {
        text += "[1]a:object(__class__(A)";
    }
    std::string types = "A:object(__class__(A)__code__(1F01)[1]a:";
    for (unsigned i = 0; i < depth; ++i) {
        types += "list{";
    }
    types += "int32" + std::string(depth, '}') + "())";
    EXPECT_TRUE(readable(types));
    EXPECT_TRUE(readable(text + std::string(depth, ')')));
}

namespace {

/// What the log has of the model's own, under these levels, of messages that hold more than their template.
std::vector<std::string> told(char const * levels) {
    LogCapture const log(levels);
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.metainfo = helloTemplate() + "Odd:object(__class__(im.Odd) __code__(1F04) [1]of:im.Nowhere?())";
    rig.connect(option);
    std::string const more = bytes("FF 01 28 01 F1 01 6E 09 01 01 05 FF 01 29");
    std::string const odd = bytes("FF 01 28 01 FF 01 28 01 01 01 05 FF 01 29 FF 01 29");
    rig.server->send(mobile(0x1001, 1, more).framed() + mobile(0x1f04, 2, odd).framed());
    EXPECT_TRUE(rig.settle());
    std::vector<std::string> out;
    for (LogCapture::Record const & each : log.records()) {
        std::size_t const at = each.text.find("[JSON2NBR]");
        if (at != std::string::npos) {
            out.push_back(std::to_string(each.level) + each.text.substr(at));
        }
    }
    return out;
}

} // namespace

TEST(ClientMetainfoEvents, AreTheSameWhetherTheMessageIsShownOrNot) {
    std::vector<std::string> const shown = told("clear(INFO)");
    std::vector<std::string> const unseen = told("clear(NONE)TLS.CLT(WARN)JSON2NBR(INFO)");
    EXPECT_EQ(unseen, shown);
    ASSERT_GE(shown.size(), 2u);
    std::string const & first = shown.front();
    std::string const & last = shown.back();
    EXPECT_NE(first.find("not found field id [9] in class im.Push\n"), std::string::npos) << first;
    EXPECT_NE(last.find("not found class im.Nowhere\n"), std::string::npos) << last;
    EXPECT_EQ(last.substr(0, last.find('[')), std::to_string(tavLogger::ERROR));
}

TEST_F(ClientMetainfoTemplates, NothingIsKnownBeforeTheStart) {
    EXPECT_EQ(classOf(0x1f01), "");
    EXPECT_EQ(codeOf("im.Hello"), none);
}

TEST_F(ClientMetainfoTemplates, TheStartsTemplateIsKnownAndLogged) {
    rig.connect(option(helloTemplate()));
    EXPECT_EQ(classOf(0x1f01), "im.Hello");
    EXPECT_EQ(codeOf("im.Hello"), 0x1f01);
    EXPECT_TRUE(log.contains("<n> found class im.Hello by msgcode 0x1F01\n"));
    EXPECT_TRUE(log.contains("<n> by class im.Hello found msgcode 0x1F01\n"));
    EXPECT_EQ(classOf(0x1f03), "");
    EXPECT_EQ(codeOf("im.Nobody"), none);
    EXPECT_TRUE(log.contains("<n> by class im.Nobody found msgcode 0xFFFF\n"));
}

TEST_F(ClientMetainfoTemplates, TheLongStartTakesATemplateToo) {
    auto const info = rig.client.start("127.0.0.1", rig.peer.portText().c_str(), "", helloTemplate().c_str(),
                                       tls::global_callback(), tls::timedout_option());
    rig.finish(info);
    EXPECT_EQ(classOf(0x1f02), "im.Reply");
}

TEST_F(ClientMetainfoTemplates, AReconnectKeepsTheTemplateAndAStartReplacesIt) {
    rig.connect(option(helloTemplate()));
    rig.reconnect();
    EXPECT_EQ(codeOf("im.Hello"), 0x1f01);
    rig.connect(option("Other:object(__class__(im.Other) __code__(0a01) [1]n:int32())"));
    EXPECT_EQ(codeOf("im.Hello"), none);
    EXPECT_EQ(codeOf("im.Other"), 0x0a01);
    rig.connect(option(std::string()));
    EXPECT_EQ(codeOf("im.Other"), none);
}

TEST_F(ClientMetainfoTemplates, AStartThatKeepsItsConnectionKeepsItsTemplate) {
    rig.connect(option(helloTemplate()));
    auto const info =
        rig.client.start(option("Other:object(__class__(im.Other) __code__(0a01) [1]n:int32())"), true);
    ASSERT_TRUE(info);
    EXPECT_EQ(waited(info), tls::result_ok);
    EXPECT_EQ(codeOf("im.Hello"), 0x1f01);
    EXPECT_EQ(codeOf("im.Other"), none);
}

TEST_F(ClientMetainfoTemplates, ACallbackByClassStaysWithTheCodeItHadThen) {
    rig.connect(option(helloTemplate()));
    Events got;
    rig.client.on_json_msg("im.Reply", [&](unsigned long long sno, unsigned short code, char const * json,
                                           tavMsgExt) { got.add(textOf(sno) + " " + textOf(code) + json); });
    rig.connect(option("Reply:object(__class__(im.Reply) __code__(0a01) [1]text:string())"));
    rig.server->send(mobile(0x0a01, 1, replyCut()).framed() + mobile(0x1f02, 2, replyCut()).framed());
    ASSERT_TRUE(rig.settle());
    EXPECT_EQ(got.all(), (std::vector<std::string>{"2 7938null"}));
}

TEST_F(ClientMetainfoTemplates, AClosedClientStillKnowsItsTemplate) {
    rig.connect(option(helloTemplate()));
    rig.client.close();
    ASSERT_TRUE(rig.server->waitClosed());
    EXPECT_EQ(classOf(0x1f01), "im.Hello");
}

TEST_F(ClientMetainfoTemplates, TheClientDescribesTheModel) {
    rig.connect(option(helloTemplate()));
    RecordingStream::Calls calls;
    RecordingStream out(calls, RecordingStream::Options());
    rig.client.io(out);
    EXPECT_EQ(calls.front(), "enter 'client' ''");
    EXPECT_NE(std::find(calls.begin(), calls.end(), "/1:metainfo/1:factory enter 'factory' ''"), calls.end());
}

TEST_F(ClientMetainfoTemplates, ABadTemplateIsAnErrorOfTheConnect) {
    auto const info = rig.client.start(option("Hello:object(__class__(im.Hello)"));
    ASSERT_TRUE(info);
    EXPECT_EQ(waited(info), tls::result_error);
    ASSERT_TRUE(rig.events.wait(1));
    std::string const told = rig.events.all()[0];
    EXPECT_EQ(told.rfind("error 10 on <n>global.on_error.0: ", 0), 0u) << told;
    EXPECT_NE(told.find("throw at"), std::string::npos) << told;
    ASSERT_TRUE(log.waitFor("<<< EXCEPTION >>> "));
    EXPECT_EQ(log.find("<<< EXCEPTION >>> ").level, tavLogger::ERROR);
    EXPECT_FALSE(log.contains("<n> on connect cancelled"));
    EXPECT_FALSE(rig.client.connected());
    EXPECT_EQ(rig.peer.connections(), 0u);
    EXPECT_EQ(rig.events.count(), 1u);
}

TEST_F(ClientMetainfoTemplates, AfterABadTemplateTheOldOneStaysAndAGoodOneServes) {
    rig.connect(option(helloTemplate()));
    EXPECT_EQ(waited(rig.client.start(option("x(("))), tls::result_error);
    EXPECT_EQ(codeOf("im.Hello"), 0x1f01);
    rig.connect(option(helloTemplate()));
    EXPECT_TRUE(rig.client.connected());
    EXPECT_EQ(codeOf("im.Reply"), 0x1f02);
}

TEST_F(ClientMetainfoTemplates, AReconnectAfterABadTemplateGoesOnWithTheOldOne) {
    rig.connect(option(helloTemplate()));
    EXPECT_EQ(waited(rig.client.start(option("x(("))), tls::result_error);
    rig.reconnect();
    EXPECT_TRUE(rig.client.connected());
    EXPECT_EQ(codeOf("im.Hello"), 0x1f01);
}

TEST_F(ClientMetainfoTemplates, AnAliasOfTheApplicationServesTheNextTemplate) {
    tav::pml::field_type::addAlias("wortzahl", tav::pml::field_type::int64_, false);
    rig.connect(option("A:object(__class__(im.A) __code__(0a01) [1]n:wortzahl())"));
    auto const info = rig.client.send_json_msg(
        R"({"n":"5"})", tls::send_option(tls::timedout_option(20000), false, 4), "im.A");
    ASSERT_TRUE(info);
    EXPECT_EQ(hex(rig.receive().body), "FF 01 28 01 01 01 05 FF 01 29");
}
