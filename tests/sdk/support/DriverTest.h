// The base of tests that run with each driver, by the pad's row of the table.
#ifndef TESTS_SDK_SUPPORT_DRIVERTEST_H
#define TESTS_SDK_SUPPORT_DRIVERTEST_H

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "PenRecordQueue.h"
#include "SharedQueue.h"
#include "VisionRecordQueue.h"
#include "support/PadTable.h"
#include "support/PadTest.h"
#include "velaii.h"
#include "velainkusb.h"
#include "velausb.h"
#include "velavision.h"

namespace support {

class AnyDriver {
 public:
  virtual ~AnyDriver() = default;
  virtual const void* object() const = 0;
  virtual int open(PenEventHandler handler) = 0;
  virtual int openWithoutHandler() = 0;
  virtual int close() = 0;
  virtual bool running() = 0;
  virtual void stopRunning() = 0;
  virtual void process() = 0;
  virtual int count() = 0;
  virtual bool ranges(const std::array<int*, 6>& ends) = 0;
  virtual double width() = 0;
  virtual double height() = 0;
  virtual bool queueExists() const = 0;
  virtual void releaseQueue() = 0;
  // The next queued sample, where the queue holds PEN_DATA.
  virtual std::unique_ptr<PEN_DATA> takeQueued() = 0;
};

template <class Driver, auto& queue>
class DriverWith : public AnyDriver {
 public:
  const void* object() const override { return &m_driver; }
  int open(PenEventHandler handler) override { return m_driver.OpenConnection(handler); }
  int openWithoutHandler() override { return m_driver.OpenConnection(); }
  int close() override { return m_driver.CloseConnection(); }
  bool running() override { return m_driver.GetRunningState(); }
  void stopRunning() override { m_driver.SetRunningFalse(); }
  void process() override { m_driver.procdata_routine(); }
  int count() override { return m_driver.GetNumDevices(); }
  bool ranges(const std::array<int*, 6>& to) override {
    return m_driver.GetDataRanges(to[0], to[1], to[2], to[3], to[4], to[5]);
  }
  double width() override { return m_driver.GetPhysicalX(); }
  double height() override { return m_driver.GetPhysicalY(); }
  bool queueExists() const override { return queue != nullptr; }
  void releaseQueue() override { SharedQueue::release(queue); }
  std::unique_ptr<PEN_DATA> takeQueued() override {
    if constexpr (std::is_same_v<decltype(queue->GetRecord(true)), PEN_DATA*>)
      return std::unique_ptr<PEN_DATA>(queue->GetRecord(true));
    else
      return nullptr;
  }

 private:
  Driver m_driver;
};

inline std::unique_ptr<AnyDriver> makeDriver(virtualpads::PadKind kind) {
  switch (kind) {
    case virtualpads::PadKind::Usb:
      return std::make_unique<DriverWith<velausb, pUSBDataHandler>>();
    case virtualpads::PadKind::Ii:
      return std::make_unique<DriverWith<velaii, pDataHandler>>();
    case virtualpads::PadKind::Ink:
      return std::make_unique<DriverWith<velainkusb, pInkDataHandler>>();
    case virtualpads::PadKind::Vision:
      return std::make_unique<DriverWith<velavision, pVisionDataHandler>>();
  }
  throw std::invalid_argument("a kind of pad without a driver");
}

class PadDriverTest : public PadTest, public testing::WithParamInterface<PadRow> {
 protected:
  ~PadDriverTest() override {
    if (driver) driver->close();
    EXPECT_FALSE(makeDriver(pad.kind)->queueExists());
    EXPECT_TRUE(waitForThreads(0));
  }

  // Plugs the pad, set to what the row says.
  void plugPad() {
    plug(virtualpads::makePad(pad.kind));
    if (*pad.before == '\0') return;
    const std::size_t length = pad.kind == virtualpads::PadKind::Vision ? 34 : 17;
    bus.withModel(port, [&](virtualpads::PadModel& model) {
      EXPECT_TRUE(model.setFeature(hex(pad.before, length)));
    });
  }

  void open() {
    plugPad();
    ASSERT_EQ(driver->open(recordPen), 1);
  }

  void sendReport(const PenReport& report) { sendPart(report, pad.reportSize); }
  void sendReport() { sendReport(pad.stroke[0]); }

  void sendPart(const PenReport& report, int length) {
    Bytes bytes = hex(report.bytes, static_cast<std::size_t>(pad.reportSize));
    bytes.resize(static_cast<std::size_t>(length));
    EXPECT_TRUE(bus.sendWhenRoom(port, bytes));
  }

  std::vector<Pen> pens() {
    std::vector<Pen> all;
    for (const Sample& sample : recorder.samples())
      all.push_back({sample.x, sample.y, sample.pressure, sample.touch});
    return all;
  }

  const PadRow& pad = GetParam();
  std::unique_ptr<AnyDriver> driver = makeDriver(pad.kind);
};

}  // namespace support

#endif
