// The program's own definitions of the functions that threads meet each other in. A thread that
// belongs to a run meets the scheduler there; others reach the C library's functions.
#include <dlfcn.h>
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "Scheduler.h"
#include "SchedulerThreads.h"
#include "TrackedHeap.h"

namespace {

using namespace support;

// Sets the pointer to the C library's function of that name, the first time.
template <class Pointer>
Pointer original(Pointer& pointer, const char* name) {
  if (pointer == nullptr) pointer = reinterpret_cast<Pointer>(dlsym(RTLD_NEXT, name));
  if (pointer == nullptr) std::abort();
  return pointer;
}

// The C library's function instead of the one below.
#define ORIGINAL(function)                                    \
  ([] {                                                       \
    static constinit decltype(&(function)) pointer = nullptr; \
    return original(pointer, #function);                      \
  }())

bool inRun() {
  return currentThread() != kNoThread;
}

// Locks.

struct Lock {
  const void* at = nullptr;
  int owner = kNoThread;       // of a mutex, or the writer
  std::uint64_t readers = 0;   // by thread
  std::uint64_t waiting = 0;   // for the lock, or for the condition
  std::uint64_t notified = 0;  // of those that wait for the condition
  bool destroyed = false;

  bool inUse() const { return owner != kNoThread || readers != 0 || waiting != 0; }
};

std::array<Lock, 512> locks;
std::size_t lockCount = 0;

std::uint64_t bit(int thread) {
  return std::uint64_t{1} << thread;
}

std::uint64_t myBit() {
  return bit(currentThread());
}

// The state of the lock at this address.
Lock& lockAt(const void* at, const char* kind) {
  if (isReleased(at)) fail("%s uses a %s in released memory", threadName(), kind);
  for (std::size_t i = 0; i < lockCount; ++i) {
    if (locks[i].at != at) continue;
    if (locks[i].destroyed) fail("%s uses a %s that was destroyed", threadName(), kind);
    return locks[i];
  }
  if (lockCount == locks.size()) fail("more than %zu locks", locks.size());
  locks[lockCount] = {.at = at};
  return locks[lockCount++];
}

void destroyLock(const void* at, const char* kind) {
  Lock& lock = lockAt(at, kind);
  if (lock.inUse()) fail("%s destroys a %s that is in use", threadName(), kind);
  lock.destroyed = true;
}

// Waits for the lock until `free` is true, then takes it by `take`. False after the deadline.
template <class Free, class Take>
bool acquire(const void* at, const char* kind, const char* what, Free free, Take take,
             Time deadline = kForever) {
  lockAt(at, kind).waiting |= myBit();
  const bool got = waitUntil(
      what, [&] { return free(lockAt(at, kind)); }, deadline, at);
  Lock& lock = lockAt(at, kind);
  lock.waiting &= ~myBit();
  if (got) take(lock);
  return got;
}

constexpr const char* kMutex = "mutex";
constexpr const char* kSharedLock = "shared lock";
constexpr const char* kCondition = "condition variable";

bool isFree(const Lock& lock) {
  return lock.owner == kNoThread && lock.readers == 0;
}

bool hasNoWriter(const Lock& lock) {
  return lock.owner == kNoThread;
}

void take(Lock& lock) {
  lock.owner = currentThread();
}

void takeShared(Lock& lock) {
  // One bit for each thread: the SDK does not lock a shared lock twice on a thread.
  if ((lock.readers & myBit()) != 0) fail("%s locks a shared lock twice", threadName());
  lock.readers |= myBit();
}

bool lockMutex(pthread_mutex_t* mutex, Time deadline = kForever) {
  return acquire(mutex, kMutex, "waits for mutex", isFree, take, deadline);
}

void unlockMutex(pthread_mutex_t* mutex) {
  Lock& lock = lockAt(mutex, kMutex);
  if (lock.owner != currentThread())
    fail("%s unlocks a mutex that it has not locked", threadName());
  lock.owner = kNoThread;
}

// The wait of a condition variable. POSIX lets it end for no reason, so it does now and then. False
// after the deadline.
bool waitFor(pthread_cond_t* condition, pthread_mutex_t* mutex, Time deadline) {
  decide();
  const std::uint64_t me = myBit();
  Lock& lock = lockAt(condition, kCondition);
  lock.waiting |= me;
  lock.notified &= ~me;
  unlockMutex(mutex);
  const Time spurious = choices().oneIn(8) ? now() + choices().below(2 * kMillisecond) : kForever;
  const bool notified = waitUntil(
      "waits for condition", [&] { return (lockAt(condition, kCondition).notified & me) != 0; },
      std::min(deadline, spurious), condition);
  lockAt(condition, kCondition).waiting &= ~me;
  lockMutex(mutex);
  return notified || now() < deadline;
}

// Clocks.

constexpr Time kRealTimeAtStart = 1'700'000'000 * kSecond;
constexpr Time kMonotonicAtStart = 1000 * kSecond;

Time startOf(clockid_t clock) {
  return clock == CLOCK_REALTIME ? kRealTimeAtStart : kMonotonicAtStart;
}

timespec timespecOf(Time time) {
  return {static_cast<time_t>(time / kSecond), static_cast<long>(time % kSecond)};
}

Time timeOf(const timespec& time) {
  return static_cast<Time>(time.tv_sec) * kSecond + static_cast<Time>(time.tv_nsec);
}

Time deadlineOf(clockid_t clock, const timespec& time) {
  const Time absolute = timeOf(time);
  return absolute > startOf(clock) ? absolute - startOf(clock) : 0;
}

// Signals. Each thread's mask and pending signals, and those pending for the process.

struct Signals {
  std::uint64_t blocked = 0;
  std::uint64_t pending = 0;
};

std::array<Signals, kMaxThreads> signals;
std::uint64_t pendingForProcess = 0;

std::uint64_t bitOf(int signal) {
  return std::uint64_t{1} << (signal - 1);
}

std::uint64_t bitsOf(const sigset_t& set) {
  std::uint64_t bits = 0;
  for (int signal = 1; signal <= 64; ++signal)
    if (sigismember(&set, signal) == 1) bits |= bitOf(signal);
  return bits;
}

Signals& mySignals() {
  return signals[static_cast<std::size_t>(currentThread())];
}

// The program has no handlers, so a signal that a thread does not block ends it.
void endByUnblockedSignals() {
  const std::uint64_t arriving = (mySignals().pending | pendingForProcess) & ~mySignals().blocked;
  if (arriving != 0) {
    fail("signal %d ends the process: %s does not block it", std::countr_zero(arriving) + 1,
         threadName());
  }
}

int changeMask(int how, const sigset_t* set, sigset_t* old) {
  Signals& mine = mySignals();
  if (old != nullptr) {
    sigemptyset(old);
    for (int signal = 1; signal <= 64; ++signal)
      if ((mine.blocked & bitOf(signal)) != 0) sigaddset(old, signal);
  }
  if (set == nullptr) return 0;
  const std::uint64_t bits = bitsOf(*set);
  switch (how) {
    case SIG_BLOCK:
      mine.blocked |= bits;
      break;
    case SIG_UNBLOCK:
      mine.blocked &= ~bits;
      break;
    case SIG_SETMASK:
      mine.blocked = bits;
      break;
    default:
      return EINVAL;
  }
  endByUnblockedSignals();
  decide();
  return 0;
}

}  // namespace

namespace support {

void forgetLocks(const void* begin, std::size_t size) {
  const auto* const first = static_cast<const std::byte*>(begin);
  for (std::size_t i = 0; i < lockCount;) {
    const auto* const at = static_cast<const std::byte*>(locks[i].at);
    if (at < first || at >= first + size) {
      ++i;
      continue;
    }
    if (locks[i].inUse()) fail("memory with a lock that is in use was released");
    locks[i] = locks[--lockCount];
  }
}

}  // namespace support

extern "C" {

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                   void* argument) noexcept {
  if (!inRun()) return ORIGINAL(pthread_create)(thread, attributes, entry, argument);
  decide();
  if (!mayStart()) {
    note("thread does not start");
    *thread = ~pthread_t{};  // POSIX leaves it undefined
    return EAGAIN;
  }
  const std::uint64_t blocked = mySignals().blocked;
  addThread(ORIGINAL(pthread_create), thread, attributes, entry, argument);
  const int added = threadOf(*thread);
  signals[static_cast<std::size_t>(added)].blocked = blocked;
  note("starts %s", nameOf(added));
  decide();
  return 0;
}

int pthread_join(pthread_t thread, void** result) {
  if (!inRun()) return ORIGINAL(pthread_join)(thread, result);
  decide();
  const int joined = threadOf(thread);
  if (joined == kNoThread) fail("%s joins a thread that there is not", threadName());
  note("joins %s", nameOf(joined));
  char what[64];
  std::snprintf(what, sizeof what, "joins %s", nameOf(joined));
  waitUntil(what, [&] { return hasEnded(joined); });
  ORIGINAL(pthread_join)(thread, result);
  markJoined(joined);
  note("has joined %s", nameOf(joined));
  return 0;
}

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  if (!inRun()) return ORIGINAL(pthread_mutex_lock)(mutex);
  decide();
  lockMutex(mutex);
  return 0;
}

