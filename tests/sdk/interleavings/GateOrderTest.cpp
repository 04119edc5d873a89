// The gate's calls of one side go in the order in which they came, however the threads take turns.
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "../../support/Scheduler.h"
#include "HidCallGate.h"

namespace {

constexpr int kMilliseconds = 1000;

// Call 0 takes 10 ms. The others come 1, 2 and 3 ms after it.
template <HidCallGate::Side side>
void fourCalls() {
  HidCallGate gate;
  int begun = 0;
  const auto call = [&](int number) {
    usleep(static_cast<useconds_t>(number * kMilliseconds));
    gate.run(side, [&] {
      if (begun != number) support::fail("call %d goes as number %d", number, begun);
      ++begun;
      usleep(10 * kMilliseconds);
      return number == 1 ? -1 : 0;
    });
  };
  std::thread threads[] = {std::thread(call, 0), std::thread(call, 1), std::thread(call, 2),
                           std::thread(call, 3)};
  for (std::thread& thread : threads) thread.join();
  if (begun != 4) support::fail("%d calls went", begun);
}

TEST(GateOrderTest, FirstComeFirstServed) {
  for (std::uint64_t seed = 1; seed <= 100; ++seed) {
    for (const auto calls : {fourCalls<HidCallGate::kReading>, fourCalls<HidCallGate::kControl>})
      EXPECT_EQ(support::runScheduled(seed, calls).report, "") << seed;
  }
}

}  // namespace
