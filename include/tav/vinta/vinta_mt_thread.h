#ifndef TAV_VINTA_MT_THREAD_H
#define TAV_VINTA_MT_THREAD_H

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_basetypes_time.h"
#include "tav/vinta/vinta_locks.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// Named threads, queues that are worked off on threads of their own, and single calls on a new thread. Names
/// carry the creator's name in front, so that they show who made whom.  The life of each thread is logged
/// under the tag "TAV".

class tavThreadEntry;
class tavThreadImpl;

/// A named thread with a life in four callbacks: on_open, on_loop again and again, on_close, all on the
/// thread itself; and on_stop, on the thread that closes it.  It is held by tavSharedPtr, is started once,
/// and keeps itself alive while it runs.
///
/// A body that blocks waits on the thread's monitor, which stopRunning signals.
/// Thread safety: all operations.  close must not be called on the thread itself.
class TAV_API tavThread : public virtual tavRefCountObject {
public:
    /// Starts nothing.  The full name is what createThreadName makes of `name`.
    explicit tavThread(tav_istr name);

    /// Joins nothing: a thread that was neither closed nor detached by then runs out by itself.
    ~tavThread() override;

    /// One round of the loop.  False ends the thread; an exception is logged and counts as true.
    virtual bool on_loop() = 0;

    /// Called by each close, on the closing thread, after the thread was told to stop.
    virtual void on_stop();

    /// Called first on the thread; with false there is no loop.  An exception ends the process.
    virtual bool on_open();

    /// Called last on the thread.  An exception ends the process.
    virtual void on_close();

    /// Starts the thread and returns when its on_open has returned.  Raises std::system_error if there can be
    /// no further thread.
    void start();

    /// Asks the loop to end and wakes a body that waits on the monitor; does not wait for the end.
    void stopRunning();

    /// stopRunning, on_stop, and then a join.  Of two that close at the same time one joins, and the other
    /// returns when the thread has ended.  On the thread itself it raises std::system_error with the deadlock
    /// code.
    void close();

    /// Lets the thread end by itself: a later close does not wait for it.
    void detach();

    /// Runs the whole life on the caller's own thread.
    void run_internally();

    /// Whether the loop is wanted.  It stays true when on_loop said no.
    bool running() const { return running_; }

    /// Whether on_open has returned, whatever it said.
    bool started() const { return started_; }

    /// Whether the loop has ended.
    bool broken() const { return broken_; }

    /// Started, running and not broken.
    bool loopRunning() const { return started_ && running_ && !broken_; }

    /// The full name.  A view that lives as long as the object.
    tav_istr name() const;

    /// The decimal text of the thread's id; empty before the thread has started.
    std::string id() const;

    /// The thread's monitor is the subclass's own affair, but for stopRunning, which signals it.
    void lock() const;
    void unlock() const;
    bool wait(int ms) const;
    bool waitInLock(int ms) const;
    void notify() const;
    void notifyAll() const;
    void notifyInLock() const;
    void notifyAllInLock() const;

    /// The tavThread that runs on the calling thread; null if there is none.
    static tavSharedPtr<tavThread> current();

    /// The decimal text of the calling thread's id.
    static std::string currentId();

    /// The registered name of the calling thread, "main" if it has none.
    static tavString currentName();

    /// The calling thread's registered name, ".", and `name`; `name` alone if it has none.
    static tavString createThreadName(tav_istr name);

    /// The decimal text of an id.
    static std::string getThreadId(std::thread::id id);

    /// The registered name of a running thread; empty if there is none, or no thread.
    static tavString getThreadName(std::shared_ptr<std::thread> thread);

    /// Tells debuggers the calling thread's name, of which they see the first 15 bytes.
    static void setCurrentName(char const * name);

    /// Logs the id and name of each thread that is still registered.
    static void printThreads();

    /// Forgets all registered threads.  They run on, unregistered.
    static void finalize();

protected:
    /// Whether a stop was asked for since the start.  A body looks at this, under the lock of the monitor
    /// that it waits on, ahead of each wait: whoever stops it sets this first and signals in the lock.
    bool stopping() const { return stopping_; }

    /// Whether the calling thread is the one that runs this object.
    bool onOwnThread() const;

    /// on_loop in a guard that logs exceptions; true after one.
    bool onLoop();

private:
    void run(tavThreadEntry & entry);
    bool onOpen();
    void onStop();
    void onClose();

    friend class tavTaskQueue;
    friend class tavTimerThread;

    std::unique_ptr<tavThreadImpl> impl_;
    tavString name_;
    std::atomic<bool> running_{false};
    std::atomic<bool> started_{false};
    std::atomic<bool> broken_{false};
    std::atomic<bool> stopping_{false};
    /// Whether the loop had ended before the close under way told it to; true outside of a close.
    std::atomic<bool> brokenBeforeClose_{true};
    tavMonitor monitor_;
    tavMonitor startMonitor_;
};

