#include "client/send_account.h"

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

constexpr unsigned long long cost_of(unsigned long long bytes) noexcept {
    return send_account::message_cost + bytes;
}

} // namespace

send_account::send_account(limit_option limits, std::shared_ptr<counters> counted,
                           std::shared_ptr<queue_teller> teller)
    : limits_(std::move(limits)),
      limited_(limits_.queued_frames != 0 || limits_.queued_bytes != 0),
      counted_(counted ? std::move(counted) : std::make_shared<counters>()),
      teller_(teller ? std::move(teller) : std::make_shared<queue_teller>()),
      turns_(teller_->begin(limits_.on_queue)) {}

send_account::room send_account::enter(unsigned long long bytes, bool tracked) {
    if (limited_) {
        return enter_limited(bytes, tracked);
    }
    if (tracked && !track()) {
        return room(failure::too_many_sends);
    }
    count(bytes);
    return room(this, bytes, room::kind::message);
}

// Looked at and taken in one step: a send that is refused takes no room from others, and leaves at least one
// message whose end brings low water.
send_account::room send_account::enter_limited(unsigned long long bytes, bool tracked) {
    detail::Guard const guard(teller_->mutex);
    bool const accepted = fits(frames_ + 1, cost_ + cost_of(bytes));
    if (accepted && tracked && !track()) {
        return room(failure::too_many_sends);
    }
    frames_ += accepted ? 1 : 0;
    cost_ += accepted ? cost_of(bytes) : 0;
    if (!accepted || !fits(frames_ + 1, cost_ + cost_of(1))) {
        teller_->turn(*turns_, true);
    }
    if (accepted) {
        count(bytes);
    }
    teller_->tell(turns_);
    return accepted ? room(this, bytes, room::kind::message) : room(failure::queue_full);
}

void send_account::count(unsigned long long bytes) noexcept {
    counters::add(counted_->queued_frames);
    counters::add(counted_->queued_bytes, bytes);
}

send_account::room send_account::enter_receipt() noexcept {
    ++receipts_;
    counters::add(counted_->queued_frames);
    return room(this, 0, room::kind::receipt);
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

bool send_account::fits(unsigned long long frames, unsigned long long cost) const noexcept {
    return (limits_.queued_frames == 0 || frames <= limits_.queued_frames) &&
           (limits_.queued_bytes == 0 || frames <= 1 || cost <= limits_.queued_bytes);
}

bool send_account::is_low() const noexcept {
    return (limits_.queued_frames == 0 || frames_ <= limits_.queued_frames / 2) &&
           (limits_.queued_bytes == 0 || cost_ <= limits_.queued_bytes / 2);
}

void send_account::leave(room const & left) noexcept {
    counters::sub(counted_->queued_frames);
    counters::sub(counted_->queued_bytes, left.bytes_);
    if (left.kind_ == room::kind::receipt) {
        --receipts_;
        return;
    }
    if (!limited_) {
        return;
    }
    detail::Guard const guard(teller_->mutex);
    --frames_;
    cost_ -= cost_of(left.bytes_);
    if (is_low()) {
        teller_->turn(*turns_, false);
    }
    teller_->tell(turns_);
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
