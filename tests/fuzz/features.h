// The feature reports of a pad: every operation that sends or asks for one, in any order, against
// replies of any length and content. Results and sent bytes are compared with the pad's table of
// the report.
//
// The fuzzer's bytes are consumed in this order: for each feature request of the open its reply,
// then operations to the end: a byte that selects it, its arguments, the reply of each of its
// requests. Those of the close come last; they take zeros when nothing is left.
//
// A reply is a byte whose low three bits select its kind, followed by the kind's data. A request
// that sends a report consumes no content.
//
//   0  all of the report
//   1  a part of it: its length, then the content
//   2  no bytes
//   3  an error
//   4  an error, after a part of the report: its length, then the content
//   5  any result (four bytes), after a part of the report: its length, then the content
//   6  all of the report, and a length of one more (as some versions of hidapi count)
//   7  as 0
#ifndef TESTS_FUZZ_FEATURES_H
#define TESTS_FUZZ_FEATURES_H

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "Device.h"
#include "Expect.h"
#include "Input.h"
#include "giivela.h"

namespace fuzz {

using Bytes = std::vector<std::uint8_t>;

class FeatureDevice : public Device {
 public:
  explicit FeatureDevice(Input& input)
      : Device({Start::Refused, Start::Refused, Start::Refused}), m_input(input) {}

  // The report as the driver receives it, and the result of hidapi's function.
  struct Answer {
    Bytes report;
    int result;
  };

  // The reply to the oldest unchecked request, which asked for this report.
  Answer asked(std::uint8_t id, std::size_t length) {
    const Request request = oldest();
    expect(request.asks && request.id == id && request.answer.report.size() == length,
           "the report that is due is asked for");
    return request.answer;
  }

  // The report that the oldest request sent, which has this id and length.
  Bytes sent(std::uint8_t id, std::size_t length) {
    const Request request = oldest();
    expect(!request.asks && request.id == id && request.answer.report.size() == length,
           "the report that is due is sent");
    return request.answer.report;
  }

  // The result of the oldest request, which sent this report.
  int sent(const Bytes& report) {
    const Request request = oldest();
    expect(!request.asks && request.answer.report == report, "the report that is due is sent");
    return request.answer.result;
  }

  void expectNoMore() const { expect(m_requests.empty(), "there is no other request"); }

  // There is no reading thread.
  int read(std::span<std::uint8_t> /*buffer*/) override { std::abort(); }

  int getFeature(std::span<std::uint8_t> report) override {
    const std::uint8_t id = report[0];
    expect(std::all_of(report.begin() + 1, report.end(), [](auto byte) { return byte == 0; }),
           "nothing but the id is in a request");
    const Reply reply = nextReply(report.size());
    // The pad may answer with a different id.
    std::copy(reply.content.begin(), reply.content.end(), report.begin());
    m_requests.push_back({true, id, {Bytes(report.begin(), report.end()), reply.result}});
    return reply.result;
  }

  int setFeature(std::span<const std::uint8_t> report) override {
    const int result = nextResult(report.size());
    m_requests.push_back({false, report[0], {Bytes(report.begin(), report.end()), result}});
    return result;
  }

 private:
  struct Request {
    bool asks;
    std::uint8_t id;
    Answer answer;
  };

  struct Reply {
    int result;
    ByteSpan content;
  };

  Reply nextReply(std::size_t length) {
    const int kind = m_input.byte() % 8;
    const int whole = static_cast<int>(length);
    const auto part = [&] { return m_input.take(m_input.byte() % length); };
    switch (kind) {
      case 1: {
        const ByteSpan content = part();
        return {static_cast<int>(content.size()), content};
      }
      case 2:
        return {0, {}};
      case 3:
        return {-1, {}};
      case 4:
        return {-1, part()};
      case 5: {
        const int result = m_input.number();
        return {result, part()};
      }
      case 6:
        return {whole + 1, m_input.take(length)};
      default:
        return {whole, m_input.take(length)};
    }
  }

  int nextResult(std::size_t length) {
    const int whole = static_cast<int>(length);
    switch (m_input.byte() % 8) {
      case 1:
        return static_cast<int>(m_input.byte() % length);
      case 2:
        return 0;
      case 3:
      case 4:
        return -1;
      case 5:
        return m_input.number();
      case 6:
        return whole + 1;
      default:
        return whole;
    }
  }

  Request oldest() {
    expect(!m_requests.empty(), "the request that is due is made");
    const Request request = m_requests.front();
    m_requests.erase(m_requests.begin());
    return request;
  }

  Input& m_input;
  std::vector<Request> m_requests;
};

inline void ignorePen(std::int32_t, std::int32_t, std::int32_t, std::uint8_t, std::uint32_t,
                      std::uint32_t) {}

// Opens the pad of a provider. Pad checks the requests of the open, then those of each operation
// while there is input, then those of the close.
template <class Pad>
int useFeatures(ByteSpan bytes, short provider) {
  Input input(bytes);
  FeatureDevice device(input);
  gIIVela sdk;
  expect(sdk.OpenProvider(sdk.GetProviderClassID(provider)), "the provider opens");
  sdk.RegisterEventHandler(ignorePen);
  expect(sdk.OpenConnection(), "the connection opens, whatever the pad says");
  Pad pad(sdk, device);
  pad.checkOpen();
  device.expectNoMore();
  while (!input.empty()) {
    pad.operate(input);
    device.expectNoMore();
  }
  sdk.CloseConnection();
  pad.checkClose();
  device.expectNoMore();
  sdk.CloseProvider();
  return 0;
}

// The bytes from the last to the first, as hexadecimal digits.
inline std::string reversedHex(ByteSpan bytes) {
  std::string text;
  for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte) {
    text += "0123456789abcdef"[*byte / 16];
    text += "0123456789abcdef"[*byte % 16];
  }
  return text;
}

// The facade's serial number as a text; empty when there is none.
inline std::string serialText(gIIVela& sdk) {
  char* const serial = sdk.GetSerialNumber();
  const std::string text = serial != nullptr ? serial : "";
  std::free(serial);
  return text;
}

inline bool same(double a, double b) {
  return a == b || (std::isnan(a) && std::isnan(b));
}

}  // namespace fuzz

#endif
