// The vision pad's frame of worker threads, where it differs from that of the other pads: how the
// signal is blocked, the start order, the output and its stream.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <thread>

#include "VisionRecordQueue.h"
#include "support/PadTest.h"
#include "support/ThreadCalls.h"
#include "support/Written.h"
#include "velavision.h"

namespace {

using support::Event;
using support::HidCall;
using support::kNothingWritten;
using support::recordPen;
using support::ThreadCalls;
using support::Written;
using support::writtenBy;
using testing::ElementsAre;
using testing::IsEmpty;

class VisionFrameTest : public support::PadTest {
 protected:
  VisionFrameTest() { plug(virtualpads::makePad(virtualpads::PadKind::Vision)); }

  ~VisionFrameTest() override {
    EXPECT_EQ(pVisionDataHandler, nullptr);
    EXPECT_TRUE(waitForThreads(0));
  }

  Written open() {
    return writtenBy([&] { opened = driver.OpenConnection(recordPen); });
  }

  ThreadCalls threads{{"reading", "signal", "processing"}};
  velavision driver;
  int opened = -9;
};

TEST_F(VisionFrameTest, BlocksTheSignalOfTheThreadThenStartsThreeThreads) {
  EXPECT_EQ(open(), kNothingWritten);
  EXPECT_THAT(threads.log(), ElementsAre("pthread_sigmask: block SIGUSR1", "start reading",
                                         "start signal", "start processing"));
  EXPECT_TRUE(waitForThreads(3));
  driver.CloseConnection();
}

TEST_F(VisionFrameTest, PadThatDoesNotOpenLeavesTheSignalAlone) {
  bus.fail(HidCall::Open, {}, 1, 4);
  EXPECT_EQ(open(), (Written{"", "Velavision:OpenConnection failed\n"}));
  EXPECT_THAT(threads.log(), IsEmpty());
}

TEST_F(VisionFrameTest, SignalIsBlockedBeforeTheSetUpThatFails) {
  bus.fail(HidCall::GetFeature, {support::Fault::Kind::Return, -1});
  open();
  EXPECT_EQ(opened, 0);
  EXPECT_THAT(threads.log(), ElementsAre("pthread_sigmask: block SIGUSR1"));
  driver.CloseConnection();
}

TEST_F(VisionFrameTest, AnOpenThatFailedDoesNotSpoilTheObject) {
  bus.fail(HidCall::Open, {}, 1, 4);
  open();
  EXPECT_EQ(opened, 0);
  driver.CloseConnection();
  EXPECT_TRUE(driver.GetRunningState());
  bus.fail(HidCall::GetFeature, {support::Fault::Kind::Return, -1});
  open();
  EXPECT_EQ(opened, 0);
  driver.CloseConnection();
  EXPECT_TRUE(driver.GetRunningState());
  EXPECT_EQ(open(), kNothingWritten);
  EXPECT_EQ(opened, 1);
  EXPECT_TRUE(waitForThreads(3));
  driver.CloseConnection();
  EXPECT_FALSE(driver.GetRunningState());
}

// Otherwise the first reports would find no queue and be lost.
TEST_F(VisionFrameTest, QueueIsThereBeforeTheReadingThread) {
  bool existed = false;
  threads.on("start reading", [&] { existed = pVisionDataHandler != nullptr; });
  open();
  EXPECT_TRUE(existed);
  driver.CloseConnection();
}

TEST_F(VisionFrameTest, ReadingThreadIsTheFirstToStart) {
  threads.failStarts({1});
  EXPECT_EQ(open(), (Written{"", "create getdata failed\n"}));
  EXPECT_EQ(opened, 1);
  EXPECT_EQ(driver.CloseConnection(), 0);
  EXPECT_EQ(bus.count(HidCall::Read), 0);
}

TEST_F(VisionFrameTest, SignalThreadIsTheSecondToStart) {
  threads.failStarts({2});
  EXPECT_EQ(open(), (Written{"", "create pollsignal failed\n"}));
  EXPECT_EQ(opened, 1);
  send("01 80 00 01 00 02 00 03 00 00 00 04");
  EXPECT_TRUE(recorder.waitFor(1));
  EXPECT_EQ(driver.CloseConnection(), 0);
  EXPECT_FALSE(driver.GetRunningState());
}

TEST_F(VisionFrameTest, ProcessingThreadIsTheThirdToStart) {
  threads.failStarts({3});
  EXPECT_EQ(open(), (Written{"", "create processdata failed\n"}));
  EXPECT_EQ(opened, 1);
  send("01 80 00 01 00 02 00 03 00 00 00 04");
  EXPECT_TRUE(bus.waitUntilRead(port));
  EXPECT_EQ(driver.CloseConnection(), 0);
  EXPECT_EQ(recorder.count(), 0U);
}

TEST_F(VisionFrameTest, ThreadsThatDoNotStartAreReportedInTurnAndTheConnectionCloses) {
  threads.failStarts({1, 2, 3});
  EXPECT_EQ(open(), (Written{"",
                             "create getdata failed\n"
                             "create pollsignal failed\n"
                             "create processdata failed\n"}));
  EXPECT_EQ(opened, 1);
  threads.clearLog();
  EXPECT_EQ(driver.CloseConnection(), 0);
  EXPECT_THAT(threads.log(), IsEmpty());
  EXPECT_EQ(bus.openHandles(), 0);
}

TEST_F(VisionFrameTest, ClosesInThisOrder) {
  open();
  threads.clearLog();
  bool openAtTheEnd = false;
  long sentBefore = -1;
  long sentAfter = -1;
  bus.clearLog();
  threads.on("join processing", [&] { sentBefore = bus.count(HidCall::SendFeature); });
  threads.on("SIGUSR1 to signal", [&] { sentAfter = bus.count(HidCall::SendFeature); });
  threads.on("join reading",
             [&] { openAtTheEnd = pVisionDataHandler != nullptr && bus.openHandles() == 1; });
  EXPECT_EQ(driver.CloseConnection(), 0);
  EXPECT_THAT(threads.log(),
              ElementsAre("join processing", "SIGUSR1 to signal", "join signal", "join reading"));
  EXPECT_TRUE(openAtTheEnd);
  EXPECT_FALSE(driver.GetRunningState());
  // Mode 4 is set between the two; a keep-alive may come before that.
  EXPECT_GT(sentAfter, sentBefore);
  EXPECT_EQ(bus.openHandles(), 0);
}

TEST_F(VisionFrameTest, RunningStateIsTrueUntilTheCloseOrTheClientTakesItAway) {
  EXPECT_TRUE(driver.GetRunningState());
  open();
  EXPECT_TRUE(driver.GetRunningState());
  driver.SetRunningFalse();
  EXPECT_FALSE(driver.GetRunningState());
  EXPECT_TRUE(waitForThreads(2));  // the reading thread has ended
  driver.CloseConnection();
}

TEST_F(VisionFrameTest, ProcessingWithoutAQueueReturns) {
  driver.procdata_routine();
}

TEST_F(VisionFrameTest, WhenSigwaitFailsTheCloseHangsInItsLastJoin) {
  threads.answerWaits({{EINVAL, 0}});
  open();
  Event lastJoin;
  threads.on("join reading", [&] { lastJoin.happen(); });
  std::atomic<bool> closed{false};
  std::thread closing([&] {
    driver.CloseConnection();
    closed = true;
  });
  EXPECT_TRUE(lastJoin.wait());
  EXPECT_TRUE(driver.GetRunningState());
  // Reading goes on after reads that time out.
  EXPECT_TRUE(bus.waitForReturned(HidCall::Read, bus.count(HidCall::Read) + 5));
  EXPECT_FALSE(closed);
  driver.SetRunningFalse();
  closing.join();
}

volatile std::sig_atomic_t handlerRuns = 0;

TEST_F(VisionFrameTest, SignalToTheProcessReachesNoHandler) {
  struct sigaction counting {};
  counting.sa_handler = [](int) { handlerRuns = handlerRuns + 1; };
  struct sigaction before {};
  sigaction(SIGUSR1, &counting, &before);
  open();
  kill(getpid(), SIGUSR1);
  EXPECT_TRUE(support::comesTrue([&] { return !driver.GetRunningState(); }));
  driver.CloseConnection();
  EXPECT_EQ(handlerRuns, 0);
  sigaction(SIGUSR1, &before, nullptr);
}

}  // namespace
