// CVelaIoEngine: its calls to hidapi and how it handles the results.
#include "VelaIoEngine.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <functional>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/BusTest.h"
#include "support/CapturedStream.h"
#include "support/Patience.h"
#include "support/ProcessState.h"
#include "support/ScriptedPad.h"
#include "support/VirtualSlot.h"
#include "virtualpads/PadModel.h"

struct hid_device_info;

namespace {

using support::called;
using support::Calls;
using support::CapturedStream;
using support::Fault;
using support::HidCall;
using support::ScriptedPad;
using support::VirtualBus;
using support::virtualSlot;
using virtualpads::PadKind;

// Arguments passed to hidapi's functions that the bus does not log.
struct HidArguments {
  std::vector<std::tuple<unsigned short, unsigned short, const wchar_t*>> opened;
  std::vector<std::tuple<unsigned short, unsigned short>> enumerated;
  std::vector<const hid_device_info*> enumerations;  // as returned
  std::vector<const hid_device_info*> freed;
  std::vector<int> readTimeouts;
};

std::mutex argumentsMutex;
HidArguments arguments;

// The engine's pauses, in nanoseconds; they may be skipped.
std::mutex pausesMutex;
std::vector<long> pauses;
std::atomic<bool> skipPauses{false};

}  // namespace

extern "C" {

hid_device* __real_hid_open(unsigned short vid, unsigned short pid, const wchar_t* serial);
hid_device* __wrap_hid_open(unsigned short vid, unsigned short pid, const wchar_t* serial) {
  {
    const std::lock_guard lock(argumentsMutex);
    arguments.opened.emplace_back(vid, pid, serial);
  }
  return __real_hid_open(vid, pid, serial);
}

hid_device_info* __real_hid_enumerate(unsigned short vid, unsigned short pid);
hid_device_info* __wrap_hid_enumerate(unsigned short vid, unsigned short pid) {
  hid_device_info* const devices = __real_hid_enumerate(vid, pid);
  const std::lock_guard lock(argumentsMutex);
  arguments.enumerated.emplace_back(vid, pid);
  arguments.enumerations.push_back(devices);
  return devices;
}

void __real_hid_free_enumeration(hid_device_info* devices);
void __wrap_hid_free_enumeration(hid_device_info* devices) {
  {
    const std::lock_guard lock(argumentsMutex);
    arguments.freed.push_back(devices);
  }
  __real_hid_free_enumeration(devices);
}

int __real_hid_read_timeout(hid_device* device, unsigned char* data, size_t length,
                            int milliseconds);
int __wrap_hid_read_timeout(hid_device* device, unsigned char* data, size_t length,
                            int milliseconds) {
  {
    const std::lock_guard lock(argumentsMutex);
    arguments.readTimeouts.push_back(milliseconds);
  }
  return __real_hid_read_timeout(device, data, length, milliseconds);
}

int __real_nanosleep(const timespec* duration, timespec* remaining);
int __wrap_nanosleep(const timespec* duration, timespec* remaining) {
  {
    const std::lock_guard lock(pausesMutex);
    pauses.push_back(duration->tv_sec * 1'000'000'000L + duration->tv_nsec);
  }
  return skipPauses ? 0 : __real_nanosleep(duration, remaining);
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
constexpr const char* kReadBadArguments = "ReadFile::lpBuffer is NULL or bytes to read <= 0\n";
constexpr const char* kWriteNoDevice = "WriteFile::m_handle is NULL!!\n";
constexpr const char* kWriteBadArguments = "WriteFile::lpBuffer is NULL or bytes to read <= 0\n";

class EngineTest : public support::BusTest {
 protected:
  EngineTest() {
    arguments = {};
    pauses.clear();
    skipPauses = false;
  }

  VirtualBus::Port plugUsbPad(int interfaces = 1) {
    return bus.plug(virtualpads::makePad(PadKind::Usb), interfaces);
  }

  // A pad with the USB pad's ids that has a feature report 9.
  VirtualBus::Port plugScriptedPad() {
    const auto pad = std::make_shared<ScriptedPad>(18);
    pad->replies[9] = {9, 0xA1, 0xA2, 0xA3};
    return bus.plug(pad);
  }

  CVelaIoEngine engine{1247, 18};
};

TEST_F(EngineTest, InitialisesHidapiAndShutsItDown) {
  bus.clearLog();
  { const CVelaIoEngine other(1247, 18); }
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Init), called(HidCall::Exit)}));
}

