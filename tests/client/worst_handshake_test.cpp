#include "tav/vinta/vinta_tls_client.h"

#include "support/worst_gateway.h"

#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <memory>
#include <set>
#include <stdexcept>
#include <string>

using namespace tav_test;
using tls::failure;

namespace {

struct Cut {
    char const * what;
    Place place;
    WorstStory ended;
    WorstStory reset;
};

WorstStory endedEarly() {
    return failedHandshake("stream truncated", failure::closed_by_peer);
}
WorstStory resetEarly() {
    return failedHandshake("Connection reset by peer", failure::connection_lost);
}
WorstStory endedLate() {
    return brokenRead("stream truncated", failure::closed_by_peer);
}
WorstStory resetLate() {
    return brokenRead("Connection reset by peer", failure::connection_lost);
}

/// Leaves a handshake at each place: by an end and by a reset.
void expectCuts(std::vector<Cut> const & cuts, bool safe) {
    for (Cut const & cut : cuts) {
        for (bool const by_reset : {false, true}) {
            if (by_reset && cut.place == nothing) {
                continue; // The system may tell it as the end of the connect itself:
                          // AcceptAndCloseIsOneError.
            }
            SCOPED_TRACE(std::string(cut.what) + (by_reset ? ", reset" : ", end"));
            WorstSettings settings;
            settings.highest = safe ? TLS1_3_VERSION : TLS1_2_VERSION;
            WorstMeeting it(settings);
            safe ? it.startSafely() : it.start();
            auto const server = it.gateway.accept();
            goTo(cut.place, *server);
            if (by_reset) {
                server->reset();
            } else {
                EXPECT_TRUE(server->end()) << "the client leaves too";
            }
            EXPECT_TRUE(it.isStory(by_reset ? cut.reset : cut.ended));
            it.expectRecovery();
        }
    }
}

/// Bytes, and their length ahead of them in so many bytes.
std::string counted(std::string const & bytes, int width) {
    std::string out;
    for (int at = width - 1; at >= 0; --at) {
        out.push_back(static_cast<char>(static_cast<unsigned char>(bytes.size() >> (8 * at))));
    }
    return out + bytes;
}

std::string record(char type, std::string const & content, char minor = 3) {
    return std::string({type, 3, minor}) + counted(content, 2);
}

std::string alert(int level, int description) {
    return record(0x15, {static_cast<char>(level), static_cast<char>(description)});
}

constexpr int warning = 1;
constexpr int fatal = 2;

/// A ServerHello in the clear, of a version 3.`minor`, with a cipher and a compression.
std::string serverHello(char minor, unsigned short cipher, char compression = 0) {
    std::string const body =
        std::string({3, minor}) + std::string(32, 'r') + counted("", 1) +
        std::string({static_cast<char>(cipher >> 8), static_cast<char>(cipher & 0xff), compression}) +
        counted(std::string("\xff\x01\x00\x01\x00", 5), 2);
    return record(0x16, std::string(1, 2) + counted(body, 3));
}

/// ECDHE-RSA-AES128-GCM-SHA256, which each client offers.
constexpr unsigned short offered = 0xc02f;

/// An answer to the client's first word that is none.
struct Word {
    char const * what;
    std::string bytes;
    int reason;
};

void expectWords(std::vector<Word> const & words, bool safe) {
    for (Word const & each : words) {
        SCOPED_TRACE(each.what);
        WorstMeeting it;
        safe ? it.startSafely() : it.start();
        auto const server = it.gateway.accept();
        server->raw();
        server->put(each.bytes);
        EXPECT_TRUE(server->waitGone()) << "the client leaves";
        EXPECT_TRUE(it.isStory(failedHandshake(tlsText(each.reason))));
        it.expectRecovery();
    }
}

/// All kinds of alerts but the word of the end.
std::vector<int> const & alerts() {
    static std::vector<int> const all = {10,  20,  21,  22,  30,  40,  41,  42,  43,  44, 45, 46,
                                         47,  48,  49,  50,  51,  60,  70,  71,  80,  86, 90, 100,
                                         109, 110, 111, 112, 113, 114, 115, 116, 120, 255};
    return all;
}

/// What a handshake with a gateway of these settings comes to.
WorstStory shaken(WorstMeeting & it, bool safe) {
    safe ? it.startSafely() : it.start();
    it.server = it.gateway.accept();
    bool const done = it.server->shake();
    if (!done) {
        it.server->end();
    }
    return done ? opened() : failedHandshake(tlsText(SSL_R_SSLV3_ALERT_HANDSHAKE_FAILURE));
}

std::vector<std::string> ciphersOf(char const * list, int version) {
    std::unique_ptr<SSL_CTX, void (*)(SSL_CTX *)> const context(SSL_CTX_new(TLS_method()), SSL_CTX_free);
    SSL_CTX_set_security_level(context.get(), 0);
    SSL_CTX_set_cipher_list(context.get(), list);
    std::vector<std::string> out;
    STACK_OF(SSL_CIPHER) * const all = SSL_CTX_get_ciphers(context.get());
    for (int i = 0; i < sk_SSL_CIPHER_num(all); ++i) {
        SSL_CIPHER const * const each = sk_SSL_CIPHER_value(all, i);
        if ((SSL_CIPHER_get_protocol_id(each) >> 8 == 0x13) == (version == TLS1_3_VERSION)) {
            out.emplace_back(SSL_CIPHER_get_name(each));
        }
    }
    return out;
}

/// Each cipher alone at the gateway: those that the client takes open, and all others are an alert.
void expectCiphers(std::vector<std::string> const & all, std::set<std::string> const & taken, int version,
                   bool safe) {
    std::set<std::string> opened_by;
    for (std::string const & each : all) {
        SCOPED_TRACE(each);
        WorstSettings settings;
        settings.lowest = version;
        settings.highest = version;
        (version == TLS1_3_VERSION ? settings.suites : settings.ciphers) = each;
        WorstMeeting it(settings);
        WorstStory const story = shaken(it, safe);
        EXPECT_TRUE(it.isStory(story));
        if (story.result == tls::result_ok) {
            EXPECT_EQ(it.client.negotiated().cipher, each);
            opened_by.insert(each);
        }
        it.expectRecovery();
    }
    EXPECT_EQ(opened_by, taken);
}

/// An open connection over which the gateway asks for a handshake anew, or with TLS 1.3 for new keys.
class Renegotiation {
public:
    explicit Renegotiation(bool safe, int version = TLS1_2_VERSION) : it(speaking(version)) {
        safe ? it.startSafely() : it.start();
        it.server = it.gateway.accept();
        if (!it.server->shake() || resultOf(it.info) != tls::result_ok) {
            throw std::runtime_error("the connection did not open");
        }
    }
    void ask() {
        if (SSL_version(it.server->ssl()) == TLS1_3_VERSION) {
            SSL_key_update(it.server->ssl(), SSL_KEY_UPDATE_REQUESTED);
        } else {
            SSL_renegotiate(it.server->ssl());
        }
        SSL_do_handshake(it.server->ssl());
        it.server->put(it.server->output());
    }
    bool over() { return SSL_renegotiate_pending(it.server->ssl()) == 0; }

