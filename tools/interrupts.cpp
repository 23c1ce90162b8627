#include "tools/interrupts.h"

#include "tools/failure.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>

namespace tav {
namespace tool {

namespace {

constexpr int taken[] = {SIGINT, SIGTERM, SIGHUP};

std::atomic<int> came{0};
std::atomic<int> told{-1};
/// Who has the program survive the end of its terminal wants that.
std::atomic<bool> hangupIgnored{false};

void letGo() {
    for (int const each : taken) {
        if (each != SIGHUP || !hangupIgnored) {
            std::signal(each, SIG_DFL);
        }
    }
}

} // namespace

extern "C" {
static void takeNote(int signal) {
    int const error = errno;
    letGo();
    came = signal;
    unsigned long long const one = 1;
    ssize_t const written = ::write(told, &one, sizeof(one));
    static_cast<void>(written);
    errno = error;
}
}

Interrupts::Interrupts() {
    came = 0;
    told = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (told < 0) {
        throw systemFailure("signals", "no descriptor", errno);
    }
    struct sigaction hangup {};
    ::sigaction(SIGHUP, nullptr, &hangup);
    hangupIgnored = hangup.sa_handler == SIG_IGN;
    for (int const each : taken) {
        if (each == SIGHUP && hangupIgnored) {
            continue;
        }
        struct sigaction action {};
        action.sa_handler = &takeNote;
        ::sigemptyset(&action.sa_mask);
        ::sigaction(each, &action, nullptr);
    }
}

Interrupts::~Interrupts() {
    letGo();
    ::close(told.exchange(-1));
}

int Interrupts::signal() const {
    return came;
}

int Interrupts::fd() const {
    return told;
}

} // namespace tool
} // namespace tav
