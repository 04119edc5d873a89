// The form: keyboard operation, accessibility and appearance of the window.
#include <gmock/gmock.h>

#include <QAccessible>
#include <QAction>
#include <QApplication>
#include <QMenuBar>
#include <QMouseEvent>
#include <QScrollBar>
#include <QTest>

#include "ControllerFixture.h"
#include "PadArea.h"

namespace {

using testing::Contains;
using testing::ElementsAre;

class WindowTest : public FreshApplication {
 protected:
  WindowTest() {
    controller.showWindow(nullptr);
    controller.initButtons();
    m_mainWindowController = &controller;
    window = controller.m_prolist->window();
    window->activateWindow();
    EXPECT_TRUE(QTest::qWaitForWindowActive(window));
    area = window->findChild<PadArea*>("scrollArea");
    takeLog();
  }

  void open(double widthInches, double heightInches) {
    fakevela::state().physicalX = widthInches;
    fakevela::state().physicalY = heightInches;
    controller.OpenButton(nullptr);
    QApplication::sendPostedEvents();
  }

  // The view's place in the visible part of the canvas.
  QRect viewInViewport() const {
    QWidget* view = controller.m_drawview;
    return {view->mapTo(area->viewport(), QPoint(0, 0)), view->size()};
  }

  void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
    QTest::keyClick(QApplication::focusWidget(), key, modifiers);
  }

  static std::string focus() { return QApplication::focusWidget()->objectName().toStdString(); }

  MainWindowController controller;
  QWidget* window;
  PadArea* area;
};

// --- keyboard ---

TEST_F(WindowTest, TabOrderIsThatOfTheRow) {
  std::vector<std::string> order;
  QWidget* widget = controller.m_prolist;
  for (int i = 0; i < 5; ++i) {
    order.push_back(widget->objectName().toStdString());
    do {
      widget = widget->nextInFocusChain();
    } while (!(widget->focusPolicy() & Qt::TabFocus));
  }
  EXPECT_THAT(order, ElementsAre("m_prolist", "m_OpenButton", "m_ClearButton", "m_ResetButton",
                                 "scrollArea"));
}

TEST_F(WindowTest, WholeProgramRunsByKeyboardAlone) {
  press(Qt::Key_Down);
  EXPECT_EQ(controller.m_prolist->currentText(), "Vela II");
  press(Qt::Key_Tab);
  press(Qt::Key_Space);  // Open
  EXPECT_THAT(takeLog(), Contains("OpenProvider B1"));
  EXPECT_EQ(focus(), "m_ClearButton");
  press(Qt::Key_Space);
  EXPECT_THAT(takeLog(), ElementsAre("ClearInking"));
  press(Qt::Key_Tab);
  EXPECT_EQ(focus(), "m_ResetButton");
  press(Qt::Key_Space);
  EXPECT_THAT(takeLog(), ElementsAre("CloseConnection", "CloseProvider"));
}

TEST_F(WindowTest, MnemonicsReachEveryControl) {
#ifdef Q_OS_MACOS
  GTEST_SKIP() << "macOS has no mnemonics";
#endif
  // A button pressed this way looks pressed for a moment before it acts.
  const auto acted = [] { return !fakevela::state().log.empty(); };
  press(Qt::Key_O, Qt::AltModifier);
  ASSERT_TRUE(QTest::qWaitFor(acted));
  EXPECT_THAT(takeLog(), Contains("OpenConnection"));
  press(Qt::Key_C, Qt::AltModifier);
  ASSERT_TRUE(QTest::qWaitFor(acted));
  EXPECT_THAT(takeLog(), ElementsAre("ClearInking"));
  press(Qt::Key_R, Qt::AltModifier);
  ASSERT_TRUE(QTest::qWaitFor(acted));
  EXPECT_THAT(takeLog(), ElementsAre("CloseConnection", "CloseProvider"));
  press(Qt::Key_P, Qt::AltModifier);
  EXPECT_EQ(focus(), "m_prolist");
}

TEST_F(WindowTest, EnterPressesTheFocusedButton) {
  for (const Qt::Key enter : {Qt::Key_Return, Qt::Key_Enter}) {
    controller.m_OpenButton->setFocus();
    press(enter);
    EXPECT_THAT(takeLog(), Contains("OpenConnection"));
    press(enter);
    EXPECT_THAT(takeLog(), ElementsAre("ClearInking"));
    press(Qt::Key_Tab);
    press(enter);
    EXPECT_THAT(takeLog(), ElementsAre("CloseConnection", "CloseProvider"));
  }
}

