// A pad that is plugged into the Linux kernel. While it is plugged, the kernel shows a real
// /dev/hidrawN with the model's identity and report descriptor, and any program that uses hidapi
// finds it. A UhidPad is a HID device only; a VhciPad is a USB device.
//
// Linux only. All operations may be called on any thread, except that the function given to
// withModel must not call back into its pad.
#ifndef VIRTUALPADS_KERNEL_KERNELPAD_H
#define VIRTUALPADS_KERNEL_KERNELPAD_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "virtualpads/PadModel.h"
#include "virtualpads/kernel/FileDescriptor.h"

namespace virtualpads {

enum class FeatureCall { Get, Set };

// A feature request that reached the pad.
struct FeatureRequest {
  FeatureCall call;
  Bytes bytes;    // Set: the report, its id first; Get: the id alone
  bool accepted;  // false: it was refused, or the pad was unplugged before it answered
  bool operator==(const FeatureRequest&) const = default;
};

// What happens to a feature request instead of its plain answer. A model that refuses a request, or
// answers with another length, needs no fault.
enum class FeatureFault {
  Late,    // the answer is held back until releaseLateAnswers (the kernel itself waits 5 s at most)
  Unplug,  // the pad is unplugged while the program waits for the answer
};

class KernelPad {
 public:
  // The log keeps this many requests and forgets the oldest ones beyond it.
  static constexpr std::size_t kLoggedRequests = 10000;

  // Unplugs.
  virtual ~KernelPad() = default;
  KernelPad(const KernelPad&) = delete;
  KernelPad& operator=(const KernelPad&) = delete;

  // Creates the device and returns when the kernel has started it; the node may appear slightly
  // later (see waitForNode). Does nothing when the pad is plugged. Throws std::system_error, and
  // leaves the pad unplugged, when the kernel's interface can't be opened, the process has too many
  // open files, or the kernel does not start the device within the limit.
  void plug();
  // 15 s at first. Not while `plug` runs.
  void setStartLimit(std::chrono::milliseconds limit) { m_startLimit = limit; }
  // Removes the device, at any moment: its node is gone when this returns, and requests that wait
  // for an answer fail. Programs that have the node open notice at their next call. Does nothing
  // when the pad is not plugged.
  void unplug();
  bool plugged() const;

  // Waits for the node and returns its path, such as "/dev/hidraw0". Empty when the pad is not
  // plugged, or when the node has not appeared after 30 s. Throws std::system_error when it may not
  // listen for the kernel's device events.
  std::string waitForNode() const;

  // Whether any program has the node open. The two waits return false after 30 s. The kernel
  // reports that the node is open a moment before it starts to keep reports for the program: a
  // report sent in that moment may be lost.
  bool open() const;
  bool waitUntilOpen() const;
  bool waitUntilClosed() const;

  // Sends an input report. False when the pad is not plugged or can't take the report. The kernel
  // silently drops the report when no program has the node open, and for each program that has 63
  // unread ones: the sender must pace itself by what the reader confirms.
  bool send(const Bytes& report);
  // The same, with the model's report for that pen state.
  bool sendPen(const PenState& pen);

  // Calls `look` with the model while no request can touch it.
  void withModel(const std::function<void(PadModel&)>& look);

  // The next request of that kind for that report meets the fault.
  void fail(FeatureCall call, std::uint8_t reportId, FeatureFault fault);
  // Sends the answers that Late faults hold back.
  void releaseLateAnswers();

  // The requests so far, in the order in which they arrived.
  std::vector<FeatureRequest> requests() const;
  void clearRequests();
  // Waits until a request in the log satisfies the condition; false after 30 s without.
  bool waitForRequest(const std::function<bool(const FeatureRequest&)>& condition) const;

 protected:
  using Clock = std::chrono::steady_clock;

  explicit KernelPad(std::shared_ptr<PadModel> model);

  // What a face implements. m_mutex is held, unless stated otherwise.

  struct Connection {
    FileDescriptor device;     // readable when the kernel has something for the pad
    std::string physicalPath;  // of the HID device (HID_PHYS)
  };
  // Creates the device. Throws std::system_error.
  virtual Connection connect() = 0;
  // Takes it away, without waiting for the kernel.
  virtual void disconnect() = 0;
  // Waits until the kernel has removed the device, while the event thread still runs. m_mutex is
  // not held.
  virtual void waitUntilGone() {}
  virtual bool sendReport(const Bytes& report) = 0;
  // Reads what the kernel has for the pad, and returns what is to be done about it, or nothing.
  // Called on the event thread; m_mutex is not held during the reading.
  virtual std::function<void()> readEvent() = 0;
  // Sends the answer to a feature request: the report that was got (empty for a set), or nothing
  // when it is refused.
  virtual void answer(FeatureCall call, std::uint32_t requestId,
                      const std::optional<Bytes>& reply) = 0;
  // The time at which the event thread shall call `onTime`, if any. A change outside that thread
  // needs a wakeEventThread.
  virtual std::optional<Clock::time_point> nextTime() const { return std::nullopt; }
  virtual void onTime() {}

  // What a face calls, with m_mutex held.

  int device() const { return m_connection.device.get(); }
  PadModel& model() const { return *m_model; }
  bool isPlugged() const { return m_plugged; }
  bool isOpen() const { return m_open; }
  void setStarted() { m_started = true; }
  void setOpen(bool open);
  void takeFeatureRequest(FeatureCall call, std::uint32_t requestId, std::uint8_t reportId,
                          const Bytes& bytes);
  // The pad is unplugged from now on.
  void breakConnection();
  // The kernel has nothing more to say.
  void endEvents() { m_ending = true; }
  void wakeEventThread() const;

  mutable std::mutex m_mutex;  // guards the model and all other fields but the three at the top

 private:
  void takeAway();
  bool waitFor(std::chrono::milliseconds limit, const std::function<bool()>& condition) const;
  void eventLoop();
  void log(FeatureRequest request);

  std::chrono::milliseconds m_startLimit = std::chrono::seconds(15);
  // Serialises plug and unplug; taken before m_mutex.
  std::mutex m_plugMutex;
  std::thread m_eventThread;

  mutable std::condition_variable m_changed;
  const std::shared_ptr<PadModel> m_model;
  FileDescriptor m_wake;  // an event counter, which the event thread watches
  Connection m_connection;
  bool m_plugged = false;
  bool m_started = false;
  bool m_ending = false;  // the event thread shall end
  bool m_open = false;
  std::map<std::pair<FeatureCall, std::uint8_t>, FeatureFault> m_faults;
  std::vector<std::function<void()>> m_lateAnswers;
  std::deque<FeatureRequest> m_requests;
};

}  // namespace virtualpads

#endif
