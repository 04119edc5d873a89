// Sends the reports of a recording again.
#ifndef TOOLS_REPLAY_H
#define TOOLS_REPLAY_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <stdexcept>

#include "virtualpads/PadModel.h"
#include "virtualpads/Recording.h"

namespace virtualpads {

// The recording is from another pad; what() names it.
class OtherPadError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws OtherPadError unless the recording is from a pad with this vendor and product id.
void requireRecordingOf(const PadDescription& pad, const Recording& recording);

// Sends all reports in order. Before each one, calls `waitUntil` with the time at which it is due,
// counted from the first one. `send` returns false for a report that nobody got. Returns the number
// of those reports. Any thread.
std::size_t replay(const Recording& recording,
                   const std::function<void(std::chrono::microseconds)>& waitUntil,
                   const std::function<bool(const Bytes&)>& send);

}  // namespace virtualpads

#endif
