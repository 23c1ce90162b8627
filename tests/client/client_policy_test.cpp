#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"
#include "support/log_capture.h"
#include "support/pki.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace tav_test;
using tls::client;
using tls::tls_policy;

namespace {

tls_policy trusting(std::string const & ca) {
    tls_policy out;
    out.trusted_pem = ca;
    return out;
}

/// A peer that shows a certificate which the tests' root has signed for loopback.
TlsIdentity const & named() {
    static TlsIdentity const the = [] {
        Identity const own{CertificateSpec(), &Pki::the().root};
        TlsIdentity out = TlsIdentity::ecdsa();
        out.ca = Pki::the().root.pem();
        out.chain = own.pem();
        out.key = own.keyPem();
        return out;
    }();
    return the;
}

/// An option of a connection that this process has to a port on loopback; -1 without such a connection.
int optionOfConnectionTo(unsigned port, int level, int name) {
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        int value = 0;
        socklen_t value_size = sizeof value;
        if (::getpeername(descriptor, reinterpret_cast<sockaddr *>(&address), &size) == 0 &&
            address.sin_family == AF_INET && ntohs(address.sin_port) == port &&
            ::getsockopt(descriptor, level, name, &value, &value_size) == 0) {
            return value;
        }
    }
    return -1;
}

/// The bytes of a client's part of a handshake with what is drawn by chance cut out: all of its first message
/// but the random, and of the messages behind it their heads.
std::string withoutChance(std::string const & wire) {
    std::ostringstream out;
    constexpr std::size_t record_head = 5;
    constexpr std::size_t random_at = record_head + 4 + 2;
    constexpr std::size_t random_size = 32;
    for (std::size_t at = 0; at + record_head <= wire.size();) {
        std::size_t const size =
            static_cast<unsigned char>(wire[at + 3]) * 256u + static_cast<unsigned char>(wire[at + 4]);
        std::string record = wire.substr(at, record_head + size);
        if (at == 0) {
            record.erase(random_at, random_size);
        } else {
            record.resize(record_head);
        }
        for (char const c : record) {
            out << std::hex << (static_cast<unsigned char>(c) >> 4) << (static_cast<unsigned char>(c) & 15);
        }
        out << "\n";
        at += record_head + size;
    }
    return out.str();
}

/// What a client sends for its first handshake.
std::string firstHandshake(std::function<void(tls::connect_option &)> const & change) {
    TlsPeer peer;
    Events events;
    client c("n");
    tls::connect_option option = optionFor(peer.port(), events);
    change(option);
    auto const info = c.start(option);
    auto const server = peer.accept();
    if (!server->handshake() || resultOf(info) != tls::result_ok) {
        return "no connection";
    }
    return withoutChance(server->wire());
}

} // namespace

TEST(ClientPolicyWire, EmptyPolicyChangesNoByteOfTheFirstHandshake) {
    std::string const plain = firstHandshake([](tls::connect_option &) {});
    EXPECT_EQ(std::count(plain.begin(), plain.end(), '\n'), 4) << plain;
    EXPECT_EQ(plain.compare(0, 6, "160301"), 0) << plain;
    // That the client can renegotiate safely is told by a cipher of its own, or by newer versions of OpenSSL
    // by an extension.
    bool const byCipher = plain.find("0303"
                                     "00"
                                     "000e009d009cc030c02fc02bc02c00ff"
                                     "0100") != std::string::npos;
    bool const byExtension = plain.find("0303"
                                        "00"
                                        "000c009d009cc030c02fc02bc02c"
                                        "0100") != std::string::npos &&
                             plain.find("ff01000100") != std::string::npos;
    EXPECT_NE(byCipher, byExtension) << "no session, the six ciphers, no compression: " << plain;
    EXPECT_EQ(plain, firstHandshake([](tls::connect_option & o) { o.policy = nullptr; }));
    EXPECT_EQ(plain, firstHandshake([](tls::connect_option & o) { o.set_tls_policy(tls_policy()); }));
    EXPECT_NE(plain,
              firstHandshake([](tls::connect_option & o) { o.cipher = "ECDHE-ECDSA-AES128-GCM-SHA256"; }))
        << "the comparison sees a difference";
}

