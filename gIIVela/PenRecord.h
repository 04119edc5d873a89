// The pen sample of the USB pad, the pad II and the ink pad, and its record in a queue.
#ifndef GIIVELA_PENRECORD_H
#define GIIVELA_PENRECORD_H

#include <atomic>
#include <cstdint>

// One decoded pen sample.
struct PEN_DATA {
  std::uint8_t bReserved;  // the ink pad's report id; 0 for the other pads
  std::uint8_t bFlags;     // bit 0 (kTouchFlag): the pen touches the pad; the others mean nothing
  std::int16_t wX;         // device units
  std::int16_t wY;
  std::uint8_t bPressure;  // device units
  std::uint8_t bSequence;  // the sample's number
};
static_assert(sizeof(PEN_DATA) == 8);

inline constexpr std::uint8_t kTouchFlag = 1;

// One queued record. It owns its sample until it is taken out of the queue.
struct tagDATA_RECORD {
  PEN_DATA* pData;
  tagDATA_RECORD* pNext;
};

// Numbers the samples of a pad kind 1, 2, … 127, 1, …, over all connections of the process. May be
// used on several threads.
class SampleCounter {
 public:
  // The next number.
  std::uint8_t next() {
    int number = m_next.load(std::memory_order_relaxed);
    while (!m_next.compare_exchange_weak(number, number > 126 ? 1 : number + 1)) {
    }
    return static_cast<std::uint8_t>(number);
  }

 private:
  std::atomic<int> m_next{1};
};

#endif
