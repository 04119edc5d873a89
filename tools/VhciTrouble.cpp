#include "tools/VhciTrouble.h"

namespace virtualpads {

std::string vhciTrouble(const std::system_error& error) {
  if (error.code() == std::errc::no_such_file_or_directory) {
    return "the kernel's virtual USB host controller is missing; root loads its module: "
           "modprobe vhci-hcd";
  }
  if (error.code() == std::errc::permission_denied)
    return "only root may plug in USB devices; use sudo, or leave out --usb";
  if (error.code() == std::errc::device_or_resource_busy)
    return "all ports of the kernel's virtual USB host controller are taken";
  return std::string("the pad can't be plugged: ") + error.what();
}

}  // namespace virtualpads
