// The frame of worker threads: how each driver starts and ends them, and what happens when the
// system refuses.
#include "WorkerFrame.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "support/AllocationCount.h"
#include "support/DriverTest.h"
#include "support/ThreadCalls.h"
#include "support/TimeControl.h"
#include "support/Written.h"

namespace {

using support::called;
using support::Calls;
using support::comesTrue;
using support::Event;
using support::HidCall;
using support::kNothingWritten;
using support::recordPen;
using support::ThreadCalls;
using support::Written;
using support::writtenBy;
using testing::ElementsAre;
using testing::IsEmpty;
using virtualpads::PadKind;
using Log = ThreadCalls::Log;

bool sigusr1IsBlocked() {
  sigset_t set;
  pthread_sigmask(SIG_BLOCK, nullptr, &set);
  return sigismember(&set, SIGUSR1) == 1;
}

class FrameTest : public support::PadDriverTest {
 protected:
  // Earlier connections have left the signal blocked.
  FrameTest() {
    time.stopProcessorTime(0);  // no keep-alive
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    threads.clearLog();
  }

  ~FrameTest() override {
    if (driver) driver->close();
  }

  // In the order of their starts.
  std::array<std::string, 3> threadNames() const {
    if (pad.kind == PadKind::Vision) return {"reading", "signal", "processing"};
    return {"signal", "reading", "processing"};
  }

  // What is printed when that thread (1 is the first) does not start.
  std::string startLine(int start) const {
    return pad.lines.at(pad.lines.size() - 4 + static_cast<std::size_t>(start)) + "\n";
  }

  Written onItsStream(const std::string& lines) const {
    return pad.kind == PadKind::Vision ? Written{"", lines} : Written{lines, ""};
  }

  std::string blocking() const {
    return std::string(pad.kind == PadKind::Vision ? "pthread_sigmask" : "sigprocmask") +
           ": block SIGUSR1";
  }

  // Feature requests that have been made.
  long requestCount() const {
    return bus.count(HidCall::GetFeature) + bus.count(HidCall::SendFeature);
  }

  // Returns what it writes.
  Written openAndListen() {
    plugPad();
    return writtenBy(1, [&] { return driver->open(recordPen); });
  }

  Log logOfClose() {
    threads.clearLog();
    EXPECT_EQ(driver->close(), 0);
    return threads.log();
  }

  // Closes on another thread, up to the wait for the reading thread.
  std::thread startClosing(std::atomic<bool>& closed) {
    threads.on("join reading", [this] { m_lastJoin.happen(); });
    std::thread closing([this, &closed] {
      driver->close();
      closed = true;
    });
    EXPECT_TRUE(m_lastJoin.wait());
    return closing;
  }

  support::TimeControl time;
  ThreadCalls threads{threadNames()};