// A name of the server is the first thing that a policy could add, and an address has none.
TEST(ClientPolicyWire, EmptyPolicyAddsNoNameOfTheServer) {
    auto const handshakeWith = [](std::function<void(tls::connect_option &)> const & change) {
        return firstHandshake([&change](tls::connect_option & o) {
            o.host = "localhost";
            change(o);
        });
    };
    std::string const plain = handshakeWith([](tls::connect_option &) {});
    EXPECT_EQ(plain.compare(0, 6, "160301"), 0) << plain;
    EXPECT_EQ(plain, firstHandshake([](tls::connect_option &) {})) << "by name as by address";
    EXPECT_EQ(plain, handshakeWith([](tls::connect_option & o) { o.set_tls_policy(tls_policy()); }));
    std::string const with_name = handshakeWith([](tls::connect_option & o) {
        tls_policy policy;
        policy.send_host_name = true;
        o.set_tls_policy(policy);
    });
    EXPECT_NE(with_name.find("6c6f63616c686f7374"), std::string::npos)
        << "the comparison sees \"localhost\": " << with_name;
    EXPECT_NE(plain, with_name);
}

TEST(ClientPolicyWire, PolicyWithoutAWireOptionChangesNoByteEither) {
    std::string const plain = firstHandshake([](tls::connect_option &) {});
    EXPECT_EQ(plain, firstHandshake([](tls::connect_option & o) {
                  tls_policy policy = trusting(TlsIdentity::ecdsa().ca);
                  policy.tcp_keep_alive_s = 60;
                  o.set_tls_policy(policy);
              }));
}

TEST(ClientPolicyStart, WrongPolicyFailsTheStartByName) {
    LogCapture log;
    Events events;
    client c("n");
    tls::connect_option option = optionFor(1, events);
    tls_policy policy = tls_policy::safe();
    policy.trusted_pem = named().ca;
    policy.certificate_pem = named().chain;
    policy.key_file = "/nowhere/key.pem";
    option.set_tls_policy(policy);
    EXPECT_EQ(resultOf(c.start(option)), tls::result_error);
    std::string const text = "tls policy: key_file /nowhere/key.pem: No such file or directory";
    ASSERT_TRUE(events.wait(1));
    EXPECT_EQ(events.all()[0], "error 10 on <n>global.on_error.0: " + text);
    ASSERT_TRUE(log.waitFor("<<< EXCEPTION >>> " + text));
    unsigned errors = 0;
    for (LogCapture::Record const & record : log.records()) {
        errors += record.level == tavLogger::ERROR && record.text.find(text) != std::string::npos ? 1u : 0u;
    }
    EXPECT_EQ(errors, 1u);
    EXPECT_FALSE(c.connected());
    EXPECT_EQ(events.count(), 1u);
}

TEST(ClientPolicyStart, WrongPolicyLeavesTheClientFitForARightOne) {
    ClientRig rig;
    tls::connect_option option = rig.option();
    tls_policy policy;
    policy.ciphers = "NO-SUCH";
    option.set_tls_policy(policy);
    EXPECT_EQ(resultOf(rig.client.start(option)), tls::result_error);
    ASSERT_TRUE(rig.events.wait(1));
    option.set_tls_policy(trusting(TlsIdentity::ecdsa().ca));
    rig.connect(option);
    EXPECT_TRUE(rig.client.connected());
    EXPECT_TRUE(rig.client.negotiated().verified);
}

