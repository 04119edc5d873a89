// A table of a program's calls into hidapi, so that each can be made to fail in turn. Reads are not
// listed, because they occur at any time.
#ifndef TESTS_SDK_SUPPORT_FAULTPOINTS_H
#define TESTS_SDK_SUPPORT_FAULTPOINTS_H

#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "virtualpads/hidapi/VirtualBus.h"

namespace support {

// The name of a call: "init", "open" and so on, or "get 3" and "set 3" for feature report 3.
inline std::string nameOf(const virtualpads::CallRecord& call) {
  using virtualpads::HidCall;
  switch (call.call) {
    case HidCall::Init:
      return "init";
    case HidCall::Exit:
      return "exit";
    case HidCall::Enumerate:
      return "enumerate";
    case HidCall::FreeEnumeration:
      return "free enumeration";
    case HidCall::Open:
      return "open";
    case HidCall::Close:
      return "close";
    case HidCall::SetNonblocking:
      return "set nonblocking";
    case HidCall::GetFeature:
      return "get " + std::to_string(call.bytes.at(0));
    case HidCall::SendFeature:
      return "set " + std::to_string(call.bytes.at(0));
    case HidCall::Read:
      return "read";
    case HidCall::Write:
      return "write";
  }
  return {};
}

inline virtualpads::HidCall kindOf(std::string_view name) {
  using virtualpads::HidCall;
  constexpr std::pair<std::string_view, HidCall> kKinds[] = {
      {"init", HidCall::Init},
      {"exit", HidCall::Exit},
      {"enumerate", HidCall::Enumerate},
      {"free enumeration", HidCall::FreeEnumeration},
      {"open", HidCall::Open},
      {"close", HidCall::Close},
      {"set nonblocking", HidCall::SetNonblocking},
  };
  for (const auto& [known, kind] : kKinds) {
    if (known == name) return kind;
  }
  return name.starts_with("get") ? HidCall::GetFeature : HidCall::SendFeature;
}

// An entry of the table, with the outcomes when the call fails.
template <class Outcome>
struct HidapiCall {
  const char* name;
  Outcome failed{};                  // null or -1
  std::optional<Outcome> nothing{};  // 0, where that does not mean success
};

// Makes the call at that position of the table fail. Must be called before the first of the calls.
template <class Table>
void failAt(virtualpads::VirtualBus& bus, const Table& table, std::size_t position,
            virtualpads::Fault fault) {
  const virtualpads::HidCall kind = kindOf(table[position].name);
  int nth = 0;
  for (std::size_t i = 0; i <= position; ++i) nth += kindOf(table[i].name) == kind ? 1 : 0;
  bus.fail(kind, fault, nth);
}

// A call that returns a value instead of doing its work.
struct FaultPoint {
  std::size_t position;
  int value;
};

// Whether the call has returned that value. A null pointer is logged as 0, and so is the end of the
// two calls that have no result.
inline bool hasFailed(const virtualpads::VirtualBus& bus, FaultPoint point) {
  using virtualpads::HidCall;
  const virtualpads::CallRecord call = bus.calls().at(point.position);
  switch (call.call) {
    case HidCall::Open:
    case HidCall::Enumerate:
    case HidCall::Close:
    case HidCall::FreeEnumeration:
      return call.result == 0;
    default:
      return call.result == point.value;
  }
}

// The names of the calls made so far.
inline std::vector<std::string> callsMade(const virtualpads::VirtualBus& bus) {
  std::vector<std::string> names;
  for (const virtualpads::CallRecord& call : bus.calls()) names.push_back(nameOf(call));
  return names;
}

// The names of the calls expected when the one at `position` fails. The outcome has the number of
// following calls that are left out (`skips`) and whether the call is repeated (`repeated`).
template <class Table, class Outcome>
std::vector<std::string> callsExpected(const Table& table, const Outcome& outcome,
                                       std::size_t position) {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < table.size(); ++i) {
    if (i > position && i <= position + outcome.skips) continue;
    names.emplace_back(table[i].name);
    if (i == position && outcome.repeated) names.emplace_back(table[i].name);
  }
  return names;
}

// Calls expectOutcome with each way in which each call of the table can fail and the expected
// outcome. Returns the number of faults tried.
template <class Outcome, class ExpectOutcome>
int sweepCalls(const std::vector<HidapiCall<Outcome>>& table, ExpectOutcome expectOutcome) {
  int points = 0;
  for (std::size_t position = 0; position < table.size(); ++position) {
    const HidapiCall<Outcome>& call = table[position];
    const std::string trace = std::string(call.name) + ", call " + std::to_string(position + 1);
    {
      SCOPED_TRACE(trace + " fails");
      expectOutcome(call.failed, FaultPoint{position, -1});
      ++points;
    }
    if (call.nothing) {
      SCOPED_TRACE(trace + " brings nothing");
      expectOutcome(*call.nothing, FaultPoint{position, 0});
      ++points;
    }
  }
  return points;
}

// Writes the number of faults tried into the test's report.
inline void expectPoints(int points, int expected) {
  testing::Test::RecordProperty("fault_points", points);
  EXPECT_EQ(points, expected);
}

}  // namespace support

#endif
