#include "velavisionutil.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

const std::string base64_chars =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
    "abcdefghijklmnopqrstuvwxyz"
    "0123456789+/";

// Four 8-digit numbers and the terminator.
constexpr std::size_t kGuidSize = 4 * 8 + 1;

bool isBase64(char character) {
  return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '+' ||
         character == '/';
}

// The value of a character; 255 for one outside the alphabet (letters of the locale, NUL).
unsigned char valueOf(char character) {
  return static_cast<unsigned char>(base64_chars.find(character) & 0xFF);
}

// The three bytes of a group of four characters.
std::array<unsigned char, 3> decodedGroup(const std::array<char, 4>& group) {
  std::array<unsigned, 4> s{};
  std::transform(group.begin(), group.end(), s.begin(), valueOf);
  return {static_cast<unsigned char>(s[0] << 2 | (s[1] & 0x30) >> 4),
          static_cast<unsigned char>((s[1] & 15) << 4 | (s[2] & 0x3C) >> 2),
          static_cast<unsigned char>(((s[2] & 3) << 6) + s[3])};
}

}  // namespace

char* velavisionutil::GUID() {
  std::srand(static_cast<unsigned>(std::time(nullptr)));
  std::array<unsigned, 4> words{};
  for (unsigned& word : words) word = static_cast<unsigned>(std::rand());
  char* const text = new char[kGuidSize];
  std::snprintf(text, kGuidSize, "%x%x%x%x", words[0], words[1], words[2], words[3]);
  return text;
}

unsigned short velavisionutil::RGBtoShort(int r, int g, int b) {
  const unsigned red = (static_cast<unsigned>(r) << 8) & 0xF800;
  const unsigned green = (static_cast<unsigned>(g) & 0x1FFC) << 3;
  const unsigned blue = static_cast<unsigned>(b) >> 3;
  return static_cast<unsigned short>(red + green + blue);
}

std::string velavisionutil::base64_encode(const unsigned char* bytes, unsigned int length) {
  std::string text;
  text.reserve((static_cast<std::size_t>(length) + 2) / 3 * 4);
  for (unsigned int start = 0; start < length; start += 3) {
    const unsigned int size = std::min(length - start, 3U);
    std::array<unsigned, 3> group{};
    std::copy_n(bytes + start, size, group.begin());
    const std::array<unsigned, 4> values{group[0] >> 2, (group[0] & 3) << 4 | group[1] >> 4,
                                         (group[1] & 15) << 2 | group[2] >> 6, group[2] & 63};
    for (unsigned int i = 0; i < values.size(); ++i)
      text += i <= size ? base64_chars[values[i]] : '=';
    if (size < 3) break;
  }
  return text;
}

std::vector<unsigned char> velavisionutil::base64_decode(const std::string& text) {
  std::vector<unsigned char> bytes;
  const auto end = std::find_if_not(text.begin(), text.end(), isBase64);
  for (auto next = text.begin(); next != end;) {
    std::array<char, 4> group{};
    const auto size = std::min<std::ptrdiff_t>(end - next, 4);
    std::copy_n(next, size, group.begin());
    next += size;
    const auto decoded = decodedGroup(group);
    bytes.insert(bytes.end(), decoded.begin(), decoded.begin() + (size - 1));
  }
  return bytes;
}
