// A pad as a USB device, without a bus: its answers to control requests.
#ifndef VIRTUALPADS_USB_USBDEVICE_H
#define VIRTUALPADS_USB_USBDEVICE_H

#include <cstdint>
#include <optional>

#include "virtualpads/PadModel.h"

namespace virtualpads {

// The setup packet of a control request, by the names of the USB specification.
struct SetupPacket {
  std::uint8_t requestType;  // direction, type and recipient
  std::uint8_t request;
  std::uint16_t value;
  std::uint16_t index;
  std::uint16_t length;  // of the data that follow, or that the host takes at most
};

// A HID request for a report.
struct ReportRequest {
  enum class Direction { Get, Set };
  enum class Type : std::uint8_t { Input = 1, Output = 2, Feature = 3 };
  Direction direction;
  Type type;
  std::uint8_t reportId;
};

// The request for a report that this packet is, if it is one.
std::optional<ReportRequest> reportRequest(const SetupPacket& setup);

// Not thread-safe.
class UsbDevice {
 public:
  // `pad` must outlive the device. `interval` is that of its interrupt endpoint, in milliseconds.
  UsbDevice(const PadModel& pad, std::uint8_t interval) : m_pad(pad), m_interval(interval) {}

  // The answer to any control request but those for reports: the bytes of the data stage, empty for
  // a request without one, or nothing when the request stalls. Any bytes beyond setup.length are
  // for the bus to cut.
  std::optional<Bytes> control(const SetupPacket& setup);

  // The host has chosen the configuration, so that the endpoint works.
  bool configured() const { return m_configuration != 0; }
  // The endpoint stalls until the host clears that.
  bool halted() const { return m_halted; }

 private:
  std::optional<Bytes> descriptor(const SetupPacket& setup) const;
  std::optional<Bytes> setConfiguration(std::uint8_t configuration);
  std::optional<Bytes> setHalted(const SetupPacket& setup, bool halted);

  const PadModel& m_pad;
  const std::uint8_t m_interval;
  std::uint8_t m_configuration = 0;
  std::uint8_t m_idleRate = 0;  // in units of 4 ms; 0: no report is repeated
  bool m_halted = false;
};

}  // namespace virtualpads

#endif
