// A complete use of a pad, once for each call into hidapi that it makes; in each run that call
// meets a fault. Whatever the fault, the connection closes in time, nothing is left behind, hidapi
// is not misused, and the lines that are printed are known ones.
#ifndef TESTS_SDK_SUPPORT_FAULTSWEEP_H
#define TESTS_SDK_SUPPORT_FAULTSWEEP_H

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <tuple>

#include "support/AllocationCount.h"
#include "support/BusTest.h"
#include "support/PadTable.h"
#include "support/Patience.h"
#include "support/ProcessState.h"
#include "support/Reports.h"
#include "support/Written.h"

namespace support {

struct NamedFault {
  const char* name;
  Fault fault;
};

inline void PrintTo(const NamedFault& fault, std::ostream* out) {
  *out << fault.name;
}

// Each pad with each fault.
using Swept = std::tuple<PadRow, NamedFault>;

inline const auto kSweeps =
    testing::Combine(testing::ValuesIn(padTable()),
                     testing::Values(NamedFault{"Fails", {Fault::Kind::Return, -1}},
                                     NamedFault{"BringsNothing", {Fault::Kind::Return, 0}},
                                     NamedFault{"BringsOneByte", {Fault::Kind::Short, 1}},
                                     NamedFault{"Unplugs", {Fault::Kind::Unplug}}));

inline std::string nameOfSweep(const testing::TestParamInfo<Swept>& info) {
  return std::string(std::get<PadRow>(info.param).name) + std::get<NamedFault>(info.param).name;
}

class FaultSweep : public BusTest {
 protected:
  explicit FaultSweep(const PadRow& row) : pad(row) {}

  // What a subclass does with the pad: it opens it, calls stroke() once, and closes it in
  // closeInTime().
  virtual void use() = 0;
  // Waits for that many samples of the stroke. False when they do not arrive.
  virtual bool arrive(long samples) = 0;
  // Whether a line may be printed.
  virtual bool isKnown(const std::string& line) const {
    return std::ranges::find(pad.lines, line) != pad.lines.end();
  }
  // What else holds after a use.
  virtual void expectAfterUse() {}

  // Each call of the use meets the fault in turn. The heap does not grow, from one run to the next
  // or in all.
  void sweep(Fault fault) {
    // Make the allocations that stay, also those for the faults.
    for (int i = 0; i < 2; ++i) {
      bus.fail(HidCall::Write, {});  // which is not called
      run();
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

  // A use without such a fault. Returns what was written.
  Written run() { return run({}); }

  // Whether the pad's three threads run.
  bool connected() const { return threadCount() == m_idleThreads + 3; }

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
    EXPECT_TRUE(arrive(m_samples));
    if (m_point.call == HidCall::Read) {
      EXPECT_TRUE(bus.waitForReturned(HidCall::Read, m_point.nth + 1));
    }
  }

  template <class Close>
  void closeInTime(Close close) {
    const auto begin = std::chrono::steady_clock::now();
    close();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  }

  const PadRow& pad;
  VirtualBus::Port port = 0;

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
    EXPECT_EQ(run(), kNothingWritten);
    EXPECT_EQ(m_samples, std::ssize(pad.stroke));
    m_record = false;
    m_calls[HidCall::Read] = kReads;
    return m_calls;
  }

  Written run(Point point) {
    m_point = point;
    const long files = fileDescriptorCount();
    // A read that meets a fault has to be the one with the report, not one that timed out before.
    bus.setReadTimeout(point.call == HidCall::Read ? kLongTimeout : kSoon);
    port = bus.plug(virtualpads::makePad(pad.kind));
    if (point.nth > 0 && point.call != HidCall::Read) bus.fail(point.call, point.fault, point.nth);
    const Written written = writtenBy([this] { use(); });
    EXPECT_TRUE(comesTrue([this] { return threadCount() <= m_idleThreads; }));
    EXPECT_EQ(fileDescriptorCount(), files);
    EXPECT_EQ(bus.openHandles(), 0);
    EXPECT_EQ(bus.misuses(), 0);
    EXPECT_EQ(bus.count(HidCall::Init), bus.count(HidCall::Exit));
    EXPECT_GE(bus.calls({point.call}).size(), static_cast<std::size_t>(point.nth));
    std::istringstream lines(written.out + written.err);
    for (std::string line; std::getline(lines, line);) EXPECT_TRUE(isKnown(line)) << line;
    expectAfterUse();
    if (m_record)
      for (const CallRecord& call : bus.calls()) ++m_calls[call.call];
    bus.reset();
    return written;
  }

  Point m_point;
  const long m_idleThreads = idleThreadCount();
  long m_samples = 0;  // of the last stroke
  bool m_record = false;
  std::map<HidCall, int> m_calls;
};

}  // namespace support

#endif
