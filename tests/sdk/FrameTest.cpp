// The frame of worker threads: how the drivers start and end them, and what happens when the system
// refuses. The drivers differ only in their output and results; the close of each has its own test.
#include "WorkerFrame.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "PenRecordQueue.h"
#include "support/AllocationCount.h"
#include "support/CapturedStream.h"
#include "support/PadTest.h"
#include "support/Reports.h"
#include "support/ScriptedPad.h"
#include "support/ThreadCalls.h"
#include "velaii.h"
#include "velainkusb.h"
#include "velausb.h"
#include "virtualpads/PadModel.h"

namespace {

using support::CapturedStream;
using support::comesTrue;
using support::Event;
using support::HidCall;
using support::penRecorder;
using support::recordPen;
using support::ScriptedPad;
using support::ThreadCalls;
using Log = ThreadCalls::Log;

// The differences between the drivers' frames.
struct Usb {
  using Driver = velausb;
  static constexpr std::uint16_t kProduct = 18;
  static constexpr int kReportSize = 6;
  static constexpr int kOpenFailure = -1;
  static constexpr const char* kOpenFailureLine = "";
  static constexpr const char* kReadingLine = "create userData failed\n";
  static constexpr const char* kSigwaitLine = "sigwait failed, result 22\n";
  static constexpr auto& kQueue = pUSBDataHandler;
};

struct Ii {
  using Driver = velaii;
  static constexpr std::uint16_t kProduct = 31;
  static constexpr int kReportSize = 11;
  static constexpr int kOpenFailure = -1;
  static constexpr const char* kOpenFailureLine = "velaii:opendevice failed\n";
  static constexpr const char* kReadingLine = "create getdata_thread failed\n";
  static constexpr const char* kSigwaitLine = "";
  static constexpr auto& kQueue = pDataHandler;
};

struct Ink {
  using Driver = velainkusb;
  static constexpr std::uint16_t kProduct = 48;
  static constexpr int kReportSize = 8;
  static constexpr int kOpenFailure = 0;
  static constexpr const char* kOpenFailureLine = "";
  static constexpr const char* kReadingLine = "create getdata_thread failed\n";
  static constexpr const char* kSigwaitLine = "sigwait failed, result 22\n";
  static constexpr auto& kQueue = pInkDataHandler;
};

template <class Kind>
class FrameTest : public support::PadTest {
 protected:
  using Driver = typename Kind::Driver;

  // Earlier connections have left the signal blocked.
  FrameTest() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    threads.clearLog();
  }

  ~FrameTest() override {
    driver.reset();
    EXPECT_FALSE(queueExists());
    EXPECT_TRUE(waitForThreads(0));
  }

  static bool sigusr1IsBlocked() {
    sigset_t set;
    pthread_sigmask(SIG_BLOCK, nullptr, &set);
    return sigismember(&set, SIGUSR1) == 1;
  }

  static bool queueExists() { return Kind::kQueue != nullptr; }

  int open() {
    const auto pad = std::make_shared<ScriptedPad>(Kind::kProduct);
    pad->replies[3] = support::hex("03", 17);  // the ink pad's options
    plug(pad);
    return driver->OpenConnection(recordPen);
  }

  // A complete report with the pen down, for any kind.
  void sendReport() {
    support::Bytes report(Kind::kReportSize, 0);
    report[0] = 0x20;
    report[1] = 0x01;
    EXPECT_TRUE(bus.sendWhenRoom(port, report));
  }

  ThreadCalls threads{{"signal", "reading", "processing"}};
  std::unique_ptr<Driver> driver = std::make_unique<Driver>();
};

using Kinds = testing::Types<Usb, Ii, Ink>;
TYPED_TEST_SUITE(FrameTest, Kinds);

// Opening.

