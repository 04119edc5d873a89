#include "virtualpads/window/InkPortrait.h"

#include <QGridLayout>
#include <QPainter>

#include "virtualpads/window/HexText.h"
#include "virtualpads/window/LcdImage.h"

namespace virtualpads {

namespace {

constexpr QSize kThumbnail(104, 78);
constexpr double kHidden = 0.35;

constexpr LcdColors kOnPaper{0xFFFFFFFF, 0xFF000000};

QString onOff(bool on) {
  return on ? "on" : "off";
}

QRect toQRect(const InkPad::Rectangle& region) {
  return {QPoint(region.left, region.top), QPoint(region.right, region.bottom)};
}

}  // namespace

LcdThumbnail::LcdThumbnail() {
  setFixedSize(kThumbnail);
}

void LcdThumbnail::setBitmap(const QImage& bitmap, bool visible) {
  m_bitmap = bitmap;
  m_visible = visible;
  update();
}

QSize LcdThumbnail::sizeHint() const {
  return kThumbnail;
}

void LcdThumbnail::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::SmoothPixmapTransform);
  painter.setOpacity(m_visible ? 1 : kHidden);
  const QSize pixels = size() * devicePixelRatioF();
  painter.drawImage(rect(), m_bitmap.convertToFormat(QImage::Format_RGB32)
                                .scaled(pixels, Qt::IgnoreAspectRatio, Qt::SmoothTransformation));
  painter.setPen(palette().color(QPalette::Mid));
  painter.drawRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5));
}

InkPortrait::InkPortrait(const PadModel& pad)
    : PadPortrait(pad),
      m_backlight(addState("Backlight", "backlight")),
      m_inkTrace(addState("Ink trace", "inkTrace")),
      m_inkingRegion(addState("Inking region", "inkingRegion")),
      m_clears(addState("Clears", "clears")),
      m_serialNumber(addState("Serial number", "serialNumber")) {
  auto* bitmaps = new QGridLayout;
  int place = 0;
  const auto add = [&](Bitmap& bitmap, const QString& objectName) {
    bitmap = {new LcdThumbnail, new QLabel};
    bitmap.caption->setObjectName(objectName);
    bitmaps->addWidget(bitmap.caption, place / 2 * 2, place % 2);
    bitmaps->addWidget(bitmap.thumbnail, place / 2 * 2 + 1, place % 2);
    ++place;
  };
  for (int layer = 0; layer < InkPad::kLayers; ++layer)
    add(m_layers.at(static_cast<std::size_t>(layer)), QString("layer%1").arg(layer));
  add(m_ink, "ink");
  bitmaps->setColumnStretch(2, 1);
  addBelow(bitmaps);
}

void InkPortrait::showState(const PadModel& pad) {
  const auto& inkPad = dynamic_cast<const InkPad&>(pad);

  const auto backlight = inkPad.backlight();
  m_backlight->setText(
      QString("%1, mode %2, %3").arg(onOff(backlight.on)).arg(backlight.mode).arg(backlight.value));
  const auto trace = inkPad.inkTrace();
  m_inkTrace->setText(
      QString("%1, mode %2, %3").arg(onOff(trace.mode != 0)).arg(trace.mode).arg(trace.value));
  const auto region = inkPad.inkingRegion();
  m_inkingRegion->setText(QString("(%1, %2) to (%3, %4)")
                              .arg(region.left)
                              .arg(region.top)
                              .arg(region.right)
                              .arg(region.bottom));
  const auto& clears = inkPad.clears();
  m_clears->setText(
      clears.empty() ? QString("none")
                     : QString("%1, the last with value %2").arg(clears.size()).arg(clears.back()));
  m_serialNumber->setText(hexText(inkPad.serialNumber()));

  for (int layer = 0; layer < InkPad::kLayers; ++layer) {
    const auto& [thumbnail, caption] = m_layers.at(static_cast<std::size_t>(layer));
    const int state = inkPad.layerState(layer);
    thumbnail->setBitmap(lcdImage(inkPad.layer(layer), kOnPaper), state != 0);
    caption->setText(state != 0 ? QString("Layer %1, state %2").arg(layer).arg(state)
                                : QString("Layer %1, hidden").arg(layer));
  }
  m_ink.thumbnail->setBitmap(lcdImage(inkPad.ink(), kOnPaper), true);
  m_ink.caption->setText("Ink");

  m_surface = {.picture = lcdImage(inkPad.lcdImage(), backlight.on ? kLitLcd : kUnlitLcd),
               .pixels = true};
  const QRect whole(0, 0, InkPad::kLcdWidth, InkPad::kLcdHeight);
  if (toQRect(region) != whole) m_surface.region = toQRect(region);
}

SurfaceView InkPortrait::surface() const {
  return m_surface;
}

}  // namespace virtualpads
