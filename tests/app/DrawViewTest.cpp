// The drawing view: its painting, its position, and its path when two threads use it.
#include "DrawView.h"

#include <gmock/gmock.h>

#include <QApplication>
#include <QEventLoop>
#include <QImage>
#include <QPainter>
#include <QScreen>
#include <QTest>
#include <QTimer>
#include <atomic>
#include <chrono>
#include <functional>
#include <limits>
#include <thread>
#include <utility>

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

const QColor kWhite(255, 255, 255);
const QColor kBlack(0, 0, 0);
const QColor kBlue(0, 0, 255);

// Counts its redraws.
class CountingView : public DrawView {
 public:
  using DrawView::DrawView;
  int redraws = 0;
  int shownElements = 0;  // of the path, in the last redraw
  void drawRect(QPainter& painter, const QRect& dirty) override {
    ++redraws;
    DrawView::drawRect(painter, dirty);
    shownElements = path().elementCount();
  }
};

class DrawViewTest : public testing::Test {
 protected:
  DrawViewTest() { view.setGeometry(0, 0, 120, 80); }

  // The view's picture; `scale` device pixels for a unit.
  QImage picture(double scale = 1) {
    QImage image((QSizeF(view.size()) * scale).toSize(), QImage::Format_RGB32);
    image.setDevicePixelRatio(scale);
    image.fill(Qt::magenta);
    QPainter painter(&image);
    view.drawRect(painter, view.rect());
    return image;
  }

  void line(int x0, int y0, int x1, int y1) {
    view.SetMoveTo(x0, y0);
    view.SetLineTo(x1, y1);
  }

  CountingView view;
};

// Every pixel of `area` (in device pixels) has that colour.
void expectAll(const QImage& image, const QRect& area, const QColor& colour) {
  for (int y = area.top(); y <= area.bottom(); ++y)
    for (int x = area.left(); x <= area.right(); ++x)
      ASSERT_EQ(image.pixelColor(x, y).name(), colour.name()) << "at " << x << ", " << y;
}

// --- the picture ---

// A white field with a frame of that many pixels on each side; `view` is in device pixels.
void expectFramedField(const QImage& image, const QRect& view, int pixels) {
  const QRect field = view.adjusted(pixels, pixels, -pixels, -pixels);
  expectAll(image, field, kWhite);
  expectAll(image, {view.left(), view.top(), view.width(), pixels}, kBlack);
  expectAll(image, {view.left(), field.bottom() + 1, view.width(), pixels}, kBlack);
  expectAll(image, {view.left(), view.top(), pixels, view.height()}, kBlack);
  expectAll(image, {field.right() + 1, view.top(), pixels, view.height()}, kBlack);
}

TEST_F(DrawViewTest, EmptyViewIsAWhiteFieldInAnEvenFrameAtEveryScale) {
  struct Scaled {
    double scale;
    QRect view;
    int pixels;
  };
  for (const Scaled& scaled : {Scaled{1, {0, 0, 120, 80}, 2}, Scaled{1.25, {0, 0, 150, 100}, 3},
                               Scaled{1.5, {0, 0, 180, 120}, 3}, Scaled{1.75, {0, 0, 210, 140}, 4},
                               Scaled{2, {0, 0, 240, 160}, 4}, Scaled{2.25, {0, 0, 270, 180}, 5},
                               Scaled{2.5, {0, 0, 300, 200}, 5}, Scaled{2.75, {0, 0, 330, 220}, 6},
                               Scaled{3, {0, 0, 360, 240}, 6}}) {
    SCOPED_TRACE(scaled.scale);
    expectFramedField(picture(scaled.scale), scaled.view, scaled.pixels);
  }
}

// Where the view's edges lie between two pixels, as in a window that is scaled by a fraction.
TEST_F(DrawViewTest, FrameIsEvenWhereverTheViewLies) {
  view.setGeometry(0, 0, 65, 41);
  struct Scaled {
    double scale;
    QRect view;
    int pixels;
  };
  // Units 7 to 72 across and 5 to 46 down.
  for (const Scaled& scaled :
       {Scaled{1.25, {9, 6, 81, 52}, 3}, Scaled{1.5, {11, 8, 97, 61}, 3},
        Scaled{1.75, {12, 9, 114, 72}, 4}, Scaled{2.5, {18, 13, 162, 102}, 5}}) {
    SCOPED_TRACE(scaled.scale);
    QImage image(300, 200, QImage::Format_RGB32);
    image.setDevicePixelRatio(scaled.scale);
    image.fill(Qt::magenta);
    QPainter painter(&image);
    painter.translate(7, 5);
    view.drawRect(painter, view.rect());
    painter.end();
    expectFramedField(image, scaled.view, scaled.pixels);
  }
}