TEST_F(WindowTest, FocusGoesToClearAfterOpenAndToOpenAfterReset) {
  ASSERT_EQ(focus(), "m_prolist");
  controller.OpenButton(nullptr);
  EXPECT_EQ(focus(), "m_ClearButton");
  controller.m_prolist->setFocus();
  controller.ResetButton(nullptr);
  EXPECT_EQ(focus(), "m_OpenButton");
}

TEST_F(WindowTest, FocusStaysAfterAnOpenThatFailed) {
  fakevela::state().numDevices = 0;
  testing::internal::CaptureStdout();
  controller.m_OpenButton->setFocus();
  press(Qt::Key_Space);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "No device Vela USB found\n");
  EXPECT_EQ(focus(), "m_OpenButton");
}

void turnWheel(QWidget* widget) {
  const QPointF middle = widget->rect().center();
  QWheelEvent wheel(middle, widget->mapToGlobal(middle), {}, {0, -120}, Qt::NoButton,
                    Qt::NoModifier, Qt::NoScrollPhase, false);
  QApplication::sendEvent(widget, &wheel);
}

TEST_F(WindowTest, WheelChangesTheListOnlyWhenItHasTheFocus) {
  controller.m_OpenButton->setFocus();
  turnWheel(controller.m_prolist);
  EXPECT_EQ(controller.m_prolist->currentIndex(), 0);
  EXPECT_EQ(focus(), "m_OpenButton");
  controller.m_prolist->setFocus();
  turnWheel(controller.m_prolist);
  EXPECT_EQ(controller.m_prolist->currentIndex(), 1);
}

TEST_F(WindowTest, ArrowKeysScrollALargePad) {
  open(20, 20);
  const int before = area->verticalScrollBar()->value();
  area->setFocus();
  press(Qt::Key_Down);
  EXPECT_GT(area->verticalScrollBar()->value(), before);
}

// --- while a pad is closed ---

// Remembers whether the watched button has been painted pressed.
class PaintedPressed : public QObject {
 public:
  bool painted = false;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override {
    if (event->type() == QEvent::Paint) painted = static_cast<QPushButton*>(watched)->isDown();
    return false;
  }
};

TEST_F(WindowTest, ResetIsPaintedPressedAndThePointerWaitsUntilThePadIsClosed) {
  open(3.685, 2.23);
  PaintedPressed reset;
  controller.m_ResetButton->installEventFilter(&reset);
  bool closed = false;
  fakevela::state().onCloseConnection = [&] {
    closed = true;
    EXPECT_TRUE(reset.painted);
    ASSERT_NE(QApplication::overrideCursor(), nullptr);
    EXPECT_EQ(QApplication::overrideCursor()->shape(), Qt::WaitCursor);
  };
  QTest::mouseClick(controller.m_ResetButton, Qt::LeftButton);
  EXPECT_TRUE(closed);
  EXPECT_FALSE(controller.m_ResetButton->isDown());
  EXPECT_EQ(QApplication::overrideCursor(), nullptr);
}

TEST_F(WindowTest, PointerWaitsWhileQuitClosesThePad) {
  open(3.685, 2.23);
  fakevela::state().onCloseConnection = [] {
    ASSERT_NE(QApplication::overrideCursor(), nullptr);
    EXPECT_EQ(QApplication::overrideCursor()->shape(), Qt::WaitCursor);
  };
  press(Qt::Key_Q, Qt::ControlModifier);
  EXPECT_THAT(takeLog(), Contains("CloseConnection"));
  EXPECT_EQ(QApplication::overrideCursor(), nullptr);
}

TEST_F(WindowTest, InputThatComesWhileAPadIsClosedIsDropped) {
  open(3.685, 2.23);
  takeLog();
  fakevela::state().onCloseConnection = [this] {
    // Sent as the window system does. Open is enabled once the pad is closed.
    const QPointF middle = controller.m_OpenButton->rect().center();
    const QPointF onScreen = controller.m_OpenButton->mapToGlobal(middle);
    for (const auto type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease})
      QApplication::postEvent(
          controller.m_OpenButton,
          new QMouseEvent(type, middle, onScreen, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier));
    for (const auto type : {QEvent::KeyPress, QEvent::KeyRelease})
      QApplication::postEvent(controller.m_OpenButton,
                              new QKeyEvent(type, Qt::Key_Space, Qt::NoModifier));
    QApplication::postEvent(controller.m_OpenButton,
                            new QShortcutEvent(QKeySequence(Qt::ALT | Qt::Key_O), 1));
  };
  controller.ResetButton(nullptr);
  QApplication::processEvents();
  EXPECT_THAT(takeLog(), ElementsAre("CloseConnection", "CloseProvider"));
  EXPECT_TRUE(controller.m_OpenButton->isEnabled());
}

// --- accessibility ---

std::string said(QObject* object, QAccessible::Text text) {
  return QAccessible::queryAccessibleInterface(object)->text(text).toStdString();
}

