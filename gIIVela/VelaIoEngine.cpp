#include "VelaIoEngine.h"

#include <hidapi.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

namespace {

// Where hidapi times out after a second, it fails at once on a pad that has been unplugged, and the
// reading loops try again for as long as the connection is open. This pause before the next read
// keeps that from taking a whole core. It is short enough that a pad which recovers has not filled
// the 63 reports that the kernel keeps for it.
constexpr std::chrono::milliseconds kPauseAfterFailure{50};

struct ReportSize {
  int product;
  unsigned short bytes;
};

// 67, 87 and 24577 belong to no driver here; they are meant to be known all the same.
constexpr ReportSize kInputReportSizes[] = {
    {18, 6}, {31, 11}, {48, 8}, {56, 17}, {67, 8}, {87, 8}, {24577, 8},
};
static_assert(std::ranges::max(kInputReportSizes, {}, &ReportSize::bytes).bytes ==
              kMaxInputReportSize);

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
  for (const hid_device_info* device = devices; device != nullptr; device = device->next) {
    if (device->vendor_id == vid && device->product_id == pid) ++count;
  }
  hid_free_enumeration(devices);
  return count;
}

int CVelaIoEngine::GetFeature(unsigned short length, void* buffer) {
  // A client may query a pad that could not be opened; hidapi would follow the null handle.
  if (m_handle == nullptr || length == 0 || buffer == nullptr) return -1;
  return m_gate.run(HidCallGate::Control, [&] {
    return hid_get_feature_report(m_handle, static_cast<unsigned char*>(buffer), length);
  });
}

int CVelaIoEngine::SetFeature(unsigned short length, void* buffer) {
  if (m_handle == nullptr || length == 0 || buffer == nullptr) return -1;
  return m_gate.run(HidCallGate::Control, [&] {
    return hid_send_feature_report(m_handle, static_cast<const unsigned char*>(buffer), length);
  });
}

bool CVelaIoEngine::GetDataReportSize(unsigned short* size) {
  for (const ReportSize& known : kInputReportSizes) {
    if (known.product == m_pid) {
      *size = known.bytes;
      return true;
    }
  }
  *size = 0;
  return false;
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
  if (m_gate.failed()) std::this_thread::sleep_for(kPauseAfterFailure);
  const int count = m_gate.run(HidCallGate::Reading, [&] {
    return hid_read_timeout(m_handle, buffer, static_cast<size_t>(length), m_timeout);
  });
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
    // "to read" is meant: the same words as ReadFile's.
    puts("WriteFile::lpBuffer is NULL or bytes to read <= 0");
    return false;
  }
  const int count = m_gate.run(HidCallGate::Control, [&] {
    return hid_write(m_handle, buffer, static_cast<size_t>(length));
  });
  if (count < 1) return false;
  *bytesWritten = count;
  return true;
}
