// The pen callback: scaling, and the calls to the drawing view for each sample.
#include <gmock/gmock.h>

#include <limits>

#include "ControllerFixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using PenDataHandlerTest = StartedController;
using PenDataHandlerDeathTest = FreshApplication;
using PenDataHandlerAloneTest = FreshApplication;

constexpr std::uint8_t kDown = 1;
constexpr std::uint8_t kUp = 0;

void pen(std::int32_t x, std::int32_t y, std::uint8_t touch) {
  // As the SDK calls it.
  const PenEventHandler handler = PenDataHandler;
  handler(x, y, 100, touch, 4711, 1);
}

// The vision pad has divisors 4 and 7, all others, and none, 140 and 200. The division truncates
// toward zero.
TEST_F(PenDataHandlerTest, SampleIsScaledByThePadsDivisors) {
  constexpr auto lowest = std::numeric_limits<std::int32_t>::min();
  constexpr auto highest = std::numeric_limits<std::int32_t>::max();
  struct Scaled {
    int pad;
    std::int32_t x, y;
    const char* move;
  };
  for (const auto& [pad, x, y, move] :
       {Scaled{0, 700, 1000, "SetMoveTo 5 5"}, Scaled{0, 139, 199, "SetMoveTo 0 0"},
        Scaled{0, -139, -199, "SetMoveTo 0 0"}, Scaled{0, -279, -399, "SetMoveTo -1 -1"},
        Scaled{0, highest, lowest, "SetMoveTo 15339168 -10737418"},
        Scaled{2, 32767, 32767, "SetMoveTo 234 163"}, Scaled{-1, 700, 1000, "SetMoveTo 5 5"},
        Scaled{3, -7, 13, "SetMoveTo -1 1"},
        Scaled{3, lowest, highest, "SetMoveTo -536870912 306783378"}}) {
    gpadindex = pad;
    pen(x, y, kUp);
    EXPECT_THAT(takeLog(), ElementsAre(move));
  }
}

TEST_F(PenDataHandlerTest, StrokeIsAMoveThenPairsOfLineAndMove) {
  pen(700, 1000, kDown);
  EXPECT_EQ(firstPoint, 1);
  pen(1400, 2000, kDown);
  pen(2100, 3000, kUp);
  EXPECT_EQ(firstPoint, 0);
  EXPECT_THAT(takeLog(),
              ElementsAre("SetMoveTo 5 5",                                               //
                          "SetLineTo 10 10", "setNeedsDisplay true", "SetMoveTo 10 10",  //
                          "SetLineTo 15 15", "setNeedsDisplay true", "SetMoveTo 15 15"));
}

TEST_F(PenDataHandlerTest, SampleAfterALiftedPenStartsAStroke) {
  pen(700, 1000, kDown);
  pen(1400, 2000, kUp);
  takeLog();
  pen(2800, 4000, kDown);
  EXPECT_THAT(takeLog(), ElementsAre("SetMoveTo 20 20"));
}

TEST_F(PenDataHandlerTest, LiftedFirstSampleIsAMoveAndTheNextOneToo) {
  pen(700, 1000, kUp);
  EXPECT_EQ(firstPoint, 0);
  pen(1400, 2000, kDown);
  EXPECT_EQ(firstPoint, 1);
  EXPECT_THAT(takeLog(), ElementsAre("SetMoveTo 5 5", "SetMoveTo 10 10"));
}

TEST_F(PenDataHandlerTest, AnyTouchByteButZeroIsADownPen) {
  pen(700, 1000, 0x80);
  EXPECT_EQ(firstPoint, 1);
}

TEST_F(PenDataHandlerTest, AnyFlagButZeroContinuesTheStroke) {
  firstPoint = -1;
  pen(700, 1000, kDown);
  EXPECT_EQ(firstPoint, -1);
  EXPECT_THAT(takeLog(), ElementsAre("SetLineTo 5 5", "setNeedsDisplay true", "SetMoveTo 5 5"));
}

TEST_F(PenDataHandlerTest, FlagIsSetBeforeTheViewIsCalled) {
  int seen = 0;
  view->onMoveTo = [&] { seen = firstPoint; };
  pen(700, 1000, kUp);
  EXPECT_EQ(seen, 1);
}

TEST_F(PenDataHandlerAloneTest, WithoutControllerOnlyTheFlagChanges) {
  pen(700, 1000, kDown);
  EXPECT_EQ(firstPoint, 1);
  pen(700, 1000, kDown);
  EXPECT_EQ(firstPoint, 1);
  pen(700, 1000, kUp);
  EXPECT_EQ(firstPoint, 0);
  pen(700, 1000, kUp);
  EXPECT_EQ(firstPoint, 0);
  EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(PenDataHandlerDeathTest, ControllerWithoutViewIsFatal) {
  MainWindowController controller;
  m_mainWindowController = &controller;
  EXPECT_DEATH(pen(700, 1000, kDown), endsIn("the outlet m_drawview is empty"));
  firstPoint = 1;
  EXPECT_DEATH(pen(700, 1000, kDown), endsIn("the outlet m_drawview is empty"));
}

}  // namespace
