#include "client/io_thread.h"

#include "client/thread_role.h"
#include "client/vinta_tls_client_impl_log.h"

#include <chrono>
#include <system_error>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

constexpr int keep_alive_seconds = 10;

/// The lines of the thread stand in the log under the client's own file, with whose they are read.
constexpr tav::detail::Site at(char const * func, unsigned line = static_cast<unsigned>(__builtin_LINE())) {
    return site_in("vinta_tls_client_impl.cpp", func, line);
}

} // namespace

void io_thread::start(std::shared_ptr<owner> told) {
    thread_ = tavSharedPtr<tavThread>(new tavThread_(
        tav_istr(name_ + "io.context"), [this, told] { return on_loop(*told); }, [this, told] { on_stop(); },
        [this, told] { return on_open(); }, [this, told] { on_close(*told); }));
    thread_->start();
    if (open_failure_) {
        std::rethrow_exception(open_failure_);
    }
}

void io_thread::close() {
    if (thread_) {
        thread_->close();
        thread_ = tavSharedPtr<tavThread>();
    }
}

bool io_thread::on_open() {
    log_parts(tavLogger::INFO, at("tav::tls::impl::Client::on_context_open"), name_, " io context open");
    try {
        auto const made = std::make_shared<context>(tav_istr(name_));
        keep_alive_timer_ = std::make_shared<asio::steady_timer>(made->io_context());
        context_ = made;
        thread_role::belong(context_.get());
        keep_alive();
    } catch (...) {
        // For the one who makes the client, since the thread would take the process with it.
        open_failure_ = std::current_exception();
        keep_alive_timer_.reset();
        context_.reset();
        return false;
    }
    return true;
}

bool io_thread::on_loop(owner & told) {
    tav::detail::Site const site = at("tav::tls::impl::Client::on_context_loop");
    log_parts(tavLogger::INFO, site, name_, " io context loop begin...");
    if (run(told)) {
        return true;
    }
    log_parts(tavLogger::INFO, site, name_, " io context loop end.");
    return false;
}

bool io_thread::run(owner & told) {
    // Outside of the context's own run too, as what a completion threw is told here.
    thread_role const role(context_.get(), thread_role::io);
    try {
        context_->run();
        return false;
    } catch (std::bad_alloc const & e) {
        told.on_no_memory(e);
    } catch (std::exception const & e) {
        told.on_exception(e);
    } catch (...) {
        tav::detail::reportCaught(at("tav::tls::impl::Client::on_context_run"));
    }
    return true;
}

void io_thread::on_close(owner & told) {
    log_parts(tavLogger::INFO, at("tav::tls::impl::Client::on_context_close"), name_, " io context close");
    if (!context_) {
        return;
    }
    keep_alive_timer_->cancel();
    // If a completion threw as the loop was told to end, what was ready is still there and holds its session.
    while (run(told)) {
    }
}

void io_thread::on_stop() {
    log_parts(tavLogger::INFO, at("tav::tls::impl::Client::stop_context"), name_, " stop io context");
    if (context_) {
        context_->close();
    }
}

void io_thread::keep_alive() {
    keep_alive_timer_->expires_after(std::chrono::seconds(keep_alive_seconds));
    // Its only work is that the loop always has some; the handler lives no longer than the context.
    keep_alive_timer_->async_wait([this](std::error_code const &) { keep_alive(); });
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
