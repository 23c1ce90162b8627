#ifndef TAV_CLIENT_TLS_SETUP_H
#define TAV_CLIENT_TLS_SETUP_H

#include "foundation/build_stamp.h"
#include "tav/vinta/vinta_tls_client_options.h"
#include "tav/vinta/vinta_tls_policy.h"

#include <asio/ssl/context.hpp>

#include <functional>
#include <stdexcept>
#include <string>
#include <system_error>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// A policy that can't be kept.  The text begins with "tls policy: " and the name of the option.
class tls_policy_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What one start has made of its policy: a TLS context of its own in which all of it is set, so that nothing
/// of it reaches a connection without this policy.  Internal.
///
/// The keys that a policy names are in the TLS context only; their texts are wiped.
/// Thread safety: everything but the constructor only reads.
class tls_setup {
public:
    /// Reads what `option` and its policy name, which must not be null.  `name` begins the log lines.  Throws
    /// tls_policy_error.
    tls_setup(tav_istr name, connect_option const & option);
    tls_setup(tls_setup const &) = delete;
    tls_setup & operator=(tls_setup const &) = delete;

    asio::ssl::context & ssl_context() { return ssl_context_; }

    /// Whether the peer's certificate is checked.
    bool verifies() const { return verifies_; }

    /// The name or address that the certificate has to be for; empty if that is not checked.
    std::string const & expected_name() const { return expected_name_; }
    /// Whether that is an address.
    bool expects_address() const { return expects_address_; }

    /// What the server is told as its name; empty for nothing.
    std::string const & server_name() const { return server_name_; }

    /// Has the system watch over a connected socket; why it could not, if it could not.
    std::error_code watch(int socket) const;

private:
    void set_protocol(tls_policy const & policy, connect_option const & option);
    void set_alpn(tls_policy const & policy);
    void set_trust(tls_policy const & policy, connect_option const & option);
    void trust_files(std::string const & path);
    void trust_system();
    void set_revocation(tls_policy const & policy);
    void set_expected_name(tls_policy const & policy, connect_option const & option);
    void set_identity(tls_policy const & policy);
    void set_server_name(tls_policy const & policy, connect_option const & option);
    void set_key_log(tls_policy const & policy);
    void set_watch(tls_policy const & policy);

    SSL_CTX * handle() { return ssl_context_.native_handle(); }

    std::string const name_;
    asio::ssl::context ssl_context_;
    bool verifies_;
    bool expects_address_;
    std::string expected_name_;
    std::string server_name_;
    std::function<void(char const *)> key_log_;
    int keep_alive_s_;
    int keep_alive_interval_s_;
    int keep_alive_probes_;
    int user_timeout_ms_;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
