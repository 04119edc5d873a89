// The controller's operations: their calls in order, their output, and their fatal errors.
#include "MainWindowController.h"

#include <gmock/gmock.h>

#include <QApplication>
#include <QTimer>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <limits>

#include "ControllerFixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

using ControllerTest = StartedController;
using ControllerDeathTest = StartedController;
using UnloadedControllerTest = FreshApplication;
using UnloadedControllerDeathTest = FreshApplication;

// --- a new controller, and its window ---

TEST_F(UnloadedControllerTest, NewControllerHasAFacadeAndNothingElse) {
  const MainWindowController controller;
  EXPECT_THAT(takeLog(), ElementsAre("newgIIVela"));
  EXPECT_NE(controller.velaobj, nullptr);
  EXPECT_TRUE(controller.m_prolist.isNull());
  EXPECT_TRUE(controller.m_drawview.isNull());
  EXPECT_TRUE(controller.m_ResetButton.isNull());
  EXPECT_TRUE(controller.m_OpenButton.isNull());
  EXPECT_TRUE(controller.m_ClearButton.isNull());
  EXPECT_EQ(controller.errmsg, "");
  EXPECT_EQ(controller.m_width, 1.0);
  EXPECT_EQ(controller.m_height, 1.0);
}

TEST_F(UnloadedControllerTest, DestroyedControllerLeavesItsFacade) {
  { const MainWindowController controller; }
  EXPECT_THAT(takeLog(), ElementsAre("newgIIVela"));  // and no deletegIIVela
}

TEST_F(UnloadedControllerTest, ShowWindowLoadsTheFormAndFillsTheList) {
  MainWindowController controller;
  takeLog();
  controller.showWindow(nullptr);

  EXPECT_THAT(takeLog(), ElementsAre("GetNumProviders",                                   //
                                     "GetProviderClassID 0", "GetProviderDescription 0",  //
                                     "GetProviderClassID 1", "GetProviderDescription 1",  //
                                     "GetProviderClassID 2", "GetProviderDescription 2",  //
                                     "GetProviderClassID 3", "GetProviderDescription 3"));
  ASSERT_EQ(controller.m_prolist->count(), 4);
  EXPECT_EQ(controller.m_prolist->itemText(0), "Vela USB");
  EXPECT_EQ(controller.m_prolist->itemText(1), "Vela II");
  EXPECT_EQ(controller.m_prolist->itemText(2), "Vela Ink");
  EXPECT_EQ(controller.m_prolist->itemText(3), "Vela Vision");
  EXPECT_EQ(controller.m_prolist->currentIndex(), 0);
  EXPECT_TRUE(controller.m_prolist->window()->isVisible());
}

TEST_F(UnloadedControllerTest, WindowAndOutletsComeFromTheFormOfTheNibName) {
  MainWindowController controller;
  controller.showWindow(nullptr);
  EXPECT_EQ(controller.windowNibName(), "MainWindowController");
  EXPECT_EQ(controller.m_prolist->window()->objectName(), "MainWindowController");
  EXPECT_EQ(controller.m_prolist->objectName(), "m_prolist");
  EXPECT_EQ(controller.m_drawview->objectName(), "m_drawview");
  EXPECT_EQ(controller.m_ResetButton->objectName(), "m_ResetButton");
  EXPECT_EQ(controller.m_OpenButton->objectName(), "m_OpenButton");
  EXPECT_EQ(controller.m_ClearButton->objectName(), "m_ClearButton");
}

TEST_F(UnloadedControllerTest, SecondShowWindowLoadsNothing) {
  MainWindowController controller;
  controller.showWindow(nullptr);
  QWidget* window = controller.m_prolist->window();
  window->hide();
  takeLog();
  controller.showWindow(nullptr);
  EXPECT_THAT(takeLog(), IsEmpty());
  EXPECT_EQ(controller.m_prolist->window(), window);
  EXPECT_TRUE(window->isVisible());
}

// --- awakeFromNib ---

TEST_F(ControllerTest, AwakeFromNibEmptiesTheListFirst) {
  controller->m_prolist->addItem("something else");
  controller->awakeFromNib();
  EXPECT_EQ(controller->m_prolist->count(), 4);
}

TEST_F(ControllerTest, OneProviderIsEnough) {
  fakevela::state().numProviders = 1;
  controller->awakeFromNib();
  EXPECT_EQ(controller->m_prolist->count(), 1);
}

