// The record queue of the vision pad. Its processing loop also keeps the pad alive.
#ifndef GIIVELA_VISIONRECORDQUEUE_H
#define GIIVELA_VISIONRECORDQUEUE_H

#include <array>
#include <atomic>
#include <cstdint>
#include <ctime>
#include <memory>

#include "PenEventHandler.h"
#include "RecordChain.h"
#include "VelaIoEngine.h"

// Feature report 26, keep-alive.
struct KeepAliveReport {
  std::uint8_t id = 26;
  std::array<std::uint8_t, 16> unused1{};
};
static_assert(sizeof(KeepAliveReport) == 17);

// Deliberate: in ticks of clock(), which counts the process's processor time, not the wall's.
inline constexpr std::clock_t kKeepAliveTicks = 10000;

// One pen sample of the vision pad.
struct VISPEN_DATA {
  std::uint8_t bKind;   // 1
  std::uint8_t bTouch;  // 1 while the pen touches the pad
  std::uint16_t wX;     // device units
  std::uint16_t wY;
  std::uint16_t wPressure;
  std::uint32_t dwTimeStamp;  // the pad's own clock
};
static_assert(sizeof(VISPEN_DATA) == 12);

// One queued record.
struct tagVISDATA_RECORD {
  static constexpr std::uint32_t kPenLength = 12;
  static constexpr std::uint32_t kShortLength = 7;

  std::uint32_t dwLength;  // payload bytes in use: kPenLength or kShortLength
  union {
    VISPEN_DATA pen;
    std::uint8_t bytes[20] = {};  // of a short record; 2, 3 and 4 are for the second callback
  };
  tagVISDATA_RECORD* pNext;
};

class VisionCDataHandler {
 public:
  using AuxHandler = void (*)(std::uint8_t, std::uint8_t, std::uint8_t);

  // An empty queue. It delivers samples to `callback` (null: they are dropped) and short records to
  // `auxCallback` (null: dropped), and sends keep-alive reports through `engine`, which must
  // outlive the processing loop.
  VisionCDataHandler(PenEventHandler callback, AuxHandler auxCallback, CVelaIoEngine* engine)
      : m_pfnCallback(callback), m_pfnAuxCallback(auxCallback), m_pEngine(engine) {}

  // Releases what is still queued. No thread may be using the queue.
  virtual ~VisionCDataHandler() {
    while (const std::unique_ptr<tagVISDATA_RECORD> record{GetRecord(true)}) {
    }
    pthread_mutex_destroy(&m_mutex);
  }
  VisionCDataHandler(const VisionCDataHandler&) = delete;
  VisionCDataHandler& operator=(const VisionCDataHandler&) = delete;

  // A new pen record with a copy of the sample, for SetRecord. The rest of it is zero.
  static tagVISDATA_RECORD* recordOf(const VISPEN_DATA& pen) {
    auto* const record = new tagVISDATA_RECORD{};
    record->dwLength = tagVISDATA_RECORD::kPenLength;
    record->pen = pen;
    return record;
  }

  // Appends a record, which the queue then owns. Null is ignored. Any thread.
  void SetRecord(tagVISDATA_RECORD* record) { RecordChain::append(*this, record); }

  // Takes out the oldest record, which the caller releases with delete; null when the queue is
  // empty. Any thread. Deliberate: `remove` is ignored, every call removes.
  tagVISDATA_RECORD* GetRecord(bool /*remove*/) { return RecordChain::takeHead(*this); }

  // Delivers records on the calling thread until a stop is requested, polling every 500
  // microseconds while the queue is empty, then ends the thread. Records still queued then are not
  // delivered. After every kKeepAliveTicks it sends the pad a keep-alive.
  [[noreturn]] void procdata_routine() {
    std::clock_t last = std::clock();
    while (!RecordChain::stopRequested(*this)) {
      const std::unique_ptr<tagVISDATA_RECORD> record(GetRecord(true));
      if (record)
        deliver(*record);
      else
        RecordChain::poll();
      const std::clock_t now = std::clock();
      if (now - last >= kKeepAliveTicks) {
        KeepAliveReport report;
        m_pEngine->SetFeature(sizeof report, &report);
        last = now;
      }
    }
    RecordChain::endThread();
  }

 private:
  friend struct RecordChain;

  void deliver(const tagVISDATA_RECORD& record) const {
    if (m_pfnCallback == nullptr) return;
    if (record.dwLength == tagVISDATA_RECORD::kPenLength) {
      // Numbers the samples of all connections of the process: 1, 2, … 255, 0, 1, …
      static std::atomic<std::uint8_t> sampleID{0};
      const std::uint8_t sequence = ++sampleID;
      m_pfnCallback(record.pen.wX, record.pen.wY, record.pen.wPressure, record.pen.bTouch,
                    record.pen.dwTimeStamp, sequence);
    } else if (record.dwLength == tagVISDATA_RECORD::kShortLength && m_pfnAuxCallback != nullptr) {
      m_pfnAuxCallback(record.bytes[2], record.bytes[3], record.bytes[4]);
    }
  }

  tagVISDATA_RECORD* m_pHead = nullptr;  // the oldest record
  bool m_bStop = false;
  pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;  // guards the chain of records and m_bStop
  PenEventHandler m_pfnCallback;
  AuxHandler m_pfnAuxCallback;
  CVelaIoEngine* m_pEngine;  // the driver's
};

// The queue of the kind, null while no connection of the kind is open (see SharedQueue.h).
inline VisionCDataHandler* pVisionDataHandler = nullptr;

#endif
