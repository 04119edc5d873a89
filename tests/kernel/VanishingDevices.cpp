// Loaded into the programs that run side by side. While one of them enumerates the devices, another
// one may unplug a pad. hidapi-hidraw before 0.15 then crashes: hid_enumerate does not expect that
// a device that it has just listed has no attributes any more. With an empty text for the attribute
// it leaves the device out, as later versions do.
#include <dlfcn.h>
#include <libudev.h>

#include <cstring>

extern "C" const char* udev_device_get_sysattr_value(udev_device* device, const char* name) {
  static const auto inLibrary = reinterpret_cast<decltype(&udev_device_get_sysattr_value)>(
      dlsym(RTLD_NEXT, "udev_device_get_sysattr_value"));
  const char* const value = inLibrary(device, name);
  return value == nullptr && std::strcmp(name, "uevent") == 0 ? "" : value;
}