TEST_F(ControllerTest, ProviderWithoutClassIdOrDescriptionIsSkipped) {
  fakevela::state().providers = {
      {"A0", "Vela USB"}, {nullptr, "Vela II"}, {"C2", nullptr}, {"D3", "Vela Vision"}};
  controller->awakeFromNib();
  ASSERT_EQ(controller->m_prolist->count(), 2);
  EXPECT_EQ(controller->m_prolist->itemText(0), "Vela USB");
  EXPECT_EQ(controller->m_prolist->itemText(1), "Vela Vision");
}

TEST_F(ControllerTest, SkippedProviderShiftsTheLaterOnes) {
  fakevela::state().providers = {
      {"A0", "Vela USB"}, {nullptr, "Vela II"}, {"C2", "Vela Ink"}, {"D3", "Vela Vision"}};
  controller->awakeFromNib();
  takeLog();
  controller->m_prolist->setCurrentIndex(2);
  ASSERT_EQ(controller->m_prolist->currentText(), "Vela Vision");
  controller->OpenButton(nullptr);
  EXPECT_EQ(gpadindex, 2);
  EXPECT_EQ(takeLog().at(2), "OpenProvider C2");
}

TEST_F(ControllerTest, DescriptionIsUtf8) {
  fakevela::state().providers[1].description = "Véla \xE2\x9C\x8D";
  controller->awakeFromNib();
  EXPECT_EQ(controller->m_prolist->itemText(1), QString::fromUtf16(u"V\u00E9la \u270D"));
}

TEST_F(ControllerDeathTest, NoProviderIsFatal) {
  fakevela::state().numProviders = 0;
  EXPECT_DEATH(controller->awakeFromNib(), endsIn("the number of providers is 0"));
  fakevela::state().numProviders = -1;
  EXPECT_DEATH(controller->awakeFromNib(), endsIn("the number of providers is -1"));
}

TEST_F(ControllerDeathTest, IllFormedDescriptionInTheListIsFatal) {
  for (const char* illFormed : {"Vela \xFF", "\xC3", "\xC0\x80", "\xED\xA0\x80"}) {
    fakevela::state().providers[3].description = illFormed;
    EXPECT_DEATH(controller->awakeFromNib(),
                 endsIn("the description of provider 3 cannot be read"));
  }
}

// --- initButtons ---

TEST_F(ControllerTest, InitButtonsBeginsWithReset) {
  open();
  controller->initButtons();
  EXPECT_THAT(takeLog(), ElementsAre("m_ResetButton disabled", "m_ClearButton disabled"));
}

// --- OpenButton ---

TEST_F(ControllerTest, OpenConnectsThePadAndSizesTheView) {
  controller->m_prolist->setCurrentIndex(2);
  CaptureStdout();
  controller->OpenButton(nullptr);
  EXPECT_EQ(GetCapturedStdout(), "");
  EXPECT_THAT(takeLog(), ElementsAre("GetProviderDescription 2",  //
                                     "GetProviderClassID 2",      //
                                     "OpenProvider C2",           //
                                     "GetNumDevices",             //
                                     "RegisterEventHandler",      //
                                     "OpenConnection",            //
                                     "m_ClearButton enabled",     //
                                     "m_ResetButton enabled",     //
                                     "m_OpenButton disabled",     //
                                     "GetPhysicalX",              //
                                     "GetPhysicalY",              //
                                     "resize 3.685000 2.230000",  //
                                     "setNeedsDisplay true"));
  EXPECT_EQ(fakevela::state().handler, &PenDataHandler);
  EXPECT_EQ(gpadindex, 2);
  EXPECT_EQ(controller->m_width, 3.685);
  EXPECT_EQ(controller->m_height, 2.23);
  EXPECT_EQ(controller->errmsg, "");
  EXPECT_THAT(enabledButtons(), ElementsAre("clear", "reset"));
}

TEST_F(ControllerTest, OpenedViewMeasures72UnitsAnInch) {
  fakevela::state().physicalX = 4.5;
  fakevela::state().physicalY = 2.5;
  open();
  EXPECT_EQ(view->frame().size(), QSizeF(324, 180));
}

TEST_F(ControllerTest, ProviderThatDoesNotOpenIsReported) {
  fakevela::state().providerOpens = false;
  controller->m_prolist->setCurrentIndex(3);
  CaptureStdout();
  controller->OpenButton(nullptr);
  EXPECT_EQ(GetCapturedStdout(), "Failed to open provider Vela Vision\n");
  EXPECT_EQ(controller->errmsg, "Failed to open provider Vela Vision");
  EXPECT_THAT(takeLog(),
              ElementsAre("GetProviderDescription 3", "GetProviderClassID 3", "OpenProvider D3"));
  EXPECT_EQ(gpadindex, 3);
  EXPECT_THAT(enabledButtons(), ElementsAre("open"));
}

