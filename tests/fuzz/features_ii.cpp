// Feature reports of the pad II; see features.h.
#include <cstring>

#include "features.h"
#include "velaii.h"

namespace {

using fuzz::expect;
using fuzz::littleWord;

class IiPad {
 public:
  IiPad(gIIVela& sdk, fuzz::FeatureDevice& device) : m_sdk(sdk), m_device(device) {}

  void checkOpen() {}
  void checkClose() {}

  void operate(fuzz::Input& input) {
    switch (input.byte() % 5) {
      case 0:
        return padInfo();
      case 1:
        return expect(m_sdk.GetPhysicalX() == size(23, 31, 39), "the width is what the pad says");
      case 2:
        return expect(m_sdk.GetPhysicalY() == size(27, 35, 43), "the height is what the pad says");
      case 3:
        return serialNumber();
      default:
        return serialNumberText();
    }
  }

 private:
  void padInfo() {
    PAD_INFO_REPORT untouched;
    std::memset(&untouched, 0xA5, sizeof untouched);
    PAD_INFO_REPORT info = untouched;
    const bool success = m_pvelaii->GetPadInfo(&info);
    const auto [bytes, result] = m_device.asked(10, 55);
    expect(success == (result != 0), "only a reply of no bytes is a failure");
    PAD_INFO_REPORT expected = untouched;
    if (result != 0) {
      expected = {
          .bReportId = untouched.bReportId,
          .wDesc1 = littleWord(bytes, 1),
          .wDesc2 = littleWord(bytes, 3),
          .wDesc3 = littleWord(bytes, 5),
          .wDesc4 = littleWord(bytes, 7),
          .bDesc1 = bytes[9],
          .wDesc5 = littleWord(bytes, 10),
          .wDesc6 = littleWord(bytes, 12),
          .bDesc2 = bytes[14],
          .lDesc1 = signedDoubleWord(bytes, 15),
          .lDesc2 = signedDoubleWord(bytes, 19),
          .wExtX = littleWord(bytes, 23),
          .wExtXDiv = littleWord(bytes, 25),
          .wExtY = littleWord(bytes, 27),
          .wExtYDiv = littleWord(bytes, 29),
          .wOff1X = littleWord(bytes, 31),
          .wOff1XDiv = littleWord(bytes, 33),
          .wOff1Y = littleWord(bytes, 35),
          .wOff1YDiv = littleWord(bytes, 37),
          .wOff2X = littleWord(bytes, 39),
          .wOff2XDiv = littleWord(bytes, 41),
          .wOff2Y = littleWord(bytes, 43),
          .wOff2YDiv = littleWord(bytes, 45),
      };
    }
    expect(std::memcmp(&info, &expected, sizeof info) == 0, "the information is the pad's");
  }

  static long signedDoubleWord(fuzz::ByteSpan bytes, std::size_t at) {
    return littleWord(bytes, at) + 65536L * static_cast<std::int16_t>(littleWord(bytes, at + 2));
  }

  // The size whose quotients are at these positions of the reply.
  double size(std::size_t extent, std::size_t first, std::size_t second) {
    const auto [bytes, result] = m_device.asked(10, 55);
    if (result == 0) return 0;
    return quotient(bytes, extent) - quotient(bytes, first) - quotient(bytes, second);
  }

  static double quotient(fuzz::ByteSpan bytes, std::size_t at) {
    const double divisor = littleWord(bytes, at + 2);
    return littleWord(bytes, at) / (divisor != 0 ? divisor : 0x1p-52);
  }

  void serialNumber() {
    _GUID serial{};
    const bool success = m_pvelaii->GetSerialNumber(&serial);
    const auto [bytes, result] = m_device.asked(2, 17);
    expect(success == (result != 0), "only a reply of no bytes is a failure");
    if (!success) return expect(serial.Data1 == 0, "a failure writes nothing");
    expect(serial.Data1 == 0x33C72A14 && serial.Data2 == 0xD348 && serial.Data3 == 0x42C6,
           "the serial number begins with the kind's own");
    expect(std::equal(bytes.rbegin(), bytes.rbegin() + 8, serial.Data4),
           "the serial number ends with the pad's bytes, last to first");
  }

  void serialNumberText() {
    const std::string text = fuzz::serialText(m_sdk);
    const auto [bytes, result] = m_device.asked(2, 17);
    expect(text == (result == 0
                        ? ""
                        : "33c72a14d34842c6" + fuzz::reversedHex(fuzz::ByteSpan(bytes).subspan(9))),
           "the text is that of the serial number");
  }

  gIIVela& m_sdk;
  fuzz::FeatureDevice& m_device;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::useFeatures<IiPad>({data, size}, 1);
}