TEST_F(DrawViewTest, ViewSmallerThanItsFrameIsBlack) {
  view.setGeometry(0, 0, 3, 3);
  expectAll(picture(), {0, 0, 3, 3}, kBlack);
}

TEST_F(DrawViewTest, StrokeIsTwoUnitsWideAndHasButtEnds) {
  EXPECT_TRUE(view.flipped());
  line(20, 30, 60, 30);
  const QImage image = picture();
  expectAll(image, {20, 29, 40, 2}, kBlue);
  expectAll(image, {2, 29, 18, 2}, kWhite);
  expectAll(image, {60, 29, 58, 2}, kWhite);
  expectAll(image, {2, 2, 116, 27}, kWhite);
  expectAll(image, {2, 31, 116, 47}, kWhite);
}

TEST_F(DrawViewTest, DiagonalStrokeIsAntialiased) {
  line(20, 20, 40, 40);
  const QImage image = picture();
  EXPECT_EQ(image.pixelColor(30, 30), kBlue);
  // The stroke's edge cuts this pixel's corner: neither ink nor field.
  const QColor edge = image.pixelColor(31, 29);
  EXPECT_EQ(edge.blue(), 255);
  EXPECT_GT(edge.red(), 0);
  EXPECT_LT(edge.red(), 255);
  EXPECT_EQ(image.pixelColor(33, 27), kWhite);
}

TEST_F(DrawViewTest, StrokesHaveAGapBetweenThem) {
  line(20, 30, 40, 30);
  line(50, 30, 70, 30);
  const QImage image = picture();
  expectAll(image, {20, 29, 20, 2}, kBlue);
  expectAll(image, {40, 29, 10, 2}, kWhite);
  expectAll(image, {50, 29, 20, 2}, kBlue);
}

TEST_F(DrawViewTest, JoinIsMitred) {
  view.SetMoveTo(20, 30);
  view.SetLineTo(40, 30);
  view.SetLineTo(40, 50);
  expectAll(picture(), {39, 29, 2, 21}, kBlue);  // with the outer corner's pixel at 40, 29
}

TEST_F(DrawViewTest, InkCoversTheFrame) {
  line(0, 30, 20, 30);
  EXPECT_EQ(picture().pixelColor(0, 29), kBlue);
}

TEST_F(DrawViewTest, InkOutsideTheViewIsNotShown) {
  line(-2'000'000'000, 30, -1'000'000'000, 30);
  line(20, 2'000'000'000, 60, 2'100'000'000);
  line(200, 30, 240, 30);
  expectAll(picture(), {2, 2, 116, 76}, kWhite);
}

TEST_F(DrawViewTest, LineFromFarOutsideCrossesTheView) {
  line(std::numeric_limits<std::int32_t>::min() / 140, 30,
       std::numeric_limits<std::int32_t>::max() / 140, 30);
  expectAll(picture(), {0, 29, 120, 2}, kBlue);
}

// As a view lies in a window that is scaled by a fraction.
TEST_F(DrawViewTest, InkIsCrispWhereverTheViewLies) {
  line(10, 10, 30, 10);
  QImage image(300, 200, QImage::Format_RGB32);
  image.setDevicePixelRatio(1.5);
  image.fill(Qt::magenta);
  QPainter painter(&image);
  painter.translate(7, 5);
  view.drawRect(painter, view.rect());
  painter.end();
  // Units 17 to 37 and 14 to 16, half as much again.
  expectAll(image, QRect(26, 21, 29, 3), kBlue);
  expectAll(image, QRect(25, 20, 31, 1), kWhite);
  expectAll(image, QRect(25, 24, 31, 1), kWhite);
  expectAll(image, QRect(0, 0, 9, 200), QColor(Qt::magenta));
  expectAll(image, QRect(192, 0, 108, 200), QColor(Qt::magenta));
}

TEST_F(DrawViewTest, ViewLargerThanAnyScreenIsPainted) {
  view.setGeometry(0, 0, 1'000'000, 1'000'000);
  line(10, 10, 30, 10);
  QImage image(120, 80, QImage::Format_RGB32);
  QPainter painter(&image);
  view.drawRect(painter, view.rect());
  painter.end();
  expectAll(image, QRect(10, 9, 20, 2), kBlue);
  expectAll(image, QRect(40, 5, 80, 75), kWhite);
}

