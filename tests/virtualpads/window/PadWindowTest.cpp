#include "virtualpads/window/PadWindow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QMenu>
#include <QMenuBar>
#include <QMouseEvent>
#include <QPixmap>
#include <QPointingDevice>
#include <QTabletEvent>
#include <QTest>
#include <QTimer>
#include <algorithm>
#include <atomic>
#include <string>
#include <thread>

#include "virtualpads/InkPad.h"
#include "virtualpads/VisionPad.h"
#include "virtualpads/window/HexText.h"
#include "virtualpads/window/VisionPortrait.h"

namespace virtualpads {
namespace {

using testing::AllOf;
using testing::DoubleEq;
using testing::DoubleNear;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

template <class Condition>
bool waitUntil(Condition condition) {
  return QTest::qWaitFor(condition, 30'000);
}

class PadWindowTest : public testing::Test {
 protected:
  explicit PadWindowTest(PadKind kind)
      : pad(std::make_shared<WatchedPad>(makePad(kind))),
        window(std::make_unique<PadWindow>(pad, [this](const PenState& pen) {
          pens.push_back(pen);
          reports.push_back(pad->inputReport(pen));
        })) {
    // The window's preferred size, however small the screen is.
    window->resize(window->sizeHint());
    window->show();
    surface = find<PadSurface>("padSurface");
  }

  template <class Widget>
  Widget* find(const QString& name) const {
    auto* widget = window->findChild<Widget*>(name);
    if (widget == nullptr) throw std::runtime_error("the window has no " + name.toStdString());
    return widget;
  }

  std::string text(const QString& name) const { return find<QLabel>(name)->text().toStdString(); }

  testing::AssertionResult shows(const QString& name, const std::string& wanted) const {
    if (waitUntil([&] { return text(name) == wanted; })) return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << name.toStdString() << " is \"" << text(name) << "\", not \"" << wanted << "\"";
  }

  // The position in the surface widget of a point on the surface, from 0 to 1.
  QPointF place(double x, double y) const {
    const QRectF rect = surface->surfaceRect();
    return {rect.left() + x * rect.width(), rect.top() + y * rect.height()};
  }

  void mouse(QEvent::Type type, double x, double y, Qt::MouseButton button = Qt::LeftButton) {
    const QPointF at = place(x, y);
    QMouseEvent event(type, at, surface->mapToGlobal(at),
                      type == QEvent::MouseMove ? Qt::NoButton : button,
                      type == QEvent::MouseButtonRelease ? Qt::NoButton : button, Qt::NoModifier);
    QCoreApplication::sendEvent(surface, &event);
  }

  bool tablet(QEvent::Type type, double x, double y, double pressure,
              Qt::MouseButton button = Qt::LeftButton) {
    const QPointF at = place(x, y);
    QTabletEvent event(type, stylus.get(), at, surface->mapToGlobal(at), pressure, 0, 0, 0, 0, 0,
                       Qt::NoModifier, type == QEvent::TabletMove ? Qt::NoButton : button,
                       type == QEvent::TabletRelease ? Qt::NoButton : button);
    event.ignore();
    QCoreApplication::sendEvent(surface, &event);
    return event.isAccepted();
  }

  // The color of the surface there, once the window shows it.
  bool showsColor(double x, double y, QRgb color) const {
    return waitUntil([&] { return colorAt(x, y) == color; });
  }
  QRgb colorAt(double x, double y) const {
    return surface->grab().toImage().pixel(place(x, y).toPoint());
  }

  std::unique_ptr<QPointingDevice> stylus = std::make_unique<QPointingDevice>(
      "stylus", 1, QInputDevice::DeviceType::Stylus, QPointingDevice::PointerType::Pen,
      QInputDevice::Capability::Pressure, 1, 2);
  std::vector<PenState> pens;
  std::vector<Bytes> reports;
  std::shared_ptr<WatchedPad> pad;
  std::unique_ptr<PadWindow> window;
  PadSurface* surface = nullptr;
};

class UsbPadWindowTest : public PadWindowTest {
 protected:
  UsbPadWindowTest() : PadWindowTest(PadKind::Usb) {}
};

TEST_F(UsbPadWindowTest, SendsAStrokeOfTheMouse) {
  mouse(QEvent::MouseButtonPress, 0.5, 0.5);
  EXPECT_THAT(reports, ElementsAre(ElementsAre(0x20, 0x4E, 0x02, 0x27, 0x01, 0x40)));
  mouse(QEvent::MouseMove, 0.25, 0.75);
  mouse(QEvent::MouseButtonRelease, 0.25, 0.75);
  ASSERT_GE(reports.size(), 3U);
  EXPECT_THAT(reports.at(reports.size() - 2), ElementsAre(0x20, 0x54, 0x01, 0xA4, 0x01, 0x40));
  EXPECT_THAT(reports.back(), ElementsAre(0x00, 0x54, 0x01, 0xA4, 0x01, 0x00));
  EXPECT_EQ(std::ranges::count(pens, false, &PenState::touch), 1);
}

TEST_F(UsbPadWindowTest, GoesOnSendingWhileThePenRests) {
  mouse(QEvent::MouseButtonPress, 0.5, 0.5);
  ASSERT_TRUE(waitUntil([this] { return reports.size() >= 10; }));
  EXPECT_THAT(reports, Each(ElementsAre(0x20, 0x4E, 0x02, 0x27, 0x01, 0x40)));
  for (std::size_t i = 1; i < pens.size(); ++i) {
    EXPECT_EQ((pens[i].milliseconds - pens[0].milliseconds) % 5, 0U);
    EXPECT_GT(pens[i].milliseconds, pens[i - 1].milliseconds);
  }
  mouse(QEvent::MouseButtonRelease, 0.5, 0.5);
  EXPECT_FALSE(pens.back().touch);
}

TEST_F(UsbPadWindowTest, TakesNoOtherButtonOfTheMouse) {
  mouse(QEvent::MouseButtonPress, 0.5, 0.5, Qt::RightButton);
  mouse(QEvent::MouseMove, 0.6, 0.5, Qt::RightButton);
  mouse(QEvent::MouseButtonRelease, 0.5, 0.5, Qt::RightButton);
  EXPECT_THAT(reports, IsEmpty());

  mouse(QEvent::MouseButtonPress, 0.5, 0.5);
  mouse(QEvent::MouseButtonRelease, 0.5, 0.5, Qt::RightButton);
  EXPECT_THAT(pens, Each(Field(&PenState::touch, true)));
}

TEST_F(UsbPadWindowTest, TakesNoStrokeThatBeginsOnTheCase) {
  mouse(QEvent::MouseButtonPress, -0.01, 0.5);
  mouse(QEvent::MouseMove, 0.5, 0.5);
  mouse(QEvent::MouseButtonRelease, 0.5, 0.5);
  EXPECT_THAT(reports, IsEmpty());
}

TEST_F(UsbPadWindowTest, KeepsAStrokeThatLeavesTheSurfaceAtItsEdge) {
  mouse(QEvent::MouseButtonPress, 0.5, 0.5);
  mouse(QEvent::MouseMove, 1.5, -0.5);
  mouse(QEvent::MouseButtonRelease, 1.5, -0.5);
  EXPECT_THAT(pens.back(), AllOf(Field(&PenState::x, 1.0), Field(&PenState::y, 0.0)));
  EXPECT_THAT(pens, Each(AllOf(Field(&PenState::x, testing::Le(1.0)),
                               Field(&PenState::y, testing::Ge(0.0)))));
}

TEST_F(UsbPadWindowTest, SendsAStrokeOfATabletWithItsPressure) {
  EXPECT_TRUE(tablet(QEvent::TabletPress, 0.5, 0.5, 0.25));
  EXPECT_TRUE(tablet(QEvent::TabletMove, 0.25, 0.75, 1.0));
  EXPECT_TRUE(tablet(QEvent::TabletRelease, 0.25, 0.75, 0.0));
  ASSERT_GE(pens.size(), 3U);
  EXPECT_THAT(reports.front(), ElementsAre(0x20, 0x4E, 0x02, 0x27, 0x01, 0x20));
  EXPECT_THAT(pens.at(pens.size() - 2),
              AllOf(Field(&PenState::x, DoubleNear(0.25, 1e-9)), Field(&PenState::touch, true),
                    Field(&PenState::pressure, DoubleEq(1.0))));
  EXPECT_THAT(reports.back(), ElementsAre(0x00, 0x54, 0x01, 0xA4, 0x01, 0x00));
}

TEST_F(UsbPadWindowTest, SendsNothingOfAPenAboveTheTablet) {
  EXPECT_TRUE(tablet(QEvent::TabletMove, 0.5, 0.5, 0.0));
  EXPECT_TRUE(tablet(QEvent::TabletPress, 0.5, 0.5, 0.0, Qt::RightButton));
  EXPECT_TRUE(tablet(QEvent::TabletRelease, 0.5, 0.5, 0.0, Qt::RightButton));
  EXPECT_THAT(reports, IsEmpty());
}

TEST_F(UsbPadWindowTest, LeavesAStrokeToTheDeviceThatBeganIt) {
  tablet(QEvent::TabletPress, 0.5, 0.5, 0.5);
  mouse(QEvent::MouseButtonPress, 0.1, 0.1);
  mouse(QEvent::MouseMove, 0.1, 0.1);
  mouse(QEvent::MouseButtonRelease, 0.1, 0.1);
  tablet(QEvent::TabletRelease, 0.5, 0.5, 0.0);
  EXPECT_EQ(std::ranges::count(pens, false, &PenState::touch), 1);
  EXPECT_THAT(pens, Each(Field(&PenState::x, DoubleNear(0.5, 1e-9))));
}

TEST_F(UsbPadWindowTest, LiftsThePenOfATabletThatIsPulledOut) {
  tablet(QEvent::TabletPress, 0.5, 0.5, 0.5);
  stylus.reset();
  EXPECT_FALSE(pens.back().touch);
  mouse(QEvent::MouseButtonPress, 0.25, 0.25);
  EXPECT_TRUE(pens.back().touch);
  mouse(QEvent::MouseButtonRelease, 0.25, 0.25);
}

TEST_F(UsbPadWindowTest, LiftsThePenBeforeASecondPressOfTheSameDevice) {
  mouse(QEvent::MouseButtonPress, 0.5, 0.5);
  mouse(QEvent::MouseButtonPress, 0.25, 0.25);
  EXPECT_EQ(std::ranges::count(pens, false, &PenState::touch), 1);
  EXPECT_TRUE(pens.back().touch);
  EXPECT_THAT(pens.back().x, DoubleNear(0.25, 1e-9));
  mouse(QEvent::MouseButtonRelease, 0.25, 0.25);
}

TEST_F(UsbPadWindowTest, LiftsThePenWhenItIsDestroyed) {
  mouse(QEvent::MouseButtonPress, 0.5, 0.5);
  window.reset();
  EXPECT_FALSE(pens.back().touch);
}

TEST_F(UsbPadWindowTest, ShowsThePenAndItsReportWhoeverMovesIt) {
  EXPECT_EQ(text("pen"), "lifted");
  EXPECT_EQ(text("inputReport"), "none");
  pad->inputReport({.x = 0.5, .y = 0.25, .pressure = 1, .touch = true, .milliseconds = 0});
  EXPECT_TRUE(shows("pen", "touching at 0.500, 0.250 with pressure 1.00"));
  EXPECT_EQ(text("inputReport"), "20 4e 02 aa 00 7f");
  pad->inputReport({.x = 0.5, .y = 0.25, .pressure = 1, .touch = false, .milliseconds = 0});
  EXPECT_TRUE(shows("pen", "lifted"));
  EXPECT_EQ(text("inputReport"), "00 4e 02 aa 00 00");
}

TEST_F(UsbPadWindowTest, ShowsTheLastStrokeOnly) {
  const QRgb blank = colorAt(0.25, 0.5);
  const auto draw = [this](double x, bool touch) {
    pad->inputReport({.x = x, .y = 0.5, .pressure = 1, .touch = touch, .milliseconds = 0});
  };
  draw(0.2, true);
  draw(0.3, true);
  draw(0.3, false);
  EXPECT_TRUE(showsColor(0.25, 0.5, qRgb(0x9A, 0xA7, 0xB6)));
  draw(0.7, true);
  draw(0.8, true);
  draw(0.8, false);
  EXPECT_TRUE(showsColor(0.75, 0.5, qRgb(0x9A, 0xA7, 0xB6)));
  EXPECT_EQ(colorAt(0.25, 0.5), blank);
}

TEST_F(UsbPadWindowTest, MarksThePenWhileItTouches) {
  pad->inputReport({.x = 0.5, .y = 0.5, .pressure = 1, .touch = true, .milliseconds = 0});
  const auto ring = [this] {
    return surface->grab().toImage().pixelColor(place(0.5, 0.5).toPoint() + QPoint(6, 0)).red() >
               0xD0 &&
           surface->grab().toImage().pixelColor(place(0.5, 0.5).toPoint() + QPoint(6, 0)).blue() <
               0x80;
  };
  EXPECT_TRUE(waitUntil(ring));
  pad->inputReport({.x = 0.5, .y = 0.5, .pressure = 1, .touch = false, .milliseconds = 0});
  EXPECT_TRUE(waitUntil([&] { return !ring(); }));
}

TEST_F(UsbPadWindowTest, MakesThePointerAPenOverTheSurfaceOnly) {
  const auto pointerIsPen = [this](double x, double y) {
    mouse(QEvent::MouseMove, x, y);
    return surface->cursor().shape() == Qt::BitmapCursor;
  };
  EXPECT_TRUE(surface->hasMouseTracking());
  EXPECT_TRUE(surface->hasTabletTracking());
  EXPECT_FALSE(pointerIsPen(-0.01, 0.5));
  EXPECT_TRUE(pointerIsPen(0.01, 0.99));
  EXPECT_FALSE(pointerIsPen(0.5, 1.02));
  EXPECT_EQ(surface->cursor().shape(), Qt::ArrowCursor);
  tablet(QEvent::TabletMove, 0.5, 0.5, 0);
  EXPECT_EQ(surface->cursor().shape(), Qt::BitmapCursor);
}

// The tip touches the surface: the lower left corner of the picture.
TEST_F(UsbPadWindowTest, DrawsThePenFromItsTip) {
  mouse(QEvent::MouseMove, 0.5, 0.5);
  const QCursor pen = surface->cursor();
  EXPECT_EQ(pen.hotSpot(), QPoint(0, 23));
  const QImage picture = pen.pixmap().toImage();
  EXPECT_EQ(picture.size(), QSize(24, 24));
  EXPECT_GT(picture.pixelColor(1, 22).alpha(), 0x80);
  EXPECT_EQ(picture.pixelColor(0, 0).alpha(), 0);
  EXPECT_EQ(picture.pixelColor(23, 23).alpha(), 0);
}

TEST_F(UsbPadWindowTest, IsClosedByItsMenu) {
  auto* bar = find<QMenuBar>({});
  ASSERT_EQ(bar->actions().size(), 1);
  EXPECT_EQ(bar->actions().first()->text().toStdString(), "&Pad");
  const QList<QAction*> entries = bar->actions().first()->menu()->actions();
  ASSERT_EQ(entries.size(), 1);
  EXPECT_EQ(entries.first()->text().toStdString(), "&Close");
  EXPECT_EQ(entries.first()->shortcut(), QKeySequence(QKeySequence::Close));
  entries.first()->trigger();
  EXPECT_FALSE(window->isVisible());
}

TEST_F(UsbPadWindowTest, HasAnIconWithAPadOnIt) {
  const QImage icon = window->windowIcon().pixmap(64, 64).toImage();
  EXPECT_EQ(icon.size(), QSize(64, 64));
  EXPECT_EQ(icon.pixelColor(0, 0).alpha(), 0);
  EXPECT_EQ(icon.pixelColor(5, 32), QColor(0x3A, 0x40, 0x49));
  EXPECT_EQ(icon.pixelColor(12, 18), QColor(Qt::white));
  EXPECT_TRUE(window->windowIcon().availableSizes().contains(QSize(16, 16)));
}

TEST_F(UsbPadWindowTest, ShowsWhatThePadIs) {
  EXPECT_EQ(window->windowTitle().toStdString(), "Vela USB (virtual pad)");
  EXPECT_EQ(text("productId"), "04df:0012");
  EXPECT_EQ(text("surface"), "3.69 × 2.23 inches");
}

TEST_F(UsbPadWindowTest, HasNoTableOfFeatureReports) {
  EXPECT_FALSE(find<FeatureTable>("featureTable")->isVisible());
}

class IiPadWindowTest : public PadWindowTest {
 protected:
  IiPadWindowTest() : PadWindowTest(PadKind::Ii) {}

  std::vector<std::string> row(int row) const {
    const auto* table = find<FeatureTable>("featureTable");
    std::vector<std::string> texts;
    for (int column = 0; column < table->columnCount(); ++column)
      texts.push_back(table->item(row, column)->text().toStdString());
    return texts;
  }
};

TEST_F(IiPadWindowTest, ListsTheFeatureReportsOfThePad) {
  EXPECT_EQ(find<FeatureTable>("featureTable")->rowCount(), 2);
  EXPECT_THAT(row(0), ElementsAre("2", "get", "Serial number", "0", ""));
  EXPECT_THAT(row(1), ElementsAre("10", "get", "Pad information", "0", ""));
  EXPECT_TRUE(shows("serialNumber", "27 18 09 fa eb dc cd be"));
}

TEST_F(IiPadWindowTest, CountsFeatureReportsAndShowsTheLastBytes) {
  pad->getFeature(2);
  pad->getFeature(2);
  ASSERT_TRUE(waitUntil([this] { return row(0)[3] == "2"; }));
  EXPECT_EQ(row(0)[4], "02 5a 5a 5a 5a 5a 5a 5a 5a 27 18 09 fa eb dc cd be");
  EXPECT_EQ(row(1)[3], "0");
}

TEST_F(IiPadWindowTest, ShowsRefusedFeatureReportsToo) {
  pad->setFeature(Bytes{2, 7, 0xFF});
  pad->getFeature(77);
  pad->getFeature(77);
  ASSERT_TRUE(waitUntil([this] { return find<FeatureTable>("featureTable")->rowCount() == 4; }));
  EXPECT_THAT(row(2), ElementsAre("2", "set", "(not of this pad)", "1", "refused: 02 07 ff"));
  EXPECT_THAT(row(3), ElementsAre("77", "get", "(not of this pad)", "2", "refused: 4d"));
}

class InkPadWindowTest : public PadWindowTest {
 protected:
  InkPadWindowTest() : PadWindowTest(PadKind::Ink) {}

  // Edits the option block as a program does.
  template <class Edit>
  void setOptions(Edit edit) {
    Bytes report = *pad->getFeature(3);
    edit(std::span(report).subspan(1));
    ASSERT_TRUE(pad->setFeature(report));
  }

  // Puts the picture of one dark pixel onto a layer.
  void setPicture(std::uint8_t layer, int x, int y) {
    Bytes band(2408);
    band[0] = 7;
    band[1] = layer;
    band[3] = static_cast<std::uint8_t>(y / 60 * 60);
    band[static_cast<std::size_t>(8 + y % 60 * 40 + x / 8)] = static_cast<std::uint8_t>(1 << x % 8);
    ASSERT_TRUE(pad->setFeature(band));
  }

  // The LCD is shown at twice its size here.
  QRgb lcdPixel(int x, int y) const { return colorAt((x + 0.5) / 320, (y + 0.5) / 240); }
  bool showsLcdPixel(int x, int y, QRgb color) const {
    return waitUntil([&] { return lcdPixel(x, y) == color; });
  }

  static constexpr QRgb kLight = 0xFFE3EBD9;
  static constexpr QRgb kDark = 0xFF1A2419;
  static constexpr QRgb kUnlitLight = 0xFF98A293;
  static constexpr QRgb kUnlitDark = 0xFF262C26;
};

TEST_F(InkPadWindowTest, ShowsThePadAsItLeavesTheFactory) {
  EXPECT_EQ(surface->surfaceRect(), QRectF(22, 22, 640, 480));
  EXPECT_EQ(text("backlight"), "on, mode 0, 500");
  EXPECT_EQ(text("inkTrace"), "off, mode 0, 300");
  EXPECT_EQ(text("inkingRegion"), "(0, 0) to (319, 239)");
  EXPECT_EQ(text("clears"), "none");
  EXPECT_EQ(text("serialNumber"), "31 42 53 64 75 86 97 a8");
  EXPECT_EQ(text("layer0"), "Layer 0, hidden");
  EXPECT_EQ(text("layer1"), "Layer 1, hidden");
  EXPECT_EQ(text("layer2"), "Layer 2, hidden");
  EXPECT_EQ(lcdPixel(100, 100), kLight);
}

TEST_F(InkPadWindowTest, ShowsThePictureOfALayerThatIsNotHidden) {
  setPicture(1, 200, 130);
  setOptions([](auto options) { options[14] |= 1 << 4; });
  EXPECT_TRUE(shows("layer1", "Layer 1, state 1"));
  EXPECT_TRUE(showsLcdPixel(200, 130, kDark));
  EXPECT_EQ(lcdPixel(199, 130), kLight);
  EXPECT_EQ(lcdPixel(201, 130), kLight);
  EXPECT_EQ(lcdPixel(200, 129), kLight);
  EXPECT_EQ(lcdPixel(200, 131), kLight);
  setOptions([](auto options) { options[14] &= 0x0F; });
  EXPECT_TRUE(shows("layer1", "Layer 1, hidden"));
  EXPECT_TRUE(showsLcdPixel(200, 130, kLight));
}

TEST_F(InkPadWindowTest, DimsWithTheBacklight) {
  setPicture(0, 0, 0);
  setOptions([](auto options) {
    options[11] = (options[11] & 0xF8) | 1;
    options[12] = 0x2C;
    options[13] = 0x01;
    options[14] |= 2 << 2;
  });
  EXPECT_TRUE(shows("backlight", "off, mode 1, 300"));
  EXPECT_TRUE(showsLcdPixel(0, 0, kUnlitDark));
  EXPECT_EQ(lcdPixel(319, 239), kUnlitLight);
  EXPECT_EQ(text("layer0"), "Layer 0, state 2");
}

TEST_F(InkPadWindowTest, ShowsTheInkAndItsClearing) {
  setOptions([](auto options) {
    options[1] |= 2;
    options[2] = 0xF4;
  });
  EXPECT_TRUE(shows("inkTrace", "on, mode 2, 500"));
  mouse(QEvent::MouseButtonPress, 0.5, 0.5);
  mouse(QEvent::MouseButtonRelease, 0.5, 0.5);
  EXPECT_TRUE(showsLcdPixel(160, 120, kDark));
  ASSERT_TRUE(pad->setFeature(Bytes{9, 1, 0}));
  EXPECT_TRUE(shows("clears", "1, the last with value 1"));
  EXPECT_TRUE(showsLcdPixel(160, 120, kLight));
}

TEST_F(InkPadWindowTest, MarksAnInkingRegionThatIsNotTheWholeLcd) {
  const auto blueOnTheEdge = [this] {
    const QImage picture = surface->grab().toImage();
    const int y = 22 + 2 * 51;
    for (int x = 22 + 2 * 20; x < 22 + 2 * 295; ++x) {
      const QColor color = picture.pixelColor(x, y);
      if (color.blue() > color.red() + 40) return true;
    }
    return false;
  };
  EXPECT_FALSE(blueOnTheEdge());
  setOptions([](auto options) {
    const Bytes region{20, 0, 51, 0x27, 0x01, 188};
    std::ranges::copy(region, options.begin() + 5);
  });
  EXPECT_TRUE(shows("inkingRegion", "(20, 51) to (295, 188)"));
  EXPECT_TRUE(blueOnTheEdge());
}

TEST_F(InkPadWindowTest, EnlargesTheLcdByWholeNumbers) {
  surface->resize(44 + 320, 66 + 240);
  EXPECT_EQ(surface->surfaceRect(), QRectF(22, 22, 320, 240));
  surface->resize(44 + 656, 66 + 534);
  EXPECT_EQ(surface->surfaceRect(), QRectF(30, 49, 640, 480));
  surface->resize(44 + 960, 66 + 720);
  EXPECT_EQ(surface->surfaceRect(), QRectF(22, 22, 960, 720));
}

TEST_F(InkPadWindowTest, ListsTheFeatureReportsOfThePad) {
  const auto* table = find<FeatureTable>("featureTable");
  std::vector<std::string> names;
  for (int row = 0; row < table->rowCount(); ++row) {
    names.push_back((table->item(row, FeatureTable::Id)->text() + " " +
                     table->item(row, FeatureTable::Way)->text() + " " +
                     table->item(row, FeatureTable::Name)->text())
                        .toStdString());
  }
  EXPECT_THAT(names, ElementsAre("3 get Options", "3 set Options", "6 get Serial number",
                                 "7 set Picture band", "9 set Clear"));
}

class VisionPadWindowTest : public PadWindowTest {
 protected:
  VisionPadWindowTest() : PadWindowTest(PadKind::Vision) {}

  void setFeature(std::uint8_t id, std::uint8_t value = 0) {
    Bytes report(17);
    report[0] = id;
    report[1] = value;
    ASSERT_TRUE(pad->setFeature(report));
  }

  void draw() {
    pad->inputReport({.x = 0.2, .y = 0.5, .pressure = 1, .touch = true, .milliseconds = 0});
    pad->inputReport({.x = 0.8, .y = 0.5, .pressure = 1, .touch = true, .milliseconds = 5});
    pad->inputReport({.x = 0.8, .y = 0.5, .pressure = 0, .touch = false, .milliseconds = 10});
  }

  static constexpr QRgb kScreen = 0xFFFBFCFE;
  static constexpr QRgb kRestingScreen = 0xFFC3C9D1;
  static constexpr QRgb kInk = 0xFF14306E;
};

TEST_F(VisionPadWindowTest, ShowsTheMode) {
  EXPECT_EQ(text("mode"), "0");
  EXPECT_EQ(colorAt(0.5, 0.5), kRestingScreen);
  setFeature(4, 1);
  EXPECT_TRUE(shows("mode", "1, pen"));
  EXPECT_TRUE(showsColor(0.5, 0.5, kScreen));
  setFeature(4, 4);
  EXPECT_TRUE(shows("mode", "4"));
  EXPECT_TRUE(showsColor(0.5, 0.5, kRestingScreen));
}

TEST_F(VisionPadWindowTest, LeavesAGapBetweenTwoStrokes) {
  setFeature(4, 1);
  draw();
  pad->inputReport({.x = 0.2, .y = 0.9, .pressure = 1, .touch = true, .milliseconds = 15});
  EXPECT_TRUE(showsColor(0.2, 0.9, kInk));
  EXPECT_EQ(colorAt(0.5, 0.7), kScreen);
}

TEST_F(VisionPadWindowTest, InksByTheModeAtTheMomentOfTheStroke) {
  draw();
  setFeature(4, 1);
  EXPECT_TRUE(shows("mode", "1, pen"));
  EXPECT_TRUE(showsColor(0.5, 0.5, kScreen));
}

TEST_F(VisionPadWindowTest, IsWipedByAClearAndByAReset) {
  setFeature(4, 1);
  draw();
  EXPECT_TRUE(showsColor(0.5, 0.5, kInk));
  setFeature(18);
  EXPECT_TRUE(shows("clears", "1"));
  EXPECT_TRUE(showsColor(0.5, 0.5, kScreen));
  draw();
  EXPECT_TRUE(showsColor(0.5, 0.5, kInk));
  pad->getFeature(3);
  EXPECT_TRUE(shows("resets", "1"));
  EXPECT_TRUE(showsColor(0.5, 0.5, kScreen));
}

TEST_F(VisionPadWindowTest, IsNotWipedByARefusedClear) {
  setFeature(4, 1);
  draw();
  EXPECT_FALSE(pad->setFeature(Bytes{18}));
  pad->getFeature(2);
  EXPECT_TRUE(showsColor(0.5, 0.5, kInk));
}

TEST_F(VisionPadWindowTest, LightsTheLampForAKeepAlive) {
  const auto* lamp = find<Lamp>("keepAliveLamp");
  auto* keptAlive = find<QTimer>("keptAlive");
  EXPECT_FALSE(lamp->lit());
  setFeature(26);
  setFeature(26);
  EXPECT_TRUE(shows("keepAlives", "2"));
  EXPECT_TRUE(lamp->lit());
  EXPECT_EQ(keptAlive->interval(), 5000);
  keptAlive->start(0);
  EXPECT_TRUE(waitUntil([&] { return !lamp->lit(); }));
}

TEST_F(VisionPadWindowTest, ShowsTheInkRegionAndTheSerialNumber) {
  Bytes region(34);
  region[0] = 17;
  region[1] = 0xC0;
  region[33] = 0x7E;
  ASSERT_TRUE(pad->setFeature(region));
  EXPECT_TRUE(shows("inkRegion",
                    "c0 00 00 00 00 00 00 00\n"
                    "00 00 00 00 00 00 00 00\n"
                    "00 00 00 00 00 00 00 00\n"
                    "00 00 00 00 00 00 00 00\n"
                    "7e"));
  EXPECT_EQ(text("serialNumber"), "01 23 45 67 89 ab cd ef\n10 32 54 76 98 ba dc fe");
}

TEST_F(VisionPadWindowTest, HearsOfWhatOtherThreadsDo) {
  std::thread program([this] {
    Bytes keepAlive(17);
    keepAlive[0] = 26;
    for (int i = 0; i < 1000; ++i) pad->setFeature(keepAlive);
  });
  EXPECT_TRUE(shows("keepAlives", "1000"));
  program.join();
  const auto* table = find<FeatureTable>("featureTable");
  EXPECT_TRUE(waitUntil([&] { return table->item(8, FeatureTable::Count)->text() == "1000"; }));
}

TEST_F(VisionPadWindowTest, MayEndWhileThePadIsInUse) {
  std::atomic<bool> used = false;
  std::atomic<bool> ended = false;
  std::thread program([&] {
    while (!ended) {
      pad->getFeature(3);
      used = true;
    }
  });
  EXPECT_TRUE(waitUntil([&] { return used.load(); }));
  window.reset();
  ended = true;
  program.join();
}

TEST_F(VisionPadWindowTest, ShowsThePadAsItIsWhenTheWindowComesLater) {
  window.reset();
  setFeature(4, 1);
  setFeature(18);
  window = std::make_unique<PadWindow>(pad, [](const PenState&) {});
  EXPECT_EQ(text("mode"), "1, pen");
  EXPECT_EQ(text("clears"), "1");
}

// A desktop's font may be larger than the toolkit's own.
TEST(SmallestPadWindowTest, ShowsAllTexts) {
  const QFont usual = QApplication::font();
  for (const int points : {9, 14, 18}) {
    QFont font = usual;
    font.setPointSize(points);
    QApplication::setFont(font);
    for (const PadKind kind : {PadKind::Usb, PadKind::Ii, PadKind::Ink, PadKind::Vision}) {
      const auto pad = std::make_shared<WatchedPad>(makePad(kind));
      PadWindow window(pad, [](const PenState&) {});
      window.resize(window.minimumSizeHint());
      window.show();
      QCoreApplication::sendPostedEvents();
      for (const auto* label : window.findChildren<QLabel*>()) {
        SCOPED_TRACE(std::to_string(points) + " points, pad " +
                     std::to_string(static_cast<int>(kind)) + ": " + label->text().toStdString());
        EXPECT_GE(label->width(), label->minimumSizeHint().width());
        EXPECT_GE(label->height(), label->hasHeightForWidth()
                                       ? label->heightForWidth(label->width())
                                       : label->sizeHint().height());
      }
    }
  }
  QApplication::setFont(usual);
}

TEST(HexTextTest, ShowsTwoDigitsForEachByte) {
  EXPECT_EQ(hexText(Bytes{}).toStdString(), "");
  EXPECT_EQ(hexText(Bytes{0x00, 0x0A, 0xFF}).toStdString(), "00 0a ff");
}

TEST(HexTextTest, ShowsTheBeginningOfLongReportsAndTheirLength) {
  EXPECT_EQ(hexText(Bytes(65, 0x11)).size(), 65 * 3 - 1);
  EXPECT_EQ(hexText(Bytes(66, 0x11)).toStdString(),
            hexText(Bytes(65, 0x11)).toStdString() + " … (66 bytes)");
}

}  // namespace
}  // namespace virtualpads
