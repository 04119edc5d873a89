#include "giivela.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <type_traits>

#include "velaii.h"
#include "velainkusb.h"
#include "velausb.h"
#include "velavision.h"

velausb* m_pvelausb = nullptr;
velaii* m_pvelaii = nullptr;
velainkusb* m_pvelaink = nullptr;
velavision* m_pvelavision = nullptr;

namespace {

// The rows of the provider table; an index into it names a provider everywhere.
enum Provider { kUsb, kIi, kInk, kVision, kNumProviders };

constexpr int kNone = -1;

constexpr ProviderEntry kProviders[kNumProviders] = {
    {"7FCD95128763436E874740972EE28EFD", "Vela USB"},
    {"C1AF33B2529E4D2DB885DAF2780009EE", "Vela II"},
    {"98C174D36D2A450996DBD5B34FA7A561", "Vela Ink"},
    {"3F2DE94B14D448719DFE5359EF03652A", "Vela Vision"},
};

// The line of OpenConnection without a handler, by provider. Deliberate: they differ, misspelling
// included.
constexpr const char* kNoHandlerLines[kNumProviders] = {
    "no call back function for velaubs!!!",
    "no call back function for velaii!!!",
    "no call back function!!!",
    "Need a call back function!!!",
};

constexpr std::size_t kSerialTextSize = 100;
constexpr std::size_t kVisionSerialSize = 16;

// Calls `visit` with the driver pointer of a provider. False when the index names no provider.
template <class Visit>
bool withPointer(int provider, Visit visit) {
  switch (provider) {
    case kUsb:
      visit(m_pvelausb);
      return true;
    case kIi:
      visit(m_pvelaii);
      return true;
    case kInk:
      visit(m_pvelaink);
      return true;
    case kVision:
      visit(m_pvelavision);
      return true;
    default:
      return false;
  }
}

char* serialNumberOf(velavision& driver) {
  auto* const bytes = static_cast<char*>(std::malloc(kVisionSerialSize));
  if (driver.GetSerialNumber(bytes)) return bytes;
  std::free(bytes);
  return nullptr;
}

template <class Driver>
char* serialNumberOf(Driver& driver) {
  _GUID serial{};
  if (!driver.GetSerialNumber(&serial)) return nullptr;
  auto* const text = static_cast<char*>(std::malloc(kSerialTextSize));
  const std::uint8_t* const tail = serial.Data4;
  // The first three fields are not padded, so the length varies.
  std::snprintf(text, kSerialTextSize, "%x%x%x%.2x%.2x%.2x%.2x%.2x%.2x%.2x%.2x", serial.Data1,
                serial.Data2, serial.Data3, tail[0], tail[1], tail[2], tail[3], tail[4], tail[5],
                tail[6], tail[7]);
  return text;
}

}  // namespace

// Runs the operation on the open provider's driver and returns its result as the failure's type;
// the failure when there is no driver.
template <class Failure, class Operation>
Failure gIIVela::withDriver(Failure failure, Operation operation) {
  Failure result = failure;
  withPointer(m_curProvider, [&](auto*& driver) {
    if (driver != nullptr) result = static_cast<Failure>(operation(*driver));
  });
  return result;
}

gIIVela::gIIVela() : m_numProviders(kNumProviders), m_curProvider(kNone), m_eventHandler(nullptr) {
  std::copy(std::begin(kProviders), std::end(kProviders), m_providers);
  m_pvelausb = nullptr;
  m_pvelaii = nullptr;
  m_pvelaink = nullptr;
  m_pvelavision = nullptr;
}

gIIVela::~gIIVela() = default;

void gIIVela::CloseConnection() {
  withDriver(0, [](auto& driver) { return driver.CloseConnection(); });
}

bool gIIVela::OpenConnection() {
  return withDriver(false, [this](auto& driver) {
    if (m_eventHandler == nullptr) {
      std::puts(kNoHandlerLines[m_curProvider]);
      return false;
    }
    driver.OpenConnection(m_eventHandler);
    return true;
  });
}

short gIIVela::GetNumProviders() {
  return static_cast<short>(m_numProviders);
}

char* gIIVela::GetProviderClassID(short index) {
  return index >= 0 && index < m_numProviders ? m_providers[index].classid : nullptr;
}

char* gIIVela::GetProviderDescription(short index) {
  return index >= 0 && index < m_numProviders ? m_providers[index].description : nullptr;
}

void gIIVela::SetProviderDescription(char* /*classid*/, char* /*description*/) {}

bool gIIVela::OpenProvider(char* classid) {
  if (m_numProviders < 1) return false;
  const std::size_t length = std::strlen(classid);
  int index = 0;
  while (std::strncmp(classid, m_providers[index].classid, length) != 0)
    if (++index == m_numProviders) return false;
  const bool created = withPointer(
      index, [](auto*& driver) { driver = new std::remove_reference_t<decltype(*driver)>; });
  if (created) m_curProvider = index;
  return created;
}

void gIIVela::CloseProvider() {
  withPointer(m_curProvider, [](auto*& driver) {
    delete driver;
    driver = nullptr;
  });
  m_curProvider = kNone;
}

short gIIVela::GetNumDevices() {
  return withDriver(short{0}, [](auto& driver) { return driver.GetNumDevices(); });
}

char* gIIVela::GetSerialNumber() {
  return withDriver(static_cast<char*>(nullptr),
                    [](auto& driver) { return serialNumberOf(driver); });
}

int gIIVela::dataRange(int gIIVela::*end) {
  const bool known = withDriver(false, [this](auto& driver) {
    return driver.GetDataRanges(&m_minX, &m_maxX, &m_minY, &m_maxY, &m_minZ, &m_maxZ);
  });
  return known ? this->*end : 0;
}

int gIIVela::GetDataRangeMinX() {
  return dataRange(&gIIVela::m_minX);
}

int gIIVela::GetDataRangeMinY() {
  return dataRange(&gIIVela::m_minY);
}

int gIIVela::GetDataRangeMinZ() {
  return dataRange(&gIIVela::m_minZ);
}

int gIIVela::GetDataRangeMaxX() {
  return dataRange(&gIIVela::m_maxX);
}

int gIIVela::GetDataRangeMaxY() {
  return dataRange(&gIIVela::m_maxY);
}

int gIIVela::GetDataRangeMaxZ() {
  return dataRange(&gIIVela::m_maxZ);
}

double gIIVela::GetPhysicalX() {
  return withDriver(0.0, [](auto& driver) { return driver.GetPhysicalX(); });
}

double gIIVela::GetPhysicalY() {
  return withDriver(0.0, [](auto& driver) { return driver.GetPhysicalY(); });
}

bool gIIVela::RegisterEventHandler(PenEventHandler handler) {
  if (handler == nullptr) return false;
  m_eventHandler = handler;
  return true;
}

bool gIIVela::ClearInking() {
  return withDriver(false, [](auto& driver) {
    if constexpr (requires { driver.ClearInkRegion(); })
      return driver.ClearInkRegion();
    else
      return driver.ClearInking();
  });
}
