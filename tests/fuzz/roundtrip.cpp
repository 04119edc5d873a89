// From the model of a pad to the driver and back: what the pen does arrives as samples of the same
// place, what a client sets is what the model holds, and what the model reports is what a client
// gets.
//
// The bytes: one that selects the pad, the model's settings, then strokes and the client's
// operations to the end.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "Connection.h"
#include "Input.h"
#include "velaii.h"
#include "velainkusb.h"
#include "velausb.h"
#include "velavision.h"
#include "virtualpads/IiPad.h"
#include "virtualpads/InkPad.h"
#include "virtualpads/UsbPad.h"
#include "virtualpads/VisionPad.h"

namespace {

using fuzz::Connection;
using fuzz::expect;
using fuzz::Input;
using support::Sample;
using virtualpads::IiPad;
using virtualpads::InkPad;
using virtualpads::PenState;
using virtualpads::UsbPad;
using virtualpads::VisionPad;

// The driver gives the bytes of the model in reverse order.
void expectSerialNumber(const auto& model, auto& driver) {
  const auto wire = model.serialNumber();
  _GUID serial{};
  expect(driver.GetSerialNumber(&serial) &&
             std::equal(wire.rbegin(), wire.rend(), std::begin(serial.Data4)),
         "the serial number is the model's");
}

double quotient(const auto& ratio) {
  return static_cast<double>(ratio.numerator) / static_cast<double>(ratio.divisor);
}

bool same(double a, double b) {
  return a == b || (std::isnan(a) && std::isnan(b));
}

// What is particular to each pad: the greatest distance of a sample from the pen, in units, and
// what the model and the driver say to each other.

struct Usb {
  using Driver = velausb;
  using Model = UsbPad;
  static constexpr double kCoarsenessX = 32767.0 / 1000;  // the raw units of the surface
  static constexpr double kCoarsenessY = 32767.0 / 500;
  static constexpr bool kReportsALift = true;

  static void set(Model& /*model*/, Input& /*input*/) {}
  static void operate(Model& /*model*/, Driver& /*driver*/, Input& /*input*/) {}
};

struct Ii {
  using Driver = velaii;
  using Model = IiPad;
  static constexpr double kCoarsenessX = 1;
  static constexpr double kCoarsenessY = 1;
  static constexpr bool kReportsALift = true;

  static void set(Model& model, Input& input) {
    model.setSerialNumber(input.value<Model::SerialNumber>());
    model.setPadInformation(input.value<Model::PadInformation>());
  }

  static void operate(Model& model, Driver& driver, Input& /*input*/) {
    expectSerialNumber(model, driver);
    const auto& [words, bytes, values, width, height] = model.padInformation();
    PAD_INFO_REPORT info{};
    expect(driver.GetPadInfo(&info), "there is information");
    expect(words == std::array<std::uint16_t, 6>{info.wDesc1, info.wDesc2, info.wDesc3, info.wDesc4,
                                                 info.wDesc5, info.wDesc6} &&
               bytes == std::array{info.bDesc1, info.bDesc2} && values[0] == info.lDesc1 &&
               values[1] == info.lDesc2,
           "the information is the model's");
    expectExtent(width, driver.GetPhysicalX());
    expectExtent(height, driver.GetPhysicalY());
  }

  static void expectExtent(const Model::Extent& extent, double inches) {
    const auto& [overall, first, second] = extent;
    if (overall.divisor == 0 || first.divisor == 0 || second.divisor == 0) return;
    expect(inches == quotient(overall) - quotient(first) - quotient(second),
           "the size is the model's");
  }
};

struct Ink {
  using Driver = velainkusb;
  using Model = InkPad;
  static constexpr double kCoarsenessX = 1;
  static constexpr double kCoarsenessY = 1;
  static constexpr bool kReportsALift = true;

  static void set(Model& model, Input& input) {
    model.setSerialNumber(input.value<Model::SerialNumber>());
  }

