// The driver of the USB pad (product id 0x12): a pen pad without a display.
#ifndef GIIVELA_VELAUSB_H
#define GIIVELA_VELAUSB_H

#include "Export.h"
#include "Guid.h"
#include "PenRecordQueue.h"
#include "SharedQueue.h"
#include "WorkerFrame.h"

extern GIIVELA_API SharedQueue<CDataHandler> pUSBDataHandler;

// A driver object is connected once: open, close, delete. All operations belong to the client's
// thread but those said to run on a worker thread.
class GIIVELA_API velausb {
 public:
  velausb();
  // Does not close the connection: that comes first.
  virtual ~velausb();
  velausb(const velausb&) = delete;
  velausb& operator=(const velausb&) = delete;

  // The number of attached USB pads, cut to 16 bits.
  short GetNumDevices();

  // Opens the pad and starts delivering its samples to `handler`, on the processing thread; null
  // drops them. Returns 1, or -1 when the pad cannot be opened, and then nothing has been started.
  // A worker thread that does not start is told in a line on standard output only. SIGUSR1 stays
  // blocked in the calling thread.
  int OpenConnection(PenEventHandler handler);
  // The same with the handler given before.
  short OpenConnection();

  // Ends the delivery and closes the pad. Returns 0, once the pad has been quiet for a second or at
  // once when it is unplugged. Safe after an open that failed.
  int CloseConnection();

  // Writes the ranges of x and y, 0 to 32767, and of the pressure, 0 to 127. False, with nothing
  // written, when a pointer is null. The pad is not asked.
  bool GetDataRanges(int* minX, int* maxX, int* minY, int* maxY, int* minZ, int* maxZ);

  // The size of the writing surface in inches: 3.685 and 2.23. The pad is not asked.
  double GetPhysicalX();
  double GetPhysicalY();

  // False: this pad has no readable serial number. Nothing is written.
  bool GetSerialNumber(_GUID* serial);

  // True, and does nothing: this pad shows no ink.
  bool ClearInking();

  // Whether the reading thread is to go on, and the request that it does not. Any thread.
  bool GetRunningState() { return WorkerFrame::running(*this); }
  void SetRunningFalse() { WorkerFrame::stopRunning(*this); }

  // Runs the kind's queue on the calling thread, which it ends; returns when there is no queue.
  void procdata_routine() { WorkerFrame::processQueue<velausb>(); }

 private:
  friend struct WorkerFrame;
  static SharedQueue<CDataHandler>& Queue() { return pUSBDataHandler; }
  static const WorkerLines kWorkerLines;

  void pollsignal_routine() { WorkerFrame::waitForWakeSignal(*this); }
  void usrDataHandler();

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
