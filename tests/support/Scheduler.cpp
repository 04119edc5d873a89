#include "Scheduler.h"

#include <linux/futex.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "SchedulerThreads.h"
#include "TrackedHeap.h"

namespace {

using namespace support;

// A run that takes more than this does not come to an end.
constexpr std::uint64_t kMaxDecisions = 300'000;
constexpr Time kMaxTime = 300 * kSecond;
constexpr unsigned kMaxRealSeconds = 60;

// The longest that a decision takes, and that some take: the system may hold up a thread.
constexpr Time kDecisionTime = 2 * kMicrosecond;
constexpr Time kHoldUp = 600 * kMicrosecond;
constexpr int kHoldUps = 15;

constexpr long kMaxSteps = 100'000;  // between two looks at the limits

struct Thread {
  enum class State { Ready, Waiting, Ended };

  const char* name = "";
  int column = 0;
  pthread_t handle{};
  std::atomic<std::uint32_t> turn{0};
  State state = State::Ready;
  bool joined = false;
  std::uint64_t priority = 0;
  void* (*entry)(void*) = nullptr;
  void* argument = nullptr;
  // While it waits:
  const char* what = "";
  const void* object = nullptr;
  Time deadline = kForever;
  bool (*ready)(void*) = nullptr;
  void* readyArgument = nullptr;
};

// What the process of a run leaves to its parent.
struct Shared {
  bool finished;
  bool failed;
  char report[8192];
  std::uint64_t decisions;
  std::uint64_t switches;
  Time time;
  std::uint64_t trace;
};

struct Run {
  std::array<Thread, kMaxThreads> threads;
  int count = 0;
  Random choices{0};
  Random random{0};
  Time now = 0;
  Time busy = 0;
  std::uint64_t decisions = 0;
  std::uint64_t switches = 0;
  std::uint64_t trace = 0xCBF29CE484222325;  // FNV-1a
  int holdUps = 0;
  long steps = LONG_MAX;  // to the next decision at a basic block

  bool walk = true;
  // Of a random walk: the share of decisions for the running thread in percent, and the mean
  // number of basic blocks between two decisions.
  std::uint64_t stay = 0;
  std::uint64_t blocks = 0;
  // Of probabilistic concurrency testing: the steps before each priority change, last first.
  std::array<long, 6> changes{};
  int changesLeft = 0;
  long stepsTaken = 0;

  std::uint64_t processorPercent = 0;  // of the time, over all processors
  std::array<const char*, 16> names{};
  int namesLeft = 0;
  int startsToFailure = INT_MAX;
  int output = -1;  // for the notes, or -1
  Shared* shared = nullptr;
};

Run run;
thread_local Thread* self = nullptr;
pthread_key_t endOfThread;

constexpr std::array kColumns{"client", "reading", "processing", "signal", "pad"};
constexpr int kColumnWidth = 22;

void futex(std::atomic<std::uint32_t>& word, int operation, std::uint32_t value) {
  static_assert(sizeof word == sizeof(std::uint32_t));
  syscall(SYS_futex, &word, operation, value, nullptr, nullptr, 0);
}

void awaitTurn(Thread& thread) {
  while (thread.turn.load(std::memory_order_acquire) == 0)
    futex(thread.turn, FUTEX_WAIT_PRIVATE, 0);
  thread.turn.store(0, std::memory_order_relaxed);
}

void giveTurn(Thread& thread) {
  thread.turn.store(1, std::memory_order_release);
  futex(thread.turn, FUTEX_WAKE_PRIVATE, 1);
}

bool canGoOn(Thread& thread) {
  switch (thread.state) {
    case Thread::State::Ready:
      return true;
    case Thread::State::Waiting:
      return run.now >= thread.deadline || thread.ready(thread.readyArgument);
    case Thread::State::Ended:
      return false;
  }
  return false;
}

// A text of limited length that is written piece by piece.
class Text {
 public:
  Text(char* begin, std::size_t size) : m_begin(begin), m_size(size) { *begin = '\0'; }
  [[gnu::format(printf, 2, 0)]] void addList(const char* format, va_list arguments) {
    const std::size_t used = std::strlen(m_begin);
    std::vsnprintf(m_begin + used, m_size - used, format, arguments);
  }
  [[gnu::format(printf, 2, 3)]] void add(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    addList(format, arguments);
    va_end(arguments);
  }

