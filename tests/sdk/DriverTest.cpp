// What holds for every driver: its calls into hidapi, its fixed answers, its samples, by the pad's
// row of the table.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "support/DriverTest.h"
#include "support/Patience.h"
#include "support/TimeControl.h"
#include "support/Written.h"

namespace {

using support::Bytes;
using support::called;
using support::CallRecord;
using support::Calls;
using support::comesTrue;
using support::Event;
using support::Fault;
using support::FeatureRequest;
using support::hex;
using support::HidCall;
using support::kNothingWritten;
using support::PadRow;
using support::Pen;
using support::PenReport;
using support::recordPen;
using support::Sample;
using support::Written;
using support::writtenBy;
using testing::ElementsAre;
using testing::IsEmpty;
using virtualpads::makePad;
using virtualpads::PadKind;

class DriverTest : public support::PadDriverTest {
 protected:
  DriverTest() { time.stopProcessorTime(0); }  // no keep-alive comes between the calls

  support::TimeControl time;
};

INSTANTIATE_TEST_SUITE_P(Pads, DriverTest, testing::ValuesIn(support::padTable()),
                         support::nameOfRow);

// Opening and closing.

TEST_P(DriverTest, MakesTheseCallsFromItsConstructionToItsDestructionInSilence) {
  driver.reset();
  plugPad();
  bus.clearLog();
  driver = support::makeDriver(pad.kind);
  EXPECT_EQ(writtenBy(1, [&] { return driver->open(recordPen); }), kNothingWritten);
  EXPECT_EQ(writtenBy(0, [&] { return driver->close(); }), kNothingWritten);
  driver.reset();

  Calls expected{called(HidCall::Init), called(HidCall::Open, pad.product, 1),
                 called(HidCall::SetNonblocking)};
  for (const auto* const requests : {&pad.opens, &pad.closes}) {
    for (const auto& [direction, bytes, length] : *requests) {
      const bool get = direction == FeatureRequest::kGet;
      expected.push_back(called(get ? HidCall::GetFeature : HidCall::SendFeature, length, length,
                                hex(bytes, static_cast<std::size_t>(length))));
    }
  }
  expected.push_back(called(HidCall::Close));
  expected.push_back(called(HidCall::Exit));
  Calls made = bus.calls();
  for (CallRecord& call : made)  // the rest of a band is the picture
    if (call.argument == 2408) std::fill(call.bytes.begin() + 8, call.bytes.end(), 0);
  EXPECT_EQ(made, expected);
}

TEST_P(DriverTest, APadThatCannotBeOpenedStartsNothing) {
  for (const bool attached : {false, true}) {
    SCOPED_TRACE(attached);
    if (attached) {
      plugPad();
      bus.setAccessible(port, false);
    } else {
      plug(makePad(pad.kind == PadKind::Ii ? PadKind::Ink : PadKind::Ii));  // another kind
    }
    bus.clearLog();
    EXPECT_EQ(writtenBy(pad.openFailure, [&] { return driver->open(recordPen); }),
              pad.kind == PadKind::Vision ? (Written{"", pad.openFailureLine})
                                          : (Written{pad.openFailureLine, ""}));
    EXPECT_EQ(bus.calls(), Calls(static_cast<std::size_t>(pad.openAttempts),
                                 called(HidCall::Open, pad.product, 0)));
    EXPECT_TRUE(waitForThreads(0));
    EXPECT_FALSE(driver->queueExists());
  }
}

TEST_P(DriverTest, ACloseWithNothingOpenDoesNothingInSilence) {
  const auto closeInSilence = [&] {
    bus.clearLog();
    EXPECT_EQ(writtenBy(0, [&] { return driver->close(); }), kNothingWritten);
    EXPECT_THAT(bus.calls(), IsEmpty());
  };
  closeInSilence();
  writtenBy([&] { driver->open(recordPen); });  // fails
  closeInSilence();
  open();
  driver->close();
  closeInSilence();
}

// Queries.

TEST_P(DriverTest, CountsEveryInterfaceOfEveryPadOfItsKind) {
  EXPECT_EQ(driver->count(), 0);
  for (const PadRow& row : support::padTable()) bus.plug(makePad(row.kind));
  bus.plug(makePad(pad.kind), 2);
  EXPECT_EQ(driver->count(), 3);
}

TEST_P(DriverTest, TheCountIsCutToSixteenBitsAndSigned) {
  bus.plug(makePad(pad.kind), 32769);
  EXPECT_EQ(driver->count(), -32767);
}

TEST_P(DriverTest, TheRangesAndTheSizeAreThePads) {
  open();
  bus.clearLog();
  std::array<int, 6> ends{};
  EXPECT_TRUE(driver->ranges({&ends[0], &ends[1], &ends[2], &ends[3], &ends[4], &ends[5]}));
  EXPECT_EQ(ends, pad.ranges);
  EXPECT_THAT(bus.calls(), IsEmpty());
  EXPECT_DOUBLE_EQ(driver->width(), pad.width);
  EXPECT_DOUBLE_EQ(driver->height(), pad.height);
}

// Samples.

TEST_P(DriverTest, ReadsAskForOneReport) {
  open();
  ASSERT_TRUE(bus.waitForReturned(HidCall::Read, 2));
  driver->close();
  for (const CallRecord& read : bus.calls({HidCall::Read}))
    EXPECT_EQ(read.argument, pad.reportSize);
}

TEST_P(DriverTest, AStrokeArrivesAsItsSamples) {
  open();
  std::vector<Pen> expected;
  for (const PenReport& report : pad.stroke) {
    sendReport(report);
    expected.push_back(report.pen);
  }
  EXPECT_TRUE(recorder.waitFor(5));
  EXPECT_EQ(pens(), expected);
}

TEST_P(DriverTest, WhatTheModelEncodesArrives) {
  open();
  bus.sendPen(port, {.x = 1, .y = 0.25, .pressure = 1, .touch = true});
  EXPECT_TRUE(recorder.waitFor(1));
  EXPECT_THAT(pens(), ElementsAre(pad.edge));
}

// Of the pads whose queues hold PEN_DATA.
class QueuedSampleTest : public DriverTest {};

INSTANTIATE_TEST_SUITE_P(Pads, QueuedSampleTest,
                         testing::Values(support::padRow(PadKind::Usb),
                                         support::padRow(PadKind::Ii),
                                         support::padRow(PadKind::Ink)),
                         support::nameOfRow);

TEST_P(QueuedSampleTest, HoldsTheReportsFieldsAndOnlyTheInkPadsId) {
  Event taken;
  recorder.reset([&] { EXPECT_TRUE(taken.wait()); });
  open();
  sendReport(pad.stroke[0]);
  EXPECT_TRUE(recorder.waitFor(1));  // and blocks delivery, so that the next one stays queued
  sendReport(pad.stroke[2]);
  std::unique_ptr<PEN_DATA> sample;
  EXPECT_TRUE(comesTrue([&] {
    sample = driver->takeQueued();
    return sample != nullptr;
  }));
  EXPECT_EQ(sample->bReserved, pad.kind == PadKind::Ink ? 1 : 0);
  EXPECT_EQ(sample->bFlags, 0);
  EXPECT_EQ((Pen{sample->wX, sample->wY, sample->bPressure, 0}), pad.stroke[2].pen);
  EXPECT_EQ(sample->bSequence,
            pad.kind == PadKind::Ink ? 3 : recorder.samples().front().sequence % 127 + 1);
  taken.happen();
  driver->close();  // the callback may still be waiting for `taken`
}

TEST_P(DriverTest, OnlyTheFirstReportIsDroppedWhenThePenIsUp) {
  open();
  for (int i = 0; i < 3; ++i) sendReport(pad.penUp);
  sendReport(pad.stroke[0]);
  const std::size_t expected = pad.dropsPenUp ? 3 : 4;
  EXPECT_TRUE(recorder.waitFor(expected));
  driver->close();
  EXPECT_EQ(recorder.count(), expected);
  EXPECT_EQ(recorder.samples().front().touch, 0);
  EXPECT_EQ(pens().back(), pad.stroke[0].pen);
}

TEST_P(DriverTest, AnIncompleteReportIsIgnoredAndIsNotTheFirst) {
  open();
  sendPart(pad.stroke[0], 1);
  sendPart(pad.stroke[0], pad.minReportSize - 1);
  sendReport(pad.penUp);
  sendPart(pad.stroke[0], pad.minReportSize - 1);
  sendReport(pad.stroke[1]);
  const std::size_t expected = pad.dropsPenUp ? 1 : 2;
  EXPECT_TRUE(recorder.waitFor(expected));
  driver->close();
  EXPECT_EQ(recorder.count(), expected);
  EXPECT_EQ(pens().back(), pad.stroke[1].pen);
}

TEST_P(DriverTest, ReadErrorsAndShortReadsGiveNoSample) {
  bus.setReadTimeout(kLongTimeout);
  bus.fail(HidCall::Read, {Fault::Kind::Return, -1}, 1, 2);
  bus.fail(HidCall::Read, {Fault::Kind::Short, pad.minReportSize - 1}, 3);
  bus.fail(HidCall::Read, {Fault::Kind::Return, 0}, 4);
  plugPad();
  writtenBy([&] { driver->open(recordPen); });
  sendReport(pad.stroke[0]);
  sendReport(pad.stroke[1]);
  EXPECT_TRUE(recorder.waitFor(1));
  bus.unplug(port);
  driver->close();
  EXPECT_THAT(pens(), ElementsAre(pad.stroke[1].pen));
}

TEST_P(DriverTest, WithoutAHandlerSamplesAreDropped) {
  plugPad();
  ASSERT_EQ(driver->openWithoutHandler(), 1);
  sendReport(pad.stroke[0]);
  EXPECT_TRUE(bus.waitUntilRead(port));
  // When the read after the next begins the sample has been queued, and two polls later it is gone.
  EXPECT_TRUE(bus.waitForBegun(HidCall::Read, bus.count(HidCall::Read) + 2));
  EXPECT_TRUE(time.waitForSleeps(500, 2));
  EXPECT_EQ(driver->close(), 0);
  EXPECT_EQ(recorder.count(), 0U);
}

TEST_P(DriverTest, TheOpenWithoutAHandlerKeepsTheOneGivenBefore) {
  writtenBy([&] { driver->open(recordPen); });  // fails
  plugPad();
  ASSERT_EQ(driver->openWithoutHandler(), 1);
  sendReport(pad.stroke[0]);
  EXPECT_TRUE(recorder.waitFor(1));
}

// Connections and objects.

// A driver object serves one connection; in a second one it reads only until its first time-out.
TEST_P(DriverTest, TheRunningStateDoesNotComeBack) {
  plugPad();
  for (const int threads : {3, 2}) {
    EXPECT_EQ(driver->open(recordPen), 1);
    EXPECT_EQ(driver->running(), threads == 3);
    EXPECT_TRUE(waitForThreads(threads));
    driver->close();
    EXPECT_FALSE(driver->running());
  }
}

// Two driver objects of a kind share the queue, and so the first one's callback.
TEST_P(DriverTest, TheFirstCallbackGetsTheSamplesOfBothUntilEitherCloses) {
  for (const bool firstCloses : {true, false}) {
    SCOPED_TRACE(firstCloses);
    recorder.reset();
    support::penRecorder<1>().reset();
    driver = support::makeDriver(pad.kind);
    auto second = support::makeDriver(pad.kind);
    open();
    ASSERT_EQ(second->open(recordPen<1>), 1);
    EXPECT_TRUE(waitForThreads(6));
    sendReport();  // both read it
    EXPECT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(pens(), (std::vector<Pen>{pad.stroke[0].pen, pad.stroke[0].pen}));
    auto& closedFirst = firstCloses ? driver : second;
    auto& closedLast = firstCloses ? second : driver;
    closedFirst->close();
    closedFirst.reset();
    EXPECT_FALSE(closedLast->queueExists());
    EXPECT_TRUE(closedLast->running());
    sendReport();
    EXPECT_TRUE(bus.waitUntilRead(port));
    closedLast->close();
    EXPECT_EQ(recorder.count(), 2U);
    EXPECT_EQ(support::penRecorder<1>().count(), 0U);
    bus.unplug(port);
  }
}

TEST_P(DriverTest, AConnectionOpenedBetweenTheClosesHasItsOwnQueue) {
  open();
  const auto second = support::makeDriver(pad.kind);
  const auto third = support::makeDriver(pad.kind);
  ASSERT_EQ(second->open(recordPen<1>), 1);
  driver->close();
  ASSERT_EQ(third->open(recordPen), 1);
  sendReport();  // the second and the third one read it
  ASSERT_TRUE(recorder.waitFor(2));
  second->close();
  EXPECT_FALSE(third->queueExists());
  third->close();
  EXPECT_EQ(recorder.count(), 2U);
}

}  // namespace
