// The scheduler's side towards ThreadFunctions.cpp.
#ifndef TESTS_SUPPORT_SCHEDULERTHREADS_H
#define TESTS_SUPPORT_SCHEDULERTHREADS_H

#include <pthread.h>

#include "Scheduler.h"

namespace support {

inline constexpr int kMaxThreads = 64;
inline constexpr int kNoThread = -1;

// The calling thread's number, kNoThread when it does not belong to a run. Such threads use the C
// library's functions.
int currentThread();

// How many threads the run has had.
int threadCount();

// The thread with this id that has not been joined; kNoThread if there is none.
int threadOf(pthread_t handle);

const char* nameOf(int thread);
bool hasEnded(int thread);

// Whether a thread is to be started: counts down to failThreadStart's.
bool mayStart();

// Adds a thread that runs entry(argument), with its first turn still to come.
using StartThread = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
void addThread(StartThread* start, pthread_t* handle, const pthread_attr_t* attributes,
               void* (*entry)(void*), void* argument);
void markJoined(int thread);

// Numbers for the decisions.
Random& choices();

// The processor time that the process has used, in microseconds. A run has a busy client or not.
std::uint64_t processorTime();

}  // namespace support

#endif
