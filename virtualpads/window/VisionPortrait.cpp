#include "virtualpads/window/VisionPortrait.h"

#include <QHBoxLayout>
#include <QPainter>
#include <algorithm>

#include "virtualpads/VisionPad.h"
#include "virtualpads/window/HexText.h"

namespace virtualpads {

namespace {

constexpr int kPenMode = 1;

// A program sends keep-alives by the processor time that it has used. While it waits for a pen, a
// few seconds may pass between two.
constexpr int kLampMilliseconds = 5000;
constexpr int kLampSize = 14;

constexpr std::size_t kBytesPerLine = 8;

const QColor kScreen(0xFB, 0xFC, 0xFE);
const QColor kRestingScreen(0xC3, 0xC9, 0xD1);
const QColor kInk(0x14, 0x30, 0x6E);

// In lines of a fixed length. If the label wrapped them, its height would depend on its width, and
// the smallest size of the window would not allow for that.
QString hexLines(std::span<const std::uint8_t> bytes) {
  QStringList lines;
  while (!bytes.empty()) {
    const auto line = bytes.first(std::min(bytes.size(), kBytesPerLine));
    lines += hexText(line);
    bytes = bytes.subspan(line.size());
  }
  return lines.join('\n');
}

}  // namespace

Lamp::Lamp() {
  setFixedSize(kLampSize, kLampSize);
}

void Lamp::setLit(bool lit) {
  m_lit = lit;
  setAccessibleName(lit ? "lit" : "dark");
  update();
}

void Lamp::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QColor(0x2B, 0x5A, 0x36));
  painter.setBrush(m_lit ? QColor(0x3F, 0xC9, 0x5A) : QColor(0x4A, 0x57, 0x4D));
  painter.drawEllipse(QRectF(rect()).adjusted(1, 1, -1, -1));
}

VisionPortrait::VisionPortrait(const PadModel& pad)
    : PadPortrait(pad),
      m_ink(pad, kInk),
      m_modeText(addState("Mode", "mode")),
      m_lamp(new Lamp),
      m_keepAlives(new QLabel) {
  m_lamp->setObjectName("keepAliveLamp");
  m_keepAlives->setObjectName("keepAlives");
  auto* keepAlive = new QHBoxLayout;
  keepAlive->addWidget(m_lamp);
  keepAlive->addWidget(m_keepAlives, 1);
  addState("Keep-alive", keepAlive);
  m_resets = addState("Resets", "resets");
  m_clears = addState("Clears", "clears");
  m_inkRegion = addState("Ink region", "inkRegion");
  m_serialNumber = addState("Serial number", "serialNumber");

  m_keptAlive.setObjectName("keptAlive");
  m_keptAlive.setParent(this);
  m_keptAlive.setSingleShot(true);
  m_keptAlive.setInterval(kLampMilliseconds);
  connect(&m_keptAlive, &QTimer::timeout, m_lamp, [this] { m_lamp->setLit(false); });
}

void VisionPortrait::penMoved(const PenState& pen) {
  m_ink.movePen(pen, m_mode == kPenMode);
}

void VisionPortrait::featureReport(const WatchedPad::FeatureReport& report) {
  if (!report.accepted) return;
  switch (report.bytes.front()) {
    case VisionPad::kReset.id:
    case VisionPad::kClear.id:
      m_ink.wipe();
      break;
    case VisionPad::kMode.id:
      m_mode = report.bytes.at(1);
      break;
    case VisionPad::kKeepAlive.id:
      m_lamp->setLit(true);
      m_keptAlive.start();
      break;
    default:
      break;
  }
}

void VisionPortrait::showState(const PadModel& pad) {
  const auto& visionPad = dynamic_cast<const VisionPad&>(pad);
  m_mode = visionPad.mode();
  m_modeText->setText(m_mode == kPenMode ? QString("1, pen") : QString::number(m_mode));
  m_keepAlives->setNum(visionPad.keepAlives());
  m_resets->setNum(visionPad.resets());
  m_clears->setNum(visionPad.clears());
  m_inkRegion->setText(hexLines(visionPad.inkRegion()));
  m_serialNumber->setText(hexLines(visionPad.serialNumber()));
}

SurfaceView VisionPortrait::surface() const {
  return {.picture = m_ink.picture(m_mode == kPenMode ? kScreen : kRestingScreen)};
}

}  // namespace virtualpads
