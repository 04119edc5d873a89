// A program under test in a separate process, controlled through its standard input and output.
#ifndef TESTS_KERNEL_PROGRAM_H
#define TESTS_KERNEL_PROGRAM_H

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "virtualpads/kernel/FileDescriptor.h"

constexpr uid_t kNobody = 65534;

// The number of threads that a program has for an open pad: one reads, one calls back, one waits.
constexpr std::ptrdiff_t kConnectionThreads = 3;

struct ProgramOptions {
  std::vector<std::string> arguments = {};
  std::vector<std::string> environment = {};  // "NAME=value", on top of the caller's
  bool unprivileged = false;                  // run as the user nobody
};

// All operations but wait may be called on any thread. Those that wait time out after 120 s.
class Program {
 public:
  // Starts the program, found by its path.
  explicit Program(const std::string& path, const ProgramOptions& options = {});
  // Kills the program if it is still running.
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  pid_t id() const { return m_id; }

  // Writes a line to the program's standard input; does nothing when the program has ended.
  void send(const std::string& line);

  // Closes its standard input.
  void endInput();

  // Everything it has written so far, standard output and standard error combined.
  std::vector<std::string> lines() const;
  std::size_t lineCount() const;
  // Waits for a line, looking at each from line number `from` on once, and returns its number.
  // Throws std::runtime_error, with all the lines in its message, if the line does not arrive.
  std::size_t waitForLine(const std::function<bool(const std::string&)>& wanted,
                          std::size_t from = 0) const;
  std::size_t waitForLine(const std::string& wanted, std::size_t from = 0) const;

  // Sends a command that the program answers in one line starting with the command's first word,
  // and returns the rest of that line. Throws like waitForLine.
  std::string ask(const std::string& command);

  // The program's threads, and the processor time that one of them has used; nothing when that
  // thread has ended.
  std::vector<pid_t> threads() const;
  std::optional<std::chrono::nanoseconds> processorTime(pid_t thread) const;
  // Waits until that many of these threads have ended. Throws std::runtime_error on a time-out.
  void waitUntilEnded(const std::vector<pid_t>& threads, std::ptrdiff_t count) const;

  void signal(int number) const;
  // Waits for the end and returns the exit code, or 128 + the signal that killed it. One thread
  // only.
  int wait();

 private:
  void readOutput();
  std::string howItEnded() const;

  pid_t m_id = -1;
  virtualpads::FileDescriptor m_input;
  virtualpads::FileDescriptor m_output;
  std::thread m_reader;
  int m_status = -1;  // the result of wait; -1 before that

  mutable std::mutex m_mutex;
  mutable std::condition_variable m_changed;
  std::vector<std::string> m_lines;
  bool m_ended = false;
};

#endif
