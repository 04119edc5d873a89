#include "Tool.h"

#include <cstdio>

int Tool::fail(int status, const std::string& line) const {
  std::fprintf(stderr, "%s: %s\n", name, line.c_str());
  return status;
}

int Tool::failUsage(const std::string& line) const {
  if (!line.empty()) fail(kUsageError, line);
  std::fputs(usage, stderr);
  return kUsageError;
}

int Tool::help() const {
  std::printf("%s\n%s", usage, options);
  return 0;
}

int Tool::version() const {
  std::printf("%s " VELA_VERSION "\n", name);
  return 0;
}

void Tool::rename(char** arguments) const {
  arguments[0] = const_cast<char*>(name);
}
