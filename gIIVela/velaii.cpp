#include "velaii.h"

#include <algorithm>
#include <array>
#include <cfloat>
#include <utility>

#include "ByteOrder.h"
#include "DataRanges.h"
#include "PenRecordQueue.h"
#include "WorkerFrame.h"

namespace {

constexpr unsigned short kProductId = 0x1F;

struct PenReport {
  std::uint8_t unused0;
  std::uint8_t flags;     // bit 0 (kTouchFlag): the pen touches the pad
  LeS16 x;                // 0 to 32767
  LeS16 y;                // 0 to 32767
  std::uint8_t pressure;  // 0 to 127
  std::array<std::uint8_t, 4> unused7;
};
static_assert(sizeof(PenReport) == 11 && sizeof(PenReport) == inputReportSize(kProductId));

// The fields are PAD_INFO_REPORT's.
struct PadInfoReport {
  std::uint8_t id = 10;
  Le16 desc1, desc2, desc3, desc4;
  std::uint8_t descByte1 = 0;
  Le16 desc5, desc6;
  std::uint8_t descByte2 = 0;
  LeS32 descValue1, descValue2;
  Le16 extX, extXDiv, extY, extYDiv;
  Le16 off1X, off1XDiv, off1Y, off1YDiv;
  Le16 off2X, off2XDiv, off2Y, off2YDiv;
  std::array<std::uint8_t, 8> unused47{};
};
static_assert(sizeof(PadInfoReport) == 55);

constexpr std::uint8_t R_SERIAL = 2;

struct SerialReport {
  std::uint8_t id = R_SERIAL;
  std::array<std::uint8_t, 8> unused1{};
  std::array<std::uint8_t, 8> serial{};
};
static_assert(sizeof(SerialReport) == 17);

constexpr _GUID IIROOT_SERIAL{
    0x33C72A14, 0xD348, 0x42C6, {0xA8, 0x79, 0x35, 0xD5, 0x0E, 0xDB, 0xC5, 0x4B}};

constexpr int kMaxCoordinate = 32767;
constexpr int kMaxPressure = 127;

std::atomic<int> count{1};

double ratio(unsigned short numerator, unsigned short divisor) {
  return static_cast<double>(numerator) /
         (divisor != 0 ? static_cast<double>(divisor) : DBL_EPSILON);
}

}  // namespace

velaii::velaii() : m_pEngine(new CVelaIoEngine(kVelaVendorId, kProductId)) {}

velaii::~velaii() {
  WorkerFrame::destroy(*this);
}

short velaii::GetNumDevices() {
  return static_cast<short>(m_pEngine->GetNumDevices(kVelaVendorId, kProductId));
}

short velaii::OpenConnection() {
  const auto opened = static_cast<short>(m_pEngine->OpenDevice(kVelaVendorId, kProductId));
  if (opened <= 0) {
    puts("velaii:opendevice failed");
    return opened;
  }
  WorkerFrame::blockWakeSignal(*this, sigprocmask);
  m_pEngine->GetDataReportSize(&m_wReportSize);
  WorkerFrame::createQueue(*this, pDataHandler, m_pfnCallback);
  WorkerFrame::startSignalThread<false>(*this, "create pollsignal failed\n");
  WorkerFrame::startReadingThread<&velaii::usrDataHandler>(*this, "create getdata_thread failed\n");
  WorkerFrame::startProcessingThread<pDataHandler>(*this, "create processdata failed\n");
  return 1;
}

int velaii::CloseConnection() {
  return WorkerFrame::close(*this, pDataHandler, [] {});
}

bool velaii::GetDataRanges(int* minX, int* maxX, int* minY, int* maxY, int* minZ, int* maxZ) {
  return writeDataRanges({0, kMaxCoordinate, 0, kMaxCoordinate, 0, kMaxPressure}, minX, maxX, minY,
                         maxY, minZ, maxZ);
}

bool velaii::GetPadInfo(PAD_INFO_REPORT* info) {
  if (info == nullptr) return false;
  PadInfoReport report;
  // Deliberate: compared with zero only, so -1 counts as success.
  if (m_pEngine->GetFeature(sizeof report, &report) == 0) return false;
  *info = {
      .bReportId = info->bReportId,
      .wDesc1 = report.desc1,
      .wDesc2 = report.desc2,
      .wDesc3 = report.desc3,
      .wDesc4 = report.desc4,
      .bDesc1 = report.descByte1,
      .wDesc5 = report.desc5,
      .wDesc6 = report.desc6,
      .bDesc2 = report.descByte2,
      .lDesc1 = report.descValue1,
      .lDesc2 = report.descValue2,
      .wExtX = report.extX,
      .wExtXDiv = report.extXDiv,
      .wExtY = report.extY,
      .wExtYDiv = report.extYDiv,
      .wOff1X = report.off1X,
      .wOff1XDiv = report.off1XDiv,
      .wOff1Y = report.off1Y,
      .wOff1YDiv = report.off1YDiv,
      .wOff2X = report.off2X,
      .wOff2XDiv = report.off2XDiv,
      .wOff2Y = report.off2Y,
      .wOff2YDiv = report.off2YDiv,
  };
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
  SerialReport report;
  if (m_pEngine->GetFeature(sizeof report, &report) == 0) {
    printf("GetFeature for R_SERIAL failed (%d)\n", R_SERIAL);
    return false;
  }
  *serial = IIROOT_SERIAL;
  std::reverse_copy(report.serial.begin(), report.serial.end(), serial->Data4);
  return true;
}

bool velaii::GetRunningState() {
  return WorkerFrame::running(*this);
}

void velaii::SetRunningFalse() {
  WorkerFrame::stopRunning(*this);
}

void velaii::procdata_routine() {
  SharedQueue::process(pDataHandler);
}

void velaii::usrDataHandler() {
  PenReport report{};
  while (WorkerFrame::readReport(*this, report)) {
    const bool touch = (report.flags & kTouchFlag) != 0;
    const std::uint8_t sequence = nextNumber(count);  // also for a report that is then dropped
    if (std::exchange(m_bFirstReport, false) && !touch) continue;
    const PEN_DATA sample{
        .bReserved = 0,
        .bFlags = touch,
        .wX = report.x,
        .wY = report.y,
        .bPressure = report.pressure,
        .bSequence = sequence,
    };
    SharedQueue::append(pDataHandler, sample);
  }
}