TEST_F(ControllerTest, MissingDeviceIsReportedAndTheProviderStaysOpen) {
  for (const short devices : {short{0}, short{-1}}) {
    fakevela::state().numDevices = devices;
    controller->m_prolist->setCurrentIndex(2);
    CaptureStdout();
    controller->OpenButton(nullptr);
    EXPECT_EQ(GetCapturedStdout(), "No device Vela Ink found\n");
    EXPECT_EQ(controller->errmsg, "No device Vela Ink found");
    EXPECT_THAT(takeLog(), ElementsAre("GetProviderDescription 2", "GetProviderClassID 2",
                                       "OpenProvider C2", "GetNumDevices"));
    EXPECT_THAT(enabledButtons(), ElementsAre("open"));
  }
}

TEST_F(ControllerTest, ConnectionThatDoesNotOpenIsReportedAndTheProviderStaysOpen) {
  fakevela::state().connectionOpens = false;
  CaptureStdout();
  controller->OpenButton(nullptr);
  EXPECT_EQ(GetCapturedStdout(), "device Vela USB open failed\n");
  EXPECT_EQ(controller->errmsg, "device Vela USB open failed");
  EXPECT_THAT(takeLog(),
              ElementsAre("GetProviderDescription 0", "GetProviderClassID 0", "OpenProvider A0",
                          "GetNumDevices", "RegisterEventHandler", "OpenConnection"));
  EXPECT_THAT(enabledButtons(), ElementsAre("open"));
}

TEST_F(ControllerTest, OpenAfterAFailureOpensTheProviderAgain) {
  fakevela::state().connectionOpens = false;
  CaptureStdout();
  controller->OpenButton(nullptr);
  takeLog();
  controller->OpenButton(nullptr);
  EXPECT_EQ(GetCapturedStdout(), "device Vela USB open failed\ndevice Vela USB open failed\n");
  EXPECT_EQ(takeLog().at(2), "OpenProvider A0");  // with no CloseProvider before it
}

TEST_F(ControllerTest, LastMessageStaysUntilTheNextFailure) {
  fakevela::state().numDevices = 0;
  CaptureStdout();
  controller->OpenButton(nullptr);
  fakevela::state().numDevices = 1;
  controller->OpenButton(nullptr);
  EXPECT_EQ(GetCapturedStdout(), "No device Vela USB found\n");
  EXPECT_EQ(controller->errmsg, "No device Vela USB found");
}

TEST_F(ControllerTest, MessageIsPrintedAsUtf8) {
  fakevela::state().providers[0].description = "Véla";
  fakevela::state().numDevices = 0;
  CaptureStdout();
  controller->OpenButton(nullptr);
  EXPECT_EQ(GetCapturedStdout(), "No device V\xC3\xA9la found\n");
}

TEST_F(ControllerTest, EverySizeThatAPadMayStateIsTaken) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  for (const double size : {infinity, -infinity, nan, -1.0, 0.0, 1e300}) {
    fakevela::state().physicalX = size;
    fakevela::state().physicalY = size;
    controller->OpenButton(nullptr);
    QApplication::processEvents();
  }
  fakevela::state().physicalX = 4.0;
  fakevela::state().physicalY = 3.0;
  open();
  EXPECT_EQ(view->size(), QSize(288, 216));
}

TEST_F(ControllerDeathTest, UnreadableDescriptionIsFatalOnOpen) {
  const auto died = endsIn("the description of provider 1 cannot be read");
  controller->m_prolist->setCurrentIndex(1);
  fakevela::state().providers[1].description = "\xFF";
  EXPECT_DEATH(controller->OpenButton(nullptr), died);
  fakevela::state().providers[1].description = nullptr;
  EXPECT_DEATH(controller->OpenButton(nullptr), died);
}

TEST_F(ControllerDeathTest, OpenWithNothingChosenIsFatal) {
  controller->m_prolist->setCurrentIndex(-1);
  EXPECT_DEATH(controller->OpenButton(nullptr),
               endsIn("the description of provider -1 cannot be read"));
}

TEST_F(ControllerDeathTest, ListPositionBeyond16BitsIsFatal) {
  QStringList items;
  for (int i = 0; i <= 32768; ++i) items << "pad";
  controller->m_prolist->addItems(items);
  controller->m_prolist->setCurrentIndex(32768);
  EXPECT_DEATH(controller->OpenButton(nullptr),
               endsIn("the list position 32768 is no provider index"));
  // The largest value that fits is refused only because there is no such provider.
  controller->m_prolist->setCurrentIndex(32767);
  EXPECT_DEATH(controller->OpenButton(nullptr),
               endsIn("the description of provider 32767 cannot be read"));
}

