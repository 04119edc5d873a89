#include "velavision.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "ByteOrder.h"
#include "DataRanges.h"

namespace {

constexpr unsigned short kProductId = 0x38;

// The input report; big-endian. What follows the time stamp is not looked at.
constexpr int kInputId = 0;    // kPenId for pen data
constexpr int kInputKind = 1;  // kPenKind for pen data
constexpr int kX = 2;
constexpr int kY = 4;
constexpr int kPressure = 6;
constexpr int kTimeStamp = 8;  // 32 bits, the pad's own clock
constexpr int kMinInputSize = 12;

constexpr unsigned char kPenId = 1;
constexpr unsigned char kPenKind = 0x80;

// Feature report 2, the serial number.
constexpr unsigned char kSerialId = 2;
constexpr int kSerialSize = 34;
constexpr int kSerialBytes = 1;
constexpr int kSerialLength = 16;

// Feature report 3, reset: reading it is all.
constexpr unsigned char kResetId = 3;
constexpr int kResetSize = 17;

// Feature report 4, the mode.
constexpr unsigned char kModeId = 4;
constexpr int kModeSize = 17;
constexpr int kMode = 1;

constexpr unsigned char kPenMode = 1;
constexpr unsigned char kClosedMode = 4;

// Feature report 12, the pad information; big-endian.
constexpr unsigned char kPadInfoId = 12;
constexpr int kPadInfoSize = 65;
constexpr int kMaxX = 1;
constexpr int kMaxY = 3;
constexpr int kMaxZ = 5;
constexpr int kMinX = 7;
constexpr int kMinY = 9;
constexpr int kMinZ = 11;
constexpr int kRatio = 13;         // 32 bits
constexpr int kRatioDivisor = 17;  // 32 bits
constexpr int kPhysicalX = 21;
constexpr int kPhysicalXDivisor = 23;
constexpr int kPhysicalY = 25;
constexpr int kPhysicalYDivisor = 27;

// Feature report 17, the ink region; big-endian.
constexpr unsigned char kInkRegionId = 17;
constexpr int kInkRegionSize = 34;
constexpr int kFlags = 1;
constexpr int kWord1 = 2;
constexpr int kWord2 = 4;
constexpr int kWord3 = 6;
constexpr int kWord4 = 8;
constexpr int kByte1 = 10;
constexpr int kByte2 = 11;
constexpr int kByte3 = 12;
constexpr int kByte4 = 13;
constexpr int kByte5 = 14;
constexpr int kScaled = 15;

constexpr unsigned char kFlag1 = 0x80;
constexpr unsigned char kFlag2 = 0x40;
constexpr unsigned char kFlag3 = 0x10;
constexpr int kScale = 100;

// Feature report 18, clear; nothing but the id.
constexpr unsigned char kClearId = 18;
constexpr int kClearSize = 17;

constexpr int kOpenAttempts = 4;
constexpr unsigned kOpenPauseMicroseconds = 5000;

// Ids repeat across the groups, and CAPTION and CONTENT share theirs with two fonts: so the pad has
// them.
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

VISPEN_DATA decodedPen(const unsigned char* report) {
  VISPEN_DATA pen{
      .bKind = 1,
      .bTouch = 1,
      .wX = be16(report + kX),
      .wY = be16(report + kY),
      .wPressure = be16(report + kPressure),
      .dwTimeStamp = be32(report + kTimeStamp),
  };
  if (pen.wX != 0 || pen.wY != 0 || pen.wPressure != 0) {
    prex = pen.wX;
    prey = pen.wY;
  } else {
    pen.bTouch = 0;
    pen.wX = prex;
    pen.wY = prey;
  }
  return pen;
}

}  // namespace

constinit SharedQueue<VisionCDataHandler> pVisionDataHandler;

constinit const WorkerLines velavision::kWorkerLines{
    .stream = &stderr,
    .signalThread = "create pollsignal failed\n",
    .readingThread = "create getdata failed\n",
    .processingThread = "create processdata failed\n",
    .signalWait = nullptr,
};

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
  WorkerFrame::prepare(*this, pthread_sigmask);
  if (!setUpPad()) {
    fputs("Velavision:OpenConnection failed in USB commnication\n", stderr);
    return 0;
  }
  WorkerFrame::createQueue(*this, m_pfnCallback, m_pfnAuxCallback, m_pEngine);
  WorkerFrame::startReadingThread<&velavision::usrSignalHandler>(*this);
  WorkerFrame::startSignalThread(*this);
  WorkerFrame::startProcessingThread(*this);
  return 1;
}

// False when the pad is not fit to be used; the smaller failures are told and passed over.
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
  if (mode != kPenMode) {
    fprintf(stderr, "SetMode %d != current mode %d\n", kPenMode, mode);
  }
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
  return WorkerFrame::close(*this, [this] { SetMode(kClosedMode); });
}

bool velavision::ResetVelaVisionDevice() {
  if (!isOpen()) return false;
  std::array<unsigned char, kResetSize> report{kResetId};
  return m_pEngine->GetFeature(kResetSize, report.data()) >= 0;
}

int velavision::SetMode(unsigned char mode) {
  if (!isOpen()) return 0;
  std::array<unsigned char, kModeSize> report{kModeId};
  report[kMode] = mode;
  return m_pEngine->SetFeature(kModeSize, report.data());
}

int velavision::GetMode(unsigned char* mode) {
  if (!isOpen() || mode == nullptr) return -1;
  std::array<unsigned char, kModeSize> report{kModeId};
  const int result = m_pEngine->GetFeature(kModeSize, report.data());
  if (result >= 0) *mode = report[kMode];
  return result;
}

