// The driver of the ink pad (product id 0x30): a pen pad with a monochrome LCD of 320 x 240 pixels
// in three layers, a backlight, and an ink trace that the pad itself draws under the pen.
#ifndef GIIVELA_VELAINKUSB_H
#define GIIVELA_VELAINKUSB_H

#include <cstdint>

#include "Export.h"
#include "Guid.h"
#include "PenRecordQueue.h"
#include "SharedQueue.h"
#include "WorkerFrame.h"

extern GIIVELA_API SharedQueue<InkCDataHandler> pInkDataHandler;

#pragma pack(push, 1)

// A rectangle of the display in pixels, edges included.
struct LCD_RECT {
  std::uint16_t wLeft;  // 0 to 319
  std::uint8_t bTop;    // 0 to 239
  std::uint16_t wRight;
  std::uint8_t bBottom;
};
static_assert(sizeof(LCD_RECT) == 6);

// A picture: 240 rows of 40 bytes, top row first, one bit a pixel.
struct LCD_SCREEN {
  std::uint8_t bScreen;  // the layer that it goes to
  LCD_RECT rect;         // not used by DrawBitmap
  std::uint8_t bPicture[9600];
};
static_assert(sizeof(LCD_SCREEN) == 9607);

// The pad's option block: bytes 1 to 16 of feature report 3 as they are on the wire. What has no
// meaning here is written back as it was read.
struct tagOPTIONS {
  std::uint8_t bReserved0;
  std::uint8_t bInkTrace;          // bits 0-1: ink trace mode
  std::uint8_t bInkTraceValue[2];  // little-endian
  std::uint8_t bReserved4;
  std::uint8_t bInkingRegion[6];    // an LCD_RECT, little-endian
  std::uint8_t bBackLight;          // bits 0-1: mode, bit 2: switch
  std::uint8_t bBackLightValue[2];  // little-endian
  std::uint8_t bLayerStates;        // bits 2-3: layer 0, bits 4-5: layer 1, bits 6-7: layer 2
  std::uint8_t bReserved15;
};
static_assert(sizeof(tagOPTIONS) == 16);

#pragma pack(pop)

// A driver object is connected once: open, close, delete. All operations belong to the client's
// thread but those said to run on a worker thread. The display operations want an open pad.
//
// Results are 1 for success and 0 for failure. A feature report counts as accepted when its request
// gave anything but 0, an error (-1) too; so an operation fails only when the pad answered with no
// bytes at all.
class GIIVELA_API velainkusb {
 public:
  velainkusb();
  // Does not close the connection: that comes first.
  virtual ~velainkusb();
  velainkusb(const velainkusb&) = delete;
  velainkusb& operator=(const velainkusb&) = delete;

  // The number of attached ink pads, cut to 16 bits.
  int GetNumDevices();

  // Opens the pad, sets up its display and starts delivering its samples to `handler`, on the
  // processing thread; null drops them. Returns 1, or 0 when the pad cannot be opened, and then
  // nothing has been started. What the pad refuses of the set-up is ignored; a worker thread that
  // does not start is told in a line on standard output only. SIGUSR1 stays blocked in the calling
  // thread.
  int OpenConnection(PenEventHandler handler);
  // The same with the handler given before.
  int OpenConnection();

  // Ends the delivery, resets and closes the pad. Returns 0, once the pad has been quiet for a
  // second or at once when it is unplugged. Safe after an open that failed.
  int CloseConnection();

  // Takes ink and backlight back to their resting state and clears and switches off the layers.
  // Returns the result of the last request; 0 after a line on standard output when not open.
  int ResetVelaInkDevice();

  // Sends a picture in four bands of 60 rows, whatever becomes of the earlier ones. Returns what
  // the engine returned for the last; 0, with nothing sent, for null.
  int DrawBitmap(LCD_SCREEN* picture);

  // Sets the rectangle in which the pad inks. 0, with nothing sent, when the options cannot be read
  // or for null.
  int SetInkingRegion(LCD_RECT* region);

  // Reads and writes the whole option block. 0 for null.
  int GetOptions(tagOPTIONS* options);
  int SetOptions(tagOPTIONS* options);

  // Edits the backlight: mode 0 to 3, switch 0 or 1, value 0 to 65535; higher bits are cut off.
  // When the options cannot be read, those read at open are edited instead.
  int SetBackLightOpt(int mode, int on, int value);

  // Edits the ink trace: mode 0 to 3, value 0 to 65535; higher bits are cut off. When the options
  // cannot be read, those read at open are edited instead.
  int SetInkTraceOpt(int mode, int value);

  // Edits the state, 0 to 3, of layer 0, 1 or 2. Another layer number changes nothing and still
  // sends the options. 0, with nothing sent, when the options cannot be read.
  int SetLayerState(int layer, int state);

  // Clears the display: the pad gets the value 1 when the low 16 bits of `a` or of `b` are not
  // zero, else 0.
  int ClearScrn(int a, int b);

  // Clears the ink. True, whatever the pad answers.
  bool ClearInking();

  // The size of the writing surface in inches: 3.11 and 2.28. The pad is not asked.
  double GetPhysicalX();
  double GetPhysicalY();

  // Reads the serial number, feature report 6: the kind's fixed Data1 to Data3, then the pad's
  // eight bytes last to first. False for a null pointer or a reply of no bytes.
  bool GetSerialNumber(_GUID* serial);

  // Writes the ranges of x and y, 0 to 32767, and of the pressure, 0 to 255. False, with nothing
  // written, when a pointer is null. The pad is not asked.
  bool GetDataRanges(int* minX, int* maxX, int* minY, int* maxY, int* minZ, int* maxZ);

  // Whether the reading thread is to go on, and the request that it does not. Any thread.
  bool GetRunningState() { return WorkerFrame::running(*this); }
  void SetRunningFalse() { WorkerFrame::stopRunning(*this); }

  // Runs the kind's queue on the calling thread, which it ends; returns when there is no queue.
  void procdata_routine() { WorkerFrame::processQueue<velainkusb>(); }

 private:
  friend struct WorkerFrame;
  static SharedQueue<InkCDataHandler>& Queue() { return pInkDataHandler; }
  static const WorkerLines kWorkerLines;

  void pollsignal_routine() { WorkerFrame::waitForWakeSignal(*this); }
  void usrDataHandler();

  template <class Edit>
  int editOptions(Edit edit);
  template <class Edit>
  int editOptionsOrCached(Edit edit);

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