TEST_F(WindowTest, ControlsHaveAccessibleNamesRolesAndDescriptions) {
  const auto role = [](QObject* object) {
    return QAccessible::queryAccessibleInterface(object)->role();
  };
  // The accessible name of a list is its current choice; the label describes its purpose.
  EXPECT_EQ(said(controller.m_prolist, QAccessible::Name), "Vela USB");
  const auto labels =
      QAccessible::queryAccessibleInterface(controller.m_prolist)->relations(QAccessible::Label);
  ASSERT_EQ(labels.size(), 1);
  EXPECT_EQ(labels[0].first->text(QAccessible::Name), "Provider:");
  EXPECT_EQ(role(controller.m_prolist), QAccessible::ComboBox);
  EXPECT_EQ(said(controller.m_OpenButton, QAccessible::Name), "Open");
  EXPECT_EQ(role(controller.m_OpenButton), QAccessible::Button);
  EXPECT_EQ(said(controller.m_ClearButton, QAccessible::Name), "Clear");
  EXPECT_EQ(role(controller.m_ClearButton), QAccessible::Button);
  EXPECT_EQ(said(controller.m_ResetButton, QAccessible::Name), "Reset");
  EXPECT_EQ(role(controller.m_ResetButton), QAccessible::Button);
  EXPECT_EQ(said(controller.m_drawview, QAccessible::Name), "Ink");
  EXPECT_EQ(role(controller.m_drawview), QAccessible::Canvas);
  EXPECT_EQ(said(area, QAccessible::Name), "Canvas");
  EXPECT_EQ(role(area), QAccessible::Pane);
  auto* bar = window->findChild<QMenuBar*>();
  EXPECT_EQ(role(bar), QAccessible::MenuBar);
  const auto* fileMenu = QAccessible::queryAccessibleInterface(bar)->child(0);
  EXPECT_EQ(fileMenu->role(), QAccessible::MenuItem);
  EXPECT_EQ(fileMenu->text(QAccessible::Name), "File");
  for (QObject* object : std::initializer_list<QObject*>{
           controller.m_prolist, controller.m_OpenButton, controller.m_ClearButton,
           controller.m_ResetButton, controller.m_drawview, area})
    EXPECT_NE(said(object, QAccessible::Description), "") << object->objectName().toStdString();
}

// --- appearance ---

TEST_F(WindowTest, WindowHasATitleAndAnIconInEverySize) {
  EXPECT_EQ(window->windowTitle(), "Vela Pad Test");
  EXPECT_EQ(window->windowIcon().availableSizes().size(), 7);
  for (const int size : {16, 24, 32, 48, 64, 128, 256}) {
    const QImage icon = window->windowIcon().pixmap(size).toImage();
    EXPECT_EQ(icon.size(), QSize(size, size));
    EXPECT_EQ(icon.pixelColor(size / 2, size / 2).alpha(), 255);
    EXPECT_EQ(icon.pixelColor(0, 0).alpha(), 0);
  }
}

TEST_F(WindowTest, MenuHasQuitOnly) {
  const auto* bar = window->findChild<QMenuBar*>();
  ASSERT_EQ(bar->actions().size(), 1);
  ASSERT_EQ(bar->actions()[0]->menu()->actions().size(), 1);
  const QAction* quit = bar->actions()[0]->menu()->actions()[0];
  EXPECT_EQ(quit->text(), "&Quit");
  EXPECT_EQ(quit->shortcut(), QKeySequence("Ctrl+Q"));
}

TEST_F(WindowTest, ListAndButtonsAreARowAboveTheView) {
  const int row = controller.m_OpenButton->geometry().center().y();
  EXPECT_EQ(controller.m_prolist->geometry().center().y(), row);
  EXPECT_EQ(controller.m_ClearButton->geometry().center().y(), row);
  EXPECT_EQ(controller.m_ResetButton->geometry().center().y(), row);
  EXPECT_LT(controller.m_prolist->geometry().right(), controller.m_OpenButton->x());
  EXPECT_LT(controller.m_OpenButton->geometry().right(), controller.m_ClearButton->x());
  EXPECT_LT(controller.m_ClearButton->geometry().right(), controller.m_ResetButton->x());
  EXPECT_LT(controller.m_OpenButton->geometry().bottom(), area->y());
}

struct Pad {
  double width;
  double height;
};

class UsualPadTest : public WindowTest, public testing::WithParamInterface<Pad> {};

