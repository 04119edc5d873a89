// When a call into hidapi may begin.
//
// Up to version 0.14 hidapi keeps one error text per device, and every read, write and feature call
// frees it when it begins and stores a new one when it fails. Two threads on one device, which is
// what every driver has, can therefore free the same text twice: pulling a pad's plug while feature
// reports are sent corrupts the heap. The gate keeps such calls apart and lets all others through:
//
//  - While no text is stored, one reading and one control call may be under way together. Each of
//    them touches a text at most once, as the last thing it does, so they cannot meet.
//  - After a call has failed a text may be stored. A call that begins then frees it, so it waits
//    until the call of the other side has ended, and the other side waits for it, until one call
//    has succeeded, which proves that the text is gone. A reader that waits comes before control
//    calls, since the kernel drops input reports that nobody fetches.
//
// Calls of one side always wait for each other: the vision pad sends feature reports from two
// threads.
//
// The price is paid by failing pads only: a control call made after a failure may wait for the read
// that is under way, one read time-out at the most. ReadFile pauses before each read for as long as
// the last failure is not overcome, and a burst of control calls passes in that pause.
#ifndef GIIVELA_HIDCALLGATE_H
#define GIIVELA_HIDCALLGATE_H

#include <condition_variable>
#include <mutex>

class HidCallGate {
 public:
  enum Side { Reading, Control };

  // Runs `call`, which calls hidapi once and returns its result (negative when it failed), as soon
  // as it may begin, and returns that result. May be called on any thread.
  template <class Call>
  int run(Side side, Call call) {
    const bool frees = begin(side);
    const int result = call();
    end(side, result < 0, frees);
    return result;
  }

  // Whether a call has failed since the last one that proved the text gone.
  bool failed();

 private:
  bool begin(Side side);
  void end(Side side, bool failed, bool freed);

  std::mutex m_mutex;
  std::condition_variable m_ended;
  bool m_busy[2] = {false, false};  // by side
  bool m_readerWaits = false;
  bool m_textStored = false;
};

#endif
