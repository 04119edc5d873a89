// The base of the tests of the hidapi face: a bus that is empty at the start of each test, and
// short names for a program's calls.
#ifndef TESTS_VIRTUALPADS_HIDAPI_BUSTEST_H
#define TESTS_VIRTUALPADS_HIDAPI_BUSTEST_H

#include <gtest/gtest.h>
#include <hidapi.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <future>
#include <optional>
#include <utility>

#include "virtualpads/PadModel.h"
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

inline int getFeature(hid_device* dev, std::uint8_t id, std::size_t length) {
  Bytes bytes(length);
  bytes[0] = id;
  return hid_get_feature_report(dev, bytes.data(), length);
}

inline int setFeature(hid_device* dev, Bytes start, std::size_t length) {
  start.resize(length);
  return hid_send_feature_report(dev, start.data(), length);
}

// A six-byte report, identified by its number.
inline Bytes numbered(int number) {
  return {0x20, static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(number >> 8), 0, 0, 0};
}

class BusTest : public testing::Test {
 protected:
  BusTest() { bus.reset(); }

  // Runs a call of the program on a separate thread.
  template <typename Function>
  static auto inBackground(Function function) {
    return std::async(std::launch::async, std::move(function));
  }

  VirtualBus& bus = VirtualBus::instance();
};

}  // namespace virtualpads

#endif
