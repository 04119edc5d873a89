// Reports written as hexadecimal text.
#ifndef TESTS_SUPPORT_REPORTS_H
#define TESTS_SUPPORT_REPORTS_H

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "virtualpads/PadModel.h"

namespace support {

using virtualpads::Bytes;

// The bytes of a text such as "0A FF 00", with blanks anywhere between bytes, padded with zeros to
// at least `length` bytes.
inline Bytes hex(std::string_view text, std::size_t length = 0) {
  Bytes bytes;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == ' ') continue;
    std::size_t digits = 0;
    const int byte = std::stoi(std::string(text.substr(at, 2)), &digits, 16);
    if (digits != 2) throw std::invalid_argument("hex: " + std::string(text));
    bytes.push_back(static_cast<std::uint8_t>(byte));
    ++at;
  }
  if (bytes.size() < length) bytes.resize(length);
  return bytes;
}

}  // namespace support

#endif
