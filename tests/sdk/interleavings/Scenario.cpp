#include "Scenario.h"

#include <pthread.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <deque>
#include <initializer_list>
#include <iterator>
#include <map>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "../../support/Sample.h"
#include "../../support/Scheduler.h"
#include "../../support/TrackedHeap.h"
#include "HidapiModel.h"
#include "PenRecordQueue.h"
#include "VisionRecordQueue.h"
#include "velaii.h"
#include "velainkusb.h"
#include "velausb.h"
#include "velavision.h"

namespace interleavings {

namespace {

using support::CodeUnderTest;
using support::fail;
using support::kMicrosecond;
using support::kMillisecond;
using support::kSecond;
using support::nameThreads;
using support::note;
using support::Random;
using support::Sample;
using support::TestCode;
using virtualpads::PadKind;

// The waits of the SDK (docs/architecture.md), in milliseconds.
constexpr Time kReadTimeout = 1000 * kMillisecond;
constexpr Time kSlice = 25 * kMillisecond;
constexpr Time kPauseAfterFailedRead = 50 * kMillisecond;
constexpr Time kQueuePoll = 500 * kMicrosecond;
constexpr Time kOpenPauses = 15 * kMillisecond;
// For what is rounded.
constexpr Time kTolerance = 2 * kMillisecond;

constexpr int kAnywhere = -1;  // as x

bool isUp(int report) {
  return report % 5 == 4;
}

constexpr std::uint8_t low(int value) {
  return static_cast<std::uint8_t>(value & 0xFF);
}

constexpr std::uint8_t high(int value) {
  return static_cast<std::uint8_t>(value >> 8 & 0xFF);
}

// The pads: their reports by number, the samples that come of them, the requests of a client.

// The pads whose queues hold PEN_DATA.
struct PenPad {
  static constexpr std::array kThreads{"signal", "reading", "processing"};
  static constexpr bool kDropsFirstLift = true;
  static constexpr std::size_t kLeftSample = sizeof(PEN_DATA);
  static constexpr Time kPauses = 0;
};

struct Usb : PenPad {
  using Driver = velausb;
  static constexpr const char* kName = "usb";
  static constexpr PadKind kKind = PadKind::Usb;
  static constexpr auto& kQueue = pUSBDataHandler;
  static constexpr bool kNumbersReports = true;

  static Bytes report(int i) {
    const int x = 90 + i;
    const int y = 45 + i;
    return {static_cast<std::uint8_t>(isUp(i) ? 0 : 0x20),
            low(x),
            high(x),
            low(y),
            high(y),
            low(i % 128)};
  }
  static Sample sample(int i, unsigned number) {
    return {i * 32767 / 1000, i * 32767 / 500, i % 128, isUp(i) ? 0 : 1, number};
  }
  static void request(Driver& driver, Random&) {
    driver.ClearInking();
    driver.GetPhysicalX();
  }
};

struct Ii : PenPad {
  using Driver = velaii;
  static constexpr const char* kName = "ii";
  static constexpr PadKind kKind = PadKind::Ii;
  static constexpr auto& kQueue = pDataHandler;
  static constexpr bool kNumbersReports = true;

  static Bytes report(int i) {
    return {0,
            static_cast<std::uint8_t>(isUp(i) ? 0xFE : 0x01),
            low(i),
            high(i),
            low(7 * i),
            high(7 * i),
            low(i % 128),
            0,
            0,
            0,
            0};
  }
  static Sample sample(int i, unsigned number) {
    return {i, 7 * i, i % 128, isUp(i) ? 0 : 1, number};
  }
  static void request(Driver& driver, Random& random) {
    PAD_INFO_REPORT info{};
    _GUID serial{};
    switch (random.below(3)) {
      case 0:
        driver.GetPhysicalX();
        break;
      case 1:
        driver.GetPadInfo(&info);
        break;
      default:
        driver.GetSerialNumber(&serial);
    }
  }
};

struct Ink : PenPad {
  using Driver = velainkusb;
  static constexpr const char* kName = "ink";
  static constexpr PadKind kKind = PadKind::Ink;
  static constexpr auto& kQueue = pInkDataHandler;
  static constexpr bool kNumbersReports = false;

