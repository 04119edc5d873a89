#include "velaii.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string_view>
#include <vector>

#include "support/OneDriverTest.h"

namespace {

using support::Bytes;
using support::Calls;
using support::got;
using support::hex;
using support::HidCall;
using support::kNothingWritten;
using support::Written;
using support::writtenBy;
using testing::ElementsAre;
using virtualpads::PadModel;

class IiTest : public support::OneDriverTest<velaii, 31> {
 protected:
  IiTest() {
    scripted->replies[2] = hex("02 E1 E2 E3 E4 E5 E6 E7 E8 11 22 33 44 55 66 77 88");
    scripted->replies[10] =
        hex("0A 02 01 04 03 06 05 08 07 09 0B 0A 0D 0C 0E 78 56 34 12 FE FF FF FF"
            " 23 84 26 25 28 27 2A 29 2C 2B 2E 2D 30 2F 32 31"
            " 34 33 36 35 38 37 3A 39 5A 5A 5A 5A 5A 5A 5A 5A");
  }

  // The record as the next reply leaves one that was full of EE.
  PAD_INFO_REPORT information(bool expected = true) {
    PAD_INFO_REPORT info;
    std::memset(&info, 0xEE, sizeof info);
    EXPECT_EQ(driver.GetPadInfo(&info), expected);
    EXPECT_EQ(info.bReportId, 0xEE);  // stays the caller's
    return info;
  }

  // The serial number's bytes after the kind's prefix.
  std::vector<int> serialBytes() {
    _GUID serial{};
    EXPECT_TRUE(driver.GetSerialNumber(&serial));
    return {std::begin(serial.Data4), std::end(serial.Data4)};
  }
};

using IiInformationTest = IiTest;
using IiSerialTest = IiTest;

bool isFilled(const PAD_INFO_REPORT& info, std::uint8_t value) {
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&info);
  return Bytes(bytes + 1, bytes + sizeof info) == Bytes(sizeof info - 1, value);
}

TEST_F(IiTest, ClearInkingSucceedsWithoutAskingThePad) {
  openScripted();
  EXPECT_TRUE(driver.ClearInking());
  EXPECT_TRUE(bus.calls().empty());
}

TEST_F(IiTest, TouchIsBitZeroOfTheSecondByteAlone) {
  openScripted();
  send("00 01 01 00 00 00 00 00 00 00 00");
  send("01 FE 02 00 00 00 00 00 00 00 00");
  send("00 FF 03 00 00 00 00 00 00 00 00");
  send("FF 00 04 00 00 00 00 00 00 00 00");
  EXPECT_TRUE(recorder.waitFor(4));
  std::vector<int> touches;
  for (const support::Sample& sample : recorder.samples()) touches.push_back(sample.touch);
  EXPECT_THAT(touches, ElementsAre(1, 0, 1, 0));
}