    /// Asks; the client has read the question by then.
    void askSeen() {
        // Which is read right behind this one, that counts.
        unsigned long long const before = it.client.statistics().heartbeats_received;
        ASSERT_TRUE(it.server->send(frame("")));
        ask();
        ASSERT_TRUE(eventually([&] { return it.client.statistics().heartbeats_received > before; }));
    }
    /// A message that no system keeps whole for a gateway that reads nothing.
    static Ask large(int number) {
        Ask out(number);
        out.text = tavString(std::string(6 << 20, 'm').c_str());
        return out;
    }

    /// A request and its reply.
    void expectTalk(int number) {
        auto const asked = it.ask(number);
        ASSERT_TRUE(asked);
        it.server->send(mobile(0x1235, it.server->receive().sno).framed());
        EXPECT_EQ(resultOf(asked), tls::result_ok);
    }

    /// Asks while the client is in the middle of a message, of which nothing is read until it has seen the
    /// question; then the message comes whole, and its reply is taken.
    void expectInTheMiddle(int number) {
        Ask const message = large(number);
        auto const sent = it.send(message, number);
        ASSERT_TRUE(sent);
        ASSERT_TRUE(it.server->waitInput());
        ASSERT_NO_FATAL_FAILURE(askSeen());
        ASSERT_TRUE(it.server->serve([&] { return over(); }));
        Pkt const came = it.server->receive();
        EXPECT_EQ(came.body.size(), tav_istr(message.encode(true)).size());
        ASSERT_TRUE(it.server->send(mobile(0x1235, came.sno).framed()));
        EXPECT_EQ(resultOf(sent), tls::result_ok);
    }

