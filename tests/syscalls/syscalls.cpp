#include "syscalls/syscalls.h"

#include "support/client_rig.h"
#include "tav/vinta/vinta_log.h"

#include <netdb.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
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

/// More than what a scenario waits for, one limit behind the other.
constexpr unsigned limitSeconds = 25;
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

Fault const nothing{"nothing", 0, 0};

extern "C" void onAbort(int) {
    if (::write(STDERR_FILENO, running, std::strlen(running)) < 0) {
        return;
    }
}

/// While it lives, nothing goes to the console, and a process that ends says what was running.
class Quiet {
public:
    Quiet() : before_(std::signal(SIGABRT, &onAbort)) {
        std::cout.setstate(std::ios::badbit);
        tavLogger::setup(
            "(clear(INFO))", [](int, char const * line) { torture::keepsSecret(line); }, false,
            tavLogger::NONE);
    }
    ~Quiet() {
        ::alarm(0);
        tavLogger::setup("(clear(INFO))", nullptr, false, tavLogger::WARN);
        std::cout.clear();
        std::signal(SIGABRT, before_);
    }
    Quiet(Quiet const &) = delete;
    Quiet & operator=(Quiet const &) = delete;

private:
    void (*const before_)(int);
};

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

void expectCallsToMeet(std::vector<torture::Scenario> const & scenarios, std::vector<Fault> const & faults) {
    Quiet const quiet;
    FailingCall::forget();
    for (torture::Scenario const & each : scenarios) {
        happens(each, nothing, 0);
    }
    for (Fault const & fault : faults) {
        EXPECT_GT(FailingCall::metOf(fault.calls), 0) << fault.name;
    }
}

void runWithEachFailing(torture::Scenario const & scenario, std::vector<Fault> const & faults, long step) {
    Quiet const quiet;
    failures = 0;
    for (int warm = 0; warm < 3; ++warm) {
        FailingCall::forget();
        happens(scenario, nothing, 0);
    }
    Holdings const held;
    // Another point of the first ones in each scenario.
    long const begin = static_cast<long>(std::strlen(scenario.name));
    long at = begin;
    long tried = 0;
    std::vector<long> counted;
    for (Fault const & fault : faults) {
        counted.push_back(FailingCall::metOf(fault.calls));
    }
    for (std::size_t i = 0; i < faults.size(); ++i) {
        Fault const & fault = faults[i];
        long const calls = counted[i];
        met = calls;
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
    if (step == 1) {
        EXPECT_GT(tried, 0) << "the scenario has no calls that fail";
    }
    testing::Test::RecordProperty("tried", std::to_string(tried) + " of " + std::to_string(at - begin));
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

bool isNameOfWant(std::error_code const & name) {
    using tls::failure;
    syscalls::Fault const & fault = syscalls::wanted;
    bool const of_files = (fault.calls & (syscalls::opens | syscalls::reads)) != 0;
    if (of_files && (name == failure::bad_policy || name == failure::certificate_refused)) {
        return true;
    }
    switch (fault.error) {
    case EAI_AGAIN: return name == failure::host_not_found;
    case EAI_MEMORY:
    case ENOMEM: return name == failure::out_of_memory;
    case EMFILE: return name == failure::no_resources;
    case EAGAIN:
        // A connect says so where the system has no room for it.
        return name == (fault.calls == syscalls::connects ? failure::out_of_memory : failure::no_resources);
    default: return name == failure::connection_lost;
    }
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
