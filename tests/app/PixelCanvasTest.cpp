#include "PixelCanvas.h"

#include <gtest/gtest.h>

#include <QImage>
#include <QPainter>

namespace {

constexpr QRgb kBlue = 0xFF0000FF;

// A target of 60 by 50 pixels, on which the area from (1, 2) to (21, 17) is the pixels 10 to 49
// across and 10 to 39 down.
class PixelCanvasTest : public testing::Test {
 protected:
  PixelCanvasTest() {
    image.fill(Qt::magenta);
    painter.begin(&image);
    painter.translate(8, 6);
    painter.scale(2, 2);
  }

  static constexpr QRectF kArea{1, 2, 20, 15};

  QImage image{60, 50, QImage::Format_RGB32};
  QPainter painter;
};

TEST_F(PixelCanvasTest, WhatIsPaintedIsOnTheTargetOnceTheCanvasIsGone) {
  {
    PixelCanvas canvas(painter, kArea);
    canvas.painter().fillRect(QRectF(4, 5, 2, 1), QColor(kBlue));
    EXPECT_EQ(image.pixelColor(16, 16), QColor(Qt::magenta));
  }
  for (int y = 0; y < 50; ++y) {
    for (int x = 0; x < 60; ++x) {
      const bool painted = x >= 16 && x < 20 && y >= 16 && y < 18;
      ASSERT_EQ(image.pixelColor(x, y), QColor(painted ? kBlue : qRgb(255, 0, 255)))
          << x << ", " << y;
    }
  }
}

TEST_F(PixelCanvasTest, TargetIsLeftWithItsTransform) {
  const QTransform before = painter.worldTransform();
  { const PixelCanvas canvas(painter, kArea); }
  EXPECT_EQ(painter.worldTransform(), before);
}

// The pixels from 16 to 31 across and from 16 to 23 down are blue.
TEST_F(PixelCanvasTest, LooksAtEveryPixelThatTheRectangleTouches) {
  PixelCanvas canvas(painter, kArea);
  canvas.painter().fillRect(QRectF(4, 5, 8, 4), QColor(kBlue));
  EXPECT_TRUE(canvas.isAll({4, 5, 8, 4}, kBlue));
  EXPECT_TRUE(canvas.isAll({6.3, 5.9, 0.1, 1.3}, kBlue));
  EXPECT_FALSE(canvas.isAll({3.9, 5, 8, 4}, kBlue));
  EXPECT_FALSE(canvas.isAll({4, 4.9, 8, 4}, kBlue));
  EXPECT_FALSE(canvas.isAll({4, 5, 8.1, 4}, kBlue));
  EXPECT_FALSE(canvas.isAll({4, 5, 8, 4.1}, kBlue));
  EXPECT_FALSE(canvas.isAll({4, 5, 8, 4}, 0xFF0000FE));
}

TEST_F(PixelCanvasTest, OutsideTheCanvasThereAreNoPixels) {
  PixelCanvas canvas(painter, kArea);
  canvas.painter().fillRect(kArea, QColor(kBlue));
  EXPECT_TRUE(canvas.isAll({-1e9, -1e9, 2e9, 2e9}, kBlue));
  canvas.painter().fillRect(QRectF(20.5, 16.5, 0.5, 0.5), Qt::white);  // the last pixel
  EXPECT_FALSE(canvas.isAll({-1e9, -1e9, 2e9, 2e9}, kBlue));
}

TEST_F(PixelCanvasTest, CannotTellWhereTheAreaIsTurned) {
  painter.rotate(45);
  PixelCanvas canvas(painter, kArea);
  EXPECT_EQ(&canvas.painter(), &painter);
  canvas.painter().fillRect(kArea, QColor(kBlue));
  EXPECT_FALSE(canvas.isAll({4, 5, 1, 1}, kBlue));
}

TEST_F(PixelCanvasTest, AreaWithoutPixelsIsPaintedByTheTarget) {
  const PixelCanvas none(painter, {5, 5, 0, 0});
  EXPECT_FALSE(none.isAll({5, 5, 0, 0}, kBlue));
}

}  // namespace
