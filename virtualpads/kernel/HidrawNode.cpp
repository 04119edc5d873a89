#include "virtualpads/kernel/HidrawNode.h"

#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "virtualpads/kernel/FileDescriptor.h"

namespace virtualpads {
namespace {

using Clock = std::chrono::steady_clock;

// Receives an event for every device that comes or goes.
FileDescriptor listenForDevices() {
  FileDescriptor listener(
      socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_KOBJECT_UEVENT));
  if (!listener) {
    throw std::system_error(errno, std::generic_category(), "listening for devices");
  }
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = 1;
  if (bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw std::system_error(errno, std::generic_category(), "listening for devices");
  }
  return listener;
}

// False when the time limit passed without an event.
bool waitForNews(const FileDescriptor& listener, Clock::time_point limit) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(limit - Clock::now());
  pollfd watched{listener.get(), POLLIN, 0};
  if (left.count() <= 0 || poll(&watched, 1, static_cast<int>(left.count())) == 0) {
    return false;
  }
  std::array<char, 4096> news;
  while (recv(listener.get(), news.data(), news.size(), 0) > 0) {
  }
  return true;
}

bool hasPhysicalPath(const std::filesystem::path& device, const std::string& physicalPath) {
  std::ifstream properties(device / "uevent");
  std::string line;
  while (std::getline(properties, line)) {
    if (line == "HID_PHYS=" + physicalPath) {
      return true;
    }
  }
  return false;
}

std::string findNode(const std::string& physicalPath) {
  std::error_code
      missing;  // no class directory, or an entry that goes during the search: no node yet
  for (const auto& node : std::filesystem::directory_iterator("/sys/class/hidraw", missing)) {
    if (hasPhysicalPath(node.path() / "device", physicalPath)) {
      return "/dev/" + node.path().filename().string();
    }
  }
  return {};
}

}  // namespace

std::string waitForHidrawNode(const std::string& physicalPath, std::chrono::milliseconds limit) {
  const auto end = Clock::now() + limit;
  const FileDescriptor listener = listenForDevices();
  std::string node = findNode(physicalPath);
  std::error_code missing;
  bool inTime = true;
  // The kernel lists a node before it creates its file.
  while (inTime && !std::filesystem::exists(node, missing)) {
    inTime = waitForNews(listener, end);
    // Also when the time is over, and then without a file: a container may get no events, and may
    // have a /dev of its own.
    node = findNode(physicalPath);
  }
  return node;
}

}  // namespace virtualpads
