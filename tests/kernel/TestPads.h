// The pads as the kernel tests use them.
#ifndef TESTS_KERNEL_TESTPADS_H
#define TESTS_KERNEL_TESTPADS_H

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/Sample.h"
#include "virtualpads/kernel/KernelPad.h"

using support::Sample;

struct TestPad {
  const char* name;
  int provider;
  virtualpads::PadKind kind;
  // The n-th report of a pen that stays down, n from 0 to 999, and the resulting sample if it is
  // the n-th one that the program gets.
  virtualpads::Bytes (*report)(int n);
  Sample (*sample)(int n);
};

// In the order of the providers.
extern const std::array<TestPad, 4> kTestPads;

// How far a test may send ahead of the reading program. The kernel queues 63 unread reports and
// drops further ones; hidapi-libusb keeps 30.
constexpr int kUnreadReports = 24;

// A feature request.
struct Request {
  virtualpads::FeatureCall call;
  std::uint8_t reportId;
};

// Unplugs the pad when it gets the request, which is not answered.
void unplugAt(virtualpads::KernelPad& pad, Request request);

// A pad of the same vendor that the SDK has no driver for.
std::shared_ptr<virtualpads::PadModel> makeOtherPad();

// The faces on which a pad is plugged into the kernel: as a HID device, or as a USB device.
enum class Face { Uhid, Usb };

// A face, and the backend of hidapi through which the program reaches the pad. hidapi-libusb needs
// a USB device.
enum class Route { Uhid, Usb, Libusb };

constexpr Face faceOf(Route route) {
  return route == Route::Uhid ? Face::Uhid : Face::Usb;
}

// Those that this kernel offers. Without the module vhci-hcd only uhid, after a line on standard
// error.
std::vector<Face> faces();
std::vector<Route> routes();

// "Uhid", "Usb", "Libusb".
const char* nameOf(Face face);
const char* nameOf(Route route);

// Each pad, as its index in kTestPads, on each of these faces or routes.
template <class Way>
auto eachPadOn(const std::vector<Way>& ways) {
  return ::testing::Combine(::testing::Range(std::size_t{0}, kTestPads.size()),
                            ::testing::ValuesIn(ways));
}

// Names the test of a pad on a face or route, as in "UsbOnUhid".
template <class Way>
std::string nameOfPadOn(const ::testing::TestParamInfo<std::tuple<std::size_t, Way>>& parameter) {
  const auto [pad, way] = parameter.param;
  return kTestPads.at(pad).name + std::string("On") + nameOf(way);
}

// Plugs in a pad and returns when it has its node. Throws std::runtime_error if it gets none.
std::unique_ptr<virtualpads::KernelPad> plugged(std::shared_ptr<virtualpads::PadModel> model,
                                                Face face = Face::Uhid);
std::unique_ptr<virtualpads::KernelPad> plugged(virtualpads::PadKind kind, Face face = Face::Uhid);
// The same for a pad that was unplugged.
void replug(virtualpads::KernelPad& pad);
// A pad that is not plugged yet.
std::unique_ptr<virtualpads::KernelPad> makeOnFace(std::shared_ptr<virtualpads::PadModel> model,
                                                   Face face);

#endif
