// Misbehaving pads: every feature request of every sequence of requests meets every fault, with a
// defined outcome. Bytes that a pad did not send are zero.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "support/PadTest.h"
#include "support/ScriptedPad.h"
#include "support/TimeControl.h"
#include "support/Written.h"
#include "velaii.h"
#include "velainkusb.h"
#include "velavision.h"
#include "virtualpads/InkPad.h"
#include "virtualpads/VisionPad.h"

namespace {

using support::Bytes;
using support::CallRecord;
using support::Fault;
using support::hex;
using support::HidCall;
using support::kNothingWritten;
using support::recordPen;
using support::ScriptedPad;
using support::Written;
using support::writtenBy;
using testing::ElementsAre;
using virtualpads::InkPad;
using virtualpads::PadModel;
using virtualpads::VisionPad;

// What happens to a request. A request that returns nothing or an error does not reach the pad; one
// that is cut does.
enum class Mishap {
  Nothing,  // returns 0
  Error,    // returns -1
  CutTo1,   // delivers that many bytes
  CutTo9,
  CutTo16,
  Late,  // does not return for a while
  Unplug,
};

Fault faultFor(Mishap mishap) {
  switch (mishap) {
    case Mishap::Nothing:
      return {Fault::Kind::Return, 0};
    case Mishap::Error:
      return {Fault::Kind::Return, -1};
    case Mishap::CutTo1:
      return {Fault::Kind::Short, 1};
    case Mishap::CutTo9:
      return {Fault::Kind::Short, 9};
    case Mishap::CutTo16:
      return {Fault::Kind::Short, 16};
    case Mishap::Late:
      return {Fault::Kind::Late, 0};
    case Mishap::Unplug:
      return {Fault::Kind::Unplug, 0};
  }
  return {};
}

const char* nameOf(Mishap mishap) {
  constexpr const char* kNames[] = {"Nothing", "Error", "CutTo1", "CutTo9",
                                    "CutTo16", "Late",  "Unplug"};
  return kNames[static_cast<int>(mishap)];
}

// Leaves bytes on the stack that a request with an uninitialised buffer would expose.
[[gnu::noinline]] void dirtyTheStack() {
  volatile unsigned char garbage[8192];
  for (volatile unsigned char& byte : garbage) byte = 0xCC;
}

class FeatureFaultsTest : public support::PadTest {
 protected:
  // No keep-alive comes between the requests.
  FeatureFaultsTest() { time.stopProcessorTime(0); }

  // Runs `sequence` in a thread while its n-th request of that kind meets the mishap, and returns
  // what was written.
  template <class Sequence>
  Written meeting(Mishap mishap, HidCall request, int nth, Sequence sequence) {
    bus.clearLog();
    bus.fail(request, faultFor(mishap), nth);
    const Written written = writtenBy([&] {
      std::thread client([&] {
        dirtyTheStack();
        sequence();
      });
      if (mishap == Mishap::Late && bus.waitForBegun(request, nth)) bus.releaseLateCalls();
      client.join();
    });
    bus.clearFaults();
    return written;
  }

  // The feature requests in their order: "g" or "s" for get or set, and the report id.
  std::vector<std::string> requests() {
    std::vector<std::string> result;
    for (const CallRecord& call : bus.calls({HidCall::GetFeature, HidCall::SendFeature})) {
      result.push_back((call.call == HidCall::GetFeature ? "g" : "s") +
                       std::to_string(call.bytes.at(0)));
    }
    return result;
  }