TEST(ClientPolicyStart, FilesAreReadAnewAtAReconnect) {
    ClientRig rig;
    tls::connect_option option = rig.option();
    tls_policy policy = trusting(TlsIdentity::ecdsa().ca);
    TempFile const key(TlsIdentity::ecdsa().key);
    policy.certificate_pem = TlsIdentity::ecdsa().chain;
    policy.key_file = key.path();
    option.set_tls_policy(policy);
    rig.connect(option);
    std::ofstream(key.path()) << TlsIdentity::rsa().key;
    EXPECT_EQ(resultOf(rig.client.reconnect(tls::timedout_option())), tls::result_error);
    ASSERT_TRUE(rig.events.wait(2));
    EXPECT_NE(rig.events.all()[1].find("key_file " + key.path() + " does not match certificate_pem"),
              std::string::npos)
        << rig.events.all()[1];
    std::ofstream(key.path()) << TlsIdentity::ecdsa().key;
    rig.reconnect();
    EXPECT_TRUE(rig.client.connected());
}

TEST(ClientPolicyStart, OneStartsTrustIsNotAnothers) {
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.set_tls_policy(trusting(TlsIdentity::ecdsa().ca));
    rig.connect(option);
    EXPECT_TRUE(rig.client.negotiated().verified);
    option.set_tls_policy(trusting(TlsIdentity::rsa().ca));
    auto const info = rig.client.start(option);
    rig.server = rig.peer.accept();
    EXPECT_FALSE(rig.server->handshake());
    EXPECT_EQ(resultOf(info), tls::result_error);
    option.policy = nullptr;
    rig.connect(option);
    EXPECT_FALSE(rig.client.negotiated().verified);
}

TEST(ClientPolicyStart, ConnectionOfAnotherPolicyIsNotUsedAgain) {
    LogCapture log;
    ClientRig rig;
    tls::connect_option option = rig.option();
    rig.connect(option);
    EXPECT_EQ(resultOf(rig.client.start(option, true)), tls::result_ok);
    option.set_tls_policy(tls_policy());
    EXPECT_EQ(resultOf(rig.client.start(option, true)), tls::result_ok) << "an empty one is none";
    EXPECT_EQ(rig.peer.connections(), 1u);
    option.set_tls_policy(trusting(TlsIdentity::ecdsa().ca));
    rig.finish(rig.client.start(option, true));
    EXPECT_EQ(rig.peer.connections(), 2u);
    EXPECT_TRUE(rig.client.negotiated().verified);
    EXPECT_EQ(resultOf(rig.client.start(option, true)), tls::result_ok);
    EXPECT_EQ(rig.peer.connections(), 2u);
    EXPECT_EQ(log.count(" connected already, no need to start again"), 3u);
}

TEST(ClientPolicyStart, HostIsToldUnlessItIsAnAddress) {
    tls_policy policy;
    policy.send_host_name = true;
    for (char const * host : {"localhost", "127.0.0.1"}) {
        ClientRig rig;
        tls::connect_option option = rig.option();
        option.host = host;
        option.set_tls_policy(policy);
        rig.connect(option);
        EXPECT_EQ(rig.server->serverName(), std::string(host) == "localhost" ? "localhost" : "");
    }
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.server_name = "front.example";
    option.set_tls_policy(policy);
    rig.connect(option);
    EXPECT_EQ(rig.server->serverName(), "front.example");
}

TEST(ClientPolicyStart, SystemWatchesOverTheConnectionOnlyIfAskedTo) {
    ClientRig rig;
    rig.connect();
    EXPECT_EQ(optionOfConnectionTo(rig.peer.port(), SOL_SOCKET, SO_KEEPALIVE), 0);
    tls::connect_option option = rig.option();
    tls_policy policy;
    policy.tcp_keep_alive_s = 33;
    policy.tcp_user_timeout_ms = 4444;
    option.set_tls_policy(policy);
    rig.connect(option);
    EXPECT_TRUE(eventually(
        [&rig] { return optionOfConnectionTo(rig.peer.port(), IPPROTO_TCP, TCP_USER_TIMEOUT) == 4444; }));
    EXPECT_EQ(optionOfConnectionTo(rig.peer.port(), SOL_SOCKET, SO_KEEPALIVE), 1);
    EXPECT_EQ(optionOfConnectionTo(rig.peer.port(), IPPROTO_TCP, TCP_KEEPIDLE), 33);
}

