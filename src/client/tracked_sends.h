#ifndef TAV_CLIENT_TRACKED_SENDS_H
#define TAV_CLIENT_TRACKED_SENDS_H

#include "client/send_queue.h"
#include "client/send_table.h"
#include "foundation/build_stamp.h"
#include "tav/vinta/vinta_tls_failure.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

class send_info;

/// The sends of one connection that wait for their reply, and how they end without one.  Internal.
///
/// Thread safety: all operations.  The application's functions are called with no lock held, so that they may
/// add and end sends on the way; what they throw is logged and keeps no other send from its end.
class tracked_sends {
public:
    using info_ptr = std::shared_ptr<send_info>;

    /// `name` begins the log lines; `cause` may be null.
    tracked_sends(std::string name, std::shared_ptr<std::atomic<failure>> cause);
    tracked_sends(tracked_sends const &) = delete;
    tracked_sends & operator=(tracked_sends const &) = delete;

    /// Why those that are left at the end are cancelled; the first cause stays, and true tells that it is
    /// `v`.
    bool set_cause(failure v) noexcept;
    /// None as long as there is none.
    failure cause() const noexcept { return *cause_; }

    /// Adds a send.  A second one under the same number takes the first one's place.
    void track(info_ptr const & info);
    /// The send of this number if a message of code `ack` is its reply; otherwise null.
    info_ptr find(unsigned long long sno, unsigned short ack) const { return table_.find(sno, ack); }
    /// The number of sends that have a place.
    std::size_t size() const { return table_.size(); }

    /// Gives back what a reply has claimed and did not end.  It waits on, unless all sends were ended
    /// meanwhile.
    void unclaim(info_ptr const & info);
    /// Forgets the send of this number; true if there was one.
    bool remove(unsigned long long sno);
    /// The same if it is this one, and not one that took its place.
    bool remove(unsigned long long sno, send_info const * info);

    /// What could not be sent: ends as cancelled.
    void drop(info_ptr const & info);
    /// What failed on its way out: ends by its limit as if it had gone out, or as cancelled if it did not
    /// even come to be tracked.
    void fail(info_ptr const & info);
    /// Ends as timed out what has passed its limit.
    void check_timedout(long long now);
    /// Ends all as cancelled, and `unsent` behind them.
    void cancel_all(send_queue::list const & unsent);

private:
    void cancel(info_ptr const & info);
    void log_removed(bool removed, unsigned long long sno) const;

    std::string const name_;
    std::shared_ptr<std::atomic<failure>> const cause_;
    send_table table_;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
