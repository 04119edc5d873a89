// Start-up and shutdown.
#include "AppDelegate.h"

#include <gmock/gmock.h>

#include <QApplication>
#include <QPointer>
#include <QTimer>

#include "ControllerFixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Connected as main does it.
class AppDelegateTest : public FreshApplication {
 protected:
  AppDelegateTest() {
    QObject::connect(qApp, &QCoreApplication::aboutToQuit, &delegate,
                     [this] { delegate.applicationWillTerminate(qApp); });
    QApplication::setQuitOnLastWindowClosed(
        delegate.applicationShouldTerminateAfterLastWindowClosed(qApp));
  }
  ~AppDelegateTest() override {
    delete m_mainWindowController.exchange(nullptr);
    QApplication::setQuitOnLastWindowClosed(false);
  }

  static MainWindowController& controller() { return *m_mainWindowController; }

  AppDelegate delegate;
};

TEST_F(AppDelegateTest, LaunchingShowsTheWindowAndPublishesTheController) {
  delegate.applicationDidFinishLaunching(nullptr);
  const auto log = takeLog();
  ASSERT_EQ(log.size(), 10u);
  EXPECT_EQ(log[0], "newgIIVela");
  EXPECT_EQ(log[1], "GetNumProviders");
  ASSERT_NE(m_mainWindowController, nullptr);
  EXPECT_TRUE(controller().m_OpenButton->window()->isVisible());
  EXPECT_EQ(controller().m_prolist->count(), 4);
  EXPECT_TRUE(controller().m_OpenButton->isEnabled());
  EXPECT_FALSE(controller().m_ClearButton->isEnabled());
  EXPECT_FALSE(controller().m_ResetButton->isEnabled());
}

TEST_F(AppDelegateTest, ControllerIsPublishedAfterTheWindowIsShown) {
  class Watch : public QObject {
   public:
    bool published = true;

   protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
      if (event->type() == QEvent::Show && watched->objectName() == "MainWindowController") {
        published = m_mainWindowController != nullptr;
      }
      return false;
    }
  };
  Watch watch;
  qApp->installEventFilter(&watch);
  delegate.applicationDidFinishLaunching(nullptr);
  EXPECT_FALSE(watch.published);
}

TEST_F(AppDelegateTest, SecondLaunchReleasesTheFirstController) {
  delegate.applicationDidFinishLaunching(nullptr);
  const QPointer<MainWindowController> first = &controller();
  delegate.applicationDidFinishLaunching(nullptr);
  EXPECT_TRUE(first.isNull());
  EXPECT_NE(m_mainWindowController, nullptr);
}

TEST_F(AppDelegateTest, ApplicationEndsWithItsLastWindow) {
  EXPECT_TRUE(delegate.applicationShouldTerminateAfterLastWindowClosed(qApp));
}

TEST_F(AppDelegateTest, BeforeTheLaunchQuittingDoesNothing) {
  delegate.QuitNow(nullptr);
  delegate.applicationWillTerminate(nullptr);
  EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(AppDelegateTest, QuitNowGoesToTheController) {
  delegate.applicationDidFinishLaunching(nullptr);
  takeLog();
  delegate.QuitNow(nullptr);
  EXPECT_THAT(takeLog(), ElementsAre("CloseConnection", "CloseProvider"));
}

TEST_F(AppDelegateTest, ClosingTheWindowClosesThePadBeforeTheApplicationEnds) {
  delegate.applicationDidFinishLaunching(nullptr);
  controller().OpenButton(nullptr);
  takeLog();
  QTimer::singleShot(0, &delegate, [] { controller().m_OpenButton->window()->close(); });
  EXPECT_EQ(QApplication::exec(), 0);
  EXPECT_THAT(takeLog(), ElementsAre("CloseConnection", "CloseProvider"));
}

// Quitting resets, and so does the termination that follows; the second time there is nothing open.
TEST_F(AppDelegateTest, SecondRequestToTerminateIsTolerated) {
  delegate.applicationDidFinishLaunching(nullptr);
  controller().OpenButton(nullptr);
  takeLog();
  QTimer::singleShot(0, &delegate, [this] { delegate.QuitNow(nullptr); });
  EXPECT_EQ(QApplication::exec(), 0);
  EXPECT_THAT(takeLog(),
              ElementsAre("CloseConnection", "CloseProvider", "CloseConnection", "CloseProvider"));
}

}  // namespace