  static void operate(Model& model, Driver& driver, Input& input) {
    switch (input.byte() % 7) {
      case 0: {
        LCD_RECT region = input.value<LCD_RECT>();
        driver.SetInkingRegion(&region);
        expect(model.inkingRegion() ==
                   InkPad::Rectangle{region.wLeft, region.bTop, region.wRight, region.bBottom},
               "the inking region is set");
        break;
      }
      case 1: {
        const int mode = input.number();
        const int value = input.number();
        driver.SetInkTraceOpt(mode, value);
        expect(model.inkTrace() == InkPad::InkTrace{mode & 3, value & 0xFFFF},
               "the ink trace is set");
        break;
      }
      case 2: {
        const int mode = input.number();
        const int on = input.number();
        const int value = input.number();
        driver.SetBackLightOpt(mode, on, value);
        expect(model.backlight() == InkPad::Backlight{mode & 3, (on & 1) != 0, value & 0xFFFF},
               "the backlight is set");
        break;
      }
      case 3: {
        const int layer = input.byte() % InkPad::kLayers;
        const int state = input.number();
        driver.SetLayerState(layer, state);
        expect(model.layerState(layer) == (state & 3), "the layer is set");
        break;
      }
      case 4: {
        const auto picture = std::make_unique<LCD_SCREEN>();
        picture->bScreen = static_cast<std::uint8_t>(input.byte() % InkPad::kLayers);
        const std::uint8_t seed = input.byte();
        for (std::size_t i = 0; i < std::size(picture->bPicture); ++i)
          picture->bPicture[i] = static_cast<std::uint8_t>(i * seed + i / 256);
        driver.DrawBitmap(picture.get());
        expect(std::ranges::equal(model.layer(picture->bScreen), picture->bPicture),
               "the layer has the picture");
        break;
      }
      case 5: {
        tagOPTIONS options = input.value<tagOPTIONS>();
        tagOPTIONS read{};
        driver.SetOptions(&options);
        driver.GetOptions(&read);
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&read);
        expect(std::equal(bytes, bytes + sizeof read, model.options().begin()) &&
                   std::equal(bytes, bytes + sizeof read,
                              reinterpret_cast<const std::uint8_t*>(&options)),
               "the options are set and read");
        break;
      }
      default:
        driver.ClearInking();
        expectSerialNumber(model, driver);
    }
  }
};

struct Vision {
  using Driver = velavision;
  using Model = VisionPad;
  static constexpr double kCoarsenessX = 1;
  static constexpr double kCoarsenessY = 1;
  static constexpr bool kReportsALift = false;

  static void set(Model& model, Input& input) {
    model.setSerialNumber(input.value<Model::SerialNumber>());
    auto information = input.value<Model::PadInformation>();
    for (Model::Range* range : {&information.x, &information.y, &information.pressure})
      if (range->low > range->high) std::swap(range->low, range->high);
    for (Model::Ratio* ratio : {&information.width, &information.height})
      *ratio = {ratio->numerator & 0xFFFF, ratio->divisor & 0xFFFF};
    // At the origin a pen without pressure is reported like a lifted one.
    information.pressure = {1, std::max<std::uint16_t>(information.pressure.high, 1)};
    model.setPadInformation(information);
  }

