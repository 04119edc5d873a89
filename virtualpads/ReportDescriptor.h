// Writes HID report descriptors for pads whose reports are plain vendor-defined bytes.
#ifndef VIRTUALPADS_REPORTDESCRIPTOR_H
#define VIRTUALPADS_REPORTDESCRIPTOR_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "virtualpads/PadModel.h"

namespace virtualpads {

struct DeclaredReport {
  enum class Kind { Input, Feature };
  Kind kind;
  std::uint8_t id;     // 0: the pad does not number its reports
  std::size_t length;  // in bytes, the id included
};

// One application collection with these reports, each an array of bytes from 0 to 255.
Bytes reportDescriptor(std::initializer_list<DeclaredReport> reports);

}  // namespace virtualpads

#endif
