// The descriptors by which a pad introduces itself on the USB: a full-speed device with one
// configuration, one HID interface and one interrupt endpoint.
#ifndef VIRTUALPADS_USB_USBDESCRIPTORS_H
#define VIRTUALPADS_USB_USBDESCRIPTORS_H

#include <cstdint>
#include <optional>

#include "virtualpads/PadModel.h"

namespace virtualpads {

constexpr std::uint8_t kConfiguration = 1;
constexpr std::uint8_t kInterface = 0;
constexpr std::uint8_t kInputEndpoint = 1;

// `interval` is the endpoint's: the host polls it once in so many milliseconds.
Bytes deviceDescriptor(const PadModel& pad);
Bytes configurationDescriptor(const PadModel& pad, std::uint8_t interval);
Bytes hidDescriptor(const PadModel& pad);
// Nothing for an index that the pad does not have.
std::optional<Bytes> stringDescriptor(const PadModel& pad, std::uint8_t index);

}  // namespace virtualpads

#endif
