// The integers of a report, in the report's byte order. They have alignment 1, so a packed struct
// of them and of bytes is the report itself, on every processor.
#ifndef GIIVELA_BYTEORDER_H
#define GIIVELA_BYTEORDER_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

template <class Value, std::endian order>
class WireInteger {
 public:
  constexpr WireInteger() = default;
  constexpr WireInteger(Value value) {
    for (std::size_t i = 0; i < sizeof(Value); ++i)
      m_bytes[i] = static_cast<std::uint8_t>(static_cast<Unsigned>(value) >> shift(i));
  }

  constexpr operator Value() const {
    Unsigned value = 0;
    for (std::size_t i = 0; i < sizeof(Value); ++i)
      value = static_cast<Unsigned>(value | static_cast<Unsigned>(m_bytes[i]) << shift(i));
    return static_cast<Value>(value);
  }

 private:
  using Unsigned = std::make_unsigned_t<Value>;

  // The place of a byte in the value, in bits.
  static constexpr std::size_t shift(std::size_t byte) {
    return 8 * (order == std::endian::little ? byte : sizeof(Value) - 1 - byte);
  }

  std::array<std::uint8_t, sizeof(Value)> m_bytes{};
};

// Le is little-endian, Be big-endian; S is for fields that the pad means as signed.
using Le16 = WireInteger<std::uint16_t, std::endian::little>;
using LeS16 = WireInteger<std::int16_t, std::endian::little>;
using LeS32 = WireInteger<std::int32_t, std::endian::little>;
using Be16 = WireInteger<std::uint16_t, std::endian::big>;
using Be32 = WireInteger<std::uint32_t, std::endian::big>;

#endif
