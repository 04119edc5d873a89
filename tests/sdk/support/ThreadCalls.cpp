#include "support/ThreadCalls.h"

#include <cerrno>
#include <csignal>

extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument);
int __real_pthread_join(pthread_t thread, void** value);
int __real_pthread_kill(pthread_t thread, int signal);
int __real_sigprocmask(int how, const sigset_t* set, sigset_t* old);
int __real_pthread_sigmask(int how, const sigset_t* set, sigset_t* old);
int __real_sigwait(const sigset_t* set, int* signal);

}  // extern "C"

namespace support {

namespace {

ThreadCalls* current = nullptr;

// For example "block SIGUSR1".
std::string maskChange(int how, const sigset_t* set, const sigset_t* old) {
  std::string text = how == SIG_BLOCK ? "block" : "other change of";
  for (int signal = 1; signal < NSIG; ++signal)
    if (sigismember(set, signal) == 1) text += signal == SIGUSR1 ? " SIGUSR1" : " another";
  return old == nullptr ? text : text + " and tell the old mask";
}

}  // namespace

ThreadCalls::ThreadCalls(std::array<std::string, 3> names) : m_names(std::move(names)) {
  current = this;
}

ThreadCalls::~ThreadCalls() {
  current = nullptr;
}

ThreadCalls::Log ThreadCalls::log() {
  const std::lock_guard lock(m_mutex);
  return m_log;
}

void ThreadCalls::clearLog() {
  const std::lock_guard lock(m_mutex);
  m_log.clear();
}

void ThreadCalls::on(const std::string& call, std::function<void()> then) {
  const std::lock_guard lock(m_mutex);
  m_then[call] = std::move(then);
}

void ThreadCalls::failStarts(std::set<int> starts) {
  const std::lock_guard lock(m_mutex);
  m_failingStarts = std::move(starts);
}

void ThreadCalls::answerWaits(std::vector<std::pair<int, int>> resultsAndSignals) {
  const std::lock_guard lock(m_mutex);
  m_waitAnswers = std::move(resultsAndSignals);
}

int ThreadCalls::waits() {
  const std::lock_guard lock(m_mutex);
  return m_waits;
}

std::vector<ThreadCalls::Start> ThreadCalls::starts() {
  const std::lock_guard lock(m_mutex);
  return m_starts;
}

void ThreadCalls::note(const std::string& call) {
  std::function<void()> then;
  {
    const std::lock_guard lock(m_mutex);
    m_log.push_back(call);
    if (const auto found = m_then.find(call); found != m_then.end()) then = found->second;
  }
  if (then) then();
}

std::string ThreadCalls::nameOf(pthread_t thread) {
  const std::lock_guard lock(m_mutex);
  return m_threads[thread];
}

struct ReplacedThreadCalls {
  static int create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                    void* argument) {
    ThreadCalls& calls = *current;
    std::string name;
    bool fails = false;
    {
      const std::lock_guard lock(calls.m_mutex);
      name = calls.m_names.at(calls.m_starts.size());
      auto* const threadArgument = static_cast<ThreadArg*>(argument);
      calls.m_starts.push_back({attributes, threadArgument, *threadArgument});
      fails = calls.m_failingStarts.contains(static_cast<int>(calls.m_starts.size()));
    }
    calls.note("start " + name);
    if (fails) {
      *thread = pthread_self();  // as the system may leave an arbitrary value there
      return EAGAIN;
    }
    const int result = __real_pthread_create(thread, attributes, entry, argument);
    const std::lock_guard lock(calls.m_mutex);
    calls.m_threads[*thread] = name;
    return result;
  }

  static int join(pthread_t thread, void** value) {
    current->note("join " + current->nameOf(thread));
    return __real_pthread_join(thread, value);
  }

  static int kill(pthread_t thread, int signal) {
    current->note((signal == SIGUSR1 ? "SIGUSR1 to " : "another signal to ") +
                  current->nameOf(thread));
    return __real_pthread_kill(thread, signal);
  }

  static void noteMaskChange(const char* function, int how, const sigset_t* set,
                             const sigset_t* old) {
    if (current != nullptr && set != nullptr)
      current->note(std::string(function) + ": " + maskChange(how, set, old));
  }

  static int wait(const sigset_t* set, int* signal) {
    {
      const std::lock_guard lock(current->m_mutex);
      ++current->m_waits;
      auto& answers = current->m_waitAnswers;
      if (!answers.empty()) {
        const std::pair<int, int> answer = answers.front();
        answers.erase(answers.begin());
        *signal = answer.second;
        return answer.first;
      }
    }
    return __real_sigwait(set, signal);
  }
};

}  // namespace support

extern "C" {

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument) {
  return support::ReplacedThreadCalls::create(thread, attributes, entry, argument);
}

int __wrap_pthread_join(pthread_t thread, void** value) {
  return support::ReplacedThreadCalls::join(thread, value);
}

int __wrap_pthread_kill(pthread_t thread, int signal) {
  return support::ReplacedThreadCalls::kill(thread, signal);
}

int __wrap_sigprocmask(int how, const sigset_t* set, sigset_t* old) {
  support::ReplacedThreadCalls::noteMaskChange("sigprocmask", how, set, old);
  return __real_sigprocmask(how, set, old);
}

int __wrap_pthread_sigmask(int how, const sigset_t* set, sigset_t* old) {
  support::ReplacedThreadCalls::noteMaskChange("pthread_sigmask", how, set, old);
  return __real_pthread_sigmask(how, set, old);
}

int __wrap_sigwait(const sigset_t* set, int* signal) {
  return support::ReplacedThreadCalls::wait(set, signal);
}

}  // extern "C"
