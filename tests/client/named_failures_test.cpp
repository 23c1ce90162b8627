#include "client/failures.h"

#include <gtest/gtest.h>

#include <asio/error.hpp>
#include <asio/ssl/error.hpp>
#include <openssl/err.h>
#include <openssl/sslerr.h>

#include <cerrno>
#include <iterator>
#include <new>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

using tav::tls::failure;
using tav::tls::failure_category;
using tav::tls::last_failure;
using tav::tls::impl::named;

namespace {

constexpr int known = static_cast<int>(failure::would_wait_for_itself) + 1;

std::error_code ofSystem(int number) {
    return {number, std::system_category()};
}

} // namespace

TEST(NamedFailures, EachHasASentenceOfItsOwn) {
    std::set<std::string> sentences;
    for (int i = 0; i < known; ++i) {
        std::string const text = failure_category().message(i);
        EXPECT_EQ(text.find("unknown"), std::string::npos) << i;
        EXPECT_TRUE(sentences.insert(text).second) << text;
    }
    EXPECT_EQ(failure_category().message(known), "unknown failure " + std::to_string(known));
    EXPECT_EQ(failure_category().message(-1), "unknown failure -1");
}

TEST(NamedFailures, SayWhatWentWrong) {
    std::pair<failure, char const *> const sentences[] = {
        {failure::none, "no failure"},
        {failure::other, "failed for a reason that the log tells"},
        {failure::not_connected, "not connected"},
        {failure::closed, "the client has ended"},
        {failure::queue_full, "too much waits to be sent"},
        {failure::too_many_sends, "too many sends wait for their end"},
        {failure::body_too_long, "the body is too long"},
        {failure::bad_json, "the text is not a JSON object"},
        {failure::template_lacks_class, "the template lacks the class"},
        {failure::value_does_not_fit, "a value does not fit its field"},
        {failure::field_missing, "a necessary field is missing"},
        {failure::encoding_failed, "the message could not be encoded"},
        {failure::out_of_memory, "out of memory"},
        {failure::timed_out, "timed out"},
        {failure::cancelled, "cancelled"},
        {failure::busy, "a connect is under way"},
        {failure::connection_lost, "the connection was lost"},
        {failure::closed_by_peer, "the peer closed the connection"},
        {failure::peer_silent, "the peer was silent for too long"},
        {failure::bad_address, "the host or the port is not valid"},
        {failure::host_not_found, "the host was not found"},
        {failure::refused, "the connection was refused"},
        {failure::unreachable, "the host can't be reached"},
        {failure::proxy_refused, "the proxy refused"},
        {failure::handshake_failed, "the TLS handshake failed"},
        {failure::certificate_refused, "the peer's certificate was refused"},
        {failure::name_mismatch, "the peer's certificate is for another name"},
        {failure::bad_policy, "the TLS policy can't be used"},
        {failure::bad_template, "the template can't be read"},
        {failure::bad_frame, "the peer sent what is no frame"},
        {failure::no_resources, "the system refused a descriptor or a thread"},
        {failure::would_wait_for_itself, "the wait would wait for itself"},
    };
    ASSERT_EQ(std::size(sentences), static_cast<std::size_t>(known));
    for (auto const & [which, sentence] : sentences) {
        EXPECT_EQ(make_error_code(which).message(), sentence);
    }
}

TEST(NamedFailures, AreErrorCodesOfTheirCategory) {
    std::error_code const code = failure::timed_out;
    EXPECT_STREQ(code.category().name(), "tav.tls");
    EXPECT_EQ(code.message(), "timed out");
    EXPECT_TRUE(code == failure::timed_out);
    EXPECT_FALSE(code == failure::cancelled);
    EXPECT_FALSE(std::error_code(failure::none));
}

TEST(NamedFailures, LastOneIsTheThreadsOwn) {
    tav::tls::impl::set_last_failure(failure::queue_full);
    EXPECT_EQ(last_failure(), failure::queue_full);
    std::error_code elsewhere = failure::other;
    std::thread([&] { elsewhere = last_failure(); }).join();
    EXPECT_EQ(elsewhere, failure::none);
    tav::tls::impl::set_last_failure(failure::none);
    EXPECT_EQ(last_failure(), failure::none);
}

