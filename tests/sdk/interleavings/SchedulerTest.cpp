// The scheduler: what it finds, what it reports, and that a seed repeats a run.
#include "../../support/Scheduler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <set>
#include <shared_mutex>
#include <string>
#include <thread>

#include "../../support/TrackedHeap.h"

namespace {

using support::fail;
using support::kMillisecond;
using support::kSecond;
using support::now;
using support::Outcome;
using support::runScheduled;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

// The first failing run among some seeds; its report is empty if there is none.
Outcome firstFailure(void (*body)(), std::uint64_t seeds = 300) {
  for (std::uint64_t seed = 1; seed <= seeds; ++seed) {
    Outcome outcome = runScheduled(seed, body);
    if (outcome.failed) return outcome;
  }
  return {};
}

template <class... Bodies>
void runThreads(Bodies... bodies) {
  std::thread threads[] = {std::thread(bodies)...};
  for (std::thread& thread : threads) thread.join();
}

// Two threads that add to a number without a lock.
void add() {
  static int number;
  number = 0;
  const auto addTen = [] {
    usleep(1000);
    for (int i = 0; i < 10; ++i) {
      const int read = number;
      if (read >= 0) number = read + 1;
    }
  };
  runThreads(addTen, addTen);
  if (number != 20) fail("the number is %d", number);
}

TEST(SchedulerTest, FindsAnUpdateThatIsLostBetweenBasicBlocks) {
  int failed = 0;
  for (std::uint64_t seed = 1; seed <= 300; ++seed) {
    const Outcome outcome = runScheduled(seed, add);
    if (!outcome.failed) continue;
    ++failed;
    EXPECT_THAT(outcome.report, StartsWith("the number is 1"));
  }
  EXPECT_GT(failed, 0);
  EXPECT_LT(failed, 300);
}

TEST(SchedulerTest, SameSeedGivesTheSameRun) {
  std::set<std::uint64_t> traces;
  for (std::uint64_t seed = 1; seed <= 50; ++seed) {
    const Outcome once = runScheduled(seed, add);
    const Outcome again = runScheduled(seed, add);
    EXPECT_EQ(once.failed, again.failed) << seed;
    EXPECT_EQ(once.decisions, again.decisions) << seed;
    EXPECT_EQ(once.switches, again.switches) << seed;
    EXPECT_EQ(once.time, again.time) << seed;
    EXPECT_EQ(once.trace, again.trace) << seed;
    traces.insert(once.trace);
  }
  EXPECT_EQ(traces.size(), 50U);
}

TEST(SchedulerTest, TakesNoTimeForSleeping) {
  const Outcome outcome = runScheduled(1, [] {
    usleep(50'000'000);
    std::this_thread::sleep_for(std::chrono::seconds(50));
  });
  EXPECT_FALSE(outcome.failed) << outcome.report;
  EXPECT_GE(outcome.time, 100 * kSecond);
  EXPECT_LT(outcome.time, 100 * kSecond + 20 * kMillisecond);
}

TEST(SchedulerTest, ClocksShowTheVirtualTime) {
  EXPECT_EQ(firstFailure([] {
              const auto begin = std::chrono::steady_clock::now();
              const auto day = std::chrono::system_clock::now();
              usleep(90'000'000);
              const auto passed = std::chrono::steady_clock::now() - begin;
              const auto onCalendar = std::chrono::system_clock::now() - day;
              const std::chrono::milliseconds least{90'000};
              const std::chrono::milliseconds most{90'020};
              if (passed < least || passed > most || onCalendar < least || onCalendar > most)
                fail("another time");
            }).report,
            "");
}

TEST(SchedulerTest, ThreadsWakeInTheOrderOfTheirDeadlines) {
  EXPECT_EQ(firstFailure([] {
              static std::string order;
              order.clear();
              runThreads([] { usleep(300'000), order += 'c'; },
                         [] { usleep(100'000), order += 'a'; },
                         [] { usleep(200'000), order += 'b'; });
              if (order != "abc") fail("the order is %s", order.c_str());
            }).report,
            "");
}

TEST(SchedulerTest, ReportsADeadlockWithWhatEachThreadWaitsFor) {
  const Outcome outcome = firstFailure([] {
    static std::mutex one;
    static std::mutex other;
    support::nameThreads({"reading", "processing"});
    runThreads(
        [] {
          const std::lock_guard first(one);
          const std::lock_guard second(other);
        },
        [] {
          const std::lock_guard first(other);
          const std::lock_guard second(one);
        });
  });
  EXPECT_THAT(outcome.report, AllOf(StartsWith("deadlock\n"), HasSubstr("client: joins reading"),
                                    HasSubstr("\n  reading: waits for mutex"),
                                    HasSubstr("\n  processing: waits for mutex")));
}

TEST(SchedulerTest, ReportsAWakeUpThatIsLost) {
  const Outcome outcome = firstFailure([] {
    static std::mutex mutex;
    static std::condition_variable changed;
    static bool done;
    done = false;
    runThreads(
        [] {
          std::unique_lock lock(mutex);
          changed.wait(lock, [] { return done; });
        },
        [] {
          changed.notify_all();
          const std::lock_guard lock(mutex);
          done = true;
        });
  });
  EXPECT_THAT(outcome.report, AllOf(StartsWith("deadlock\n"), HasSubstr("waits for condition")));
}

TEST(SchedulerTest, EndsWaitsForNoReasonNowAndThen) {
  EXPECT_EQ(firstFailure([] {
              static std::mutex mutex;
              static std::condition_variable changed;
              static bool done;
              done = false;
              runThreads(
                  [] {
                    std::unique_lock lock(mutex);
                    if (!done) changed.wait(lock);
                    if (!done) fail("woken for no reason");
                  },
                  [] {
                    usleep(100'000);
                    const std::lock_guard lock(mutex);
                    done = true;
                    changed.notify_all();
                  });
            }).report,
            "woken for no reason");
}

TEST(SchedulerTest, TimedWaitsEndAtTheirDeadline) {
  EXPECT_EQ(firstFailure([] {
              std::mutex mutex;
              std::condition_variable changed;
              std::unique_lock lock(mutex);
              const support::Time begin = now();
              changed.wait_for(lock, std::chrono::seconds(10), [] { return false; });
              const support::Time taken = now() - begin;
              if (taken < 10 * kSecond || taken > 10 * kSecond + 20 * kMillisecond) fail("late");
            }).report,
            "");
}

TEST(SchedulerTest, ReportsALivelock) {
  const Outcome outcome = runScheduled(1, [] {
    static bool over;
    over = false;
    std::thread other([] {
      while (!over) usleep(1000);
    });
    other.join();
  });
  EXPECT_THAT(outcome.report, AllOf(StartsWith("livelock"), HasSubstr("client: joins thread")));
}

TEST(SchedulerTest, ReportsALockInReleasedMemory) {
  EXPECT_EQ(runScheduled(1,
                         [] {
                           auto* const mutex = new std::mutex;
                           delete mutex;
                           mutex->lock();
                         })
                .report,
            "client uses a mutex in released memory");
  EXPECT_EQ(runScheduled(1,
                         [] {
                           auto* const mutex = new std::mutex;
                           mutex->lock();
                           delete mutex;
                         })
                .report,
            "memory with a lock that is in use was released");
}

TEST(SchedulerTest, ReportsALockThatWasDestroyed) {
  EXPECT_EQ(runScheduled(1,
                         [] {
                           pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
                           pthread_mutex_destroy(&mutex);
                           pthread_mutex_lock(&mutex);
                         })
                .report,
            "client uses a mutex that was destroyed");
}

TEST(SchedulerTest, ReportsAThreadThatIsNeverJoined) {
  const Outcome outcome = runScheduled(1, [] {
    pthread_t thread{};
    support::nameThreads({"signal"});
    pthread_create(
        &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr);
    usleep(1000);
  });
  EXPECT_EQ(outcome.report, "a thread was never joined\n  client: can go on\n  signal: has ended");
}

TEST(SchedulerTest, ReportsASecondJoin) {
  EXPECT_EQ(runScheduled(1,
                         [] {
                           pthread_t thread{};
                           pthread_create(
                               &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr);
                           pthread_join(thread, nullptr);
                           pthread_join(thread, nullptr);
                         })
                .report,
            "client joins a thread that there is not");
}

TEST(SchedulerTest, ThreadEndsAfterTheDestructorsOfItsObjects) {
  EXPECT_EQ(firstFailure([] {
              static std::shared_mutex mutex;
              std::thread other([] {
                static thread_local std::shared_lock<std::shared_mutex> lock;
                lock = std::shared_lock(mutex);
                pthread_exit(nullptr);
              });
              usleep(1000);
              const std::lock_guard alone(mutex);  // a deadlock if the share stayed
              other.join();
            }).report,
            "");
}

TEST(SchedulerTest, ExclusiveLockKeepsSharesOut) {
  EXPECT_EQ(firstFailure([] {
              static std::shared_mutex mutex;
              static int inside;
              inside = 0;
              const auto share = [] {
                const std::shared_lock lock(mutex);
                if (inside != 0) fail("a share beside the exclusive lock");
              };
              runThreads(share, share, [] {
                const std::lock_guard alone(mutex);
                inside = 1;
                usleep(1000);
                inside = 0;
              });
            }).report,
            "");
}

TEST(SchedulerTest, SharesOfALockAreHeldTogether) {
  EXPECT_EQ(firstFailure([] {
              static std::shared_mutex mutex;
              static int inside;
              inside = 0;
              const auto share = [] {
                const std::shared_lock lock(mutex);
                if (++inside == 2) fail("together");
                usleep(1000);
                --inside;
              };
              runThreads(share, share);
            }).report,
            "together");
}

TEST(SchedulerTest, SignalReachesTheThreadThatWaitsForIt) {
  EXPECT_EQ(firstFailure([] {
              static sigset_t set;
              sigemptyset(&set);
              sigaddset(&set, SIGUSR1);
              pthread_sigmask(SIG_BLOCK, &set, nullptr);
              std::thread other([] {
                int signal = 0;
                sigwait(&set, &signal);
                if (signal != SIGUSR1) fail("signal %d", signal);
              });
              pthread_kill(other.native_handle(), SIGUSR1);
              other.join();
            }).report,
            "");
}

TEST(SchedulerTest, SignalThatIsNotBlockedEndsTheProcess) {
  EXPECT_EQ(runScheduled(1,
                         [] {
                           support::nameThreads({"pad"});
                           std::thread other([] { usleep(1000); });
                           pthread_kill(other.native_handle(), SIGUSR1);
                           other.join();
                         })
                .report,
            "signal 10 ends the process: pad does not block it");
}

TEST(SchedulerTest, ThreadDoesNotStartWhenToldSo) {
  EXPECT_EQ(runScheduled(1,
                         [] {
                           support::failThreadStart(1);
                           pthread_t threads[2];
                           const auto start = [&](int i) {
                             return pthread_create(
                                 &threads[i], nullptr, [](void*) -> void* { return nullptr; },
                                 nullptr);
                           };
                           if (start(0) != 0 || start(1) != EAGAIN) fail("another one");
                           pthread_join(threads[0], nullptr);
                         })
                .report,
            "");
}

TEST(SchedulerTest, CrashIsAnOutcome) {
  const Outcome outcome = runScheduled(1, [] { std::abort(); });
  EXPECT_TRUE(outcome.failed);
  EXPECT_THAT(outcome.report, StartsWith("ended by signal: Aborted"));
}

TEST(SchedulerTest, StaticObjectIsConstructedOnce) {
  EXPECT_EQ(firstFailure([] {
              static int constructed;
              constructed = 0;
              struct Slow {
                Slow() {
                  usleep(1000);
                  ++constructed;
                }
              };
              const auto use = [] { static Slow slow; };
              runThreads(use, use);
              if (constructed != 1) fail("constructed %d times", constructed);
            }).report,
            "");
}

TEST(TrackedHeapTest, KnowsWhatTheCodeUnderTestHasLeft) {
  EXPECT_EQ(runScheduled(1,
                         [] {
                           delete new long;
                           int* const left = new int;
                           {
                             const support::TestCode scope;
                             new long;
                           }
                           support::visitLiveBlocks(
                               [](const void* address, std::size_t size, void* expected) {
                                 if (address == expected) fail("%zu bytes are left", size);
                               },
                               left);
                         })
                .report,
            "4 bytes are left");
}

#ifndef __SANITIZE_ADDRESS__
TEST(TrackedHeapTest, ReportsAWriteToReleasedMemory) {
  EXPECT_EQ(runScheduled(1,
                         [] {
                           auto* const number = new volatile int;
                           delete number;
                           *number = 1;
                         })
                .report,
            "released memory was written to");
}

TEST(TrackedHeapTest, ReportsASecondRelease) {
  EXPECT_EQ(runScheduled(1,
                         [] {
                           auto* const number = new volatile int;
                           delete number;
                           delete number;
                         })
                .report,
            "memory was released twice");
}
#endif

}  // namespace
