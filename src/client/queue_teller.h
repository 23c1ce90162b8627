#ifndef TAV_CLIENT_QUEUE_TELLER_H
#define TAV_CLIENT_QUEUE_TELLER_H

#include "foundation/build_stamp.h"
#include "foundation/guarded.h"

#include <functional>
#include <memory>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// Tells an application of high and low water, over all connections of one client: in their order, the two
/// by turns, and one telling at a time.  Internal.
///
/// Thread safety: all operations.  The lock is not held while a function runs.
class queue_teller {
public:
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

    /// A new connection, which is not full.  If the one before is, low water is told: what is left of it goes
    /// nowhere.
    std::shared_ptr<connection> begin(std::function<void(bool full)> told);
    /// Whether much waits to be sent from here on.
    void turn(connection & of, bool full) noexcept TAV_REQUIRES(mutex);
    /// Calls the functions that have turns to be told.  If another thread is at that, it does this too.
    void tell(std::shared_ptr<connection> const & of) noexcept TAV_REQUIRES(mutex);

    detail::Mutex mutex;

private:
    void list(std::shared_ptr<connection> const & of) noexcept TAV_REQUIRES(mutex);
    static void call(connection const & of, bool full) noexcept;

    std::weak_ptr<connection> present_ TAV_GUARDED_BY(mutex);
    /// Those that have turns to be told.
    std::shared_ptr<connection> first_ TAV_GUARDED_BY(mutex);
    connection * last_ TAV_GUARDED_BY(mutex) = nullptr;
    bool telling_ TAV_GUARDED_BY(mutex) = false;
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
