#include "VelaIoEngine.h"

#include <hidapi.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

namespace {

using std::chrono::milliseconds;

// After a call has failed, a read waits in slices of this length, so that a control call gets its
// turn soon.
constexpr milliseconds kSlice{25};

// On a pad that has been unplugged, hidapi fails at once instead of timing out after a second, and
// the reading loops try again for as long as the connection is open. This pause keeps them from
// using a whole core. It is short enough that a pad which recovers has not filled the 63 reports
// that the kernel keeps for it.
constexpr milliseconds kPauseAfterFailedRead{50};

}  // namespace

CVelaIoEngine::CVelaIoEngine(unsigned short vid, unsigned short pid) : m_vid(vid), m_pid(pid) {
  hid_init();
}

CVelaIoEngine::~CVelaIoEngine() {
  if (m_handle != nullptr) {
    hid_close(m_handle);
    m_handle = nullptr;
  }
  hid_exit();
}

int CVelaIoEngine::OpenDevice(unsigned short vid, unsigned short pid) {
  m_vid = vid;
  m_pid = pid;
  m_handle = hid_open(vid, pid, nullptr);
  if (m_handle == nullptr) return -1;
  m_gate.reset();
  hid_set_nonblocking(m_handle, 0);
  return 1;
}

int CVelaIoEngine::CloseDevice() {
  if (m_handle != nullptr) {
    hid_close(m_handle);
    m_handle = nullptr;
  }
  return 0;
}

int CVelaIoEngine::GetNumDevices(unsigned short vid, unsigned short pid) {
  hid_device_info* const devices = hid_enumerate(0, 0);
  int count = 0;
  for (const hid_device_info* device = devices; device != nullptr; device = device->next)
    if (device->vendor_id == vid && device->product_id == pid) ++count;
  hid_free_enumeration(devices);
  return count;
}

int CVelaIoEngine::GetFeature(unsigned short length, void* buffer) {
  // A client may query a pad that could not be opened; hidapi would follow the null handle.
  if (m_handle == nullptr || length == 0 || buffer == nullptr) return -1;
  return m_gate.run(HidCallGate::kControl, [&] {
    return hid_get_feature_report(m_handle, static_cast<unsigned char*>(buffer), length);
  });
}

int CVelaIoEngine::SetFeature(unsigned short length, void* buffer) {
  if (m_handle == nullptr || length == 0 || buffer == nullptr) return -1;
  return m_gate.run(HidCallGate::kControl, [&] {
    return hid_send_feature_report(m_handle, static_cast<const unsigned char*>(buffer), length);
  });
}

bool CVelaIoEngine::GetDataReportSize(unsigned short* size) {
  *size = inputReportSize(m_pid);
  return *size != 0;
}

bool CVelaIoEngine::ReadFile(unsigned char* buffer, int length, int* bytesRead) {
  if (m_handle == nullptr) {
    puts("ReadFile::m_handle is NULL!!");
    return false;
  }
  if (buffer == nullptr || length < 1) {
    puts("ReadFile::lpBuffer is NULL or bytes to read <= 0");
    return false;
  }
  const auto deadline = std::chrono::steady_clock::now() + milliseconds(m_timeout);
  const auto untilDeadline = [&] {
    return std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
  };
  milliseconds left(m_timeout);
  int count = 0;
  while (count == 0 && left.count() > 0) {
    milliseconds wait{};
    count = m_gate.run(HidCallGate::kReading, [&] {
      wait = m_gate.failed() ? std::min(left, kSlice) : left;
      return hid_read_timeout(m_handle, buffer, static_cast<size_t>(length),
                              static_cast<int>(wait.count()));
    });
    left = std::min(left - wait, untilDeadline());
  }
  if (count < 0) std::this_thread::sleep_for(std::min(kPauseAfterFailedRead, untilDeadline()));
  if (count < 1) return false;
  *bytesRead = count;
  return true;
}

bool CVelaIoEngine::WriteFile(unsigned char* buffer, int length, int* bytesWritten) {
  if (m_handle == nullptr) {
    puts("WriteFile::m_handle is NULL!!");
    return false;
  }
  if (buffer == nullptr || length < 1) {
    // Deliberate: "to read", the same words as ReadFile's.
    puts("WriteFile::lpBuffer is NULL or bytes to read <= 0");
    return false;
  }
  const int count = m_gate.run(HidCallGate::kControl, [&] {
    return hid_write(m_handle, buffer, static_cast<size_t>(length));
  });
  if (count < 1) return false;
  *bytesWritten = count;
  return true;
}
