#include "virtualpads/InkPad.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace virtualpads {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::Optional;

constexpr PenState kUpperLeft{.x = 0, .y = 0, .pressure = 0.5, .touch = true};
constexpr PenState kUpperRight{.x = 1, .y = 0, .pressure = 0.5, .touch = true};
constexpr PenState kLowerLeft{.x = 0, .y = 1, .pressure = 0.5, .touch = true};
constexpr PenState kLifted{.x = 0, .y = 0, .pressure = 0, .touch = false};

// The factory's option block with ink trace mode 2 and value 500, everything in region.
Bytes optionsWithInk() {
  return {3,    0x03, 0x16, 0xF4, 0x01, 0x08, 0x00, 0x00, 0x00,
          0x3F, 0x01, 0xEF, 0x24, 0xF4, 0x01, 0x01, 0x7C};
}

Bytes optionsWithLayerStates(std::uint8_t states) {
  Bytes report = optionsWithInk();
  report[15] = states;
  return report;
}

Bytes pictureBand(std::uint8_t layer, std::uint8_t firstRow, std::uint8_t filling) {
  Bytes report(2408, filling);
  std::fill_n(report.begin(), 8, std::uint8_t{0});
  report[0] = 7;
  report[1] = layer;
  report[3] = firstRow;
  return report;
}

TEST(InkPadTest, EncodesPositionAndPressureAndCountsItsReports) {
  InkPad pad;
  EXPECT_THAT(pad.inputReport({.x = 0.25, .y = 1, .pressure = 1, .touch = true}),
              ElementsAre(1, 0x21, 0x00, 0x20, 0xFF, 0x7F, 255, 0));
  EXPECT_THAT(pad.inputReport({.x = 1, .y = 0.25, .pressure = 0, .touch = true}),
              ElementsAre(1, 0x21, 0xFF, 0x7F, 0x00, 0x20, 0, 1));
  EXPECT_THAT(pad.inputReport({.x = 2, .y = -1, .pressure = 1, .touch = false}),
              ElementsAre(1, 0x20, 0xFF, 0x7F, 0x00, 0x00, 0, 2));
}

TEST(InkPadTest, CountsFrom255BackTo0) {
  InkPad pad;
  for (int i = 0; i < 255; ++i) pad.inputReport(kLifted);
  EXPECT_EQ(pad.inputReport(kLifted)[7], 255);
  EXPECT_EQ(pad.inputReport(kLifted)[7], 0);
}

TEST(InkPadTest, LeavesTheFactoryWithoutInkAndWithAllLayersHidden) {
  InkPad pad;
  EXPECT_THAT(pad.getFeature(3), Optional(Bytes{3, 0x03, 0x14, 0x2C, 0x01, 0x08, 0x00, 0x00, 0x00,
                                                0x3F, 0x01, 0xEF, 0x24, 0xF4, 0x01, 0x01, 0x7C}));
  EXPECT_EQ(pad.inkTrace(), (InkPad::InkTrace{.mode = 0, .value = 300}));
  EXPECT_EQ(pad.inkingRegion(),
            (InkPad::Rectangle{.left = 0, .top = 0, .right = 319, .bottom = 239}));
  EXPECT_EQ(pad.backlight(), (InkPad::Backlight{.mode = 0, .on = true, .value = 500}));
  EXPECT_EQ(pad.layerState(0), 0);
  EXPECT_EQ(pad.layerState(1), 0);
  EXPECT_EQ(pad.layerState(2), 0);
  EXPECT_THAT(pad.lcdImage(), Each(0));
}

TEST(InkPadTest, TakesAndReportsItsOptionBlock) {
  InkPad pad;
  const Bytes report = {3,    0xA0, 0xFD, 0x34, 0x12, 0xA4, 0x02, 0x01, 0x11,
                        0x04, 0x01, 0x22, 0xFB, 0x78, 0x56, 0x93, 0xAF};
  ASSERT_TRUE(pad.setFeature(report));
  EXPECT_THAT(pad.getFeature(3), Optional(report));
  EXPECT_EQ(Bytes(pad.options().begin(), pad.options().end()),
            Bytes(report.begin() + 1, report.end()));
  EXPECT_EQ(pad.inkTrace(), (InkPad::InkTrace{.mode = 1, .value = 0x1234}));
  EXPECT_EQ(pad.inkingRegion(),
            (InkPad::Rectangle{.left = 0x0102, .top = 0x11, .right = 0x0104, .bottom = 0x22}));
  EXPECT_EQ(pad.backlight(), (InkPad::Backlight{.mode = 3, .on = false, .value = 0x5678}));
  // 0x93 = 10 01 00 11
  EXPECT_EQ(pad.layerState(0), 0);
  EXPECT_EQ(pad.layerState(1), 1);
  EXPECT_EQ(pad.layerState(2), 2);
}