    WorstMeeting it;

private:
    static WorstSettings speaking(int version) {
        WorstSettings out;
        out.highest = version;
        return out;
    }
};

/// The connection of TLS 1.3 in the gateway's own hand: what it seals, the client takes for the server's.
class Sealing {
public:
    Sealing() : it(settings()) {
        secret().clear();
        SSL_CTX_set_keylog_callback(it.gateway.context(), [](SSL const *, char const * line) {
            std::string const text = line;
            if (text.compare(0, 24, "SERVER_TRAFFIC_SECRET_0 ") == 0) {
                secret() = bytesOf(text.substr(text.rfind(' ') + 1));
            }
        });
        it.startSafely();
        it.server = it.gateway.accept();
        if (!it.server->shake() || resultOf(it.info) != tls::result_ok) {
            throw std::runtime_error("the connection did not open");
        }
        key_ = expanded("key", 16);
        iv_ = expanded("iv", 12);
    }
    void put(char type, std::string const & content) { it.server->put(sealed(content + type)); }

    WorstMeeting it;

private:
    static WorstSettings settings() {
        WorstSettings out;
        out.lowest = TLS1_3_VERSION;
        out.highest = TLS1_3_VERSION;
        out.suites = "TLS_AES_128_GCM_SHA256";
        return out;
    }
    static std::string & secret() {
        static std::string the;
        return the;
    }
    static std::string bytesOf(std::string const & hex) {
        std::string out;
        for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
            out.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
        }
        return out;
    }
    /// One block of what a key is made by.
    static std::string expanded(std::string const & label, std::size_t size) {
        std::string const info =
            std::string({0, static_cast<char>(size)}) + counted("tls13 " + label, 1) + counted("", 1) + '\1';
        unsigned char out[EVP_MAX_MD_SIZE];
        unsigned length = 0;
        HMAC(EVP_sha256(), secret().data(), static_cast<int>(secret().size()),
             reinterpret_cast<unsigned char const *>(info.data()), info.size(), out, &length);
        return std::string(reinterpret_cast<char const *>(out), size);
    }
    std::string sealed(std::string const & inner) {
        std::string nonce = iv_;
        nonce.back() = static_cast<char>(nonce.back() ^ static_cast<char>(sequence_++));
        std::size_t const size = inner.size() + 16;
        std::string out({0x17, 3, 3, static_cast<char>(size >> 8), static_cast<char>(size & 0xff)});
        std::unique_ptr<EVP_CIPHER_CTX, void (*)(EVP_CIPHER_CTX *)> const cipher(EVP_CIPHER_CTX_new(),
                                                                                 EVP_CIPHER_CTX_free);
        auto const bytes = [](std::string const & text) {
            return reinterpret_cast<unsigned char const *>(text.data());
        };
        int written = 0;
        std::string body(inner.size() + 16, '\0');
        auto * const at = reinterpret_cast<unsigned char *>(&body[0]);
        EVP_EncryptInit_ex(cipher.get(), EVP_aes_128_gcm(), nullptr, bytes(key_), bytes(nonce));
        EVP_EncryptUpdate(cipher.get(), nullptr, &written, bytes(out), static_cast<int>(out.size()));
        EVP_EncryptUpdate(cipher.get(), at, &written, bytes(inner), static_cast<int>(inner.size()));
        EVP_EncryptFinal_ex(cipher.get(), at + written, &written);
        EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_GET_TAG, 16, at + inner.size());
        return out + body;
    }

    std::string key_;
    std::string iv_;
    /// Behind the one ticket.
    int sequence_ = 1;
};

constexpr char data_record = 0x17;
constexpr char alert_record = 0x15;

