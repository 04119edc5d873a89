// The four pads as the tests know them. Whatever goes over all pads takes its rows from here.
#ifndef TESTS_SUPPORT_PADTABLE_H
#define TESTS_SUPPORT_PADTABLE_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "virtualpads/PadModel.h"

namespace support {

// What the callback gets for a report, without time stamp and number.
struct Pen {
  int x;
  int y;
  int pressure;
  int touch;
  bool operator==(const Pen&) const = default;
};

inline void PrintTo(const Pen& pen, std::ostream* out) {
  *out << "{" << pen.x << ", " << pen.y << ", " << pen.pressure << ", " << pen.touch << "}";
}

struct PenReport {
  const char* bytes;  // the rest of the report is zero
  Pen pen;
};

// A feature request: its bytes, the rest of the length zero unless it is a picture.
struct FeatureRequest {
  enum Direction { kGet, kSet } direction;
  const char* bytes;
  int length;
};

// The view of the application's window, in its units: its size, and where a line lies from a
// quarter to three quarters of the pad's width, in the middle of its height.
struct PadView {
  int width;
  int height;
  int left;
  int right;
  int middle;
};

struct PadRow {
  const char* name;  // in names of tests
  virtualpads::PadKind kind;
  const char* classId;
  const char* provider;   // the display name
  std::uint16_t product;  // of vendor 0x04DF
  int reportSize;
  int minReportSize;                // a shorter report is ignored
  std::array<PenReport, 5> stroke;  // its samples all differ
  PenReport penUp;                  // a first report with the pen up
  bool dropsPenUp;                  // which is then dropped
  Pen edge;                         // touching hard at the right edge, a quarter down
  std::array<int, 6> ranges;        // while connected: ends of x, y, pressure
  double width;                     // in inches, while connected
  double height;
  PadView view;
  const char* before;                  // what the pad is set to before these requests:
  std::vector<FeatureRequest> opens;   // from the open
  std::vector<FeatureRequest> closes;  // and the close
  int openFailure;                     // the result when the pad cannot be opened,
  int openAttempts;                    // after so many attempts,
  const char* openFailureLine;         // and the line
  // All that the driver may print. The last three are for a thread that does not start, in the
  // order of the starts.
  std::vector<std::string> lines;
};

inline const std::array<PadRow, 4>& padTable() {
  using enum FeatureRequest::Direction;
  using virtualpads::PadKind;
  static const std::array<PadRow, 4> rows{{
      {
          .name = "Usb",
          .kind = PadKind::Usb,
          .classId = "7FCD95128763436E874740972EE28EFD",
          .provider = "Vela USB",
          .product = 18,
          .reportSize = 6,
          .minReportSize = 6,
          .stroke = {{{"20 5A 00 2D 00 01", {0, 0, 1, 1}},
                      {"20 4E 02 27 01 10", {16383, 16383, 16, 1}},
                      {"00 22 01 91 00 00", {6553, 6553, 0, 0}},
                      {"20 42 04 21 02 7F", {32767, 32767, 127, 1}},
                      {"20 BE 00 5F 00 20", {3276, 3276, 32, 1}}}},
          .penUp = {"00 4E 02 27 01 05", {16383, 16383, 5, 0}},
          .dropsPenUp = true,
          .edge = {32767, 8191, 127, 1},
          .ranges = {0, 32767, 0, 32767, 0, 127},
          .width = 3.685,
          .height = 2.23,
          // 32767 units across, 140 and 200 of them a view unit
          .view = {265, 161, 58, 175, 81},
          .before = "",
          .opens = {},
          .closes = {},
          .openFailure = -1,
          .openAttempts = 1,
          .openFailureLine = "",
          .lines = {"create pollsignal failed", "create userData failed",
                    "create processdata failed"},
      },
      {
          .name = "Ii",
          .kind = PadKind::Ii,
          .classId = "C1AF33B2529E4D2DB885DAF2780009EE",
          .provider = "Vela II",
          .product = 31,
          .reportSize = 11,
          .minReportSize = 11,
          .stroke = {{{"01 01 10 00 20 00 05 77 77 77 77", {16, 32, 5, 1}},
                      {"01 01 FF 7F 00 40 FF 77 77 77 77", {32767, 16384, 255, 1}},
                      {"01 FE 01 02 03 04 00 77 77 77 77", {513, 1027, 0, 0}},
                      {"01 01 00 90 02 00 01 77 77 77 77", {-28672, 2, 1, 1}},
                      {"01 01 00 00 00 00 03 77 77 77 77", {0, 0, 3, 1}}}},
          .penUp = {"01 FE 02 00 03 00 00", {2, 3, 0, 0}},
          .dropsPenUp = true,
          .edge = {32767, 8192, 127, 1},
          .ranges = {0, 32767, 0, 32767, 0, 127},
          .width = 3.685,
          .height = 2.23,
          .view = {265, 161, 58, 175, 81},
          .before = "",
          .opens = {},
          .closes = {},
          .openFailure = -1,
          .openAttempts = 1,
          .openFailureLine = "velaii:opendevice failed\n",
          .lines = {"velaii:opendevice failed", "GetFeature for R_SERIAL failed (2)",
                    "create pollsignal failed", "create getdata_thread failed",
                    "create processdata failed"},
      },
      {
          .name = "Ink",
          .kind = PadKind::Ink,
          .classId = "98C174D36D2A450996DBD5B34FA7A561",
          .provider = "Vela Ink",
          .product = 48,
          .reportSize = 8,
          .minReportSize = 8,
          .stroke = {{{"01 01 10 00 20 00 05 01", {16, 32, 5, 1}},
                      {"01 01 FF 7F 00 40 FF 02", {32767, 16384, 255, 1}},
                      {"01 FE 01 02 03 04 00 03", {513, 1027, 0, 0}},
                      {"01 01 00 90 02 00 01 04", {-28672, 2, 1, 1}},
                      {"01 01 00 00 00 00 03 05", {0, 0, 3, 1}}}},
          .penUp = {"01 FE 02 00 03 00 00 04", {2, 3, 0, 0}},
          .dropsPenUp = true,
          .edge = {32767, 8192, 255, 1},
          .ranges = {0, 32767, 0, 32767, 0, 255},
          .width = 3.11,
          .height = 2.28,
          .view = {224, 164, 58, 175, 81},
          // Bits outside all fields are set, to show what is carried along.
          .before = "03 A0 FC 11 22 A4 31 32 33 34 35 36 F8 44 55 03 AF",
          .opens = {{kSet, "07 01 00 00", 2408},  // the picture
                    {kSet, "07 01 00 3C", 2408},
                    {kSet, "07 01 00 78", 2408},
                    {kSet, "07 01 00 B4", 2408},
                    {kGet, "03", 17},  // inking region (0, 0) to (319, 239)
                    {kSet, "03 A0 FC 11 22 A4 00 00 00 3F 01 EF F8 44 55 03 AF", 17},
                    {kGet, "03", 17},  // ink trace 2 with 500
                    {kSet, "03 A0 FE F4 01 A4 00 00 00 3F 01 EF F8 44 55 03 AF", 17},
                    {kGet, "03", 17},  // backlight 1, on, with 500
                    {kSet, "03 A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 03 AF", 17},
                    {kGet, "03", 17},  // layers 0 to 2
                    {kSet, "03 A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 07 AF", 17},
                    {kGet, "03", 17},
                    {kSet, "03 A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 17 AF", 17},
                    {kGet, "03", 17},
                    {kSet, "03 A0 FE F4 01 A4 00 00 00 3F 01 EF FD F4 01 57 AF", 17},
                    {kGet, "03", 17}},
          .closes = {{kGet, "03", 17},  // ink trace 0 with 300
                     {kSet, "03 A0 FC 2C 01 A4 00 00 00 3F 01 EF FD F4 01 57 AF", 17},
                     {kGet, "03", 17},  // backlight 0, on, with 500
                     {kSet, "03 A0 FC 2C 01 A4 00 00 00 3F 01 EF FC F4 01 57 AF", 17},
                     {kSet, "09 00 00", 3},  // layers 0 to 2
                     {kGet, "03", 17},
                     {kSet, "03 A0 FC 2C 01 A4 00 00 00 3F 01 EF FC F4 01 53 AF", 17},
                     {kSet, "09 01 00", 3},
                     {kGet, "03", 17},
                     {kSet, "03 A0 FC 2C 01 A4 00 00 00 3F 01 EF FC F4 01 43 AF", 17},
                     {kSet, "09 01 00", 3},
                     {kGet, "03", 17},
                     {kSet, "03 A0 FC 2C 01 A4 00 00 00 3F 01 EF FC F4 01 03 AF", 17}},
          .openFailure = 0,
          .openAttempts = 1,
          .openFailureLine = "",
          .lines = {"ResetvelaInkDevice m_handle is -1", "create pollsignal failed",
                    "create getdata_thread failed", "create processdata failed"},
      },
      {
          .name = "Vision",
          .kind = PadKind::Vision,
          .classId = "3F2DE94B14D448719DFE5359EF03652A",
          .provider = "Vela Vision",
          .product = 56,
          .reportSize = 17,
          .minReportSize = 12,
          // The lifted pen is where it was in the two reports before, so that one may be lost.
          .stroke = {{{"01 80 00 01 00 02 00 03 00 00 00 01", {1, 2, 3, 1}},
                      {"01 80 01 00 02 00 03 00 00 00 00 02", {256, 512, 768, 1}},
                      {"01 80 9C 40 00 07 00 01 00 00 00 03", {40000, 7, 1, 1}},
                      {"01 80 9C 40 00 07 00 02 00 00 00 04", {40000, 7, 2, 1}},
                      {"01 80 00 00 00 00 00 00 00 00 00 05", {40000, 7, 0, 0}}}},
          .penUp = {"01 80 00 00 00 00 00 00 00 00 00 09", {40000, 7, 0, 0}},
          .dropsPenUp = false,
          .edge = {1300, 350, 1023, 1},
          .ranges = {0, 1300, 0, 1400, 0, 1023},
          .width = 4.5,
          .height = 2.8,
          // 1300 by 1400 units, 4 and 7 of them a view unit
          .view = {324, 202, 81, 243, 100},
          .before = "11 2F 11 12 21 22 31 32 41 42 51 52 53 54 55 61 62 71 72",
          .opens = {{kGet, "03", 17},     // reset
                    {kSet, "04 01", 17},  // mode
                    {kGet, "04", 17},
                    {kGet, "11", 34},  // ink region
                    {kSet, "11 C0 11 12 21 22 31 32 41 42 51 52 53 54 55 01 F4", 34},
                    {kGet, "0C", 65}},  // pad information
          .closes = {{kSet, "04 04", 17}},
          .openFailure = 0,
          .openAttempts = 4,
          .openFailureLine = "Velavision:OpenConnection failed\n",
          .lines = {"Velavision:OpenConnection failed", "Reset Velavision failed",
                    "Velavision:OpenConnection failed in USB commnication",
                    "SetMode 1 != current mode 0", "SetInkRegion failed!!",
                    "GetPadInfoReport return false rpt size 65!!", "ClearInkRegion return false",
                    "create getdata failed", "create pollsignal failed",
                    "create processdata failed"},
      },
  }};
  return rows;
}

inline const PadRow& padRow(virtualpads::PadKind kind) {
  return *std::ranges::find(padTable(), kind, &PadRow::kind);
}

// For tests with a row as their parameter.

inline void PrintTo(const PadRow& row, std::ostream* out) {
  *out << row.provider;
}

inline constexpr auto nameOfRow = [](const auto& info) { return std::string(info.param.name); };

}  // namespace support

#endif
