// docs/protocol.md against the code: the list of pads, and each worked example, which is run
// through the SDK on a pad that uses only the document's bytes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "PadList.h"
#include "giivela.h"
#include "support/PenRecorder.h"
#include "virtualpads/hidapi/VirtualBus.h"

namespace {

using namespace virtualpads;

std::vector<std::string> linesOf(const std::string& path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

struct TableRow {
  std::string name;
  int product;
  int reportSize;
  std::string classId;
};

// The cells of a row of a table, without the backquotes.
std::vector<std::string> cellsOf(std::string row) {
  std::erase(row, '`');
  std::vector<std::string> cells;
  std::istringstream rest(row);
  for (std::string cell; std::getline(rest, cell, '|');)
    if (cell.size() > 2) cells.push_back(cell.substr(1, cell.size() - 2));
  return cells;
}

// The rows of the document's list.
std::vector<TableRow> listedPads() {
  std::vector<TableRow> pads;
  for (const std::string& line : linesOf(PROTOCOL)) {
    if (!line.starts_with("| Vela ")) continue;
    const std::vector<std::string> cells = cellsOf(line);
    std::size_t end = 0;
    const int product = std::stoi(cells.at(1), &end);
    EXPECT_EQ(product, std::stoi(cells[1].substr(end + 2), nullptr, 16)) << line;
    pads.push_back({cells[0], product, std::stoi(cells.at(2)), cells.at(4)});
  }
  return pads;
}

// "0A + 2 x 00 1D" is 0A 00 00 1D; "..." ends it.
Bytes bytesOf(const std::string& text) {
  Bytes bytes;
  std::istringstream words(text);
  for (std::string word; words >> word && word != "...";) {
    std::size_t count = 1;
    if (word == "+") words >> count >> word >> word;
    bytes.insert(bytes.end(), count, static_cast<std::uint8_t>(std::stoi(word, nullptr, 16)));
  }
  return bytes;
}

struct ExampleLine {
  std::string word;
  std::string rest;
};

// The example lines of a pad's section.
std::vector<ExampleLine> examplesOf(const std::string& name) {
  std::vector<ExampleLine> examples;
  bool here = false;
  bool inBlock = false;
  for (const std::string& line : linesOf(PROTOCOL)) {
    if (line.starts_with("## ")) here = line == "## " + name;
    if (line.starts_with("```")) {
      inBlock = !inBlock;
    } else if (here && inBlock) {
      const std::size_t end = line.find(' ');
      const std::size_t rest = line.find_first_not_of(' ', end);
      examples.push_back({line.substr(0, end), rest == std::string::npos ? "" : line.substr(rest)});
    }
  }
  return examples;
}

// A pad that answers with the document's `get` lines, stores what is set in those reports, and
// accepts every report.
class DocumentedPad : public PadModel {
 public:
  DocumentedPad(int product, const std::vector<ExampleLine>& examples)
      : PadModel({.product = static_cast<std::uint16_t>(product), .name = "documented"}) {
    for (const ExampleLine& example : examples) {
      if (example.word != "get") continue;
      const Bytes reply = bytesOf(example.rest);
      m_replies[reply.at(0)] = reply;
    }
  }

  Bytes inputReport(const PenState&) override { return {}; }
  std::optional<Bytes> getFeature(std::uint8_t id) override {
    Bytes& reply = m_replies[id];
    if (reply.empty()) reply = {id, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    return reply;
  }
  bool setFeature(std::span<const std::uint8_t> report) override {
    m_replies[report[0]].assign(report.begin(), report.end());
    return true;
  }

 private:
  std::map<std::uint8_t, Bytes> m_replies;
};

class ProtocolTest : public testing::TestWithParam<int> {
 protected:
  ProtocolTest() {
    bus.reset();
    bus.setReadTimeout(std::chrono::milliseconds(5));
    recorder.reset();
  }

  const TableRow listed = listedPads().at(static_cast<std::size_t>(GetParam()));
  VirtualBus& bus = VirtualBus::instance();
  gIIVela vela;
  support::PenRecorder& recorder = support::penRecorder();
  std::size_t samples = 0;  // that were compared

  VirtualBus::Port open(std::shared_ptr<PadModel> pad) {
    const VirtualBus::Port port = bus.plug(std::move(pad));
    EXPECT_TRUE(vela.OpenProvider(std::string(listed.classId).data()));
    vela.RegisterEventHandler(support::recordPen);
    EXPECT_TRUE(vela.OpenConnection());
    return port;
  }

  void close() {
    vela.CloseConnection();
    vela.CloseProvider();
  }

  // Whether this report was sent. If the example ends in "...", only its beginning is compared.
  bool wasSent(const std::string& example) const {
    const Bytes bytes = bytesOf(example);
    const bool whole = !example.ends_with("...");
    const auto sent = bus.calls({HidCall::SendFeature});
    return std::ranges::any_of(sent, [&](const CallRecord& call) {
      return (!whole || call.bytes.size() == bytes.size()) && call.bytes.size() >= bytes.size() &&
             std::equal(bytes.begin(), bytes.end(), call.bytes.begin());
    });
  }

  std::string serialText() {
    const std::unique_ptr<char, decltype(&std::free)> serial(vela.GetSerialNumber(), std::free);
    if (serial == nullptr) return "none";
    if (listed.name != "Vela Vision") return serial.get();
    std::ostringstream text;
    for (int i = 0; i < 16; ++i) {
      text << std::hex << std::setw(2) << std::setfill('0')
           << int{static_cast<unsigned char>(serial.get()[i])};
    }
    return text.str();
  }

  static std::string range(int low, int high) {
    return std::to_string(low) + " to " + std::to_string(high);
  }

  void checkSample(const std::string& expected) {
    ASSERT_TRUE(recorder.waitFor(samples + 1)) << expected;
    const std::uint32_t time = recorder.timeStamps().at(samples);
    const auto [x, y, pressure, touch, sequence] = recorder.samples().at(samples++);
    const std::map<std::string, std::int64_t> sample{
        {"x", x},         {"y", y},       {"pressure", pressure},
        {"touch", touch}, {"time", time}, {"sequence", sequence}};
    int fields = 0;
    std::istringstream words(expected);
    std::string name;
    for (std::int64_t value = 0; words >> name >> value; words.ignore(1, ',')) {
      const auto found = sample.find(name);
      ASSERT_NE(found, sample.end()) << expected;
      EXPECT_EQ(found->second, value) << expected;
      ++fields;
    }
    EXPECT_TRUE(words.eof()) << expected;
    EXPECT_GE(fields, 4) << expected;
  }

  void check(const ExampleLine& example, VirtualBus::Port port) {
    const auto& [word, rest] = example;
    if (word == "input") {
      EXPECT_EQ(bytesOf(rest).size(), static_cast<std::size_t>(listed.reportSize)) << rest;
      EXPECT_TRUE(bus.send(port, bytesOf(rest)));
    } else if (word == "sample") {
      checkSample(rest);
    } else if (word == "set") {
      EXPECT_TRUE(wasSent(rest)) << rest;
    } else if (word == "clear") {
      bus.clearLog();
      vela.ClearInking();
    } else if (word == "keep-alive") {
      // Depends on the processor time that the process uses.
      while (!wasSent("1A + 16 x 00")) {
      }
    } else if (word == "serial") {
      EXPECT_EQ(serialText(), rest);
    } else if (word == "width") {
      EXPECT_DOUBLE_EQ(vela.GetPhysicalX(), std::stod(rest));
    } else if (word == "height") {
      EXPECT_DOUBLE_EQ(vela.GetPhysicalY(), std::stod(rest));
    } else if (word == "x") {
      EXPECT_EQ(range(vela.GetDataRangeMinX(), vela.GetDataRangeMaxX()), rest);
    } else if (word == "y") {
      EXPECT_EQ(range(vela.GetDataRangeMinY(), vela.GetDataRangeMaxY()), rest);
    } else if (word == "pressure") {
      EXPECT_EQ(range(vela.GetDataRangeMinZ(), vela.GetDataRangeMaxZ()), rest);
    } else {
      EXPECT_EQ(word, "get") << "no such example is known";
    }
  }
};

TEST(ProtocolListTest, AgreesWithTheListOfPackaging) {
  const std::vector<TableRow> listed = listedPads();
  ASSERT_EQ(listed.size(), std::size(kPadList));
  for (std::size_t row = 0; row < listed.size(); ++row) {
    EXPECT_EQ(listed[row].product, static_cast<int>(kPadList[row].product));
    EXPECT_EQ(listed[row].name, kPadList[row].name);
    EXPECT_EQ(listed[row].classId, kPadList[row].classId);
  }
}

TEST_P(ProtocolTest, ListAgreesWithTheCode) {
  const auto index = static_cast<short>(GetParam());
  open(makePad(static_cast<PadKind>(index)));
  EXPECT_EQ(vela.GetNumDevices(), 1);
  EXPECT_TRUE(bus.waitForBegun(HidCall::Read, 1));
  close();
  EXPECT_EQ(bus.calls({HidCall::Open}).at(0).argument, listed.product);
  EXPECT_EQ(bus.calls({HidCall::Read}).at(0).argument, listed.reportSize);
}

TEST_P(ProtocolTest, ExamplesAreTrue) {
  const std::vector<ExampleLine> examples = examplesOf(listed.name);
  ASSERT_FALSE(examples.empty());
  const VirtualBus::Port port = open(std::make_shared<DocumentedPad>(listed.product, examples));
  for (const ExampleLine& example : examples) check(example, port);
  close();
}

INSTANTIATE_TEST_SUITE_P(Pads, ProtocolTest,
                         testing::Range(0, static_cast<int>(std::size(kPadList))));

}  // namespace
