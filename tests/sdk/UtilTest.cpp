// velavisionutil. The test replaces time, srand, rand and isalnum.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "velavisionutil.h"

namespace {

// The results of rand, in order, and the arguments of srand and time.
std::vector<int> randomNumbers;
std::size_t drawn = 0;
std::vector<unsigned> seeds;
std::time_t now = 0;

// Whether isalnum accepts the letters of Latin 1, as in a locale set by a client.
bool latin1 = false;

}  // namespace

extern "C" {

std::time_t __wrap_time(std::time_t* result) {
  if (result != nullptr) *result = now;
  return now;
}

void __wrap_srand(unsigned seed) {
  seeds.push_back(seed);
  drawn = 0;
}

int __wrap_rand() {
  return randomNumbers.at(drawn++);
}

int __real_isalnum(int character);
int __wrap_isalnum(int character) {
  return latin1 && character >= 0xC0 && character <= 0xFF ? 1 : __real_isalnum(character);
}

}  // extern "C"

namespace {

using testing::ElementsAre;

class UtilTest : public testing::Test {
 protected:
  UtilTest() {
    seeds.clear();
    drawn = 0;
    now = 1'700'000'000;
  }

  std::string guid(const std::vector<int>& numbers) {
    randomNumbers = numbers;
    const std::unique_ptr<char[]> text(util.GUID());
    return text.get();
  }

  std::string encoded(const std::string& bytes) {
    return util.base64_encode(reinterpret_cast<const unsigned char*>(bytes.data()),
                              static_cast<unsigned>(bytes.size()));
  }