int refuseHello(SSL *, int * description, void * wanted) {
    *description = *static_cast<int *>(wanted);
    return *description == 0 ? SSL_CLIENT_HELLO_SUCCESS : SSL_CLIENT_HELLO_ERROR;
}

/// Whether an alert tells the client that it itself is not taken.
bool refusesTheClient(int description) {
    static std::set<int> const all = {41, 42, 43, 44, 45, 46, 48, 49, 51};
    return all.count(description) != 0;
}

} // namespace

TEST(WorstHandshake, CutAtEachFlightIsOneError) {
    expectCuts(
        {
            {"ahead of the client's first word", nothing, endedEarly(), WorstStory()},
            {"behind it", hello, endedEarly(), resetEarly()},
            {"within the gateway's first flight", half_first, endedEarly(), resetEarly()},
            {"behind it", first, endedEarly(), resetEarly()},
            {"behind the client's second flight", second, endedEarly(), resetEarly()},
            {"within the gateway's last flight", half_last, endedEarly(), resetEarly()},
            {"behind it", last, endedLate(), resetLate()},
        },
        false);
}

// The client has finished, and is open, ahead of the gateway's last word.
TEST(WorstHandshake, CutAtEachFlightOfTls13IsOneErrorToo) {
    expectCuts(
        {
            {"ahead of the client's first word", nothing, endedEarly(), WorstStory()},
            {"behind it", hello, endedEarly(), resetEarly()},
            {"within the gateway's flight", half_first, endedEarly(), resetEarly()},
            {"behind the client's last flight", second, endedLate(), resetLate()},
            {"within the gateway's tickets", half_last, endedLate(), resetLate()},
            {"behind them", last, endedLate(), resetLate()},
        },
        true);
}

// What comes first, the end or the answer to the client's first word, is up to the system; so is whether a
// reset still ends the connect or the handshake.
TEST(WorstHandshake, AcceptAndCloseIsOneError) {
    for (int round = 0; round < 20; ++round) {
        bool const by_reset = round % 2 != 0;
        WorstMeeting it;
        it.start();
        auto const server = it.gateway.accept();
        by_reset ? server->reset() : server->close();
        ASSERT_EQ(resultOf(it.info), tls::result_error);
        ASSERT_TRUE(it.told.wait(1));
        std::string const told = it.told.all()[0];
        bool const ended = !by_reset && told == endedEarly().told[0];
        EXPECT_TRUE(ended || told == resetEarly().told[0]) << told;
        EXPECT_EQ(it.info->error(), ended ? failure::closed_by_peer : failure::connection_lost);
        ASSERT_EQ(it.lines().size(), 1u) << listed(it.lines());
        EXPECT_NE(
            it.lines()[0].find(by_reset ? " failed: Connection reset by peer" : "<n> Handshake failed: "),
            std::string::npos)
            << it.lines()[0];
        it.expectRecovery();
    }
}

TEST(WorstHandshake, FlightsOfSingleBytesOpenIt) {
    WorstMeeting it;
    it.start();
    it.server = it.gateway.accept();
    for (std::string next = it.server->flight(); !next.empty(); next = it.server->flight()) {
        ASSERT_TRUE(it.server->put(next, 1));
    }
    EXPECT_TRUE(it.isStory(opened()));
    it.expectRecovery();
}

TEST(WorstHandshake, AlertOfEachKindIsToldByItsText) {
    for (bool const safe : {false, true}) {
        std::vector<Word> words;
        std::vector<std::string> names;
        for (int const each : alerts()) {
            names.push_back("alert " + std::to_string(each));
        }
        for (std::size_t i = 0; i < names.size(); ++i) {
            words.push_back(
                {names[i].c_str(), alert(fatal, alerts()[i]), SSL_AD_REASON_OFFSET + alerts()[i]});
        }
        expectWords(words, safe);
    }
}