  support::TimeControl time;
};

// The ink pad: 17 requests at open, 13 at close.

const std::vector<std::string> kInkOpening = {"s7", "s7", "s7", "s7", "g3", "s3", "g3", "s3", "g3",
                                              "s3", "g3", "s3", "g3", "s3", "g3", "s3", "g3"};
const std::vector<std::string> kInkClosing = {"g3", "s3", "g3", "s3", "s9", "g3", "s3",
                                              "s9", "g3", "s3", "s9", "g3", "s3"};

// The pad's option block before the open, and after an open without a fault.
constexpr const char* kBeforeOpen = "A0 FC 11 22 A4 31 32 33 34 35 36 F8 44 55 03 AF";
constexpr const char* kOpened = "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 57 AF";
// The block that is sent to the pad while open, and the block after a close without a fault.
constexpr const char* kBeforeClose = "B0 FF 12 23 B4 41 42 43 44 45 46 FF 54 65 FF BF";
constexpr const char* kClosed = "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 03 BF";

// A request and what is in the option block at the end of the sequence when it meets a mishap.
struct InkRequest {
  int position;        // in the sequence, from 0
  const char* unread;  // Nothing; the option block is not read
  const char* empty;   // Error and CutTo1; the option block that is read is all zero
  const char* half;    // CutTo9; bytes 8 to 15 are zero
  const char* most;    // CutTo16; byte 15 is zero
  const char* frozen;  // Unplug; nothing more reaches the pad
  bool dropsNext;      // with the block unread, the request that follows is not made
};

constexpr InkRequest kInkOpenRequests[] = {
    // The four bands of the picture
    {0, kOpened, kOpened, kOpened, kOpened, kBeforeOpen, false},
    {1, kOpened, kOpened, kOpened, kOpened, kBeforeOpen, false},
    {2, kOpened, kOpened, kOpened, kOpened, kBeforeOpen, false},
    {3, kOpened, kOpened, kOpened, kOpened, kBeforeOpen, false},
    // The inking region
    {4, "A0 FE F4 01 A4 31 32 33 34 35 36 FD F4 01 57 AF",
     "00 02 F4 01 00 00 00 00 3F 01 EF 05 F4 01 54 00",
     "A0 FE F4 01 A4 00 00 00 3F 01 EF 05 F4 01 54 00",
     "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 57 00", kBeforeOpen, true},
    {5, "A0 FE F4 01 A4 31 32 33 34 35 36 FD F4 01 57 AF",
     "A0 FE F4 01 A4 31 32 33 34 35 36 FD F4 01 57 AF", kOpened, kOpened, kBeforeOpen, false},
    // The ink trace; the fallback is the cached block, which is all zero before the open's end
    {6, "00 02 F4 01 00 00 00 00 00 00 00 05 F4 01 54 00",
     "00 02 F4 01 00 00 00 00 00 00 00 05 F4 01 54 00",
     "A0 FE F4 01 A4 00 00 00 00 00 00 05 F4 01 54 00",
     "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 57 00",
     "A0 FC 11 22 A4 00 00 00 3F 01 EF F8 44 55 03 AF", false},
    {7, "A0 FC 11 22 A4 00 00 00 3F 01 EF FD F4 01 57 AF",
     "A0 FC 11 22 A4 00 00 00 3F 01 EF FD F4 01 57 AF", kOpened, kOpened,
     "A0 FC 11 22 A4 00 00 00 3F 01 EF F8 44 55 03 AF", false},
    // The backlight
    {8, "00 00 00 00 00 00 00 00 00 00 00 05 F4 01 54 00",
     "00 00 00 00 00 00 00 00 00 00 00 05 F4 01 54 00",
     "A0 FE F4 01 A4 00 00 00 00 00 00 05 F4 01 54 00",
     "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 57 00",
     "A0 FE F4 01 A4 00 00 00 3F 01 EF F8 44 55 03 AF", false},
    {9, "A0 FE F4 01 A4 00 00 00 3F 01 EF F8 44 55 57 AF",
     "A0 FE F4 01 A4 00 00 00 3F 01 EF F8 44 55 57 AF", kOpened, kOpened,
     "A0 FE F4 01 A4 00 00 00 3F 01 EF F8 44 55 03 AF", false},
    // Layer 0
    {10, "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 53 AF",
     "00 00 00 00 00 00 00 00 00 00 00 00 00 00 54 00",
     "A0 FE F4 01 A4 00 00 00 00 00 00 00 00 00 54 00",
     "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 57 00",
     "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 03 AF", true},
    {11, "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 53 AF",
     "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 53 AF", kOpened, kOpened,
     "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 03 AF", false},
    // Layer 1
    {12, "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 47 AF",
     "00 00 00 00 00 00 00 00 00 00 00 00 00 00 50 00",
     "A0 FE F4 01 A4 00 00 00 00 00 00 00 00 00 50 00",
     "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 57 00",
     "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 07 AF", true},
    {13, "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 47 AF",
     "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 47 AF", kOpened, kOpened,
     "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 07 AF", false},
    // Layer 2
    {14, "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 17 AF",
     "00 00 00 00 00 00 00 00 00 00 00 00 00 00 40 00",
     "A0 FE F4 01 A4 00 00 00 00 00 00 00 00 00 40 00",
     "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 57 00",
     "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 17 AF", true},
    {15, "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 17 AF",
     "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 17 AF", kOpened, kOpened,
     "A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 17 AF", false},
    // The cached block
    {16, kOpened, kOpened, kOpened, kOpened, kOpened, false},
};

constexpr InkRequest kInkCloseRequests[] = {
    // The ink trace; the fallback is the block as it was at open, with that edit
    {0, "A0 FC 2C 01 A4 00 00 00 3F 01 EF FC F4 01 03 AF",
     "00 00 2C 01 00 00 00 00 00 00 00 04 F4 01 00 00",
     "B0 FC 2C 01 B4 41 42 43 00 00 00 04 F4 01 00 00",
     "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 03 00", kBeforeClose, false},
    {1, "B0 FF 12 23 B4 41 42 43 44 45 46 FC F4 01 03 BF",
     "B0 FF 12 23 B4 41 42 43 44 45 46 FC F4 01 03 BF", kClosed, kClosed, kBeforeClose, false},
    // The backlight
    {2, "A0 FE F4 01 A4 00 00 00 3F 01 EF FC F4 01 03 AF",
     "00 00 00 00 00 00 00 00 00 00 00 04 F4 01 00 00",
     "B0 FC 2C 01 B4 41 42 43 00 00 00 04 F4 01 00 00",
     "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 03 00",
     "B0 FC 2C 01 B4 41 42 43 44 45 46 FF 54 65 FF BF", false},
    {3, "B0 FC 2C 01 B4 41 42 43 44 45 46 FF 54 65 03 BF",
     "B0 FC 2C 01 B4 41 42 43 44 45 46 FF 54 65 03 BF", kClosed, kClosed,
     "B0 FC 2C 01 B4 41 42 43 44 45 46 FF 54 65 FF BF", false},
    // Layer 0, cleared first
    {4, kClosed, kClosed, kClosed, kClosed, "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 FF BF",
     false},
    {5, "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 0F BF",
     "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
     "B0 FC 2C 01 B4 41 42 43 00 00 00 00 00 00 00 00",
     "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 03 00",
     "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 FF BF", true},
    {6, "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 0F BF",
     "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 0F BF", kClosed, kClosed,
     "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 FF BF", false},
    // Layer 1
    {7, kClosed, kClosed, kClosed, kClosed, "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 F3 BF",
     false},
    {8, "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 33 BF",
     "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
     "B0 FC 2C 01 B4 41 42 43 00 00 00 00 00 00 00 00",
     "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 03 00",
     "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 F3 BF", true},
    {9, "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 33 BF",
     "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 33 BF", kClosed, kClosed,
     "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 F3 BF", false},
    // Layer 2
    {10, kClosed, kClosed, kClosed, kClosed, "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 C3 BF",
     false},
    {11, "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 C3 BF",
     "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00",
     "B0 FC 2C 01 B4 41 42 43 00 00 00 00 00 00 00 00",
     "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 03 00",
     "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 C3 BF", true},
    {12, "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 C3 BF",
     "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 C3 BF", kClosed, kClosed,
     "B0 FC 2C 01 B4 41 42 43 44 45 46 FC F4 01 C3 BF", false},
};

const auto kAllMishaps =
    testing::Values(Mishap::Nothing, Mishap::Error, Mishap::CutTo1, Mishap::CutTo9, Mishap::CutTo16,
                    Mishap::Late, Mishap::Unplug);

class InkFaultsTest : public FeatureFaultsTest,
                      public testing::WithParamInterface<std::tuple<InkRequest, Mishap>> {
 protected:
  InkFaultsTest() { plug(model); }

  // What the pad holds, read bypassing the driver.
  void setOptions(std::string_view block) {
    bus.withModel(
        port, [&](PadModel& pad) { EXPECT_TRUE(pad.setFeature(hex("03 " + std::string(block)))); });
  }

  Bytes options() {
    Bytes result;
    bus.withModel(
        port, [&](PadModel&) { result.assign(model->options().begin(), model->options().end()); });
    return result;
  }

  // Lets the parameter's request in `sequence`, which makes `planned` requests, meet its mishap.
  template <class Sequence>
  void expectOutcome(const std::vector<std::string>& planned, const char* whenWell,
                     Sequence sequence) {
    const auto& [request, mishap] = GetParam();
    const auto position = static_cast<std::size_t>(request.position);
    const char direction = planned.at(position).front();
    int nth = 0;
    for (std::size_t i = 0; i <= position; ++i) nth += planned[i].front() == direction ? 1 : 0;

    EXPECT_EQ(meeting(mishap, direction == 'g' ? HidCall::GetFeature : HidCall::SendFeature, nth,
                      sequence),
              kNothingWritten);

    std::vector<std::string> expected = planned;
    if (mishap == Mishap::Nothing && request.dropsNext) {
      expected.erase(expected.begin() + request.position + 1);
    }
    EXPECT_EQ(requests(), expected);
    const char* block = whenWell;
    switch (mishap) {
      case Mishap::Nothing:
        block = request.unread;
        break;
      case Mishap::Error:
        block = request.empty;
        break;
      case Mishap::CutTo1:
        block = direction == 'g' ? request.empty : whenWell;
        break;
      case Mishap::CutTo9:
        block = request.half;
        break;
      case Mishap::CutTo16:
        block = request.most;
        break;
      case Mishap::Unplug:
        block = request.frozen;
        break;
      case Mishap::Late:
        break;
    }
    EXPECT_EQ(options(), hex(block));
  }

  std::shared_ptr<InkPad> model = std::make_shared<InkPad>();
  velainkusb driver;
};

using InkOpenFaultsTest = InkFaultsTest;
using InkCloseFaultsTest = InkFaultsTest;

template <class Request>
std::string nameOfCase(const testing::TestParamInfo<std::tuple<Request, Mishap>>& info) {
  return nameOf(std::get<1>(info.param)) + std::string("AtRequest") +
         std::to_string(std::get<0>(info.param).position);
}

TEST_P(InkOpenFaultsTest, OpensAndEndsWithTheExpectedOptions) {
  setOptions(kBeforeOpen);
  int opened = -9;
  expectOutcome(kInkOpening, kOpened, [&] { opened = driver.OpenConnection(recordPen); });
  EXPECT_EQ(opened, 1);
  if (std::get<1>(GetParam()) != Mishap::Unplug) {
    send("01 01 01 00 02 00 03 04");
    EXPECT_TRUE(recorder.waitFor(1));
  }
  EXPECT_EQ(driver.CloseConnection(), 0);
  EXPECT_TRUE(waitForThreads(0));
}

INSTANTIATE_TEST_SUITE_P(EveryRequest, InkOpenFaultsTest,
                         testing::Combine(testing::ValuesIn(kInkOpenRequests), kAllMishaps),
                         nameOfCase<InkRequest>);

TEST_P(InkCloseFaultsTest, ClosesAndEndsWithTheExpectedOptions) {
  setOptions(kBeforeOpen);
  ASSERT_EQ(driver.OpenConnection(recordPen), 1);
  setOptions(kBeforeClose);
  int closed = -9;
  expectOutcome(kInkClosing, kClosed, [&] { closed = driver.CloseConnection(); });
  EXPECT_EQ(closed, 0);
  EXPECT_TRUE(waitForThreads(0));
}

INSTANTIATE_TEST_SUITE_P(EveryRequest, InkCloseFaultsTest,
                         testing::Combine(testing::ValuesIn(kInkCloseRequests), kAllMishaps),
                         nameOfCase<InkRequest>);

// The vision pad: six requests at open, one at close.

constexpr const char* kResetLines =
    "Reset Velavision failed\nVelavision:OpenConnection failed in USB commnication\n";
constexpr const char* kNoModeLine = "Velavision:OpenConnection failed in USB commnication\n";
constexpr const char* kOtherModeLine = "SetMode 1 != current mode 0\n";
constexpr const char* kNoRegionLines =
    "SetInkRegion failed!!\nGetPadInfoReport return false rpt size 65!!\n";
constexpr const char* kNeitherLines =
    "SetMode 1 != current mode 0\nSetInkRegion failed!!\n"
    "GetPadInfoReport return false rpt size 65!!\n";
constexpr const char* kRefusedRegionLine = "SetInkRegion failed!!\n";
constexpr const char* kNoInformationLine = "GetPadInfoReport return false rpt size 65!!\n";

// The ink region of the pad before the open, and what the driver then sends after reading all of
// it, its first 8 bytes, its first 15 bytes or nothing.
constexpr const char* kRegionBefore = "2F 11 12 21 22 31 32 41 42 51 52 53 54 55 56 57";
constexpr const char* kRegion = "C0 11 12 21 22 31 32 41 42 51 52 53 54 55 01 F4";
constexpr const char* kHalfRegion = "C0 11 12 21 22 31 32 41 00 00 00 00 00 00 01 F4";
constexpr const char* kEmptyRegion = "C0 00 00 00 00 00 00 00 00 00 00 00 00 00 01 F4";

const std::vector<std::string> kVisionOpening = {"g3", "s4", "g4", "g17", "s17", "g12"};

// A request, the mishap that it meets, and the outcome.
struct VisionCase {
  int position;  // in the sequence, from 0
  Mishap mishap;
  int result;
  const char* lines;
  std::size_t requests;  // made in total
  int mode;              // of the pad
  const char* region;    // of the pad
  int maxX;              // as the driver reports it
  double physicalX;
};

const double kNan = std::nan("");

const VisionCase kVisionCases[] = {
    // Reset
    {0, Mishap::Nothing, 1, "", 6, 1, kRegion, 1300, 4.5},
    {0, Mishap::Error, 0, kResetLines, 1, 0, kRegionBefore, 0, 0},
    {0, Mishap::CutTo1, 1, "", 6, 1, kRegion, 1300, 4.5},
    {0, Mishap::Late, 1, "", 6, 1, kRegion, 1300, 4.5},
    {0, Mishap::Unplug, 0, kResetLines, 1, 0, kRegionBefore, 0, 0},
    // Setting the mode
    {1, Mishap::Nothing, 1, kOtherModeLine, 6, 0, kRegion, 1300, 4.5},
    {1, Mishap::Error, 1, kOtherModeLine, 6, 0, kRegion, 1300, 4.5},
    {1, Mishap::CutTo1, 1, "", 6, 1, kRegion, 1300, 4.5},
    {1, Mishap::Late, 1, "", 6, 1, kRegion, 1300, 4.5},
    {1, Mishap::Unplug, 1, kNeitherLines, 6, 0, kRegionBefore, 0, 0},
    // Reading it back
    {2, Mishap::Nothing, 0, kNoModeLine, 3, 1, kRegionBefore, 0, 0},
    {2, Mishap::Error, 1, kOtherModeLine, 6, 1, kRegion, 1300, 4.5},
    {2, Mishap::CutTo1, 1, kOtherModeLine, 6, 1, kRegion, 1300, 4.5},
    {2, Mishap::CutTo9, 1, "", 6, 1, kRegion, 1300, 4.5},
    {2, Mishap::Late, 1, "", 6, 1, kRegion, 1300, 4.5},
    {2, Mishap::Unplug, 1, kNeitherLines, 6, 1, kRegionBefore, 0, 0},
    // Reading the ink region
    {3, Mishap::Nothing, 1, "", 6, 1, kEmptyRegion, 1300, 4.5},
    {3, Mishap::Error, 1, "", 6, 1, kEmptyRegion, 1300, 4.5},
    {3, Mishap::CutTo1, 1, "", 6, 1, kEmptyRegion, 1300, 4.5},
    {3, Mishap::CutTo9, 1, "", 6, 1, kHalfRegion, 1300, 4.5},
    {3, Mishap::CutTo16, 1, "", 6, 1, kRegion, 1300, 4.5},
    {3, Mishap::Late, 1, "", 6, 1, kRegion, 1300, 4.5},
    {3, Mishap::Unplug, 1, kNoRegionLines, 6, 1, kRegionBefore, 0, 0},
    // Setting it
    {4, Mishap::Nothing, 1, "", 6, 1, kRegionBefore, 1300, 4.5},
    {4, Mishap::Error, 1, kRefusedRegionLine, 6, 1, kRegionBefore, 1300, 4.5},
    {4, Mishap::CutTo9, 1, "", 6, 1, kRegion, 1300, 4.5},
    {4, Mishap::Late, 1, "", 6, 1, kRegion, 1300, 4.5},
    {4, Mishap::Unplug, 1, kNoRegionLines, 6, 1, kRegionBefore, 0, 0},
    // Reading the pad information; 1300 is 0x0514, of which CutTo1 leaves nothing; the width is
    // 0 / 0 when it was cut off
    {5, Mishap::Nothing, 1, "", 6, 1, kRegion, 0, kNan},
    {5, Mishap::Error, 1, kNoInformationLine, 6, 1, kRegion, 0, 0},
    {5, Mishap::CutTo1, 1, "", 6, 1, kRegion, 0, kNan},
    {5, Mishap::CutTo9, 1, "", 6, 1, kRegion, 1300, kNan},
    {5, Mishap::Late, 1, "", 6, 1, kRegion, 1300, 4.5},
    {5, Mishap::Unplug, 1, kNoInformationLine, 6, 1, kRegion, 0, 0},
};

class VisionFaultsTest : public FeatureFaultsTest {
 protected:
  VisionFaultsTest() {
    plug(model);
    VisionPad::InkRegion region{};
    const Bytes bytes = hex(kRegionBefore);
    std::copy(bytes.begin(), bytes.end(), region.begin());
    model->setInkRegion(region);
  }

