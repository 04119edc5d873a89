#include "velausb.h"

#include <algorithm>
#include <utility>

#include "ByteOrder.h"
#include "DataRanges.h"
#include "PenRecordQueue.h"
#include "WorkerFrame.h"

namespace {

constexpr unsigned short kProductId = 0x12;

struct PenReport {
  std::uint8_t penState;  // kPenDown, or anything else for a pen that does not touch
  LeS16 rawX;
  LeS16 rawY;
  std::uint8_t pressure;  // 0 to 127
};
static_assert(sizeof(PenReport) == 6 && sizeof(PenReport) == inputReportSize(kProductId));

constexpr std::uint8_t kPenDown = 0x20;

// The raw coordinates of the surface's edges, mapped onto 0 to kMaxCoordinate.
struct RawRange {
  int low;
  int high;
};
constexpr RawRange kRawRangeX{90, 1090};
constexpr RawRange kRawRangeY{45, 545};

constexpr int kMaxCoordinate = 32767;
constexpr int kMaxPressure = 127;

std::atomic<int> count{1};

std::int16_t rescaled(int raw, RawRange range) {
  const int scaled = (raw * kMaxCoordinate - range.low * kMaxCoordinate) / (range.high - range.low);
  return static_cast<std::int16_t>(std::clamp(scaled, 0, kMaxCoordinate));
}

}  // namespace

velausb::velausb() : m_pEngine(new CVelaIoEngine(kVelaVendorId, kProductId)) {}

velausb::~velausb() {
  WorkerFrame::destroy(*this);
}

short velausb::GetNumDevices() {
  return static_cast<short>(m_pEngine->GetNumDevices(kVelaVendorId, kProductId));
}

short velausb::OpenConnection() {
  const int opened = m_pEngine->OpenDevice(kVelaVendorId, kProductId);
  if (opened <= 0) return static_cast<short>(opened);
  WorkerFrame::blockWakeSignal(*this, sigprocmask);
  m_pEngine->GetDataReportSize(&m_wReportSize);
  WorkerFrame::createQueue(*this, pUSBDataHandler, m_pfnCallback);
  WorkerFrame::startSignalThread<true>(*this, "create pollsignal failed\n");
  WorkerFrame::startReadingThread<&velausb::usrDataHandler>(*this, "create userData failed\n");
  WorkerFrame::startProcessingThread<pUSBDataHandler>(*this, "create processdata failed\n");
  return static_cast<short>(opened);
}

int velausb::CloseConnection() {
  return WorkerFrame::close(*this, pUSBDataHandler, [] {});
}

bool velausb::GetDataRanges(int* minX, int* maxX, int* minY, int* maxY, int* minZ, int* maxZ) {
  return writeDataRanges({0, kMaxCoordinate, 0, kMaxCoordinate, 0, kMaxPressure}, minX, maxX, minY,
                         maxY, minZ, maxZ);
}

bool velausb::GetRunningState() {
  return WorkerFrame::running(*this);
}

void velausb::SetRunningFalse() {
  WorkerFrame::stopRunning(*this);
}

void velausb::procdata_routine() {
  SharedQueue::process(pUSBDataHandler);
}

void velausb::usrDataHandler() {
  PenReport report{};
  while (WorkerFrame::readReport(*this, report)) {
    const bool touch = report.penState == kPenDown;
    const std::uint8_t sequence = nextNumber(count);  // also for a report that is then dropped
    if (std::exchange(m_bFirstReport, false) && !touch) continue;
    const PEN_DATA sample{
        .bReserved = 0,
        .bFlags = touch,
        .wX = rescaled(report.rawX, kRawRangeX),
        .wY = rescaled(report.rawY, kRawRangeY),
        .bPressure = report.pressure,
        .bSequence = sequence,
    };
    SharedQueue::append(pUSBDataHandler, sample);
  }
}
