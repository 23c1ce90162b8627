#ifndef TAV_TESTS_SUPPORT_POLICY_MATRIX_H
#define TAV_TESTS_SUPPORT_POLICY_MATRIX_H

#include "support/client_rig.h"
#include "support/log_capture.h"
#include "support/pki.h"
#include "support/server_process.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// What comes of a certificate, a policy and a version of TLS, against servers of others.
namespace tav_test {

/// What a server is to show and to want.
struct ServerSettings {
    /// Its own certificate first.
    std::vector<Identity const *> chain;
    /// 2 or 3, of TLS 1.
    int version = 3;
    /// A file of authorities whose clients alone are wanted; empty for no client certificate.
    std::string clients;
    /// Listens on ::1.
    bool ipv6 = false;

    /// The certificate and its key.
    std::string pemOfOwn() const { return chain.front()->pem() + chain.front()->keyPem(); }
    std::string pemOfOthers() const {
        std::string out;
        for (std::size_t i = 1; i < chain.size(); ++i) {
            out += chain[i]->pem();
        }
        return out;
    }
};

using ServerMaker = std::function<std::unique_ptr<ServerProcess>(ServerSettings const &)>;

/// All that a connect has told.
struct Outcome {
    tls::result_type result = tls::result_pending;
    /// Why the connect failed, by name.
    std::error_code failure = tls::failure::none;
    /// What on_error was given, and the name that it found; empty if none came.
    std::string error;
    std::error_code told = tls::failure::none;
    /// The ERROR line of a refused certificate, from the reason on.
    std::string refusal;
    /// The ERROR line of what failed on the socket.
    std::string line;
};

/// What an outcome has to be.
struct Expected {
    tls::result_type result = tls::result_ok;
    tls::failure failure = tls::failure::none;
    /// Of on_error; empty for none.
    tls::failure told = tls::failure::none;
    std::string error;
    /// What begins the log line of the refused certificate, and what stands in it; empty for none.
    std::string refusal;
    std::string refused;
    /// What ends the log line of what failed; empty for none.
    std::string line;
};

constexpr char verify_failed[] = "certificate verify failed (SSL routines)";

/// A connection, if `reason` is empty; or a certificate that is refused for it.
inline Expected verdictOn(std::string const & reason, std::string const & subject = "/CN=localhost") {
    Expected out;
    if (reason.empty()) {
        return out;
    }
    bool const name = reason == "hostname mismatch" || reason == "IP address mismatch";
    out.result = tls::result_error;
    out.failure = name ? tls::failure::name_mismatch : tls::failure::certificate_refused;
    out.told = out.failure;
    out.error = std::string(verify_failed) + ": " + reason + ", subject " + subject;
    out.refusal = reason + ", depth ";
    out.refused = ", subject " + subject + ", issuer ";
    out.line = std::string(" Handshake failed: ") + verify_failed;
    return out;
}

/// A handshake that the server ends with an alert.
inline Expected alertedWith(std::string const & text) {
    Expected out;
    out.result = tls::result_error;
    out.failure = tls::failure::handshake_failed;
    out.told = tls::failure::handshake_failed;
    out.error = text;
    out.line = " Handshake failed: " + text;
    return out;
}

/// A server of TLS 1.3 looks at the client's certificate when the client has finished, so that its refusal
/// comes behind the open connection.
inline Expected alertedLateWith(std::string const & text) {
    Expected out;
    out.told = tls::failure::handshake_failed;
    out.error = text;
    out.line = " Read header failed: " + text;
    return out;
}

inline bool startsWith(std::string const & text, std::string const & front) {
    return text.compare(0, front.size(), front) == 0;
}
inline bool endsWith(std::string const & text, std::string const & end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// Whether result, names, on_error's text and the log lines are all as expected.
inline ::testing::AssertionResult isOutcome(Outcome const & is, Expected const & expected) {
    bool const refusal = expected.refusal.empty()
                             ? is.refusal.empty()
                             : startsWith(is.refusal, expected.refusal) &&
                                   is.refusal.find(expected.refused) != std::string::npos;
    bool const line = expected.line.empty() ? is.line.empty() : endsWith(is.line, expected.line);
    if (is.result == expected.result && is.failure == expected.failure && is.told == expected.told &&
        is.error == expected.error && refusal && line) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "result " << is.result << ", failure \"" << is.failure.message()
                                         << "\", on_error \"" << is.error << "\" for \"" << is.told.message()
                                         << "\", refusal \"" << is.refusal << "\", log \"" << is.line << "\"";
}
inline ::testing::AssertionResult isOutcome(Outcome const & is, std::string const & reason,
                                            std::string const & subject = "/CN=localhost") {
    return isOutcome(is, verdictOn(reason, subject));
}

/// Clients that connect to one server, each with its policy.
class Attempts {
public:
    explicit Attempts(ServerProcess const & server, std::string host = "127.0.0.1")
        : server_(server), host_(std::move(host)) {}

    /// `late` if the server is to end the open connection.
    Outcome with(tls::connect_option const & wanted, bool late = false) {
        LogCapture log;
        Outcome out;
        Events told;
        tls::client c("m");
        tls::connect_option option;
        option.host = host_;
        option.port = std::to_string(server_.port());
        option.ca = wanted.ca;
        option.policy = wanted.policy;
        option.set_on_error([&](unsigned long long, unsigned short, int, char const * text) {
            out.told = tls::last_failure();
            told.add(text);
        });
        auto const info = c.start(option);
        out.result = resultOf(info);
        out.failure = info->error();
        report = c.negotiated();
        if ((late || out.result == tls::result_error) && told.wait(1)) {
            out.error = told.all()[0];
            EXPECT_TRUE(eventually([&c] { return !c.connected(); }));
        } else if (talks && out.result == tls::result_ok) {
            Ask answer;
            EXPECT_EQ(c.send_and_wait(Ask(7), answer, 10000), tls::result_ok);
            EXPECT_EQ(answer.number, 7);
        }
        // Ahead of the client's own end, which has lines too.
        out.refusal = behind("certificate refused: ", errorLine(log, " certificate refused: "));
        out.line = errorLine(log, " failed: ");
        return out;
    }
    Outcome with(tls::tls_policy const & policy, bool late = false) {
        tls::connect_option option;
        option.set_tls_policy(policy);
        return with(option, late);
    }

    /// What the last client that connected had negotiated.
    tls::tls_report report;
    /// Whether the server sends back what it gets; it is asked to, then.
    bool talks = false;

private:
    static std::string errorLine(LogCapture const & log, std::string const & part) {
        LogCapture::Record const line = log.find(part);
        std::string out = line.level == tavLogger::ERROR ? line.text : std::string();
        while (!out.empty() && out.back() == '\n') {
            out.pop_back();
        }
        return out;
    }

    static std::string behind(std::string const & words, std::string const & line) {
        std::size_t const at = line.find(words);
        return at == std::string::npos ? std::string() : line.substr(at + words.size());
    }

    ServerProcess const & server_;
    std::string const host_;
};

inline tls::tls_policy safePolicy() {
    tls::tls_policy out = tls::tls_policy::safe();
    out.trusted_pem = Pki::the().root.pem();
    return out;
}

/// What a certificate costs a client that was given the root as `connect_option::ca` alone, and one with the
/// safe policy.
struct CertificateRow {
    char const * what;
    std::vector<Identity const *> chain;
    char const * plain;
    char const * safe;
};

/// A client without a policy speaks TLS 1.2 alone, so that a server of 1.3 turns it away before any
/// certificate is shown.
inline void expectRow(CertificateRow const & row, Attempts & attempts, int version) {
    TempFile const root(Pki::the().root.pem());
    EXPECT_TRUE(isOutcome(attempts.with(safePolicy()), row.safe));
    EXPECT_EQ(attempts.report.empty(), row.safe[0] != '\0');
    tls::connect_option plain;
    plain.ca = root.path();
    if (version == 2) {
        EXPECT_TRUE(isOutcome(attempts.with(plain), row.plain));
        EXPECT_TRUE(isOutcome(attempts.with(tls::connect_option()), "")) << "nothing is verified";
    } else {
        Expected const alert = alertedWith("tlsv1 alert protocol version (SSL routines)");
        EXPECT_TRUE(isOutcome(attempts.with(plain), alert));
    }
}

inline void expectRows(std::vector<CertificateRow> const & rows, ServerMaker const & make,
                       bool talks = false) {
    for (int const version : {2, 3}) {
        for (CertificateRow const & row : rows) {
            SCOPED_TRACE(std::string(row.what) + ", TLS 1." + std::to_string(version));
            ServerSettings settings;
            settings.chain = row.chain;
            settings.version = version;
            auto const server = make(settings);
            Attempts attempts(*server);
            attempts.talks = talks;
            expectRow(row, attempts, version);
        }
    }
}

/// Certificates of every kind, and what comes of them.
class CertificateRows {
public:
    std::vector<CertificateRow> chains() const {
        char const * const no_issuer = "unable to get local issuer certificate";
        return {
            {"valid", {&good_}, "", ""},
            {"expired", {&expired_}, "certificate has expired", "certificate has expired"},
            {"not yet valid", {&early_}, "certificate is not yet valid", "certificate is not yet valid"},
            {"self-signed", {&alone_}, "self-signed certificate", "self-signed certificate"},
            {"unknown issuer", {&strange_}, no_issuer, no_issuer},
            {"missing intermediate", {&below_}, no_issuer, no_issuer},
            {"whole chain", {&below_, &Pki::the().middle}, "", ""},
            {"wrong purpose", {&usage_}, "unsuitable certificate purpose", "unsuitable certificate purpose"},
            {"weak key", {&weak_}, "EE certificate key too weak", "EE certificate key too weak"},
        };
    }
    std::vector<CertificateRow> names() const {
        return {
            {"other name", {&other_}, "", "IP address mismatch"},
            {"address as name", {&written_}, "", "IP address mismatch"},
            {"address", {&address_}, "", ""},
            {"wildcard for an address", {&wild_}, "", "IP address mismatch"},
        };
    }

private:
    static Identity signedByRoot(CertificateSpec const & spec) { return Identity(spec, &Pki::the().root); }

    Identity const good_ = signedByRoot(CertificateSpec());
    Identity const expired_ = signedByRoot(CertificateSpec().valid(-7200, -3600));
    Identity const early_ = signedByRoot(CertificateSpec().valid(3600, 7200));
    Identity const alone_{CertificateSpec()};
    Identity const strange_{CertificateSpec(), &Pki::the().stranger};
    Identity const below_{CertificateSpec(), &Pki::the().middle};
    Identity const usage_ = signedByRoot(CertificateSpec().forPurpose("clientAuth"));
    /// Too weak by any default that OpenSSL is built with.
    Identity const weak_ = signedByRoot(CertificateSpec().withRsa(768));
    Identity const other_ = signedByRoot(CertificateSpec().withNames("DNS:other.example"));
    Identity const written_ = signedByRoot(CertificateSpec().withNames("DNS:127.0.0.1"));
    Identity const address_ = signedByRoot(CertificateSpec().withNames("IP:127.0.0.1"));
    Identity const wild_ = signedByRoot(CertificateSpec().withNames("DNS:*.gate.example"));
};

/// A client that has to show a certificate: how a server of each version tells it that it has none, or one
/// that it does not take.
struct ClientRow {
    char const * what;
    Identity const * shown;
    char const * told_2;
    char const * told_3;
};

inline void expectClientRows(ServerMaker const & make, char const * none_2) {
    Pki const & pki = Pki::the();
    Identity const own{CertificateSpec(), &pki.root};
    CertificateSpec const me = CertificateSpec().named("me").forPurpose("clientAuth");
    Identity const mine{me, &pki.root};
    Identity const strange{me, &pki.stranger};
    TempFile const root(pki.root.pem());
    std::string const end = " (SSL routines)";
    for (int const version : {2, 3}) {
        ServerSettings settings;
        settings.chain = {&own};
        settings.version = version;
        settings.clients = root.path();
        auto const server = make(settings);
        for (ClientRow const & row : std::vector<ClientRow>{
                 {"none", nullptr, none_2, "tlsv13 alert certificate required"},
                 {"wrong", &strange, "tlsv1 alert unknown ca", "tlsv1 alert unknown ca"},
                 {"right", &mine, "", ""},
             }) {
            SCOPED_TRACE(std::string(row.what) + ", TLS 1." + std::to_string(version));
            tls::tls_policy policy = safePolicy();
            if (row.shown != nullptr) {
                policy.certificate_pem = row.shown->pem();
                policy.key_pem = row.shown->keyPem("secret");
                policy.key_password = [] { return std::string("secret"); };
            }
            bool const refused = row.told_2[0] != '\0';
            Attempts attempts(*server);
            Outcome const outcome = attempts.with(policy, refused && version == 3);
            EXPECT_TRUE(isOutcome(outcome, !refused       ? Expected()
                                           : version == 2 ? alertedWith(row.told_2 + end)
                                                          : alertedLateWith(row.told_3 + end)));
        }
    }
}

} // namespace tav_test

#endif
