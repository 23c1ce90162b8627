#include "client/end_elsewhere.h"

#include "client/process_exit.h"
#include "client/thread_role.h"
#include "foundation/guarded.h"
#include "foundation/platform.h"
#include "foundation/report.h"
#include "tav/vinta/vinta_mt_thread.h"

#include <algorithm>
#include <condition_variable>
#include <list>
#include <memory>
#include <utility>

namespace tav {
namespace tls {
namespace TAV_IMPL_NAMESPACE {

namespace {

/// One end, from the wish to its coming about.
struct wanted {
    void const * client;
    std::function<void()> work;
    bool started;
};

/// Never destroyed: such a thread may outlive the static objects.  A forked child has none of the threads
/// that bring the parent's ends about, and leaves these alone.
struct ends {
    ends();

    detail::Mutex mutex;
    std::condition_variable changed;
    std::list<wanted> all TAV_GUARDED_BY(mutex);
    std::list<wanted> of_parent TAV_GUARDED_BY(mutex);
};

ends & the_ends() {
    static ends & the = *new ends;
    return the;
}

ends::ends() {
    platform::aroundFork([]() TAV_AROUND_FORK { the_ends().mutex.lock(); },
                         []() TAV_AROUND_FORK { the_ends().mutex.unlock(); },
                         []() TAV_AROUND_FORK {
                             ends & the = the_ends();
                             the.of_parent.splice(the.of_parent.end(), the.all);
                             the.mutex.unlock();
                         });
}

// What the work holds is gone when the end counts as come about.
void bring_about(std::list<wanted>::iterator each) {
    try {
        std::function<void()> const work = std::move(each->work);
        work();
    } catch (...) {
        detail::reportCaught(detail::here("tav::tls::impl::end_elsewhere"));
    }
    ends & the = the_ends();
    detail::Guard const guard(the.mutex);
    the.all.erase(each);
    the.changed.notify_all();
}

} // namespace

void end_elsewhere(void const * client, std::function<void()> work) {
    ends & the = the_ends();
    std::list<wanted>::iterator each;
    {
        detail::Guard const guard(the.mutex);
        each = the.all.insert(the.all.end(), wanted{client, std::move(work), true});
    }
    try {
        tav_async_call(
            [each] {
                process_exit::enter();
                bring_about(each);
                process_exit::leave();
            },
            "end", 0);
    } catch (...) {
        detail::reportCaught(detail::here("tav::tls::impl::end_elsewhere"));
        detail::Guard const guard(the.mutex);
        each->started = false;
    }
}

void wait_for_ends(std::chrono::milliseconds limit) {
    ends & the = the_ends();
    auto const end = std::chrono::steady_clock::now() + limit;
    for (;;) {
        std::list<wanted>::iterator left;
        {
            detail::Guard const guard(the.mutex);
            for (;;) {
                left = std::find_if(the.all.begin(), the.all.end(), [](wanted const & each) {
                    return each.client != nullptr && !thread_role::of_client(each.client);
                });
                if (left == the.all.end()) {
                    return;
                }
                if (!left->started) {
                    left->started = true;
                    break;
                }
                if (the.mutex.waitUntil(the.changed, end) == std::cv_status::timeout) {
                    return;
                }
            }
        }
        bring_about(left);
    }
}

} // namespace TAV_IMPL_NAMESPACE
} // namespace tls
} // namespace tav
