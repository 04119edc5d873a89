// Shared by the bus and the hidapi face. Not for the programs that use them.
#ifndef VIRTUALPADS_HIDAPI_BUSSTATE_H
#define VIRTUALPADS_HIDAPI_BUSSTATE_H

#include <array>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "virtualpads/hidapi/VirtualBus.h"

struct hid_device_;

namespace virtualpads {

// A pad in its port. It is kept after the unplug, for the handles that are still open on it.
struct PortState {
  std::shared_ptr<PadModel> model;
  int interfaces = 1;
  bool plugged = true;
  bool accessible = true;
  std::vector<hid_device_*> open;  // the handles
  long discarded = 0;              // how often an unplug or a close discarded unread reports
};

// The error text of an open node, which hidapi allocates and frees.
struct ErrorText {
  bool exists = false;
  int callsInFlight = 0;  // calls that may free it
};

}  // namespace virtualpads

// An open node, as the C functions hand it out.
struct hid_device_ {
  std::shared_ptr<virtualpads::PortState> port;
  bool open = true;
  std::deque<virtualpads::Bytes> unread;
  virtualpads::ErrorText error;
};

namespace virtualpads {

// A call that has begun: its place in the log and the faults that it meets.
struct BegunCall {
  HidCall kind;
  long number;
  long lateEpoch;
  bool unplug = false;
  bool late = false;
  std::optional<int> returns;
  std::optional<int> cut;

  // The smaller of `length` and the limit of a Short fault.
  int limited(int length) const;
};

struct VirtualBus::State {
  struct FaultRule {
    HidCall call;
    Fault fault;
    long first;  // ordinals of the calls that meet it
    long last;
  };
  static constexpr std::size_t kCallKinds = 11;
  using Counts = std::array<long, kCallKinds>;

  std::mutex models;  // serialises the calls to the models; taken before `mutex`, never after it

  std::mutex mutex;                 // guards all that follows
  std::condition_variable changed;  // notified when any of it changes
  std::map<Port, std::shared_ptr<PortState>> ports;
  Port lastPort = 0;
  // Closed handles stay here until the reset, so that their use is detected.
  std::map<const hid_device_*, std::shared_ptr<hid_device_>> handles;
  std::chrono::milliseconds readTimeout{0};
  std::vector<FaultRule> faults;
  Counts ordinals{};  // for the faults; never reset
  long lateEpoch = 0;
  std::deque<CallRecord> log;
  long firstLogged = 0;  // the number of the first call in the log
  Counts begun{};
  Counts returned{};
  long misuses = 0;

  // Call all of these with `mutex` held.
  BegunCall begin(HidCall kind, int argument, Bytes bytes);
  void holdBackLateCall(std::unique_lock<std::mutex>& lock, const BegunCall& call);
  void end(const BegunCall& call, int result);
  PortState& portAt(Port port) const;  // throws std::out_of_range
  bool send(PortState& port, const Bytes& report);
  void unplug(PortState& port);
  void discardUnread(hid_device_& handle);
  void releaseLateCalls();
  void clearLog();
};

struct FaceAccess {
  using State = VirtualBus::State;
  static State& state() { return *VirtualBus::instance().m_state; }
};

}  // namespace virtualpads

#endif