TYPED_TEST(FrameTest, WithoutAPadNothingIsStarted) {
  const CapturedStream out(stdout);
  const CapturedStream err(stderr);
  const int result = this->driver->OpenConnection(recordPen);
  EXPECT_EQ(out.text(), TypeParam::kOpenFailureLine);
  EXPECT_EQ(err.text(), "");
  EXPECT_EQ(result, TypeParam::kOpenFailure);
  EXPECT_EQ(this->threads.log(), Log{});
  EXPECT_FALSE(this->queueExists());
  EXPECT_FALSE(this->sigusr1IsBlocked());
}

TYPED_TEST(FrameTest, AnOpenThatFailedIsClosedSafely) {
  const CapturedStream out(stdout);
  this->driver->OpenConnection(recordPen);
  EXPECT_EQ(this->driver->CloseConnection(), 0);
  EXPECT_EQ(this->threads.log(), Log{});
}

TYPED_TEST(FrameTest, AnOpenThatFailedDoesNotSpoilTheObject) {
  const CapturedStream out(stdout);
  this->driver->OpenConnection(recordPen);
  this->driver->CloseConnection();
  EXPECT_TRUE(this->driver->GetRunningState());
  EXPECT_EQ(this->open(), 1);
  this->sendReport();
  EXPECT_TRUE(this->recorder.waitFor(1));
  EXPECT_TRUE(this->waitForThreads(3));
  this->driver->CloseConnection();
}

TYPED_TEST(FrameTest, BlocksTheSignalThenStartsTheThreeThreads) {
  const CapturedStream out(stdout);
  EXPECT_EQ(this->open(), 1);
  EXPECT_EQ(this->threads.log(), (Log{"sigprocmask: block SIGUSR1", "start signal", "start reading",
                                      "start processing"}));
  EXPECT_EQ(out.text(), "");
  this->driver->CloseConnection();
}

// Otherwise the first reports would find no queue and be lost.
TYPED_TEST(FrameTest, TheQueueIsThereBeforeTheReadingThread) {
  bool existed = false;
  this->threads.on("start reading", [&] { existed = this->queueExists(); });
  this->open();
  EXPECT_TRUE(existed);
  this->driver->CloseConnection();
}

TYPED_TEST(FrameTest, ThreadsGetDefaultAttributesAndTheDriverAndAZeroWord) {
  this->open();
  const std::vector<ThreadCalls::Start> starts = this->threads.starts();
  ASSERT_EQ(starts.size(), 3U);
  for (const ThreadCalls::Start& start : starts) {
    EXPECT_EQ(start.attributes, nullptr);
    EXPECT_EQ(start.content.driver, this->driver.get());
    EXPECT_EQ(start.content.zero, nullptr);
  }
  this->driver->CloseConnection();
}

TYPED_TEST(FrameTest, TheSignalStaysBlockedInTheClientsThread) {
  this->open();
  EXPECT_TRUE(this->sigusr1IsBlocked());
  this->driver->CloseConnection();
  EXPECT_TRUE(this->sigusr1IsBlocked());
}

TYPED_TEST(FrameTest, TheWorkerThreadsInheritTheBlockedSignal) {
  std::atomic<bool> blocked{false};
  this->recorder.reset([&] { blocked = FrameTest<TypeParam>::sigusr1IsBlocked(); });
  this->open();
  this->sendReport();
  ASSERT_TRUE(this->recorder.waitFor(1));
  this->driver->CloseConnection();
  EXPECT_TRUE(blocked);
}

TYPED_TEST(FrameTest, ReadsAskForOneReport) {
  this->open();
  ASSERT_TRUE(this->bus.waitForBegun(HidCall::Read, 1));
  EXPECT_EQ(this->bus.calls({HidCall::Read}).front().argument, TypeParam::kReportSize);
  this->driver->CloseConnection();
}

TYPED_TEST(FrameTest, TheCallbackRunsOnAThreadOfTheSdk) {
  std::atomic<std::thread::id> callbackThread{std::this_thread::get_id()};
  this->recorder.reset([&] { callbackThread = std::this_thread::get_id(); });
  this->open();
  this->sendReport();
  ASSERT_TRUE(this->recorder.waitFor(1));
  this->driver->CloseConnection();
  EXPECT_NE(callbackThread.load(), std::this_thread::get_id());
}

