#include "client/connect_info.h"

#include "client/failures.h"
#include "client/process_exit.h"
#include "client/thread_role.h"
#include "client/vinta_tls_client_impl_log.h"
#include "foundation/report.h"
#include "tav/vinta/vinta_mt_thread.h"

#include <mutex>
#include <ostream>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

/// The lines of a connect stand in the log under the client's own file, with whose they are read.
constexpr char const * log_file = "vinta_tls_client_impl.cpp";

} // namespace

connect_info::connect_info(std::string name, timedout_option const & option, void const * client,
                           unsigned era)
    : option_(option),
      start_time_(tavTime::now()),
      result_(result_pending),
      name_(std::move(name)),
      client_(client),
      era_(era) {}

connect_info::connect_info(std::string name)
    : start_time_(tavTime::now()), result_(result_ok), name_(std::move(name)), client_(nullptr), era_(0) {}

void connect_info::cancel() {
    on_conn_cancel();
}

result_type connect_info::wait() {
    result_type const out = wait(-1, [] { return true; });
    // An error of what has not ended is that of a refused wait.
    bool const refused = out == result_error && result() < 0;
    set_last_failure(refused ? failure::would_wait_for_itself
                             : static_cast<failure>(tls::connect_info::error().value()));
    return out;
}

result_type connect_info::wait(int slice_ms, std::function<bool()> const & patient) {
    detail::Site const site = site_in(log_file, "tav::tls::impl::connect_info::wait");
    std::lock_guard<tavMonitor const> const guard(monitor_);
    if (result_ < 0 && process_exit::begun()) {
        log_parts(tavLogger::ERROR, site, name_,
                  " a wait for a connect while the process exits would never end");
        return result_error;
    }
    if (result_ < 0 && thread_role::needed_to_connect(client_)) {
        log_parts(tavLogger::ERROR, site, name_, " a wait for a connect on the thread ",
                  std::string(tav_istr(tavThread::currentName())),
                  ", which the connect needs, would never end: wait on a thread of the application or in "
                  "on_error, or let on_open and on_timedout tell");
        return result_error;
    }
    if (result_ < 0) {
        log_line(tavLogger::DEBUG, site,
                 [&](std::ostream & out) { out << name_ << " connect wait begin, " << option_; });
        while (result_ < 0 && patient()) {
            if (!monitor_.waitInLock(slice_ms) && slice_ms < 0 && result_ < 0) {
                error(failure::timed_out);
                result_ = result_timedout;
            }
        }
        log_line(tavLogger::DEBUG, site,
                 [&](std::ostream & out) { out << name_ << " connect wait end, result = " << result_; });
    }
    return result_;
}

result_type connect_info::result() const {
    std::lock_guard<tavMonitor const> const guard(monitor_);
    return result_;
}

void connect_info::busy() {
    std::lock_guard<tavMonitor const> const guard(monitor_);
    if (result_ == result_pending || result_ == result_busy) {
        result_ = result_busy;
    }
}

void connect_info::on_conn_connected() {
    complete(result_ok, failure::none, "tav::tls::impl::connect_info::on_conn_connected", " on connected");
}

void connect_info::on_conn_error() {
    failure const cause = cause_;
    complete(result_error, cause != failure::none ? cause : failure::other,
             "tav::tls::impl::connect_info::on_conn_error", " on connect error");
}

void connect_info::on_conn_timedout() {
    complete(result_timedout, cause_ == failure::proxy_refused ? failure::proxy_refused : failure::timed_out,
             "tav::tls::impl::connect_info::on_conn_timedout", " on connect timedout");
}

void connect_info::on_conn_cancel() {
    complete(result_cancelled, failure::cancelled, "tav::tls::impl::connect_info::on_conn_cancel",
             " on connect cancelled");
}

// What comes after the end is said and changes nothing.
void connect_info::complete(result_type result, failure why, char const * func, char const * what) {
    log_parts(tavLogger::DEBUG, site_in(log_file, func), name_, what);
    std::lock_guard<tavMonitor const> const guard(monitor_);
    if (result_ < 0) {
        if (why != failure::none) {
            error(why);
        }
        result_ = result;
    }
    monitor_.signalAllInLock();
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
