// Records the SDK's calls for threads and signals, and can make them fail. For programs that
// replace those functions (thread_functions in the CMakeLists.txt); the threads of the tests
// themselves, which are std::thread's, are not seen.
#ifndef TESTS_SDK_SUPPORT_THREADCALLS_H
#define TESTS_SDK_SUPPORT_THREADCALLS_H

#include <pthread.h>

#include <array>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "WorkerFrame.h"

namespace support {

// From construction to destruction; one at a time.
class ThreadCalls {
 public:
  using Log = std::vector<std::string>;

  // Names the threads in the order of their starts.
  explicit ThreadCalls(std::array<std::string, 3> names);
  ~ThreadCalls();
  ThreadCalls(const ThreadCalls&) = delete;
  ThreadCalls& operator=(const ThreadCalls&) = delete;

  // The calls in the order in which they began, such as "start reading", "join reading", "SIGUSR1
  // to signal", "sigprocmask: block SIGUSR1". The signal thread's own call is not among them, see
  // waits().
  Log log();
  void clearLog();

  // Runs `then` when that call begins, on the thread that makes it.
  void on(const std::string& call, std::function<void()> then);

  // The thread starts that fail, counted from 1.
  void failStarts(std::set<int> starts);

  // The results and signals of the next calls of sigwait; later calls wait.
  void answerWaits(std::vector<std::pair<int, int>> resultsAndSignals);

  // The number of calls of sigwait.
  int waits();

  // The arguments of the thread starts: the attributes, the argument, and its content.
  struct Start {
    const pthread_attr_t* attributes;
    ThreadArg* argument;
    ThreadArg content;
  };
  std::vector<Start> starts();

 private:
  friend struct ReplacedThreadCalls;

  void note(const std::string& call);
  std::string nameOf(pthread_t thread);

  std::mutex m_mutex;
  std::array<std::string, 3> m_names;
  std::map<pthread_t, std::string> m_threads;
  Log m_log;
  std::map<std::string, std::function<void()>> m_then;  // by call
  std::set<int> m_failingStarts;
  std::vector<std::pair<int, int>> m_waitAnswers;
  int m_waits = 0;
  std::vector<Start> m_starts;
};

}  // namespace support

#endif