// The signal.

volatile std::sig_atomic_t handlerRuns = 0;

void countHandlerRun(int /*signal*/) {
  handlerRuns = handlerRuns + 1;
}

TYPED_TEST(FrameTest, ASignalToTheProcessReachesNoHandlerAndEndsTheRunningState) {
  handlerRuns = 0;
  struct sigaction counting {};
  counting.sa_handler = countHandlerRun;
  struct sigaction before {};
  sigaction(SIGUSR1, &counting, &before);
  this->open();
  EXPECT_TRUE(this->driver->GetRunningState());

  kill(getpid(), SIGUSR1);

  EXPECT_TRUE(comesTrue([&] { return !this->driver->GetRunningState(); }));
  EXPECT_EQ(handlerRuns, 0);
  this->driver->CloseConnection();
  EXPECT_EQ(handlerRuns, 0);
  sigaction(SIGUSR1, &before, nullptr);
}

TYPED_TEST(FrameTest, AnotherSignalIsNotTheOneWaitedFor) {
  this->threads.answerWaits({{0, SIGUSR2}, {0, SIGHUP}});
  this->open();
  this->driver->CloseConnection();
  EXPECT_EQ(this->threads.waits(), 3);
}

TYPED_TEST(FrameTest, WhenSigwaitFailsTheCloseHangsInItsLastJoin) {
  this->threads.answerWaits({{EINVAL, 0}});
  Event lastJoin;
  this->threads.on("join reading", [&] { lastJoin.happen(); });
  const CapturedStream out(stdout);
  const CapturedStream err(stderr);
  this->open();

  std::atomic<bool> closed{false};
  std::thread closing([&] {
    this->driver->CloseConnection();
    closed = true;
  });
  EXPECT_TRUE(lastJoin.wait());
  EXPECT_EQ(out.text(), TypeParam::kSigwaitLine);
  EXPECT_EQ(err.text(), "");
  EXPECT_TRUE(this->driver->GetRunningState());
  // The reading thread goes on after reads that time out, so the close waits for it.
  EXPECT_TRUE(this->bus.waitForReturned(HidCall::Read, this->bus.count(HidCall::Read) + 5));
  EXPECT_FALSE(closed);

  this->driver->SetRunningFalse();
  closing.join();
  EXPECT_TRUE(closed);
}

TYPED_TEST(FrameTest, TheRunningStateIsTrueUntilItIsTakenAway) {
  EXPECT_TRUE(this->driver->GetRunningState());
  this->driver->SetRunningFalse();
  EXPECT_FALSE(this->driver->GetRunningState());
}

TYPED_TEST(FrameTest, TheReadingThreadEndsWithItsFirstFailedReadAfterTheRunningState) {
  this->bus.setReadTimeout(support::BusTest::kLongTimeout);
  this->open();
  ASSERT_TRUE(this->bus.waitForBegun(HidCall::Read, 1));
  this->driver->SetRunningFalse();
  // Reports keep it reading all the same.
  for (long report = 1; report <= 3; ++report) {
    this->sendReport();
    ASSERT_TRUE(this->bus.waitForBegun(HidCall::Read, report + 1));
  }
  EXPECT_TRUE(this->waitForThreads(3));
  this->bus.setReadTimeout(support::BusTest::kShortTimeout);
  this->sendReport();  // ends the read that would wait long
  EXPECT_TRUE(this->waitForThreads(2));
  EXPECT_EQ(this->bus.calls({HidCall::Read}).size(), 5U);
  this->driver->CloseConnection();
}

// Closing.

TYPED_TEST(FrameTest, ClosesInThisOrder) {
  this->open();
  this->threads.clearLog();
  EXPECT_EQ(this->driver->CloseConnection(), 0);
  EXPECT_EQ(this->threads.log(),
            (Log{"join processing", "SIGUSR1 to signal", "join signal", "join reading"}));
  EXPECT_FALSE(this->driver->GetRunningState());
}

