// The list that every record queue keeps. It has no tail pointer and no limit; a record is appended
// by walking to the end.
//
// What is walked is kept apart from what is being taken: new records gather in a chain of their
// own, and when the chain at the head has run empty the taker moves the whole new chain there. Each
// chain has its mutex. With one chain under one mutex, a queue that had once grown long would stay
// long: the appender holds the mutex for the length of its walk, so that the taker gets one record
// for each one appended.
#ifndef GIIVELA_RECORDLIST_H
#define GIIVELA_RECORDLIST_H

#include <pthread.h>

#include <utility>

#include "PthreadLock.h"

struct RecordList {
  // Appends a record, which the queue then owns. Null is ignored.
  template <class Queue, class Record>
  static void append(Queue& queue, Record* record) {
    if (record == nullptr) return;
    record->pNext = nullptr;
    const PthreadLock lock(queue.m_mutex);
    Record** end = &queue.m_pAppended;
    while (*end != nullptr) end = &(*end)->pNext;
    *end = record;
  }

  // Unlinks and returns the oldest record; null when there is none. The caller owns it.
  template <class Queue>
  static auto takeHead(Queue& queue) {
    const PthreadLock lock(queue.m_headMutex);
    if (queue.m_pHead == nullptr) queue.m_pHead = takeAppended(queue);
    auto* const record = queue.m_pHead;
    if (record != nullptr) queue.m_pHead = record->pNext;
    return record;
  }

  // How long a processing loop sleeps when its queue is empty, in microseconds.
  static constexpr unsigned kPollMicroseconds = 500;

  // What a processing thread that was asked to stop ends with; nobody reads it.
  [[noreturn]] static void endThread() {
    static int exitValue = 0;
    pthread_exit(&exitValue);
  }

 private:
  template <class Queue>
  static auto takeAppended(Queue& queue) {
    const PthreadLock lock(queue.m_mutex);
    return std::exchange(queue.m_pAppended, nullptr);
  }
};

#endif
