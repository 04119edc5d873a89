#include "velavision.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "VisionRecordQueue.h"
#include "support/OneDriverTest.h"
#include "support/Patience.h"
#include "virtualpads/VisionPad.h"

namespace {

// Makes the length of the pad's input reports unknown to the engine.
std::atomic<bool> reportSizeUnknown{false};

}  // namespace

extern "C" {

// CVelaIoEngine::GetDataReportSize
bool __real__ZN13CVelaIoEngine17GetDataReportSizeEPt(CVelaIoEngine* engine, unsigned short* size);

bool __wrap__ZN13CVelaIoEngine17GetDataReportSizeEPt(CVelaIoEngine* engine, unsigned short* size) {
  if (!reportSizeUnknown) return __real__ZN13CVelaIoEngine17GetDataReportSizeEPt(engine, size);
  *size = 0;
  return false;
}

}  // extern "C"

namespace {

using support::Bytes;
using support::called;
using support::Calls;
using support::comesTrue;
using support::Event;
using support::Fault;
using support::got;
using support::hex;
using support::HidCall;
using support::kNothingWritten;
using support::recordPen;
using support::Sample;
using support::sent;
using support::Written;
using support::writtenBy;
using testing::Each;
using testing::ElementsAre;
using virtualpads::PadModel;
using virtualpads::VisionPad;

class VisionTest : public support::OneDriverTest<velavision, 56> {
 protected:
  // A pad in pen mode.
  VisionTest() {
    scripted->replies[3] = hex("03", 17);
    scripted->replies[4] = hex("04 01", 17);
    scripted->replies[12] = hex("0C", 65);
    scripted->replies[17] = hex("11", 34);
  }

  void openModel() { open(model); }

  // The device was opened, then the open failed: no thread was started, and closing sets mode 4.
  void expectClosableAfterFailedOpen() {
    EXPECT_EQ(bus.openHandles(port), 1);
    EXPECT_TRUE(waitForThreads(0));
    EXPECT_EQ(pVisionDataHandler, nullptr);
    bus.clearLog();
    EXPECT_EQ(driver.CloseConnection(), 0);
    EXPECT_EQ(bus.calls(), (Calls{sent("04 04", 17), called(HidCall::Close)}));
  }

  Written writtenByOpen(int result) {
    return writtenBy(result, [&] { return driver.OpenConnection(recordPen); });
  }

  // The ink region as the next reply leaves a record that was full of EE.
  InkRegion region(int result = 1) {
    InkRegion region;
    std::memset(&region, 0xEE, sizeof region);
    EXPECT_EQ(driver.GetInkRegion(&region), result);
    return region;
  }