TYPED_TEST(FrameTest, TheQueueOutlivesTheReadingThread) {
  bool existed = false;
  this->open();
  this->threads.on("join reading", [&] { existed = this->queueExists(); });
  this->driver->CloseConnection();
  EXPECT_TRUE(existed);
  EXPECT_FALSE(this->queueExists());
}

TYPED_TEST(FrameTest, TheDeviceIsOpenUntilTheReadingThreadHasEnded) {
  int open = -1;
  this->open();
  this->threads.on("join reading", [&] { open = this->bus.openHandles(); });
  this->driver->CloseConnection();
  EXPECT_EQ(open, 1);
  EXPECT_EQ(this->bus.openHandles(), 0);
}

TYPED_TEST(FrameTest, AStopIsSeenAfterTheDeliveryUnderWay) {
  Event joining;
  Event delivering;
  this->recorder.reset([&] {
    delivering.happen();
    EXPECT_TRUE(joining.wait());
  });
  this->threads.on("join processing", [&] { joining.happen(); });
  this->open();
  for (int i = 0; i < 200; ++i) this->sendReport();
  EXPECT_TRUE(this->bus.waitUntilRead(this->port));
  ASSERT_TRUE(delivering.wait());
  this->driver->CloseConnection();
  EXPECT_EQ(this->recorder.count(), 1U);
}

TYPED_TEST(FrameTest, WhileReportsComeTheCloseWaits) {
  this->bus.setReadTimeout(support::BusTest::kLongTimeout);
  Event lastJoin;
  this->threads.on("join reading", [&] { lastJoin.happen(); });
  this->open();
  std::atomic<bool> closed{false};
  std::thread closing([&] {
    this->driver->CloseConnection();
    closed = true;
  });
  EXPECT_TRUE(lastJoin.wait());
  EXPECT_FALSE(this->driver->GetRunningState());
  for (int i = 0; i < 100; ++i) {
    this->sendReport();
    EXPECT_TRUE(this->bus.waitUntilRead(this->port));
  }
  EXPECT_FALSE(closed);
  // The pad falls silent: the read that this report ends is followed by one that times out.
  this->bus.setReadTimeout(support::BusTest::kShortTimeout);
  this->sendReport();
  closing.join();
  EXPECT_EQ(this->recorder.count(), 0U);
}

// Threads that do not start.

TYPED_TEST(FrameTest, ASignalThreadThatDoesNotStartIsReported) {
  this->threads.failStarts({1});
  const CapturedStream out(stdout);
  const CapturedStream err(stderr);
  EXPECT_EQ(this->open(), 1);
  EXPECT_EQ(out.text(), "create pollsignal failed\n");
  EXPECT_EQ(err.text(), "");
  this->sendReport();
  EXPECT_TRUE(this->recorder.waitFor(1));
  this->threads.clearLog();
  EXPECT_EQ(this->driver->CloseConnection(), 0);
  EXPECT_EQ(this->threads.log(), (Log{"join processing", "join reading"}));
  EXPECT_FALSE(this->driver->GetRunningState());
}

TYPED_TEST(FrameTest, AReadingThreadThatDoesNotStartIsReported) {
  this->threads.failStarts({2});
  const CapturedStream out(stdout);
  const CapturedStream err(stderr);
  EXPECT_EQ(this->open(), 1);
  EXPECT_EQ(out.text(), TypeParam::kReadingLine);
  EXPECT_EQ(err.text(), "");
  this->threads.clearLog();
  EXPECT_EQ(this->driver->CloseConnection(), 0);
  EXPECT_EQ(this->threads.log(), (Log{"join processing", "SIGUSR1 to signal", "join signal"}));
  EXPECT_EQ(this->bus.count(HidCall::Read), 0);
}

