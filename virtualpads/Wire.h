// How the pads encode numbers in their reports.
#ifndef VIRTUALPADS_WIRE_H
#define VIRTUALPADS_WIRE_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

#include "virtualpads/PadModel.h"

namespace virtualpads {

// Maps `unit`, from 0 to 1, to the range from `low` to `high`. Values outside are clamped;
// not-a-number gives `low`.
inline std::uint16_t scaled(double unit, std::uint16_t low, std::uint16_t high) {
  if (!(unit > 0)) return low;
  if (unit >= 1) return high;
  return static_cast<std::uint16_t>(std::lround(low + unit * (high - low)));
}

// The pressure byte of the pads that have one; 0 while the pen is lifted.
inline std::uint8_t pressureByte(const PenState& pen, std::uint8_t hardest) {
  return pen.touch ? static_cast<std::uint8_t>(scaled(pen.pressure, 0, hardest)) : std::uint8_t{0};
}

inline void putLe16(std::span<std::uint8_t> bytes, std::size_t at, std::uint16_t value) {
  bytes[at] = static_cast<std::uint8_t>(value);
  bytes[at + 1] = static_cast<std::uint8_t>(value >> 8);
}

inline void putLe32(std::span<std::uint8_t> bytes, std::size_t at, std::uint32_t value) {
  putLe16(bytes, at, static_cast<std::uint16_t>(value));
  putLe16(bytes, at + 2, static_cast<std::uint16_t>(value >> 16));
}

inline void putBe16(std::span<std::uint8_t> bytes, std::size_t at, std::uint16_t value) {
  bytes[at] = static_cast<std::uint8_t>(value >> 8);
  bytes[at + 1] = static_cast<std::uint8_t>(value);
}

inline void putBe32(std::span<std::uint8_t> bytes, std::size_t at, std::uint32_t value) {
  putBe16(bytes, at, static_cast<std::uint16_t>(value >> 16));
  putBe16(bytes, at + 2, static_cast<std::uint16_t>(value));
}

inline std::uint16_t le16(std::span<const std::uint8_t> bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

// The fields that begin the input reports of most pads, from byte `at` on.
namespace penFields {
constexpr std::size_t kState = 0;  // bits
constexpr std::size_t kX = 1;      // 16 bits, little-endian
constexpr std::size_t kY = 3;
constexpr std::size_t kPressure = 5;
}  // namespace penFields

inline void putPen(std::span<std::uint8_t> bytes, std::size_t at, std::uint8_t state,
                   std::uint16_t x, std::uint16_t y, std::uint8_t pressure) {
  bytes[at + penFields::kState] = state;
  putLe16(bytes, at + penFields::kX, x);
  putLe16(bytes, at + penFields::kY, y);
  bytes[at + penFields::kPressure] = pressure;
}

inline std::uint32_t be32(std::span<const std::uint8_t> bytes, std::size_t at) {
  return std::uint32_t{bytes[at]} << 24 | std::uint32_t{bytes[at + 1]} << 16 |
         std::uint32_t{bytes[at + 2]} << 8 | bytes[at + 3];
}

}  // namespace virtualpads

#endif
