// A client's use of each pad through the facade and the drivers.
#include "support/FaultSweep.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <tuple>

#include "giivela.h"
#include "support/PenRecorder.h"
#include "support/TimeControl.h"
#include "velaii.h"
#include "velainkusb.h"
#include "velavision.h"

namespace {

using support::HidCall;
using support::PadRow;
using support::Pen;
using support::PenReport;
using support::Sample;
using support::TimeControl;
using virtualpads::PadKind;

class FaultSweepTest : public support::FaultSweep,
                       public testing::WithParamInterface<support::Swept> {
 protected:
  FaultSweepTest() : FaultSweep(std::get<PadRow>(GetParam())) {}

  void use() override {
    recorder.reset();
    TimeControl time;
    time.stopProcessorTime(0);
    gIIVela facade;
    EXPECT_TRUE(facade.OpenProvider(std::string(pad.classId).data()));
    facade.GetNumDevices();
    EXPECT_TRUE(facade.RegisterEventHandler(support::recordPen));
    EXPECT_TRUE(facade.OpenConnection());
    std::free(facade.GetSerialNumber());
    facade.GetDataRangeMaxX();
    facade.GetPhysicalX();
    facade.GetPhysicalY();
    useFeatures();
    stroke();
    if (pad.kind == PadKind::Vision && connected()) awaitKeepAlive(time);
    facade.ClearInking();
    closeInTime([&] { facade.CloseConnection(); });
    facade.CloseProvider();
  }

  // The driver's own requests, bypassing the facade.
  void useFeatures() const {
    if (pad.kind == PadKind::Ii) {
      PAD_INFO_REPORT information{};
      m_pvelaii->GetPadInfo(&information);
    }
    if (pad.kind == PadKind::Ink) {
      velainkusb& driver = *m_pvelaink;
      driver.DrawBitmap(std::make_unique<LCD_SCREEN>().get());
      LCD_RECT region{20, 51, 295, 188};
      driver.SetInkingRegion(&region);
      driver.SetInkTraceOpt(1, 7);
      driver.SetBackLightOpt(2, 0, 9);
      driver.SetLayerState(1, 2);
      tagOPTIONS options{};
      driver.GetOptions(&options);
      driver.SetOptions(&options);
      driver.ResetVelaInkDevice();
    }
    if (pad.kind == PadKind::Vision) {
      velavision& driver = *m_pvelavision;
      driver.ResetVelaVisionDevice();
      unsigned char mode = 0;
      driver.SetMode(2);
      driver.GetMode(&mode);
      InkRegion region{};
      driver.GetInkRegion(&region);
      driver.SetInkRegion(region);
      DevicePadInfo information{};
      driver.GetPadInfo(&information);
    }
  }

  void awaitKeepAlive(TimeControl& time) {
    // The processing thread has looked at the time once, and finds its queue empty.
    EXPECT_TRUE(time.waitForSleeps(500, 1));
    const long sent = bus.count(HidCall::SendFeature);
    time.stopProcessorTime(10'000);
    EXPECT_TRUE(bus.waitForReturned(HidCall::SendFeature, sent + 1));
  }

  bool arrive(long samples) override { return recorder.waitFor(static_cast<std::size_t>(samples)); }

  // What arrived was sent, in this order.
  void expectAfterUse() override {
    auto next = pad.stroke.begin();
    for (const Sample& sample : recorder.samples()) {
      const Pen pen{sample.x, sample.y, sample.pressure, sample.touch};
      next = std::find_if(next, pad.stroke.end(),
                          [&](const PenReport& report) { return report.pen == pen; });
      ASSERT_NE(next, pad.stroke.end()) << testing::PrintToString(pen);
      ++next;
    }
  }

  support::PenRecorder& recorder = support::penRecorder();
};

TEST_P(FaultSweepTest, EachCallInTurn) {
  sweep(std::get<support::NamedFault>(GetParam()).fault);
}

INSTANTIATE_TEST_SUITE_P(Pads, FaultSweepTest, support::kSweeps, support::nameOfSweep);

}  // namespace