TEST_F(EngineTest, IgnoresAFailureToInitialise) {
  plugUsbPad();
  bus.fail(HidCall::Init, {Fault::Kind::Return, -1});
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

TEST_F(EngineTest, OpensWithoutASerialNumberAndMakesReadsBlock) {
  plugUsbPad();
  bus.clearLog();
  EXPECT_EQ(engine.OpenDevice(1247, 18), 1);
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Open, 18, 1), called(HidCall::SetNonblocking, 0)}));
  ASSERT_EQ(arguments.opened.size(), 1U);
  EXPECT_EQ(arguments.opened[0], std::tuple(1247, 18, nullptr));
  engine.CloseDevice();
}

TEST_F(EngineTest, OpensEvenWhenTheReadModeCannotBeSet) {
  plugUsbPad();
  bus.fail(HidCall::SetNonblocking, {Fault::Kind::Return, -1});
  EXPECT_EQ(engine.OpenDevice(1247, 18), 1);
  engine.CloseDevice();
}

TEST_F(EngineTest, OpeningAnAbsentPadFailsAndLeavesNoDevice) {
  bus.clearLog();
  EXPECT_EQ(engine.OpenDevice(1247, 18), -1);
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Open, 18, 0)}));

  const CapturedStream out(stdout);
  unsigned char buffer[6];
  int count = 77;
  EXPECT_FALSE(engine.ReadFile(buffer, 6, &count));
  EXPECT_EQ(out.text(), kReadNoDevice);
  EXPECT_EQ(count, 77);
}

TEST_F(EngineTest, OpeningAPadWithoutPermissionFails) {
  bus.setAccessible(plugUsbPad(), false);
  EXPECT_EQ(engine.OpenDevice(1247, 18), -1);
  EXPECT_EQ(bus.openHandles(), 0);
}

TEST_F(EngineTest, ASecondOpenReplacesTheDeviceWithoutClosingIt) {
  plugUsbPad();
  engine.OpenDevice(1247, 18);
  bus.clearLog();
  EXPECT_EQ(engine.OpenDevice(1247, 18), 1);
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Open, 18, 1), called(HidCall::SetNonblocking, 0)}));
  EXPECT_EQ(bus.openHandles(), 2);
  engine.CloseDevice();
  EXPECT_EQ(bus.openHandles(), 1);
  bus.reset();  // the handle that is lost
}

TEST_F(EngineTest, AFailedSecondOpenLosesTheDeviceWithoutClosingIt) {
  plugUsbPad();
  engine.OpenDevice(1247, 18);
  bus.clearLog();
  EXPECT_EQ(engine.OpenDevice(1247, 31), -1);
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Open, 31, 0)}));
  EXPECT_EQ(engine.CloseDevice(), 0);
  EXPECT_EQ(bus.openHandles(), 1);
  bus.reset();  // the handle that is lost
}

TEST_F(EngineTest, ClosingTwiceReturnsZeroBothTimes) {
  plugUsbPad();
  engine.OpenDevice(1247, 18);
  bus.clearLog();
  EXPECT_EQ(engine.CloseDevice(), 0);
  EXPECT_EQ(engine.CloseDevice(), 0);
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Close)}));
}

TEST_F(EngineTest, ClosingWithoutADeviceReturnsZeroAndAsksNothing) {
  bus.clearLog();
  EXPECT_EQ(engine.CloseDevice(), 0);
  EXPECT_EQ(bus.calls(), Calls{});
}

