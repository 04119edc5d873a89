// The frame of worker threads that every driver runs while a connection is open:
//
//   reading thread     blocks on the pad's input reports and queues what they say
//   processing thread  takes records from the queue and calls the pen callback
//   signal thread      waits for SIGUSR1, then clears the driver's running flag
//
// It works on the fields that every driver class has under the same names. A driver makes
// WorkerFrame its friend; `queue` is the pointer of its kind. A thread id of zero means that the
// thread does not run: before the start, after a start that failed, and after the join.
#ifndef GIIVELA_WORKERFRAME_H
#define GIIVELA_WORKERFRAME_H

#include <pthread.h>

#include <csignal>
#include <cstdio>
#include <memory>

#include "PthreadLock.h"
#include "SharedQueue.h"
#include "VelaIoEngine.h"

// The argument of a worker thread. The thread frees it; for the processing thread, the driver does.
struct ThreadArg {
  void* driver;
  void* zero;
};

struct WorkerFrame {
  // Opening, on the client's thread.

  // Blocks SIGUSR1 in the calling thread, for good; the worker threads inherit that. setMask is
  // sigprocmask or pthread_sigmask.
  template <class Driver, class SetMask>
  static void blockWakeSignal(Driver& driver, SetMask setMask) {
    sigemptyset(&driver.m_sigset);
    sigaddset(&driver.m_sigset, SIGUSR1);
    driver.m_nLastResult = setMask(SIG_BLOCK, &driver.m_sigset, nullptr);
  }

  // Creates the kind's queue from these arguments if there is none. The driver counts as connected
  // from here on: its close releases the queue.
  template <class Driver, class Queue, class... Arguments>
  static void createQueue(Driver& driver, Queue*& queue, Arguments... arguments) {
    driver.m_pProcArg = new ThreadArg{&driver, nullptr};
    SharedQueue::create(queue, arguments...);
  }

  // These start the threads. A thread that does not start is only reported, by the line.
  // reportsError: whether an error of sigwait is printed.

  template <bool reportsError, class Driver>
  static void startSignalThread(Driver& driver, const char* line, std::FILE* stream = stdout) {
    start(driver, driver.m_thPollSignal, pollsignal_thread<reportsError, Driver>,
          new ThreadArg{&driver, nullptr}, line, stream);
  }

  template <auto readingLoop, class Driver>
  static void startReadingThread(Driver& driver, const char* line, std::FILE* stream = stdout) {
    start(driver, driver.m_thGetData, getdata_thread<readingLoop, Driver>,
          new ThreadArg{&driver, nullptr}, line, stream);
  }

  template <auto& queue, class Driver>
  static void startProcessingThread(Driver& driver, const char* line, std::FILE* stream = stdout) {
    start(driver, driver.m_thProcData, procdata_thread<queue>, driver.m_pProcArg, line, stream);
  }

  // Reads the next input report of at least `size` bytes, on the reading thread. False when a read
  // has failed and the running flag is false: as long as reports keep coming, reading goes on.
  template <class Driver, class Report>
  static bool readReport(Driver& driver, Report& report, int size = sizeof(Report)) {
    for (;;) {
      int count = 0;
      if (driver.m_pEngine->ReadFile(reinterpret_cast<unsigned char*>(&report),
                                     driver.m_wReportSize, &count)) {
        if (count >= size) return true;
      } else if (!running(driver)) {
        return false;
      }
    }
  }

  // The running flag. Any thread.

  template <class Driver>
  static bool running(Driver& driver) {
    const PthreadLock lock(driver.m_mutex);
    return driver.m_bRunning;
  }

  template <class Driver>
  static void stopRunning(Driver& driver) {
    const PthreadLock lock(driver.m_mutex);
    driver.m_bRunning = false;
  }

  // Closing, on the client's thread: ends the processing thread, calls resetPad, ends the signal
  // and reading threads, then releases the queue, which the reading thread may have used until
  // then, and closes the device, whose result it returns. Safe after an open that failed, and a
  // second time.
  template <class Driver, class Queue, class ResetPad>
  static int close(Driver& driver, Queue*& queue, ResetPad resetPad) {
    const bool connected = driver.m_pProcArg != nullptr;
    if (connected) SharedQueue::requestStop(queue);
    join(driver.m_thProcData);
    resetPad();
    if (driver.m_thPollSignal != pthread_t{}) {
      pthread_kill(driver.m_thPollSignal, SIGUSR1);
      join(driver.m_thPollSignal);
    } else if (connected) {
      stopRunning(driver);
    }
    join(driver.m_thGetData);
    if (connected) SharedQueue::release(queue);
    delete driver.m_pProcArg;
    driver.m_pProcArg = nullptr;
    driver.m_nOpenStatus = 0;
    return driver.m_pEngine->CloseDevice();
  }

  // What every driver's destructor does.
  template <class Driver>
  static void destroy(Driver& driver) {
    driver.m_nOpenStatus = 0;
    delete driver.m_pEngine;
    driver.m_pEngine = nullptr;
    pthread_mutex_destroy(&driver.m_mutex);
  }

 private:
  template <class Driver>
  static void start(Driver& driver, pthread_t& thread, void* (*entry)(void*), ThreadArg* argument,
                    const char* line, std::FILE* stream) {
    driver.m_nLastResult = pthread_create(&thread, nullptr, entry, argument);
    if (driver.m_nLastResult == 0) return;
    thread = pthread_t{};
    if (argument != driver.m_pProcArg) delete argument;
    std::fputs(line, stream);
  }

  static void join(pthread_t& thread) {
    if (thread == pthread_t{}) return;
    pthread_join(thread, nullptr);
    thread = pthread_t{};
  }

  // Waits for SIGUSR1, then clears the running flag.
  template <bool reportsError, class Driver>
  static void pollsignal_routine(Driver& driver) {
    int signal = 0;
    while (signal != SIGUSR1) {
      const int error = sigwait(&driver.m_sigset, &signal);
      if (error == 0) continue;
      if constexpr (reportsError) std::printf("sigwait failed, result %d\n", error);
      return;
    }
    stopRunning(driver);
  }

  template <bool reportsError, class Driver>
  static void* pollsignal_thread(void* arg) {
    const std::unique_ptr<ThreadArg> argument(static_cast<ThreadArg*>(arg));
    pollsignal_routine<reportsError>(*static_cast<Driver*>(argument->driver));
    return nullptr;
  }

  template <auto readingLoop, class Driver>
  static void* getdata_thread(void* arg) {
    const std::unique_ptr<ThreadArg> argument(static_cast<ThreadArg*>(arg));
    (static_cast<Driver*>(argument->driver)->*readingLoop)();
    return nullptr;
  }

  template <auto& queue>
  static void* procdata_thread(void* /*arg*/) {
    SharedQueue::process(queue);
    return nullptr;
  }
};

#endif
