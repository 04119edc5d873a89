// Feature reports of the ink pad; see features.h.
#include <cstring>
#include <memory>

#include "features.h"
#include "velainkusb.h"

namespace {

using fuzz::Bytes;
using fuzz::expect;

constexpr std::uint8_t low(int value) {
  return static_cast<std::uint8_t>(value & 0xFF);
}

constexpr std::uint8_t high(int value) {
  return static_cast<std::uint8_t>(value >> 8 & 0xFF);
}

// The block's edits; `block` begins with the report id, so its indices are one more than those of
// the options.
void setInkTrace(Bytes& block, int mode, int value) {
  block[2] = low((block[2] & 0xFC) | (mode & 3));
  block[3] = low(value);
  block[4] = high(value);
}

void setBackLight(Bytes& block, int mode, int on, int value) {
  block[12] = low((block[12] & 0xF8) | (on & 1) << 2 | (mode & 3));
  block[13] = low(value);
  block[14] = high(value);
}

void setLayer(Bytes& block, int layer, int state) {
  constexpr int kKept[] = {0xF3, 0xCF, 0x3F};
  constexpr int kFactor[] = {4, 16, 64};
  if (layer < 0 || layer > 2) return;
  block[15] = low((block[15] & kKept[layer]) | (state & 3) * kFactor[layer]);
}

class InkPad {
 public:
  InkPad(gIIVela& sdk, fuzz::FeatureDevice& device) : m_sdk(sdk), m_device(device) {}

  void checkOpen() {
    // The picture itself is not checked here.
    for (int band = 0; band < 4; ++band)
      expect(m_device.sent(7, 2408)[3] == 60 * band, "the bands go from top to bottom");
    edit([](Bytes& block) {
      const Bytes wholeScreen{0, 0, 0, 0x3F, 0x01, 239};
      std::copy(wholeScreen.begin(), wholeScreen.end(), block.begin() + 6);
    });
    editOrCached([](Bytes& block) { setInkTrace(block, 2, 500); });
    editOrCached([](Bytes& block) { setBackLight(block, 1, 1, 500); });
    for (int layer = 0; layer < 3; ++layer)
      edit([layer](Bytes& block) { setLayer(block, layer, 1); });
    const auto [block, result] = m_device.asked(3, 17);
    if (result != 0) m_cached = block;
  }

  int checkReset() {
    editOrCached([](Bytes& block) { setInkTrace(block, 0, 300); });
    editOrCached([](Bytes& block) { setBackLight(block, 0, 1, 500); });
    int result = 0;
    for (int layer = 0; layer < 3; ++layer) {
      m_device.sent({9, low(layer != 0), 0});
      result = edit([layer](Bytes& block) { setLayer(block, layer, 0); });
    }
    return result;
  }

  void checkClose() { checkReset(); }

  void operate(fuzz::Input& input) {
    switch (input.byte() % 11) {
      case 0:
        return picture(input);
      case 1:
        return region(input);
      case 2:
        return options();
      case 3:
        return wholeBlock(input);
      case 4: {
        const int mode = input.number();
        const int on = input.number();
        const int value = input.number();
        const int result = m_pvelaink->SetBackLightOpt(mode, on, value);
        const auto change = [=](Bytes& block) { setBackLight(block, mode, on, value); };
        return expect(result == editOrCached(change), "the backlight is set as the pad says");
      }
      case 5: {
        const int mode = input.number();
        const int value = input.number();
        const int result = m_pvelaink->SetInkTraceOpt(mode, value);
        const auto change = [=](Bytes& block) { setInkTrace(block, mode, value); };
        return expect(result == editOrCached(change), "the ink trace is set as the pad says");
      }
      case 6: {
        const int layer = static_cast<std::int8_t>(input.byte());
        const int state = input.number();
        const int result = m_pvelaink->SetLayerState(layer, state);
        const auto change = [=](Bytes& block) { setLayer(block, layer, state); };
        return expect(result == edit(change), "the layer is set as the pad says");
      }
      case 7: {
        const int a = input.number();
        const int b = input.number();
        const int result = m_pvelaink->ClearScrn(a, b);
        const bool any = a % 0x10000 != 0 || b % 0x10000 != 0;
        return expect(result == (m_device.sent({9, any, 0}) != 0), "the screen is cleared");
      }
      case 8:
        expect(m_sdk.ClearInking(), "clearing the ink succeeds");
        m_device.sent({9, 0, 0});
        return;
      case 9: {
        const int result = m_pvelaink->ResetVelaInkDevice();
        return expect(result == checkReset(), "the reset is what its last request is");
      }
      default:
        return serialNumber();
    }
  }

