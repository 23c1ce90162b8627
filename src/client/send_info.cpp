#include "client/send_info.h"

#include "client/failures.h"
#include "client/process_exit.h"
#include "client/thread_role.h"
#include "client/vinta_tls_client_impl_log.h"
#include "foundation/scope_exit.h"
#include "tav/vinta/vinta_mt_thread.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

/// The lines of a send stand in the log under the name of the session's frames, with which they are read.
constexpr char const * log_file = "vinta_tls_client_impl_framing.cpp";

} // namespace

bool refused_to_wait(void const * client, std::string const & name, tav::detail::Site site) {
    if (process_exit::begun()) {
        log_parts(tavLogger::ERROR, site, name, " a wait for a send while the process exits would never end");
        return true;
    }
    if (!thread_role::needed_to_end_sends(client)) {
        return false;
    }
    log_parts(
        tavLogger::ERROR, site, name, " a wait for a send on the thread ",
        std::string(tav_istr(tavThread::currentName())),
        ", which has to end the send, would never end: give the send_option functions to be told by, or "
        "wait on a thread of the application or in on_error");
    return true;
}

int elapsed_ms(long long from, long long to) {
    constexpr long long most = std::numeric_limits<int>::max() - 5;
    return static_cast<int>(std::clamp(to - from, -most, most));
}

send_info::send_info(std::string name, tavSharedPtr<send_owner> owner, unsigned long long sno,
                     unsigned short msgcode, send_option const & option, long long start_time)
    : name_(std::move(name)),
      client_(owner ? owner->client() : nullptr),
      owner_(std::move(owner)),
      sno_(sno),
      msgcode_(msgcode),
      ack_(option.ack),
      wait_ms_(option.wait_ms()),
      option_(option),
      start_time_(start_time),
      claimed_(false),
      completed_(false),
      claimer_(std::thread::id()),
      result_(result_unknown),
      ticket_(0) {}

send_info::~send_info() {
    if (!completed_ && account_) {
        account_->untrack();
    }
}

bool send_info::claim() noexcept {
    if (claimed_.exchange(true)) {
        return false;
    }
    claimer_ = std::this_thread::get_id();
    return true;
}

// True, and said in the log, in the functions that tell the end of this very send.
bool send_info::ended_here() const {
    if (!claimed_ || claimer_.load() != std::this_thread::get_id()) {
        return false;
    }
    log_parts(tavLogger::ERROR, site_in(log_file, "tav::tls::impl::send_info::wait"), name_,
              " a wait for the send #", sno_,
              " in its own function, which ends it, would never end: the function is told the outcome");
    return true;
}

void send_info::cancel() {
    if (claim()) {
        detach();
        end_cancelled();
    }
}

result_type send_info::wait() {
    tav::detail::Site const site = site_in(log_file, "tav::tls::impl::send_info::wait");
    if (result_ < 0 && (ended_here() || refused_to_wait(client_, name_, site))) {
        set_last_failure(failure::would_wait_for_itself);
        return result_error;
    }
    if (result_ < 0) {
        log_line(tavLogger::DEBUG, site, [&](std::ostream & out) {
            out << name_ << " send wait begin, " << static_cast<tls::send_info const &>(*this);
        });
        {
            std::lock_guard<tavMonitor const> const guard(monitor_);
            bool lasts = true;
            while (result_ < 0 && lasts) {
                lasts = monitor_.waitInLock(-1);
            }
        }
        if (result_ < 0) {
            error(failure::timed_out);
            complete(result_timedout);
        }
        log_line(tavLogger::DEBUG, site,
                 [&](std::ostream & out) { out << name_ << " send wait end, result = " << result(); });
    }
    detach();
    set_last_failure(static_cast<failure>(tls::send_info::error().value()));
    return result();
}

result_type send_info::result() const {
    return static_cast<result_type>(result_.load());
}

unsigned long long send_info::sno() const {
    return sno_;
}

unsigned short send_info::msgcode() const {
    return msgcode_;
}

send_option send_info::option() const {
    std::lock_guard<tavMonitor const> const guard(monitor_);
    return option_;
}

bool send_info::due(long long now) const {
    return wait_ms_ >= 1 && elapsed_ms(start_time_, now) + 5ll > wait_ms_;
}

// Nothing here asks for memory.  What the functions own goes while no lock is held, and ahead of the result,
// so that none of it is alive when a waiter goes on.
void send_info::complete(result_type v) {
    claimed_ = true;
    if (completed_.exchange(true)) {
        return;
    }
    leave_account(v);
    error_function dropped;
    tavSharedPtr<send_owner> released;
    {
        std::lock_guard<tavMonitor const> const guard(monitor_);
        dropped.swap(option_.on_error_);
        released.swap(owner_);
    }
    option_.timedout_option::clear();
    option_.callback_.clear();
    dropped = nullptr;
    std::lock_guard<tavMonitor const> const guard(monitor_);
    result_ = v;
    monitor_.signalAllInLock();
}

void send_info::leave_account(result_type v) noexcept {
    if (!account_) {
        return;
    }
    account_->untrack();
    counters & counted = account_->counted();
    counters::add(v == result_ok         ? counted.sends_ok
                  : v == result_timedout ? counted.sends_timedout
                                         : counted.sends_cancelled);
}

void send_info::end_cancelled(failure cause) {
    error(cause);
    failure_scope const why(cause);
    tav::detail::ScopeExit const end([this] { complete(result_cancelled); });
    option_.on_timedout(sno_, msgcode_, true);
}

void send_info::end_timed_out(long long now) {
    error(failure::timed_out);
    failure_scope const why(failure::timed_out);
    tav::detail::ScopeExit const end([this] { complete(result_timedout); });
    option_.check_timedout(sno_, msgcode_, elapsed_ms(start_time_, now));
    log_parts(tavLogger::VERBOSE, site_in(log_file, "tav::tls::impl::send_info::check_timedout"), name_,
              " send timed out #", sno_);
}

bool send_info::check_timedout(long long now) {
    if (!due(now) || !claim()) {
        return false;
    }
    end_timed_out(now);
    return true;
}

void send_info::detach() {
    tavSharedPtr<send_owner> owner;
    {
        std::lock_guard<tavMonitor const> const guard(monitor_);
        owner.swap(owner_);
    }
    if (owner) {
        owner->forget(*this);
    }
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