  velavisionutil util;
};

using GuidTest = UtilTest;
using ColourTest = UtilTest;
using Base64EncodeTest = UtilTest;
using Base64DecodeTest = UtilTest;

TEST_F(GuidTest, IsFourNumbersInUnpaddedLowerCaseHexadecimal) {
  EXPECT_EQ(guid({0x12ABCDEF, 0, 0xA, 0x7FFFFFFE}), "12abcdef0a7ffffffe");
  EXPECT_EQ(guid({0, 0, 0, 0}), "0000");
}

TEST_F(GuidTest, LongestTextFits) {
  EXPECT_EQ(guid({0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF}),
            "7fffffff7fffffff7fffffff7fffffff");
  // Where rand returns all 32 bits
  EXPECT_EQ(guid({-1, -1, -0x7FFFFFFF - 1, -0x7FFFFFFF}), "ffffffffffffffff8000000080000001");
}

TEST_F(GuidTest, EveryCallSeedsWithTheSecondsOfTheClock) {
  const std::string first = guid({1, 2, 3, 4});
  const std::string second = guid({1, 2, 3, 4});
  now = 1'700'000'001;
  guid({5, 6, 7, 8});
  EXPECT_THAT(seeds, ElementsAre(1'700'000'000U, 1'700'000'000U, 1'700'000'001U));
  EXPECT_EQ(first, "1234");
  EXPECT_EQ(second, first);
}

TEST_F(ColourTest, IsFiveBitsOfRedSixOfGreenAndFiveOfBlue) {
  EXPECT_EQ(util.RGBtoShort(255, 255, 255), 0xFFFF);
  EXPECT_EQ(util.RGBtoShort(255, 0, 0), 0xF800);
  EXPECT_EQ(util.RGBtoShort(0, 255, 0), 0x07E0);
  EXPECT_EQ(util.RGBtoShort(0, 0, 255), 0x001F);
  EXPECT_EQ(util.RGBtoShort(0, 0, 0), 0x0000);
  EXPECT_EQ(util.RGBtoShort(128, 128, 128), 0x8410);
}

TEST_F(ColourTest, LowBitsOfTheComponentsAreLost) {
  EXPECT_EQ(util.RGBtoShort(7, 3, 7), 0x0000);
  EXPECT_EQ(util.RGBtoShort(8, 4, 8), 0x0821);
  EXPECT_EQ(util.RGBtoShort(15, 7, 15), 0x0821);
}

TEST_F(ColourTest, NothingIsClamped) {
  EXPECT_EQ(util.RGBtoShort(0, 256, 0), 0x0800);     // green carries into red
  EXPECT_EQ(util.RGBtoShort(0, 0x1FFC, 0), 0xFFE0);  // the mask's highest bits
  EXPECT_EQ(util.RGBtoShort(0, 0x2000, 0), 0x0000);  // beyond it
  EXPECT_EQ(util.RGBtoShort(0, 0, 256), 0x0020);     // blue carries into green
  EXPECT_EQ(util.RGBtoShort(256, 0, 0), 0x0000);     // red carries out of the word
  EXPECT_EQ(util.RGBtoShort(0, 4, 0), 0x0020);
  EXPECT_EQ(util.RGBtoShort(0, 4, 256), 0x0040);    // added, not combined
  EXPECT_EQ(util.RGBtoShort(255, 256, 0), 0x0000);  // the sum is cut to 16 bits
}

TEST_F(ColourTest, NegativeComponentsAreTakenBitByBit) {
  EXPECT_EQ(util.RGBtoShort(-1, 0, 0), 0xF800);
  EXPECT_EQ(util.RGBtoShort(0, -1, 0), 0xFFE0);
  EXPECT_EQ(util.RGBtoShort(0, 0, -1), 0xFFFF);
}

TEST_F(Base64EncodeTest, ThreeBytesAreFourCharacters) {
  EXPECT_EQ(encoded("ABC"), "QUJD");
  EXPECT_EQ(encoded("ABCDEF"), "QUJDREVG");
  EXPECT_EQ(encoded("\xFF\xFF\xFF"), "////");
  EXPECT_EQ(encoded(std::string(3, '\0')), "AAAA");
  EXPECT_EQ(encoded("\xFB\xEF\xBE"), "++++");
}

TEST_F(Base64EncodeTest, UnfinishedGroupIsPadded) {
  EXPECT_EQ(encoded("A"), "QQ==");
  EXPECT_EQ(encoded("AB"), "QUI=");
  EXPECT_EQ(encoded("ABCD"), "QUJDRA==");
  EXPECT_EQ(encoded("ABCDE"), "QUJDREU=");
  EXPECT_EQ(encoded("\xFF"), "/w==");
  EXPECT_EQ(encoded("\xFF\xFF"), "//8=");
}

TEST_F(Base64EncodeTest, EveryCharacterOfTheAlphabet) {
  const unsigned char bytes[] = {0x00, 0x10, 0x83, 0x10, 0x51, 0x87, 0x20, 0x92, 0x8B, 0x30,
                                 0xD3, 0x8F, 0x41, 0x14, 0x93, 0x51, 0x55, 0x97, 0x61, 0x96,
                                 0x9B, 0x71, 0xD7, 0x9F, 0x82, 0x18, 0xA3, 0x92, 0x59, 0xA7,
                                 0xA2, 0x9A, 0xAB, 0xB2, 0xDB, 0xAF, 0xC3, 0x1C, 0xB3, 0xD3,
                                 0x5D, 0xB7, 0xE3, 0x9E, 0xBB, 0xF3, 0xDF, 0xBF};
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  EXPECT_EQ(util.base64_encode(bytes, sizeof bytes), alphabet);
  EXPECT_EQ(util.base64_decode(alphabet),
            std::vector<unsigned char>(std::begin(bytes), std::end(bytes)));
}

TEST_F(Base64EncodeTest, NothingGivesAnEmptyText) {
  EXPECT_EQ(util.base64_encode(nullptr, 0), "");
}

TEST_F(Base64EncodeTest, LongTextHasNoLineBreaks) {
  std::string expected;
  for (int i = 0; i < 100; ++i) expected += "QUJD";
  std::string bytes;
  for (int i = 0; i < 100; ++i) bytes += "ABC";
  EXPECT_EQ(encoded(bytes), expected);
}

TEST_F(Base64DecodeTest, FourCharactersAreThreeBytes) {
  EXPECT_THAT(util.base64_decode("QUJD"), ElementsAre('A', 'B', 'C'));
  EXPECT_THAT(util.base64_decode("////"), ElementsAre(0xFF, 0xFF, 0xFF));
  EXPECT_THAT(util.base64_decode("++++"), ElementsAre(0xFB, 0xEF, 0xBE));
  EXPECT_THAT(util.base64_decode("QUJDREVG"), ElementsAre('A', 'B', 'C', 'D', 'E', 'F'));
}

TEST_F(Base64DecodeTest, UnfinishedGroupGivesItsWholeBytes) {
  EXPECT_THAT(util.base64_decode("Q"), ElementsAre());
  EXPECT_THAT(util.base64_decode("QQ"), ElementsAre('A'));
  EXPECT_THAT(util.base64_decode("QQ=="), ElementsAre('A'));
  EXPECT_THAT(util.base64_decode("QUI="), ElementsAre('A', 'B'));
  EXPECT_THAT(util.base64_decode("QUJDR"), ElementsAre('A', 'B', 'C'));
  EXPECT_THAT(util.base64_decode("/w"), ElementsAre(0xFF));
  EXPECT_THAT(util.base64_decode("//8"), ElementsAre(0xFF, 0xFF));
}

TEST_F(Base64DecodeTest, BitsLeftOverAreIgnored) {
  EXPECT_THAT(util.base64_decode("QR=="), ElementsAre('A'));
  EXPECT_THAT(util.base64_decode("QUL="), ElementsAre('A', 'B'));
}

TEST_F(Base64DecodeTest, StopsQuietlyAtTheFirstCharacterThatDoesNotBelong) {
  EXPECT_THAT(util.base64_decode("QUJD\nREVG"), ElementsAre('A', 'B', 'C'));
  EXPECT_THAT(util.base64_decode("QUJD REVG"), ElementsAre('A', 'B', 'C'));
  EXPECT_THAT(util.base64_decode("QUJD=REVG"), ElementsAre('A', 'B', 'C'));
  EXPECT_THAT(util.base64_decode("QUI-REVG"), ElementsAre('A', 'B'));
  EXPECT_THAT(util.base64_decode("QUJD_EVG"), ElementsAre('A', 'B', 'C'));
  EXPECT_THAT(util.base64_decode(std::string("QUJD\0REVG", 9)), ElementsAre('A', 'B', 'C'));
  // Not alphanumeric in the C locale, negative as a char
  EXPECT_THAT(util.base64_decode("QUJD\xC4\xD6\xDC\xE4"), ElementsAre('A', 'B', 'C'));
}

TEST_F(Base64DecodeTest, LettersOfTheLocaleBelongAndCountAs255) {
#ifdef _LIBCPP_VERSION
  GTEST_SKIP() << "isalnum is inline with libc++, so that no locale can be played";
#endif
  latin1 = true;
  // 0 << 2 | 0x30 >> 4, 0xF0 | 0x3C >> 2, (0xC0 + 0xFF) % 256
  EXPECT_THAT(util.base64_decode("A\xE4\xF6\xFC"), ElementsAre(0x03, 0xFF, 0xBF));
  EXPECT_THAT(util.base64_decode("QQ\xC4"), ElementsAre('A', 0x0F));
  latin1 = false;
}

TEST_F(Base64DecodeTest, NothingToDecodeGivesNoBytes) {
  EXPECT_TRUE(util.base64_decode("").empty());
  EXPECT_TRUE(util.base64_decode("=QUJD").empty());
  EXPECT_TRUE(util.base64_decode("\nQUJD").empty());
}

}  // namespace