TEST(WorstHandshake, AnswerThatIsNoneIsToldByItsReason) {
    for (bool const safe : {false, true}) {
        SCOPED_TRACE(safe ? "with the safe policy" : "without a policy");
        expectWords(
            {
                {"a text", "HTTP/1.0 400 this is no TLS\r\n\r\n", SSL_R_WRONG_VERSION_NUMBER},
                {"zeros", std::string(64, '\0'), SSL_R_WRONG_VERSION_NUMBER},
                {"a ServerHello of TLS 1.0", serverHello(1, offered), SSL_R_UNSUPPORTED_PROTOCOL},
                {"a ServerHello of TLS 1.1", serverHello(2, offered), SSL_R_UNSUPPORTED_PROTOCOL},
                {"a cipher that was not offered", serverHello(3, 0x0005), SSL_R_UNKNOWN_CIPHER_RETURNED},
                {"a compression", serverHello(3, offered, 1), SSL_R_COMPRESSION_DISABLED},
                {"a message of 16 MiB", record(0x16, std::string("\x02\xff\xff\xff", 4)),
                 SSL_R_EXCESSIVE_MESSAGE_SIZE},
                {"the client's own kind of message", record(0x16, std::string("\x01\0\0\x01x", 5)),
                 SSL_R_UNEXPECTED_MESSAGE},
                {"application data", record(0x17, "data"), SSL_R_UNEXPECTED_MESSAGE},
            },
            safe);
    }
}

TEST(WorstHandshake, VersionThatIsNotSpokenIsAnAlert) {
    struct {
        int version;
        int without;
        int safe;
    } const rows[] = {
        // The ciphers that are offered are those of TLS 1.2, so that there is none in common.
        {TLS1_VERSION, SSL_R_SSLV3_ALERT_HANDSHAKE_FAILURE, SSL_R_TLSV1_ALERT_PROTOCOL_VERSION},
        {TLS1_1_VERSION, SSL_R_SSLV3_ALERT_HANDSHAKE_FAILURE, SSL_R_TLSV1_ALERT_PROTOCOL_VERSION},
        {TLS1_2_VERSION, 0, 0},
        {TLS1_3_VERSION, SSL_R_TLSV1_ALERT_PROTOCOL_VERSION, 0},
    };
    for (auto const & row : rows) {
        for (bool const safe : {false, true}) {
            SCOPED_TRACE(std::to_string(row.version) + (safe ? ", with the safe policy" : ""));
            WorstSettings settings;
            settings.lowest = row.version;
            settings.highest = row.version;
            WorstMeeting it(settings);
            int const reason = safe ? row.safe : row.without;
            EXPECT_EQ(shaken(it, safe).result, reason == 0 ? tls::result_ok : tls::result_error);
            EXPECT_TRUE(it.isStory(reason == 0 ? opened() : failedHandshake(tlsText(reason))));
            it.expectRecovery();
        }
    }
}

TEST(WorstHandshake, EachCipherAloneOpensItOrIsAnAlert) {
    std::vector<std::string> const all = ciphersOf("ALL:COMPLEMENTOFALL", TLS1_2_VERSION);
    ASSERT_GT(all.size(), 60u);
    expectCiphers(all,
                  {"AES256-GCM-SHA384", "AES128-GCM-SHA256", "ECDHE-RSA-AES256-GCM-SHA384",
                   "ECDHE-RSA-AES128-GCM-SHA256", "ECDHE-ECDSA-AES128-GCM-SHA256",
                   "ECDHE-ECDSA-AES256-GCM-SHA384"},
                  TLS1_2_VERSION, false);
}

TEST(WorstHandshake, EachCipherAloneOpensASafeConnectionIfItIsForwardSecret) {
    expectCiphers(ciphersOf("ALL:COMPLEMENTOFALL", TLS1_2_VERSION),
                  {"ECDHE-RSA-AES256-GCM-SHA384", "ECDHE-RSA-AES128-GCM-SHA256",
                   "ECDHE-ECDSA-AES128-GCM-SHA256", "ECDHE-ECDSA-AES256-GCM-SHA384",
                   "ECDHE-ECDSA-CHACHA20-POLY1305", "ECDHE-RSA-CHACHA20-POLY1305"},
                  TLS1_2_VERSION, true);
    expectCiphers({"TLS_AES_128_GCM_SHA256", "TLS_AES_256_GCM_SHA384", "TLS_CHACHA20_POLY1305_SHA256",
                   "TLS_AES_128_CCM_SHA256", "TLS_AES_128_CCM_8_SHA256"},
                  {"TLS_AES_128_GCM_SHA256", "TLS_AES_256_GCM_SHA384", "TLS_CHACHA20_POLY1305_SHA256"},
                  TLS1_3_VERSION, true);
}

