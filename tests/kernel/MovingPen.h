// A pen that writes without a pause.
#ifndef TESTS_KERNEL_MOVINGPEN_H
#define TESTS_KERNEL_MOVINGPEN_H

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <utility>

// Writes until destruction, whether or not the pad is being read. `send` sends the n-th report on a
// separate thread; n runs from 0 to 999 and restarts at 0.
class MovingPen {
 public:
  explicit MovingPen(std::function<void(int n)> send)
      : m_thread([this, send = std::move(send)] {
          constexpr std::chrono::milliseconds kReportInterval{2};
          for (int n = 0; !m_stop; n = (n + 1) % 1000) {
            send(n);
            std::this_thread::sleep_for(kReportInterval);
          }
        }) {}
  ~MovingPen() {
    m_stop = true;
    m_thread.join();
  }
  MovingPen(const MovingPen&) = delete;
  MovingPen& operator=(const MovingPen&) = delete;

 private:
  std::atomic<bool> m_stop{false};
  std::thread m_thread;
};

#endif
