// The facade: its table of providers, and what each operation does with and without an open
// provider.
#include "giivela.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/AllocationCount.h"
#include "support/PadTable.h"
#include "support/PadTest.h"
#include "support/ScriptedPad.h"
#include "support/VirtualSlot.h"
#include "support/Written.h"
#include "velaii.h"
#include "velainkusb.h"
#include "velausb.h"
#include "velavision.h"
#include "virtualpads/PadModel.h"

namespace {

using support::called;
using support::Calls;
using support::failAllocation;
using support::HidCall;
using support::kNothingWritten;
using support::liveAllocations;
using support::PadRow;
using support::recordPen;
using support::Sample;
using support::ScriptedPad;
using support::virtualSlot;
using support::Written;
using support::writtenBy;
using virtualpads::makePad;
using virtualpads::PadKind;

constexpr int kUsb = 0;
constexpr int kIi = 1;
constexpr int kInk = 2;
constexpr int kVision = 3;

const PadRow& row(int provider) {
  return support::padTable().at(static_cast<std::size_t>(provider));
}

// The drivers that exist, by provider.
std::array<bool, 4> drivers() {
  return {m_pvelausb != nullptr, m_pvelaii != nullptr, m_pvelaink != nullptr,
          m_pvelavision != nullptr};
}

// A vision pad whose minima are not zero and whose serial number has a zero in it.
std::shared_ptr<ScriptedPad> scriptedVisionPad() {
  auto pad = std::make_shared<ScriptedPad>(std::uint16_t{56});
  pad->replies[2] = support::hex("02 30 31 32 33 34 35 36 37 38 39 3A 3B 3C 00 FF 80", 34);
  pad->replies[3] = support::hex("03", 17);
  pad->replies[4] = support::hex("04 01", 17);
  // Maxima 3001, 2002, 1003, minima 4, 5, 6, width 7/2, height 9/4.
  pad->replies[12] = support::hex(
      "0C 0B B9 07 D2 03 EB 00 04 00 05 00 06 00 00 00 01 00 00 00 01 00 07 00 02 00 09 00 04", 65);
  pad->replies[17] = support::hex("11", 34);
  return pad;
}

// Gives access to a private member: an explicit instantiation may name it.
template <int gIIVela::*member>
struct Reach {
  friend int& numProviders(gIIVela& facade) { return facade.*member; }
};
int& numProviders(gIIVela& facade);
template struct Reach<&gIIVela::m_numProviders>;

class FacadeTest : public support::PadTest {
 protected:
  ~FacadeTest() override {
    facade->CloseConnection();
    facade->CloseProvider();
    EXPECT_EQ(drivers(), (std::array<bool, 4>{}));
  }

  bool openProvider(std::string classId) { return facade->OpenProvider(classId.data()); }
  bool openProvider(int provider) { return openProvider(std::string(row(provider).classId)); }

  void connect(int provider) { connect(provider, makePad(row(provider).kind)); }

  void connect(int provider, std::shared_ptr<virtualpads::PadModel> pad) {
    plug(std::move(pad));
    ASSERT_TRUE(openProvider(provider));
    ASSERT_TRUE(facade->RegisterEventHandler(recordPen));
    ASSERT_TRUE(facade->OpenConnection());
    bus.clearLog();
  }

  // The serial number's text, or "none".
  std::string serialText() {
    const std::unique_ptr<char, decltype(&std::free)> text(facade->GetSerialNumber(), &std::free);
    return text ? text.get() : "none";
  }

  void expectNoAnswers() {
    EXPECT_EQ(facade->GetNumDevices(), 0);
    EXPECT_EQ(facade->GetSerialNumber(), nullptr);
    EXPECT_EQ(facade->GetDataRangeMinX(), 0);
    EXPECT_EQ(facade->GetDataRangeMinY(), 0);
    EXPECT_EQ(facade->GetDataRangeMinZ(), 0);
    EXPECT_EQ(facade->GetDataRangeMaxX(), 0);
    EXPECT_EQ(facade->GetDataRangeMaxY(), 0);
    EXPECT_EQ(facade->GetDataRangeMaxZ(), 0);
    EXPECT_EQ(facade->GetPhysicalX(), 0.0);
    EXPECT_EQ(facade->GetPhysicalY(), 0.0);
    EXPECT_FALSE(facade->ClearInking());
    facade->CloseConnection();
  }

