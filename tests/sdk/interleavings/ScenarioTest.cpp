// Runs with the SDK: nothing goes wrong, and a run is repeated by its seed.
#include "Scenario.h"

#include <gtest/gtest.h>

#include <set>

#include "../../support/Scheduler.h"

namespace {

using interleavings::kScenarios;
using interleavings::Scenario;
using support::Outcome;

class ScenarioTest : public testing::TestWithParam<Scenario> {};

INSTANTIATE_TEST_SUITE_P(Pads, ScenarioTest, testing::ValuesIn(kScenarios),
                         [](const testing::TestParamInfo<Scenario>& pad) {
                           return std::string(pad.param.pad);
                         });

TEST_P(ScenarioTest, SameSeedGivesTheSameRun) {
  std::set<std::uint64_t> traces;
  for (std::uint64_t seed = 1; seed <= 100; ++seed) {
    const Outcome once = support::runScheduled(seed, GetParam().play);
    const Outcome again = support::runScheduled(seed, GetParam().play);
    EXPECT_EQ(once.report, "") << seed;
    EXPECT_EQ(once.report, again.report) << seed;
    EXPECT_EQ(once.decisions, again.decisions) << seed;
    EXPECT_EQ(once.time, again.time) << seed;
    EXPECT_EQ(once.trace, again.trace) << seed;
    traces.insert(once.trace);
  }
  EXPECT_EQ(traces.size(), 100U);
}

}  // namespace