TEST_F(EngineTest, OpensAgainAfterAClose) {
  const auto port = plugUsbPad();
  engine.OpenDevice(1247, 18);
  engine.CloseDevice();
  EXPECT_EQ(engine.OpenDevice(1247, 18), 1);
  ASSERT_TRUE(bus.send(port, {0x20, 1, 0, 2, 0, 3}));
  unsigned char buffer[6] = {};
  int count = 0;
  EXPECT_TRUE(engine.ReadFile(buffer, 6, &count));
  engine.CloseDevice();
}

// Counting.

TEST_F(EngineTest, CountsZeroOnAnEmptyBusAndFreesTheNullList) {
  bus.clearLog();
  EXPECT_EQ(engine.GetNumDevices(1247, 18), 0);
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Enumerate), called(HidCall::FreeEnumeration)}));
  EXPECT_EQ(arguments.freed, (std::vector<const hid_device_info*>{nullptr}));
}

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

TEST_F(EngineTest, ListsAllDevicesAndFreesTheWholeList) {
  plugUsbPad();
  bus.plug(std::make_shared<ScriptedPad>(2, 1));
  bus.clearLog();
  EXPECT_EQ(engine.GetNumDevices(1247, 18), 1);
  EXPECT_EQ(arguments.enumerated,
            (std::vector<std::tuple<unsigned short, unsigned short>>{{0, 0}}));
  EXPECT_EQ(bus.calls(),
            (Calls{called(HidCall::Enumerate, 0, 2), called(HidCall::FreeEnumeration)}));
  ASSERT_NE(arguments.enumerations.at(0), nullptr);
  EXPECT_EQ(arguments.freed, arguments.enumerations);
}

TEST_F(EngineTest, CountsWhileADeviceIsOpenAndKeepsItAndTheIds) {
  const auto port = plugUsbPad();
  engine.OpenDevice(1247, 18);
  EXPECT_EQ(engine.GetNumDevices(1247, 18), 1);
  EXPECT_EQ(engine.GetNumDevices(1247, 31), 0);
  unsigned short size = 0;
  EXPECT_TRUE(engine.GetDataReportSize(&size));
  EXPECT_EQ(size, 6);
  ASSERT_TRUE(bus.send(port, {1}));
  unsigned char buffer[6] = {};
  int count = 0;
  EXPECT_TRUE(engine.ReadFile(buffer, 6, &count));
  engine.CloseDevice();
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

TEST_F(EngineTest, FeatureCallsWithBadArgumentsFailWithoutReachingHidapi) {
  plugScriptedPad();
  engine.OpenDevice(1247, 18);
  bus.clearLog();
  unsigned char buffer[4] = {9};
  EXPECT_EQ(engine.GetFeature(0, buffer), -1);
  EXPECT_EQ(engine.GetFeature(4, nullptr), -1);
  EXPECT_EQ(engine.SetFeature(0, buffer), -1);
  EXPECT_EQ(engine.SetFeature(4, nullptr), -1);
  EXPECT_EQ(bus.calls(), Calls{});
  engine.CloseDevice();
}

TEST_F(EngineTest, FeatureCallsWithoutADeviceFailWithoutReachingHidapi) {
  bus.clearLog();
  unsigned char buffer[4] = {9};
  EXPECT_EQ(engine.GetFeature(4, buffer), -1);
  EXPECT_EQ(engine.SetFeature(4, buffer), -1);
  EXPECT_EQ(bus.calls(), Calls{});
}

TEST_F(EngineTest, GetFeatureFillsTheBufferAndReturnsTheNumberOfBytes) {
  plugScriptedPad();
  engine.OpenDevice(1247, 18);
  bus.clearLog();
  unsigned char buffer[6] = {9, 0x11, 0x12, 0x13, 0x14, 0x15};
  EXPECT_EQ(engine.GetFeature(6, buffer), 4);
  EXPECT_EQ(bus.calls(),
            (Calls{called(HidCall::GetFeature, 6, 4, {9, 0x11, 0x12, 0x13, 0x14, 0x15})}));
  // Bytes that the pad did not send are unchanged.
  const unsigned char expected[6] = {9, 0xA1, 0xA2, 0xA3, 0x14, 0x15};
  EXPECT_TRUE(std::equal(buffer, buffer + 6, expected));
  engine.CloseDevice();
}

TEST_F(EngineTest, SetFeatureSendsTheBuffer) {
  plugScriptedPad();
  engine.OpenDevice(1247, 18);
  bus.clearLog();
  unsigned char buffer[6] = {7, 1, 2, 3, 4, 5};
  EXPECT_EQ(engine.SetFeature(4, buffer), 4);
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::SendFeature, 4, 4, {7, 1, 2, 3})}));
  engine.CloseDevice();
}

