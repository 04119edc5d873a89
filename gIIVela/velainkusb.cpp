#include "velainkusb.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <memory>
#include <span>
#include <utility>

#include "ByteOrder.h"
#include "DataRanges.h"
#include "PenRecordQueue.h"
#include "WorkerFrame.h"

namespace {

constexpr unsigned short kProductId = 0x30;

struct PenReport {
  std::uint8_t id;
  std::uint8_t flags;  // bit 0 (kTouchFlag): the pen touches the pad
  LeS16 x;             // 0 to 32767
  LeS16 y;             // 0 to 32767
  std::uint8_t pressure;
  std::uint8_t sequence;  // the pad's own number of the sample
};
static_assert(sizeof(PenReport) == 8 && sizeof(PenReport) == inputReportSize(kProductId));

struct OptionsReport {
  std::uint8_t id = 3;
  tagOPTIONS options{};
};
static_assert(sizeof(OptionsReport) == 17);

// An LCD_RECT in the option block.
struct InkingRegion {
  Le16 left;
  std::uint8_t top;
  Le16 right;
  std::uint8_t bottom;
};
static_assert(sizeof(InkingRegion) == sizeof(tagOPTIONS::bInkingRegion));

struct SerialReport {
  std::uint8_t id = 6;
  std::array<std::uint8_t, 8> serial{};
};
static_assert(sizeof(SerialReport) == 9);

// A quarter of a picture.
struct BandReport {
  std::uint8_t id = 7;
  std::uint8_t screen = 0;
  std::uint8_t unused2 = 0;
  std::uint8_t firstRow = 0;
  std::array<std::uint8_t, 4> unused4{};
  std::array<std::uint8_t, 2400> picture{};
};
static_assert(sizeof(BandReport) == 2408);

constexpr int kBands = 4;
constexpr int kBandRows = 60;

struct ClearReport {
  std::uint8_t id = 9;
  Le16 value;
};
static_assert(sizeof(ClearReport) == 3);

constexpr _GUID ROOT_SERIAL{
    0x99F6F7C5, 0x1557, 0x4D19, {0x91, 0xC7, 0x96, 0xA7, 0x1F, 0xCF, 0x43, 0x3D}};

constexpr int kMaxCoordinate = 32767;
constexpr int kMaxPressure = 255;

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

// Puts a value into a field of the option block.
template <class Wire, std::size_t size>
void put(std::uint8_t (&field)[size], const Wire& value) {
  static_assert(sizeof(Wire) == size);
  std::copy_n(reinterpret_cast<const std::uint8_t*>(&value), size, field);
}

}  // namespace

velainkusb::velainkusb() : m_pEngine(new CVelaIoEngine(kVelaVendorId, kProductId)) {}

velainkusb::~velainkusb() {
  WorkerFrame::destroy(*this);
}

int velainkusb::GetNumDevices() {
  return static_cast<short>(m_pEngine->GetNumDevices(kVelaVendorId, kProductId));
}

int velainkusb::OpenConnection() {
  m_nOpenStatus = m_pEngine->OpenDevice(kVelaVendorId, kProductId);
  if (m_nOpenStatus <= 0) return 0;
  WorkerFrame::blockWakeSignal(*this, sigprocmask);
  m_pEngine->GetDataReportSize(&m_wReportSize);
  DefaultBitmap& startUp = defaultBitmapArray()[2];
  DrawBitmap(startUp.picture);
  SetInkingRegion(&startUp.region);
  SetInkTraceOpt(2, 500);
  SetBackLightOpt(1, 1, 500);
  for (int layer = 0; layer < kLayers; ++layer) SetLayerState(layer, 1);
  GetOptions(&m_options);
  WorkerFrame::createQueue(*this, pInkDataHandler, m_pfnCallback);
  WorkerFrame::startSignalThread<true>(*this, "create pollsignal failed\n");
  WorkerFrame::startReadingThread<&velainkusb::usrDataHandler>(*this,
                                                               "create getdata_thread failed\n");
  WorkerFrame::startProcessingThread<pInkDataHandler>(*this, "create processdata failed\n");
  return 1;
}

int velainkusb::CloseConnection() {
  return WorkerFrame::close(*this, pInkDataHandler, [this] {
    if (m_nOpenStatus > 0) ResetVelaInkDevice();
  });
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
  const auto report = std::make_unique<BandReport>();
  report->screen = picture->bScreen;
  const std::uint8_t* rows = picture->bPicture;
  int result = 0;
  for (int band = 0; band < kBands; ++band) {
    report->firstRow = static_cast<std::uint8_t>(band * kBandRows);
    std::copy_n(rows, report->picture.size(), report->picture.begin());
    rows += report->picture.size();
    result = m_pEngine->SetFeature(sizeof *report, report.get());
  }
  return result;
}

