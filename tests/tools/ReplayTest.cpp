#include "tools/Replay.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace virtualpads {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

Recording recordingOf(std::vector<Recording::Event> events) {
  Recording recording;
  recording.events = std::move(events);
  return recording;
}

Recording recordingOf(std::uint16_t vendor, std::uint16_t product) {
  Recording recording;
  recording.vendor = vendor;
  recording.product = product;
  return recording;
}

class ReplayTest : public testing::Test {
 protected:
  std::size_t play(const Recording& recording) {
    return replay(
        recording,
        [this](std::chrono::microseconds since) {
          log.push_back("wait " + std::to_string(since.count()));
        },
        [this](const Bytes& report) {
          log.push_back("send " + std::to_string(report.at(0)));
          return report.at(0) != lostReport;
        });
  }

  std::vector<std::string> log;
  int lostReport = -1;
};

TEST_F(ReplayTest, SendsEachReportAtItsTimeSinceTheFirst) {
  EXPECT_EQ(play(recordingOf({{100us, {1}}, {100us, {2}}, {5350us, {3}}})), 0U);
  EXPECT_THAT(log, ElementsAre("wait 0", "send 1", "wait 0", "send 2", "wait 5250", "send 3"));
}

TEST_F(ReplayTest, CountsTheReportsThatNobodyGotAndGoesOn) {
  lostReport = 2;
  EXPECT_EQ(play(recordingOf({{0us, {1}}, {1us, {2}}, {2us, {2}}, {3us, {3}}})), 2U);
  EXPECT_EQ(log.back(), "send 3");
}

TEST_F(ReplayTest, OfNothingSendsNothing) {
  EXPECT_EQ(play(recordingOf({})), 0U);
  EXPECT_THAT(log, IsEmpty());
}

TEST(RecordingOfTest, ThePadIsTaken) {
  EXPECT_NO_THROW(requireRecordingOf({.product = 0x30}, recordingOf(0x04DF, 0x30)));
}

TEST(RecordingOfTest, AnotherDeviceIsRefused) {
  for (const Recording& recording : {recordingOf(0x04DF, 0x12), recordingOf(0x04DE, 0x30)})
    EXPECT_THROW(requireRecordingOf({.product = 0x30}, recording), OtherPadError);
  try {
    requireRecordingOf({.product = 0x30}, recordingOf(0x04DF, 0x12));
    FAIL() << "it was accepted";
  } catch (const OtherPadError& error) {
    EXPECT_STREQ(error.what(), "recorded from another device, 04df:0012");
  }
}

}  // namespace
}  // namespace virtualpads
