#include "velavision.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "ByteOrder.h"
#include "DataRanges.h"
#include "VisionRecordQueue.h"
#include "WorkerFrame.h"

namespace {

constexpr unsigned short kProductId = 0x38;

struct PenReport {
  std::uint8_t id;    // kPenId for pen data
  std::uint8_t kind;  // kPenKind for pen data
  Be16 x;
  Be16 y;
  Be16 pressure;
  Be32 timeStamp;  // the pad's own clock
  std::array<std::uint8_t, 5> unused12;
};
static_assert(sizeof(PenReport) == 17 && sizeof(PenReport) == inputReportSize(kProductId));

constexpr int kMinPenReportSize = 12;
constexpr std::uint8_t kPenId = 1;
constexpr std::uint8_t kPenKind = 0x80;

struct SerialReport {
  std::uint8_t id = 2;
  std::array<char, 16> serial{};
  std::array<std::uint8_t, 17> unused17{};
};
static_assert(sizeof(SerialReport) == 34);

// Nothing but an id. Reading report 3 resets the pad; sending report 18 clears the ink.
struct BareReport {
  std::uint8_t id;
  std::array<std::uint8_t, 16> unused1{};
};
static_assert(sizeof(BareReport) == 17);

constexpr std::uint8_t kResetId = 3;
constexpr std::uint8_t kClearId = 18;

struct ModeReport {
  std::uint8_t id = 4;
  std::uint8_t mode = 0;
  std::array<std::uint8_t, 15> unused2{};
};
static_assert(sizeof(ModeReport) == 17);

constexpr std::uint8_t kPenMode = 1;
constexpr std::uint8_t kClosedMode = 4;

struct PadInfoReport {
  std::uint8_t id = 12;
  Be16 maxX, maxY, maxZ;
  Be16 minX, minY, minZ;
  Be32 ratio, ratioDivisor;
  Be16 physicalX, physicalXDivisor;
  Be16 physicalY, physicalYDivisor;
  std::array<std::uint8_t, 36> unused29{};
};
static_assert(sizeof(PadInfoReport) == 65);

struct InkRegionReport {
  std::uint8_t id = 17;
  std::uint8_t flags = 0;  // kFlag1, kFlag2, kFlag3
  Be16 word1, word2, word3, word4;
  std::uint8_t byte1 = 0, byte2 = 0, byte3 = 0, byte4 = 0, byte5 = 0;
  Be16 scaled;  // in hundredths
  std::array<std::uint8_t, 17> unused17{};
};
static_assert(sizeof(InkRegionReport) == 34);

constexpr std::uint8_t kFlag1 = 0x80;
constexpr std::uint8_t kFlag2 = 0x40;
constexpr std::uint8_t kFlag3 = 0x10;
constexpr int kScale = 100;

constexpr int kOpenAttempts = 4;
constexpr unsigned kOpenPauseMicroseconds = 5000;

// Deliberate: ids repeat across the groups; CAPTION and CONTENT share theirs with two fonts.
constexpr std::array<velavision::Resource, 39> kResources{{
    {"SAN_R_13", 0},    {"SAN_B_13", 1},  {"SAN_R_16", 2},       {"SAN_B_16", 3},  {"SAN_R_20", 4},
    {"SAN_B_20", 5},    {"SAN_R_24", 6},  {"SAN_B_24", 7},       {"SAN_R_32", 8},  {"SAN_B_32", 9},
    {"MON_B_08", 10},   {"MON_B_09", 11}, {"MON_B_10", 12},      {"MON_B_12", 13}, {"MON_R_13", 14},
    {"MON_B_15", 15},   {"MON_B_16", 16}, {"MON_B_17", 17},      {"MON_B_18", 18}, {"MON_B_48", 19},
    {"COM_B_18", 20},   {"COM_B_24", 21}, {"NUM_0", 10},         {"NUM_1", 1},     {"NUM_2", 2},
    {"NUM_3", 3},       {"NUM_4", 4},     {"NUM_5", 5},          {"NUM_6", 6},     {"NUM_7", 7},
    {"NUM_8", 8},       {"NUM_9", 9},     {"FUN_BACKSPACE", 11}, {"FUN_SEC", 30},  {"FUN_OK", 40},
    {"FUN_CANCEL", 50}, {"CAPTION", 19},  {"CONTENT", 20},       {"IMAGE", 60},
}};

// The position of the last pen-down report of the process, where a lifted pen is reported.
std::atomic<std::uint16_t> prex{0};
std::atomic<std::uint16_t> prey{0};

VISPEN_DATA decoded(const PenReport& report) {
  VISPEN_DATA pen{
      .bKind = 1,
      .bTouch = report.x != 0 || report.y != 0 || report.pressure != 0,
      .wX = report.x,
      .wY = report.y,
      .wPressure = report.pressure,
      .dwTimeStamp = report.timeStamp,
  };
  if (pen.bTouch != 0) {
    prex = pen.wX;
    prey = pen.wY;
  } else {
    pen.wX = prex;
    pen.wY = prey;
  }
  return pen;
}

std::uint16_t swapped(int value) {
  return static_cast<std::uint16_t>((value & 0xFF) << 8 | value >> 8);
}

}  // namespace

