// With udev.
#include <libudev.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <string_view>

#include "PadWatch.h"
#include "Pads.h"

namespace {

template <auto release>
struct Release {
  template <class Handle>
  void operator()(Handle* handle) const {
    release(handle);
  }
};

using Udev = std::unique_ptr<udev, Release<udev_unref>>;
using Monitor = std::unique_ptr<udev_monitor, Release<udev_monitor_unref>>;
using Device = std::unique_ptr<udev_device, Release<udev_device_unref>>;

// udev sends its events after it has applied its rules, so that a node has its permissions. Where
// udev does not run, the kernel sends its own as soon as the node exists.
const char* eventSource() {
  return access("/run/udev/control", F_OK) == 0 ? "udev" : "kernel";
}

// The path of a node's device contains the HID device:
// /devices/.../0003:04DF:0012.0001/hidraw/hidraw0
std::string hidDeviceOf(std::string_view path) {
  for (int up = 0; up < 2; ++up) path = path.substr(0, path.rfind('/'));
  return std::string(path.substr(path.rfind('/') + 1));
}

}  // namespace

struct PadWatch::Source {
  Udev udev{udev_new()};
  Monitor monitor{udev_monitor_new_from_netlink(udev.get(), eventSource())};
};

PadWatch::PadWatch() : m_source(new Source) {
  udev_monitor* const monitor = m_source->monitor.get();
  if (monitor == nullptr ||
      udev_monitor_filter_add_match_subsystem_devtype(monitor, "hidraw", nullptr) < 0 ||
      udev_monitor_enable_receiving(monitor) < 0) {
    delete m_source;
    throw std::runtime_error("cannot monitor devices");
  }
}

PadWatch::~PadWatch() {
  delete m_source;
}

int PadWatch::descriptor() const {
  return udev_monitor_get_fd(m_source->monitor.get());
}

std::optional<NodeEvent> PadWatch::take() {
  const Device device(udev_monitor_receive_device(m_source->monitor.get()));
  if (device == nullptr) return std::nullopt;
  const std::string_view action = udev_device_get_action(device.get());
  const auto provider = providerOf(hidDeviceOf(udev_device_get_devpath(device.get())));
  const char* const node = udev_device_get_devnode(device.get());
  if (!provider || node == nullptr || (action != "add" && action != "remove")) return std::nullopt;
  return NodeEvent{action == "add" ? PadEvent::Kind::Attached : PadEvent::Kind::Detached, *provider,
                   node};
}
