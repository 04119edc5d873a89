// HidCallGate: which calls into hidapi may be in progress together.
#include "HidCallGate.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/Patience.h"
#include "support/ProcessState.h"

namespace {

using support::comesTrue;
using support::Event;
using Side = HidCallGate::Side;

constexpr int kSuccess = 1;
constexpr int kFailure = -1;

int instantly(HidCallGate& gate, Side side, int result) {
  return gate.run(side, [result] { return result; });
}

// A call on a separate thread that stays in progress until it is released.
class HeldCall {
 public:
  HeldCall(
      HidCallGate& gate, Side side, int result, std::function<void()> onBegin = [] {})
      : m_thread([this, &gate, side, result, onBegin] {
          m_id = gettid();
          gate.run(side, [&] {
            onBegin();
            m_begun.happen();
            EXPECT_TRUE(m_mayReturn.wait());
            return result;
          });
        }) {}

  ~HeldCall() { finish(); }
  HeldCall(const HeldCall&) = delete;
  HeldCall& operator=(const HeldCall&) = delete;

  bool waitUntilBegun() { return m_begun.wait(); }
  bool hasBegun() { return m_begun.hasHappened(); }

  // Waits until the call has begun or is waiting for its turn.
  bool waitUntilDecided() {
    return comesTrue([this] { return hasBegun() || (m_id != 0 && support::sleeps(m_id)); });
  }

  // Lets the call return and waits until it has left the gate.
  void finish() {
    m_mayReturn.happen();
    if (m_thread.joinable()) m_thread.join();
  }

 private:
  std::atomic<pid_t> m_id{0};
  Event m_begun;
  Event m_mayReturn;
  std::thread m_thread;
};

Side otherSide(Side side) {
  return side == HidCallGate::kReading ? HidCallGate::kControl : HidCallGate::kReading;
}

class GateTest : public testing::TestWithParam<Side> {
 protected:
  HidCallGate gate;
  const Side side = GetParam();
  const Side other = otherSide(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Sides, GateTest,
                         testing::Values(HidCallGate::kReading, HidCallGate::kControl),
                         [](const testing::TestParamInfo<Side>& tested) {
                           return std::string(tested.param == HidCallGate::kReading ? "Reading"
                                                                                    : "Control");
                         });

TEST_P(GateTest, ReturnsTheResultOfTheCall) {
  for (const int result : {-1, 0, 1, 17}) EXPECT_EQ(instantly(gate, side, result), result);
}

TEST_P(GateTest, HasFailedFromAFailureUntilAControlCallSucceeds) {
  EXPECT_FALSE(gate.failed());
  instantly(gate, side, 0);
  EXPECT_FALSE(gate.failed());
  instantly(gate, side, kFailure);
  EXPECT_TRUE(gate.failed());
  instantly(gate, side, kFailure);
  EXPECT_TRUE(gate.failed());
  instantly(gate, HidCallGate::kReading, 0);
  instantly(gate, HidCallGate::kReading, kSuccess);
  EXPECT_TRUE(gate.failed());
  instantly(gate, HidCallGate::kControl, 0);
  EXPECT_FALSE(gate.failed());
}

TEST_P(GateTest, ForgetsTheFailuresOfADeviceThatWasClosed) {
  instantly(gate, side, kFailure);
  gate.reset();
  EXPECT_FALSE(gate.failed());
  HeldCall call(gate, side, kSuccess);
  ASSERT_TRUE(call.waitUntilBegun());
  HeldCall second(gate, other, kSuccess);
  EXPECT_TRUE(second.waitUntilBegun());
}

TEST_P(GateTest, LetsTheOtherSidePassWhileNothingHasFailed) {
  HeldCall call(gate, side, kSuccess);
  ASSERT_TRUE(call.waitUntilBegun());
  EXPECT_EQ(instantly(gate, other, kSuccess), kSuccess);
  HeldCall second(gate, other, kSuccess);
  EXPECT_TRUE(second.waitUntilBegun());
}

TEST_P(GateTest, HoldsBackASecondCallOfTheSameSide) {
  HeldCall call(gate, side, kSuccess);
  ASSERT_TRUE(call.waitUntilBegun());
  HeldCall second(gate, side, kSuccess);
  ASSERT_TRUE(second.waitUntilDecided());
  EXPECT_FALSE(second.hasBegun());
  call.finish();
  EXPECT_TRUE(second.waitUntilBegun());
}

TEST_P(GateTest, AfterAFailureACallWaitsForTheOtherSide) {
  HeldCall call(gate, side, kSuccess);
  ASSERT_TRUE(call.waitUntilBegun());
  instantly(gate, other, kFailure);
  HeldCall held(gate, other, kSuccess);
  ASSERT_TRUE(held.waitUntilDecided());
  EXPECT_FALSE(held.hasBegun());
  call.finish();
  EXPECT_TRUE(held.waitUntilBegun());
}

TEST_P(GateTest, ACallAfterAFailureRunsAlone) {
  instantly(gate, side, kFailure);
  HeldCall call(gate, side, kSuccess);
  ASSERT_TRUE(call.waitUntilBegun());
  HeldCall held(gate, other, kSuccess);
  ASSERT_TRUE(held.waitUntilDecided());
  EXPECT_FALSE(held.hasBegun());
  call.finish();
  EXPECT_TRUE(held.waitUntilBegun());
}

TEST(GateProofTest, AControlCallThatBeganBeforeTheFailureProvesNothing) {
  HidCallGate gate;
  HeldCall control(gate, HidCallGate::kControl, kSuccess);
  ASSERT_TRUE(control.waitUntilBegun());
  instantly(gate, HidCallGate::kReading, kFailure);
  control.finish();
  EXPECT_TRUE(gate.failed());
}

TEST_P(GateTest, TheSidesRunTogetherAgainAfterAControlCallSucceeded) {
  instantly(gate, side, kFailure);
  instantly(gate, HidCallGate::kControl, kSuccess);
  HeldCall call(gate, side, kSuccess);
  ASSERT_TRUE(call.waitUntilBegun());
  HeldCall second(gate, other, kSuccess);
  EXPECT_TRUE(second.waitUntilBegun());
}

// Which of two waiters is woken first is random, hence the rounds.
TEST_P(GateTest, AfterAFailureTheSidesTakeTurns) {
  for (int round = 0; round < 50; ++round) {
    HidCallGate turns;
    instantly(turns, side, kFailure);
    HeldCall underWay(turns, side, kFailure);
    ASSERT_TRUE(underWay.waitUntilBegun());

    std::mutex mutex;
    std::vector<Side> order;
    const auto note = [&](Side begun) {
      return [&order, &mutex, begun] {
        const std::lock_guard lock(mutex);
        order.push_back(begun);
      };
    };
    HeldCall same(turns, side, kFailure, note(side));
    ASSERT_TRUE(same.waitUntilDecided());
    HeldCall opposite(turns, other, kFailure, note(other));
    ASSERT_TRUE(opposite.waitUntilDecided());
    underWay.finish();
    ASSERT_TRUE(opposite.waitUntilBegun());
    opposite.finish();
    same.finish();
    ASSERT_EQ(order, (std::vector<Side>{other, side}));
  }
}

}  // namespace