  std::shared_ptr<VisionPad> model = std::make_shared<VisionPad>();
};

using VisionOpenTest = VisionTest;
using VisionModeTest = VisionTest;
using VisionInkRegionTest = VisionTest;
using VisionPadInfoTest = VisionTest;
using VisionSerialTest = VisionTest;
using VisionSampleTest = VisionTest;

TEST_F(VisionOpenTest, NoHandlerGivesZeroInSilenceAndOpensNothing) {
  plug(model);
  bus.clearLog();
  EXPECT_EQ(writtenBy(0, [&] { return driver.OpenConnection(nullptr); }), kNothingWritten);
  EXPECT_TRUE(bus.calls().empty());
}

TEST_F(VisionOpenTest, FourthAttemptIsMadeAfterThreePausesOfFiveMilliseconds) {
  plug(model);
  bus.fail(HidCall::Open, {}, 1, 3);
  EXPECT_EQ(writtenByOpen(1), kNothingWritten);
  EXPECT_EQ(time.sleeps(5000), 3);
}

TEST_F(VisionOpenTest, UnknownReportSizeFails) {
  plug(model);
  reportSizeUnknown = true;
  EXPECT_EQ(writtenByOpen(0), (Written{"",
                                       "Failed to get Report size!\n"
                                       "Velavision:OpenConnection failed in USB commnication\n"}));
  reportSizeUnknown = false;
  EXPECT_EQ(bus.count(HidCall::GetFeature), 0);
  expectClosableAfterFailedOpen();
}

// The pad's ink region before the open and after it, and what is sent when it could not be read.
constexpr const char* kRegionBefore = "2F 11 12 21 22 31 32 41 42 51 52 53 54 55 56 57";
constexpr const char* kRegionAfter = "C0 11 12 21 22 31 32 41 42 51 52 53 54 55 01 F4";
constexpr const char* kEmptyRegion = "C0 00 00 00 00 00 00 00 00 00 00 00 00 00 01 F4";
constexpr const char* kHalfRegion = "C0 11 12 21 22 31 32 41 00 00 00 00 00 00 01 F4";

// A request of the set-up, the fault that it meets, and the outcome.
struct SetUpFault {
  const char* name;
  HidCall call;
  int nth;  // of that kind
  Fault fault;
  int result = 1;
  const char* lines = "";
  std::size_t requests = 6;           // made in all
  int mode = 1;                       // of the pad
  const char* region = kRegionAfter;  // of the pad
  int maxX = 1300;                    // of the driver
  double width = 4.5;
};

constexpr Fault kNothing{Fault::Kind::Return, 0};
constexpr Fault kError{Fault::Kind::Return, -1};
constexpr Fault cutTo(int bytes) {
  return {Fault::Kind::Short, bytes};
}

constexpr const char* kNoResetLines =
    "Reset Velavision failed\nVelavision:OpenConnection failed in USB commnication\n";
constexpr const char* kNoModeLine = "Velavision:OpenConnection failed in USB commnication\n";
constexpr const char* kOtherModeLine = "SetMode 1 != current mode 0\n";
constexpr const char* kRefusedRegionLine = "SetInkRegion failed!!\n";
constexpr const char* kNoInformationLine = "GetPadInfoReport return false rpt size 65!!\n";
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

constexpr HidCall kGet = HidCall::GetFeature;
constexpr HidCall kSet = HidCall::SendFeature;
const SetUpFault kSetUpFaults[] = {
    {"ResetOfNoBytes", kGet, 1, kNothing},
    {"FailedReset", kGet, 1, kError, 0, kNoResetLines, 1, 0, kRegionBefore, 0, 0},
    {"ModeThatIsNotTaken", kSet, 1, kNothing, 1, kOtherModeLine, 6, 0},
    {"ModeThatIsRefused", kSet, 1, kError, 1, kOtherModeLine, 6, 0},
    {"ModeOfNoBytes", kGet, 2, kNothing, 0, kNoModeLine, 3, 1, kRegionBefore, 0, 0},
    {"UnreadableMode", kGet, 2, kError, 1, kOtherModeLine},
    {"CutMode", kGet, 2, cutTo(1), 1, kOtherModeLine},
    {"RegionOfNoBytes", kGet, 3, kNothing, 1, "", 6, 1, kEmptyRegion},
    {"UnreadableRegion", kGet, 3, kError, 1, "", 6, 1, kEmptyRegion},
    {"HalfARegion", kGet, 3, cutTo(9), 1, "", 6, 1, kHalfRegion},
    {"RegionThatIsNotTaken", kSet, 2, kNothing, 1, "", 6, 1, kRegionBefore},
    {"RegionThatIsRefused", kSet, 2, kError, 1, kRefusedRegionLine, 6, 1, kRegionBefore},
    {"InformationOfNoBytes", kGet, 4, kNothing, 1, "", 6, 1, kRegionAfter, 0, kNan},
    {"UnreadableInformation", kGet, 4, kError, 1, kNoInformationLine, 6, 1, kRegionAfter, 0, 0},
    {"CutInformation", kGet, 4, cutTo(9), 1, "", 6, 1, kRegionAfter, 1300, kNan},
};

class VisionSetUpTest : public VisionTest, public testing::WithParamInterface<SetUpFault> {};

TEST_P(VisionSetUpTest, GoesOnOrFails) {
  const SetUpFault& param = GetParam();
  plug(model);
  VisionPad::InkRegion region{};
  std::ranges::copy(hex(kRegionBefore), region.begin());
  model->setInkRegion(region);
  bus.fail(param.call, param.fault, param.nth);
  EXPECT_EQ(writtenByOpen(param.result), (Written{"", param.lines}));
  EXPECT_EQ(bus.calls({kGet, kSet}).size(), param.requests);
  bus.withModel(port, [&](PadModel&) {
    EXPECT_EQ(model->mode(), param.mode);
    EXPECT_EQ(Bytes(model->inkRegion().begin(), model->inkRegion().end()), hex(param.region, 33));
  });
  int ends[6] = {9, 9, 9, 9, 9, 9};
  EXPECT_TRUE(driver.GetDataRanges(&ends[0], &ends[1], &ends[2], &ends[3], &ends[4], &ends[5]));
  EXPECT_EQ(ends[1], param.maxX);
  EXPECT_THAT(driver.GetPhysicalX(), testing::NanSensitiveDoubleEq(param.width));
  if (param.result == 0)
    expectClosableAfterFailedOpen();
  else
    EXPECT_TRUE(waitForThreads(3));
}

INSTANTIATE_TEST_SUITE_P(Faults, VisionSetUpTest, testing::ValuesIn(kSetUpFaults),
                         [](const auto& test) { return std::string(test.param.name); });

// Before the open and after the close alike.
void expectEveryRequestFails(velavision& driver) {
  unsigned char mode = 9;
  InkRegion region{};
  region.bFlag1 = 9;
  DevicePadInfo info{};
  info.nMinX = 9;
  char serial[16] = "unchanged";
  int ends[6] = {9, 9, 9, 9, 9, 9};
  EXPECT_FALSE(driver.ResetVelaVisionDevice());
  EXPECT_EQ(driver.SetMode(1), 0);
  EXPECT_EQ(driver.GetMode(&mode), -1);
  EXPECT_EQ(mode, 9);
  EXPECT_EQ(driver.GetInkRegion(&region), 0);
  EXPECT_EQ(region.bFlag1, 9);
  EXPECT_EQ(driver.SetInkRegion(region), 0);
  EXPECT_EQ(driver.GetPadInfo(&info), 0);
  EXPECT_EQ(info.nMinX, 9);
  EXPECT_FALSE(driver.ClearInkRegion());
  EXPECT_FALSE(driver.GetSerialNumber(serial));
  EXPECT_STREQ(serial, "unchanged");
  EXPECT_FALSE(driver.GetDataRanges(&ends[0], &ends[1], &ends[2], &ends[3], &ends[4], &ends[5]));
  EXPECT_THAT(ends, Each(9));
}

TEST_F(VisionTest, EveryRequestFailsWhileNotOpenWithoutReachingThePad) {
  plug(model);
  for (const bool hasBeenOpen : {false, true}) {
    if (hasBeenOpen) driver.OpenConnection(recordPen);
    driver.CloseConnection();
    bus.clearLog();
    EXPECT_EQ(writtenBy([&] { expectEveryRequestFails(driver); }), kNothingWritten);
    EXPECT_TRUE(bus.calls().empty());
  }
}

TEST_F(VisionTest, ScreenResourcesAreTheseInThisOrder) {
  struct Expected {
    const char* name;
    int id;
  };
  constexpr Expected kExpected[] = {
      {"SAN_R_13", 0},       {"SAN_B_13", 1},  {"SAN_R_16", 2},  {"SAN_B_16", 3},
      {"SAN_R_20", 4},       {"SAN_B_20", 5},  {"SAN_R_24", 6},  {"SAN_B_24", 7},
      {"SAN_R_32", 8},       {"SAN_B_32", 9},  {"MON_B_08", 10}, {"MON_B_09", 11},
      {"MON_B_10", 12},      {"MON_B_12", 13}, {"MON_R_13", 14}, {"MON_B_15", 15},
      {"MON_B_16", 16},      {"MON_B_17", 17}, {"MON_B_18", 18}, {"MON_B_48", 19},
      {"COM_B_18", 20},      {"COM_B_24", 21}, {"NUM_0", 10},    {"NUM_1", 1},
      {"NUM_2", 2},          {"NUM_3", 3},     {"NUM_4", 4},     {"NUM_5", 5},
      {"NUM_6", 6},          {"NUM_7", 7},     {"NUM_8", 8},     {"NUM_9", 9},
      {"FUN_BACKSPACE", 11}, {"FUN_SEC", 30},  {"FUN_OK", 40},   {"FUN_CANCEL", 50},
      {"CAPTION", 19},       {"CONTENT", 20},  {"IMAGE", 60},
  };
  const auto& resources = driver.Resources();
  ASSERT_EQ(resources.size(), 39U);
  ASSERT_EQ(std::size(kExpected), 39U);
  for (std::size_t i = 0; i < resources.size(); ++i) {
    EXPECT_STREQ(resources[i].name, kExpected[i].name);
    EXPECT_EQ(resources[i].id, kExpected[i].id) << resources[i].name;
  }
}

TEST_F(VisionTest, ResetSucceedsUnlessTheReadIsAnError) {
  openModel();
  EXPECT_TRUE(driver.ResetVelaVisionDevice());
  EXPECT_EQ(bus.calls(), (Calls{got("03", 17)}));
  answer(0);
  EXPECT_TRUE(driver.ResetVelaVisionDevice());
  answer(-1);
  EXPECT_FALSE(driver.ResetVelaVisionDevice());
}

TEST_F(VisionModeTest, SetModeGivesTheEnginesResult) {
  openModel();
  EXPECT_EQ(driver.SetMode(0xC9), 17);
  EXPECT_EQ(bus.calls(), (Calls{sent("04 C9", 17)}));
  for (const int result : {-1, 0}) {
    take(result);
    EXPECT_EQ(driver.SetMode(1), result);
  }
}

TEST_F(VisionModeTest, GetModeGivesTheEnginesResultAndTheMode) {
  openModel();
  driver.SetMode(0xC9);
  bus.clearLog();
  EXPECT_EQ(driver.GetMode(nullptr), -1);
  unsigned char mode = 0;
  EXPECT_EQ(driver.GetMode(&mode), 17);
  EXPECT_EQ(mode, 0xC9);
  EXPECT_EQ(bus.calls(), (Calls{got("04 00", 17)}));
  answer(-1);
  EXPECT_EQ(driver.GetMode(&mode), -1);
  EXPECT_EQ(mode, 0xC9);  // unchanged
  for (const int bytes : {0, 1}) {
    mode = 9;
    cut(bytes);
    EXPECT_EQ(driver.GetMode(&mode), bytes);
    EXPECT_EQ(mode, 0);
  }
}

TEST_F(VisionInkRegionTest, RecordIsPackedInThisOrder) {
  EXPECT_EQ(sizeof(InkRegion), 19U);
  EXPECT_EQ(offsetof(InkRegion, bFlag1), 0U);
  EXPECT_EQ(offsetof(InkRegion, bFlag2), 1U);
  EXPECT_EQ(offsetof(InkRegion, bFlag3), 2U);
  EXPECT_EQ(offsetof(InkRegion, wWord4), 3U);
  EXPECT_EQ(offsetof(InkRegion, wWord3), 5U);
  EXPECT_EQ(offsetof(InkRegion, wWord2), 7U);
  EXPECT_EQ(offsetof(InkRegion, wWord1), 9U);
  EXPECT_EQ(offsetof(InkRegion, bByte1), 11U);
  EXPECT_EQ(offsetof(InkRegion, bByte2), 12U);
  EXPECT_EQ(offsetof(InkRegion, bByte3), 13U);
  EXPECT_EQ(offsetof(InkRegion, bByte4), 14U);
  EXPECT_EQ(offsetof(InkRegion, wByte5), 15U);
  EXPECT_EQ(offsetof(InkRegion, wScaled), 17U);
}

TEST_F(VisionInkRegionTest, EveryFieldIsReadFromItsPlaceAndZeroWhenItWasNotSent) {
  scripted->replies[17] = hex("11 80 11 12 21 22 31 32 41 42 51 52 53 54 55 01 F4 77 77", 34);
  openScripted();
  InkRegion read = region();
  EXPECT_EQ(bus.calls(), (Calls{got("11", 34)}));
  // The record is packed; + makes a copy that can be referred to.
  EXPECT_EQ(+read.wWord1, 0x1112);
  EXPECT_EQ(+read.wWord2, 0x2122);
  EXPECT_EQ(+read.wWord3, 0x3132);
  EXPECT_EQ(+read.wWord4, 0x4142);
  EXPECT_EQ(read.bByte1, 0x51);
  EXPECT_EQ(read.bByte2, 0x52);
  EXPECT_EQ(read.bByte3, 0x53);
  EXPECT_EQ(read.bByte4, 0x54);
  EXPECT_EQ(+read.wByte5, 0x0055);
  // 0xF401 / 100 = 624 = 0x0270, its bytes swapped
  EXPECT_EQ(+read.wScaled, 0x7002);
  for (const int bytes : {0, 1}) {
    cut(bytes);
    const InkRegion none{};
    read = region();
    EXPECT_EQ(std::memcmp(&read, &none, sizeof none), 0);
  }
  cut(9);
  read = region();
  EXPECT_EQ(+read.wWord4, 0x4100);
  EXPECT_EQ(read.bByte1, 0);
  cut(16);
  EXPECT_EQ(+region().wScaled, 0);  // 0x01 / 100
}

TEST_F(VisionInkRegionTest, ReadFlagsAreBitsSevenSixAndFour) {
  openModel();
  const auto flags = [&](std::uint8_t byte) {
    bus.withModel(port, [&](PadModel&) { model->setInkRegion({byte}); });
    const InkRegion read = region();
    return std::vector<int>{read.bFlag1, read.bFlag2, read.bFlag3};
  };
  EXPECT_THAT(flags(0x80), ElementsAre(1, 0, 0));
  EXPECT_THAT(flags(0x40), ElementsAre(0, 1, 0));
  EXPECT_THAT(flags(0x10), ElementsAre(0, 0, 1));
  EXPECT_THAT(flags(0x2F), ElementsAre(0, 0, 0));
  EXPECT_THAT(flags(0xFF), ElementsAre(1, 1, 1));
}

TEST_F(VisionInkRegionTest, ScaledValueIsNotWhatWasSet) {
  openModel();
  const auto scaled = [&](std::uint8_t byte15, std::uint8_t byte16) {
    bus.withModel(port, [&](PadModel&) {
      model->setInkRegion({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, byte15, byte16});
    });
    return region().wScaled;
  };
  EXPECT_EQ(scaled(0xFF, 0xFF), 0x8F02);  // 65535 / 100 = 655 = 0x028F
  EXPECT_EQ(scaled(0x64, 0x00), 0x0100);  // 100 / 100
  EXPECT_EQ(scaled(0x63, 0x00), 0x0000);  // 99 / 100
}

TEST_F(VisionInkRegionTest, EveryFieldIsSentAtItsPlace) {
  openModel();
  const InkRegion region{.bFlag1 = 0,
                         .bFlag2 = 0,
                         .bFlag3 = 0,
                         .wWord4 = 0x4142,
                         .wWord3 = 0x3132,
                         .wWord2 = 0x2122,
                         .wWord1 = 0x1112,
                         .bByte1 = 0x51,
                         .bByte2 = 0x52,
                         .bByte3 = 0x53,
                         .bByte4 = 0x54,
                         .wByte5 = 0x6655,
                         .wScaled = 700};
  EXPECT_EQ(driver.SetInkRegion(region), 1);
  // 70000 cut to 16 bits is 0x1170.
  EXPECT_EQ(bus.calls(), (Calls{sent("11 00 11 12 21 22 31 32 41 42 51 52 53 54 55 11 70", 34)}));
}

TEST_F(VisionInkRegionTest, AnyByteButZeroSetsAFlag) {
  openModel();
  for (const auto& [flag, value] : {std::pair{&InkRegion::bFlag1, std::uint8_t{2}},
                                    {&InkRegion::bFlag2, std::uint8_t{0x80}},
                                    {&InkRegion::bFlag3, std::uint8_t{0xFF}}}) {
    InkRegion region{};
    region.*flag = value;
    driver.SetInkRegion(region);
  }
  EXPECT_EQ(bus.calls(), (Calls{sent("11 80", 34), sent("11 40", 34), sent("11 10", 34)}));
}

TEST_F(VisionInkRegionTest, SetSucceedsUnlessTheSendIsAnError) {
  openModel();
  take(0);
  EXPECT_EQ(driver.SetInkRegion({}), 1);
  take(-1);
  EXPECT_EQ(driver.SetInkRegion({}), 0);
}

TEST_F(VisionInkRegionTest, ReadErrorIsGivenBackWithNothingWritten) {
  openModel();
  for (const int error : {-1, -7}) {
    answer(error);
    EXPECT_EQ(+region(error).wByte5, 0xEEEE);
  }
  bus.clearLog();
  EXPECT_EQ(driver.GetInkRegion(nullptr), 0);
  EXPECT_TRUE(bus.calls().empty());
}

std::vector<int> rangesOf(velavision& driver) {
  std::vector<int> ends(6, 9);
  EXPECT_TRUE(driver.GetDataRanges(&ends[0], &ends[1], &ends[2], &ends[3], &ends[4], &ends[5]));
  return ends;
}

TEST_F(VisionPadInfoTest, EveryFieldIsReadFromItsPlaceAndZeroWhenItWasNotSent) {
  scripted->replies[12] =
      hex("0C 81 02 83 04 85 06 07 08 09 0A 0B 0C FF FF FF FF 00 00 00 02"
          " FF FF 00 04 00 03 00 02 77 77",
          65);
  openScripted();
  DevicePadInfo info{};
  EXPECT_EQ(driver.GetPadInfo(&info), 1);
  EXPECT_EQ(bus.calls(), (Calls{got("0C", 65)}));
  EXPECT_EQ(info.nMaxX, 0x8102);
  EXPECT_EQ(info.nMaxY, 0x8304);
  EXPECT_EQ(info.nMaxZ, 0x8506);
  EXPECT_EQ(info.nMinX, 0x0708);
  EXPECT_EQ(info.nMinY, 0x090A);
  EXPECT_EQ(info.nMinZ, 0x0B0C);
  EXPECT_EQ(info.dRatio, 2147483647.5);  // 4294967295 / 2
  EXPECT_EQ(info.dPhysicalX, 16383.75);  // 65535 / 4
  EXPECT_EQ(info.dPhysicalY, 1.5);
  EXPECT_THAT(rangesOf(driver), ElementsAre(0x0708, 0x8102, 0x090A, 0x8304, 0x0B0C, 0x8506));
  EXPECT_EQ(driver.GetPhysicalX(), 16383.75);
  EXPECT_EQ(driver.GetPhysicalY(), 1.5);
  cut(1);
  EXPECT_EQ(driver.GetPadInfo(&info), 1);
  EXPECT_EQ(info.nMaxX, 0);
  EXPECT_EQ(info.nMinZ, 0);
  EXPECT_TRUE(std::isnan(info.dRatio));
  EXPECT_TRUE(std::isnan(info.dPhysicalY));
  cut(12);
  EXPECT_EQ(driver.GetPadInfo(&info), 1);
  EXPECT_EQ(info.nMinZ, 0x0B00);
}

TEST_F(VisionPadInfoTest, ZeroDivisorsGiveWhatDivisionGives) {
  scripted->replies[12] = hex(
      "0C 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 00 00 05 00 00", 65);
  openScripted();
  DevicePadInfo info{};
  EXPECT_EQ(driver.GetPadInfo(&info), 1);
  EXPECT_EQ(info.dRatio, std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::isnan(info.dPhysicalX));
  EXPECT_EQ(info.dPhysicalY, std::numeric_limits<double>::infinity());
}

TEST_F(VisionPadInfoTest, ReadErrorIsReportedAndReturnedWithNothingWritten) {
  openModel();
  DevicePadInfo info{};
  info.nMinX = 9;
  answer(-1);
  EXPECT_EQ(writtenBy(-1, [&] { return driver.GetPadInfo(&info); }),
            (Written{"", "GetPadInfoReport return false rpt size 65!!\n"}));
  EXPECT_EQ(info.nMinX, 9);
  answer(0);
  EXPECT_EQ(writtenBy(1, [&] { return driver.GetPadInfo(&info); }), kNothingWritten);
  EXPECT_EQ(info.nMinX, 0);
  bus.clearLog();
  EXPECT_EQ(driver.GetPadInfo(nullptr), 0);
  EXPECT_TRUE(bus.calls().empty());
}

// The values read at open are used, whatever the pad reports later.
TEST_F(VisionPadInfoTest, RangesAndSizeAreThoseReadAtOpen) {
  openModel();
  bus.withModel(port, [&](PadModel&) {
    model->setPadInformation({{1, 2}, {3, 4}, {5, 6}, {7, 1}, {8, 1}, {9, 1}});
  });
  DevicePadInfo info{};
  EXPECT_EQ(driver.GetPadInfo(&info), 1);
  EXPECT_EQ(info.nMaxX, 2);
  EXPECT_THAT(rangesOf(driver), ElementsAre(0, 1300, 0, 1400, 0, 1023));
  EXPECT_EQ(driver.GetPhysicalX(), 4.5);
  EXPECT_EQ(driver.GetPhysicalY(), 2.8);
}

TEST_F(VisionSerialTest, SixteenRawBytesAndNothingBehindThem) {
  openModel();
  bus.withModel(port, [&](PadModel&) {
    model->setSerialNumber({0x41, 0x00, 0xFF, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4A, 0x4B, 0x4C,
                            0x4D, 0x4E, 0x4F, 0x50});
  });
  std::string serial(18, '~');
  EXPECT_TRUE(driver.GetSerialNumber(serial.data()));
  EXPECT_EQ(bus.calls(), (Calls{got("02", 34)}));
  EXPECT_EQ(serial, std::string_view("A\0\xFF"
                                     "DEFGHIJKLMNOP~~",
                                     18));
  // What the pad did not send is zero.
  for (const int bytes : {0, 1}) {
    cut(bytes);
    serial.assign(18, '~');
    EXPECT_TRUE(driver.GetSerialNumber(serial.data()));
    EXPECT_EQ(serial, std::string(16, '\0') + "~~");
  }
  cut(4);
  EXPECT_TRUE(driver.GetSerialNumber(serial.data()));
  EXPECT_EQ(serial, std::string("A\0\xFF", 3) + std::string(13, '\0') + "~~");
}

TEST_F(VisionSerialTest, NullAndAReadErrorFailInSilenceWithNothingWritten) {
  openModel();
  EXPECT_EQ(writtenBy(false, [&] { return driver.GetSerialNumber(nullptr); }), kNothingWritten);
  EXPECT_TRUE(bus.calls().empty());
  char serial[16] = "unchanged";
  answer(-1);
  EXPECT_EQ(writtenBy(false, [&] { return driver.GetSerialNumber(serial); }), kNothingWritten);
  EXPECT_STREQ(serial, "unchanged");
}

TEST_F(VisionTest, OnlyAResultOfZeroIsAClearThatFailsAndIsReported) {
  openModel();
  const auto clear = [&] { return driver.ClearInkRegion(); };
  EXPECT_EQ(writtenBy(true, clear), kNothingWritten);
  EXPECT_EQ(bus.calls(), (Calls{sent("12", 17)}));
  take(0);
  EXPECT_EQ(writtenBy(false, clear), (Written{"", "ClearInkRegion return false\n"}));
  take(-1);
  EXPECT_EQ(writtenBy(true, clear), kNothingWritten);
}

TEST_F(VisionTest, AKeepAliveIsSentAfterTenThousandTicksOfProcessorTime) {
  openModel();
  EXPECT_TRUE(time.waitForSleeps(500, 1));  // the processing loop has begun
  time.stopProcessorTime(10'000);
  EXPECT_TRUE(bus.waitForReturned(HidCall::SendFeature, 1));
  EXPECT_EQ(bus.calls(), (Calls{sent("1A", 17)}));
}

// Reports, and the samples that come of them, with sequence numbers relative to the first one.
struct Stream {
  const char* name;
  std::vector<const char*> reports;
  std::vector<Sample> samples;
  std::vector<std::uint32_t> timeStamps;
};

class VisionStreamTest : public VisionTest, public testing::WithParamInterface<Stream> {};

TEST_P(VisionStreamTest, IsDecoded) {
  openModel();
  for (const char* const report : GetParam().reports) send(report);
  EXPECT_TRUE(recorder.waitFor(GetParam().samples.size()));
  driver.CloseConnection();
  std::vector<Sample> samples = recorder.samples();
  const unsigned first = samples.empty() ? 0 : samples.front().sequence;
  for (Sample& sample : samples) sample.sequence = (sample.sequence - first) % 256;
  EXPECT_EQ(samples, GetParam().samples);
  EXPECT_EQ(recorder.timeStamps(), GetParam().timeStamps);
}

INSTANTIATE_TEST_SUITE_P(
    Streams, VisionStreamTest,
    testing::Values(
        Stream{"BigEndianFields",
               {"01 80 12 34 80 01 03 FF 89 AB CD EF 99 99 99 99 99",
                "01 80 FF FF 00 02 FF FF 00 00 00 01 00 00 00 00 00"},
               {{0x1234, 0x8001, 0x03FF, 1, 0}, {65535, 2, 65535, 1, 1}},
               {0x89ABCDEF, 1}},
        Stream{"ALiftedPenWhereItLastTouched",
               {"01 80 00 64 00 C8 01 00 00 00 00 05", "01 80 00 00 00 00 00 00 00 00 00 06",
                "01 80 00 00 00 00 00 00 00 00 00 07"},
               {{100, 200, 256, 1, 0}, {100, 200, 0, 0, 1}, {100, 200, 0, 0, 2}},
               {5, 6, 7}},
        Stream{"ATouchUnlessXAndYAndPressureAreZero",
               {"01 80 00 01 00 00 00 00 00 00 00 00", "01 80 00 00 00 01 00 00 00 00 00 00",
                "01 80 00 00 00 00 00 01 00 00 00 00", "01 80 00 00 00 00 00 00 00 00 00 01"},
               {{1, 0, 0, 1, 0}, {0, 1, 0, 1, 1}, {0, 0, 1, 1, 2}, {0, 0, 0, 0, 3}},
               {0, 0, 0, 1}},
        Stream{"AnotherIdAsThePreviousSampleAgain",
               {"01 80 00 64 00 C8 01 00 00 00 00 05", "02 80 11 11 22 22 33 33 44 44 44 44",
                "00 80 00 00 00 00 00 00 00 00 00 00", "01 80 00 00 00 00 00 00 00 00 00 06",
                "FF 80 11 11 22 22 33 33 44 44 44 44"},
               {{100, 200, 256, 1, 0},
                {100, 200, 256, 1, 1},
                {100, 200, 256, 1, 2},
                {100, 200, 0, 0, 3},
                {100, 200, 0, 0, 4}},
               {5, 5, 5, 6, 6}},
        Stream{"AnotherIdBeforeAnySampleAsZero",
               {"02 80 11 11 22 22 33 33 44 44 44 44"},
               {{0, 0, 0, 0, 0}},
               {0}},
        Stream{"NoOtherKind",
               {"01 00 00 64 00 C8 01 00 00 00 00 05", "01 81 00 64 00 C8 01 00 00 00 00 05",
                "01 C0 00 64 00 C8 01 00 00 00 00 05", "80 01 00 64 00 C8 01 00 00 00 00 05",
                "01 80 00 01 00 02 00 03 00 00 00 04"},
               {{1, 2, 3, 1, 0}},
               {4}}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(VisionSampleTest, QueuedSampleIsARecordOfItsKind) {
  Event taken;
  recorder.reset([&] { EXPECT_TRUE(taken.wait()); });
  std::unique_ptr<tagVISDATA_RECORD> record;
  const auto next = [&] {
    EXPECT_TRUE(comesTrue([&] {
      record.reset(pVisionDataHandler->GetRecord(true));
      return record != nullptr;
    }));
    EXPECT_EQ(record->dwLength, 12U);
    EXPECT_EQ(record->pen.bKind, 1);
  };
  openModel();
  send("02 80 00 00 00 00 00 00 00 00 00 00");
  EXPECT_TRUE(recorder.waitFor(1));  // and blocks delivery, so that the next ones stay queued
  send("02 80 00 00 00 00 00 00 00 00 00 00");  // no sample yet
  next();
  EXPECT_EQ(record->pen.bTouch, 0);
  send("01 80 12 34 80 01 03 FF 89 AB CD EF");
  next();
  EXPECT_EQ(record->pen.bTouch, 1);
  EXPECT_EQ(record->pen.wX, 0x1234);
  EXPECT_EQ(record->pen.wY, 0x8001);
  EXPECT_EQ(record->pen.wPressure, 0x03FF);
  EXPECT_EQ(record->pen.dwTimeStamp, 0x89ABCDEFU);
  EXPECT_THAT(std::span(record->bytes).last(8), Each(0));
  taken.happen();
  driver.CloseConnection();  // the callback may still be waiting for `taken`
}

TEST_F(VisionSampleTest, LastTouchIsKeptOverConnections) {
  openModel();
  send("01 80 03 03 04 04 05 05 00 00 00 00");
  EXPECT_TRUE(recorder.waitFor(1));
  driver.CloseConnection();
  velavision next;
  ASSERT_EQ(next.OpenConnection(recordPen), 1);
  send("01 80 00 00 00 00 00 00 00 00 00 00");
  EXPECT_TRUE(recorder.waitFor(2));
  next.CloseConnection();
  const auto [x, y, pressure, touch, sequence] = recorder.samples().at(1);
  EXPECT_EQ(x, 0x0303);
  EXPECT_EQ(y, 0x0404);
  EXPECT_EQ(touch, 0);
}

}  // namespace
