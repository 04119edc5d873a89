// hidapi's functions, as a program uses them.
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cwchar>
#include <set>
#include <string>
#include <vector>

#include "BusTest.h"

namespace virtualpads {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using HidapiFaceTest = BusTest;

// Tests that want other pads.
class EmptyBusTest : public BusTest {
 protected:
  EmptyBusTest() {
    close();
    bus.reset();
  }
};

struct Entry {
  unsigned short vendor;
  unsigned short product;
  std::wstring name;
  int interface;
  bool operator==(const Entry&) const = default;
};

std::vector<Entry> enumerated(unsigned short vendor, unsigned short product) {
  std::vector<Entry> entries;
  hid_device_info* const list = hid_enumerate(vendor, product);
  for (const hid_device_info* entry = list; entry; entry = entry->next) {
    entries.push_back(
        {entry->vendor_id, entry->product_id, entry->product_string, entry->interface_number});
  }
  hid_free_enumeration(list);
  return entries;
}

TEST_F(EmptyBusTest, InitialisesAndShutsDownAndEnumeratesNothing) {
  EXPECT_EQ(hid_init(), 0);
  EXPECT_EQ(hid_enumerate(0, 0), nullptr);
  hid_free_enumeration(nullptr);
  EXPECT_EQ(hid_exit(), 0);
}

TEST_F(EmptyBusTest, EnumeratesThePadsInTheOrderOfPluggingWithEachInterface) {
  bus.plug(makePad(PadKind::Vision));
  bus.plug(makePad(PadKind::Usb), 2);
  bus.plug(makePad(PadKind::Ink), 0);
  bus.unplug(bus.plug(makePad(PadKind::Usb)));
  bus.setAccessible(bus.plug(makePad(PadKind::Ii)), false);
  const Entry vision{1247, 56, L"Vela Vision", 0};
  const Entry ii{1247, 31, L"Vela II", 0};
  const Entry usb{1247, 18, L"Vela USB", 0};
  const Entry second{1247, 18, L"Vela USB", 1};
  EXPECT_THAT(enumerated(0, 0), ElementsAre(vision, usb, second, ii));
  // Zero stands for any.
  EXPECT_THAT(enumerated(1247, 0), ElementsAre(vision, usb, second, ii));
  EXPECT_THAT(enumerated(0, 56), ElementsAre(vision));
  EXPECT_THAT(enumerated(1247, 31), ElementsAre(ii));
  EXPECT_THAT(enumerated(1248, 0), IsEmpty());
  EXPECT_THAT(enumerated(0, 48), IsEmpty());
}

TEST_F(EmptyBusTest, GivesEachEntryAPathOfItsOwn) {
  bus.plug(makePad(PadKind::Usb), 2);
  bus.plug(makePad(PadKind::Usb));
  hid_device_info* const list = hid_enumerate(0, 0);
  const std::set<std::string> paths{list->path, list->next->path, list->next->next->path};
  hid_free_enumeration(list);
  EXPECT_EQ(paths.size(), 3U);
}

TEST_F(HidapiFaceTest, OpensOnlyExactIds) {
  EXPECT_EQ(hid_open(kVendor, kIiPad, nullptr), nullptr);
  EXPECT_EQ(hid_open(kVendor + 1, kVisionPad, nullptr), nullptr);
  EXPECT_EQ(hid_open(0, 0, nullptr), nullptr);
  EXPECT_EQ(hid_open(kVendor, kVisionPad, L"12"), nullptr);
  EXPECT_EQ(bus.openHandles(port), 1);
}

TEST_F(EmptyBusTest, OpensTheFirstPluggedOfEqualPadsThatShowsANode) {
  const auto unplugged = bus.plug(makePad(PadKind::Usb));
  const auto withoutNode = bus.plug(makePad(PadKind::Usb), 0);
  const auto first = bus.plug(makePad(PadKind::Usb));
  const auto second = bus.plug(makePad(PadKind::Usb));
  bus.unplug(unplugged);
  bus.setAccessible(first, false);
  EXPECT_EQ(hid_open(kVendor, kUsbPad, nullptr), nullptr);
  bus.setAccessible(first, true);
  dev = hid_open(kVendor, kUsbPad, nullptr);
  EXPECT_EQ(bus.openHandles(withoutNode), 0);
  EXPECT_EQ(bus.openHandles(first), 1);
  EXPECT_EQ(bus.openHandles(second), 0);
}

TEST_F(HidapiFaceTest, ReadsReportsInTheirOrder) {
  EXPECT_EQ(hid_set_nonblocking(dev, 0), 0);
  bus.send(port, {1, 2, 3, 4, 5, 6});
  bus.send(port, {7, 8});
  EXPECT_EQ(read(dev, 0), (ReadResult{6, {1, 2, 3, 4, 5, 6}}));
  EXPECT_EQ(read(dev, 0), (ReadResult{2, {7, 8}}));
  EXPECT_EQ(read(dev, 0), (ReadResult{0, {}}));
}

TEST_F(HidapiFaceTest, CutsAReportToTheReadersBufferAndLosesTheRest) {
  bus.send(port, {1, 2, 3, 4, 5, 6});
  bus.send(port, {7, 8, 9, 10, 11, 12});
  EXPECT_EQ(read(dev, 0, 2), (ReadResult{2, {1, 2}}));
  EXPECT_EQ(read(dev, 0, 2), (ReadResult{2, {7, 8}}));
}

TEST_F(HidapiFaceTest, WakesAReadThatWaits) {
  auto reader = waitingRead();
  EXPECT_EQ(bus.count(HidCall::Read), 0);
  bus.send(port, {1, 2, 3});
  EXPECT_EQ(reader.get(), (ReadResult{3, {1, 2, 3}}));
}

TEST_F(HidapiFaceTest, ReturnsZeroWhenNothingCameInTime) {
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(read(dev, 20), (ReadResult{0, {}}));
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(20));
}

