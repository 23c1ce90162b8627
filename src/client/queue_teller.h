#ifndef TAV_CLIENT_QUEUE_TELLER_H
#define TAV_CLIENT_QUEUE_TELLER_H

#include "foundation/build_stamp.h"

#include <functional>
#include <memory>
#include <mutex>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// Tells an application of high and low water, over all connections of one client: in their order, the two
/// by turns, and one telling at a time.  Internal.
///
/// Thread safety: all operations; those with a guard need the lock, which is not held while a function runs.
class queue_teller {
public:
    using Guard = std::unique_lock<std::mutex>;

    /// The turns of one connection.
    class connection {
    private:
        friend class queue_teller;

        std::function<void(bool full)> told;
        bool full = false;
        /// Nothing turns any more.
        bool over = false;
        /// The turns that the function has not been told of.
        int untold = 0;
        /// It waits to be told, ahead of this one.
        bool listed = false;
        std::shared_ptr<connection> next;
    };

    queue_teller() = default;
    queue_teller(queue_teller const &) = delete;
    queue_teller & operator=(queue_teller const &) = delete;

    Guard lock() { return Guard(mutex_); }
    /// A new connection, which is not full.  If the one before is, low water is told: what is left of it goes
    /// nowhere.
    std::shared_ptr<connection> begin(std::function<void(bool full)> told);
    /// Whether much waits to be sent from here on.
    static void turn(connection & of, bool full) noexcept;
    /// Calls the functions that have turns to be told.  If another thread is at that, it does this too.
    void tell(Guard & guard, std::shared_ptr<connection> const & of) noexcept;

private:
    void list(std::shared_ptr<connection> const & of) noexcept;
    static void call(connection const & of, bool full) noexcept;

    std::mutex mutex_;
    std::weak_ptr<connection> present_;
    /// Those that have turns to be told.
    std::shared_ptr<connection> first_;
    connection * last_ = nullptr;
    bool telling_ = false;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
