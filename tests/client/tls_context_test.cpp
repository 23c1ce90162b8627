#include "client/vinta_tls_client_impl_context.h"

#include "client/tls_socket.h"
#include "support/folder.h"
#include "support/log_capture.h"
#include "support/session_rig.h"
#include "support/tls_peer.h"

#include <gtest/gtest.h>

#include <openssl/ssl.h>

#include <filesystem>

using namespace tav_test;
using impl::context;

namespace {

constexpr char default_ciphers[] =
    "AES256-GCM-SHA384:AES128-GCM-SHA256:ECDHE-RSA-AES256-GCM-SHA384:ECDHE-RSA-AES128-GCM-SHA256:"
    "ECDHE-ECDSA-AES128-GCM-SHA256:ECDHE-ECDSA-AES256-GCM-SHA384";

int certificates(context & c) {
    X509_STORE * const store = SSL_CTX_get_cert_store(c.ssl_context().native_handle());
    return sk_X509_OBJECT_num(X509_STORE_get0_objects(store));
}

/// The suites of a context below TLS 1.3, as a list text.
std::string suites(context & c) {
    std::string out;
    STACK_OF(SSL_CIPHER) * const all = SSL_CTX_get_ciphers(c.ssl_context().native_handle());
    for (int i = 0; i < sk_SSL_CIPHER_num(all); ++i) {
        std::string const name = SSL_CIPHER_get_name(sk_SSL_CIPHER_value(all, i));
        if (name.compare(0, 4, "TLS_") != 0) {
            out += (out.empty() ? "" : ":") + name;
        }
    }
    return out;
}

/// What clients of one context get, each with its settings.
class Outcomes {
public:
    explicit Outcomes(TlsIdentity const & identity = TlsIdentity::ecdsa()) : peer_(identity) {}

    /// "open", or the error's text.
    std::string with(std::string const & ca) {
        tav::tls::connect_option option = rig_.option(peer_);
        option.ca = ca;
        std::size_t const before = rig_.events.count();
        rig_.start(option);
        servers_.push_back(peer_.accept());
        servers_.back()->handshake();
        return rig_.events.wait(before + 1) ? rig_.events.all()[before] : std::string("nothing");
    }

private:
    TlsPeer peer_;
    std::vector<std::unique_ptr<TlsConnection>> servers_;
    SessionRig rig_;
};

} // namespace

TEST(TlsContext, LifeIsLoggedUnderTheClientsNameAndTag) {
    LogCapture log;
    {
        context c("<alice>");
        c.close();
    }
    EXPECT_TRUE(log.inOrder(
        {"<alice> context construct\n", "<alice> close context\n", "<alice> context destruct\n"}));
    for (char const * text : {" context construct", " close context", " context destruct"}) {
        EXPECT_EQ(log.find(text).level, tavLogger::INFO) << text;
        EXPECT_NE(log.find(text).text.find("[TLS.CLT]"), std::string::npos) << text;
    }
}

TEST(TlsContext, SpeaksTls12OnlyAndCompressesNothing) {
    context c("c");
    SSL_CTX * const handle = c.ssl_context().native_handle();
    EXPECT_EQ(SSL_CTX_get_min_proto_version(handle), 771);
    EXPECT_EQ(SSL_CTX_get_max_proto_version(handle), 771);
    EXPECT_NE(SSL_CTX_get_options(handle) & SSL_OP_NO_COMPRESSION, 0u);
}

TEST(TlsContext, FreshContextWithAnEmptyPairDoesNothing) {
    context c("c");
    EXPECT_FALSE(c.init("", ""));
    EXPECT_FALSE(c.should_verify());
    EXPECT_EQ(certificates(c), 0);
}

TEST(TlsContext, FileIsLoadedOnceAndLogged) {
    LogCapture log;
    Folder const folder;
    std::string const file = folder.write("ca.pem", TlsIdentity::ecdsa().ca);
    context c("<a>");
    EXPECT_TRUE(c.init(file, ""));
    EXPECT_TRUE(c.should_verify());
    EXPECT_EQ(certificates(c), 1);
    EXPECT_TRUE(c.init(file, ""));
    EXPECT_EQ(log.count("<a> load_verify_file " + file + "\n"), 1u);
}

