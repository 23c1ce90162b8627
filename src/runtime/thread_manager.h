#ifndef TAV_RUNTIME_THREAD_MANAGER_H
#define TAV_RUNTIME_THREAD_MANAGER_H

#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_locks.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <streambuf>
#include <string>
#include <string_view>
#include <thread>

class tavThread;
class tavThreadEntry;

/// The names of all threads that the library runs, and the objects of those that have one.  Internal.
///
/// The process's one is made at first use, and again in a forked child, which has none of its parent's
/// threads but the one that forked.  Each registered thread also keeps its registration at hand, so that it
/// finds its own name without a lock.  But around a fork the mutexes are never held together; nothing is
/// logged and nobody else's code is called under any.
class tavThreadManager {
public:
    using Threads = std::map<std::thread::id, tavSharedPtr<tavThread>>;
    using Names = std::map<std::thread::id, tavString>;

    /// Registers the calling thread by an entry while it lives.  Within another registration it takes its
    /// place, and nothing is left of either at its end.
    class Registration {
    public:
        explicit Registration(tavThreadEntry & entry) noexcept;
        ~Registration();
        Registration(Registration const &) = delete;
        Registration & operator=(Registration const &) = delete;

    private:
        friend class tavThreadManager;

        tavThreadEntry & entry_;
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

    /// Hold every mutex around a fork, so that the child finds them free and the maps whole.
    static void beforeFork() noexcept;
    static void afterForkInParent() noexcept;
    /// Leaves the parent's registrations behind, as their threads are not here; none of their objects ends.
    static void afterForkInChild() noexcept;

private:
    friend class tavThreadEntry;

    static std::shared_ptr<tavThreadManager> instance();

    /// The calling thread's registration, if the manager still is the process's one; else null.
    static Registration const * registered();

    std::mutex threadsMutex_;
    Threads threads_;
    std::mutex namesMutex_;
    Names names_;
    /// False once finalize has let go of this one.
    std::atomic<bool> live_{true};
    /// The one of the process that forked this one.
    std::shared_ptr<tavThreadManager> former_;
};

/// All that the registration of a thread needs, made ahead of the thread, which could tell nobody of a
/// failure.
class tavThreadEntry {
public:
    /// `thread` is null for one that has no tavThread.
    tavThreadEntry(tav_istr name, tavThread * thread);

    char const * name() const { return name_.c_str(); }

private:
    friend class tavThreadManager;

    std::shared_ptr<tavThreadManager> const manager_;
    std::string const name_;
    tavThreadManager::Threads::node_type thread_;
    tavThreadManager::Names::node_type registeredName_;
};

namespace tav {
namespace detail {

/// The decimal text of a thread's id, made without an allocation.
class IdText : private std::streambuf {
public:
    static constexpr std::size_t size = 24;

    explicit IdText(std::thread::id id);

    std::string_view text() const {
        return std::string_view(pbase(), static_cast<std::size_t>(pptr() - pbase()));
    }

private:
    char buffer_[size];
};

/// Starts `fn` on a new thread under the whole name given, with the records of tav_async_run.
std::shared_ptr<std::thread> startThread(std::function<void()> fn, std::string const & name, int delayMs);

} // namespace detail
} // namespace tav

#endif
