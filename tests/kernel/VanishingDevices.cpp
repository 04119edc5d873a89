// Loaded into the programs that run side by side. While one of them lists the devices, another one
// may unplug a pad.
#include <dlfcn.h>
#include <libudev.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace {

template <class Function>
Function* inLibrary(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Where sysfs has the devices that this thread is about to list. hidapi-hidraw and libusb each list
// those of one subsystem.
thread_local std::string directory;

// Without the interfaces of USB devices, whose names have a colon: libusb lists devices only.
std::vector<std::string> entries() {
  std::vector<std::string> paths;
  std::error_code missing;
  for (const auto& entry : std::filesystem::directory_iterator(directory, missing))
    if (entry.path().filename().string().find(':') == std::string::npos)
      paths.push_back(entry.path());
  return paths;
}

}  // namespace

extern "C" {

// hidapi-hidraw before 0.15 crashes then: hid_enumerate does not expect that a device that it has
// just listed has no attributes any more. With an empty text for the attribute it leaves the device
// out, as later versions do.
const char* udev_device_get_sysattr_value(udev_device* device, const char* name) {
  static const auto original =
      inLibrary<decltype(udev_device_get_sysattr_value)>("udev_device_get_sysattr_value");
  const char* const value = original(device, name);
  return value == nullptr && std::strcmp(name, "uevent") == 0 ? "" : value;
}

int udev_enumerate_add_match_subsystem(udev_enumerate* list, const char* name) {
  static const auto original =
      inLibrary<decltype(udev_enumerate_add_match_subsystem)>("udev_enumerate_add_match_subsystem");
  directory = std::strcmp(name, "hidraw") == 0 ? "/sys/class/hidraw"
              : std::strcmp(name, "usb") == 0  ? "/sys/bus/usb/devices"
                                               : "";
  return original(list, name);
}

// When an entry of a directory in sysfs goes while a program reads the directory, the kernel may
// skip the next entry, which stays: another pad. So the directory is read once more. Of what it
// lists, add_syspath leaves out what has gone or is there already.
int udev_enumerate_scan_devices(udev_enumerate* list) {
  static const auto original =
      inLibrary<decltype(udev_enumerate_scan_devices)>("udev_enumerate_scan_devices");
  const std::vector<std::string> paths = entries();
  const int result = original(list);
  for (const std::string& path : paths) udev_enumerate_add_syspath(list, path.c_str());
  return result;
}

}  // extern "C"
