// A complete use of each pad through the facade. In each run a different external call fails: each
// call into hidapi, each thread start, each wait for the signal. Output and results are as
// specified, and nothing leaks.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "giivela.h"
#include "support/AllocationCount.h"
#include "support/FaultPoints.h"
#include "support/PadTest.h"
#include "support/ThreadCalls.h"
#include "support/TimeControl.h"
#include "support/Written.h"
#include "velaii.h"
#include "velainkusb.h"
#include "velausb.h"
#include "velavision.h"

namespace {

using support::callsExpected;
using support::callsMade;
using support::expectPoints;
using support::failAt;
using support::Fault;
using support::FaultPoint;
using support::hasFailed;
using support::hex;
using support::HidCall;
using support::recordPen;
using support::Sample;
using support::ThreadCalls;
using support::Written;
using support::writtenBy;
using virtualpads::PadKind;

// The results of the operations and other observations, by name.
using Results = std::map<std::string, std::string>;

// How a run with a fault differs from a run without.
struct Outcome {
  Results changed = {};
  std::string out = {};
  std::string err = {};
  std::size_t skips = 0;          // how many of the following calls are not made
  bool withoutKeepAlive = false;  // the keep-alive is not sent either
  bool repeated = false;          // the call is repeated
  bool silent = false;            // no sample arrives
  long unfreed = 0;               // samples that the queue's destruction leaves allocated
};

using HidapiCall = support::HidapiCall<Outcome>;

struct Pad {
  const char* name;
  PadKind kind;
  const char* classId;
  std::vector<HidapiCall> calls;  // of the whole run, in order
  Results results;                // when all goes well
  std::size_t reportSize;
  std::array<const char*, 5> reports;
  std::array<const char*, 5> samples;  // the resulting x, y, pressure and touch
  unsigned (*nextSequence)(unsigned);
  void (*useFeatures)(Results& results);  // the driver's, bypassing the facade
  void (*stopRunning)();                  // the driver's
  std::array<std::string, 3> threads;     // in start order
  std::array<Outcome, 3> threadsFailed;   // when they do not start
  const char* sigwaitLine;
};

std::string text(bool value) {
  return value ? "true" : "false";
}

std::string text(double value) {
  if (std::isnan(value)) return "nan";
  std::ostringstream out;
  out << value;
  return out.str();
}

std::string text(const Sample& sample) {
  std::ostringstream out;
  out << sample.x << " " << sample.y << " " << sample.pressure << " " << sample.touch;
  return out.str();
}

constexpr const char* kKeepAlive = "set 26";

// The USB pad.

const Outcome kNoDevice{.changed = {{"GetNumDevices", "0"}}};

unsigned counted(unsigned sequence) {
  return sequence == 127 ? 1 : sequence + 1;
}

const Pad kUsb{
    .name = "Usb",
    .kind = PadKind::Usb,
    .classId = "7FCD95128763436E874740972EE28EFD",
    .calls =
        {
            {"init"},
            {"enumerate", kNoDevice},
            {"free enumeration"},
            {"open", {.changed = {{"threads", "0"}, {"handles", "0"}}, .skips = 2, .silent = true}},
            {"set nonblocking"},
            {"close"},
            {"exit"},
        },
    .results =
        {
            {"OpenProvider", "true"},
            {"GetNumDevices", "1"},
            {"RegisterEventHandler", "true"},
            {"OpenConnection", "true"},
            {"threads", "3"},
            {"handles", "1"},
            {"GetSerialNumber", "null"},
            {"ranges", "0 32767 0 32767 0 127"},
            {"size", "3.685 2.23"},
            {"ClearInking", "true"},
        },
    .reportSize = 6,
    .reports = {"20 5A 00 2D 00 01", "20 4E 02 27 01 10", "00 22 01 91 00 00", "20 42 04 21 02 7F",
                "20 BE 00 5F 00 20"},
    .samples = {"0 0 1 1", "16383 16383 16 1", "6553 6553 0 0", "32767 32767 127 1",
                "3276 3276 32 1"},
    .nextSequence = counted,
    .useFeatures = [](Results&) {},
    .stopRunning = [] { m_pvelausb->SetRunningFalse(); },
    .threads = {"signal", "reading", "processing"},
    .threadsFailed = {{
        {.changed = {{"threads", "2"}}, .out = "create pollsignal failed\n"},
        {.changed = {{"threads", "2"}}, .out = "create userData failed\n", .silent = true},
        {.changed = {{"threads", "2"}},
         .out = "create processdata failed\n",
         .silent = true,
         .unfreed = 5},
    }},
    .sigwaitLine = "sigwait failed, result 22\n",
};

// The pad II. A request that fails counts as answered with zeros; one that returns nothing counts
// as failed.

const Pad kIi{
    .name = "Ii",
    .kind = PadKind::Ii,
    .classId = "C1AF33B2529E4D2DB885DAF2780009EE",
    .calls =
        {
            {"init"},
            {"enumerate", kNoDevice},
            {"free enumeration"},
            {"open",
             {.changed = {{"threads", "0"},
                          {"handles", "0"},
                          {"GetSerialNumber", "33c72a14d34842c60000000000000000"},
                          {"size", "0 0"},
                          {"GetPadInfo", "true 0 0 0"}},
              .out = "velaii:opendevice failed\n",
              .skips = 6,
              .silent = true}},
            {"set nonblocking"},
            {"get 2",
             {.changed = {{"GetSerialNumber", "33c72a14d34842c60000000000000000"}}},
             Outcome{.changed = {{"GetSerialNumber", "null"}},
                     .out = "GetFeature for R_SERIAL failed (2)\n"}},
            {"get 10", {.changed = {{"size", "0 2.23"}}}, Outcome{.changed = {{"size", "0 2.23"}}}},
            {"get 10",
             {.changed = {{"size", "3.685 0"}}},
             Outcome{.changed = {{"size", "3.685 0"}}}},
            {"get 10",
             {.changed = {{"GetPadInfo", "true 0 0 0"}}},
             Outcome{.changed = {{"GetPadInfo", "false 7 0 0"}}}},
            {"close"},
            {"exit"},
        },
    .results =
        {
            {"OpenProvider", "true"},
            {"GetNumDevices", "1"},
            {"RegisterEventHandler", "true"},
            {"OpenConnection", "true"},
            {"threads", "3"},
            {"handles", "1"},
            {"GetSerialNumber", "33c72a14d34842c6becddcebfa091827"},
            {"ranges", "0 32767 0 32767 0 127"},
            {"size", "3.685 2.23"},
            {"GetPadInfo", "true 258 -100000 4125"},
            {"ClearInking", "true"},
        },
    .reportSize = 11,
    .reports = {"01 01 10 00 20 00 05 77 77 77 77", "01 01 FF 7F 00 40 7F 77 77 77 77",
                "01 FE 01 02 03 04 00 77 77 77 77", "01 01 00 90 02 00 01 77 77 77 77",
                "01 01 00 00 00 00 03 77 77 77 77"},
    .samples = {"16 32 5 1", "32767 16384 127 1", "513 1027 0 0", "-28672 2 1 1", "0 0 3 1"},
    .nextSequence = counted,
    .useFeatures =
        [](Results& results) {
          PAD_INFO_REPORT info{};
          info.wDesc1 = 7;
          const bool told = m_pvelaii->GetPadInfo(&info);
          results["GetPadInfo"] = text(told) + " " + std::to_string(info.wDesc1) + " " +
                                  std::to_string(info.lDesc2) + " " + std::to_string(info.wExtX);
        },
    .stopRunning = [] { m_pvelaii->SetRunningFalse(); },
    .threads = {"signal", "reading", "processing"},
    .threadsFailed = {{
        {.changed = {{"threads", "2"}}, .out = "create pollsignal failed\n"},
        {.changed = {{"threads", "2"}}, .out = "create getdata_thread failed\n", .silent = true},
        {.changed = {{"threads", "2"}},
         .out = "create processdata failed\n",
         .silent = true,
         .unfreed = 5},
    }},
    .sigwaitLine = "",
};

// The ink pad. A request that fails counts as accepted everywhere. If reading the options returns
// nothing, most edits are not sent. Ink trace and backlight are then edited in the block as it was
// at open.

const Outcome kUnsentEdit{.skips = 1};

const Pad kInk{
    .name = "Ink",
    .kind = PadKind::Ink,
    .classId = "98C174D36D2A450996DBD5B34FA7A561",
    .calls =
        {
            {"init"},
            {"enumerate", kNoDevice},
            {"free enumeration"},
            {"open",
             {.changed = {{"threads", "0"},
                          {"handles", "0"},
                          {"GetSerialNumber", "99f6f7c515574d190000000000000000"},
                          {"DrawBitmap", "-1"},
                          {"ResetVelaInkDevice", "0"}},
              .out = "ResetvelaInkDevice m_handle is -1\n",
              .skips = 62,
              .silent = true}},
            {"set nonblocking"},
            // OpenConnection: the picture
            {"set 7", {}, Outcome{}},
            {"set 7", {}, Outcome{}},
            {"set 7", {}, Outcome{}},
            {"set 7", {}, Outcome{}},
            // inking region
            {"get 3", {}, kUnsentEdit},
            {"set 3", {}, Outcome{}},
            // ink trace
            {"get 3", {}, Outcome{}},
            {"set 3", {}, Outcome{}},
            // backlight
            {"get 3", {}, Outcome{}},
            {"set 3", {}, Outcome{}},
            // layers
            {"get 3", {}, kUnsentEdit},
            {"set 3", {}, Outcome{}},
            {"get 3", {}, kUnsentEdit},
            {"set 3", {}, Outcome{}},
            {"get 3", {}, kUnsentEdit},
            {"set 3", {}, Outcome{}},
            // the cached block
            {"get 3", {}, Outcome{}},
            // GetSerialNumber
            {"get 6",
             {.changed = {{"GetSerialNumber", "99f6f7c515574d190000000000000000"}}},
             Outcome{.changed = {{"GetSerialNumber", "null"}}}},
            // DrawBitmap
            {"set 7", {}, Outcome{}},
            {"set 7", {}, Outcome{}},
            {"set 7", {}, Outcome{}},
            {"set 7",
             {.changed = {{"DrawBitmap", "-1"}}},
             Outcome{.changed = {{"DrawBitmap", "0"}}}},
            // SetInkingRegion
            {"get 3", {}, Outcome{.changed = {{"SetInkingRegion", "0"}}, .skips = 1}},
            {"set 3", {}, Outcome{.changed = {{"SetInkingRegion", "0"}}}},
            // SetInkTraceOpt
            {"get 3", {}, Outcome{}},
            {"set 3", {}, Outcome{.changed = {{"SetInkTraceOpt", "0"}}}},
            // SetBackLightOpt
            {"get 3", {}, Outcome{}},
            {"set 3", {}, Outcome{.changed = {{"SetBackLightOpt", "0"}}}},
            // SetLayerState
            {"get 3", {}, Outcome{.changed = {{"SetLayerState", "0"}}, .skips = 1}},
            {"set 3", {}, Outcome{.changed = {{"SetLayerState", "0"}}}},
            // ClearScrn
            {"set 9", {}, Outcome{.changed = {{"ClearScrn", "0"}}}},
            // GetOptions, SetOptions
            {"get 3", {}, Outcome{.changed = {{"GetOptions", "0"}}}},
            {"set 3", {}, Outcome{.changed = {{"SetOptions", "0"}}}},
            // ResetVelaInkDevice: ink trace, backlight, each layer cleared and set
            {"get 3", {}, Outcome{}},
            {"set 3", {}, Outcome{}},
            {"get 3", {}, Outcome{}},
            {"set 3", {}, Outcome{}},
            {"set 9", {}, Outcome{}},
            {"get 3", {}, kUnsentEdit},
            {"set 3", {}, Outcome{}},
            {"set 9", {}, Outcome{}},
            {"get 3", {}, kUnsentEdit},
            {"set 3", {}, Outcome{}},
            {"set 9", {}, Outcome{}},
            {"get 3", {}, Outcome{.changed = {{"ResetVelaInkDevice", "0"}}, .skips = 1}},
            {"set 3", {}, Outcome{.changed = {{"ResetVelaInkDevice", "0"}}}},
            // ClearInking
            {"set 9", {}, Outcome{}},
            // CloseConnection: the same reset
            {"get 3", {}, Outcome{}},
            {"set 3", {}, Outcome{}},
            {"get 3", {}, Outcome{}},
            {"set 3", {}, Outcome{}},
            {"set 9", {}, Outcome{}},
            {"get 3", {}, kUnsentEdit},
            {"set 3", {}, Outcome{}},
            {"set 9", {}, Outcome{}},
            {"get 3", {}, kUnsentEdit},
            {"set 3", {}, Outcome{}},
            {"set 9", {}, Outcome{}},
            {"get 3", {}, kUnsentEdit},
            {"set 3", {}, Outcome{}},
            {"close"},
            {"exit"},
        },
    .results =
        {
            {"OpenProvider", "true"},
            {"GetNumDevices", "1"},
            {"RegisterEventHandler", "true"},
            {"OpenConnection", "true"},
            {"threads", "3"},
            {"handles", "1"},
            {"GetSerialNumber", "99f6f7c515574d19a897867564534231"},
            {"ranges", "0 32767 0 32767 0 255"},
            {"size", "3.11 2.28"},
            {"DrawBitmap", "2408"},
            {"SetInkingRegion", "1"},
            {"SetInkTraceOpt", "1"},
            {"SetBackLightOpt", "1"},
            {"SetLayerState", "1"},
            {"ClearScrn", "1"},
            {"GetOptions", "1"},
            {"SetOptions", "1"},
            {"ResetVelaInkDevice", "1"},
            {"ClearInking", "true"},
        },
    .reportSize = 8,
    .reports = {"01 01 10 00 20 00 05 01", "01 01 FF 7F 00 40 FF 02", "01 FE 01 02 03 04 00 03",
                "01 01 00 90 02 00 01 04", "01 01 00 00 00 00 03 05"},
    .samples = {"16 32 5 1", "32767 16384 255 1", "513 1027 0 0", "-28672 2 1 1", "0 0 3 1"},
    // The reports' own numbers, which restart with the first report.
    .nextSequence = [](unsigned sequence) { return sequence == 5 ? 1 : sequence + 1; },
    .useFeatures =
        [](Results& results) {
          velainkusb& pad = *m_pvelaink;
          const auto picture = std::make_unique<LCD_SCREEN>();
          results["DrawBitmap"] = std::to_string(pad.DrawBitmap(picture.get()));
          LCD_RECT region{20, 51, 295, 188};
          results["SetInkingRegion"] = std::to_string(pad.SetInkingRegion(&region));
          results["SetInkTraceOpt"] = std::to_string(pad.SetInkTraceOpt(1, 7));
          results["SetBackLightOpt"] = std::to_string(pad.SetBackLightOpt(2, 0, 9));
          results["SetLayerState"] = std::to_string(pad.SetLayerState(1, 2));
          results["ClearScrn"] = std::to_string(pad.ClearScrn(1, 0));
          tagOPTIONS options{};
          results["GetOptions"] = std::to_string(pad.GetOptions(&options));
          results["SetOptions"] = std::to_string(pad.SetOptions(&options));
          results["ResetVelaInkDevice"] = std::to_string(pad.ResetVelaInkDevice());
        },
    .stopRunning = [] { m_pvelaink->SetRunningFalse(); },
    .threads = {"signal", "reading", "processing"},
    .threadsFailed = {{
        {.changed = {{"threads", "2"}}, .out = "create pollsignal failed\n"},
        {.changed = {{"threads", "2"}}, .out = "create getdata_thread failed\n", .silent = true},
        {.changed = {{"threads", "2"}},
         .out = "create processdata failed\n",
         .silent = true,
         .unfreed = 5},
    }},
    .sigwaitLine = "sigwait failed, result 22\n",
};

// The vision pad. Its open is retried. If the pad does not answer correctly, the device stays open
// without a connection.

// Without a connection nothing was set up and nothing is known about the pad.
Outcome notConnected(const std::string& lines, std::size_t skips) {
  return {.changed = {{"threads", "0"},
                      {"ranges", "0 0 0 0 0 0"},
                      {"size", "0 0"},
                      {"GetInkRegion", "1 0"}},
          .err = lines,
          .skips = skips,
          .withoutKeepAlive = true,
          .silent = true};
}

const Pad kVision{
    .name = "Vision",
    .kind = PadKind::Vision,
    .classId = "3F2DE94B14D448719DFE5359EF03652A",
    .calls =
        {
            {"init"},
            {"enumerate", kNoDevice},
            {"free enumeration"},
            {"open", {.repeated = true}},
            {"set nonblocking"},
            // OpenConnection: reset
            {"get 3",
             notConnected("Reset Velavision failed\n"
                          "Velavision:OpenConnection failed in USB commnication\n",
                          5),
             Outcome{}},
            // mode
            {"set 4",
             {.err = "SetMode 1 != current mode 0\n"},
             Outcome{.err = "SetMode 1 != current mode 0\n"}},
            {"get 4",
             {.err = "SetMode 1 != current mode 0\n"},
             notConnected("Velavision:OpenConnection failed in USB commnication\n", 3)},
            // ink region
            {"get 17", {}, Outcome{}},
            {"set 17",
             {.changed = {{"GetInkRegion", "1 0"}}, .err = "SetInkRegion failed!!\n"},
             Outcome{.changed = {{"GetInkRegion", "1 0"}}}},
            // pad information
            {"get 12",
             {.changed = {{"ranges", "0 0 0 0 0 0"}, {"size", "0 0"}},
              .err = "GetPadInfoReport return false rpt size 65!!\n"},
             Outcome{.changed = {{"ranges", "0 0 0 0 0 0"}, {"size", "nan nan"}}}},
            // GetSerialNumber
            {"get 2",
             {.changed = {{"GetSerialNumber", "null"}}},
             Outcome{.changed = {{"GetSerialNumber", "00000000000000000000000000000000"}}}},
            // ResetVelaVisionDevice
            {"get 3", {.changed = {{"ResetVelaVisionDevice", "false"}}}, Outcome{}},
            // SetMode, GetMode
            {"set 4",
             {.changed = {{"SetMode", "-1"}, {"GetMode", "17 1"}}},
             Outcome{.changed = {{"SetMode", "0"}, {"GetMode", "17 1"}}}},
            {"get 4", {.changed = {{"GetMode", "-1 9"}}}, Outcome{.changed = {{"GetMode", "0 0"}}}},
            // GetInkRegion, SetInkRegion
            {"get 17",
             {.changed = {{"GetInkRegion", "-1 9"}}},
             Outcome{.changed = {{"GetInkRegion", "1 0"}}}},
            {"set 17", {.changed = {{"SetInkRegion", "0"}}}, Outcome{}},
            // GetPadInfo
            {"get 12",
             {.changed = {{"GetPadInfo", "-1 9"}},
              .err = "GetPadInfoReport return false rpt size 65!!\n"},
             Outcome{.changed = {{"GetPadInfo", "1 0"}}}},
            {kKeepAlive, {}, Outcome{}},
            // ClearInking
            {"set 18",
             {},
             Outcome{.changed = {{"ClearInking", "false"}},
                     .err = "ClearInkRegion return false\n"}},
            // CloseConnection
            {"set 4", {}, Outcome{}},
            {"close"},
            {"exit"},
        },
    .results =
        {
            {"OpenProvider", "true"},
            {"GetNumDevices", "1"},
            {"RegisterEventHandler", "true"},
            {"OpenConnection", "true"},
            {"threads", "3"},
            {"handles", "1"},
            {"GetSerialNumber", "0123456789abcdef1032547698badcfe"},
            {"ranges", "0 1300 0 1400 0 1023"},
            {"size", "4.5 2.8"},
            {"ResetVelaVisionDevice", "true"},
            {"SetMode", "17"},
            {"GetMode", "17 2"},
            {"GetInkRegion", "1 1"},
            {"SetInkRegion", "1"},
            {"GetPadInfo", "1 1300"},
            {"ClearInking", "true"},
        },
    // A lifted pen is at the position of the two reports before, so that one of them may be lost.
    .reportSize = 17,
    .reports = {"01 80 00 01 00 02 00 03 00 00 00 01", "01 80 01 00 02 00 03 00 00 00 00 02",
                "01 80 9C 40 00 07 00 01 00 00 00 03", "01 80 9C 40 00 07 00 02 00 00 00 04",
                "01 80 00 00 00 00 00 00 00 00 00 05"},
    .samples = {"1 2 3 1", "256 512 768 1", "40000 7 1 1", "40000 7 2 1", "40000 7 0 0"},
    .nextSequence = [](unsigned sequence) { return sequence == 255 ? 0 : sequence + 1; },
    .useFeatures =
        [](Results& results) {
          velavision& pad = *m_pvelavision;
          results["ResetVelaVisionDevice"] = text(pad.ResetVelaVisionDevice());
          results["SetMode"] = std::to_string(pad.SetMode(2));
          unsigned char mode = 9;
          const int modeResult = pad.GetMode(&mode);
          results["GetMode"] = std::to_string(modeResult) + " " + std::to_string(mode);
          InkRegion region{};
          region.bFlag1 = 9;
          const int regionResult = pad.GetInkRegion(&region);
          results["GetInkRegion"] =
              std::to_string(regionResult) + " " + std::to_string(region.bFlag1);
          results["SetInkRegion"] = std::to_string(pad.SetInkRegion(region));
          DevicePadInfo info{};
          info.nMaxX = 9;
          const int infoResult = pad.GetPadInfo(&info);
          results["GetPadInfo"] = std::to_string(infoResult) + " " + std::to_string(info.nMaxX);
        },
    .stopRunning = [] { m_pvelavision->SetRunningFalse(); },
    .threads = {"reading", "signal", "processing"},
    .threadsFailed = {{
        {.changed = {{"threads", "2"}}, .err = "create getdata failed\n", .silent = true},
        {.changed = {{"threads", "2"}}, .err = "create pollsignal failed\n"},
        {.changed = {{"threads", "2"}},
         .err = "create processdata failed\n",
         .withoutKeepAlive = true,
         .silent = true},
    }},
    .sigwaitLine = "",
};

class FaultSweepTest : public support::PadTest {
 protected:
  // What is observed during a use of a pad.
  struct Seen {
    Results results;
    std::vector<std::string> samples;
    bool inSequence = true;
  };

