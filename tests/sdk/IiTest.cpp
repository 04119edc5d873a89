#include "velaii.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

#include "support/PadTest.h"
#include "support/ScriptedPad.h"
#include "support/Written.h"

namespace {

using support::Bytes;
using support::called;
using support::Calls;
using support::Fault;
using support::hex;
using support::HidCall;
using support::kNothingWritten;
using support::recordPen;
using support::Sample;
using support::ScriptedPad;
using support::VirtualBus;
using support::Written;
using support::writtenBy;
using testing::ElementsAre;
using virtualpads::makePad;
using virtualpads::PadKind;
using virtualpads::PadModel;

constexpr std::uint16_t kProduct = 31;

class IiTest : public support::PadTest {
 protected:
  void openModel() {
    plug(makePad(PadKind::Ii));
    ASSERT_EQ(driver.OpenConnection(recordPen), 1);
  }

  void openScripted() {
    plug(pad);
    ASSERT_EQ(driver.OpenConnection(recordPen), 1);
  }

  std::shared_ptr<ScriptedPad> pad = std::make_shared<ScriptedPad>(kProduct);
  velaii driver;
};

using IiSampleTest = IiTest;
using IiInformationTest = IiTest;
using IiSerialTest = IiTest;

TEST_F(IiTest, ClearInkingSucceedsWithoutAskingThePad) {
  openModel();
  bus.clearLog();
  EXPECT_TRUE(driver.ClearInking());
  EXPECT_TRUE(bus.calls().empty());
  driver.CloseConnection();
}

TEST_F(IiSampleTest, TouchIsBitZeroOfTheSecondByteAlone) {
  openScripted();
  send("00 01 01 00 00 00 00 00 00 00 00");
  send("01 FE 02 00 00 00 00 00 00 00 00");
  send("00 FF 03 00 00 00 00 00 00 00 00");
  send("FF 00 04 00 00 00 00 00 00 00 00");
  EXPECT_TRUE(recorder.waitFor(4));
  driver.CloseConnection();
  const std::vector<Sample> samples = recorder.samples();
  EXPECT_EQ(samples.at(0).touch, 1);
  EXPECT_EQ(samples.at(1).touch, 0);
  EXPECT_EQ(samples.at(2).touch, 1);
  EXPECT_EQ(samples.at(3).touch, 0);
}

TEST_F(IiSampleTest, SequenceGoesOnInTheNextConnection) {
  openScripted();
  send("00 01 00 00 00 00 00 00 00 00 00");
  EXPECT_TRUE(recorder.waitFor(1));
  driver.CloseConnection();
  velaii next;
  ASSERT_EQ(next.OpenConnection(recordPen), 1);
  send("00 01 00 00 00 00 00 00 00 00 00");
  EXPECT_TRUE(recorder.waitFor(2));
  next.CloseConnection();
  const unsigned first = recorder.samples().at(0).sequence;
  EXPECT_EQ(recorder.samples().at(1).sequence, first == 127 ? 1 : first + 1);
}

// Sends a report with the pen up, then others with incomplete ones between them, and prints the
// sequence numbers of the samples that arrive.
[[noreturn]] void printSequences() {
  VirtualBus& bus = VirtualBus::instance();
  bus.setReadTimeout(std::chrono::milliseconds(3));
  const VirtualBus::Port port = bus.plug(std::make_shared<ScriptedPad>(kProduct));
  velaii driver;
  driver.OpenConnection(recordPen);
  bus.sendWhenRoom(port, hex("00 00 00 00 00 00 00 00 00 00 00"));
  for (int i = 0; i < 4; ++i) {
    bus.sendWhenRoom(port, hex("00 01 00 00 00 00 00 00 00 00"));
    bus.sendWhenRoom(port, hex("00 01 00 00 00 00 00 00 00 00 00"));
  }
  support::penRecorder().waitFor(4);
  driver.CloseConnection();
  for (const Sample& sample : support::penRecorder().samples())
    std::fprintf(stderr, "%u ", sample.sequence);
  std::exit(0);
}

// In a separate process, since the numbers continue over all connections of a process. GoogleTest
// forks it before all other tests.
TEST(IiSequenceDeathTest, StartsAtOneAndCountsEveryCompleteReport) {
  EXPECT_EXIT(printSequences(), testing::ExitedWithCode(0), "^2 3 4 5 $");
}

TEST_F(IiInformationTest, RequestIsReportTenWithFiftyFiveBytes) {
  openModel();
  bus.clearLog();
  PAD_INFO_REPORT info{};
  EXPECT_TRUE(driver.GetPadInfo(&info));
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::GetFeature, 55, 55, hex("0A", 55))}));
  driver.CloseConnection();
}

