#include "velainkusb.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/OneDriverTest.h"
#include "virtualpads/InkPad.h"

namespace {

#include "artwork/name.xbm"

using support::Bytes;
using support::CallRecord;
using support::Calls;
using support::Fault;
using support::got;
using support::hex;
using support::HidCall;
using support::kNothingWritten;
using support::recordPen;
using support::Sample;
using support::sent;
using support::Written;
using support::writtenBy;
using testing::Each;
using testing::ElementsAre;
using virtualpads::InkPad;
using virtualpads::PadModel;

// What the pad holds before it is opened. Bits outside all fields are set, to show what is carried
// along.
constexpr std::string_view kOptionsBefore = "A0 FC 11 22 A4 31 32 33 34 35 36 F8 44 55 03 AF";
constexpr std::string_view kAllSet = "FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF";
constexpr std::string_view kAllClear = "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";

const CallRecord kOptionsRead = got("03", 17);

CallRecord optionsSent(std::string_view block) {
  return sent("03 " + std::string(block), 17);
}

class InkTest : public support::OneDriverTest<velainkusb, 48> {
 protected:
  void plugModel() {
    plug(model);
    setOptions(kOptionsBefore);
  }

  void openModel() {
    plugModel();
    ASSERT_EQ(driver.OpenConnection(recordPen), 1);
    bus.clearLog();
  }

  // What the pad holds, bypassing the driver.
  void setOptions(std::string_view block) {
    bus.withModel(
        port, [&](PadModel& pad) { EXPECT_TRUE(pad.setFeature(hex("03 " + std::string(block)))); });
  }

  void failRequests(HidCall call, int result) {
    bus.fail(call, {Fault::Kind::Return, result}, 1, support::VirtualBus::kAlways);
  }

  // The block as the next reply leaves one that was full of EE.
  Bytes options() {
    tagOPTIONS block;
    std::memset(&block, 0xEE, sizeof block);
    EXPECT_EQ(driver.GetOptions(&block), 1);
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&block);
    return {bytes, bytes + sizeof block};
  }

  std::shared_ptr<InkPad> model = std::make_shared<InkPad>();
};

using InkOpenTest = InkTest;
using InkCloseTest = InkTest;
using InkPictureTest = InkTest;
using InkOptionsTest = InkTest;
using InkClearTest = InkTest;
using InkSerialTest = InkTest;
using InkSampleTest = InkTest;

// The first request of an ink pad that is opened before main begins, as a static object of a client
// may do. The other static objects of this program that it uses need no initialisation.
const Bytes kSentBeforeMain = [] {
  support::VirtualBus& bus = support::VirtualBus::instance();
  bus.setReadTimeout(std::chrono::milliseconds(1));
  bus.plug(std::make_shared<InkPad>());
  velainkusb driver;
  driver.OpenConnection(nullptr);
  driver.CloseConnection();
  const auto requests = bus.calls({HidCall::SendFeature});
  return requests.empty() ? Bytes{} : requests.front().bytes;
}();

TEST(InkBeforeMainTest, PictureIsThere) {
  ASSERT_EQ(kSentBeforeMain.size(), 2408U);
  EXPECT_EQ(kSentBeforeMain[1], 1);  // the layer
}

TEST_F(InkOpenTest, ThePictureIsTheName) {
  openModel();
  bus.withModel(port, [&](PadModel&) {
    EXPECT_TRUE(std::equal(std::begin(name_bits), std::end(name_bits), model->layer(1).begin()));
  });
}

// The requests that are made when all requests of both kinds give this result.
struct OpenFault {
  int result;
  std::vector<HidCall> requests;
};

class InkOpenFaultTest : public InkTest, public testing::WithParamInterface<OpenFault> {};

TEST_P(InkOpenFaultTest, TheOpenGoesOnInSilence) {
  plugModel();
  failRequests(HidCall::GetFeature, GetParam().result);
  failRequests(HidCall::SendFeature, GetParam().result);
  EXPECT_EQ(writtenBy(1, [&] { return driver.OpenConnection(recordPen); }), kNothingWritten);
  std::vector<HidCall> requests;
  for (const CallRecord& call : bus.calls({HidCall::GetFeature, HidCall::SendFeature}))
    requests.push_back(call.call);
  EXPECT_EQ(requests, GetParam().requests);
  EXPECT_TRUE(waitForThreads(3));
}

