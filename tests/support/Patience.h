// How long a test waits for an event that must happen. It expires only when something is broken.
#ifndef TESTS_SUPPORT_PATIENCE_H
#define TESTS_SUPPORT_PATIENCE_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace support {

inline constexpr std::chrono::seconds kPatience{30};

// Waits until the condition holds. For conditions that are not signalled. False after kPatience.
template <class Condition>
bool comesTrue(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

// An event that happens once and that other threads wait for.
class Event {
 public:
  void happen() {
    {
      const std::lock_guard lock(m_mutex);
      m_happened = true;
    }
    m_changed.notify_all();
  }

  // False after kPatience.
  bool wait() {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_until(lock, std::chrono::steady_clock::now() + kPatience,
                                [&] { return m_happened; });
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_happened = false;
};

}  // namespace support

#endif
