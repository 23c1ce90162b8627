#include "client/connect_attempt.h"

#include "client/failures.h"
#include "client/no_message.h"
#include "client/process_exit.h"
#include "client/vinta_tls_client_impl_log.h"
#include "foundation/platform.h"
#include "foundation/scope_exit.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <cstdlib>
#include <new>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

/// The lines of a connect stand in the log under the session's file, with whose they are read.
constexpr tav::detail::Site at(char const * func, unsigned line = static_cast<unsigned>(__builtin_LINE())) {
    return site_in("vinta_tls_client_impl_session.cpp", func, line);
}

/// The text of an error, with what was wrong with the peer's certificate if that was it.
std::string refused_text(std::error_code ec, certificate_refusal const & refusal) noexcept {
    try {
        if (!refusal.reason.empty()) {
            return ec.message() + ": " + refusal.reason + ", subject " + refusal.subject;
        }
    } catch (std::bad_alloc const &) {
    }
    return text_of(ec);
}

std::string text(context::results_type const & results) {
    std::string out;
    for (asio::ip::tcp::endpoint const & endpoint : results) {
        out += out.empty() ? "" : ", ";
        out += endpoint.address().to_string() + ":" + std::to_string(endpoint.port());
    }
    return out;
}

unsigned short port_number(std::string const & port) {
    auto const number = static_cast<unsigned short>(std::strtoul(port.c_str(), nullptr, 10));
    return number != 0 ? number : platform::servicePort(port);
}

} // namespace

connect_attempt::connect_attempt(parts of_owner, long long now)
    : of_(of_owner), begun_ms_(now), race_(of_.io.io_context()) {}

void connect_attempt::begin(owner_ptr owner, long long now) {
    log_parts(tavLogger::VERBOSE, at("tav::tls::impl::session::connect_"), of_.name, " try connect");
    if (!of_.state.advance(session_state::created, session_state::connecting)) {
        return;
    }
    begun_ms_ = now;
    if (!of_.socket.setup()) {
        of_.io.init(of_.option.ca, of_.option.cipher);
    }
    of_.socket.init();
    std::string const & host = of_.option.connect_host();
    std::string const & port = of_.option.connect_port();
    unsigned short number = 0;
    for (std::string const * const each : {static_cast<std::string const *>(&of_.option.port), &port}) {
        if (read_port(*each, number) == port_kind::wrong) {
            refuse_port(*owner, *each);
            return;
        }
    }
    log_parts(tavLogger::INFO, at("tav::tls::impl::session::connect_"), of_.name, " resolving ", host, ":",
              port);
    looking_up_ = true;
    resolving_ = of_.io.async_resolve(host, port, [this, owner](std::error_code ec, results_type results) {
        on_resolved(owner, ec, std::move(results));
    });
    if (of_.state.ended()) {
        // Closed on the way, by someone who could not know the number yet.
        cancel_lookup();
    }
}

// No such port exists, so that there is nothing to resolve and nothing to wait for.
void connect_attempt::refuse_port(connect_owner & owner, std::string const & port) {
    std::string const text = "port " + port + " is no number from 0 to 65535";
    log_parts(tavLogger::ERROR, at("tav::tls::impl::session::connect_"), of_.name, " ", text);
    of_.sends.set_cause(failure::bad_address);
    owner.connect_refused(text);
}

void connect_attempt::on_resolved(owner_ptr owner, std::error_code ec, results_type results) {
    looking_up_ = false;
    if (of_.state.ended()) {
        return;
    }
    if (ec) {
        log_parts(tavLogger::ERROR, at("tav::tls::impl::session::on_resolved"), of_.name, " resolve failed ",
                  text_of(ec), " for ", of_.option.connect_host(), ":", of_.option.connect_port());
        of_.sends.set_cause(named(ec));
        of_.option.on_error(no_sno, no_code, ec.value(), text_of(ec));
        return;
    }
    if (tavLogger::isLoggable(log_tag, tavLogger::INFO)) {
        log_parts(tavLogger::INFO, at("tav::tls::impl::session::on_resolved"), of_.name, " connecting to ",
                  text(results));
    }
    set_handshake();
    race_.start(std::move(results),
                [this, owner = std::move(owner)](std::error_code failed, tcp_socket winner) {
                    on_race_end(owner, failed, std::move(winner));
                });
}

