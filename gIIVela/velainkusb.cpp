#include "velainkusb.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <span>
#include <vector>

#include "ByteOrder.h"
#include "DataRanges.h"

namespace {

constexpr unsigned short kProductId = 0x30;

// The input report, 8 bytes.
constexpr int kReportId = 0;
constexpr int kTouch = 1;     // bit 0
constexpr int kX = 2;         // little-endian, 0 to 32767
constexpr int kY = 4;         // little-endian, 0 to 32767
constexpr int kPressure = 6;  // 0 to 255
constexpr int kSequence = 7;  // the pad's own number of the sample

// Feature report 3, the option block.
constexpr unsigned char kOptionsId = 3;
constexpr int kOptionsSize = 17;

// Feature report 6, the serial number.
constexpr unsigned char kSerialId = 6;
constexpr int kSerialSize = 9;
constexpr int kSerialBytes = 1;  // eight bytes

// Feature report 7, a band of a picture.
constexpr unsigned char kBandId = 7;
constexpr int kBandSize = 2408;
constexpr int kBandScreen = 1;
constexpr int kBandFirstRow = 3;
constexpr int kBandPicture = 8;
constexpr int kBandRows = 60;
constexpr int kBandPictureSize = 2400;
constexpr int kBands = 4;

// Feature report 9, clear.
constexpr unsigned char kClearId = 9;
constexpr int kClearSize = 3;
constexpr int kClearValue = 1;  // little-endian

constexpr _GUID ROOT_SERIAL{
    0x99F6F7C5, 0x1557, 0x4D19, {0x91, 0xC7, 0x96, 0xA7, 0x1F, 0xCF, 0x43, 0x3D}};

constexpr int kMaxCoordinate = 32767;
constexpr int kMaxPressure = 255;
constexpr double kWidthInches = 3.11;
constexpr double kHeightInches = 2.28;

constexpr int kLayers = 3;

// The start-up pictures. An XBM picture is C source that image viewers read too; its leftmost pixel
// is the lowest bit of a byte, as on the pad.
#include "artwork/name.xbm"
#include "artwork/sign.xbm"
#include "artwork/welcome.xbm"

static_assert(sign_width == 320 && sign_height == 240);
static_assert(welcome_width == 320 && welcome_height == 240);
static_assert(name_width == 320 && name_height == 240);

LCD_SCREEN screenOf(const unsigned char (&picture)[9600]) {
  LCD_SCREEN screen{};
  screen.bScreen = 1;
  std::copy(std::begin(picture), std::end(picture), screen.bPicture);
  return screen;
}

// A picture with the rectangle to ink in.
struct DefaultBitmap {
  LCD_RECT region;
  LCD_SCREEN* picture;
};

// Made at the first use, for a client may open the pad before main begins.
std::span<DefaultBitmap, 3> defaultBitmapArray() {
  static LCD_SCREEN defaultBitmap = screenOf(sign_bits);
  static LCD_SCREEN defaultBitmap2 = screenOf(welcome_bits);
  static LCD_SCREEN defaultBitmap3 = screenOf(name_bits);
  static DefaultBitmap all[] = {
      {{20, 51, 295, 188}, &defaultBitmap},
      {{0, 0, 319, 239}, &defaultBitmap2},
      {{0, 0, 319, 239}, &defaultBitmap3},
  };
  return all;
}

std::uint8_t withBits(std::uint8_t byte, int mask, int bits) {
  return static_cast<std::uint8_t>((byte & ~mask) | (bits & mask));
}

}  // namespace

constinit SharedQueue<InkCDataHandler> pInkDataHandler;

constinit const WorkerLines velainkusb::kWorkerLines{
    .stream = &stdout,
    .signalThread = "create pollsignal failed\n",
    .readingThread = "create getdata_thread failed\n",
    .processingThread = "create processdata failed\n",
    .signalWait = "sigwait failed, result %d\n",
};

velainkusb::velainkusb() : m_pEngine(new CVelaIoEngine(kVelaVendorId, kProductId)) {}

velainkusb::~velainkusb() {
  WorkerFrame::destroy(*this);
}

int velainkusb::GetNumDevices() {
  return static_cast<short>(m_pEngine->GetNumDevices(kVelaVendorId, kProductId));
}

int velainkusb::OpenConnection(PenEventHandler handler) {
  m_pfnCallback = handler;
  return OpenConnection();
}

int velainkusb::OpenConnection() {
  m_nOpenStatus = m_pEngine->OpenDevice(kVelaVendorId, kProductId);
  if (m_nOpenStatus <= 0) return 0;
  WorkerFrame::prepare(*this, sigprocmask);
  DefaultBitmap& startUp = defaultBitmapArray()[2];
  DrawBitmap(startUp.picture);
  SetInkingRegion(&startUp.region);
  SetInkTraceOpt(2, 500);
  SetBackLightOpt(1, 1, 500);
  for (int layer = 0; layer < kLayers; ++layer) SetLayerState(layer, 1);
  GetOptions(&m_options);
  WorkerFrame::startWorkers<&velainkusb::usrDataHandler>(*this);
  return 1;
}

int velainkusb::CloseConnection() {
  return WorkerFrame::close(*this, [this] { ResetVelaInkDevice(); });
}

int velainkusb::ResetVelaInkDevice() {
  if (m_nOpenStatus <= 0) {
    printf("ResetvelaInkDevice m_handle is %d\n", m_nOpenStatus);
    return 0;
  }
  SetInkTraceOpt(0, 300);
  SetBackLightOpt(0, 1, 500);
  int result = 0;
  for (int layer = 0; layer < kLayers; ++layer) {
    ClearScrn(layer, 0);
    result = SetLayerState(layer, 0);
  }
  return result;
}

