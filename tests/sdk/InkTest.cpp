#include "velainkusb.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <string_view>
#include <vector>

#include "support/PadTest.h"
#include "support/Written.h"
#include "virtualpads/InkPad.h"

namespace {

#include "artwork/name.xbm"

using support::Bytes;
using support::called;
using support::CallRecord;
using support::Calls;
using support::Fault;
using support::hex;
using support::HidCall;
using support::kNothingWritten;
using support::recordPen;
using support::Sample;
using support::Written;
using support::writtenBy;
using testing::Each;
using testing::ElementsAre;
using virtualpads::InkPad;
using virtualpads::PadModel;

// What the pad holds before it is opened. Bits outside all fields are set, to show what is carried
// along.
constexpr std::string_view kOptionsBefore = "A0 FC 11 22 A4 31 32 33 34 35 36 F8 44 55 03 AF";

Bytes optionsReport(std::string_view block) {
  return hex("03 " + std::string(block));
}

CallRecord optionsRead() {
  return called(HidCall::GetFeature, 17, 17, hex("03", 17));
}

CallRecord optionsSent(std::string_view block) {
  return called(HidCall::SendFeature, 17, 17, optionsReport(block));
}

CallRecord clearSent(int value) {
  return called(HidCall::SendFeature, 3, 3, value != 0 ? hex("09 01 00") : hex("09 00 00"));
}

class InkTest : public support::PadTest {
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

  // What the pad holds, read bypassing the driver.
  void setOptions(std::string_view block) {
    bus.withModel(port, [&](PadModel& pad) { EXPECT_TRUE(pad.setFeature(optionsReport(block))); });
  }

  void failRequests(HidCall call, int result) {
    bus.fail(call, {Fault::Kind::Return, result}, 1, support::VirtualBus::kAlways);
  }

  std::shared_ptr<InkPad> model = std::make_shared<InkPad>();
  velainkusb driver;
};

using InkOpenTest = InkTest;
using InkCloseTest = InkTest;
using InkPictureTest = InkTest;
using InkOptionsTest = InkTest;
using InkClearTest = InkTest;
using InkSerialTest = InkTest;
using InkSampleTest = InkTest;

TEST_F(InkOpenTest, ThePictureIsTheName) {
  openModel();
  bus.withModel(port, [&](PadModel&) {
    EXPECT_TRUE(std::equal(std::begin(name_bits), std::end(name_bits), model->layer(1).begin()));
  });
  driver.CloseConnection();
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
  int opened = -9;
  EXPECT_EQ(writtenBy([&] { opened = driver.OpenConnection(recordPen); }), kNothingWritten);
  EXPECT_EQ(opened, 1);
  std::vector<HidCall> requests;
  for (const CallRecord& call : bus.calls({HidCall::GetFeature, HidCall::SendFeature}))
    requests.push_back(call.call);
  EXPECT_EQ(requests, GetParam().requests);
  EXPECT_TRUE(waitForThreads(3));
  bus.clearFaults();
  driver.CloseConnection();
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

TEST_F(InkCloseTest, ResetAfterAFailedOpenPrintsItsResult) {
  EXPECT_EQ(driver.OpenConnection(recordPen), 0);
  EXPECT_EQ(writtenBy([&] { driver.ResetVelaInkDevice(); }),
            (Written{"ResetvelaInkDevice m_handle is -1\n", ""}));
}

TEST_F(InkCloseTest, ResetBeforeOpenReportsZeroAndSendsNothing) {
  plugModel();
  bus.clearLog();
  int reset = -9;
  EXPECT_EQ(writtenBy([&] { reset = driver.ResetVelaInkDevice(); }),
            (Written{"ResetvelaInkDevice m_handle is 0\n", ""}));
  EXPECT_EQ(reset, 0);
  EXPECT_TRUE(bus.calls().empty());
}

TEST_F(InkCloseTest, ResetGivesTheResultOfTheLastLayer) {
  openModel();
  int reset = -9;
  EXPECT_EQ(writtenBy([&] { reset = driver.ResetVelaInkDevice(); }), kNothingWritten);
  EXPECT_EQ(reset, 1);
  // The last read of the options is the fifth, the last report sent the eighth.
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, 0}, 5);
  EXPECT_EQ(driver.ResetVelaInkDevice(), 0);
  bus.fail(HidCall::SendFeature, {Fault::Kind::Return, 0}, 8);
  EXPECT_EQ(driver.ResetVelaInkDevice(), 0);
  bus.fail(HidCall::SendFeature, {Fault::Kind::Return, 0}, 1, 7);
  EXPECT_EQ(driver.ResetVelaInkDevice(), 1);
  driver.CloseConnection();
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
  driver.CloseConnection();
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
  driver.CloseConnection();
}

