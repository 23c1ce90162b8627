#include "client/tls_socket.h"

#include "client/peer_report.h"
#include "client/vinta_tls_client_impl_log.h"

#include <asio/ssl/verify_context.hpp>

#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

/// The lines of a socket stand in the log under the context's file, with whose they are read.
constexpr char const * log_file = "vinta_tls_client_impl_context.cpp";

} // namespace

tls_socket::tls_socket(std::shared_ptr<context> owner, tav_istr name, std::shared_ptr<tls_setup> setup)
    : context_(std::move(owner)),
      setup_(std::move(setup)),
      stream_(context_->io_context(), setup_ ? setup_->ssl_context() : context_->ssl_context()),
      name_(name) {}

bool tls_socket::should_verify() const {
    return setup_ ? setup_->verifies() : context_->should_verify();
}

tls_report tls_socket::report() {
    tls_report out = report_of(native_handle(), should_verify());
    if (setup_ && setup_->expects_address()) {
        out.matched_name = setup_->expected_name();
    }
    return out;
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
    tav::detail::Site const site = site_in(log_file, "tav::tls::impl::tls_socket::verify_certificate");
    log_parts(tavLogger::INFO, site, name_, " Verifying ", subject_of(ctx.native_handle()), ", preverified ",
              preverified ? "true" : "false");
    if (!preverified) {
        refusal_ = refusal_of(ctx.native_handle());
        if (setup_ && !setup_->expected_name().empty()) {
            refusal_.details += ", expected " + setup_->expected_name();
        }
        log_parts(tavLogger::ERROR, site, name_, " certificate refused: ", refusal_.details);
    }
    return preverified;
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
