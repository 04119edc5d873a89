// hidapi's functions, as a program uses them.
#include <gmock/gmock.h>

#include <cwchar>
#include <string>
#include <vector>

#include "BusTest.h"
#include "virtualpads/VisionPad.h"

namespace virtualpads {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using HidapiFace = BusTest;

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

TEST_F(HidapiFace, InitialisesAndShutsDown) {
  EXPECT_EQ(hid_init(), 0);
  EXPECT_EQ(hid_exit(), 0);
}

TEST_F(HidapiFace, EnumeratesNothingOnAnEmptyBus) {
  EXPECT_EQ(hid_enumerate(0, 0), nullptr);
  hid_free_enumeration(nullptr);
}

TEST_F(HidapiFace, EnumeratesThePadsInTheOrderOfPluggingWithEachInterface) {
  bus.plug(makePad(PadKind::Vision));
  bus.plug(makePad(PadKind::Usb), 2);
  bus.plug(makePad(PadKind::Ink), 0);
  EXPECT_THAT(enumerated(0, 0),
              ElementsAre(Entry{1247, 56, L"Vela Vision", 0}, Entry{1247, 18, L"Vela USB", 0},
                          Entry{1247, 18, L"Vela USB", 1}));
}

TEST_F(HidapiFace, EnumeratesByVendorAndProductWithZeroForAny) {
  bus.plug(makePad(PadKind::Ii));
  bus.plug(makePad(PadKind::Vision));
  const Entry ii{1247, 31, L"Vela II", 0};
  const Entry vision{1247, 56, L"Vela Vision", 0};
  EXPECT_THAT(enumerated(1247, 0), ElementsAre(ii, vision));
  EXPECT_THAT(enumerated(0, 56), ElementsAre(vision));
  EXPECT_THAT(enumerated(1247, 31), ElementsAre(ii));
  EXPECT_THAT(enumerated(1248, 0), IsEmpty());
  EXPECT_THAT(enumerated(0, 18), IsEmpty());
}

TEST_F(HidapiFace, GivesEachEntryAPathOfItsOwn) {
  bus.plug(makePad(PadKind::Usb), 2);
  bus.plug(makePad(PadKind::Usb));
  hid_device_info* const list = hid_enumerate(0, 0);
  const std::string first = list->path;
  const std::string second = list->next->path;
  const std::string third = list->next->next->path;
  hid_free_enumeration(list);
  EXPECT_NE(first, second);
  EXPECT_NE(first, third);
  EXPECT_NE(second, third);
}

TEST_F(HidapiFace, EnumeratesAnInaccessiblePadButNoUnpluggedOne) {
  bus.setAccessible(bus.plug(makePad(PadKind::Ink)), false);
  bus.unplug(bus.plug(makePad(PadKind::Usb)));
  EXPECT_THAT(enumerated(0, 0), ElementsAre(Entry{1247, 48, L"Vela Ink", 0}));
}

TEST_F(HidapiFace, OpensOnlyExactIds) {
  bus.plug(makePad(PadKind::Usb));
  EXPECT_EQ(hid_open(kVendor, kIiPad, nullptr), nullptr);
  EXPECT_EQ(hid_open(kVendor + 1, kUsbPad, nullptr), nullptr);
  EXPECT_EQ(hid_open(0, 0, nullptr), nullptr);
  EXPECT_EQ(hid_open(kVendor, kUsbPad, L"12"), nullptr);
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  EXPECT_NE(dev, nullptr);
  hid_close(dev);
}

TEST_F(HidapiFace, OpensTheFirstPluggedOfEqualPads) {
  const auto unplugged = bus.plug(makePad(PadKind::Usb));
  const auto withoutNode = bus.plug(makePad(PadKind::Usb), 0);
  const auto first = bus.plug(makePad(PadKind::Usb));
  const auto second = bus.plug(makePad(PadKind::Usb));
  bus.unplug(unplugged);
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  EXPECT_EQ(bus.openHandles(withoutNode), 0);
  EXPECT_EQ(bus.openHandles(first), 1);
  EXPECT_EQ(bus.openHandles(second), 0);
  hid_close(dev);
}

TEST_F(HidapiFace, DoesNotOpenAnotherPadWhenTheFirstIsInaccessible) {
  const auto first = bus.plug(makePad(PadKind::Usb));
  bus.plug(makePad(PadKind::Usb));
  bus.setAccessible(first, false);
  EXPECT_EQ(hid_open(kVendor, kUsbPad, nullptr), nullptr);
  bus.setAccessible(first, true);
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  EXPECT_EQ(bus.openHandles(first), 1);
  hid_close(dev);
}

TEST_F(HidapiFace, ReadsReportsInTheirOrder) {
  const auto port = bus.plug(makePad(PadKind::Usb));
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  EXPECT_EQ(hid_set_nonblocking(dev, 0), 0);
  bus.send(port, {1, 2, 3, 4, 5, 6});
  bus.send(port, {7, 8});
  EXPECT_EQ(read(dev, 0), (ReadResult{6, {1, 2, 3, 4, 5, 6}}));
  EXPECT_EQ(read(dev, 0), (ReadResult{2, {7, 8}}));
  EXPECT_EQ(read(dev, 0), (ReadResult{0, {}}));
  hid_close(dev);
}

TEST_F(HidapiFace, CutsAReportToTheReadersBufferAndLosesTheRest) {
  const auto port = bus.plug(makePad(PadKind::Usb));
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  bus.send(port, {1, 2, 3, 4, 5, 6});
  bus.send(port, {7, 8, 9, 10, 11, 12});
  EXPECT_EQ(read(dev, 0, 2), (ReadResult{2, {1, 2}}));
  EXPECT_EQ(read(dev, 0, 2), (ReadResult{2, {7, 8}}));
  hid_close(dev);
}

TEST_F(HidapiFace, WakesAReadThatWaits) {
  const auto port = bus.plug(makePad(PadKind::Usb));
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  auto reader = inBackground([&] { return read(dev, kForEver); });
  ASSERT_TRUE(bus.waitForBegun(HidCall::Read, 1));
  EXPECT_EQ(bus.count(HidCall::Read), 0);
  bus.send(port, {1, 2, 3});
  EXPECT_EQ(reader.get(), (ReadResult{3, {1, 2, 3}}));
  hid_close(dev);
}

TEST_F(HidapiFace, ReturnsZeroWhenNothingCameInTime) {
  bus.plug(makePad(PadKind::Usb));
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(read(dev, 20), (ReadResult{0, {}}));
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(20));
  hid_close(dev);
}