TEST(InkPadTest, ReportsItsSerialNumber) {
  InkPad pad;
  EXPECT_THAT(pad.getFeature(6),
              Optional(Bytes{6, 0x31, 0x42, 0x53, 0x64, 0x75, 0x86, 0x97, 0xA8}));
  pad.setSerialNumber({0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88});
  EXPECT_THAT(pad.getFeature(6),
              Optional(Bytes{6, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}));
}

TEST(InkPadTest, PutsAPictureBandIntoItsLayerAndRows) {
  InkPad pad;
  Bytes band = pictureBand(2, 60, 0x00);
  band[8] = 0x01;       // leftmost pixel of row 60
  band[2407] = 0x80;    // rightmost pixel of row 119
  band[8 + 41] = 0x10;  // row 61, pixel 12
  ASSERT_TRUE(pad.setFeature(band));
  EXPECT_THAT(pad.layer(0), Each(0));
  EXPECT_THAT(pad.layer(1), Each(0));
  EXPECT_EQ(std::ranges::count(pad.layer(2), 0), 9597);
  EXPECT_TRUE(InkPad::isDark(pad.layer(2), 0, 60));
  EXPECT_TRUE(InkPad::isDark(pad.layer(2), 319, 119));
  EXPECT_TRUE(InkPad::isDark(pad.layer(2), 12, 61));
  EXPECT_FALSE(InkPad::isDark(pad.layer(2), 13, 61));
  EXPECT_FALSE(InkPad::isDark(pad.layer(2), 12, 60));
}

TEST(InkPadTest, RefusesABandOutsideOfThePictureOrItsLayers) {
  InkPad pad;
  EXPECT_FALSE(pad.setFeature(pictureBand(3, 0, 0xFF)));
  EXPECT_FALSE(pad.setFeature(pictureBand(0, 181, 0xFF)));
  EXPECT_THAT(pad.layer(0), Each(0));
  EXPECT_THAT(pad.layer(1), Each(0));
  EXPECT_THAT(pad.layer(2), Each(0));
}

TEST(InkPadTest, ShowsTheLayersThatAreNotHiddenOverEachOther) {
  InkPad pad;
  ASSERT_TRUE(pad.setFeature(pictureBand(0, 0, 0x01)));
  ASSERT_TRUE(pad.setFeature(pictureBand(1, 0, 0x02)));
  ASSERT_TRUE(pad.setFeature(pictureBand(2, 0, 0x04)));
  ASSERT_TRUE(pad.setFeature(optionsWithLayerStates(0x00)));
  EXPECT_EQ(pad.lcdImage()[0], 0x00);
  ASSERT_TRUE(pad.setFeature(optionsWithLayerStates(0x04)));  // layer 0 in state 1
  EXPECT_EQ(pad.lcdImage()[0], 0x01);
  ASSERT_TRUE(pad.setFeature(optionsWithLayerStates(0x30)));  // layer 1 in state 3
  EXPECT_EQ(pad.lcdImage()[0], 0x02);
  ASSERT_TRUE(pad.setFeature(optionsWithLayerStates(0x94)));  // layers 0, 1, 2 in states 1, 1, 2
  EXPECT_EQ(pad.lcdImage()[0], 0x07);
  EXPECT_EQ(pad.lcdImage()[2400], 0x00);
}

TEST(InkPadTest, DrawsInkUnderThePen) {
  InkPad pad;
  ASSERT_TRUE(pad.setFeature(optionsWithInk()));
  pad.inputReport(kUpperLeft);
  EXPECT_EQ(pad.ink()[0], 0x01);
  EXPECT_EQ(std::ranges::count(pad.ink(), 0), 9599);
  pad.inputReport(kUpperRight);
  EXPECT_EQ(std::ranges::count(pad.ink(), 0xFF), 40);
  EXPECT_EQ(std::ranges::count(pad.ink(), 0), 9560);
  EXPECT_EQ(pad.ink()[39], 0xFF);
  EXPECT_EQ(pad.lcdImage(), pad.ink());
}

