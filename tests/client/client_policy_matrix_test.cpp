#include "tav/vinta/vinta_tls_client.h"

#include "support/openssl_server.h"

#include <gtest/gtest.h>

using namespace tav_test;
using tls::tls_policy;

namespace {

std::unique_ptr<ServerProcess> openssl(ServerSettings const & settings) {
    return std::make_unique<OpensslServer>(settings);
}

ServerSettings showing(std::vector<Identity const *> chain, int version) {
    ServerSettings out;
    out.chain = std::move(chain);
    out.version = version;
    return out;
}

/// Whether this machine has an address of IPv6 to listen on.
bool hasIpv6() {
    int const descriptor = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    bool const out =
        descriptor >= 0 && ::bind(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    ::close(descriptor);
    return out;
}

} // namespace

TEST(ClientPolicyMatrix, ChainsAreRefusedForTheirReasons) {
    expectRows(CertificateRows().chains(), openssl);
}

TEST(ClientPolicyMatrix, NamesAreCheckedWithAPolicyOnly) {
    expectRows(CertificateRows().names(), openssl);
}

TEST(ClientPolicyMatrix, KeyBelowThePolicysLevelIsRefused) {
    Identity const weak{CertificateSpec().withRsa(1024), &Pki::the().root};
    for (int const version : {2, 3}) {
        OpensslServer const server(showing({&weak}, version));
        Attempts attempts(server);
        EXPECT_TRUE(isOutcome(attempts.with(safePolicy()), "EE certificate key too weak"));
        tls_policy lax = safePolicy();
        lax.security_level = 0;
        EXPECT_TRUE(isOutcome(attempts.with(lax), ""));
    }
}

TEST(ClientPolicyMatrix, WildcardStandsForOneLabel) {
    Identity const wild{CertificateSpec().withNames("DNS:*.gate.example"), &Pki::the().root};
    for (int const version : {2, 3}) {
        OpensslServer const server(showing({&wild}, version));
        Attempts attempts(server);
        tls_policy policy = safePolicy();
        policy.expected_name = "one.gate.example";
        EXPECT_TRUE(isOutcome(attempts.with(policy), ""));
        EXPECT_EQ(attempts.report.matched_name, "*.gate.example");
        for (char const * name : {"one.two.gate.example", "gate.example"}) {
            policy.expected_name = name;
            EXPECT_TRUE(isOutcome(attempts.with(policy), "hostname mismatch")) << name;
        }
    }
}

TEST(ClientPolicyMatrix, HostThatIsANameIsChecked) {
    Pki const & pki = Pki::the();
    Identity const right{CertificateSpec().withNames("DNS:localhost"), &pki.root};
    Identity const other{CertificateSpec().withNames("DNS:other.example,IP:127.0.0.1"), &pki.root};
    for (int const version : {2, 3}) {
        OpensslServer const good(showing({&right}, version));
        Attempts known(good, "localhost");
        EXPECT_TRUE(isOutcome(known.with(safePolicy()), ""));
        EXPECT_EQ(known.report.matched_name, "localhost");
        OpensslServer const bad(showing({&other}, version));
        EXPECT_TRUE(isOutcome(Attempts(bad, "localhost").with(safePolicy()), "hostname mismatch"));
    }
}

// Where the machine has no IPv6, an address of it can't be reached, and that is told.
TEST(ClientPolicyMatrix, HostThatIsAnAddressOfIpv6IsChecked) {
    Pki const & pki = Pki::the();
    Identity const right{CertificateSpec().withNames("IP:::1"), &pki.root};
    Identity const other{CertificateSpec().withNames("IP:127.0.0.1,IP:::2"), &pki.root};
    Identity const written{CertificateSpec().withNames("DNS:::1,DNS:localhost"), &pki.root};
    for (int const version : {2, 3}) {
        for (Identity const * each : {&right, &other, &written}) {
            ServerSettings settings = showing({each}, version);
            settings.ipv6 = hasIpv6();
            OpensslServer const server(settings);
            Attempts attempts(server, "::1");
            Outcome const outcome = attempts.with(safePolicy());
            if (settings.ipv6) {
                EXPECT_TRUE(isOutcome(outcome, each == &right ? "" : "IP address mismatch"));
                EXPECT_EQ(attempts.report.matched_name, each == &right ? "::1" : "");
            } else {
                EXPECT_EQ(outcome.failure, tls::failure::unreachable);
            }
        }
    }
}

TEST(ClientPolicyMatrix, RevokedIsRefusedAndAMissingListToo) {
    Pki const & pki = Pki::the();
    Identity const gone{CertificateSpec(), &pki.root};
    TempFile const root(pki.root.pem());
    TempFile const lists(pki.root.revocationList(gone.certificate()));
    tls::connect_option plain;
    plain.ca = root.path();
    for (int const version : {2, 3}) {
        OpensslServer const server(showing({&gone}, version));
        Attempts attempts(server);
        EXPECT_TRUE(isOutcome(attempts.with(safePolicy()), ""));
        if (version == 2) {
            EXPECT_TRUE(isOutcome(attempts.with(plain), "")) << "without lists nobody knows";
        }
        tls_policy policy = safePolicy();
        policy.crl_file = lists.path();
        EXPECT_TRUE(isOutcome(attempts.with(policy), "certificate revoked"));
        policy.crl_file.clear();
        policy.crl_pem = pki.stranger.revocationList();
        EXPECT_TRUE(isOutcome(attempts.with(policy), "unable to get certificate CRL"));
        policy.crl_pem = pki.root.revocationList();
        EXPECT_TRUE(isOutcome(attempts.with(policy), ""));
    }
}

TEST(ClientPolicyMatrix, ClientCertificateIsShownOrMissed) {
    expectClientRows(openssl, "sslv3 alert handshake failure");
}

TEST(ClientPolicyMatrix, ReportTellsWhatWasNegotiated) {
    Identity const own{CertificateSpec().named("gate"), &Pki::the().middle};
    for (int const version : {2, 3}) {
        OpensslServer const server(showing({&own, &Pki::the().middle}, version), {"-alpn", "im/2,im/1"});
        Attempts attempts(server);
        tls_policy policy = safePolicy();
        policy.alpn = {"im/1", "im/2"};
        ASSERT_TRUE(isOutcome(attempts.with(policy), ""));
        tls::tls_report const & report = attempts.report;
        EXPECT_EQ(report.version, version == 2 ? "TLSv1.2" : "TLSv1.3");
        EXPECT_EQ(report.cipher, version == 2 ? "ECDHE-ECDSA-AES128-GCM-SHA256" : "TLS_AES_256_GCM_SHA384");
        EXPECT_EQ(report.alpn, "im/2") << "the server's choice";
        EXPECT_TRUE(report.verified);
        EXPECT_EQ(report.matched_name, "127.0.0.1");
        EXPECT_EQ(report.verify_result, 0);
        ASSERT_EQ(report.chain.size(), 2u);
        EXPECT_EQ(report.chain[0].subject, "CN=gate");
        EXPECT_EQ(report.chain[0].issuer, "CN=Test Middle");
        EXPECT_EQ(report.chain[1].subject, "CN=Test Middle");
        policy.alpn = {"http/1.1"};
        EXPECT_TRUE(isOutcome(attempts.with(policy),
                              alertedWith("tlsv1 alert no application protocol (SSL routines)")))
            << "this server insists on a protocol that it knows";
    }
}