TEST_P(UsualPadTest, IsShownWholeInTheMiddle) {
  open(GetParam().width, GetParam().height);
  const QRect view = viewInViewport();
  const QRect viewport = area->viewport()->rect();
  EXPECT_TRUE(viewport.contains(view));
  EXPECT_EQ(controller.m_drawview->visibleRegion(), QRect(QPoint(0, 0), view.size()));
  EXPECT_LE(std::abs(2 * view.x() + view.width() - viewport.width()), 2);
  EXPECT_LE(std::abs(2 * view.y() + view.height() - viewport.height()), 2);
  EXPECT_FALSE(area->horizontalScrollBar()->isVisible());
  EXPECT_FALSE(area->verticalScrollBar()->isVisible());

  window->resize(900, 700);
  const QRect moved = viewInViewport();
  EXPECT_LE(std::abs(2 * moved.x() + moved.width() - area->viewport()->width()), 2);
  EXPECT_LE(std::abs(2 * moved.y() + moved.height() - area->viewport()->height()), 2);
}

INSTANTIATE_TEST_SUITE_P(Pads, UsualPadTest,
                         testing::Values(Pad{3.685, 2.23}, Pad{3.11, 2.28}, Pad{4.5, 2.8}));

TEST_F(WindowTest, LargePadIsScrolledToItsFirstCornerAndCanBeSeenWhole) {
  for (int opens = 1; opens <= 2; ++opens) {
    open(20, 15);
    const QRect viewport = area->viewport()->rect();
    EXPECT_EQ(viewInViewport().size(), QSize(1440, 1080));
    EXPECT_TRUE(viewport.contains(viewInViewport().topLeft()));
    area->ensureVisible(controller.m_drawview->geometry().right(),
                        controller.m_drawview->geometry().bottom());
    EXPECT_TRUE(viewport.contains(viewInViewport().bottomRight()));
  }
}

TEST_F(WindowTest, UsualPadAfterALargeOneIsShownWholeAgain) {
  for (const double large : {20.0, 1e300}) {
    open(large, large);
    open(3.685, 2.23);
    EXPECT_TRUE(area->viewport()->rect().contains(viewInViewport())) << large;
  }
}

TEST_P(UsualPadTest, IsShownWholeInTheSmallestWindow) {
  window->resize(1, 1);
  open(GetParam().width, GetParam().height);
  EXPECT_TRUE(area->viewport()->rect().contains(viewInViewport()));
  EXPECT_FALSE(area->horizontalScrollBar()->isVisible());
  EXPECT_FALSE(area->verticalScrollBar()->isVisible());
}

TEST_F(WindowTest, WindowMayBeAsSmallAsASmallScreen) {
  area->keepWithin({2000, 200});
  QApplication::sendPostedEvents();
  window->resize(1, 1);
  EXPECT_LE(window->height(), 200);
  EXPECT_GE(area->viewport()->width(), 324);
  open(4.5, 2.8);
  EXPECT_TRUE(area->verticalScrollBar()->isVisible());
}

TEST_F(WindowTest, WindowBeginsNoLargerThanTheScreen) {
  area->keepWithin({450, 350});
  EXPECT_EQ(window->size(), QSize(450, 350));
}

TEST_F(WindowTest, LargeWindowDoesNotStretchTheControls) {
  std::vector<int> widths;
  for (const int width : {600, 1200}) {
    window->resize(width, 600);
    QApplication::sendPostedEvents();
    for (const QWidget* control : std::initializer_list<QWidget*>{
             controller.m_prolist, controller.m_OpenButton, controller.m_ResetButton})
      widths.push_back(control->width());
  }
  EXPECT_THAT(widths,
              ElementsAre(widths[0], widths[1], widths[2], widths[0], widths[1], widths[2]));
}

TEST_F(WindowTest, BorderOfTheCanvasMarksTheFocus) {
  const auto sides = [this] {
    const QImage picture = area->grab().toImage();
    const int x = picture.width() / 2;
    const int y = picture.height() / 2;
    return std::vector{picture.pixelColor(x, 1), picture.pixelColor(x, picture.height() - 2),
                       picture.pixelColor(1, y), picture.pixelColor(picture.width() - 2, y)};
  };
  const QColor mark = area->palette().color(QPalette::Highlight);
  EXPECT_THAT(sides(), testing::Each(testing::Ne(mark)));
  area->setFocus();
  EXPECT_THAT(sides(), testing::Each(mark));
}

TEST_F(WindowTest, SmallWindowCutsNoControl) {
  window->resize(1, 1);
  const QRect contents = window->rect();
  for (QWidget* control :
       std::initializer_list<QWidget*>{controller.m_prolist, controller.m_OpenButton,
                                       controller.m_ClearButton, controller.m_ResetButton}) {
    EXPECT_TRUE(contents.contains({control->mapTo(window, QPoint(0, 0)), control->size()}));
    EXPECT_GE(control->width(), control->minimumSizeHint().width());
  }
}

}  // namespace