  std::unique_ptr<gIIVela> facade = std::make_unique<gIIVela>();
};

// The table.

TEST_F(FacadeTest, HasFourProviders) {
  EXPECT_EQ(facade->GetNumProviders(), 4);
  for (const short index : std::to_array<short>({0, 1, 2, 3})) {
    EXPECT_STREQ(facade->GetProviderClassID(index), row(index).classId);
    EXPECT_STREQ(facade->GetProviderDescription(index), row(index).provider);
  }
}

TEST_F(FacadeTest, OtherIndicesHaveNoRow) {
  for (const short index : std::to_array<short>({-32768, -1, 4, 9, 10, 32767})) {
    EXPECT_EQ(facade->GetProviderClassID(index), nullptr) << index;
    EXPECT_EQ(facade->GetProviderDescription(index), nullptr) << index;
  }
}

TEST_F(FacadeTest, RowsLieBackToBackInTheFacade) {
  static_assert(sizeof(ProviderEntry) == 97);
  for (const short index : std::to_array<short>({0, 1, 2, 3})) {
    const char* const id = facade->GetProviderClassID(index);
    EXPECT_EQ(id, facade->GetProviderClassID(0) + 97 * index);
    EXPECT_EQ(facade->GetProviderDescription(index), id + 33);
    EXPECT_EQ(std::strlen(id), 32U);
  }
}

TEST_F(FacadeTest, TheTableCannotBeChanged) {
  std::string id = row(1).classId;
  std::string text = "other";
  facade->SetProviderDescription(id.data(), text.data());
  EXPECT_STREQ(facade->GetProviderDescription(1), "Vela II");
}

TEST_F(FacadeTest, KeepsTheOrderOfItsVirtualOperations) {
  static_assert(std::has_virtual_destructor_v<gIIVela>);
  EXPECT_EQ((std::vector<std::size_t>{
                virtualSlot(&gIIVela::CloseConnection),
                virtualSlot(&gIIVela::OpenConnection),
                virtualSlot(&gIIVela::GetNumProviders),
                virtualSlot(&gIIVela::GetProviderClassID),
                virtualSlot(&gIIVela::GetProviderDescription),
                virtualSlot(&gIIVela::SetProviderDescription),
                virtualSlot(&gIIVela::OpenProvider),
                virtualSlot(&gIIVela::CloseProvider),
                virtualSlot(&gIIVela::GetNumDevices),
                virtualSlot(&gIIVela::GetSerialNumber),
                virtualSlot(&gIIVela::GetDataRangeMinX),
                virtualSlot(&gIIVela::GetDataRangeMinY),
                virtualSlot(&gIIVela::GetDataRangeMinZ),
                virtualSlot(&gIIVela::GetDataRangeMaxX),
                virtualSlot(&gIIVela::GetDataRangeMaxY),
                virtualSlot(&gIIVela::GetDataRangeMaxZ),
                virtualSlot(&gIIVela::GetPhysicalX),
                virtualSlot(&gIIVela::GetPhysicalY),
                virtualSlot(&gIIVela::RegisterEventHandler),
                virtualSlot(&gIIVela::ClearInking),
            }),
            (std::vector<std::size_t>{2,  3,  4,  5,  6,  7,  8,  9,  10, 11,
                                      12, 13, 14, 15, 16, 17, 18, 19, 20, 21}));
}

// Opening and closing a provider.

struct ClassIdText {
  const char* text;
  int provider;
};

class ClassIdTest : public FacadeTest, public testing::WithParamInterface<ClassIdText> {};

TEST_P(ClassIdTest, OpensTheFirstRowThatBeginsWithIt) {
  EXPECT_TRUE(openProvider(GetParam().text));
  std::array<bool, 4> expected{};
  expected.at(static_cast<std::size_t>(GetParam().provider)) = true;
  EXPECT_EQ(drivers(), expected);
}

INSTANTIATE_TEST_SUITE_P(Texts, ClassIdTest,
                         testing::Values(ClassIdText{"", 0}, ClassIdText{"7FCD", 0},
                                         ClassIdText{row(0).classId, 0}, ClassIdText{"C", 1},
                                         ClassIdText{row(1).classId, 1}, ClassIdText{"98C1", 2},
                                         ClassIdText{"98C174D36D2A450996DBD5B34FA7A56", 2},
                                         ClassIdText{row(2).classId, 2}, ClassIdText{"3", 3},
                                         ClassIdText{row(3).classId, 3}));

class NoClassIdTest : public FacadeTest, public testing::WithParamInterface<const char*> {};

TEST_P(NoClassIdTest, OpensNothing) {
  bus.clearLog();
  EXPECT_FALSE(openProvider(GetParam()));
  EXPECT_EQ(drivers(), (std::array<bool, 4>{}));
  EXPECT_EQ(bus.calls(), Calls{});
}

INSTANTIATE_TEST_SUITE_P(Texts, NoClassIdTest,
                         testing::Values("3f2de94b14d448719dfe5359ef03652a", "7fcd", " 7FCD",
                                         "7FCE", "8FCD", "0", "7FCD95128763436E874740972EE28EFD0",
                                         "3F2DE94B14D448719DFE5359EF03652A ", "Vela USB"));

TEST_F(FacadeTest, OpeningAProviderMakesItsDriverAndClosingDeletesIt) {
  bus.clearLog();
  EXPECT_TRUE(openProvider(kUsb));
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Init)}));
  facade->CloseProvider();
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Init), called(HidCall::Exit)}));
  EXPECT_EQ(drivers(), (std::array<bool, 4>{}));
}

