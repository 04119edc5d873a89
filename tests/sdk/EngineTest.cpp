// CVelaIoEngine: its calls to hidapi and how it handles the results.
#include "VelaIoEngine.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/BusTest.h"
#include "support/Patience.h"
#include "support/ProcessState.h"
#include "support/ScriptedPad.h"
#include "support/VirtualSlot.h"
#include "support/Written.h"
#include "virtualpads/PadModel.h"

namespace {

using support::called;
using support::Calls;
using support::Fault;
using support::HidCall;
using support::kNothingWritten;
using support::ScriptedPad;
using support::VirtualBus;
using support::virtualSlot;
using support::Written;
using support::writtenBy;
using virtualpads::PadKind;

// The time-outs of the engine's reads, in milliseconds, and its pauses, in nanoseconds.
std::mutex waitsMutex;
std::vector<int> readTimeouts;
std::vector<long> pauses;

template <class Waits, class Wait>
void note(Waits& waits, Wait wait) {
  const std::lock_guard lock(waitsMutex);
  waits.push_back(wait);
}

}  // namespace

extern "C" {

int __real_hid_read_timeout(hid_device* device, unsigned char* data, size_t length,
                            int milliseconds);
int __wrap_hid_read_timeout(hid_device* device, unsigned char* data, size_t length,
                            int milliseconds) {
  note(readTimeouts, milliseconds);
  return __real_hid_read_timeout(device, data, length, milliseconds);
}

int __wrap_nanosleep(const timespec* duration, timespec* /*remaining*/) {
  note(pauses, duration->tv_sec * 1'000'000'000L + duration->tv_nsec);
  return 0;
}

#ifdef _LIBCPP_VERSION
// std::this_thread::sleep_for: libc++ calls nanosleep in its own library, where it cannot be
// replaced.
void __wrap__ZNSt3__111this_thread9sleep_forERKNS_6chrono8durationIxNS_5ratioILl1ELl1000000000EEEEE(
    const std::chrono::nanoseconds& duration) {
  const timespec time{.tv_sec = 0, .tv_nsec = duration.count()};
  __wrap_nanosleep(&time, nullptr);
}
#endif

}  // extern "C"

namespace {

constexpr const char* kReadNoDevice = "ReadFile::m_handle is NULL!!\n";

class EngineTest : public support::BusTest {
 protected:
  EngineTest() {
    readTimeouts.clear();
    pauses.clear();
  }

  ~EngineTest() override { engine.CloseDevice(); }

  VirtualBus::Port plugUsbPad(int interfaces = 1) {
    return bus.plug(virtualpads::makePad(PadKind::Usb), interfaces);
  }

  void open() {
    port = plugUsbPad();
    engine.OpenDevice(1247, 18);
    bus.clearLog();
  }

  // A pad with the USB pad's ids that has a feature report 9.
  void openScripted() {
    const auto pad = std::make_shared<ScriptedPad>(18);
    pad->replies[9] = {9, 0xA1, 0xA2, 0xA3};
    port = bus.plug(pad);
    engine.OpenDevice(1247, 18);
    bus.clearLog();
  }

  // Reads into `buffer` up to that length.
  bool read(int length = 6) { return engine.ReadFile(buffer, length, &count); }

  bool getFeature(unsigned char id) {
    unsigned char report[4] = {id};
    return engine.GetFeature(4, report) == 4;
  }

  // The time-outs of the reads in a ReadFile that gets nothing.
  std::vector<int> timeoutsOfARead() {
    readTimeouts.clear();
    EXPECT_FALSE(read());
    return readTimeouts;
  }

  CVelaIoEngine engine{1247, 18};
  VirtualBus::Port port = 0;
  unsigned char buffer[6] = {};
  int count = 77;
};

TEST_F(EngineTest, InitialisesHidapiAndShutsItDown) {
  bus.clearLog();
  { const CVelaIoEngine other(1247, 18); }
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Init), called(HidCall::Exit)}));
}

TEST_F(EngineTest, FailuresToInitialiseAndToSetTheReadModeArePassedOver) {
  plugUsbPad();
  bus.fail(HidCall::Init, {Fault::Kind::Return, -1});
  bus.fail(HidCall::SetNonblocking, {Fault::Kind::Return, -1});
  CVelaIoEngine other(1247, 18);
  EXPECT_EQ(other.OpenDevice(1247, 18), 1);
}