TEST_F(EngineTest, FeatureResultsArePassedOnUnchanged) {
  plugScriptedPad();
  engine.OpenDevice(1247, 18);
  unsigned char buffer[4] = {9};
  for (const int result : {-1, 0, 1, 3}) {
    bus.fail(HidCall::GetFeature, {Fault::Kind::Return, result});
    EXPECT_EQ(engine.GetFeature(4, buffer), result);
    bus.fail(HidCall::SendFeature, {Fault::Kind::Return, result});
    EXPECT_EQ(engine.SetFeature(4, buffer), result);
  }
  engine.CloseDevice();
}

// Reading.

TEST_F(EngineTest, ReadsWaitUpToAThousandMilliseconds) {
  plugUsbPad();
  engine.OpenDevice(1247, 18);
  bus.clearLog();
  unsigned char buffer[17] = {};
  int count = 0;
  engine.ReadFile(buffer, 17, &count);
  EXPECT_EQ(bus.calls({HidCall::Read}), (Calls{called(HidCall::Read, 17, 0)}));
  EXPECT_EQ(arguments.readTimeouts, (std::vector<int>{1000}));
  engine.CloseDevice();
}

TEST_F(EngineTest, ReadFileReturnsTheBytesOfOneReport) {
  const auto port = plugUsbPad();
  engine.OpenDevice(1247, 18);
  ASSERT_TRUE(bus.send(port, {0x20, 0x11, 0x12}));
  ASSERT_TRUE(bus.send(port, {0x77}));
  unsigned char buffer[6] = {9, 9, 9, 9, 9, 9};
  int count = 0;
  EXPECT_TRUE(engine.ReadFile(buffer, 6, &count));
  EXPECT_EQ(count, 3);
  const unsigned char expected[6] = {0x20, 0x11, 0x12, 9, 9, 9};
  EXPECT_TRUE(std::equal(buffer, buffer + 6, expected));

  EXPECT_TRUE(engine.ReadFile(buffer, 6, &count));
  EXPECT_EQ(count, 1);
  EXPECT_EQ(buffer[0], 0x77);
  engine.CloseDevice();
}

TEST_F(EngineTest, ATimeOutAndAnErrorAreFalseWithoutALineOrACount) {
  plugUsbPad();
  engine.OpenDevice(1247, 18);
  const CapturedStream out(stdout);
  const CapturedStream err(stderr);
  unsigned char buffer[6] = {};
  int count = 77;
  EXPECT_FALSE(engine.ReadFile(buffer, 6, &count));
  bus.fail(HidCall::Read, {Fault::Kind::Return, -1});
  EXPECT_FALSE(engine.ReadFile(buffer, 6, &count));
  EXPECT_EQ(count, 77);
  EXPECT_EQ(out.text(), "");
  EXPECT_EQ(err.text(), "");
  engine.CloseDevice();
}

TEST_F(EngineTest, ReadFileWithBadArgumentsSaysSoEvenWithAnOpenDevice) {
  plugUsbPad();
  engine.OpenDevice(1247, 18);
  bus.clearLog();
  unsigned char buffer[6] = {};
  int count = 77;
  for (const auto& [data, length] :
       {std::pair<unsigned char*, int>{buffer, 0}, {buffer, -1}, {nullptr, 6}}) {
    const CapturedStream out(stdout);
    EXPECT_FALSE(engine.ReadFile(data, length, &count));
    EXPECT_EQ(out.text(), kReadBadArguments);
  }
  EXPECT_EQ(count, 77);
  EXPECT_EQ(bus.count(HidCall::Read), 0);
  engine.CloseDevice();
}