 private:
  char* m_begin;
  std::size_t m_size;
};

void describeThreads(Text& text) {
  for (int i = 0; i < run.count; ++i) {
    const Thread& thread = run.threads[static_cast<std::size_t>(i)];
    if (thread.joined) continue;
    text.add("\n  %s: ", thread.name);
    if (thread.state == Thread::State::Ended) {
      text.add("has ended");
    } else if (thread.state == Thread::State::Ready) {
      text.add("can go on");
    } else {
      text.add("%s", thread.what);
      if (thread.object != nullptr) text.add(" %p", thread.object);
      if (thread.deadline != kForever)
        text.add(" until %.3f ms", static_cast<double>(thread.deadline) / kMillisecond);
    }
  }
}

[[noreturn]] void finish() {
  Shared& shared = *run.shared;
  shared.finished = true;
  shared.decisions = run.decisions;
  shared.switches = run.switches;
  shared.time = run.now;
  shared.trace = run.trace;
  _exit(0);
}

[[noreturn]] void failWithThreads(const char* what) {
  char list[4096];
  Text text(list, sizeof list);
  describeThreads(text);
  fail("%s%s", what, list);
}

void checkLimits() {
  if (run.decisions > kMaxDecisions || run.now > kMaxTime)
    failWithThreads("livelock: the run does not come to an end");
}

// Sets the distance to the next decision at a basic block.
void measureSteps() {
  if (run.walk) {
    run.steps = 1 + static_cast<long>(run.choices.below(2 * run.blocks));
  } else if (run.changesLeft > 0) {
    const long next = run.changes[static_cast<std::size_t>(run.changesLeft - 1)];
    run.steps = std::max(next - run.stepsTaken, 1L);
    run.stepsTaken += run.steps;
  } else {
    run.steps = kMaxSteps;
  }
}

// The steps have been taken.
void lastStep() {
  if (!run.walk && run.changesLeft > 0) {
    --run.changesLeft;
    self->priority = static_cast<std::uint64_t>(run.changesLeft);
  }
  measureSteps();
}

// When the next wait ends, kForever if none does.
Time nextDeadline() {
  Time next = kForever;
  for (int i = 0; i < run.count; ++i) {
    const Thread& thread = run.threads[static_cast<std::size_t>(i)];
    if (thread.state == Thread::State::Waiting && thread.deadline > run.now)
      next = std::min(next, thread.deadline);
  }
  return next;
}

Thread* chosen() {
  std::array<Thread*, kMaxThreads> candidates;
  std::size_t count = 0;
  const auto gather = [&] {
    for (int i = 0; i < run.count; ++i) {
      Thread& thread = run.threads[static_cast<std::size_t>(i)];
      if (canGoOn(thread)) candidates[count++] = &thread;
    }
  };
  gather();
  if (count == 0) {
    const Time next = nextDeadline();
    if (next == kForever) failWithThreads("deadlock");
    run.now = next;
    gather();
  }
  if (!run.walk) {
    return *std::max_element(
        candidates.begin(), candidates.begin() + count,
        [](const Thread* one, const Thread* other) { return one->priority < other->priority; });
  }
  if (run.stay > 0 && self->state != Thread::State::Ended && canGoOn(*self) &&
      run.choices.below(100) < run.stay)
    return self;
  return candidates[run.choices.below(count)];
}

void trace(std::uint64_t value) {
  run.trace = (run.trace ^ value) * 0x100000001B3;
}

// Lets the chosen thread go on, and returns when it is the calling one's turn again.
void goOn() {
  Thread* const me = self;
  ++run.decisions;
  if (run.decisions % 1024 == 0 || run.now > kMaxTime) checkLimits();
  Thread* const next = chosen();
  next->state = Thread::State::Ready;
  trace(static_cast<std::uint64_t>(next - run.threads.data()) << 56 ^ run.now);
  if (next == me) return;
  ++run.switches;
  const bool ended = me->state == Thread::State::Ended;
  if (ended) self = nullptr;
  giveTurn(*next);
  if (!ended) awaitTurn(*me);
}

// A decision takes a moment; sometimes as long as it takes another thread to wake up.
void passTime() {
  Time passed = run.choices.below(kDecisionTime);
  if (run.holdUps < kHoldUps && run.choices.oneIn(64)) {
    const Time left = nextDeadline() - run.now;
    if (left < kHoldUp) {
      ++run.holdUps;
      passed = left;
    }
  }
  run.now += passed;
  run.busy += passed;
}

Thread& newThread(const char* name) {
  if (run.count == kMaxThreads) fail("more than %d threads", kMaxThreads);
  Thread& thread = run.threads[static_cast<std::size_t>(run.count)];
  thread.name = name;
  const auto* const column = std::find_if(kColumns.begin(), kColumns.end(), [&](const char* known) {
    return std::strncmp(name, known, std::strlen(known)) == 0;
  });
  thread.column = static_cast<int>(column - kColumns.begin());
  thread.priority = 1000 + run.choices.next() / 2;
  ++run.count;
  return thread;
}

void* runThread(void* argument) {
  auto& thread = *static_cast<Thread*>(argument);
  pthread_setspecific(endOfThread, &thread);
  awaitTurn(thread);
  self = &thread;
  return thread.entry(thread.argument);
}

// Called after the destructors of the thread's own objects.
void endThread(void* argument) {
  auto& thread = *static_cast<Thread*>(argument);
  note("ends");
  thread.state = Thread::State::Ended;
  goOn();
}

void chooseStrategy() {
  run.walk = run.choices.oneIn(2);
  if (run.walk) {
    run.stay = std::array<std::uint64_t, 4>{0, 50, 80, 95}[run.choices.below(4)];
    run.blocks = std::array<std::uint64_t, 4>{8, 32, 128, 1024}[run.choices.below(4)];
  } else {
    run.changesLeft = static_cast<int>(run.choices.below(run.changes.size() + 1));
    const std::uint64_t horizon = std::uint64_t{64} << run.choices.below(10);
    for (long& change : run.changes) change = static_cast<long>(run.choices.below(horizon));
    std::sort(run.changes.begin(), run.changes.begin() + run.changesLeft, std::greater<>());
  }
  run.processorPercent = std::array<std::uint64_t, 3>{2, 50, 400}[run.choices.below(3)];
  measureSteps();
}

[[noreturn]] void runBody(std::uint64_t seed, void (*body)()) {
  run.choices = Random(seed * 2 + 1);
  run.random = Random(~seed);
  chooseStrategy();
  pthread_key_create(&endOfThread, endThread);
  self = &newThread("client");
  self->handle = pthread_self();
  startTracking();
  body();
  for (int i = 1; i < run.count; ++i) {
    const Thread& thread = run.threads[static_cast<std::size_t>(i)];
    if (!thread.joined) failWithThreads("a thread was never joined");
  }
  checkReleasedMemory();
  finish();
}

// Threads hand over to each other much faster on one processor.
void stayOnThisProcessor() {
  const int processor = sched_getcpu();
  if (processor < 0) return;
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<unsigned>(processor), &set);
  sched_setaffinity(0, sizeof set, &set);
}