TEST(InkPadTest, DrawsNoInkBetweenTwoStrokes) {
  InkPad pad;
  ASSERT_TRUE(pad.setFeature(optionsWithInk()));
  pad.inputReport(kUpperLeft);
  pad.inputReport(kLifted);
  pad.inputReport(kLowerLeft);
  EXPECT_EQ(pad.ink()[0], 0x01);
  EXPECT_EQ(pad.ink()[9560], 0x01);
  EXPECT_EQ(std::ranges::count(pad.ink(), 0), 9598);
}

TEST(InkPadTest, DrawsInkOnlyWithinTheInkingRegion) {
  InkPad pad;
  Bytes options = optionsWithInk();
  options[6] = 8;    // left
  options[9] = 15;   // right, low byte
  options[10] = 0;   // right, high byte
  options[11] = 10;  // bottom
  ASSERT_TRUE(pad.setFeature(options));
  pad.inputReport(kUpperLeft);
  pad.inputReport(kUpperRight);
  EXPECT_EQ(pad.ink()[1], 0xFF);
  EXPECT_EQ(std::ranges::count(pad.ink(), 0), 9599);
  pad.inputReport(kLifted);
  options[8] = 6;  // top
  ASSERT_TRUE(pad.setFeature(options));
  pad.inputReport({.x = 0.0314, .y = 0, .pressure = 1, .touch = true});  // pixel 10
  pad.inputReport({.x = 0.0314, .y = 1, .pressure = 1, .touch = true});
  EXPECT_FALSE(InkPad::isDark(pad.ink(), 10, 5));
  EXPECT_TRUE(InkPad::isDark(pad.ink(), 10, 6));
  EXPECT_TRUE(InkPad::isDark(pad.ink(), 10, 10));
  EXPECT_FALSE(InkPad::isDark(pad.ink(), 10, 11));
}

TEST(InkPadTest, DrawsNoInkInTraceMode0) {
  InkPad pad;
  pad.inputReport(kUpperLeft);
  pad.inputReport(kUpperRight);
  EXPECT_THAT(pad.ink(), Each(0));
}

TEST(InkPadTest, WipesTheInkAndNothingElseWhenItIsCleared) {
  InkPad pad;
  ASSERT_TRUE(pad.setFeature(optionsWithLayerStates(0x04)));
  ASSERT_TRUE(pad.setFeature(pictureBand(0, 0, 0x80)));
  pad.inputReport(kUpperLeft);
  EXPECT_EQ(pad.lcdImage()[0], 0x81);
  ASSERT_TRUE(pad.setFeature(Bytes{9, 0, 0}));
  EXPECT_THAT(pad.ink(), Each(0));
  EXPECT_EQ(pad.lcdImage()[0], 0x80);
  ASSERT_TRUE(pad.setFeature(Bytes{9, 1, 0}));
  ASSERT_TRUE(pad.setFeature(Bytes{9, 2, 1}));
  EXPECT_THAT(pad.clears(), ElementsAre(0, 1, 258));
}

TEST(InkPadTest, RefusesUnknownIdsAndWrongLengths) {
  InkPad pad;
  pad.inputReport(kUpperLeft);
  const InkPad::Options options = pad.options();
  for (const int id : {0, 1, 2, 4, 5, 7, 8, 9, 10})
    EXPECT_FALSE(pad.getFeature(static_cast<std::uint8_t>(id))) << id;
  EXPECT_FALSE(pad.setFeature({}));
  EXPECT_FALSE(pad.setFeature(Bytes(17, 0x04)));
  EXPECT_FALSE(pad.setFeature(Bytes{6, 1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_FALSE(pad.setFeature(Bytes(16, 0x03)));
  EXPECT_FALSE(pad.setFeature(Bytes(18, 0x03)));
  EXPECT_FALSE(pad.setFeature(Bytes(2407, 0x07)));
  EXPECT_FALSE(pad.setFeature(Bytes(2409, 0x07)));
  EXPECT_FALSE(pad.setFeature(Bytes{9, 0}));
  EXPECT_FALSE(pad.setFeature(Bytes{9, 0, 0, 0}));
  EXPECT_EQ(pad.options(), options);
  EXPECT_EQ(pad.serialNumber()[0], 0x31);
  EXPECT_THAT(pad.clears(), ElementsAre());
}

}  // namespace
}  // namespace virtualpads
