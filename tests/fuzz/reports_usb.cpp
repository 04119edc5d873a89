// Input reports of the USB pad; see reports.h.
#include "reports.h"
#include "velausb.h"

namespace {

struct UsbPad {
  using Driver = velausb;
  static constexpr std::size_t reportSize = 6;
  static constexpr auto starts = fuzz::kSignalFirst;
  static constexpr bool hasClock = false;

  std::optional<fuzz::Sample> sample(fuzz::ByteSpan report) {
    if (report.size() != reportSize) return std::nullopt;
    static std::uint32_t number = 0;
    number = number % 127 + 1;
    const bool touch = report[0] == 0x20;
    const bool dropped = first && !touch;
    first = false;
    if (dropped) return std::nullopt;
    return fuzz::Sample{
        .x = scaled(fuzz::littleWord(report, 1), 90, 1090),
        .y = scaled(fuzz::littleWord(report, 3), 45, 545),
        .pressure = report[5],
        .touch = touch,
        .sequence = number,
    };
  }

  static int scaled(std::uint16_t word, int low, int high) {
    const int raw = word < 0x8000 ? word : word - 0x10000;
    if (raw <= low) return 0;
    if (raw >= high) return 32767;
    return (raw - low) * 32767 / (high - low);
  }

  bool first = true;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::feedReports<UsbPad>({data, size});
}
