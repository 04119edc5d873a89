#include "virtualpads/usb/VhciPort.h"

#include <fcntl.h>
#include <linux/usb/ch9.h>
#include <linux/usbip.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>
#include <vector>

#include "virtualpads/kernel/DeviceEvents.h"
#include "virtualpads/usb/Usbip.h"

namespace virtualpads {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds kRemovalLimit{30};

// The kernel receives at once.
constexpr std::chrono::seconds kReceiveLimit{1};

// The kernel only hands this number back in its commands.
constexpr unsigned kDeviceId = 1;

// The controller may consist of several, each with a hub of its own. The first one speaks for all.
fs::path controller(unsigned number = 0) {
  return "/sys/devices/platform/vhci_hcd." + std::to_string(number);
}

std::system_error systemError(int error, const std::string& what) {
  return {error, std::generic_category(), what};
}

struct Port {
  unsigned number;  // among all
  unsigned controller;
  unsigned numberInHub;  // from 1

  // As the kernel writes it in physical paths.
  std::string name() const {
    return "usb-vhci_hcd." + std::to_string(controller) + "-" + std::to_string(numberInHub);
  }
};

// The free ports of the hubs for low, full and high speed, by their number in the hub: the kernel
// configures the devices in one hub one after the other. After a line of titles, each line of a
// controller's file names a port's hub, its number and its status.
std::vector<Port> freePorts() {
  std::vector<Port> ports;
  for (unsigned number = 0;; ++number) {
    std::ifstream file(controller() /
                       (number == 0 ? "status" : "status." + std::to_string(number)));
    if (!file) break;
    std::string line;
    std::getline(file, line);
    for (unsigned inHub = 1; std::getline(file, line);) {
      std::istringstream words(line);
      std::string hub;
      unsigned port = 0;
      unsigned status = 0;
      if (!(words >> hub >> port >> status) || hub != "hs") continue;
      if (status == VDEV_ST_NULL) ports.push_back({port, number, inHub});
      ++inHub;
    }
  }
  std::ranges::stable_sort(ports, {}, &Port::numberInHub);
  return ports;
}

// The device in that port.
fs::path deviceIn(const Port& port) {
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(controller(port.controller), missing)) {
    const std::string name = entry.path().filename();
    unsigned speed = 0;
    if (name.starts_with("usb") && std::ifstream(entry.path() / "speed") >> speed && speed == 480) {
      return "/sys/bus/usb/devices/" + name.substr(3) + "-" + std::to_string(port.numberInHub);
    }
  }
  return {};
}

// While the kernel removes a device, it waits in a loop, with the interrupts off, for the transfer
// whose data it is receiving (usb_hcd_flush_endpoint). Where the thread that receives has no other
// processor to run on, the loop never ends, and the machine stands still.
void removeDevice(const fs::path& device, int socket) {
  waitUntilReceived(socket, kReceiveLimit);
  std::ofstream(device / "remove") << "1";
}

void waitUntilGone(const fs::path& device) {
  std::error_code missing;
  try {
    waitForDevices([&] { return !fs::exists(device, missing); }, kRemovalLimit);
  } catch (const std::system_error&) {  // too many open files: the kernel removes it all the same
  }
}

}  // namespace

bool vhciIsThere() {
  return access((controller() / "attach").c_str(), F_OK) == 0;
}

void loadVhci() {
  std::string program = "/sbin/modprobe";
  std::string quietly = "--quiet";
  std::string module = "vhci-hcd";
  char* const arguments[] = {program.data(), quietly.data(), module.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  if (posix_spawn(&child, program.c_str(), &actions, nullptr, arguments, environ) == 0)
    waitpid(child, nullptr, 0);
  posix_spawn_file_actions_destroy(&actions);
}

UsbPort openVhciPort() {
  const std::string path = controller() / "attach";
  const FileDescriptor attach(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  if (!attach) throw systemError(errno, path);
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
    throw systemError(errno, "making a socket");
  FileDescriptor device(ends[0]);
  const FileDescriptor host(ends[1]);  // the kernel keeps its own reference
  for (const Port& port : freePorts()) {
    const std::string line = std::to_string(port.number) + " " + std::to_string(host.get()) + " " +
                             std::to_string(kDeviceId) + " " + std::to_string(USB_SPEED_FULL);
    if (write(attach.get(), line.data(), line.size()) == static_cast<ssize_t>(line.size())) {
      return {std::move(device), port.name(),
              [path = deviceIn(port), socket = ends[0]] { removeDevice(path, socket); },
              [path = deviceIn(port)] { waitUntilGone(path); }};
    }
    // Another program may have taken the port in the meantime.
    if (errno != EBUSY) throw systemError(errno, path);
  }
  throw systemError(EBUSY, path);
}

}  // namespace virtualpads