  // Runs a complete use of the pad.
  void use(const Pad& pad, const Outcome& expected, Results& results) {
    const long threadsBefore = support::threadCount();
    gIIVela facade;
    results["OpenProvider"] = text(facade.OpenProvider(std::string(pad.classId).data()));
    results["GetNumDevices"] = std::to_string(facade.GetNumDevices());
    results["RegisterEventHandler"] = text(facade.RegisterEventHandler(recordPen));
    results["OpenConnection"] = text(facade.OpenConnection());
    results["threads"] = std::to_string(support::threadCount() - threadsBefore);
    results["handles"] = std::to_string(bus.openHandles());
    results["GetSerialNumber"] = serialOf(facade, pad);
    results["ranges"] = rangesOf(facade);
    const std::string width = text(facade.GetPhysicalX());
    results["size"] = width + " " + text(facade.GetPhysicalY());
    pad.useFeatures(results);
    write(pad, 0, 3, expected);
    const bool connected = results["threads"] != "0";
    if (pad.kind == PadKind::Vision && connected && !expected.withoutKeepAlive) {
      // The processing thread has looked at the time once, and finds its queue empty.
      EXPECT_TRUE(time->waitForSleeps(500, 1));
      const long sent = bus.count(HidCall::SendFeature);
      time->stopProcessorTime(10'000);
      EXPECT_TRUE(bus.waitForReturned(HidCall::SendFeature, sent + 1));
    }
    results["ClearInking"] = text(facade.ClearInking());
    write(pad, 3, 5, expected);
    close(facade);
  }

  void close(gIIVela& facade) {
    const auto begin = std::chrono::steady_clock::now();
    facade.CloseConnection();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    facade.CloseProvider();
  }

  // Sends the reports from `first` up to but not including `last`.
  void write(const Pad& pad, std::size_t first, std::size_t last, const Outcome& expected) {
    bool sent = true;
    for (std::size_t i = first; i < last; ++i) sent = sendReport(pad, i) && sent;
    if (!sent) return;  // the pad is not there
    if (!expected.silent || expected.unfreed > 0) {
      EXPECT_TRUE(bus.waitUntilRead(port));
    }
    if (!expected.silent) {
      EXPECT_TRUE(recorder.waitFor(last));
    }
  }

  // False when no device is open.
  bool sendReport(const Pad& pad, std::size_t number) {
    return bus.send(port, hex(pad.reports[number % 5], pad.reportSize));
  }

  static std::string serialOf(gIIVela& facade, const Pad& pad) {
    const std::unique_ptr<char, decltype(&std::free)> serial(facade.GetSerialNumber(), std::free);
    if (!serial) return "null";
    if (pad.kind != PadKind::Vision) return serial.get();
    std::ostringstream digits;
    for (int i = 0; i < 16; ++i) {
      const int byte = static_cast<unsigned char>(serial.get()[i]);
      digits << std::hex << byte / 16 << byte % 16;
    }
    return digits.str();
  }

  static std::string rangesOf(gIIVela& facade) {
    std::ostringstream ranges;
    ranges << facade.GetDataRangeMinX() << " " << facade.GetDataRangeMaxX() << " "
           << facade.GetDataRangeMinY() << " " << facade.GetDataRangeMaxY() << " "
           << facade.GetDataRangeMinZ() << " " << facade.GetDataRangeMaxZ();
    return ranges.str();
  }

  Seen look(const Pad& pad, Results results) {
    Seen seen{.results = std::move(results), .samples = {}};
    const std::vector<Sample> samples = recorder.samples();
    for (std::size_t i = 0; i < samples.size(); ++i) {
      seen.samples.push_back(text(samples[i]));
      if (i > 0 && samples[i].sequence != pad.nextSequence(samples[i - 1].sequence)) {
        seen.inSequence = false;
      }
    }
    return seen;
  }

  void plugFresh(const Pad& pad) {
    plug(virtualpads::makePad(pad.kind));
    bus.setReadTimeout(std::chrono::milliseconds(1));
    recorder.reset();
    time.emplace().stopProcessorTime(0);
  }

  // Runs `action` on a fresh pad and expects it to leak nothing but `unfreed` samples.
  template <class Action>
  void leavingNothing(const Pad& pad, long unfreed, Action action) {
    const long allocations = support::liveAllocations();
    const long files = support::fileDescriptorCount();
    plugFresh(pad);
    action();
    EXPECT_TRUE(waitForThreads(0));
    time.reset();
    EXPECT_EQ(support::fileDescriptorCount(), files);
    EXPECT_EQ(bus.openHandles(), 0);
    EXPECT_EQ(bus.misuses(), 0);
    bus.reset();
    EXPECT_EQ(support::liveAllocations(), allocations + unfreed);
  }

  // Uses the pad after `arrange` and compares with the outcome; `point` is the call that fails.
  void expectOutcome(
      const Pad& pad, const Outcome& outcome, std::optional<FaultPoint> point = {},
      const std::function<void(ThreadCalls&)>& arrange = [](ThreadCalls&) {}) {
    leavingNothing(pad, outcome.unfreed, [&] {
      ThreadCalls threads(pad.threads);
      if (point) failAt(bus, pad.calls, point->position, {Fault::Kind::Return, point->value});
      arrange(threads);
      Results results;
      EXPECT_EQ(writtenBy([&] { use(pad, outcome, results); }),
                (Written{outcome.out, outcome.err}));
      const Seen seen = look(pad, std::move(results));
      Results expected = pad.results;
      for (const auto& [name, result] : outcome.changed) expected[name] = result;
      EXPECT_EQ(seen.results, expected);
      const std::vector<std::string> samples(pad.samples.begin(), pad.samples.end());
      EXPECT_EQ(seen.samples, outcome.silent ? std::vector<std::string>{} : samples);
      EXPECT_TRUE(seen.inSequence);
      std::vector<std::string> calls =
          callsExpected(pad.calls, outcome, point ? point->position : pad.calls.size());
      if (outcome.withoutKeepAlive) std::erase(calls, kKeepAlive);
      EXPECT_EQ(callsMade(bus), calls);
      if (point) {
        EXPECT_TRUE(hasFailed(bus, *point));
      }
      // Nothing waits for or wakes a thread that is not running.
      EXPECT_EQ(std::ranges::count(threads.log(), "join "), 0);
      EXPECT_EQ(std::ranges::count(threads.log(), "SIGUSR1 to "), 0);
    });
  }

  // Uses the pad without a fault, so that one-time allocations are made, and checks that its table
  // lists all calls.
  void warmUp(const Pad& pad) {
    for (int i = 0; i < 2; ++i) {
      ThreadCalls threads(pad.threads);
      plugFresh(pad);
      bus.fail(HidCall::Write, {}, 1);  // which is not made
      Results results;
      writtenBy([&] { use(pad, {}, results); });
      EXPECT_TRUE(waitForThreads(0));
      time.reset();
      bus.reset();
    }
    expectOutcome(pad, {});
  }

  // Each call into hidapi except reads fails in turn. Returns the number of faults tried.
  int sweepCalls(const Pad& pad) {
    warmUp(pad);
    return support::sweepCalls(pad.calls, [&](const Outcome& outcome, FaultPoint point) {
      expectOutcome(pad, outcome, point);
    });
  }

  // The pad is unplugged in each call into hidapi except reads in turn, so that this call and all
  // later ones fail. The effect on single operations is tested elsewhere.
  int sweepUnplugs(const Pad& pad) {
    warmUp(pad);
    int points = 0;
    for (std::size_t position = 0; position < pad.calls.size(); ++position) {
      SCOPED_TRACE(std::string(pad.calls[position].name) + ", call " +
                   std::to_string(position + 1));
      leavingNothing(pad, 0, [&] {
        ThreadCalls threads(pad.threads);
        failAt(bus, pad.calls, position, {Fault::Kind::Unplug});
        Results results;
        writtenBy([&] { use(pad, {}, results); });
        EXPECT_EQ(results["OpenProvider"], "true");
        EXPECT_EQ(results["OpenConnection"], "true");
        // Pads that were present were counted; pads that could be opened were opened.
        EXPECT_EQ(results["GetNumDevices"], position < 2 ? "0" : "1");
        EXPECT_EQ(results["handles"], position < 4 ? "0" : "1");
        EXPECT_EQ(callsMade(bus).back(), "exit");
      });
      ++points;
    }
    return points;
  }

  // Opens the pad, sends ten reports while the n-th read fails, and closes it. `lost` is the number
  // of the report that does not arrive, from 0.
  void expectStream(const Pad& pad, int nth, Fault fault, std::optional<std::size_t> lost) {
    leavingNothing(pad, 0, [&] {
      ThreadCalls threads(pad.threads);
      bus.setReadTimeout(kLongTimeout);
      bus.fail(HidCall::Read, fault, nth);
      gIIVela facade;
      EXPECT_TRUE(facade.OpenProvider(std::string(pad.classId).data()));
      EXPECT_TRUE(facade.RegisterEventHandler(recordPen));
      EXPECT_TRUE(facade.OpenConnection());
      std::vector<std::string> expected;
      for (std::size_t i = 0; i < 10; ++i) {
        EXPECT_TRUE(sendReport(pad, i));
        EXPECT_TRUE(bus.waitUntilRead(port));
        if (i != lost) expected.emplace_back(pad.samples[i % 5]);
        EXPECT_TRUE(recorder.waitFor(expected.size()));
      }
      // An incomplete report ends the read with the long timeout; later reads time out soon.
      bus.setReadTimeout(std::chrono::milliseconds(1));
      EXPECT_TRUE(bus.send(port, {0x01}));
      EXPECT_TRUE(bus.waitForReturned(HidCall::Read, nth));
      close(facade);
      EXPECT_EQ(look(pad, {}).samples, expected);
    });
  }

  // Each of the first 12 reads in turn fails, returns nothing, or is cut to a byte: the ten that
  // get the reports, the one that gets an incomplete report and one that times out.
  int sweepReads(const Pad& pad) {
    warmUp(pad);
    int points = 0;
    for (int nth = 1; nth <= 12; ++nth) {
      SCOPED_TRACE("read " + std::to_string(nth));
      expectStream(pad, nth, {Fault::Kind::Return, -1}, {});
      expectStream(pad, nth, {Fault::Kind::Return, 0}, {});
      std::optional<std::size_t> lost;
      if (nth <= 10) lost = static_cast<std::size_t>(nth - 1);
      expectStream(pad, nth, {Fault::Kind::Short, 1}, lost);
      points += 3;
    }
    return points;
  }

  // The reads fail from the moment at which the close waits for the last of them.
  void failLastReads(const Pad& pad) {
    warmUp(pad);
    expectOutcome(pad, {}, {}, [this](ThreadCalls& threads) {
      threads.on("join reading", [this] {
        bus.fail(HidCall::Read, {Fault::Kind::Return, -1}, 1, support::VirtualBus::kAlways);
      });
    });
  }

  // Each thread start fails in turn; the fourth start never happens.
  int sweepThreadStarts(const Pad& pad) {
    warmUp(pad);
    int points = 0;
    for (const Outcome& outcome : pad.threadsFailed) {
      ++points;
      SCOPED_TRACE("start " + std::to_string(points));
      expectOutcome(pad, outcome, {}, [&](ThreadCalls& threads) { threads.failStarts({points}); });
    }
    expectOutcome(pad, {}, {}, [&](ThreadCalls& threads) { threads.failStarts({points + 1}); });
    return points;
  }

  // The first wait for the signal fails, then the second. Deliberate: the reading thread then never
  // ends by itself. The test ends it when the close waits for it.
  int sweepSignalWaits(const Pad& pad) {
    warmUp(pad);
    int points = 0;
    const std::vector<std::pair<int, int>> answers[] = {{{EINVAL, 0}}, {{0, SIGUSR2}, {EINVAL, 0}}};
    for (const auto& answer : answers) {
      ++points;
      SCOPED_TRACE("wait " + std::to_string(points));
      leavingNothing(pad, 0, [&] {
        bool stopped = false;
        ThreadCalls threads(pad.threads);
        threads.answerWaits(answer);
        threads.on("join reading", [&] {
          stopped = true;
          pad.stopRunning();
        });
        Results results;
        EXPECT_EQ(writtenBy([&] { use(pad, {}, results); }), (Written{pad.sigwaitLine, ""}));
        EXPECT_TRUE(stopped);
        EXPECT_EQ(threads.waits(), points);
        Results expected = pad.results;
        // The signal thread may have ended before it was counted.
        results.erase("threads");
        expected.erase("threads");
        EXPECT_EQ(results, expected);
        EXPECT_EQ(recorder.count(), 5U);
      });
    }
    return points;
  }

  std::optional<support::TimeControl> time;
};

TEST_F(FaultSweepTest, EachCallOfTheUsbPad) {
  expectPoints(sweepCalls(kUsb), 7);
}

TEST_F(FaultSweepTest, EachCallOfThePadIi) {
  expectPoints(sweepCalls(kIi), 15);  // 11 calls, 4 of them for feature reports
}

TEST_F(FaultSweepTest, EachCallOfTheInkPad) {
  expectPoints(sweepCalls(kInk), 127);  // 67 calls, 60 of them for feature reports
}

TEST_F(FaultSweepTest, EachCallOfTheVisionPad) {
  expectPoints(sweepCalls(kVision), 39);  // 23 calls, 16 of them for feature reports
}

TEST_F(FaultSweepTest, AnUnplugInEachCallOfTheUsbPad) {
  expectPoints(sweepUnplugs(kUsb), 7);
}

TEST_F(FaultSweepTest, AnUnplugInEachCallOfThePadIi) {
  expectPoints(sweepUnplugs(kIi), 11);
}

TEST_F(FaultSweepTest, AnUnplugInEachCallOfTheInkPad) {
  expectPoints(sweepUnplugs(kInk), 67);
}

TEST_F(FaultSweepTest, AnUnplugInEachCallOfTheVisionPad) {
  expectPoints(sweepUnplugs(kVision), 23);
}

class FaultSweepOfEveryPadTest : public FaultSweepTest,
                                 public testing::WithParamInterface<const Pad*> {};

TEST_P(FaultSweepOfEveryPadTest, EachRead) {
  expectPoints(sweepReads(*GetParam()), 36);
}

TEST_P(FaultSweepOfEveryPadTest, TheLastReads) {
  failLastReads(*GetParam());
}

TEST_P(FaultSweepOfEveryPadTest, EachThreadStart) {
  expectPoints(sweepThreadStarts(*GetParam()), 3);
}

TEST_P(FaultSweepOfEveryPadTest, EachWaitForTheSignal) {
  expectPoints(sweepSignalWaits(*GetParam()), 2);
}

INSTANTIATE_TEST_SUITE_P(Pads, FaultSweepOfEveryPadTest,
                         testing::Values(&kUsb, &kIi, &kInk, &kVision),
                         [](const auto& tested) { return std::string(tested.param->name); });

}  // namespace
