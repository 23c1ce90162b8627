#ifndef TAV_TESTS_SYSCALLS_SYSCALLS_H
#define TAV_TESTS_SYSCALLS_SYSCALLS_H

#include "syscalls/failing_calls.h"
#include "torture/torture.h"

#include <string>
#include <vector>

/// Scenarios that are run with each of their system calls failing in turn.
namespace tav_test {
namespace syscalls {

/// How many points lie between two that are tried where there are many: 7, or what the variable
/// TAV_SYSCALLS_STRIDE says.
long stride();

/// A failure that says what was running.
void fail(std::string const & what);

/// The failure of each fault that no call is met for in any of the scenarios: without calls to fail the rest
/// would hold for nothing.
void expectCallsToMeet(std::vector<torture::Scenario> const & scenarios, std::vector<Fault> const & faults);

/// Has the first call of a fault's kinds go its way where the scenario has a Want, then the second, up to the
/// last; and so for each of the faults; but of all these points only each `step`-th.  Each run has to keep
/// what the scenario holds, and to leave neither descriptors nor threads behind.
void runWithEachFailing(torture::Scenario const & scenario, std::vector<Fault> const & faults, long step);

} // namespace syscalls
} // namespace tav_test

#endif