TEST_F(FacadeTest, AClosedProviderIsForgotten) {
  plug(makePad(PadKind::Usb));
  openProvider(kUsb);
  facade->CloseProvider();
  const auto another = std::make_unique<velausb>();
  m_pvelausb = another.get();
  expectNoAnswers();
  facade->CloseProvider();
  EXPECT_EQ(m_pvelausb, another.get());
  m_pvelausb = nullptr;
}

// The ink pad's driver would print that it resets a pad that is not open.
TEST_F(FacadeTest, ClosingTheProviderDoesNotCloseAConnection) {
  openProvider(kInk);
  EXPECT_EQ(writtenBy([&] { facade->CloseProvider(); }), kNothingWritten);
}

TEST_F(FacadeTest, ClosingNoProviderTouchesNothing) {
  bus.clearLog();
  facade->CloseProvider();
  facade->CloseProvider();
  EXPECT_EQ(bus.calls(), Calls{});
  expectNoAnswers();
}

TEST_F(FacadeTest, AFailedOpenKeepsTheProviderThatIsOpen) {
  plug(makePad(PadKind::Ii));
  openProvider(kIi);
  EXPECT_FALSE(openProvider("FFFF"));
  EXPECT_EQ(facade->GetNumDevices(), 1);
}

TEST_F(FacadeTest, OpeningTheSameKindAgainForgetsTheFirstDriver) {
  openProvider(kUsb);
  const std::unique_ptr<velausb> first(m_pvelausb);
  bus.clearLog();
  EXPECT_TRUE(openProvider(kUsb));
  EXPECT_NE(m_pvelausb, first.get());
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Init)}));
}

TEST_F(FacadeTest, OpeningAnotherKindLeavesTheFirstDriverInItsPlace) {
  plug(makePad(PadKind::Ii));
  openProvider(kUsb);
  velausb* const first = m_pvelausb;
  EXPECT_TRUE(openProvider(kIi));
  EXPECT_EQ(m_pvelausb, first);
  EXPECT_EQ(facade->GetNumDevices(), 1);  // the pad II is counted
  facade->CloseProvider();
  EXPECT_EQ(drivers(), (std::array<bool, 4>{true, false, false, false}));
  EXPECT_EQ(facade->GetNumDevices(), 0);
  delete m_pvelausb;
  m_pvelausb = nullptr;
}

