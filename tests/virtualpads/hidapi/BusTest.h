// The base of the tests of the hidapi face: a bus with a vision pad that is open, and short names
// for a program's calls.
#ifndef TESTS_VIRTUALPADS_HIDAPI_BUSTEST_H
#define TESTS_VIRTUALPADS_HIDAPI_BUSTEST_H

#include <gtest/gtest.h>
#include <hidapi.h>

#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <utility>

#include "virtualpads/PadModel.h"
#include "virtualpads/VisionPad.h"
#include "virtualpads/hidapi/VirtualBus.h"

namespace virtualpads {

constexpr unsigned short kVendor = 1247;
constexpr unsigned short kUsbPad = 18;
constexpr unsigned short kIiPad = 31;
constexpr unsigned short kInkPad = 48;
constexpr unsigned short kVisionPad = 56;

constexpr int kForEver = -1;

struct ReadResult {
  int result;
  Bytes bytes;
  bool operator==(const ReadResult&) const = default;
};

inline ReadResult read(hid_device* dev, int milliseconds, std::size_t length = 64) {
  Bytes bytes(length);
  const int result = hid_read_timeout(dev, bytes.data(), length, milliseconds);
  bytes.resize(result > 0 ? static_cast<std::size_t>(result) : 0);
  return {result, bytes};
}

inline int getFeature(hid_device* dev, std::uint8_t id, std::size_t length = 17) {
  Bytes bytes(length);
  bytes[0] = id;
  return hid_get_feature_report(dev, bytes.data(), length);
}

inline int setFeature(hid_device* dev, Bytes start, std::size_t length = 17) {
  start.resize(length);
  return hid_send_feature_report(dev, start.data(), length);
}

// A report, identified by its number.
inline Bytes numbered(int number) {
  return {0x20, static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(number >> 8), 0, 0, 0};
}

class BusTest : public testing::Test {
 protected:
  BusTest() {
    bus.reset();
    port = bus.plug(pad);
    dev = hid_open(kVendor, kVisionPad, nullptr);
    bus.clearLog();
  }

  ~BusTest() override { close(); }

  void close() {
    if (dev != nullptr) hid_close(std::exchange(dev, nullptr));
  }

  // Runs a call of the program on a separate thread.
  template <typename Function>
  static auto inBackground(Function function) {
    return std::async(std::launch::async, std::move(function));
  }

  // A read that has begun and is waiting.
  std::future<ReadResult> waitingRead() {
    auto reader = inBackground([device = dev] { return read(device, kForEver); });
    EXPECT_TRUE(bus.waitForBegun(HidCall::Read, bus.count(HidCall::Read) + 1));
    return reader;
  }

  VirtualBus& bus = VirtualBus::instance();
  std::shared_ptr<VisionPad> pad = std::make_shared<VisionPad>();
  VirtualBus::Port port = 0;
  hid_device* dev = nullptr;
};

}  // namespace virtualpads

#endif
