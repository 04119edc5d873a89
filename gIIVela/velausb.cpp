#include "velausb.h"

#include <algorithm>

#include "ByteOrder.h"
#include "DataRanges.h"

namespace {

constexpr unsigned short kProductId = 0x12;

// The input report, 6 bytes without a report id.
constexpr int kPenState = 0;  // kPenDown, or anything else for a pen that does not touch
constexpr int kRawX = 1;      // signed, little-endian
constexpr int kRawY = 3;      // signed, little-endian
constexpr int kPressure = 5;  // 0 to 127

constexpr unsigned char kPenDown = 0x20;

// The raw coordinates of the surface's edges, mapped onto 0 to kMaxCoordinate.
struct RawRange {
  int low;
  int high;
};
constexpr RawRange kRawRangeX{90, 1090};
constexpr RawRange kRawRangeY{45, 545};

constexpr int kMaxCoordinate = 32767;
constexpr int kMaxPressure = 127;
constexpr double kWidthInches = 3.685;
constexpr double kHeightInches = 2.23;

SampleCounter count;

std::int16_t rescaled(int raw, RawRange range) {
  const int scaled = (raw * kMaxCoordinate - range.low * kMaxCoordinate) / (range.high - range.low);
  return static_cast<std::int16_t>(std::clamp(scaled, 0, kMaxCoordinate));
}

}  // namespace

constinit SharedQueue<CDataHandler> pUSBDataHandler;

constinit const WorkerLines velausb::kWorkerLines{
    .stream = &stdout,
    .signalThread = "create pollsignal failed\n",
    .readingThread = "create userData failed\n",
    .processingThread = "create processdata failed\n",
    .signalWait = "sigwait failed, result %d\n",
};

velausb::velausb() : m_pEngine(new CVelaIoEngine(kVelaVendorId, kProductId)) {}

velausb::~velausb() {
  WorkerFrame::destroy(*this);
}

short velausb::GetNumDevices() {
  return static_cast<short>(m_pEngine->GetNumDevices(kVelaVendorId, kProductId));
}

int velausb::OpenConnection(PenEventHandler handler) {
  m_pfnCallback = handler;
  return OpenConnection();
}

short velausb::OpenConnection() {
  const int opened = m_pEngine->OpenDevice(kVelaVendorId, kProductId);
  if (opened <= 0) return static_cast<short>(opened);
  WorkerFrame::prepare(*this, sigprocmask);
  WorkerFrame::startWorkers<&velausb::usrDataHandler>(*this);
  return static_cast<short>(opened);
}

int velausb::CloseConnection() {
  return WorkerFrame::close(*this, [] {});
}

bool velausb::GetDataRanges(int* minX, int* maxX, int* minY, int* maxY, int* minZ, int* maxZ) {
  return writeDataRanges({0, kMaxCoordinate, 0, kMaxCoordinate, 0, kMaxPressure}, minX, maxX, minY,
                         maxY, minZ, maxZ);
}

double velausb::GetPhysicalX() {
  return kWidthInches;
}

double velausb::GetPhysicalY() {
  return kHeightInches;
}

bool velausb::GetSerialNumber(_GUID* /*serial*/) {
  return false;
}

bool velausb::ClearInking() {
  return true;
}

void velausb::usrDataHandler() {
  WorkerFrame::readCompleteReports(*this, [this](const unsigned char* report) {
    const bool touch = report[kPenState] == kPenDown;
    const std::uint8_t sequence = count.next();  // also for a report that is then dropped
    if (WorkerFrame::dropsFirstReport(*this, touch)) return;
    WorkerFrame::queueSample<velausb>({
        .bReserved = 0,
        .bFlags = touch,
        .wX = rescaled(signedLe16(report + kRawX), kRawRangeX),
        .wY = rescaled(signedLe16(report + kRawY), kRawRangeY),
        .bPressure = report[kPressure],
        .bSequence = sequence,
    });
  });
}
