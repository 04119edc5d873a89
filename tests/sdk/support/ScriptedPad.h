// A pad that answers feature requests with the test's replies, which a model of a real pad would
// never send.
#ifndef TESTS_SDK_SUPPORT_SCRIPTEDPAD_H
#define TESTS_SDK_SUPPORT_SCRIPTEDPAD_H

#include <cstdint>
#include <map>

#include "virtualpads/PadModel.h"

namespace support {

class ScriptedPad : public virtualpads::PadModel {
 public:
  explicit ScriptedPad(std::uint16_t product, std::uint16_t vendor = 0x04DF)
      : m_product(product), m_vendor(vendor) {}

  // The replies by report id; a request for another report stalls.
  std::map<std::uint8_t, virtualpads::Bytes> replies;

  Identity identity() const override { return {m_vendor, m_product, "scripted"}; }
  double widthInches() const override { return 1; }
  double heightInches() const override { return 1; }
  std::span<const std::uint8_t> reportDescriptor() const override { return {}; }
  virtualpads::Bytes inputReport(const virtualpads::PenState&) override { return {}; }
  std::optional<virtualpads::Bytes> getFeature(std::uint8_t reportId) override {
    const auto reply = replies.find(reportId);
    if (reply == replies.end()) return std::nullopt;
    return reply->second;
  }
  bool setFeature(std::span<const std::uint8_t>) override { return true; }

 private:
  std::uint16_t m_product;
  std::uint16_t m_vendor;
};

}  // namespace support

#endif