velavision::velavision()
    : m_pUtil(std::make_unique<velavisionutil>()),
      m_resources(kResources),
      m_pEngine(new CVelaIoEngine(kVelaVendorId, kProductId)) {}

velavision::~velavision() {
  WorkerFrame::destroy(*this);
}

int velavision::GetNumDevices() {
  return static_cast<short>(m_pEngine->GetNumDevices(kVelaVendorId, kProductId));
}

int velavision::OpenConnection(PenEventHandler handler) {
  if (handler == nullptr) return 0;
  m_pfnCallback = handler;
  return static_cast<short>(OpenConnection());
}

int velavision::OpenConnection() {
  m_nOpenStatus = m_pEngine->OpenDevice(kVelaVendorId, kProductId);
  for (int attempt = 1; m_nOpenStatus <= 0 && attempt < kOpenAttempts; ++attempt) {
    usleep(kOpenPauseMicroseconds);
    m_nOpenStatus = m_pEngine->OpenDevice(kVelaVendorId, kProductId);
  }
  if (m_nOpenStatus <= 0) {
    fputs("Velavision:OpenConnection failed\n", stderr);
    return 0;
  }
  WorkerFrame::blockWakeSignal(*this, pthread_sigmask);
  m_pEngine->GetDataReportSize(&m_wReportSize);
  if (!setUpPad()) {
    fputs("Velavision:OpenConnection failed in USB commnication\n", stderr);
    return 0;
  }
  WorkerFrame::createQueue(*this, pVisionDataHandler, m_pfnCallback, m_pfnAuxCallback, m_pEngine);
  WorkerFrame::startReadingThread<&velavision::usrSignalHandler>(*this, "create getdata failed\n",
                                                                 stderr);
  WorkerFrame::startSignalThread<false>(*this, "create pollsignal failed\n", stderr);
  WorkerFrame::startProcessingThread<pVisionDataHandler>(*this, "create processdata failed\n",
                                                         stderr);
  return 1;
}

// False when the pad is not fit to be used; the smaller failures are only reported.
bool velavision::setUpPad() {
  if (m_wReportSize == 0) {
    fputs("Failed to get Report size!\n", stderr);
    return false;
  }
  if (!ResetVelaVisionDevice()) {
    fputs("Reset Velavision failed\n", stderr);
    return false;
  }
  SetMode(kPenMode);
  unsigned char mode = 0;
  if (GetMode(&mode) == 0) return false;  // exactly 0: an error (-1) does not stop the open
  if (mode != kPenMode) fprintf(stderr, "SetMode %d != current mode %d\n", kPenMode, mode);
  if (GetInkRegion(&m_inkRegion) != 0) {  // also after an error
    m_inkRegion.bFlag1 = 1;
    m_inkRegion.bFlag2 = 1;
    m_inkRegion.wScaled = 5;
    if (SetInkRegion(m_inkRegion) == 0) fputs("SetInkRegion failed!!\n", stderr);
  }
  GetPadInfo(&m_padInfo);
  return true;
}

int velavision::CloseConnection() {
  return WorkerFrame::close(*this, pVisionDataHandler, [this] { SetMode(kClosedMode); });
}

bool velavision::ResetVelaVisionDevice() {
  if (!isOpen()) return false;
  BareReport report{.id = kResetId};
  return m_pEngine->GetFeature(sizeof report, &report) >= 0;
}

int velavision::SetMode(unsigned char mode) {
  if (!isOpen()) return 0;
  ModeReport report{.mode = mode};
  return m_pEngine->SetFeature(sizeof report, &report);
}

int velavision::GetMode(unsigned char* mode) {
  if (!isOpen() || mode == nullptr) return -1;
  ModeReport report;
  const int result = m_pEngine->GetFeature(sizeof report, &report);
  if (result >= 0) *mode = report.mode;
  return result;
}