TEST_F(HidapiFaceTest, KeepsSixtyThreeUnreadReportsAndDropsTheRest) {
  for (int i = 0; i < 63; ++i) EXPECT_TRUE(bus.send(port, numbered(i)));
  EXPECT_FALSE(bus.send(port, numbered(63)));
  EXPECT_EQ(read(dev, 0).bytes, numbered(0));
  EXPECT_TRUE(bus.send(port, numbered(65)));
  for (int i = 1; i < 63; ++i) EXPECT_EQ(read(dev, 0).bytes, numbered(i));
  EXPECT_EQ(read(dev, 0).bytes, numbered(65));
  EXPECT_EQ(read(dev, 0).result, 0);
}

TEST_F(HidapiFaceTest, GivesEachHandleEveryReport) {
  bus.send(port, numbered(1));
  hid_device* const other = hid_open(kVendor, kVisionPad, nullptr);
  bus.send(port, numbered(2));
  EXPECT_EQ(read(dev, 0).bytes, numbered(1));
  EXPECT_EQ(read(dev, 0).bytes, numbered(2));
  EXPECT_EQ(read(other, 0).bytes, numbered(2));
  EXPECT_EQ(read(other, 0).result, 0);
  hid_close(other);
}

TEST_F(HidapiFaceTest, FailsReadsAfterAnUnplugWithoutTheUnreadReports) {
  auto reader = waitingRead();
  bus.unplug(port);
  EXPECT_EQ(reader.get().result, -1);
  EXPECT_EQ(read(dev, kForEver).result, -1);
  close();
  port = bus.plug(pad);
  dev = hid_open(kVendor, kVisionPad, nullptr);
  bus.send(port, numbered(1));
  bus.unplug(port);
  EXPECT_EQ(read(dev, kForEver).result, -1);
}

TEST_F(HidapiFaceTest, DoesNotBringAHandleBackByReplugging) {
  bus.unplug(port);
  const auto again = bus.plug(pad);
  EXPECT_EQ(read(dev, kForEver).result, -1);
  EXPECT_EQ(getFeature(dev, 4), -1);
  hid_device* const second = hid_open(kVendor, kVisionPad, nullptr);
  EXPECT_EQ(getFeature(second, 4), 17);
  EXPECT_EQ(bus.openHandles(again), 1);
  hid_close(second);
}