TEST_F(EngineTest, TheMissingDeviceIsReportedBeforeBadArguments) {
  int count = 0;
  const CapturedStream out(stdout);
  EXPECT_FALSE(engine.ReadFile(nullptr, 0, &count));
  EXPECT_FALSE(engine.WriteFile(nullptr, 0, &count));
  EXPECT_EQ(out.text(), std::string(kReadNoDevice) + kWriteNoDevice);
}

// Writing.

TEST_F(EngineTest, WriteFileWithoutADeviceSaysSo) {
  bus.clearLog();
  unsigned char buffer[2] = {};
  int count = 77;
  const CapturedStream out(stdout);
  EXPECT_FALSE(engine.WriteFile(buffer, 2, &count));
  EXPECT_EQ(out.text(), kWriteNoDevice);
  EXPECT_EQ(count, 77);
  EXPECT_EQ(bus.calls(), Calls{});
}

TEST_F(EngineTest, WriteFileWithBadArgumentsSpeaksOfReading) {
  plugUsbPad();
  engine.OpenDevice(1247, 18);
  bus.clearLog();
  unsigned char buffer[2] = {};
  int count = 77;
  for (const auto& [data, length] :
       {std::pair<unsigned char*, int>{buffer, 0}, {buffer, -1}, {nullptr, 2}}) {
    const CapturedStream out(stdout);
    EXPECT_FALSE(engine.WriteFile(data, length, &count));
    EXPECT_EQ(out.text(), kWriteBadArguments);
  }
  EXPECT_EQ(count, 77);
  EXPECT_EQ(bus.calls(), Calls{});
  engine.CloseDevice();
}

TEST_F(EngineTest, OneByteIsEnoughToReadOrToWrite) {
  const auto port = plugUsbPad();
  engine.OpenDevice(1247, 18);
  ASSERT_TRUE(bus.send(port, {0x20}));
  unsigned char buffer[1] = {};
  int count = 77;
  EXPECT_TRUE(engine.ReadFile(buffer, 1, &count));
  EXPECT_EQ(count, 1);
  EXPECT_EQ(buffer[0], 0x20);
  bus.fail(HidCall::Write, {Fault::Kind::Return, 1});
  EXPECT_TRUE(engine.WriteFile(buffer, 1, &count));
  engine.CloseDevice();
}

TEST_F(EngineTest, WriteFileIsTrueFromOneByteOn) {
  plugUsbPad();
  engine.OpenDevice(1247, 18);
  unsigned char buffer[3] = {0, 0x31, 0x32};
  int count = 77;
  for (const int failure : {-1, 0}) {
    bus.fail(HidCall::Write, {Fault::Kind::Return, failure});
    EXPECT_FALSE(engine.WriteFile(buffer, 3, &count));
    EXPECT_EQ(count, 77);
  }
  bus.clearLog();
  bus.fail(HidCall::Write, {Fault::Kind::Return, 1});
  EXPECT_TRUE(engine.WriteFile(buffer, 3, &count));
  EXPECT_EQ(count, 1);
  bus.fail(HidCall::Write, {Fault::Kind::Return, 3});
  EXPECT_TRUE(engine.WriteFile(buffer, 3, &count));
  EXPECT_EQ(count, 3);
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Write, 3, 1, {0, 0x31, 0x32}),
                                called(HidCall::Write, 3, 3, {0, 0x31, 0x32})}));
  engine.CloseDevice();
}

// Pauses after failures.

