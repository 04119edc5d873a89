#include "virtualpads/usb/UsbDevice.h"

#include <linux/hid.h>
#include <linux/usb/ch9.h>

#include "virtualpads/usb/UsbDescriptors.h"

namespace virtualpads {
namespace {

constexpr std::uint8_t high(std::uint16_t word) {
  return static_cast<std::uint8_t>(word >> 8);
}
constexpr std::uint8_t low(std::uint16_t word) {
  return static_cast<std::uint8_t>(word);
}

// The type of request and its code, as one case label.
constexpr unsigned key(unsigned requestType, unsigned request) {
  return requestType << 8 | request;
}

constexpr unsigned type(unsigned direction, unsigned kind, unsigned recipient) {
  return direction | kind | recipient;
}

constexpr unsigned kFromDevice = type(USB_DIR_IN, USB_TYPE_STANDARD, USB_RECIP_DEVICE);
constexpr unsigned kToDevice = type(USB_DIR_OUT, USB_TYPE_STANDARD, USB_RECIP_DEVICE);
constexpr unsigned kFromInterface = type(USB_DIR_IN, USB_TYPE_STANDARD, USB_RECIP_INTERFACE);
constexpr unsigned kToInterface = type(USB_DIR_OUT, USB_TYPE_STANDARD, USB_RECIP_INTERFACE);
constexpr unsigned kFromEndpoint = type(USB_DIR_IN, USB_TYPE_STANDARD, USB_RECIP_ENDPOINT);
constexpr unsigned kToEndpoint = type(USB_DIR_OUT, USB_TYPE_STANDARD, USB_RECIP_ENDPOINT);
constexpr unsigned kFromHid = type(USB_DIR_IN, USB_TYPE_CLASS, USB_RECIP_INTERFACE);
constexpr unsigned kToHid = type(USB_DIR_OUT, USB_TYPE_CLASS, USB_RECIP_INTERFACE);

const Bytes kDone;
constexpr std::nullopt_t kStall = std::nullopt;

}  // namespace

std::optional<ReportRequest> reportRequest(const SetupPacket& setup) {
  using Direction = ReportRequest::Direction;
  const auto request = [&](Direction direction) {
    return ReportRequest{direction, ReportRequest::Type{high(setup.value)}, low(setup.value)};
  };
  switch (key(setup.requestType, setup.request)) {
    case key(kFromHid, HID_REQ_GET_REPORT):
      return request(Direction::Get);
    case key(kToHid, HID_REQ_SET_REPORT):
      return request(Direction::Set);
    default:
      return std::nullopt;
  }
}

std::optional<Bytes> UsbDevice::control(const SetupPacket& setup) {
  switch (key(setup.requestType, setup.request)) {
    case key(kFromDevice, USB_REQ_GET_DESCRIPTOR):
    case key(kFromInterface, USB_REQ_GET_DESCRIPTOR):
      return descriptor(setup);

    case key(kFromDevice, USB_REQ_GET_CONFIGURATION):
      return Bytes{m_configuration};
    case key(kToDevice, USB_REQ_SET_CONFIGURATION):
      return setConfiguration(low(setup.value));
    case key(kFromInterface, USB_REQ_GET_INTERFACE):
      return Bytes{0};
    case key(kToInterface, USB_REQ_SET_INTERFACE):
      return setup.value == 0 ? std::optional(kDone) : kStall;

    case key(kFromDevice, USB_REQ_GET_STATUS):  // powered by the bus, wakes up nobody
    case key(kFromInterface, USB_REQ_GET_STATUS):
      return Bytes{0, 0};
    case key(kFromEndpoint, USB_REQ_GET_STATUS):
      return Bytes{m_halted, 0};
    case key(kToEndpoint, USB_REQ_SET_FEATURE):
      return setHalted(setup, true);
    case key(kToEndpoint, USB_REQ_CLEAR_FEATURE):
      return setHalted(setup, false);

    case key(kFromHid, HID_REQ_GET_IDLE):
      return Bytes{m_idleRate};
    case key(kToHid, HID_REQ_SET_IDLE):
      m_idleRate = high(setup.value);
      return kDone;

    default:
      return kStall;
  }
}

std::optional<Bytes> UsbDevice::descriptor(const SetupPacket& setup) const {
  switch (high(setup.value)) {
    case USB_DT_DEVICE:
      return deviceDescriptor(m_pad);
    case USB_DT_CONFIG:
      return low(setup.value) == 0 ? std::optional(configurationDescriptor(m_pad, m_interval))
                                   : kStall;
    case USB_DT_STRING:
      return stringDescriptor(m_pad, low(setup.value));
    case HID_DT_HID:
      return hidDescriptor(m_pad);
    case HID_DT_REPORT:
      return m_pad.reportDescriptor();
    default:
      return kStall;
  }
}

std::optional<Bytes> UsbDevice::setConfiguration(std::uint8_t configuration) {
  if (configuration > kConfiguration) return kStall;
  m_configuration = configuration;
  m_halted = false;
  return kDone;
}

std::optional<Bytes> UsbDevice::setHalted(const SetupPacket& setup, bool halted) {
  if (setup.value != USB_ENDPOINT_HALT || setup.index != (USB_DIR_IN | kInputEndpoint))
    return kStall;
  m_halted = halted;
  return kDone;
}

}  // namespace virtualpads
