// What a client, a pad and its user may do in one run: chosen by the run's numbers, and checked
// against what the SDK guarantees.
#ifndef TESTS_SDK_INTERLEAVINGS_SCENARIO_H
#define TESTS_SDK_INTERLEAVINGS_SCENARIO_H

#include <array>

namespace interleavings {

struct Scenario {
  const char* pad;
  void (*play)();  // the body of a run
};

// One for each pad.
extern const std::array<Scenario, 4> kScenarios;

}  // namespace interleavings

#endif