  static Bytes report(int i) {
    return {0x01,       static_cast<std::uint8_t>(isUp(i) ? 0xFE : 0x01),
            low(i),     high(i),
            low(7 * i), high(7 * i),
            low(i),     low(i)};
  }
  static Sample sample(int i, unsigned) {
    return {i, 7 * i, i % 256, isUp(i) ? 0 : 1, static_cast<unsigned>(i % 256)};
  }
  static void request(Driver& driver, Random& random) {
    tagOPTIONS options{};
    _GUID serial{};
    switch (random.below(4)) {
      case 0:
        driver.ClearInking();
        break;
      case 1:
        driver.GetOptions(&options);
        break;
      case 2:
        driver.SetLayerState(1, 2);
        break;
      default:
        driver.GetSerialNumber(&serial);
    }
  }
};

struct Vision {
  using Driver = velavision;
  static constexpr const char* kName = "vision";
  static constexpr PadKind kKind = PadKind::Vision;
  static constexpr auto& kQueue = pVisionDataHandler;
  static constexpr std::array kThreads{"reading", "signal", "processing"};
  static constexpr bool kDropsFirstLift = false;
  static constexpr bool kNumbersReports = false;  // it numbers the samples that it delivers
  static constexpr std::size_t kLeftSample = 0;   // none
  static constexpr Time kPauses = kOpenPauses;

  static Bytes report(int i) {
    if (isUp(i)) return {1, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, high(i), low(i), 0, 0, 0, 0, 0};
    return {1, 0x80,    high(i), low(i), high(7 * i), low(7 * i), 0, 9, 0,
            0, high(i), low(i),  0,      0,           0,          0, 0};
  }
  // A lifted pen is where it was; see Play.
  static Sample sample(int i, unsigned number) {
    return {i, 7 * i, isUp(i) ? 0 : 9, isUp(i) ? 0 : 1, number};
  }
  static void request(Driver& driver, Random& random) {
    char serial[16];
    unsigned char mode = 0;
    InkRegion region{};
    switch (random.below(4)) {
      case 0:
        driver.ClearInkRegion();
        break;
      case 1:
        driver.GetMode(&mode);
        break;
      case 2:
        driver.GetInkRegion(&region);
        break;
      default:
        driver.GetSerialNumber(serial);
    }
  }
};

// What happens in a run.
struct Plan {
  Faults faults;
  Time callbackTime;  // idle time
  int reports;
  Time gap;  // between reports, at most
  Time penComes;
  Time unplug = support::kForever;
  Time plugInAfter = support::kForever;
  int connections;
  bool twoObjects;  // of the driver, in the first connection
  bool padAtStart;
  std::string_view failingThread;  // of the first object; none if empty
  int firstReport;

