#ifndef TAV_TESTS_TORTURE_TORTURE_H
#define TAV_TESTS_TORTURE_TORTURE_H

#include <gtest/gtest.h>

#include <ostream>
#include <string_view>
#include <system_error>
#include <vector>

/// Scenarios that are run with each of their allocations failing in turn, and those of a client with each of
/// their system calls.
namespace tav_test {
namespace torture {

/// Whose allocations fail: those of the thread that runs the scenario, or of any thread; or of any thread
/// where the scenario has a Want, which then goes on with all memory there is and shows that all works.
enum class Of { caller, process, want };

struct Scenario {
    char const * name;
    /// Does something, tells `holds` how it went, and leaves nothing behind.  What it raises is what want of
    /// memory made of it: std::bad_alloc and nothing else.
    void (*run)();
    Of of = Of::caller;
    /// How many allocations lie between two that fail, for one with a number of its own; 0 for what all have.
    long stride = 0;
};

inline std::ostream & operator<<(std::ostream & out, Scenario const & v) {
    return out << v.name;
}

using Scenarios = std::vector<Scenario>;

/// The failure of a scenario unless `kept`: what has to be true whenever nothing was raised.
void holds(bool kept, char const * promise);

/// What no mask shows of the protected field that the sample has (sample.h).
constexpr std::string_view canary = "secret that nobody is to see in any l";

/// The failure of a scenario whose line of the log, or other text, shows it.  Frames alone do, which stand in
/// lines of their own below DEBUG.
inline void keepsSecret(std::string_view text) {
    auto const has = [&](std::string_view part) { return text.find(part) != text.npos; };
    if (has(canary) && !has(" send buf /") && !has(" recv buf /")) {
        holds(false, "no line of the log, no failure and no function's text shows a protected field");
    }
}

/// Whether a failure is what was made to happen.
bool isMadeToHappen(std::error_code const & error);
/// Whether the name of a connect's failure is one of what was made to happen.
bool isNameOfWant(std::error_code const & name);

/// While it lives, nothing of its thread fails or counts: for a scenario's own notes.
class Spared {
public:
    Spared();
    ~Spared();
    Spared(Spared const &) = delete;
    Spared & operator=(Spared const &) = delete;

private:
    bool const before_;
};

/// While it lives, all of its thread fails and counts again: for the matter itself in the middle of notes.
class Unspared {
public:
    Unspared();
    ~Unspared();
    Unspared(Unspared const &) = delete;
    Unspared & operator=(Unspared const &) = delete;

private:
    bool const before_;
};

/// Where a scenario of that kind wants for memory, or for what the system gives.
class Want {
public:
    Want();
    ~Want();
    Want(Want const &) = delete;
    Want & operator=(Want const &) = delete;
};

/// Whether what a Want lets fail has failed by now.
bool wantHappened();

/// Has nothing of the calling thread fail or count from now on.
void spareThread();

/// Has an allocation of the scenario fail, and then another one, up to the last, without log lines and with
/// all of them.  Behind each the scenario has to succeed and to have left no more memory taken than before.
/// Only each fifth fails, where a scenario has a Want each 23rd, and with the variable TAV_TORTURE_STRIDE
/// each so many'th.
void runWithEachFailing(Scenario const & scenario);

inline std::string nameOf(testing::TestParamInfo<Scenario> const & info) {
    return info.param.name;
}

} // namespace torture
} // namespace tav_test

#endif