TEST_F(DrawViewTest, WholeViewIsPaintedWhateverIsDirty) {
  line(20, 30, 60, 30);
  QImage image(120, 80, QImage::Format_RGB32);
  image.fill(Qt::magenta);
  QPainter painter(&image);
  view.drawRect(painter, QRect(100, 70, 1, 1));
  painter.end();
  EXPECT_EQ(image, picture());
}

TEST_F(DrawViewTest, SubclassMayPaintAnotherBackground) {
  class View : public DrawView {
   public:
    void setbgwhite(QPainter& painter) override { painter.setPen(QPen(Qt::red, 6)); }
  };
  View other;
  other.SetMoveTo(20, 30);
  other.SetLineTo(60, 30);
  QImage image(120, 80, QImage::Format_RGB32);
  image.fill(Qt::green);
  QPainter painter(&image);
  other.drawRect(painter, {});
  painter.end();
  // The ink is as wide as the background's pen left it, in the ink's own colour.
  expectAll(image, {20, 27, 40, 6}, kBlue);
}

TEST_F(DrawViewTest, WidgetShowsWhatDrawRectPaints) {
  line(20, 30, 60, 30);
  const QImage expected = picture();
  EXPECT_EQ(view.grab().toImage().convertToFormat(QImage::Format_RGB32), expected);
}

TEST_F(DrawViewTest, ThemeDoesNotMatter) {
  line(20, 30, 60, 50);
  const QImage before = view.grab().toImage();
  const QPalette usual = QApplication::palette();
  QApplication::setPalette(QPalette(Qt::darkGray, Qt::black));
  view.setStyleSheet("* { background: red; color: green }");
  EXPECT_EQ(view.grab().toImage(), before);
  QApplication::setPalette(usual);
}

// --- the path ---

TEST_F(DrawViewTest, NewViewHasNoInk) {
  EXPECT_EQ(view.path().elementCount(), 0);
  EXPECT_EQ(view.firstPoint, 0);
}

TEST_F(DrawViewTest, MovesAloneDrawNothing) {
  view.SetMoveTo(20, 30);
  view.SetMoveTo(60, 30);
  expectAll(picture(), {2, 2, 116, 76}, kWhite);
}

TEST_F(DrawViewTest, StrokeOfOnePointDrawsNothing) {
  line(20, 30, 20, 30);
  expectAll(picture(), {2, 2, 116, 76}, kWhite);
}

TEST_F(DrawViewTest, LineWithoutAPointToStartFromDrawsNothing) {
  view.SetLineTo(60, 60);
  EXPECT_EQ(view.path().elementCount(), 0);
  expectAll(picture(), {2, 2, 116, 76}, kWhite);
  view.SetMoveTo(60, 60);
  view.SetLineTo(80, 60);
  expectAll(picture(), {60, 59, 20, 2}, kBlue);
}

TEST_F(DrawViewTest, ClearedViewShowsOnlyFieldAndFrame) {
  const QImage empty = picture();
  line(20, 30, 60, 50);
  EXPECT_NE(picture(), empty);
  view.ClearContext();
  EXPECT_EQ(view.path().elementCount(), 0);
  EXPECT_EQ(picture(), empty);
}

TEST_F(DrawViewTest, LineAfterAClearDrawsNoLineFromTheCorner) {
  line(20, 30, 60, 30);
  view.ClearContext();
  view.SetLineTo(80, 60);
  EXPECT_EQ(view.path().elementCount(), 0);
  expectAll(picture(), {2, 2, 116, 76}, kWhite);
}

// --- redraw requests ---

class ShownViewTest : public DrawViewTest {
 protected:
  ShownViewTest() {
    view.show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(&view));
    QApplication::processEvents();
    view.redraws = 0;
  }

  // Performs the redraws requested on this thread.
  int takeRedraws() {
    QApplication::sendPostedEvents();
    return std::exchange(view.redraws, 0);
  }

  bool waitForRedraw() {
    return QTest::qWaitFor([this] { return view.redraws > 0; });
  }

  // On a separate thread, as the SDK does.
  static void onAnotherThread(const std::function<void()>& requests) {
    std::thread(requests).join();
  }

  // How long the screen shows a picture.
  std::chrono::duration<double> frame() const {
    return std::chrono::duration<double>(1 / view.screen()->refreshRate());
  }
};

TEST_F(ShownViewTest, MoveAndClearRequestNoRedraw) {
  view.SetMoveTo(20, 30);
  view.ClearContext();
  EXPECT_EQ(takeRedraws(), 0);
}

TEST_F(ShownViewTest, LineRequestsARedraw) {
  line(20, 30, 60, 30);
  EXPECT_EQ(takeRedraws(), 1);
  view.SetLineTo(60, 40);
  EXPECT_EQ(takeRedraws(), 1);
}

