#include "virtualpads/tools/CommandLine.h"

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
  for (const auto& [known, kind] : kPads) {
    if (known == name) {
      return kind;
    }
  }
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
      if (file) {
        throw UsageError(argument + " is given twice");
      }
      if (++i == arguments.size()) {
        throw UsageError(argument + " needs a file");
      }
      file = arguments[i];
    } else if (argument.starts_with('-')) {
      throw UsageError("there is no option " + argument);
    } else if (pad) {
      throw UsageError("one pad is enough, what is " + argument + " for?");
    } else if (pad = padNamed(argument); !pad) {
      throw UsageError("there is no pad " + argument);
    }
  }
  if (!pad) {
    throw UsageError("which pad?");
  }
  if (line.replay && line.record) {
    throw UsageError("--replay and --record do not go together");
  }
  line.pad = *pad;
  return line;
}

const char* const kUsage =
    "usage: vela-virtual-pad usb|ii|ink|vision [--usb] [--replay FILE | --record FILE]\n";

const char* const kHelp =
    "usage: vela-virtual-pad usb|ii|ink|vision [--usb] [--replay FILE | --record FILE]\n"
    "\n"
    "Plugs a pad made of software into this computer. Every program finds it as it\n"
    "finds a real one, until vela-virtual-pad ends.\n"
    "\n"
    "  usb     the USB pad, 04df:0012\n"
    "  ii      the pad II, 04df:001f\n"
    "  ink     the ink pad, 04df:0030\n"
    "  vision  the vision pad, 04df:0038\n"
    "\n"
    "A window shows the pad. Write on it with the mouse or a tablet; it shows what a\n"
    "program put on the pad, and the pad is unplugged when the window is closed.\n"
    "\n"
    "  --usb          plug the pad in as a USB device, not as a HID device only: lsusb\n"
    "                 lists it, and the kernel's USB driver reads it; needs root\n"
    "  --record FILE  also write what the pad sends to FILE\n"
    "  --replay FILE  without a window: wait until a program has opened the pad, send\n"
    "                 the reports of the recording at the pace at which they were\n"
    "                 made, unplug the pad when the program has closed it\n"
    "  -h, --help     print this\n"
    "  --version      print the version\n"
    "\n"
    "Exit status: 0 when all went well, 1 when there is no display for the window,\n"
    "the pad could not be plugged, a file could not be read or written, or reports\n"
    "of the recording were lost, 2 when the arguments make no sense.\n"
    "\n"
    "The pad is made through /dev/uhid (Linux only), which needs the kernel's uhid\n"
    "module and permission to read and write that file; with --usb through the\n"
    "kernel's virtual USB host controller, which needs the module vhci-hcd.\n";

}  // namespace virtualpads
