// The application's use of each pad: from its start through Open, a stroke, Clear and Reset to the
// close of its window.
#include "support/FaultSweep.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QTest>
#include <optional>
#include <string>
#include <tuple>

#include "AppDelegate.h"
#include "MainWindowController.h"
#include "Queue.h"
#include "VelaWrap.h"
#include "support/TimeControl.h"

namespace {

using support::PadRow;

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

class FaultSweepTest : public support::FaultSweep,
                       public testing::WithParamInterface<support::Swept> {
 protected:
  FaultSweepTest() : FaultSweep(std::get<PadRow>(GetParam())) {}

  // Qt sometimes caches a little more or less for its next window.
  static constexpr long kKeptByQt = 3;

  static MainWindowController& controller() { return *m_mainWindowController; }
  static DrawView& view() { return *controller().m_drawview; }

  void choose() const {
    QComboBox* list = controller().m_prolist;
    QTest::keyClick(list, Qt::Key_Home);
    while (list->currentText() != pad.provider) QTest::keyClick(list, Qt::Key_Down);
  }

  void use() override {
    time.emplace().stopProcessorTime(0);  // no keep-alive comes between the calls
    AppDelegate delegate;
    delegate.applicationDidFinishLaunching(qApp);
    QWidget* const window = controller().m_prolist->window();
    choose();
    QTest::mouseClick(controller().m_OpenButton, Qt::LeftButton);
    if (controller().m_ResetButton->isEnabled()) {
      stroke();
      view().grab();
      QTest::mouseClick(controller().m_ClearButton, Qt::LeftButton);
      EXPECT_EQ(view().path().elementCount(), 0);
      closeInTime([] { QTest::mouseClick(controller().m_ResetButton, Qt::LeftButton); });
    }
    EXPECT_TRUE(controller().m_OpenButton->isEnabled());
    window->close();
    EXPECT_TRUE(delegate.applicationShouldTerminateAfterLastWindowClosed(qApp));
    delegate.applicationWillTerminate(qApp);
    deletegIIVela(controller().velaobj);  // the application leaves it to the end of the process
    delete m_mainWindowController.exchange(nullptr);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QApplication::processEvents();
    gpadindex = 0;
    firstPoint = 0;
    time.reset();
  }

  // The processing thread sleeps when it has found its queue empty.
  bool arrive(long samples) override {
    return time->waitForSleeps(500, 2) && (view().path().elementCount() > 0) == (samples > 0);
  }

  bool isKnown(const std::string& line) const override {
    return line == "No device " + std::string(pad.provider) + " found" || FaultSweep::isKnown(line);
  }

  std::optional<support::TimeControl> time;
  QtMessages messages;
};

TEST_P(FaultSweepTest, EachCallInTurn) {
  sweep(std::get<support::NamedFault>(GetParam()).fault, 2, kKeptByQt);
}

INSTANTIATE_TEST_SUITE_P(Pads, FaultSweepTest, support::kSweeps, support::nameOfSweep);

}  // namespace