TEST(NamedFailures, ErrorsOfTheNetworkHaveNames) {
    EXPECT_EQ(named(std::error_code()), failure::none);
    EXPECT_EQ(named(ofSystem(ECONNREFUSED)), failure::refused);
    EXPECT_EQ(named(ofSystem(EHOSTUNREACH)), failure::unreachable);
    EXPECT_EQ(named(ofSystem(ENETUNREACH)), failure::unreachable);
    for (int const number : {ETIMEDOUT, EACCES, EPERM, ENETDOWN, EHOSTDOWN, EAFNOSUPPORT, EADDRNOTAVAIL}) {
        EXPECT_EQ(named(ofSystem(number)), failure::unreachable) << number;
    }
    EXPECT_EQ(named(ofSystem(ECONNRESET)), failure::connection_lost);
    EXPECT_EQ(named(ofSystem(EPIPE)), failure::connection_lost);
    EXPECT_EQ(named(ofSystem(EMFILE)), failure::no_resources);
    EXPECT_EQ(named(asio::error::eof), failure::closed_by_peer);
    EXPECT_EQ(named(asio::ssl::error::stream_truncated), failure::closed_by_peer);
    EXPECT_EQ(named(asio::error::host_not_found), failure::host_not_found);
    EXPECT_EQ(named(asio::error::host_not_found_try_again), failure::host_not_found);
    EXPECT_EQ(named(asio::error::service_not_found), failure::bad_address);
    EXPECT_EQ(named(asio::error::operation_aborted), failure::cancelled);
    EXPECT_EQ(named(failure::name_mismatch), failure::name_mismatch);
}

TEST(NamedFailures, RefusedCertificateIsToldFromAFailedHandshake) {
    auto const ofTls = [](int reason) {
        return std::error_code(static_cast<int>(ERR_PACK(ERR_LIB_SSL, 0, reason)),
                               asio::error::get_ssl_category());
    };
    EXPECT_EQ(named(ofTls(SSL_R_CERTIFICATE_VERIFY_FAILED)), failure::certificate_refused);
    EXPECT_EQ(named(ofTls(SSL_R_WRONG_VERSION_NUMBER)), failure::handshake_failed);
    std::error_code const elsewhere(
        static_cast<int>(ERR_PACK(ERR_LIB_X509, 0, SSL_R_CERTIFICATE_VERIFY_FAILED)),
        asio::error::get_ssl_category());
    EXPECT_EQ(named(elsewhere), failure::handshake_failed) << "each part of the library numbers for itself";
}

TEST(NamedFailures, BreakByTlsIsALostConnectionUnlessTheClientWasRefused) {
    auto const broken = [](int reason) {
        return tav::tls::impl::named_break(std::error_code(static_cast<int>(ERR_PACK(ERR_LIB_SSL, 0, reason)),
                                                           asio::error::get_ssl_category()));
    };
    for (int const reason : {SSL_R_TLSV13_ALERT_CERTIFICATE_REQUIRED, SSL_R_TLSV1_ALERT_UNKNOWN_CA,
                             SSL_R_SSLV3_ALERT_BAD_CERTIFICATE, SSL_R_SSLV3_ALERT_CERTIFICATE_REVOKED}) {
        EXPECT_EQ(broken(reason), failure::handshake_failed) << reason;
    }
    EXPECT_EQ(broken(SSL_R_DECRYPTION_FAILED_OR_BAD_RECORD_MAC), failure::connection_lost);
    EXPECT_EQ(broken(SSL_R_TLSV1_ALERT_INTERNAL_ERROR), failure::connection_lost);
    EXPECT_EQ(tav::tls::impl::named_break(asio::error::eof), failure::closed_by_peer);
}

TEST(NamedFailures, RefusalOfTheClientIsTlsItsOwn) {
    std::error_code const elsewhere(
        static_cast<int>(ERR_PACK(ERR_LIB_X509, 0, SSL_R_TLSV13_ALERT_CERTIFICATE_REQUIRED)),
        asio::error::get_ssl_category());
    EXPECT_EQ(tav::tls::impl::named_break(elsewhere), failure::connection_lost);
}

TEST(NamedFailures, PeerThatCannotBeReachedAnyMoreIsALostConnection) {
    for (int const number : {ETIMEDOUT, EHOSTUNREACH, ENETUNREACH, ECONNRESET, EPERM, ENETDOWN}) {
        EXPECT_EQ(tav::tls::impl::named_break(ofSystem(number)), failure::connection_lost) << number;
    }
}

TEST(NamedFailures, NameThatAFunctionIsGivenGoesWithIt) {
    tav::tls::impl::set_last_failure(failure::queue_full);
    {
        tav::tls::impl::failure_scope const inside(failure::timed_out);
        EXPECT_EQ(last_failure(), failure::timed_out);
        tav::tls::impl::set_last_failure(failure::none);
    }
    EXPECT_EQ(last_failure(), failure::queue_full);
    tav::tls::impl::set_last_failure(failure::none);
}

TEST(NamedFailures, ExceptionInHandHasAName) {
    auto const namedOf = [](auto const & thrown) {
        try {
            throw thrown;
        } catch (...) {
            return tav::tls::impl::named_exception();
        }
    };
    EXPECT_EQ(namedOf(std::bad_alloc()), failure::out_of_memory);
    EXPECT_EQ(namedOf(std::system_error(EMFILE, std::system_category())), failure::no_resources);
    EXPECT_EQ(namedOf(std::string("text")), failure::other);
}
