#include "virtualpads/Recording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>

namespace virtualpads {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kWhole =
    "# a pen stroke\n"
    "D: 0\n"
    "R: 5 06 00 ff 09 01\n"
    "N: Vela USB\n"
    "P: usb-0000:00:14.0-2/input0\n"
    "I: 3 04df 0012\n"
    "\n"
    "E: 000000.000000 6 20 4e 02 27 01 40\n"
    "# the pen is lifted\n"
    "E: 000001.250000 6 00 4e 02 27 01 00\n";

constexpr const char* kHead =
    "R: 1 06\n"
    "N: Vela USB\n"
    "I: 3 04df 0012\n";

Recording headWith(const std::string& lines) {
  return parseRecording(kHead + lines);
}

TEST(RecordingTest, IsReadLineByLine) {
  const Recording recording = parseRecording(kWhole);
  EXPECT_EQ(recording.name, "Vela USB");
  EXPECT_EQ(recording.bus, 3);
  EXPECT_EQ(recording.vendor, 0x04DF);
  EXPECT_EQ(recording.product, 0x0012);
  EXPECT_THAT(recording.descriptor, ElementsAre(0x06, 0x00, 0xFF, 0x09, 0x01));
  EXPECT_THAT(recording.events,
              ElementsAre(Recording::Event{0us, {0x20, 0x4E, 0x02, 0x27, 0x01, 0x40}},
                          Recording::Event{1250000us, {0x00, 0x4E, 0x02, 0x27, 0x01, 0x00}}));
}

TEST(RecordingTest, NeedsNoEvents) {
  EXPECT_THAT(headWith("").events, IsEmpty());
}

TEST(RecordingTest, TakesTheHeadInAnyOrder) {
  const Recording recording = parseRecording("I: 5 1 2\nN: pad\nR: 1 c0\n");
  EXPECT_EQ(recording.bus, 5);
  EXPECT_EQ(recording.vendor, 1);
  EXPECT_EQ(recording.product, 2);
  EXPECT_EQ(recording.name, "pad");
  EXPECT_THAT(recording.descriptor, ElementsAre(0xC0));
}

TEST(RecordingTest, TakesBlanksAroundWordsAndALastLineWithoutItsEnd) {
  const Recording recording =
      parseRecording("R:1   06 \nN:\t two  words \t\nI: 3\t04DF 0012  \nE:0.000007  2 aB\t0c ");
  EXPECT_EQ(recording.name, "two  words");
  EXPECT_EQ(recording.vendor, 0x04DF);
  EXPECT_THAT(recording.events, ElementsAre(Recording::Event{7us, {0xAB, 0x0C}}));
}

TEST(RecordingTest, TakesANameOfNothing) {
  EXPECT_EQ(parseRecording("R: 1 06\nN:\nI: 3 4df 12\n").name, "");
}

TEST(RecordingTest, TakesEventsAtTheSameTime) {
  EXPECT_THAT(headWith("E: 2.000000 1 01\nE: 2.000000 1 02\n").events,
              ElementsAre(Recording::Event{2s, {0x01}}, Recording::Event{2s, {0x02}}));
}

TEST(RecordingTest, TakesTheLongestReport) {
  std::string line = "E: 0.000000 4096";
  for (int i = 0; i < 4096; ++i) line += " 5a";
  EXPECT_EQ(headWith(line).events.at(0).report, Bytes(4096, 0x5A));
}

struct Bad {
  const char* text;
  const char* complaint;
};

void PrintTo(const Bad& bad, std::ostream* out) {
  *out << testing::PrintToString(bad.text);
}

class BadRecordingTest : public testing::TestWithParam<Bad> {};

TEST_P(BadRecordingTest, IsRefusedWithThePlaceAndTheReason) {
  try {
    parseRecording(GetParam().text);
    FAIL() << "it was accepted";
  } catch (const RecordingError& error) {
    EXPECT_STREQ(error.what(), GetParam().complaint);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Head, BadRecordingTest,
    testing::Values(
        Bad{"", "line 1, column 1: the R: line is missing"},
        Bad{"R: 1 06\n", "line 2, column 1: the N: line is missing"},
        Bad{"R: 1 06\nN: a\n", "line 3, column 1: the I: line is missing"},
        Bad{"X: 1\n", "line 1, column 1: a line begins with R:, N:, I:, P:, D:, E: or #"},
        Bad{"R 1 06\n", "line 1, column 1: a line begins with R:, N:, I:, P:, D:, E: or #"},
        Bad{" R: 1 06\n", "line 1, column 1: a line begins with R:, N:, I:, P:, D:, E: or #"},
        Bad{"R", "line 1, column 1: a line begins with R:, N:, I:, P:, D:, E: or #"},
        Bad{"\r\n", "line 1, column 1: a line begins with R:, N:, I:, P:, D:, E: or #"},
        Bad{"R: 1 06\nR: 1 06\n", "line 2, column 1: this line appears twice"},
        Bad{"N: a\nN: a\n", "line 2, column 1: this line appears twice"},
        Bad{"I: 3 1 2\nI: 3 1 2\n", "line 2, column 1: this line appears twice"},
        Bad{"D: 1\n",
            "line 1, column 4: only device 0 is expected: recordings of several devices are not "
            "supported"},
        Bad{"D: 0 0\n", "line 1, column 6: the line should end here"},
        Bad{"I: 3 04df\n", "line 1, column 10: a number from 0 to ffff in hexadecimal is expected"},
        Bad{"I: 3 104df 0012\n",
            "line 1, column 6: a number from 0 to ffff in hexadecimal is expected"},
        Bad{"I: 3 0x4df 0012\n",
            "line 1, column 6: a number from 0 to ffff in hexadecimal is expected"},
        Bad{"I: 3 -1 0012\n",
            "line 1, column 6: a number from 0 to ffff in hexadecimal is expected"},
        Bad{"I: 3 1 2 4\n", "line 1, column 10: the line should end here"}));

INSTANTIATE_TEST_SUITE_P(
    Bytes, BadRecordingTest,
    testing::Values(
        Bad{"R:\n", "line 1, column 3: a number of bytes from 1 to 4096 is expected"},
        Bad{"R: 0\n", "line 1, column 4: a number of bytes from 1 to 4096 is expected"},
        Bad{"R: 4097 00\n", "line 1, column 4: a number of bytes from 1 to 4096 is expected"},
        Bad{"R: 99999999999999999999 00\n",
            "line 1, column 4: a number of bytes from 1 to 4096 is expected"},
        Bad{"R: 1x 00\n", "line 1, column 4: a number of bytes from 1 to 4096 is expected"},
        Bad{"R: 2 06\n", "line 1, column 8: a byte as two hexadecimal digits is expected"},
        Bad{"R: 4096 06\n", "line 1, column 11: a byte as two hexadecimal digits is expected"},
        Bad{"R: 1 6\n", "line 1, column 6: a byte as two hexadecimal digits is expected"},
        Bad{"R: 1 006\n", "line 1, column 6: a byte as two hexadecimal digits is expected"},
        Bad{"R: 1 0g\n", "line 1, column 6: a byte as two hexadecimal digits is expected"},
        Bad{"R: 1 -1\n", "line 1, column 6: a byte as two hexadecimal digits is expected"},
        Bad{"R: 1 06\r\n", "line 1, column 6: a byte as two hexadecimal digits is expected"},
        Bad{"R: 1 06 07\n", "line 1, column 9: the line should end here"}));

INSTANTIATE_TEST_SUITE_P(
    Events, BadRecordingTest,
    testing::Values(Bad{"E: 0.000000 1 00\n", "line 1, column 1: the R: line is missing"},
                    Bad{"R: 1 06\nN: a\nE: 0.000000 1 00\n",
                        "line 3, column 1: the I: line is missing"},
                    Bad{"R: 1 06\nN: a\nI: 3 1 2\nE: 1 1 00\n",
                        "line 4, column 4: a time as seconds.microseconds is expected"},
                    Bad{"R: 1 06\nN: a\nI: 3 1 2\nE: 0.5 1 00\n",
                        "line 4, column 4: a time as seconds.microseconds is expected"},
                    Bad{"R: 1 06\nN: a\nI: 3 1 2\nE: 0.0000000 1 00\n",
                        "line 4, column 4: a time as seconds.microseconds is expected"},
                    Bad{"R: 1 06\nN: a\nI: 3 1 2\nE: .000000 1 00\n",
                        "line 4, column 4: a time as seconds.microseconds is expected"},
                    Bad{"R: 1 06\nN: a\nI: 3 1 2\nE: -1.000000 1 00\n",
                        "line 4, column 4: a time as seconds.microseconds is expected"},
                    Bad{"R: 1 06\nN: a\nI: 3 1 2\nE: 9999999999.000000 1 00\n",
                        "line 4, column 4: a time as seconds.microseconds is expected"},
                    Bad{"R: 1 06\nN: a\nI: 3 1 2\nE:\n",
                        "line 4, column 3: a time as seconds.microseconds is expected"},
                    Bad{"R: 1 06\nN: a\nI: 3 1 2\nE: 1.000000 1 00\nE: 0.999999 1 00\n",
                        "line 5, column 4: the time goes back"},
                    Bad{"R: 1 06\nN: a\nI: 3 1 2\nE: 1.000000\n",
                        "line 4, column 12: a number of bytes from 1 to 4096 is expected"},
                    Bad{"R: 1 06\nN: a\nI: 3 1 2\nE: 1.000000 0\n",
                        "line 4, column 13: a number of bytes from 1 to 4096 is expected"},
                    Bad{"R: 1 06\nN: a\nI: 3 1 2\nE: 1.000000 2 00 zz\n",
                        "line 4, column 18: a byte as two hexadecimal digits is expected"},
                    Bad{"R: 1 06\nN: a\nI: 3 1 2\nE: 1.000000 1 00 00\n",
                        "line 4, column 18: the line should end here"}));

TEST(RecordingTest, ReportsThePlaceOfAnErrorAsNumbersToo) {
  try {
    headWith("E: 0.000000 2 00 zz\n");
    FAIL() << "it was accepted";
  } catch (const RecordingError& error) {
    EXPECT_EQ(error.line(), 4U);
    EXPECT_EQ(error.column(), 18U);
  }
}

TEST(RecordingWriterTest, WritesTheHeadAtOnce) {
  std::ostringstream out;
  const RecordingWriter writer(out, {.product = 0x12, .name = "Vela USB"}, Bytes{0x06, 0xC0});
  EXPECT_EQ(out.str(),
            "# input reports of a virtual pad\nD: 0\nR: 2 06 c0\nN: Vela USB\nI: 3 04df 0012\n");
}

TEST(RecordingWriterTest, WritesEachReportAtOnceWithTheTimeSinceTheFirst) {
  std::ostringstream out;
  RecordingWriter writer(out, {}, {});
  out.str("");
  EXPECT_TRUE(writer.write(7'000'000us, {0x20, 0x5A, 0x00}));
  EXPECT_EQ(out.str(), "E: 000000.000000 3 20 5a 00\n");
  out.str("");
  EXPECT_TRUE(writer.write(8'905'001us, {0xFF}));
  EXPECT_EQ(out.str(), "E: 000001.905001 1 ff\n");
  out.str("");
  EXPECT_TRUE(writer.write(10'000'000us, {0x01}));
  EXPECT_EQ(out.str(), "E: 000003.000000 1 01\n");
}

// A file on a full disk: the error is reported when the data is flushed.
class FullDisk : public std::stringbuf {
 protected:
  int sync() override { return -1; }
};

TEST(RecordingWriterTest, ReportsThatTheStreamHasFailed) {
  FullDisk disk;
  std::ostream out(&disk);
  RecordingWriter writer(out, {}, {});
  EXPECT_FALSE(writer.write(0us, {0x20}));
}

class RecordingFileTest : public testing::Test {
 protected:
  ~RecordingFileTest() override { std::filesystem::remove(file); }

  const std::filesystem::path file =
      testing::TempDir() + "recording-" + std::to_string(getpid()) + ".hid";
};

TEST_F(RecordingFileTest, IsRead) {
  std::ofstream(file) << kWhole;
  EXPECT_EQ(readRecording(file), parseRecording(kWhole));
}

TEST_F(RecordingFileTest, ThatIsNoneIsRefused) {
  std::ofstream(file) << "no recording\n";
  EXPECT_THROW(readRecording(file), RecordingError);
}

int errorOf(const std::filesystem::path& path) {
  try {
    readRecording(path);
  } catch (const std::system_error& error) {
    return error.code().value();
  }
  return 0;
}

TEST_F(RecordingFileTest, ThatIsMissingIsReported) {
  EXPECT_EQ(errorOf(file), ENOENT);
}

TEST_F(RecordingFileTest, ThatIsADirectoryIsReported) {
  EXPECT_EQ(errorOf(testing::TempDir()), EISDIR);
}

TEST_F(RecordingFileTest, WithoutEndIsReported) {
  EXPECT_EQ(errorOf("/dev/zero"), EFBIG);
}

}  // namespace
}  // namespace virtualpads
