// What the record queues have in common: the chain of records from m_pHead and the stop flag, both
// guarded by the queue's mutex, and how a processing loop waits and ends.
#ifndef GIIVELA_RECORDCHAIN_H
#define GIIVELA_RECORDCHAIN_H

#include <unistd.h>

#include "PthreadLock.h"

struct RecordChain {
  // Appends a record, which the queue then owns. Null is ignored.
  template <class Queue, class Record>
  static void append(Queue& queue, Record* record) {
    if (record == nullptr) return;
    record->pNext = nullptr;
    const PthreadLock lock(queue.m_mutex);
    Record** end = &queue.m_pHead;
    while (*end != nullptr) end = &(*end)->pNext;
    *end = record;
  }

  // Unlinks and returns the oldest record; null when there is none. The caller owns it.
  template <class Queue>
  static auto takeHead(Queue& queue) {
    const PthreadLock lock(queue.m_mutex);
    auto* const record = queue.m_pHead;
    if (record != nullptr) queue.m_pHead = record->pNext;
    return record;
  }

  // Asks the processing loop to end after the delivery under way.
  template <class Queue>
  static void requestStop(Queue& queue) {
    const PthreadLock lock(queue.m_mutex);
    queue.m_bStop = true;
  }

  template <class Queue>
  static bool stopRequested(Queue& queue) {
    const PthreadLock lock(queue.m_mutex);
    return queue.m_bStop;
  }

  // Sleeps until a processing loop looks again into a queue that was empty.
  static void poll() { usleep(500); }

  // Ends a processing thread that was asked to stop. Nobody reads its exit value.
  [[noreturn]] static void endThread() {
    static int exitValue = 0;
    pthread_exit(&exitValue);
  }
};

#endif
