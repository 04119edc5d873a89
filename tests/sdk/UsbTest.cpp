// The USB pad's driver: its reports and its fixed answers.
#include "velausb.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>

#include "support/OneDriverTest.h"
#include "support/PadTable.h"
#include "virtualpads/UsbPad.h"

namespace {

using support::Calls;
using support::Pen;
using support::PenReport;

class UsbTest : public support::OneDriverTest<velausb, 18> {};

TEST_F(UsbTest, HasNoSerialNumberEvenWhileConnected) {
  open(std::make_shared<virtualpads::UsbPad>());
  _GUID serial{.Data1 = 1, .Data2 = 2, .Data3 = 3, .Data4 = {4, 5, 6, 7, 8, 9, 10, 11}};
  EXPECT_FALSE(driver.GetSerialNumber(&serial));
  EXPECT_FALSE(driver.GetSerialNumber(nullptr));
  EXPECT_EQ(serial.Data1, 1U);
  EXPECT_EQ(serial.Data2, 2);
  EXPECT_EQ(serial.Data3, 3);
  EXPECT_EQ(std::to_array(serial.Data4), (std::array<std::uint8_t, 8>{4, 5, 6, 7, 8, 9, 10, 11}));
}

TEST_F(UsbTest, ClearingInkSucceedsWithoutARequest) {
  open(std::make_shared<virtualpads::UsbPad>());
  EXPECT_TRUE(driver.ClearInking());
  EXPECT_EQ(bus.calls(), Calls{});
}

// Input reports.

class UsbReportTest : public UsbTest, public testing::WithParamInterface<PenReport> {};

TEST_P(UsbReportTest, IsDecoded) {
  open(std::make_shared<virtualpads::UsbPad>());
  send("20 5A 00 2D 00 01");
  send(GetParam().bytes);
  ASSERT_TRUE(recorder.waitFor(2));
  const auto [x, y, pressure, touch, sequence] = recorder.samples()[1];
  EXPECT_EQ((Pen{x, y, pressure, touch}), GetParam().pen);
}

INSTANTIATE_TEST_SUITE_P(
    X, UsbReportTest,
    testing::Values(PenReport{"20 5A 00 2D 00 00", {0, 0, 0, 1}},      // 90
                    PenReport{"20 5B 00 2D 00 00", {32, 0, 0, 1}},     // 91: 32.767
                    PenReport{"20 5C 00 2D 00 00", {65, 0, 0, 1}},     // 92: 65.534
                    PenReport{"20 59 00 2D 00 00", {0, 0, 0, 1}},      // 89: below
                    PenReport{"20 32 00 2D 00 00", {0, 0, 0, 1}},      // 50: below
                    PenReport{"20 4E 02 2D 00 00", {16383, 0, 0, 1}},  // 590: 16383.5
                    PenReport{"20 41 04 2D 00 00", {32734, 0, 0, 1}},  // 1089: 32734.233
                    PenReport{"20 42 04 2D 00 00", {32767, 0, 0, 1}},  // 1090
                    PenReport{"20 43 04 2D 00 00", {32767, 0, 0, 1}},  // 1091: above
                    PenReport{"20 FF 7F 2D 00 00", {32767, 0, 0, 1}},  // 32767
                    PenReport{"20 FF FF 2D 00 00", {0, 0, 0, 1}},      // -1
                    PenReport{"20 00 80 2D 00 00", {0, 0, 0, 1}}));    // -32768

INSTANTIATE_TEST_SUITE_P(
    Y, UsbReportTest,
    testing::Values(PenReport{"20 5A 00 2E 00 00", {0, 65, 0, 1}},     // 46: 65.534
                    PenReport{"20 5A 00 2C 00 00", {0, 0, 0, 1}},      // 44: below
                    PenReport{"20 5A 00 27 01 00", {0, 16383, 0, 1}},  // 295: 16383.5
                    PenReport{"20 5A 00 20 02 00", {0, 32701, 0, 1}},  // 544: 32701.466
                    PenReport{"20 5A 00 21 02 00", {0, 32767, 0, 1}},  // 545
                    PenReport{"20 5A 00 22 02 00", {0, 32767, 0, 1}},  // 546: above
                    PenReport{"20 5A 00 58 02 00", {0, 32767, 0, 1}},  // 600: above
                    PenReport{"20 5A 00 FF 7F 00", {0, 32767, 0, 1}},  // 32767
                    PenReport{"20 5A 00 FF FF 00", {0, 0, 0, 1}},      // -1
                    PenReport{"20 5A 00 00 80 00", {0, 0, 0, 1}}));    // -32768

INSTANTIATE_TEST_SUITE_P(Pressure, UsbReportTest,
                         testing::Values(PenReport{"20 5A 00 2D 00 7F", {0, 0, 127, 1}},
                                         PenReport{"20 5A 00 2D 00 80", {0, 0, 128, 1}},
                                         PenReport{"20 5A 00 2D 00 FF", {0, 0, 255, 1}},
                                         PenReport{"00 5A 00 2D 00 45", {0, 0, 69, 0}}));

INSTANTIATE_TEST_SUITE_P(Touch, UsbReportTest,
                         testing::Values(PenReport{"00 4E 02 27 01 05", {16383, 16383, 5, 0}},
                                         PenReport{"21 5A 00 2D 00 00", {0, 0, 0, 0}},
                                         PenReport{"30 5A 00 2D 00 00", {0, 0, 0, 0}},
                                         PenReport{"A0 5A 00 2D 00 00", {0, 0, 0, 0}},
                                         PenReport{"01 5A 00 2D 00 00", {0, 0, 0, 0}},
                                         PenReport{"FF 5A 00 2D 00 00", {0, 0, 0, 0}}));

}  // namespace
