#include "virtualpads/IiPad.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace virtualpads {
namespace {

using testing::ElementsAre;
using testing::Optional;

TEST(IiPadTest, EncodesPositionPressureAndClock) {
  IiPad pad;
  // A quarter of 32767 is 8192 = 0x2000.
  EXPECT_THAT(pad.inputReport(
                  {.x = 0.25, .y = 1, .pressure = 1, .touch = true, .milliseconds = 0x01020304}),
              ElementsAre(1, 0x21, 0x00, 0x20, 0xFF, 0x7F, 127, 0x04, 0x03, 0x02, 0x01));
  EXPECT_THAT(pad.inputReport({.x = 1, .y = 0.25, .pressure = 0.5, .touch = true}),
              ElementsAre(1, 0x21, 0xFF, 0x7F, 0x00, 0x20, 64, 0, 0, 0, 0));
}

TEST(IiPadTest, ReportsALiftedPenWithItsPositionAndWithoutPressure) {
  EXPECT_THAT(IiPad().inputReport({.x = 0.25, .y = 1, .pressure = 1, .touch = false}),
              ElementsAre(1, 0x20, 0x00, 0x20, 0xFF, 0x7F, 0, 0, 0, 0, 0));
}

TEST(IiPadTest, ClampsWhatIsOffTheSurface) {
  EXPECT_THAT(IiPad().inputReport({.x = -1, .y = 2, .pressure = -1, .touch = true}),
              ElementsAre(1, 0x21, 0x00, 0x00, 0xFF, 0x7F, 0, 0, 0, 0, 0));
}

TEST(IiPadTest, ReportsItsGeometryAsRatios) {
  EXPECT_THAT(IiPad().getFeature(10),
              Optional(Bytes{10,                                              //
                             0x02, 0x01, 0x04, 0x03, 0x06, 0x05, 0x08, 0x07,  // words 1 to 4
                             0x09, 0x0B, 0x0A, 0x0D, 0x0C, 0x0E,              //
                             0xA0, 0x86, 0x01, 0x00,                          // 100000
                             0x60, 0x79, 0xFE, 0xFF,                          // -100000
                             0x1D, 0x10, 0xE8, 0x03, 0x0A, 0x0A, 0xE8, 0x03,  // 4125, 2570 / 1000
                             0x05, 0x00, 0x14, 0x00, 0x03, 0x00, 0x14, 0x00,  // 5, 3 / 20
                             0x13, 0x00, 0x64, 0x00, 0x13, 0x00, 0x64, 0x00,  // 19, 19 / 100
                             0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A}));
}

TEST(IiPadTest, ReportsAnotherGeometryWhenItIsSet) {
  IiPad pad;
  IiPad::PadInformation information = pad.padInformation();
  information.width = {{0x0102, 0x0304}, {0x0506, 0x0708}, {0x090A, 0x0B0C}};
  information.height = {{0x1112, 0x1314}, {0x1516, 0x1718}, {0x191A, 0}};
  pad.setPadInformation(information);
  const Bytes report = pad.getFeature(10).value();
  EXPECT_EQ(Bytes(report.begin() + 23, report.begin() + 47),
            (Bytes{0x02, 0x01, 0x04, 0x03, 0x12, 0x11, 0x14, 0x13, 0x06, 0x05, 0x08, 0x07,
                   0x16, 0x15, 0x18, 0x17, 0x0A, 0x09, 0x0C, 0x0B, 0x1A, 0x19, 0x00, 0x00}));
}

TEST(IiPadTest, ReportsItsSerialNumber) {
  IiPad pad;
  EXPECT_THAT(pad.getFeature(2),
              Optional(Bytes{2, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A,  //
                             0x27, 0x18, 0x09, 0xFA, 0xEB, 0xDC, 0xCD, 0xBE}));
  pad.setSerialNumber({1, 2, 3, 4, 5, 6, 7, 8});
  EXPECT_THAT(pad.getFeature(2),
              Optional(Bytes{2, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A, 0x5A,  //
                             1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(IiPadTest, HasNoOtherFeatureReportsAndTakesNone) {
  IiPad pad;
  EXPECT_FALSE(pad.getFeature(1));
  EXPECT_FALSE(pad.getFeature(3));
  Bytes serial(17);
  serial[0] = 2;
  EXPECT_FALSE(pad.setFeature(serial));
  EXPECT_FALSE(pad.setFeature({}));
  EXPECT_EQ(pad.serialNumber()[0], 0x27);
}

}  // namespace
}  // namespace virtualpads
