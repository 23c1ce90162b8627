#include "tav/vinta/vinta_tls_client.h"

#include "support/client_rig.h"
#include "support/log_capture.h"
#include "support/openssl_server.h"

#include <gtest/gtest.h>

using namespace tav_test;
using tls::client;
using tls::tls_policy;

namespace {

/// One attempt against a server made by OpenSSL's own tool.
struct Outcome {
    tls::result_type result;
    /// Why the connect failed, by name.
    std::error_code failure;
    /// The first text of on_error; empty if none came with the connect.
    std::string error;
    /// The first ERROR line of a refused certificate, from the reason on.
    std::string refusal;
};

/// Clients that connect to one server, each with its policy.
class Attempts {
public:
    Attempts(std::vector<Identity const *> const & chain, int version, std::vector<std::string> more = {})
        : server_(chain, arguments(version, std::move(more))) {}

    Outcome with(tls::connect_option const & wanted) {
        LogCapture log;
        Outcome out;
        {
            Events events;
            client c("m");
            tls::connect_option option = optionFor(server_.port(), events);
            option.ca = wanted.ca;
            option.policy = wanted.policy;
            auto const info = c.start(option);
            out.result = resultOf(info);
            out.failure = info->error();
            if (out.result == tls::result_error && events.wait(1)) {
                std::string const text = events.all()[0];
                out.error = text.substr(text.find(": ") + 2);
            }
            report = c.negotiated();
        }
        LogCapture::Record const line = log.find(" certificate refused: ");
        if (line.level == tavLogger::ERROR) {
            out.refusal = line.text.substr(line.text.find("refused: ") + 9);
        }
        return out;
    }
    Outcome with(tls_policy const & policy) {
        tls::connect_option option;
        option.set_tls_policy(policy);
        return with(option);
    }

    /// What the last client that connected had negotiated.
    tls::tls_report report;

private:
    static std::vector<std::string> arguments(int version, std::vector<std::string> more) {
        more.insert(more.end(), {version == 2 ? "-tls1_2" : "-tls1_3", "-cipher", "DEFAULT:@SECLEVEL=0"});
        return more;
    }

    OpensslServer server_;
};

tls_policy safePolicy() {
    tls_policy out = tls_policy::safe();
    out.trusted_pem = Pki::the().root.pem();
    return out;
}

bool startsWith(std::string const & text, std::string const & front) {
    return text.compare(0, front.size(), front) == 0;
}

constexpr char verify_failed[] = "certificate verify failed (SSL routines)";

/// Whether an outcome is a connection, if `reason` is empty, or a refusal for that reason: result, on_error's
/// text and the log line all say so.
::testing::AssertionResult isOutcome(Outcome const & outcome, std::string const & reason,
                                     std::string const & subject = "/CN=localhost") {
    bool const name = reason == "hostname mismatch" || reason == "IP address mismatch";
    tls::failure const failure = reason.empty() ? tls::failure::none
                                 : name         ? tls::failure::name_mismatch
                                                : tls::failure::certificate_refused;
    if (outcome.failure != failure) {
        return ::testing::AssertionFailure() << "failure \"" << outcome.failure.message() << "\"";
    }
    if (reason.empty()) {
        if (outcome.result == tls::result_ok && outcome.error.empty() && outcome.refusal.empty()) {
            return ::testing::AssertionSuccess();
        }
    } else if (outcome.result == tls::result_error &&
               outcome.error == std::string(verify_failed) + ": " + reason + ", subject " + subject &&
               startsWith(outcome.refusal, reason + ", depth ") &&
               outcome.refusal.find(", subject " + subject + ", issuer ") != std::string::npos) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "result " << outcome.result << ", on_error \"" << outcome.error
                                         << "\", log \"" << outcome.refusal << "\"";
}

/// What a certificate costs a client that was given the root as `connect_option::ca` alone, and one with the
/// safe policy.
struct Row {
    char const * what;
    std::vector<Identity const *> chain;
    char const * plain;
    char const * safe;
    char const * subject = "/CN=localhost";
};

void expectRows(std::vector<Row> const & rows) {
    TempFile const root(Pki::the().root.pem());
    for (int const version : {2, 3}) {
        for (Row const & row : rows) {
            SCOPED_TRACE(std::string(row.what) + ", TLS 1." + std::to_string(version));
            Attempts attempts(row.chain, version);
            EXPECT_TRUE(isOutcome(attempts.with(safePolicy()), row.safe, row.subject));
            EXPECT_EQ(attempts.report.empty(), row.safe[0] != '\0');
            tls::connect_option plain;
            plain.ca = root.path();
            Outcome const other = attempts.with(plain);
            if (version == 2) {
                EXPECT_TRUE(isOutcome(other, row.plain, row.subject));
                EXPECT_TRUE(isOutcome(attempts.with(tls::connect_option()), "")) << "nothing is verified";
            } else {
                EXPECT_EQ(other.result, tls::result_error);
                EXPECT_EQ(other.failure, tls::failure::handshake_failed);
                EXPECT_TRUE(startsWith(other.error, "tlsv1 alert protocol version")) << other.error;
            }
        }
    }
}

} // namespace

