#ifndef TAV_TESTS_SUPPORT_JOINING_THREAD_H
#define TAV_TESTS_SUPPORT_JOINING_THREAD_H

#include <thread>
#include <utility>

namespace tav_test {

/// A thread that is waited for by its end of scope too, so that a test which fails ahead of `join` ends no
/// program.
class JoiningThread {
public:
    template <class Work>
    explicit JoiningThread(Work && work) : thread_(std::forward<Work>(work)) {}
    ~JoiningThread() { join(); }
    JoiningThread(JoiningThread const &) = delete;
    JoiningThread & operator=(JoiningThread const &) = delete;

    void join() {
        if (thread_.joinable()) {
            thread_.join();
        }
    }

private:
    std::thread thread_;
};

} // namespace tav_test

#endif
