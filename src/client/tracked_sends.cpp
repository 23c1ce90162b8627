#include "client/tracked_sends.h"

#include "client/no_message.h"
#include "client/process_exit.h"
#include "client/send_info.h"
#include "client/vinta_tls_client_impl_log.h"

#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

/// The lines of a connection's sends stand in the log under the name of its frames, with which they are read.
constexpr char const * log_file = "vinta_tls_client_impl_framing.cpp";

} // namespace

tracked_sends::tracked_sends(std::string name, std::shared_ptr<std::atomic<failure>> cause)
    : name_(std::move(name)),
      cause_(cause ? std::move(cause) : std::make_shared<std::atomic<failure>>(failure::none)) {}

bool tracked_sends::set_cause(failure v) noexcept {
    failure none = failure::none;
    return cause_->compare_exchange_strong(none, v);
}

void tracked_sends::track(info_ptr const & info) {
    std::size_t const total = table_.add(info);
    log_parts(tavLogger::DEBUG, site_in(log_file, "tav::tls::impl::session::do_send_pkt"), name_,
              " add sending #", info->sno(), ", total = ", total);
    if (info->claimed()) {
        // Cancelled meanwhile by someone who could not find it here yet.
        remove(info->sno(), info.get());
    }
}

void tracked_sends::unclaim(info_ptr const & info) {
    info->unclaim();
    if (!table_.contains(*info)) {
        cancel(info);
    }
}

bool tracked_sends::remove(unsigned long long sno) {
    bool const removed = sno != no_sno && table_.remove(sno);
    log_removed(removed, sno);
    return removed;
}

bool tracked_sends::remove(unsigned long long sno, send_info const * info) {
    bool const removed = info->sno() == sno && table_.remove(*info);
    log_removed(removed, sno);
    return removed;
}

void tracked_sends::drop(info_ptr const & info) {
    table_.remove(*info);
    cancel(info);
}

void tracked_sends::fail(info_ptr const & info) {
    if (!table_.contains(*info)) {
        cancel(info);
    }
}

void tracked_sends::check_timedout(long long now) {
    tav::detail::Site const site = site_in(log_file, "tav::tls::impl::session::check_each_send_timedout");
    send_table::cursor at;
    while (info_ptr const due = table_.take_due(now, at)) {
        try {
            due->end_timed_out(now);
        } catch (...) {
            tav::detail::reportCaught(site);
        }
        log_parts(tavLogger::DEBUG, site, name_, " send timed out #", due->sno(), ", will remove sending");
    }
}

void tracked_sends::cancel_all(send_queue::list const & unsent) {
    send_table::content const taken = table_.take_all();
    if (!taken.empty() || !unsent.empty()) {
        log_parts(tavLogger::INFO, site_in(log_file, "tav::tls::impl::session::cancel_all"), name_,
                  " cancel all sending...");
    }
    for (auto const & each : taken.by_number) {
        cancel(each.second);
    }
    for (auto const & each : taken.replaced) {
        cancel(each.second);
    }
    for (send_queue::entry const & each : unsent) {
        cancel(each.info);
    }
}

// Nothing if someone else is ending it.
void tracked_sends::cancel(info_ptr const & info) {
    tav::detail::Site const site = site_in(log_file, "tav::tls::impl::session::cancel_each_send");
    if (!info->claim()) {
        return;
    }
    log_parts(tavLogger::DEBUG, site, name_, " cancel sending #", info->sno());
    try {
        failure const why = cause();
        info->end_cancelled(why != failure::none ? why : failure::cancelled);
        process_exit::pass();
    } catch (...) {
        tav::detail::reportCaught(site);
    }
}

void tracked_sends::log_removed(bool removed, unsigned long long sno) const {
    if (removed) {
        log_parts(tavLogger::INFO, site_in(log_file, "tav::tls::impl::session::removeSending"), name_,
                  " removed waiting msg #", sno);
    }
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
