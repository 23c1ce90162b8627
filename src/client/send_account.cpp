#include "client/send_account.h"

#include "foundation/report.h"

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

send_account::send_account(limit_option limits, std::shared_ptr<counters> counted)
    : limits_(std::move(limits)), counted_(counted ? std::move(counted) : std::make_shared<counters>()) {}

// Taken first and looked at then, so that of two sends for the last place one gets it.
send_account::room send_account::enter(unsigned long long bytes) {
    unsigned long long const frames = ++frames_;
    unsigned long long const total = bytes_ += bytes;
    bool const accepted = fits(frames, total);
    if (accepted) {
        counters::add(counted_->queued_frames);
        counters::add(counted_->queued_bytes, bytes);
    } else {
        --frames_;
        bytes_ -= bytes;
    }
    bool const full = !accepted || !fits(frames + 1, total + 1);
    if (full && !full_.exchange(true)) {
        tell(true);
    }
    return accepted ? room(this, bytes) : room();
}

bool send_account::track() noexcept {
    if (++tracked_ > limits_.tracked_sends && limits_.tracked_sends != 0) {
        --tracked_;
        return false;
    }
    counters::add(counted_->tracked_sends);
    return true;
}

void send_account::untrack() noexcept {
    --tracked_;
    counters::sub(counted_->tracked_sends);
}

bool send_account::fits(unsigned long long frames, unsigned long long bytes) const noexcept {
    return (limits_.queued_frames == 0 || frames <= limits_.queued_frames) &&
           (limits_.queued_bytes == 0 || frames <= 1 || bytes <= limits_.queued_bytes);
}

bool send_account::is_low() const noexcept {
    return (limits_.queued_frames == 0 || frames_ <= limits_.queued_frames / 2) &&
           (limits_.queued_bytes == 0 || bytes_ <= limits_.queued_bytes / 2);
}

void send_account::leave(unsigned long long bytes) noexcept {
    --frames_;
    bytes_ -= bytes;
    counters::sub(counted_->queued_frames);
    counters::sub(counted_->queued_bytes, bytes);
    if (full_ && is_low() && full_.exchange(false)) {
        tell(false);
    }
}

void send_account::tell(bool full) noexcept {
    try {
        if (limits_.on_queue) {
            limits_.on_queue(full);
        }
    } catch (...) {
        tav::detail::reportCaught(tav::detail::here("tav::tls::impl::send_account::tell"));
    }
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
