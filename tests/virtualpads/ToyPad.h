// The pad of the kernel faces' tests.
#ifndef TESTS_VIRTUALPADS_TOYPAD_H
#define TESTS_VIRTUALPADS_TOYPAD_H

#include <string>
#include <utility>
#include <vector>

#include "virtualpads/PadModel.h"

namespace virtualpads {

constexpr PadReport kToyReport{PadReport::Way::Input, 0, 2, "Pen"};

// Feature report 5 holds two bytes; every other one is refused.
class ToyPad : public PadModel {
 public:
  explicit ToyPad(std::string name = "Toy", std::vector<PadReport> reports = {kToyReport})
      : PadModel({.product = 0x0102, .name = std::move(name), .reports = std::move(reports)}) {}

  Bytes inputReport(const PenState& pen) override {
    return {static_cast<std::uint8_t>(pen.touch), ++sequence};
  }
  std::optional<Bytes> getFeature(std::uint8_t reportId) override {
    ++gets;
    return reportId == 5 ? std::optional<Bytes>(feature) : std::nullopt;
  }
  bool setFeature(std::span<const std::uint8_t> report) override {
    if (report.empty() || report[0] != 5) return false;
    feature.assign(report.begin(), report.end());
    return true;
  }

  Bytes feature{5, 0x11, 0x22};
  std::uint8_t sequence = 0;
  int gets = 0;
};

}  // namespace virtualpads

#endif
