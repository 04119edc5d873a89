#include "tools/Replay.h"

#include <cstdio>
#include <string>

namespace virtualpads {

void requireRecordingOf(const PadDescription& pad, const Recording& recording) {
  if (recording.vendor == pad.vendor && recording.product == pad.product) return;
  char ids[16];
  std::snprintf(ids, sizeof ids, "%04x:%04x", unsigned{recording.vendor},
                unsigned{recording.product});
  throw OtherPadError("recorded from another device, " + std::string(ids));
}

std::size_t replay(const Recording& recording,
                   const std::function<void(std::chrono::microseconds)>& waitUntil,
                   const std::function<bool(const Bytes&)>& send) {
  std::size_t lost = 0;
  for (const auto& event : recording.events) {
    waitUntil(event.time - recording.events.front().time);
    if (!send(event.report)) ++lost;
  }
  return lost;
}

}  // namespace virtualpads