  std::shared_ptr<VisionPad> model = std::make_shared<VisionPad>();
  velavision driver;
};

class VisionOpenFaultsTest : public VisionFaultsTest,
                             public testing::WithParamInterface<VisionCase> {};
class VisionCloseFaultsTest : public VisionFaultsTest,
                              public testing::WithParamInterface<std::pair<Mishap, int>> {};

TEST_P(VisionOpenFaultsTest, GivesTheExpectedResultAndLines) {
  const VisionCase& param = GetParam();
  const auto position = static_cast<std::size_t>(param.position);
  const char direction = kVisionOpening[position].front();
  int nth = 0;
  for (std::size_t i = 0; i <= position; ++i) nth += kVisionOpening[i].front() == direction ? 1 : 0;
  int opened = -9;

  EXPECT_EQ(meeting(param.mishap, direction == 'g' ? HidCall::GetFeature : HidCall::SendFeature,
                    nth, [&] { opened = driver.OpenConnection(recordPen); }),
            (Written{"", param.lines}));

  EXPECT_EQ(opened, param.result);
  std::vector<std::string> expected = kVisionOpening;
  expected.resize(param.requests);
  EXPECT_EQ(requests(), expected);
  bus.withModel(port, [&](PadModel&) {
    EXPECT_EQ(model->mode(), param.mode);
    EXPECT_EQ(Bytes(model->inkRegion().begin(), model->inkRegion().end()), hex(param.region, 33));
  });
  int ends[6] = {9, 9, 9, 9, 9, 9};
  EXPECT_TRUE(driver.GetDataRanges(&ends[0], &ends[1], &ends[2], &ends[3], &ends[4], &ends[5]));
  EXPECT_EQ(ends[1], param.maxX);
  EXPECT_THAT(driver.GetPhysicalX(), testing::NanSensitiveDoubleEq(param.physicalX));
  EXPECT_TRUE(waitForThreads(opened == 1 ? 3 : 0));
  if (opened == 1 && param.mishap != Mishap::Unplug) {
    send("01 80 00 01 00 02 00 03 00 00 00 04");
    EXPECT_TRUE(recorder.waitFor(1));
  }
  EXPECT_EQ(driver.CloseConnection(), 0);
  EXPECT_TRUE(waitForThreads(0));
}

INSTANTIATE_TEST_SUITE_P(EveryRequest, VisionOpenFaultsTest, testing::ValuesIn(kVisionCases),
                         [](const auto& test) {
                           return nameOf(test.param.mishap) + std::string("AtRequest") +
                                  std::to_string(test.param.position);
                         });

TEST_P(VisionCloseFaultsTest, ClosesInSilence) {
  const auto [mishap, mode] = GetParam();
  ASSERT_EQ(driver.OpenConnection(recordPen), 1);
  int closed = -9;
  EXPECT_EQ(meeting(mishap, HidCall::SendFeature, 1, [&] { closed = driver.CloseConnection(); }),
            kNothingWritten);
  EXPECT_EQ(closed, 0);
  EXPECT_THAT(requests(), ElementsAre("s4"));
  bus.withModel(port, [&, expected = mode](PadModel&) { EXPECT_EQ(model->mode(), expected); });
  EXPECT_TRUE(waitForThreads(0));
}

// With the mode that the pad is left in.
INSTANTIATE_TEST_SUITE_P(ModeFour, VisionCloseFaultsTest,
                         testing::Values(std::pair{Mishap::Nothing, 1}, std::pair{Mishap::Error, 1},
                                         std::pair{Mishap::CutTo1, 4}, std::pair{Mishap::Late, 4},
                                         std::pair{Mishap::Unplug, 1}));

// Single requests whose replies are cut short.

class CutReplyTest : public FeatureFaultsTest {
 protected:
  // Cuts the next reply to that many bytes; nothing beyond them may become visible.
  void cut(int bytes) {
    bus.fail(HidCall::GetFeature, {Fault::Kind::Short, bytes});
    dirtyTheStack();
  }

