#ifndef TAV_EXAMPLES_STEPS_H
#define TAV_EXAMPLES_STEPS_H

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <iostream>
#include <map>
#include <mutex>
#include <string>

/// How an example tells what it does and whether that worked.
namespace steps {

/// What the examples wait for comes in this time, or not at all.
constexpr int limit_ms = 5000;

/// Counts what callbacks report, so that the program can wait for it.
class Events {
public:
    void happened(std::string const & what) {
        std::lock_guard<std::mutex> const guard(mutex_);
        ++counts_[what];
        changed_.notify_all();
    }
    bool wait(std::string const & what, int times = 1) {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, std::chrono::milliseconds(limit_ms),
                                 [&] { return counts_[what] >= times; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, int> counts_;
};

/// Prints each step with its outcome; steps may be told on any thread.
class Talk {
public:
    void step(std::string const & what, bool ok) {
        std::lock_guard<std::mutex> const guard(mutex_);
        std::cout << (ok ? "ok    " : "FAILED") << "  " << what << std::endl;
        failed_ = failed_ || !ok;
    }
    /// Prints a line that is no step.
    void note(std::string const & what) {
        std::lock_guard<std::mutex> const guard(mutex_);
        std::cout << "        " << what << std::endl;
    }
    /// To be asked when all callbacks have ended.
    bool failed() const { return failed_; }

private:
    std::mutex mutex_;
    bool failed_ = false;
};

/// The number of threads of this process.
inline int threads() {
    int n = 0;
    for (auto const & entry : std::filesystem::directory_iterator("/proc/self/task")) {
        n += entry.is_directory() ? 1 : 0;
    }
    return n;
}

} // namespace steps

#endif
