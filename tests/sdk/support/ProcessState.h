// What the kernel reports about the running process. Linux only.
#ifndef TESTS_SDK_SUPPORT_PROCESSSTATE_H
#define TESTS_SDK_SUPPORT_PROCESSSTATE_H

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace support {

inline long entriesOf(const char* directory) {
  const std::filesystem::directory_iterator entries(directory);
  return std::distance(begin(entries), end(entries));
}

inline long threadCount() {
  return entriesOf("/proc/self/task");
}

// The threads of a program that runs none of its own; to be called first at such a moment. Counted
// on a thread: the thread sanitizer starts its own together with the first one, and one that has
// just been joined may still be listed.
inline long idleThreadCount() {
  static const long idle = [] {
    long count = 0;
    std::thread([&count] { count = threadCount() - 1; }).join();
    return count;
  }();
  return idle;
}

// Always one more than the open ones: the listing opens the directory itself.
inline long fileDescriptorCount() {
  return entriesOf("/proc/self/fd");
}

// Whether that thread of this process is waiting.
inline bool sleeps(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string stat;
  std::getline(file, stat);
  const std::size_t name = stat.rfind(')');
  return name != std::string::npos && stat.size() > name + 2 && stat[name + 2] == 'S';
}

}  // namespace support

#endif
