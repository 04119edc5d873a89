// The frame of worker threads that every driver runs while a connection is open:
//
//   reading thread     blocks on the pad's input reports and queues what they say
//   processing thread  takes records from the queue and calls the pen callback
//   signal thread      waits for SIGUSR1, then clears the driver's running flag
//
// The frame is written once, over the fields that every driver class has under the same names; the
// driver makes WorkerFrame its friend. What it gives to the frame:
//
//   Queue()        static: the SharedQueue of its kind
//   kWorkerLines   static: the lines for threads that do not start
//   the fields m_nOpenStatus, m_sigset, m_wReportSize, m_nLastResult, m_thPollSignal, m_thProcData,
//   m_thGetData, m_pProcArg, m_bRunning, m_mutex, m_pEngine, m_pfnCallback, and m_bFirstReport
//   where the first report may be dropped
//
// A thread id of zero means that the thread does not run; it is zero before the start, after a
// start that failed and after the join.
#ifndef GIIVELA_WORKERFRAME_H
#define GIIVELA_WORKERFRAME_H

#include <pthread.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <memory>
#include <span>

#include "PenRecord.h"
#include "PthreadLock.h"
#include "VelaIoEngine.h"

// What a worker thread is started with; the thread, or for the processing thread the driver, frees
// it.
struct ThreadArg {
  void* driver;
  void* zero;
};

// The lines, line ends included, that tell of threads and where they go.
struct WorkerLines {
  std::FILE* const* stream;      // standard output or standard error
  const char* signalThread;      // the signal thread did not start
  const char* readingThread;     // the reading thread did not start
  const char* processingThread;  // the processing thread did not start
  const char* signalWait;        // sigwait failed; a format for the error code, null for silence
};

struct WorkerFrame {
  // Opening, on the client's thread.

  // Blocks SIGUSR1 in the calling thread, for good, with sigprocmask or pthread_sigmask (the
  // threads started later inherit that), and learns the length of the pad's input reports.
  template <class Driver, class SetMask>
  static void prepare(Driver& driver, SetMask setMask) {
    sigemptyset(&driver.m_sigset);
    sigaddset(&driver.m_sigset, SIGUSR1);
    driver.m_nLastResult = setMask(SIG_BLOCK, &driver.m_sigset, nullptr);
    driver.m_pEngine->GetDataReportSize(&driver.m_wReportSize);
  }

  // Creates the kind's queue from these arguments if there is none. The driver counts as connected
  // from here on: its close releases the queue.
  template <class Driver, class... Arguments>
  static void createQueue(Driver& driver, Arguments... arguments) {
    driver.m_pProcArg = new ThreadArg{&driver, nullptr};
    Driver::Queue().createIfNull(arguments...);
  }

  // Creates the queue and starts the three threads; `loop` is the driver's reading loop. A thread
  // that does not start is told in its line and holds nothing else up.
  template <auto loop, class Driver>
  static void startWorkers(Driver& driver) {
    createQueue(driver, driver.m_pfnCallback);
    startSignalThread(driver);
    startReadingThread<loop>(driver);
    startProcessingThread(driver);
  }

  template <class Driver>
  static void startSignalThread(Driver& driver) {
    startOwningArgument(driver, driver.m_thPollSignal, pollsignal_thread<Driver>,
                        Driver::kWorkerLines.signalThread);
  }

  template <auto loop, class Driver>
  static void startReadingThread(Driver& driver) {
    startOwningArgument(driver, driver.m_thGetData, getdata_thread<Driver, loop>,
                        Driver::kWorkerLines.readingThread);
  }

  template <class Driver>
  static void startProcessingThread(Driver& driver) {
    start(driver, driver.m_thProcData, procdata_thread<Driver>, driver.m_pProcArg,
          Driver::kWorkerLines.processingThread);
  }

  // Reading, on the reading thread.

  // Reads input reports and hands each one's bytes to `onReport` until a read fails while the
  // running flag is false: as long as reports keep coming, reading goes on.
  template <class Driver, class OnReport>
  static void readReports(Driver& driver, OnReport onReport) {
    std::array<unsigned char, kMaxInputReportSize> usbBuffer{};
    for (;;) {
      int count = 0;
      if (driver.m_pEngine->ReadFile(usbBuffer.data(), driver.m_wReportSize, &count)) {
        onReport(std::span<const unsigned char>(usbBuffer.data(), static_cast<size_t>(count)));
      } else if (!running(driver)) {
        return;
      }
    }
  }

  // The same for the pads whose reports count only when they are complete.
  template <class Driver, class OnReport>
  static void readCompleteReports(Driver& driver, OnReport onReport) {
    readReports(driver, [&](std::span<const unsigned char> report) {
      if (report.size() == driver.m_wReportSize) onReport(report.data());
    });
  }