// The position is stored even if it is then refused.
TEST_F(ControllerDeathTest, PositionIsStoredBeforeAnythingElse) {
  struct AtExit {
    static void abortHandler(int) { std::_Exit(gpadindex == -1 ? 7 : 8); }
  };
  controller->m_prolist->setCurrentIndex(-1);
  EXPECT_EXIT(
      {
        std::signal(SIGABRT, AtExit::abortHandler);
        controller->OpenButton(nullptr);
      },
      testing::ExitedWithCode(7), "");
}

// --- ClearButton ---

TEST_F(ControllerTest, ClearAsksForARedrawBeforeAndAfterEmptyingTheView) {
  open();
  firstPoint = 1;
  controller->ClearButton(nullptr);
  EXPECT_THAT(takeLog(), ElementsAre("ClearInking", "setNeedsDisplay true", "ClearContext",
                                     "setNeedsDisplay true"));
  EXPECT_EQ(firstPoint, 0);
  EXPECT_THAT(enabledButtons(), ElementsAre("clear", "reset"));
}

TEST_F(ControllerTest, ClearBeforeTheControllerIsPublishedLeavesThePath) {
  m_mainWindowController = nullptr;
  firstPoint = 1;
  controller->ClearButton(nullptr);
  EXPECT_THAT(takeLog(), ElementsAre("ClearInking", "setNeedsDisplay true"));
  EXPECT_EQ(firstPoint, 0);
}

TEST_F(ControllerTest, FlagIsResetAfterTheViewIsEmptied) {
  class View : public RecordingView {
   public:
    int flag = 0;
    void ClearContext() override { flag = ::firstPoint; }
  };
  View emptied;
  controller->m_drawview = &emptied;
  firstPoint = 1;
  controller->ClearButton(nullptr);
  EXPECT_EQ(emptied.flag, 1);
  emptied.flag = 0;
  firstPoint = 1;
  controller->ResetButton(nullptr);
  EXPECT_EQ(emptied.flag, 1);
}

// --- ResetButton ---

TEST_F(ControllerTest, ResetClosesAndReturnsToTheStart) {
  open();
  firstPoint = 1;
  controller->m_prolist->setCurrentIndex(1);
  controller->ResetButton(nullptr);
  EXPECT_THAT(takeLog(), ElementsAre("CloseConnection", "CloseProvider",                //
                                     "m_OpenButton enabled", "m_ClearButton disabled",  //
                                     "m_ResetButton disabled",                          //
                                     "ClearContext", "setNeedsDisplay true"));
  EXPECT_EQ(firstPoint, 0);
  EXPECT_THAT(enabledButtons(), ElementsAre("open"));
  EXPECT_EQ(controller->m_width, 3.685);
  EXPECT_EQ(controller->m_height, 2.23);
  EXPECT_EQ(gpadindex, 0);
}

TEST_F(ControllerTest, ResetBeforeTheControllerIsPublishedLeavesTheView) {
  open();
  m_mainWindowController = nullptr;
  firstPoint = 1;
  controller->ResetButton(nullptr);
  EXPECT_THAT(takeLog(), ElementsAre("CloseConnection", "CloseProvider", "m_OpenButton enabled",
                                     "m_ClearButton disabled", "m_ResetButton disabled"));
  EXPECT_EQ(firstPoint, 0);
}

// Clear and Reset empty the view of the published controller.
TEST_F(ControllerTest, PublishedControllersViewIsEmptied) {
  MainWindowController other;
  other.showWindow(nullptr);
  RecordingView otherView;
  other.m_drawview = &otherView;
  otherView.SetMoveTo(1, 1);
  view->SetMoveTo(2, 2);
  m_mainWindowController = &other;
  controller->ClearButton(nullptr);
  EXPECT_EQ(otherView.path().elementCount(), 0);
  EXPECT_EQ(view->path().elementCount(), 1);
}

// --- QuitNow ---

