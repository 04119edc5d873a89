// The device behind hidapi's functions as a fuzz program has them: whatever the target makes of the
// fuzzer's bytes.
//
// The program also replaces (device_functions in the CMakeLists.txt) how the SDK starts and joins
// threads and how it sleeps, so that a run takes microseconds and always goes the same way: a
// driver's thread is refused, or it is run to its end where it is started, or it is started and
// sleeps, when it first finds nothing to do, until it is joined.
#ifndef TESTS_FUZZ_DEVICE_H
#define TESTS_FUZZ_DEVICE_H

#include <array>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <span>

namespace fuzz {

enum class Start { Refused, RunAtOnce, Started };

// From construction to destruction the one device that hid_open finds.
class Device {
 public:
  // What becomes of the three threads that the driver starts, in their order.
  explicit Device(std::array<Start, 3> starts);
  virtual ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // The results of hid_read_timeout, hid_get_feature_report and hid_send_feature_report.
  virtual int read(std::span<std::uint8_t> buffer) = 0;
  virtual int getFeature(std::span<std::uint8_t> report) = 0;
  virtual int setFeature(std::span<const std::uint8_t> report) = 0;

  // Waits until the started thread finds nothing to do.
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
