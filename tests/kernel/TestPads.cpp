#include "TestPads.h"

#include <cstdio>
#include <stdexcept>
#include <utility>

#include "tests/support/ScriptedPad.h"
#include "virtualpads/kernel/UhidPad.h"
#include "virtualpads/usb/VhciPad.h"

using virtualpads::Bytes;
using virtualpads::FeatureFault;
using virtualpads::KernelPad;
using virtualpads::PadKind;
using virtualpads::PadModel;
using virtualpads::UhidPad;
using virtualpads::VhciPad;

namespace {

constexpr std::uint8_t low(int value) {
  return static_cast<std::uint8_t>(value);
}
constexpr std::uint8_t high(int value) {
  return static_cast<std::uint8_t>(value >> 8);
}

// The SDK numbers the samples of the USB pad and of the pad II from 1 to 127, then from 1 again.
constexpr unsigned cycled(int n) {
  return static_cast<unsigned>(n % 127 + 1);
}

// Raw (590, 295) is the middle of the surface; the pressure distinguishes the samples.
Bytes usbReport(int n) {
  return {0x20, low(590), high(590), low(295), high(295), low(n % 128)};
}
Sample usbSample(int n) {
  return {16383, 16383, n % 128, 1, cycled(n)};
}

Bytes iiReport(int n) {
  return {1, 0x21, low(30 * n), high(30 * n), low(20000), high(20000), 90, 0, 0, 0, 0};
}
Sample iiSample(int n) {
  return {30 * n, 20000, 90, 1, cycled(n)};
}

// The ink pad numbers its samples itself.
Bytes inkReport(int n) {
  return {1, 0x21, low(30 * n), high(30 * n), low(20000), high(20000), 200, low(n + 5)};
}
Sample inkSample(int n) {
  return {30 * n, 20000, 200, 1, static_cast<unsigned>((n + 5) % 256)};
}

Bytes visionReport(int n) {
  return {1, 0x80, high(n), low(n), high(700), low(700), high(900), low(900), 0,
          0, 0,    0,       0,      0,         0,        0,         0};
}
Sample visionSample(int n) {
  return {n, 700, 900, 1, static_cast<unsigned>((n + 1) % 256)};
}

}  // namespace

const std::array<TestPad, 4> kTestPads{{
    {"Usb", 0, PadKind::Usb, usbReport, usbSample},
    {"Ii", 1, PadKind::Ii, iiReport, iiSample},
    {"Ink", 2, PadKind::Ink, inkReport, inkSample},
    {"Vision", 3, PadKind::Vision, visionReport, visionSample},
}};

void unplugAt(KernelPad& pad, Request request) {
  pad.fail(request.call, request.reportId, FeatureFault::Unplug);
}

std::shared_ptr<PadModel> makeOtherPad() {
  virtualpads::PadDescription description = virtualpads::makePad(PadKind::Usb)->description();
  description.product = 0x43;
  description.name = "Other";
  return std::make_shared<support::ScriptedPad>(description);
}

std::vector<Face> faces() {
  if (virtualpads::vhciIsThere()) return {Face::Uhid, Face::Usb};
  std::fputs("SKIPPED: the USB face; this kernel has no vhci-hcd\n", stderr);
  return {Face::Uhid};
}

std::vector<Route> routes() {
  if (faces().size() > 1) return {Route::Uhid, Route::Usb, Route::Libusb};
  return {Route::Uhid};
}

const char* nameOf(Face face) {
  return face == Face::Uhid ? "Uhid" : "Usb";
}

const char* nameOf(Route route) {
  return route == Route::Libusb ? "Libusb" : nameOf(faceOf(route));
}

std::unique_ptr<KernelPad> makeOnFace(std::shared_ptr<PadModel> model, Face face) {
  if (face == Face::Uhid) return std::make_unique<UhidPad>(std::move(model));
  return std::make_unique<VhciPad>(std::move(model));
}

std::unique_ptr<KernelPad> plugged(std::shared_ptr<PadModel> model, Face face) {
  auto pad = makeOnFace(std::move(model), face);
  replug(*pad);
  return pad;
}

std::unique_ptr<KernelPad> plugged(PadKind kind, Face face) {
  return plugged(virtualpads::makePad(kind), face);
}

void replug(KernelPad& pad) {
  pad.plug();
  if (pad.waitForNode().empty()) throw std::runtime_error("the pad has no node");
}
