// The record queue of a pad kind, which all driver objects of the kind share through the kind's
// pointer. Whichever of them closes first releases the queue under the others' threads. So a thread
// holds a shared lock for as long as it uses the queue, and the release waits for an exclusive one.
#ifndef GIIVELA_SHAREDQUEUE_H
#define GIIVELA_SHAREDQUEUE_H

#include <cstddef>
#include <mutex>
#include <new>
#include <shared_mutex>

#include "RecordChain.h"

// Any thread; for the release, one that is not using the queue itself.
struct SharedQueue {
  // Creates the queue from these arguments unless there is one already.
  template <class Queue, class... Arguments>
  static void create(Queue*& pointer, Arguments... arguments) {
    if (const auto lock = use<Queue>(); pointer != nullptr) return;
    const std::lock_guard alone(mutex<Queue>());
    if (pointer == nullptr) pointer = new Queue(arguments...);
  }

  // Appends a sample; drops it when there is no queue.
  template <class Queue, class Sample>
  static void append(Queue*& pointer, const Sample& sample) {
    const auto lock = use<Queue>();
    if (pointer != nullptr) pointer->SetRecord(Queue::recordOf(sample));
  }

  // Runs the queue's processing loop, which ends the calling thread; returns when there is no
  // queue.
  template <class Queue>
  static void process(Queue*& pointer) {
    // Unlocked when the thread ends, for that happens inside procdata_routine.
    static thread_local std::shared_lock<std::shared_mutex> lock;
    lock = use<Queue>();
    if (pointer != nullptr) pointer->procdata_routine();
    lock.unlock();
  }

  // Asks the processing loop to end after the delivery under way.
  template <class Queue>
  static void requestStop(Queue*& pointer) {
    const auto lock = use<Queue>();
    if (pointer != nullptr) RecordChain::requestStop(*pointer);
  }

  // Deletes the queue, if there is one, once no thread uses it. A stop has been requested.
  template <class Queue>
  static void release(Queue*& pointer) {
    const std::lock_guard alone(mutex<Queue>());
    delete pointer;
    pointer = nullptr;
  }

 private:
  template <class Queue>
  static std::shared_lock<std::shared_mutex> use() {
    return std::shared_lock(mutex<Queue>());
  }

  // Never destroyed: threads of a connection that is open when the process exits still use it.
  template <class Queue>
  static std::shared_mutex& mutex() {
    alignas(std::shared_mutex) static std::byte storage[sizeof(std::shared_mutex)];
    static auto& mutex = *new (storage) std::shared_mutex;
    return mutex;
  }
};

#endif
