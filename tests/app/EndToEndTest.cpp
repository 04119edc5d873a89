// The application over the SDK and the virtual pads, operated with mouse and keyboard: everything
// from the pad's raw reports to the pixels.
#include <gmock/gmock.h>

#include <QTest>
#include <utility>

#include "AppDelegate.h"
#include "MainWindowController.h"
#include "Queue.h"
#include "VelaWrap.h"
#include "support/PadTable.h"
#include "virtualpads/PadModel.h"
#include "virtualpads/hidapi/VirtualBus.h"

namespace {

using support::PadRow;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;
using virtualpads::VirtualBus;

const QColor kWhite(255, 255, 255);
const QColor kBlue(0, 0, 255);

class EndToEndTest : public testing::TestWithParam<PadRow> {
 protected:
  EndToEndTest() {
    bus.reset();
    bus.setReadTimeout(std::chrono::milliseconds(1));
    delegate.applicationDidFinishLaunching(nullptr);
    controller().m_prolist->window()->activateWindow();
    EXPECT_TRUE(QTest::qWaitForWindowActive(controller().m_prolist->window()));
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

  // Writes from left to right in the middle of the surface, waits for the ink, and looks at it.
  void write(VirtualBus::Port port) {
    for (const auto& [x, touch] : {std::pair{0.25, true}, {0.75, true}, {0.75, false}})
      ASSERT_TRUE(bus.sendPen(port, {.x = x, .y = 0.5, .pressure = 0.5, .touch = touch}));
    ASSERT_TRUE(QTest::qWaitFor([] { return view().path().elementCount() == 3; }));
    expectLine(true);
  }

  // The line in the middle, or none, and nothing else.
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

  VirtualBus& bus = VirtualBus::instance();
  AppDelegate delegate;
};

TEST_P(EndToEndTest, WritingIsSeenUntilItIsWiped) {
  const auto port = bus.plug(virtualpads::makePad(GetParam().kind));
  choose(GetParam().provider);
  CaptureStdout();
  click(controller().m_OpenButton);
  EXPECT_EQ(GetCapturedStdout(), "");
  EXPECT_EQ(bus.openHandles(port), 1);
  expectLine(false);
  write(port);

  click(controller().m_ClearButton);
  EXPECT_EQ(bus.openHandles(port), 1);
  expectLine(false);
  write(port);

  click(controller().m_ResetButton);
  EXPECT_EQ(bus.openHandles(port), 0);
  expectLine(false);

  click(controller().m_OpenButton);
  write(port);
}

INSTANTIATE_TEST_SUITE_P(Pads, EndToEndTest, testing::ValuesIn(support::padTable()),
                         support::nameOfRow);

}  // namespace
