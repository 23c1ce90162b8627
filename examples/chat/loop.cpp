#include "loop.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <system_error>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace chat {

Loop::Loop() : wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    sigset_t all;
    sigemptyset(&all);
    for (int const number : {SIGINT, SIGTERM, SIGHUP, SIGTSTP, SIGWINCH}) {
        sigaddset(&all, number);
    }
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    signals_ = ::signalfd(-1, &all, SFD_CLOEXEC | SFD_NONBLOCK);
    if (wake_ < 0 || signals_ < 0) {
        throw std::system_error(errno, std::generic_category(), "no descriptor for the chat's loop");
    }
}

Loop::~Loop() {
    ::close(wake_);
    ::close(signals_);
}

void Loop::post(std::function<void()> task) {
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        tasks_.push_back(std::move(task));
    }
    std::uint64_t const one = 1;
    [[maybe_unused]] auto const written = ::write(wake_, &one, sizeof one);
}

void Loop::run() {
    for (;;) {
        std::function<void()> task;
        {
            std::lock_guard<std::mutex> const guard(mutex_);
            if (tasks_.empty()) {
                return;
            }
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
}

void Loop::later(std::chrono::milliseconds time, std::function<void()> task) {
    later_.emplace(Clock::now() + time, std::move(task));
}

int Loop::runLater() {
    while (!later_.empty()) {
        auto const first = later_.begin();
        auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(first->first - Clock::now());
        if (left.count() > 0) {
            return static_cast<int>(left.count());
        }
        std::function<void()> const task = std::move(first->second);
        later_.erase(first);
        task();
    }
    return -1;
}

bool Loop::wait(int fd) {
    while (!stopped_) {
        pollfd all[] = {{wake_, POLLIN, 0}, {signals_, POLLIN, 0}, {fd, POLLIN, 0}};
        if (::poll(all, 3, runLater()) < 0 && errno != EINTR) {
            return false;
        }
        std::uint64_t count = 0;
        [[maybe_unused]] auto const got = ::read(wake_, &count, sizeof count);
        run();
        takeSignal();
        if (!stopped_ && all[2].revents != 0) {
            return true;
        }
    }
    return false;
}

void Loop::takeSignal() {
    signalfd_siginfo info;
    if (::read(signals_, &info, sizeof info) != static_cast<ssize_t>(sizeof info)) {
        return;
    }
    if (info.ssi_signo == SIGWINCH) {
        if (on_resize) {
            on_resize();
        }
    } else if (info.ssi_signo == SIGTSTP) {
        if (on_suspend) {
            on_suspend();
        }
        ::raise(SIGSTOP);
        if (on_resume) {
            on_resume();
        }
    } else {
        stopped_ = true;
    }
}

} // namespace chat
