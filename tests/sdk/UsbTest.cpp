// The USB pad's driver: its reports, its fixed values, and its calls to hidapi.
#include "velausb.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "PenRecordQueue.h"
#include "support/PadTest.h"
#include "support/Patience.h"
#include "support/ScriptedPad.h"
#include "support/Written.h"
#include "virtualpads/PadModel.h"

namespace {

using support::called;
using support::Calls;
using support::comesTrue;
using support::Event;
using support::HidCall;
using support::kNothingWritten;
using support::recordPen;
using support::Sample;
using support::ScriptedPad;
using support::writtenBy;
using virtualpads::makePad;
using virtualpads::PadKind;

class UsbTest : public support::PadTest {
 protected:
  ~UsbTest() override { driver.CloseConnection(); }

  void open() {
    plug(makePad(PadKind::Usb));
    ASSERT_EQ(driver.OpenConnection(recordPen), 1);
  }

  velausb driver;
};

// Lifetime.

TEST_F(UsbTest, AsksHidapiForThisFromConstructionToDestruction) {
  plug(makePad(PadKind::Usb));
  bus.clearLog();
  {
    velausb other;
    EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Init)}));
    EXPECT_EQ(other.GetNumDevices(), 1);
    EXPECT_EQ(other.OpenConnection(recordPen), 1);
    send("20 5A 00 2D 00 01");
    EXPECT_TRUE(recorder.waitFor(1));
    EXPECT_TRUE(other.ClearInking());
    _GUID serial{};
    EXPECT_FALSE(other.GetSerialNumber(&serial));
    EXPECT_EQ(other.CloseConnection(), 0);
  }
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Init), called(HidCall::Enumerate, 0, 1),
                                called(HidCall::FreeEnumeration), called(HidCall::Open, 18, 1),
                                called(HidCall::SetNonblocking, 0), called(HidCall::Close),
                                called(HidCall::Exit)}));
}

TEST_F(UsbTest, ClosesTheDeviceAfterTheLastRead) {
  open();
  ASSERT_TRUE(bus.waitForReturned(HidCall::Read, 2));
  driver.CloseConnection();
  const Calls calls = bus.calls({HidCall::Read, HidCall::Close});
  EXPECT_EQ(calls.back(), called(HidCall::Close));
  EXPECT_EQ(calls.at(calls.size() - 2).call, HidCall::Read);
}

TEST_F(UsbTest, RunsThreeThreadsWhileConnected) {
  open();
  EXPECT_TRUE(waitForThreads(3));
  driver.CloseConnection();
  EXPECT_TRUE(waitForThreads(0));
}

TEST_F(UsbTest, WithoutAPadOpeningFailsInSilenceAndStartsNothing) {
  bus.clearLog();
  int result = 0;
  EXPECT_EQ(writtenBy([&] { result = driver.OpenConnection(recordPen); }), kNothingWritten);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(driver.OpenConnection(), -1);
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Open, 18, 0), called(HidCall::Open, 18, 0)}));
  EXPECT_TRUE(waitForThreads(0));
  EXPECT_EQ(pUSBDataHandler, nullptr);
}

TEST_F(UsbTest, APadThatCannotBeOpenedAnswersQueriesAndCloses) {
  plug(makePad(PadKind::Usb));
  bus.setAccessible(port, false);
  EXPECT_EQ(driver.OpenConnection(recordPen), -1);
  EXPECT_EQ(driver.GetNumDevices(), 1);
  EXPECT_EQ(driver.GetPhysicalX(), 3.685);
  EXPECT_EQ(driver.GetPhysicalY(), 2.23);
  EXPECT_TRUE(driver.ClearInking());
  bus.clearLog();
  EXPECT_EQ(driver.CloseConnection(), 0);
  EXPECT_EQ(bus.calls(), Calls{});
}

TEST_F(UsbTest, ClosingTwiceIsHarmless) {
  open();
  EXPECT_EQ(driver.CloseConnection(), 0);
  bus.clearLog();
  EXPECT_EQ(driver.CloseConnection(), 0);
  EXPECT_EQ(bus.calls(), Calls{});
}

