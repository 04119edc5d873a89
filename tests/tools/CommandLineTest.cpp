#include "tools/CommandLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace virtualpads {
namespace {

using Arguments = std::vector<const char*>;

TEST(CommandLineTest, NamesThePad) {
  EXPECT_EQ(parseCommandLine(Arguments{"usb"}), CommandLine{.pad = PadKind::Usb});
  EXPECT_EQ(parseCommandLine(Arguments{"ii"}), CommandLine{.pad = PadKind::Ii});
  EXPECT_EQ(parseCommandLine(Arguments{"ink"}), CommandLine{.pad = PadKind::Ink});
  EXPECT_EQ(parseCommandLine(Arguments{"vision"}), CommandLine{.pad = PadKind::Vision});
}

TEST(CommandLineTest, NamesARecordingBeforeOrAfterThePad) {
  EXPECT_EQ(parseCommandLine(Arguments{"ink", "--replay", "a"}),
            (CommandLine{.pad = PadKind::Ink, .replay = "a"}));
  EXPECT_EQ(parseCommandLine(Arguments{"--record", "-b", "ii"}),
            (CommandLine{.pad = PadKind::Ii, .record = "-b"}));
}

TEST(CommandLineTest, AsksForAUsbDevice) {
  EXPECT_FALSE(parseCommandLine(Arguments{"ii"}).usb);
  EXPECT_TRUE(parseCommandLine(Arguments{"--usb", "ii"}).usb);
  EXPECT_EQ(parseCommandLine(Arguments{"ii", "--usb", "--replay", "a"}),
            (CommandLine{.pad = PadKind::Ii, .usb = true, .replay = "a"}));
}

TEST(CommandLineTest, AsksForHelpRegardlessOfOtherArguments) {
  EXPECT_TRUE(parseCommandLine(Arguments{"--help"}).help);
  EXPECT_TRUE(parseCommandLine(Arguments{"-h"}).help);
  EXPECT_TRUE(parseCommandLine(Arguments{"ink", "--help", "--nonsense"}).help);
  EXPECT_FALSE(parseCommandLine(Arguments{"ink"}).help);
}

TEST(CommandLineTest, AsksForTheVersionRegardlessOfOtherArguments) {
  EXPECT_TRUE(parseCommandLine(Arguments{"--version"}).version);
  EXPECT_TRUE(parseCommandLine(Arguments{"ink", "--version", "--nonsense"}).version);
  EXPECT_FALSE(parseCommandLine(Arguments{"ink"}).version);
}

struct Invalid {
  Arguments arguments;
  const char* complaint;
};

class InvalidCommandLineTest : public testing::TestWithParam<Invalid> {};

TEST_P(InvalidCommandLineTest, IsRefused) {
  try {
    parseCommandLine(GetParam().arguments);
    FAIL() << "it was accepted";
  } catch (const UsageError& error) {
    EXPECT_STREQ(error.what(), GetParam().complaint);
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, InvalidCommandLineTest,
    testing::Values(
        Invalid{{}, "missing pad"}, Invalid{{"--replay", "a"}, "missing pad"},
        Invalid{{"pen"}, "unknown pad 'pen'"}, Invalid{{""}, "unknown pad ''"},
        Invalid{{"ink", "usb"}, "unexpected argument 'usb'"},
        Invalid{{"ink", "--loop"}, "unrecognized option '--loop'"},
        Invalid{{"ink", "--replay"}, "option '--replay' requires an argument"},
        Invalid{{"ink", "--record"}, "option '--record' requires an argument"},
        Invalid{{"ink", "--replay", "a", "--replay", "b"}, "--replay is given more than once"},
        Invalid{{"ink", "--record", "a", "--record", "b"}, "--record is given more than once"},
        Invalid{{"ink", "--replay", "a", "--record", "b"},
                "--replay and --record cannot be used together"}));

}  // namespace
}  // namespace virtualpads
