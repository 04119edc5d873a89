// How the tools talk to their user.
#ifndef TOOLS_TOOL_H
#define TOOLS_TOOL_H

#include <getopt.h>

#include <optional>
#include <string>
#include <vector>

struct Tool {
  static constexpr int kUsageError = 2;

  const char* name;
  const char* usage;  // one line
  // The help text says what the tool does and lists the tool's own options, then --pad, for which
  // pads it is, and the other common options, then the rest.
  const char* options;
  const char* padOption;
  const char* rest;

  // Parses these options, which set their flags, and those that all tools have: --pad, whose value
  // is stored in `pad`, --help and --version. Returns the exit status if the program is to end, and
  // nothing otherwise; the operands then begin at argv[optind].
  std::optional<int> parse(int argc, char** argv, std::vector<option> own, std::string& pad) const;

  // Prints the tool's name and the line to standard error, and returns the status.
  int fail(int status, const std::string& line) const;
  // The same for invalid arguments: also prints the usage line, and returns kUsageError.
  int failUsage(const std::string& line) const;
};

#endif
