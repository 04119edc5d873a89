// std::lock_guard for the POSIX mutexes that the drivers and queues have.
#ifndef GIIVELA_PTHREADLOCK_H
#define GIIVELA_PTHREADLOCK_H

#include <pthread.h>

class PthreadLock {
 public:
  explicit PthreadLock(pthread_mutex_t& mutex) : m_mutex(mutex) { pthread_mutex_lock(&m_mutex); }
  ~PthreadLock() { pthread_mutex_unlock(&m_mutex); }
  PthreadLock(const PthreadLock&) = delete;
  PthreadLock& operator=(const PthreadLock&) = delete;

 private:
  pthread_mutex_t& m_mutex;
};

#endif
