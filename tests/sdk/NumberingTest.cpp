// The numbers of samples, from the first report of the process on. A separate program, because the
// numbers continue for the lifetime of the process, as the vision pad's last position does.
#include <gtest/gtest.h>

#include <vector>

#include "support/DriverTest.h"

namespace {

using support::Sample;
using virtualpads::PadKind;

using NumberingTest = support::PadDriverTest;
using ReportNumberingTest = NumberingTest;
using SampleNumberingTest = NumberingTest;

INSTANTIATE_TEST_SUITE_P(Pads, ReportNumberingTest,
                         testing::Values(support::padRow(PadKind::Usb),
                                         support::padRow(PadKind::Ii)),
                         support::nameOfRow);

TEST_P(ReportNumberingTest, CompleteReportsAreNumberedFromOneTo127OverAllConnections) {
  open();
  sendReport(pad.penUp);  // dropped, and number 1 with it
  sendPart(pad.stroke[0], pad.reportSize - 1);
  for (int i = 0; i < 127; ++i) sendReport();
  ASSERT_TRUE(recorder.waitFor(127));
  driver->close();
  driver = support::makeDriver(pad.kind);
  ASSERT_EQ(driver->open(support::recordPen), 1);
  sendReport(pad.penUp);  // dropped, and number 2 with it
  sendReport(pad.penUp);
  ASSERT_TRUE(recorder.waitFor(128));
  const std::vector<Sample> samples = recorder.samples();
  EXPECT_EQ(samples[0].sequence, 2U);
  EXPECT_EQ(samples[125].sequence, 127U);
  EXPECT_EQ(samples[126].sequence, 1U);
  EXPECT_EQ(samples[127].sequence, 3U);
}

INSTANTIATE_TEST_SUITE_P(Pads, SampleNumberingTest,
                         testing::Values(support::padRow(PadKind::Vision)), support::nameOfRow);

TEST_P(SampleNumberingTest, SamplesAreNumberedFromOneTo255AndZeroAndAPenThatNeverTouchedIsAtZero) {
  open();
  sendReport(pad.penUp);
  for (int i = 0; i < 256; ++i) sendReport();
  ASSERT_TRUE(recorder.waitFor(257));
  const std::vector<Sample> samples = recorder.samples();
  EXPECT_EQ(samples[0], (Sample{0, 0, 0, 0, 1}));
  EXPECT_EQ(samples[254].sequence, 255U);
  EXPECT_EQ(samples[255].sequence, 0U);
  EXPECT_EQ(samples[256].sequence, 1U);
}

}  // namespace
