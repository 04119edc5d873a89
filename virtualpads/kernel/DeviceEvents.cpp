#include "virtualpads/kernel/DeviceEvents.h"

#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "virtualpads/kernel/FileDescriptor.h"

namespace virtualpads {
namespace {

using Clock = std::chrono::steady_clock;

// Receives an event for every device that comes or goes.
FileDescriptor listenForDevices() {
  FileDescriptor listener(
      socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_KOBJECT_UEVENT));
  if (!listener) throw std::system_error(errno, std::generic_category(), "listening for devices");
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = 1;
  if (bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    throw std::system_error(errno, std::generic_category(), "listening for devices");
  return listener;
}

// False when the time limit passed without an event.
bool waitForNews(const FileDescriptor& listener, Clock::time_point limit) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(limit - Clock::now());
  pollfd watched{listener.get(), POLLIN, 0};
  if (left.count() <= 0 || poll(&watched, 1, static_cast<int>(left.count())) == 0) return false;
  std::array<char, 4096> news;
  while (recv(listener.get(), news.data(), news.size(), 0) > 0) {
  }
  return true;
}

}  // namespace

bool waitForDevices(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const auto end = Clock::now() + limit;
  const FileDescriptor listener = listenForDevices();
  bool holds = condition();
  for (bool inTime = true; !holds && inTime; holds = condition())
    inTime = waitForNews(listener, end);
  return holds;
}

}  // namespace virtualpads
