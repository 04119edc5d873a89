// The one place that touches USB: counts the attached pads of one vendor and product, opens one,
// and exchanges its reports, through hidapi.
#ifndef GIIVELA_VELAIOENGINE_H
#define GIIVELA_VELAIOENGINE_H

#include "HidCallGate.h"

struct hid_device_;
typedef struct hid_device_ hid_device;  // as in hidapi's header

// Every pad's USB vendor id.
inline constexpr unsigned short kVelaVendorId = 0x04DF;

// The length in bytes of one input report of a product; 0 for an unknown product.
constexpr unsigned short inputReportSize(int product) {
  switch (product) {
    case 0x12:
      return 6;
    case 0x1F:
      return 11;
    case 0x38:
      return 17;
    case 0x30:
    case 0x43:  // Deliberate: no driver here is for these last three products.
    case 0x57:
    case 0x6001:
      return 8;
    default:
      return 0;
  }
}

// One engine should be alive at a time: its destructor shuts hidapi down for the whole process.
//
// Threads: OpenDevice, CloseDevice and the destructor belong to the owner, which has stopped all
// other use of the engine by then. GetFeature, SetFeature, ReadFile and WriteFile may be called on
// several threads at once while the device is open, one thread reading.
class CVelaIoEngine {
 public:
  // Remembers the USB ids and initialises hidapi. No device is opened.
  CVelaIoEngine(unsigned short vid, unsigned short pid);
  // Closes the device if one is open, then shuts hidapi down.
  virtual ~CVelaIoEngine();
  CVelaIoEngine(const CVelaIoEngine&) = delete;
  CVelaIoEngine& operator=(const CVelaIoEngine&) = delete;

  // Opens the first attached device with these ids. Its reads then block up to their time-out.
  // Returns 1, or -1 when there is none or its node may not be opened. Remembers the ids in either
  // case. A device that was open is replaced without being closed.
  virtual int OpenDevice(unsigned short vid, unsigned short pid);

  // Closes the device if one is open. Returns 0.
  virtual int CloseDevice();

  // The number of attached HID interfaces with exactly these ids, 0 or more; a pad with several
  // interfaces counts several times. Works with and without an open device.
  int GetNumDevices(unsigned short vid, unsigned short pid);

  // Requests a feature report: buffer[0] holds its report id on entry, and `length`, in bytes,
  // counts that byte. Returns the number of bytes that the pad sent, the id included, or -1: on an
  // error of the device, a null buffer, length 0, or with no device open. What the pad did not send
  // of the buffer stays as it was.
  int GetFeature(unsigned short length, void* buffer);

  // Sends a feature report, `length` bytes with the report id first. Returns what hidapi returns:
  // the number of bytes sent, or -1 in the same cases as GetFeature.
  int SetFeature(unsigned short length, void* buffer);

  // Writes the length in bytes of one input report of the remembered product to *size (not null)
  // and returns true; 0 and false for an unknown product.
  bool GetDataReportSize(unsigned short* size);

  // Waits up to 1000 ms for an input report and reads up to `length` bytes of it into the buffer.
  // Returns true when at least one byte came, with their number in *bytesRead. False on a time-out
  // and on an error alike, with *bytesRead untouched; also, after a line on standard output, when
  // no device is open, the buffer is null or the length is below 1.
  bool ReadFile(unsigned char* buffer, int length, int* bytesRead);

  // Writes an output report, `length` bytes with the report id first (0 when the reports have
  // none). Returns true when at least one byte was written, with their number in *bytesWritten.
  // False otherwise, as ReadFile.
  bool WriteFile(unsigned char* buffer, int length, int* bytesWritten);

 private:
  hid_device* m_handle = nullptr;  // the open device, or null
  int m_vid;
  int m_pid;
  int m_timeout = 1000;  // of a read, in milliseconds
  HidCallGate m_gate;
};

#endif
