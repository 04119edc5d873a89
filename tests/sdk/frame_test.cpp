// The frame of worker threads: how the drivers start and end them, and what happens when the system
// refuses. The drivers differ in their lines and results only; the close of each has its own test.
#include "WorkerFrame.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/CapturedStream.h"
#include "support/PadTest.h"
#include "support/ScriptedPad.h"
#include "velaii.h"
#include "velainkusb.h"
#include "velausb.h"
#include "virtualpads/PadModel.h"

namespace {

// What the SDK asks of the system's threads and signals. The threads of the tests are not seen.
struct System {
  std::mutex mutex;
  std::vector<std::string> log;            // in the order of the calls
  std::map<pthread_t, std::string> names;  // of the threads, after the order of their starts
  std::vector<ThreadArg> arguments;        // of the starts
  ThreadArg* lastArgument = nullptr;
  std::vector<const pthread_attr_t*> attributes;
  int starts = 0;
  std::vector<int> failingStarts;                  // counted from 1
  std::function<void(const std::string&)> onCall;  // what is logged, before it is done
  std::vector<std::pair<int, int>> sigwaits;       // results and signals that come first

  void note(const std::string& call) {
    std::function<void(const std::string&)> then;
    {
      const std::lock_guard lock(mutex);
      log.push_back(call);
      then = onCall;
    }
    if (then) then(call);
  }

  std::string nameOf(pthread_t thread) {
    const std::lock_guard lock(mutex);
    return names[thread];
  }

  std::vector<std::string> calls() {
    const std::lock_guard lock(mutex);
    return log;
  }
};

System& theSystem() {
  static System* const system = new System;
  return *system;
}

}  // namespace

extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument) {
  System& system = theSystem();
  std::string name;
  bool fails = false;
  {
    const std::lock_guard lock(system.mutex);
    name = std::array{"signal", "reading", "processing"}.at(
        static_cast<std::size_t>(system.starts++ % 3));
    system.lastArgument = static_cast<ThreadArg*>(argument);
    system.arguments.push_back(*system.lastArgument);
    system.attributes.push_back(attributes);
    for (const int failing : system.failingStarts) fails = fails || failing == system.starts;
  }
  system.note("start " + name);
  if (fails) return EAGAIN;
  const int result = __real_pthread_create(thread, attributes, entry, argument);
  const std::lock_guard lock(system.mutex);
  system.names[*thread] = name;
  return result;
}

int __real_pthread_join(pthread_t thread, void** value);
int __wrap_pthread_join(pthread_t thread, void** value) {
  theSystem().note("join " + theSystem().nameOf(thread));
  return __real_pthread_join(thread, value);
}

int __real_pthread_kill(pthread_t thread, int signal);
int __wrap_pthread_kill(pthread_t thread, int signal) {
  theSystem().note((signal == SIGUSR1 ? "SIGUSR1 to " : "another signal to ") +
                   theSystem().nameOf(thread));
  return __real_pthread_kill(thread, signal);
}

int __real_sigprocmask(int how, const sigset_t* set, sigset_t* old);
int __wrap_sigprocmask(int how, const sigset_t* set, sigset_t* old) {
  std::string signals;
  for (int signal = 1; signal < NSIG; ++signal) {
    if (sigismember(set, signal) == 1) signals += signal == SIGUSR1 ? " SIGUSR1" : " another";
  }
  theSystem().note((how == SIG_BLOCK ? "block" : "other mask change") + signals +
                   (old == nullptr ? "" : " and keep the old mask"));
  return __real_sigprocmask(how, set, old);
}

int __real_sigwait(const sigset_t* set, int* signal);
int __wrap_sigwait(const sigset_t* set, int* signal) {
  System& system = theSystem();
  system.note("sigwait");
  {
    const std::lock_guard lock(system.mutex);
    if (!system.sigwaits.empty()) {
      const std::pair<int, int> prepared = system.sigwaits.front();
      system.sigwaits.erase(system.sigwaits.begin());
      *signal = prepared.second;
      return prepared.first;
    }
  }
  return __real_sigwait(set, signal);
}

}  // extern "C"

namespace {

using support::CapturedStream;
using support::comesTrue;
using support::Event;
using support::HidCall;
using support::penRecorder;
using support::recordPen;
using support::ScriptedPad;

// The points in which the drivers' frames differ.
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

  FrameTest() {
    System& system = theSystem();
    system.log.clear();
    system.names.clear();
    system.arguments.clear();
    system.attributes.clear();
    system.starts = 0;
    system.failingStarts.clear();
    system.onCall = nullptr;
    system.sigwaits.clear();
    setSigusr1Blocked(false);
  }