/// The name and, once the thread has started, its id: "{name}" or "{name.1234}".
TAV_API std::ostream & operator<<(std::ostream & out, tavThread const & v);

/// A thread whose callbacks are function objects.  Any of them may be empty: without onLoop the thread ends
/// at once, without onOpen it opens.
class TAV_API tavThread_ : public tavThread {
public:
    tavThread_(tav_istr name, std::function<bool()> onLoop, std::function<void()> onStop,
               std::function<bool()> onOpen, std::function<void()> onClose);
    ~tavThread_() override;

    bool on_loop() override;
    void on_stop() override;
    bool on_open() override;
    void on_close() override;

private:
    std::function<bool()> onLoop_;
    std::function<void()> onStop_;
    std::function<bool()> onOpen_;
    std::function<void()> onClose_;
};

/// A thread that calls a function periodically.
class TAV_API tavTimerThread : public tavThread {
public:
    /// Calls `onTimer` every `interval` milliseconds of a clock that nobody can set, from the construction
    /// on, as long as it returns true and `count` is not used up; a negative `count` is without limit, 0
    /// counts as 1.  Its argument is true if the wait was ended by a signal, such as stopRunning gives: then
    /// it is called once more, at once. `onCancel`, which may be empty, is called by a close before the end,
    /// on the closing thread.
    tavTimerThread(tav_istr name, int interval, std::function<bool(bool)> onTimer,
                   std::function<void()> onCancel, int count);
    ~tavTimerThread() override;

    bool on_loop() override;
    void on_stop() override;
    bool on_open() override;
    void on_close() override;

private:
    int interval_;
    std::function<bool(bool)> onTimer_;
    std::function<void()> onCancel_;
    int count_;
    std::chrono::steady_clock::time_point last_;
};

/// A queue of function objects that several threads work off.  With one thread they run in the order of put.
/// An exception out of a task is logged and hurts no other task.  There is no limit of length.
/// Thread safety: put, on_loop and on_stop; start and close belong to the owner.
class TAV_API tavTaskQueue {
public:
    /// Starts nothing.
    tavTaskQueue(tav_istr name, int threadCount);

    /// Stops nothing: threads that were not closed go on with what the queue held, and then wait.
    ~tavTaskQueue();

    tavTaskQueue(tavTaskQueue const &) = delete;
    tavTaskQueue & operator=(tavTaskQueue const &) = delete;

    /// Starts the threads, named `name`.0, `name`.1 and so on.
    void start();

    /// Appends a task.  An empty one does nothing.
    void put(std::function<void()> task);

    /// Tells all threads to stop, and then joins them.  Tasks still in the queue are not run.
    void close();

    /// Waits for a task and runs it, on the calling thread.  Always true.
    bool on_loop();

    /// Wakes all threads that wait for a task.
    void on_stop();

private:
    struct Queue;

    tavString name_;
    int threadCount_;
    std::vector<tavSharedPtr<tavThread>> threads_;
    /// Shared with the threads, which may outlive this object.
    std::shared_ptr<Queue> queue_;
};

/// One thread that hands the values of a queue to a handler, in the order of put.  It takes all that is there
/// at once and calls the handler without a lock, so a slow handler blocks no producer.  The handler never
/// runs twice at the same time.  An exception out of it is logged, and the value counts as handled.  The
/// values are the queue's own and not const: each is shown once and dropped then, so that a handler may move
/// it out.
///
/// Nobody waits for a backlog longer than about a second, and the value being handled: the end is looked for
/// between two values.  A close lets the thread go on with the values that it has taken; when the second is
/// over, the rest stays in the queue, in its order.
/// Thread safety: all operations.
template <class T>
class TAV_API tavMsgQueueThread : public tavThread {
public:
    /// `timeout` is the longest wait of one round in milliseconds, -1 for as good as none.  An empty handler
    /// drops the values.
    tavMsgQueueThread(tav_istr name, int timeout, std::function<void(T const &)> handler)
        : tavThread(name), handler_(std::move(handler)), timeout_(timeout) {}

    /// Handles what is left, for what a close has left of its second; what is left then is dropped.
    ~tavMsgQueueThread() override {
        timeout_ = 0;
        end_ = Clock::now() + afterStop_;
        while (!done() && Clock::now() < end_) {
            onLoop();
        }
    }

    void put(T const & item) {
        Guard guard(queueMonitor_);
        queue_.push_back(item);
        wakeInLock();
    }

    void put(T && item) {
        Guard guard(queueMonitor_);
        queue_.push_back(std::move(item));
        wakeInLock();
    }

