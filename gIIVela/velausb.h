/// \file
/// The driver of the USB pad (product id 0x12): a pen pad without a display.
#ifndef GIIVELA_VELAUSB_H
#define GIIVELA_VELAUSB_H

#include <pthread.h>
#include <signal.h>

#include "Export.h"
#include "Guid.h"
#include "PenEventHandler.h"

class CVelaIoEngine;
struct ThreadArg;

/// The driver of the USB pad, and the contract of all four drivers: the headers of the others give
/// what is different there.
///
/// A driver object is connected once: open, close, delete. All operations belong to the client's
/// thread, except those said to run on another one. Only one driver object of each kind should be
/// open at a time. Failures are return values; only an allocation can throw.
class GIIVELA_API velausb {
 public:
  velausb();
  /// Does not close the connection; close it first.
  virtual ~velausb();
  velausb(const velausb&) = delete;
  velausb& operator=(const velausb&) = delete;

  /// The number of attached pads of the kind, cut to 16 bits.
  short GetNumDevices();

  /// Opens the pad and starts delivering its samples to `handler`, on the processing thread; with a
  /// null handler they are dropped. Returns 1, or -1 when the pad cannot be opened; then nothing
  /// has been started, and the object may be opened again. A worker thread that does not start is
  /// only reported, by a line on standard output. SIGUSR1 stays blocked in the calling thread.
  int OpenConnection(PenEventHandler handler) {
    m_pfnCallback = handler;
    return OpenConnection();
  }
  /// The same with the handler given before.
  short OpenConnection();

  /// Ends the delivery and closes the pad. Returns 0 once the pad has been quiet for a second, or
  /// at once when it is unplugged; the handler is not called any more then. Safe after an open that
  /// failed.
  int CloseConnection();

  /// Writes the ranges of x and y, 0 to 32767, and of the pressure, 0 to 127. False, with nothing
  /// written, when a pointer is null. Constants: no request is sent.
  bool GetDataRanges(int* minX, int* maxX, int* minY, int* maxY, int* minZ, int* maxZ);

  /// The width of the writing surface in inches. A constant.
  double GetPhysicalX() { return 3.685; }
  /// The height, likewise.
  double GetPhysicalY() { return 2.23; }

  /// False: this pad has no readable serial number. Nothing is written.
  bool GetSerialNumber(_GUID* /*serial*/) { return false; }

  /// True, and does nothing: this pad shows no ink.
  bool ClearInking() { return true; }

  /// Whether the reading thread continues after a read that failed. Any thread.
  bool GetRunningState();
  /// Lets the reading thread end with the next read that fails. Any thread.
  void SetRunningFalse();

  /// Runs the processing loop of the kind's queue, which ends the calling thread. Returns when
  /// there is no queue.
  void procdata_routine();

 private:
  friend struct WorkerFrame;

  GIIVELA_LOCAL void usrDataHandler();

  int m_nOpenStatus = 0;
  sigset_t m_sigset{};               // SIGUSR1 only
  unsigned short m_wReportSize = 0;  // of an input report, in bytes
  int m_nLastResult = 0;             // of the last mask change or thread start
  pthread_t m_thPollSignal{};
  pthread_t m_thProcData{};
  pthread_t m_thGetData{};
  bool m_bFirstReport = true;  // no complete report has been read yet
  ThreadArg* m_pProcArg = nullptr;
  bool m_bRunning = true;
  pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;  // guards m_bRunning
  CVelaIoEngine* m_pEngine;
  PenEventHandler m_pfnCallback = nullptr;
};

#endif
