// For systems without udev.
#include <stdexcept>

#include "PadWatch.h"

PadWatch::PadWatch() : m_source(nullptr) {
  throw std::runtime_error("--watch requires udev, which this system does not have");
}

PadWatch::~PadWatch() = default;

int PadWatch::descriptor() const {
  return -1;
}

std::optional<NodeEvent> PadWatch::take() {
  return std::nullopt;
}
