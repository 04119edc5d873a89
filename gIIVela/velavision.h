/// \file
/// The driver of the vision pad (product id 0x38): a pen pad with a display that has modes, an ink
/// region and a keep-alive.
#ifndef GIIVELA_VELAVISION_H
#define GIIVELA_VELAVISION_H

#include <pthread.h>
#include <signal.h>

#include <array>
#include <cstdint>
#include <memory>

#include "Export.h"
#include "PenEventHandler.h"
#include "velavisionutil.h"

class CVelaIoEngine;
struct ThreadArg;

/// The pad's information about itself, from feature report 12.
struct DevicePadInfo {
  int nMinX;
  int nMaxX;
  int nMinY;
  int nMaxY;
  int nMinZ;
  int nMaxZ;
  double dRatio;      ///< any double, as the next two: the pad may send a divisor of zero
  double dPhysicalX;  ///< inches
  double dPhysicalY;  ///< inches
};

/// The contents of feature report 17. The driver sets bFlag1, bFlag2 and wScaled at open and
/// carries the rest without knowing its meaning.
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
  std::uint16_t wByte5;   ///< one byte on the wire
  std::uint16_t wScaled;  ///< a hundredth of what SetInkRegion sends
};
#pragma pack(pop)
static_assert(sizeof(InkRegion) == 19, "packed");

/// The contract is velausb's. Requests to a pad that is not open fail without being sent. Messages
/// go to standard error.
class GIIVELA_API velavision {
 public:
  velavision();
  /// Does not close the connection; close it first.
  virtual ~velavision();
  velavision(const velavision&) = delete;
  velavision& operator=(const velavision&) = delete;

  /// As velausb::GetNumDevices.
  int GetNumDevices();

  /// As velausb::OpenConnection, with four attempts 5 ms apart. Sets the pad to pen mode, switches
  /// its ink region on and reads its pad information. Returns 1; 0 for a null handler, when the pad
  /// cannot be opened, or, with the device left open for CloseConnection to close, when it does not
  /// answer as it should. A line says what went wrong.
  int OpenConnection(PenEventHandler handler);
  /// The same with the handler given before.
  int OpenConnection();

  /// As velausb::CloseConnection; sets mode 4 on an open pad before it closes it.
  int CloseConnection();

  /// Resets the pad, by reading feature report 3. True when the pad answered.
  bool ResetVelaVisionDevice();

  /// Sets the mode, feature report 4: 1 is pen mode. Returns what hidapi returned: bytes sent, or
  /// -1; 0 when not open.
  int SetMode(unsigned char mode);

  /// Reads the mode. Returns what hidapi returned, with *mode written unless that is negative; -1
  /// when not open or for null.
  int GetMode(unsigned char* mode);

  /// Reads feature report 17. Returns 1; 0, with nothing written, when not open or for null; the
  /// negative result, with nothing written, when the read fails. Deliberate: in wScaled it is not
  /// the inverse of SetInkRegion.
  int GetInkRegion(InkRegion* region);

  /// Sends feature report 17. Returns 1 when the pad accepted it, else 0; 0 when not open.
  int SetInkRegion(InkRegion region);

  /// Reads feature report 12. Returns 1; 0, with nothing written, when not open or for null; the
  /// negative result, with nothing written and after a line, when the read fails.
  int GetPadInfo(DevicePadInfo* info);

  /// Clears the ink, feature report 18. False when not open, and after a line when the request
  /// returned 0. Deliberate: an error (-1) counts as success.
  bool ClearInkRegion();

  /// Writes the serial number, 16 raw bytes without a terminator, from feature report 2. False,
  /// with nothing written, when not open, for null, or when the read fails.
  bool GetSerialNumber(char* buf);

  /// Writes the ranges of x, y and pressure from the pad information read at open. False, with
  /// nothing written, when not open or when a pointer is null.
  bool GetDataRanges(int* minX, int* maxX, int* minY, int* maxY, int* minZ, int* maxZ);

  /// The width of the writing surface in inches, from the pad information read at open; 0.0 before.
  double GetPhysicalX() { return m_padInfo.dPhysicalX; }
  /// The height, likewise.
  double GetPhysicalY() { return m_padInfo.dPhysicalY; }

  /// @{
  /// As velausb's.
  bool GetRunningState();
  void SetRunningFalse();
  void procdata_routine();
  /// @}

  /// An object of the pad's screen, for callers to refer to by name.
  struct Resource {
    const char* name;
    std::uint8_t id;
  };
  /// All of them, in the pad's order. Any thread.
  const std::array<Resource, 39>& Resources() const { return m_resources; }

 private:
  friend struct WorkerFrame;

  GIIVELA_LOCAL void usrSignalHandler();
  GIIVELA_LOCAL bool setUpPad();
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
  void (*m_pfnAuxCallback)(std::uint8_t, std::uint8_t, std::uint8_t) = nullptr;  // never set
};

#endif