TEST(TlsContext, FilesAddUp) {
    Folder const folder;
    context c("c");
    EXPECT_TRUE(c.init(folder.write("1.pem", TlsIdentity::ecdsa().ca), ""));
    EXPECT_TRUE(c.init(folder.write("2.pem", TlsIdentity::stranger().ca), ""));
    EXPECT_EQ(certificates(c), 2);
}

TEST(TlsContext, EmptyPairClearsNothing) {
    Folder const folder;
    context c("c");
    EXPECT_TRUE(c.init(folder.write("1.pem", TlsIdentity::ecdsa().ca), "AES128-GCM-SHA256"));
    EXPECT_TRUE(c.init("", ""));
    EXPECT_TRUE(c.should_verify());
    EXPECT_EQ(suites(c), "AES128-GCM-SHA256");
}

TEST(TlsContext, NewCipherWithAnEmptyPathTurnsCheckingOff) {
    Folder const folder;
    context c("c");
    EXPECT_TRUE(c.init(folder.write("1.pem", TlsIdentity::ecdsa().ca), "AES128-GCM-SHA256"));
    EXPECT_TRUE(c.init("", "AES256-GCM-SHA384"));
    EXPECT_FALSE(c.should_verify());
    EXPECT_EQ(suites(c), "AES256-GCM-SHA384");
}

TEST(TlsContext, NewPathWithAnEmptyCipherBringsTheDefaultListBack) {
    Folder const folder;
    context c("c");
    EXPECT_TRUE(c.init("", "AES128-GCM-SHA256"));
    EXPECT_TRUE(c.init(folder.write("1.pem", TlsIdentity::ecdsa().ca), ""));
    EXPECT_EQ(suites(c), default_ciphers);
}

TEST(TlsContext, MissingFileIsLoggedAndNotRetried) {
    LogCapture log;
    context c("c");
    EXPECT_FALSE(c.init("/nowhere/ca.pem", "AES128-GCM-SHA256"));
    EXPECT_TRUE(c.should_verify());
    LogCapture::Record const record = log.find("<<< EXCEPTION >>> load_verify_file");
    EXPECT_EQ(record.level, tavLogger::ERROR);
    EXPECT_NE(record.text.find("[TAV]"), std::string::npos);
    EXPECT_NE(record.text.find("\n    catch at "), std::string::npos);
    EXPECT_EQ(suites(c), default_ciphers) << "the list is not applied after a failure";

    EXPECT_FALSE(c.init("/nowhere/ca.pem", "AES128-GCM-SHA256"));
    EXPECT_FALSE(c.init("", ""));
    EXPECT_EQ(log.count("<<< EXCEPTION >>>"), 1u);
    EXPECT_EQ(log.count(" load_verify_file /nowhere/ca.pem"), 1u);
    EXPECT_TRUE(c.should_verify());
}

TEST(TlsContext, SuccessAfterAFailureIsTrueAgain) {
    Folder const folder;
    context c("c");
    EXPECT_FALSE(c.init("/nowhere/ca.pem", ""));
    EXPECT_TRUE(c.init(folder.write("1.pem", TlsIdentity::ecdsa().ca), ""));
}

TEST(TlsContext, DirectoryGivesItsFilesThatEndInPointZero) {
    LogCapture log;
    Folder const folder;
    folder.write("a.0", TlsIdentity::ecdsa().ca);
    folder.write("b.0", TlsIdentity::rsa().ca);
    folder.write("c.1", TlsIdentity::stranger().ca);
    folder.write("d.00", TlsIdentity::stranger().ca);
    folder.write("e.0.pem", TlsIdentity::stranger().ca);
    std::filesystem::create_directory(folder.path() + "/f.0");
    context c("<d>");
    EXPECT_TRUE(c.init(folder.path() + "/", ""));
    EXPECT_TRUE(c.should_verify());
    EXPECT_EQ(certificates(c), 2);
    EXPECT_EQ(log.count(" load_verify_file "), 2u);
    EXPECT_TRUE(log.contains("<d> load_verify_file " + folder.path() + "/a.0\n"));
    EXPECT_TRUE(log.contains("<d> load_verify_file " + folder.path() + "/b.0\n"));
}

