// Finds the /dev/hidrawN of a HID device.
#ifndef VIRTUALPADS_KERNEL_HIDRAWNODE_H
#define VIRTUALPADS_KERNEL_HIDRAWNODE_H

#include <chrono>
#include <string>

namespace virtualpads {

// Waits until the HID device with that physical path (HID_PHYS in sysfs) has a node and its driver
// takes input reports, and returns the node's path; empty when the time limit has passed. Throws
// std::system_error when it may not listen for the kernel's device events. Any thread.
std::string waitForHidrawNode(const std::string& physicalPath, std::chrono::milliseconds limit);

}  // namespace virtualpads

#endif
