// The bus behind the hidapi face: which virtual pads are plugged, what their reports are, which
// calls fail, and a log of all that the program under test asked of hidapi.
//
// A program linked with the hidapi face instead of hidapi sees the pads plugged here. The face
// behaves as hidapi 0.13 on Linux's hidraw does: a read waits up to its time-out and returns 0 when
// nothing came, fails at once with -1 after an unplug, each open handle keeps at most 63 unread
// input reports and the ones that come on top are dropped in silence, a feature call on an
// unplugged pad gives -1, a feature reply is cut to the caller's buffer.
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

// What a call does instead of its work.
struct Fault {
  enum class Kind {
    // Returns `value` at once; the pad never hears of it. Open and Enumerate give null whatever the
    // value. Close and FreeEnumeration, which cannot fail, do their work.
    Return,
    // Does its work but delivers at most `value` bytes (Enumerate: entries) and returns that many.
    // Means nothing to the calls that do not count.
    Short,
    // Does its work, then does not return before VirtualBus::releaseLateCalls().
    Late,
    // The pad is unplugged while the call goes on; the call fails as it then does. A call that is
    // for no pad (Init, Exit, Enumerate, FreeEnumeration) unplugs them all.
    Unplug,
  };
  Kind kind = Kind::Return;
  int value = -1;
};

// Which calls on a handle share an error text.
enum class ErrorTexts {
  OnePerHandle,    // all of them: hidapi up to 0.14
  ReadsHaveTheirs  // the reads have one, all others share another: hidapi from 0.15 on
};

// A port that was never plugged, or not since the last reset, is a mistake of the caller: the
// operations that take one throw std::out_of_range.
class VirtualBus {
 public:
  using Port = int;
  static constexpr int kAlways = -1;
  static constexpr std::size_t kUnreadReports = 63;  // what an open handle keeps

  static VirtualBus& instance();

  // Unplugs everything, forgets faults, log, misuse, time-out and error texts. For the start of a
  // test; the program under test must have closed its handles.
  void reset();

  // Plugs a pad; it shows `interfaces` entries in an enumeration. Each plugging has a port of its
  // own. Throws std::invalid_argument when there is no pad or `interfaces` is negative.
  Port plug(std::shared_ptr<PadModel> pad, int interfaces = 1);
  // Unplugs it. Handles that are open on it stay valid until closed, and fail.
  void unplug(Port port);
  // Whether the pad's node may be opened (the permissions of the node); true at first.
  void setAccessible(Port port, bool accessible);

  // Puts an input report on the wire, for each handle that is open on the port. False when all of
  // them lost it: none is open, each already holds 63 unread reports, the pad is unplugged or the
  // report is empty.
  bool send(Port port, const Bytes& report);
  // The same, but waits while a reader has no room. False when the pad is unplugged or not open.
  bool sendWhenRoom(Port port, const Bytes& report);
  // Encodes the pen state with the port's model, then sendWhenRoom.
  bool sendPen(Port port, const PenState& pen);
  // Waits until every report sent has been read. False when the pad is not open, or is unplugged or
  // closed before.
  bool waitUntilRead(Port port);

  // Runs `look` on the port's model while no call of the program under test can touch it; also
  // after the unplug. `look` must not call withModel or sendPen itself.
  void withModel(Port port, const std::function<void(PadModel&)>& look);

  // How long a read that begins from now on waits instead of the time-out that its caller gave;
  // zero restores the caller's. Lets a test pass a thousand time-outs without waiting for them.
  void setReadTimeout(std::chrono::milliseconds timeout);

  // For calls that begin from now on; OnePerHandle at first.
  void setErrorTexts(ErrorTexts texts);

  // From now on the n-th call of that kind (1 is the next one), and the `times` - 1 calls after it,
  // meet the fault (kAlways: all from the n-th on). Faults add up; of several of one kind that meet
  // in a call the last counts. Throws std::invalid_argument for nth or times below 1 and for a
  // Short fault with a negative value.
  void fail(HidCall call, Fault fault, int nth = 1, int times = 1);
  // The same for the n-th call of whatever kind.
  void failAny(Fault fault, int nth, int times = 1);
  void clearFaults();
  // Lets the calls that a Late fault holds back return, and forgets the Late faults. clearFaults
  // and reset do so too.
  void releaseLateCalls();

  // The log, which grows until it is cleared. Reads that time out are in it too; a call that has
  // not returned yet has the result 0. `calls` without kinds gives all but the reads.
  std::vector<CallRecord> calls() const;
  std::vector<CallRecord> calls(std::initializer_list<HidCall> kinds) const;
  // The number of calls of that kind that have returned since the last reset or clearLog.
  long count(HidCall call) const;
  void clearLog();
  // Waits until `count` calls of that kind have begun (returned) since the last reset or clearLog.
  // False when that has not happened after 30 s, so that a broken test ends.
  bool waitForBegun(HidCall call, long count) const;
  bool waitForReturned(HidCall call, long count) const;

  // Handles open now, on one port or on all.
  int openHandles() const;
  int openHandles(Port port) const;
  bool waitUntilOpen(Port port) const;  // false after 30 s

  // Calls that hidapi would have answered with undefined behaviour: a null or closed handle (Close
  // may be given null); a Close while another call on the handle goes on; two calls that could both
  // free the same error text, see setErrorTexts.
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
