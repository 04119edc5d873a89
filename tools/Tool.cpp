#include "Tool.h"

#include <cstdio>

#include "PadList.h"

namespace {

std::string padNames() {
  std::string names;
  for (const ListedPad& pad : kPadList) names.append(names.empty() ? "" : ", ").append(pad.name);
  return names;
}

}  // namespace

std::optional<int> Tool::parse(int argc, char** argv, std::vector<option> own,
                               std::string& pad) const {
  argv[0] = const_cast<char*>(name);  // getopt_long begins its messages with it
  own.insert(own.end(), {{"pad", required_argument, nullptr, 'p'},
                         {"help", no_argument, nullptr, 'h'},
                         {"version", no_argument, nullptr, 'v'},
                         {nullptr, 0, nullptr, 0}});
  for (int option; (option = getopt_long(argc, argv, "h", own.data(), nullptr)) != -1;) {
    switch (option) {
      case 0:  // a flag
        break;
      case 'p':
        pad = optarg;
        if (pad.empty()) return failUsage("the name of the pad is empty");
        break;
      case 'h':
        std::printf("%s\n%s  --pad NAME  %s:\n              %s\n", usage, options, padOption,
                    padNames().c_str());
        std::printf("  -h, --help  print this help\n  --version   print the version\n%s", rest);
        return 0;
      case 'v':
        std::printf("%s " VELA_VERSION "\n", name);
        return 0;
      default:
        std::fputs(usage, stderr);
        return kUsageError;
    }
  }
  return std::nullopt;
}

int Tool::fail(int status, const std::string& line) const {
  std::fprintf(stderr, "%s: %s\n", name, line.c_str());
  return status;
}

int Tool::failUsage(const std::string& line) const {
  fail(kUsageError, line);
  std::fputs(usage, stderr);
  return kUsageError;
}
