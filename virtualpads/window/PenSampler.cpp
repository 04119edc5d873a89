#include "virtualpads/window/PenSampler.h"

#include <algorithm>
#include <cmath>

namespace virtualpads {

namespace {

PenState touching(const PointerState& pointer, std::uint32_t milliseconds) {
  return {pointer.x, pointer.y, pointer.pressure, true, milliseconds};
}

PointerState between(const PointerState& from, const PointerState& to, double part) {
  return {std::lerp(from.x, to.x, part), std::lerp(from.y, to.y, part),
          std::lerp(from.pressure, to.pressure, part)};
}

}  // namespace

std::vector<PenState> PenSampler::press(const PointerState& pointer, std::uint32_t now) {
  m_down = true;
  m_pointer = pointer;
  m_sampled = pointer;
  m_at = now;
  return {touching(pointer, now)};
}

void PenSampler::move(const PointerState& pointer) {
  m_pointer = pointer;
}

std::vector<PenState> PenSampler::sample(std::uint32_t now) {
  std::vector<PenState> samples;
  const std::uint32_t periods = (now - m_at) / kPeriod;
  if (!m_down || periods == 0) return samples;
  const std::uint32_t kept = std::min(periods, kMostPeriods);
  m_at += (periods - kept) * kPeriod;
  for (std::uint32_t i = 1; i <= kept; ++i) {
    m_at += kPeriod;
    samples.push_back(touching(between(m_sampled, m_pointer, static_cast<double>(i) / kept), m_at));
  }
  m_sampled = m_pointer;
  return samples;
}

std::vector<PenState> PenSampler::lift(std::uint32_t now) {
  std::vector<PenState> samples = sample(now);
  if (!m_down) return samples;
  if (m_sampled != m_pointer) samples.push_back(touching(m_pointer, now));
  samples.push_back({m_pointer.x, m_pointer.y, 0, false, now});
  m_down = false;
  return samples;
}

}  // namespace virtualpads
