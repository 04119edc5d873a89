// HidCallGate: which calls into hidapi may be under way together. In virtual time: when a sleep is
// over, every call that may begin has begun.
#include "HidCallGate.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "../../support/Scheduler.h"

namespace {

using support::Outcome;
using Side = HidCallGate::Side;

constexpr Side kReading = HidCallGate::kReading;
constexpr Side kControl = HidCallGate::kControl;
constexpr int kSuccess = 1;
constexpr int kFailure = -1;

// Of the run.
Side side = kReading;
Side other = kControl;

void check(bool holds, const char* claim) {
  if (!holds) support::fail("this does not hold: %s", claim);
}

void fail(HidCallGate& gate, Side failing) {
  check(gate.run(failing, [] { return kFailure; }) == kFailure, "the result is the call's");
}

void succeed(HidCallGate& gate, Side succeeding) {
  check(gate.run(succeeding, [] { return kSuccess; }) == kSuccess, "the result is the call's");
}

// A call on a thread of its own that stays under way until it is finished.
class HeldCall {
 public:
  HeldCall(HidCallGate& gate, Side calling, int result = kSuccess)
      : m_thread([this, &gate, calling, result] {
          gate.run(calling, [&] {
            m_begun = true;
            support::waitUntil("is held", [this] { return m_finished; });
            return result;
          });
        }) {
    letRun();
  }

  ~HeldCall() { finish(); }
  HeldCall(const HeldCall&) = delete;
  HeldCall& operator=(const HeldCall&) = delete;

  bool isUnderWay() const { return m_begun; }

  void finish() {
    m_finished = true;
    if (!m_thread.joinable()) return;
    m_thread.join();
    letRun();
  }

 private:
  static void letRun() { support::sleepFor(support::kSecond); }

  bool m_begun = false;
  bool m_finished = false;
  std::thread m_thread;
};

// One call of each side, the second one beginning while the first one is under way.
void checkTogether(HidCallGate& gate) {
  const HeldCall call(gate, side);
  const HeldCall second(gate, other);
  check(second.isUnderWay(), "the sides do not wait for each other");
}

void checkWaitsFor(HidCallGate& gate, Side waiting, HeldCall& underWay) {
  const HeldCall call(gate, waiting);
  check(!call.isUnderWay(), "the call waits");
  underWay.finish();
  check(call.isUnderWay(), "the call goes on");
}

class GateTest : public testing::TestWithParam<Side> {
 protected:
  // What goes wrong in the body, played in some interleavings.
  static std::string failureOf(void (*body)()) {
    side = GetParam();
    other = side == kReading ? kControl : kReading;
    for (std::uint64_t seed = 1; seed <= 30; ++seed) {
      const Outcome outcome = support::runScheduled(seed, body);
      if (outcome.failed) return outcome.report;
    }
    return "";
  }
};

INSTANTIATE_TEST_SUITE_P(Sides, GateTest, testing::Values(kReading, kControl),
                         [](const testing::TestParamInfo<Side>& tested) {
                           return std::string(tested.param == kReading ? "Reading" : "Control");
                         });

TEST_P(GateTest, HasFailedFromAFailureUntilAControlCallSucceeds) {
  EXPECT_EQ(failureOf([] {
              HidCallGate gate;
              const auto failedAfter = [&gate](Side calling, int result) {
                check(gate.run(calling, [result] { return result; }) == result, "the result");
                return gate.failed();
              };
              check(!gate.failed(), "a new gate has not failed");
              check(!failedAfter(side, 0), "0 is no failure");
              check(failedAfter(side, -1) && failedAfter(side, -1), "-1 is one");
              check(failedAfter(kReading, 0) && failedAfter(kReading, 17), "reads prove nothing");
              check(!failedAfter(kControl, 0), "a control call does");
            }),
            "");
}

TEST_P(GateTest, TheSidesRunTogetherWhileNothingHasFailed) {
  EXPECT_EQ(failureOf([] {
              HidCallGate gate;
              checkTogether(gate);
            }),
            "");
}

TEST_P(GateTest, TheSidesRunTogetherAgainAfterAControlCallSucceeded) {
  EXPECT_EQ(failureOf([] {
              HidCallGate gate;
              fail(gate, side);
              succeed(gate, kControl);
              checkTogether(gate);
            }),
            "");
}

TEST_P(GateTest, ForgetsTheFailuresOfADeviceThatWasClosed) {
  EXPECT_EQ(failureOf([] {
              HidCallGate gate;
              fail(gate, side);
              gate.reset();
              check(!gate.failed(), "the failure is forgotten");
              checkTogether(gate);
            }),
            "");
}

TEST_P(GateTest, HoldsBackASecondCallOfTheSameSide) {
  EXPECT_EQ(failureOf([] {
              HidCallGate gate;
              HeldCall call(gate, side);
              checkWaitsFor(gate, side, call);
            }),
            "");
}

TEST_P(GateTest, AfterAFailureACallWaitsForTheOtherSide) {
  EXPECT_EQ(failureOf([] {
              HidCallGate gate;
              HeldCall call(gate, side);
              fail(gate, other);
              checkWaitsFor(gate, other, call);
            }),
            "");
}

TEST_P(GateTest, ACallAfterAFailureRunsAlone) {
  EXPECT_EQ(failureOf([] {
              HidCallGate gate;
              fail(gate, side);
              HeldCall call(gate, side);
              checkWaitsFor(gate, other, call);
            }),
            "");
}

TEST_P(GateTest, AControlCallThatBeganBeforeTheFailureProvesNothing) {
  EXPECT_EQ(failureOf([] {
              HidCallGate gate;
              HeldCall control(gate, kControl);
              fail(gate, kReading);
              control.finish();
              check(gate.failed(), "the failure is not forgotten");
            }),
            "");
}

TEST_P(GateTest, CallsOfASideGoInTheOrderInWhichTheyCame) {
  EXPECT_EQ(failureOf([] {
              HidCallGate gate;
              HeldCall first(gate, side);
              HeldCall second(gate, side, kFailure);
              HeldCall third(gate, side);
              const HeldCall fourth(gate, side);
              first.finish();
              check(second.isUnderWay() && !third.isUnderWay() && !fourth.isUnderWay(), "second");
              second.finish();
              check(third.isUnderWay() && !fourth.isUnderWay(), "third");
              third.finish();
              check(fourth.isUnderWay(), "fourth");
            }),
            "");
}

// Which of two waiters is woken first is the seed's choice.
TEST_P(GateTest, AfterAFailureTheSidesTakeTurns) {
  EXPECT_EQ(failureOf([] {
              HidCallGate gate;
              fail(gate, side);
              HeldCall underWay(gate, side, kFailure);
              const HeldCall same(gate, side, kFailure);
              HeldCall opposite(gate, other, kFailure);
              check(!same.isUnderWay() && !opposite.isUnderWay(), "both wait");
              underWay.finish();
              check(opposite.isUnderWay() && !same.isUnderWay(), "the other side is next");
              opposite.finish();
              check(same.isUnderWay(), "then the same side");
            }),
            "");
}

}  // namespace
