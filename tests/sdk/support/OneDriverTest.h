// The base of tests of a single driver.
#ifndef TESTS_SDK_SUPPORT_ONEDRIVERTEST_H
#define TESTS_SDK_SUPPORT_ONEDRIVERTEST_H

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <utility>

#include "support/PadTest.h"
#include "support/ScriptedPad.h"
#include "support/TimeControl.h"
#include "support/Written.h"

namespace support {

// Processor time stands still, so that no keep-alive is due unless a test says so. The connection
// is closed after the test.
template <class Driver, std::uint16_t product>
class OneDriverTest : public PadTest {
 protected:
  OneDriverTest() { time.stopProcessorTime(0); }
  ~OneDriverTest() override { driver.CloseConnection(); }

  void open(std::shared_ptr<virtualpads::PadModel> pad) {
    plug(std::move(pad));
    ASSERT_EQ(driver.OpenConnection(recordPen), 1);
    bus.clearLog();
  }

  void openScripted() { open(scripted); }

  // The next reply, whole reports aside.
  void answer(int result) { bus.fail(HidCall::GetFeature, {Fault::Kind::Return, result}); }
  void cut(int bytes) { bus.fail(HidCall::GetFeature, {Fault::Kind::Short, bytes}); }
  // The result of the next report that is sent.
  void take(int result) { bus.fail(HidCall::SendFeature, {Fault::Kind::Return, result}); }

  TimeControl time;
  std::shared_ptr<ScriptedPad> scripted = std::make_shared<ScriptedPad>(product);
  Driver driver;
};

}  // namespace support

#endif