int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
  if (!inRun()) return ORIGINAL(pthread_mutex_trylock)(mutex);
  decide();
  Lock& lock = lockAt(mutex, kMutex);
  if (!isFree(lock)) return EBUSY;
  take(lock);
  return 0;
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
  if (!inRun()) return ORIGINAL(pthread_mutex_unlock)(mutex);
  unlockMutex(mutex);
  decide();
  return 0;
}

int pthread_mutex_destroy(pthread_mutex_t* mutex) noexcept {
  if (!inRun()) return ORIGINAL(pthread_mutex_destroy)(mutex);
  decide();
  destroyLock(mutex, kMutex);
  return 0;
}

int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept {
  if (!inRun()) return ORIGINAL(pthread_rwlock_rdlock)(lock);
  decide();
  acquire(lock, kSharedLock, "waits for a share of", hasNoWriter, takeShared);
  return 0;
}

int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept {
  if (!inRun()) return ORIGINAL(pthread_rwlock_wrlock)(lock);
  decide();
  acquire(lock, kSharedLock, "waits for shared lock", isFree, take);
  return 0;
}

int pthread_rwlock_unlock(pthread_rwlock_t* rwlock) noexcept {
  if (!inRun()) return ORIGINAL(pthread_rwlock_unlock)(rwlock);
  Lock& lock = lockAt(rwlock, kSharedLock);
  if (lock.owner == currentThread())
    lock.owner = kNoThread;
  else if ((lock.readers & myBit()) != 0)
    lock.readers &= ~myBit();
  else
    fail("%s unlocks a shared lock that it has not locked", threadName());
  decide();
  return 0;
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  if (!inRun()) return ORIGINAL(pthread_cond_wait)(condition, mutex);
  waitFor(condition, mutex, kForever);
  return 0;
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                           const timespec* deadline) {
  if (!inRun()) return ORIGINAL(pthread_cond_timedwait)(condition, mutex, deadline);
  return waitFor(condition, mutex, deadlineOf(CLOCK_REALTIME, *deadline)) ? 0 : ETIMEDOUT;
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const timespec* deadline) {
  if (!inRun()) return ORIGINAL(pthread_cond_clockwait)(condition, mutex, clock, deadline);
  return waitFor(condition, mutex, deadlineOf(clock, *deadline)) ? 0 : ETIMEDOUT;
}