int velainkusb::GetOptions(tagOPTIONS* options) {
  if (options == nullptr) return 0;
  OptionsReport report;
  if (m_pEngine->GetFeature(sizeof report, &report) == 0) return 0;
  *options = report.options;
  return 1;
}

int velainkusb::SetOptions(tagOPTIONS* options) {
  if (options == nullptr) return 0;
  OptionsReport report{.options = *options};
  return m_pEngine->SetFeature(sizeof report, &report) != 0;
}

// Reads the option block, edits it and sends it back whole. When it cannot be read, the cached one
// is edited and sent instead, if there is one.
template <class Edit>
int velainkusb::editOptions(tagOPTIONS* cached, Edit edit) {
  tagOPTIONS read{};
  tagOPTIONS* const options = GetOptions(&read) != 0 ? &read : cached;
  if (options == nullptr) return 0;
  edit(*options);
  return SetOptions(options);
}

int velainkusb::SetInkingRegion(LCD_RECT* region) {
  if (region == nullptr) return 0;
  return editOptions(nullptr, [&](tagOPTIONS& options) {
    put(options.bInkingRegion, InkingRegion{.left = region->wLeft,
                                            .top = region->bTop,
                                            .right = region->wRight,
                                            .bottom = region->bBottom});
  });
}

int velainkusb::SetBackLightOpt(int mode, int on, int value) {
  return editOptions(&m_options, [&](tagOPTIONS& options) {
    options.bBackLight = withBits(options.bBackLight, 0x07, (on & 1) << 2 | (mode & 3));
    put(options.bBackLightValue, Le16(static_cast<std::uint16_t>(value)));
  });
}

int velainkusb::SetInkTraceOpt(int mode, int value) {
  return editOptions(&m_options, [&](tagOPTIONS& options) {
    options.bInkTrace = withBits(options.bInkTrace, 0x03, mode);
    put(options.bInkTraceValue, Le16(static_cast<std::uint16_t>(value)));
  });
}

int velainkusb::SetLayerState(int layer, int state) {
  return editOptions(nullptr, [&](tagOPTIONS& options) {
    if (layer < 0 || layer >= kLayers) return;
    const int shift = 2 + 2 * layer;
    options.bLayerStates = withBits(options.bLayerStates, 0x03 << shift, (state & 3) << shift);
  });
}

int velainkusb::ClearScrn(int a, int b) {
  // Deliberate: the layer does not reach the pad, only whether it is zero.
  ClearReport report;
  report.value = ((a | b) & 0xFFFF) != 0 ? 1 : 0;
  return m_pEngine->SetFeature(sizeof report, &report) != 0;
}

bool velainkusb::ClearInking() {
  ClearScrn(0, 0);
  return true;
}

bool velainkusb::GetSerialNumber(_GUID* serial) {
  if (serial == nullptr) return false;
  SerialReport report;
  if (m_pEngine->GetFeature(sizeof report, &report) == 0) return false;
  *serial = ROOT_SERIAL;
  std::reverse_copy(report.serial.begin(), report.serial.end(), serial->Data4);
  return true;
}

bool velainkusb::GetDataRanges(int* minX, int* maxX, int* minY, int* maxY, int* minZ, int* maxZ) {
  return writeDataRanges({0, kMaxCoordinate, 0, kMaxCoordinate, 0, kMaxPressure}, minX, maxX, minY,
                         maxY, minZ, maxZ);
}

bool velainkusb::GetRunningState() {
  return WorkerFrame::running(*this);
}

void velainkusb::SetRunningFalse() {
  WorkerFrame::stopRunning(*this);
}

void velainkusb::procdata_routine() {
  SharedQueue::process(pInkDataHandler);
}

void velainkusb::usrDataHandler() {
  PenReport report{};
  while (WorkerFrame::readReport(*this, report)) {
    const bool touch = (report.flags & kTouchFlag) != 0;
    if (std::exchange(m_bFirstReport, false) && !touch) continue;
    const PEN_DATA sample{
        .bReserved = report.id,
        .bFlags = touch,
        .wX = report.x,
        .wY = report.y,
        .bPressure = report.pressure,
        .bSequence = report.sequence,
    };
    SharedQueue::append(pInkDataHandler, sample);
  }
}
