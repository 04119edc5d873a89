// The kernel's events for devices that come or go.
#ifndef VIRTUALPADS_KERNEL_DEVICEEVENTS_H
#define VIRTUALPADS_KERNEL_DEVICEEVENTS_H

#include <chrono>
#include <functional>

namespace virtualpads {

// Waits until the condition holds. It is checked at once, after each event, and when the time limit
// has passed: a container may get no events. Returns whether it held. Throws std::system_error when
// the process may not listen for the events. Any thread.
bool waitForDevices(const std::function<bool()>& condition, std::chrono::milliseconds limit);

}  // namespace virtualpads

#endif
