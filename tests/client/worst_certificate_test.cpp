#include "tav/vinta/vinta_tls_client.h"

#include "support/worst_gateway.h"

#include <gtest/gtest.h>

#include <deque>

using namespace tav_test;
using tls::failure;

namespace {

using Chain = std::vector<Identity const *>;

/// Certificates that nobody should sign.
class Forge {
public:
    Identity const & make(CertificateSpec const & spec, Identity const * issuer = nullptr) {
        return *(made_.push_back(std::make_unique<Identity const>(spec, issuer)), made_.back());
    }
    /// The same, changed and signed anew.
    Identity const & make(CertificateSpec const & spec, Identity const & issuer,
                          std::function<void(X509 *)> const & change, EVP_MD const * digest = EVP_sha256(),
                          Identity const * signer = nullptr) {
        Identity const & out = make(spec, &issuer);
        if (change) {
            change(out.certificate());
        }
        if (X509_sign(out.certificate(), (signer != nullptr ? *signer : issuer).key(), digest) <= 0) {
            throw std::runtime_error("the certificate can't be signed");
        }
        return out;
    }

private:
    std::deque<std::unique_ptr<Identity const>> made_;
};

void extend(X509 * to, int id, char const * value) {
    X509_EXTENSION * const extension = X509V3_EXT_conf_nid(nullptr, nullptr, id, value);
    if (extension == nullptr || X509_add_ext(to, extension, -1) <= 0) {
        throw std::runtime_error(value);
    }
    X509_EXTENSION_free(extension);
}

/// An extension that nobody knows, and that may not be ignored.
void extendUnknown(X509 * to) {
    std::unique_ptr<ASN1_OBJECT, void (*)(ASN1_OBJECT *)> const id(OBJ_txt2obj("1.2.3.4.5.6", 1),
                                                                   ASN1_OBJECT_free);
    std::unique_ptr<ASN1_OCTET_STRING, void (*)(ASN1_OCTET_STRING *)> const data(ASN1_OCTET_STRING_new(),
                                                                                 ASN1_OCTET_STRING_free);
    ASN1_OCTET_STRING_set(data.get(), reinterpret_cast<unsigned char const *>("x"), 1);
    X509_EXTENSION * const extension = X509_EXTENSION_create_by_OBJ(nullptr, id.get(), 1, data.get());
    X509_add_ext(to, extension, -1);
    X509_EXTENSION_free(extension);
}

struct Row {
    std::string what;
    Chain chain;
    /// Empty if it is taken.
    std::string reason;
    int depth;
    std::string subject;
};

WorstStory storyOf(Row const & row) {
    return row.reason.empty() ? opened() : refusedCertificate(row.reason, row.depth, row.subject);
}

void expectStory(WorstMeeting & it, tls::connect_option const & option, WorstStory const & story) {
    it.start(option);
    it.server = it.gateway.accept();
    it.server->shake();
    EXPECT_TRUE(it.isStory(story));
    it.expectRecovery();
}

WorstSettings showing(Chain const & chain, int version) {
    WorstSettings out;
    out.lowest = version;
    out.highest = version;
    out.chain = chain;
    return out;
}

/// A client with this policy meets a gateway with this chain.
void expectMeeting(Chain const & chain, int version, tls::tls_policy const & policy,
                   WorstStory const & story) {
    WorstMeeting it(showing(chain, version));
    tls::connect_option option = it.option();
    option.set_tls_policy(policy);
    expectStory(it, option, story);
}

/// With the safe policy in both versions of TLS, and with `connect_option::ca` alone.
void expectRow(Row const & row) {
    for (int const version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        SCOPED_TRACE(row.what + ", " + std::to_string(version));
        expectMeeting(row.chain, version, worstPolicy(), storyOf(row));
    }
    SCOPED_TRACE(row.what + ", ca alone");
    TempFile const root(Pki::the().root.pem());
    WorstMeeting it(showing(row.chain, TLS1_2_VERSION));
    tls::connect_option option = it.option();
    option.ca = root.path();
    expectStory(it, option, storyOf(row));
}

void expectRows(std::vector<Row> const & rows) {
    for (Row const & row : rows) {
        expectRow(row);
    }
}

CertificateSpec const leaf;
char const * const own = "/CN=localhost";
char const * const no_issuer = "unable to get local issuer certificate";

} // namespace

