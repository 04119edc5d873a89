// The base of tests that drive one pad over the virtual bus.
#ifndef TESTS_SDK_SUPPORT_PADTEST_H
#define TESTS_SDK_SUPPORT_PADTEST_H

#include <memory>
#include <string_view>
#include <utility>

#include "support/BusTest.h"
#include "support/Patience.h"
#include "support/PenRecorder.h"
#include "support/ProcessState.h"
#include "support/Reports.h"

namespace support {

class PadTest : public BusTest {
 protected:
  PadTest() { recorder.reset(); }

  void plug(std::shared_ptr<virtualpads::PadModel> pad) { port = bus.plug(std::move(pad)); }

  // Sends an input report from the pad.
  void send(std::string_view report) { EXPECT_TRUE(bus.sendWhenRoom(port, hex(report))); }

  // Whether there are `count` more threads than between two tests.
  bool threadsRun(long count) const { return threadCount() == m_idleThreads + count; }
  // Waits until it is so, since a joined thread may be visible a moment longer. False after
  // kPatience.
  bool waitForThreads(long count) const {
    return comesTrue([&] { return threadsRun(count); });
  }

  VirtualBus::Port port = 0;
  PenRecorder& recorder = penRecorder();

 private:
  static inline const long m_idleThreads = idleThreadCount();
};

}  // namespace support

#endif
