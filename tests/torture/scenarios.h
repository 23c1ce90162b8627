#ifndef TAV_TESTS_TORTURE_SCENARIOS_H
#define TAV_TESTS_TORTURE_SCENARIOS_H

#include "torture/torture.h"

namespace tav_test {
namespace torture {

Scenarios nbrScenarios();
Scenarios jsonScenarios();
Scenarios pmlScenarios();
Scenarios xmlScenarios();
Scenarios modelScenarios();
Scenarios packetScenarios();
Scenarios textScenarios();
Scenarios logScenarios();
Scenarios threadScenarios();

Scenarios clientScenarios();

} // namespace torture
} // namespace tav_test

#endif
