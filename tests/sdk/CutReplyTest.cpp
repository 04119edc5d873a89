// Replies that are cut short, or that do not come at all: bytes that a pad did not send are zero.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <memory>

#include "support/PadTest.h"
#include "support/ScriptedPad.h"
#include "support/TimeControl.h"
#include "velaii.h"
#include "velainkusb.h"
#include "velavision.h"

namespace {

using support::Bytes;
using support::Fault;
using support::hex;
using support::HidCall;
using support::recordPen;
using support::ScriptedPad;

// Leaves bytes on the stack that a request with an uninitialised buffer would expose.
[[gnu::noinline]] void dirtyTheStack() {
  volatile unsigned char garbage[8192];
  for (volatile unsigned char& byte : garbage) byte = 0xCC;
}

class CutReplyTest : public support::PadTest {
 protected:
  CutReplyTest() { time.stopProcessorTime(0); }  // no keep-alive comes between the requests

  // Cuts the next reply to that many bytes; nothing beyond them may become visible.
  void cut(int bytes) {
    bus.fail(HidCall::GetFeature, {Fault::Kind::Short, bytes});
    dirtyTheStack();
  }

  // A record's fields of these sizes, which are in the machine's byte order, with their low bytes
  // first.
  static Bytes lowFirst(Bytes record, std::initializer_list<std::ptrdiff_t> sizes) {
    if constexpr (std::endian::native == std::endian::big) {
      auto field = record.begin();
      for (const std::ptrdiff_t size : sizes) {
        std::reverse(field, field + size);
        field += size;
      }
    }
    return record;
  }

  // The bytes after the kind's prefix.
  template <class Driver>
  static Bytes serialBytes(Driver& driver) {
    _GUID serial{};
    EXPECT_TRUE(driver.GetSerialNumber(&serial));
    return {std::begin(serial.Data4), std::end(serial.Data4)};
  }

  support::TimeControl time;
};

class IiCutReplyTest : public CutReplyTest {
 protected:
  IiCutReplyTest() {
    const auto pad = std::make_shared<ScriptedPad>(std::uint16_t{31});
    pad->replies[2] = hex("02 E1 E2 E3 E4 E5 E6 E7 E8 11 22 33 44 55 66 77 88");
    pad->replies[10] =
        hex("0A 02 01 04 03 06 05 08 07 09 0B 0A 0D 0C 0E 78 56 34 12 FE FF FF FF"
            " 23 84 26 25 28 27 2A 29 2C 2B 2E 2D 30 2F 32 31"
            " 34 33 36 35 38 37 3A 39 5A 5A 5A 5A 5A 5A 5A 5A");
    plug(pad);
    driver.OpenConnection(recordPen);
  }

  ~IiCutReplyTest() override { driver.CloseConnection(); }

  // The record's bytes after the id, which is the caller's.
  Bytes information(bool expected) {
    PAD_INFO_REPORT info;
    std::memset(&info, 0xEE, sizeof info);
    EXPECT_EQ(driver.GetPadInfo(&info), expected);
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&info);
    EXPECT_EQ(bytes[0], 0xEE);
    return lowFirst({bytes + 1, bytes + sizeof info},
                    {2, 2, 2, 2, 1, 2, 2, 1, 8, 8, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2});
  }

  velaii driver;
};

TEST_F(IiCutReplyTest, InformationHoldsWhatWasSentAndZeros) {
  cut(1);
  EXPECT_EQ(information(true), hex("", 54));
  cut(2);
  EXPECT_EQ(information(true), hex("02", 54));
  cut(15);
  EXPECT_EQ(information(true), hex("02 01 04 03 06 05 08 07 09 0B 0A 0D 0C 0E", 54));
  cut(17);
  EXPECT_EQ(information(true), hex("02 01 04 03 06 05 08 07 09 0B 0A 0D 0C 0E 78 56", 54));
  // Without its highest byte the second value is positive.
  cut(22);
  EXPECT_EQ(information(true),
            hex("02 01 04 03 06 05 08 07 09 0B 0A 0D 0C 0E 78 56 34 12 00 00 00 00"
                " FE FF FF",
                54));
  cut(24);
  EXPECT_EQ(information(true),
            hex("02 01 04 03 06 05 08 07 09 0B 0A 0D 0C 0E 78 56 34 12 00 00 00 00"
                " FE FF FF FF FF FF FF FF 23",
                54));
  cut(46);
  EXPECT_EQ(information(true),
            hex("02 01 04 03 06 05 08 07 09 0B 0A 0D 0C 0E 78 56 34 12 00 00 00 00"
                " FE FF FF FF FF FF FF FF 23 84 26 25 28 27 2A 29 2C 2B 2E 2D 30 2F 32 31"
                " 34 33 36 35 38 37 3A 00",
                54));
}

