#include "virtualpads/window/PadPortrait.h"

#include "virtualpads/IiPad.h"
#include "virtualpads/InkPad.h"
#include "virtualpads/VisionPad.h"
#include "virtualpads/window/InkPortrait.h"
#include "virtualpads/window/PlainPortrait.h"
#include "virtualpads/window/VisionPortrait.h"

namespace virtualpads {

namespace {

QString productId(const PadDescription& pad) {
  return QString("%1:%2").arg(pad.vendor, 4, 16, QChar('0')).arg(pad.product, 4, 16, QChar('0'));
}

}  // namespace

PadPortrait::PadPortrait(const PadModel& pad)
    : m_parts(new QVBoxLayout(this)), m_form(new QFormLayout) {
  m_parts->setContentsMargins({});
  m_parts->setSpacing(12);
  m_parts->addLayout(m_form);
  m_parts->addStretch();
  addState("HID device", "productId")->setText(productId(pad.description()));
  addState("Surface", "surface")
      ->setText(QString("%1 × %2 inches")
                    .arg(pad.description().widthInches, 0, 'f', 2)
                    .arg(pad.description().heightInches, 0, 'f', 2));
}

QLabel* PadPortrait::addState(const QString& title, const char* objectName) {
  auto* value = new QLabel;
  value->setObjectName(objectName);
  value->setTextInteractionFlags(Qt::TextSelectableByMouse);
  m_form->addRow(title, value);
  return value;
}

void PadPortrait::addState(const QString& title, QLayout* value) {
  m_form->addRow(title, value);
}

void PadPortrait::addBelow(QLayout* layout) {
  m_parts->insertLayout(m_parts->count() - 1, layout);
}

std::unique_ptr<PadPortrait> makePortrait(const PadModel& pad) {
  if (dynamic_cast<const InkPad*>(&pad) != nullptr) return std::make_unique<InkPortrait>(pad);
  if (dynamic_cast<const VisionPad*>(&pad) != nullptr) return std::make_unique<VisionPortrait>(pad);
  if (dynamic_cast<const IiPad*>(&pad) != nullptr) return std::make_unique<IiPortrait>(pad);
  return std::make_unique<PlainPortrait>(pad);
}

}  // namespace virtualpads
