#include "Device.h"

#include <hidapi.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

struct hid_device_ {
  fuzz::Device& device;
};

extern "C" {
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument);
int __real_pthread_join(pthread_t thread, void** value);
}

namespace fuzz {

namespace {

Device* plugged = nullptr;

}  // namespace

Device::Device(std::array<Start, 3> starts) : m_starts(starts) {
  plugged = this;
}

Device::~Device() {
  plugged = nullptr;
}

void Device::waitForIdleThread() {
  std::unique_lock lock(m_mutex);
  m_changed.wait(lock, [this] { return m_idle; });
}

struct Replaced {
  static int create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                    void* argument) {
    switch (plugged->m_starts.at(plugged->m_nextStart++)) {
      case Start::Refused:
        return EAGAIN;
      case Start::RunAtOnce:
        *thread = pthread_self();
        entry(argument);
        return 0;
      case Start::Started:
        break;
    }
    return __real_pthread_create(thread, attributes, entry, argument);
  }

  static int join(pthread_t thread, void** value) {
    if (pthread_equal(thread, pthread_self()) != 0) return 0;
    set(plugged->m_joined);
    return __real_pthread_join(thread, value);
  }

  static void sleep() {
    set(plugged->m_idle);
    std::unique_lock lock(plugged->m_mutex);
    plugged->m_changed.wait(lock, [] { return plugged->m_joined; });
  }

 private:
  static void set(bool& flag) {
    {
      const std::lock_guard lock(plugged->m_mutex);
      flag = true;
    }
    plugged->m_changed.notify_all();
  }
};

}  // namespace fuzz

extern "C" {

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*entry)(void*), void* argument) {
  return fuzz::Replaced::create(thread, attributes, entry, argument);
}

int __wrap_pthread_join(pthread_t thread, void** value) {
  return fuzz::Replaced::join(thread, value);
}

// The processing thread, which has found its queue empty.
int __wrap_usleep(useconds_t /*microseconds*/) {
  fuzz::Replaced::sleep();
  return 0;
}

// The pause before a read that follows a failure.
int __wrap_nanosleep(const timespec* /*duration*/, timespec* /*left*/) {
  return 0;
}

int hid_init() {
  return 0;
}

int hid_exit() {
  return 0;
}

hid_device* hid_open(unsigned short /*vid*/, unsigned short /*pid*/, const wchar_t* /*serial*/) {
  return new hid_device{*fuzz::plugged};
}

void hid_close(hid_device* device) {
  delete device;
}

int hid_set_nonblocking(hid_device* /*device*/, int /*nonblock*/) {
  return 0;
}

int hid_read_timeout(hid_device* device, unsigned char* data, size_t length, int /*milliseconds*/) {
  return device->device.read({data, length});
}

int hid_get_feature_report(hid_device* device, unsigned char* data, size_t length) {
  return device->device.getFeature({data, length});
}

int hid_send_feature_report(hid_device* device, const unsigned char* data, size_t length) {
  return device->device.setFeature({data, length});
}

// Not reached by any fuzz target.
hid_device_info* hid_enumerate(unsigned short /*vid*/, unsigned short /*pid*/) {
  std::abort();
}

void hid_free_enumeration(hid_device_info* /*devices*/) {
  std::abort();
}

int hid_write(hid_device* /*device*/, const unsigned char* /*data*/, size_t /*length*/) {
  std::abort();
}

}  // extern "C"