constexpr HidCall kGet = HidCall::GetFeature;
constexpr HidCall kSet = HidCall::SendFeature;
INSTANTIATE_TEST_SUITE_P(
    Results, InkOpenFaultTest,
    testing::Values(OpenFault{-1,
                              {kSet, kSet, kSet, kSet, kGet, kSet, kGet, kSet, kGet, kSet, kGet,
                               kSet, kGet, kSet, kGet, kSet, kGet}},
                    // Without the block, inking region and layers are not sent.
                    OpenFault{0,
                              {kSet, kSet, kSet, kSet, kGet, kGet, kSet, kGet, kSet, kGet, kGet,
                               kGet, kGet}}));

TEST_F(InkCloseTest, ResetWhileNotOpenPrintsTheResultOfTheOpenAndSendsNothing) {
  bus.clearLog();
  EXPECT_EQ(writtenBy(0, [&] { return driver.ResetVelaInkDevice(); }),
            (Written{"ResetvelaInkDevice m_handle is 0\n", ""}));
  EXPECT_TRUE(bus.calls().empty());
  EXPECT_EQ(driver.OpenConnection(recordPen), 0);
  EXPECT_EQ(writtenBy([&] { driver.ResetVelaInkDevice(); }),
            (Written{"ResetvelaInkDevice m_handle is -1\n", ""}));
}

TEST_F(InkCloseTest, ResetGivesTheResultOfTheLastLayer) {
  openModel();
  EXPECT_EQ(writtenBy(1, [&] { return driver.ResetVelaInkDevice(); }), kNothingWritten);
  // The last read of the options is the fifth, the last report sent the eighth.
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, 0}, 5);
  EXPECT_EQ(driver.ResetVelaInkDevice(), 0);
  bus.fail(HidCall::SendFeature, {Fault::Kind::Return, 0}, 8);
  EXPECT_EQ(driver.ResetVelaInkDevice(), 0);
  bus.fail(HidCall::SendFeature, {Fault::Kind::Return, 0}, 1, 7);
  EXPECT_EQ(driver.ResetVelaInkDevice(), 1);
}

TEST_F(InkPictureTest, RecordsArePackedAsOnTheWire) {
  EXPECT_EQ(sizeof(LCD_RECT), 6U);
  EXPECT_EQ(sizeof(LCD_SCREEN), 9607U);
  EXPECT_EQ(sizeof(tagOPTIONS), 16U);
}

// A picture whose bytes identify their position.
LCD_SCREEN numberedPicture() {
  LCD_SCREEN picture{};
  picture.bScreen = 2;
  picture.rect = {0x1234, 0x56, 0x789A, 0xBC};
  for (std::size_t i = 0; i < sizeof picture.bPicture; ++i)
    picture.bPicture[i] = static_cast<std::uint8_t>(i % 251);
  return picture;
}

TEST_F(InkPictureTest, FourBandsOfSixtyRowsAreSent) {
  openModel();
  LCD_SCREEN picture = numberedPicture();
  EXPECT_EQ(driver.DrawBitmap(&picture), 2408);
  const Calls calls = bus.calls();
  ASSERT_EQ(calls.size(), 4U);
  // 2400, 4800 and 7200 leave 141, 31 and 172 when divided by 251.
  const std::string_view begins[] = {
      "07 02 00 00 00 00 00 00 00 01 02 03", "07 02 00 3C 00 00 00 00 8D 8E 8F 90",
      "07 02 00 78 00 00 00 00 1F 20 21 22", "07 02 00 B4 00 00 00 00 AC AD AE AF"};
  // And 2399, 4799, 7199 and 9599 leave 140, 30, 171 and 61.
  const std::uint8_t lasts[] = {140, 30, 171, 61};
  for (std::size_t band = 0; band < 4; ++band) {
    const Bytes& report = calls[band].bytes;
    EXPECT_EQ(calls[band].call, HidCall::SendFeature);
    ASSERT_EQ(report.size(), 2408U);
    EXPECT_EQ(Bytes(report.begin(), report.begin() + 12), hex(begins[band]));
    EXPECT_EQ(report.back(), lasts[band]);
  }
}

