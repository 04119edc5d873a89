// The application over the SDK and the virtual pads, run from its start to the close of its window.
// In each run a different external call fails: each call into hidapi, each thread start, each wait
// for the signal.
#include <gtest/gtest.h>

#include <QApplication>
#include <QTest>
#include <array>
#include <cerrno>
#include <csignal>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "AppDelegate.h"
#include "MainWindowController.h"
#include "Queue.h"
#include "VelaWrap.h"
#include "giivela.h"
#include "support/AllocationCount.h"
#include "support/FaultPoints.h"
#include "support/Patience.h"
#include "support/ProcessState.h"
#include "support/ThreadCalls.h"
#include "support/TimeControl.h"
#include "support/Written.h"
#include "velaii.h"
#include "velainkusb.h"
#include "velausb.h"
#include "velavision.h"
#include "virtualpads/PadModel.h"

namespace {

using support::callsExpected;
using support::callsMade;
using support::comesTrue;
using support::expectPoints;
using support::failAt;
using support::FaultPoint;
using support::ThreadCalls;
using support::Written;
using support::writtenBy;
using virtualpads::Fault;
using virtualpads::HidCall;
using virtualpads::PadKind;
using virtualpads::VirtualBus;

// How a run with a fault differs from a run without.
struct Outcome {
  std::string out = {};
  std::string err = {};
  std::optional<QSize> view = {};  // while connected
  std::size_t skips = 0;           // how many of the following calls are not made
  bool repeated = false;           // the call is repeated
  bool silent = false;             // the pen does not write
  long unfreed = 0;                // samples that the queue's destruction leaves allocated
  bool absent = false;             // no pad is found, so that there is no connection
};

using HidapiCall = support::HidapiCall<Outcome>;

struct Pad {
  const char* name;
  PadKind kind;
  const char* provider;
  QSize view;
  std::vector<HidapiCall> calls;         // of the whole run, in order
  void (*stopRunning)();                 // the driver's
  std::array<std::string, 3> threads;    // in start order
  std::array<Outcome, 3> threadsFailed;  // when they do not start
  const char* sigwaitLine;
};

Outcome absent(const char* line) {
  return {.out = line, .absent = true};
}

const Pad kUsb{
    .name = "Usb",
    .kind = PadKind::Usb,
    .provider = "Vela USB",
    .view = {265, 161},
    .calls =
        {
            {"init"},
            {"enumerate", absent("No device Vela USB found\n")},
            {"free enumeration"},
            {"open", {.skips = 2, .silent = true}},
            {"set nonblocking"},
            {"close"},
            {"exit"},
        },
    .stopRunning = [] { m_pvelausb->SetRunningFalse(); },
    .threads = {"signal", "reading", "processing"},
    .threadsFailed = {{
        {.out = "create pollsignal failed\n"},
        {.out = "create userData failed\n", .silent = true},
        {.out = "create processdata failed\n", .silent = true, .unfreed = 6},
    }},
    .sigwaitLine = "sigwait failed, result 22\n",
};

// The size is requested from the pad II and is 0 if the pad does not report it.
const Pad kIi{
    .name = "Ii",
    .kind = PadKind::Ii,
    .provider = "Vela II",
    .view = {265, 161},
    .calls =
        {
            {"init"},
            {"enumerate", absent("No device Vela II found\n")},
            {"free enumeration"},
            {"open",
             {.out = "velaii:opendevice failed\n",
              .view = QSize(0, 0),
              .skips = 4,
              .silent = true}},
            {"set nonblocking"},
            {"get 10", {.view = QSize(0, 161)}, Outcome{.view = QSize(0, 161)}},
            {"get 10", {.view = QSize(265, 0)}, Outcome{.view = QSize(265, 0)}},
            {"close"},
            {"exit"},
        },
    .stopRunning = [] { m_pvelaii->SetRunningFalse(); },
    .threads = {"signal", "reading", "processing"},
    .threadsFailed = {{
        {.out = "create pollsignal failed\n"},
        {.out = "create getdata_thread failed\n", .silent = true},
        {.out = "create processdata failed\n", .silent = true, .unfreed = 6},
    }},
    .sigwaitLine = "",
};

// If reading the ink pad's options returns nothing, they are not written back, except for ink trace
// and backlight.
const Outcome kUnsentEdit{.skips = 1};

const Pad kInk{
    .name = "Ink",
    .kind = PadKind::Ink,
    .provider = "Vela Ink",
    .view = {224, 164},
    .calls =
        {
            {"init"},
            {"enumerate", absent("No device Vela Ink found\n")},
            {"free enumeration"},
            {"open", {.skips = 33, .silent = true}},
            {"set nonblocking"},
            // Open: the picture
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
            // Clear
            {"set 9", {}, Outcome{}},
            // Reset: ink trace, backlight, each layer cleared and set
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
    .stopRunning = [] { m_pvelaink->SetRunningFalse(); },
    .threads = {"signal", "reading", "processing"},
    .threadsFailed = {{
        {.out = "create pollsignal failed\n"},
        {.out = "create getdata_thread failed\n", .silent = true},
        {.out = "create processdata failed\n", .silent = true, .unfreed = 6},
    }},
    .sigwaitLine = "sigwait failed, result 22\n",
};

// If the vision pad's set-up is aborted, its size is unknown.
const Pad kVision{
    .name = "Vision",
    .kind = PadKind::Vision,
    .provider = "Vela Vision",
    .view = {324, 202},
    .calls =
        {
            {"init"},
            {"enumerate", absent("No device Vela Vision found\n")},
            {"free enumeration"},
            {"open", {.repeated = true}},
            {"set nonblocking"},
            // Open: reset
            {"get 3",
             {.err = "Reset Velavision failed\n"
                     "Velavision:OpenConnection failed in USB commnication\n",
              .view = QSize(0, 0),
              .skips = 5,
              .silent = true},
             Outcome{}},
            // mode
            {"set 4",
             {.err = "SetMode 1 != current mode 0\n"},
             Outcome{.err = "SetMode 1 != current mode 0\n"}},
            {"get 4",
             {.err = "SetMode 1 != current mode 0\n"},
             Outcome{.err = "Velavision:OpenConnection failed in USB commnication\n",
                     .view = QSize(0, 0),
                     .skips = 3,
                     .silent = true}},
            // ink region
            {"get 17", {}, Outcome{}},
            {"set 17", {.err = "SetInkRegion failed!!\n"}, Outcome{}},
            // pad information
            {"get 12",
             {.err = "GetPadInfoReport return false rpt size 65!!\n", .view = QSize(0, 0)},
             Outcome{.view = QSize(0, 0)}},
            // Clear
            {"set 18", {}, Outcome{.err = "ClearInkRegion return false\n"}},
            // Reset
            {"set 4", {}, Outcome{}},
            {"close"},
            {"exit"},
        },
    .stopRunning = [] { m_pvelavision->SetRunningFalse(); },
    .threads = {"reading", "signal", "processing"},
    .threadsFailed = {{
        {.err = "create getdata failed\n", .silent = true},
        {.err = "create pollsignal failed\n"},
        {.err = "create processdata failed\n", .silent = true},
    }},
    .sigwaitLine = "",
};

// What a user sees during a run.
struct Sight {
  bool connected = false;     // after Open
  QSize view = {};            // then
  std::vector<int> ink = {};  // the points in the view: written, cleared, written, reset
  bool idle = false;          // when the window has been closed
  bool operator==(const Sight&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Sight& sight) {
  return out << (sight.connected ? "connected, view " : "not connected, view ")
             << sight.view.width() << " x " << sight.view.height() << ", ink "
             << testing::PrintToString(sight.ink) << (sight.idle ? ", idle" : ", not idle");
}

// Qt's own messages go to the test instead of standard error. The message that the offscreen
// platform prints for each window is ignored.
class QtMessages {
 public:
  QtMessages() : m_before(qInstallMessageHandler(note)) { unexpected.clear(); }
  ~QtMessages() {
    qInstallMessageHandler(m_before);
    EXPECT_EQ(unexpected, QStringList());
  }
  QtMessages(const QtMessages&) = delete;
  QtMessages& operator=(const QtMessages&) = delete;

 private:
  static void note(QtMsgType, const QMessageLogContext&, const QString& message) {
    if (message != "This plugin does not support propagateSizeHints()") unexpected << message;
  }

  static inline QStringList unexpected;
  QtMessageHandler m_before;
};

class FaultSweepTest : public testing::Test {
 protected:
  FaultSweepTest() {
    bus.reset();
    time.stopProcessorTime(0);  // no keep-alive comes between the calls
  }

  static MainWindowController& controller() { return *m_mainWindowController; }
  static DrawView& view() { return *controller().m_drawview; }

  static void choose(const char* provider) {
    QComboBox* list = controller().m_prolist;
    QTest::keyClick(list, Qt::Key_Home);
    while (list->currentText() != provider) QTest::keyClick(list, Qt::Key_Down);
  }

  // "open", "clear" and "reset" for the buttons that are enabled.
  static std::string enabledButtons() {
    std::string enabled;
    if (controller().m_OpenButton->isEnabled()) enabled += "open ";
    if (controller().m_ClearButton->isEnabled()) enabled += "clear ";
    if (controller().m_ResetButton->isEnabled()) enabled += "reset ";
    return enabled;
  }

  // Writes a line and returns the number of points that the view then has. Waits for the pen unless
  // it is known to be silent.
  int write(bool silent) {
    for (const auto& [x, touch] : {std::pair{0.25, true}, {0.75, true}, {0.75, false}}) {
      bus.sendPen(port, {.x = x, .y = 0.5, .pressure = 0.5, .touch = touch});
    }
    if (!silent) {
      EXPECT_TRUE(comesTrue([] { return view().path().elementCount() == 3; }));
    }
    QApplication::processEvents();
    view().grab();
    return view().path().elementCount();
  }

  // The application from its start to the close of its window.
  Sight live(const Pad& pad, bool silent) {
    Sight sight;
    AppDelegate delegate;
    delegate.applicationDidFinishLaunching(qApp);
    QWidget* const window = controller().m_prolist->window();
    choose(pad.provider);
    QTest::mouseClick(controller().m_OpenButton, Qt::LeftButton);
    sight.connected = enabledButtons() == "clear reset ";
    if (sight.connected) {
      sight.view = view().size();
      sight.ink.push_back(write(silent));
      QTest::mouseClick(controller().m_ClearButton, Qt::LeftButton);
      sight.ink.push_back(view().path().elementCount());
      sight.ink.push_back(write(silent));
      QTest::mouseClick(controller().m_ResetButton, Qt::LeftButton);
      sight.ink.push_back(view().path().elementCount());
    }
    window->close();
    EXPECT_TRUE(delegate.applicationShouldTerminateAfterLastWindowClosed(qApp));
    delegate.applicationWillTerminate(qApp);
    sight.idle = enabledButtons() == "open ";
    deletegIIVela(controller().velaobj);  // the application leaves it to the end of the process
    delete m_mainWindowController.exchange(nullptr);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QApplication::processEvents();
    gpadindex = 0;
    firstPoint = 0;
    return sight;
  }

  // Runs the application with the pad after `arrange`, compares the result with the outcome and
  // checks for leaks. `point` is the call that fails.
  void expectOutcome(
      const Pad& pad, const Outcome& outcome, std::optional<FaultPoint> point = {},
      const std::function<void(ThreadCalls&)>& arrange = [](ThreadCalls&) {}) {
    const long threadsBefore = support::threadCount();
    const long filesBefore = support::fileDescriptorCount();
    const long allocationsBefore = support::liveAllocations();
    compare(pad, outcome, point, arrange);
    EXPECT_TRUE(comesTrue([&] { return support::threadCount() <= threadsBefore; }));
    EXPECT_EQ(support::fileDescriptorCount(), filesBefore);
    EXPECT_EQ(bus.openHandles(), 0);
    EXPECT_EQ(bus.misuses(), 0);
    bus.reset();
    unfreed += outcome.unfreed;
    EXPECT_LE(support::liveAllocations(), allocationsBefore + outcome.unfreed + kKeptByQt);
    EXPECT_LE(support::liveAllocations(), allocationsAtFirst + unfreed + kKeptByQtInAll);
  }

  void compare(const Pad& pad, const Outcome& outcome, std::optional<FaultPoint> point,
               const std::function<void(ThreadCalls&)>& arrange) {
    bus.setReadTimeout(std::chrono::milliseconds(1));
    port = bus.plug(virtualpads::makePad(pad.kind));
    ThreadCalls threads(pad.threads);
    if (point) failAt(bus, pad.calls, point->position, {Fault::Kind::Return, point->value});
    arrange(threads);
    Sight sight;
    EXPECT_EQ(writtenBy([&] { sight = live(pad, outcome.silent); }),
              (Written{outcome.out, outcome.err}));
    EXPECT_EQ(sight, sightOf(pad, outcome));
    EXPECT_EQ(callsMade(bus),
              outcome.absent
                  ? (std::vector<std::string>{"init", "enumerate", "free enumeration", "exit"})
                  : callsExpected(pad.calls, outcome, point ? point->position : pad.calls.size()));
    if (point) {
      EXPECT_TRUE(hasFailed(bus, *point));
    }
  }

  // Runs the application without a fault, so that one-time allocations are made.
  void warmUp(const Pad& pad) {
    for (int i = 0; i < 3; ++i) {
      const long threadsBefore = support::threadCount();
      bus.fail(HidCall::Write, {});  // which is not made
      compare(pad, {}, {}, [](ThreadCalls&) {});
      // The first run may leave a thread of a library behind.
      if (i > 0) {
        EXPECT_TRUE(comesTrue([&] { return support::threadCount() <= threadsBefore; }));
      }
      bus.reset();
    }
    // Also once with each fault, because Qt caches data for the windows of those runs too.
    support::sweepCalls(pad.calls, [&](const Outcome& outcome, FaultPoint point) {
      compare(pad, outcome, point, [](ThreadCalls&) {});
      bus.reset();
    });
    allocationsAtFirst = support::liveAllocations();
    expectOutcome(pad, {});
  }

  static Sight sightOf(const Pad& pad, const Outcome& outcome) {
    if (outcome.absent) return {.idle = true};
    return {.connected = true,
            .view = outcome.view.value_or(pad.view),
            .ink = outcome.silent ? std::vector{0, 0, 0, 0} : std::vector{3, 0, 3, 0},
            .idle = true};
  }

  // Each call into hidapi except reads fails in turn. Returns the number of faults tried.
  int sweepCalls(const Pad& pad) {
    warmUp(pad);
    return support::sweepCalls(pad.calls, [&](const Outcome& outcome, FaultPoint point) {
      expectOutcome(pad, outcome, point);
    });
  }

  // Qt sometimes caches a little more or less for its next window. These are the limits in
  // allocations, from one run to the next and in total.
  static constexpr long kKeptByQt = 3;
  static constexpr long kKeptByQtInAll = 6;

  VirtualBus& bus = VirtualBus::instance();
  VirtualBus::Port port = 0;
  long allocationsAtFirst = 0;
  long unfreed = 0;
  support::TimeControl time;
  QtMessages messages;
};

TEST_F(FaultSweepTest, EachCallOfTheUsbPad) {
  expectPoints(sweepCalls(kUsb), 7);
}

TEST_F(FaultSweepTest, EachCallOfThePadIi) {
  expectPoints(sweepCalls(kIi), 11);  // 9 calls, 2 of them for feature reports
}

TEST_F(FaultSweepTest, EachCallOfTheInkPad) {
  expectPoints(sweepCalls(kInk), 69);  // 38 calls, 31 of them for feature reports
}

TEST_F(FaultSweepTest, EachCallOfTheVisionPad) {
  expectPoints(sweepCalls(kVision), 23);  // 15 calls, 8 of them for feature reports
}

class FaultSweepOfEveryPadTest : public FaultSweepTest,
                                 public testing::WithParamInterface<const Pad*> {};

// A read that fails or returns nothing is repeated, so the fault has no visible effect.
TEST_P(FaultSweepOfEveryPadTest, EachOfTheFirstReads) {
  warmUp(*GetParam());
  int points = 0;
  for (int nth = 1; nth <= 10; ++nth) {
    for (const int value : {-1, 0}) {
      SCOPED_TRACE("read " + std::to_string(nth) + " returns " + std::to_string(value));
      expectOutcome(*GetParam(), {}, {}, [&](ThreadCalls&) {
        bus.fail(HidCall::Read, {Fault::Kind::Return, value}, nth);
      });
      ++points;
    }
  }
  expectPoints(points, 20);
}

// The fourth start never happens.
TEST_P(FaultSweepOfEveryPadTest, EachThreadStart) {
  const Pad& pad = *GetParam();
  warmUp(pad);
  int points = 0;
  for (const Outcome& outcome : pad.threadsFailed) {
    ++points;
    SCOPED_TRACE("start " + std::to_string(points));
    expectOutcome(pad, outcome, {}, [&](ThreadCalls& threads) { threads.failStarts({points}); });
  }
  expectOutcome(pad, {}, {}, [&](ThreadCalls& threads) { threads.failStarts({points + 1}); });
  expectPoints(points, 3);
}

// The first wait for the signal fails, then the second. Deliberate: the reading thread then never
// ends by itself. The test ends it when Reset waits for it.
TEST_P(FaultSweepOfEveryPadTest, EachWaitForTheSignal) {
  const Pad& pad = *GetParam();
  warmUp(pad);
  int points = 0;
  const std::vector<std::pair<int, int>> answers[] = {{{EINVAL, 0}}, {{0, SIGUSR2}, {EINVAL, 0}}};
  for (const auto& answer : answers) {
    ++points;
    SCOPED_TRACE("wait " + std::to_string(points));
    int stops = 0;
    expectOutcome(pad, {.out = pad.sigwaitLine}, {}, [&](ThreadCalls& threads) {
      threads.answerWaits(answer);
      threads.on("join reading", [&] {
        ++stops;
        pad.stopRunning();
      });
    });
    EXPECT_EQ(stops, 1);
  }
  expectPoints(points, 2);
}

INSTANTIATE_TEST_SUITE_P(Pads, FaultSweepOfEveryPadTest,
                         testing::Values(&kUsb, &kIi, &kInk, &kVision),
                         [](const auto& tested) { return std::string(tested.param->name); });

}  // namespace