  // A record's fields of these sizes, which are in the machine's byte order, with their low bytes
  // first.
  static Bytes lowFirst(Bytes record, std::initializer_list<std::ptrdiff_t> sizes) {
    if constexpr (std::endian::native == std::endian::big) {
      auto field = record.begin();
      for (const std::ptrdiff_t size : sizes) {
        std::reverse(field, field + size);
        field += size;
      }
    }
    return record;
  }
};

class IiCutReplyTest : public CutReplyTest {
 protected:
  IiCutReplyTest() {
    const auto pad = std::make_shared<ScriptedPad>(std::uint16_t{31});
    pad->replies[2] = hex("02 E1 E2 E3 E4 E5 E6 E7 E8 11 22 33 44 55 66 77 88");
    pad->replies[10] =
        hex("0A 02 01 04 03 06 05 08 07 09 0B 0A 0D 0C 0E 78 56 34 12 FE FF FF FF"
            " 23 84 26 25 28 27 2A 29 2C 2B 2E 2D 30 2F 32 31"
            " 34 33 36 35 38 37 3A 39 5A 5A 5A 5A 5A 5A 5A 5A");
    plug(pad);
    driver.OpenConnection(recordPen);
  }

  ~IiCutReplyTest() override { driver.CloseConnection(); }

