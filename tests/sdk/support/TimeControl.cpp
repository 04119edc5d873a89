#include "support/TimeControl.h"

#include <sys/time.h>
#include <unistd.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>

#include "support/Patience.h"

namespace {

std::mutex mutex;
std::condition_variable slept;
std::optional<timeval> wallClock;
std::optional<std::clock_t> processorTime;

// Made at its first use, since a test may run threads before main begins.
std::map<unsigned, long>& sleepCounts() {
  static std::map<unsigned, long> counts;
  return counts;
}

void letRun() {
  const std::lock_guard lock(mutex);
  wallClock.reset();
  processorTime.reset();
  sleepCounts().clear();
}

}  // namespace

extern "C" {

int __real_gettimeofday(timeval* time, void* zone);
std::clock_t __real_clock();
int __real_usleep(unsigned microseconds);

int __wrap_gettimeofday(timeval* time, void* zone) {
  const std::lock_guard lock(mutex);
  if (!wallClock) return __real_gettimeofday(time, zone);
  *time = *wallClock;
  return 0;
}

std::clock_t __wrap_clock() {
  const std::lock_guard lock(mutex);
  return processorTime ? *processorTime : __real_clock();
}

int __wrap_usleep(unsigned microseconds) {
  {
    const std::lock_guard lock(mutex);
    ++sleepCounts()[microseconds];
    slept.notify_all();
  }
  return __real_usleep(microseconds);
}

}  // extern "C"

namespace support {

TimeControl::TimeControl() {
  letRun();
}

TimeControl::~TimeControl() {
  letRun();
}

void TimeControl::stopWallClock(long seconds, long microseconds) {
  const std::lock_guard lock(mutex);
  wallClock = timeval{.tv_sec = seconds, .tv_usec = microseconds};
}

void TimeControl::stopProcessorTime(std::clock_t ticks) {
  const std::lock_guard lock(mutex);
  processorTime = ticks;
}

long TimeControl::sleeps(unsigned microseconds) const {
  const std::lock_guard lock(mutex);
  return sleepCounts()[microseconds];
}

bool TimeControl::waitForSleeps(unsigned microseconds, long count) const {
  std::unique_lock lock(mutex);
  const long wanted = sleepCounts()[microseconds] + count;
  return slept.wait_until(lock, std::chrono::steady_clock::now() + kPatience,
                          [&] { return sleepCounts()[microseconds] >= wanted; });
}

}  // namespace support
