#include "velaii.h"

#include <algorithm>
#include <array>
#include <cfloat>

#include "ByteOrder.h"
#include "DataRanges.h"

namespace {

constexpr unsigned short kProductId = 0x1F;

// The input report, 11 bytes; byte 0 and bytes 7 to 10 are not looked at.
constexpr int kTouch = 1;     // bit 0
constexpr int kX = 2;         // little-endian, 0 to 32767
constexpr int kY = 4;         // little-endian, 0 to 32767
constexpr int kPressure = 6;  // 0 to 127

// Feature report 10, the pad information; little-endian.
constexpr unsigned char kPadInfoId = 10;
constexpr int kPadInfoSize = 55;
constexpr int kDescWord1 = 1;
constexpr int kDescWord2 = 3;
constexpr int kDescWord3 = 5;
constexpr int kDescWord4 = 7;
constexpr int kDescByte1 = 9;
constexpr int kDescWord5 = 10;
constexpr int kDescWord6 = 12;
constexpr int kDescByte2 = 14;
constexpr int kDescValue1 = 15;  // signed 32 bits
constexpr int kDescValue2 = 19;
constexpr int kExtX = 23;
constexpr int kExtXDiv = 25;
constexpr int kExtY = 27;
constexpr int kExtYDiv = 29;
constexpr int kOff1X = 31;
constexpr int kOff1XDiv = 33;
constexpr int kOff1Y = 35;
constexpr int kOff1YDiv = 37;
constexpr int kOff2X = 39;
constexpr int kOff2XDiv = 41;
constexpr int kOff2Y = 43;
constexpr int kOff2YDiv = 45;

// Feature report 2, the serial number.
constexpr unsigned char R_SERIAL = 2;
constexpr int kSerialSize = 17;
constexpr int kSerialBytes = 9;  // eight bytes

constexpr _GUID IIROOT_SERIAL{
    0x33C72A14, 0xD348, 0x42C6, {0xA8, 0x79, 0x35, 0xD5, 0x0E, 0xDB, 0xC5, 0x4B}};

constexpr int kMaxCoordinate = 32767;
constexpr int kMaxPressure = 127;

SampleCounter count;

double ratio(unsigned short numerator, unsigned short divisor) {
  return static_cast<double>(numerator) /
         (divisor != 0 ? static_cast<double>(divisor) : DBL_EPSILON);
}

}  // namespace

constinit SharedQueue<IICDataHandler> pDataHandler;

constinit const WorkerLines velaii::kWorkerLines{
    .stream = &stdout,
    .signalThread = "create pollsignal failed\n",
    .readingThread = "create getdata_thread failed\n",
    .processingThread = "create processdata failed\n",
    .signalWait = nullptr,
};

velaii::velaii() : m_pEngine(new CVelaIoEngine(kVelaVendorId, kProductId)) {}

velaii::~velaii() {
  WorkerFrame::destroy(*this);
}

short velaii::GetNumDevices() {
  return static_cast<short>(m_pEngine->GetNumDevices(kVelaVendorId, kProductId));
}

int velaii::OpenConnection(PenEventHandler handler) {
  m_pfnCallback = handler;
  return OpenConnection();
}

short velaii::OpenConnection() {
  const auto opened = static_cast<short>(m_pEngine->OpenDevice(kVelaVendorId, kProductId));
  if (opened <= 0) {
    puts("velaii:opendevice failed");
    return opened;
  }
  WorkerFrame::prepare(*this, sigprocmask);
  WorkerFrame::startWorkers<&velaii::usrDataHandler>(*this);
  return 1;
}

int velaii::CloseConnection() {
  return WorkerFrame::close(*this, [] {});
}

bool velaii::GetDataRanges(int* minX, int* maxX, int* minY, int* maxY, int* minZ, int* maxZ) {
  return writeDataRanges({0, kMaxCoordinate, 0, kMaxCoordinate, 0, kMaxPressure}, minX, maxX, minY,
                         maxY, minZ, maxZ);
}

