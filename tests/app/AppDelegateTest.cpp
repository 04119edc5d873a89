// Start-up and shutdown.
#include "AppDelegate.h"

#include <gmock/gmock.h>

#include <QAction>
#include <QApplication>
#include <QEventLoop>
#include <QPointer>
#include <QTimer>
#include <csignal>

#include "ControllerFixture.h"
#include "TerminationSignals.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AppDelegateTest : public FreshApplication {
 protected:
  AppDelegateTest() { delegate.attach(*qApp); }
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
      if (event->type() == QEvent::Show && watched->objectName() == "MainWindowController")
        published = m_mainWindowController != nullptr;
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

// As newer versions of Qt behave when asked to quit while already quitting.
TEST_F(AppDelegateTest, SecondAnnouncementOfTheEndHasNoEffect) {
  delegate.applicationDidFinishLaunching(nullptr);
  takeLog();
  ASSERT_TRUE(QMetaObject::invokeMethod(qApp, "aboutToQuit"));
  ASSERT_TRUE(QMetaObject::invokeMethod(qApp, "aboutToQuit"));
  EXPECT_THAT(takeLog(), ElementsAre("CloseConnection", "CloseProvider"));
}

// --- the end of the application ---

// A reset logs "CloseConnection" and "CloseProvider". Quit resets before it requests the end, and
// the end itself resets no matter what requested it.
struct Ending {
  const char* name;
  void (*request)();
  std::vector<std::string> resets;
};

void PrintTo(const Ending& ending, std::ostream* out) {
  *out << ending.name;
}

QWidget* window() {
  return m_mainWindowController.load()->m_OpenButton->window();
}

const std::vector<std::string> kOneReset = {"CloseConnection", "CloseProvider"};
const std::vector<std::string> kTwoResets = {"CloseConnection", "CloseProvider", "CloseConnection",
                                             "CloseProvider"};

const Ending kEndings[] = {
    {"Quit", [] { window()->findChild<QAction*>("quit")->trigger(); }, kTwoResets},
    {"ClosedWindow", [] { window()->close(); }, kOneReset},
    {"Toolkit", [] { QCoreApplication::quit(); }, kOneReset},
    {"SIGINT", [] { std::raise(SIGINT); }, kTwoResets},
    {"SIGTERM", [] { std::raise(SIGTERM); }, kTwoResets},
    {"SIGHUP", [] { std::raise(SIGHUP); }, kTwoResets},
};

// Connected as in main.
class EndTest : public AppDelegateTest, public testing::WithParamInterface<Ending> {
 protected:
  EndTest() {
    terminationSignals.emplace();
    QObject::connect(&*terminationSignals, &TerminationSignals::received, &delegate,
                     &AppDelegate::QuitNow);
    delegate.applicationDidFinishLaunching(qApp);
    takeLog();
  }
  ~EndTest() override {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) std::signal(number, SIG_DFL);
  }

  std::optional<TerminationSignals> terminationSignals;
};

TEST_P(EndTest, OfAnIdleApplication) {
  QTimer::singleShot(0, &delegate, GetParam().request);
  EXPECT_EQ(QApplication::exec(), 0);
  EXPECT_EQ(takeLog(), GetParam().resets);
}

TEST_P(EndTest, OfAConnectedApplication) {
  controller().OpenButton(nullptr);
  takeLog();
  QTimer::singleShot(0, &delegate, GetParam().request);
  EXPECT_EQ(QApplication::exec(), 0);
  EXPECT_EQ(takeLog(), GetParam().resets);
}

// All event loops then end, the innermost first.
TEST_P(EndTest, FromASlotThatHandlesEventsItself) {
  QObject::connect(controller().m_OpenButton, &QPushButton::clicked, &delegate, [this] {
    takeLog();
    QTimer::singleShot(0, &delegate, GetParam().request);
    QEventLoop().exec();
  });
  QTimer::singleShot(0, &delegate, [] { controller().m_OpenButton->click(); });
  EXPECT_EQ(QApplication::exec(), 0);
  EXPECT_EQ(takeLog(), GetParam().resets);
}

INSTANTIATE_TEST_SUITE_P(Ways, EndTest, testing::ValuesIn(kEndings),
                         [](const auto& way) { return std::string(way.param.name); });

}  // namespace
