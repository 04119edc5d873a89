// A pad of the demonstration: where it is plugged, and what can be seen of it.
#ifndef DEMONSTRATION_DEMONSTRATIONPAD_H
#define DEMONSTRATION_DEMONSTRATIONPAD_H

#include <memory>

#include "virtualpads/hidapi/VirtualBus.h"
#include "virtualpads/window/WatchedPad.h"

namespace demonstration {

struct DemonstrationPad {
  virtualpads::VirtualBus::Port port;
  std::shared_ptr<virtualpads::WatchedPad> pad;
};

}  // namespace demonstration

#endif
