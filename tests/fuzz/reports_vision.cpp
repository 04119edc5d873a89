// Input reports of the vision pad; see reports.h.
#include "reports.h"
#include "velavision.h"

namespace {

struct VisionPad {
  using Driver = velavision;
  static constexpr std::size_t reportSize = 17;
  static constexpr auto starts = fuzz::kReadingFirst;
  static constexpr bool hasClock = true;

  std::optional<fuzz::Sample> sample(fuzz::ByteSpan report) {
    if (report.size() < 12 || report[1] != 0x80) return std::nullopt;
    if (report[0] == 1) last = decoded(report);  // another id repeats the sample before
    static std::uint32_t number = 0;
    number = (number + 1) % 256;
    last.sequence = number;
    return last;
  }

  static fuzz::Sample decoded(fuzz::ByteSpan report) {
    // Where the pen was last down, in any connection.
    static int lastX = 0;
    static int lastY = 0;
    const int x = fuzz::bigWord(report, 2);
    const int y = fuzz::bigWord(report, 4);
    const int pressure = fuzz::bigWord(report, 6);
    const bool touch = x != 0 || y != 0 || pressure != 0;
    if (touch) {
      lastX = x;
      lastY = y;
    }
    return {
        .x = lastX,
        .y = lastY,
        .pressure = pressure,
        .touch = touch,
        .sequence = 0,
        .timeStamp = fuzz::bigDoubleWord(report, 8),
    };
  }

  fuzz::Sample last{};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::feedReports<VisionPad>({data, size});
}