TEST(ClientPolicyMatrix, ChainsAreRefusedForTheirReasons) {
    Pki const & pki = Pki::the();
    Identity const good{CertificateSpec(), &pki.root};
    Identity const expired{CertificateSpec().valid(-7200, -3600), &pki.root};
    Identity const early{CertificateSpec().valid(3600, 7200), &pki.root};
    Identity const alone{CertificateSpec()};
    Identity const strange{CertificateSpec(), &pki.stranger};
    Identity const below{CertificateSpec(), &pki.middle};
    expectRows({
        {"valid", {&good}, "", ""},
        {"expired", {&expired}, "certificate has expired", "certificate has expired"},
        {"not yet valid", {&early}, "certificate is not yet valid", "certificate is not yet valid"},
        {"self-signed", {&alone}, "self-signed certificate", "self-signed certificate"},
        {"unknown issuer",
         {&strange},
         "unable to get local issuer certificate",
         "unable to get local issuer certificate"},
        {"missing intermediate",
         {&below},
         "unable to get local issuer certificate",
         "unable to get local issuer certificate"},
        {"whole chain", {&below, &pki.middle}, "", ""},
    });
}

TEST(ClientPolicyMatrix, WrongPurposeAndWeakKeysAreRefused) {
    Pki const & pki = Pki::the();
    Identity const usage{CertificateSpec().forPurpose("clientAuth"), &pki.root};
    Identity const weak{CertificateSpec().withRsa(1024), &pki.root};
    for (int const version : {2, 3}) {
        Attempts purpose({&usage}, version);
        EXPECT_TRUE(isOutcome(purpose.with(safePolicy()), "unsuitable certificate purpose"));
        Attempts key({&weak}, version);
        EXPECT_TRUE(isOutcome(key.with(safePolicy()), "EE certificate key too weak"));
        tls_policy lax = safePolicy();
        lax.security_level = 0;
        EXPECT_TRUE(isOutcome(key.with(lax), ""));
    }
}

TEST(ClientPolicyMatrix, NamesAreCheckedWithAPolicyOnly) {
    Pki const & pki = Pki::the();
    Identity const other{CertificateSpec().withNames("DNS:other.example"), &pki.root};
    Identity const written{CertificateSpec().withNames("DNS:127.0.0.1"), &pki.root};
    Identity const address{CertificateSpec().withNames("IP:127.0.0.1"), &pki.root};
    Identity const wild{CertificateSpec().withNames("DNS:*.gate.example"), &pki.root};
    expectRows({
        {"other name", {&other}, "", "IP address mismatch"},
        {"address as name", {&written}, "", "IP address mismatch"},
        {"address", {&address}, "", ""},
        {"wildcard for an address", {&wild}, "", "IP address mismatch"},
    });
    for (int const version : {2, 3}) {
        Attempts attempts({&wild}, version);
        tls_policy policy = safePolicy();
        policy.expected_name = "one.gate.example";
        EXPECT_TRUE(isOutcome(attempts.with(policy), ""));
        EXPECT_EQ(attempts.report.matched_name, "*.gate.example");
        policy.expected_name = "one.two.gate.example";
        EXPECT_TRUE(isOutcome(attempts.with(policy), "hostname mismatch"));
    }
}

