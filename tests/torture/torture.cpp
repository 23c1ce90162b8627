#include "torture/torture.h"

#include "support/failing_allocations.h"
#include "tav/vinta/vinta_log.h"
#include "tav/vinta/vinta_tls_failure.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <new>
#include <streambuf>
#include <string>
#include <thread>

namespace tav_test {

namespace tls = tav::tls;

namespace torture {
namespace {

constexpr unsigned limitSeconds = 10;
/// A scenario that fails at each of its points has told enough by then.
constexpr int failuresTold = 5;

/// Where the console's lines go meanwhile.
class Nowhere : public std::streambuf {
    int_type overflow(int_type c) override { return traits_type::not_eof(c); }
    std::streamsize xsputn(char const *, std::streamsize n) override { return n; }
};

/// What runs, for the one who finds the process ended.
char running[256] = "";
int failures = 0;
/// What the next Want has up to the one that fails.
long wanted = 0;

extern "C" void onAbort(int) {
    if (::write(STDERR_FILENO, running, std::strlen(running)) < 0) {
        return;
    }
}

void note(Scenario const & scenario, char const * levels, long n) {
    std::snprintf(running, sizeof running, "torture: %s, log %s, allocation %ld failing\n", scenario.name,
                  levels, n);
    ::alarm(limitSeconds);
}

void fail(std::string const & what) {
    Spared const spared;
    ++failures;
    std::string const where(running, std::strlen(running) - 1);
    ADD_FAILURE() << where << ": " << what;
}

long strideOf(Scenario const & scenario) {
    if (scenario.stride != 0) {
        return scenario.stride;
    }
    char const * const text = std::getenv("TAV_TORTURE_STRIDE");
    return std::max(1L, text != nullptr ? std::atol(text) : scenario.of == Of::want ? 23L : 5L);
}

/// Runs it once; true if it came to its end.
bool ends(Scenario const & scenario, bool maybeWithout) {
    try {
        scenario.run();
        return true;
    } catch (std::bad_alloc const & e) {
        keepsSecret(e.what());
        if (!maybeWithout) {
            fail("raises std::bad_alloc with all memory there is");
        }
    } catch (std::exception const & e) {
        fail(std::string("raises ") + e.what());
    }
    return false;
}

/// Runs it with the n-th allocation failing, and again with none; false if it had fewer.
bool happens(Scenario const & scenario, char const * levels, long n) {
    note(scenario, levels, n);
    if (scenario.of == Of::want) {
        allocationFailed = false;
        wanted = n;
        ends(scenario, false);
        wanted = 0;
        return FailingAllocation::happened();
    }
    {
        FailingAllocation const failing(n);
        ends(scenario, true);
    }
    bool const happened = FailingAllocation::happened();
    ends(scenario, false);
    return happened;
}

/// The allocations that live once threads that have ended by now have given back theirs.
long settled(long atMost) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    while (allocationsLive > atMost && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return allocationsLive;
}

/// What threads keep for their next work may come once; what each run leaves is lost.
bool leaks(Scenario const & scenario, char const * levels, long n, long & live) {
    long before = live;
    live = settled(before);
    for (int again = 0; live > before; ++again) {
        if (again == 4) {
            return true;
        }
        before = live;
        happens(scenario, levels, n);
        live = settled(before);
    }
    return false;
}

void runWithLevels(Scenario const & scenario, char const * levels) {
    failures = 0;
    note(scenario, levels, 0);
    for (int warm = 0; warm < 3; ++warm) {
        if (!ends(scenario, false)) {
            return;
        }
    }
    long live = allocationsLive;
    long points = 0;
    long const step = strideOf(scenario);
    for (long n = 1; failures < failuresTold && happens(scenario, levels, n); n += step) {
        ++points;
        if (leaks(scenario, levels, n, live)) {
            fail("leaves memory taken");
        }
    }
    ::alarm(0);
    EXPECT_LT(0, points) << scenario.name << " allocates nothing";
    testing::Test::RecordProperty(levels, std::to_string(points));
}

} // namespace

void holds(bool kept, char const * promise) {
    if (!kept) {
        fail(std::string("does not hold: ") + promise);
    }
}

bool isMadeToHappen(std::error_code const & error) {
    return error == std::errc::not_enough_memory;
}

bool isNameOfWant(std::error_code const & name) {
    return name == tls::failure::out_of_memory;
}

Spared::Spared() : before_(allocationsSpared) {
    allocationsSpared = true;
}

Spared::~Spared() {
    allocationsSpared = before_;
}

Unspared::Unspared() : before_(allocationsSpared) {
    allocationsSpared = false;
}

Unspared::~Unspared() {
    allocationsSpared = before_;
}

Want::Want() {
    allocationsLeft = wanted;
}

Want::~Want() {
    wanted = std::max(0L, allocationsLeft.exchange(0));
}

bool wantHappened() {
    return FailingAllocation::happened();
}

void spareThread() {
    allocationsSpared = true;
}

void runWithEachFailing(Scenario const & scenario) {
    auto const before = std::signal(SIGABRT, &onAbort);
    Nowhere nowhere;
    std::streambuf * const console = std::cout.rdbuf(&nowhere);
    allocationsOwn = true;
    onlyOwnAllocations = scenario.of == Of::caller;
    for (char const * const levels : {"(clear(NONE))", "(clear(TRACE))"}) {
        tavLogger::setup(
            levels, [](int, char const * line) { keepsSecret(line); }, false, tavLogger::NONE);
        runWithLevels(scenario, levels);
    }
    tavLogger::setup("(clear(INFO))", nullptr, false, tavLogger::WARN);
    std::cout.rdbuf(console);
    std::signal(SIGABRT, before);
}

} // namespace torture
} // namespace tav_test
