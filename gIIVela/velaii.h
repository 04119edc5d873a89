/// \file
/// The driver of the pad II (product id 0x1F): a pen pad without a display that reports its
/// geometry and its serial number.
#ifndef GIIVELA_VELAII_H
#define GIIVELA_VELAII_H

#include <pthread.h>
#include <signal.h>

#include <cstdint>

#include "Export.h"
#include "Guid.h"
#include "PenEventHandler.h"

class CVelaIoEngine;
struct ThreadArg;

/// The pad's information about itself, from feature report 10. Each dimension of the surface is an
/// overall size less two deductions, each a ratio of two numbers, in inches:
/// wExt / wExtDiv - wOff1 / wOff1Div - wOff2 / wOff2Div.
#pragma pack(push, 1)
struct PAD_INFO_REPORT {
  std::uint8_t bReportId;  ///< not written by GetPadInfo
  // The pad's description of itself, which nothing here interprets.
  std::uint16_t wDesc1;
  std::uint16_t wDesc2;
  std::uint16_t wDesc3;
  std::uint16_t wDesc4;
  std::uint8_t bDesc1;
  std::uint16_t wDesc5;
  std::uint16_t wDesc6;
  std::uint8_t bDesc2;
  std::int64_t lDesc1;  ///< 32 bits on the wire
  std::int64_t lDesc2;  ///< 32 bits on the wire
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
static_assert(sizeof(PAD_INFO_REPORT) == 55, "15 bytes, two values of 8, twelve of 2");

/// The contract is velausb's. The pad's information and its serial number are requested anew by
/// every call, on an open pad.
class GIIVELA_API velaii {
 public:
  velaii();
  /// Does not close the connection; close it first.
  virtual ~velaii();
  velaii(const velaii&) = delete;
  velaii& operator=(const velaii&) = delete;

  /// As velausb::GetNumDevices.
  short GetNumDevices();

  /// As velausb::OpenConnection; when the pad cannot be opened, a line on standard output says so.
  int OpenConnection(PenEventHandler handler) {
    m_pfnCallback = handler;
    return OpenConnection();
  }
  /// The same with the handler given before.
  short OpenConnection();

  /// As velausb::CloseConnection.
  int CloseConnection();

  /// Writes the ranges of x and y, 0 to 32767, and of the pressure, 0 to 127. False, with nothing
  /// written, when a pointer is null. Constants: no request is sent.
  bool GetDataRanges(int* minX, int* maxX, int* minY, int* maxY, int* minZ, int* maxZ);

  /// Reads feature report 10. False, with nothing written, for a null pointer or a reply of no
  /// bytes. Deliberate: any other result counts as success, an error (-1) too. Fields that the pad
  /// did not send are zero.
  bool GetPadInfo(PAD_INFO_REPORT* info);

  /// a/b - c/d - e/f. A divisor of 0 counts as DBL_EPSILON.
  double CalcExtent(unsigned short a, unsigned short b, unsigned short c, unsigned short d,
                    unsigned short e, unsigned short f);

  /// The width of the writing surface in inches, from feature report 10; 0.0 when GetPadInfo fails.
  double GetPhysicalX();
  /// The height, likewise.
  double GetPhysicalY();

  /// Reads the serial number, feature report 2: the kind's fixed Data1 to Data3, then the pad's
  /// eight bytes in reverse order. False for a null pointer and, after a line on standard output,
  /// for a reply of no bytes. Deliberate: any other result counts as success, an error (-1) too.
  bool GetSerialNumber(_GUID* serial);

  /// True, and does nothing: this pad shows no ink.
  bool ClearInking() { return true; }

  /// @{
  /// As velausb's.
  bool GetRunningState();
  void SetRunningFalse();
  void procdata_routine();
  /// @}

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
  CVelaIoEngine* m_pEngine;
  bool m_bRunning = true;
  pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;  // guards m_bRunning
  PenEventHandler m_pfnCallback = nullptr;
};

#endif