TEST_F(InkPictureTest, AllBandsAreSentAndTheLastResultCounts) {
  openModel();
  LCD_SCREEN picture{};
  bus.fail(HidCall::SendFeature, {Fault::Kind::Return, 0}, 1, 2);
  bus.fail(HidCall::SendFeature, {Fault::Kind::Return, -1}, 3);
  EXPECT_EQ(driver.DrawBitmap(&picture), 2408);
  bus.fail(HidCall::SendFeature, {Fault::Kind::Return, -1}, 4);
  EXPECT_EQ(driver.DrawBitmap(&picture), -1);
  bus.fail(HidCall::SendFeature, {Fault::Kind::Return, 0}, 4);
  EXPECT_EQ(driver.DrawBitmap(&picture), 0);
  bus.fail(HidCall::SendFeature, {Fault::Kind::Short, 7}, 4);
  EXPECT_EQ(driver.DrawBitmap(&picture), 7);
  EXPECT_EQ(bus.count(HidCall::SendFeature), 16);
}

TEST_F(InkOptionsTest, BlockIsReadAndSentAsItIs) {
  openModel();
  constexpr std::string_view kBlock = "F0 F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF";
  tagOPTIONS block{0xF0, 0xF1,         {0xF2, 0xF3}, 0xF4, {0xF5, 0xF6, 0xF7, 0xF8, 0xF9, 0xFA},
                   0xFB, {0xFC, 0xFD}, 0xFE,         0xFF};
  EXPECT_EQ(driver.SetOptions(&block), 1);
  EXPECT_EQ(options(), hex(kBlock));
  EXPECT_EQ(bus.calls(), (Calls{optionsSent(kBlock), kOptionsRead}));
}

TEST_F(InkOptionsTest, NullPointersAreRefusedWithoutARequest) {
  openModel();
  EXPECT_EQ(driver.DrawBitmap(nullptr), 0);
  EXPECT_EQ(driver.GetOptions(nullptr), 0);
  EXPECT_EQ(driver.SetOptions(nullptr), 0);
  EXPECT_EQ(driver.SetInkingRegion(nullptr), 0);
  EXPECT_TRUE(bus.calls().empty());
}

TEST_F(InkOptionsTest, ReplyOfNoBytesIsNoBlockAndWhatThePadDidNotSendIsZero) {
  openModel();
  setOptions("A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF");
  tagOPTIONS block{1, 1, {1, 1}, 1, {1, 1, 1, 1, 1, 1}, 1, {1, 1}, 1, 1};
  answer(0);
  EXPECT_EQ(driver.GetOptions(&block), 0);
  EXPECT_EQ(block.bReserved0, 1);
  EXPECT_EQ(block.bReserved15, 1);
  answer(-1);
  EXPECT_EQ(options(), hex("", 16));
  cut(1);
  EXPECT_EQ(options(), hex("", 16));
  cut(16);
  EXPECT_EQ(options(), hex("A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE 00"));
}

TEST_F(InkOptionsTest, InkingRegionIsWrittenLittleEndianAndNothingElse) {
  openModel();
  setOptions(kAllSet);
  LCD_RECT region{0x0114, 0x33, 0x0127, 0xBC};
  EXPECT_EQ(driver.SetInkingRegion(&region), 1);
  EXPECT_EQ(bus.calls(),
            (Calls{kOptionsRead, optionsSent("FF FF FF FF FF 14 01 33 27 01 BC FF FF FF FF FF")}));
}

TEST_F(InkOptionsTest, InkTraceTakesTwoBitsOfModeAndSixteenOfValue) {
  openModel();
  setOptions(kAllSet);
  EXPECT_EQ(driver.SetInkTraceOpt(0, 0), 1);
  EXPECT_EQ(driver.SetInkTraceOpt(7, 0x12345), 1);
  setOptions(kAllClear);
  EXPECT_EQ(driver.SetInkTraceOpt(3, -1), 1);
  EXPECT_EQ(driver.SetInkTraceOpt(-3, 0x1FF), 1);
  EXPECT_EQ(bus.calls(),
            (Calls{kOptionsRead, optionsSent("FF FC 00 00 FF FF FF FF FF FF FF FF FF FF FF FF"),
                   kOptionsRead, optionsSent("FF FF 45 23 FF FF FF FF FF FF FF FF FF FF FF FF"),
                   kOptionsRead, optionsSent("00 03 FF FF 00 00 00 00 00 00 00 00 00 00 00 00"),
                   kOptionsRead, optionsSent("00 01 FF 01 00 00 00 00 00 00 00 00 00 00 00 00")}));
}