TEST_F(InkPictureTest, NoPictureSendsNothing) {
  openModel();
  EXPECT_EQ(driver.DrawBitmap(nullptr), 0);
  EXPECT_TRUE(bus.calls().empty());
  driver.CloseConnection();
}

TEST_F(InkOptionsTest, BlockIsReadAsItIs) {
  openModel();
  setOptions("00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F");
  tagOPTIONS options{};
  EXPECT_EQ(driver.GetOptions(&options), 1);
  EXPECT_EQ(bus.calls(), (Calls{optionsRead()}));
  driver.CloseConnection();
  EXPECT_EQ(options.bReserved0, 0x00);
  EXPECT_EQ(options.bInkTrace, 0x01);
  EXPECT_THAT(options.bInkTraceValue, ElementsAre(0x02, 0x03));
  EXPECT_EQ(options.bReserved4, 0x04);
  EXPECT_THAT(options.bInkingRegion, ElementsAre(0x05, 0x06, 0x07, 0x08, 0x09, 0x0A));
  EXPECT_EQ(options.bBackLight, 0x0B);
  EXPECT_THAT(options.bBackLightValue, ElementsAre(0x0C, 0x0D));
  EXPECT_EQ(options.bLayerStates, 0x0E);
  EXPECT_EQ(options.bReserved15, 0x0F);
}

TEST_F(InkOptionsTest, BlockIsSentAsItIs) {
  openModel();
  tagOPTIONS options{0xF0, 0xF1,         {0xF2, 0xF3}, 0xF4, {0xF5, 0xF6, 0xF7, 0xF8, 0xF9, 0xFA},
                     0xFB, {0xFC, 0xFD}, 0xFE,         0xFF};
  EXPECT_EQ(driver.SetOptions(&options), 1);
  EXPECT_EQ(bus.calls(), (Calls{optionsSent("F0 F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF")}));
  driver.CloseConnection();
}

TEST_F(InkOptionsTest, NullPointersAreRefusedWithoutARequest) {
  openModel();
  EXPECT_EQ(driver.GetOptions(nullptr), 0);
  EXPECT_EQ(driver.SetOptions(nullptr), 0);
  EXPECT_EQ(driver.SetInkingRegion(nullptr), 0);
  EXPECT_TRUE(bus.calls().empty());
  driver.CloseConnection();
}

TEST_F(InkOptionsTest, ReplyOfNoBytesIsNoBlockAndAnErrorIsAnEmptyOne) {
  openModel();
  tagOPTIONS options{1, 1, {1, 1}, 1, {1, 1, 1, 1, 1, 1}, 1, {1, 1}, 1, 1};
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, 0});
  EXPECT_EQ(driver.GetOptions(&options), 0);
  EXPECT_EQ(options.bReserved0, 1);
  EXPECT_EQ(options.bReserved15, 1);
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, -1});
  EXPECT_EQ(driver.GetOptions(&options), 1);
  EXPECT_EQ(options.bReserved0, 0);
  EXPECT_EQ(options.bLayerStates, 0);
  EXPECT_EQ(options.bReserved15, 0);
  driver.CloseConnection();
}

TEST_F(InkOptionsTest, InkingRegionIsWrittenLittleEndianAndNothingElse) {
  openModel();
  setOptions("FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF");
  LCD_RECT region{0x0114, 0x33, 0x0127, 0xBC};
  EXPECT_EQ(driver.SetInkingRegion(&region), 1);
  EXPECT_EQ(bus.calls(),
            (Calls{optionsRead(), optionsSent("FF FF FF FF FF 14 01 33 27 01 BC FF FF FF FF FF")}));
  driver.CloseConnection();
}

