// A pad that answers feature requests with the test's replies, which a model of a real pad would
// never send.
#ifndef TESTS_SUPPORT_SCRIPTEDPAD_H
#define TESTS_SUPPORT_SCRIPTEDPAD_H

#include <cstdint>
#include <map>
#include <utility>

#include "virtualpads/PadModel.h"

namespace support {

class ScriptedPad : public virtualpads::PadModel {
 public:
  explicit ScriptedPad(virtualpads::PadDescription description)
      : PadModel(std::move(description)) {}
  explicit ScriptedPad(std::uint16_t product, std::uint16_t vendor = 0x04DF)
      : ScriptedPad({.vendor = vendor, .product = product}) {}

  // The replies by report id; a request for another report stalls.
  std::map<std::uint8_t, virtualpads::Bytes> replies;

  virtualpads::Bytes inputReport(const virtualpads::PenState&) override { return {}; }
  std::optional<virtualpads::Bytes> getFeature(std::uint8_t reportId) override {
    const auto reply = replies.find(reportId);
    if (reply == replies.end()) return std::nullopt;
    return reply->second;
  }
  bool setFeature(std::span<const std::uint8_t>) override { return true; }
};

}  // namespace support

#endif
