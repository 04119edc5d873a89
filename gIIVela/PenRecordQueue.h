// The record queue of the USB pad, the pad II and the ink pad: the reading thread appends samples,
// the processing thread takes them out and calls the callback. A slow callback makes the queue grow
// and holds nothing up.
#ifndef GIIVELA_PENRECORDQUEUE_H
#define GIIVELA_PENRECORDQUEUE_H

#include <sys/time.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "PenEventHandler.h"
#include "RecordChain.h"

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

// The next number of a kind's samples: 1, 2, … 127, 1, …, over all connections of the process. Any
// thread.
inline std::uint8_t nextNumber(std::atomic<int>& count) {
  int number = count;
  while (!count.compare_exchange_weak(number, number > 126 ? 1 : number + 1)) {
  }
  return static_cast<std::uint8_t>(number);
}

// Tag distinguishes the queue classes of the pad kinds; they are alike in all else.
template <class Tag>
class PenRecordQueue {
 public:
  // An empty queue that delivers to `callback`. With a null callback samples are taken out and
  // dropped.
  explicit PenRecordQueue(PenEventHandler callback) : m_pfnCallback(callback) {}

  // Drops what is still queued. No thread may be using the queue. Deliberate: the samples of the
  // records that are dropped are not freed.
  virtual ~PenRecordQueue() {
    while (GetRecord(false) != nullptr) GetRecord(true);
    pthread_mutex_destroy(&m_mutex);
  }
  PenRecordQueue(const PenRecordQueue&) = delete;
  PenRecordQueue& operator=(const PenRecordQueue&) = delete;

  // A new record with a copy of the sample, for SetRecord.
  static tagDATA_RECORD* recordOf(const PEN_DATA& sample) {
    return new tagDATA_RECORD{new PEN_DATA(sample), nullptr};
  }

  // Appends a record, which the queue then owns together with its sample. Null is ignored. Any
  // thread.
  void SetRecord(tagDATA_RECORD* record) { RecordChain::append(*this, record); }

  // Takes out the oldest record and returns its sample, which the caller releases with delete; null
  // when the queue is empty. Any thread. Deliberate: `remove` is ignored, every call removes.
  PEN_DATA* GetRecord(bool /*remove*/) {
    const std::unique_ptr<tagDATA_RECORD> record(RecordChain::takeHead(*this));
    return record ? record->pData : nullptr;
  }

  // Delivers samples to the callback on the calling thread until a stop is requested, polling every
  // 500 microseconds while the queue is empty, then ends the thread. Samples still queued then are
  // not delivered. The time stamp is the wall clock at delivery in milliseconds, modulo 2^32.
  [[noreturn]] void procdata_routine() {
    while (!RecordChain::stopRequested(*this)) {
      const std::unique_ptr<PEN_DATA> sample(GetRecord(true));
      if (!sample) {
        RecordChain::poll();
      } else if (m_pfnCallback != nullptr) {
        timeval now{};
        gettimeofday(&now, nullptr);
        m_pfnCallback(sample->wX, sample->wY, sample->bPressure, sample->bFlags & kTouchFlag,
                      static_cast<std::uint32_t>(now.tv_sec) * 1000U +
                          static_cast<std::uint32_t>(now.tv_usec / 1000),
                      sample->bSequence);
      }
    }
    RecordChain::endThread();
  }

 private:
  friend struct RecordChain;

  tagDATA_RECORD* m_pHead = nullptr;  // the oldest record
  bool m_bStop = false;
  pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;  // guards the chain of records and m_bStop
  PenEventHandler m_pfnCallback;
};

using CDataHandler = PenRecordQueue<struct UsbPadTag>;
using IICDataHandler = PenRecordQueue<struct PadIiTag>;
using InkCDataHandler = PenRecordQueue<struct InkPadTag>;

// The queue of each kind, null while no connection of the kind is open (see SharedQueue.h).
inline CDataHandler* pUSBDataHandler = nullptr;
inline IICDataHandler* pDataHandler = nullptr;
inline InkCDataHandler* pInkDataHandler = nullptr;

#endif
