#include "virtualpads/window/WatchedPad.h"

#include <utility>

namespace virtualpads {

WatchedPad::WatchedPad(std::shared_ptr<PadModel> pad)
    : PadModel(pad->description()), m_pad(std::move(pad)) {}

void WatchedPad::watch(Observer observer) {
  std::lock_guard lock(m_mutex);
  m_observer = std::move(observer);
}

void WatchedPad::look(const std::function<void(const PadModel&)>& see) const {
  std::lock_guard lock(m_mutex);
  see(*m_pad);
}

Bytes WatchedPad::inputReport(const PenState& pen) {
  std::lock_guard lock(m_mutex);
  Bytes report = m_pad->inputReport(pen);
  notify(InputReport{pen, report});
  return report;
}

std::optional<Bytes> WatchedPad::getFeature(std::uint8_t reportId) {
  std::lock_guard lock(m_mutex);
  std::optional<Bytes> reply = m_pad->getFeature(reportId);
  notify(FeatureReport{FeatureReport::Direction::Get, reply.has_value(),
                       reply.value_or(Bytes{reportId})});
  return reply;
}

bool WatchedPad::setFeature(std::span<const std::uint8_t> report) {
  std::lock_guard lock(m_mutex);
  const bool accepted = m_pad->setFeature(report);
  notify(FeatureReport{FeatureReport::Direction::Set, accepted, {report.begin(), report.end()}});
  return accepted;
}

void WatchedPad::notify(const Event& event) const {
  if (m_observer) m_observer(event);
}

}  // namespace virtualpads
