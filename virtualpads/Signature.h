// A signature for tests and demonstrations, from a recording, in surface coordinates from 0 to 1.
// Each stroke ends with a sample without touch at the place where the pen left the surface.
#ifndef VIRTUALPADS_SIGNATURE_H
#define VIRTUALPADS_SIGNATURE_H

#include <cstdint>
#include <vector>

#include "virtualpads/PadModel.h"

namespace virtualpads {

// The signature as recorded (variation 0), made for a surface about 1.6 times as wide as high, or
// as the same person writes it another time: slightly larger or smaller, steeper or flatter, faster
// or slower, with every letter slightly different. The same number gives the same samples. The
// clock starts at 0. Any thread.
std::vector<PenState> signature(std::uint32_t variation);

}  // namespace virtualpads

#endif