bool velaii::GetPadInfo(PAD_INFO_REPORT* info) {
  if (info == nullptr) return false;
  std::array<unsigned char, kPadInfoSize> report{kPadInfoId};
  // Against zero only, on purpose: -1 counts as success.
  if (m_pEngine->GetFeature(kPadInfoSize, report.data()) == 0) return false;
  const unsigned char* const bytes = report.data();
  info->wDesc1 = le16(bytes + kDescWord1);
  info->wDesc2 = le16(bytes + kDescWord2);
  info->wDesc3 = le16(bytes + kDescWord3);
  info->wDesc4 = le16(bytes + kDescWord4);
  info->bDesc1 = bytes[kDescByte1];
  info->wDesc5 = le16(bytes + kDescWord5);
  info->wDesc6 = le16(bytes + kDescWord6);
  info->bDesc2 = bytes[kDescByte2];
  info->lDesc1 = signedLe32(bytes + kDescValue1);
  info->lDesc2 = signedLe32(bytes + kDescValue2);
  info->wExtX = le16(bytes + kExtX);
  info->wExtXDiv = le16(bytes + kExtXDiv);
  info->wExtY = le16(bytes + kExtY);
  info->wExtYDiv = le16(bytes + kExtYDiv);
  info->wOff1X = le16(bytes + kOff1X);
  info->wOff1XDiv = le16(bytes + kOff1XDiv);
  info->wOff1Y = le16(bytes + kOff1Y);
  info->wOff1YDiv = le16(bytes + kOff1YDiv);
  info->wOff2X = le16(bytes + kOff2X);
  info->wOff2XDiv = le16(bytes + kOff2XDiv);
  info->wOff2Y = le16(bytes + kOff2Y);
  info->wOff2YDiv = le16(bytes + kOff2YDiv);
  return true;
}

double velaii::CalcExtent(unsigned short a, unsigned short b, unsigned short c, unsigned short d,
                          unsigned short e, unsigned short f) {
  return ratio(a, b) - ratio(c, d) - ratio(e, f);
}

double velaii::GetPhysicalX() {
  PAD_INFO_REPORT info{};
  if (!GetPadInfo(&info)) return 0.0;
  return CalcExtent(info.wExtX, info.wExtXDiv, info.wOff1X, info.wOff1XDiv, info.wOff2X,
                    info.wOff2XDiv);
}

double velaii::GetPhysicalY() {
  PAD_INFO_REPORT info{};
  if (!GetPadInfo(&info)) return 0.0;
  return CalcExtent(info.wExtY, info.wExtYDiv, info.wOff1Y, info.wOff1YDiv, info.wOff2Y,
                    info.wOff2YDiv);
}

bool velaii::GetSerialNumber(_GUID* serial) {
  if (serial == nullptr) return false;
  std::array<unsigned char, kSerialSize> report{R_SERIAL};
  if (m_pEngine->GetFeature(kSerialSize, report.data()) == 0) {
    printf("GetFeature for R_SERIAL failed (%d)\n", R_SERIAL);
    return false;
  }
  *serial = IIROOT_SERIAL;
  std::reverse_copy(report.begin() + kSerialBytes, report.end(), serial->Data4);
  return true;
}

bool velaii::ClearInking() {
  return true;
}

void velaii::usrDataHandler() {
  WorkerFrame::readCompleteReports(*this, [this](const unsigned char* report) {
    const bool touch = (report[kTouch] & kTouchFlag) != 0;
    const std::uint8_t sequence = count.next();  // also for a report that is then dropped
    if (WorkerFrame::dropsFirstReport(*this, touch)) return;
    WorkerFrame::queueSample<velaii>({
        .bReserved = 0,
        .bFlags = touch,
        .wX = signedLe16(report + kX),
        .wY = signedLe16(report + kY),
        .bPressure = report[kPressure],
        .bSequence = sequence,
    });
  });
}