TEST_F(IiInformationTest, EveryFieldComesFromItsPlace) {
  openScripted();
  const PAD_INFO_REPORT info = information();
  EXPECT_EQ(bus.calls(), (Calls{got("0A", 55)}));
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

TEST_F(IiInformationTest, WhatThePadDidNotSendIsZero) {
  openScripted();
  cut(1);
  EXPECT_TRUE(isFilled(information(), 0));
  answer(-1);  // counts as success
  EXPECT_TRUE(isFilled(information(), 0));
  cut(2);
  EXPECT_EQ(+information().wDesc1, 0x0002);
  cut(17);
  PAD_INFO_REPORT info = information();
  EXPECT_EQ(info.bDesc2, 0x0E);
  EXPECT_EQ(+info.lDesc1, 0x5678L);
  EXPECT_EQ(+info.lDesc2, 0L);
  cut(22);
  info = information();
  EXPECT_EQ(+info.lDesc2, 0xFFFFFEL);  // positive without its highest byte
  EXPECT_EQ(+info.wExtX, 0);
  cut(46);
  info = information();
  EXPECT_EQ(+info.wOff2Y, 0x3738);
  EXPECT_EQ(+info.wOff2YDiv, 0x003A);
}

TEST_F(IiInformationTest, AReplyOfNoBytesAndANullPointerFailWithNothingWritten) {
  openScripted();
  answer(0);
  EXPECT_TRUE(isFilled(information(false), 0xEE));
  bus.clearLog();
  EXPECT_FALSE(driver.GetPadInfo(nullptr));
  EXPECT_TRUE(bus.calls().empty());
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
  scripted->replies[10] = informationWith(
      "04 00 01 00  E8 03 64 00  01 00 04 00  03 00 02 00  01 00 08 00  01 00 10 00");
  openScripted();
  EXPECT_EQ(driver.GetPhysicalX(), 3.625);
  EXPECT_EQ(driver.GetPhysicalY(), 8.4375);
}

TEST_F(IiInformationTest, PhysicalSizeIsAskedOfThePadEachTime) {
  openScripted();
  for (const auto& [numbers, width, height] :
       {std::tuple{"02 00 01 00  05 00 01 00", 2.0, 5.0}, {"03 00 01 00  07 00 01 00", 3.0, 7.0}}) {
    const Bytes information = informationWith(numbers);
    bus.withModel(port, [&](PadModel&) { scripted->replies[10] = information; });
    EXPECT_EQ(driver.GetPhysicalX(), width);
    EXPECT_EQ(driver.GetPhysicalY(), height);
  }
  EXPECT_EQ(bus.count(HidCall::GetFeature), 4);
  for (const int result : {0, -1}) {  // a pad that does not report it
    answer(result);
    EXPECT_EQ(driver.GetPhysicalX(), 0.0);
    answer(result);
    EXPECT_EQ(driver.GetPhysicalY(), 0.0);
  }
}

TEST_F(IiInformationTest, ZeroDivisorsOfThePadAreHarmless) {
  // Width 1/0 - 0/0 - 0/0, height 0/0 - 1/0 - 1/0.
  scripted->replies[10] = informationWith(
      "01 00 00 00  00 00 00 00  00 00 00 00  01 00 00 00  00 00 00 00  01 00 00 00");
  openScripted();
  EXPECT_EQ(driver.GetPhysicalX(), 4503599627370496.0);   // 2^52
  EXPECT_EQ(driver.GetPhysicalY(), -9007199254740992.0);  // -2^53
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
  // Evaluated left to right. Near 2^52 doubles are a half apart: each quarter alone is lost, two
  // together are not.
  EXPECT_EQ(driver.CalcExtent(1, 0, 1, 4, 1, 4), kTwoTo52);
}

TEST_F(IiSerialTest, PadsBytesFollowTheKindsPrefixLastToFirst) {
  openScripted();
  // The second one shows that nothing is written past the first.
  _GUID serials[2]{};
  const _GUID& serial = serials[0];
  EXPECT_EQ(writtenBy(true, [&] { return driver.GetSerialNumber(serials); }), kNothingWritten);
  EXPECT_EQ(bus.calls(), (Calls{got("02", 17)}));
  EXPECT_EQ(serial.Data1, 0x33C72A14U);
  EXPECT_EQ(serial.Data2, 0xD348);
  EXPECT_EQ(serial.Data3, 0x42C6);
  EXPECT_THAT(serial.Data4, ElementsAre(0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11));
  EXPECT_EQ(serials[1].Data1, 0U);
}

TEST_F(IiSerialTest, WhatThePadDidNotSendIsZero) {
  openScripted();
  for (const int bytes : {1, 9}) {
    cut(bytes);
    EXPECT_THAT(serialBytes(), ElementsAre(0, 0, 0, 0, 0, 0, 0, 0));
  }
  answer(-1);  // counts as success
  EXPECT_THAT(serialBytes(), ElementsAre(0, 0, 0, 0, 0, 0, 0, 0));
  cut(12);
  EXPECT_THAT(serialBytes(), ElementsAre(0, 0, 0, 0, 0, 0x33, 0x22, 0x11));
}

TEST_F(IiSerialTest, ReplyOfNoBytesIsReportedWithTheReportId) {
  openScripted();
  answer(0);
  _GUID serial{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
  EXPECT_EQ(writtenBy(false, [&] { return driver.GetSerialNumber(&serial); }),
            (Written{"GetFeature for R_SERIAL failed (2)\n", ""}));
  EXPECT_EQ(serial.Data1, 1U);
  EXPECT_THAT(serial.Data4, ElementsAre(4, 5, 6, 7, 8, 9, 10, 11));
}

TEST_F(IiSerialTest, NullIsRefusedWithoutARequestOrALine) {
  openScripted();
  EXPECT_EQ(writtenBy(false, [&] { return driver.GetSerialNumber(nullptr); }), kNothingWritten);
  EXPECT_TRUE(bus.calls().empty());
}

}  // namespace