TEST_F(HidapiFaceTest, GetsAFeatureReportCutToTheBuffer) {
  unsigned char buffer[36] = {2};
  std::fill(buffer + 1, buffer + 36, std::uint8_t{0xEE});
  EXPECT_EQ(hid_get_feature_report(dev, buffer, 3), 3);
  EXPECT_EQ(Bytes(buffer, buffer + 4), (Bytes{2, 0x01, 0x23, 0xEE}));
  EXPECT_EQ(hid_get_feature_report(dev, buffer, 36), 34);
  EXPECT_EQ(Bytes(buffer + 15, buffer + 18), (Bytes{0xDC, 0xFE, 0x00}));
  EXPECT_EQ(Bytes(buffer + 33, buffer + 36), (Bytes{0x00, 0xEE, 0xEE}));
}

TEST_F(HidapiFaceTest, SetsAFeatureReport) {
  EXPECT_EQ(setFeature(dev, {4, 1}), 17);
  EXPECT_EQ(pad->mode(), 1);
}

TEST_F(HidapiFaceTest, FailsFeatureCallsThatThePadOrTheKernelRefuses) {
  EXPECT_EQ(getFeature(dev, 5), -1);
  EXPECT_EQ(setFeature(dev, {5}), -1);
  EXPECT_EQ(setFeature(dev, {4, 1}, 16), -1);
  EXPECT_EQ(getFeature(dev, 4, 1), -1);
  EXPECT_EQ(setFeature(dev, {18}, 1), -1);
  EXPECT_EQ(hid_get_feature_report(dev, nullptr, 17), -1);
  EXPECT_EQ(hid_send_feature_report(dev, nullptr, 17), -1);
}

TEST_F(HidapiFaceTest, FailsFeatureCallsAfterAnUnplugWithoutAskingThePad) {
  bus.unplug(port);
  EXPECT_EQ(getFeature(dev, 3), -1);
  EXPECT_EQ(setFeature(dev, {4, 1}), -1);
  EXPECT_EQ(pad->resets(), 0);
  EXPECT_EQ(pad->mode(), 0);
}

TEST_F(HidapiFaceTest, FailsWritesSinceNoPadHasOutputReports) {
  const unsigned char report[2] = {0, 1};
  EXPECT_EQ(hid_write(dev, report, 2), -1);
  EXPECT_EQ(hid_write(dev, nullptr, 2), -1);
  EXPECT_EQ(hid_write(dev, report, 0), -1);
}

TEST_F(EmptyBusTest, LogsEachCallInTheOrderOfItsBegin) {
  bus.plug(makePad(PadKind::Vision));
  hid_init();
  hid_free_enumeration(hid_enumerate(0, 0));
  EXPECT_EQ(hid_open(kVendor, kInkPad, nullptr), nullptr);
  dev = hid_open(kVendor, kVisionPad, nullptr);
  hid_set_nonblocking(dev, 1);
  getFeature(dev, 4, 3);
  setFeature(dev, {4, 9}, 17);
  setFeature(dev, {7, 8}, 2);
  read(dev, 0, 17);
  const unsigned char report[1] = {5};
  hid_write(dev, report, 1);
  close();
  hid_exit();
  const CallRecord kRead{HidCall::Read, {}, 17, 0};
  const std::vector<CallRecord> expected = {
      {HidCall::Init, {}, 0, 0},
      {HidCall::Enumerate, {}, 0, 1},
      {HidCall::FreeEnumeration, {}, 0, 0},
      {HidCall::Open, {}, 48, 0},
      {HidCall::Open, {}, 56, 1},
      {HidCall::SetNonblocking, {}, 1, 0},
      {HidCall::GetFeature, {4, 0, 0}, 3, 3},
      {HidCall::SendFeature, {4, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 17, 17},
      {HidCall::SendFeature, {7, 8}, 2, -1},
      {HidCall::Write, {5}, 1, -1},
      {HidCall::Close, {}, 0, 0},
      {HidCall::Exit, {}, 0, 0},
  };
  EXPECT_EQ(bus.calls(), expected);
  EXPECT_THAT(bus.calls({HidCall::Read}), ElementsAre(kRead));
  EXPECT_THAT(bus.calls({HidCall::Read, HidCall::Init}), ElementsAre(expected[0], kRead));
}

}  // namespace
}  // namespace virtualpads
