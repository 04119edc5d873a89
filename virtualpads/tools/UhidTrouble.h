// Says why /dev/uhid could not be used, and what mends that.
#ifndef VIRTUALPADS_TOOLS_UHIDTROUBLE_H
#define VIRTUALPADS_TOOLS_UHIDTROUBLE_H

#include <string>
#include <system_error>

namespace virtualpads {

// One line without its end. Any thread.
std::string uhidTrouble(const std::system_error& error);

}  // namespace virtualpads

#endif
