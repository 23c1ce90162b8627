#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"
#include "support/log_capture.h"
#include "tav/vinta/vinta.h"

#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <string>
#include <vector>

using namespace tav_test;

namespace {

/// The middle of a secret, which no mask shows.
std::string const canary = "ofASecretThat";
std::string const secret = "CA" + canary + "NobodySees89";
/// What would be a line of its own, and steer a terminal.
std::string const forged = "\n2026-11-22~10:00:00.000+0000[ERROR]{main}[TAV] forged\r\x1b[2J\x7f";

class Login : public tavMessage {
public:
    tavString name;
    tavString word;
    tavBytes key;
    tavOptional<tavString> other;
    int count = 0;

    unsigned short msgcode() const override { return 0x3001; }
    tav_istr className() const override { return "im.Login"; }
    tav_istr baseName() const override { return "tavMessage"; }
    tavObject * newInstance() const override { return new Login; }
    void assignFrom(tavObject const & from) override { *this = dynamic_cast<Login const &>(from); }

protected:
    void traverse(tavCodecStream & s) override {
        namespace types = tav::pml::field_type;
        ioField(s, 1, "name", name, tavCodecMeta(types::string_, false, "", false));
        ioField(s, 2, "word", word, tavCodecMeta(types::string_, true, "..***..", false));
        ioField(s, 3, "key", key, tavCodecMeta(types::bytes_, true, "", true));
        ioField(s, 4, "other", other, tavCodecMeta(types::string_, true, ".***", true));
        ioField(s, 5, "count", count, tavCodecMeta(types::int32_, false, "0..9", false));
    }
};

char const * const described =
    "Login:object(__class__(im.Login) __code__(3001) [1]name:string() [2]word:string({..***..})\n"
    "[3]key:bytes?({***}) [4]other:string?({.***}) [5]count:int32(0{0..9}))\n";

Login login(std::string const & name = "ann") {
    Login out;
    out.name = tavString(name);
    out.word = tavString(secret);
    out.key = tavBytes(tav_istr(secret));
    out.other = tavString(secret);
    out.count = 7;
    return out;
}

bool has(std::string const & text, std::string const & part) {
    return text.find(part) != std::string::npos;
}

/// The canary as it stands, and as the text formats write bytes.
bool tells(std::string const & text) {
    return has(text, canary) || has(text, "b2ZBU2VjcmV0VGhhd") || has(text, "9mQVNlY3JldFRoYX") ||
           has(text, "Q0FvZkFTZWNyZXRUaGF0");
}

struct Format {
    char const * name;
    std::string text;
    void (*read)(tav_istr text);
};

std::vector<Format> formats() {
    Login one = login();
    tavPmlOutStream pml;
    one.io(pml);
    tavXmlOutStream xml("message");
    one.io(xml);
    return {{"NBR", std::string(tav_istr(one.encode(true))), [](tav_istr text) { Login().decode(text); }},
            {"PML", pml.str(false, false),
             [](tav_istr text) {
                 tavPmlInStream in(text);
                 Login().io(in);
             }},
            {"JSON", std::string(tav_istr(one.encodeJson(true))),
             [](tav_istr text) {
                 tavJsonInStream in(text);
                 Login().io(in);
             }},
            {"XML", std::string(tav_istr(xml.str(false))), [](tav_istr text) {
                 tavXmlInStream in(text);
                 Login().io(in);
             }}};
}

/// What is told of reading a text: what is raised, and all lines of the log.
std::vector<std::string> toldOf(Format const & format, std::string const & text) {
    LogCapture const log("clear(TRACE)");
    std::vector<std::string> out;
    try {
        format.read(tav_istr(text));
    } catch (std::exception const & e) {
        out.emplace_back(e.what());
    }
    for (LogCapture::Record const & each : log.records()) {
        out.push_back(each.text);
    }
    return out;
}

/// The text cut at each place, and with each of some bytes in and in the place of each of its own.
void forEachWrong(std::string const & text, std::function<void(std::string const &)> const & tried) {
    std::string const bytes("\0\1)\xff\"<({:,x5 ", 13);
    for (std::size_t i = 0; i < text.size(); ++i) {
        tried(text.substr(0, i));
        for (char const c : bytes) {
            std::string wrong = text;
            wrong[i] = c;
            tried(wrong);
            wrong = text;
            wrong.insert(i, 1, c);
            tried(wrong);
        }
    }
}

/// What the parsers of JSON and XML say of a text that is none: they know no fields, and show the place by
/// what stands there.
bool quotesThePlace(std::string const & told) {
    for (char const * each : {"pair value no end : ", "array value no end : ", "no value end : ",
                              "no name : ", "not parsed xml ="}) {
        if (has(told, each)) {
            return true;
        }
    }
    return false;
}

/// A client that gets packets with such texts and sends them, with lines at every level.
class Talk {
public:
    explicit Talk(bool with_template) {
        tls::connect_option option = rig.option();
        if (with_template) {
            option.metainfo = described;
        }
        rig.connect(option);
    }
    void send(Pkt const & packet) {
        rig.server->send(packet.framed());
        ASSERT_TRUE(rig.settle());
    }
    std::vector<std::string> lines(int from) const {
        std::vector<std::string> out;
        for (LogCapture::Record const & each : log.records()) {
            if (each.level >= from) {
                out.push_back(each.text);
            }
        }
        return out;
    }