  // The record's bytes after the id, which is the caller's.
  Bytes information(bool expected) {
    PAD_INFO_REPORT info;
    std::memset(&info, 0xEE, sizeof info);
    EXPECT_EQ(driver.GetPadInfo(&info), expected);
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&info);
    EXPECT_EQ(bytes[0], 0xEE);
    return lowFirst({bytes + 1, bytes + sizeof info},
                    {2, 2, 2, 2, 1, 2, 2, 1, 8, 8, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2});
  }

  Bytes serialBytes() {
    _GUID serial{};
    EXPECT_TRUE(driver.GetSerialNumber(&serial));
    EXPECT_EQ(serial.Data1, 0x33C72A14U);
    return {std::begin(serial.Data4), std::end(serial.Data4)};
  }

  velaii driver;
};

TEST_F(IiCutReplyTest, InformationHoldsWhatWasSentAndZeros) {
  cut(1);
  EXPECT_EQ(information(true), hex("", 54));
  cut(2);
  EXPECT_EQ(information(true), hex("02", 54));
  cut(15);
  EXPECT_EQ(information(true), hex("02 01 04 03 06 05 08 07 09 0B 0A 0D 0C 0E", 54));
  cut(17);
  EXPECT_EQ(information(true), hex("02 01 04 03 06 05 08 07 09 0B 0A 0D 0C 0E 78 56", 54));
  // Without its highest byte the second value is positive.
  cut(22);
  EXPECT_EQ(information(true),
            hex("02 01 04 03 06 05 08 07 09 0B 0A 0D 0C 0E 78 56 34 12 00 00 00 00"
                " FE FF FF",
                54));
  cut(24);
  EXPECT_EQ(information(true),
            hex("02 01 04 03 06 05 08 07 09 0B 0A 0D 0C 0E 78 56 34 12 00 00 00 00"
                " FE FF FF FF FF FF FF FF 23",
                54));
  cut(46);
  EXPECT_EQ(information(true),
            hex("02 01 04 03 06 05 08 07 09 0B 0A 0D 0C 0E 78 56 34 12 00 00 00 00"
                " FE FF FF FF FF FF FF FF 23 84 26 25 28 27 2A 29 2C 2B 2E 2D 30 2F 32 31"
                " 34 33 36 35 38 37 3A 00",
                54));
}