TEST_F(EngineTest, DestructionClosesAnOpenDeviceBeforeItShutsHidapiDown) {
  plugUsbPad();
  bus.clearLog();
  {
    CVelaIoEngine other(1247, 18);
    other.OpenDevice(1247, 18);
  }
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Init), called(HidCall::Open, 18, 1),
                                called(HidCall::SetNonblocking, 0), called(HidCall::Close),
                                called(HidCall::Exit)}));
}

TEST_F(EngineTest, DestructionAfterACloseDoesNotCloseAgain) {
  plugUsbPad();
  {
    CVelaIoEngine other(1247, 18);
    other.OpenDevice(1247, 18);
    other.CloseDevice();
    bus.clearLog();
  }
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Exit)}));
}

TEST_F(EngineTest, KeepsTheOrderOfItsVirtualOperations) {
  static_assert(std::has_virtual_destructor_v<CVelaIoEngine>);
  // Slots 0 and 1 belong to the destructor.
  EXPECT_EQ(virtualSlot(&CVelaIoEngine::OpenDevice), 2U);
  EXPECT_EQ(virtualSlot(&CVelaIoEngine::CloseDevice), 3U);
}

TEST_F(EngineTest, OpensAndMakesReadsBlock) {
  plugUsbPad();
  bus.clearLog();
  EXPECT_EQ(engine.OpenDevice(1247, 18), 1);
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Open, 18, 1), called(HidCall::SetNonblocking, 0)}));
}

TEST_F(EngineTest, OpeningAPadThatIsAbsentOrNotAccessibleFailsAndLeavesNoDevice) {
  for (const bool attached : {false, true}) {
    if (attached) bus.setAccessible(plugUsbPad(), false);
    bus.clearLog();
    EXPECT_EQ(engine.OpenDevice(1247, 18), -1);
    EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Open, 18, 0)}));
    EXPECT_EQ(writtenBy([&] { read(); }), (Written{kReadNoDevice, ""}));
  }
}

TEST_F(EngineTest, ASecondOpenReplacesTheDeviceWithoutClosingIt) {
  open();
  EXPECT_EQ(engine.OpenDevice(1247, 18), 1);
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Open, 18, 1), called(HidCall::SetNonblocking, 0)}));
  EXPECT_EQ(engine.OpenDevice(1247, 31), -1);
  EXPECT_EQ(bus.openHandles(), 2);
  engine.CloseDevice();
  EXPECT_EQ(bus.openHandles(), 2);
  bus.reset();  // the handles that are lost
}

TEST_F(EngineTest, ClosingReturnsZeroWithAndWithoutADevice) {
  bus.clearLog();
  EXPECT_EQ(engine.CloseDevice(), 0);
  EXPECT_EQ(bus.calls(), Calls{});
  open();
  EXPECT_EQ(engine.CloseDevice(), 0);
  EXPECT_EQ(engine.CloseDevice(), 0);
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Close)}));
}

// Counting.

TEST_F(EngineTest, CountsEveryInterfaceWithExactlyTheseIds) {
  plugUsbPad(3);
  bus.plug(std::make_shared<ScriptedPad>(18, 1246));
  bus.plug(std::make_shared<ScriptedPad>(18, 1248));
  bus.plug(std::make_shared<ScriptedPad>(17, 1247));
  bus.plug(std::make_shared<ScriptedPad>(19, 1247));
  plugUsbPad();
  EXPECT_EQ(engine.GetNumDevices(1247, 18), 4);
  EXPECT_EQ(engine.GetNumDevices(1247, 19), 1);
  EXPECT_EQ(engine.GetNumDevices(1248, 18), 1);
  EXPECT_EQ(engine.GetNumDevices(1248, 19), 0);
}

TEST_F(EngineTest, ListsAllDevicesAndFreesTheList) {
  bus.clearLog();
  EXPECT_EQ(engine.GetNumDevices(1247, 18), 0);
  plugUsbPad();
  bus.plug(std::make_shared<ScriptedPad>(2, 1));
  EXPECT_EQ(engine.GetNumDevices(1247, 18), 1);
  EXPECT_EQ(bus.calls(),
            (Calls{called(HidCall::Enumerate), called(HidCall::FreeEnumeration),
                   called(HidCall::Enumerate, 0, 2), called(HidCall::FreeEnumeration)}));
}

TEST_F(EngineTest, CountsWhileADeviceIsOpenAndKeepsItAndTheIds) {
  open();
  EXPECT_EQ(engine.GetNumDevices(1247, 18), 1);
  EXPECT_EQ(engine.GetNumDevices(1247, 31), 0);
  unsigned short size = 0;
  EXPECT_TRUE(engine.GetDataReportSize(&size));
  EXPECT_EQ(size, 6);
  ASSERT_TRUE(bus.send(port, {1}));
  EXPECT_TRUE(read());
}

