// A connection to a pad on the virtual bus, for one run of a fuzz target.
#ifndef TESTS_FUZZ_CONNECTION_H
#define TESTS_FUZZ_CONNECTION_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "Expect.h"
#include "virtualpads/hidapi/VirtualBus.h"

namespace fuzz {

// The arguments of a callback.
struct Sample {
  std::int32_t x;
  std::int32_t y;
  std::int32_t pressure;
  std::uint8_t touch;
  std::uint32_t timeStamp;
};

class Delivery {
 public:
  void clear() { m_samples.clear(); }

  void add(const Sample& sample) {
    const std::lock_guard lock(m_mutex);
    m_samples.push_back(sample);
    m_changed.notify_all();
  }

  // The samples, once there are `count` of them.
  std::vector<Sample> wait(std::size_t count) {
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, std::chrono::seconds(5), [&] { return m_samples.size() >= count; });
    return m_samples;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<Sample> m_samples;
};

inline Delivery delivery;

inline void onPen(std::int32_t x, std::int32_t y, std::int32_t pressure, std::uint8_t touch,
                  std::uint32_t timeStamp, std::uint32_t /*sequence*/) {
  delivery.add({x, y, pressure, touch, timeStamp});
}

// Open from construction to destruction, unless the pad's answers prevent it.
template <class Driver>
class Connection {
 public:
  explicit Connection(std::shared_ptr<virtualpads::PadModel> pad) {
    delivery.clear();
    bus.reset();
    bus.setReadTimeout(std::chrono::milliseconds(1));
    port = bus.plug(std::move(pad));
    opened = driver.OpenConnection(onPen);
  }

  ~Connection() {
    // Reads time out at once, so that the close need not wait for all slices of a time-out.
    bus.fail(virtualpads::HidCall::Read, {.value = 0}, 1, virtualpads::VirtualBus::kAlways);
    expect(driver.CloseConnection() == 0, "the connection closes");
    expect(bus.openHandles() == 0, "the device is closed");
    expect(bus.misuses() == 0, "hidapi is not misused");
  }

  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  Driver driver;
  virtualpads::VirtualBus& bus = virtualpads::VirtualBus::instance();
  virtualpads::VirtualBus::Port port = 0;
  int opened = 0;
};

}  // namespace fuzz

#endif
