#include "client/tls_socket.h"

#include "client/peer_report.h"
#include "client/vinta_tls_client_impl_log.h"
#include "foundation/platform.h"

#include <asio/ssl/verify_context.hpp>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

#include <ostream>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

/// The lines of a socket stand in the log under the context's file, with whose they are read.
constexpr char const * log_file = "vinta_tls_client_impl_context.cpp";

using Lock = detail::Guard<detail::Mutex>;

ip_port address(asio::ip::tcp::endpoint const & endpoint) {
    return ip_port(endpoint.address().to_string(), endpoint.port());
}

/// Has a handshake that would wait for the peer wait for the stream first, if that has not taken what the
/// handshake has said.
///
/// The stream takes what an operation has added.  What a read adds while a write of the socket is under way,
/// as the answer to a peer that asks for a handshake anew, is old by the time that write has ended, and would
/// stay: the handshake would wait for its own word, and the next write for the handshake.
long speak_ahead_of_waiting(BIO * of, int operation, char const *, std::size_t, int, long, int result,
                            std::size_t *) {
    if (operation != BIO_CB_READ || ::BIO_ctrl_wpending(of) == 0 || ::BIO_ctrl_pending(of) != 0 ||
        ::SSL_in_init(reinterpret_cast<SSL *>(::BIO_get_callback_arg(of))) == 0) {
        return result;
    }
    BIO_clear_retry_flags(of);
    BIO_set_retry_write(of);
    return -1;
}

} // namespace

tls_socket::tls_socket(std::shared_ptr<context> owner, tav_istr name, std::shared_ptr<tls_setup> setup)
    : context_(std::move(owner)),
      setup_(std::move(setup)),
      stream_(context_->io_context(), setup_ ? setup_->ssl_context() : context_->ssl_context()),
      name_(name) {
    BIO * const both_ways = ::SSL_get_wbio(native_handle());
    ::BIO_set_callback_arg(both_ways, reinterpret_cast<char *>(native_handle()));
    ::BIO_set_callback_ex(both_ways, speak_ahead_of_waiting);
}

bool tls_socket::should_verify() const {
    return setup_ ? setup_->verifies() : context_->should_verify();
}

std::error_code tls_socket::adopt(asio::ip::tcp::socket connected, std::function<bool()> const & wanted) {
    Lock const guard(descriptor_mutex_);
    if (!wanted()) {
        return asio::error::operation_aborted;
    }
    lowest_layer() = std::move(connected);
    return std::error_code();
}

void tls_socket::shut_down() {
    Lock const guard(descriptor_mutex_);
    if (lowest_layer().is_open()) {
        platform::shutDown(lowest_layer().native_handle());
    }
}

void tls_socket::close() {
    Lock const guard(descriptor_mutex_);
    std::error_code ec;
    lowest_layer().close(ec);
    if (ec) {
        throw std::system_error(ec, "close");
    }
}

ip_port tls_socket::local_addr() const {
    Lock const guard(descriptor_mutex_);
    return address(lowest_layer().local_endpoint());
}

ip_port tls_socket::remote_addr() const {
    Lock const guard(descriptor_mutex_);
    return address(lowest_layer().remote_endpoint());
}

ip_port tls_socket::local_addr(std::error_code & ec) const {
    Lock const guard(descriptor_mutex_);
    asio::ip::tcp::endpoint const endpoint = lowest_layer().local_endpoint(ec);
    return ec ? ip_port() : address(endpoint);
}

ip_port tls_socket::remote_addr(std::error_code & ec) const {
    Lock const guard(descriptor_mutex_);
    asio::ip::tcp::endpoint const endpoint = lowest_layer().remote_endpoint(ec);
    return ec ? ip_port() : address(endpoint);
}

std::optional<unsigned long long> tls_socket::bytes_received() {
    Lock const guard(descriptor_mutex_);
    if (!lowest_layer().is_open()) {
        return std::nullopt;
    }
    return platform::bytesReceived(lowest_layer().native_handle());
}

// The stream counts a read as cancelled that had to wait for a write and then found its data come.  TLS takes
// no data as it writes.
std::error_code tls_socket::meaning(std::error_code ec) {
    bool const cancelled = ec == asio::error::operation_aborted && lowest_layer().is_open();
    if ((!cancelled && ec != asio::ssl::error::unspecified_system_error) ||
        ::SSL_num_renegotiations(native_handle()) == 0) {
        return ec;
    }
    return {static_cast<int>(ERR_PACK(ERR_LIB_SSL, 0, SSL_R_APP_DATA_IN_HANDSHAKE)),
            asio::error::get_ssl_category()};
}

tls_report tls_socket::report() {
    tls_report out = report_of(native_handle(), should_verify());
    if (setup_ && setup_->expects_address()) {
        out.matched_name = setup_->expected_name();
    }
    return out;
}

std::shared_ptr<tls_report const> tls_socket::keep_report() {
    auto made = std::make_shared<tls_report const>(report());
    Lock const guard(report_mutex_);
    report_ = made;
    return made;
}

tls_report tls_socket::kept_report() const {
    std::shared_ptr<tls_report const> present;
    {
        Lock const guard(report_mutex_);
        present = report_;
    }
    return present ? *present : tls_report();
}

void tls_socket::init() {
    bool const should_verify = this->should_verify();
    log_parts(tavLogger::INFO, site_in(log_file, "tav::tls::impl::tls_socket::init"), name_,
              " context_->should_verify() ", should_verify ? "1" : "0");
    stream_.set_verify_mode(should_verify ? asio::ssl::verify_peer : asio::ssl::verify_none);
    stream_.set_verify_callback([this, should_verify](bool preverified, asio::ssl::verify_context & ctx) {
        return verify_certificate(preverified, ctx, should_verify);
    });
}

bool tls_socket::verify_certificate(bool preverified, asio::ssl::verify_context & ctx, bool should_verify) {
    if (!should_verify) {
        return true;
    }
    // Nothing may be thrown through the TLS library, which would lose what it holds there.  Without memory
    // the verdict stands, and words about it are counted as lost.
    tell_verdict(preverified, ctx);
    if (!preverified) {
        // What was met on the way to the verdict would be told of the handshake in its stead.
        ::ERR_clear_error();
    }
    return preverified;
}

void tls_socket::tell_verdict(bool preverified, asio::ssl::verify_context & ctx) noexcept {
    tav::detail::Site const site = site_in(log_file, "tav::tls::impl::tls_socket::verify_certificate");
    log_line(tavLogger::INFO, site, [&](std::ostream & out) {
        out << name_ << " Verifying " << subject_of(ctx.native_handle()) << ", preverified "
            << (preverified ? "true" : "false");
    });
    if (preverified) {
        return;
    }
    try {
        describe_refusal(ctx.native_handle(), refusal_);
        if (setup_ && !setup_->expected_name().empty()) {
            refusal_.details += ", expected " + setup_->expected_name();
        }
    } catch (...) {
        if (tavLogger::isLoggable(tav_istr(log_tag), tavLogger::ERROR)) {
            tav::detail::countLostLine();
        }
        return;
    }
    log_parts(tavLogger::ERROR, site, name_, " certificate refused: ", refusal_.details);
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
