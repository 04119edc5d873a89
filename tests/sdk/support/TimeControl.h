// Controls the C library's time. For programs that replace gettimeofday, clock and usleep
// (TIME_FUNCTIONS in the CMakeLists.txt); each calls the C library's function until changed here.
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

  // The result of gettimeofday from now on.
  void stopWallClock(long seconds, long microseconds);

  // The result of clock from now on, in ticks.
  void stopProcessorTime(std::clock_t ticks);

  // The number of calls of usleep with this argument since the construction. The calls do sleep.
  long sleeps(unsigned microseconds) const;

  // Waits until another `count` such calls have begun. False after 30 s.
  bool waitForSleeps(unsigned microseconds, long count) const;
};

}  // namespace support

#endif
