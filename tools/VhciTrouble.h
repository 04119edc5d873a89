// Explains why the virtual USB host controller could not be used, and how to fix it.
#ifndef TOOLS_VHCITROUBLE_H
#define TOOLS_VHCITROUBLE_H

#include <string>
#include <system_error>

namespace virtualpads {

// One line without a line end. Any thread.
std::string vhciTrouble(const std::system_error& error);

}  // namespace virtualpads

#endif