TEST_F(IiCutReplyTest, InformationOfNoBytesLeavesTheRecordAlone) {
  cut(0);
  EXPECT_EQ(information(false), Bytes(54, 0xEE));
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, 0});
  EXPECT_EQ(information(false), Bytes(54, 0xEE));
}

TEST_F(IiCutReplyTest, InformationErrorCountsAsSuccessWithZeros) {
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, -1});
  dirtyTheStack();
  EXPECT_EQ(information(true), hex("", 54));
}

TEST_F(IiCutReplyTest, SizeOfAPadThatDoesNotReportItIsZero) {
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, 0}, 1, 2);
  EXPECT_EQ(driver.GetPhysicalX(), 0.0);
  EXPECT_EQ(driver.GetPhysicalY(), 0.0);
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, -1}, 1, 2);
  EXPECT_EQ(driver.GetPhysicalX(), 0.0);
  EXPECT_EQ(driver.GetPhysicalY(), 0.0);
}

TEST_F(IiCutReplyTest, SerialNumberHoldsWhatWasSentAndZeros) {
  cut(1);
  EXPECT_EQ(serialBytes(driver), hex("", 8));
  cut(9);
  EXPECT_EQ(serialBytes(driver), hex("", 8));
  cut(12);
  EXPECT_EQ(serialBytes(driver), hex("00 00 00 00 00 33 22 11"));
  cut(16);
  EXPECT_EQ(serialBytes(driver), hex("00 77 66 55 44 33 22 11"));
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, -1});
  dirtyTheStack();
  EXPECT_EQ(serialBytes(driver), hex("", 8));
}

class InkCutReplyTest : public CutReplyTest {
 protected:
  InkCutReplyTest() {
    const auto pad = std::make_shared<ScriptedPad>(std::uint16_t{48});
    pad->replies[3] = hex("03 A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF");
    pad->replies[6] = hex("06 11 22 33 44 55 66 77 88");
    plug(pad);
    driver.OpenConnection(recordPen);
  }

  ~InkCutReplyTest() override { driver.CloseConnection(); }

  Bytes options() {
    tagOPTIONS block;
    std::memset(&block, 0xEE, sizeof block);
    EXPECT_EQ(driver.GetOptions(&block), 1);
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&block);
    return {bytes, bytes + sizeof block};
  }

  velainkusb driver;
};

TEST_F(InkCutReplyTest, OptionsHoldWhatWasSentAndZeros) {
  cut(1);
  EXPECT_EQ(options(), hex("", 16));
  cut(2);
  EXPECT_EQ(options(), hex("A0", 16));
  cut(16);
  EXPECT_EQ(options(), hex("A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE 00"));
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, -1});
  dirtyTheStack();
  EXPECT_EQ(options(), hex("", 16));
}

TEST_F(InkCutReplyTest, SerialNumberHoldsWhatWasSentAndZeros) {
  cut(1);
  EXPECT_EQ(serialBytes(driver), hex("", 8));
  cut(4);
  EXPECT_EQ(serialBytes(driver), hex("00 00 00 00 00 33 22 11"));
  cut(8);
  EXPECT_EQ(serialBytes(driver), hex("00 77 66 55 44 33 22 11"));
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, -1});
  dirtyTheStack();
  EXPECT_EQ(serialBytes(driver), hex("", 8));
}

class VisionCutReplyTest : public CutReplyTest {
 protected:
  VisionCutReplyTest() {
    pad->replies = {
        {2, hex("02 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F 20 77", 34)},
        {3, hex("03", 17)},
        {4, hex("04 01", 17)},
        {12, hex("0C 01 02 03 04 05 06 07 08 09 0A 0B 0C 00 00 00 05 00 00 00 02"
                 " 00 07 00 02 00 09 00 02",
                 65)},
        {17, hex("11 FF 11 12 21 22 31 32 41 42 51 52 53 54 55 88 13", 34)},
    };
    plug(pad);
    driver.OpenConnection(recordPen);
  }