TEST_F(IiInformationTest, EveryFieldComesFromItsPlace) {
  pad->replies[10] =
      hex("0A 02 01 04 03 06 05 08 07 09 0B 0A 0D 0C 0E 78 56 34 12 FE FF FF FF"
          " 23 84 26 25 28 27 2A 29 2C 2B 2E 2D 30 2F 32 31"
          " 34 33 36 35 38 37 3A 39 5A 5A 5A 5A 5A 5A 5A 5A");
  openScripted();
  PAD_INFO_REPORT info{};
  info.bReportId = 0x77;
  EXPECT_TRUE(driver.GetPadInfo(&info));
  driver.CloseConnection();
  EXPECT_EQ(info.bReportId, 0x77);  // stays the caller's
  // The record is packed; + makes a copy that can be referred to.
  EXPECT_EQ(+info.wDesc1, 0x0102);
  EXPECT_EQ(+info.wDesc2, 0x0304);
  EXPECT_EQ(+info.wDesc3, 0x0506);
  EXPECT_EQ(+info.wDesc4, 0x0708);
  EXPECT_EQ(info.bDesc1, 0x09);
  EXPECT_EQ(+info.wDesc5, 0x0A0B);
  EXPECT_EQ(+info.wDesc6, 0x0C0D);
  EXPECT_EQ(info.bDesc2, 0x0E);
  EXPECT_EQ(+info.lDesc1, 0x12345678L);
  EXPECT_EQ(+info.lDesc2, -2L);
  EXPECT_EQ(+info.wExtX, 0x8423);
  EXPECT_EQ(+info.wExtXDiv, 0x2526);
  EXPECT_EQ(+info.wExtY, 0x2728);
  EXPECT_EQ(+info.wExtYDiv, 0x292A);
  EXPECT_EQ(+info.wOff1X, 0x2B2C);
  EXPECT_EQ(+info.wOff1XDiv, 0x2D2E);
  EXPECT_EQ(+info.wOff1Y, 0x2F30);
  EXPECT_EQ(+info.wOff1YDiv, 0x3132);
  EXPECT_EQ(+info.wOff2X, 0x3334);
  EXPECT_EQ(+info.wOff2XDiv, 0x3536);
  EXPECT_EQ(+info.wOff2Y, 0x3738);
  EXPECT_EQ(+info.wOff2YDiv, 0x393A);
}

TEST_F(IiInformationTest, RecordIsPackedInTheOrderOfTheReport) {
  // As the report up to the two values, which have 64 bits each in the record.
  EXPECT_EQ(offsetof(PAD_INFO_REPORT, wDesc1), 1U);
  EXPECT_EQ(offsetof(PAD_INFO_REPORT, lDesc1), 15U);
  EXPECT_EQ(offsetof(PAD_INFO_REPORT, lDesc2), 23U);
  EXPECT_EQ(offsetof(PAD_INFO_REPORT, wExtX), 31U);
  EXPECT_EQ(offsetof(PAD_INFO_REPORT, wOff2YDiv), 53U);
  EXPECT_EQ(sizeof(PAD_INFO_REPORT), 55U);
}

TEST_F(IiInformationTest, NullIsRefusedWithoutARequest) {
  openModel();
  bus.clearLog();
  EXPECT_FALSE(driver.GetPadInfo(nullptr));
  EXPECT_TRUE(bus.calls().empty());
  driver.CloseConnection();
}

// The reply of a pad with these numbers from byte 23 on.
Bytes informationWith(std::string_view numbers) {
  Bytes reply = hex("0A", 23);
  const Bytes rest = hex(numbers, 32);
  reply.insert(reply.end(), rest.begin(), rest.end());
  return reply;
}

TEST_F(IiInformationTest, PhysicalSizeIsTheOverallSizeLessTwoDeductions) {
  // Width 4/1 - 1/4 - 1/8, height 1000/100 - 3/2 - 1/16.
  pad->replies[10] = informationWith(
      "04 00 01 00  E8 03 64 00  01 00 04 00  03 00 02 00  01 00 08 00  01 00 10 00");
  openScripted();
  EXPECT_EQ(driver.GetPhysicalX(), 3.625);
  EXPECT_EQ(driver.GetPhysicalY(), 8.4375);
  driver.CloseConnection();
}

TEST_F(IiInformationTest, PhysicalSizeIsAskedOfThePadEachTime) {
  pad->replies[10] = informationWith("02 00 01 00  05 00 01 00");
  openScripted();
  EXPECT_EQ(driver.GetPhysicalX(), 2.0);
  EXPECT_EQ(driver.GetPhysicalY(), 5.0);
  bus.withModel(port,
                [&](PadModel&) { pad->replies[10] = informationWith("03 00 01 00  07 00 01 00"); });
  EXPECT_EQ(driver.GetPhysicalX(), 3.0);
  EXPECT_EQ(driver.GetPhysicalY(), 7.0);
  EXPECT_EQ(bus.count(HidCall::GetFeature), 4);
  driver.CloseConnection();
}

