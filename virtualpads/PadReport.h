// The reports of a pad: their description, and the HID report descriptor that declares them.
#ifndef VIRTUALPADS_PADREPORT_H
#define VIRTUALPADS_PADREPORT_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace virtualpads {

using Bytes = std::vector<std::uint8_t>;

struct PadReport {
  enum class Way { Input, Get, Set, GetAndSet };  // all but Input: a feature report
  Way way;
  std::uint8_t id;     // 0: the pad does not number its reports
  std::size_t length;  // in bytes, the id included
  const char* name;    // for people

  bool canGet() const { return way == Way::Get || way == Way::GetAndSet; }
  bool canSet() const { return way == Way::Set || way == Way::GetAndSet; }

  // Whether the bytes have the id and the length of this report, which is numbered.
  bool matches(std::span<const std::uint8_t> bytes) const;
  // The report with this value in all bytes behind the id.
  Bytes blank(std::uint8_t value = 0) const;
  // The same with these bytes at that place.
  Bytes with(std::size_t at, std::span<const std::uint8_t> bytes, std::uint8_t value = 0) const;
};

// One application collection with these reports, each an array of bytes from 0 to 255.
Bytes reportDescriptor(std::span<const PadReport> reports);

}  // namespace virtualpads

#endif
