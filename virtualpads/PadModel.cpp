#include "virtualpads/PadModel.h"

#include <stdexcept>
#include <utility>

#include "virtualpads/IiPad.h"
#include "virtualpads/InkPad.h"
#include "virtualpads/UsbPad.h"
#include "virtualpads/VisionPad.h"

namespace virtualpads {

PadModel::PadModel(PadDescription description)
    : m_description(std::move(description)),
      m_reportDescriptor(virtualpads::reportDescriptor(m_description.reports)) {}

std::optional<Bytes> PadModel::getFeature(std::uint8_t) {
  return std::nullopt;
}

bool PadModel::setFeature(std::span<const std::uint8_t>) {
  return false;
}

std::shared_ptr<PadModel> makePad(PadKind kind) {
  switch (kind) {
    case PadKind::Usb:
      return std::make_shared<UsbPad>();
    case PadKind::Ii:
      return std::make_shared<IiPad>();
    case PadKind::Ink:
      return std::make_shared<InkPad>();
    case PadKind::Vision:
      return std::make_shared<VisionPad>();
  }
  throw std::invalid_argument("makePad: no such pad");
}

}  // namespace virtualpads
