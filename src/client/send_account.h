#ifndef TAV_CLIENT_SEND_ACCOUNT_H
#define TAV_CLIENT_SEND_ACCOUNT_H

#include "client/counters.h"
#include "foundation/build_stamp.h"
#include "tav/vinta/vinta_tls_failure.h"
#include "tav/vinta/vinta_tls_limits.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// What one connection holds of messages to be sent, against its limits and in its client's counters.
/// Thread safety: all operations.  No lock is held while the limits' function runs.
class send_account {
public:
    send_account(limit_option limits, std::shared_ptr<counters> counted);
    send_account(send_account const &) = delete;
    send_account & operator=(send_account const &) = delete;

    /// A message that waits: its room is given back when the last owner lets go.
    class room {
    public:
        room() = default;
        room(room && other) noexcept
            : account_(std::exchange(other.account_, nullptr)), bytes_(std::exchange(other.bytes_, 0)) {}
        room & operator=(room && other) noexcept {
            std::swap(account_, other.account_);
            std::swap(bytes_, other.bytes_);
            return *this;
        }
        ~room() {
            if (account_ != nullptr) {
                account_->leave(bytes_);
            }
        }
        explicit operator bool() const noexcept { return account_ != nullptr; }

    private:
        friend class send_account;
        room(send_account * account, unsigned long long bytes) noexcept : account_(account), bytes_(bytes) {}

        send_account * account_ = nullptr;
        unsigned long long bytes_ = 0;
    };

    /// Room for a message with a body of so many bytes; none over a limit.  What the limits' function throws
    /// is logged.
    room enter(unsigned long long bytes);
    /// Takes a tracked send in; false over the limit.
    bool track() noexcept;
    /// One that was taken in has ended.
    void untrack() noexcept;

    counters & counted() const noexcept { return *counted_; }
    /// Whether so many received messages are to stop the reading, or not to let it go on yet.
    bool should_pause(unsigned waiting) const noexcept {
        return limits_.received_waiting != 0 && waiting >= limits_.received_waiting;
    }
    bool may_resume(unsigned waiting) const noexcept { return waiting <= limits_.received_waiting / 2; }

private:
    using Guard = std::unique_lock<std::mutex>;

    bool fits(unsigned long long frames, unsigned long long bytes) const noexcept;
    bool is_low() const noexcept;
    void leave(unsigned long long bytes) noexcept;
    void turn(bool full) noexcept;
    void tell(Guard & guard) noexcept;
    void call(bool full) const noexcept;

    limit_option const limits_;
    /// Whether what waits to be sent has a limit; without one only the counters know of it.
    bool const limited_;
    std::shared_ptr<counters> const counted_;
    /// Guards what follows, up to the flag.
    std::mutex mutex_;
    unsigned long long frames_ = 0;
    unsigned long long bytes_ = 0;
    bool full_ = false;
    /// The turns between high and low water that the limits' function has not been told of.
    int untold_ = 0;
    /// A thread is at telling them.
    bool telling_ = false;
    std::atomic<unsigned long long> tracked_{0};
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
