#include "client/peer_report.h"
#include "client/tls_setup.h"

#include "support/memory_tls.h"
#include "support/session_rig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

using namespace tav_test;
namespace tls = tav::tls;
using tls::tls_policy;

namespace {

tls_policy trustingTheRoot() {
    tls_policy out = tls_policy::safe();
    out.trusted_pem = Pki::the().root.pem();
    return out;
}

std::unique_ptr<impl::tls_setup> setup(std::string host, tls_policy const & policy) {
    tls::connect_option option;
    option.host = std::move(host);
    option.set_tls_policy(policy);
    return std::make_unique<impl::tls_setup>("<t>", option);
}

/// "ok", or why the server's certificate is refused by a policy; " against its words" if the handshake says
/// otherwise.
std::string verdict(std::string const & host, tls_policy const & policy, ServerSpec const & server) {
    auto const made = setup(host, policy);
    MemoryTls ends(made->ssl_context().native_handle(), server, SSL_VERIFY_PEER);
    bool const open = ends.handshake();
    std::string const words = ends.verdict();
    return (words == "ok") == open ? words : words + " against its words";
}

/// The same for a server whose certificate the root has signed for these names.
std::string verdictOnNames(std::string const & host, std::string const & names,
                           std::string const & common = "nobody") {
    Identity const own{CertificateSpec().named(common).withNames(names), &Pki::the().root};
    ServerSpec server;
    server.own = &own;
    return verdict(host, trustingTheRoot(), server);
}

} // namespace

TEST(TlsPolicyVerifyName, DnsNamesAreCompared) {
    std::string const names = "DNS:a.example,DNS:B.Example,DNS:xn--bcher-kva.example";
    EXPECT_EQ(verdictOnNames("a.example", names), "ok");
    EXPECT_EQ(verdictOnNames("b.example", names), "ok");
    EXPECT_EQ(verdictOnNames("A.EXAMPLE", names), "ok");
    EXPECT_EQ(verdictOnNames("a.example.", names), "ok") << "the root's point is no part of the name";
    EXPECT_EQ(verdictOnNames("xn--bcher-kva.example", names), "ok");
    for (char const * host : {"c.example", "x.a.example", "example", "a.example.org", "aXexample"}) {
        EXPECT_EQ(verdictOnNames(host, names), "hostname mismatch") << host;
    }
}

TEST(TlsPolicyVerifyName, WildcardStandsForOneWholeLabel) {
    std::string const names = "DNS:*.a.example";
    EXPECT_EQ(verdictOnNames("x.a.example", names), "ok");
    EXPECT_EQ(verdictOnNames("X-1.A.example", names), "ok");
    for (char const * host : {"a.example", "x.y.a.example", "xa.example", "b.example", "127.0.0.1"}) {
        EXPECT_NE(verdictOnNames(host, names), "ok") << host;
    }
    EXPECT_EQ(verdictOnNames("xyz.a.example", "DNS:x*.a.example"), "hostname mismatch") << "part of a label";
    EXPECT_EQ(verdictOnNames("x.example", "DNS:*.example"), "hostname mismatch") << "a whole top domain";
    EXPECT_EQ(verdictOnNames("x.a.example", "DNS:*.*.example"), "hostname mismatch");
    EXPECT_EQ(verdictOnNames("x", "DNS:*"), "hostname mismatch");
}

TEST(TlsPolicyVerifyName, AddressesAreCompared) {
    std::string const names = "IP:192.0.2.7,IP:2001:db8::7";
    EXPECT_EQ(verdictOnNames("192.0.2.7", names), "ok");
    EXPECT_EQ(verdictOnNames("2001:db8::7", names), "ok");
    EXPECT_EQ(verdictOnNames("2001:0DB8:0:0::0007", names), "ok");
    EXPECT_EQ(verdictOnNames("2001:db8::7%eth0", names), "ok") << "a zone is no part of the address";
    EXPECT_EQ(verdictOnNames("192.0.2.8", names), "IP address mismatch");
    EXPECT_EQ(verdictOnNames("2001:db8::8", names), "IP address mismatch");
    EXPECT_EQ(verdictOnNames("::ffff:192.0.2.7", names), "IP address mismatch");
}

TEST(TlsPolicyVerifyName, AddressWrittenAsANameIsNoAddress) {
    EXPECT_EQ(verdictOnNames("192.0.2.7", "DNS:192.0.2.7"), "IP address mismatch");
    EXPECT_EQ(verdictOnNames("192.0.2.7", "DNS:*.0.2.7"), "IP address mismatch");
    EXPECT_EQ(verdictOnNames("192.0.2.7", "", "192.0.2.7"), "IP address mismatch");
}

