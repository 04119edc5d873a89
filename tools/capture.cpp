// vela-capture: writes a signature from the pad to files.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <memory>
#include <system_error>

#include "OutputFile.h"
#include "Pads.h"
#include "Signature.h"
#include "Tool.h"

namespace {

enum ExitCode { kWritten = 0, kFailed = 1, kRefused = 3, kInterrupted = 130 };

constexpr Tool kTool{
    .name = "vela-capture",
    .usage = "usage: vela-capture [--pad NAME] FILE...\n",
    .options =
        "Captures a signature: sign on the pad, then press Enter. The suffix of each FILE\n"
        "selects its format:\n"
        "\n"
        "  .svg        a drawing of the strokes\n"
        "  .png        the same drawing as pixels, 300 per inch, on white\n"
        "  .inkml      the strokes with pressure and time, as digital ink (W3C)\n"
        "  .csv        a table of all samples\n"
        "\n",
    .padOption = "the pad to sign on, if several are attached",
    .rest = "\nCtrl+C ends the program without writing a file.\n"};

// Filled on the SDK's thread, read after the connection has been closed.
Signature signature;

void keepSample(int32_t x, int32_t y, int32_t pressure, uint8_t touch, uint32_t timestamp,
                uint32_t sequenceNumber) {
  using namespace std::chrono;
  std::vector<Sample>& samples = signature.samples;
  if (samples.empty()) {
    const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch());
    signature.start = static_cast<uint64_t>(now.count());
  }
  const bool lifted = !touch && !samples.empty() && samples.back().touch;
  samples.push_back({x, y, pressure, touch, timestamp, sequenceNumber});
  if (lifted) std::fprintf(stderr, "%s: %zu samples\n", kTool.name, samples.size());
}

int capture(gIIVela& vela, const Pads& pads, const std::vector<std::string>& paths) {
  const HeldSignals signals;
  std::vector<std::unique_ptr<OutputFile>> files;
  files.reserve(paths.size());
  for (const std::string& path : paths) files.push_back(std::make_unique<OutputFile>(path));
  {
    const Connection connection(vela, pads.provider, keepSample);
    signature.pad = pads.name;
    signature.x = {vela.GetDataRangeMinX(), vela.GetDataRangeMaxX(), vela.GetPhysicalX()};
    signature.y = {vela.GetDataRangeMinY(), vela.GetDataRangeMaxY(), vela.GetPhysicalY()};
    signature.pressureLow = vela.GetDataRangeMinZ();
    signature.pressureHigh = std::max(signature.pressureLow, vela.GetDataRangeMaxZ());
    if (!signature.x.usable() || !signature.y.usable())
      return kTool.fail(kFailed, pads.name + " reports an unusable size");
    std::fprintf(stderr, "%s: sign on the %s, then press Enter\n", kTool.name, pads.name.c_str());
    std::array<pollfd, 1> input{{{STDIN_FILENO, POLLIN, 0}}};
    if (!signals.waitFor(input)) return kInterrupted;
  }
  if (signature.empty()) return kTool.fail(kFailed, "nothing was written on the pad");
  int exitCode = kWritten;
  for (const auto& file : files) {
    try {
      file->write(signature);
    } catch (const std::system_error& error) {
      exitCode = kTool.fail(kFailed, error.what());
    }
  }
  return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
  std::string name;
  if (const auto status = kTool.parse(argc, argv, {}, name)) return *status;
  const std::vector<std::string> paths(argv + optind, argv + argc);
  if (paths.empty()) return kTool.failUsage("missing file operand");
  for (const std::string& path : paths) {
    if (writerFor(path) != nullptr) continue;
    return kTool.failUsage(path + ": unknown format; the suffixes are " + kSuffixes);
  }
  gIIVela vela;
  if (const auto complaint = unknownName(vela, name)) return kTool.failUsage(*complaint);

  const std::vector<Pads> attached = attachedPads(vela, name);
  if (attached.empty()) return kTool.fail(kFailed, absence(name));
  const Pads& pads = attached.front();
  if (!pads.refused.empty()) return kTool.fail(kRefused, pads.refusal());
  try {
    return capture(vela, pads, paths);
  } catch (const std::system_error& error) {
    return kTool.fail(kFailed, error.what());
  }
}
