#include "client/send_account.h"

#include "client/failures.h"
#include "client/process_exit.h"
#include "foundation/report.h"

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

/// High and low water.
constexpr int most_untold = 2;

} // namespace

send_account::send_account(limit_option limits, std::shared_ptr<counters> counted)
    : limits_(std::move(limits)),
      limited_(limits_.queued_frames != 0 || limits_.queued_bytes != 0),
      counted_(counted ? std::move(counted) : std::make_shared<counters>()) {}

// Looked at and taken in one step: a send that is refused takes no room from others, and leaves at least one
// message whose end brings low water.
send_account::room send_account::enter(unsigned long long bytes) {
    Guard guard;
    if (limited_) {
        guard = Guard(mutex_);
        bool const accepted = fits(frames_ + 1, bytes_ + bytes);
        if (accepted) {
            ++frames_;
            bytes_ += bytes;
        }
        if (!accepted || !fits(frames_ + 1, bytes_ + 1)) {
            turn(true);
        }
        if (!accepted) {
            tell(guard);
            return room();
        }
    }
    counters::add(counted_->queued_frames);
    counters::add(counted_->queued_bytes, bytes);
    if (limited_) {
        tell(guard);
    }
    return room(this, bytes);
}

bool send_account::track() noexcept {
    unsigned long long present = tracked_;
    do {
        if (limits_.tracked_sends != 0 && present >= limits_.tracked_sends) {
            return false;
        }
    } while (!tracked_.compare_exchange_weak(present, present + 1));
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
    counters::sub(counted_->queued_frames);
    counters::sub(counted_->queued_bytes, bytes);
    if (!limited_) {
        return;
    }
    Guard guard(mutex_);
    --frames_;
    bytes_ -= bytes;
    if (is_low()) {
        turn(false);
    }
    tell(guard);
}

// Turns that follow each other while the function runs cancel out by pairs, but for the last pair: who was
// refused hears of low water behind that.
void send_account::turn(bool full) noexcept {
    if (full_ != full) {
        full_ = full;
        untold_ += untold_ == most_untold ? -1 : 1;
    }
}

// One thread tells at a time.  What turns meanwhile, on others or in the function itself, it tells next.
void send_account::tell(Guard & guard) noexcept {
    if (telling_) {
        return;
    }
    telling_ = true;
    while (untold_ > 0) {
        bool const full = full_ == (untold_ % 2 != 0);
        --untold_;
        guard.unlock();
        call(full);
        guard.lock();
    }
    telling_ = false;
}

// The send that reached the limit may have been accepted: what the function's own calls failed for is not its
// failure.
void send_account::call(bool full) const noexcept {
    if (!limits_.on_queue) {
        return;
    }
    failure_scope const kept(static_cast<failure>(last_failure().value()));
    try {
        limits_.on_queue(full);
        process_exit::pass();
    } catch (...) {
        tav::detail::reportCaught(tav::detail::here("tav::tls::impl::send_account::tell"));
    }
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