TEST_F(FacadeTest, DestructionLeavesTheDriverAlone) {
  openProvider(kUsb);
  velausb* const driver = m_pvelausb;
  bus.clearLog();
  facade.reset();
  EXPECT_EQ(m_pvelausb, driver);
  EXPECT_EQ(bus.calls(), Calls{});
  delete m_pvelausb;
  facade = std::make_unique<gIIVela>();
}

TEST_F(FacadeTest, AnotherFacadeTakesTheDriversAway) {
  plug(makePad(PadKind::Usb));
  facade->RegisterEventHandler(recordPen);
  for (const int current : {kUsb, kIi, kInk, kVision}) {
    SCOPED_TRACE(current);
    for (const int provider : {kUsb, kIi, kInk, kVision})
      if (provider != current) openProvider(provider);
    openProvider(current);
    const std::unique_ptr<velausb> usb(m_pvelausb);
    const std::unique_ptr<velaii> ii(m_pvelaii);
    const std::unique_ptr<velainkusb> ink(m_pvelaink);
    const std::unique_ptr<velavision> vision(m_pvelavision);

    const gIIVela other;
    EXPECT_EQ(drivers(), (std::array<bool, 4>{}));
    bus.clearLog();
    expectNoAnswers();
    EXPECT_FALSE(facade->OpenConnection());
    facade->CloseProvider();
    EXPECT_EQ(bus.calls(), Calls{});
  }
}

TEST_F(FacadeTest, WithoutProvidersNothingOpens) {
  for (const int providers : {0, -1}) {
    numProviders(*facade) = providers;
    EXPECT_FALSE(openProvider(""));
    EXPECT_FALSE(openProvider(kUsb));
  }
  EXPECT_EQ(drivers(), (std::array<bool, 4>{}));
  numProviders(*facade) = 1;
  EXPECT_FALSE(openProvider(kIi));
  EXPECT_TRUE(openProvider(kUsb));
  facade->CloseProvider();
}

TEST_F(FacadeTest, ADriverThatCannotBeMadeChangesNothing) {
  plug(makePad(PadKind::Ii));
  openProvider(kIi);
  std::string classId = row(kUsb).classId;
  const long before = liveAllocations();
  for (const int allocation : {1, 2}) {  // the driver, its engine
    failAllocation(allocation);
    EXPECT_THROW(facade->OpenProvider(classId.data()), std::bad_alloc);
    EXPECT_EQ(liveAllocations(), before);
  }
  EXPECT_EQ(drivers(), (std::array<bool, 4>{false, true, false, false}));
  EXPECT_EQ(facade->GetNumDevices(), 1);
}

// Without a provider.

TEST_F(FacadeTest, WithoutAProviderNothingIsAnsweredAndNothingAsked) {
  facade->RegisterEventHandler(recordPen);
  bus.clearLog();
  const Written written = writtenBy([&] {
    expectNoAnswers();
    EXPECT_FALSE(facade->OpenConnection());
  });
  EXPECT_EQ(written, kNothingWritten);
  EXPECT_EQ(bus.calls(), Calls{});
}

// The handler.

TEST_F(FacadeTest, WithoutAHandlerNoConnectionIsOpened) {
  constexpr std::array kLines{
      "no call back function for velaubs!!!\n",
      "no call back function for velaii!!!\n",
      "no call back function!!!\n",
      "Need a call back function!!!\n",
  };
  for (const int provider : {kUsb, kIi, kInk, kVision}) {
    plug(makePad(row(provider).kind));
    openProvider(provider);
    bus.clearLog();
    EXPECT_EQ(writtenBy(false, [&] { return facade->OpenConnection(); }),
              (Written{kLines.at(static_cast<std::size_t>(provider)), ""}));
    EXPECT_EQ(bus.calls(), Calls{});
    facade->CloseProvider();
  }
}

