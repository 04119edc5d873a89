// The numbers of the USB pad's samples, from the first report of the process on. A separate
// program, because the numbers continue for the lifetime of the process.
#include <gtest/gtest.h>

#include <memory>

#include "support/PadTest.h"
#include "velausb.h"
#include "virtualpads/PadModel.h"

namespace {

using support::recordPen;
using support::Sample;
using virtualpads::makePad;
using virtualpads::PadKind;

using UsbNumberingTest = support::PadTest;

TEST_F(UsbNumberingTest, RunsFromOneTo127AndAgainOverAllConnections) {
  plug(makePad(PadKind::Usb));
  {
    velausb driver;
    ASSERT_EQ(driver.OpenConnection(recordPen), 1);
    send("00 5A 00 2D 00 01");  // dropped, and number 1 with it
    send("00 5A 00 2D 00 02");
    ASSERT_TRUE(recorder.waitFor(1));
    EXPECT_EQ(recorder.samples().back(), (Sample{0, 0, 2, 0, 2}));

    for (int i = 0; i < 125; ++i) send("20 5A 00 2D 00 03");
    ASSERT_TRUE(recorder.waitFor(126));
    EXPECT_EQ(recorder.samples().back(), (Sample{0, 0, 3, 1, 127}));
    send("20 5A 00 2D 00 04");
    ASSERT_TRUE(recorder.waitFor(127));
    EXPECT_EQ(recorder.samples().back(), (Sample{0, 0, 4, 1, 1}));
    driver.CloseConnection();
  }
  {
    velausb driver;
    ASSERT_EQ(driver.OpenConnection(recordPen), 1);
    send("20 5A 00 2D 00 05");
    ASSERT_TRUE(recorder.waitFor(128));
    EXPECT_EQ(recorder.samples().back(), (Sample{0, 0, 5, 1, 2}));
    driver.CloseConnection();
  }
  {
    velausb driver;
    ASSERT_EQ(driver.OpenConnection(recordPen), 1);
    send("00 5A 00 2D 00 06");  // dropped, and number 3 with it
    send("00 5A 00 2D 00 07");
    ASSERT_TRUE(recorder.waitFor(129));
    EXPECT_EQ(recorder.samples().back(), (Sample{0, 0, 7, 0, 4}));
    driver.CloseConnection();
  }
}

}  // namespace
