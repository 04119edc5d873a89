#include "Program.h"

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace {

constexpr std::chrono::seconds kWaitLimit{120};
constexpr std::chrono::milliseconds kLookInterval{10};

struct Pipe {
  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
      throw std::system_error(errno, std::generic_category(), "pipe");
    reading = virtualpads::FileDescriptor(ends[0]);
    writing = virtualpads::FileDescriptor(ends[1]);
  }
  virtualpads::FileDescriptor reading;
  virtualpads::FileDescriptor writing;
};

int openProgram(const std::string& path) {
  return open(path.c_str(), O_RDONLY | O_CLOEXEC);
}

// For a user who may not execute the file itself: it may be accessible to its owner only, or be in
// a home directory that others may not enter.
int copyInMemory(const std::string& path) {
  const int file = openProgram(path);
  const int copy = memfd_create("program", MFD_CLOEXEC);
  ssize_t copied = 1;
  while (copied > 0) copied = sendfile(copy, file, nullptr, 1 << 20);
  return copied == 0 ? copy : -1;
}

[[noreturn]] void becomeProgram(const std::string& path, const ProgramOptions& options,
                                const Pipe& input, const Pipe& output) {
  dup2(input.reading.get(), STDIN_FILENO);
  dup2(output.writing.get(), STDOUT_FILENO);
  dup2(output.writing.get(), STDERR_FILENO);
  for (const std::string& variable : options.environment) {
    const std::size_t equals = variable.find('=');
    setenv(variable.substr(0, equals).c_str(), variable.substr(equals + 1).c_str(), 1);
  }
  const int program = options.unprivileged ? copyInMemory(path) : openProgram(path);
  if (program < 0) {
    std::perror(path.c_str());
    _exit(127);
  }
  if (options.unprivileged &&
      (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0)) {
    std::perror("giving up privileges");
    _exit(127);
  }
  std::vector<char*> arguments{const_cast<char*>(path.c_str())};
  for (const std::string& argument : options.arguments)
    arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  fexecve(program, arguments.data(), environ);
  std::perror(path.c_str());
  _exit(127);
}

std::filesystem::path taskDirectory(pid_t program) {
  return "/proc/" + std::to_string(program) + "/task";
}

}  // namespace

Program::Program(const std::string& path, const ProgramOptions& options) {
  // A program that has ended must show in its output, not end the test.
  ::signal(SIGPIPE, SIG_IGN);
  Pipe input;
  Pipe output;
  m_id = fork();
  if (m_id < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (m_id == 0) {
    ::signal(SIGPIPE, SIG_DFL);
    becomeProgram(path, options, input, output);
  }
  m_input = std::move(input.writing);
  m_output = std::move(output.reading);
  m_reader = std::thread(&Program::readOutput, this);
}

Program::~Program() {
  if (m_status < 0) {
    kill(m_id, SIGKILL);
    wait();
  }
  m_reader.join();
}

void Program::readOutput() {
  std::string line;
  std::array<char, 4096> buffer;
  ssize_t count = 0;
  while ((count = read(m_output.get(), buffer.data(), buffer.size())) > 0) {
    const std::lock_guard lock(m_mutex);
    for (const char character : std::string(buffer.data(), static_cast<std::size_t>(count)))
      if (character == '\n')
        m_lines.push_back(std::exchange(line, {}));
      else
        line += character;
    m_changed.notify_all();
  }
  const std::lock_guard lock(m_mutex);
  m_ended = true;
  m_changed.notify_all();
}

void Program::send(const std::string& line) {
  const std::string text = line + '\n';
  [[maybe_unused]] const ssize_t written = write(m_input.get(), text.data(), text.size());
}

void Program::endInput() {
  m_input = virtualpads::FileDescriptor();
}

std::vector<std::string> Program::lines() const {
  const std::lock_guard lock(m_mutex);
  return m_lines;
}

std::size_t Program::lineCount() const {
  const std::lock_guard lock(m_mutex);
  return m_lines.size();
}

std::size_t Program::waitForLine(const std::function<bool(const std::string&)>& wanted,
                                 std::size_t from) const {
  std::size_t next = from;
  const auto found = [&] {
    for (; next < m_lines.size(); ++next)
      if (wanted(m_lines[next])) return true;
    return false;
  };
  std::unique_lock lock(m_mutex);
  bool isThere = false;
  m_changed.wait_for(lock, kWaitLimit, [&] { return (isThere = found()) || m_ended; });
  if (isThere) return next;
  std::string text =
      m_ended ? "the program ended without the line: " + howItEnded() : "the line did not come";
  for (const std::string& line : m_lines) text += "\n  " + line;
  throw std::runtime_error(text);
}

std::size_t Program::waitForLine(const std::string& wanted, std::size_t from) const {
  return waitForLine([&](const std::string& line) { return line == wanted; }, from);
}

std::string Program::ask(const std::string& command) {
  const std::string word = command.substr(0, command.find(' '));
  const std::size_t from = lineCount();
  send(command);
  const std::size_t number = waitForLine(
      [&](const std::string& line) { return line == word || line.starts_with(word + ' '); }, from);
  const std::string answer = [&] {
    const std::lock_guard lock(m_mutex);
    return m_lines[number];
  }();
  return answer.size() > word.size() ? answer.substr(word.size() + 1) : std::string();
}

std::vector<pid_t> Program::threads() const {
  std::vector<pid_t> ids;
  for (const auto& entry : std::filesystem::directory_iterator(taskDirectory(m_id)))
    ids.push_back(std::stoi(entry.path().filename()));
  return ids;
}

std::optional<std::chrono::nanoseconds> Program::processorTime(pid_t thread) const {
  std::ifstream file(taskDirectory(m_id) / std::to_string(thread) / "schedstat");
  std::int64_t nanoseconds = 0;
  if (!(file >> nanoseconds)) return std::nullopt;
  return std::chrono::nanoseconds(nanoseconds);
}

// The kernel has no event for another process's threads.
void Program::waitUntilEnded(const std::vector<pid_t>& threads, std::ptrdiff_t count) const {
  const auto limit = std::chrono::steady_clock::now() + kWaitLimit;
  const auto hasEnded = [this](pid_t thread) {
    return !std::filesystem::exists(taskDirectory(m_id) / std::to_string(thread));
  };
  while (std::ranges::count_if(threads, hasEnded) < count) {
    if (std::chrono::steady_clock::now() > limit)
      throw std::runtime_error("the program's threads do not end");
    std::this_thread::sleep_for(kLookInterval);
  }
}

// Leaves the exit code to `wait`.
std::string Program::howItEnded() const {
  siginfo_t end{};
  waitid(P_PID, static_cast<id_t>(m_id), &end, WEXITED | WNOWAIT);
  return (end.si_code == CLD_EXITED ? "exit code " : "signal ") + std::to_string(end.si_status);
}

void Program::signal(int number) const {
  kill(m_id, number);
}

int Program::wait() {
  {
    std::unique_lock lock(m_mutex);
    if (!m_changed.wait_for(lock, kWaitLimit, [&] { return m_ended; })) kill(m_id, SIGKILL);
  }
  int status = 0;
  waitpid(m_id, &status, 0);
  m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return m_status;
}