 private:
  // The requests and the result of an edit of the option block. It fails if the block cannot be
  // read.
  template <class Change>
  int edit(Change change) {
    auto [block, result] = m_device.asked(3, 17);
    if (result == 0) return 0;
    block[0] = 3;
    change(block);
    return m_device.sent(block) != 0;
  }

  // The same; if the block cannot be read, the one that was read last at the open is edited.
  template <class Change>
  int editOrCached(Change change) {
    auto [read, result] = m_device.asked(3, 17);
    Bytes& block = result != 0 ? read : m_cached;
    block[0] = 3;
    change(block);
    return m_device.sent(block) != 0;
  }

  void picture(fuzz::Input& input) {
    const auto screen = std::make_unique<LCD_SCREEN>();
    screen->bScreen = input.byte();
    const fuzz::ByteSpan pattern = input.take(input.byte());
    for (std::size_t i = 0; i < sizeof screen->bPicture && !pattern.empty(); ++i)
      screen->bPicture[i] = pattern[i % pattern.size()];
    const int result = m_pvelaink->DrawBitmap(screen.get());
    int last = 0;
    for (int band = 0; band < 4; ++band) {
      Bytes report(2408);
      report[0] = 7;
      report[1] = screen->bScreen;
      report[3] = low(60 * band);
      std::copy_n(screen->bPicture + 2400 * band, 2400, report.begin() + 8);
      last = m_device.sent(report);
    }
    expect(result == last, "the picture is what its last band is");
  }

  void region(fuzz::Input& input) {
    Bytes wire(6);
    for (std::uint8_t& byte : wire) byte = input.byte();
    LCD_RECT rectangle{
        .wLeft = fuzz::littleWord(wire, 0),
        .bTop = wire[2],
        .wRight = fuzz::littleWord(wire, 3),
        .bBottom = wire[5],
    };
    const int result = m_pvelaink->SetInkingRegion(&rectangle);
    const auto change = [&](Bytes& block) {
      std::copy(wire.begin(), wire.end(), block.begin() + 6);
    };
    expect(result == edit(change), "the region is set as the pad says");
  }

  void options() {
    tagOPTIONS options;
    std::memset(&options, 0xA5, sizeof options);
    const int success = m_pvelaink->GetOptions(&options);
    const auto [block, result] = m_device.asked(3, 17);
    expect(success == (result != 0), "only a reply of no bytes is a failure");
    const Bytes expected = result != 0 ? Bytes(block.begin() + 1, block.end()) : Bytes(16, 0xA5);
    expect(std::memcmp(&options, expected.data(), sizeof options) == 0,
           "the options are the pad's");
  }

  void wholeBlock(fuzz::Input& input) {
    Bytes report(17);
    report[0] = 3;
    std::for_each(report.begin() + 1, report.end(), [&](auto& byte) { byte = input.byte(); });
    tagOPTIONS options;
    std::memcpy(&options, report.data() + 1, sizeof options);
    const int result = m_pvelaink->SetOptions(&options);
    expect(result == (m_device.sent(report) != 0), "the options are set as the pad says");
  }

  void serialNumber() {
    const std::string text = fuzz::serialText(m_sdk);
    const auto [bytes, result] = m_device.asked(6, 9);
    expect(text == (result == 0
                        ? ""
                        : "99f6f7c515574d19" + fuzz::reversedHex(fuzz::ByteSpan(bytes).subspan(1))),
           "the text is that of the serial number");
  }

  gIIVela& m_sdk;
  fuzz::FeatureDevice& m_device;
  Bytes m_cached = {3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::useFeatures<InkPad>({data, size}, 2);
}
