// The record queue of the USB pad, the pad II and the ink pad: the reading thread appends samples,
// the processing thread takes them out and calls the callback. A slow callback makes the queue grow
// and holds nothing up.
#ifndef GIIVELA_PENRECORDQUEUE_H
#define GIIVELA_PENRECORDQUEUE_H

#include <pthread.h>

#include <atomic>

#include "Export.h"
#include "PenEventHandler.h"
#include "PenRecord.h"

// Tag tells one pad kind's queue class from another's; they are alike in all else.
template <class Tag>
class PenRecordQueue {
 public:
  // An empty queue that delivers to `callback`. With a null callback samples are taken out and
  // dropped.
  explicit PenRecordQueue(PenEventHandler callback) : m_pfnCallback(callback) {}

  // Drops what is still queued. No thread may be using the queue.
  virtual ~PenRecordQueue();

  PenRecordQueue(const PenRecordQueue&) = delete;
  PenRecordQueue& operator=(const PenRecordQueue&) = delete;

  // Appends a record, which the queue then owns together with its sample. Null is ignored. Any
  // thread.
  void SetRecord(tagDATA_RECORD* record);

  // Takes out the oldest record and returns its sample, which the caller releases with delete; null
  // when the queue is empty. `remove` is ignored on purpose: every call removes. Any thread.
  PEN_DATA* GetRecord(bool remove);

  // Delivers samples to the callback on the calling thread until a stop is requested, polling every
  // 500 microseconds while the queue is empty, then ends the thread. Samples still queued then are
  // not delivered.
  [[noreturn]] void procdata_routine();

  // Makes procdata_routine end after the delivery under way. Any thread.
  void RequestStop();

 private:
  void deliver(const PEN_DATA& sample) const;

  friend struct RecordList;

  tagDATA_RECORD* m_pHead = nullptr;  // the oldest record of those that are being taken
  std::atomic<bool> m_bStop{false};
  pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;  // guards m_pAppended and its links
  PenEventHandler m_pfnCallback;
  tagDATA_RECORD* m_pAppended = nullptr;                    // what came later than those
  pthread_mutex_t m_headMutex = PTHREAD_MUTEX_INITIALIZER;  // guards m_pHead and its links
};

using CDataHandler = PenRecordQueue<struct UsbPadTag>;
using IICDataHandler = PenRecordQueue<struct PadIiTag>;
using InkCDataHandler = PenRecordQueue<struct InkPadTag>;

extern template class GIIVELA_API PenRecordQueue<struct UsbPadTag>;
extern template class GIIVELA_API PenRecordQueue<struct PadIiTag>;
extern template class GIIVELA_API PenRecordQueue<struct InkPadTag>;

#endif
