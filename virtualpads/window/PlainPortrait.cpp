#include "virtualpads/window/PlainPortrait.h"

#include "virtualpads/IiPad.h"
#include "virtualpads/window/HexText.h"

namespace virtualpads {

namespace {

const QColor kSurface(0xE6, 0xE8, 0xEB);
const QColor kTrace(0x9A, 0xA7, 0xB6);

}  // namespace

PlainPortrait::PlainPortrait(const PadModel& pad) : PadPortrait(pad), m_lastStroke(pad, kTrace) {}

void PlainPortrait::penMoved(const PenState& pen) {
  if (pen.touch && !m_down) m_lastStroke.wipe();
  m_down = pen.touch;
  m_lastStroke.movePen(pen, true);
}

void PlainPortrait::showState(const PadModel&) {}

SurfaceView PlainPortrait::surface() const {
  return {.picture = m_lastStroke.picture(kSurface)};
}

IiPortrait::IiPortrait(const PadModel& pad)
    : PlainPortrait(pad), m_serialNumber(addState("Serial number", "serialNumber")) {}

void IiPortrait::showState(const PadModel& pad) {
  m_serialNumber->setText(hexText(dynamic_cast<const IiPad&>(pad).serialNumber()));
}

}  // namespace virtualpads
