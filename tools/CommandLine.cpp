#include "tools/CommandLine.h"

#include <array>
#include <cstddef>
#include <string_view>
#include <utility>

namespace virtualpads {

namespace {

constexpr std::array<std::pair<std::string_view, PadKind>, 4> kPads{{{"usb", PadKind::Usb},
                                                                     {"ii", PadKind::Ii},
                                                                     {"ink", PadKind::Ink},
                                                                     {"vision", PadKind::Vision}}};

std::optional<PadKind> padNamed(std::string_view name) {
  for (const auto& [known, kind] : kPads)
    if (known == name) return kind;
  return std::nullopt;
}

}  // namespace

CommandLine parseCommandLine(std::span<const char* const> arguments) {
  CommandLine line;
  std::optional<PadKind> pad;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string argument = arguments[i];
    if (argument == "-h" || argument == "--help") {
      line.help = true;
      return line;
    }
    if (argument == "--version") {
      line.version = true;
      return line;
    }
    if (argument == "--usb") {
      line.usb = true;
    } else if (argument == "--replay" || argument == "--record") {
      auto& file = argument == "--replay" ? line.replay : line.record;
      if (file) throw UsageError(argument + " is given more than once");
      if (++i == arguments.size())
        throw UsageError("option '" + argument + "' requires an argument");
      file = arguments[i];
    } else if (argument.starts_with('-')) {
      throw UsageError("unrecognized option '" + argument + "'");
    } else if (pad) {
      throw UsageError("unexpected argument '" + argument + "'");
    } else if (pad = padNamed(argument); !pad) {
      throw UsageError("unknown pad '" + argument + "'");
    }
  }
  if (!pad) throw UsageError("missing pad");
  if (line.replay && line.record) throw UsageError("--replay and --record cannot be used together");
  line.pad = *pad;
  return line;
}

const char* const kUsage =
    "usage: vela-virtual-pad usb|ii|ink|vision [--usb] [--replay FILE | --record FILE]\n";

const char* const kHelp =
    "usage: vela-virtual-pad usb|ii|ink|vision [--usb] [--replay FILE | --record FILE]\n"
    "\n"
    "Plugs a virtual pad into this computer. Until vela-virtual-pad ends, every\n"
    "program finds it like a real pad.\n"
    "\n"
    "  usb     the USB pad, 04df:0012\n"
    "  ii      the pad II, 04df:001f\n"
    "  ink     the ink pad, 04df:0030\n"
    "  vision  the vision pad, 04df:0038\n"
    "\n"
    "A window shows the pad and what a program displays on it. Write in the window\n"
    "with the mouse or a tablet. Closing the window unplugs the pad.\n"
    "\n"
    "  --usb          plug in a USB device, not only a HID device: lsusb lists it, and\n"
    "                 the kernel's USB driver reads it; requires root\n"
    "  --record FILE  also write the reports that the pad sends to FILE\n"
    "  --replay FILE  show no window; wait until a program has opened the pad, send\n"
    "                 the reports of the recording at their original pace, and unplug\n"
    "                 the pad when the program has closed it\n"
    "  -h, --help     print this help\n"
    "  --version      print the version\n"
    "\n"
    "Exit status: 0 on success; 1 if there is no display for the window, the pad could\n"
    "not be plugged in, a file could not be read or written, or reports of the\n"
    "recording were lost; 2 if the arguments are invalid.\n"
    "\n"
    "The pad is created through /dev/uhid (Linux only). This requires the kernel's\n"
    "uhid module, and permission to read and write that file. With --usb it is created\n"
    "through the kernel's virtual USB host controller, in the module vhci-hcd.\n";

}  // namespace virtualpads