void printHeading() {
  std::printf("%11s", "ms");
  for (const char* column : kColumns) std::printf("  %-*s", kColumnWidth - 2, column);
  std::printf("\n");
  std::fflush(stdout);
}

// The end of the child's standard error.
std::string tailOf(int file) {
  const off_t size = lseek(file, 0, SEEK_END);
  std::string text(static_cast<std::size_t>(std::min<off_t>(size, 6000)), '\0');
  const ssize_t count = pread(file, text.data(), text.size(), size > 6000 ? size - 6000 : 0);
  text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  return text;
}

}  // namespace

extern "C" void __sanitizer_cov_trace_pc();
// At the start of each basic block of code that is compiled for it.
void __sanitizer_cov_trace_pc() {
  if (self == nullptr || isTestCode() || --run.steps > 0) return;
  lastStep();
  passTime();
  goOn();
}

namespace support {

std::uint64_t Random::next() {
  m_state += 0x9E3779B97F4A7C15;
  std::uint64_t z = m_state;
  z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9;
  z = (z ^ z >> 27) * 0x94D049BB133111EB;
  return z ^ z >> 31;
}

Outcome runScheduled(std::uint64_t seed, void (*body)(), bool verbose) {
  static auto* const shared = static_cast<Shared*>(
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  static const int errors = memfd_create("errors", MFD_CLOEXEC);
  static std::FILE* const nowhere = std::fopen("/dev/null", "we");
  if (shared == MAP_FAILED || errors < 0 || nowhere == nullptr) {
    std::perror("scheduler");
    std::abort();
  }
  *shared = {};
  if (ftruncate(errors, 0) != 0) std::abort();
  lseek(errors, 0, SEEK_SET);
  if (verbose) printHeading();
  const pid_t child = fork();
  if (child < 0) {
    std::perror("fork");
    std::abort();
  }
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    stayOnThisProcessor();
    alarm(kMaxRealSeconds);
    run.shared = shared;
    if (verbose) run.output = dup(STDOUT_FILENO);
    dup2(fileno(nowhere), STDOUT_FILENO);
    dup2(errors, STDERR_FILENO);
    runBody(seed, body);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  Outcome outcome{.failed = shared->failed || !shared->finished,
                  .report = shared->report,
                  .decisions = shared->decisions,
                  .switches = shared->switches,
                  .time = shared->time,
                  .trace = shared->trace};
  if (!shared->finished) {
    if (WIFSIGNALED(status))
      outcome.report = std::string("ended by signal: ") + strsignal(WTERMSIG(status));
    else
      outcome.report = "ended with status " + std::to_string(WEXITSTATUS(status));
    outcome.report += "\n" + tailOf(errors);
  }
  return outcome;
}

Time now() {
  return run.now;
}

Time busyTime() {
  return run.busy;
}

void fail(const char* format, ...) {
  if (run.shared == nullptr) std::abort();  // no run
  Text text(run.shared->report, sizeof run.shared->report);
  va_list arguments;
  va_start(arguments, format);
  text.addList(format, arguments);
  va_end(arguments);
  note("FAILS");
  run.shared->failed = true;
  finish();
}

bool verbose() {
  return run.output >= 0;
}

void note(const char* format, ...) {
  if (!verbose()) return;
  char line[512];
  Text text(line, sizeof line);
  text.add("%11.3f", static_cast<double>(run.now) / kMillisecond);
  text.add("  %*s", self != nullptr ? self->column * kColumnWidth : 0, "");
  va_list arguments;
  va_start(arguments, format);
  text.addList(format, arguments);
  va_end(arguments);
  text.add("\n");
  if (write(run.output, line, std::strlen(line)) < 0) _exit(1);
}

void decide() {
  if (self == nullptr) return;
  passTime();
  if (--run.steps <= 0) lastStep();
  goOn();
}

bool waitUntilReady(const char* what, const void* object, Time deadline, bool (*ready)(void*),
                    void* argument) {
  if (ready(argument)) return true;
  self->what = what;
  self->object = object;
  self->deadline = deadline;
  self->ready = ready;
  self->readyArgument = argument;
  self->state = Thread::State::Waiting;
  goOn();
  return ready(argument);
}

void sleepFor(Time time) {
  decide();
  waitUntil(
      "sleeps", [] { return false; }, run.now + time);
}

void nameThreads(std::initializer_list<const char*> names) {
  run.namesLeft = 0;
  for (const char* const* name = names.end(); name != names.begin();)
    run.names[static_cast<std::size_t>(run.namesLeft++)] = *--name;
}

void failThreadStart(int n) {
  run.startsToFailure = n;
}

Random& random() {
  return run.random;
}

const char* threadName() {
  return self->name;
}

bool threadHasEnded(const char* name) {
  for (int i = run.count - 1; i >= 0; --i)
    if (std::strcmp(nameOf(i), name) == 0) return hasEnded(i);
  return false;
}

int currentThread() {
  return self == nullptr ? kNoThread : static_cast<int>(self - run.threads.data());
}

int threadCount() {
  return run.count;
}

int threadOf(pthread_t handle) {
  for (int i = run.count - 1; i >= 0; --i) {
    const Thread& thread = run.threads[static_cast<std::size_t>(i)];
    if (pthread_equal(thread.handle, handle) != 0 && !thread.joined) return i;
  }
  return kNoThread;
}

const char* nameOf(int thread) {
  return run.threads[static_cast<std::size_t>(thread)].name;
}

bool hasEnded(int thread) {
  return run.threads[static_cast<std::size_t>(thread)].state == Thread::State::Ended;
}

bool mayStart() {
  if (run.startsToFailure-- != 0) return true;
  if (run.namesLeft > 0) --run.namesLeft;
  return false;
}

void addThread(StartThread* start, pthread_t* handle, const pthread_attr_t* attributes,
               void* (*entry)(void*), void* argument) {
  const char* const name =
      run.namesLeft > 0 ? run.names[static_cast<std::size_t>(--run.namesLeft)] : "thread";
  Thread& thread = newThread(name);
  thread.entry = entry;
  thread.argument = argument;
  const int result = start(&thread.handle, attributes, runThread, &thread);
  if (result != 0) fail("the system starts no thread: %s", std::strerror(result));
  *handle = thread.handle;
}

void markJoined(int thread) {
  run.threads[static_cast<std::size_t>(thread)].joined = true;
}

Random& choices() {
  return run.choices;
}

std::uint64_t processorTime() {
  return run.now / kMicrosecond * run.processorPercent / 100;
}

}  // namespace support