TEST_F(FacadeTest, ANullHandlerIsRefusedAndTheEarlierOneStays) {
  EXPECT_FALSE(facade->RegisterEventHandler(nullptr));
  EXPECT_TRUE(facade->RegisterEventHandler(recordPen));
  EXPECT_FALSE(facade->RegisterEventHandler(nullptr));
  plug(makePad(PadKind::Usb));
  openProvider(kUsb);
  EXPECT_TRUE(facade->OpenConnection());
  send("20 5A 00 2D 00 01");
  EXPECT_TRUE(recorder.waitFor(1));
}

TEST_F(FacadeTest, TheLastHandlerCountsAndMayComeAfterTheProvider) {
  plug(makePad(PadKind::Usb));
  openProvider(kUsb);
  facade->RegisterEventHandler(recordPen<1>);
  facade->RegisterEventHandler(recordPen<0>);
  EXPECT_TRUE(facade->OpenConnection());
  send("20 4E 02 27 01 05");
  ASSERT_TRUE(recorder.waitFor(1));
  const Sample sample = recorder.samples().front();
  EXPECT_EQ(sample, (Sample{16383, 16383, 5, 1, sample.sequence}));
}

// Connecting.

TEST_F(FacadeTest, APadThatCannotBeOpenedIsSafeToQueryAndToClose) {
  struct Answers {
    int maxX;
    double width;
    double height;
    std::string serial;
    bool cleared;
  };
  const std::array<Answers, 4> kAnswers{{
      {32767, 3.685, 2.23, "none", true},
      {32767, 0.0, 0.0, "33c72a14d34842c60000000000000000", true},
      {32767, 3.11, 2.28, "99f6f7c515574d190000000000000000", true},
      {0, 0.0, 0.0, "none", false},
  }};
  facade->RegisterEventHandler(recordPen);
  for (const int provider : {kUsb, kIi, kInk, kVision}) {
    plug(makePad(row(provider).kind));
    bus.setAccessible(port, false);
    openProvider(provider);
    const Answers& expected = kAnswers.at(static_cast<std::size_t>(provider));
    writtenBy(true, [&] { return facade->OpenConnection(); });
    bus.clearLog();
    EXPECT_EQ(facade->GetNumDevices(), 1);
    EXPECT_EQ(facade->GetDataRangeMinX(), 0);
    EXPECT_EQ(facade->GetDataRangeMaxX(), expected.maxX);
    EXPECT_EQ(facade->GetPhysicalX(), expected.width);
    EXPECT_EQ(facade->GetPhysicalY(), expected.height);
    EXPECT_EQ(serialText(), expected.serial);
    EXPECT_EQ(facade->ClearInking(), expected.cleared);
    writtenBy([&] { facade->CloseConnection(); });
    EXPECT_EQ(bus.calls(), (Calls{called(HidCall::Enumerate, 0, provider + 1),
                                  called(HidCall::FreeEnumeration)}));
    facade->CloseProvider();
  }
}

TEST_F(FacadeTest, AProviderOpensAgainAlsoWhenItsPadWasPulledOutMeanwhile) {
  facade->RegisterEventHandler(recordPen);
  for (std::size_t connection = 1; connection <= 3; ++connection) {
    plug(makePad(PadKind::Usb));
    openProvider(kUsb);
    EXPECT_TRUE(facade->OpenConnection());
    send("20 5A 00 2D 00 01");
    EXPECT_TRUE(recorder.waitFor(connection));
    bus.unplug(port);
    EXPECT_EQ(facade->GetNumDevices(), 0);
    facade->CloseConnection();
    facade->CloseProvider();
  }
}

// Queries of each provider.

TEST_F(FacadeTest, CountsTheOpenProvidersPads) {
  for (const int provider : {kUsb, kIi, kInk, kVision})
    bus.plug(makePad(row(provider).kind), provider + 1);
  for (const int provider : {kUsb, kIi, kInk, kVision}) {
    openProvider(provider);
    EXPECT_EQ(facade->GetNumDevices(), provider + 1);
    facade->CloseProvider();
  }
}

