// Input reports of the pad II; see reports.h.
#include "reports.h"
#include "velaii.h"

namespace {

struct IiPad {
  using Driver = velaii;
  static constexpr std::size_t reportSize = 11;
  static constexpr auto starts = fuzz::kSignalFirst;
  static constexpr bool hasClock = false;

  std::optional<fuzz::Sample> sample(fuzz::ByteSpan report) {
    if (report.size() != reportSize) return std::nullopt;
    static std::uint32_t number = 0;
    number = number % 127 + 1;
    const bool touch = report[1] % 2 == 1;
    const bool dropped = first && !touch;
    first = false;
    if (dropped) return std::nullopt;
    return fuzz::Sample{
        .x = static_cast<std::int16_t>(fuzz::littleWord(report, 2)),
        .y = static_cast<std::int16_t>(fuzz::littleWord(report, 4)),
        .pressure = report[6],
        .touch = touch,
        .sequence = number,
    };
  }

  bool first = true;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::feedReports<IiPad>({data, size});
}