TEST(TlsPolicyVerifyName, CommonNameCountsForNothing) {
    EXPECT_EQ(verdictOnNames("a.example", "", "a.example"), "hostname mismatch");
    EXPECT_EQ(verdictOnNames("a.example", "DNS:b.example", "a.example"), "hostname mismatch");
}

TEST(TlsPolicyVerifyName, NameWithAZeroByteIsNotTheNameAheadOfIt) {
    EXPECT_EQ(verdictOnNames("a.example", "otherName:1.2.3;UTF8:a.example"), "hostname mismatch");
    std::string const cut = std::string("a.example") + '\0' + ".evil.example";
    Identity const own{CertificateSpec().named(cut).withNames(""), &Pki::the().root};
    ServerSpec server;
    server.own = &own;
    EXPECT_EQ(verdict("a.example", trustingTheRoot(), server), "hostname mismatch");
}

TEST(TlsPolicyVerifyName, GivenNameStandsInForTheHost) {
    Identity const own{CertificateSpec().withNames("DNS:a.example"), &Pki::the().root};
    ServerSpec server;
    server.own = &own;
    tls_policy policy = trustingTheRoot();
    policy.expected_name = "a.example";
    EXPECT_EQ(verdict("192.0.2.7", policy, server), "ok");
    policy.check_name = false;
    EXPECT_EQ(verdict("192.0.2.7", policy, server), "ok");
    policy.expected_name = "b.example";
    EXPECT_EQ(verdict("a.example", policy, server), "hostname mismatch") << "a name turns the check on";
    policy.expected_name.clear();
    EXPECT_EQ(verdict("b.example", policy, server), "ok") << "not checked";
}

TEST(TlsPolicyVerifyChain, FaultsHaveTheirReasonsInBothVersions) {
    Pki const & pki = Pki::the();
    Identity const good{CertificateSpec(), &pki.root};
    Identity const expired{CertificateSpec().valid(-7200, -3600), &pki.root};
    Identity const early{CertificateSpec().valid(3600, 7200), &pki.root};
    Identity const alone{CertificateSpec()};
    Identity const strange{CertificateSpec(), &pki.stranger};
    Identity const below{CertificateSpec(), &pki.middle};
    Identity const usage{CertificateSpec().forPurpose("clientAuth"), &pki.root};
    Identity const weak{CertificateSpec().withRsa(1024), &pki.root};
    Identity const byLeaf{CertificateSpec(), &good};
    using Chain = std::vector<Identity const *>;
    struct {
        char const * what;
        Chain chain;
        char const * reason;
    } const cases[] = {
        {"valid", {&good}, "ok"},
        {"expired", {&expired}, "certificate has expired"},
        {"not yet valid", {&early}, "certificate is not yet valid"},
        {"self-signed", {&alone}, "self-signed certificate"},
        {"unknown issuer", {&strange}, "unable to get local issuer certificate"},
        {"unknown root", {&strange, &pki.stranger}, "self-signed certificate in certificate chain"},
        {"missing intermediate", {&below}, "unable to get local issuer certificate"},
        {"with intermediate", {&below, &pki.middle}, "ok"},
        {"wrong purpose", {&usage}, "unsuitable certificate purpose"},
        {"weak key", {&weak}, "EE certificate key too weak"},
        {"signed by no authority", {&byLeaf, &good}, "invalid CA certificate"},
    };
    for (auto const & each : cases) {
        for (int const version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
            ServerSpec server;
            server.own = each.chain.front();
            server.above.assign(each.chain.begin() + 1, each.chain.end());
            server.version = version;
            EXPECT_EQ(verdict("localhost", trustingTheRoot(), server), each.reason)
                << each.what << ", version " << version;
        }
    }
}

TEST(TlsPolicyVerifyChain, RevocationListsDecide) {
    Pki const & pki = Pki::the();
    Identity const good{CertificateSpec(), &pki.root};
    Identity const gone{CertificateSpec(), &pki.root};
    Identity const below{CertificateSpec(), &pki.middle};
    std::string const ofRoot = pki.root.revocationList(gone.certificate());
    auto const with = [](std::string const & lists, Identity const & own, bool chain = false) {
        tls_policy policy = trustingTheRoot();
        policy.crl_pem = lists;
        policy.crl_check_chain = chain;
        ServerSpec server;
        server.own = &own;
        server.above = {&Pki::the().middle};
        return verdict("localhost", policy, server);
    };
    EXPECT_EQ(with(ofRoot, good), "ok");
    EXPECT_EQ(with(ofRoot, gone), "certificate revoked");
    EXPECT_EQ(with(ofRoot, below), "unable to get certificate CRL");
    EXPECT_EQ(with(pki.root.revocationList(gone.certificate(), -7200, -3600), good), "CRL has expired");
    EXPECT_EQ(with(pki.root.revocationList(gone.certificate(), 3600, 7200), good), "CRL is not yet valid");

    std::string const ofMiddle = pki.middle.revocationList();
    EXPECT_EQ(with(ofMiddle, below), "ok");
    EXPECT_EQ(with(ofMiddle, below, true), "unable to get certificate CRL") << "none of the root";
    EXPECT_EQ(with(ofMiddle + ofRoot, below, true), "ok");
    std::string const againstMiddle = pki.root.revocationList(pki.middle.certificate());
    EXPECT_EQ(with(ofMiddle + againstMiddle, below), "ok");
    EXPECT_EQ(with(ofMiddle + againstMiddle, below, true), "certificate revoked");
}