int velainkusb::DrawBitmap(LCD_SCREEN* picture) {
  if (picture == nullptr) return 0;
  std::vector<unsigned char> report(kBandSize);
  report[0] = kBandId;
  report[kBandScreen] = picture->bScreen;
  int result = 0;
  for (int band = 0; band < kBands; ++band) {
    report[kBandFirstRow] = static_cast<unsigned char>(band * kBandRows);
    std::copy_n(picture->bPicture + band * kBandPictureSize, kBandPictureSize,
                report.begin() + kBandPicture);
    result = m_pEngine->SetFeature(kBandSize, report.data());
  }
  return result;
}

int velainkusb::SetInkingRegion(LCD_RECT* region) {
  if (region == nullptr) return 0;
  return editOptions([&](tagOPTIONS& options) {
    putLe16(options.bInkingRegion, region->wLeft);
    options.bInkingRegion[2] = region->bTop;
    putLe16(options.bInkingRegion + 3, region->wRight);
    options.bInkingRegion[5] = region->bBottom;
  });
}

int velainkusb::GetOptions(tagOPTIONS* options) {
  if (options == nullptr) return 0;
  std::array<unsigned char, kOptionsSize> report{kOptionsId};
  if (m_pEngine->GetFeature(kOptionsSize, report.data()) == 0) return 0;
  std::copy(report.begin() + 1, report.end(), reinterpret_cast<unsigned char*>(options));
  return 1;
}

int velainkusb::SetOptions(tagOPTIONS* options) {
  if (options == nullptr) return 0;
  std::array<unsigned char, kOptionsSize> report{kOptionsId};
  std::copy_n(reinterpret_cast<const unsigned char*>(options), sizeof(tagOPTIONS),
              report.begin() + 1);
  return m_pEngine->SetFeature(kOptionsSize, report.data()) != 0;
}

// Reads the option block, edits it and sends it back whole.
template <class Edit>
int velainkusb::editOptions(Edit edit) {
  tagOPTIONS options{};
  if (GetOptions(&options) == 0) return 0;
  edit(options);
  return SetOptions(&options);
}

// The same; when the block cannot be read, the cached one is edited and sent instead.
template <class Edit>
int velainkusb::editOptionsOrCached(Edit edit) {
  tagOPTIONS read{};
  tagOPTIONS& options = GetOptions(&read) != 0 ? read : m_options;
  edit(options);
  return SetOptions(&options);
}

int velainkusb::SetBackLightOpt(int mode, int on, int value) {
  return editOptionsOrCached([&](tagOPTIONS& options) {
    options.bBackLight = withBits(options.bBackLight, 0x07, (on & 1) << 2 | (mode & 3));
    putLe16(options.bBackLightValue, static_cast<std::uint16_t>(value));
  });
}

int velainkusb::SetInkTraceOpt(int mode, int value) {
  return editOptionsOrCached([&](tagOPTIONS& options) {
    options.bInkTrace = withBits(options.bInkTrace, 0x03, mode);
    putLe16(options.bInkTraceValue, static_cast<std::uint16_t>(value));
  });
}

int velainkusb::SetLayerState(int layer, int state) {
  return editOptions([&](tagOPTIONS& options) {
    if (layer < 0 || layer >= kLayers) return;
    const int shift = 2 + 2 * layer;
    options.bLayerStates = withBits(options.bLayerStates, 0x03 << shift, (state & 3) << shift);
  });
}

int velainkusb::ClearScrn(int a, int b) {
  // Which layer is meant does not reach the pad; only zero or not does.
  std::array<unsigned char, kClearSize> report{kClearId};
  putLe16(report.data() + kClearValue, ((a | b) & 0xFFFF) != 0 ? 1 : 0);
  return m_pEngine->SetFeature(kClearSize, report.data()) != 0;
}

bool velainkusb::ClearInking() {
  ClearScrn(0, 0);
  return true;
}

double velainkusb::GetPhysicalX() {
  return kWidthInches;
}

double velainkusb::GetPhysicalY() {
  return kHeightInches;
}

bool velainkusb::GetSerialNumber(_GUID* serial) {
  if (serial == nullptr) return false;
  std::array<unsigned char, kSerialSize> report{kSerialId};
  if (m_pEngine->GetFeature(kSerialSize, report.data()) == 0) return false;
  *serial = ROOT_SERIAL;
  std::reverse_copy(report.begin() + kSerialBytes, report.end(), serial->Data4);
  return true;
}

bool velainkusb::GetDataRanges(int* minX, int* maxX, int* minY, int* maxY, int* minZ, int* maxZ) {
  return writeDataRanges({0, kMaxCoordinate, 0, kMaxCoordinate, 0, kMaxPressure}, minX, maxX, minY,
                         maxY, minZ, maxZ);
}

void velainkusb::usrDataHandler() {
  WorkerFrame::readCompleteReports(*this, [this](const unsigned char* report) {
    const bool touch = (report[kTouch] & kTouchFlag) != 0;
    if (WorkerFrame::dropsFirstReport(*this, touch)) return;
    WorkerFrame::queueSample<velainkusb>({
        .bReserved = report[kReportId],
        .bFlags = touch,
        .wX = signedLe16(report + kX),
        .wY = signedLe16(report + kY),
        .bPressure = report[kPressure],
        .bSequence = report[kSequence],
    });
  });
}