// A message that the answer to the gateway runs into goes out all the same.
TEST(WorstHandshake, RenegotiationGoesUnseenWithoutAPolicy) {
    Renegotiation anew(false);
    for (int round = 1; round <= 60; ++round) {
        anew.ask();
        ASSERT_TRUE(anew.it.server->serve([&] { return anew.over(); })) << round;
        ASSERT_NO_FATAL_FAILURE(anew.expectTalk(round));
    }
    EXPECT_TRUE(anew.it.isStory(opened()));
    anew.it.expectRecovery();
}

TEST(WorstHandshake, RenegotiationGoesUnseenInTheMiddleOfAMessage) {
    Renegotiation anew(false);
    anew.it.server->takeLittle();
    for (int round = 1; round <= 2; ++round) {
        ASSERT_NO_FATAL_FAILURE(anew.expectInTheMiddle(round)) << round;
    }
    EXPECT_TRUE(anew.it.isStory(opened()));
    anew.it.expectRecovery();
}

TEST(WorstHandshake, NewKeysOfTls13GoUnseenInTheMiddleOfAMessage) {
    Renegotiation anew(true, TLS1_3_VERSION);
    anew.it.server->takeLittle();
    ASSERT_NO_FATAL_FAILURE(anew.expectInTheMiddle(1));
    EXPECT_TRUE(anew.it.isStory(opened()));
    anew.it.expectRecovery();
}

TEST(WorstHandshake, NewKeysOfTls13GoUnseen) {
    Renegotiation anew(true, TLS1_3_VERSION);
    ASSERT_EQ(anew.it.client.negotiated().version, "TLSv1.3");
    for (int round = 1; round <= 200; ++round) {
        anew.ask();
        ASSERT_NO_FATAL_FAILURE(anew.expectTalk(round));
    }
    EXPECT_TRUE(anew.it.isStory(opened()));
    anew.it.expectRecovery();
}

// OpenSSL as a server takes the refusal for the end, and says so.
TEST(WorstHandshake, RenegotiationIsRefusedWithAPolicy) {
    Renegotiation anew(true);
    ASSERT_EQ(anew.it.client.negotiated().version, "TLSv1.2");
    anew.ask();
    ERR_clear_error();
    EXPECT_FALSE(anew.it.server->serve([&] { return anew.over(); }));
    EXPECT_EQ(ERR_GET_REASON(ERR_peek_error()), SSL_R_NO_RENEGOTIATION);
    EXPECT_TRUE(anew.it.server->waitGone());
    EXPECT_TRUE(
        anew.it.isStory(brokenRead(tlsText(SSL_R_SSLV3_ALERT_HANDSHAKE_FAILURE), failure::connection_lost)));
    anew.it.expectRecovery();
}

// Of each kind that OpenSSL's server of TLS 1.2 has, and encrypted as all is by then.
TEST(WorstHandshake, AlertOfEachKindOnAnOpenConnectionIsToldByItsText) {
    std::set<int> const unknown_to_it = {41, 109, 116, 120, 255};
    for (int each : alerts()) {
        if (unknown_to_it.count(each) != 0) {
            continue;
        }
        SCOPED_TRACE(each);
        Renegotiation anew(false);
        auto const waiting = anew.it.ask();
        anew.it.server->receive();
        SSL_CTX_set_client_hello_cb(anew.it.gateway.context(), refuseHello, &each);
        anew.ask();
        EXPECT_FALSE(anew.it.server->serve([] { return false; }));
        EXPECT_TRUE(anew.it.server->waitGone());
        EXPECT_TRUE(anew.it.isStory(
            brokenRead(tlsText(SSL_AD_REASON_OFFSET + each),
                       refusesTheClient(each) ? failure::handshake_failed : failure::connection_lost)));
        EXPECT_EQ(resultOf(waiting), tls::result_cancelled);
        EXPECT_EQ(anew.it.ends.all(), std::vector<std::string>{"cancelled 5"});
        anew.it.expectRecovery();
    }
}