int pthread_cond_signal(pthread_cond_t* condition) noexcept {
  if (!inRun()) return ORIGINAL(pthread_cond_signal)(condition);
  decide();
  Lock& lock = lockAt(condition, kCondition);
  std::uint64_t waiting = lock.waiting & ~lock.notified;
  if (waiting != 0) {
    for (auto skip = choices().below(static_cast<std::uint64_t>(std::popcount(waiting))); skip > 0;
         --skip)
      waiting &= waiting - 1;
    lock.notified |= waiting & ~(waiting - 1);
  }
  decide();
  return 0;
}

int pthread_cond_broadcast(pthread_cond_t* condition) noexcept {
  if (!inRun()) return ORIGINAL(pthread_cond_broadcast)(condition);
  decide();
  Lock& lock = lockAt(condition, kCondition);
  lock.notified |= lock.waiting;
  decide();
  return 0;
}

int pthread_cond_destroy(pthread_cond_t* condition) noexcept {
  if (!inRun()) return ORIGINAL(pthread_cond_destroy)(condition);
  destroyLock(condition, kCondition);
  return 0;
}

int pthread_sigmask(int how, const sigset_t* set, sigset_t* old) noexcept {
  if (!inRun()) return ORIGINAL(pthread_sigmask)(how, set, old);
  return changeMask(how, set, old);
}

int sigprocmask(int how, const sigset_t* set, sigset_t* old) noexcept {
  if (!inRun()) return ORIGINAL(sigprocmask)(how, set, old);
  return changeMask(how, set, old);
}