// The length of an input report.

struct KnownProduct {
  unsigned short product;
  unsigned short size;
};

class ReportSizeTest : public testing::TestWithParam<KnownProduct> {};

TEST_P(ReportSizeTest, IsKnownForTheProductOfAnyVendor) {
  unsigned short size = 999;
  EXPECT_TRUE(CVelaIoEngine(1247, GetParam().product).GetDataReportSize(&size));
  EXPECT_EQ(size, GetParam().size);
  size = 999;
  EXPECT_TRUE(CVelaIoEngine(1, GetParam().product).GetDataReportSize(&size));
  EXPECT_EQ(size, GetParam().size);
}

INSTANTIATE_TEST_SUITE_P(Products, ReportSizeTest,
                         testing::Values(KnownProduct{18, 6}, KnownProduct{31, 11},
                                         KnownProduct{48, 8}, KnownProduct{56, 17},
                                         KnownProduct{67, 8}, KnownProduct{87, 8},
                                         KnownProduct{24577, 8}));

TEST_F(EngineTest, TheReportSizeOfAnUnknownProductIsZeroAndFalse) {
  for (const auto product :
       std::initializer_list<unsigned short>{0, 17, 19, 32, 57, 24576, 65535}) {
    unsigned short size = 999;
    EXPECT_FALSE(CVelaIoEngine(1247, product).GetDataReportSize(&size)) << product;
    EXPECT_EQ(size, 0) << product;
  }
}

TEST_F(EngineTest, OpeningSetsTheIdsEvenWhenItFails) {
  EXPECT_EQ(engine.OpenDevice(1247, 31), -1);
  unsigned short size = 0;
  EXPECT_TRUE(engine.GetDataReportSize(&size));
  EXPECT_EQ(size, 11);
}

// Feature reports.

TEST_F(EngineTest, FeatureCallsWithBadArgumentsOrWithoutADeviceFailWithoutReachingHidapi) {
  EXPECT_EQ(engine.GetFeature(4, buffer), -1);
  EXPECT_EQ(engine.SetFeature(4, buffer), -1);
  openScripted();
  EXPECT_EQ(engine.GetFeature(0, buffer), -1);
  EXPECT_EQ(engine.GetFeature(4, nullptr), -1);
  EXPECT_EQ(engine.SetFeature(0, buffer), -1);
  EXPECT_EQ(engine.SetFeature(4, nullptr), -1);
  EXPECT_EQ(bus.calls(), Calls{});
}

TEST_F(EngineTest, GetFeatureFillsTheBufferAndReturnsTheNumberOfBytes) {
  openScripted();
  unsigned char report[6] = {9, 0x11, 0x12, 0x13, 0x14, 0x15};
  EXPECT_EQ(engine.GetFeature(6, report), 4);
  EXPECT_EQ(bus.calls(),
            (Calls{called(HidCall::GetFeature, 6, 4, {9, 0x11, 0x12, 0x13, 0x14, 0x15})}));
  // Bytes that the pad did not send are unchanged.
  const unsigned char expected[6] = {9, 0xA1, 0xA2, 0xA3, 0x14, 0x15};
  EXPECT_TRUE(std::equal(report, report + 6, expected));
}

TEST_F(EngineTest, SetFeatureSendsTheBuffer) {
  openScripted();
  unsigned char report[6] = {7, 1, 2, 3, 4, 5};
  EXPECT_EQ(engine.SetFeature(4, report), 4);
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::SendFeature, 4, 4, {7, 1, 2, 3})}));
}

TEST_F(EngineTest, FeatureResultsArePassedOnUnchanged) {
  openScripted();
  unsigned char report[4] = {9};
  for (const int result : {-1, 0, 1, 3}) {
    bus.fail(HidCall::GetFeature, {Fault::Kind::Return, result});
    EXPECT_EQ(engine.GetFeature(4, report), result);
    bus.fail(HidCall::SendFeature, {Fault::Kind::Return, result});
    EXPECT_EQ(engine.SetFeature(4, report), result);
  }
}

// Reading and writing.

TEST_F(EngineTest, AReadWaitsUpToAThousandMilliseconds) {
  open();
  unsigned char report[17] = {};
  EXPECT_FALSE(engine.ReadFile(report, 17, &count));
  EXPECT_EQ(bus.calls({HidCall::Read}), (Calls{called(HidCall::Read, 17, 0)}));
  EXPECT_EQ(readTimeouts, (std::vector<int>{1000}));
}

