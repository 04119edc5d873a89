// Explains why a pad could not be plugged in, and how to fix it.
#ifndef TOOLS_PLUGTROUBLE_H
#define TOOLS_PLUGTROUBLE_H

#include <string>
#include <system_error>

namespace virtualpads {

// One line without a line end. Any thread.
std::string uhidTrouble(const std::system_error& error);  // through /dev/uhid
std::string vhciTrouble(const std::system_error& error);  // through the virtual USB host controller

}  // namespace virtualpads

#endif
