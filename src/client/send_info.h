#ifndef TAV_CLIENT_SEND_INFO_H
#define TAV_CLIENT_SEND_INFO_H

#include "client/send_account.h"
#include "foundation/build_stamp.h"
#include "foundation/report.h"
#include "tav/vinta/vinta_locks.h"
#include "tav/vinta/vinta_tls_client_options.h"

#include <atomic>
#include <string>
#include <thread>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

class send_info;

/// What keeps a send until its end.
class send_owner : public virtual tavRefCountObject {
public:
    /// Drops the send, which has ended or is about to.
    virtual void forget(send_info const & info) = 0;
    /// The client whose threads must not wait for the send, as thread_role knows it; null for none.
    virtual void const * client() const { return nullptr; }
};

/// True, and said in the log, on a thread of this client that has to end its sends: a wait there would never
/// end.
bool refused_to_wait(void const * client, std::string const & name, tav::detail::Site site);

/// The milliseconds from one time to another, within what an int holds.
int elapsed_ms(long long from, long long to);

/// A send that waits for its reply, its time-out or its cancellation.
///
/// Whoever ends it claims it first: of a reply, a time-out and a cancellation at the same time exactly one
/// gets it, calls the application, and completes it.  The others leave it alone.
/// Thread safety: all operations.  No lock is held while the option's functions run.
class send_info : public tls::send_info {
public:
    /// `owner` may be null; it is let go at the end.  `start_time` is the clock's at the send.
    send_info(std::string name, tavSharedPtr<send_owner> owner, unsigned long long sno,
              unsigned short msgcode, send_option const & option, long long start_time);
    ~send_info() override;

    /// Ends it as cancelled, which the option's function is told first; nothing if it has ended, or if
    /// someone else is ending it.
    void cancel() override;
    /// On a thread that has to end it, result_error at once.
    result_type wait() override;
    result_type result() const override;
    unsigned long long sno() const override;
    unsigned short msgcode() const override;
    send_option option() const override;

    /// The code of the reply, 0xffff for none.
    unsigned short ack() const { return ack_; }
    /// Whether its limit has passed at `now`.
    bool due(long long now) const;

    /// Has a place among the account's tracked sends, which it gives back at its end.
    void placed(std::shared_ptr<send_account> account) noexcept { account_ = std::move(account); }

    /// True for the one caller who is to end it.
    bool claim() noexcept;
    bool claimed() const noexcept { return claimed_; }
    /// Gives a claim back: what claimed it did not end it.
    void unclaim() noexcept { claimed_ = false; }

    /// Ends the send: disarms the option, lets the owner go, sets the result and wakes all waiters. Nothing
    /// if it has ended.  Claims it, if that was not done.
    void complete(result_type v);
    /// Tells the option's function and ends it as cancelled, for the one who has claimed it.  What the
    /// function throws goes on to the caller; the send has ended then too.
    void end_cancelled(failure cause = failure::cancelled);
    /// The same for a limit that has passed at `now`.
    void end_timed_out(long long now);
    /// Ends it so if its limit has passed at `now` and nobody has claimed it; true if it did.
    bool check_timedout(long long now);

private:
    friend class send_table;

    /// Takes it out of the owner's sends and lets the owner go.
    void detach();
    bool ended_here() const;
    void leave_account(result_type v) noexcept;

    std::string const name_;
    void const * const client_;
    tavSharedPtr<send_owner> owner_;
    unsigned long long const sno_;
    unsigned short const msgcode_;
    unsigned short const ack_;
    int const wait_ms_;
    send_option option_;
    long long const start_time_;
    std::atomic<bool> claimed_;
    std::atomic<bool> completed_;
    /// Who is to end it.
    std::atomic<std::thread::id> claimer_;
    std::atomic<int> result_;
    /// Set once, ahead of all that may end it.
    std::shared_ptr<send_account> account_;
    /// The table's own mark, under its lock.
    unsigned long long ticket_;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
