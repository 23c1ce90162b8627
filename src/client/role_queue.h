#ifndef TAV_CLIENT_ROLE_QUEUE_H
#define TAV_CLIENT_ROLE_QUEUE_H

#include "client/thread_role.h"
#include "foundation/build_stamp.h"
#include "foundation/guarded.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_mt_thread.h"

#include <functional>
#include <memory>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

/// Tasks of one client that one thread runs in their order, in one role.  Internal.
///
/// Thread safety: all operations.
class role_queue {
public:
    role_queue(tav_istr name, thread_role::kind role);
    role_queue(role_queue const &) = delete;
    role_queue & operator=(role_queue const &) = delete;

    /// Starts the thread, one of this client's; tasks that were put before are no client's.
    void start(void const * client);
    /// False, and the task is dropped, once it is closed.
    bool put(std::function<void()> task);
    /// Ends the thread.  The tasks that it never came to are destroyed with what is given; null if it was
    /// closed before.
    std::shared_ptr<void> close();

private:
    thread_role::kind const role_;
    detail::Mutex mutex_;
    void const * client_ TAV_GUARDED_BY(mutex_) = nullptr;
    std::shared_ptr<tavTaskQueue> queue_ TAV_GUARDED_BY(mutex_);
};

} // namespace TAV_IMPL_NAMESPACE
namespace impl = TAV_IMPL_NAMESPACE;
} // namespace tls
} // namespace tav

#endif
