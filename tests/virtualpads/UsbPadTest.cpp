#include "virtualpads/UsbPad.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace virtualpads {
namespace {

using testing::ElementsAre;

TEST(UsbPadTest, MapsTheSurfaceOntoItsRawCoordinates) {
  UsbPad pad;
  // Upper left: 90 = 0x005A, 45 = 0x002D. Lower right: 1090 = 0x0442, 545 = 0x0221.
  EXPECT_THAT(pad.inputReport({.x = 0, .y = 0, .pressure = 0, .touch = true}),
              ElementsAre(0x20, 0x5A, 0x00, 0x2D, 0x00, 0));
  EXPECT_THAT(pad.inputReport({.x = 1, .y = 1, .pressure = 1, .touch = true}),
              ElementsAre(0x20, 0x42, 0x04, 0x21, 0x02, 127));
  // A quarter and three quarters: 340 = 0x0154, 420 = 0x01A4.
  EXPECT_THAT(pad.inputReport({.x = 0.25, .y = 0.75, .pressure = 0.5, .touch = true}),
              ElementsAre(0x20, 0x54, 0x01, 0xA4, 0x01, 64));
}

TEST(UsbPadTest, ReportsALiftedPenWithItsPositionAndWithoutPressure) {
  EXPECT_THAT(UsbPad().inputReport({.x = 0.5, .y = 0.5, .pressure = 0.5, .touch = false}),
              ElementsAre(0x00, 0x4E, 0x02, 0x27, 0x01, 0));
}

TEST(UsbPadTest, ClampsWhatIsOffTheSurface) {
  UsbPad pad;
  EXPECT_THAT(pad.inputReport({.x = -0.1, .y = 1.1, .pressure = 2, .touch = true}),
              ElementsAre(0x20, 0x5A, 0x00, 0x21, 0x02, 127));
  const double notANumber = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THAT(
      pad.inputReport({.x = notANumber, .y = notANumber, .pressure = notANumber, .touch = true}),
      ElementsAre(0x20, 0x5A, 0x00, 0x2D, 0x00, 0));
}

TEST(UsbPadTest, HasNoFeatureReports) {
  UsbPad pad;
  EXPECT_FALSE(pad.getFeature(0));
  EXPECT_FALSE(pad.getFeature(2));
  EXPECT_FALSE(pad.setFeature(Bytes{0, 0}));
  EXPECT_FALSE(pad.setFeature({}));
}

}  // namespace
}  // namespace virtualpads