TEST(WorstCertificate, OfTheGatewayItselfIsRefusedForItsReason) {
    Identity const & root = Pki::the().root;
    Forge forge;
    Identity const & good = forge.make(leaf, &root);
    expectRows({
        {"good", {&good}, "", 0, ""},
        {"expired",
         {&forge.make(CertificateSpec().valid(-7200, -3600), &root)},
         "certificate has expired",
         0,
         own},
        {"not yet valid",
         {&forge.make(CertificateSpec().valid(3600, 7200), &root)},
         "certificate is not yet valid",
         0,
         own},
        {"self-signed", {&forge.make(leaf)}, "self-signed certificate", 0, own},
        {"unknown issuer", {&forge.make(leaf, &Pki::the().stranger)}, no_issuer, 0, own},
        {"unknown root",
         {&forge.make(leaf, &Pki::the().stranger), &Pki::the().stranger},
         "self-signed certificate in certificate chain",
         1,
         "/CN=Strange Root"},
        {"missing intermediate", {&forge.make(leaf, &Pki::the().middle)}, no_issuer, 0, own},
        {"wrong purpose",
         {&forge.make(CertificateSpec().forPurpose("clientAuth"), &root)},
         "unsuitable certificate purpose",
         0,
         own},
        {"weak key",
         {&forge.make(CertificateSpec().withRsa(768), &root)},
         "EE certificate key too weak",
         0,
         own},
        {"another's signature",
         {&forge.make(leaf, root, nullptr, EVP_sha256(), &Pki::the().stranger)},
         "certificate signature failure",
         0,
         own},
        {"signed with SHA-1",
         {&forge.make(leaf, root, nullptr, EVP_sha1())},
         "CA signature digest algorithm too weak",
         0,
         own},
        {"a demand that nobody knows",
         {&forge.make(leaf, root, extendUnknown)},
         "unhandled critical extension",
         0,
         own},
        {"lines in its name",
         {&forge.make(CertificateSpec().named("a\n<n> all is well\x1b[2K"), &Pki::the().stranger)},
         no_issuer,
         0,
         "/CN=a\\x0A<n> all is well\\x1B[2K"},
    });
}

