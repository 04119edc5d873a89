// The record queue of the vision pad. Beside delivering samples, its processing loop keeps the pad
// alive.
#ifndef GIIVELA_VISIONRECORDQUEUE_H
#define GIIVELA_VISIONRECORDQUEUE_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "Export.h"
#include "PenEventHandler.h"
#include "VelaIoEngine.h"

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

using VisionAuxHandler = void (*)(std::uint8_t, std::uint8_t, std::uint8_t);

class GIIVELA_API VisionCDataHandler {
 public:
  // An empty queue. It delivers samples to `callback` (null: they are dropped) and short records to
  // `auxCallback` (null: dropped), and sends keep-alive reports through `engine`, which must
  // outlive the processing loop.
  VisionCDataHandler(PenEventHandler callback, VisionAuxHandler auxCallback, CVelaIoEngine* engine)
      : m_pfnCallback(callback), m_pfnAuxCallback(auxCallback), m_pEngine(engine) {}

  // Releases what is still queued. No thread may be using the queue.
  virtual ~VisionCDataHandler();

  VisionCDataHandler(const VisionCDataHandler&) = delete;
  VisionCDataHandler& operator=(const VisionCDataHandler&) = delete;

  // Appends a record, which the queue then owns. Null is ignored. Any thread.
  void SetRecord(tagVISDATA_RECORD* record);

  // Takes out the oldest record, which the caller releases with delete; null when the queue is
  // empty. `remove` is ignored on purpose: every call removes. Any thread.
  tagVISDATA_RECORD* GetRecord(bool remove);

  // Delivers records on the calling thread until a stop is requested, polling every 500
  // microseconds while the queue is empty, then ends the thread. Records still queued then are not
  // delivered. After every 10,000 clock ticks of processor time that the process has used it sends
  // the pad a keep-alive.
  [[noreturn]] void procdata_routine();

  // Makes procdata_routine end after the delivery under way. Any thread.
  void RequestStop();

 private:
  void deliver(const tagVISDATA_RECORD& record) const;
  void keepAlive() const;

  friend struct RecordList;

  tagVISDATA_RECORD* m_pHead = nullptr;  // the oldest record of those that are being taken
  std::atomic<bool> m_bStop{false};
  pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;  // guards m_pAppended and its links
  PenEventHandler m_pfnCallback;
  VisionAuxHandler m_pfnAuxCallback;
  CVelaIoEngine* m_pEngine;                                 // the driver's
  tagVISDATA_RECORD* m_pAppended = nullptr;                 // what came later than those
  pthread_mutex_t m_headMutex = PTHREAD_MUTEX_INITIALIZER;  // guards m_pHead and its links
};

#endif