  ~VisionCutReplyTest() override { driver.CloseConnection(); }

  Bytes serialBytes() {
    Bytes serial(18, 0xEE);
    EXPECT_TRUE(driver.GetSerialNumber(reinterpret_cast<char*>(serial.data())));
    return serial;
  }

  Bytes region() {
    InkRegion region;
    std::memset(&region, 0xEE, sizeof region);
    EXPECT_EQ(driver.GetInkRegion(&region), 1);
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&region);
    return lowFirst({bytes, bytes + sizeof region}, {1, 1, 1, 2, 2, 2, 2, 1, 1, 1, 1, 2, 2});
  }

  std::shared_ptr<ScriptedPad> pad = std::make_shared<ScriptedPad>(std::uint16_t{56});
  velavision driver;
};

TEST_F(VisionCutReplyTest, SerialNumberHoldsWhatWasSentAndZeros) {
  cut(0);
  EXPECT_EQ(serialBytes(), hex("00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 EE EE"));
  cut(1);
  EXPECT_EQ(serialBytes(), hex("00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 EE EE"));
  cut(9);
  EXPECT_EQ(serialBytes(), hex("11 12 13 14 15 16 17 18 00 00 00 00 00 00 00 00 EE EE"));
  cut(16);
  EXPECT_EQ(serialBytes(), hex("11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F 00 EE EE"));
}

TEST_F(VisionCutReplyTest, InkRegionHoldsWhatWasSentAndZeros) {
  cut(0);
  EXPECT_EQ(region(), hex("", 19));
  cut(1);
  EXPECT_EQ(region(), hex("", 19));
  // In the record's order, low bytes first; of word 4 the low byte is missing.
  cut(9);
  EXPECT_EQ(region(), hex("01 01 01 00 41 32 31 22 21 12 11", 19));
  // Of the scaled value the high byte is missing: 0x88 / 100 = 1, swapped.
  cut(16);
  EXPECT_EQ(region(), hex("01 01 01 42 41 32 31 22 21 12 11 51 52 53 54 55 00 00 01"));
  // 0x1388 / 100 = 50, swapped
  EXPECT_EQ(region(), hex("01 01 01 42 41 32 31 22 21 12 11 51 52 53 54 55 00 00 32"));
}

TEST_F(VisionCutReplyTest, PadInformationHoldsWhatWasSentAndZeros) {
  DevicePadInfo info{};
  cut(1);
  EXPECT_EQ(driver.GetPadInfo(&info), 1);
  EXPECT_EQ(info.nMaxX, 0);
  EXPECT_EQ(info.nMinZ, 0);
  EXPECT_TRUE(std::isnan(info.dRatio));
  EXPECT_TRUE(std::isnan(info.dPhysicalY));
  cut(12);
  EXPECT_EQ(driver.GetPadInfo(&info), 1);
  EXPECT_EQ(info.nMaxX, 0x0102);
  EXPECT_EQ(info.nMinZ, 0x0B00);
  EXPECT_TRUE(std::isnan(info.dRatio));
  cut(20);
  EXPECT_EQ(driver.GetPadInfo(&info), 1);
  EXPECT_EQ(info.dRatio, std::numeric_limits<double>::infinity());  // 5 / 0
  EXPECT_TRUE(std::isnan(info.dPhysicalX));
  cut(28);
  EXPECT_EQ(driver.GetPadInfo(&info), 1);
  EXPECT_EQ(info.dRatio, 2.5);
  EXPECT_EQ(info.dPhysicalX, 3.5);
  EXPECT_EQ(info.dPhysicalY, std::numeric_limits<double>::infinity());  // 9 / 0
}

TEST_F(VisionCutReplyTest, ModeIsZeroWhenItWasNotSent) {
  unsigned char mode = 9;
  cut(1);
  EXPECT_EQ(driver.GetMode(&mode), 1);
  EXPECT_EQ(mode, 0);
  cut(2);
  EXPECT_EQ(driver.GetMode(&mode), 2);
  EXPECT_EQ(mode, 1);
}

}  // namespace