TEST(TlsContext, LinkToACertificateCountsAsAFile) {
    Folder const folder;
    std::filesystem::create_symlink(folder.write("ca.pem", TlsIdentity::ecdsa().ca),
                                    folder.path() + "/1234.0");
    context c("c");
    EXPECT_TRUE(c.init(folder.path() + "/", ""));
    EXPECT_EQ(certificates(c), 1);
}

TEST(TlsContext, EmptyDirectoryLoadsNothingAndVerifies) {
    Folder const folder;
    context c("c");
    EXPECT_TRUE(c.init(folder.path() + "/", ""));
    EXPECT_TRUE(c.should_verify());
    EXPECT_EQ(certificates(c), 0);
}

TEST(TlsContext, MissingDirectoryIsAnEmptyOne) {
    context c("c");
    EXPECT_TRUE(c.init("/nowhere/at/all/", ""));
    EXPECT_TRUE(c.should_verify());
}

TEST(TlsContext, DirectoryWithoutItsSlashIsABadFile) {
    LogCapture log;
    Folder const folder;
    folder.write("a.0", TlsIdentity::ecdsa().ca);
    context c("c");
    EXPECT_FALSE(c.init(folder.path(), ""));
    EXPECT_TRUE(log.contains("<<< EXCEPTION >>> load_verify_file"));
    EXPECT_EQ(certificates(c), 0);
}

TEST(TlsContext, BadFileInADirectoryFailsTheWhole) {
    Folder const folder;
    folder.write("a.0", "no certificate");
    context c("c");
    EXPECT_FALSE(c.init(folder.path() + "/", ""));
}

TEST(TlsContext, DefaultCiphersKeepTheirOrder) {
    context c("c");
    EXPECT_EQ(c.cipher_list(), default_ciphers);
    EXPECT_EQ(suites(c), default_ciphers);
    EXPECT_EQ(tav::tls::connect_option().cipher_list(), default_ciphers);
}

TEST(TlsContext, UnknownCiphersLeaveTheListInForce) {
    context c("c");
    EXPECT_TRUE(c.init("", "AES128-GCM-SHA256"));
    EXPECT_TRUE(c.init("", "NO-SUCH-SUITE"));
    EXPECT_EQ(suites(c), "AES128-GCM-SHA256");
    EXPECT_EQ(c.cipher_list(), "AES128-GCM-SHA256");
}

TEST(TlsContext, RunEndsByCloseOnly) {
    SessionRig rig;
    rig.settle();
    EXPECT_TRUE(rig.context()->post([] {}));
    EXPECT_FALSE(rig.context()->runs_here());
    bool inside = false;
    rig.onIoThread([&] { inside = rig.context()->runs_here(); });
    EXPECT_TRUE(inside);
    rig.stop();
    EXPECT_FALSE(rig.context()->post([] {})) << "nothing runs after the end";
}

TEST(TlsContext, CloseRunsWhatWasReady) {
    context c("c");
    int ran = 0;
    c.post([&] { ++ran; });
    c.post([] { throw std::runtime_error("one"); });
    c.post([&] { ++ran; });
    c.close();
    c.run();
    EXPECT_EQ(ran, 2);
}

TEST(TlsContext, CloseDropsResolvesUncalled) {
    auto const witness = std::make_shared<int>(0);
    bool called = false;
    context c("c");
    c.async_resolve("127.0.0.1", "1",
                    [witness, &called](std::error_code, context::results_type) { called = true; });
    EXPECT_EQ(witness.use_count(), 2);
    c.close();
    EXPECT_EQ(witness.use_count(), 1);
    c.async_resolve("127.0.0.1", "1",
                    [witness, &called](std::error_code, context::results_type) { called = true; });
    EXPECT_EQ(witness.use_count(), 1);
    c.run();
    EXPECT_FALSE(called);
}

TEST(TlsContextSocket, InitFollowsTheContext) {
    LogCapture log;
    Folder const folder;
    auto const c = std::make_shared<context>("c");
    impl::tls_socket socket(c, "<s>");
    socket.init();
    EXPECT_EQ(SSL_get_verify_mode(socket.native_handle()), SSL_VERIFY_NONE);
    EXPECT_EQ(log.count("<s> context_->should_verify() 0\n"), 1u);
    EXPECT_EQ(log.find(" context_->should_verify() ").level, tavLogger::INFO);
    c->init(folder.write("ca.pem", TlsIdentity::ecdsa().ca), "");
    socket.init();
    EXPECT_EQ(SSL_get_verify_mode(socket.native_handle()), SSL_VERIFY_PEER);
    EXPECT_EQ(log.count("<s> context_->should_verify() 1\n"), 1u);
    EXPECT_NE(SSL_get_verify_callback(socket.native_handle()), nullptr);
}

