// Pen callbacks that record their samples and let a test wait for them.
#ifndef TESTS_SUPPORT_PENRECORDER_H
#define TESTS_SUPPORT_PENRECORDER_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "PenEventHandler.h"
#include "support/Patience.h"
#include "support/Sample.h"

namespace support {

class PenRecorder {
 public:
  // Clears all samples and the action set by the overload below.
  void reset() { reset(nullptr); }

  // The same; from now on `then` runs in the callback after each sample is recorded.
  void reset(std::function<void()> then) {
    const std::lock_guard lock(m_mutex);
    m_samples.clear();
    m_timeStamps.clear();
    m_then = std::move(then);
  }

  // Waits until that many samples have arrived since the reset. False after kPatience.
  bool waitFor(std::size_t count) {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_until(lock, std::chrono::steady_clock::now() + kPatience,
                                [&] { return m_samples.size() >= count; });
  }

  std::size_t count() {
    const std::lock_guard lock(m_mutex);
    return m_samples.size();
  }

  std::vector<Sample> samples() {
    const std::lock_guard lock(m_mutex);
    return m_samples;
  }

  std::vector<std::uint32_t> timeStamps() {
    const std::lock_guard lock(m_mutex);
    return m_timeStamps;
  }

  void keep(const Sample& sample, std::uint32_t timeStamp) {
    std::function<void()> then;
    {
      const std::lock_guard lock(m_mutex);
      m_samples.push_back(sample);
      m_timeStamps.push_back(timeStamp);
      then = m_then;
    }
    m_changed.notify_all();
    if (then) then();
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<Sample> m_samples;
  std::vector<std::uint32_t> m_timeStamps;
  std::function<void()> m_then;
};

// A callback has no argument that identifies its recorder, so each recorder has its own. Two are
// enough to distinguish two connections.
template <int which = 0>
PenRecorder& penRecorder() {
  static PenRecorder recorder;
  return recorder;
}

template <int which = 0>
void recordPen(std::int32_t x, std::int32_t y, std::int32_t pressure, std::uint8_t touch,
               std::uint32_t timeStamp, std::uint32_t sequence) {
  penRecorder<which>().keep({x, y, pressure, touch, sequence}, timeStamp);
}

}  // namespace support

#endif