TEST_F(UsbTest, TheOpenWithoutAHandlerDropsTheSamples) {
  plug(makePad(PadKind::Usb));
  ASSERT_EQ(driver.OpenConnection(), 1);
  send("20 5A 00 2D 00 01");
  EXPECT_TRUE(bus.waitUntilRead(port));
  driver.CloseConnection();
  EXPECT_EQ(recorder.count(), 0U);
}

TEST_F(UsbTest, TheOpenWithoutAHandlerKeepsTheOneGivenBefore) {
  EXPECT_EQ(driver.OpenConnection(recordPen), -1);
  plug(makePad(PadKind::Usb));
  ASSERT_EQ(driver.OpenConnection(), 1);
  send("20 5A 00 2D 00 01");
  EXPECT_TRUE(recorder.waitFor(1));
}

// Queries.

TEST_F(UsbTest, CountsItsOwnKindOnly) {
  EXPECT_EQ(driver.GetNumDevices(), 0);
  bus.plug(makePad(PadKind::Usb), 2);
  bus.plug(std::make_shared<ScriptedPad>(17));
  bus.plug(std::make_shared<ScriptedPad>(18, 1246));
  EXPECT_EQ(driver.GetNumDevices(), 2);
}

TEST_F(UsbTest, TheCountIsCutTo16Bits) {
  bus.plug(makePad(PadKind::Usb), 65'536 + 3);
  EXPECT_EQ(driver.GetNumDevices(), 3);
}

TEST_F(UsbTest, TheRangesAreFixed) {
  std::array<int, 6> got{};
  bus.clearLog();
  EXPECT_TRUE(driver.GetDataRanges(&got[0], &got[1], &got[2], &got[3], &got[4], &got[5]));
  EXPECT_EQ(got, (std::array{0, 32767, 0, 32767, 0, 127}));
  EXPECT_EQ(bus.calls(), Calls{});
}

TEST_F(UsbTest, TheRangesNeedAllSixTargets) {
  for (std::size_t missing = 0; missing < 6; ++missing) {
    std::array<int, 6> got{-1, -1, -1, -1, -1, -1};
    std::array<int*, 6> target{};
    for (std::size_t i = 0; i < 6; ++i) target[i] = i != missing ? &got[i] : nullptr;
    EXPECT_FALSE(
        driver.GetDataRanges(target[0], target[1], target[2], target[3], target[4], target[5]));
    EXPECT_EQ(got, (std::array{-1, -1, -1, -1, -1, -1})) << missing;
  }
}

TEST_F(UsbTest, TheSizeIsFixed) {
  EXPECT_EQ(driver.GetPhysicalX(), 3.685);
  EXPECT_EQ(driver.GetPhysicalY(), 2.23);
}

TEST_F(UsbTest, HasNoSerialNumberEvenWhileConnected) {
  open();
  _GUID serial{.Data1 = 1, .Data2 = 2, .Data3 = 3, .Data4 = {4, 5, 6, 7, 8, 9, 10, 11}};
  EXPECT_FALSE(driver.GetSerialNumber(&serial));
  EXPECT_FALSE(driver.GetSerialNumber(nullptr));
  EXPECT_EQ(serial.Data1, 1U);
  EXPECT_EQ(serial.Data2, 2);
  EXPECT_EQ(serial.Data3, 3);
  EXPECT_EQ(std::to_array(serial.Data4), (std::array<std::uint8_t, 8>{4, 5, 6, 7, 8, 9, 10, 11}));
}

TEST_F(UsbTest, ClearingInkSucceedsWithoutAPad) {
  EXPECT_TRUE(driver.ClearInking());
}

// Input reports.

// A sample without its number, which continues from test to test.
struct Pen {
  int x;
  int y;
  int pressure;
  int touch;
  bool operator==(const Pen&) const = default;
};

void PrintTo(const Pen& pen, std::ostream* out) {
  *out << "{" << pen.x << ", " << pen.y << ", " << pen.pressure << ", " << pen.touch << "}";
}

struct Report {
  std::string_view bytes;
  Pen pen;
};

class UsbStreamTest : public UsbTest {
 protected:
  std::vector<Pen> pens() {
    std::vector<Pen> all;
    for (const Sample& sample : recorder.samples()) {
      all.push_back({sample.x, sample.y, sample.pressure, sample.touch});
    }
    return all;
  }
};

class UsbReportTest : public UsbStreamTest, public testing::WithParamInterface<Report> {};

TEST_P(UsbReportTest, IsDecoded) {
  open();
  send("20 5A 00 2D 00 01");
  send(GetParam().bytes);
  ASSERT_TRUE(recorder.waitFor(2));
  EXPECT_EQ(pens(), (std::vector<Pen>{{0, 0, 1, 1}, GetParam().pen}));
}

INSTANTIATE_TEST_SUITE_P(
    X, UsbReportTest,
    testing::Values(Report{"20 5A 00 2D 00 00", {0, 0, 0, 1}},      // 90
                    Report{"20 5B 00 2D 00 00", {32, 0, 0, 1}},     // 91: 32.767
                    Report{"20 5C 00 2D 00 00", {65, 0, 0, 1}},     // 92: 65.534
                    Report{"20 59 00 2D 00 00", {0, 0, 0, 1}},      // 89: below
                    Report{"20 32 00 2D 00 00", {0, 0, 0, 1}},      // 50: below
                    Report{"20 4E 02 2D 00 00", {16383, 0, 0, 1}},  // 590: 16383.5
                    Report{"20 41 04 2D 00 00", {32734, 0, 0, 1}},  // 1089: 32734.233
                    Report{"20 42 04 2D 00 00", {32767, 0, 0, 1}},  // 1090
                    Report{"20 43 04 2D 00 00", {32767, 0, 0, 1}},  // 1091: above
                    Report{"20 FF 7F 2D 00 00", {32767, 0, 0, 1}},  // 32767
                    Report{"20 FF FF 2D 00 00", {0, 0, 0, 1}},      // -1
                    Report{"20 00 80 2D 00 00", {0, 0, 0, 1}}));    // -32768

INSTANTIATE_TEST_SUITE_P(
    Y, UsbReportTest,
    testing::Values(Report{"20 5A 00 2E 00 00", {0, 65, 0, 1}},     // 46: 65.534
                    Report{"20 5A 00 2C 00 00", {0, 0, 0, 1}},      // 44: below
                    Report{"20 5A 00 27 01 00", {0, 16383, 0, 1}},  // 295: 16383.5
                    Report{"20 5A 00 20 02 00", {0, 32701, 0, 1}},  // 544: 32701.466
                    Report{"20 5A 00 21 02 00", {0, 32767, 0, 1}},  // 545
                    Report{"20 5A 00 22 02 00", {0, 32767, 0, 1}},  // 546: above
                    Report{"20 5A 00 58 02 00", {0, 32767, 0, 1}},  // 600: above
                    Report{"20 5A 00 FF 7F 00", {0, 32767, 0, 1}},  // 32767
                    Report{"20 5A 00 FF FF 00", {0, 0, 0, 1}},      // -1
                    Report{"20 5A 00 00 80 00", {0, 0, 0, 1}}));    // -32768

INSTANTIATE_TEST_SUITE_P(Pressure, UsbReportTest,
                         testing::Values(Report{"20 5A 00 2D 00 7F", {0, 0, 127, 1}},
                                         Report{"20 5A 00 2D 00 80", {0, 0, 128, 1}},
                                         Report{"20 5A 00 2D 00 FF", {0, 0, 255, 1}},
                                         Report{"00 5A 00 2D 00 45", {0, 0, 69, 0}}));

INSTANTIATE_TEST_SUITE_P(Touch, UsbReportTest,
                         testing::Values(Report{"00 4E 02 27 01 05", {16383, 16383, 5, 0}},
                                         Report{"21 5A 00 2D 00 00", {0, 0, 0, 0}},
                                         Report{"30 5A 00 2D 00 00", {0, 0, 0, 0}},
                                         Report{"A0 5A 00 2D 00 00", {0, 0, 0, 0}},
                                         Report{"01 5A 00 2D 00 00", {0, 0, 0, 0}},
                                         Report{"FF 5A 00 2D 00 00", {0, 0, 0, 0}}));

TEST_F(UsbStreamTest, ReadsAskForTheSixBytesOfAReport) {
  open();
  ASSERT_TRUE(bus.waitForBegun(HidCall::Read, 2));
  for (const auto& read : bus.calls({HidCall::Read})) EXPECT_EQ(read.argument, 6);
}

TEST_F(UsbStreamTest, APenThatIsDownAtFirstIsDeliveredAtOnce) {
  open();
  send("20 4E 02 27 01 05");
  ASSERT_TRUE(recorder.waitFor(1));
  EXPECT_EQ(pens(), (std::vector<Pen>{{16383, 16383, 5, 1}}));
}

TEST_F(UsbStreamTest, OnlyTheFirstReportIsDroppedWhenThePenIsUp) {
  open();
  send("00 5A 00 2D 00 01");
  send("21 5A 00 2D 00 02");
  send("00 5A 00 2D 00 03");
  ASSERT_TRUE(recorder.waitFor(2));
  EXPECT_EQ(pens(), (std::vector<Pen>{{0, 0, 2, 0}, {0, 0, 3, 0}}));
}

TEST_F(UsbStreamTest, EachDriverObjectDropsItsFirstReport) {
  open();
  send("00 5A 00 2D 00 01");
  send("00 5A 00 2D 00 02");
  ASSERT_TRUE(recorder.waitFor(1));
  driver.CloseConnection();

  velausb next;
  ASSERT_EQ(next.OpenConnection(recordPen), 1);
  send("00 5A 00 2D 00 03");
  send("00 5A 00 2D 00 04");
  ASSERT_TRUE(recorder.waitFor(2));
  next.CloseConnection();
  EXPECT_EQ(pens(), (std::vector<Pen>{{0, 0, 2, 0}, {0, 0, 4, 0}}));
}

TEST_F(UsbStreamTest, QueuedSampleHoldsNothingElse) {
  Event taken;
  recorder.reset([&] { EXPECT_TRUE(taken.wait()); });
  open();
  send("20 5A 00 2D 00 01");
  EXPECT_TRUE(recorder.waitFor(1));  // and blocks delivery, so that the next one stays queued
  send("20 4E 02 27 01 7F");
  std::unique_ptr<PEN_DATA> sample;
  EXPECT_TRUE(comesTrue([&] {
    sample.reset(pUSBDataHandler->GetRecord(true));
    return sample != nullptr;
  }));
  EXPECT_EQ(sample->bReserved, 0);
  EXPECT_EQ(sample->bFlags & 1, 1);
  EXPECT_EQ(sample->wX, 16383);
  EXPECT_EQ(sample->wY, 16383);
  EXPECT_EQ(sample->bPressure, 0x7F);
  EXPECT_EQ(sample->bSequence, recorder.samples()[0].sequence % 127 + 1);
  taken.happen();
  driver.CloseConnection();  // the callback may still be waiting for `taken`
}

TEST_F(UsbStreamTest, AnIncompleteReportIsNoSampleAndTakesNoNumber) {
  open();
  send("20 5A 00 2D 00 01");
  for (const char* const part : {"20", "20 5A 00", "20 5A 00 2D 00"}) send(part);
  send("20 5A 00 2D 00 02");
  ASSERT_TRUE(recorder.waitFor(2));
  EXPECT_EQ(pens(), (std::vector<Pen>{{0, 0, 1, 1}, {0, 0, 2, 1}}));
  const auto samples = recorder.samples();
  EXPECT_EQ(samples[1].sequence, samples[0].sequence % 127 + 1);
}

TEST_F(UsbStreamTest, AnIncompleteReportIsNotTheFirst) {
  open();
  send("20 5A 00 2D 00");
  send("00 5A 00 2D 00 01");
  send("00 5A 00 2D 00 02");
  ASSERT_TRUE(recorder.waitFor(1));
  EXPECT_EQ(pens(), (std::vector<Pen>{{0, 0, 2, 0}}));
}

TEST_F(UsbStreamTest, FailingReadsAreNoSamples) {
  plug(makePad(PadKind::Usb));
  bus.fail(HidCall::Read, {support::Fault::Kind::Return, -1}, 1, 3);
  ASSERT_EQ(driver.OpenConnection(recordPen), 1);
  ASSERT_TRUE(bus.waitForReturned(HidCall::Read, 4));
  send("20 5A 00 2D 00 01");
  ASSERT_TRUE(recorder.waitFor(1));
  EXPECT_EQ(pens(), (std::vector<Pen>{{0, 0, 1, 1}}));
}

}  // namespace
