// The process-wide record queue of one pad kind. Each driver file has one, under the kind's name
// for it, and uses it as a pointer that is null while no connection of the kind is open.
//
// Two driver objects of one kind share the queue, and whichever closes first releases it while the
// other's threads go on. So a thread uses the queue only through a lease, and release() waits until
// all leases have been given back.
#ifndef GIIVELA_SHAREDQUEUE_H
#define GIIVELA_SHAREDQUEUE_H

#include <pthread.h>

#include <memory>
#include <utility>

#include "PthreadLock.h"

// Has no destructor to run when the process exits: threads of a connection that is open even then
// may still be using it.
template <class Queue>
class SharedQueue {
  struct Counted {
    Queue queue;
    int leases = 0;
  };

 public:
  // The right to use the queue. It is empty when there was no queue.
  class Lease {
   public:
    Lease() = default;
    // Moving hands the right on.
    Lease(Lease&& other) noexcept
        : m_owner(other.m_owner), m_leased(std::exchange(other.m_leased, nullptr)) {}
    // The same; the right that was here goes with the other lease.
    Lease& operator=(Lease&& other) noexcept {
      std::swap(m_owner, other.m_owner);
      std::swap(m_leased, other.m_leased);
      return *this;
    }
    ~Lease() {
      if (m_leased != nullptr) m_owner->giveBack(*m_leased);
    }
    // Whether it is one.
    explicit operator bool() const { return m_leased != nullptr; }
    // The queue; only where it is one.
    Queue* operator->() const { return &m_leased->queue; }

   private:
    friend class SharedQueue;
    Lease(SharedQueue* owner, Counted* leased) : m_owner(owner), m_leased(leased) {}

    SharedQueue* m_owner = nullptr;
    Counted* m_leased = nullptr;
  };

  // Creates the queue with these arguments unless there is one already, which then stays as it is.
  // Any thread, as all operations but release.
  template <class... Arguments>
  void createIfNull(Arguments... arguments) {
    const PthreadLock lock(m_mutex);
    if (m_current == nullptr) m_current = new Counted{Queue(arguments...)};
  }

  // A lease of the queue, empty when there is none.
  Lease lease() {
    const PthreadLock lock(m_mutex);
    if (m_current == nullptr) return {};
    ++m_current->leases;
    return {this, m_current};
  }

  // Whether there is a queue.
  explicit operator bool() {
    const PthreadLock lock(m_mutex);
    return m_current != nullptr;
  }

  // Sets the pointer to null, so that no further lease is given, waits for the leases that are out,
  // then destroys the queue. Does nothing when there is none. The caller holds no lease and has
  // asked the queue to stop, so that a processing thread gives its lease back.
  void release() {
    std::unique_ptr<Counted> released;
    const PthreadLock lock(m_mutex);
    released.reset(std::exchange(m_current, nullptr));
    while (released != nullptr && released->leases > 0) pthread_cond_wait(&m_givenBack, &m_mutex);
  }

 private:
  void giveBack(Counted& leased) {
    const PthreadLock lock(m_mutex);
    --leased.leases;
    pthread_cond_broadcast(&m_givenBack);
  }

  pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;  // guards the pointer and the counts
  pthread_cond_t m_givenBack = PTHREAD_COND_INITIALIZER;
  Counted* m_current = nullptr;
};

#endif