  bool mayFail() const {
    return faults.featureFails > 0 || faults.readFails > 0 || unplug != support::kForever;
  }
};

template <class Value>
Value oneOf(Random& random, std::initializer_list<Value> values) {
  return values.begin()[random.below(values.size())];
}

Plan madeUp(Random& random) {
  Plan plan{};
  plan.faults.longestFeature =
      oneOf<Time>(random, {0, 0, kMillisecond, 3 * kMillisecond, 30 * kMillisecond});
  plan.faults.featureFails = oneOf<std::uint64_t>(random, {0, 0, 0, 10, 50, 100});
  plan.faults.readFails = oneOf<std::uint64_t>(random, {0, 0, 0, 10, 30});
  plan.faults.readIsShort = oneOf<std::uint64_t>(random, {0, 0, 10});
  plan.faults.readsHaveTheirText = random.oneIn(3);
  plan.faults.accessible = !random.oneIn(24);
  plan.callbackTime =
      oneOf<Time>(random, {0, 0, 300 * kMicrosecond, 3 * kMillisecond, 20 * kMillisecond});
  plan.reports = static_cast<int>(random.below(plan.faults.readFails > 0 ? 10 : 40));
  plan.gap = oneOf<Time>(random, {1, 200 * kMicrosecond, kMillisecond, 4 * kMillisecond});
  plan.penComes =
      random.below(oneOf<Time>(random, {kMillisecond, 20 * kMillisecond, 200 * kMillisecond}));
  const auto moment = [&] {
    return random.below(oneOf<Time>(random, {kMillisecond, 5 * kMillisecond, 30 * kMillisecond,
                                             150 * kMillisecond, 1200 * kMillisecond}));
  };
  if (random.oneIn(2)) {
    plan.unplug = moment();
    if (random.oneIn(2)) plan.plugInAfter = moment();
  }
  plan.connections = oneOf(random, {1, 1, 1, 2, 2, 3});
  plan.twoObjects = random.oneIn(6);
  plan.padAtStart = !random.oneIn(16);
  if (random.oneIn(12)) {
    plan.failingThread = oneOf<std::string_view>(random, {"signal", "reading", "processing"});
  } else if (plan.twoObjects && random.oneIn(2)) {
    // The close of one ends while the other one still reads.
    plan.failingThread = "reading";
  }
  plan.firstReport = static_cast<int>(random.below(10));
  return plan;
}

const char* secondThread(std::string_view first) {
  return first == "signal" ? "signal 2" : first == "reading" ? "reading 2" : "processing 2";
}

// One run with a pad of the kind.
template <class Kind>
class Play {
 public:
  static void play() {
    const TestCode scope;
    Play play;
    play.run();
  }

 private:
  using Driver = typename Kind::Driver;

  // A moment from which a duration is measured.
  struct Begin {
    Time time;
    int features;
    Time featureTime;
  };

  // A sample that is to be delivered.
  struct Expected {
    int index;
    Sample sample;
    Begin read;
  };

  Play()
      : m_random(support::random()), m_plan(madeUp(m_random)), m_pad(Kind::kKind, m_plan.faults) {
    s_play = this;
    thePad = &m_pad;
    m_pad.plugged = m_plan.padAtStart;
    m_pad.reportRead = [](hid_device_& handle, int index) { s_play->reportRead(handle, index); };
  }

  void run() {
    pthread_t penThread{};
    nameThreads({"pad"});
    pthread_create(
        &penThread, nullptr,
        [](void*) -> void* {
          s_play->movePen();
          return nullptr;
        },
        nullptr);
    for (int i = 0; i < m_plan.connections; ++i) connect(i == 0 && m_plan.twoObjects);
    pthread_join(penThread, nullptr);
    checkNothingLeft();
  }

  // The pad's thread: the user.
  void movePen() {
    const TestCode scope;
    Time next = m_plan.penComes;
    int sent = 0;
    Time unplug = m_plan.padAtStart ? m_plan.unplug : support::kForever;
    Time plugIn = m_plan.padAtStart ? support::kForever : m_plan.penComes / 2;
    for (;;) {
      const Time report = sent < m_plan.reports ? next : support::kForever;
      const Time then = std::min({report, unplug, plugIn});
      if (then == support::kForever) break;
      support::sleepFor(then > support::now() ? then - support::now() : 0);
      if (then == unplug) {
        note("is unplugged");
        m_pad.unplug();
        unplug = support::kForever;
        if (m_plan.plugInAfter != support::kForever) plugIn = support::now() + m_plan.plugInAfter;
      } else if (then == plugIn) {
        note("is plugged in");
        m_pad.plugged = true;
        m_pad.plugIn();
        plugIn = support::kForever;
      } else {
        const int index = m_plan.firstReport + sent++;
        note("sends report %d", index);
        m_pad.send(index, Kind::report(index));
        next += m_random.below(m_plan.gap);
      }
    }
    m_penIsGone = true;
  }

  // Reading threads.

  void reportRead(hid_device_& handle, int index) {
    std::deque<Expected>& queue = m_expected[&handle];
    if (Kind::kNumbersReports) m_number = m_number == 127 ? 1 : m_number + 1;
    const bool first = m_hasRead.insert({&handle, true}).second;
    if (Kind::kDropsFirstLift && first && isUp(index)) return;
    Sample sample = Kind::sample(index, m_number);
    if (!Kind::kDropsFirstLift) {  // the vision pad
      if (isUp(index)) {
        sample.x = m_last.x;
        sample.y = m_last.y;
      }
      m_last = sample;
    }
    queue.push_back({index, sample, begin()});
  }

