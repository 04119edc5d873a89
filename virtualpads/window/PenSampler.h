// Turns a pointer that reports its moves at any time into a pen that is sampled at a steady rate,
// as a pad does it.
#ifndef VIRTUALPADS_WINDOW_PENSAMPLER_H
#define VIRTUALPADS_WINDOW_PENSAMPLER_H

#include <cstdint>
#include <vector>

#include "virtualpads/PadModel.h"

namespace virtualpads {

// Where the pointer is: surface coordinates and pressure as in PenState.
struct PointerState {
  double x = 0;
  double y = 0;
  double pressure = 0;
  bool operator==(const PointerState&) const = default;
};

// `now` is the pad's clock in milliseconds and never goes back. The results are the samples to
// send, in order. Not thread-safe.
class PenSampler {
 public:
  static constexpr std::uint32_t kPeriod = 5;  // milliseconds
  // When more than this many periods pass between two calls, the older samples are lost, as they
  // are when a program does not read.
  static constexpr std::uint32_t kMostPeriods = 20;

  // The pen touches; gives the first sample. Must not be down.
  std::vector<PenState> press(const PointerState& pointer, std::uint32_t now);
  // Where the pen is now. Takes effect with the next sample.
  void move(const PointerState& pointer);
  // The samples that are due since the last one, evenly spaced on the way to where the pen is.
  std::vector<PenState> sample(std::uint32_t now);
  // The pen leaves the surface: the samples that are due, one at its last place, and the lifted
  // pen. Nothing when the pen is not down.
  std::vector<PenState> lift(std::uint32_t now);

  bool down() const { return m_down; }

 private:
  bool m_down = false;
  PointerState m_pointer;  // where the pen is
  PointerState m_sampled;  // where it was at the last sample
  std::uint32_t m_at = 0;  // when that was
};

}  // namespace virtualpads

#endif