TEST_F(EngineTest, AFailedReadPausesBeforeItReturns) {
  const auto port = plugUsbPad();
  engine.OpenDevice(1247, 18);
  bus.fail(HidCall::Read, {Fault::Kind::Return, -1}, 1, 2);
  unsigned char buffer[6] = {};
  int count = 0;
  EXPECT_FALSE(engine.ReadFile(buffer, 6, &count));
  EXPECT_EQ(pauses, (std::vector<long>{50'000'000}));
  EXPECT_FALSE(engine.ReadFile(buffer, 6, &count));
  EXPECT_EQ(pauses, (std::vector<long>{50'000'000, 50'000'000}));
  ASSERT_TRUE(bus.send(port, {1, 2, 3, 4, 5, 6}));
  EXPECT_TRUE(engine.ReadFile(buffer, 6, &count));
  EXPECT_EQ(pauses.size(), 2U);
  engine.CloseDevice();
}

double processorSecondsOfThread() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

TEST_F(EngineTest, ReadingAnUnpluggedPadTakesLittleProcessorTime) {
  const auto port = plugUsbPad();
  engine.OpenDevice(1247, 18);
  bus.unplug(port);
  unsigned char buffer[6] = {};
  int count = 0;
  EXPECT_FALSE(engine.ReadFile(buffer, 6, &count));

  const auto begin = std::chrono::steady_clock::now();
  const double processorBegin = processorSecondsOfThread();
  for (int i = 0; i < 20; ++i) EXPECT_FALSE(engine.ReadFile(buffer, 6, &count));
  const double processor = processorSecondsOfThread() - processorBegin;
  const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
  EXPECT_LT(processor, 0.05 * passed.count());
  engine.CloseDevice();
}

TEST_F(EngineTest, TimeOutsCostNoPause) {
  plugUsbPad();
  engine.OpenDevice(1247, 18);
  unsigned char buffer[6] = {};
  int count = 0;
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(engine.ReadFile(buffer, 6, &count));
  EXPECT_EQ(pauses, (std::vector<long>{}));
  engine.CloseDevice();
}

TEST_F(EngineTest, AFailedFeatureCallMakesNoReadPause) {
  plugUsbPad();  // has no feature reports
  engine.OpenDevice(1247, 18);
  unsigned char buffer[6] = {9};
  int count = 0;
  EXPECT_EQ(engine.GetFeature(6, buffer), -1);
  EXPECT_FALSE(engine.ReadFile(buffer, 6, &count));
  EXPECT_EQ(pauses, (std::vector<long>{}));
  engine.CloseDevice();
}

// Reads after failures.

TEST_F(EngineTest, AfterAFailureAReadWaitsInSlices) {
  plugScriptedPad();
  bus.setReadTimeout(std::chrono::milliseconds{1});
  engine.OpenDevice(1247, 18);
  unsigned char unknown[4] = {8};
  int count = 77;
  EXPECT_EQ(engine.GetFeature(4, unknown), -1);
  unsigned char buffer[6] = {};
  EXPECT_FALSE(engine.ReadFile(buffer, 6, &count));
  EXPECT_EQ(arguments.readTimeouts, std::vector<int>(40, 25));  // 1000 ms in all
  EXPECT_EQ(count, 77);
  // Reads that time out do not prove that the pad answers; a feature call does.
  arguments.readTimeouts.clear();
  EXPECT_FALSE(engine.ReadFile(buffer, 6, &count));
  EXPECT_EQ(arguments.readTimeouts.size(), 40U);
  unsigned char known[4] = {9};
  EXPECT_EQ(engine.GetFeature(4, known), 4);
  arguments.readTimeouts.clear();
  EXPECT_FALSE(engine.ReadFile(buffer, 6, &count));
  EXPECT_EQ(arguments.readTimeouts, (std::vector<int>{1000}));
  engine.CloseDevice();
}

