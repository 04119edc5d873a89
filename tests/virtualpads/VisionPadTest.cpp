#include "virtualpads/VisionPad.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace virtualpads {
namespace {

using testing::Optional;

// A report that starts with these bytes and is zero from there on.
Bytes report(Bytes start, std::size_t length) {
  start.resize(length);
  return start;
}

TEST(VisionPadTest, EncodesPositionPressureAndClock) {
  // 650 = 0x028A, 350 = 0x015E, 512 = 0x0200
  EXPECT_EQ(VisionPad().inputReport(
                {.x = 0.5, .y = 0.25, .pressure = 0.5, .touch = true, .milliseconds = 0x01020304}),
            report({1, 0x80, 0x02, 0x8A, 0x01, 0x5E, 0x02, 0x00, 0x01, 0x02, 0x03, 0x04}, 17));
}

TEST(VisionPadTest, ClampsWhatIsOffTheSurface) {
  // 1300 = 0x0514, 1023 = 0x03FF
  EXPECT_EQ(VisionPad().inputReport({.x = 1.5, .y = -1, .pressure = 3, .touch = true}),
            report({1, 0x80, 0x05, 0x14, 0x00, 0x00, 0x03, 0xFF}, 17));
}

TEST(VisionPadTest, ReportsALiftedPenByZeros) {
  EXPECT_EQ(VisionPad().inputReport(
                {.x = 0.5, .y = 0.5, .pressure = 0.5, .touch = false, .milliseconds = 7}),
            report({1, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7}, 17));
}

TEST(VisionPadTest, DistinguishesATouchInTheCornerFromALiftedPen) {
  EXPECT_EQ(VisionPad().inputReport({.x = 0, .y = 0, .pressure = 0, .touch = true}),
            report({1, 0x80, 0, 0, 0, 0, 0, 1}, 17));
}

TEST(VisionPadTest, ReportsItsRangesAndSizes) {
  EXPECT_THAT(VisionPad().getFeature(12),
              Optional(report({12,                                         //
                               0x05, 0x14, 0x05, 0x78, 0x03, 0xFF,         // 1300, 1400, 1023
                               0,    0,    0,    0,    0,    0,            //
                               0,    0,    0,    45,   0,    0,    0, 28,  // aspect
                               0,    45,   0,    10,                       // 4.5 inches
                               0,    28,   0,    10},                      // 2.8 inches
                              65)));
}

TEST(VisionPadTest, ReportsAndUsesOtherRangesWhenTheyAreSet) {
  VisionPad pad;
  pad.setPadInformation({.x = {0x0102, 0x0304},
                         .y = {0x0506, 0x0708},
                         .pressure = {0x090A, 0x0B0C},
                         .aspect = {0x11121314, 0x15161718},
                         .width = {0x2122, 0x2324},
                         .height = {0x2526, 0}});
  EXPECT_THAT(pad.getFeature(12),
              Optional(report({12,   0x03, 0x04, 0x07, 0x08, 0x0B, 0x0C, 0x01, 0x02, 0x05, 0x06,
                               0x09, 0x0A, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18,  //
                               0x21, 0x22, 0x23, 0x24, 0x25, 0x26, 0x00, 0x00},
                              65)));
  EXPECT_EQ(pad.inputReport({.x = 0, .y = 1, .pressure = 0, .touch = true}),
            report({1, 0x80, 0x01, 0x02, 0x07, 0x08, 0x09, 0x0A}, 17));
}

TEST(VisionPadTest, ReportsItsSerialNumber) {
  VisionPad pad;
  EXPECT_THAT(pad.getFeature(2), Optional(report({2, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF,
                                                  0x10, 0x32, 0x54, 0x76, 0x98, 0xBA, 0xDC, 0xFE},
                                                 34)));
  pad.setSerialNumber({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
  EXPECT_THAT(pad.getFeature(2),
              Optional(report({2, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}, 34)));
}

TEST(VisionPadTest, TakesAndReportsItsMode) {
  VisionPad pad;
  EXPECT_EQ(pad.mode(), 0);
  EXPECT_THAT(pad.getFeature(4), Optional(report({4, 0}, 17)));
  ASSERT_TRUE(pad.setFeature(report({4, 1}, 17)));
  EXPECT_EQ(pad.mode(), 1);
  EXPECT_THAT(pad.getFeature(4), Optional(report({4, 1}, 17)));
}

TEST(VisionPadTest, TakesAndReportsItsInkRegion) {
  VisionPad pad;
  EXPECT_THAT(pad.getFeature(17),
              Optional(report({17, 0x10, 0x00, 0x0A, 0x00, 0x14, 0x05, 0x0A, 0x05, 0x64, 0x01, 0x02,
                               0x03, 0x04, 0x05, 0x01, 0xF4},
                              34)));
  Bytes region(34);
  for (std::size_t i = 0; i < 34; ++i) region[i] = static_cast<std::uint8_t>(17 + i);
  ASSERT_TRUE(pad.setFeature(region));
  EXPECT_THAT(pad.getFeature(17), Optional(region));
  EXPECT_EQ(pad.inkRegion().front(), 18);
  EXPECT_EQ(pad.inkRegion().back(), 50);
  pad.setInkRegion({0xD0});
  EXPECT_THAT(pad.getFeature(17), Optional(report({17, 0xD0}, 34)));
}

TEST(VisionPadTest, CountsResetsClearsAndKeepAlives) {
  VisionPad pad;
  EXPECT_THAT(pad.getFeature(3), Optional(report({3}, 17)));
  EXPECT_EQ(pad.resets(), 1);
  ASSERT_TRUE(pad.setFeature(report({18}, 17)));
  ASSERT_TRUE(pad.setFeature(report({18}, 17)));
  EXPECT_EQ(pad.clears(), 2);
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(pad.setFeature(report({26}, 17)));
  EXPECT_EQ(pad.keepAlives(), 3);
}

TEST(VisionPadTest, RefusesUnknownIdsAndWrongLengths) {
  VisionPad pad;
  for (const int id : {0, 1, 5, 11, 13, 16, 18, 26})
    EXPECT_FALSE(pad.getFeature(static_cast<std::uint8_t>(id))) << id;
  EXPECT_FALSE(pad.setFeature({}));
  EXPECT_FALSE(pad.setFeature(report({5}, 17)));
  EXPECT_FALSE(pad.setFeature(report({2, 9}, 34)));
  EXPECT_FALSE(pad.setFeature(report({3}, 17)));
  EXPECT_FALSE(pad.setFeature(report({12, 9}, 65)));
  EXPECT_FALSE(pad.setFeature(report({4, 1}, 16)));
  EXPECT_FALSE(pad.setFeature(report({4, 1}, 18)));
  EXPECT_FALSE(pad.setFeature(report({17, 9}, 33)));
  EXPECT_FALSE(pad.setFeature(report({17, 9}, 35)));
  EXPECT_FALSE(pad.setFeature(report({18}, 16)));
  EXPECT_FALSE(pad.setFeature(report({26}, 18)));
  EXPECT_EQ(pad.mode(), 0);
  EXPECT_EQ(pad.inkRegion()[0], 0x10);
  EXPECT_EQ(pad.serialNumber()[0], 0x01);
  EXPECT_EQ(pad.padInformation().x.high, 1300);
  EXPECT_EQ(pad.resets(), 0);
  EXPECT_EQ(pad.clears(), 0);
  EXPECT_EQ(pad.keepAlives(), 0);
}

}  // namespace
}  // namespace virtualpads
