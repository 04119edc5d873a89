// The command line of vela-virtual-pad.
#ifndef TOOLS_COMMANDLINE_H
#define TOOLS_COMMANDLINE_H

#include <optional>
#include <span>
#include <stdexcept>
#include <string>

#include "virtualpads/PadModel.h"

namespace virtualpads {

struct CommandLine {
  bool help = false;     // the rest is then ignored
  bool version = false;  // likewise
  PadKind pad = PadKind::Usb;
  bool usb = false;                                  // as a USB device
  std::optional<std::string> replay = std::nullopt;  // the recording to read
  std::optional<std::string> record = std::nullopt;  // the recording to write
  bool operator==(const CommandLine&) const = default;
};

// Invalid arguments; what() gives the reason.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// `arguments` without the program's name. Throws UsageError.
CommandLine parseCommandLine(std::span<const char* const> arguments);

std::string usageText();  // one line
std::string helpText();

}  // namespace virtualpads

#endif
