#include "virtualpads/tools/UhidTrouble.h"

namespace virtualpads {

std::string uhidTrouble(const std::system_error& error) {
  // The node may be there while the module is not: the kernel then has no such device.
  if (error.code() == std::errc::no_such_file_or_directory ||
      error.code() == std::errc::no_such_device) {
    return "/dev/uhid is missing; this loads the kernel's module for it: sudo modprobe uhid";
  }
  if (error.code() == std::errc::permission_denied ||
      error.code() == std::errc::operation_not_permitted) {
    return "/dev/uhid may not be opened; this permits it until the next start: "
           "sudo chown $USER /dev/uhid (vela-virtual-pad(1) has a rule that lasts)";
  }
  return std::string("the pad can't be plugged: ") + error.what();
}

}  // namespace virtualpads