  // The processing thread.

  static void onPen(std::int32_t x, std::int32_t y, std::int32_t pressure, std::uint8_t touch,
                    std::uint32_t, std::uint32_t sequence) {
    const TestCode scope;
    s_play->deliver({x, y, pressure, touch, sequence});
  }

  void deliver(const Sample& sample) {
    note("callback: %d, %d, number %u", sample.x, sample.y, sample.sequence);
    if (std::strncmp(support::threadName(), "processing", 10) != 0)
      fail("the callback runs on the %s thread", support::threadName());
    if (!m_open) fail("the callback is called after the close");
    if (m_twoAreOpen) {
      deliverOfTwo(sample);
    } else {
      if (m_inCallback) fail("the callback is called twice at once");
      deliverNext(sample);
    }
    m_inCallback = true;
    if (m_plan.callbackTime > 0) support::sleepFor(m_plan.callbackTime);
    m_callbackEnd = idleTime();
    m_inCallback = false;
  }

  void deliverNext(const Sample& sample) {
    std::deque<Expected>& queue = m_expected[m_pad.handles.back().get()];
    if (queue.empty()) fail("a sample is delivered that was not read");
    Expected expected = queue.front();
    queue.pop_front();
    if (!Kind::kDropsFirstLift) expected.sample.sequence = m_number = (m_number + 1) % 256;
    Sample& wanted = expected.sample;
    if (wanted.x == kAnywhere) {
      wanted.x = sample.x;
      wanted.y = sample.y;
    }
    if (sample != wanted) {
      fail("sample {%d, %d, %d, %d, number %u} instead of {%d, %d, %d, %d, number %u}", sample.x,
           sample.y, sample.pressure, sample.touch, sample.sequence, wanted.x, wanted.y,
           wanted.pressure, wanted.touch, wanted.sequence);
    }
    const Time due = std::max({expected.read.time, m_callbackEnd, m_opened});
    checkDuration("a sample's way to the callback", due,
                  kQueuePoll + (Kind::kDropsFirstLift ? 0 : featuresSince(expected.read)));
  }

  // With two driver objects of the kind, both read each report, and both processing threads take
  // from the one queue.
  void deliverOfTwo(const Sample& sample) {
    if (!Kind::kDropsFirstLift) m_number = (m_number + 1) % 256;
    for (auto& [handle, queue] : m_expected) {
      const auto found = std::find_if(queue.begin(), queue.end(), [&](const Expected& expected) {
        return expected.sample.pressure == sample.pressure &&
               expected.sample.touch == sample.touch &&
               (!Kind::kDropsFirstLift || expected.sample.x == sample.x);
      });
      if (found == queue.end()) continue;
      queue.erase(found);
      return;
    }
    fail("a sample is delivered that was not read, or once too often");
  }

  // The client's thread.

  // Fails unless what began at that idle time has taken no longer than it may.
  void checkDuration(const char* what, Time begin, Time allowed) {
    const Time taken = idleTime() - begin;
    if (taken > allowed + kTolerance) {
      fail("%s took %.3f ms instead of %.3f", what, static_cast<double>(taken) / kMillisecond,
           static_cast<double>(allowed) / kMillisecond);
    }
  }

  Begin begin() const { return {idleTime(), m_pad.features, m_pad.featureTime()}; }

  // How long feature reports since then, and the waits for them, may have taken. Without a failure
  // one waits for another only. Afterwards a slice of a read lies between any two, and once the
  // read that began before the failure.
  Time featuresSince(const Begin& begin) const {
    const Time features = m_pad.featureTime() - begin.featureTime;
    if (!m_pad.failsAfter(begin.time)) return features;
    const auto calls = static_cast<Time>(m_pad.features - begin.features);
    return features + (calls + 1) * kSlice + m_pad.longReadEnd(begin.time) - begin.time;
  }

