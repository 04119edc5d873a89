// What the kernel's virtual host controller (vhci-hcd) and a device say to each other on their
// socket: the part of the USB/IP protocol that begins after the device has been attached. The
// kernel's document for it is Documentation/usb/usbip_protocol.rst.
#ifndef VIRTUALPADS_USB_USBIP_H
#define VIRTUALPADS_USB_USBIP_H

#include <chrono>
#include <cstdint>
#include <optional>

#include "virtualpads/PadModel.h"
#include "virtualpads/usb/UsbDevice.h"

namespace virtualpads {

// The host submits a transfer (an URB of the kernel), or takes one back (unlinks it).
struct UsbipCommand {
  enum class Kind : std::uint32_t { Submit = 1, Unlink = 2 };
  Kind kind;
  std::uint32_t sequence;  // its number, by which it is answered
  bool in;                 // to the host
  std::uint32_t endpoint;
  std::uint32_t length;    // Submit: the bytes to send, or to take at most
  SetupPacket setup;       // Submit to endpoint 0
  Bytes data;              // Submit, out
  std::uint32_t unlinked;  // Unlink: the number of the transfer
};

// Waits for the host's next command. Nothing when the host has closed the connection, or does not
// speak this protocol.
std::optional<UsbipCommand> receiveCommand(int socket);

// Ends a transfer. `status` is 0 or a negative error number as in the kernel's URBs. `actualLength`
// bytes were transferred; `data` are those to the host. False when the host has closed the
// connection.
bool returnSubmit(int socket, std::uint32_t sequence, int status, std::size_t actualLength,
                  const Bytes& data = {});
// Answers an unlink: -ECONNRESET when the transfer had not ended, else 0.
bool returnUnlink(int socket, std::uint32_t sequence, int status);

// Waits until the host has received all that was sent. False when it has not within the limit.
bool waitUntilReceived(int socket, std::chrono::milliseconds limit);

}  // namespace virtualpads

#endif
