// vela-padinfo: which pads are attached, whether they may be opened, and what they report.
#include <poll.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <stdexcept>

#include "PadWatch.h"
#include "Pads.h"
#include "Tool.h"

namespace {

enum ExitCode { kFine = 0, kNoPad = 1, kRefused = 3 };

constexpr Tool kTool{
    .name = "vela-padinfo",
    .usage = "usage: vela-padinfo [--watch | --samples] [--json] [--pad NAME]\n",
    .options =
        "Lists the attached pads.\n"
        "\n"
        "  --watch     print a line whenever a pad is attached or detached, until Ctrl+C\n"
        "  --samples   print the samples of the first pad, until Ctrl+C\n"
        "  --json      print JSON\n",
    .padOption = "use only the pads of that name",
    .rest = ""};

constexpr short kVision = 3;

std::FILE* out = nullptr;
int json = 0;

// The vision pad's serial number is 16 raw bytes; that of the other pads is text.
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

// JSON has no notation for infinity and not-a-number.
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
    for (const std::string& node : pads.nodes)
      nodes.append(nodes.empty() ? "" : ", ").append('"' + node + '"');
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

// Also ends when nobody reads the output any more.
int watchSamples(gIIVela& vela, const Pads& pads) {
  const HeldSignals signals;
  const Connection connection(vela, pads.provider, showSample);
  std::array<pollfd, 1> reader{{{fileno(out), 0, 0}}};
  signals.waitFor(reader);
  return kFine;
}

void showEvent(const PadEvent& event) {
  using namespace std::chrono;
  const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
  std::fprintf(out, "%s\n", (json ? eventJson(event, now) : eventText(event, now)).c_str());
  std::fflush(out);
}

int watchPads(gIIVela& vela, const std::string& name) {
  const HeldSignals signals;
  PadWatch watch;  // before the first look, so that no event is missed
  std::set<std::string> present;
  for (short provider = 0; provider < vela.GetNumProviders(); ++provider) {
    const std::string known = vela.GetProviderDescription(provider);
    if (!name.empty() && name != known) continue;
    for (const std::string& node : nodesOf(provider)) {
      present.insert(node);
      showEvent({PadEvent::Kind::Present, known, node, mayOpen(node)});
    }
  }
  if (present.empty()) kTool.fail(kFine, absence(name));
  std::array<pollfd, 2> waited{{{watch.descriptor(), POLLIN, 0}, {fileno(out), 0, 0}}};
  while (signals.waitFor(waited) && waited[1].revents == 0) {
    const auto news = watch.take();
    if (!news) continue;
    const std::string known = vela.GetProviderDescription(news->provider);
    if (!name.empty() && name != known) continue;
    // A pad that was attached during this program's first look is listed already.
    const bool attached = news->kind == PadEvent::Kind::Attached;
    const bool changed =
        attached ? present.insert(news->node).second : present.erase(news->node) > 0;
    if (changed) showEvent({news->kind, known, news->node, !attached || mayOpen(news->node)});
  }
  return kFine;
}

int list(gIIVela& vela, const std::vector<Pads>& attached, int exitCode) {
  if (json) std::fputs(attached.empty() ? "[" : "[\n", out);
  for (const Pads& pads : attached) describe(vela, pads, &pads == &attached.front());
  if (json) std::fputs(attached.empty() ? "]\n" : "\n]\n", out);
  return std::fclose(out) == 0 ? exitCode : kNoPad;
}

}  // namespace

int main(int argc, char** argv) {
  int samples = 0;
  int watch = 0;
  std::string name;
  const auto status = kTool.parse(argc, argv,
                                  {{"json", no_argument, &json, 1},
                                   {"samples", no_argument, &samples, 1},
                                   {"watch", no_argument, &watch, 1}},
                                  name);
  if (status) return *status;
  if (optind != argc)
    return kTool.failUsage(std::string("unexpected argument '") + argv[optind] + "'");
  if (watch && samples) return kTool.failUsage("--watch and --samples cannot be used together");
  gIIVela vela;
  if (const auto complaint = unknownName(vela, name)) return kTool.failUsage(*complaint);

  // The SDK prints its failures to standard output; they go to standard error here.
  out = fdopen(dup(STDOUT_FILENO), "w");
  dup2(STDERR_FILENO, STDOUT_FILENO);
  std::signal(SIGPIPE, SIG_IGN);

  if (watch) {
    try {
      return watchPads(vela, name);
    } catch (const std::runtime_error& error) {
      return kTool.fail(kNoPad, error.what());
    }
  }
  const std::vector<Pads> attached = attachedPads(vela, name);
  int exitCode = attached.empty() ? kTool.fail(kNoPad, absence(name)) : kFine;
  for (const Pads& pads : attached)
    if (!pads.refused.empty()) exitCode = kTool.fail(kRefused, pads.refusal());
  if (!samples) return list(vela, attached, exitCode);
  return exitCode == kFine ? watchSamples(vela, attached.front()) : exitCode;
}
