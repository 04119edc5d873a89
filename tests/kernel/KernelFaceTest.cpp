// The kernel faces on a real kernel, accessed through the distribution's hidapi, as by a program
// without the SDK.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hidapi.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "TestPads.h"
#include "tests/support/ScriptedPad.h"
#include "virtualpads/InkPad.h"
#include "virtualpads/kernel/UhidPad.h"

namespace virtualpads {
namespace {

using support::ScriptedPad;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

constexpr std::uint16_t kVendor = 0x04DF;
constexpr int kReadLimit = 10000;  // milliseconds; only a failing test waits this long

struct CloseDevice {
  void operator()(hid_device* device) const { hid_close(device); }
};
using Device = std::unique_ptr<hid_device, CloseDevice>;

Device openPad(const KernelPad& pad) {
  const std::string node = pad.waitForNode();
  Device device(hid_open_path(node.c_str()));
  if (!device) throw std::runtime_error("hidapi does not open the pad's node: " + node);
  if (!pad.waitUntilOpen()) throw std::runtime_error("the pad is not polled");
  return device;
}

Bytes read(const Device& device) {
  Bytes report(64);
  const int count = hid_read_timeout(device.get(), report.data(), report.size(), kReadLimit);
  report.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return report;
}

// The reply to a get-feature request of that length; nothing if it failed.
Bytes getFeature(const Device& device, std::uint8_t id, std::size_t length) {
  Bytes reply(length);
  reply[0] = id;
  const int count = hid_get_feature_report(device.get(), reply.data(), reply.size());
  reply.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return reply;
}

int setFeature(const Device& device, const Bytes& report) {
  return hid_send_feature_report(device.get(), report.data(), report.size());
}

// The pads of our vendor that hidapi lists: the number of each product, and its name.
std::map<std::pair<int, std::wstring>, int> listed() {
  std::map<std::pair<int, std::wstring>, int> pads;
  hid_device_info* const all = hid_enumerate(kVendor, 0);
  for (const hid_device_info* entry = all; entry != nullptr; entry = entry->next)
    ++pads[{entry->product_id, entry->product_string}];
  hid_free_enumeration(all);
  return pads;
}

class KernelFaceTest : public ::testing::TestWithParam<Face> {};

INSTANTIATE_TEST_SUITE_P(Faces, KernelFaceTest, ::testing::ValuesIn(faces()),
                         [](const auto& parameter) { return nameOf(parameter.param); });

// No other pad may be plugged in meanwhile.
class ListingTest : public KernelFaceTest {};

INSTANTIATE_TEST_SUITE_P(Faces, ListingTest, ::testing::ValuesIn(faces()),
                         [](const auto& parameter) { return nameOf(parameter.param); });

TEST_P(ListingTest, PadsAreListedWithTheirIdentity) {
  const auto usb = plugged(PadKind::Usb, GetParam());
  const auto ii = plugged(PadKind::Ii, GetParam());
  const auto ink = plugged(PadKind::Ink, GetParam());
  const auto vision = plugged(PadKind::Vision, GetParam());
  EXPECT_THAT(listed(), UnorderedElementsAre(
                            Pair(Pair(18, L"Vela USB"), 1), Pair(Pair(31, L"Vela II"), 1),
                            Pair(Pair(48, L"Vela Ink"), 1), Pair(Pair(56, L"Vela Vision"), 1)));
}

TEST_P(ListingTest, PadPluggedTwiceIsListedTwice) {
  const auto first = plugged(PadKind::Ii, GetParam());
  const auto second = plugged(PadKind::Ii, GetParam());
  const auto other = plugged(makeOtherPad(), GetParam());
  EXPECT_NE(first->waitForNode(), second->waitForNode());
  EXPECT_THAT(listed(),
              UnorderedElementsAre(Pair(Pair(31, L"Vela II"), 2), Pair(Pair(67, L"Other"), 1)));
}

TEST_P(ListingTest, NodeComesAndGoesWithThePlug) {
  const auto pad = plugged(PadKind::Usb, GetParam());
  const std::string node = pad->waitForNode();
  struct stat status {};
  ASSERT_EQ(stat(node.c_str(), &status), 0) << node;
  EXPECT_TRUE(S_ISCHR(status.st_mode));
  pad->unplug();
  EXPECT_NE(stat(node.c_str(), &status), 0);
  EXPECT_THAT(listed(), IsEmpty());
  pad->plug();
  EXPECT_NE(pad->waitForNode(), "");
  EXPECT_THAT(listed(), ElementsAre(Pair(Pair(18, L"Vela USB"), 1)));
}

TEST_P(KernelFaceTest, EveryModelsReportDescriptorReachesThePrograms) {
  for (const PadKind kind : {PadKind::Usb, PadKind::Ii, PadKind::Ink, PadKind::Vision}) {
    const auto model = makePad(kind);
    const auto pad = plugged(model, GetParam());
    const std::string node = pad->waitForNode();
    const std::string attribute =
        "/sys/class/hidraw/" + node.substr(node.rfind('/') + 1) + "/device/report_descriptor";
    Bytes descriptor(4096);
    FILE* const file = std::fopen(attribute.c_str(), "rb");
    ASSERT_NE(file, nullptr) << attribute;
    descriptor.resize(std::fread(descriptor.data(), 1, descriptor.size(), file));
    std::fclose(file);
    EXPECT_THAT(descriptor, testing::ElementsAreArray(model->reportDescriptor()));
  }
}

TEST_P(KernelFaceTest, ReportsWhetherAProgramHasTheNodeOpen) {
  const auto pad = plugged(PadKind::Usb, GetParam());
  EXPECT_FALSE(pad->open());
  Device first = openPad(*pad);
  ASSERT_NE(first, nullptr);
  EXPECT_TRUE(pad->waitUntilOpen());
  Device second = openPad(*pad);
  first.reset();
  EXPECT_TRUE(pad->open());
  second.reset();
  EXPECT_TRUE(pad->waitUntilClosed());
}

TEST_P(KernelFaceTest, InputReportsArriveAsSent) {
  const std::pair<PadKind, Bytes> reports[] = {
      {PadKind::Usb, {0x20, 0x4E, 0x02, 0x27, 0x01, 0x7F}},
      {PadKind::Ii, {1, 0x21, 0x34, 0x12, 0x78, 0x56, 0x40, 0, 0, 0, 9}},
      {PadKind::Ink, {1, 0x01, 0x34, 0x12, 0x78, 0x56, 0xFF, 7}},
      {PadKind::Vision, {1, 0x80, 1, 2, 3, 4, 0, 9, 0, 0, 0, 5, 0, 0, 0, 0, 6}},
  };
  for (const auto& [kind, report] : reports) {
    const auto pad = plugged(kind, GetParam());
    const Device device = openPad(*pad);
    pad->send(report);
    EXPECT_EQ(read(device), report);
  }
}

TEST(UhidFaceTest, ReportsWithAnUndeclaredIdNeverArrive) {
  const auto pad = plugged(PadKind::Ii);
  const Device device = openPad(*pad);
  pad->send({3, 0x21, 0x34, 0x12, 0x78, 0x56, 0x40, 0, 0, 0, 9});
  pad->send({1, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 0});
  EXPECT_THAT(read(device), ElementsAre(1, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}

// The limit documented at KernelPad::send. The kernel's ring of 64 entries holds one less.
TEST(UhidFaceTest, KernelKeepsNoMoreThan63UnreadReports) {
  const auto pad = plugged(PadKind::Usb);
  const Device device = openPad(*pad);
  for (std::uint8_t i = 0; i < 100; ++i) ASSERT_TRUE(pad->send({0x20, i, 0, 0, 0, 0}));
  std::vector<std::uint8_t> arrived;
  Bytes report(6);
  while (hid_read_timeout(device.get(), report.data(), report.size(), 0) > 0)
    arrived.push_back(report[1]);
  ASSERT_EQ(arrived.size(), 63u);
  EXPECT_EQ(arrived.front(), 0);
  EXPECT_EQ(arrived.back(), 62);
}

TEST_P(KernelFaceTest, FeatureReportsAreGotAtTheirFullLength) {
  for (const PadKind kind : {PadKind::Ii, PadKind::Ink, PadKind::Vision}) {
    const auto pad = plugged(kind, GetParam());
    const Device device = openPad(*pad);
    std::vector<FeatureRequest> requests;
    for (const PadReport& report : makePad(kind)->description().reports) {
      if (!report.canGet()) continue;
      EXPECT_THAT(getFeature(device, report.id, report.length), testing::SizeIs(report.length));
      requests.push_back({FeatureCall::Get, {report.id}, true});
    }
    EXPECT_EQ(pad->requests(), requests);
  }
}

TEST_P(KernelFaceTest, FeatureReportsAreSetAtTheirFullLength) {
  const auto model = std::make_shared<InkPad>();
  const auto pad = plugged(model, GetParam());
  const Device device = openPad(*pad);
  Bytes band(2408, 0);
  band[0] = 7;
  band[1] = 1;
  band[3] = 180;
  band[2407] = 0x80;
  EXPECT_EQ(setFeature(device, band), 2408);
  EXPECT_EQ(setFeature(device, {9, 1, 0}), 3);
  EXPECT_TRUE(InkPad::isDark(model->layer(1), 319, 239));
  EXPECT_THAT(model->clears(), ElementsAre(1));
}

TEST_P(KernelFaceTest, FeatureReportsThatThePadDoesNotHaveFail) {
  const auto pad = plugged(PadKind::Ii, GetParam());
  const Device device = openPad(*pad);
  EXPECT_THAT(getFeature(device, 11, 17), IsEmpty());
  EXPECT_EQ(setFeature(device, {10, 0, 0}), -1);
}

TEST_P(KernelFaceTest, ShortAnswersReachTheProgram) {
  const auto model = std::make_shared<ScriptedPad>(makePad(PadKind::Ii)->description());
  model->replies[2] = {2, 0x11, 0x22, 0x33};
  const auto pad = plugged(model, GetParam());
  const Device device = openPad(*pad);
  EXPECT_THAT(getFeature(device, 2, 17), ElementsAre(2, 0x11, 0x22, 0x33));
}

TEST_P(KernelFaceTest, ProgramWaitsForLateAnswers) {
  const auto pad = plugged(PadKind::Ii, GetParam());
  const Device device = openPad(*pad);
  pad->fail(FeatureCall::Get, 2, FeatureFault::Late);
  auto reply = std::async(std::launch::async, [&] { return getFeature(device, 2, 17); });
  ASSERT_TRUE(pad->waitForRequest([](const FeatureRequest&) { return true; }));
  EXPECT_EQ(reply.wait_for(std::chrono::milliseconds(0)), std::future_status::timeout);
  pad->releaseLateAnswers();
  EXPECT_THAT(reply.get(), testing::SizeIs(17));
}

TEST_P(KernelFaceTest, UnplugFailsReadsAndRequestsAtOnce) {
  const auto pad = plugged(PadKind::Ii, GetParam());
  const Device device = openPad(*pad);
  auto waiting = std::async(std::launch::async, [&] {
    Bytes report(11);
    return hid_read_timeout(device.get(), report.data(), report.size(), -1);
  });
  pad->unplug();
  EXPECT_EQ(waiting.get(), -1);
  EXPECT_THAT(getFeature(device, 2, 17), IsEmpty());
}

TEST_P(KernelFaceTest, UnplugDuringARequestFailsIt) {
  const auto pad = plugged(PadKind::Ii, GetParam());
  const Device device = openPad(*pad);
  pad->fail(FeatureCall::Get, 2, FeatureFault::Unplug);
  EXPECT_THAT(getFeature(device, 2, 17), IsEmpty());
  EXPECT_FALSE(pad->plugged());
  pad->plug();
  const Device again = openPad(*pad);
  ASSERT_NE(again, nullptr);
  EXPECT_THAT(getFeature(again, 2, 17), testing::SizeIs(17));
}

TEST(UhidFaceTest, DescriptorThatTheKernelCannotParseIsReported) {
  constexpr PadReport kTooLong{PadReport::Way::Input, 0, 20000, "Pen"};
  UhidPad pad(
      std::make_shared<ScriptedPad>(PadDescription{.product = 0x43, .reports = {kTooLong}}));
  pad.setStartLimit(std::chrono::seconds(1));
  EXPECT_THROW(pad.plug(), std::system_error);
  EXPECT_FALSE(pad.plugged());
}

// Runs in a child process, which drops its privileges permanently.
TEST(UhidFaceDeathTest, WithoutPermissionPlugSaysSo) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_EXIT(
      {
        if (setuid(65534) != 0) _exit(1);
        UhidPad pad(makePad(PadKind::Usb));
        try {
          pad.plug();
        } catch (const std::system_error& error) {
          std::fputs(error.what(), stderr);
          _exit(error.code() == std::errc::permission_denied ? 42 : 1);
        }
        _exit(1);
      },
      testing::ExitedWithCode(42), "/dev/uhid: Permission denied");
}

}  // namespace
}  // namespace virtualpads
