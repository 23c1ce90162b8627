#include "tav/vinta/vinta_mt_thread.h"

#include "foundation/build_stamp.h"
#include "foundation/report.h"
#include "runtime/thread_manager.h"
#include "tav/vinta/vinta_basetypes_util.h"
#include "tav/vinta/vinta_log.h"

using tav::detail::here;
using tav::detail::Site;

namespace {

using MonitorGuard = std::lock_guard<tavMonitor const>;

/// Logs `text`, then "{", the name, ".", the id, "}".
void logThread(Site site, char const * text, std::string const & name, std::string const & id) {
    tav::detail::log(tavLogger::DEFAULT_TAG(), tavLogger::DEBUG, site,
                     [&](std::ostream & out) { out << text << '{' << name << '.' << id << '}'; });
}

/// Lets the starter of a thread wait until the thread has entered.
struct Entrance {
    tavMonitor monitor;
    bool entered = false;
};

/// What a thread of startThread runs.  `entrance` lives on the starter's stack, until it is passed.
void TAV_ASYNC_RUN_ENTRY(std::function<void()> const & fn, std::string const & name, int delayMs,
                         Entrance & entrance) {
    constexpr char const * func = "tav_async_run_entry";
    tavThread::setCurrentName(name.c_str());
    std::string const id = tavThread::currentId();
    tavThreadManager::Registration const registration(name, nullptr);
    logThread(here(func), "enter thread ", name, id);
    {
        MonitorGuard guard(entrance.monitor);
        entrance.entered = true;
        entrance.monitor.signalInLock();
    }
    if (delayMs != 0) {
        tav::detail::log(tavLogger::DEFAULT_TAG(), tavLogger::DEBUG, here(func), [&](std::ostream & out) {
            out << "delay " << delayMs << "ms {" << name << '.' << id << '}';
        });
        tav_sleep(static_cast<unsigned>(delayMs));
    }
    if (fn) {
        fn();
    }
    logThread(here(func), "leave thread ", name, id);
}

} // namespace

/// The part of a task queue that its threads share.
struct [[gnu::visibility("hidden")]] tavTaskQueue::Queue {
    /// Waits once, unless `stopping` says that nobody will wake the caller again, and runs the task that is
    /// there then.
    template <class Stopping>
    void step(Stopping && stopping) {
        std::function<void()> task;
        {
            MonitorGuard guard(monitor);
            if (tasks.empty() && !stopping()) {
                monitor.waitInLock(-1);
            }
            if (tasks.empty()) {
                return;
            }
            task = std::move(tasks.front());
            tasks.pop_front();
        }
        if (task) {
            task();
        }
    }

    void wake() {
        MonitorGuard guard(monitor);
        monitor.signalAllInLock();
    }

    tavMonitor monitor;
    std::deque<std::function<void()>> tasks;
};

tavTaskQueue::tavTaskQueue(tav_istr name, int threadCount)
    : name_(name), threadCount_(threadCount), queue_(std::make_shared<Queue>()) {}

tavTaskQueue::~tavTaskQueue() = default;

void tavTaskQueue::start() {
    for (int i = 0; i < threadCount_; ++i) {
        std::string const name = std::string(tav_istr(name_)) + '.' + std::to_string(i);
        std::shared_ptr<Queue> const queue = queue_;
        // The loop asks its own thread, which is made from the loop; the thread owns the word between them.
        auto const self = std::make_shared<tavThread *>(nullptr);
        auto loop = [queue, self] {
            queue->step([&] { return (*self)->stopping(); });
            return true;
        };
        tavSharedPtr<tavThread> thread(new tavThread_(
            name, std::move(loop), [queue] { queue->wake(); }, nullptr, nullptr));
        *self = thread.get();
        threads_.push_back(thread);
        thread->start();
    }
}

void tavTaskQueue::put(std::function<void()> task) {
    MonitorGuard guard(queue_->monitor);
    queue_->tasks.push_back(std::move(task));
    queue_->monitor.signalInLock();
}

void tavTaskQueue::close() {
    for (tavSharedPtr<tavThread> const & thread : threads_) {
        thread->stopRunning();
    }
    for (tavSharedPtr<tavThread> const & thread : threads_) {
        thread->close();
    }
}

bool tavTaskQueue::on_loop() {
    queue_->step([] { return false; });
    return true;
}

void tavTaskQueue::on_stop() {
    queue_->wake();
}

std::shared_ptr<std::thread> tav::detail::startThread(std::function<void()> fn, std::string const & name,
                                                      int delayMs) {
    Entrance entrance;
    tav::detail::log(tavLogger::DEFAULT_TAG(), tavLogger::DEBUG, here("tav_async_run"),
                     [&](std::ostream & out) { out << "starting thread {" << name << '}'; });
    auto thread = std::make_shared<std::thread>(
        [fn = std::move(fn), name, delayMs, &entrance] { TAV_ASYNC_RUN_ENTRY(fn, name, delayMs, entrance); });
    {
        MonitorGuard guard(entrance.monitor);
        while (!entrance.entered) {
            entrance.monitor.waitInLock(-1);
        }
    }
    logThread(here("tav_async_run"), "started thread ", name, tavThread::getThreadId(thread->get_id()));
    return thread;
}

std::shared_ptr<std::thread> tav_async_run(std::function<void()> fn, std::string name, int delayMs) {
    std::string const full(tav_istr(tavThread::createThreadName(name)));
    return tav::detail::startThread(std::move(fn), full, delayMs);
}

void tav_async_call(std::function<void()> fn, std::string name, int delayMs) {
    std::shared_ptr<std::thread> const thread = tav_async_run(std::move(fn), std::move(name), delayMs);
    if (!thread) {
        return;
    }
    tavString const registered = tavThread::getThreadName(thread);
    logThread(here("tav_async_call"), "detach thread ", std::string(tav_istr(registered)),
              tavThread::getThreadId(thread->get_id()));
    thread->detach();
}