TEST_F(EngineTest, ReadFileReturnsTheBytesOfOneReport) {
  open();
  ASSERT_TRUE(bus.send(port, {0x20, 0x11, 0x12}));
  ASSERT_TRUE(bus.send(port, {0x77}));
  ASSERT_TRUE(bus.send(port, {0x78}));
  std::fill_n(buffer, 6, 9);
  EXPECT_TRUE(read());
  EXPECT_EQ(count, 3);
  const unsigned char expected[6] = {0x20, 0x11, 0x12, 9, 9, 9};
  EXPECT_TRUE(std::equal(buffer, buffer + 6, expected));
  for (const int length : {6, 1}) {
    EXPECT_TRUE(read(length));
    EXPECT_EQ(count, 1);
  }
  EXPECT_EQ(buffer[0], 0x78);
}

TEST_F(EngineTest, ATimeOutAndAnErrorAreFalseWithoutALineOrACount) {
  open();
  EXPECT_EQ(writtenBy(false, [&] { return read(); }), kNothingWritten);
  bus.fail(HidCall::Read, {Fault::Kind::Return, -1});
  EXPECT_EQ(writtenBy(false, [&] { return read(); }), kNothingWritten);
  EXPECT_EQ(count, 77);
}

TEST_F(EngineTest, WriteFileIsTrueFromOneByteOn) {
  open();
  unsigned char report[3] = {0, 0x31, 0x32};
  for (const int result : {-1, 0, 1, 3}) {
    bus.fail(HidCall::Write, {Fault::Kind::Return, result});
    EXPECT_EQ(engine.WriteFile(report, 3, &count), result > 0);
    EXPECT_EQ(count, result > 0 ? result : 77);
    EXPECT_EQ(bus.calls().back(), called(HidCall::Write, 3, result, {0, 0x31, 0x32}));
  }
  bus.fail(HidCall::Write, {Fault::Kind::Return, 1});
  EXPECT_TRUE(engine.WriteFile(report, 1, &count));
  EXPECT_EQ(bus.calls().back(), called(HidCall::Write, 1, 1, {0}));
}

// The operations that exchange reports, with their lines.
struct Exchange {
  const char* name;
  bool (CVelaIoEngine::*run)(unsigned char*, int, int*);
  const char* noDevice;
  const char* badArguments;
};

class ExchangeTest : public EngineTest, public testing::WithParamInterface<Exchange> {};