TEST(TlsContextSocket, VerifyWithoutCheckingIsTrueAndSilent) {
    LogCapture log;
    auto const c = std::make_shared<context>("c");
    impl::tls_socket socket(c, "<s>");
    asio::ssl::verify_context none(nullptr);
    EXPECT_TRUE(socket.verify_certificate(false, none, false));
    EXPECT_FALSE(log.contains(" Verifying "));
}

TEST(TlsContextSocket, VerifyWithCheckingAnswersWhatTheChainSays) {
    LogCapture log;
    auto const c = std::make_shared<context>("c");
    impl::tls_socket socket(c, "<s>");
    std::unique_ptr<BIO, int (*)(BIO *)> const text(
        BIO_new_mem_buf(TlsIdentity::ecdsa().chain.data(),
                        static_cast<int>(TlsIdentity::ecdsa().chain.size())),
        BIO_free);
    std::unique_ptr<X509, void (*)(X509 *)> const leaf(
        PEM_read_bio_X509(text.get(), nullptr, nullptr, nullptr), X509_free);
    std::unique_ptr<X509_STORE_CTX, void (*)(X509_STORE_CTX *)> const chain(X509_STORE_CTX_new(),
                                                                            X509_STORE_CTX_free);
    asio::ssl::verify_context ctx(chain.get());
    EXPECT_TRUE(socket.verify_certificate(true, ctx, true)) << "a context without a certificate does no harm";
    X509_STORE_CTX_set_current_cert(chain.get(), leaf.get());
    EXPECT_TRUE(socket.verify_certificate(true, ctx, true));
    EXPECT_FALSE(socket.verify_certificate(false, ctx, true));
    EXPECT_EQ(log.count("<s> Verifying /CN=localhost, preverified true\n"), 1u);
    EXPECT_EQ(log.count("<s> Verifying /CN=localhost, preverified false\n"), 1u);
    EXPECT_EQ(log.find(" Verifying /CN").level, tavLogger::INFO);
}

TEST(TlsContextVerification, TrustedChainConnectsWhateverTheHostsName) {
    LogCapture log;
    Folder const folder;
    Outcomes outcome;
    EXPECT_EQ(outcome.with(folder.write("ca.pem", TlsIdentity::ecdsa().ca)), "open");
    EXPECT_TRUE(log.contains(" Verifying /CN=localhost, preverified true"));
}

TEST(TlsContextVerification, UntrustedChainFailsTheHandshake) {
    LogCapture log;
    Folder const folder;
    Outcomes outcome;
    std::string const result = outcome.with(folder.write("ca.pem", TlsIdentity::stranger().ca));
    EXPECT_NE(result.find("certificate verify failed"), std::string::npos) << result;
    EXPECT_TRUE(log.contains(", preverified false"));
    EXPECT_EQ(log.find(" Handshake failed: ").level, tavLogger::ERROR);
}

TEST(TlsContextVerification, EmptyDirectoryFailsEveryHandshake) {
    Folder const folder;
    Outcomes outcome;
    EXPECT_NE(outcome.with(folder.path() + "/").find("certificate verify failed"), std::string::npos);
}

TEST(TlsContextVerification, WithoutAPathAnyCertificateDoes) {
    LogCapture log;
    Outcomes outcome(TlsIdentity::rsa());
    EXPECT_EQ(outcome.with(""), "open");
    EXPECT_FALSE(log.contains(" Verifying "));
}

TEST(TlsContextVerification, FailedFileStillConnectsAgainstTheStoreAsItIs) {
    Folder const folder;
    Outcomes outcome;
    EXPECT_NE(outcome.with("/nowhere/ca.pem").find("certificate verify failed"), std::string::npos);
    EXPECT_EQ(outcome.with(folder.write("ca.pem", TlsIdentity::ecdsa().ca)), "open");
    EXPECT_EQ(outcome.with("/nowhere/other.pem"), "open") << "certificates add up";
}
