#include "client/thread_role.h"

#include "client/process_exit.h"

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

/// The innermost role of the calling thread.
thread_local thread_role const * innermost = nullptr;

/// The client that the calling thread is for.
thread_local void const * owner = nullptr;

} // namespace

thread_role::thread_role(void const * client, kind what, void const * connection)
    : client_(client), connection_(connection), kind_(what), before_(innermost) {
    if (before_ == nullptr) {
        process_exit::enter();
    }
    innermost = this;
}

thread_role::~thread_role() {
    innermost = before_;
    if (before_ == nullptr) {
        process_exit::leave();
    }
}

void thread_role::belong(void const * client) {
    owner = client;
}

bool thread_role::of_client(void const * client) {
    return (client != nullptr && owner == client) ||
           any([client](thread_role const & role) { return role.client_ == client; });
}

bool thread_role::needed_to_connect(void const * client) {
    return any([client](thread_role const & role) { return role.client_ == client && role.kind_ != error; });
}

bool thread_role::needed_to_end_sends(void const * client) {
    if (innermost != nullptr && innermost->client_ == client && innermost->kind_ == session) {
        return true;
    }
    return any([client](thread_role const & role) {
        return role.client_ == client && (role.kind_ == io || role.kind_ == timer || role.kind_ == sender);
    });
}

bool thread_role::of_session(void const * connection) {
    return any([connection](thread_role const & role) { return role.connection_ == connection; });
}

template <class Accepts>
bool thread_role::any(Accepts accepts) {
    for (thread_role const * role = innermost; role != nullptr; role = role->before_) {
        if (accepts(*role)) {
            return true;
        }
    }
    return false;
}

void end_thread(tavThread & thread) {
    if (thread.id() == tavThread::currentId()) {
        thread.stopRunning();
        thread.detach();
    } else {
        thread.close();
    }
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
