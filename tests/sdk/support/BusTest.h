// The base of tests on the virtual bus.
#ifndef TESTS_SDK_SUPPORT_BUSTEST_H
#define TESTS_SDK_SUPPORT_BUSTEST_H

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <ostream>
#include <string_view>
#include <utility>
#include <vector>

#include "support/Reports.h"
#include "virtualpads/hidapi/VirtualBus.h"

namespace virtualpads {

// For GoogleTest's messages.
inline void PrintTo(const CallRecord& record, std::ostream* out) {
  constexpr std::array kNames{
      "Init",           "Exit", "Enumerate", "FreeEnumeration", "Open",        "Close",
      "SetNonblocking", "Read", "Write",     "GetFeature",      "SendFeature",
  };
  *out << kNames.at(static_cast<std::size_t>(record.call)) << "(" << record.argument
       << ") = " << record.result << " " << testing::PrintToString(record.bytes);
}

}  // namespace virtualpads

namespace support {

using virtualpads::Bytes;
using virtualpads::CallRecord;
using virtualpads::Fault;
using virtualpads::HidCall;
using virtualpads::VirtualBus;
using Calls = std::vector<CallRecord>;

// One call as the bus logs it.
inline CallRecord called(HidCall call, int argument = 0, int result = 0, Bytes bytes = {}) {
  return {call, std::move(bytes), argument, result};
}

// Feature reports as the bus logs them, padded with zeros to their length.

inline CallRecord got(std::string_view request, int length) {
  return called(HidCall::GetFeature, length, length,
                hex(request, static_cast<std::size_t>(length)));
}

inline CallRecord sent(std::string_view report, int length) {
  return called(HidCall::SendFeature, length, length,
                hex(report, static_cast<std::size_t>(length)));
}

// Each test starts with an empty bus whose reads time out soon. It must end with every handle
// closed and without a call that would be undefined behaviour in hidapi.
class BusTest : public testing::Test {
 protected:
  static constexpr std::chrono::milliseconds kShortTimeout{5};
  static constexpr std::chrono::seconds kLongTimeout{20};  // for a read that has to wait

  BusTest() {
    bus.reset();
    bus.setReadTimeout(kShortTimeout);
  }

  ~BusTest() override {
    EXPECT_EQ(bus.openHandles(), 0);
    EXPECT_EQ(bus.misuses(), 0);
    bus.reset();
  }

  VirtualBus& bus = VirtualBus::instance();
};

}  // namespace support

#endif