TEST_F(InkOptionsTest, BacklightTakesTwoBitsOfModeOneOfTheSwitchAndSixteenOfValue) {
  openModel();
  setOptions(kAllSet);
  EXPECT_EQ(driver.SetBackLightOpt(0, 0, 0), 1);
  EXPECT_EQ(driver.SetBackLightOpt(5, 3, 0x54321), 1);
  setOptions(kAllClear);
  EXPECT_EQ(driver.SetBackLightOpt(3, 2, -2), 1);
  EXPECT_EQ(driver.SetBackLightOpt(4, 1, 0x1FF), 1);
  EXPECT_EQ(bus.calls(),
            (Calls{kOptionsRead, optionsSent("FF FF FF FF FF FF FF FF FF FF FF F8 00 00 FF FF"),
                   kOptionsRead, optionsSent("FF FF FF FF FF FF FF FF FF FF FF FD 21 43 FF FF"),
                   kOptionsRead, optionsSent("00 00 00 00 00 00 00 00 00 00 00 03 FE FF 00 00"),
                   kOptionsRead, optionsSent("00 00 00 00 00 00 00 00 00 00 00 04 FF 01 00 00")}));
}

struct LayerCase {
  int layer;
  int state;
  const char* before;  // byte 14
  const char* after;
};

class InkLayerTest : public InkTest, public testing::WithParamInterface<LayerCase> {};

TEST_P(InkLayerTest, StateTakesTwoBits) {
  const LayerCase& param = GetParam();
  const std::string rest = "50 51 52 53 54 55 56 57 58 59 5A 5B 5C 5D ";
  openModel();
  setOptions(rest + param.before + " 5F");
  EXPECT_EQ(driver.SetLayerState(param.layer, param.state), 1);
  EXPECT_EQ(bus.calls(), (Calls{kOptionsRead, optionsSent(rest + param.after + " 5F")}));
}

INSTANTIATE_TEST_SUITE_P(
    Layers, InkLayerTest,
    testing::Values(
        LayerCase{0, 0, "FF", "F3"}, LayerCase{0, 1, "00", "04"}, LayerCase{0, 6, "FF", "FB"},
        LayerCase{0, 3, "00", "0C"}, LayerCase{1, 0, "FF", "CF"}, LayerCase{1, 1, "00", "10"},
        LayerCase{1, 7, "00", "30"}, LayerCase{1, -2, "FF", "EF"}, LayerCase{2, 0, "FF", "3F"},
        LayerCase{2, 1, "00", "40"},
        // 5 << 6 does not fit in a byte; 01 is what is left in bits 6 and 7
        LayerCase{2, 5, "00", "40"}, LayerCase{2, 6, "3F", "BF"}, LayerCase{2, -1, "00", "C0"},
        // No such layer: nothing changes, but the block is sent
        LayerCase{3, 1, "A5", "A5"}, LayerCase{-1, 3, "5A", "5A"}, LayerCase{256, 0, "FF", "FF"}));

TEST_F(InkOptionsTest, LayerThatDoesNotExistGivesTheResultOfTheSend) {
  openModel();
  take(0);
  EXPECT_EQ(driver.SetLayerState(3, 1), 0);
  EXPECT_EQ(driver.SetLayerState(3, 1), 1);
}

TEST_F(InkOptionsTest, WithoutABlockRegionAndLayersSendNothing) {
  openModel();
  failRequests(HidCall::GetFeature, 0);
  LCD_RECT region{1, 2, 3, 4};
  EXPECT_EQ(driver.SetInkingRegion(&region), 0);
  EXPECT_EQ(driver.SetLayerState(0, 0), 0);
  EXPECT_EQ(driver.SetLayerState(3, 0), 0);
  EXPECT_EQ(bus.count(HidCall::SendFeature), 0);
}

