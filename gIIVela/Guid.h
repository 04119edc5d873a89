/// \file
/// The 16-byte serial-number record.
#ifndef GIIVELA_GUID_H
#define GIIVELA_GUID_H

#include <cstdint>

struct _GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};

#endif
