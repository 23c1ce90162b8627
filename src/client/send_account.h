#ifndef TAV_CLIENT_SEND_ACCOUNT_H
#define TAV_CLIENT_SEND_ACCOUNT_H

#include "client/counters.h"
#include "client/queue_teller.h"
#include "foundation/build_stamp.h"
#include "tav/vinta/vinta_tls_failure.h"
#include "tav/vinta/vinta_tls_limits.h"

#include <atomic>
#include <memory>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// What one connection holds of messages to be sent, against its limits and in its client's counters.
/// Thread safety: all operations.  No lock is held while the limits' function runs.
class send_account {
public:
    /// What a message that waits takes at most beside the bytes of its body: as a packet until "sender" has
    /// encoded it, and then as a frame.  Without what `ext` and a target hold, and what tracks it.
    static constexpr unsigned message_cost = 640;

    /// `counted` and `teller` are null or the client's own.
    send_account(limit_option limits, std::shared_ptr<counters> counted,
                 std::shared_ptr<queue_teller> teller = nullptr);
    send_account(send_account const &) = delete;
    send_account & operator=(send_account const &) = delete;

    /// A message that waits: its room is given back when the last owner lets go.
    class room {
    public:
        room() = default;
        room(room && other) noexcept
            : account_(std::exchange(other.account_, nullptr)),
              bytes_(other.bytes_),
              kind_(other.kind_),
              why_(other.why_) {}
        room & operator=(room && other) noexcept {
            std::swap(account_, other.account_);
            std::swap(bytes_, other.bytes_);
            std::swap(kind_, other.kind_);
            std::swap(why_, other.why_);
            return *this;
        }
        ~room() {
            if (account_ != nullptr) {
                account_->leave(*this);
            }
        }
        explicit operator bool() const noexcept { return account_ != nullptr; }
        /// Why there is none.
        failure refusal() const noexcept { return why_; }

    private:
        friend class send_account;
        enum class kind : unsigned char { message, receipt };
        explicit room(failure why) noexcept : why_(why) {}
        room(send_account * account, unsigned long long bytes, kind of) noexcept
            : account_(account), bytes_(bytes), kind_(of) {}

        send_account * account_ = nullptr;
        unsigned long long bytes_ = 0;
        kind kind_ = kind::message;
        failure why_ = failure::none;
    };

    /// Room for a message with a body of so many bytes; none over a limit.  Against the limit of bytes a
    /// message counts with what it costs, in the client's counters with its body.  With `tracked` it has a
    /// place among the tracked sends too, for `untrack`, or neither.  What the limits' function throws is
    /// logged.
    room enter(unsigned long long bytes, bool tracked = false);
    /// Room for a receipt, which no limit refuses: it counts as a message that is not handled until it has
    /// gone out.
    room enter_receipt() noexcept;
    /// Receipts count no longer as messages that are not handled: none goes out any more.
    void receipts_over() noexcept { receipts_over_ = true; }
    /// Takes a tracked send in; false over the limit.
    bool track() noexcept;
    /// One that was taken in has ended.
    void untrack() noexcept;

    counters & counted() const noexcept { return *counted_; }
    /// Whether so many received messages, with the receipts that wait, are to stop the reading, or not to let
    /// it go on yet.
    bool should_pause(unsigned waiting) const noexcept {
        return limits_.received_waiting != 0 && waiting + receipts() >= limits_.received_waiting;
    }
    bool may_resume(unsigned waiting) const noexcept { return is_half(waiting + receipts()); }
    /// Whether it is the messages that do not let it go on, whatever the receipts.
    bool is_busy(unsigned waiting) const noexcept { return !is_half(waiting); }

private:
    unsigned receipts() const noexcept { return receipts_over_ ? 0 : receipts_.load(); }
    bool is_half(unsigned waiting) const noexcept { return waiting <= limits_.received_waiting / 2; }
    bool fits(unsigned long long frames, unsigned long long cost) const noexcept;
    bool is_low() const noexcept TAV_REQUIRES(teller_->mutex);
    room enter_limited(unsigned long long bytes, bool tracked);
    void count(unsigned long long bytes) noexcept;
    void leave(room const & left) noexcept;

    limit_option const limits_;
    /// Whether what waits to be sent has a limit; without one only the counters know of it.
    bool const limited_;
    std::shared_ptr<counters> const counted_;
    std::shared_ptr<queue_teller> const teller_;
    std::shared_ptr<queue_teller::connection> const turns_;
    unsigned long long frames_ TAV_GUARDED_BY(teller_->mutex) = 0;
    unsigned long long cost_ TAV_GUARDED_BY(teller_->mutex) = 0;
    std::atomic<unsigned long long> tracked_{0};
    std::atomic<unsigned> receipts_{0};
    std::atomic<bool> receipts_over_{false};
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
