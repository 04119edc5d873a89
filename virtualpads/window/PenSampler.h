// Makes a pen that is sampled at a steady rate, as a pad does it, out of a pointer that reports its
// moves whenever it likes.
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
// send, in their order. Not thread-safe.
class PenSampler {
 public:
  static constexpr std::uint32_t kPeriod = 5;  // milliseconds
  // When nobody asked for longer than that many periods, the older samples are lost, as they are
  // when a program does not read.
  static constexpr std::uint32_t kMostPeriods = 20;

  // The pen touches; gives the first sample. Must not be down.
  std::vector<PenState> press(const PointerState& pointer, std::uint32_t now);
  // Where the pen is now. It counts from the next sample on.
  void move(const PointerState& pointer);
  // The samples that have become due since the last one, evenly on the way to where the pen is.
  std::vector<PenState> sample(std::uint32_t now);
  // The pen leaves the surface: what is due, the place where it was last, and the lifted pen.
  // Nothing when it is not down.
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
