#include "tools/PlugTrouble.h"

namespace virtualpads {

namespace {

std::string otherTrouble(const std::system_error& error) {
  return std::string("cannot plug the pad in: ") + error.what();
}

}  // namespace

std::string uhidTrouble(const std::system_error& error) {
  // The node may be there while the module is not: the kernel then has no such device.
  if (error.code() == std::errc::no_such_file_or_directory ||
      error.code() == std::errc::no_such_device)
    return "/dev/uhid is missing; to load its kernel module, run: sudo modprobe uhid";
  if (error.code() == std::errc::permission_denied ||
      error.code() == std::errc::operation_not_permitted) {
    return "no permission to open /dev/uhid; to get it until the next boot, run: "
           "sudo chown $USER /dev/uhid (vela-virtual-pad(1) has a permanent rule)";
  }
  return otherTrouble(error);
}

std::string vhciTrouble(const std::system_error& error) {
  if (error.code() == std::errc::no_such_file_or_directory) {
    return "the kernel's virtual USB host controller is missing; root loads its module: "
           "modprobe vhci-hcd";
  }
  if (error.code() == std::errc::permission_denied)
    return "only root may plug in USB devices; use sudo, or leave out --usb";
  if (error.code() == std::errc::device_or_resource_busy)
    return "all ports of the kernel's virtual USB host controller are taken";
  return otherTrouble(error);
}

}  // namespace virtualpads