TEST(TlsPolicyVerifyChain, EarlierPoliciesLeaveNothingBehind) {
    Identity const own{CertificateSpec(), &Pki::the().root};
    ServerSpec server;
    server.own = &own;
    EXPECT_EQ(verdict("localhost", trustingTheRoot(), server), "ok");
    tls_policy other = tls_policy::safe();
    other.trusted_pem = Pki::the().stranger.pem();
    EXPECT_EQ(verdict("localhost", other, server), "unable to get local issuer certificate");
}

TEST(TlsPolicyVerifyIdentity, ClientShowsItsCertificateAndItsChain) {
    Pki const & pki = Pki::the();
    Identity const own{CertificateSpec(), &pki.root};
    Identity const mine{CertificateSpec().named("me").forPurpose("clientAuth"), &pki.middle};
    Identity const wrong{CertificateSpec().named("me").forPurpose("clientAuth"), &pki.stranger};
    for (int const version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        ServerSpec server;
        server.own = &own;
        server.version = version;
        server.clients = &pki.root;
        auto const open = [&server](tls_policy const & policy) {
            auto const made = setup("localhost", policy);
            return MemoryTls(made->ssl_context().native_handle(), server, SSL_VERIFY_PEER).handshake();
        };
        tls_policy policy = trustingTheRoot();
        EXPECT_FALSE(open(policy)) << "none is given";
        policy.certificate_pem = mine.pem() + pki.middle.pem();
        policy.key_pem = mine.keyPem("secret");
        policy.key_password = [] { return std::string("secret"); };
        EXPECT_TRUE(open(policy));
        policy.certificate_pem = mine.pem();
        EXPECT_FALSE(open(policy)) << "without what leads to the root";
        policy.certificate_pem = wrong.pem();
        policy.key_pem = wrong.keyPem();
        EXPECT_FALSE(open(policy)) << "of another authority";
    }
}

TEST(TlsPolicyVerifyWire, ServerIsToldNameAndProtocols) {
    Identity const own{CertificateSpec(), &Pki::the().root};
    ServerSpec server;
    server.own = &own;
    server.alpn = "im/2";
    tls_policy policy = trustingTheRoot();
    policy.alpn = {"im/3", "im/2"};
    auto const made = setup("localhost", policy);
    MemoryTls ends(made->ssl_context().native_handle(), server, SSL_VERIFY_PEER);
    SSL_set_tlsext_host_name(ends.client(), made->server_name().c_str());
    ASSERT_TRUE(ends.handshake());
    EXPECT_EQ(ends.serverName(), "localhost");
    EXPECT_EQ(impl::report_of(ends.client(), true).alpn, "im/2");
}

TEST(TlsPolicyVerifyWire, SafeOffersForwardSecrecyOnly) {
    auto const made = setup("localhost", trustingTheRoot());
    STACK_OF(SSL_CIPHER) * const all = SSL_CTX_get_ciphers(made->ssl_context().native_handle());
    ASSERT_GT(sk_SSL_CIPHER_num(all), 6);
    for (int i = 0; i < sk_SSL_CIPHER_num(all); ++i) {
        std::string const name = SSL_CIPHER_get_name(sk_SSL_CIPHER_value(all, i));
        EXPECT_TRUE(name.rfind("TLS_", 0) == 0 || name.rfind("ECDHE-", 0) == 0) << name;
    }
    EXPECT_EQ(SSL_CTX_get_security_level(made->ssl_context().native_handle()), 2);
}

TEST(TlsPolicyVerifyKeyLog, GivesTheSecretsOfBothVersions) {
    Identity const own{CertificateSpec(), &Pki::the().root};
    std::map<int, std::vector<std::string>> const expected = {
        {TLS1_2_VERSION, {"CLIENT_RANDOM "}},
        {TLS1_3_VERSION, {"CLIENT_HANDSHAKE_TRAFFIC_SECRET ", "SERVER_TRAFFIC_SECRET_0 "}}};
    for (auto const & version : expected) {
        std::vector<std::string> lines;
        tls_policy policy = trustingTheRoot();
        policy.key_log = [&lines](char const * line) {
            lines.emplace_back(line);
            throw std::runtime_error("does no harm");
        };
        ServerSpec server;
        server.own = &own;
        server.version = version.first;
        EXPECT_EQ(verdict("localhost", policy, server), "ok");
        for (std::string const & word : version.second) {
            EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                                    [&](std::string const & line) { return line.rfind(word, 0) == 0; }),
                      1)
                << word;
        }
    }
}