 private:
  Event m_lastJoin;
};

INSTANTIATE_TEST_SUITE_P(Pads, FrameTest, testing::ValuesIn(support::padTable()),
                         support::nameOfRow);

// Opening.

TEST_P(FrameTest, AnOpenThatFailsTouchesNoThreadAndDoesNotSpoilTheObject) {
  writtenBy(pad.openFailure, [&] { return driver->open(recordPen); });
  EXPECT_FALSE(sigusr1IsBlocked());
  driver->close();
  EXPECT_THAT(threads.log(), IsEmpty());
  EXPECT_TRUE(driver->running());
  open();
  sendReport();
  EXPECT_TRUE(recorder.waitFor(1));
  EXPECT_TRUE(waitForThreads(3));
}

TEST_P(FrameTest, BlocksTheSignalThenSetsThePadUpThenStartsTheThreeThreads) {
  const auto [first, second, third] = threadNames();
  long requests = -1;
  bool queueExisted = false;  // otherwise the first reports would be lost
  const auto noteRequests = [&] { requests = std::max(requests, requestCount()); };
  threads.on("start " + first, noteRequests);
  threads.on("start reading", [&] {
    noteRequests();
    queueExisted = driver->queueExists();
  });
  EXPECT_EQ(openAndListen(), kNothingWritten);
  EXPECT_THAT(threads.log(),
              ElementsAre(blocking(), "start " + first, "start " + second, "start " + third));
  EXPECT_EQ(requests, std::ssize(pad.opens));
  EXPECT_TRUE(queueExisted);
  EXPECT_TRUE(waitForThreads(3));
  driver->close();
  EXPECT_TRUE(sigusr1IsBlocked());  // for good
}

TEST_P(FrameTest, ThreadsGetDefaultAttributesAndTheDriverAndAZeroWord) {
  open();
  const std::vector<ThreadCalls::Start> starts = threads.starts();
  ASSERT_EQ(starts.size(), 3U);
  for (const ThreadCalls::Start& start : starts) {
    EXPECT_EQ(start.attributes, nullptr);
    EXPECT_EQ(start.content.driver, driver->object());
    EXPECT_EQ(start.content.zero, nullptr);
  }
}

TEST_P(FrameTest, TheCallbackRunsOnAThreadOfTheSdkThatBlocksTheSignal) {
  std::atomic<bool> blocked{false};
  std::atomic<std::thread::id> callbackThread{std::this_thread::get_id()};
  recorder.reset([&] {
    blocked = sigusr1IsBlocked();
    callbackThread = std::this_thread::get_id();
  });
  open();
  sendReport();
  ASSERT_TRUE(recorder.waitFor(1));
  driver->close();
  EXPECT_TRUE(blocked);
  EXPECT_NE(callbackThread.load(), std::this_thread::get_id());
}

// The signal.

volatile std::sig_atomic_t handlerRuns = 0;

TEST_P(FrameTest, ASignalToTheProcessReachesNoHandlerAndEndsTheRunningState) {
  handlerRuns = 0;
  struct sigaction counting {};
  counting.sa_handler = [](int) { handlerRuns = handlerRuns + 1; };
  struct sigaction before {};
  sigaction(SIGUSR1, &counting, &before);
  open();
  EXPECT_TRUE(driver->running());
  kill(getpid(), SIGUSR1);
  EXPECT_TRUE(comesTrue([&] { return !driver->running(); }));
  driver->close();
  EXPECT_EQ(handlerRuns, 0);
  sigaction(SIGUSR1, &before, nullptr);
}

TEST_P(FrameTest, AnotherSignalIsNotTheOneWaitedFor) {
  threads.answerWaits({{0, SIGUSR2}, {0, SIGHUP}});
  open();
  driver->close();
  EXPECT_EQ(threads.waits(), 3);
}

TEST_P(FrameTest, WhenSigwaitFailsTheCloseHangsInItsLastJoin) {
  threads.answerWaits({{EINVAL, 0}});
  plugPad();
  std::atomic<bool> closed{false};
  std::thread closing;
  const Written written = writtenBy([&] {
    driver->open(recordPen);
    closing = startClosing(closed);
  });
  const bool reports = pad.kind == PadKind::Usb || pad.kind == PadKind::Ink;
  EXPECT_EQ(written, (Written{reports ? "sigwait failed, result 22\n" : "", ""}));
  EXPECT_TRUE(driver->running());
  // The reading thread goes on after reads that time out, so the close waits for it.
  EXPECT_TRUE(bus.waitForReturned(HidCall::Read, bus.count(HidCall::Read) + 5));
  EXPECT_FALSE(closed);
  driver->stopRunning();
  closing.join();
}

TEST_P(FrameTest, TheReadingThreadEndsWithItsFirstFailedReadAfterTheRunningState) {
  bus.setReadTimeout(kLongTimeout);
  open();
  EXPECT_TRUE(driver->running());
  ASSERT_TRUE(bus.waitForBegun(HidCall::Read, 1));
  driver->stopRunning();
  EXPECT_FALSE(driver->running());
  // Reports keep it reading all the same.
  for (long report = 1; report <= 3; ++report) {
    sendReport();
    ASSERT_TRUE(bus.waitForBegun(HidCall::Read, report + 1));
  }
  EXPECT_TRUE(waitForThreads(3));
  bus.setReadTimeout(kShortTimeout);
  sendReport();  // ends the read that would wait long
  EXPECT_TRUE(waitForThreads(2));
  EXPECT_EQ(bus.calls({HidCall::Read}).size(), 5U);
}

// Closing.

TEST_P(FrameTest, ClosesInThisOrder) {
  open();
  long requestsBefore = -1;
  long requests = -1;
  bool openAtTheEnd = false;
  bus.clearLog();
  threads.on("join processing", [&] { requestsBefore = requestCount(); });
  threads.on("SIGUSR1 to signal", [&] { requests = requestCount(); });
  threads.on("join reading",
             [&] { openAtTheEnd = driver->queueExists() && bus.openHandles() == 1; });
  EXPECT_THAT(logOfClose(),
              ElementsAre("join processing", "SIGUSR1 to signal", "join signal", "join reading"));
  // The pad is reset between the two.
  EXPECT_EQ(requestsBefore, 0);
  EXPECT_EQ(requests, std::ssize(pad.closes));
  EXPECT_TRUE(openAtTheEnd);
  EXPECT_FALSE(driver->queueExists());
  EXPECT_EQ(bus.openHandles(), 0);
  EXPECT_FALSE(driver->running());
}

TEST_P(FrameTest, AStopIsSeenAfterTheDeliveryUnderWay) {
  Event joining;
  Event delivering;
  recorder.reset([&] {
    delivering.happen();
    EXPECT_TRUE(joining.wait());
  });
  threads.on("join processing", [&] { joining.happen(); });
  open();
  for (int i = 0; i < 200; ++i) sendReport();
  EXPECT_TRUE(bus.waitUntilRead(port));
  ASSERT_TRUE(delivering.wait());
  driver->close();
  EXPECT_EQ(recorder.count(), 1U);
}

TEST_P(FrameTest, WhileReportsComeTheCloseWaits) {
  bus.setReadTimeout(kLongTimeout);
  open();
  std::atomic<bool> closed{false};
  std::thread closing = startClosing(closed);
  EXPECT_FALSE(driver->running());
  for (int i = 0; i < 100; ++i) {
    sendReport();
    EXPECT_TRUE(bus.waitUntilRead(port));
  }
  EXPECT_FALSE(closed);
  // The pad falls silent: the read that this report ends is followed by one that times out.
  bus.setReadTimeout(kShortTimeout);
  sendReport();
  closing.join();
  EXPECT_EQ(recorder.count(), 0U);
}

// Threads that do not start.

TEST_P(FrameTest, AThreadThatDoesNotStartIsReportedAndNeitherSignalledNorJoined) {
  const auto names = threadNames();
  for (const int start : {1, 2, 3}) {
    SCOPED_TRACE(start);
    const std::string& name = names.at(static_cast<std::size_t>(start - 1));
    driver = support::makeDriver(pad.kind);
    recorder.reset();
    bus.clearLog();
    ThreadCalls calls(names);
    calls.failStarts({start});
    EXPECT_EQ(openAndListen(), onItsStream(startLine(start)));
    if (name != "reading") {
      sendReport();
      EXPECT_TRUE(bus.waitUntilRead(port));
    }
    if (name == "signal") {
      EXPECT_TRUE(recorder.waitFor(1));
    }
    calls.clearLog();
    EXPECT_EQ(driver->close(), 0);
    Log expected{"join processing", "SIGUSR1 to signal", "join signal", "join reading"};
    std::erase_if(expected, [&](const std::string& call) { return call.ends_with(name); });
    EXPECT_EQ(calls.log(), expected);
    EXPECT_FALSE(driver->running());
    EXPECT_EQ(bus.count(HidCall::Read) == 0, name == "reading");
    EXPECT_EQ(recorder.count(), name == "signal" ? 1U : 0U);
    bus.unplug(port);
  }
}

TEST_P(FrameTest, ThreadsThatDoNotStartAreReportedInTurn) {
  threads.failStarts({1, 2, 3});
  EXPECT_EQ(openAndListen(), onItsStream(startLine(1) + startLine(2) + startLine(3)));
  EXPECT_TRUE(driver->queueExists());
  EXPECT_THAT(logOfClose(), IsEmpty());
}

// Closing a driver that is not open must not release the queue of one that is.
TEST_P(FrameTest, CloseAfterAFailedOpenLeavesAnothersQueueAlone) {
  open();
  const auto other = support::makeDriver(pad.kind);
  bus.fail(HidCall::Open, {}, 1, pad.openAttempts);
  writtenBy(pad.openFailure, [&] { return other->open(recordPen); });
  EXPECT_EQ(other->close(), 0);
  EXPECT_TRUE(driver->queueExists());
  sendReport();
  EXPECT_TRUE(recorder.waitFor(1));
}

TEST_P(FrameTest, DestructionClosesTheDeviceButNotTheConnection) {
  threads.failStarts({1, 2, 3});  // so that the driver may be destroyed
  openAndListen();
  bus.clearLog();
  driver.reset();
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Close), called(HidCall::Exit)}));
  driver = support::makeDriver(pad.kind);
  EXPECT_TRUE(driver->queueExists());
  // What the close would have released.
  driver->releaseQueue();
  delete threads.starts().back().argument;
}

