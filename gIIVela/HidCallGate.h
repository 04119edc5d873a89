// Up to version 0.14 hidapi keeps one error text for each device; every call frees it, so that two
// calls at once may free it twice (from 0.15 on, reads have a text of their own). Hence one read
// and one control call (a feature or output report) are under way together only until a call fails.
// From then on calls run alone and the sides take turns, until a control call succeeds: that frees
// the text in all versions. The price: after a failure a call waits for the one under way. Up to
// version 0.14 the first failure may leak its text, when a call of the other side begins or fails
// at the same moment.
#ifndef GIIVELA_HIDCALLGATE_H
#define GIIVELA_HIDCALLGATE_H

#include <condition_variable>
#include <mutex>

class HidCallGate {
 public:
  enum Side { kReading, kControl };

  // Runs `call`, which calls hidapi once, when its turn has come; calls of one side go in the order
  // in which they came. Returns its result, negative for a failure. Any thread.
  template <class Call>
  int run(Side side, Call call) {
    const Side other = side == kReading ? kControl : kReading;
    std::unique_lock lock(m_mutex);
    const unsigned number = m_arrived[side]++;
    m_changed.wait(lock, [&] {
      const bool othersTurn = m_begun[other] != m_arrived[other] && m_last == side;
      return m_begun[side] == number && !m_busy[side] &&
             (!m_failed || (!m_busy[other] && !othersTurn));
    });
    ++m_begun[side];
    m_busy[side] = true;
    m_last = side;
    const bool alone = m_failed;
    lock.unlock();
    const int result = call();
    lock.lock();
    m_busy[side] = false;
    if (result < 0) m_failed = true;
    if (result >= 0 && alone && side == kControl) m_failed = false;
    m_changed.notify_all();
    return result;
  }

  // Whether a call has failed since the device was opened or last answered a control call. Any
  // thread.
  bool failed() {
    const std::lock_guard lock(m_mutex);
    return m_failed;
  }

  // The device has been opened: it has no error text yet. No call is under way.
  void reset() {
    const std::lock_guard lock(m_mutex);
    m_failed = false;
  }

 private:
  std::mutex m_mutex;  // guards all fields
  std::condition_variable m_changed;
  bool m_busy[2] = {};         // by side
  unsigned m_arrived[2] = {};  // by side: the calls so far
  unsigned m_begun[2] = {};    // by side: those that do not wait any more
  Side m_last = kControl;      // began the last call
  bool m_failed = false;
};

#endif
