// Finds the /dev/hidrawN of a HID device.
#ifndef VIRTUALPADS_KERNEL_HIDRAWNODE_H
#define VIRTUALPADS_KERNEL_HIDRAWNODE_H

#include <chrono>
#include <string>

namespace virtualpads {

// Waits until the HID device with that physical path (HID_PHYS in sysfs) has a node, and returns
// its path; empty when the time is over. Throws std::system_error when it may not listen for the
// kernel's news of devices. Any thread.
std::string waitForHidrawNode(const std::string& physicalPath, std::chrono::milliseconds limit);

}  // namespace virtualpads

#endif
