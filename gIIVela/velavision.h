// The driver of the vision pad (product id 0x38): a pen pad with a display that has modes, an ink
// region and a keep-alive.
#ifndef GIIVELA_VELAVISION_H
#define GIIVELA_VELAVISION_H

#include <array>
#include <cstdint>
#include <memory>

#include "Export.h"
#include "SharedQueue.h"
#include "VisionRecordQueue.h"
#include "WorkerFrame.h"
#include "velavisionutil.h"

extern GIIVELA_API SharedQueue<VisionCDataHandler> pVisionDataHandler;

// What the pad says of itself in feature report 12.
struct DevicePadInfo {
  int nMinX;
  int nMaxX;
  int nMinY;
  int nMaxY;
  int nMinZ;
  int nMaxZ;
  double dRatio;      // any double, as the next two: a zero divisor is the pad's to send
  double dPhysicalX;  // inches
  double dPhysicalY;
};

// The ink region as feature report 17 has it. The driver carries most of it without knowing what it
// means.
#pragma pack(push, 1)
struct InkRegion {
  std::uint8_t bFlag1;
  std::uint8_t bFlag2;
  std::uint8_t bFlag3;
  std::uint16_t wWord4;
  std::uint16_t wWord3;
  std::uint16_t wWord2;
  std::uint16_t wWord1;
  std::uint8_t bByte1;
  std::uint8_t bByte2;
  std::uint8_t bByte3;
  std::uint8_t bByte4;
  std::uint16_t wByte5;   // one byte on the wire
  std::uint16_t wScaled;  // a hundredth of what SetInkRegion sends
};
#pragma pack(pop)
static_assert(sizeof(InkRegion) == 19);

// A driver object is connected once: open, close, delete. All operations belong to the client's
// thread but those said to run on a worker thread. Requests to a pad that is not open fail without
// being sent.
class GIIVELA_API velavision {
 public:
  velavision();
  // Does not close the connection: that comes first.
  virtual ~velavision();
  velavision(const velavision&) = delete;
  velavision& operator=(const velavision&) = delete;

  // The number of attached vision pads, cut to 16 bits.
  int GetNumDevices();

  // Opens the pad, in up to four attempts 5 ms apart, puts it into pen mode, switches its ink
  // region on, reads its pad information and starts delivering its samples to `handler`, on the
  // processing thread. Returns 1; 0 for a null handler, when the pad cannot be opened, or when it
  // does not answer as it should, and then no thread has been started but the device may be open:
  // CloseConnection closes it. Lines on standard error tell what went wrong; a worker thread that
  // does not start is told there only. SIGUSR1 stays blocked in the calling thread.
  int OpenConnection(PenEventHandler handler);
  // The same with the handler given before.
  int OpenConnection();

  // Ends the delivery, sets mode 4 and closes the pad. Returns 0, once the pad has been quiet for a
  // second or at once when it is unplugged. Safe after an open that failed.
  int CloseConnection();

  // Resets the pad by reading feature report 3. True when the pad answered.
  bool ResetVelaVisionDevice();

  // Sets the mode: 1 is pen mode. Returns what the engine returned; 0 when not open.
  int SetMode(unsigned char mode);

  // Reads the mode. Returns what the engine returned, with *mode written unless that is negative;
  // -1 when not open or for null.
  int GetMode(unsigned char* mode);

  // Reads feature report 17. Returns 1; 0, with nothing written, when not open or for null; the
  // negative result, with nothing written, when the read fails. Not the inverse of SetInkRegion in
  // wScaled, on purpose.
  int GetInkRegion(InkRegion* region);

  // Sends feature report 17. Returns 1 when the pad accepted it, else 0; 0 when not open.
  int SetInkRegion(InkRegion region);

  // Reads feature report 12. Returns 1; 0, with nothing written, when not open or for null; the
  // negative result, with nothing written and after a line on standard error, when the read fails.
  int GetPadInfo(DevicePadInfo* info);

  // Clears the ink. False when not open, and after a line on standard error when the request gave
  // 0; an error (-1) counts as success.
  bool ClearInkRegion();

  // Writes the serial number, 16 raw bytes without a terminator. False, with nothing written, when
  // not open, for null, or when the read fails.
  bool GetSerialNumber(char* buf);

  // Writes the ranges of x, y and pressure from the pad information read at open. False, with
  // nothing written, when not open or when a pointer is null.
  bool GetDataRanges(int* minX, int* maxX, int* minY, int* maxY, int* minZ, int* maxZ);

  // The size of the writing surface in inches from the pad information read at open; 0.0 before.
  double GetPhysicalX();
  double GetPhysicalY();

  // Whether the reading thread is to go on, and the request that it does not. Any thread.
  bool GetRunningState() { return WorkerFrame::running(*this); }
  void SetRunningFalse() { WorkerFrame::stopRunning(*this); }

  // Runs the kind's queue on the calling thread, which it ends; returns when there is no queue.
  void procdata_routine() { WorkerFrame::processQueue<velavision>(); }

  // The objects of the pad's screen, for callers to refer to by name.
  struct Resource {
    const char* name;
    std::uint8_t id;
  };
  // All of them, in the pad's order. Any thread.
  const std::array<Resource, 39>& Resources() const { return m_resources; }

 private:
  friend struct WorkerFrame;
  static SharedQueue<VisionCDataHandler>& Queue() { return pVisionDataHandler; }
  static const WorkerLines kWorkerLines;

  void pollsignal_routine() { WorkerFrame::waitForWakeSignal(*this); }
  void usrSignalHandler();
  bool setUpPad();

  bool isOpen() const { return m_nOpenStatus > 0; }

  int m_nOpenStatus = 0;             // what opening the device returned; positive while open
  sigset_t m_sigset{};               // SIGUSR1 only
  unsigned short m_wReportSize = 0;  // of an input report, in bytes
  int m_nLastResult = 0;             // of the last mask change or thread start
  pthread_t m_thPollSignal{};
  pthread_t m_thProcData{};
  pthread_t m_thGetData{};
  DevicePadInfo m_padInfo{};  // as read at open
  InkRegion m_inkRegion{};    // as set at open
  ThreadArg* m_pProcArg = nullptr;
  std::unique_ptr<velavisionutil> m_pUtil;
  std::array<Resource, 39> m_resources;
  CVelaIoEngine* m_pEngine;
  bool m_bRunning = true;
  pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;  // guards m_bRunning
  PenEventHandler m_pfnCallback = nullptr;
  VisionAuxHandler m_pfnAuxCallback = nullptr;  // never set: this pad has no use for it
};

#endif
