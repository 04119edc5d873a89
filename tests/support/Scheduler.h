// Runs a program's threads one at a time, in an order chosen by a seed, in virtual time.
//
// A program that links ThreadFunctions.cpp has its own definitions of the functions for threads,
// locks, signals, sleeping and clocks; the standard library calls them too. During a run each of
// them is a decision: the scheduler chooses the thread that goes on. So is, now and then, the start
// of a basic block in code that is compiled with -fsanitize-coverage=trace-pc. The threads are real
// ones that hand over to each other. Time stands still while a thread can go on, except for a few
// microseconds for each decision, and jumps to the next deadline otherwise.
//
// Half of the seeds walk at random. The others use probabilistic concurrency testing: random
// priorities, and a few moments at which the running thread's becomes the lowest.
#ifndef TESTS_SUPPORT_SCHEDULER_H
#define TESTS_SUPPORT_SCHEDULER_H

#include <cstdint>
#include <initializer_list>
#include <string>

namespace support {

// Virtual time since the start of the run, in nanoseconds.
using Time = std::uint64_t;
inline constexpr Time kMicrosecond = 1000;
inline constexpr Time kMillisecond = 1000 * kMicrosecond;
inline constexpr Time kSecond = 1000 * kMillisecond;
inline constexpr Time kForever = ~Time{0};

// splitmix64: a seed's numbers are the same everywhere.
class Random {
 public:
  explicit Random(std::uint64_t seed) : m_state(seed) {}
  std::uint64_t next();
  // From 0 to limit - 1; limit is not 0.
  std::uint64_t below(std::uint64_t limit) { return next() % limit; }
  bool oneIn(std::uint64_t n) { return below(n) == 0; }

 private:
  std::uint64_t m_state;
};

struct Outcome {
  bool failed = false;
  std::string report;  // what went wrong
  std::uint64_t decisions = 0;
  std::uint64_t switches = 0;  // decisions for another thread
  Time time = 0;
  std::uint64_t trace = 0;  // a hash of all decisions
};

// Runs `body` on a thread called "client", in a process of its own, until it returns. All threads
// must have been joined by then. Every way to fail, a crash included, is an outcome. With `verbose`
// the notes are printed, each thread in its column.
Outcome runScheduled(std::uint64_t seed, void (*body)(), bool verbose = false);

// The rest is for the threads of a run.

Time now();

// The part of it that went by while a thread could go on.
Time busyTime();

// Ends the run as failed. Printf's arguments.
[[noreturn, gnu::format(printf, 1, 2)]] void fail(const char* format, ...);

// An event for the verbose output. Printf's arguments.
[[gnu::format(printf, 1, 2)]] void note(const char* format, ...);

// Whether notes are printed.
bool verbose();

// A decision.
void decide();

void sleepFor(Time time);

// Waits until ready() is true, which it returns, or until the deadline. `ready` is called on other
// threads and makes no decision. `what` and `object` are for reports; an object is a lock or null.
template <class Ready>
bool waitUntil(const char* what, Ready ready, Time deadline = kForever,
               const void* object = nullptr);

// The names, and so the columns, of the threads created next. Others are called "thread".
void nameThreads(std::initializer_list<const char*> names);

// The n-th thread created from now on (0 is the next) does not start.
void failThreadStart(int n);

// Numbers for the code under test's surroundings, independent of the decisions' ones.
Random& random();

// The name of the calling thread.
const char* threadName();

// Whether the last thread of that name has ended.
bool threadHasEnded(const char* name);

// The memory from `begin` on has been released: locks in it are forgotten, held ones are a failure.
void forgetLocks(const void* begin, std::size_t size);

bool waitUntilReady(const char* what, const void* object, Time deadline, bool (*ready)(void*),
                    void* argument);

template <class Ready>
bool waitUntil(const char* what, Ready ready, Time deadline, const void* object) {
  return waitUntilReady(
      what, object, deadline, [](void* argument) { return (*static_cast<Ready*>(argument))(); },
      &ready);
}

}  // namespace support

#endif
