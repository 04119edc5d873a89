// vela-padinfo: which pads are attached, whether they may be opened, and what they tell.
#include <getopt.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "Pads.h"

namespace {

enum ExitCode { kFine = 0, kNoPad = 1, kUsage = 2, kRefused = 3 };

constexpr const char* kHelp =
    "usage: vela-padinfo [--json] [--watch] [--pad NAME]\n"
    "  --json      in JSON\n"
    "  --watch     show the samples of the first pad until Ctrl+C\n"
    "  --pad NAME  only the pads of that name: Vela USB, Vela II, Vela Ink, Vela Vision\n"
    "  --help      print this\n";

constexpr short kVision = 3;

std::FILE* out = nullptr;
bool json = false;

// The vision pad's serial number is 16 raw bytes, the others' is text.
std::string serialNumber(gIIVela& vela, short provider) {
  const std::unique_ptr<char, decltype(&std::free)> serial(vela.GetSerialNumber(), std::free);
  if (serial == nullptr) return {};
  if (provider != kVision) return serial.get();
  std::string digits;
  for (int i = 0; i < 16; ++i) {
    char two[3];
    std::snprintf(two, sizeof two, "%02x", static_cast<unsigned char>(serial.get()[i]));
    digits += two;
  }
  return digits;
}

// JSON has no word for infinity and for what is not a number.
std::string jsonNumber(double value) {
  char text[32] = "null";
  if (std::isfinite(value)) std::snprintf(text, sizeof text, "%.6g", value);
  return text;
}

void printText(gIIVela& vela, const Pads& pads) {
  std::fprintf(out, "%s, %d attached\n", pads.name.c_str(), pads.attached);
  for (const std::string& node : pads.nodes) std::fprintf(out, "  node      %s\n", node.c_str());
  const std::string serial = serialNumber(vela, pads.provider);
  std::fprintf(out, "  serial    %s\n", serial.empty() ? "none" : serial.c_str());
  std::fprintf(out, "  x         %d to %d\n", vela.GetDataRangeMinX(), vela.GetDataRangeMaxX());
  std::fprintf(out, "  y         %d to %d\n", vela.GetDataRangeMinY(), vela.GetDataRangeMaxY());
  std::fprintf(out, "  pressure  %d to %d\n", vela.GetDataRangeMinZ(), vela.GetDataRangeMaxZ());
  std::fprintf(out, "  surface   %g x %g inches\n", vela.GetPhysicalX(), vela.GetPhysicalY());
}

void printJson(gIIVela& vela, const Pads& pads) {
  const std::string serial = serialNumber(vela, pads.provider);
  std::fprintf(out, R"(, "serial": %s%s%s)", serial.empty() ? "null" : "\"", serial.c_str(),
               serial.empty() ? "" : "\"");
  std::fprintf(out, R"(, "x": [%d, %d])", vela.GetDataRangeMinX(), vela.GetDataRangeMaxX());
  std::fprintf(out, R"(, "y": [%d, %d])", vela.GetDataRangeMinY(), vela.GetDataRangeMaxY());
  std::fprintf(out, R"(, "pressure": [%d, %d])", vela.GetDataRangeMinZ(), vela.GetDataRangeMaxZ());
  std::fprintf(out, R"(, "inches": [%s, %s])", jsonNumber(vela.GetPhysicalX()).c_str(),
               jsonNumber(vela.GetPhysicalY()).c_str());
}

void ignoreSample(int32_t, int32_t, int32_t, uint8_t, uint32_t, uint32_t) {}

void describe(gIIVela& vela, const Pads& pads, bool first) {
  if (json) {
    std::string nodes;
    for (const std::string& node : pads.nodes) {
      nodes.append(nodes.empty() ? "" : ", ").append('"' + node + '"');
    }
    std::fprintf(out, R"(%s  {"name": "%s", "class_id": "%s", "attached": %d, "nodes": [%s], )",
                 first ? "" : ",\n", pads.name.c_str(), vela.GetProviderClassID(pads.provider),
                 pads.attached, nodes.c_str());
    std::fprintf(out, R"("may_be_opened": %s)", pads.refused.empty() ? "true" : "false");
  }
  if (pads.refused.empty()) {
    const HeldSignals signals;
    const Connection connection(vela, pads.provider, ignoreSample);
    json ? printJson(vela, pads) : printText(vela, pads);
  }
  if (json) std::fputs("}", out);
}

void showSample(int32_t x, int32_t y, int32_t pressure, uint8_t touch, uint32_t timestamp,
                uint32_t sequenceNumber) {
  const char* const format =
      json ? "{\"timestamp\": %u, \"sequence\": %u, \"x\": %d, \"y\": %d, \"pressure\": %d, "
             "\"touch\": %s}\n"
           : "%10u ms  #%-3u  x %5d  y %5d  pressure %4d  %s\n";
  const char* const tip = json ? (touch ? "true" : "false") : (touch ? "down" : "up");
  std::fprintf(out, format, timestamp, sequenceNumber, x, y, pressure, tip);
  std::fflush(out);
}

}  // namespace

int main(int argc, char** argv) {
  bool watch = false;
  std::string name;
  static const option options[] = {{"json", no_argument, nullptr, 'j'},
                                   {"watch", no_argument, nullptr, 'w'},
                                   {"pad", required_argument, nullptr, 'p'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
  for (int option; (option = getopt_long(argc, argv, "", options, nullptr)) != -1;) {
    switch (option) {
      case 'j':
        json = true;
        break;
      case 'w':
        watch = true;
        break;
      case 'p':
        name = optarg;
        break;
      default:
        std::fputs(kHelp, option == 'h' ? stdout : stderr);
        return option == 'h' ? kFine : kUsage;
    }
  }
  if (optind != argc) {
    std::fputs(kHelp, stderr);
    return kUsage;
  }

  // The SDK prints its failures to standard output; they go to standard error here.
  out = fdopen(dup(STDOUT_FILENO), "w");
  dup2(STDERR_FILENO, STDOUT_FILENO);
  std::signal(SIGPIPE, SIG_IGN);

  gIIVela vela;
  const std::vector<Pads> attached = attachedPads(vela, name);
  int exitCode = attached.empty() ? kNoPad : kFine;
  if (attached.empty()) std::fputs("No pad is attached.\n", stderr);
  for (const Pads& pads : attached) {
    if (pads.refused.empty()) continue;
    std::fprintf(stderr, "%s\n", pads.refusal().c_str());
    exitCode = kRefused;
  }
  if (watch) {
    if (exitCode != kFine) return exitCode;
    const HeldSignals signals;
    const Connection connection(vela, attached.front().provider, showSample);
    // Also ends when nobody reads any more.
    signals.waitFor(fileno(out), 0);
    return kFine;
  }
  if (json) std::fputs("[\n", out);
  for (const Pads& pads : attached) describe(vela, pads, &pads == &attached.front());
  if (json) std::fputs("\n]\n", out);
  return std::fclose(out) == 0 ? exitCode : kNoPad;
}
