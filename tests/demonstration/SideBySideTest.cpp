#include "demonstration/SideBySide.h"

#include <gtest/gtest.h>

namespace demonstration {
namespace {

// Below a panel of 30 units.
constexpr QRect kScreen(0, 30, 1280, 770);

void expectPlaces(const Places& places, QPoint application, QPoint pad) {
  EXPECT_EQ(places.application.x(), application.x());
  EXPECT_EQ(places.application.y(), application.y());
  EXPECT_EQ(places.pad.x(), pad.x());
  EXPECT_EQ(places.pad.y(), pad.y());
}

TEST(SideBySideTest, ThePadStandsToTheRightOfTheApplication) {
  expectPlaces(sideBySide(kScreen, QRect(100, 50, 482, 421), QSize(600, 400)), {100, 50},
               {594, 50});
}

TEST(SideBySideTest, TheApplicationMakesRoom) {
  expectPlaces(sideBySide(kScreen, QRect(400, 227, 482, 421), QSize(600, 400)), {186, 227},
               {680, 227});
}

TEST(SideBySideTest, ATallPadMovesUp) {
  expectPlaces(sideBySide(kScreen, QRect(100, 227, 482, 421), QSize(600, 650)), {100, 227},
               {594, 150});
}

TEST(SideBySideTest, ScreensNeedNotBeginAtTheCorner) {
  expectPlaces(sideBySide(QRect(-1280, 0, 1280, 800), QRect(-200, 600, 482, 421), QSize(600, 400)),
               {-1094, 600}, {-600, 400});
}

TEST(SideBySideTest, OnAScreenThatIsTooSmallEachWindowBeginsOnIt) {
  expectPlaces(sideBySide(QRect(0, 0, 800, 480), QRect(159, 29, 482, 421), QSize(600, 650)),
               {0, 29}, {200, 0});
  expectPlaces(sideBySide(QRect(0, 0, 500, 400), QRect(9, 0, 482, 421), QSize(600, 650)), {0, 0},
               {0, 0});
}

}  // namespace
}  // namespace demonstration
