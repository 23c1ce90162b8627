#include "client/vinta_tls_client_impl_context.h"

#include "client/thread_role.h"
#include "client/vinta_tls_client_impl_log.h"
#include "tav/vinta/vinta_tls_client_options.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <new>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using tav::detail::here;

/// How many ready completions are run after the end, as a bound should one of them always make another.
constexpr unsigned drain_limit = 100000;

} // namespace

context::context(tav_istr name)
    : name_(name),
      io_context_(1),
      ssl_context_(asio::ssl::context::tlsv12_client),
      exit_(io_context_),
      resolver_(io_context_),
      opened_(false),
      should_verify_(false),
      closed_(false),
      cipher_list_(connect_option().cipher_list()),
      finished_(false) {
    ::SSL_CTX_set_cipher_list(ssl_context_.native_handle(), cipher_list_.c_str());
    log_parts(tavLogger::INFO, here("tav::tls::impl::context::context"), name_, " context construct");
}

context::~context() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::context::~context"), name_, " context destruct");
}

bool context::init(std::string verify_path, std::string cipher) {
    bool const same_path = verify_path.empty() || verify_path == verify_path_;
    bool const same_cipher = cipher.empty() || cipher == cipher_;
    if (!same_path || !same_cipher) {
        verify_path_ = std::move(verify_path);
        cipher_ = std::move(cipher);
        certificates_ = look_at_certificates(verify_path_);
        apply();
    } else {
        certificate_path present = look_at_certificates(verify_path_);
        if (present.state != certificates_.state) {
            certificates_ = std::move(present);
            apply();
        }
    }
    if (!certificates_.trouble.empty()) {
        log_parts(tavLogger::ERROR, here("tav::tls::impl::context::init"), name_,
                  " no use of the certificates under ", verify_path_, ": ", certificates_.trouble);
    }
    return opened_;
}

void context::apply() {
    opened_ = true;
    should_verify_ = !verify_path_.empty();
    try {
        for (std::string const & file : certificates_.files) {
            load_verify_file(file);
        }
        set_cipher_list();
    } catch (std::bad_alloc const & e) {
        // The next connect tries again, as if it were the first of these settings.
        certificates_.state.clear();
        opened_ = false;
        tav::detail::reportCaught(here("tav::tls::impl::context::init"), e.what());
    } catch (std::exception const & e) {
        tav::detail::reportCaught(here("tav::tls::impl::context::init"), e.what());
        opened_ = false;
    }
}

bool context::should_verify() const {
    return should_verify_;
}

void context::close() {
    log_parts(tavLogger::INFO, here("tav::tls::impl::context::close"), name_, " close context");
    closed_ = true;
    resolver_.close();
    io_context_.stop();
}

void context::run() {
    thread_role const role(this, thread_role::io);
    io_context_.run();
    if (closed_) {
        drain();
    }
}

bool context::runs_here() const {
    return const_cast<asio::io_context &>(io_context_).get_executor().running_in_this_thread();
}

unsigned long long context::async_resolve(std::string const & host, std::string const & service,
                                          resolve_handler handler) {
    return resolver_.resolve(host, service, std::move(handler));
}

void context::cancel_resolve(unsigned long long id) {
    resolver_.cancel(id);
}

std::string context::cipher_list() const {
    detail::Guard const guard(mutex_);
    return cipher_list_;
}

void context::load_verify_file(std::string const & path) {
    log_parts(tavLogger::INFO, here("tav::tls::impl::context::load_verify_file"), name_, " load_verify_file ",
              path);
    try {
        ssl_context_.load_verify_file(path);
    } catch (std::system_error const & e) {
        if (std::error_code const want = want_of(e.code())) {
            // What is there is as it was when there is a descriptor again: it has to be looked at then.
            certificates_.state.clear();
            certificates_.trouble = want.message();
        } else {
            certificates_.trouble = certificate_trouble(path, e.what());
        }
        if (path != verify_path_) {
            certificates_.trouble = path + ": " + certificates_.trouble;
        }
        throw;
    }
}

// A list without any known suite may still replace the one in force, so that one is then put back.
void context::set_cipher_list() {
    std::string const wanted = cipher_.empty() ? connect_option().cipher_list() : cipher_;
    detail::Guard const guard(mutex_);
    if (::SSL_CTX_set_cipher_list(ssl_context_.native_handle(), wanted.c_str()) == 1) {
        cipher_list_ = wanted;
    } else {
        ::SSL_CTX_set_cipher_list(ssl_context_.native_handle(), cipher_list_.c_str());
    }
    ::ERR_clear_error();
}

void context::drain() {
    {
        detail::Guard const guard(mutex_);
        finished_ = true;
    }
    io_context_.restart();
    for (unsigned n = 0; n < drain_limit; ++n) {
        try {
            if (io_context_.poll_one() == 0) {
                break;
            }
        } catch (std::exception const & e) {
            tav::detail::reportCaught(here("tav::tls::impl::context::drain"), e.what());
        }
    }
    io_context_.stop();
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
