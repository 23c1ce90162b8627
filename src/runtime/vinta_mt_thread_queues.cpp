#include "tav/vinta/vinta_mt_thread.h"

#include "foundation/build_stamp.h"
#include "foundation/report.h"
#include "runtime/thread_manager.h"
#include "tav/vinta/vinta_basetypes_util.h"
#include "tav/vinta/vinta_log.h"

using tav::detail::here;
using tav::detail::IdText;
using tav::detail::Site;

namespace {

using MonitorGuard = std::lock_guard<tavMonitor const>;

/// A line of a thread's life.  It never keeps the thread from its life, not even when the log's callback
/// raises on a thread that has no caller.
template <class Print>
void tell(Site site, Print && print) noexcept {
    try {
        tav::detail::log(tavLogger::DEFAULT_TAG(), tavLogger::DEBUG, site, std::forward<Print>(print));
    } catch (...) {
    }
}

/// Tells `text`, then "{", the name, ".", the id, "}".
void tellThread(Site site, char const * text, char const * name, std::thread::id id) noexcept {
    tell(site, [&](std::ostream & out) { out << text << '{' << name << '.' << IdText(id).text() << '}'; });
}

/// Lets the starter of a thread wait until the thread has entered.
struct Entrance {
    tavMonitor monitor;
    bool entered = false;
};

/// What a thread of startThread runs.  `entrance` lives on the starter's stack, until it is passed.  Nothing
/// but `fn` can fail here: all that it needs was made ahead of the thread.
void TAV_ASYNC_RUN_ENTRY(std::function<void()> const & fn, tavThreadEntry & entry, int delayMs,
                         Entrance & entrance) {
    constexpr char const * func = "tav_async_run_entry";
    tavThread::setCurrentName(entry.name());
    std::thread::id const id = std::this_thread::get_id();
    tavThreadManager::Registration const registration(entry);
    tellThread(here(func), "enter thread ", entry.name(), id);
    {
        MonitorGuard guard(entrance.monitor);
        entrance.entered = true;
        entrance.monitor.signalInLock();
    }
    if (delayMs != 0) {
        tell(here(func), [&](std::ostream & out) {
            out << "delay " << delayMs << "ms {" << entry.name() << '.' << IdText(id).text() << '}';
        });
        tav_sleep(static_cast<unsigned>(delayMs));
    }
    if (fn) {
        fn();
    }
    tellThread(here(func), "leave thread ", entry.name(), id);
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
    tell(here("tav_async_run"), [&](std::ostream & out) { out << "starting thread {" << name << '}'; });
    auto entry = std::make_shared<tavThreadEntry>(name, nullptr);
    auto thread = std::make_shared<std::thread>([fn = std::move(fn), entry, delayMs, &entrance] {
        TAV_ASYNC_RUN_ENTRY(fn, *entry, delayMs, entrance);
    });
    {
        MonitorGuard guard(entrance.monitor);
        while (!entrance.entered) {
            entrance.monitor.waitInLock(-1);
        }
    }
    tellThread(here("tav_async_run"), "started thread ", name.c_str(), thread->get_id());
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
    tell(here("tav_async_call"), [&](std::ostream & out) {
        out << "detach thread {" << tavThread::getThreadName(thread) << '.' << IdText(thread->get_id()).text()
            << '}';
    });
    thread->detach();
}
