// A complete use of each pad, through the facade and the driver, once for each call into hidapi
// that it makes; in each run that call meets a fault. Whatever the fault, the connection closes in
// time, nothing is left behind, hidapi is not misused, and the lines that are printed are known
// ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <map>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <tuple>

#include "giivela.h"
#include "support/AllocationCount.h"
#include "support/PadTable.h"
#include "support/PadTest.h"
#include "support/PenRecorder.h"
#include "support/ProcessState.h"
#include "support/Reports.h"
#include "support/TimeControl.h"
#include "support/Written.h"
#include "velaii.h"
#include "velainkusb.h"
#include "velavision.h"

namespace {

using support::Bytes;
using support::called;
using support::CallRecord;
using support::Calls;
using support::Fault;
using support::fileDescriptorCount;
using support::hex;
using support::HidCall;
using support::kNothingWritten;
using support::liveAllocations;
using support::PadRow;
using support::Pen;
using support::PenReport;
using support::Sample;
using support::TimeControl;
using support::Written;
using support::writtenBy;
using virtualpads::PadKind;

struct NamedFault {
  const char* name;
  Fault fault;
};

void PrintTo(const NamedFault& fault, std::ostream* out) {
  *out << fault.name;
}

class FaultSweepTest : public support::PadTest,
                       public testing::WithParamInterface<std::tuple<PadRow, NamedFault>> {
 protected:
  // Each call of a use meets the fault in turn. The heap does not grow, from one run to the next or
  // in all.
  void sweep() {
    // Make the allocations that stay, also those for the faults.
    for (int i = 0; i < 2; ++i) {
      bus.fail(HidCall::Write, {});  // which is not called
      run({});
    }
    const std::map<HidCall, int> uses = callsOfAUse();
    int points = 0;
    long grown = 0;
    for (const auto& [call, times] : uses) {
      for (int nth = 1; nth <= times; ++nth) {
        SCOPED_TRACE(testing::PrintToString(called(call)) + ", time " + std::to_string(nth));
        const long before = liveAllocations();
        run({call, fault, nth});
        const long growth = liveAllocations() - before;
        grown += growth;
        EXPECT_LE(growth, 0);
        EXPECT_LE(grown, 0);
        ++points;
      }
    }
    RecordProperty("fault_points", points);
  }

 private:
  // The nth call of that kind meets the fault; 0: none does.
  struct Point {
    HidCall call = HidCall::Init;
    Fault fault = {};
    int nth = 0;
  };

  static constexpr std::chrono::milliseconds kSoon{1};
  // The reads that a use surely makes after the first report: for the other four, for the
  // incomplete one, and one that times out.
  static constexpr int kReads = 6;

  std::map<HidCall, int> callsOfAUse() {
    m_record = true;
    EXPECT_EQ(run({}), kNothingWritten);
    EXPECT_EQ(m_samples, std::ssize(pad.stroke));
    m_record = false;
    m_calls[HidCall::Read] = kReads;
    return m_calls;
  }

  // Returns what was written.
  Written run(Point point) {
    m_point = point;
    const long files = fileDescriptorCount();
    // A read that meets a fault has to be the one with the report, not one that timed out before.
    bus.setReadTimeout(point.call == HidCall::Read ? kLongTimeout : kSoon);
    plug(virtualpads::makePad(pad.kind));
    if (point.nth > 0 && point.call != HidCall::Read) bus.fail(point.call, point.fault, point.nth);
    const Written written = writtenBy([this] { use(); });
    EXPECT_TRUE(waitForThreads(0));
    EXPECT_EQ(fileDescriptorCount(), files);
    EXPECT_EQ(bus.openHandles(), 0);
    EXPECT_EQ(bus.misuses(), 0);
    EXPECT_EQ(bus.count(HidCall::Init), bus.count(HidCall::Exit));
    EXPECT_GE(bus.calls({point.call}).size(), static_cast<std::size_t>(point.nth));
    std::istringstream lines(written.out + written.err);
    for (std::string line; std::getline(lines, line);)
      EXPECT_NE(std::ranges::find(pad.lines, line), pad.lines.end()) << line;
    expectSamplesInOrder();
    if (m_record)
      for (const CallRecord& call : bus.calls()) ++m_calls[call.call];
    bus.reset();
    return written;
  }

  void use() {
    recorder.reset();
    TimeControl time;
    time.stopProcessorTime(0);
    gIIVela facade;
    EXPECT_TRUE(facade.OpenProvider(std::string(pad.classId).data()));
    facade.GetNumDevices();
    EXPECT_TRUE(facade.RegisterEventHandler(support::recordPen));
    EXPECT_TRUE(facade.OpenConnection());
    std::free(facade.GetSerialNumber());
    facade.GetDataRangeMaxX();
    facade.GetPhysicalX();
    facade.GetPhysicalY();
    useFeatures();
    stroke();
    if (pad.kind == PadKind::Vision && connected()) awaitKeepAlive(time);
    facade.ClearInking();
    const auto begin = std::chrono::steady_clock::now();
    facade.CloseConnection();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    facade.CloseProvider();
  }

  // Whether the pad's three threads run.
  bool connected() const { return threadsRun(3); }

  // The driver's own requests, bypassing the facade.
  void useFeatures() const {
    if (pad.kind == PadKind::Ii) {
      PAD_INFO_REPORT information{};
      m_pvelaii->GetPadInfo(&information);
    }
    if (pad.kind == PadKind::Ink) {
      velainkusb& driver = *m_pvelaink;
      driver.DrawBitmap(std::make_unique<LCD_SCREEN>().get());
      LCD_RECT region{20, 51, 295, 188};
      driver.SetInkingRegion(&region);
      driver.SetInkTraceOpt(1, 7);
      driver.SetBackLightOpt(2, 0, 9);
      driver.SetLayerState(1, 2);
      tagOPTIONS options{};
      driver.GetOptions(&options);
      driver.SetOptions(&options);
      driver.ResetVelaInkDevice();
    }
    if (pad.kind == PadKind::Vision) {
      velavision& driver = *m_pvelavision;
      driver.ResetVelaVisionDevice();
      unsigned char mode = 0;
      driver.SetMode(2);
      driver.GetMode(&mode);
      InkRegion region{};
      driver.GetInkRegion(&region);
      driver.SetInkRegion(region);
      DevicePadInfo information{};
      driver.GetPadInfo(&information);
    }
  }

  // Sends the pad's reports and waits for the samples of those that were read whole: all of them,
  // unless the fault unplugs the pad or cuts one of these reads. Without a connection nothing is
  // sent.
  void stroke() {
    m_samples = 0;
    if (!connected()) return;
    if (m_point.call == HidCall::Read) {
      // The read that waits for the first report has begun; the next one counts as the first.
      EXPECT_TRUE(bus.waitForBegun(HidCall::Read, 1));
      bus.fail(HidCall::Read, m_point.fault, m_point.nth);
    }
    const auto sendAndWait = [this](const Bytes& report) {
      return bus.send(port, report) && bus.waitUntilRead(port);
    };
    const bool there = std::ranges::all_of(pad.stroke, [&](const PenReport& report) {
      return sendAndWait(hex(report.bytes, static_cast<std::size_t>(pad.reportSize)));
    });
    // An incomplete report ends the read with the long time-out; later reads time out soon.
    bus.setReadTimeout(kSoon);
    sendAndWait({0x01});
    const Calls reads = bus.calls({HidCall::Read});
    m_samples = std::ranges::count_if(
        reads, [this](const CallRecord& read) { return read.result >= pad.minReportSize; });
    if (m_point.fault.kind != Fault::Kind::Unplug) {
      const bool cut = m_point.call == HidCall::Read && m_point.fault.kind == Fault::Kind::Short;
      EXPECT_TRUE(there);
      EXPECT_GE(m_samples, std::ssize(pad.stroke) - (cut ? 1 : 0));
    }
    EXPECT_TRUE(recorder.waitFor(static_cast<std::size_t>(m_samples)));
    if (m_point.call == HidCall::Read) {
      EXPECT_TRUE(bus.waitForReturned(HidCall::Read, m_point.nth + 1));
    }
  }

  void awaitKeepAlive(TimeControl& time) {
    // The processing thread has looked at the time once, and finds its queue empty.
    EXPECT_TRUE(time.waitForSleeps(500, 1));
    const long sent = bus.count(HidCall::SendFeature);
    time.stopProcessorTime(10'000);
    EXPECT_TRUE(bus.waitForReturned(HidCall::SendFeature, sent + 1));
  }

  // What arrived was sent, in this order.
  void expectSamplesInOrder() {
    auto next = pad.stroke.begin();
    for (const Sample& sample : recorder.samples()) {
      const Pen pen{sample.x, sample.y, sample.pressure, sample.touch};
      next = std::find_if(next, pad.stroke.end(),
                          [&](const PenReport& report) { return report.pen == pen; });
      ASSERT_NE(next, pad.stroke.end()) << testing::PrintToString(pen);
      ++next;
    }
  }

  const PadRow& pad = std::get<PadRow>(GetParam());
  const Fault fault = std::get<NamedFault>(GetParam()).fault;
  Point m_point;
  long m_samples = 0;  // of the last stroke
  bool m_record = false;
  std::map<HidCall, int> m_calls;
};

TEST_P(FaultSweepTest, EachCallInTurn) {
  sweep();
}

INSTANTIATE_TEST_SUITE_P(
    Pads, FaultSweepTest,
    testing::Combine(testing::ValuesIn(support::padTable()),
                     testing::Values(NamedFault{"Fails", {Fault::Kind::Return, -1}},
                                     NamedFault{"BringsNothing", {Fault::Kind::Return, 0}},
                                     NamedFault{"BringsOneByte", {Fault::Kind::Short, 1}},
                                     NamedFault{"Unplugs", {Fault::Kind::Unplug}})),
    [](const auto& swept) {
      return std::string(std::get<PadRow>(swept.param).name) +
             std::get<NamedFault>(swept.param).name;
    });

}  // namespace
