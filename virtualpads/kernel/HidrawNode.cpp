#include "virtualpads/kernel/HidrawNode.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "virtualpads/kernel/DeviceEvents.h"

namespace virtualpads {
namespace {

bool hasPhysicalPath(const std::filesystem::path& device, const std::string& physicalPath) {
  std::ifstream properties(device / "uevent");
  std::string line;
  while (std::getline(properties, line))
    if (line == "HID_PHYS=" + physicalPath) return true;
  return false;
}

// The kernel has the node before the device's driver has started, and drops input reports until
// then. Asking for a driver waits for the one that is starting, and does nothing else to a device
// that has one. It needs root. Without, few programs open the node so soon.
void waitForDriver(const std::string& node) {
  std::error_code missing;
  const auto device = std::filesystem::canonical(
      "/sys/class/hidraw/" + std::filesystem::path(node).filename().string() + "/device", missing);
  std::ofstream("/sys/bus/hid/drivers_probe") << device.filename().string();
}

std::string findNode(const std::string& physicalPath) {
  // No class directory, or an entry that goes during the search: no node yet.
  std::error_code missing;
  for (const auto& node : std::filesystem::directory_iterator("/sys/class/hidraw", missing))
    if (hasPhysicalPath(node.path() / "device", physicalPath))
      return "/dev/" + node.path().filename().string();
  return {};
}

}  // namespace

std::string waitForHidrawNode(const std::string& physicalPath, std::chrono::milliseconds limit) {
  std::string node;
  waitForDevices(
      [&] {
        std::error_code missing;
        node = findNode(physicalPath);
        // The kernel lists a node before it creates its file.
        return std::filesystem::exists(node, missing);
      },
      limit);
  if (!node.empty()) waitForDriver(node);
  // Also when its file is missing in the end: a container may have a /dev of its own.
  return node;
}

}  // namespace virtualpads