  ~FrameTest() override {
    driver.reset();
    EXPECT_FALSE(queueExists());
    EXPECT_TRUE(waitForThreads(0));
  }

  static void setSigusr1Blocked(bool blocked) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    pthread_sigmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &set, nullptr);
  }

  static bool sigusr1IsBlocked() {
    sigset_t set;
    pthread_sigmask(SIG_BLOCK, nullptr, &set);
    return sigismember(&set, SIGUSR1) == 1;
  }

  static bool queueExists() { return static_cast<bool>(Kind::kQueue); }

  int open() {
    plug(std::make_shared<ScriptedPad>(Kind::kProduct));
    return driver->OpenConnection(recordPen);
  }

  // A complete report with the pen down, whatever the kind.
  void sendReport() {
    support::Bytes report(Kind::kReportSize, 0);
    report[0] = 0x20;
    report[1] = 0x01;
    EXPECT_TRUE(bus.sendWhenRoom(port, report));
  }

  // Lets `then` run when the SDK makes that call of the system.
  void on(const std::string& call, std::function<void()> then) {
    theSystem().onCall = [call, then](const std::string& made) {
      if (made == call) then();
    };
  }

  std::unique_ptr<Driver> driver = std::make_unique<Driver>();
};

using Kinds = testing::Types<Usb, Ii, Ink>;
TYPED_TEST_SUITE(FrameTest, Kinds);

using Log = std::vector<std::string>;

// Opening.

TYPED_TEST(FrameTest, WithoutAPadNothingIsStarted) {
  const CapturedStream out(stdout);
  const CapturedStream err(stderr);
  const int result = this->driver->OpenConnection(recordPen);
  EXPECT_EQ(out.text(), TypeParam::kOpenFailureLine);
  EXPECT_EQ(err.text(), "");
  EXPECT_EQ(result, TypeParam::kOpenFailure);
  EXPECT_EQ(theSystem().calls(), Log{});
  EXPECT_FALSE(this->queueExists());
  EXPECT_FALSE(this->sigusr1IsBlocked());
}

TYPED_TEST(FrameTest, AnOpenThatFailedIsClosedSafely) {
  const CapturedStream out(stdout);
  this->driver->OpenConnection(recordPen);
  EXPECT_EQ(this->driver->CloseConnection(), 0);
  EXPECT_EQ(theSystem().calls(), Log{});
}

TYPED_TEST(FrameTest, BlocksTheSignalThenStartsTheThreeThreads) {
  const CapturedStream out(stdout);
  EXPECT_EQ(this->open(), 1);
  Log calls = theSystem().calls();
  std::erase(calls, "sigwait");  // made by the thread that is started
  EXPECT_EQ(calls, (Log{"block SIGUSR1", "start signal", "start reading", "start processing"}));
  EXPECT_EQ(out.text(), "");
  this->driver->CloseConnection();
}

TYPED_TEST(FrameTest, ThreadsGetDefaultAttributesAndTheDriverAndAZeroWord) {
  this->open();
  const System& system = theSystem();
  ASSERT_EQ(system.arguments.size(), 3U);
  for (const ThreadArg& argument : system.arguments) {
    EXPECT_EQ(argument.driver, this->driver.get());
    EXPECT_EQ(argument.zero, nullptr);
  }
  EXPECT_EQ(system.attributes, (std::vector<const pthread_attr_t*>(3)));
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
  theSystem().sigwaits = {{0, SIGUSR2}, {0, SIGHUP}};
  this->open();
  this->driver->CloseConnection();
  const Log calls = theSystem().calls();
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "sigwait"), 3);
}

TYPED_TEST(FrameTest, WhenSigwaitFailsTheCloseHangsInItsLastJoin) {
  theSystem().sigwaits = {{EINVAL, 0}};
  Event lastJoin;
  this->on("join reading", [&] { lastJoin.happen(); });
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
  ASSERT_TRUE(comesTrue([] { return theSystem().calls().size() == 5; }));  // sigwait, too
  theSystem().log.clear();
  EXPECT_EQ(this->driver->CloseConnection(), 0);
  EXPECT_EQ(theSystem().calls(),
            (Log{"join processing", "SIGUSR1 to signal", "join signal", "join reading"}));
  EXPECT_FALSE(this->driver->GetRunningState());
}

