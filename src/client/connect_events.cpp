#include "client/connect_events.h"

#include "client/failures.h"
#include "client/vinta_tls_client_impl_log.h"
#include "foundation/scope_exit.h"

#include <new>
#include <ostream>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

/// The lines of a connect stand in the log under the client's own file, with whose they are read.
constexpr tav::detail::Site at(char const * func, unsigned line = static_cast<unsigned>(__builtin_LINE())) {
    return site_in("vinta_tls_client_impl.cpp", func, line);
}

/// A connect that runs out of time may fail a second time.
void count_failed(counters & counted, connect_info & info) {
    if (!info.failed().exchange(true)) {
        counters::add(counted.connects_failed);
    }
}

} // namespace

connect_events::connect_events(std::string name, client_state & present, std::shared_ptr<counters> counted)
    : name_(std::move(name)),
      present_(present),
      counted_(std::move(counted)),
      queue_(tav_istr(name_ + "global.on_error"), thread_role::error) {}

// Whether it is still open is asked at the call itself: another attempt may have taken its place while the
// application's log took the lines of it.
void connect_events::on_open(connect_ptr const & info, connect_option & told, session const & opened) {
    log_parts(tavLogger::INFO, at("tav::tls::impl::Client::on_connect_open"), name_, " connect ok");
    info->up() = true;
    counters::add(counted_->connects_up);
    tav::detail::ScopeExit const end([taken = present_.take_connecting(info)] {
        if (taken) {
            taken->on_conn_connected();
        }
    });
    if (!told.on_open_) {
        return;
    }
    std::unique_ptr<connect_option> asking;
    try {
        asking = std::make_unique<connect_option>();
        asking->set_on_open([&told, &opened] {
            if (opened.state() == session_state::connected) {
                told.on_open_();
            }
        });
    } catch (std::bad_alloc const &) {
        // Asked here: better than not told at all.
        asking.reset();
    }
    if (asking) {
        asking->on_open();
    } else if (opened.state() == session_state::connected) {
        told.on_open();
    }
}

void connect_events::on_error(connect_ptr const & info, option_ptr const & told, unsigned long long sno,
                              unsigned short msgcode, int code, char const * text,
                              std::shared_ptr<void> keep) {
    log_line(tavLogger::INFO, at("tav::tls::impl::Client::on_connect_error"),
             [&](std::ostream & out) { out << name_ << " connect error <" << code << ">" << text; });
    if (!info->up()) {
        count_failed(*counted_, *info);
    }
    failure const cause = info->cause();
    connect_ptr const taken = present_.take_connecting(info);
    tav::detail::ScopeExit const end([&] {
        if (taken) {
            taken->on_conn_error();
        }
    });
    try {
        queue_.put([this, held = std::move(keep), era = info->era(), cause, told, sno, msgcode, code,
                    said = std::string(text)]() mutable {
            tell_error(era, cause, *told, sno, msgcode, code, std::move(said));
        });
    } catch (std::bad_alloc const &) {
        // Told on this thread: better than not at all.
        tell_error(info->era(), cause, *told, sno, msgcode, code, "no memory");
    }
}

void connect_events::on_timedout(connect_ptr const & info, connect_option & told, unsigned long long sno,
                                 unsigned short msgcode, bool cancelled) {
    log_line(tavLogger::INFO, at("tav::tls::impl::Client::on_connect_timedout"), [&](std::ostream & out) {
        out << name_ << " connect " << (cancelled ? "cancelled" : "timedout");
    });
    if (!cancelled && !info->up()) {
        count_failed(*counted_, *info);
    }
    tav::detail::ScopeExit const end([taken = present_.take_connecting(info), cancelled] {
        if (taken && cancelled) {
            taken->on_conn_cancel();
        } else if (taken) {
            taken->on_conn_timedout();
        }
    });
    failure_scope const why(cancelled ? failure::cancelled : failure::timed_out);
    told.timedout.on_timedout(sno, msgcode, cancelled);
}

// Asked when its turn has come, and again at the call itself: a close may have returned since it was queued,
// and while the application's log took the line of it.
void connect_events::tell_error(unsigned era, failure why, connect_option & told, unsigned long long sno,
                                unsigned short msgcode, int code, std::string text) {
    if (closed_since(era) || !told.on_error_) {
        return;
    }
    failure_scope const named(why != failure::none ? why : failure::other);
    std::unique_ptr<connect_option> asking;
    try {
        asking = std::make_unique<connect_option>();
        asking->set_on_error([this, era, f = told.on_error_](unsigned long long number, unsigned short msg,
                                                             int error, char const * said) {
            if (!closed_since(era)) {
                f(number, msg, error, said);
            }
        });
    } catch (std::bad_alloc const &) {
        asking.reset();
    }
    (asking ? *asking : told).on_error(sno, msgcode, code, std::move(text));
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