TEST_F(ControllerTest, QuitResetsThenEndsTheApplication) {
  open();
  fakevela::state().onCloseConnection = [] { fakevela::state().log.emplace_back("closing"); };
  QObject::connect(qApp, &QCoreApplication::aboutToQuit, view,
                   [] { fakevela::state().log.emplace_back("about to quit"); });
  QTimer::singleShot(0, view, [this] { controller->QuitNow(nullptr); });
  EXPECT_EQ(QApplication::exec(), 0);
  EXPECT_THAT(takeLog(), ElementsAre("CloseConnection", "closing", "CloseProvider",     //
                                     "m_OpenButton enabled", "m_ClearButton disabled",  //
                                     "m_ResetButton disabled",                          //
                                     "ClearContext", "setNeedsDisplay true", "about to quit"));
}

// --- the order in which operations call overridable operations ---

TEST_F(UnloadedControllerTest, LoadingTheWindowRunsAnOverriddenAwakeFromNib) {
  class Controller : public MainWindowController {
   public:
    bool awake = false;
    void awakeFromNib() override { awake = !m_prolist.isNull() && !m_drawview.isNull(); }
  };
  Controller controller;
  controller.showWindow(nullptr);
  EXPECT_TRUE(controller.awake);
  EXPECT_EQ(controller.m_prolist->count(), 0);
}

TEST_F(UnloadedControllerTest, ControlsRunOverriddenActions) {
  class Controller : public MainWindowController {
   public:
    std::vector<std::pair<std::string, QObject*>> actions;
    void QuitNow(QObject* sender) override { actions.emplace_back("quit", sender); }
    void ResetButton(QObject* sender) override { actions.emplace_back("reset", sender); }
    void ClearButton(QObject* sender) override { actions.emplace_back("clear", sender); }
    void OpenButton(QObject* sender) override { actions.emplace_back("open", sender); }
  };
  Controller controller;
  controller.showWindow(nullptr);
  controller.m_OpenButton->click();
  controller.m_ClearButton->click();
  controller.m_ResetButton->click();
  auto* quit = controller.m_prolist->window()->findChild<QAction*>("quit");
  ASSERT_NE(quit, nullptr);
  quit->trigger();
  using testing::Pair;
  EXPECT_THAT(controller.actions,
              ElementsAre(Pair("open", controller.m_OpenButton.data()),
                          Pair("clear", controller.m_ClearButton.data()),
                          Pair("reset", controller.m_ResetButton.data()), Pair("quit", quit)));
}

// --- empty outlets ---

auto emptyOutlet(const std::string& name) {
  return endsIn("the outlet " + name + " is empty");
}

TEST_F(ControllerDeathTest, EmptyOutletIsFatalForEachOperationThatUsesIt) {
  using Operation = std::function<void()>;
  const Operation awake = [this] { controller->awakeFromNib(); };
  const Operation init = [this] { controller->initButtons(); };
  const Operation opening = [this] { controller->OpenButton(nullptr); };
  const Operation clear = [this] { controller->ClearButton(nullptr); };
  const Operation reset = [this] { controller->ResetButton(nullptr); };
  const Operation quit = [this] { controller->QuitNow(nullptr); };
  const auto expectFatal = [](auto& outlet, const char* name,
                              const std::vector<Operation>& operations) {
    auto* const widget = outlet.data();
    outlet = nullptr;
    for (const Operation& operation : operations) EXPECT_DEATH(operation(), emptyOutlet(name));
    outlet = widget;
  };
  expectFatal(controller->m_prolist, "m_prolist", {awake, opening});
  expectFatal(controller->m_ResetButton, "m_ResetButton", {init, opening, reset, quit});
  expectFatal(controller->m_ClearButton, "m_ClearButton", {init, opening, reset});
  expectFatal(controller->m_OpenButton, "m_OpenButton", {opening, reset});
  expectFatal(controller->m_drawview, "m_drawview", {opening, clear, reset});
}

TEST_F(ControllerDeathTest, EmptyDrawingViewOfThePublishedControllerIsFatal) {
  MainWindowController published;
  m_mainWindowController = &published;
  EXPECT_DEATH(controller->ClearButton(nullptr), emptyOutlet("m_drawview"));
}

TEST_F(ControllerDeathTest, DestroyedWidgetLeavesAnEmptyOutlet) {
  delete controller->m_drawview.data();
  EXPECT_DEATH(controller->ClearButton(nullptr), emptyOutlet("m_drawview"));
}

TEST_F(UnloadedControllerDeathTest, WindowThatIsNotLoadedIsFatal) {
  MainWindowController controller;
  EXPECT_DEATH(controller.awakeFromNib(), emptyOutlet("m_prolist"));
  EXPECT_DEATH(controller.initButtons(), emptyOutlet("m_ResetButton"));
  EXPECT_DEATH(controller.ResetButton(nullptr), emptyOutlet("m_OpenButton"));
}

}  // namespace