TYPED_TEST(FrameTest, TheQueueOutlivesTheReadingThread) {
  bool existed = false;
  this->open();
  this->on("join reading", [&] { existed = this->queueExists(); });
  this->driver->CloseConnection();
  EXPECT_TRUE(existed);
  EXPECT_FALSE(this->queueExists());
}

TYPED_TEST(FrameTest, TheDeviceIsOpenUntilTheReadingThreadHasEnded) {
  int open = -1;
  this->open();
  this->on("join reading", [&] { open = this->bus.openHandles(); });
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
  this->on("join processing", [&] { joining.happen(); });
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
  this->on("join reading", [&] { lastJoin.happen(); });
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

TYPED_TEST(FrameTest, ASignalThreadThatDoesNotStartIsTold) {
  theSystem().failingStarts = {1};
  const CapturedStream out(stdout);
  const CapturedStream err(stderr);
  EXPECT_EQ(this->open(), 1);
  EXPECT_EQ(out.text(), "create pollsignal failed\n");
  EXPECT_EQ(err.text(), "");
  this->sendReport();
  EXPECT_TRUE(this->recorder.waitFor(1));
  theSystem().log.clear();
  EXPECT_EQ(this->driver->CloseConnection(), 0);
  EXPECT_EQ(theSystem().calls(), (Log{"join processing", "join reading"}));
  EXPECT_FALSE(this->driver->GetRunningState());
}

TYPED_TEST(FrameTest, AReadingThreadThatDoesNotStartIsTold) {
  theSystem().failingStarts = {2};
  const CapturedStream out(stdout);
  const CapturedStream err(stderr);
  EXPECT_EQ(this->open(), 1);
  EXPECT_EQ(out.text(), TypeParam::kReadingLine);
  EXPECT_EQ(err.text(), "");
  ASSERT_TRUE(comesTrue([] { return theSystem().calls().size() == 5; }));  // sigwait, too
  theSystem().log.clear();
  EXPECT_EQ(this->driver->CloseConnection(), 0);
  EXPECT_EQ(theSystem().calls(), (Log{"join processing", "SIGUSR1 to signal", "join signal"}));
  EXPECT_EQ(this->bus.count(HidCall::Read), 0);
}

TYPED_TEST(FrameTest, AProcessingThreadThatDoesNotStartIsTold) {
  theSystem().failingStarts = {3};
  const CapturedStream out(stdout);
  const CapturedStream err(stderr);
  EXPECT_EQ(this->open(), 1);
  EXPECT_EQ(out.text(), "create processdata failed\n");
  EXPECT_EQ(err.text(), "");
  ASSERT_TRUE(comesTrue([] { return theSystem().calls().size() == 5; }));  // sigwait, too
  theSystem().log.clear();
  this->sendReport();
  EXPECT_TRUE(this->bus.waitUntilRead(this->port));
  EXPECT_EQ(this->driver->CloseConnection(), 0);
  EXPECT_EQ(theSystem().calls(), (Log{"SIGUSR1 to signal", "join signal", "join reading"}));
  EXPECT_EQ(this->recorder.count(), 0U);
}

TYPED_TEST(FrameTest, ThreadsThatDoNotStartAreToldInTurn) {
  theSystem().failingStarts = {1, 2, 3};
  const CapturedStream out(stdout);
  EXPECT_EQ(this->open(), 1);
  EXPECT_EQ(out.text(), std::string("create pollsignal failed\n") + TypeParam::kReadingLine +
                            "create processdata failed\n");
  EXPECT_TRUE(this->queueExists());
  theSystem().log.clear();
  EXPECT_EQ(this->driver->CloseConnection(), 0);
  EXPECT_EQ(theSystem().calls(), Log{});
}

TYPED_TEST(FrameTest, DestructionClosesTheDeviceButNotTheConnection) {
  theSystem().failingStarts = {1, 2, 3};  // so that the driver may go
  const CapturedStream out(stdout);
  this->open();
  this->bus.clearLog();
  this->driver.reset();
  EXPECT_EQ(this->bus.calls(),
            (support::Calls{support::called(HidCall::Close), support::called(HidCall::Exit)}));
  EXPECT_TRUE(this->queueExists());
  // What the close would have released.
  TypeParam::kQueue.release();
  delete theSystem().lastArgument;
}

// A client may lend the kind's queue a thread.

TYPED_TEST(FrameTest, WithoutAQueueProcessingReturns) {
  this->driver->procdata_routine();
}

TYPED_TEST(FrameTest, AThreadOfTheClientProcessesTheQueueAndEndsWithIt) {
  theSystem().failingStarts = {3};
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
