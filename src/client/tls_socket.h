#ifndef TAV_CLIENT_TLS_SOCKET_H
#define TAV_CLIENT_TLS_SOCKET_H

#include "client/tls_setup.h"
#include "client/trust.h"
#include "client/vinta_tls_client_impl_context.h"
#include "foundation/build_stamp.h"
#include "foundation/guarded.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_tls_policy.h"

#include <asio/ip/tcp.hpp>
#include <asio/ssl/stream.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// The TLS stream of one session.
///
/// The descriptor is opened and closed by the I/O thread.  Thread safety: init ahead of all that follows it;
/// what asks for the descriptor, shuts it down or closes it, setup, should_verify and kept_report, on any
/// thread; all else on the I/O thread.
class tls_socket {
public:
    using stream_type = asio::ssl::stream<asio::ip::tcp::socket>;

    /// With a `setup` all that has to do with TLS is as that says, not the context.
    tls_socket(std::shared_ptr<context> owner, tav_istr name, std::shared_ptr<tls_setup> setup = nullptr);
    tls_socket(tls_socket const &) = delete;
    tls_socket & operator=(tls_socket const &) = delete;

    /// Has the peer checked or not, as the setup or else the context says now.  Throws std::system_error with
    /// "set_verify_callback" if the check can't be installed.
    void init();
    bool should_verify() const;

    /// Null without a policy.
    std::shared_ptr<tls_setup> const & setup() const { return setup_; }

    /// Takes a connected socket over; if that is not `wanted`, which is asked while nobody else uses the
    /// descriptor, gives operation_aborted.
    std::error_code adopt(asio::ip::tcp::socket connected, std::function<bool()> const & wanted);
    /// Makes the connection fail at once; nothing if there is none.
    void shut_down();
    /// Throws std::system_error with "close".
    void close();

    /// The ends.  Throw std::system_error with "local_endpoint" or "remote_endpoint" if there is no
    /// connection; with `ec` they set that and return an empty address.
    ip_port local_addr() const;
    ip_port remote_addr() const;
    ip_port local_addr(std::error_code & ec) const;
    ip_port remote_addr(std::error_code & ec) const;
    /// The bytes that have come by now, 0 if the system can't tell; none without a descriptor.
    std::optional<unsigned long long> bytes_received();

    /// What the handshake that has just ended has come to.
    tls_report report();
    /// The same, which is kept: the connection's own state changes with what is read.
    std::shared_ptr<tls_report const> keep_report();
    /// What was kept; empty before.
    tls_report kept_report() const;

    /// What an error of a read or a write comes from.  Data of the peer's that crosses a handshake anew, for
    /// which it asked while a write was under way, can't be taken then; the error of that says nothing.
    std::error_code meaning(std::error_code ec);

    /// The TLS library's question about one certificate of the chain, whose own answer is `preverified`.
    bool verify_certificate(bool preverified, asio::ssl::verify_context & ctx, bool should_verify);

    /// Why the peer's certificate was refused; empty if none was.
    certificate_refusal const & refusal() const { return refusal_; }

    stream_type & stream() { return stream_; }
    asio::ip::tcp::socket & lowest_layer() { return stream_.next_layer(); }
    asio::ip::tcp::socket const & lowest_layer() const { return stream_.next_layer(); }
    SSL * native_handle() { return stream_.native_handle(); }

private:
    /// Logs the verdict, and keeps why it is a refusal.
    void tell_verdict(bool preverified, asio::ssl::verify_context & ctx) noexcept;

    std::shared_ptr<context> context_;
    std::shared_ptr<tls_setup> const setup_;
    stream_type stream_;
    certificate_refusal refusal_;
    std::string const name_;
    /// Taken by all who use the descriptor from outside of the stream.
    detail::Mutex descriptor_mutex_;
    detail::Mutex report_mutex_;
    std::shared_ptr<tls_report const> report_ TAV_GUARDED_BY(report_mutex_);
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
