// Feature reports of the vision pad; see features.h.
#include <array>
#include <cstring>

#include "features.h"
#include "velavision.h"

namespace {

using fuzz::bigDoubleWord;
using fuzz::bigWord;
using fuzz::Bytes;
using fuzz::expect;
using fuzz::same;

// A report that has an id, a byte of content, and zeros.
Bytes report(std::uint8_t id, std::uint8_t content = 0) {
  Bytes bytes(17);
  bytes[0] = id;
  bytes[1] = content;
  return bytes;
}

InkRegion regionIn(fuzz::ByteSpan bytes) {
  const int quotient = (bytes[15] + 256 * bytes[16]) / 100;
  return {
      .bFlag1 = static_cast<std::uint8_t>(bytes[1] / 0x80 % 2),
      .bFlag2 = static_cast<std::uint8_t>(bytes[1] / 0x40 % 2),
      .bFlag3 = static_cast<std::uint8_t>(bytes[1] / 0x10 % 2),
      .wWord4 = bigWord(bytes, 8),
      .wWord3 = bigWord(bytes, 6),
      .wWord2 = bigWord(bytes, 4),
      .wWord1 = bigWord(bytes, 2),
      .bByte1 = bytes[10],
      .bByte2 = bytes[11],
      .bByte3 = bytes[12],
      .bByte4 = bytes[13],
      .wByte5 = bytes[14],
      .wScaled = static_cast<std::uint16_t>(quotient % 256 * 256 + quotient / 256),
  };
}

Bytes reportOf(const InkRegion& region) {
  const auto high = [](int word) { return static_cast<std::uint8_t>(word / 256 % 256); };
  const auto low = [](int word) { return static_cast<std::uint8_t>(word % 256); };
  const int flags = (region.bFlag1 != 0 ? 0x80 : 0) + (region.bFlag2 != 0 ? 0x40 : 0) +
                    (region.bFlag3 != 0 ? 0x10 : 0);
  const int scaled = region.wScaled * 100;
  const std::array<std::uint8_t, 34> bytes{17,
                                           low(flags),
                                           high(region.wWord1),
                                           low(region.wWord1),
                                           high(region.wWord2),
                                           low(region.wWord2),
                                           high(region.wWord3),
                                           low(region.wWord3),
                                           high(region.wWord4),
                                           low(region.wWord4),
                                           region.bByte1,
                                           region.bByte2,
                                           region.bByte3,
                                           region.bByte4,
                                           low(region.wByte5),
                                           high(scaled),
                                           low(scaled)};
  return {bytes.begin(), bytes.end()};
}

DevicePadInfo infoIn(fuzz::ByteSpan bytes) {
  return {
      .nMinX = bigWord(bytes, 7),
      .nMaxX = bigWord(bytes, 1),
      .nMinY = bigWord(bytes, 9),
      .nMaxY = bigWord(bytes, 3),
      .nMinZ = bigWord(bytes, 11),
      .nMaxZ = bigWord(bytes, 5),
      .dRatio = double{1} * bigDoubleWord(bytes, 13) / bigDoubleWord(bytes, 17),
      .dPhysicalX = double{1} * bigWord(bytes, 21) / bigWord(bytes, 23),
      .dPhysicalY = double{1} * bigWord(bytes, 25) / bigWord(bytes, 27),
  };
}

class VisionPad {
 public:
  VisionPad(gIIVela& sdk, fuzz::FeatureDevice& device) : m_sdk(sdk), m_device(device) {}

  // The open is aborted where the pad does not answer correctly.
  void checkOpen() {
    if (m_device.asked(3, 17).result < 0) return;
    m_device.sent(report(4, 1));
    if (m_device.asked(4, 17).result == 0) return;
    const auto [bytes, result] = m_device.asked(17, 34);
    InkRegion region = result >= 0 ? regionIn(bytes) : InkRegion{};
    region.bFlag1 = 1;
    region.bFlag2 = 1;
    region.wScaled = 5;
    m_device.sent(reportOf(region));
    const auto info = m_device.asked(12, 65);
    if (info.result >= 0) m_info = infoIn(info.report);
  }

  void checkClose() { m_device.sent(report(4, 4)); }