// As Open, Clear and Reset request it.
TEST_F(ShownViewTest, RequestOfTheGuiThreadIsMetAtOnce) {
  for (int i = 0; i < 3; ++i) {
    view.setNeedsDisplay(true);
    EXPECT_EQ(takeRedraws(), 1);
  }
  EXPECT_EQ(takeRedraws(), 0);
}

TEST_F(ShownViewTest, NoRedrawIsMadeWhenNoneIsNeeded) {
  view.setNeedsDisplay(false);
  EXPECT_EQ(takeRedraws(), 0);
}

TEST_F(ShownViewTest, RequestIsMadeOnceAndAgainAfterTheRedraw) {
  std::atomic<int> requests = 0;
  QObject::connect(
      &view, &DrawView::redrawRequested, &view, [&] { ++requests; }, Qt::DirectConnection);
  onAnotherThread([this] {
    for (int i = 0; i < 3; ++i) line(20, 30, 60, 30);
  });
  EXPECT_EQ(requests, 1);
  ASSERT_TRUE(waitForRedraw());
  onAnotherThread([this] { line(20, 30, 60, 30); });
  EXPECT_EQ(requests, 2);
}

// Otherwise the redraw could happen too early, with no other after it.
TEST_F(ShownViewTest, LineIsThereWhenItsRedrawIsRequested) {
  int elements = 0;
  QObject::connect(
      &view, &DrawView::redrawRequested, &view, [&] { elements = view.path().elementCount(); },
      Qt::DirectConnection);
  onAnotherThread([this] { line(20, 30, 60, 30); });
  EXPECT_EQ(elements, 2);
}

TEST_F(ShownViewTest, RequestIsMetAtOnceWhenTheLastRedrawIsAFrameOld) {
  view.repaint();
  const auto painted = std::chrono::steady_clock::now();
  view.redraws = 0;
  while (std::chrono::steady_clock::now() < painted + frame()) std::this_thread::yield();
  onAnotherThread([this] { line(20, 30, 60, 30); });
  for (int i = 0; i < 3; ++i) QApplication::sendPostedEvents();  // events only, no timer
  EXPECT_EQ(view.redraws, 1);
}

// A pen writes without a pause. No redraw may come sooner, however slow the machine is.
TEST_F(ShownViewTest, RedrawsOfAPenKeepTheScreensPace) {
  view.repaint();
  const auto begin = std::chrono::steady_clock::now();
  view.redraws = 0;
  std::jthread pen([this](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      line(20, 30, 60, 30);
      std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
  });
  while (view.redraws < 10) QApplication::processEvents(QEventLoop::WaitForMoreEvents);
  // One of them may be the window system's own.
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 9 * frame());
}