int velavision::GetInkRegion(InkRegion* region) {
  if (!isOpen() || region == nullptr) return 0;
  std::array<unsigned char, kInkRegionSize> report{kInkRegionId};
  const int result = m_pEngine->GetFeature(kInkRegionSize, report.data());
  if (result < 0) return result;
  const unsigned char* const bytes = report.data();
  const auto flag = [&](unsigned char mask) {
    return static_cast<std::uint8_t>((bytes[kFlags] & mask) != 0);
  };
  *region = {
      .bFlag1 = flag(kFlag1),
      .bFlag2 = flag(kFlag2),
      .bFlag3 = flag(kFlag3),
      .wWord4 = be16(bytes + kWord4),
      .wWord3 = be16(bytes + kWord3),
      .wWord2 = be16(bytes + kWord2),
      .wWord1 = be16(bytes + kWord1),
      .bByte1 = bytes[kByte1],
      .bByte2 = bytes[kByte2],
      .bByte3 = bytes[kByte3],
      .bByte4 = bytes[kByte4],
      .wByte5 = bytes[kByte5],
      // Little-endian, divided and swapped: not what SetInkRegion does backwards, and meant so.
      .wScaled = swapBytes(static_cast<std::uint16_t>(le16(bytes + kScaled) / kScale)),
  };
  return 1;
}

int velavision::SetInkRegion(InkRegion region) {
  if (!isOpen()) return 0;
  std::array<unsigned char, kInkRegionSize> report{kInkRegionId};
  unsigned char* const bytes = report.data();
  bytes[kFlags] = static_cast<unsigned char>((region.bFlag1 != 0 ? kFlag1 : 0) |
                                             (region.bFlag2 != 0 ? kFlag2 : 0) |
                                             (region.bFlag3 != 0 ? kFlag3 : 0));
  putBe16(bytes + kWord1, region.wWord1);
  putBe16(bytes + kWord2, region.wWord2);
  putBe16(bytes + kWord3, region.wWord3);
  putBe16(bytes + kWord4, region.wWord4);
  bytes[kByte1] = region.bByte1;
  bytes[kByte2] = region.bByte2;
  bytes[kByte3] = region.bByte3;
  bytes[kByte4] = region.bByte4;
  bytes[kByte5] = static_cast<unsigned char>(region.wByte5 & 0xFF);
  putBe16(bytes + kScaled, static_cast<std::uint16_t>(region.wScaled * kScale));
  return m_pEngine->SetFeature(kInkRegionSize, report.data()) >= 0;
}

int velavision::GetPadInfo(DevicePadInfo* info) {
  if (!isOpen() || info == nullptr) return 0;
  std::array<unsigned char, kPadInfoSize> report{kPadInfoId};
  const int result = m_pEngine->GetFeature(kPadInfoSize, report.data());
  if (result < 0) {
    fprintf(stderr, "GetPadInfoReport return false rpt size %d!!\n", kPadInfoSize);
    return result;
  }
  const unsigned char* const bytes = report.data();
  *info = {
      .nMinX = be16(bytes + kMinX),
      .nMaxX = be16(bytes + kMaxX),
      .nMinY = be16(bytes + kMinY),
      .nMaxY = be16(bytes + kMaxY),
      .nMinZ = be16(bytes + kMinZ),
      .nMaxZ = be16(bytes + kMaxZ),
      .dRatio = static_cast<double>(be32(bytes + kRatio)) / be32(bytes + kRatioDivisor),
      .dPhysicalX = static_cast<double>(be16(bytes + kPhysicalX)) / be16(bytes + kPhysicalXDivisor),
      .dPhysicalY = static_cast<double>(be16(bytes + kPhysicalY)) / be16(bytes + kPhysicalYDivisor),
  };
  return 1;
}

bool velavision::ClearInkRegion() {
  if (!isOpen()) return false;
  std::array<unsigned char, kClearSize> report{kClearId};
  if (m_pEngine->SetFeature(kClearSize, report.data()) == 0) {
    fputs("ClearInkRegion return false\n", stderr);
    return false;
  }
  return true;
}

bool velavision::GetSerialNumber(char* buf) {
  if (!isOpen() || buf == nullptr) return false;
  std::array<unsigned char, kSerialSize> report{kSerialId};
  if (m_pEngine->GetFeature(kSerialSize, report.data()) < 0) return false;
  std::copy_n(report.begin() + kSerialBytes, kSerialLength, buf);
  return true;
}

bool velavision::GetDataRanges(int* minX, int* maxX, int* minY, int* maxY, int* minZ, int* maxZ) {
  if (!isOpen()) return false;
  const DevicePadInfo& info = m_padInfo;
  return writeDataRanges({info.nMinX, info.nMaxX, info.nMinY, info.nMaxY, info.nMinZ, info.nMaxZ},
                         minX, maxX, minY, maxY, minZ, maxZ);
}

double velavision::GetPhysicalX() {
  return m_padInfo.dPhysicalX;
}

double velavision::GetPhysicalY() {
  return m_padInfo.dPhysicalY;
}

void velavision::usrSignalHandler() {
  VISPEN_DATA pen{.bKind = 1, .bTouch = 0, .wX = 0, .wY = 0, .wPressure = 0, .dwTimeStamp = 0};
  WorkerFrame::readReports(*this, [&pen](std::span<const unsigned char> report) {
    if (report.size() < kMinInputSize || report[kInputKind] != kPenKind) return;
    // With another id the previous sample is queued once more; this is meant.
    if (report[kInputId] == kPenId) pen = decodedPen(report.data());
    WorkerFrame::queueRecord<velavision>([&pen] {
      auto* const record = new tagVISDATA_RECORD{};  // what the sample leaves of it stays zero
      record->dwLength = tagVISDATA_RECORD::kPenLength;
      record->pen = pen;
      return record;
    });
  });
}