TEST_F(InkOptionsTest, WithoutABlockTraceAndBacklightEditTheOneReadAtOpen) {
  openModel();
  failRequests(HidCall::GetFeature, 0);
  EXPECT_EQ(driver.SetBackLightOpt(2, 0, 0x1234), 1);
  EXPECT_EQ(driver.SetInkTraceOpt(1, 0xABCD), 1);
  // Each edit stays in the cached block.
  EXPECT_EQ(bus.calls({HidCall::SendFeature}),
            (Calls{optionsSent("A0 FE F4 01 A4 00 00 00 3F 01 EF FA 34 12 57 AF"),
                   optionsSent("A0 FD CD AB A4 00 00 00 3F 01 EF FA 34 12 57 AF")}));
}

TEST_F(InkOptionsTest, CachedBlockIsTouchedByTheFallbackOnly) {
  openModel();
  setOptions(kAllClear);
  EXPECT_EQ(driver.SetBackLightOpt(3, 1, 0x1111), 1);
  tagOPTIONS options{};
  EXPECT_EQ(driver.GetOptions(&options), 1);
  bus.clearLog();
  failRequests(HidCall::GetFeature, 0);
  EXPECT_EQ(driver.SetInkTraceOpt(0, 0), 1);
  EXPECT_EQ(bus.calls({HidCall::SendFeature}),
            (Calls{optionsSent("A0 FC 00 00 A4 00 00 00 3F 01 EF FD F4 01 57 AF")}));
}

TEST_F(InkOptionsTest, FallbackGivesTheResultOfTheSend) {
  openModel();
  failRequests(HidCall::GetFeature, 0);
  failRequests(HidCall::SendFeature, 0);
  EXPECT_EQ(driver.SetBackLightOpt(1, 1, 1), 0);
  EXPECT_EQ(driver.SetInkTraceOpt(1, 1), 0);
}

// The results of sending a report, as every operation except DrawBitmap interprets them.
class InkSendResultTest : public InkTest,
                          public testing::WithParamInterface<std::pair<int, int>> {};

TEST_P(InkSendResultTest, OnlyZeroIsAFailure) {
  const auto [result, expected] = GetParam();
  openModel();
  failRequests(HidCall::SendFeature, result);
  tagOPTIONS options{};
  LCD_RECT region{};
  EXPECT_EQ(driver.SetOptions(&options), expected);
  EXPECT_EQ(driver.SetInkingRegion(&region), expected);
  EXPECT_EQ(driver.SetInkTraceOpt(1, 1), expected);
  EXPECT_EQ(driver.SetBackLightOpt(1, 1, 1), expected);
  EXPECT_EQ(driver.SetLayerState(0, 1), expected);
  EXPECT_EQ(driver.ClearScrn(0, 0), expected);
  EXPECT_TRUE(driver.ClearInking());  // whatever the result
}

INSTANTIATE_TEST_SUITE_P(Results, InkSendResultTest,
                         testing::Values(std::pair{0, 0}, std::pair{-1, 1}, std::pair{1, 1},
                                         std::pair{17, 1}));

struct ClearCase {
  int a;
  int b;
  const char* report;
};

TEST_F(InkClearTest, ValueIsOneWhenTheLowSixteenBitsOfEitherAreNotZero) {
  openModel();
  for (const auto& [a, b, report] : std::vector<ClearCase>{{0, 0, "09 00 00"},
                                                           {1, 0, "09 01 00"},
                                                           {2, 0, "09 01 00"},
                                                           {0, 1, "09 01 00"},
                                                           {0, 0x8000, "09 01 00"},
                                                           {-1, 0, "09 01 00"},
                                                           {0x10000, 0, "09 00 00"},
                                                           {0, 0x10000, "09 00 00"},
                                                           {0x7FFF0000, 0x10002, "09 01 00"}}) {
    bus.clearLog();
    driver.ClearScrn(a, b);
    EXPECT_EQ(bus.calls(), (Calls{sent(report, 3)})) << a << " " << b;
  }
  bus.clearLog();
  EXPECT_TRUE(driver.ClearInking());
  EXPECT_EQ(bus.calls(), (Calls{sent("09 00 00", 3)}));
}