    LogCapture log{"clear(TRACE)"};
    ClientRig rig;
};

Pkt packetWith(std::string body, unsigned short version) {
    Pkt out = mobile(0x3001, 9, std::move(body));
    out.version = version;
    out.ext.traceId = tavString(forged);
    return out;
}

/// All roads of a message in and out, with a body of its class and with one that is none.
void talk(Talk & at, Login const & message) {
    std::string const body(tav_istr(message.encode(true)));
    tls::client & client = at.rig.client;
    at.rig.server->send(frame(forged + secret));
    at.rig.server->send(old(5, 3, body).framed());
    for (unsigned short const version : {4, 6}) {
        at.send(packetWith(body, version));
        at.send(packetWith(forged + secret, version));
    }
    client.on_json_msg(0x3001, [](unsigned long long, unsigned short, char const *, tavMsgExt) {});
    at.send(packetWith(body, 6));
    client.register_message(0x3001, [] { return new Login; });
    client.on_msg(0x3001, tls::obj_function([](unsigned long long, tavMessage const &) {
                      throw std::runtime_error("the application's own");
                  }));
    at.send(packetWith(body, 6));
    at.send(packetWith(body.substr(0, body.size() / 2), 6));
    client.send_msg(message, tls::send_option());
    at.rig.receive();
    client.send_nbr_msg(0x3001, reinterpret_cast<unsigned char const *>(body.data()),
                        static_cast<unsigned>(body.size()), tls::send_option());
    client.send_old_nbr_msg(5, tav_istr(body), tav_istr(forged));
    client.send_json_msg(("{ \"name\":\"ann\", \"word\":\"" + secret + "\", \"count\":11 }").c_str(),
                         tls::send_option(), "im.Login");
    client.close();
}

} // namespace

TEST(ClientSecretsInFormats, AreToldByNoFailureOfAnyByteThatIsWrong) {
    for (Format const & format : formats()) {
        SCOPED_TRACE(format.name);
        ASSERT_TRUE(has(format.text, canary));
        bool const quotes = format.name == std::string("JSON") || format.name == std::string("XML");
        int told = 0;
        forEachWrong(format.text, [&](std::string const & text) {
            for (std::string const & each : toldOf(format, text)) {
                ++told;
                EXPECT_TRUE(!tells(each) || (quotes && quotesThePlace(each))) << each;
            }
        });
        EXPECT_GT(told, 100) << "there is something to be told";
    }
}

TEST(ClientSecretsInFormats, AreMaskedWhereAnObjectIsPrinted) {
    std::ostringstream out;
    out << login();
    for (std::string const & each : {out.str(), std::string(tav_istr(login().dump(true, 0))),
                                     std::string(tav_istr(login().dump(false, 0)))}) {
        EXPECT_FALSE(tells(each)) << each;
        EXPECT_TRUE(has(each, "[2]word=CA***89[27]")) << each;
    }
}

// VERBOSE shows each frame whole.
TEST(ClientSecretsInTheLog, AreToldByNoLineAboveVerboseWhereTheClassIsKnown) {
    Talk at(true);
    talk(at, login());
    int masked = 0;
    for (std::string const & each : at.lines(tavLogger::DEBUG)) {
        masked += has(each, "CA***89[27]") ? 1 : 0;
        EXPECT_FALSE(tells(each)) << each;
    }
    EXPECT_GT(masked, 5) << "messages are told";
}

TEST(ClientSecretsInTheLog, NoLineBeginsWithWhatAPeerWrote) {
    for (bool const with_template : {false, true}) {
        SCOPED_TRACE(with_template);
        Talk at(with_template);
        talk(at, login(forged));
        int shown = 0;
        for (std::string const & each : at.lines(0)) {
            shown += has(each, " forged") ? 1 : 0;
            EXPECT_FALSE(has(each, "\n2026-11-22~10:00:00")) << each;
            EXPECT_FALSE(has(each, "\r") || has(each, "\x1b") || has(each, "\x7f")) << each;
        }
        EXPECT_GT(shown, 3) << "what was written is told";
    }
}