INSTANTIATE_TEST_SUITE_P(
    Operations, ExchangeTest,
    testing::Values(Exchange{"Read", &CVelaIoEngine::ReadFile, kReadNoDevice,
                             "ReadFile::lpBuffer is NULL or bytes to read <= 0\n"},
                    // Deliberate: of reading, too.
                    Exchange{"Write", &CVelaIoEngine::WriteFile, "WriteFile::m_handle is NULL!!\n",
                             "WriteFile::lpBuffer is NULL or bytes to read <= 0\n"}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(ExchangeTest, BadArgumentsAreReportedAfterAMissingDevice) {
  const auto expectLine = [&](unsigned char* data, int length, const char* line) {
    EXPECT_EQ(writtenBy(false, [&] { return (engine.*GetParam().run)(data, length, &count); }),
              (Written{line, ""}));
  };
  expectLine(buffer, 6, GetParam().noDevice);
  expectLine(nullptr, 0, GetParam().noDevice);
  open();
  expectLine(buffer, 0, GetParam().badArguments);
  expectLine(buffer, -1, GetParam().badArguments);
  expectLine(nullptr, 6, GetParam().badArguments);
  EXPECT_EQ(count, 77);
  EXPECT_EQ(bus.calls({HidCall::Read, HidCall::Write}), Calls{});
}

// After failures.

TEST_F(EngineTest, AFailedReadPausesBeforeItReturns) {
  open();
  bus.fail(HidCall::Read, {Fault::Kind::Return, -1}, 1, 2);
  EXPECT_FALSE(read());
  EXPECT_EQ(pauses, (std::vector<long>{50'000'000}));
  EXPECT_FALSE(read());
  EXPECT_EQ(pauses, (std::vector<long>{50'000'000, 50'000'000}));
  ASSERT_TRUE(bus.send(port, {1, 2, 3, 4, 5, 6}));
  EXPECT_TRUE(read());
  EXPECT_EQ(pauses.size(), 2U);
}

TEST_F(EngineTest, TimeOutsAndFailedFeatureCallsCostNoPause) {
  openScripted();
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(read());
  EXPECT_FALSE(getFeature(8));
  EXPECT_FALSE(read());
  EXPECT_EQ(pauses, (std::vector<long>{}));
}

TEST_F(EngineTest, ASliceReturnsAReportAtOnce) {
  openScripted();
  EXPECT_FALSE(getFeature(8));
  ASSERT_TRUE(bus.send(port, {0x20, 0x11}));
  EXPECT_TRUE(read());
  EXPECT_EQ(count, 2);
  EXPECT_EQ(buffer[1], 0x11);
  EXPECT_EQ(readTimeouts, (std::vector<int>{25}));
}

TEST_F(EngineTest, AfterASliceTheRestIsOneReadWhenThePadAnswersAgain) {
  openScripted();
  bus.setReadTimeout(std::chrono::milliseconds{1});
  EXPECT_FALSE(getFeature(8));
  // The first slice is held until a feature call is waiting; that call is next.
  bus.fail(HidCall::Read, {Fault::Kind::Late, 0});
  std::thread reader([&] { EXPECT_FALSE(read()); });
  EXPECT_TRUE(bus.waitForBegun(HidCall::Read, 1));
  std::atomic<pid_t> id{0};
  std::thread client([&] {
    id = gettid();
    EXPECT_TRUE(getFeature(9));
  });
  EXPECT_TRUE(support::comesTrue([&] { return id != 0 && support::sleeps(id); }));
  bus.releaseLateCalls();
  client.join();
  reader.join();
  ASSERT_EQ(readTimeouts.size(), 2U);
  EXPECT_EQ(readTimeouts[0], 25);
  EXPECT_GT(readTimeouts[1], 25);
  EXPECT_LE(readTimeouts[1], 975);
}

TEST_F(EngineTest, ADeviceThatIsOpenedStartsWithoutFailures) {
  open();
  EXPECT_FALSE(getFeature(9));
  engine.CloseDevice();
  engine.OpenDevice(1247, 18);
  EXPECT_EQ(timeoutsOfARead(), (std::vector<int>{1000}));
}

TEST_F(EngineTest, AFeatureCallPassesAReadThatWaits) {
  openScripted();
  bus.setReadTimeout(kLongTimeout);
  std::thread reader([&] { EXPECT_TRUE(read()); });
  EXPECT_TRUE(bus.waitForBegun(HidCall::Read, 1));
  EXPECT_TRUE(getFeature(9));
  EXPECT_EQ(bus.count(HidCall::Read), 0);
  EXPECT_TRUE(bus.send(port, {1}));
  reader.join();
}

// The operations on the gate's control side, each with the call it makes.
struct ControlOperation {
  HidCall call;
  void (*run)(CVelaIoEngine& engine);
};

class ControlTest : public EngineTest, public testing::WithParamInterface<ControlOperation> {};

TEST_P(ControlTest, AFailureMakesReadsWaitInSlicesUntilASuccess) {
  openScripted();
  bus.setReadTimeout(std::chrono::milliseconds{1});
  bus.fail(GetParam().call, {Fault::Kind::Return, -1});
  GetParam().run(engine);
  // 1000 ms in all; fewer if this thread has to wait for a processor.
  const auto readsInSlices = [this] { return timeoutsOfARead() == std::vector<int>(40, 25); };
  EXPECT_TRUE(support::comesTrue(readsInSlices));
  // Reads that time out do not prove that the pad answers.
  EXPECT_TRUE(support::comesTrue(readsInSlices));
  EXPECT_EQ(count, 77);
  bus.fail(GetParam().call, {Fault::Kind::Return, 1});
  GetParam().run(engine);
  EXPECT_EQ(timeoutsOfARead(), (std::vector<int>{1000}));
}

INSTANTIATE_TEST_SUITE_P(Operations, ControlTest,
                         testing::Values(ControlOperation{HidCall::GetFeature,
                                                          [](CVelaIoEngine& engine) {
                                                            unsigned char buffer[4] = {9};
                                                            engine.GetFeature(4, buffer);
                                                          }},
                                         ControlOperation{HidCall::SendFeature,
                                                          [](CVelaIoEngine& engine) {
                                                            unsigned char buffer[4] = {9};
                                                            engine.SetFeature(4, buffer);
                                                          }},
                                         ControlOperation{HidCall::Write,
                                                          [](CVelaIoEngine& engine) {
                                                            unsigned char buffer[4] = {};
                                                            int count = 0;
                                                            engine.WriteFile(buffer, 4, &count);
                                                          }}));

}  // namespace
