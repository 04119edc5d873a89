#include "tools/CommandLine.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <string_view>

#include "PadList.h"

namespace virtualpads {

namespace {

std::optional<PadKind> padNamed(std::string_view word) {
  const auto* const found = std::ranges::find(kPadList, word, &ListedPad::word);
  if (found == std::end(kPadList)) return std::nullopt;
  return static_cast<PadKind>(found - std::begin(kPadList));
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

std::string usageText() {
  std::string words;
  for (const ListedPad& pad : kPadList) words.append(words.empty() ? "" : "|").append(pad.word);
  return "usage: vela-virtual-pad " + words + " [--usb] [--replay FILE | --record FILE]\n";
}

std::string helpText() {
  std::string pads;
  for (const ListedPad& pad : kPadList) {
    char line[80];
    std::snprintf(line, sizeof line, "  %-6s  %s, 04df:%04x\n", pad.word, pad.name, pad.product);
    pads += line;
  }
  return usageText() +
         "\n"
         "Plugs a virtual pad into this computer. Until vela-virtual-pad ends, every\n"
         "program finds it like a real pad.\n"
         "\n" +
         pads +
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
}

}  // namespace virtualpads