void connect_attempt::set_handshake() {
    SSL * const handle = of_.socket.native_handle();
    tls_setup const * const setup = of_.socket.setup().get();
    // The list is always the connection's own, since the context's may be replaced during the handshake.
    if (setup == nullptr && ::SSL_set_cipher_list(handle, of_.option.cipher_list().c_str()) != 1) {
        ::SSL_set_cipher_list(handle, of_.io.cipher_list().c_str());
    }
    std::string const & server_name = setup != nullptr ? setup->server_name() : of_.option.server_name;
    if (!server_name.empty()) {
        ::SSL_ctrl(handle, SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                   const_cast<char *>(server_name.c_str()));
    }
    ::ERR_clear_error();
}

void connect_attempt::on_race_end(owner_ptr owner, std::error_code ec, tcp_socket winner) {
    if (!ec) {
        ec = of_.socket.adopt(std::move(winner), [this] { return !of_.state.ended(); });
    }
    on_connect_end(std::move(owner), ec);
}

void connect_attempt::on_connect_end(owner_ptr owner, std::error_code ec) {
    if (of_.state.ended()) {
        return;
    }
    tav::detail::ScopeExit const end([this] { of_.state.closing_actively(false); });
    if (ec) {
        log_parts(tavLogger::ERROR, at("tav::tls::impl::session::on_connect_end"), of_.name,
                  " Connect failed: ", text_of(ec));
        owner->connect_failed(ec, text_of(ec));
        return;
    }
    watch_socket();
    if (of_.option.on_http_proxy_connect_ && !connect_proxy()) {
        return;
    }
    if (!of_.state.advance(session_state::connecting, session_state::handshaking)) {
        return;
    }
    log_parts(tavLogger::INFO, at("tav::tls::impl::session::on_connect_end"), of_.name,
              " connected, start client handshake...");
    of_.socket.stream().async_handshake(
        asio::ssl::stream_base::client,
        [this, owner = std::move(owner)](std::error_code failed) { on_handshake_end(*owner, failed); });
}

void connect_attempt::watch_socket() {
    if (!of_.socket.setup()) {
        return;
    }
    if (std::error_code const ec = of_.socket.setup()->watch(of_.socket.lowest_layer().native_handle())) {
        log_parts(tavLogger::WARN, at("tav::tls::impl::session::watch_socket"), of_.name,
                  " the system does not watch over the connection: ", ec.message());
    }
}

bool connect_attempt::connect_proxy() {
    log_parts(tavLogger::INFO, at("tav::tls::impl::session::on_connect_end"), of_.name,
              " http proxy connect ");
    int const descriptor = of_.socket.lowest_layer().native_handle();
    int result = 0;
    {
        platform::BlockingMode const mode(descriptor);
        result = of_.option.on_http_proxy_connect(static_cast<unsigned>(descriptor), of_.option.host.c_str(),
                                                  port_number(of_.option.port));
    }
    process_exit::pass();
    if (result != 0) {
        log_parts(tavLogger::ERROR, at("tav::tls::impl::session::on_connect_end"), of_.name,
                  " http proxy connect error ", result);
        of_.sends.set_cause(failure::proxy_refused);
        return false;
    }
    log_parts(tavLogger::INFO, at("tav::tls::impl::session::on_connect_end"), of_.name,
              " http proxy connect ok");
    return true;
}

void connect_attempt::on_handshake_end(connect_owner & owner, std::error_code ec) {
    if (of_.state.ended()) {
        return;
    }
    if (ec) {
        log_parts(tavLogger::ERROR, at("tav::tls::impl::session::on_handshake_end"), of_.name,
                  " Handshake failed: ", text_of(ec));
        certificate_refusal const & refusal = of_.socket.refusal();
        if (!refusal.reason.empty() || refusal.wrong_name) {
            of_.sends.set_cause(refusal.wrong_name ? failure::name_mismatch : failure::certificate_refused);
        }
        owner.connect_failed(ec, refused_text(ec, refusal));
        return;
    }
    keep_report();
    if (!of_.state.advance(session_state::handshaking, session_state::connected)) {
        return;
    }
    log_parts(tavLogger::INFO, at("tav::tls::impl::session::on_handshake_end"), of_.name, " handshake ok...");
    try {
        of_.option.on_open();
        process_exit::pass();
    } catch (...) {
        owner.connect_up();
        throw;
    }
    owner.connect_up();
}

void connect_attempt::keep_report() {
    auto const made = of_.socket.keep_report();
    if (of_.socket.setup()) {
        log_line(tavLogger::INFO, at("tav::tls::impl::session::keep_report"),
                 [&](std::ostream & out) { out << of_.name << " negotiated " << *made; });
    }
}

void connect_attempt::cancel_lookup() {
    of_.io.cancel_resolve(resolving_);
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
