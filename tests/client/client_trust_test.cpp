#include "tav/vinta/vinta_tls_client.h"

#include "client/trust.h"
#include "client/vinta_tls_client_impl_context.h"
#include "support/client_rig.h"
#include "support/folder.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <asio/ssl/error.hpp>

#include <openssl/err.h>
#include <openssl/pem.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

using namespace tav_test;
using impl::context;
using tls::client;

namespace {

/// What a client that trusts `ca` tells of a server.
std::string errorOf(TlsIdentity const & server, std::string const & ca) {
    TlsPeer peer(server);
    Events events;
    client c("n");
    TempFile const trusted(ca);
    tls::connect_option option = optionFor(peer.port(), events);
    option.ca = trusted.path();
    auto const info = c.start(option);
    peer.accept()->handshake();
    if (resultOf(info) != tls::result_error || !events.wait(1)) {
        return "no error";
    }
    std::string const told = events.all()[0];
    return told.substr(told.find(": ") + 2);
}

/// The ERROR lines about certificates that can't be used.
unsigned troubles(LogCapture const & log) {
    return log.count("<c> no use of the certificates under ");
}

std::string troubleOf(std::string const & path) {
    LogCapture log;
    context c("<c>");
    c.init(path, "");
    LogCapture::Record const record = log.find("<c> no use of the certificates under " + path + ": ");
    return record.level == tavLogger::ERROR ? record.text : std::string("nothing at ERROR");
}

bool endsWith(std::string const & text, std::string const & end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// Another user while it lives, as to the first one nothing is forbidden.
class PlainUser {
public:
    PlainUser() : first_(::geteuid() == 0), dropped_(!first_ || ::seteuid(65534) == 0) {}
    ~PlainUser() {
        if (first_ && ::seteuid(0) != 0) {
            std::abort();
        }
    }
    PlainUser(PlainUser const &) = delete;
    PlainUser & operator=(PlainUser const &) = delete;

    explicit operator bool() const { return dropped_; }
    /// Changes a mode as the one who may.
    bool allow(std::string const & path, mode_t mode) const {
        bool const changed = (!first_ || ::seteuid(0) == 0) && ::chmod(path.c_str(), mode) == 0;
        return changed && (!first_ || ::seteuid(65534) == 0);
    }

private:
    bool const first_;
    bool const dropped_;
};

/// Whether a client that starts with `path` fails for want of permission, and the next reconnect succeeds if
/// `obstacle` has been given `mode` meanwhile.
bool isReadAtTheReconnect(std::string const & path, std::string const & obstacle, mode_t mode) {
    LogCapture log;
    PlainUser const user;
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.ca = path;
    auto const info = rig.client.start(option);
    rig.peer.accept()->handshake();
    bool const refused =
        user && resultOf(info) == tls::result_error &&
        endsWith(log.find("<n> no use of the certificates under ").text, ": Permission denied\n");
    if (!refused || !user.allow(obstacle, mode)) {
        return false;
    }
    rig.reconnect();
    return rig.settle() && log.count("<n> no use of the certificates under ") == 1;
}

} // namespace

TEST(ClientTrustRefusedCertificate, TellsItsReasonAndSubjectToTheApplication) {
    TlsIdentity const & good = TlsIdentity::ecdsa();
    std::string const system = "certificate verify failed (SSL routines): ";
    EXPECT_EQ(errorOf(good, TlsIdentity::stranger().ca),
              system + "unable to get local issuer certificate, subject /CN=localhost");
    TlsIdentity const old = TlsIdentity::valid(-7200, -3600);
    EXPECT_EQ(errorOf(old, old.ca), system + "certificate has expired, subject /CN=localhost");
    TlsIdentity const early = TlsIdentity::valid(3600, 7200);
    EXPECT_EQ(errorOf(early, early.ca), system + "certificate is not yet valid, subject /CN=localhost");
    std::string const own = errorOf(TlsIdentity::selfSigned(), good.ca);
    EXPECT_EQ(own.find(system + "self"), 0u) << own;
    EXPECT_TRUE(endsWith(own, ", subject /CN=Stranger CA")) << own;
}

TEST(ClientTrustRefusedCertificate, IsOneErrorLineWithAllThatIsKnown) {
    LogCapture log;
    TlsIdentity const old = TlsIdentity::valid(-7200, -3600);
    errorOf(old, old.ca);
    EXPECT_EQ(log.count("<n> certificate refused: "), 1u);
    LogCapture::Record const line = log.find("<n> certificate refused: ");
    EXPECT_EQ(line.level, tavLogger::ERROR);
    for (char const * part :
         {"certificate refused: certificate has expired, depth 0, subject /CN=localhost, ",
          ", issuer /CN=Test CA, valid from ", " GMT to "}) {
        EXPECT_NE(line.text.find(part), std::string::npos) << line.text;
    }
    EXPECT_EQ(log.count(" Handshake failed: "), 1u);
}

TEST(ClientTrustRefusedCertificate, OfAnotherKindOfFailureSaysNothing) {
    Events events;
    TlsPeer peer;
    client c("n");
    auto const info = c.start(optionFor(peer.port(), events));
    peer.accept()->sendPlain("HTTP/1.0 400 this is no TLS\r\n\r\n");
    EXPECT_EQ(resultOf(info), tls::result_error);
    ASSERT_TRUE(events.wait(1));
    EXPECT_EQ(events.all()[0].find("subject"), std::string::npos);
}

TEST(ClientTrustCertificatePath, ThatCannotBeUsedIsToldWithTheReason) {
    Folder const folder;
    EXPECT_TRUE(endsWith(troubleOf("/nowhere/ca.pem"), ": No such file or directory\n"));
    EXPECT_TRUE(endsWith(troubleOf("/nowhere/at/all/"), ": No such file or directory\n"));
    EXPECT_NE(troubleOf(folder.write("empty.pem", "")).find(": no certificate in it: "), std::string::npos);
    EXPECT_NE(troubleOf(folder.write("text.pem", "a text")).find(": no certificate in it: "),
              std::string::npos);
    EXPECT_TRUE(endsWith(troubleOf(folder.path()), "it is a folder, and its path has no \"/\" at the end\n"));
    EXPECT_TRUE(
        endsWith(troubleOf(folder.path() + "/"), ": nothing in it: no file whose name ends in \".0\"\n"));
    folder.write("bad.0", "a text");
    EXPECT_NE(troubleOf(folder.path() + "/").find(folder.path() + "/bad.0: no certificate in it: "),
              std::string::npos);
    EXPECT_EQ(troubleOf(folder.write("good.pem", TlsIdentity::ecdsa().ca)), "nothing at ERROR");
}

// As another user, since nothing is forbidden to the first one; and so in a process of its own.
TEST(ClientTrustCertificatePathDeathTest, WithoutPermissionIsToldSo) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            bool told = false;
            {
                Folder const folder;
                std::string const file = folder.write("ca.pem", TlsIdentity::ecdsa().ca);
                ::chmod(file.c_str(), 0);
                ::chmod(folder.path().c_str(), 0755);
                PlainUser const user;
                told = user && endsWith(troubleOf(file), ": Permission denied\n");
            }
            std::exit(told ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(ClientTrustCertificatePathDeathTest, WhosePermissionIsMendedIsReadAtTheReconnect) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            ::alarm(60);
            int wrong = 0;
            {
                Folder const folder;
                std::string const & top = folder.path();
                std::string const file = folder.write("ca.pem", TlsIdentity::ecdsa().ca);
                std::filesystem::create_directory(top + "/in");
                std::string const entry = folder.write("in/a.0", TlsIdentity::ecdsa().ca);
                ::chmod(top.c_str(), 0755);
                ::chmod(file.c_str(), 0);
                wrong += isReadAtTheReconnect(file, file, 0644) ? 0 : 1;
                ::chmod(entry.c_str(), 0);
                wrong += isReadAtTheReconnect(top + "/in/", entry, 0644) ? 0 : 2;
                ::chmod((top + "/in").c_str(), 0);
                wrong += isReadAtTheReconnect(top + "/in/", top + "/in", 0755) ? 0 : 4;
                ::chmod(top.c_str(), 0);
                wrong += isReadAtTheReconnect(file, top, 0755) ? 0 : 8;
            }
            std::exit(wrong);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(ClientTrustCertificatePath, InTroubleIsToldAtEachStartAndReadOnce) {
    LogCapture log;
    context c("<c>");
    c.init("/nowhere/ca.pem", "");
    c.init("/nowhere/ca.pem", "");
    EXPECT_EQ(troubles(log), 2u);
    EXPECT_EQ(log.count("<c> load_verify_file "), 1u);
}

// What the TLS library had no memory for is no fault of the file, which is read again at the next start.
TEST(ClientTrustCertificatePath, ThatThereWasNoMemoryForIsWanted) {
    auto const wantOf = [](unsigned long code) {
        return impl::want_of(std::error_code(static_cast<int>(code), asio::error::get_ssl_category()));
    };
    for (int const library : {ERR_LIB_X509, ERR_LIB_PEM, ERR_LIB_ASN1, ERR_LIB_BIO, ERR_LIB_SSL}) {
        EXPECT_EQ(wantOf(ERR_PACK(library, 0, ERR_R_MALLOC_FAILURE)), std::errc::not_enough_memory)
            << library;
    }
    EXPECT_FALSE(wantOf(ERR_PACK(ERR_LIB_PEM, 0, PEM_R_NO_START_LINE)));
    EXPECT_FALSE(impl::want_of(std::make_error_code(std::errc::no_such_file_or_directory)));
}

TEST(ClientTrustCertificatePath, ThatHasChangedIsReadAgain) {
    LogCapture log;
    Folder const folder;
    context c("<c>");
    std::string const file = folder.path() + "/ca.pem";
    EXPECT_FALSE(c.init(file, ""));
    folder.write("ca.pem", TlsIdentity::ecdsa().ca);
    EXPECT_TRUE(c.init(file, "")) << "a file that has come";
    EXPECT_TRUE(c.init(file, ""));
    EXPECT_EQ(log.count("<c> load_verify_file "), 2u);
    folder.write("new.pem", TlsIdentity::rsa().ca);
    std::filesystem::rename(folder.path() + "/new.pem", file);
    EXPECT_TRUE(c.init("", "")) << "another file in its place";
    EXPECT_EQ(log.count("<c> load_verify_file "), 3u);
    EXPECT_EQ(troubles(log), 1u);
}

TEST(ClientTrustCertificatePath, FolderThatHasChangedIsReadAgain) {
    LogCapture log;
    Folder const folder;
    std::string const path = folder.path() + "/";
    context c("<c>");
    EXPECT_TRUE(c.init(path, ""));
    EXPECT_EQ(troubles(log), 1u);
    folder.write("a.0", TlsIdentity::ecdsa().ca);
    EXPECT_TRUE(c.init(path, ""));
    EXPECT_EQ(log.count("<c> load_verify_file "), 1u);
    folder.write("readme.txt", "not one of them");
    EXPECT_TRUE(c.init(path, ""));
    EXPECT_EQ(log.count("<c> load_verify_file "), 1u);
    folder.write("b.0", TlsIdentity::rsa().ca);
    EXPECT_TRUE(c.init(path, ""));
    EXPECT_EQ(log.count("<c> load_verify_file "), 3u) << "all of them";
    folder.write("b.0", TlsIdentity::rsa().ca + TlsIdentity::ecdsa().ca);
    EXPECT_TRUE(c.init(path, ""));
    EXPECT_EQ(log.count("<c> load_verify_file "), 5u) << "an entry's own change";
    EXPECT_EQ(troubles(log), 1u);
}

TEST(ClientTrustCertificatePath, ThatWasMendedServesTheNextReconnect) {
    LogCapture log;
    Folder const folder;
    ClientRig rig;
    tls::connect_option option = rig.option();
    option.ca = folder.write("ca.pem", TlsIdentity::stranger().ca);
    auto const info = rig.client.start(option);
    rig.peer.accept()->handshake();
    EXPECT_EQ(resultOf(info), tls::result_error);
    folder.write("ca.pem", TlsIdentity::ecdsa().ca);
    rig.reconnect();
    EXPECT_TRUE(rig.settle());
}

TEST(ClientTrustCertificatePath, ThatIsNotGivenIsOneWarningForEachStart) {
    LogCapture log;
    ClientRig rig;
    rig.connect();
    char const * const line = "<n> no certificates to trust were given: any peer is believed\n";
    ASSERT_TRUE(log.waitFor(line));
    EXPECT_EQ(log.find(line).level, tavLogger::WARN);
    rig.reconnect();
    rig.connect();
    ASSERT_TRUE(log.waitFor(line, 2));
    TempFile const ca(TlsIdentity::ecdsa().ca);
    tls::connect_option checked = rig.option();
    checked.ca = ca.path();
    rig.connect(checked);
    rig.client.close();
    ASSERT_TRUE(log.waitFor("<n> session destruct\n", 4));
    EXPECT_EQ(log.count(line), 2u);
}
