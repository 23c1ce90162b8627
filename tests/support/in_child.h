#ifndef TAV_TESTS_SUPPORT_IN_CHILD_H
#define TAV_TESTS_SUPPORT_IN_CHILD_H

#include <sys/wait.h>
#include <unistd.h>

/// Whether a sanitizer has the allocator, and whether a forked child may start threads: beside a thread
/// sanitizer it may not.
#if defined(__SANITIZE_THREAD__)
#define TAV_TEST_CHILD_HAS_THREADS 0
#define TAV_TEST_SANITIZER_ALLOCATES 1
#elif defined(__SANITIZE_ADDRESS__)
#define TAV_TEST_SANITIZER_ALLOCATES 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TAV_TEST_CHILD_HAS_THREADS 0
#define TAV_TEST_SANITIZER_ALLOCATES 1
#elif __has_feature(address_sanitizer)
#define TAV_TEST_SANITIZER_ALLOCATES 1
#endif
#endif
#ifndef TAV_TEST_CHILD_HAS_THREADS
#define TAV_TEST_CHILD_HAS_THREADS 1
#endif
#ifndef TAV_TEST_SANITIZER_ALLOCATES
#define TAV_TEST_SANITIZER_ALLOCATES 0
#endif

#if TAV_TEST_SANITIZER_ALLOCATES
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>
#endif

namespace tav_test {

#if TAV_TEST_SANITIZER_ALLOCATES

// The sanitizers of g++ 12 do not take the locks of their allocators over into a child, as the C library
// does: what another thread holds at the fork stays locked there for ever, and the first allocation that
// needs it hangs. So beside a sanitizer a test forks while all its other threads sleep; without one it forks
// into the midst of them.

struct Forks {
    /// Held by who forks, and waited for by those whose work it holds up.
    std::mutex mutex;
    std::atomic<bool> near{false};
    std::atomic<int> working{0};

    static Forks & get() {
        static Forks & the = *new Forks;
        return the;
    }
};

/// The threads of this process but the caller, each with its state and with how often it has slept.
inline std::vector<std::string> otherThreads() {
    std::vector<std::string> all;
    std::string const own = std::to_string(::gettid());
    for (auto const & entry : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string thread = entry.path().filename();
        if (thread == own) {
            continue;
        }
        std::ifstream status(entry.path() / "status");
        for (std::string line; std::getline(status, line);) {
            if (line.rfind("State:", 0) == 0 || line.rfind("voluntary_ctxt_switches:", 0) == 0) {
                thread += ' ' + line;
            }
        }
        all.push_back(std::move(thread));
    }
    return all;
}

/// Whether all others sleep, and have done so from one look at them to the next.
inline bool othersSleep() {
    std::vector<std::string> const first = otherThreads();
    for (std::string const & thread : first) {
        if (thread.find("State:\tS") == std::string::npos) {
            return false;
        }
    }
    return otherThreads() == first;
}

/// Forks as soon as no other thread can have a lock of the sanitizer; -1 if they do not come to rest.
inline pid_t forkInTest() {
    Forks & forks = Forks::get();
    std::lock_guard<std::mutex> const guard(forks.mutex);
    forks.near = true;
    pid_t child = -1;
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < end) {
        if (forks.working == 0 && othersSleep()) {
            child = ::fork();
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    forks.near = false;
    return child;
}

/// A piece of the work that a thread of a test does without end while others fork: beside a sanitizer no fork
/// of `forkInTest` falls into it.
class BesideForks {
public:
    BesideForks() {
        Forks & forks = Forks::get();
        while (++forks.working, forks.near) {
            --forks.working;
            std::lock_guard<std::mutex> const wait(forks.mutex);
        }
    }
    ~BesideForks() { --Forks::get().working; }
    BesideForks(BesideForks const &) = delete;
    BesideForks & operator=(BesideForks const &) = delete;
};

#else

inline pid_t forkInTest() {
    return ::fork();
}

class BesideForks {
public:
    BesideForks() {}
    ~BesideForks() {}
    BesideForks(BesideForks const &) = delete;
    BesideForks & operator=(BesideForks const &) = delete;
};

#endif

/// Runs `body` in a forked child, which a signal ends if it hangs.  True if it came to its end there, and was
/// true.
template <class Body>
bool inChild(Body body) {
    pid_t const child = forkInTest();
    if (child == 0) {
        ::alarm(10);
        ::_exit(body() ? 0 : 1);
    }
    int status = -1;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace tav_test

#endif