TEST_F(InkOptionsTest, InkTraceTakesTwoBitsOfModeAndSixteenOfValue) {
  openModel();
  setOptions("FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF");
  EXPECT_EQ(driver.SetInkTraceOpt(0, 0), 1);
  EXPECT_EQ(driver.SetInkTraceOpt(7, 0x12345), 1);
  setOptions("00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
  EXPECT_EQ(driver.SetInkTraceOpt(3, -1), 1);
  EXPECT_EQ(driver.SetInkTraceOpt(-3, 0x1FF), 1);
  EXPECT_EQ(bus.calls(),
            (Calls{optionsRead(), optionsSent("FF FC 00 00 FF FF FF FF FF FF FF FF FF FF FF FF"),
                   optionsRead(), optionsSent("FF FF 45 23 FF FF FF FF FF FF FF FF FF FF FF FF"),
                   optionsRead(), optionsSent("00 03 FF FF 00 00 00 00 00 00 00 00 00 00 00 00"),
                   optionsRead(), optionsSent("00 01 FF 01 00 00 00 00 00 00 00 00 00 00 00 00")}));
  driver.CloseConnection();
}

TEST_F(InkOptionsTest, BacklightTakesTwoBitsOfModeOneOfTheSwitchAndSixteenOfValue) {
  openModel();
  setOptions("FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF");
  EXPECT_EQ(driver.SetBackLightOpt(0, 0, 0), 1);
  EXPECT_EQ(driver.SetBackLightOpt(5, 3, 0x54321), 1);
  setOptions("00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
  EXPECT_EQ(driver.SetBackLightOpt(3, 2, -2), 1);
  EXPECT_EQ(driver.SetBackLightOpt(4, 1, 0x1FF), 1);
  EXPECT_EQ(bus.calls(),
            (Calls{optionsRead(), optionsSent("FF FF FF FF FF FF FF FF FF FF FF F8 00 00 FF FF"),
                   optionsRead(), optionsSent("FF FF FF FF FF FF FF FF FF FF FF FD 21 43 FF FF"),
                   optionsRead(), optionsSent("00 00 00 00 00 00 00 00 00 00 00 03 FE FF 00 00"),
                   optionsRead(), optionsSent("00 00 00 00 00 00 00 00 00 00 00 04 FF 01 00 00")}));
  driver.CloseConnection();
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
  EXPECT_EQ(bus.calls(), (Calls{optionsRead(), optionsSent(rest + param.after + " 5F")}));
  driver.CloseConnection();
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
  bus.fail(HidCall::SendFeature, {Fault::Kind::Return, 0});
  EXPECT_EQ(driver.SetLayerState(3, 1), 0);
  EXPECT_EQ(driver.SetLayerState(3, 1), 1);
  driver.CloseConnection();
}

TEST_F(InkOptionsTest, WithoutABlockRegionAndLayersSendNothing) {
  openModel();
  failRequests(HidCall::GetFeature, 0);
  LCD_RECT region{1, 2, 3, 4};
  EXPECT_EQ(driver.SetInkingRegion(&region), 0);
  EXPECT_EQ(driver.SetLayerState(0, 0), 0);
  EXPECT_EQ(driver.SetLayerState(3, 0), 0);
  EXPECT_EQ(bus.count(HidCall::SendFeature), 0);
  bus.clearFaults();
  driver.CloseConnection();
}

TEST_F(InkOptionsTest, WithoutABlockTraceAndBacklightEditTheOneReadAtOpen) {
  openModel();
  failRequests(HidCall::GetFeature, 0);
  EXPECT_EQ(driver.SetBackLightOpt(2, 0, 0x1234), 1);
  EXPECT_EQ(driver.SetInkTraceOpt(1, 0xABCD), 1);
  // Each edit stays in the cached block.
  EXPECT_EQ((std::vector<Bytes>{bus.calls({HidCall::SendFeature}).at(0).bytes,
                                bus.calls({HidCall::SendFeature}).at(1).bytes}),
            (std::vector<Bytes>{
                optionsReport("A0 FE F4 01 A4 00 00 00 3F 01 EF FA 34 12 57 AF"),
                optionsReport("A0 FD CD AB A4 00 00 00 3F 01 EF FA 34 12 57 AF"),
            }));
  bus.clearFaults();
  driver.CloseConnection();
}

TEST_F(InkOptionsTest, CachedBlockIsTouchedByTheFallbackOnly) {
  openModel();
  setOptions("00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
  EXPECT_EQ(driver.SetBackLightOpt(3, 1, 0x1111), 1);
  tagOPTIONS options{};
  EXPECT_EQ(driver.GetOptions(&options), 1);
  bus.clearLog();
  failRequests(HidCall::GetFeature, 0);
  EXPECT_EQ(driver.SetInkTraceOpt(0, 0), 1);
  EXPECT_EQ(bus.calls({HidCall::SendFeature}),
            (Calls{optionsSent("A0 FC 00 00 A4 00 00 00 3F 01 EF FD F4 01 57 AF")}));
  bus.clearFaults();
  driver.CloseConnection();
}

TEST_F(InkOptionsTest, FallbackGivesTheResultOfTheSend) {
  openModel();
  failRequests(HidCall::GetFeature, 0);
  failRequests(HidCall::SendFeature, 0);
  EXPECT_EQ(driver.SetBackLightOpt(1, 1, 1), 0);
  EXPECT_EQ(driver.SetInkTraceOpt(1, 1), 0);
  bus.clearFaults();
  driver.CloseConnection();
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
  bus.clearFaults();
  driver.CloseConnection();
}

INSTANTIATE_TEST_SUITE_P(Results, InkSendResultTest,
                         testing::Values(std::pair{0, 0}, std::pair{-1, 1}, std::pair{1, 1},
                                         std::pair{17, 1}));

TEST_F(InkClearTest, ValueIsOneWhenTheLowSixteenBitsOfEitherAreNotZero) {
  openModel();
  driver.ClearScrn(0, 0);
  driver.ClearScrn(1, 0);
  driver.ClearScrn(2, 0);
  driver.ClearScrn(0, 1);
  driver.ClearScrn(0, 0x8000);
  driver.ClearScrn(-1, 0);
  driver.ClearScrn(0x10000, 0);
  driver.ClearScrn(0, 0x10000);
  driver.ClearScrn(0x7FFF0000, 0x10002);
  EXPECT_EQ(bus.calls(),
            (Calls{clearSent(0), clearSent(1), clearSent(1), clearSent(1), clearSent(1),
                   clearSent(1), clearSent(0), clearSent(0), clearSent(1)}));
  driver.CloseConnection();
}

TEST_F(InkClearTest, ClearInkingSendsZero) {
  openModel();
  EXPECT_TRUE(driver.ClearInking());
  EXPECT_EQ(bus.calls(), (Calls{clearSent(0)}));
  driver.CloseConnection();
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
  EXPECT_EQ(bus.calls(), (Calls{called(HidCall::GetFeature, 9, 9, hex("06", 9))}));
  driver.CloseConnection();
  EXPECT_EQ(serial.Data1, 0x99F6F7C5U);
  EXPECT_EQ(serial.Data2, 0x1557);
  EXPECT_EQ(serial.Data3, 0x4D19);
  EXPECT_THAT(serial.Data4, ElementsAre(0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11));
  EXPECT_EQ(serials[1].Data1, 0U);
}

TEST_F(InkSerialTest, NullAndAReplyOfNoBytesFailInSilence) {
  openModel();
  bool given = true;
  EXPECT_EQ(writtenBy([&] { given = driver.GetSerialNumber(nullptr); }), kNothingWritten);
  EXPECT_FALSE(given);
  EXPECT_TRUE(bus.calls().empty());
  bus.fail(HidCall::GetFeature, {Fault::Kind::Return, 0});
  _GUID serial{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
  given = true;
  EXPECT_EQ(writtenBy([&] { given = driver.GetSerialNumber(&serial); }), kNothingWritten);
  EXPECT_FALSE(given);
  EXPECT_EQ(serial.Data1, 1U);
  EXPECT_THAT(serial.Data4, ElementsAre(4, 5, 6, 7, 8, 9, 10, 11));
  driver.CloseConnection();
}

TEST_F(InkSampleTest, FieldsAreLittleEndianAndTheSequenceIsThePads) {
  openModel();
  send("01 01 34 12 BC 0A FF C8");
  send("01 00 00 90 FF FF 00 00");
  send("01 FF FF 7F 00 00 80 C8");
  EXPECT_TRUE(recorder.waitFor(3));
  driver.CloseConnection();
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
  driver.CloseConnection();
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
