// The application over the SDK and the virtual pads, operated with mouse and keyboard: everything
// from the pad's raw reports to the pixels.
#include <gmock/gmock.h>

#include <QAction>
#include <QApplication>
#include <QElapsedTimer>
#include <QTest>
#include <memory>
#include <thread>

#include "AppDelegate.h"
#include "MainWindowController.h"
#include "Queue.h"
#include "VelaWrap.h"
#include "giivela.h"
#include "support/PadTable.h"
#include "velausb.h"
#include "virtualpads/PadModel.h"
#include "virtualpads/hidapi/VirtualBus.h"

namespace {

using support::PadRow;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;
using virtualpads::HidCall;
using virtualpads::PadKind;
using virtualpads::VirtualBus;

const QColor kWhite(255, 255, 255);
const QColor kBlue(0, 0, 255);

class EndToEndTest : public testing::Test {
 protected:
  EndToEndTest() {
    bus.reset();
    bus.setReadTimeout(std::chrono::milliseconds(1));
    delegate.applicationDidFinishLaunching(nullptr);
    window = controller().m_prolist->window();
    window->activateWindow();
    EXPECT_TRUE(QTest::qWaitForWindowActive(window));
  }
  ~EndToEndTest() override {
    controller().ResetButton(nullptr);
    deletegIIVela(controller().velaobj);  // the application leaves it to the end of the process
    delete m_mainWindowController.exchange(nullptr);
    gpadindex = 0;
    EXPECT_EQ(bus.openHandles(), 0);
    EXPECT_EQ(bus.misuses(), 0);
  }

  static MainWindowController& controller() { return *m_mainWindowController; }
  static DrawView& view() { return *controller().m_drawview; }

  static void choose(const char* provider) {
    QComboBox* list = controller().m_prolist;
    list->setFocus();
    QTest::keyClick(list, Qt::Key_Home);
    while (list->currentText() != provider) {
      const int before = list->currentIndex();
      QTest::keyClick(list, Qt::Key_Down);
      ASSERT_NE(list->currentIndex(), before) << "no " << provider << " in the list";
    }
  }

  static void click(QPushButton* button) {
    ASSERT_TRUE(button->isEnabled()) << button->text().toStdString();
    QTest::mouseClick(button, Qt::LeftButton);
  }
  static void clickOpen() { click(controller().m_OpenButton); }
  static void clickClear() { click(controller().m_ClearButton); }
  static void clickReset() { click(controller().m_ResetButton); }

  void move(VirtualBus::Port port, double x, double y, bool touch) {
    ASSERT_TRUE(bus.sendPen(port, {.x = x, .y = y, .pressure = 0.5, .touch = touch}));
  }
  // A stroke from left to right at the given height of the surface.
  void writeLine(VirtualBus::Port port, double y) {
    move(port, 0.25, y, true);
    move(port, 0.75, y, true);
    move(port, 0.75, y, false);
  }

  // Waits until the view has that many points.
  static bool waitForPoints(int points) {
    return QTest::qWaitFor([points] { return view().path().elementCount() == points; });
  }

  static void expectIdle() {
    EXPECT_TRUE(controller().m_OpenButton->isEnabled());
    EXPECT_FALSE(controller().m_ClearButton->isEnabled());
    EXPECT_FALSE(controller().m_ResetButton->isEnabled());
  }
  static void expectConnected() {
    EXPECT_FALSE(controller().m_OpenButton->isEnabled());
    EXPECT_TRUE(controller().m_ClearButton->isEnabled());
    EXPECT_TRUE(controller().m_ResetButton->isEnabled());
  }

