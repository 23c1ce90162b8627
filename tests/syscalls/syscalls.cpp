#include "syscalls/syscalls.h"

#include "support/client_rig.h"
#include "tav/vinta/vinta_log.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace tav_test {
namespace syscalls {
namespace {

constexpr unsigned limitSeconds = 10;
/// A scenario that fails at each of its points has told enough by then.
constexpr int failuresTold = 5;
constexpr long ordinaryStride = 7;

/// What runs, for the one who finds the process ended.
char running[256] = "";
int failures = 0;
/// What the next want meets.
Fault wanted{};
long wantedAt = 0;
long met = 0;
std::unique_ptr<FailingCall> failing;

/// While it lives, nothing goes to the console.
class QuietConsole {
public:
    QuietConsole() { std::cout.setstate(std::ios::badbit); }
    ~QuietConsole() { std::cout.clear(); }
    QuietConsole(QuietConsole const &) = delete;
    QuietConsole & operator=(QuietConsole const &) = delete;
};

extern "C" void onAbort(int) {
    if (::write(STDERR_FILENO, running, std::strlen(running)) < 0) {
        return;
    }
}

void note(char const * scenario, Fault const & fault, long n) {
    std::snprintf(running, sizeof running, "system calls: %s, %s%s at call %ld\n", scenario, fault.name,
                  fault.lasting == Lasting::once ? "" : " from there on", n);
    ::alarm(limitSeconds);
}

/// Runs it with the n-th call failing, or with none for 0.
void happens(torture::Scenario const & scenario, Fault const & fault, long n) {
    note(scenario.name, fault, n);
    wanted = fault;
    wantedAt = n;
    met = 0;
    try {
        scenario.run();
    } catch (std::exception const & e) {
        fail(std::string("raises ") + e.what());
    }
}

} // namespace

long stride() {
    char const * const text = std::getenv("TAV_SYSCALLS_STRIDE");
    return std::max(1L, text != nullptr ? std::atol(text) : ordinaryStride);
}

void fail(std::string const & what) {
    SparedCalls const spared;
    ++failures;
    std::string const where(running, std::strlen(running) - 1);
    ADD_FAILURE() << where << ": " << what;
}

long callsOf(torture::Scenario const & scenario, Fault const & fault) {
    happens(scenario, fault, 0);
    ::alarm(0);
    return met;
}

void runWithEachFailing(torture::Scenario const & scenario, std::vector<Fault> const & faults, long step) {
    auto const before = std::signal(SIGABRT, &onAbort);
    QuietConsole const quiet;
    tavLogger::setup(
        "(clear(INFO))", [](int, char const *) {}, false, tavLogger::NONE);
    failures = 0;
    for (int warm = 0; warm < 3; ++warm) {
        happens(scenario, Fault{"nothing", 0, 0}, 0);
    }
    Holdings const held;
    // Another point of the first ones in each scenario.
    long const begin = static_cast<long>(std::strlen(scenario.name));
    long at = begin;
    long tried = 0;
    for (Fault const & fault : faults) {
        happens(scenario, fault, 0);
        long const calls = met;
        for (long n = 1; failures < failuresTold; ++n) {
            // What the threads of two runs do differs: the end of a whole row is where a run had fewer calls.
            if (n > calls && (step > 1 || fault.lasting != Lasting::once || met < n - 1)) {
                break;
            }
            if (++at % step == 0) {
                happens(scenario, fault, n);
                ++tried;
                ::alarm(2 * limitSeconds);
                if (!held.back()) {
                    fail("leaves behind: " + held.print());
                }
            }
        }
    }
    ::alarm(0);
    testing::Test::RecordProperty("tried", std::to_string(tried) + " of " + std::to_string(at - begin));
    tavLogger::setup("(clear(INFO))", nullptr, false, tavLogger::WARN);
    std::signal(SIGABRT, before);
}

} // namespace syscalls

namespace torture {

void holds(bool kept, char const * promise) {
    if (!kept) {
        syscalls::fail(std::string("does not hold: ") + promise);
    }
}

bool isMadeToHappen(std::error_code const & error) {
    return error.value() == syscalls::wanted.error;
}

Spared::Spared() : before_(syscalls::spareCallsOfThread(true)) {}

Spared::~Spared() {
    syscalls::spareCallsOfThread(before_);
}

Want::Want() {
    using namespace syscalls;
    failing = std::make_unique<FailingCall>(wanted, wantedAt, met);
}

Want::~Want() {
    using namespace syscalls;
    met = FailingCall::met();
    failing.reset();
}

void spareThread() {
    syscalls::spareCallsOfThread(true);
}

} // namespace torture
} // namespace tav_test