TEST(ClientPolicyStart, NameBehindAProxyIsTheHostsAndNotTheProxys) {
    for (bool const right : {true, false}) {
        Identity const own{CertificateSpec().withNames(right ? "DNS:gate.example" : "IP:127.0.0.1"),
                           &Pki::the().root};
        TlsIdentity shown = named();
        shown.chain = own.pem();
        shown.key = own.keyPem();
        TlsPeer peer(shown);
        Events events;
        client c("n");
        tls::connect_option option = optionFor(peer.port(), events);
        option.host = "gate.example";
        option.proxy_host = "127.0.0.1";
        option.proxy_port = peer.portText();
        option.set_on_http_proxy_connect([](unsigned, char const *, unsigned short) { return 0; });
        tls_policy policy = tls_policy::safe();
        policy.trusted_pem = named().ca;
        option.set_tls_policy(policy);
        auto const info = c.start(option);
        auto const server = peer.accept();
        EXPECT_EQ(server->handshake(), right);
        EXPECT_EQ(resultOf(info), right ? tls::result_ok : tls::result_error);
        EXPECT_EQ(server->serverName(), "gate.example");
    }
}

TEST(ClientPolicyStart, BelievingAnybodyIsToldAtWarn) {
    LogCapture log;
    TempFile const system(named().ca);
    ::setenv("SSL_CERT_FILE", system.path().c_str(), 1);
    TlsPeer peer(named());
    Events events;
    client c("n");
    tls::connect_option option = optionFor(peer.port(), events);
    auto const connect = [&](tls_policy const & policy) {
        option.set_tls_policy(policy);
        log.clear();
        auto const info = c.start(option);
        auto const server = peer.accept();
        EXPECT_TRUE(server->handshake());
        EXPECT_EQ(resultOf(info), tls::result_ok);
    };
    std::string const nothing = "<n> no certificates to trust were given: any peer is believed";
    std::string const no_name = "<n> the system's authorities are trusted and no name is checked: any peer "
                                "with a public certificate is believed";
    tls_policy policy;
    policy.send_host_name = true;
    connect(policy);
    EXPECT_TRUE(log.waitFor(nothing));
    EXPECT_EQ(log.find(nothing).level, tavLogger::WARN);
    policy.trust_system = tls::system_trust_alone;
    connect(policy);
    EXPECT_EQ(log.find(no_name).level, tavLogger::WARN);
    EXPECT_FALSE(log.contains(nothing));
    policy.check_name = true;
    connect(policy);
    EXPECT_FALSE(log.contains(no_name));
    ::unsetenv("SSL_CERT_FILE");
}

TEST(ClientPolicyStart, KeyLogIsGivenOutAndAnnouncedAtEachStart) {
    LogCapture log;
    auto const lines = std::make_shared<Events>();
    ClientRig rig;
    tls::connect_option option = rig.option();
    tls_policy policy;
    policy.key_log = [lines](char const * line) { lines->add(line); };
    option.set_tls_policy(policy);
    rig.connect(option);
    ASSERT_TRUE(lines->wait(1));
    EXPECT_EQ(lines->all()[0].compare(0, 14, "CLIENT_RANDOM "), 0);
    EXPECT_EQ(log.find("<n> key log is on: ").level, tavLogger::WARN);
    rig.reconnect();
    EXPECT_EQ(lines->count(), 2u);
    EXPECT_EQ(log.count("<n> key log is on: "), 2u);
}

