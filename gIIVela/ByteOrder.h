// Reading and writing the multi-byte fields of reports. `bytes` points at the field's first byte;
// le is little-endian (USB pad, pad II, ink pad), be is big-endian (vision pad).
#ifndef GIIVELA_BYTEORDER_H
#define GIIVELA_BYTEORDER_H

#include <cstdint>

constexpr std::uint16_t le16(const unsigned char* bytes) {
  return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}

constexpr std::uint32_t le32(const unsigned char* bytes) {
  return static_cast<std::uint32_t>(le16(bytes)) | static_cast<std::uint32_t>(le16(bytes + 2))
                                                       << 16;
}

constexpr std::uint16_t be16(const unsigned char* bytes) {
  return static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
}

constexpr std::uint32_t be32(const unsigned char* bytes) {
  return static_cast<std::uint32_t>(be16(bytes)) << 16 | be16(bytes + 2);
}

// A 16-bit field that the pad means as signed.
constexpr std::int16_t signedLe16(const unsigned char* bytes) {
  return static_cast<std::int16_t>(le16(bytes));
}

constexpr std::int32_t signedLe32(const unsigned char* bytes) {
  return static_cast<std::int32_t>(le32(bytes));
}

constexpr void putLe16(unsigned char* bytes, std::uint16_t value) {
  bytes[0] = static_cast<unsigned char>(value & 0xFF);
  bytes[1] = static_cast<unsigned char>(value >> 8);
}

constexpr void putBe16(unsigned char* bytes, std::uint16_t value) {
  bytes[0] = static_cast<unsigned char>(value >> 8);
  bytes[1] = static_cast<unsigned char>(value & 0xFF);
}

constexpr std::uint16_t swapBytes(std::uint16_t value) {
  return static_cast<std::uint16_t>(value << 8 | value >> 8);
}

#endif
