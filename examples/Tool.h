// How the tools speak to their user.
#ifndef EXAMPLES_TOOL_H
#define EXAMPLES_TOOL_H

#include <string>

struct Tool {
  static constexpr int kUsageError = 2;

  const char* name;
  const char* usage;    // one line
  const char* options;  // the rest of the help text

  // Prints the line to standard error, the tool's name before it, and returns the status.
  int fail(int status, const std::string& line) const;
  // The same for wrong arguments: the usage line follows, the status is kUsageError.
  int failUsage(const std::string& line) const;

  // Print to standard output and return 0.
  int help() const;
  int version() const;

  // What getopt_long calls the tool in its own messages: its name, by whatever path it was started.
  void rename(char** arguments) const;
};

#endif