  VirtualBus& bus = VirtualBus::instance();
  AppDelegate delegate;
  QWidget* window;
};

// --- every pad: choose, open, write, clear, write again, reset ---

class EveryPadTest : public EndToEndTest, public testing::WithParamInterface<PadRow> {
 protected:
  // The line in the middle, and nothing else.
  void expectLine(bool drawn) {
    const QImage picture = view().grab().toImage();
    const support::PadView& at = GetParam().view;
    EXPECT_EQ(picture.size(), QSize(at.width, at.height));
    for (int x = 2; x < at.width - 2; ++x) {
      const bool inked = drawn && x >= at.left && x < at.right;
      for (const int y : {at.middle - 1, at.middle})
        ASSERT_EQ(picture.pixelColor(x, y), inked ? kBlue : kWhite) << "at " << x << ", " << y;
      ASSERT_EQ(picture.pixelColor(x, at.middle - 2), kWhite);
      ASSERT_EQ(picture.pixelColor(x, at.middle + 1), kWhite);
    }
  }
};

TEST_P(EveryPadTest, WritingIsSeenUntilItIsWiped) {
  const auto port = bus.plug(virtualpads::makePad(GetParam().kind));
  choose(GetParam().provider);
  CaptureStdout();
  clickOpen();
  EXPECT_EQ(GetCapturedStdout(), "");
  expectConnected();
  EXPECT_EQ(bus.openHandles(port), 1);
  expectLine(false);

  writeLine(port, 0.5);
  ASSERT_TRUE(waitForPoints(3));
  expectLine(true);

  clickClear();
  expectConnected();
  EXPECT_EQ(bus.openHandles(port), 1);
  expectLine(false);
  writeLine(port, 0.5);
  ASSERT_TRUE(waitForPoints(3));
  expectLine(true);

  clickReset();
  expectIdle();
  EXPECT_EQ(bus.openHandles(port), 0);
  expectLine(false);

  clickOpen();
  writeLine(port, 0.5);
  ASSERT_TRUE(waitForPoints(3));
  expectLine(true);
}

const auto kPads = testing::ValuesIn(support::padTable());

INSTANTIATE_TEST_SUITE_P(Pads, EveryPadTest, kPads, support::nameOfRow);

// --- failures ---

TEST_F(EndToEndTest, PadThatIsNotAttachedIsReported) {
  choose("Vela Ink");
  CaptureStdout();
  clickOpen();
  EXPECT_EQ(GetCapturedStdout(), "No device Vela Ink found\n");
  expectIdle();
}

TEST_F(EndToEndTest, OpenWorksOnceThePadIsPluggedIn) {
  CaptureStdout();
  clickOpen();
  EXPECT_EQ(GetCapturedStdout(), "No device Vela USB found\n");
  // The provider is still open. Opening it again leaks its driver.
  const std::unique_ptr<velausb> leftBehind(m_pvelausb);
  const auto port = bus.plug(virtualpads::makePad(PadKind::Usb));
  clickOpen();
  EXPECT_NE(m_pvelausb, leftBehind.get());
  expectConnected();
  writeLine(port, 0.5);
  EXPECT_TRUE(waitForPoints(3));
}

TEST_F(EndToEndTest, ResettingAfterAFailedOpenClosesTheProvider) {
  CaptureStdout();
  clickOpen();
  GetCapturedStdout();
  ASSERT_NE(m_pvelausb, nullptr);
  controller().ResetButton(nullptr);
  EXPECT_EQ(m_pvelausb, nullptr);
  expectIdle();
}

TEST_F(EndToEndTest, QuittingAfterAFailedOpenClosesTheProviderAndEnds) {
  CaptureStdout();
  clickOpen();
  GetCapturedStdout();
  ASSERT_NE(m_pvelausb, nullptr);
  auto* quit = window->findChild<QAction*>("quit");
  QMetaObject::invokeMethod(quit, &QAction::trigger, Qt::QueuedConnection);
  EXPECT_EQ(QApplication::exec(), 0);
  EXPECT_EQ(m_pvelausb, nullptr);
  expectIdle();
}

// Opening it reports success, so the window is connected. No samples arrive, and everything can be
// closed.
class UnopenablePadTest : public EveryPadTest {};

TEST_P(UnopenablePadTest, LooksConnectedAndIsResetSafely) {
  const auto port = bus.plug(virtualpads::makePad(GetParam().kind));
  bus.setAccessible(port, false);
  choose(GetParam().provider);
  CaptureStdout();
  clickOpen();
  expectConnected();
  clickClear();
  expectConnected();
  EXPECT_EQ(bus.openHandles(), 0);
  clickReset();
  GetCapturedStdout();  // the drivers' own lines
  expectIdle();

  bus.setAccessible(port, true);
  clickOpen();
  writeLine(port, 0.5);
  EXPECT_TRUE(waitForPoints(3));
}

INSTANTIATE_TEST_SUITE_P(Pads, UnopenablePadTest, kPads, support::nameOfRow);

class UnpluggedPadTest : public EveryPadTest {
 protected:
  UnpluggedPadTest() { plugAndWrite(); }

