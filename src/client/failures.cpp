#include "client/failures.h"

#include "client/tls_setup.h"

#include <array>
#include <cerrno>
#include <new>
#include <string>
#include <utility>

#include <asio/error.hpp>
#include <asio/ssl/error.hpp>
#include <openssl/err.h>
#include <openssl/sslerr.h>

namespace tav {
namespace tls {
namespace {

constexpr std::array<char const *, 32> sentences = {
    "no failure",
    "failed for a reason that the log tells",
    "not connected",
    "the client has ended",
    "too much waits to be sent",
    "too many sends wait for their end",
    "the body is too long",
    "the text is not a JSON object",
    "the template lacks the class",
    "a value does not fit its field",
    "a necessary field is missing",
    "the message could not be encoded",
    "out of memory",
    "timed out",
    "cancelled",
    "a connect is under way",
    "the connection was lost",
    "the peer closed the connection",
    "the peer was silent for too long",
    "the host or the port is not valid",
    "the host was not found",
    "the connection was refused",
    "the host can't be reached",
    "the proxy refused",
    "the TLS handshake failed",
    "the peer's certificate was refused",
    "the peer's certificate is for another name",
    "the TLS policy can't be used",
    "the template can't be read",
    "the peer sent what is no frame",
    "the system refused a descriptor or a thread",
    "the wait would wait for itself",
};

class named_category final : public std::error_category {
public:
    char const * name() const noexcept override { return "tav.tls"; }
    std::string message(int value) const override {
        bool const known = value >= 0 && static_cast<std::size_t>(value) < sentences.size();
        return known ? sentences[static_cast<std::size_t>(value)]
                     : "unknown failure " + std::to_string(value);
    }
};

/// Never destroyed: a code may be asked for its text while the process ends.
union category_place {
    category_place() : category() {}
    ~category_place() {}
    named_category category;
};

thread_local failure last = failure::none;

failure named_errno(int number) noexcept {
    switch (number) {
    case ECONNREFUSED: return failure::refused;
    case EHOSTUNREACH:
    case ENETUNREACH:
    case ENETDOWN:
    case EHOSTDOWN:
    case EACCES: // A firewall of this machine, as the next.
    case EPERM:
    case EAFNOSUPPORT:
    case EADDRNOTAVAIL:
    case ETIMEDOUT: return failure::unreachable;
    case ECANCELED: return failure::cancelled;
    case EMFILE:
    case ENFILE:
    case EAGAIN: return failure::no_resources;
    case ENOMEM:
    case ENOBUFS: return failure::out_of_memory;
    default: return failure::connection_lost;
    }
}

/// The reason of an error of TLS itself; 0 if it is another part's of the library, whose numbers mean
/// something else.
int reason_of_tls(std::error_code ec) noexcept {
    auto const packed = static_cast<unsigned long>(ec.value());
    bool const of_tls =
        ec.category() == asio::error::get_ssl_category() && ERR_GET_LIB(packed) == ERR_LIB_SSL;
    return of_tls ? ERR_GET_REASON(packed) : 0;
}

/// Whether an error is the peer's word that it does not take the client's certificate.
bool is_refusal_of_client(std::error_code ec) noexcept {
    switch (reason_of_tls(ec)) {
    case SSL_R_SSLV3_ALERT_NO_CERTIFICATE:
    case SSL_R_SSLV3_ALERT_BAD_CERTIFICATE:
    case SSL_R_SSLV3_ALERT_UNSUPPORTED_CERTIFICATE:
    case SSL_R_SSLV3_ALERT_CERTIFICATE_REVOKED:
    case SSL_R_SSLV3_ALERT_CERTIFICATE_EXPIRED:
    case SSL_R_SSLV3_ALERT_CERTIFICATE_UNKNOWN:
    case SSL_R_TLSV1_ALERT_UNKNOWN_CA:
    case SSL_R_TLSV1_ALERT_ACCESS_DENIED:
    case SSL_R_TLSV1_ALERT_DECRYPT_ERROR:
    case SSL_R_TLSV13_ALERT_CERTIFICATE_REQUIRED: return true;
    default: return false;
    }
}

} // namespace

std::error_category const & failure_category() noexcept {
    static category_place const place;
    return place.category;
}

std::error_code make_error_code(failure v) noexcept {
    return {static_cast<int>(v), failure_category()};
}

std::error_code last_failure() noexcept {
    return last;
}

namespace TAV_IMPL_NAMESPACE {

void set_last_failure(failure v) noexcept {
    last = v;
}

failure_scope::failure_scope(failure v) noexcept : before_(std::exchange(last, v)) {}

failure_scope::~failure_scope() {
    last = before_;
}

failure named(std::error_code ec) noexcept {
    if (!ec) {
        return failure::none;
    }
    if (ec.category() == failure_category()) {
        return static_cast<failure>(ec.value());
    }
    if (ec == asio::error::service_not_found) {
        return failure::bad_address;
    }
    if (ec.category() == asio::error::get_netdb_category() ||
        ec.category() == asio::error::get_addrinfo_category()) {
        return failure::host_not_found;
    }
    if (ec == asio::error::eof || ec == asio::ssl::error::stream_truncated) {
        return failure::closed_by_peer;
    }
    if (ec.category() == asio::error::get_ssl_category()) {
        return reason_of_tls(ec) == SSL_R_CERTIFICATE_VERIFY_FAILED ? failure::certificate_refused
                                                                    : failure::handshake_failed;
    }
    bool const of_system = ec.category() == std::system_category() ||
                           ec.category() == std::generic_category() ||
                           ec.category() == asio::error::get_system_category();
    if (of_system) {
        return named_errno(ec.value());
    }
    return ec == asio::error::not_found ? failure::unreachable : failure::other;
}

failure named_break(std::error_code ec) noexcept {
    failure const v = named(ec);
    bool const lost =
        v == failure::unreachable || (v == failure::handshake_failed && !is_refusal_of_client(ec));
    return lost ? failure::connection_lost : v;
}

std::string message_of(std::error_code ec) {
    constexpr int end_as_a_failure = SSL_AD_REASON_OFFSET + SSL_AD_CLOSE_NOTIFY;
    return reason_of_tls(ec) == end_as_a_failure ? "sslv3 alert close notify (SSL routines)" : ec.message();
}

failure named_exception() noexcept {
    try {
        throw;
    } catch (std::bad_alloc const &) {
        return failure::out_of_memory;
    } catch (tls_policy_error const &) {
        return failure::bad_policy;
    } catch (std::system_error const & e) {
        return named(e.code());
    } catch (...) {
        return failure::other;
    }
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
