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

std::string findNode(const std::string& physicalPath) {
  std::error_code
      missing;  // no class directory, or an entry that goes during the search: no node yet
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
  // Also when its file is missing in the end: a container may have a /dev of its own.
  return node;
}

}  // namespace virtualpads