  void operate(fuzz::Input& input) {
    switch (input.byte() % 9) {
      case 0: {
        const bool success = m_pvelavision->ResetVelaVisionDevice();
        return expect(success == (m_device.asked(3, 17).result >= 0), "the reset is answered");
      }
      case 1: {
        const std::uint8_t mode = input.byte();
        const int result = m_pvelavision->SetMode(mode);
        return expect(result == m_device.sent(report(4, mode)), "the mode is set as the pad says");
      }
      case 2:
        return mode();
      case 3:
        return getRegion();
      case 4:
        return setRegion(input);
      case 5:
        return padInfo();
      case 6: {
        const bool success = m_sdk.ClearInking();
        return expect(success == (m_device.sent(report(18)) != 0),
                      "the ink is cleared as the pad says");
      }
      case 7:
        return serialNumber();
      default:
        return sizes();
    }
  }

 private:
  void mode() {
    unsigned char mode = 0xA5;
    const int result = m_pvelavision->GetMode(&mode);
    const auto request = m_device.asked(4, 17);
    expect(result == request.result, "the result is hidapi's");
    expect(mode == (result >= 0 ? request.report[1] : 0xA5), "the mode is the pad's");
  }

  void getRegion() {
    InkRegion untouched;
    std::memset(&untouched, 0xA5, sizeof untouched);
    InkRegion region = untouched;
    const int success = m_pvelavision->GetInkRegion(&region);
    const auto [bytes, result] = m_device.asked(17, 34);
    expect(success == (result < 0 ? result : 1), "a failure is reported");
    const InkRegion expected = result < 0 ? untouched : regionIn(bytes);
    expect(std::memcmp(&region, &expected, sizeof region) == 0, "the region is the pad's");
  }

  void setRegion(fuzz::Input& input) {
    std::array<std::uint8_t, sizeof(InkRegion)> bytes{};
    for (std::uint8_t& byte : bytes) byte = input.byte();
    InkRegion region;
    std::memcpy(&region, bytes.data(), sizeof region);
    const int success = m_pvelavision->SetInkRegion(region);
    expect(success == (m_device.sent(reportOf(region)) >= 0), "the region is set as the pad says");
  }

  void padInfo() {
    DevicePadInfo info{-1, -1, -1, -1, -1, -1, -1, -1, -1};
    const int success = m_pvelavision->GetPadInfo(&info);
    const auto [bytes, result] = m_device.asked(12, 65);
    expect(success == (result < 0 ? result : 1), "a failure is reported");
    if (result < 0) return expect(info.nMinX == -1 && info.dPhysicalY == -1, "nothing is written");
    expectSame(info, infoIn(bytes));
  }

  // The facade returns what the pad reported at the open.
  void sizes() {
    expectSame(
        {
            .nMinX = m_sdk.GetDataRangeMinX(),
            .nMaxX = m_sdk.GetDataRangeMaxX(),
            .nMinY = m_sdk.GetDataRangeMinY(),
            .nMaxY = m_sdk.GetDataRangeMaxY(),
            .nMinZ = m_sdk.GetDataRangeMinZ(),
            .nMaxZ = m_sdk.GetDataRangeMaxZ(),
            .dRatio = m_info.dRatio,  // not available from the facade
            .dPhysicalX = m_sdk.GetPhysicalX(),
            .dPhysicalY = m_sdk.GetPhysicalY(),
        },
        m_info);
  }

  static void expectSame(const DevicePadInfo& info, const DevicePadInfo& expected) {
    expect(info.nMinX == expected.nMinX && info.nMaxX == expected.nMaxX &&
               info.nMinY == expected.nMinY && info.nMaxY == expected.nMaxY &&
               info.nMinZ == expected.nMinZ && info.nMaxZ == expected.nMaxZ,
           "the ranges are the pad's");
    expect(same(info.dRatio, expected.dRatio) && same(info.dPhysicalX, expected.dPhysicalX) &&
               same(info.dPhysicalY, expected.dPhysicalY),
           "the sizes are the pad's");
  }

  void serialNumber() {
    char* const serial = m_sdk.GetSerialNumber();
    const auto [bytes, result] = m_device.asked(2, 34);
    expect((serial != nullptr) == (result >= 0), "only an error is a failure");
    if (serial != nullptr)
      expect(std::memcmp(serial, bytes.data() + 1, 16) == 0, "the serial number is the pad's");
    std::free(serial);
  }

  gIIVela& m_sdk;
  fuzz::FeatureDevice& m_device;
  DevicePadInfo m_info{};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::useFeatures<VisionPad>({data, size}, 3);
}
