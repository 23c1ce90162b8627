#include "torture/scenarios.h"

namespace tav_test {
namespace torture {
namespace {

class Torture : public testing::TestWithParam<Scenario> {};

TEST_P(Torture, OfEachAllocation) {
    runWithEachFailing(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Nbr, Torture, testing::ValuesIn(nbrScenarios()), nameOf);
INSTANTIATE_TEST_SUITE_P(Json, Torture, testing::ValuesIn(jsonScenarios()), nameOf);
INSTANTIATE_TEST_SUITE_P(Pml, Torture, testing::ValuesIn(pmlScenarios()), nameOf);
INSTANTIATE_TEST_SUITE_P(Xml, Torture, testing::ValuesIn(xmlScenarios()), nameOf);
INSTANTIATE_TEST_SUITE_P(Model, Torture, testing::ValuesIn(modelScenarios()), nameOf);
INSTANTIATE_TEST_SUITE_P(Packet, Torture, testing::ValuesIn(packetScenarios()), nameOf);
INSTANTIATE_TEST_SUITE_P(Text, Torture, testing::ValuesIn(textScenarios()), nameOf);
INSTANTIATE_TEST_SUITE_P(Log, Torture, testing::ValuesIn(logScenarios()), nameOf);
INSTANTIATE_TEST_SUITE_P(Threads, Torture, testing::ValuesIn(threadScenarios()), nameOf);

} // namespace
} // namespace torture
} // namespace tav_test
