/// \file
/// The driver of the ink pad (product id 0x30): a pen pad with a monochrome LCD of 320 x 240 pixels
/// in three layers, a backlight, and an ink trace that the pad itself draws under the pen.
#ifndef GIIVELA_VELAINKUSB_H
#define GIIVELA_VELAINKUSB_H

#include <pthread.h>
#include <signal.h>

#include <cstdint>

#include "Export.h"
#include "Guid.h"
#include "PenEventHandler.h"

class CVelaIoEngine;
struct ThreadArg;

#pragma pack(push, 1)

/// A rectangle of the display in pixels, edges included.
struct LCD_RECT {
  std::uint16_t wLeft;   ///< 0 to 319
  std::uint8_t bTop;     ///< 0 to 239
  std::uint16_t wRight;  ///< 0 to 319
  std::uint8_t bBottom;  ///< 0 to 239
};
static_assert(sizeof(LCD_RECT) == 6, "packed");

/// A picture: 240 rows of 40 bytes, top row first, one bit a pixel.
struct LCD_SCREEN {
  std::uint8_t bScreen;         ///< the layer that it goes to
  LCD_RECT rect;                ///< not used by DrawBitmap
  std::uint8_t bPicture[9600];  ///< the leftmost pixel of a byte is its lowest bit
};
static_assert(sizeof(LCD_SCREEN) == 9607, "packed");

/// The pad's option block: bytes 1 to 16 of feature report 3 as they are on the wire. Bits without
/// a meaning here are written back as they were read.
struct tagOPTIONS {
  std::uint8_t bReserved0;
  std::uint8_t bInkTrace;          ///< bits 0-1: ink trace mode
  std::uint8_t bInkTraceValue[2];  ///< little-endian
  std::uint8_t bReserved4;
  std::uint8_t bInkingRegion[6];    ///< an LCD_RECT, little-endian
  std::uint8_t bBackLight;          ///< bits 0-1: mode, bit 2: switch
  std::uint8_t bBackLightValue[2];  ///< little-endian
  std::uint8_t bLayerStates;        ///< bits 2-3: layer 0, bits 4-5: layer 1, bits 6-7: layer 2
  std::uint8_t bReserved15;
};
static_assert(sizeof(tagOPTIONS) == 16, "packed");

#pragma pack(pop)

/// The contract is velausb's. The display operations and the serial number need an open pad.
///
/// Results are 1 for success and 0 for failure unless stated. Deliberate: a feature report counts
/// as accepted when its request returned anything but 0, an error (-1) too. So an operation fails
/// only when the pad answered with no bytes at all.
class GIIVELA_API velainkusb {
 public:
  velainkusb();
  /// Does not close the connection; close it first.
  virtual ~velainkusb();
  velainkusb(const velainkusb&) = delete;
  velainkusb& operator=(const velainkusb&) = delete;

  /// As velausb::GetNumDevices.
  int GetNumDevices();

  /// As velausb::OpenConnection, but sets up the pad's display first, and returns 0 when the pad
  /// cannot be opened. Parts of the set-up that the pad refuses are passed over.
  int OpenConnection(PenEventHandler handler) {
    m_pfnCallback = handler;
    return OpenConnection();
  }
  /// The same with the handler given before.
  int OpenConnection();

  /// As velausb::CloseConnection; resets a pad that was opened before it closes it.
  int CloseConnection();

  /// Puts ink trace and backlight into their resting state and clears and switches off the layers.
  /// Returns the result of the last request; 0, after a line on standard output, when not open.
  int ResetVelaInkDevice();

  /// Sends a picture in four bands of 60 rows, the later ones also when an earlier one failed.
  /// Returns what hidapi returned for the last: bytes sent, or -1. 0, with nothing sent, for null.
  int DrawBitmap(LCD_SCREEN* picture);

  /// Sets the rectangle in which the pad draws ink. 0, with nothing sent, when the options cannot
  /// be read or for null.
  int SetInkingRegion(LCD_RECT* region);

  /// Reads the whole option block, feature report 3. 0 for null.
  int GetOptions(tagOPTIONS* options);
  /// Sends the whole option block. 0 for null.
  int SetOptions(tagOPTIONS* options);

  /// Edits the backlight: mode 0 to 3, switch 0 or 1, value 0 to 65535; higher bits are ignored.
  /// When the options cannot be read, those read at open are edited instead.
  int SetBackLightOpt(int mode, int on, int value);

  /// Edits the ink trace: mode 0 to 3, value 0 to 65535; higher bits are ignored. When the options
  /// cannot be read, those read at open are edited instead.
  int SetInkTraceOpt(int mode, int value);

  /// Edits the state, 0 to 3, of layer 0, 1 or 2. Another layer number changes nothing, and the
  /// options are sent all the same. 0, with nothing sent, when the options cannot be read.
  int SetLayerState(int layer, int state);

  /// Clears the display, feature report 9: the value sent is 1 when the low 16 bits of `a` or of
  /// `b` are not zero, else 0.
  int ClearScrn(int a, int b);

  /// Clears the ink. True, whatever the pad answers.
  bool ClearInking();

  /// The width of the writing surface in inches. A constant.
  double GetPhysicalX() { return 3.11; }
  /// The height, likewise.
  double GetPhysicalY() { return 2.28; }

  /// Reads the serial number, feature report 6: the kind's fixed Data1 to Data3, then the pad's
  /// eight bytes in reverse order. False for a null pointer or a reply of no bytes.
  bool GetSerialNumber(_GUID* serial);

  /// Writes the ranges of x and y, 0 to 32767, and of the pressure, 0 to 255. False, with nothing
  /// written, when a pointer is null. Constants: no request is sent.
  bool GetDataRanges(int* minX, int* maxX, int* minY, int* maxY, int* minZ, int* maxZ);

  /// @{
  /// As velausb's.
  bool GetRunningState();
  void SetRunningFalse();
  void procdata_routine();
  /// @}

 private:
  friend struct WorkerFrame;

  GIIVELA_LOCAL void usrDataHandler();
  template <class Edit>
  GIIVELA_LOCAL int editOptions(tagOPTIONS* cached, Edit edit);

  int m_nOpenStatus = 0;             // what opening the device returned; positive while open
  sigset_t m_sigset{};               // SIGUSR1 only
  unsigned short m_wReportSize = 0;  // of an input report, in bytes
  int m_nLastResult = 0;             // of the last mask change or thread start
  pthread_t m_thPollSignal{};
  pthread_t m_thProcData{};
  pthread_t m_thGetData{};
  tagOPTIONS m_options{};      // as read at open
  bool m_bFirstReport = true;  // no complete report has been read yet
  ThreadArg* m_pProcArg = nullptr;
  CVelaIoEngine* m_pEngine;
  bool m_bRunning = true;
  pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;  // guards m_bRunning
  PenEventHandler m_pfnCallback = nullptr;
};

#endif