TEST(ClientPolicyStart, NameMismatchSaysWhichNameWasWanted) {
    LogCapture log;
    TlsPeer peer(named());
    Events events;
    client c("n");
    tls::connect_option option = optionFor(peer.port(), events);
    tls_policy policy = trusting(named().ca);
    policy.expected_name = "gate.example";
    option.set_tls_policy(policy);
    auto const info = c.start(option);
    EXPECT_FALSE(peer.accept()->handshake());
    EXPECT_EQ(resultOf(info), tls::result_error);
    LogCapture::Record const line = log.find(" certificate refused: hostname mismatch, depth 0");
    EXPECT_EQ(line.level, tavLogger::ERROR);
    EXPECT_NE(line.text.find("expected gate.example"), std::string::npos) << line.text;
}

TEST(ClientPolicyTls13, CarriesMessagesBothWays) {
    TlsPeer peer(named(), "", TLS1_3_VERSION);
    Events events;
    client c("n");
    tls::connect_option option = optionFor(peer.port(), events);
    tls_policy policy = tls_policy::safe();
    policy.trusted_pem = named().ca;
    option.set_tls_policy(policy);
    c.register_message(0x1235, &Answer::create);
    auto const info = c.start(option);
    auto const server = peer.accept();
    ASSERT_TRUE(server->handshake());
    ASSERT_EQ(resultOf(info), tls::result_ok);
    EXPECT_EQ(server->protocol(), "TLSv1.3");
    std::thread gateway([&server] {
        for (int i = 0; i < 50; ++i) {
            Pkt const asked = Pkt::of(server->receiveFrame());
            Pkt reply = mobile(0x1235, asked.sno, bodyOf(i));
            server->send(reply.framed());
        }
    });
    for (int i = 0; i < 50; ++i) {
        Answer answer;
        EXPECT_EQ(c.send_and_wait(Ask(1), answer, 10000), tls::result_ok);
        EXPECT_EQ(answer.number, i);
    }
    gateway.join();
}

TEST(ClientPolicyNegotiated, IsEmptyWithoutAConnection) {
    ClientRig rig;
    EXPECT_TRUE(rig.client.negotiated().empty());
    auto const info = rig.client.start(rig.option());
    rig.server = rig.peer.accept();
    EXPECT_TRUE(rig.client.negotiated().empty()) << "no handshake yet";
    rig.server->handshake();
    ASSERT_EQ(resultOf(info), tls::result_ok);
    tls::tls_report const report = rig.client.negotiated();
    EXPECT_EQ(report.version, "TLSv1.2");
    EXPECT_EQ(report.cipher, rig.server->cipher());
    EXPECT_FALSE(report.verified);
    ASSERT_EQ(report.chain.size(), 1u);
    EXPECT_EQ(report.chain[0].subject, "CN=localhost");
    rig.server->close();
    ASSERT_TRUE(rig.events.wait(2));
    EXPECT_TRUE(rig.client.negotiated().empty()) << "the connection has broken";
    rig.reconnect();
    EXPECT_FALSE(rig.client.negotiated().empty());
    rig.client.close();
    EXPECT_TRUE(eventually([&rig] { return rig.client.negotiated().empty(); }));
    EXPECT_EQ(report.version, "TLSv1.2") << "a value stays";
}

TEST(ClientPolicyNegotiated, CanBeAskedFromEverywhereWhileConnectionsComeAndGo) {
    ClientRig rig;
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done) {
            tls::tls_report const report = rig.client.negotiated();
            EXPECT_TRUE(report.empty() || report.version == "TLSv1.2");
        }
    });
    tls::connect_option option = rig.option();
    option.set_on_open(
        [&rig] { rig.events.add(rig.client.negotiated().empty() ? "empty in on_open" : "told in on_open"); });
    for (int i = 0; i < 10; ++i) {
        rig.connect(option);
    }
    done = true;
    reader.join();
    EXPECT_EQ(rig.events.count("told in on_open"), 10u);
}
