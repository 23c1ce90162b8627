#ifndef TAV_FOUNDATION_GUARDED_H
#define TAV_FOUNDATION_GUARDED_H

#include <chrono>
#include <condition_variable>
#include <mutex>

/// Says which lock guards what, for clang to look at: a build by it refuses a member that is touched without
/// its lock.  Other compilers read nothing of it, and none makes code of it.  Constructors and destructors
/// are not looked at.
#if defined(__clang__)
#define TAV_LOCK_RULE(rule) __attribute__((rule))
#else
#define TAV_LOCK_RULE(rule)
#endif

/// A member that is touched with this lock held only.
#define TAV_GUARDED_BY(lock) TAV_LOCK_RULE(guarded_by(lock))
/// A function that wants these locks held.
#define TAV_REQUIRES(...) TAV_LOCK_RULE(requires_capability(__VA_ARGS__))
#define TAV_ACQUIRES(...) TAV_LOCK_RULE(acquire_capability(__VA_ARGS__))
#define TAV_RELEASES(...) TAV_LOCK_RULE(release_capability(__VA_ARGS__))
/// A function around a fork: what it takes another one gives back, and a child has no other thread.
#define TAV_AROUND_FORK TAV_LOCK_RULE(no_thread_safety_analysis)

namespace tav {
namespace detail {

/// A lock that members can be guarded by, of a kind that is one already.
template <class Kind>
class TAV_LOCK_RULE(capability("mutex")) Guarding {
public:
    void lock() const TAV_ACQUIRES() { kind_.lock(); }
    void unlock() const TAV_RELEASES() { kind_.unlock(); }

    /// Waits once.  The caller holds the lock, which is released meanwhile.
    std::cv_status waitUntil(std::condition_variable & changed,
                             std::chrono::steady_clock::time_point end) const TAV_REQUIRES(this) {
        std::unique_lock<Kind> held(kind_, std::adopt_lock);
        std::cv_status const status = changed.wait_until(held, end);
        held.release();
        return status;
    }

private:
    mutable Kind kind_;
};

using Mutex = Guarding<std::mutex>;
using RecursiveMutex = Guarding<std::recursive_mutex>;

/// Holds a lock to the end of its scope.
template <class Lock>
class TAV_LOCK_RULE(scoped_lockable) Guard {
public:
    explicit Guard(Lock const & held) TAV_ACQUIRES(held) : held_(held) { held_.lock(); }
    ~Guard() TAV_RELEASES() { held_.unlock(); }
    Guard(Guard const &) = delete;
    Guard & operator=(Guard const &) = delete;

private:
    Lock const & held_;
};

} // namespace detail
} // namespace tav

#endif