// A client may run the kind's queue on a thread of its own.

TEST_P(FrameTest, WithoutAQueueProcessingReturns) {
  driver->process();
}

TEST_P(FrameTest, AThreadOfTheClientProcessesTheQueueAndEndsWithIt) {
  threads.failStarts({3});
  openAndListen();
  std::atomic<bool> returned{false};
  std::thread lent([&] {
    driver->process();
    returned = true;
  });
  sendReport();
  EXPECT_TRUE(recorder.waitFor(1));
  driver->close();
  lent.join();
  EXPECT_FALSE(returned);
}

// Single drivers.

class UsbFrameTest : public FrameTest {};
INSTANTIATE_TEST_SUITE_P(Pads, UsbFrameTest, testing::Values(support::padRow(PadKind::Usb)),
                         support::nameOfRow);

// The driver's own allocations after the signal has been blocked: an argument for a thread, the
// queue, an argument for another thread.
TEST_P(UsbFrameTest, AnOpenThatRunsOutOfMemoryIsClosedLikeAnyOther) {
  plugPad();
  for (const int allocation : {1, 2, 3}) {
    threads.on(blocking(), [&] { support::failAllocation(allocation); });
    EXPECT_THROW(driver->open(recordPen), std::bad_alloc);
    EXPECT_EQ(threads.starts().size(), 0U);
    EXPECT_EQ(driver->close(), 0);
    EXPECT_FALSE(driver->queueExists());
    EXPECT_EQ(bus.openHandles(), 0);
  }
}

class VisionFrameTest : public FrameTest {};
INSTANTIATE_TEST_SUITE_P(Pads, VisionFrameTest, testing::Values(support::padRow(PadKind::Vision)),
                         support::nameOfRow);

TEST_P(VisionFrameTest, ASetUpThatFailsComesAfterTheSignalAndDoesNotSpoilTheObject) {
  plugPad();
  bus.fail(HidCall::GetFeature, {support::Fault::Kind::Return, -1});
  writtenBy(0, [&] { return driver->open(recordPen); });
  EXPECT_THAT(threads.log(), ElementsAre(blocking()));
  driver->close();
  EXPECT_TRUE(driver->running());
  EXPECT_EQ(driver->open(recordPen), 1);
  EXPECT_TRUE(waitForThreads(3));
}

}  // namespace