  static void operate(Model& model, Driver& driver, Input& input) {
    const std::uint8_t mode = input.byte();
    unsigned char readMode = 0;
    driver.SetMode(mode);
    driver.GetMode(&readMode);
    expect(model.mode() == mode && readMode == mode, "the mode is set and read");

    char serial[16];
    expect(driver.GetSerialNumber(serial) &&
               std::ranges::equal(
                   serial, model.serialNumber(),
                   [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; }),
           "the serial number is the model's");

    const VisionPad::PadInformation& information = model.padInformation();
    DevicePadInfo info{};
    driver.GetPadInfo(&info);
    expect(info.nMinX == information.x.low && info.nMaxX == information.x.high &&
               info.nMinY == information.y.low && info.nMaxY == information.y.high &&
               info.nMinZ == information.pressure.low && info.nMaxZ == information.pressure.high,
           "the ranges are the model's");
    expect(same(info.dRatio, quotient(information.aspect)) &&
               same(info.dPhysicalX, quotient(information.width)) &&
               same(info.dPhysicalY, quotient(information.height)),
           "the ratios are the model's");

    // Flags are set by any value; the scaled value is not what was set.
    auto region = input.value<InkRegion>();
    region.bFlag1 %= 2;
    region.bFlag2 %= 2;
    region.bFlag3 %= 2;
    region.wByte5 &= 0xFF;
    driver.SetInkRegion(region);
    InkRegion read{};
    driver.GetInkRegion(&read);
    read.wScaled = region.wScaled;
    expect(std::memcmp(&read, &region, sizeof read) == 0, "the ink region is set and read");

    const int clears = model.clears();
    const int resets = model.resets();
    driver.ClearInkRegion();
    driver.ResetVelaVisionDevice();
    expect(model.clears() == clears + 1 && model.resets() == resets + 1,
           "the pad clears and resets");
  }
};

double unit(std::uint16_t value) {
  return value / 65535.0;
}

bool near(double a, double b, double distance) {
  return std::abs(a - b) <= distance;
}

template <class Kind>
void checkSamples(typename Kind::Driver& driver, const std::vector<PenState>& pens,
                  const std::vector<Sample>& samples,
                  const std::vector<std::uint32_t>& timeStamps) {
  int ends[6] = {};
  driver.GetDataRanges(&ends[0], &ends[1], &ends[2], &ends[3], &ends[4], &ends[5]);
  const auto place = [&ends](double unit, int axis) {
    const double low = ends[2 * axis];
    return low + unit * (ends[2 * axis + 1] - low);
  };
  expect(samples.size() == pens.size(), "there is one sample for each report");
  const PenState* touching = nullptr;
  for (std::size_t i = 0; i < pens.size(); ++i) {
    const PenState& pen = pens[i];
    const Sample& sample = samples[i];
    if (pen.touch) touching = &pen;
    expect((sample.touch != 0) == pen.touch, "the pen touches when it does");
    expect(near(sample.pressure, pen.touch ? place(pen.pressure, 2) : 0, 1), "it presses as hard");
    if (!Kind::kReportsALift) {
      expect(timeStamps[i] == pen.milliseconds, "the time is the pad's");
    }
    const PenState* const there = Kind::kReportsALift ? &pen : touching;
    if (there == nullptr) continue;  // where it was in another connection
    expect(near(sample.x, place(there->x, 0), Kind::kCoarsenessX) &&
               near(sample.y, place(there->y, 1), Kind::kCoarsenessY),
           "the sample is where the pen is");
  }
}

template <class Kind>
void use(Input& input) {
  const auto model = std::make_shared<typename Kind::Model>();
  Kind::set(*model, input);
  Connection<typename Kind::Driver> connection(model);
  expect(connection.opened == 1, "the pad opens");
  std::vector<PenState> pens;
  while (!input.empty()) {
    const std::uint8_t choice = input.byte();
    if (choice % 2 == 0) {
      Kind::operate(*model, connection.driver, input);
      continue;
    }
    const PenState pen{.x = unit(input.value<std::uint16_t>()),
                       .y = unit(input.value<std::uint16_t>()),
                       .pressure = unit(input.value<std::uint16_t>()),
                       .touch = pens.empty() || choice % 4 == 1,  // a first lift may be dropped
                       .milliseconds = input.value<std::uint32_t>()};
    pens.push_back(pen);
    expect(connection.bus.sendPen(connection.port, pen), "the report is sent");
  }
  expect(connection.recorder.waitFor(pens.size()), "there is a sample for each report");
  checkSamples<Kind>(connection.driver, pens, connection.recorder.samples(),
                     connection.recorder.timeStamps());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input({data, size});
  switch (input.byte() % 4) {
    case 0:
      use<Usb>(input);
      break;
    case 1:
      use<Ii>(input);
      break;
    case 2:
      use<Ink>(input);
      break;
    default:
      use<Vision>(input);
  }
  return 0;
}
