// The tools of velavisionutil: the bytes are data to encode, a text to decode, and the components
// of a colour.
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Expect.h"
#include "Input.h"
#include "velavisionutil.h"

namespace {

using fuzz::expect;

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string encoded(const std::vector<unsigned char>& bytes) {
  return velavisionutil().base64_encode(bytes.data(), static_cast<unsigned>(bytes.size()));
}

void encode(fuzz::ByteSpan data) {
  const std::vector<unsigned char> bytes(data.begin(), data.end());
  const std::string text = encoded(bytes);
  expect(text.size() == (bytes.size() + 2) / 3 * 4, "each three bytes are four characters");
  const std::size_t padding = (3 - bytes.size() % 3) % 3;
  expect(text.find_first_not_of(kAlphabet) ==
             (padding == 0 ? std::string::npos : text.size() - padding),
         "the padding follows the characters of the alphabet");
  expect(text.ends_with(std::string(padding, '=')), "the padding fills up the last group");
  expect(velavisionutil().base64_decode(text) == bytes, "decoding gives back what was encoded");
}

void decode(fuzz::ByteSpan data) {
  const std::string text(data.begin(), data.end());
  const std::vector<unsigned char> bytes = velavisionutil().base64_decode(text);
  const std::size_t valid = std::min(text.find_first_not_of(kAlphabet), text.size());
  expect(bytes.size() == valid * 3 / 4, "the valid characters give as many whole bytes");
  // A character that is not fully used may come back as another.
  const std::size_t used = bytes.size() * 8 / 6;
  expect(encoded(bytes).compare(0, used, text, 0, used) == 0, "encoding gives the characters back");
}

void pack(fuzz::Input input) {
  const int red = input.number();
  const int green = input.number();
  const int blue = input.number();
  velavisionutil util;
  util.RGBtoShort(red, green, blue);
  const unsigned r = red & 0xFF;
  const unsigned g = green & 0xFF;
  const unsigned b = blue & 0xFF;
  expect(util.RGBtoShort(static_cast<int>(r), static_cast<int>(g), static_cast<int>(b)) ==
             r / 8 * 2048 + g / 4 * 32 + b / 8,
         "a colour has the high bits of its components");
}

void name() {
  const std::unique_ptr<char[]> text(velavisionutil().GUID());
  const std::size_t length = std::strlen(text.get());
  expect(length >= 4 && length <= 32, "an identifier has 4 to 32 digits");
  expect(std::strspn(text.get(), "0123456789abcdef") == length,
         "the digits of an identifier are hexadecimal");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  encode({data, size});
  decode({data, size});
  pack(fuzz::Input({data, size}));
  name();
  return 0;
}
