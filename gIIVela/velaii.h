// The driver of the pad II (product id 0x1F): a pen pad without a display that tells its geometry
// and its serial number.
#ifndef GIIVELA_VELAII_H
#define GIIVELA_VELAII_H

#include <cstdint>

#include "Export.h"
#include "Guid.h"
#include "PenRecordQueue.h"
#include "SharedQueue.h"
#include "WorkerFrame.h"

extern GIIVELA_API SharedQueue<IICDataHandler> pDataHandler;

// What the pad says of itself in feature report 10. Each dimension of the surface is an overall
// size less two deductions, each a ratio of two numbers, in inches: wExt / wExtDiv - wOff1 /
// wOff1Div - wOff2 / wOff2Div.
#pragma pack(push, 1)
struct PAD_INFO_REPORT {
  std::uint8_t bReportId;  // not written by GetPadInfo
  // The pad's description of itself, which nothing here interprets.
  std::uint16_t wDesc1;
  std::uint16_t wDesc2;
  std::uint16_t wDesc3;
  std::uint16_t wDesc4;
  std::uint8_t bDesc1;
  std::uint16_t wDesc5;
  std::uint16_t wDesc6;
  std::uint8_t bDesc2;
  long lDesc1;
  long lDesc2;
  // The geometry.
  std::uint16_t wExtX;
  std::uint16_t wExtXDiv;
  std::uint16_t wExtY;
  std::uint16_t wExtYDiv;
  std::uint16_t wOff1X;
  std::uint16_t wOff1XDiv;
  std::uint16_t wOff1Y;
  std::uint16_t wOff1YDiv;
  std::uint16_t wOff2X;
  std::uint16_t wOff2XDiv;
  std::uint16_t wOff2Y;
  std::uint16_t wOff2YDiv;
};
#pragma pack(pop)

// A driver object is connected once: open, close, delete. All operations belong to the client's
// thread but those said to run on a worker thread. The feature requests are made anew at every call
// and want an open pad.
class GIIVELA_API velaii {
 public:
  velaii();
  // Does not close the connection: that comes first.
  virtual ~velaii();
  velaii(const velaii&) = delete;
  velaii& operator=(const velaii&) = delete;

  // The number of attached pads II, cut to 16 bits.
  short GetNumDevices();

  // Opens the pad and starts delivering its samples to `handler`, on the processing thread; null
  // drops them. Returns 1, or -1 after a line on standard output when the pad cannot be opened, and
  // then nothing has been started. A worker thread that does not start is told in a line only.
  // SIGUSR1 stays blocked in the calling thread.
  int OpenConnection(PenEventHandler handler);
  // The same with the handler given before.
  short OpenConnection();

  // Ends the delivery and closes the pad. Returns 0, once the pad has been quiet for a second or at
  // once when it is unplugged. Safe after an open that failed.
  int CloseConnection();

  // Writes the ranges of x and y, 0 to 32767, and of the pressure, 0 to 127. False, with nothing
  // written, when a pointer is null. The pad is not asked.
  bool GetDataRanges(int* minX, int* maxX, int* minY, int* maxY, int* minZ, int* maxZ);

  // Reads feature report 10. False, with nothing written, for a null pointer or a reply of no
  // bytes. Any other result of the request counts as success, an error too: the fields that the pad
  // did not send are then zero.
  bool GetPadInfo(PAD_INFO_REPORT* info);

  // a/b - c/d - e/f. A divisor of 0 counts as DBL_EPSILON.
  double CalcExtent(unsigned short a, unsigned short b, unsigned short c, unsigned short d,
                    unsigned short e, unsigned short f);

  // The size of the writing surface in inches, from feature report 10; 0.0 when GetPadInfo fails.
  double GetPhysicalX();
  double GetPhysicalY();

  // Reads the serial number, feature report 2: the kind's fixed Data1 to Data3, then the pad's
  // eight bytes last to first. False for a null pointer and, after a line on standard output, for a
  // reply of no bytes. Any other result of the request counts as success.
  bool GetSerialNumber(_GUID* serial);

  // True, and does nothing: this pad shows no ink.
  bool ClearInking();

  // Whether the reading thread is to go on, and the request that it does not. Any thread.
  bool GetRunningState() { return WorkerFrame::running(*this); }
  void SetRunningFalse() { WorkerFrame::stopRunning(*this); }

  // Runs the kind's queue on the calling thread, which it ends; returns when there is no queue.
  void procdata_routine() { WorkerFrame::processQueue<velaii>(); }

 private:
  friend struct WorkerFrame;
  static SharedQueue<IICDataHandler>& Queue() { return pDataHandler; }
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
  CVelaIoEngine* m_pEngine;
  bool m_bRunning = true;
  pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;  // guards m_bRunning
  PenEventHandler m_pfnCallback = nullptr;
};

#endif