TEST(WorstCertificate, AboveTheGatewaysIsRefusedForItsReason) {
    Identity const & root = Pki::the().root;
    Forge forge;
    auto const middle = [](char const * name) { return CertificateSpec::ca(name); };
    Identity const & good = forge.make(leaf, &root);
    Identity const & old = forge.make(middle("Old").valid(-7200, -3600), &root);
    Identity const & early = forge.make(middle("Early").valid(3600, 7200), &root);
    Identity const & weak = forge.make(middle("Weak").withRsa(1024), &root);
    Identity const & clients = forge.make(middle("Clients").forPurpose("clientAuth"), &root);
    Identity const & unused = forge.make(
        middle("Unused"), root, [](X509 * x) { extend(x, NID_key_usage, "critical,digitalSignature"); });
    Identity const & narrow = forge.make(middle("Narrow"), root, [](X509 * x) {
        extend(x, NID_name_constraints, "critical,permitted;DNS:other.example");
    });
    Identity const & last = forge.make(CertificateSpec::ca("Last"), root, [](X509 * x) {
        X509_EXTENSION_free(X509_delete_ext(x, X509_get_ext_by_NID(x, NID_basic_constraints, -1)));
        extend(x, NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
    });
    Identity const & behind = forge.make(middle("Behind"), &last);
    Identity const & forged = forge.make(middle("Forged"), root, nullptr, EVP_sha256(), &Pki::the().stranger);
    auto const below = [&](Identity const & issuer) { return &forge.make(leaf, &issuer); };
    expectRows({
        {"whole chain", {below(Pki::the().middle), &Pki::the().middle}, "", 0, ""},
        {"no CA as issuer", {below(good), &good}, "invalid CA certificate", 1, own},
        {"expired", {below(old), &old}, "certificate has expired", 1, "/CN=Old"},
        {"not yet valid", {below(early), &early}, "certificate is not yet valid", 1, "/CN=Early"},
        {"weak key", {below(weak), &weak}, "CA certificate key too weak", 1, "/CN=Weak"},
        {"for other purposes",
         {below(clients), &clients},
         "unsuitable certificate purpose",
         1,
         "/CN=Clients"},
        {"not to sign certificates", {below(unused), &unused}, "invalid CA certificate", 1, "/CN=Unused"},
        {"for other names", {below(narrow), &narrow}, "permitted subtree violation", 0, own},
        {"too many below it",
         {below(behind), &behind, &last},
         "path length constraint exceeded",
         2,
         "/CN=Last"},
        {"another's signature", {below(forged), &forged}, "certificate signature failure", 1, "/CN=Forged"},
    });
}

TEST(WorstCertificate, ForAnotherNameIsRefusedWithAPolicy) {
    Identity const & root = Pki::the().root;
    struct {
        char const * what;
        char const * names;
        char const * host;
        char const * reason;
    } const rows[] = {
        {"another name", "DNS:other.example", "gate.example", "hostname mismatch"},
        {"no name", "", "localhost", "hostname mismatch"},
        {"a wildcard of two labels", "DNS:*.example", "one.gate.example", "hostname mismatch"},
        {"another address", "IP:127.0.0.2", "", "IP address mismatch"},
        {"an address as a name", "DNS:127.0.0.1", "", "IP address mismatch"},
        {"the right name", "DNS:gate.example", "gate.example", ""},
    };
    for (auto const & row : rows) {
        SCOPED_TRACE(row.what);
        Identity const shown{CertificateSpec().withNames(row.names), &root};
        tls::tls_policy policy = worstPolicy();
        policy.expected_name = row.host;
        expectMeeting({&shown}, TLS1_3_VERSION, policy,
                      row.reason[0] == '\0' ? opened()
                                            : refusedCertificate(row.reason, 0, own, failure::name_mismatch));
    }
}

TEST(WorstCertificate, ThatWasTakenBackIsRefused) {
    Pki const & pki = Pki::the();
    Forge forge;
    Identity const & gone = forge.make(leaf, &pki.root);
    Identity const & below = forge.make(leaf, &pki.middle);
    struct {
        char const * what;
        Chain chain;
        std::string lists;
        bool whole;
        WorstStory story;
    } const rows[] = {
        {"on the list",
         {&gone},
         pki.root.revocationList(gone.certificate()),
         false,
         refusedCertificate("certificate revoked", 0, own)},
        {"not on it", {&gone}, pki.root.revocationList(), false, opened()},
        {"no list of its issuer",
         {&gone},
         pki.stranger.revocationList(),
         false,
         refusedCertificate("unable to get certificate CRL", 0, own)},
        {"a list that has expired",
         {&gone},
         pki.root.revocationList(nullptr, -7200, -3600),
         false,
         refusedCertificate("CRL has expired", 0, own)},
        {"a list of tomorrow",
         {&gone},
         pki.root.revocationList(nullptr, 3600, 7200),
         false,
         refusedCertificate("CRL is not yet valid", 0, own)},
        {"an intermediate on the list",
         {&below, &pki.middle},
         pki.root.revocationList(pki.middle.certificate()) + pki.middle.revocationList(),
         true,
         refusedCertificate("certificate revoked", 1, "/CN=Test Middle")},
        {"an intermediate without a list",
         {&below, &pki.middle},
         pki.middle.revocationList(),
         true,
         refusedCertificate("unable to get certificate CRL", 1, "/CN=Test Middle")},
    };
    for (auto const & row : rows) {
        for (int const version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
            SCOPED_TRACE(std::string(row.what) + ", " + std::to_string(version));
            tls::tls_policy policy = worstPolicy();
            policy.crl_pem = row.lists;
            policy.crl_check_chain = row.whole;
            expectMeeting(row.chain, version, policy, row.story);
        }
    }
}

// Without a policy the gateway may ask for a handshake anew, and show another certificate in it.
TEST(WorstCertificate, OfARenegotiationIsCheckedToo) {
    Identity const good{CertificateSpec(), &Pki::the().root};
    Identity const strange{CertificateSpec(), &Pki::the().stranger};
    TempFile const root(Pki::the().root.pem());
    for (bool const other : {false, true}) {
        SCOPED_TRACE(other);
        WorstSettings settings;
        settings.chain = {&good};
        WorstMeeting it(settings);
        tls::connect_option option = it.option();
        option.ca = root.path();
        it.start(option);
        it.server = it.gateway.accept();
        ASSERT_TRUE(it.server->shake());
        ASSERT_EQ(resultOf(it.info), tls::result_ok);
        if (other) {
            SSL_use_certificate(it.server->ssl(), strange.certificate());
            SSL_use_PrivateKey(it.server->ssl(), strange.key());
        }
        // Anew from the beginning, not by the session that there is.
        SSL_set_options(it.server->ssl(), SSL_OP_NO_SESSION_RESUMPTION_ON_RENEGOTIATION);
        SSL_renegotiate(it.server->ssl());
        bool const over = it.server->shake() &&
                          it.server->serve([&] { return SSL_renegotiate_pending(it.server->ssl()) == 0; });
        EXPECT_EQ(over, !other);
        WorstStory story = opened();
        if (other) {
            std::string const failed = "certificate verify failed (SSL routines)";
            story = brokenRead(failed, failure::certificate_refused);
            story.lines.insert(story.lines.begin(), "<n> certificate refused: " + std::string(no_issuer) +
                                                        ", depth 0, subject " + own);
        }
        EXPECT_TRUE(it.isStory(story));
        it.expectRecovery();
    }
}
