// The ranges of a pad's samples, and handing them out as the drivers' GetDataRanges does.
#ifndef GIIVELA_DATARANGES_H
#define GIIVELA_DATARANGES_H

#include <algorithm>
#include <array>
#include <cstddef>

// The ends of the ranges of x, y and pressure: minimum and maximum of x, then of y, then of z.
using DataRanges = std::array<int, 6>;

// Writes the six numbers to six targets in their order. False, with nothing written, when a target
// is null.
template <class... Targets>
bool writeDataRanges(const DataRanges& ranges, Targets*... targets) {
  const std::array<int*, 6> all{targets...};
  if (std::find(all.begin(), all.end(), nullptr) != all.end()) return false;
  for (std::size_t i = 0; i < all.size(); ++i) *all[i] = ranges[i];
  return true;
}

#endif