int sigwait(const sigset_t* set, int* signal) {
  if (!inRun()) return ORIGINAL(sigwait)(set, signal);
  decide();
  const std::uint64_t awaited = bitsOf(*set);
  Signals& mine = mySignals();
  if ((awaited & ~mine.blocked) != 0)
    fail("%s waits for a signal that it does not block", threadName());
  note("waits for a signal");
  waitUntil("waits for a signal",
            [&] { return ((mine.pending | pendingForProcess) & awaited) != 0; });
  std::uint64_t& source = (mine.pending & awaited) != 0 ? mine.pending : pendingForProcess;
  const int arrived = std::countr_zero(source & awaited);
  source &= ~(std::uint64_t{1} << arrived);
  *signal = arrived + 1;
  note("has signal %d", *signal);
  return 0;
}

int pthread_kill(pthread_t thread, int signal) noexcept {
  if (!inRun()) return ORIGINAL(pthread_kill)(thread, signal);
  decide();
  const int target = threadOf(thread);
  if (target == kNoThread) fail("%s signals a thread that there is not", threadName());
  note("signals %s", nameOf(target));
  if (hasEnded(target)) return 0;
  Signals& theirs = signals[static_cast<std::size_t>(target)];
  if ((theirs.blocked & bitOf(signal)) == 0)
    fail("signal %d ends the process: %s does not block it", signal, nameOf(target));
  theirs.pending |= bitOf(signal);
  decide();
  return 0;
}

int kill(pid_t process, int signal) noexcept {
  if (!inRun() || process != getpid()) return ORIGINAL(kill)(process, signal);
  decide();
  for (int thread = 0; thread < kMaxThreads; ++thread) {
    // A thread that there is not blocks nothing.
    if ((signals[static_cast<std::size_t>(thread)].blocked & bitOf(signal)) == 0 &&
        thread < threadCount() && !hasEnded(thread))
      fail("signal %d ends the process: %s does not block it", signal, nameOf(thread));
  }
  pendingForProcess |= bitOf(signal);
  decide();
  return 0;
}

int usleep(useconds_t microseconds) {
  if (!inRun()) return ORIGINAL(usleep)(microseconds);
  sleepFor(microseconds * kMicrosecond);
  return 0;
}

int nanosleep(const timespec* time, timespec* left) {
  if (!inRun()) return ORIGINAL(nanosleep)(time, left);
  sleepFor(timeOf(*time));
  return 0;
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* left) {
  if (!inRun()) return ORIGINAL(clock_nanosleep)(clock, flags, time, left);
  const Time wanted = flags == TIMER_ABSTIME ? deadlineOf(clock, *time) : now() + timeOf(*time);
  sleepFor(wanted > now() ? wanted - now() : 0);
  return 0;
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (!inRun()) return ORIGINAL(clock_gettime)(clock, time);
  decide();
  *time = timespecOf(startOf(clock) + now());
  return 0;
}

int gettimeofday(timeval* time, void* zone) noexcept {
  if (!inRun()) return ORIGINAL(gettimeofday)(time, zone);
  decide();
  const timespec precise = timespecOf(kRealTimeAtStart + now());
  *time = {precise.tv_sec, precise.tv_nsec / 1000};
  return 0;
}

clock_t clock() noexcept {
  if (!inRun()) return ORIGINAL(clock)();
  decide();
  return static_cast<clock_t>(processorTime());
}

int sched_yield() noexcept {
  if (!inRun()) return ORIGINAL(sched_yield)();
  decide();
  return 0;
}

// The guards of static objects in functions (Itanium C++ ABI): the first byte is for the compiler,
// the second one is ours, while a thread constructs the object.

int __cxa_guard_acquire(std::uint64_t* guard) noexcept;
int __cxa_guard_acquire(std::uint64_t* guard) noexcept {
  auto* const bytes = reinterpret_cast<unsigned char*>(guard);
  if (inRun()) waitUntil("waits for a static object", [&] { return bytes[1] == 0; });
  if (bytes[0] != 0) return 0;
  bytes[1] = 1;
  return 1;
}

void __cxa_guard_release(std::uint64_t* guard) noexcept;
void __cxa_guard_release(std::uint64_t* guard) noexcept {
  auto* const bytes = reinterpret_cast<unsigned char*>(guard);
  bytes[0] = 1;
  bytes[1] = 0;
}

void __cxa_guard_abort(std::uint64_t* guard) noexcept;
void __cxa_guard_abort(std::uint64_t* guard) noexcept {
  reinterpret_cast<unsigned char*>(guard)[1] = 0;
}

}  // extern "C"
