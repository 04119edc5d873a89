// The C library's time as a test wants it. For programs that replace gettimeofday, clock and usleep
// (TIME_FUNCTIONS in the CMakeLists.txt); each stays the C library's until told otherwise.
#ifndef TESTS_SDK_SUPPORT_TIMECONTROL_H
#define TESTS_SDK_SUPPORT_TIMECONTROL_H

#include <ctime>

namespace support {

// From construction to destruction.
class TimeControl {
 public:
  TimeControl();
  ~TimeControl();
  TimeControl(const TimeControl&) = delete;
  TimeControl& operator=(const TimeControl&) = delete;

  // What gettimeofday gives from now on.
  void stopWallClock(long seconds, long microseconds);

  // What clock gives from now on, in ticks.
  void stopProcessorTime(std::clock_t ticks);

  // The number of calls of usleep with this argument since the construction. They do sleep.
  long sleeps(unsigned microseconds) const;

  // Waits until another `count` such calls have begun. False when that has not happened after 30 s.
  bool waitForSleeps(unsigned microseconds, long count) const;
};

}  // namespace support

#endif
