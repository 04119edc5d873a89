// The ports of the kernel's virtual host controller.
#ifndef VIRTUALPADS_USB_VHCIPORT_H
#define VIRTUALPADS_USB_VHCIPORT_H

#include <functional>
#include <string>

#include "virtualpads/kernel/FileDescriptor.h"

namespace virtualpads {

// A port with a device in it.
struct UsbPort {
  FileDescriptor device;  // the device's end of the USB/IP connection
  std::string name;       // as the kernel writes it in physical paths, such as "usb-vhci_hcd.0-1"
  // Makes the kernel remove the device, when it has received what was sent to it. `device` must be
  // open, and meanwhile somebody must answer the kernel.
  std::function<void()> remove;
  std::function<void()> waitUntilGone;  // until it has done so
};

// Whether the controller is there, that is, the module vhci-hcd is loaded. Any thread.
bool vhciIsThere();

// Loads the module, where this process may and the kernel has it. Any thread.
void loadVhci();

// Attaches a full-speed device to a free port. Throws std::system_error: ENOENT when the controller
// is not there, EACCES without permission, EBUSY when all ports are taken. Any thread.
UsbPort openVhciPort();

}  // namespace virtualpads

#endif