  void plugAndWrite() {
    port = bus.plug(virtualpads::makePad(GetParam().kind));
    choose(GetParam().provider);
    clickOpen();
    writeLine(port, 0.5);
    EXPECT_TRUE(waitForPoints(3));
  }

  VirtualBus::Port port;
};

TEST_P(UnpluggedPadTest, IsResetAndWorksWhenItIsBack) {
  bus.unplug(port);
  clickClear();
  EXPECT_EQ(view().path().elementCount(), 0);
  clickReset();
  expectIdle();
  plugAndWrite();
}

TEST_P(UnpluggedPadTest, IsResetWithinFourSeconds) {
  bus.setReadTimeout({});  // that of real pads
  const long reads = bus.count(HidCall::Read);
  ASSERT_TRUE(bus.waitForBegun(HidCall::Read, reads + 2));
  bus.unplug(port);
  QElapsedTimer clock;
  clock.start();
  clickReset();
  EXPECT_LT(clock.elapsed(), 4000);
  expectIdle();
  EXPECT_EQ(bus.openHandles(), 0);
}

INSTANTIATE_TEST_SUITE_P(Pads, UnpluggedPadTest, kPads, support::nameOfRow);

// --- a pad that streams as fast as it is read ---

class StreamTest : public EndToEndTest {
 protected:
  StreamTest() {
    port = bus.plug(virtualpads::makePad(PadKind::Usb));
    clickOpen();
  }
  ~StreamTest() override {
    if (stream.joinable()) stream.join();
  }

  // Sends that many samples of one stroke, none in the left or upper quarter of the surface.
  void startStream(int samples) {
    stream = std::thread([this, samples] {
      for (int i = 0; i < samples; ++i) {
        const double way = 0.25 + 0.5 * (i % 100) / 100;
        bus.sendPen(port, {.x = way, .y = way, .pressure = 1, .touch = true});
      }
    });
  }

  // Nothing was drawn from or to the corner.
  static void expectNoInkNearTheCorner() {
    const QPainterPath& path = view().path();
    for (int i = 0; i < path.elementCount(); ++i) {
      ASSERT_GE(path.elementAt(i).x, 58);
      ASSERT_GE(path.elementAt(i).y, 40);
    }
    if (path.elementCount() > 0) {
      ASSERT_TRUE(path.elementAt(0).isMoveTo());
    }
  }

  VirtualBus::Port port;
  std::thread stream;
};

TEST_F(StreamTest, ClearDuringTheStreamLeavesNoLineFromTheCorner) {
  startStream(20'000);
  for (int i = 0; i < 200; ++i) {
    clickClear();
    expectNoInkNearTheCorner();
    ASSERT_FALSE(HasFatalFailure());
    QApplication::processEvents();
  }
  stream.join();
  EXPECT_TRUE(bus.waitUntilRead(port));
}

TEST_F(StreamTest, ResetDuringTheStreamLeavesNoInk) {
  for (int i = 0; i < 20; ++i) {
    const long before = bus.count(HidCall::Read);
    startStream(300);
    ASSERT_TRUE(bus.waitForReturned(HidCall::Read, before + 50));
    clickReset();  // returns when the stream has ended
    EXPECT_EQ(view().path().elementCount(), 0);
    QApplication::processEvents();
    EXPECT_EQ(view().path().elementCount(), 0);
    EXPECT_EQ(firstPoint, 0);
    stream.join();
    clickOpen();
  }
}

}  // namespace
