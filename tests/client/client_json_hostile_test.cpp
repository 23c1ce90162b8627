#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"
#include "support/log_capture.h"
#include "support/repeated.h"
#include "support/templates.h"

#include <gtest/gtest.h>

#include <random>

using namespace tav_test;
using tav_test::repeated;

namespace {

constexpr unsigned depth = 100000;

/// A client with a template, and nobody who reads its log.
class ClientJsonHostile : public ::testing::Test {
protected:
    void SetUp() override {
        rig.client.on_json_msg(0x1f02, [this](unsigned long long sno, unsigned short, char const *,
                                              tavMsgExt) { got.add("reply " + textOf(sno)); });
        tls::connect_option option = rig.option();
        option.metainfo = helloTemplate() + "Deep:object(__class__(im.Deep) __code__(1F0D) [1]deep:im.Deep?()"
                                            " [2]list:list{im.Deep}() [3]map:map{string,im.Deep}())\n";
        option.set_json_msg_callback(
            [this](unsigned long long sno, unsigned short, char const * json, tavMsgExt) {
                got.add("global " + textOf(sno) + " " + textOf(std::string(json).size()));
            });
        rig.connect(option);
    }

    /// Sends a text; what went out is taken at the far end and must be a packet with a body that is NBR.
    bool sends(std::string const & json, char const * class_or_code) {
        tls::send_option const how(tls::timedout_option(20000), false, 4);
        auto const info = rig.client.send_json_msg(json.c_str(), how, class_or_code);
        if (!info) {
            return false;
        }
        Pkt const pkt = rig.receive();
        EXPECT_EQ(pkt.code, info->msgcode());
        info->cancel();
        return true;
    }

    LogCapture log{"clear(NONE)"};
    Events got;
    ClientRig rig;
};

} // namespace

TEST_F(ClientJsonHostile, EveryCutOfAMessageIsSentOrRefused) {
    std::string const json = helloJson();
    unsigned refused = 0;
    for (std::size_t n = 0; n < json.size(); ++n) {
        refused += sends(json.substr(0, n), "im.Hello") ? 0u : 1u;
        refused += sends(json.substr(n + 1), "7937") ? 0u : 1u;
    }
    EXPECT_GT(refused, json.size());
    EXPECT_TRUE(sends(json, ""));
}

TEST_F(ClientJsonHostile, AnyTextIsSentOrRefused) {
    std::mt19937 random(11);
    std::string const alphabet = "{}[]:,\"'\\ \n0123456789-+.eEtruefalsenul_classcode\x7f\xff";
    for (int round = 0; round < 1500; ++round) {
        std::string json = helloJson();
        for (std::size_t i = 1 + random() % 12; i > 0; --i) {
            std::size_t const at = random() % json.size();
            json[at] = alphabet[random() % alphabet.size()];
        }
        sends(json, round % 2 != 0 ? "im.Hello" : "7937");
    }
    EXPECT_TRUE(sends(helloJson(), ""));
}

TEST_F(ClientJsonHostile, DeepJsonCostsNoStack) {
    sends(repeated("[", depth), "im.Deep");
    sends(repeated("{\"deep\":", depth), "im.Deep");
    sends("{\"user\":" + repeated("[", depth) + repeated("]", depth) + "}", "im.Hello");
    EXPECT_FALSE(sends("{\"deep\":" + repeated("{\"deep\":", depth) + "5", "im.Deep"));
    EXPECT_TRUE(sends(repeated("{\"deep\":", depth) + "{}" + repeated("}", depth), "im.Deep"));
    EXPECT_TRUE(
        sends("{\"list\":" + repeated("[{\"list\":", depth) + "[]" + repeated("}]", depth) + "}", "im.Deep"));
    EXPECT_TRUE(sends("{\"map\":" + repeated("{\"k\":{\"map\":", depth) + "{}" + repeated("}}", depth) + "}",
                      "im.Deep"));
    EXPECT_TRUE(sends(helloJson(), ""));
}

TEST_F(ClientJsonHostile, DeepBodiesCostNoStack) {
    std::string const open = bytes("FF 01 28");
    std::string const close = bytes("FF 01 29");
    for (char const * tag : {"01", "02", "03"}) {
        std::string const inner = bytes(tag) + open;
        rig.server->send(
            mobile(0x1f0d, 1, open + repeated(inner, depth) + repeated(close, depth + 1)).framed());
    }
    rig.server->send(mobile(0x1f02, 2, replyBody()).framed());
    ASSERT_TRUE(rig.settle());
    EXPECT_EQ(got.count(), 4u);
    EXPECT_EQ(got.all().back(), "reply 2");
}

TEST_F(ClientJsonHostile, AnyBodyIsToldOrDropped) {
    std::mt19937 random(13);
    std::string const whole[] = {helloBody(), replyBody()};
    for (int round = 0; round < 1500; ++round) {
        std::string body = whole[round % 2];
        for (std::size_t i = 1 + random() % 4; i > 0; --i) {
            body[random() % body.size()] = static_cast<char>(random() % 256);
        }
        body.resize(random() % 3 != 0 ? body.size() : random() % body.size());
        auto const code = static_cast<unsigned short>(0x1f01 + round % 2);
        rig.server->send(mobile(code, 1, body).framed());
    }
    rig.server->send(mobile(0x1f02, 2, replyBody()).framed());
    ASSERT_TRUE(rig.settle());
    EXPECT_EQ(got.all().back(), "reply 2");
}