TEST_F(IiCutReplyTest, InformationOfNoBytesLeavesTheRecordAlone) {
  cut(0);
  EXPECT_EQ(information(false), Bytes(54, 0xEE));
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, 0});
  EXPECT_EQ(information(false), Bytes(54, 0xEE));
}

TEST_F(IiCutReplyTest, InformationErrorCountsAsSuccessWithZeros) {
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, -1});
  dirtyTheStack();
  EXPECT_EQ(information(true), hex("", 54));
}

TEST_F(IiCutReplyTest, SizeOfAPadThatDoesNotReportItIsZero) {
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, 0}, 1, 2);
  EXPECT_EQ(driver.GetPhysicalX(), 0.0);
  EXPECT_EQ(driver.GetPhysicalY(), 0.0);
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, -1}, 1, 2);
  EXPECT_EQ(driver.GetPhysicalX(), 0.0);
  EXPECT_EQ(driver.GetPhysicalY(), 0.0);
}

TEST_F(IiCutReplyTest, SerialNumberHoldsWhatWasSentAndZeros) {
  cut(1);
  EXPECT_EQ(serialBytes(), hex("", 8));
  cut(9);
  EXPECT_EQ(serialBytes(), hex("", 8));
  cut(12);
  EXPECT_EQ(serialBytes(), hex("00 00 00 00 00 33 22 11"));
  cut(16);
  EXPECT_EQ(serialBytes(), hex("00 77 66 55 44 33 22 11"));
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, -1});
  dirtyTheStack();
  EXPECT_EQ(serialBytes(), hex("", 8));
}