TEST_F(IiInformationTest, ZeroDivisorsOfThePadAreHarmless) {
  // Width 1/0 - 0/0 - 0/0, height 0/0 - 1/0 - 1/0.
  pad->replies[10] = informationWith(
      "01 00 00 00  00 00 00 00  00 00 00 00  01 00 00 00  00 00 00 00  01 00 00 00");
  openScripted();
  EXPECT_EQ(driver.GetPhysicalX(), 4503599627370496.0);   // 2^52
  EXPECT_EQ(driver.GetPhysicalY(), -9007199254740992.0);  // -2^53
  driver.CloseConnection();
}

TEST_F(IiInformationTest, ExtentIsARatioLessTwoRatios) {
  EXPECT_EQ(driver.CalcExtent(4, 1, 1, 4, 1, 8), 3.625);
  EXPECT_EQ(driver.CalcExtent(0, 1, 1, 2, 3, 4), -1.25);
  EXPECT_EQ(driver.CalcExtent(65535, 1, 0, 2, 0, 3), 65535.0);
  EXPECT_EQ(driver.CalcExtent(0, 65535, 0, 6, 0, 7), 0.0);
}

TEST_F(IiInformationTest, ZeroDivisorCountsAsEpsilon) {
  constexpr double kTwoTo52 = 4503599627370496.0;  // 1 / 2.220446049250313e-16
  EXPECT_EQ(driver.CalcExtent(1, 0, 0, 1, 0, 1), kTwoTo52);
  EXPECT_EQ(driver.CalcExtent(0, 1, 1, 0, 0, 1), -kTwoTo52);
  EXPECT_EQ(driver.CalcExtent(0, 1, 0, 1, 1, 0), -kTwoTo52);
  EXPECT_EQ(driver.CalcExtent(0, 0, 0, 0, 0, 0), 0.0);
}

TEST_F(IiInformationTest, ExtentIsEvaluatedLeftToRight) {
  // Near 2^52 doubles are a half apart: each quarter alone is lost, two together are not.
  EXPECT_EQ(driver.CalcExtent(1, 0, 1, 4, 1, 4), 4503599627370496.0);
}

TEST_F(IiSerialTest, RequestIsReportTwoWithSeventeenBytes) {
  openModel();
  bus.clearLog();
  _GUID serial{};
  EXPECT_TRUE(driver.GetSerialNumber(&serial));
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::GetFeature, 17, 17, hex("02", 17))}));
  driver.CloseConnection();
}

TEST_F(IiSerialTest, PadsBytesFollowTheKindsPrefixLastToFirst) {
  pad->replies[2] = hex("02 E1 E2 E3 E4 E5 E6 E7 E8 01 02 03 04 05 06 07 08");
  openScripted();
  // The second one shows that nothing is written past the first.
  _GUID serials[2]{};
  const _GUID& serial = serials[0];
  bool given = false;
  EXPECT_EQ(writtenBy([&] { given = driver.GetSerialNumber(serials); }), kNothingWritten);
  driver.CloseConnection();
  EXPECT_TRUE(given);
  EXPECT_EQ(serial.Data1, 0x33C72A14U);
  EXPECT_EQ(serial.Data2, 0xD348);
  EXPECT_EQ(serial.Data3, 0x42C6);
  EXPECT_THAT(serial.Data4, ElementsAre(8, 7, 6, 5, 4, 3, 2, 1));
  EXPECT_EQ(serials[1].Data1, 0U);
}

TEST_F(IiSerialTest, ReplyOfNoBytesIsReportedWithTheReportId) {
  openModel();
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, 0});
  _GUID serial{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
  bool given = true;
  EXPECT_EQ(writtenBy([&] { given = driver.GetSerialNumber(&serial); }),
            (Written{"GetFeature for R_SERIAL failed (2)\n", ""}));
  driver.CloseConnection();
  EXPECT_FALSE(given);
  EXPECT_EQ(serial.Data1, 1U);
  EXPECT_THAT(serial.Data4, ElementsAre(4, 5, 6, 7, 8, 9, 10, 11));
}

TEST_F(IiSerialTest, NullIsRefusedWithoutARequestOrALine) {
  openModel();
  bus.clearLog();
  bool given = true;
  EXPECT_EQ(writtenBy([&] { given = driver.GetSerialNumber(nullptr); }), kNothingWritten);
  EXPECT_FALSE(given);
  EXPECT_TRUE(bus.calls().empty());
  driver.CloseConnection();
}

}  // namespace
