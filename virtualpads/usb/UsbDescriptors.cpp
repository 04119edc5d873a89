#include "virtualpads/usb/UsbDescriptors.h"

#include <linux/hid.h>
#include <linux/usb/ch9.h>

#include <cstddef>

namespace virtualpads {
namespace {

constexpr std::uint16_t kUsbVersion = 0x0110;  // full speed only, hence no device qualifier
constexpr std::uint16_t kDeviceVersion = 0x0100;
constexpr std::uint16_t kHidVersion = 0x0111;
constexpr std::uint8_t kPacketSize = 64;  // of both endpoints; every input report fits
constexpr std::uint8_t kMaxPower = 50;    // in units of 2 mA

constexpr std::uint8_t kNoString = 0;
constexpr std::uint8_t kLanguages = 0;
constexpr std::uint8_t kProductName = 1;
constexpr std::uint16_t kEnglish = 0x0409;

constexpr std::uint8_t kHidDescriptorSize = 9;

constexpr std::uint8_t low(std::size_t word) {
  return static_cast<std::uint8_t>(word);
}
constexpr std::uint8_t high(std::size_t word) {
  return static_cast<std::uint8_t>(word >> 8);
}

}  // namespace

Bytes deviceDescriptor(const PadModel& pad) {
  const std::uint16_t vendor = pad.description().vendor;
  const std::uint16_t product = pad.description().product;
  return {
      USB_DT_DEVICE_SIZE,  // bLength
      USB_DT_DEVICE,       // bDescriptorType
      low(kUsbVersion),    // bcdUSB
      high(kUsbVersion),
      USB_CLASS_PER_INTERFACE,  // bDeviceClass
      0,                        // bDeviceSubClass
      0,                        // bDeviceProtocol
      kPacketSize,              // bMaxPacketSize0
      low(vendor),              // idVendor
      high(vendor),
      low(product),  // idProduct
      high(product),
      low(kDeviceVersion),  // bcdDevice
      high(kDeviceVersion),
      kNoString,     // iManufacturer
      kProductName,  // iProduct
      kNoString,     // iSerialNumber
      1,             // bNumConfigurations
  };
}

Bytes configurationDescriptor(const PadModel& pad, std::uint8_t interval) {
  constexpr std::size_t kTotalSize =
      USB_DT_CONFIG_SIZE + USB_DT_INTERFACE_SIZE + kHidDescriptorSize + USB_DT_ENDPOINT_SIZE;
  Bytes bytes = {
      USB_DT_CONFIG_SIZE,  // bLength
      USB_DT_CONFIG,       // bDescriptorType
      low(kTotalSize),     // wTotalLength
      high(kTotalSize),
      1,                   // bNumInterfaces
      kConfiguration,      // bConfigurationValue
      kNoString,           // iConfiguration
      USB_CONFIG_ATT_ONE,  // bmAttributes
      kMaxPower,           // bMaxPower

      USB_DT_INTERFACE_SIZE,    // bLength
      USB_DT_INTERFACE,         // bDescriptorType
      kInterface,               // bInterfaceNumber
      0,                        // bAlternateSetting
      1,                        // bNumEndpoints
      USB_INTERFACE_CLASS_HID,  // bInterfaceClass
      0,                        // bInterfaceSubClass
      0,                        // bInterfaceProtocol
      kNoString,                // iInterface
  };
  const Bytes hid = hidDescriptor(pad);
  bytes.insert(bytes.end(), hid.begin(), hid.end());
  bytes.insert(bytes.end(), {
                                USB_DT_ENDPOINT_SIZE,         // bLength
                                USB_DT_ENDPOINT,              // bDescriptorType
                                USB_DIR_IN | kInputEndpoint,  // bEndpointAddress
                                USB_ENDPOINT_XFER_INT,        // bmAttributes
                                low(kPacketSize), 0,          // wMaxPacketSize
                                interval,                     // bInterval
                            });
  return bytes;
}

Bytes hidDescriptor(const PadModel& pad) {
  const std::size_t reportDescriptorSize = pad.reportDescriptor().size();
  return {
      kHidDescriptorSize,  // bLength
      HID_DT_HID,          // bDescriptorType
      low(kHidVersion),    // bcdHID
      high(kHidVersion),
      0,                          // bCountryCode
      1,                          // bNumDescriptors
      HID_DT_REPORT,              // bDescriptorType
      low(reportDescriptorSize),  // wDescriptorLength
      high(reportDescriptorSize),
  };
}

std::optional<Bytes> stringDescriptor(const PadModel& pad, std::uint8_t index) {
  if (index == kLanguages) return Bytes{4, USB_DT_STRING, low(kEnglish), high(kEnglish)};
  if (index != kProductName) return std::nullopt;
  const std::string name = pad.description().name.substr(0, USB_MAX_STRING_LEN);
  Bytes bytes = {low(2 + 2 * name.size()), USB_DT_STRING};
  for (const char character : name)  // plain ASCII, in UTF-16LE
    bytes.insert(bytes.end(), {static_cast<std::uint8_t>(character), 0});
  return bytes;
}

}  // namespace virtualpads