class InkCutReplyTest : public CutReplyTest {
 protected:
  InkCutReplyTest() {
    const auto pad = std::make_shared<ScriptedPad>(std::uint16_t{48});
    pad->replies[3] = hex("03 A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF");
    pad->replies[6] = hex("06 11 22 33 44 55 66 77 88");
    plug(pad);
    driver.OpenConnection(recordPen);
  }

  ~InkCutReplyTest() override { driver.CloseConnection(); }

  Bytes options() {
    tagOPTIONS block;
    std::memset(&block, 0xEE, sizeof block);
    EXPECT_EQ(driver.GetOptions(&block), 1);
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&block);
    return {bytes, bytes + sizeof block};
  }

  Bytes serialBytes() {
    _GUID serial{};
    EXPECT_TRUE(driver.GetSerialNumber(&serial));
    EXPECT_EQ(serial.Data1, 0x99F6F7C5U);
    return {std::begin(serial.Data4), std::end(serial.Data4)};
  }

  velainkusb driver;
};

TEST_F(InkCutReplyTest, OptionsHoldWhatWasSentAndZeros) {
  cut(1);
  EXPECT_EQ(options(), hex("", 16));
  cut(2);
  EXPECT_EQ(options(), hex("A0", 16));
  cut(16);
  EXPECT_EQ(options(), hex("A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE 00"));
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, -1});
  dirtyTheStack();
  EXPECT_EQ(options(), hex("", 16));
}

TEST_F(InkCutReplyTest, SerialNumberHoldsWhatWasSentAndZeros) {
  cut(1);
  EXPECT_EQ(serialBytes(), hex("", 8));
  cut(4);
  EXPECT_EQ(serialBytes(), hex("00 00 00 00 00 33 22 11"));
  cut(8);
  EXPECT_EQ(serialBytes(), hex("00 77 66 55 44 33 22 11"));
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, -1});
  dirtyTheStack();
  EXPECT_EQ(serialBytes(), hex("", 8));
}

class VisionCutReplyTest : public CutReplyTest {
 protected:
  VisionCutReplyTest() {
    pad->replies = {
        {2, hex("02 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F 20 77", 34)},
        {3, hex("03", 17)},
        {4, hex("04 01", 17)},
        {12, hex("0C 01 02 03 04 05 06 07 08 09 0A 0B 0C 00 00 00 05 00 00 00 02"
                 " 00 07 00 02 00 09 00 02",
                 65)},
        {17, hex("11 FF 11 12 21 22 31 32 41 42 51 52 53 54 55 88 13", 34)},
    };
    plug(pad);
    driver.OpenConnection(recordPen);
  }

  ~VisionCutReplyTest() override { driver.CloseConnection(); }

  Bytes serialBytes() {
    Bytes serial(18, 0xEE);
    EXPECT_TRUE(driver.GetSerialNumber(reinterpret_cast<char*>(serial.data())));
    return serial;
  }

  Bytes region() {
    InkRegion region;
    std::memset(&region, 0xEE, sizeof region);
    EXPECT_EQ(driver.GetInkRegion(&region), 1);
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&region);
    return lowFirst({bytes, bytes + sizeof region}, {1, 1, 1, 2, 2, 2, 2, 1, 1, 1, 1, 2, 2});
  }

  std::shared_ptr<ScriptedPad> pad = std::make_shared<ScriptedPad>(std::uint16_t{56});
  velavision driver;
};

TEST_F(VisionCutReplyTest, SerialNumberHoldsWhatWasSentAndZeros) {
  cut(0);
  EXPECT_EQ(serialBytes(), hex("00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 EE EE"));
  cut(1);
  EXPECT_EQ(serialBytes(), hex("00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 EE EE"));
  cut(9);
  EXPECT_EQ(serialBytes(), hex("11 12 13 14 15 16 17 18 00 00 00 00 00 00 00 00 EE EE"));
  cut(16);
  EXPECT_EQ(serialBytes(), hex("11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F 00 EE EE"));
}