TEST_F(FacadeTest, TheRangesAndTheSizeAreTheDrivers) {
  for (const int provider : {kUsb, kIi, kInk, kVision}) {
    SCOPED_TRACE(provider);
    connect(provider);
    EXPECT_EQ((std::array{facade->GetDataRangeMinX(), facade->GetDataRangeMaxX(),
                          facade->GetDataRangeMinY(), facade->GetDataRangeMaxY(),
                          facade->GetDataRangeMinZ(), facade->GetDataRangeMaxZ()}),
              row(provider).ranges);
    EXPECT_DOUBLE_EQ(facade->GetPhysicalX(), row(provider).width);
    EXPECT_DOUBLE_EQ(facade->GetPhysicalY(), row(provider).height);
    facade->CloseConnection();
    facade->CloseProvider();
  }
}

TEST_F(FacadeTest, EachRangeIsItsOwnEnd) {
  connect(kVision, scriptedVisionPad());
  EXPECT_EQ(facade->GetDataRangeMinX(), 4);
  EXPECT_EQ(facade->GetDataRangeMinY(), 5);
  EXPECT_EQ(facade->GetDataRangeMinZ(), 6);
  EXPECT_EQ(facade->GetDataRangeMaxX(), 3001);
  EXPECT_EQ(facade->GetDataRangeMaxY(), 2002);
  EXPECT_EQ(facade->GetDataRangeMaxZ(), 1003);
}

TEST_F(FacadeTest, ARangeThatTheDriverDoesNotReportIsZeroAfterOneItReported) {
  connect(kVision, scriptedVisionPad());
  ASSERT_EQ(facade->GetDataRangeMaxZ(), 1003);
  facade->CloseConnection();
  EXPECT_EQ(facade->GetDataRangeMaxZ(), 0);
  facade->CloseProvider();
  EXPECT_EQ(facade->GetDataRangeMaxZ(), 0);
}

TEST_F(FacadeTest, ClearsTheInkOfEachPad) {
  const std::array<Calls, 4> kRequests{
      {{}, {}, {support::sent("09 00 00", 3)}, {support::sent("12", 17)}}};
  for (const int provider : {kUsb, kIi, kInk, kVision}) {
    SCOPED_TRACE(provider);
    connect(provider);
    EXPECT_TRUE(facade->ClearInking());
    Calls calls = bus.calls();
    std::erase(calls, support::sent("1A", 17));  // a keep-alive may come between
    EXPECT_EQ(calls, kRequests.at(static_cast<std::size_t>(provider)));
    facade->CloseConnection();
    facade->CloseProvider();
  }
}

// The serial number.

TEST_F(FacadeTest, TheSerialNumberIsHexadecimalText) {
  const std::array<const char*, 3> kTexts{"none", "33c72a14d34842c6becddcebfa091827",
                                          "99f6f7c515574d19a897867564534231"};
  for (const int provider : {kUsb, kIi, kInk}) {
    connect(provider);
    EXPECT_EQ(serialText(), kTexts.at(static_cast<std::size_t>(provider)));
    facade->CloseConnection();
    facade->CloseProvider();
    bus.unplug(port);
  }
  const auto pad = std::make_shared<ScriptedPad>(std::uint16_t{31});
  pad->replies[2] = support::hex("02 00 00 00 00 00 00 00 00 C2 01 00 80 7F 0B A0 FF");
  connect(kIi, pad);
  EXPECT_EQ(serialText(), "33c72a14d34842c6ffa00b7f800001c2");
}

TEST_F(FacadeTest, TheVisionPadsSerialNumberIsItsSixteenBytes) {
  connect(kVision, scriptedVisionPad());
  const std::unique_ptr<char, decltype(&std::free)> serial(facade->GetSerialNumber(), &std::free);
  ASSERT_NE(serial, nullptr);
  const std::array<unsigned char, 16> expected{0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37,
                                               0x38, 0x39, 0x3A, 0x3B, 0x3C, 0x00, 0xFF, 0x80};
  EXPECT_EQ(std::memcmp(serial.get(), expected.data(), expected.size()), 0);
}

TEST_F(FacadeTest, ASerialNumberThatCannotBeReadIsNull) {
  connect(kVision);
  bus.fail(HidCall::GetFeature, {support::Fault::Kind::Return, -1});
  EXPECT_EQ(facade->GetSerialNumber(), nullptr);
}

}  // namespace
