// The vision pad's frame of worker threads, where it differs from the other pads': how the signal
// is blocked, the order of the starts, the lines and their stream.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/PadTest.h"
#include "support/Written.h"
#include "velavision.h"

namespace {

// What the driver asks of the system's threads and signals.
struct System {
  std::mutex mutex;
  std::vector<std::string> log;
  std::map<pthread_t, std::string> names;  // of the threads, by the order of their starts
  int starts = 0;
  std::set<int> failingStarts;  // counted from 1
  bool sigwaitFails = false;
  std::function<void(const std::string&)> onCall;

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

System* theSystem = nullptr;

// "SIGUSR1" when that is the only signal in the set.
std::string signalsIn(const sigset_t* set) {
  std::string signals;
  for (int signal = 1; signal < NSIG; ++signal) {
    if (sigismember(set, signal) == 1) signals += signal == SIGUSR1 ? "SIGUSR1" : "another";
  }
  return signals;
}

}  // namespace

extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument) {
  constexpr const char* kNames[] = {"first", "second", "third"};
  const int start = ++theSystem->starts;
  const std::string name = kNames[start - 1];
  theSystem->note("start " + name);
  if (theSystem->failingStarts.contains(start)) return EAGAIN;
  const int result = __real_pthread_create(thread, attributes, entry, argument);
  const std::lock_guard lock(theSystem->mutex);
  theSystem->names[*thread] = name;
  return result;
}

int __real_pthread_join(pthread_t thread, void** value);
int __wrap_pthread_join(pthread_t thread, void** value) {
  theSystem->note("join " + theSystem->nameOf(thread));
  return __real_pthread_join(thread, value);
}

int __real_pthread_kill(pthread_t thread, int signal);
int __wrap_pthread_kill(pthread_t thread, int signal) {
  theSystem->note((signal == SIGUSR1 ? "SIGUSR1 to " : "another signal to ") +
                  theSystem->nameOf(thread));
  return __real_pthread_kill(thread, signal);
}

int __real_pthread_sigmask(int how, const sigset_t* set, sigset_t* old);
int __wrap_pthread_sigmask(int how, const sigset_t* set, sigset_t* old) {
  theSystem->note((how == SIG_BLOCK ? "block " : "other mask change ") + signalsIn(set) +
                  (old == nullptr ? "" : " and keep the old mask"));
  return __real_pthread_sigmask(how, set, old);
}

int __real_sigwait(const sigset_t* set, int* signal);
int __wrap_sigwait(const sigset_t* set, int* signal) {
  if (theSystem->sigwaitFails) return EINVAL;
  return __real_sigwait(set, signal);
}

}  // extern "C"

namespace {

using support::Event;
using support::HidCall;
using support::kNothingWritten;
using support::recordPen;
using support::Written;
using support::writtenBy;
using testing::ElementsAre;
using testing::IsEmpty;

class VisionFrameTest : public support::PadTest {
 protected:
  VisionFrameTest() {
    theSystem = &system;
    plug(virtualpads::makePad(virtualpads::PadKind::Vision));
  }

  ~VisionFrameTest() override {
    EXPECT_FALSE(static_cast<bool>(pVisionDataHandler));
    EXPECT_TRUE(waitForThreads(0));
  }

  Written open() {
    return writtenBy([&] { opened = driver.OpenConnection(recordPen); });
  }

  System system;
  velavision driver;
  int opened = -9;
};

TEST_F(VisionFrameTest, BlocksTheSignalOfTheThreadThenStartsThreeThreads) {
  EXPECT_EQ(open(), kNothingWritten);
  EXPECT_THAT(system.calls(),
              ElementsAre("block SIGUSR1", "start first", "start second", "start third"));
  EXPECT_TRUE(waitForThreads(3));
  driver.CloseConnection();
}

TEST_F(VisionFrameTest, ReadingThreadIsTheFirstToStart) {
  system.failingStarts = {1};
  EXPECT_EQ(open(), (Written{"", "create getdata failed\n"}));
  EXPECT_EQ(opened, 1);
  EXPECT_EQ(driver.CloseConnection(), 0);
  EXPECT_EQ(bus.count(HidCall::Read), 0);
}

TEST_F(VisionFrameTest, SignalThreadIsTheSecondToStart) {
  system.failingStarts = {2};
  EXPECT_EQ(open(), (Written{"", "create pollsignal failed\n"}));
  EXPECT_EQ(opened, 1);
  send("01 80 00 01 00 02 00 03 00 00 00 04");
  EXPECT_TRUE(recorder.waitFor(1));
  EXPECT_EQ(driver.CloseConnection(), 0);
  EXPECT_FALSE(driver.GetRunningState());
}

TEST_F(VisionFrameTest, ProcessingThreadIsTheThirdToStart) {
  system.failingStarts = {3};
  EXPECT_EQ(open(), (Written{"", "create processdata failed\n"}));
  EXPECT_EQ(opened, 1);
  send("01 80 00 01 00 02 00 03 00 00 00 04");
  EXPECT_TRUE(bus.waitUntilRead(port));
  EXPECT_EQ(driver.CloseConnection(), 0);
  EXPECT_EQ(recorder.count(), 0U);
}

TEST_F(VisionFrameTest, ThreadsThatDoNotStartAreToldInTurnAndTheConnectionCloses) {
  system.failingStarts = {1, 2, 3};
  EXPECT_EQ(open(), (Written{"",
                             "create getdata failed\n"
                             "create pollsignal failed\n"
                             "create processdata failed\n"}));
  EXPECT_EQ(opened, 1);
  system.log.clear();
  EXPECT_EQ(driver.CloseConnection(), 0);
  EXPECT_THAT(system.calls(), IsEmpty());
  EXPECT_EQ(bus.openHandles(), 0);
}

TEST_F(VisionFrameTest, ClosesInThisOrder) {
  open();
  system.log.clear();
  bool openAtTheEnd = false;
  long sentBefore = -1;
  long sentAfter = -1;
  bus.clearLog();
  system.onCall = [&](const std::string& call) {
    const long sent = bus.count(HidCall::SendFeature);
    if (call == "join third") sentBefore = sent;
    if (call == "SIGUSR1 to second") sentAfter = sent;
    if (call == "join first") {
      openAtTheEnd = static_cast<bool>(pVisionDataHandler) && bus.openHandles() == 1;
    }
  };
  EXPECT_EQ(driver.CloseConnection(), 0);
  EXPECT_THAT(system.calls(),
              ElementsAre("join third", "SIGUSR1 to second", "join second", "join first"));
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
  system.sigwaitFails = true;
  open();
  Event lastJoin;
  system.onCall = [&](const std::string& call) {
    if (call == "join first") lastJoin.happen();
  };
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
