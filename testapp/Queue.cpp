#include "Queue.h"

#include "DrawView.h"
#include "MainWindowController.h"

namespace {

struct Divisors {
  std::int32_t x;
  std::int32_t y;
};

// Device units per view unit: for the vision pad, the last in the list, and for all other pads.
constexpr Divisors kVisionPad{4, 7};
constexpr Divisors kOtherPads{140, 200};
constexpr std::int64_t kLastOtherPad = 2;

}  // namespace

std::atomic<std::int64_t> gpadindex = 0;
std::atomic<std::int8_t> firstPoint = 0;

Queue<penData>& gQueue() {
  static Queue<penData> queue;
  return queue;
}

void PenDataHandler(std::int32_t x, std::int32_t abs_y, std::int32_t /*pressure*/,
                    std::uint8_t fTouch, std::uint32_t /*dwTimeStamp*/,
                    std::uint32_t /*dwSequenceNum*/) {
  const Divisors divisors = gpadindex > kLastOtherPad ? kVisionPad : kOtherPads;
  const std::int32_t viewX = x / divisors.x;
  const std::int32_t viewY = abs_y / divisors.y;
  MainWindowController* controller = m_mainWindowController;
  if (firstPoint == 0) {
    firstPoint = 1;
    if (controller != nullptr) controller->m_drawview->SetMoveTo(viewX, viewY);
  } else if (controller != nullptr) {
    // Each segment is a subpath of its own.
    controller->m_drawview->SetLineTo(viewX, viewY);
    controller->m_drawview->SetMoveTo(viewX, viewY);
  }
  if (fTouch == 0) firstPoint = 0;
}