TEST(ClientPolicyMatrix, RevokedIsRefusedAndAMissingListToo) {
    Pki const & pki = Pki::the();
    Identity const gone{CertificateSpec(), &pki.root};
    TempFile const lists(pki.root.revocationList(gone.certificate()));
    for (int const version : {2, 3}) {
        Attempts attempts({&gone}, version);
        EXPECT_TRUE(isOutcome(attempts.with(safePolicy()), ""));
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

// A server of TLS 1.3 looks at the client's certificate when the client has finished, so that its refusal
// comes behind the open connection.
TEST(ClientPolicyMatrix, ClientCertificateIsShownOrMissed) {
    Pki const & pki = Pki::the();
    Identity const own{CertificateSpec(), &pki.root};
    Identity const mine{CertificateSpec().named("me").forPurpose("clientAuth"), &pki.root};
    Identity const strange{CertificateSpec().named("me").forPurpose("clientAuth"), &pki.stranger};
    TempFile const root(pki.root.pem());
    struct {
        char const * what;
        Identity const * shown;
        char const * told_2;
        char const * told_3;
    } const cases[] = {
        {"none", nullptr, "sslv3 alert handshake failure", "tlsv13 alert certificate required"},
        {"wrong", &strange, "tlsv1 alert unknown ca", "tlsv1 alert unknown ca"},
        {"right", &mine, "", ""},
    };
    for (int const version : {2, 3}) {
        OpensslServer server({&own}, {version == 2 ? "-tls1_2" : "-tls1_3", "-Verify", "3",
                                      "-verify_return_error", "-CAfile", root.path()});
        for (auto const & each : cases) {
            SCOPED_TRACE(std::string(each.what) + ", TLS 1." + std::to_string(version));
            Events events;
            client c("m");
            tls::connect_option option = optionFor(server.port(), events);
            tls_policy policy = safePolicy();
            if (each.shown != nullptr) {
                policy.certificate_pem = each.shown->pem();
                policy.key_pem = each.shown->keyPem("secret");
                policy.key_password = [] { return std::string("secret"); };
            }
            option.set_tls_policy(policy);
            tls::result_type const result = resultOf(c.start(option));
            std::string const told = version == 2 ? each.told_2 : each.told_3;
            EXPECT_EQ(result, told.empty() || version == 3 ? tls::result_ok : tls::result_error);
            std::size_t const opened = result == tls::result_ok ? 1u : 0u;
            if (told.empty()) {
                EXPECT_TRUE(c.connected());
                EXPECT_EQ(events.count(), 1u);
            } else {
                ASSERT_TRUE(events.wait(opened + 1));
                EXPECT_NE(events.all()[opened].find(": " + told), std::string::npos) << events.all()[opened];
                EXPECT_TRUE(eventually([&c] { return !c.connected(); }));
            }
        }
    }
}

TEST(ClientPolicyMatrix, ReportTellsWhatWasNegotiated) {
    Identity const own{CertificateSpec().named("gate"), &Pki::the().middle};
    for (int const version : {2, 3}) {
        Attempts attempts({&own, &Pki::the().middle}, version, {"-alpn", "im/2,im/1"});
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
        Outcome const refused = attempts.with(policy);
        EXPECT_EQ(refused.result, tls::result_error) << "this server insists on a protocol that it knows";
        EXPECT_TRUE(startsWith(refused.error, "tlsv1 alert no application protocol")) << refused.error;
    }
}