TEST_F(ShownViewTest, LastSampleIsShownAndNothingIsPaintedAfterIt) {
  onAnotherThread([this] {
    for (int i = 0; i < 40; ++i) {
      line(20, 30, 60, 30);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    line(20, 60, 60, 60);
  });
  ASSERT_TRUE(QTest::qWaitFor([this] { return view.shownElements == 82; }));
  // This one waits for the timer, unless the machine is slow.
  view.repaint();
  onAnotherThread([this] { line(20, 70, 60, 70); });
  ASSERT_TRUE(QTest::qWaitFor([this] { return view.shownElements == 84; }));
  view.redraws = 0;
  // Longer than any redraw is delayed.
  QEventLoop loop;
  QTimer::singleShot(std::chrono::ceil<std::chrono::milliseconds>(3 * frame()), &loop,
                     &QEventLoop::quit);
  loop.exec();
  EXPECT_EQ(view.redraws, 0);
}

// --- the frame ---

class FrameTest : public testing::Test {
 protected:
  FrameTest() { parent.resize(200, 200); }

  QWidget parent;
  DrawView view{&parent};
};

TEST_F(FrameTest, ResizeKeepsTheCentreByTheGivenRule) {
  view.setGeometry(10, 10, 100, 100);
  view.resize(4.0, 3.0);
  // The origin would be (-84, -48); it is mirrored.
  EXPECT_EQ(view.frame(), QRectF(84, 48, 288, 216));
  EXPECT_EQ(view.geometry(), QRect(84, 48, 288, 216));
}

TEST_F(FrameTest, CentreStaysWhereItWas) {
  view.setGeometry(200, 150, 100, 100);
  view.resize(2.0, 1.0);
  EXPECT_EQ(view.frame(), QRectF(178, 164, 144, 72));
  EXPECT_EQ(view.geometry(), QRect(178, 164, 144, 72));
  view.resize(1.0, 2.0);
  EXPECT_EQ(view.frame(), QRectF(214, 128, 72, 144));
}

TEST_F(FrameTest, FrameKeepsFractionsAndTheWidgetRoundsThem) {
  view.setGeometry(200, 150, 100, 100);
  view.resize(3.685, 2.23);
  EXPECT_DOUBLE_EQ(view.frame().width(), 265.32);
  EXPECT_DOUBLE_EQ(view.frame().height(), 160.56);
  EXPECT_DOUBLE_EQ(view.frame().x(), 117.34);
  EXPECT_DOUBLE_EQ(view.frame().y(), 119.72);
  EXPECT_EQ(view.geometry(), QRect(117, 120, 265, 161));
  EXPECT_EQ(view.bounds(), QRectF(0, 0, 265, 161));
}

// If the origin were rounded each time, the view would drift.
TEST_F(FrameTest, FractionsAddUpToNothing) {
  view.setGeometry(200, 150, 100, 100);
  for (int i = 0; i < 1000; ++i) {
    view.resize(3.685, 2.23);
    view.resize(3.11, 2.28);
  }
  EXPECT_NEAR(view.frame().center().x(), 250, 1e-6);
  EXPECT_NEAR(view.frame().center().y(), 200, 1e-6);
}

TEST_F(FrameTest, PlaceThatSomeoneElseGaveIsTheFrame) {
  view.resize(3.685, 2.23);
  view.setGeometry(10, 20, 30, 40);
  EXPECT_EQ(view.frame(), QRectF(10, 20, 30, 40));
}

TEST_F(FrameTest, NewFrameIsReported) {
  QRectF reported;
  QObject::connect(&view, &DrawView::frameChanged, [&](const QRectF& frame) { reported = frame; });
  view.setGeometry(200, 150, 100, 100);
  view.resize(2.0, 1.0);
  EXPECT_EQ(reported, QRectF(178, 164, 144, 72));
}

TEST_F(FrameTest, ZeroSizeIsAPoint) {
  view.setGeometry(10, 20, 100, 80);
  view.resize(0.0, 0.0);
  EXPECT_EQ(view.frame(), QRectF(60, 60, 0, 0));
}

TEST_F(FrameTest, NegativeSizeIsNone) {
  view.setGeometry(10, 20, 100, 80);
  view.resize(-1.0, -1.0);
  // The origin is computed from the stated size: 10 + (72 + 100) / 2.
  EXPECT_EQ(view.frame(), QRectF(96, 96, 0, 0));
}

struct Absurd {
  double stated;
  double length;  // the resulting length of the frame
};

class AbsurdSizeTest : public FrameTest, public testing::WithParamInterface<Absurd> {};

TEST_P(AbsurdSizeTest, IsHeldWithinWhatTheToolkitCanHold) {
  view.setGeometry(10, 10, 100, 100);
  view.resize(GetParam().stated, GetParam().stated);
  const QRectF frame = view.frame();
  EXPECT_EQ(frame.size(), QSizeF(GetParam().length, GetParam().length));
  EXPECT_GE(frame.x(), 0);
  EXPECT_LE(frame.right(), 16777215);
  EXPECT_GE(frame.y(), 0);
  EXPECT_LE(frame.bottom(), 16777215);
  EXPECT_EQ(view.width(), static_cast<int>(GetParam().length));

  parent.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&parent));
  view.SetMoveTo(5, 5);
  view.SetLineTo(50, 50);
  QApplication::processEvents();
  QImage corner(100, 100, QImage::Format_RGB32);
  QPainter painter(&corner);
  view.drawRect(painter, {});

  // The next pad with a size is shown normally.
  view.resize(4.0, 3.0);
  EXPECT_EQ(view.size(), QSize(288, 216));
  EXPECT_LE(view.frame().right(), 16777215);
}

INSTANTIATE_TEST_SUITE_P(Sizes, AbsurdSizeTest,
                         testing::Values(Absurd{kInfinity, 16777215},  //
                                         Absurd{-kInfinity, 0},        //
                                         Absurd{kNan, 0},              //
                                         Absurd{1e300, 16777215},      //
                                         Absurd{-1e300, 0},            //
                                         Absurd{233017, 16777215},     // 72 units more than it can
                                         Absurd{1e-300, 7.2e-299}));

// A view cannot be created with a frame: the form creates the view and positions it afterwards.
static_assert(!std::is_constructible_v<DrawView, QRect>);
static_assert(!std::is_constructible_v<DrawView, QRectF>);
static_assert(std::is_constructible_v<DrawView, QWidget*>);

}  // namespace
