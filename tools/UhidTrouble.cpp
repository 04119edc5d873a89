#include "tools/UhidTrouble.h"

namespace virtualpads {

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
  return std::string("cannot plug the pad in: ") + error.what();
}

}  // namespace virtualpads
