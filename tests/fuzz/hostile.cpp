// A pad that answers and sends anything, and a client that calls the driver's operations in any
// order. Nothing may crash, every operation returns what its header allows, and the close leaves
// nothing open.
//
// The first byte selects the pad, the second one which of its feature reports are refused. Then
// come, in the order of their use, the replies to the requests and the client's operations, to the
// end. A reply is a byte that gives its length, or refuses, and its content.
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

#include "Connection.h"
#include "Input.h"
#include "support/ScriptedPad.h"
#include "velaii.h"
#include "velainkusb.h"
#include "velausb.h"
#include "velavision.h"

namespace {

using fuzz::Connection;
using fuzz::expect;
using fuzz::Input;
using virtualpads::Bytes;

// The pad and the client take their bytes on the same thread; the vision pad's keep-alive takes
// none.
class HostilePad : public support::ScriptedPad {
 public:
  HostilePad(std::uint16_t product, Input& input)
      : ScriptedPad(product), m_input(input), m_refused(input.byte()) {}

  std::optional<Bytes> getFeature(std::uint8_t /*reportId*/) override {
    const std::uint8_t kind = m_input.byte();
    if (kind == 0xFF) return std::nullopt;
    const fuzz::ByteSpan content = m_input.take(kind);
    return Bytes(content.begin(), content.end());
  }

  bool setFeature(std::span<const std::uint8_t> report) override {
    return (m_refused >> report[0] % 8 & 1) == 0;
  }

 private:
  Input& m_input;
  std::uint8_t m_refused;
};

void expectRanges(auto& driver, bool known) {
  int ends[6] = {};
  expect(driver.GetDataRanges(&ends[0], &ends[1], &ends[2], &ends[3], &ends[4], &ends[5]) == known,
         "a pad that is open has its ranges");
  driver.GetPhysicalX();
  driver.GetPhysicalY();
}

void expectSerial(auto& driver) {
  _GUID serial{};
  const bool given = driver.GetSerialNumber(&serial);
  expect(given == (serial.Data1 != 0), "a serial number has its kind's prefix");
}

bool isOneOf(int result, auto... values) {
  return ((result == values) || ...);
}

// One operation of the driver.

void operate(velausb& driver, Input& /*input*/) {
  driver.ClearInking();
}

void operate(velaii& driver, Input& input) {
  const std::uint8_t operation = input.byte();
  PAD_INFO_REPORT information{};
  switch (operation % 2) {
    case 0:
      driver.GetPadInfo(&information);
      break;
    default:
      expectSerial(driver);
  }
}

void operate(velainkusb& driver, Input& input) {
  LCD_RECT region = input.value<LCD_RECT>();
  tagOPTIONS options{};
  int result = 0;
  switch (input.byte() % 10) {
    case 0:
      result = driver.SetInkingRegion(&region);
      break;
    case 1:
      result = driver.GetOptions(&options);
      break;
    case 2:
      options = input.value<tagOPTIONS>();
      result = driver.SetOptions(&options);
      break;
    case 3:
      result = driver.SetBackLightOpt(input.number(), input.number(), input.number());
      break;
    case 4:
      result = driver.SetInkTraceOpt(input.number(), input.number());
      break;
    case 5:
      result = driver.SetLayerState(input.number(), input.number());
      break;
    case 6:
      result = driver.ClearScrn(input.number(), input.number());
      break;
    case 7:
      result = driver.ResetVelaInkDevice();
      break;
    case 8:
      expect(isOneOf(driver.DrawBitmap(std::make_unique<LCD_SCREEN>().get()), -1, 2408),
             "a picture is sent or refused");
      break;
    default:
      expectSerial(driver);
  }
  expect(isOneOf(result, 0, 1), "an operation succeeds or fails");
}

void operate(velavision& driver, Input& input) {
  unsigned char mode = 0;
  InkRegion region{};
  DevicePadInfo information{};
  char serial[16];
  switch (input.byte() % 8) {
    case 0:
      driver.ResetVelaVisionDevice();
      break;
    case 1:
      expect(isOneOf(driver.SetMode(input.byte()), -1, 17), "a mode is sent or refused");
      break;
    case 2: {
      const int result = driver.GetMode(&mode);
      expect(result >= -1 && result <= 17, "a mode has the length of its report");
      break;
    }
    case 3:
      expect(isOneOf(driver.GetInkRegion(&region), -1, 1), "an ink region is read or refused");
      break;
    case 4:
      expect(isOneOf(driver.SetInkRegion(input.value<InkRegion>()), 0, 1),
             "an ink region is sent or refused");
      break;
    case 5:
      expect(isOneOf(driver.GetPadInfo(&information), -1, 1), "information is read or refused");
      break;
    case 6:
      expect(driver.ClearInkRegion(), "only a result of no bytes is a failure");
      break;
    default:
      driver.GetSerialNumber(serial);
  }
}

template <class Driver>
void use(std::uint16_t product, bool alwaysOpens, Input& input) {
  std::size_t reports = 0;
  {
    Connection<Driver> connection(std::make_shared<HostilePad>(product, input));
    expect(connection.opened == 1 || !alwaysOpens, "the pad opens, whatever it answers");
    expectRanges(connection.driver, true);
    while (!input.empty()) {
      const std::uint8_t choice = input.byte();
      if (choice % 2 == 0) {
        operate(connection.driver, input);
        continue;
      }
      const fuzz::ByteSpan report = input.take(choice / 8);
      if (connection.opened != 1) continue;  // nobody reads
      if (connection.bus.sendWhenRoom(connection.port, {report.begin(), report.end()})) ++reports;
    }
    if (reports > 0) connection.bus.waitUntilRead(connection.port);
  }
  expect(support::penRecorder().count() <= reports, "no report gives more than one sample");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input({data, size});
  switch (input.byte() % 4) {
    case 0:
      use<velausb>(0x12, true, input);
      break;
    case 1:
      use<velaii>(0x1F, true, input);
      break;
    case 2:
      use<velainkusb>(0x30, true, input);
      break;
    default:
      use<velavision>(0x38, false, input);
  }
  return 0;
}