  // Whether this report is to be dropped: the first complete one of the driver object, unless the
  // pen is down in it.
  template <class Driver>
  static bool dropsFirstReport(Driver& driver, bool touch) {
    const bool first = driver.m_bFirstReport;
    driver.m_bFirstReport = false;
    return first && !touch;
  }

  // Queues what `makeRecord` makes; drops the sample when another driver object of the kind has
  // released the queue.
  template <class Driver, class MakeRecord>
  static void queueRecord(MakeRecord makeRecord) {
    if (const auto queue = Driver::Queue().lease()) queue->SetRecord(makeRecord());
  }

  template <class Driver>
  static void queueSample(const PEN_DATA& sample) {
    queueRecord<Driver>([&] { return new tagDATA_RECORD{new PEN_DATA(sample), nullptr}; });
  }

  // The running flag.

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

  // The body of the signal thread.
  template <class Driver>
  static void waitForWakeSignal(Driver& driver) {
    int signal = 0;
    while (signal != SIGUSR1) {
      const int error = sigwait(&driver.m_sigset, &signal);
      if (error != 0) {
        const WorkerLines& lines = Driver::kWorkerLines;
        if (lines.signalWait != nullptr) std::fprintf(*lines.stream, lines.signalWait, error);
        return;
      }
    }
    stopRunning(driver);
  }

  // Runs the queue's processing loop, which ends the calling thread; returns when there is no
  // queue.
  template <class Driver>
  static void processQueue() {
    // Given back when the thread ends, which it does inside procdata_routine.
    static thread_local decltype(Driver::Queue().lease()) lease;
    lease = Driver::Queue().lease();
    if (lease) lease->procdata_routine();
  }

  // Closing, on the client's thread. Safe after an open that failed, and a second time.

  // Ends the three threads: the processing thread first, then `beforeReadingEnds`, then the other
  // two; then releases the queue and closes the device, whose result it returns. The reading thread
  // ends with its first read that times out, so this takes until the pad has been quiet for a
  // read's time-out. The queue outlives the reading thread, which may still be decoding a report.
  template <class Driver, class BeforeReadingEnds>
  static int close(Driver& driver, BeforeReadingEnds beforeReadingEnds) {
    const bool connected = driver.m_pProcArg != nullptr;
    if (connected) {
      if (const auto queue = Driver::Queue().lease()) queue->RequestStop();
    }
    join(driver.m_thProcData);
    beforeReadingEnds();
    if (driver.m_thPollSignal != pthread_t{}) {
      pthread_kill(driver.m_thPollSignal, SIGUSR1);
      join(driver.m_thPollSignal);
    } else {
      stopRunning(driver);
    }
    join(driver.m_thGetData);
    if (connected) Driver::Queue().release();
    delete driver.m_pProcArg;
    driver.m_pProcArg = nullptr;
    const int result = driver.m_pEngine->CloseDevice();
    driver.m_nOpenStatus = 0;
    return result;
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
  static bool start(Driver& driver, pthread_t& thread, void* (*entry)(void*), ThreadArg* argument,
                    const char* failureLine) {
    driver.m_nLastResult = pthread_create(&thread, nullptr, entry, argument);
    if (driver.m_nLastResult == 0) return true;
    thread = pthread_t{};
    std::fputs(failureLine, *Driver::kWorkerLines.stream);
    return false;
  }

  template <class Driver>
  static void startOwningArgument(Driver& driver, pthread_t& thread, void* (*entry)(void*),
                                  const char* failureLine) {
    std::unique_ptr<ThreadArg> argument(new ThreadArg{&driver, nullptr});
    if (start(driver, thread, entry, argument.get(), failureLine)) {
      static_cast<void>(argument.release());
    }
  }

  static void join(pthread_t& thread) {
    if (thread == pthread_t{}) return;
    pthread_join(thread, nullptr);
    thread = pthread_t{};
  }

  template <class Driver>
  static void* pollsignal_thread(void* arg) {
    const std::unique_ptr<ThreadArg> argument(static_cast<ThreadArg*>(arg));
    static_cast<Driver*>(argument->driver)->pollsignal_routine();
    return nullptr;
  }

  template <class Driver, auto loop>
  static void* getdata_thread(void* arg) {
    const std::unique_ptr<ThreadArg> argument(static_cast<ThreadArg*>(arg));
    (static_cast<Driver*>(argument->driver)->*loop)();
    return nullptr;
  }

  template <class Driver>
  static void* procdata_thread(void* /*arg*/) {
    processQueue<Driver>();
    return nullptr;
  }
};

#endif