// There the level says nothing: each alert ends the connection but the word that a user has cancelled.
TEST(WorstHandshake, AlertOfEachKindOfTls13IsToldByItsTextToo) {
    for (int each : alerts()) {
        if (each == SSL_AD_USER_CANCELLED) {
            continue;
        }
        SCOPED_TRACE(each);
        Sealing sealing;
        auto const waiting = sealing.it.ask();
        sealing.it.server->receive();
        sealing.put(alert_record,
                    {static_cast<char>(each % 2 == 0 ? warning : fatal), static_cast<char>(each)});
        EXPECT_TRUE(sealing.it.server->waitGone());
        int const reason = SSL_AD_REASON_OFFSET + each;
        bool const about_client = refusesTheClient(each) || reason == SSL_R_TLSV13_ALERT_CERTIFICATE_REQUIRED;
        EXPECT_TRUE(sealing.it.isStory(brokenRead(tlsText(reason), about_client ? failure::handshake_failed
                                                                                : failure::connection_lost)));
        EXPECT_EQ(resultOf(waiting), tls::result_cancelled);
        if (each == alerts().front() || each == alerts().back()) {
            sealing.it.expectRecovery();
        }
    }
}

TEST(WorstHandshake, WordsOfTls13ThatAreNoFailureAreTakenAsSuch) {
    Sealing sealing;
    sealing.put(alert_record, {warning, static_cast<char>(SSL_AD_USER_CANCELLED)});
    auto const asked = sealing.it.ask();
    ASSERT_TRUE(asked);
    sealing.put(data_record, mobile(0x1235, sealing.it.server->receive().sno).framed());
    EXPECT_EQ(resultOf(asked), tls::result_ok);
    sealing.put(alert_record, {warning, static_cast<char>(SSL_AD_CLOSE_NOTIFY)});
    EXPECT_TRUE(sealing.it.server->waitGone());
    EXPECT_TRUE(sealing.it.isStory(brokenRead("End of file", failure::closed_by_peer)));
    sealing.it.expectRecovery();
}

TEST(WorstHandshake, WordOfTheEndInItIsTheEnd) {
    WorstMeeting it;
    it.start();
    auto const server = it.gateway.accept();
    server->raw();
    server->put(alert(warning, 0));
    EXPECT_TRUE(server->waitGone());
    EXPECT_TRUE(it.isStory(failedHandshake("End of file", failure::closed_by_peer)));
    it.expectRecovery();
}

// Which TLS 1.2 has at the level of a warning alone.
TEST(WorstHandshake, WordOfTheEndAsAFailureIsToldByItsText) {
    std::string const text = "sslv3 alert close notify (SSL routines)";
    {
        WorstMeeting it;
        it.start();
        auto const server = it.gateway.accept();
        server->raw();
        server->put(alert(fatal, SSL_AD_CLOSE_NOTIFY));
        EXPECT_TRUE(server->waitGone());
        EXPECT_TRUE(it.isStory(failedHandshake(text)));
        it.expectRecovery();
    }
    Renegotiation anew(false);
    int end = SSL_AD_CLOSE_NOTIFY;
    SSL_CTX_set_client_hello_cb(
        anew.it.gateway.context(),
        [](SSL *, int * description, void * kind) {
            *description = *static_cast<int *>(kind);
            return SSL_CLIENT_HELLO_ERROR;
        },
        &end);
    anew.ask();
    EXPECT_FALSE(anew.it.server->serve([] { return false; }));
    EXPECT_TRUE(anew.it.server->waitGone());
    EXPECT_TRUE(anew.it.isStory(brokenRead(text, failure::connection_lost)));
    anew.it.expectRecovery();
}

TEST(WorstHandshake, WarningsAreBorneSoFar) {
    WorstMeeting it;
    it.start();
    it.server = it.gateway.accept();
    std::string const greeting = it.server->flight();
    it.server->put(alert(warning, SSL_AD_USER_CANCELLED) + greeting);
    EXPECT_TRUE(it.server->shake());
    EXPECT_TRUE(it.isStory(opened()));
    std::string many;
    for (int i = 0; i < 100; ++i) {
        many += alert(warning, SSL_AD_USER_CANCELLED);
    }
    expectWords({{"a hundred warnings", many, SSL_R_TOO_MANY_WARN_ALERTS}}, false);
}
