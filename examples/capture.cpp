// vela-capture: a signature from the pad into an SVG drawing and a CSV table of all samples.
#include <getopt.h>
#include <poll.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>

#include "Pads.h"

namespace {

enum ExitCode { kWritten = 0, kFailed = 1, kUsage = 2, kRefused = 3, kInterrupted = 130 };

constexpr const char* kHelp =
    "usage: vela-capture [--pad NAME] FILE.svg FILE.csv\n"
    "  --pad NAME  the pad to sign on, when several are attached:\n"
    "              Vela USB, Vela II, Vela Ink, Vela Vision\n"
    "  --help      print this\n"
    "Sign, then press Enter. Ctrl+C ends without writing anything.\n";

constexpr double kPointsPerInch = 72;

struct Sample {
  int32_t x, y, pressure;
  uint8_t touch;
  uint32_t timestamp, sequenceNumber;
};

// Filled on the SDK's thread, read after the connection has been closed.
std::vector<Sample> samples;

void keepSample(int32_t x, int32_t y, int32_t pressure, uint8_t touch, uint32_t timestamp,
                uint32_t sequenceNumber) {
  const bool lifted = !touch && !samples.empty() && samples.back().touch;
  samples.push_back({x, y, pressure, touch, timestamp, sequenceNumber});
  if (lifted) std::fprintf(stderr, "%zu samples\n", samples.size());
}

// Maps a range of device units onto a length in points.
struct Axis {
  int low, high;
  double points;
  bool usable() const { return high > low && std::isfinite(points) && points > 0; }
  double operator()(int value) const { return (value - low) * points / (high - low); }
};

void writeSvg(std::FILE* file, const Axis& x, const Axis& y) {
  std::fprintf(file,
               "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.2fpt\" height=\"%.2fpt\" "
               "viewBox=\"0 0 %.2f %.2f\">\n<path fill=\"none\" stroke=\"#00f\" "
               "stroke-width=\"1.5\" stroke-linecap=\"round\" stroke-linejoin=\"round\" d=\"",
               x.points, y.points, x.points, y.points);
  bool down = false;
  for (const Sample& sample : samples) {
    if (sample.touch) {
      // A stroke begins with a line of no length, which shows as a dot.
      if (!down) std::fprintf(file, "M%.2f %.2f", x(sample.x), y(sample.y));
      std::fprintf(file, "L%.2f %.2f\n", x(sample.x), y(sample.y));
    }
    down = sample.touch;
  }
  std::fputs("\"/>\n</svg>\n", file);
}

void writeCsv(std::FILE* file) {
  std::fputs("x,y,pressure,touch,timestamp,sequence\n", file);
  for (const Sample& sample : samples) {
    std::fprintf(file, "%d,%d,%d,%u,%u,%u\n", sample.x, sample.y, sample.pressure, sample.touch,
                 sample.timestamp, sample.sequenceNumber);
  }
}

template <class Write>
bool writeFile(const char* path, Write write) {
  std::FILE* const file = std::fopen(path, "w");
  if (file != nullptr) write(file);
  const bool written = file != nullptr && std::ferror(file) == 0;
  if ((file == nullptr || std::fclose(file) == 0) && written) return true;
  std::perror(path);
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  std::string name;
  static const option options[] = {{"pad", required_argument, nullptr, 'p'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
  for (int option; (option = getopt_long(argc, argv, "", options, nullptr)) != -1;) {
    if (option != 'p') {
      std::fputs(kHelp, option == 'h' ? stdout : stderr);
      return option == 'h' ? kWritten : kUsage;
    }
    name = optarg;
  }
  if (argc - optind != 2) {
    std::fputs(kHelp, stderr);
    return kUsage;
  }

  gIIVela vela;
  const std::vector<Pads> attached = attachedPads(vela, name);
  if (attached.empty()) {
    std::fputs("No pad is attached.\n", stderr);
    return kFailed;
  }
  const Pads& pads = attached.front();
  if (!pads.refused.empty()) {
    std::fprintf(stderr, "%s\n", pads.refusal().c_str());
    return kRefused;
  }

  const HeldSignals signals;
  Axis x{};
  Axis y{};
  bool entered = false;
  {
    const Connection connection(vela, pads.provider, keepSample);
    x = {vela.GetDataRangeMinX(), vela.GetDataRangeMaxX(), vela.GetPhysicalX() * kPointsPerInch};
    y = {vela.GetDataRangeMinY(), vela.GetDataRangeMaxY(), vela.GetPhysicalY() * kPointsPerInch};
    if (!x.usable() || !y.usable()) {
      std::fprintf(stderr, "%s tells no size that a drawing could have.\n", pads.name.c_str());
      return kFailed;
    }
    std::fprintf(stderr, "Sign on the %s, then press Enter.\n", pads.name.c_str());
    entered = signals.waitFor(STDIN_FILENO, POLLIN);
  }
  if (!entered) return kInterrupted;
  const bool svg = writeFile(argv[optind], [&](std::FILE* file) { writeSvg(file, x, y); });
  const bool csv = writeFile(argv[optind + 1], writeCsv);
  if (!svg || !csv) return kFailed;
  return kWritten;
}