    /// Returns when the queue is empty and its last value is handled, after about a second at most.  If the
    /// thread does not run, the caller handles the values, and gets the handler's exceptions.  Does nothing
    /// on the queue's own thread and inside the handler.
    void flush() {
        if (onOwnThread()) {
            return;
        }
        Clock::time_point const end = Clock::now() + limit();
        std::unique_lock<tavMonitor const> guard(queueMonitor_);
        if (inHand_ && worker_ == std::this_thread::get_id()) {
            return;
        }
        while (!doneInLock()) {
            Clock::time_point const now = Clock::now();
            if (now >= end) {
                return;
            }
            if (!inHand_ && !loopRunning()) {
                guard.unlock();
                step(0, end);
                guard.lock();
                continue;
            }
            auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(end - now);
            ++flushers_;
            queueMonitor_.waitInLock(static_cast<int>(std::min<long long>(left.count() + 1, flushSlice)));
            --flushers_;
        }
    }

    /// Waits for values once and hands them to the handler.  Always true.
    bool on_loop() override {
        step(timeout_, end_);
        return true;
    }

    void on_stop() override {
        Guard guard(queueMonitor_);
        wakeInLock();
    }

private:
    using Clock = std::chrono::steady_clock;
    using Guard = std::lock_guard<tavMonitor const>;

    /// How long anybody waits for a backlog.
    static Clock::duration limit() { return std::chrono::milliseconds(1000); }

    /// The end of a round that goes on until a stop is asked for.
    static Clock::time_point never() { return Clock::time_point::max(); }

    /// How often a flush looks whether the thread still runs, in milliseconds.
    static constexpr long long flushSlice = 20;

    /// Gives the hand free again, whatever ended the round.
    struct Release {
        explicit Release(tavMsgQueueThread & queue) : queue_(queue) {}
        ~Release() {
            Guard guard(queue_.queueMonitor_);
            queue_.inHand_ = false;
            queue_.queueMonitor_.signalAllInLock();
        }
        Release(Release const &) = delete;
        Release & operator=(Release const &) = delete;

    private:
        tavMsgQueueThread & queue_;
    };

    /// Those who flush wait on the same monitor as the thread: with one of them there, one signal might miss
    /// it.
    void wakeInLock() const {
        if (flushers_ != 0) {
            queueMonitor_.signalAllInLock();
        } else {
            queueMonitor_.signalInLock();
        }
    }

    bool doneInLock() const { return !inHand_ && batch_.empty() && queue_.empty(); }

    bool readyInLock() const { return !inHand_ && !(batch_.empty() && queue_.empty()); }

    bool done() const {
        Guard guard(queueMonitor_);
        return doneInLock();
    }

    /// Takes what a round left, else the whole queue, after one wait if there is nothing to take.
    bool take(int ms) {
        Guard guard(queueMonitor_);
        if (!readyInLock() && !stopping()) {
            queueMonitor_.waitInLock(ms);
        }
        if (!readyInLock()) {
            return false;
        }
        if (batch_.empty()) {
            batch_.swap(queue_);
        }
        inHand_ = true;
        worker_ = std::this_thread::get_id();
        return true;
    }

    /// Handles what it takes, at least one value, up to `end`; without one, up to about a second behind a
    /// stop.
    void step(int ms, Clock::time_point end) {
        if (!take(ms)) {
            return;
        }
        Release const release(*this);
        bool const untilStop = end == never();
        do {
            handleFront();
            if (untilStop && end == never() && stopping()) {
                end = Clock::now() + afterStop_;
            }
        } while (!batch_.empty() && (end == never() || Clock::now() < end));
        if (untilStop && end != never()) {
            afterStop_ = std::max(end - Clock::now(), Clock::duration::zero());
        }
    }

    void handleFront() {
        struct Pop {
            std::deque<T> & from;
            ~Pop() { from.pop_front(); }
        } const pop{batch_};
        if (handler_) {
            handler_(batch_.front());
        }
    }

    std::function<void(T const &)> handler_;
    int timeout_;
    tavMonitor queueMonitor_;
    std::deque<T> queue_;
    /// The values being handled, all ahead of those of `queue_`; belongs to the one who set `inHand_`.
    std::deque<T> batch_;
    bool inHand_ = false;
    /// Who handles the batch.
    std::thread::id worker_;
    /// What is left of the second behind a stop; belongs to the one who set `inHand_`.
    Clock::duration afterStop_ = limit();
    /// When a round ends at the latest.
    Clock::time_point end_ = never();
    /// How many wait in flush.
    unsigned flushers_ = 0;
};

/// Runs `fn` on a new thread named as createThreadName makes it of `name`, after `delayMs` milliseconds.  The
/// thread has entered, but not necessarily called `fn`, when this returns.  The caller must join or detach
/// it.  An exception out of `fn` ends the process.
TAV_API std::shared_ptr<std::thread> tav_async_run(std::function<void()> fn, std::string name, int delayMs);

/// The same, detached.
TAV_API void tav_async_call(std::function<void()> fn, std::string name, int delayMs);

/// The system's id of the calling thread.
TAV_API unsigned tav_get_tid();

/// The process id.
TAV_API unsigned tav_get_pid();

#endif
