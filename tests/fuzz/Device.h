// The device behind hidapi's functions in a fuzz program. The target derives its behaviour from the
// fuzzer's bytes.
//
// The program also replaces (device_functions in the CMakeLists.txt) the SDK's functions for
// starting and joining threads and for sleeping, so that a run takes microseconds and is
// deterministic. A driver's thread is refused, or runs to its end where it is started, or is
// started and sleeps from the first time it has nothing to do until it is joined.
#ifndef TESTS_FUZZ_DEVICE_H
#define TESTS_FUZZ_DEVICE_H

#include <array>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <span>

namespace fuzz {

enum class Start { Refused, RunAtOnce, Started };

// From construction to destruction this is the only device that hid_open finds.
class Device {
 public:
  // What happens to the three threads that the driver starts, in order.
  explicit Device(std::array<Start, 3> starts);
  virtual ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // The results of hid_read_timeout, hid_get_feature_report and hid_send_feature_report.
  virtual int read(std::span<std::uint8_t> buffer) = 0;
  virtual int getFeature(std::span<std::uint8_t> report) = 0;
  virtual int setFeature(std::span<const std::uint8_t> report) = 0;

  // Waits until the started thread has nothing to do.
  void waitForIdleThread();

 private:
  friend struct Replaced;

  std::array<Start, 3> m_starts;
  std::size_t m_nextStart = 0;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_idle = false;
  bool m_joined = false;
};

}  // namespace fuzz

#endif