TEST_F(EngineTest, ASliceReturnsAReportAtOnce) {
  const auto port = plugScriptedPad();
  engine.OpenDevice(1247, 18);
  unsigned char unknown[4] = {8};
  EXPECT_EQ(engine.GetFeature(4, unknown), -1);
  ASSERT_TRUE(bus.send(port, {0x20, 0x11}));
  unsigned char buffer[6] = {};
  int count = 0;
  EXPECT_TRUE(engine.ReadFile(buffer, 6, &count));
  EXPECT_EQ(count, 2);
  EXPECT_EQ(buffer[1], 0x11);
  EXPECT_EQ(arguments.readTimeouts, (std::vector<int>{25}));
  engine.CloseDevice();
}

TEST_F(EngineTest, AfterASliceTheRestIsOneReadWhenThePadAnswersAgain) {
  plugScriptedPad();
  bus.setReadTimeout(std::chrono::milliseconds{1});
  engine.OpenDevice(1247, 18);
  unsigned char unknown[4] = {8};
  EXPECT_EQ(engine.GetFeature(4, unknown), -1);
  // The first slice is held until a feature call is waiting; that call is next.
  bus.fail(HidCall::Read, {Fault::Kind::Late, 0});
  std::thread reader([&] {
    unsigned char buffer[6] = {};
    int count = 0;
    EXPECT_FALSE(engine.ReadFile(buffer, 6, &count));
  });
  EXPECT_TRUE(bus.waitForBegun(HidCall::Read, 1));
  std::atomic<pid_t> id{0};
  std::thread client([&] {
    id = gettid();
    unsigned char known[4] = {9};
    EXPECT_EQ(engine.GetFeature(4, known), 4);
  });
  EXPECT_TRUE(support::comesTrue([&] { return id != 0 && support::sleeps(id); }));
  bus.releaseLateCalls();
  client.join();
  reader.join();
  ASSERT_EQ(arguments.readTimeouts.size(), 2U);
  EXPECT_EQ(arguments.readTimeouts[0], 25);
  EXPECT_GT(arguments.readTimeouts[1], 25);
  EXPECT_LE(arguments.readTimeouts[1], 975);
  engine.CloseDevice();
}

TEST_F(EngineTest, ADeviceThatIsOpenedStartsWithoutFailures) {
  plugUsbPad();
  engine.OpenDevice(1247, 18);
  unsigned char buffer[6] = {9};
  int count = 0;
  EXPECT_EQ(engine.GetFeature(6, buffer), -1);
  engine.CloseDevice();
  engine.OpenDevice(1247, 18);
  EXPECT_FALSE(engine.ReadFile(buffer, 6, &count));
  EXPECT_EQ(arguments.readTimeouts, (std::vector<int>{1000}));
  EXPECT_EQ(pauses, (std::vector<long>{}));
  engine.CloseDevice();
}

// Calls of two threads on one device. hidapi would free its error text twice if a call begins while
// another one is in progress and a text exists. The bus counts such calls.

TEST_F(EngineTest, AFeatureCallPassesAReadThatWaits) {
  const auto port = plugScriptedPad();
  bus.setReadTimeout(kLongTimeout);
  engine.OpenDevice(1247, 18);
  std::thread reader([&] {
    unsigned char report[6];
    int count = 0;
    EXPECT_TRUE(engine.ReadFile(report, 6, &count));
  });
  EXPECT_TRUE(bus.waitForBegun(HidCall::Read, 1));
  unsigned char buffer[4] = {9};
  EXPECT_EQ(engine.GetFeature(4, buffer), 4);
  EXPECT_EQ(bus.count(HidCall::Read), 0);
  EXPECT_TRUE(bus.send(port, {1}));
  reader.join();
  engine.CloseDevice();
}

// The operations that share the control side, each with the call it makes.
struct ControlOperation {
  HidCall call;
  void (*run)(CVelaIoEngine& engine);
};

class ControlTest : public EngineTest, public testing::WithParamInterface<ControlOperation> {
 protected:
  ControlTest() {
    m_port = plugScriptedPad();
    engine.OpenDevice(1247, 18);
    bus.clearLog();
  }

  ~ControlTest() override { engine.CloseDevice(); }