TYPED_TEST(FrameTest, AProcessingThreadThatDoesNotStartIsReported) {
  this->threads.failStarts({3});
  const CapturedStream out(stdout);
  const CapturedStream err(stderr);
  EXPECT_EQ(this->open(), 1);
  EXPECT_EQ(out.text(), "create processdata failed\n");
  EXPECT_EQ(err.text(), "");
  this->threads.clearLog();
  this->sendReport();
  EXPECT_TRUE(this->bus.waitUntilRead(this->port));
  EXPECT_EQ(this->driver->CloseConnection(), 0);
  EXPECT_EQ(this->threads.log(), (Log{"SIGUSR1 to signal", "join signal", "join reading"}));
  EXPECT_EQ(this->recorder.count(), 0U);
}

TYPED_TEST(FrameTest, ThreadsThatDoNotStartAreReportedInTurn) {
  this->threads.failStarts({1, 2, 3});
  const CapturedStream out(stdout);
  EXPECT_EQ(this->open(), 1);
  EXPECT_EQ(out.text(), std::string("create pollsignal failed\n") + TypeParam::kReadingLine +
                            "create processdata failed\n");
  EXPECT_TRUE(this->queueExists());
  this->threads.clearLog();
  EXPECT_EQ(this->driver->CloseConnection(), 0);
  EXPECT_EQ(this->threads.log(), Log{});
}

// The driver's own allocations after the signal has been blocked: an argument for a thread, the
// queue, an argument for another thread.
using FrameAllocationTest = support::PadTest;
TEST_F(FrameAllocationTest, AnOpenThatRunsOutOfMemoryIsClosedLikeAnyOther) {
  plug(std::make_shared<ScriptedPad>(Usb::kProduct));
  for (const int allocation : {1, 2, 3}) {
    ThreadCalls threads{{"signal", "reading", "processing"}};
    velausb driver;
    threads.on("sigprocmask: block SIGUSR1", [&] { support::failAllocation(allocation); });
    EXPECT_THROW(driver.OpenConnection(recordPen), std::bad_alloc);
    EXPECT_EQ(threads.starts().size(), 0U);
    EXPECT_EQ(driver.CloseConnection(), 0);
    EXPECT_EQ(pUSBDataHandler, nullptr);
    EXPECT_EQ(bus.openHandles(), 0);
  }
}

// Closing a driver that is not open must not release the queue of one that is.
TYPED_TEST(FrameTest, CloseAfterAFailedOpenLeavesAnothersQueueAlone) {
  this->open();
  typename TypeParam::Driver other;
  this->bus.fail(HidCall::Open, {});
  const CapturedStream out(stdout);
  EXPECT_EQ(other.OpenConnection(recordPen), TypeParam::kOpenFailure);
  EXPECT_EQ(other.CloseConnection(), 0);
  EXPECT_TRUE(this->queueExists());
  this->sendReport();
  EXPECT_TRUE(this->recorder.waitFor(1));
  this->driver->CloseConnection();
}

TYPED_TEST(FrameTest, DestructionClosesTheDeviceButNotTheConnection) {
  this->threads.failStarts({1, 2, 3});  // so that the driver may be destroyed
  const CapturedStream out(stdout);
  this->open();
  this->bus.clearLog();
  this->driver.reset();
  EXPECT_EQ(this->bus.calls(),
            (support::Calls{support::called(HidCall::Close), support::called(HidCall::Exit)}));
  EXPECT_TRUE(this->queueExists());
  // What the close would have released.
  SharedQueue::release(TypeParam::kQueue);
  delete this->threads.starts().back().argument;
}

// A client may run the kind's queue on a thread of its own.

TYPED_TEST(FrameTest, WithoutAQueueProcessingReturns) {
  this->driver->procdata_routine();
}

TYPED_TEST(FrameTest, AThreadOfTheClientProcessesTheQueueAndEndsWithIt) {
  this->threads.failStarts({3});
  const CapturedStream out(stdout);
  this->open();
  std::atomic<bool> returned{false};
  std::thread lent([&] {
    this->driver->procdata_routine();
    returned = true;
  });
  this->sendReport();
  EXPECT_TRUE(this->recorder.waitFor(1));
  this->driver->CloseConnection();
  lent.join();
  EXPECT_FALSE(returned);
  EXPECT_EQ(this->recorder.count(), 1U);
}

}  // namespace
