#include "torture/scenarios.h"

namespace tav_test {
namespace torture {
namespace {

class TortureClient : public testing::TestWithParam<Scenario> {};

TEST_P(TortureClient, OfEachAllocation) {
    runWithEachFailing(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Client, TortureClient, testing::ValuesIn(clientScenarios()), nameOf);

} // namespace
} // namespace torture
} // namespace tav_test