  // Does something that may take `allowed`, and the feature reports that it exchanges.
  template <class Operation>
  void operate(const char* what, Time allowed, Operation operation) {
    note("%s", what);
    const Begin from = begin();
    {
      const CodeUnderTest scope;
      operation();
    }
    note("%s returned", what);
    checkDuration(what, from.time,
                  allowed + (m_pad.features > from.features ? featuresSince(from) : 0));
  }

  void open(Driver& driver, bool isSecond) {
    if (!isSecond) {
      nameThreads({Kind::kThreads[0], Kind::kThreads[1], Kind::kThreads[2]});
    } else {
      nameThreads({secondThread(Kind::kThreads[0]), secondThread(Kind::kThreads[1]),
                   secondThread(Kind::kThreads[2])});
    }
    operate("OpenConnection", Kind::kPauses, [&] { driver.OpenConnection(onPen); });
  }

  void close(Driver& driver) {
    note("CloseConnection");
    const Begin from = begin();
    const bool connected = !m_pad.handles.empty() && (Kind::kQueue != nullptr || m_twoAreOpen);
    {
      const CodeUnderTest scope;
      if (driver.CloseConnection() != 0) fail("CloseConnection failed");
    }
    note("CloseConnection returned");
    // The running callback, a keep-alive and the reset.
    Time end = from.time + m_plan.callbackTime + kQueuePoll;
    if (m_pad.features > from.features || !Kind::kDropsFirstLift) end += featuresSince(from);
    if (connected) {
      const bool isThere = m_pad.plugged && m_pad.plugs == m_pad.handles.back()->plug;
      end = std::max(end, isThere ? m_pad.lastReport() : m_pad.unplugged);
      end += isThere || m_twoAreOpen ? kReadTimeout : kPauseAfterFailedRead;
    }
    checkDuration("CloseConnection", from.time, end - from.time);
  }

  // Two objects, each by a thread of its own.
  void closeAtOnce(Driver& driver, Driver& second) {
    nameThreads({"client 2"});
    pthread_t other{};
    m_closedByOther = &second;
    pthread_create(
        &other, nullptr,
        [](void*) -> void* {
          const TestCode scope;
          // Often while the other client goes on towards the release of the queue.
          support::waitUntil(
              "waits for the other close", [] { return support::threadHasEnded("processing"); },
              support::now() + s_play->m_random.below(2 * kQueuePoll));
          s_play->close(*s_play->m_closedByOther);
          return nullptr;
        },
        nullptr);
    close(driver);
    pthread_join(other, nullptr);
  }

  std::unique_ptr<Driver> newDriver() {
    const CodeUnderTest scope;
    return std::make_unique<Driver>();
  }

  void destroy(std::unique_ptr<Driver>& driver) {
    const CodeUnderTest scope;
    driver.reset();
  }

  // From the open to the close of a driver object, or of two.
  void connect(bool two) {
    m_expected.clear();
    const std::size_t handlesBefore = m_pad.handles.size();
    std::unique_ptr<Driver> driver = newDriver();
    std::unique_ptr<Driver> second;
    if (m_random.oneIn(4)) operate("GetNumDevices", 0, [&] { driver->GetNumDevices(); });
    const std::string_view failing = std::exchange(m_plan.failingThread, {});
    const auto* const position = std::find(Kind::kThreads.begin(), Kind::kThreads.end(), failing);
    if (!failing.empty())
      support::failThreadStart(static_cast<int>(position - Kind::kThreads.begin()));
    m_open = true;
    m_twoAreOpen = two;
    open(*driver, false);
    if (two) {
      second = newDriver();
      open(*second, true);
    }
    support::failThreadStart(-1);
    m_opened = idleTime();
    const bool stops = m_random.oneIn(16);
    if (stops) driver->SetRunningFalse();
    for (auto requests = m_random.below(6); requests > 0; --requests) {
      if (m_random.oneIn(3))
        support::sleepFor(m_random.below(20 * kMillisecond));
      else if (const Time end = m_pad.pauseEnd(); m_random.oneIn(2) && end > idleTime())
        support::sleepFor(end - idleTime());  // meets the next read
      operate("request", 0, [&] { Kind::request(*driver, m_random); });
    }
    if (m_random.oneIn(2) && failing.empty() && !stops && Kind::kQueue != nullptr) settle();
    if (two && m_random.oneIn(2)) std::swap(driver, second);
    if (two && m_random.oneIn(2)) {
      closeAtOnce(*driver, *second);
    } else {
      close(*driver);
      m_open = Kind::kQueue != nullptr;  // one that was never connected leaves the queue
      if (m_random.oneIn(8)) driver->CloseConnection();
      if (m_random.oneIn(2)) destroy(driver);
      if (two) close(*second);
    }
    destroy(second);
    destroy(driver);
    m_open = false;
    m_twoAreOpen = false;
    if (Kind::kQueue != nullptr) fail("the queue is left");
    if (two) {
      m_leftIsExact = false;
      m_last.x = kAnywhere;  // either reader was the last
    }
    if (Kind::kLeftSample == 0) return;
    for (std::size_t i = handlesBefore; i < m_pad.handles.size(); ++i)
      m_left += m_expected[m_pad.handles[i].get()].size();
  }

