// A connection to a pad on the virtual bus, for one run of a fuzz target.
#ifndef TESTS_FUZZ_CONNECTION_H
#define TESTS_FUZZ_CONNECTION_H

#include <chrono>
#include <memory>
#include <utility>

#include "Expect.h"
#include "support/PenRecorder.h"
#include "virtualpads/hidapi/VirtualBus.h"

namespace fuzz {

// Open from construction to destruction, unless the pad's answers prevent it.
template <class Driver>
class Connection {
 public:
  explicit Connection(std::shared_ptr<virtualpads::PadModel> pad) {
    recorder.reset();
    bus.reset();
    bus.setReadTimeout(std::chrono::milliseconds(1));
    port = bus.plug(std::move(pad));
    opened = driver.OpenConnection(support::recordPen);
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
  support::PenRecorder& recorder = support::penRecorder();
  virtualpads::VirtualBus& bus = virtualpads::VirtualBus::instance();
  virtualpads::VirtualBus::Port port = 0;
  int opened = 0;
};

}  // namespace fuzz

#endif
