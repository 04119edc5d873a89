// The kernel face: puts a pad model behind /dev/uhid, the kernel's interface for HID devices in
// user space. While the pad is plugged, the kernel shows a real /dev/hidrawN with the model's
// identity and report descriptor, and any program that uses hidapi finds it.
//
// Linux only. Making a pad needs read and write permission on /dev/uhid.
//
// All operations may be called on any thread, except that the function given to withModel must not
// call back into its pad.
#ifndef VIRTUALPADS_KERNEL_UHIDPAD_H
#define VIRTUALPADS_KERNEL_UHIDPAD_H

#include <linux/uhid.h>

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

// What happens to a feature request instead of its plain answer.
struct FeatureFault {
  enum class Kind {
    Refuse,  // the request fails without reaching the model
    Short,   // a get delivers only the first `bytes` bytes; no effect on a set
    Late,  // the answer is held back until releaseLateAnswers (the kernel itself waits 5 s at most)
    Unplug,  // the pad is unplugged while the program waits for the answer
  };
  Kind kind;
  std::size_t bytes = 0;
};

// Opens /dev/uhid. Throws std::system_error when it is missing or not permitted.
FileDescriptor openUhid();

class UhidPad {
 public:
  // The log keeps this many requests and forgets the oldest ones beyond it.
  static constexpr std::size_t kLoggedRequests = 10000;
  static constexpr int kAlways = -1;

  // A pad that is not plugged. Each plug calls `openDevice`; tests use it to put a socket in place
  // of the kernel.
  explicit UhidPad(std::shared_ptr<PadModel> model,
                   std::function<FileDescriptor()> openDevice = openUhid);
  // Unplugs.
  ~UhidPad();
  UhidPad(const UhidPad&) = delete;
  UhidPad& operator=(const UhidPad&) = delete;

  // Creates the device and returns when the kernel has started it; the node may appear slightly
  // later (see waitForNode). Does nothing when the pad is plugged. Throws std::system_error, and
  // leaves the pad unplugged, when /dev/uhid can't be opened, the process has too many open
  // files, or the kernel does not start the device within 5 s (it silently rejects report
  // descriptors that it can't parse).
  void plug();
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

  // Sends an input report. False when the pad is not plugged or the report is longer than the 4096
  // bytes that uhid can carry. The kernel silently drops the report when no program has the node
  // open, and for each program that has 63 unread ones: the sender must pace itself by what the
  // reader confirms.
  bool send(const Bytes& report);
  // The same, with the model's report for that pen state.
  bool sendPen(const PenState& pen);

  // Calls `look` with the model while no request can touch it.
  void withModel(const std::function<void(PadModel&)>& look);

  // The next `times` requests of that kind for that report (kAlways: all of them) meet the fault. A
  // new fault for the same kind and report replaces the old one.
  void fail(FeatureCall call, std::uint8_t reportId, FeatureFault fault, int times = 1);
  void clearFaults();
  // Sends the answers that Late faults hold back.
  void releaseLateAnswers();

  // The requests so far, in the order in which they arrived.
  std::vector<FeatureRequest> requests() const;
  void clearRequests();
  // Waits until a request in the log satisfies the condition; false after 30 s without.
  bool waitForRequest(const std::function<bool(const FeatureRequest&)>& condition) const;

 private:
  struct PlannedFault {
    FeatureFault fault;
    int times;
  };

  void takeAway();
  void joinEventThread();
  bool waitFor(std::chrono::seconds limit, const std::function<bool()>& condition) const;
  bool write(const uhid_event& event) const;
  bool sendReport(const Bytes& report) const;
  void destroyDevice();
  void eventLoop();
  void handle(const uhid_event& event);
  void answerFeature(FeatureCall call, std::uint32_t requestId, std::uint8_t reportId,
                     const Bytes& bytes);
  std::optional<FeatureFault> takeFault(FeatureCall call, std::uint8_t reportId);
  void log(FeatureRequest request);

  const std::shared_ptr<PadModel> m_model;
  const std::function<FileDescriptor()> m_openDevice;

  // Serialises plug and unplug; taken before m_mutex.
  std::mutex m_plugMutex;
  std::thread m_eventThread;
  FileDescriptor m_stop;  // an event counter; written to end the event thread

  // Guards the model and all that follows.
  mutable std::mutex m_mutex;
  mutable std::condition_variable m_changed;
  FileDescriptor m_device;
  bool m_plugged = false;
  bool m_started = false;
  bool m_open = false;
  std::string m_physicalPath;
  std::map<std::pair<FeatureCall, std::uint8_t>, PlannedFault> m_faults;
  std::vector<uhid_event> m_lateAnswers;
  std::deque<FeatureRequest> m_requests;
};

}  // namespace virtualpads

#endif
