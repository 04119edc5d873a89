// The bus behind the hidapi face: the plugged virtual pads, their reports, the calls that fail, and
// a log of all calls that the program under test made to hidapi.
//
// A program linked with the hidapi face instead of hidapi sees the pads plugged here. The face
// behaves like hidapi 0.13 with Linux's hidraw: a read waits up to its time-out and returns 0 when
// nothing came; after an unplug it fails at once with -1. Each open handle keeps at most 63 unread
// input reports; further ones are dropped silently. A feature call on an unplugged pad returns -1.
// A feature reply is cut to the caller's buffer.
//
// All operations may be called on any thread.
#ifndef VIRTUALPADS_HIDAPI_VIRTUALBUS_H
#define VIRTUALPADS_HIDAPI_VIRTUALBUS_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <memory>
#include <vector>

#include "virtualpads/PadModel.h"

namespace virtualpads {

enum class HidCall {
  Init,
  Exit,
  Enumerate,
  FreeEnumeration,
  Open,
  Close,
  SetNonblocking,
  Read,
  Write,
  GetFeature,
  SendFeature,
};

// One call into hidapi, in the order in which the calls began.
struct CallRecord {
  HidCall call;
  Bytes bytes;   // SendFeature, Write: the report; GetFeature: the request buffer; else empty
  int argument;  // Open: the product id; SetNonblocking: the flag; Read: the length; Write and the
                 // feature calls: the length; else 0
  int result;  // what the call returned; Open: 1 for a device, 0 for null; Enumerate: the number of
               // entries; 0 for calls without a result
  bool operator==(const CallRecord&) const = default;
};

// What a call does instead of its normal work.
struct Fault {
  enum class Kind {
    // Returns `value` at once; the pad receives nothing. Open and Enumerate return null whatever
    // the value. Close and FreeEnumeration, which cannot fail, do their work.
    Return,
    // Does its work but delivers at most `value` bytes (Enumerate: entries) and returns that
    // number. No effect on calls that do not count.
    Short,
    // Does its work, but does not return before VirtualBus::releaseLateCalls(). No effect on calls
    // that exchange no report.
    Late,
    // The pad is unplugged during the call, which fails accordingly. A call without a pad (Init,
    // Exit, Enumerate, FreeEnumeration) unplugs all pads.
    Unplug,
  };
  Kind kind = Kind::Return;
  int value = -1;
};

// Operations on a port throw std::out_of_range when it was never plugged, or not since the last
// reset: that is a mistake of the caller.
class VirtualBus {
 public:
  using Port = int;
  static constexpr int kAlways = -1;
  static constexpr std::size_t kUnreadReports = 63;  // kept by each open handle

  static VirtualBus& instance();

  // Unplugs all pads and forgets faults, log, misuses and time-out. For the start of a test; the
  // program under test must have closed its handles.
  void reset();

  // Plugs a pad, which has `interfaces` entries in an enumeration. Each call uses a new port.
  // Throws std::invalid_argument when there is no pad or `interfaces` is negative.
  Port plug(std::shared_ptr<PadModel> pad, int interfaces = 1);
  // Unplugs the pad. Handles that are open on it stay valid until closed, and fail.
  void unplug(Port port);
  // Whether the pad's node may be opened (the permissions of the node); true at first.
  void setAccessible(Port port, bool accessible);

  // Sends an input report to each handle that is open on the port. False when all of them lost it:
  // none is open, each already holds 63 unread reports, the pad is unplugged or the report is
  // empty.
  bool send(Port port, const Bytes& report);
  // The same, but waits while a reader has no room. False when the pad is unplugged or not open.
  bool sendWhenRoom(Port port, const Bytes& report);
  // Encodes the pen state with the port's model, then sendWhenRoom.
  bool sendPen(Port port, const PenState& pen);
  // Waits until every report sent has been read. False when the pad is not open, or is unplugged or
  // closed before.
  bool waitUntilRead(Port port);

  // Calls `look` with the port's model while no call of the program under test can touch it; works
  // after the unplug too. `look` must not call withModel or sendPen itself.
  void withModel(Port port, const std::function<void(PadModel&)>& look);

  // How long each read that begins from now on waits, in place of the time-out that its caller
  // gave; zero restores the caller's. A test can then pass a thousand time-outs without waiting for
  // them.
  void setReadTimeout(std::chrono::milliseconds timeout);

  // From now on, the n-th call of that kind (1 is the next one) and the `times` - 1 calls after it
  // meet the fault (kAlways: all from the n-th on). Faults add up; when several of one kind meet in
  // a call, the last one counts. Throws std::invalid_argument for nth or times below 1 and for a
  // Short fault with a negative value.
  void fail(HidCall call, Fault fault, int nth = 1, int times = 1);
  // Lets the calls that a Late fault holds back return, and forgets the Late faults, as reset does.
  void releaseLateCalls();

  // The log, which grows until it is cleared. It includes reads that time out. A call that has not
  // returned yet has the result 0. `calls` without kinds returns all calls except the reads.
  std::vector<CallRecord> calls() const;
  std::vector<CallRecord> calls(std::initializer_list<HidCall> kinds) const;
  // The number of calls of that kind that have returned since the last reset or clearLog.
  long count(HidCall call) const;
  void clearLog();
  // Waits until `count` calls of that kind have begun (returned) since the last reset or clearLog.
  // False after 30 s, so that a broken test ends.
  bool waitForBegun(HidCall call, long count) const;
  bool waitForReturned(HidCall call, long count) const;

  // Handles that are open now, on one port or on all.
  int openHandles() const;
  int openHandles(Port port) const;
  bool waitUntilOpen(Port port) const;  // false after 30 s

  // Calls that hidapi would have answered with undefined behaviour: a null or closed handle (Close
  // may be given null); a Close while another call on the handle goes on; two calls that could both
  // free the handle's error text, which all calls share as in hidapi up to 0.14.
  long misuses() const;

 private:
  VirtualBus();
  ~VirtualBus();
  struct State;
  std::unique_ptr<State> m_state;
  friend struct FaceAccess;
};

}  // namespace virtualpads

#endif
