#include "client/role_queue.h"

#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

using Lock = detail::Guard<detail::Mutex>;

} // namespace

role_queue::role_queue(tav_istr name, thread_role::kind role)
    : role_(role), queue_(std::make_shared<tavTaskQueue>(name, 1)) {}

void role_queue::start(void const * client) {
    std::shared_ptr<tavTaskQueue> queue;
    {
        Lock const guard(mutex_);
        client_ = client;
        queue = queue_;
    }
    queue->start();
}

bool role_queue::put(std::function<void()> task) {
    std::shared_ptr<tavTaskQueue> queue;
    void const * client = nullptr;
    {
        Lock const guard(mutex_);
        queue = queue_;
        client = client_;
    }
    if (!queue) {
        return false;
    }
    queue->put([client, kind = role_, work = std::move(task)] {
        thread_role::belong(client);
        thread_role const role(client, kind);
        work();
    });
    return true;
}

std::shared_ptr<void> role_queue::close() {
    std::shared_ptr<tavTaskQueue> ended;
    {
        Lock const guard(mutex_);
        ended.swap(queue_);
    }
    if (ended) {
        ended->close();
    }
    return ended;
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