TEST_F(HidapiFace, KeepsSixtyThreeUnreadReportsAndDropsTheRest) {
  const auto port = bus.plug(makePad(PadKind::Usb));
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  for (int i = 0; i < 63; ++i) EXPECT_TRUE(bus.send(port, numbered(i)));
  EXPECT_FALSE(bus.send(port, numbered(63)));
  EXPECT_EQ(read(dev, 0).bytes, numbered(0));
  EXPECT_TRUE(bus.send(port, numbered(65)));
  for (int i = 1; i < 63; ++i) EXPECT_EQ(read(dev, 0).bytes, numbered(i));
  EXPECT_EQ(read(dev, 0).bytes, numbered(65));
  EXPECT_EQ(read(dev, 0).result, 0);
  hid_close(dev);
}

TEST_F(HidapiFace, GivesEachHandleEveryReport) {
  const auto port = bus.plug(makePad(PadKind::Usb));
  hid_device* const one = hid_open(kVendor, kUsbPad, nullptr);
  bus.send(port, numbered(1));
  hid_device* const other = hid_open(kVendor, kUsbPad, nullptr);
  bus.send(port, numbered(2));
  EXPECT_EQ(read(one, 0).bytes, numbered(1));
  EXPECT_EQ(read(one, 0).bytes, numbered(2));
  EXPECT_EQ(read(other, 0).bytes, numbered(2));
  EXPECT_EQ(read(other, 0).result, 0);
  hid_close(one);
  hid_close(other);
}

TEST_F(HidapiFace, FailsReadsAfterAnUnplugWithoutTheUnreadReports) {
  const auto port = bus.plug(makePad(PadKind::Usb));
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  bus.send(port, numbered(1));
  bus.unplug(port);
  EXPECT_EQ(read(dev, kForEver).result, -1);
  EXPECT_EQ(read(dev, kForEver).result, -1);
  hid_close(dev);
}

TEST_F(HidapiFace, FailsAReadThatWaitsWhenThePadIsUnplugged) {
  const auto port = bus.plug(makePad(PadKind::Usb));
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  auto reader = inBackground([&] { return read(dev, kForEver); });
  ASSERT_TRUE(bus.waitForBegun(HidCall::Read, 1));
  bus.unplug(port);
  EXPECT_EQ(reader.get().result, -1);
  hid_close(dev);
}

TEST_F(HidapiFace, DoesNotBringAHandleBackByReplugging) {
  const auto pad = makePad(PadKind::Vision);
  bus.unplug(bus.plug(pad));
  const auto port = bus.plug(pad);
  hid_device* const old = hid_open(kVendor, kVisionPad, nullptr);
  bus.unplug(port);
  const auto again = bus.plug(pad);
  EXPECT_EQ(read(old, kForEver).result, -1);
  EXPECT_EQ(getFeature(old, 4, 17), -1);
  hid_device* const dev = hid_open(kVendor, kVisionPad, nullptr);
  EXPECT_EQ(getFeature(dev, 4, 17), 17);
  EXPECT_EQ(bus.openHandles(again), 1);
  hid_close(old);
  hid_close(dev);
}