TEST_F(InkSerialTest, PadsBytesFollowTheKindsPrefixLastToFirst) {
  openModel();
  bus.withModel(port, [&](PadModel&) {
    model->setSerialNumber({0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88});
  });
  // The second one shows that nothing is written past the first.
  _GUID serials[2]{};
  const _GUID& serial = serials[0];
  EXPECT_TRUE(driver.GetSerialNumber(serials));
  EXPECT_EQ(bus.calls(), (Calls{got("06", 9)}));
  EXPECT_EQ(serial.Data1, 0x99F6F7C5U);
  EXPECT_EQ(serial.Data2, 0x1557);
  EXPECT_EQ(serial.Data3, 0x4D19);
  EXPECT_THAT(serial.Data4, ElementsAre(0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11));
  EXPECT_EQ(serials[1].Data1, 0U);
  // What the pad did not send is zero; an error counts as success.
  cut(4);
  EXPECT_TRUE(driver.GetSerialNumber(serials));
  EXPECT_THAT(serial.Data4, ElementsAre(0, 0, 0, 0, 0, 0x33, 0x22, 0x11));
  answer(-1);
  EXPECT_TRUE(driver.GetSerialNumber(serials));
  EXPECT_THAT(serial.Data4, Each(0));
}

TEST_F(InkSerialTest, NullAndAReplyOfNoBytesFailInSilence) {
  openModel();
  _GUID serial{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
  EXPECT_EQ(writtenBy(false, [&] { return driver.GetSerialNumber(nullptr); }), kNothingWritten);
  EXPECT_TRUE(bus.calls().empty());
  answer(0);
  EXPECT_EQ(writtenBy(false, [&] { return driver.GetSerialNumber(&serial); }), kNothingWritten);
  EXPECT_EQ(serial.Data1, 1U);
  EXPECT_THAT(serial.Data4, ElementsAre(4, 5, 6, 7, 8, 9, 10, 11));
}

TEST_F(InkSampleTest, FieldsAreLittleEndianAndTheSequenceIsThePads) {
  openModel();
  send("01 01 34 12 BC 0A FF C8");
  send("01 00 00 90 FF FF 00 00");
  send("01 FF FF 7F 00 00 80 C8");
  EXPECT_TRUE(recorder.waitFor(3));
  EXPECT_EQ(recorder.samples(),
            (std::vector<Sample>{
                {0x1234, 0x0ABC, 255, 1, 200}, {-28672, -1, 0, 0, 0}, {32767, 0, 128, 1, 200}}));
}

TEST_F(InkSampleTest, TouchIsBitZeroOfTheSecondByteAlone) {
  openModel();
  send("00 01 00 00 00 00 00 01");
  send("01 FE 00 00 00 00 00 02");
  send("00 FF 00 00 00 00 00 03");
  EXPECT_TRUE(recorder.waitFor(3));
  EXPECT_EQ(recorder.samples().at(0).touch, 1);
  EXPECT_EQ(recorder.samples().at(1).touch, 0);
  EXPECT_EQ(recorder.samples().at(2).touch, 1);
}

// Only the constructor resets the state in which the next report is the first.
TEST_F(InkSampleTest, SecondOpenOfTheSameObjectDropsNothing) {
  openModel();
  send("01 00 00 00 00 00 00 01");
  EXPECT_TRUE(bus.waitUntilRead(port));
  EXPECT_TRUE(bus.waitForBegun(HidCall::Read, bus.count(HidCall::Read) + 2));
  driver.CloseConnection();
  // The running flag stays cleared, so the reading thread ends with its first failing read: that
  // read has to find the report.
  bus.setReadTimeout(kLongTimeout);
  EXPECT_EQ(driver.OpenConnection(recordPen), 1);
  send("01 00 00 00 00 00 00 02");
  EXPECT_TRUE(recorder.waitFor(1));
  bus.unplug(port);
  driver.CloseConnection();
  EXPECT_EQ(recorder.count(), 1U);
  EXPECT_EQ(recorder.samples().at(0).sequence, 2U);
}

}  // namespace