  // Runs `use` on a separate thread and returns as soon as it either waits or has begun its call.
  // `begun` is the number of calls of that kind allowed to have begun; one more is an error.
  std::thread startAndWaitUntilHeldBack(HidCall call, std::size_t begun,
                                        const std::function<void()>& use) {
    std::atomic<pid_t> id{0};
    std::thread thread([&id, use] {
      id = gettid();
      use();
    });
    EXPECT_TRUE(support::comesTrue(
        [&] { return bus.calls({call}).size() > begun || (id != 0 && support::sleeps(id)); }));
    return thread;
  }

  std::size_t begunCalls(HidCall call) { return bus.calls({call}).size(); }

  VirtualBus::Port m_port = 0;
};

TEST_P(ControlTest, WaitsForTheReadUnderWayWhenACallHasFailed) {
  const HidCall call = GetParam().call;
  bus.setReadTimeout(kLongTimeout);
  bus.fail(HidCall::Read, {Fault::Kind::Late, 0});
  bus.fail(call, {Fault::Kind::Return, -1});
  std::thread reader([&] {
    unsigned char report[6];
    int count = 0;
    EXPECT_TRUE(engine.ReadFile(report, 6, &count));
  });
  EXPECT_TRUE(bus.waitForBegun(HidCall::Read, 1));
  GetParam().run(engine);  // leaves an error text

  std::thread second = startAndWaitUntilHeldBack(call, 1, [&] { GetParam().run(engine); });
  EXPECT_EQ(begunCalls(call), 1U);
  EXPECT_EQ(bus.count(HidCall::Read), 0);
  EXPECT_TRUE(bus.send(m_port, {1}));
  bus.releaseLateCalls();
  reader.join();
  second.join();
  EXPECT_EQ(begunCalls(call), 2U);
}

TEST_P(ControlTest, HoldsTheReadBackWhenACallHasFailed) {
  const HidCall call = GetParam().call;
  bus.fail(call, {Fault::Kind::Return, -1});
  bus.fail(call, {Fault::Kind::Late, 0}, 2);
  GetParam().run(engine);  // leaves an error text
  std::thread late([&] { GetParam().run(engine); });
  EXPECT_TRUE(bus.waitForBegun(call, 2));

  std::thread reader = startAndWaitUntilHeldBack(HidCall::Read, 0, [&] {
    unsigned char report[6];
    int count = 0;
    EXPECT_FALSE(engine.ReadFile(report, 6, &count));
  });
  EXPECT_EQ(begunCalls(HidCall::Read), 0U);
  EXPECT_EQ(bus.count(call), 1);
  bus.releaseLateCalls();
  late.join();
  reader.join();
  EXPECT_GE(begunCalls(HidCall::Read), 1U);
}

TEST_P(ControlTest, LetsTheReadsPassWhileItTakesLong) {
  const HidCall call = GetParam().call;
  bus.fail(call, {Fault::Kind::Late, 0});
  std::thread late([&] { GetParam().run(engine); });
  EXPECT_TRUE(bus.waitForBegun(call, 1));
  for (int i = 0; i < 100; ++i) {
    unsigned char report[6];
    int count = 0;
    EXPECT_TRUE(bus.send(m_port, {1}));
    EXPECT_TRUE(engine.ReadFile(report, 6, &count));
  }
  EXPECT_EQ(bus.count(call), 0);
  bus.releaseLateCalls();
  late.join();
}

TEST_P(ControlTest, WaitsForAnotherOfItsKind) {
  const HidCall call = GetParam().call;
  bus.fail(call, {Fault::Kind::Late, 0});
  std::thread late([&] { GetParam().run(engine); });
  EXPECT_TRUE(bus.waitForBegun(call, 1));
  std::thread second = startAndWaitUntilHeldBack(call, 1, [&] { GetParam().run(engine); });
  EXPECT_EQ(begunCalls(call), 1U);
  bus.releaseLateCalls();
  late.join();
  second.join();
  EXPECT_EQ(begunCalls(call), 2U);
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