TEST_F(HidapiFace, GetsAFeatureReport) {
  bus.plug(makePad(PadKind::Ink));
  hid_device* const dev = hid_open(kVendor, kInkPad, nullptr);
  unsigned char buffer[12] = {6, 0, 0, 0, 0, 0, 0, 0, 0, 0xEE, 0xEE, 0xEE};
  EXPECT_EQ(hid_get_feature_report(dev, buffer, 12), 9);
  EXPECT_THAT(buffer,
              ElementsAre(6, 0x31, 0x42, 0x53, 0x64, 0x75, 0x86, 0x97, 0xA8, 0xEE, 0xEE, 0xEE));
  hid_close(dev);
}

TEST_F(HidapiFace, CutsAFeatureReplyToTheBuffer) {
  bus.plug(makePad(PadKind::Ink));
  hid_device* const dev = hid_open(kVendor, kInkPad, nullptr);
  unsigned char buffer[4] = {6, 0xEE, 0xEE, 0xEE};
  EXPECT_EQ(hid_get_feature_report(dev, buffer, 3), 3);
  EXPECT_THAT(buffer, ElementsAre(6, 0x31, 0x42, 0xEE));
  hid_close(dev);
}

TEST_F(HidapiFace, SetsAFeatureReport) {
  const auto pad = std::make_shared<VisionPad>();
  bus.plug(pad);
  hid_device* const dev = hid_open(kVendor, kVisionPad, nullptr);
  EXPECT_EQ(setFeature(dev, {4, 1}, 17), 17);
  EXPECT_EQ(pad->mode(), 1);
  hid_close(dev);
}

TEST_F(HidapiFace, FailsFeatureCallsThatThePadRefuses) {
  bus.plug(makePad(PadKind::Vision));
  hid_device* const dev = hid_open(kVendor, kVisionPad, nullptr);
  EXPECT_EQ(getFeature(dev, 5, 17), -1);
  EXPECT_EQ(setFeature(dev, {5}, 17), -1);
  EXPECT_EQ(setFeature(dev, {4, 1}, 16), -1);
  hid_close(dev);
}

TEST_F(HidapiFace, FailsFeatureCallsThatTheKernelRefuses) {
  bus.plug(makePad(PadKind::Vision));
  hid_device* const dev = hid_open(kVendor, kVisionPad, nullptr);
  EXPECT_EQ(getFeature(dev, 4, 1), -1);
  EXPECT_EQ(setFeature(dev, {18}, 1), -1);
  EXPECT_EQ(hid_get_feature_report(dev, nullptr, 17), -1);
  EXPECT_EQ(hid_send_feature_report(dev, nullptr, 17), -1);
  hid_close(dev);
}

TEST_F(HidapiFace, FailsFeatureCallsAfterAnUnplugWithoutAskingThePad) {
  const auto pad = std::make_shared<VisionPad>();
  const auto port = bus.plug(pad);
  hid_device* const dev = hid_open(kVendor, kVisionPad, nullptr);
  bus.unplug(port);
  EXPECT_EQ(getFeature(dev, 3, 17), -1);
  EXPECT_EQ(setFeature(dev, {4, 1}, 17), -1);
  EXPECT_EQ(pad->resets(), 0);
  EXPECT_EQ(pad->mode(), 0);
  hid_close(dev);
}

TEST_F(HidapiFace, FailsWritesSinceNoPadHasOutputReports) {
  bus.plug(makePad(PadKind::Usb));
  hid_device* const dev = hid_open(kVendor, kUsbPad, nullptr);
  const unsigned char report[2] = {0, 1};
  EXPECT_EQ(hid_write(dev, report, 2), -1);
  EXPECT_EQ(hid_write(dev, nullptr, 2), -1);
  EXPECT_EQ(hid_write(dev, report, 0), -1);
  hid_close(dev);
}

TEST_F(HidapiFace, ReportsWhetherTheLastCallOnAHandleFailed) {
  bus.plug(makePad(PadKind::Vision));
  hid_device* const dev = hid_open(kVendor, kVisionPad, nullptr);
  EXPECT_STREQ(hid_error(dev), L"Success");
  getFeature(dev, 5, 17);
  EXPECT_STREQ(hid_error(dev), L"the call failed");
  hid_set_nonblocking(dev, 0);
  EXPECT_STREQ(hid_error(dev), L"the call failed");
  getFeature(dev, 4, 17);
  EXPECT_STREQ(hid_error(dev), L"Success");
  hid_close(dev);
  EXPECT_STREQ(hid_error(nullptr), L"Success");
}

TEST_F(HidapiFace, LogsEachCallInTheOrderOfItsBegin) {
  bus.plug(makePad(PadKind::Vision));
  hid_init();
  hid_free_enumeration(hid_enumerate(0, 0));
  EXPECT_EQ(hid_open(kVendor, kInkPad, nullptr), nullptr);
  hid_device* const dev = hid_open(kVendor, kVisionPad, nullptr);
  hid_set_nonblocking(dev, 1);
  getFeature(dev, 4, 3);
  setFeature(dev, {4, 9}, 17);
  setFeature(dev, {7, 8}, 2);
  read(dev, 0, 17);
  const unsigned char report[1] = {5};
  hid_write(dev, report, 1);
  hid_close(dev);
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
