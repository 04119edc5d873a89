// Explains why /dev/uhid could not be used, and how to fix it.
#ifndef TOOLS_UHIDTROUBLE_H
#define TOOLS_UHIDTROUBLE_H

#include <string>
#include <system_error>

namespace virtualpads {

// One line without a line end. Any thread.
std::string uhidTrouble(const std::system_error& error);

}  // namespace virtualpads

#endif
