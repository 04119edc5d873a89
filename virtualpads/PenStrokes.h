// Pen movements for tests and demonstrations, as a pad samples them: 200 times a second, in surface
// coordinates from 0 to 1, the clock starting at 0. Each stroke ends with a sample without touch at
// the place where the pen left the surface. The clock runs on between strokes.
//
// The same call returns the same movement each time. The functions may be called on any thread.
#ifndef VIRTUALPADS_PENSTROKES_H
#define VIRTUALPADS_PENSTROKES_H

#include <cstdint>
#include <vector>

#include "virtualpads/PadModel.h"

namespace virtualpads {

constexpr std::uint32_t kMillisecondsPerSample = 5;

// A signature ("A Milette"), made for a surface about 1.6 times as wide as high.
std::vector<PenState> signature();

// The same signature as a person writes it another time: slightly larger or smaller, steeper or
// flatter, faster or slower, with every letter slightly different. Each number gives a different
// one.
std::vector<PenState> signature(std::uint32_t variation);

// One straight stroke from the upper left to the lower right, within 10 to 90 % of the surface.
std::vector<PenState> diagonalLine();

// One stroke along the whole edge, clockwise from the upper left corner; it touches all corners.
std::vector<PenState> edgeRectangle();

// One stroke, three turns outward from the middle.
std::vector<PenState> spiral();

}  // namespace virtualpads

#endif