TEST_F(VisionCutReplyTest, InkRegionHoldsWhatWasSentAndZeros) {
  cut(0);
  EXPECT_EQ(region(), hex("", 19));
  cut(1);
  EXPECT_EQ(region(), hex("", 19));
  // In the record's order, low bytes first; of word 4 the low byte is missing.
  cut(9);
  EXPECT_EQ(region(), hex("01 01 01 00 41 32 31 22 21 12 11", 19));
  // Of the scaled value the high byte is missing: 0x88 / 100 = 1, swapped.
  cut(16);
  EXPECT_EQ(region(), hex("01 01 01 42 41 32 31 22 21 12 11 51 52 53 54 55 00 00 01"));
  // 0x1388 / 100 = 50, swapped
  EXPECT_EQ(region(), hex("01 01 01 42 41 32 31 22 21 12 11 51 52 53 54 55 00 00 32"));
}

TEST_F(VisionCutReplyTest, PadInformationHoldsWhatWasSentAndZeros) {
  DevicePadInfo info{};
  cut(1);
  EXPECT_EQ(driver.GetPadInfo(&info), 1);
  EXPECT_EQ(info.nMaxX, 0);
  EXPECT_EQ(info.nMinZ, 0);
  EXPECT_TRUE(std::isnan(info.dRatio));
  EXPECT_TRUE(std::isnan(info.dPhysicalY));
  cut(12);
  EXPECT_EQ(driver.GetPadInfo(&info), 1);
  EXPECT_EQ(info.nMaxX, 0x0102);
  EXPECT_EQ(info.nMinZ, 0x0B00);
  EXPECT_TRUE(std::isnan(info.dRatio));
  cut(20);
  EXPECT_EQ(driver.GetPadInfo(&info), 1);
  EXPECT_EQ(info.dRatio, std::numeric_limits<double>::infinity());  // 5 / 0
  EXPECT_TRUE(std::isnan(info.dPhysicalX));
  cut(28);
  EXPECT_EQ(driver.GetPadInfo(&info), 1);
  EXPECT_EQ(info.dRatio, 2.5);
  EXPECT_EQ(info.dPhysicalX, 3.5);
  EXPECT_EQ(info.dPhysicalY, std::numeric_limits<double>::infinity());  // 9 / 0
}

TEST_F(VisionCutReplyTest, ModeIsZeroWhenItWasNotSent) {
  unsigned char mode = 9;
  cut(1);
  EXPECT_EQ(driver.GetMode(&mode), 1);
  EXPECT_EQ(mode, 0);
  cut(2);
  EXPECT_EQ(driver.GetMode(&mode), 2);
  EXPECT_EQ(mode, 1);
}

// A request that the pad answers late holds up the thread that made it, not the pen.

template <class Driver, class Request>
void expectPenDuringLateRequest(support::VirtualBus& bus, support::VirtualBus::Port port,
                                std::string_view report, HidCall call, Driver& driver,
                                Request request) {
  bus.clearLog();
  bus.fail(call, {Fault::Kind::Late});
  std::thread client(request);
  EXPECT_TRUE(bus.waitForBegun(call, 1));
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(bus.sendWhenRoom(port, hex(report)));
  EXPECT_TRUE(support::penRecorder().waitFor(100));
  EXPECT_EQ(bus.count(call), 0);
  bus.releaseLateCalls();
  client.join();
  driver.CloseConnection();
}

TEST_F(FeatureFaultsTest, PenOfThePadIiIsDeliveredDuringALateRequest) {
  plug(virtualpads::makePad(virtualpads::PadKind::Ii));
  velaii driver;
  ASSERT_EQ(driver.OpenConnection(recordPen), 1);
  double width = 0;
  expectPenDuringLateRequest(bus, port, "01 01 00 00 00 00 00 00 00 00 00", HidCall::GetFeature,
                             driver, [&] { width = driver.GetPhysicalX(); });
  EXPECT_DOUBLE_EQ(width, 3.685);
}

TEST_F(FeatureFaultsTest, PenOfTheInkPadIsDeliveredDuringALateRequest) {
  plug(std::make_shared<InkPad>());
  velainkusb driver;
  ASSERT_EQ(driver.OpenConnection(recordPen), 1);
  int cleared = 0;
  expectPenDuringLateRequest(bus, port, "01 01 00 00 00 00 00 00", HidCall::SendFeature, driver,
                             [&] { cleared = driver.ClearScrn(0, 0); });
  EXPECT_EQ(cleared, 1);
}

TEST_F(FeatureFaultsTest, PenOfTheVisionPadIsDeliveredDuringALateRequest) {
  plug(std::make_shared<VisionPad>());
  velavision driver;
  ASSERT_EQ(driver.OpenConnection(recordPen), 1);
  bool cleared = false;
  expectPenDuringLateRequest(bus, port, "01 80 00 01 00 02 00 03 00 00 00 04", HidCall::SendFeature,
                             driver, [&] { cleared = driver.ClearInkRegion(); });
  EXPECT_TRUE(cleared);
}

}  // namespace
