// vela-explore: plays scenarios with the SDK, each in an order of its threads that its seed
// chooses.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>
#include <string_view>
#include <vector>

#include "../../support/Scheduler.h"
#include "Scenario.h"

namespace {

using interleavings::kScenarios;
using interleavings::Scenario;
using Clock = std::chrono::steady_clock;

constexpr const char* kUsage =
    R"(usage: explore [--pad usb|ii|ink|vision] [--seeds FIRST[-LAST]] [--seconds N] [--jobs N]
               [--all] [-v]

Plays scenarios with the SDK's sources under a scheduler. A seed chooses the scenario and the order
of the threads; the same seed gives the same run.

  --pad       the pad; without it, each pad in turn plays each seed
  --seeds     the seeds, without a last one until --seconds are over; by default new ones
  --seconds   the time after which no further run begins
  --all       goes on after a run that failed
  --jobs      how many runs at once; by default as many as there are processors
  -v          prints what happens in each run, each thread in its column
)";

struct Options {
  std::vector<Scenario> pads{kScenarios.begin(), kScenarios.end()};
  std::optional<std::uint64_t> first;
  std::uint64_t last = ~std::uint64_t{0};
  double seconds = 0;  // 0: until the last seed
  int jobs = 0;
  bool all = false;
  bool verbose = false;
};

[[noreturn]] void refuse() {
  std::fputs(kUsage, stderr);
  std::exit(2);
}

std::uint64_t numberFrom(const char*& text) {
  char* end = nullptr;
  errno = 0;
  const std::uint64_t number = std::strtoull(text, &end, 10);
  if (errno != 0 || end == text || *text < '0' || *text > '9') refuse();
  text = end;
  return number;
}

Options parsed(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string_view option = argv[i];
    if (option == "-v") {
      options.verbose = true;
      continue;
    }
    if (option == "--all") {
      options.all = true;
      continue;
    }
    if (option == "--help") {
      std::fputs(kUsage, stdout);
      std::exit(0);
    }
    if (++i == argc) refuse();
    const char* value = argv[i];
    if (option == "--pad") {
      std::erase_if(options.pads,
                    [&](const Scenario& pad) { return std::strcmp(pad.pad, value) != 0; });
      if (options.pads.empty()) refuse();
      continue;
    }
    const std::uint64_t number = numberFrom(value);
    if (option == "--seeds") {
      options.first = options.last = number;
      if (*value == '-') {
        ++value;
        options.last = *value == '\0' ? ~std::uint64_t{0} : numberFrom(value);
      }
    } else if (option == "--seconds") {
      options.seconds = static_cast<double>(number);
    } else if (option == "--jobs") {
      options.jobs = static_cast<int>(number);
    } else {
      refuse();
    }
    if (*value != '\0') refuse();
  }
  if (!options.first && options.seconds == 0) refuse();
  return options;
}

// What the workers do together.
struct Progress {
  std::atomic<std::uint64_t> next{0};  // run
  std::atomic<std::uint64_t> runs{0};
  std::atomic<std::uint64_t> failures{0};
  std::atomic<std::uint64_t> decisions{0};
  std::atomic<std::uint64_t> switches{0};
  std::atomic<std::uint64_t> milliseconds{0};  // virtual
};

void work(const Options& options, Progress& progress, Clock::time_point end) {
  for (;;) {
    const std::uint64_t run = progress.next++;
    const std::uint64_t offset = run / options.pads.size();
    if (offset > options.last - *options.first) return;
    if (options.seconds > 0 && Clock::now() >= end) return;
    if (!options.all && progress.failures > 0) return;
    const Scenario& scenario = options.pads[run % options.pads.size()];
    const std::uint64_t seed = *options.first + offset;
    const support::Outcome outcome = support::runScheduled(seed, scenario.play, options.verbose);
    ++progress.runs;
    progress.decisions += outcome.decisions;
    progress.switches += outcome.switches;
    progress.milliseconds += outcome.time / support::kMillisecond;
    if (options.verbose) std::printf("trace %016" PRIx64 "\n", outcome.trace);
    if (outcome.failed) {
      ++progress.failures;
      std::printf("FAILED: explore --pad %s --seeds %" PRIu64 "\n  %s\n", scenario.pad, seed,
                  outcome.report.c_str());
    }
    std::fflush(stdout);
  }
}

}  // namespace

int main(int argc, char** argv) {
  Options options = parsed(argc, argv);
  if (!options.first) {
    options.first = std::random_device{}();
    std::printf("the first seed is %" PRIu64 "\n", *options.first);
    std::fflush(stdout);
  }
  void* const memory =
      mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    std::perror("explore");
    return 1;
  }
  auto& progress = *new (memory) Progress;
  const auto begin = Clock::now();
  const auto end = begin + std::chrono::milliseconds(static_cast<long>(options.seconds * 1000));
  if (options.jobs == 0)
    options.jobs = options.verbose ? 1 : static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
  int failedWorkers = 0;
  for (int worker = 0; worker < options.jobs; ++worker) {
    if (const pid_t child = fork(); child == 0) {
      work(options, progress, end);
      std::exit(0);
    } else if (child < 0) {
      std::perror("explore");
      return 1;
    }
  }
  int status = 0;
  while (wait(&status) > 0)
    if (status != 0) ++failedWorkers;
  const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  const auto runs = static_cast<double>(progress.runs.load());
  std::printf("%.0f runs, %" PRIu64
              " failed; %.1f s, %.0f runs/s; each %.0f decisions, %.0f "
              "switches, %.0f ms of virtual time\n",
              runs, progress.failures.load(), seconds, runs / seconds,
              static_cast<double>(progress.decisions.load()) / runs,
              static_cast<double>(progress.switches.load()) / runs,
              static_cast<double>(progress.milliseconds.load()) / runs);
  return progress.failures.load() > 0 || failedWorkers > 0 ? 1 : 0;
}
