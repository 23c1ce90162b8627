#ifndef TAV_EXAMPLES_CHAT_LOOP_H
#define TAV_EXAMPLES_CHAT_LOOP_H

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <mutex>

namespace chat {

/// Runs what other threads hand over on one thread, so that the rest of the program needs no lock, and takes
/// the signals of the process.  To be made ahead of every other thread: those are left in peace by the
/// signals then.
class Loop {
public:
    Loop();
    ~Loop();
    Loop(Loop const &) = delete;
    Loop & operator=(Loop const &) = delete;

    /// From any thread.
    void post(std::function<void()> task);
    /// What may be given to the kit as the place where its functions run.
    std::function<void(std::function<void()>)> executor() {
        return [this](std::function<void()> task) { post(std::move(task)); };
    }

    /// Runs a task after some time; on the loop's thread only.
    void later(std::chrono::milliseconds time, std::function<void()> task);

    /// Runs tasks until `fd` can be read (true) or the process was asked to end (false).  -1: never readable.
    bool wait(int fd);
    /// Runs what there is.
    void run();
    /// Ends the wait.
    void stop() { stopped_ = true; }
    bool stopped() const { return stopped_; }

    std::function<void()> on_suspend; ///< Ctrl-Z, ahead of it.
    std::function<void()> on_resume;  ///< When the process goes on.
    std::function<void()> on_resize;  ///< The terminal's size has changed.

private:
    using Clock = std::chrono::steady_clock;

    void takeSignal();
    /// Runs what is due.  The milliseconds until more is; -1 if there is nothing.
    int runLater();

    int wake_;
    int signals_;
    bool stopped_ = false;
    std::multimap<Clock::time_point, std::function<void()>> later_;
    std::mutex mutex_;
    std::deque<std::function<void()>> tasks_;
};

} // namespace chat

#endif
