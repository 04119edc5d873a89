// hidapi's functions with one virtual pad behind them, for runs under the scheduler. Every call is
// a decision, and so are the moments in which hidapi replaces an error text: it reads the pointer,
// frees the text and stores another one. Misuse fails the run: a text that is freed twice or may
// have been, a handle that is not open, a close beside another call.
#ifndef TESTS_SDK_INTERLEAVINGS_HIDAPIMODEL_H
#define TESTS_SDK_INTERLEAVINGS_HIDAPIMODEL_H

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "../../support/Scheduler.h"
#include "virtualpads/PadModel.h"

namespace interleavings {

using support::Time;
using virtualpads::Bytes;

// The time in which no thread could go on. Blocking times are measured in it.
inline Time idleTime() {
  return support::now() - support::busyTime();
}

// What goes wrong in a run: shares in percent of the calls, and how long calls may take.
struct Faults {
  std::uint64_t featureFails = 0;
  std::uint64_t readFails = 0;
  std::uint64_t readIsShort = 0;
  Time longestFeature = 0;
  bool readsHaveTheirText = false;  // as in hidapi from 0.15 on
  bool accessible = true;           // the node may be opened
};

struct Report {
  int index;  // counts the pad's reports
  Bytes bytes;
  Time sent;  // idle time
};

struct ErrorText {
  bool freed = false;
};

// Where hidapi keeps an error text.
struct TextPlace {
  ErrorText* text = nullptr;
  int calls = 0;  // under way, that may still replace it
};

}  // namespace interleavings

// An open node. All times are idle times.
struct hid_device_ {
  int plug = 0;  // which of the times that the pad was plugged in
  bool open = true;
  int calls = 0;  // under way
  std::deque<interleavings::Report> unread;
  interleavings::TextPlace error;
  interleavings::TextPlace readError;                 // of the reads, if they have their own
  interleavings::Time firstRead = support::kForever;  // when the first read began
  interleavings::Time lastReport = 0;                 // when a read last returned one
  interleavings::Time pauseEnd = 0;                   // the reader pauses after a failed read
  std::deque<support::Time> failedReads;              // now(), of the last second

  // When a thread's call last failed since the last success. The SDK has noted one on the same
  // thread, and on others once time has gone by.
  std::map<std::string_view, interleavings::Time> failureOf;
  // A call has failed, and no feature report has begun and succeeded since.
  bool failed = false;
  int failedCalls = 0;                // all of them
  bool mayHaveRecovered = false;      // a feature report succeeded that may not have begun alone
  int failures = 0;                   // how often that began
  interleavings::Time failing = 0;    // when it last began
  interleavings::Time recovered = 0;  // when it last ended
};

namespace interleavings {

class Pad {
 public:
  Pad(virtualpads::PadKind kind, const Faults& faults);

  // Is called when a read returns a complete report, with its index.
  void (*reportRead)(hid_device_& handle, int index) = nullptr;

  void send(int index, const Bytes& report);
  void unplug();
  void plugIn() { ++plugs; }

  // Whether a call on an open handle has failed since `begin`, or before with no success until
  // then.
  bool failsAfter(Time begin) const;
  // When the last read ends that may have begun before the first failure and hold up a call that
  // begins at `begin`: a second after that failure.
  Time longReadEnd(Time begin) const;
  // Whether a report waits on a handle that is being read.
  bool hasUnread() const;
  // The last time that a read returned a report.
  Time lastReport() const;
  // When the pause ends that follows a failed read.
  Time pauseEnd() const { return handles.empty() ? 0 : handles.back()->pauseEnd; }

  // Fails the run unless all handles are closed, hidapi is shut down and its texts are freed. One
  // text may be lost each time that calls begin to fail.
  void checkNothingLeft() const;

  const Faults faults;
  const std::shared_ptr<virtualpads::PadModel> model;
  const unsigned short product;
  const std::size_t reportSize;
  bool plugged = true;
  int plugs = 1;
  Time unplugged = 0;
  std::vector<std::unique_ptr<hid_device_>> handles;  // the closed ones, too
  int users = 0;                                      // hid_init, less hid_exit
  TextPlace globalError;
  int texts = 0;  // that have not been freed

  int featuresUnderWay = 0;
  Time featureBegin = 0;      // of those under way
  Time finishedFeatures = 0;  // the time that the others took

  // Feature reports so far, and the time for which one was under way.
  int features = 0;
  Time featureTime() const;
};

// The pad of the run.
inline Pad* thePad = nullptr;

}  // namespace interleavings

#endif
