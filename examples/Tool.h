// How the tools talk to their user.
#ifndef EXAMPLES_TOOL_H
#define EXAMPLES_TOOL_H

#include <string>

struct Tool {
  static constexpr int kUsageError = 2;

  const char* name;
  const char* usage;    // one line
  const char* options;  // the rest of the help text

  // Prints the tool's name and the line to standard error, and returns the status.
  int fail(int status, const std::string& line) const;
  // The same for invalid arguments: also prints the usage line, and returns kUsageError.
  int failUsage(const std::string& line) const;

  // Print to standard output and return 0.
  int help() const;
  int version() const;

  // Makes getopt_long use the tool's name in its messages, whatever path it was started by.
  void rename(char** arguments) const;
};

#endif
