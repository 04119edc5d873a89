#include "virtualpads/tools/CommandLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace virtualpads {
namespace {

using Arguments = std::vector<const char*>;

TEST(CommandLine, NamesThePad) {
  EXPECT_EQ(parseCommandLine(Arguments{"usb"}), CommandLine{.pad = PadKind::Usb});
  EXPECT_EQ(parseCommandLine(Arguments{"ii"}), CommandLine{.pad = PadKind::Ii});
  EXPECT_EQ(parseCommandLine(Arguments{"ink"}), CommandLine{.pad = PadKind::Ink});
  EXPECT_EQ(parseCommandLine(Arguments{"vision"}), CommandLine{.pad = PadKind::Vision});
}

TEST(CommandLine, NamesARecordingBeforeOrAfterThePad) {
  EXPECT_EQ(parseCommandLine(Arguments{"ink", "--replay", "a"}),
            (CommandLine{.pad = PadKind::Ink, .replay = "a"}));
  EXPECT_EQ(parseCommandLine(Arguments{"--record", "-b", "ii"}),
            (CommandLine{.pad = PadKind::Ii, .record = "-b"}));
}

TEST(CommandLine, AsksForAUsbDevice) {
  EXPECT_FALSE(parseCommandLine(Arguments{"ii"}).usb);
  EXPECT_TRUE(parseCommandLine(Arguments{"--usb", "ii"}).usb);
  EXPECT_EQ(parseCommandLine(Arguments{"ii", "--usb", "--replay", "a"}),
            (CommandLine{.pad = PadKind::Ii, .usb = true, .replay = "a"}));
}

TEST(CommandLine, AsksForHelpWhateverElseItSays) {
  EXPECT_TRUE(parseCommandLine(Arguments{"--help"}).help);
  EXPECT_TRUE(parseCommandLine(Arguments{"-h"}).help);
  EXPECT_TRUE(parseCommandLine(Arguments{"ink", "--help", "--nonsense"}).help);
  EXPECT_FALSE(parseCommandLine(Arguments{"ink"}).help);
}

TEST(CommandLine, AsksForTheVersionWhateverElseItSays) {
  EXPECT_TRUE(parseCommandLine(Arguments{"--version"}).version);
  EXPECT_TRUE(parseCommandLine(Arguments{"ink", "--version", "--nonsense"}).version);
  EXPECT_FALSE(parseCommandLine(Arguments{"ink"}).version);
}

struct Senseless {
  Arguments arguments;
  const char* complaint;
};

class SenselessCommandLine : public testing::TestWithParam<Senseless> {};

TEST_P(SenselessCommandLine, IsRefused) {
  try {
    parseCommandLine(GetParam().arguments);
    FAIL() << "it was taken";
  } catch (const UsageError& error) {
    EXPECT_STREQ(error.what(), GetParam().complaint);
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, SenselessCommandLine,
    testing::Values(Senseless{{}, "which pad?"}, Senseless{{"--replay", "a"}, "which pad?"},
                    Senseless{{"pen"}, "there is no pad pen"}, Senseless{{""}, "there is no pad "},
                    Senseless{{"ink", "usb"}, "one pad is enough, what is usb for?"},
                    Senseless{{"ink", "--loop"}, "there is no option --loop"},
                    Senseless{{"ink", "--replay"}, "--replay needs a file"},
                    Senseless{{"ink", "--record"}, "--record needs a file"},
                    Senseless{{"ink", "--replay", "a", "--replay", "b"}, "--replay is given twice"},
                    Senseless{{"ink", "--record", "a", "--record", "b"}, "--record is given twice"},
                    Senseless{{"ink", "--replay", "a", "--record", "b"},
                              "--replay and --record do not go together"}));

}  // namespace
}  // namespace virtualpads