int velavision::GetInkRegion(InkRegion* region) {
  if (!isOpen() || region == nullptr) return 0;
  InkRegionReport report;
  const int result = m_pEngine->GetFeature(sizeof report, &report);
  if (result < 0) return result;
  *region = {
      .bFlag1 = (report.flags & kFlag1) != 0,
      .bFlag2 = (report.flags & kFlag2) != 0,
      .bFlag3 = (report.flags & kFlag3) != 0,
      .wWord4 = report.word4,
      .wWord3 = report.word3,
      .wWord2 = report.word2,
      .wWord1 = report.word1,
      .bByte1 = report.byte1,
      .bByte2 = report.byte2,
      .bByte3 = report.byte3,
      .bByte4 = report.byte4,
      .wByte5 = report.byte5,
      // Deliberate: read as little-endian, divided and swapped, which is not SetInkRegion's
      // inverse.
      .wScaled = swapped(swapped(report.scaled) / kScale),
  };
  return 1;
}

int velavision::SetInkRegion(InkRegion region) {
  if (!isOpen()) return 0;
  const int flags = (region.bFlag1 != 0 ? kFlag1 : 0) | (region.bFlag2 != 0 ? kFlag2 : 0) |
                    (region.bFlag3 != 0 ? kFlag3 : 0);
  InkRegionReport report{
      .flags = static_cast<std::uint8_t>(flags),
      .word1 = region.wWord1,
      .word2 = region.wWord2,
      .word3 = region.wWord3,
      .word4 = region.wWord4,
      .byte1 = region.bByte1,
      .byte2 = region.bByte2,
      .byte3 = region.bByte3,
      .byte4 = region.bByte4,
      .byte5 = static_cast<std::uint8_t>(region.wByte5 & 0xFF),
      .scaled = static_cast<std::uint16_t>(region.wScaled * kScale),
  };
  return m_pEngine->SetFeature(sizeof report, &report) >= 0;
}

int velavision::GetPadInfo(DevicePadInfo* info) {
  if (!isOpen() || info == nullptr) return 0;
  PadInfoReport report;
  const int result = m_pEngine->GetFeature(sizeof report, &report);
  if (result < 0) {
    fprintf(stderr, "GetPadInfoReport return false rpt size %d!!\n",
            static_cast<int>(sizeof report));
    return result;
  }
  *info = {
      .nMinX = report.minX,
      .nMaxX = report.maxX,
      .nMinY = report.minY,
      .nMaxY = report.maxY,
      .nMinZ = report.minZ,
      .nMaxZ = report.maxZ,
      .dRatio = static_cast<double>(report.ratio) / report.ratioDivisor,
      .dPhysicalX = static_cast<double>(report.physicalX) / report.physicalXDivisor,
      .dPhysicalY = static_cast<double>(report.physicalY) / report.physicalYDivisor,
  };
  return 1;
}

bool velavision::ClearInkRegion() {
  if (!isOpen()) return false;
  BareReport report{.id = kClearId};
  if (m_pEngine->SetFeature(sizeof report, &report) == 0) {
    fputs("ClearInkRegion return false\n", stderr);
    return false;
  }
  return true;
}

bool velavision::GetSerialNumber(char* buf) {
  if (!isOpen() || buf == nullptr) return false;
  SerialReport report;
  if (m_pEngine->GetFeature(sizeof report, &report) < 0) return false;
  std::copy(report.serial.begin(), report.serial.end(), buf);
  return true;
}

bool velavision::GetDataRanges(int* minX, int* maxX, int* minY, int* maxY, int* minZ, int* maxZ) {
  if (!isOpen()) return false;
  const DevicePadInfo& info = m_padInfo;
  return writeDataRanges({info.nMinX, info.nMaxX, info.nMinY, info.nMaxY, info.nMinZ, info.nMaxZ},
                         minX, maxX, minY, maxY, minZ, maxZ);
}

bool velavision::GetRunningState() {
  return WorkerFrame::running(*this);
}

void velavision::SetRunningFalse() {
  WorkerFrame::stopRunning(*this);
}

void velavision::procdata_routine() {
  SharedQueue::process(pVisionDataHandler);
}

void velavision::usrSignalHandler() {
  VISPEN_DATA pen{.bKind = 1, .bTouch = 0, .wX = 0, .wY = 0, .wPressure = 0, .dwTimeStamp = 0};
  PenReport report{};
  while (WorkerFrame::readReport(*this, report, kMinPenReportSize)) {
    if (report.kind != kPenKind) continue;
    // Deliberate: with another id the previous sample is queued once more.
    if (report.id == kPenId) pen = decoded(report);
    SharedQueue::append(pVisionDataHandler, pen);
  }
}
