#ifndef TAV_RUNTIME_THREAD_MANAGER_H
#define TAV_RUNTIME_THREAD_MANAGER_H

#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_locks.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>

class tavThread;

/// The names of all threads that the library runs, and the objects of those that have one.  Internal.
///
/// The process's one is made at first use.  Each registered thread also keeps its registration at hand, so
/// that it finds its own name without a lock.  The two mutexes are never held together; nothing is logged and
/// nobody else's code is called under either.
class tavThreadManager {
public:
    /// Registers the calling thread while it lives; `thread` is null for one that has no tavThread.  Within
    /// another registration it takes its place, and nothing is left of either at its end.
    class Registration {
    public:
        Registration(tav_istr name, tavThread * thread);
        ~Registration();
        Registration(Registration const &) = delete;
        Registration & operator=(Registration const &) = delete;

    private:
        friend class tavThreadManager;

        std::shared_ptr<tavThreadManager> const manager_;
        std::string const name_;
    };

    /// The name the calling thread is registered by; null if it is not.  Valid while the registration lives.
    static std::string const * ownName();

    /// The object that the calling thread is registered with; null if there is none.
    static tavSharedPtr<tavThread> ownThread();

    /// The name of a registered thread; empty if it is not.
    static tavString nameOf(std::thread::id id);

    /// Logs one line for each registered thread.
    static void print();

    /// Drops all registrations; the next use makes a new manager.
    static void finalize();

private:
    static std::shared_ptr<tavThreadManager> instance();

    /// The calling thread's registration, if the manager still is the process's one; else null.
    static Registration const * registered();

    tavMutex threadsMutex_;
    std::map<std::thread::id, tavSharedPtr<tavThread>> threads_;
    tavMutex namesMutex_;
    std::map<std::thread::id, tavString> names_;
    /// False once finalize has let go of this one.
    std::atomic<bool> live_{true};
};

namespace tav {
namespace detail {

/// Starts `fn` on a new thread under the whole name given, with the records of tav_async_run.
std::shared_ptr<std::thread> startThread(std::function<void()> fn, std::string const & name, int delayMs);

} // namespace detail
} // namespace tav

#endif
