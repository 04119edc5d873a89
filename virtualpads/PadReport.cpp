#include "virtualpads/PadReport.h"

#include <algorithm>

namespace virtualpads {

bool PadReport::matches(std::span<const std::uint8_t> bytes) const {
  return bytes.size() == length && bytes.front() == id;
}

Bytes PadReport::blank(std::uint8_t value) const {
  Bytes report(length, value);
  report.front() = id;
  return report;
}

Bytes PadReport::with(std::size_t at, std::span<const std::uint8_t> bytes,
                      std::uint8_t value) const {
  Bytes report = blank(value);
  std::ranges::copy(bytes, report.begin() + static_cast<std::ptrdiff_t>(at));
  return report;
}

Bytes reportDescriptor(std::span<const PadReport> reports) {
  Bytes bytes = {
      0x06, 0x00, 0xFF,  // Usage Page (vendor-defined 0xFF00)
      0x09, 0x01,        // Usage (1)
      0xA1, 0x01,        // Collection (Application)
      0x15, 0x00,        //   Logical Minimum (0)
      0x26, 0xFF, 0x00,  //   Logical Maximum (255); two bytes, since one would be read as -1
      0x75, 0x08,        //   Report Size (8)
  };
  std::uint8_t usage = 1;
  for (const PadReport& report : reports) {
    std::size_t count = report.length;
    if (report.id != 0) {
      bytes.insert(bytes.end(), {0x85, report.id});  // Report ID
      --count;
    }
    const auto countLow = static_cast<std::uint8_t>(count);
    const auto countHigh = static_cast<std::uint8_t>(count >> 8);
    const std::uint8_t main = report.way == PadReport::Way::Input ? 0x81 : 0xB1;
    ++usage;
    bytes.insert(bytes.end(), {
                                  0x09, usage,                // Usage
                                  0x96, countLow, countHigh,  // Report Count
                                  main, 0x02,                 // Input or Feature (Data, Variable)
                              });
  }
  bytes.push_back(0xC0);  // End Collection
  return bytes;
}

}  // namespace virtualpads