TEST(TlsPolicyVerifyPeerReport, TellsWhatWasNegotiated) {
    Pki const & pki = Pki::the();
    Identity const own{CertificateSpec().named("me").withNames("DNS:localhost,IP:127.0.0.1,IP:::1,DNS:b c"),
                       &pki.middle};
    for (int const version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        ServerSpec server;
        server.own = &own;
        server.above = {&pki.middle};
        server.version = version;
        auto const made = setup("localhost", trustingTheRoot());
        MemoryTls ends(made->ssl_context().native_handle(), server, SSL_VERIFY_PEER);
        ASSERT_TRUE(ends.handshake());
        tls::tls_report const report = impl::report_of(ends.client(), true);
        EXPECT_FALSE(report.empty());
        bool const old = version == TLS1_2_VERSION;
        EXPECT_EQ(report.version, old ? "TLSv1.2" : "TLSv1.3");
        EXPECT_EQ(report.cipher, old ? "ECDHE-ECDSA-AES128-GCM-SHA256" : "TLS_AES_256_GCM_SHA384");
        EXPECT_EQ(report.alpn, "");
        EXPECT_TRUE(report.verified);
        EXPECT_EQ(report.matched_name, "localhost");
        EXPECT_EQ(report.verify_result, 0);
        EXPECT_EQ(report.verify_text, "ok");
        ASSERT_EQ(report.chain.size(), 2u);
        EXPECT_EQ(report.chain[0].subject, "CN=me");
        EXPECT_EQ(report.chain[0].issuer, "CN=Test Middle");
        EXPECT_EQ(report.chain[1].subject, "CN=Test Middle");
        EXPECT_EQ(report.chain[1].issuer, "CN=Test Root");
        EXPECT_EQ(report.chain[0].names,
                  (std::vector<std::string>{"localhost", "127.0.0.1", "::1", "b\\20c"}));
        EXPECT_TRUE(report.chain[1].names.empty());
        std::ostringstream text;
        text << report;
        EXPECT_EQ(text.str(), report.version + " " + report.cipher + ", verified as localhost, peer CN=me");
    }
    EXPECT_TRUE(tls::tls_report().empty());
}

TEST(TlsPolicyVerifyPeerReport, DescribesValidityAndFingerprint) {
    long long const now = tavTime::currentTimeMillis();
    Identity const own{CertificateSpec().valid(-3600, 7200)};
    tls::peer_certificate const described = impl::describe(own.certificate());
    EXPECT_NEAR(static_cast<double>(described.valid_from.milliseconds()), static_cast<double>(now - 3600000),
                5000);
    EXPECT_EQ(described.valid_to - described.valid_from, 10800000);
    unsigned char digest[32];
    unsigned size = 0;
    ASSERT_EQ(X509_digest(own.certificate(), EVP_sha256(), digest, &size), 1);
    std::string expected;
    for (unsigned i = 0; i < size; ++i) {
        char hex[3];
        std::snprintf(hex, sizeof hex, "%02x", digest[i]);
        expected += hex;
    }
    EXPECT_EQ(described.fingerprint, expected);
    EXPECT_EQ(described.fingerprint.size(), 64u);
}

TEST(TlsPolicyVerifyPeerReport, TellsWhatAnUncheckedCertificateWouldHaveCome) {
    Identity const alone{CertificateSpec().named("a\nb")};
    tls_policy policy;
    policy.send_host_name = true;
    auto const made = setup("localhost", policy);
    EXPECT_FALSE(made->verifies());
    ServerSpec server;
    server.own = &alone;
    server.version = TLS1_2_VERSION;
    MemoryTls ends(made->ssl_context().native_handle(), server, SSL_VERIFY_NONE);
    ASSERT_TRUE(ends.handshake());
    tls::tls_report const report = impl::report_of(ends.client(), false);
    EXPECT_FALSE(report.verified);
    EXPECT_EQ(report.matched_name, "");
    EXPECT_EQ(report.verify_result, X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT);
    EXPECT_EQ(report.verify_text, "self-signed certificate");
    ASSERT_EQ(report.chain.size(), 1u);
    EXPECT_EQ(report.chain[0].subject, "CN=a\\0Ab") << "no control characters";
}