  // Once the pen is gone and the callback has had its time, every report has become a sample.
  void settle() {
    note("waits for the last sample");
    while (!m_penIsGone) support::sleepFor(5 * kMillisecond);
    const Time feature = m_plan.faults.longestFeature;
    const bool fails = m_pad.failsAfter(0) || m_plan.mayFail();
    const Time late =
        5 * kMillisecond + feature + (fails ? kPauseAfterFailedRead + feature + kReadTimeout : 0);
    idleFor(late);
    while (m_plan.faults.readFails > 0 && m_pad.hasUnread()) idleFor(late);
    if (m_pad.hasUnread()) fail("a report was not read");
    // The vision pad's keep-alive may precede each sample.
    const Time keepAlive =
        Kind::kDropsFirstLift ? 0 : feature + (fails ? kSlice + kReadTimeout : 0);
    const Time step = m_plan.callbackTime + kMillisecond;
    const Time end = idleTime() + waiting() * (step + keepAlive) + step;
    while (waiting() > 0) {
      if (idleTime() > end) fail("a sample that was read was not delivered");
      support::sleepFor(step);
    }
  }

  // Other than in a sleep, every thread that can go on does so.
  static void idleFor(Time time) {
    const Time end = idleTime() + time;
    while (idleTime() < end) support::sleepFor(end - idleTime());
  }

  // How many samples have been read and not delivered.
  std::size_t waiting() const {
    std::size_t count = 0;
    for (const auto& [handle, queue] : m_expected) count += queue.size();
    return count;
  }

  // Samples that were queued at the close are left on purpose.
  void checkNothingLeft() {
    m_pad.checkNothingLeft();
    std::size_t left = 0;
    support::visitLiveBlocks(
        [](const void*, std::size_t size, void* count) {
          if (size != Kind::kLeftSample) fail("%zu bytes of memory are left", size);
          ++*static_cast<std::size_t*>(count);
        },
        &left);
    if (m_leftIsExact ? left != m_left : left > m_left)
      fail("%zu samples are left instead of %zu", left, m_left);
  }

  static inline Play* s_play = nullptr;

  Random& m_random;
  Plan m_plan;
  Pad m_pad;
  bool m_open = false;
  bool m_twoAreOpen = false;
  Driver* m_closedByOther = nullptr;
  bool m_inCallback = false;
  bool m_penIsGone = false;
  Time m_opened = 0;  // idle times
  Time m_callbackEnd = 0;
  // The samples to come, by the handle that they were read from.
  std::map<const hid_device_*, std::deque<Expected>> m_expected;
  std::map<const hid_device_*, bool> m_hasRead;
  unsigned m_number = 0;  // of the process's last report or, for the vision pad, sample
  Sample m_last{};        // of the vision pad
  std::size_t m_left = 0;
  bool m_leftIsExact = true;
};

}  // namespace

const std::array<Scenario, 4> kScenarios{{
    {Usb::kName, Play<Usb>::play},
    {Ii::kName, Play<Ii>::play},
    {Ink::kName, Play<Ink>::play},
    {Vision::kName, Play<Vision>::play},
}};

}  // namespace interleavings
