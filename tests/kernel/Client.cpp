#include "Client.h"

#include <algorithm>
#include <sstream>

namespace {

bool isSample(const std::string& line) {
  return line.starts_with("sample ");
}

}  // namespace

Client::Client(bool unprivileged) : Program(SDK_CLIENT, {.unprivileged = unprivileged}) {}

int Client::connect(const TestPad& pad) {
  ask("provider " + std::to_string(pad.provider));
  const int devices = std::stoi(ask("devices"));
  ask("connect");
  return devices;
}

void Client::disconnect() {
  ask("disconnect");
  ask("release");
}

std::vector<Client::Received> Client::received() const {
  std::vector<Received> all;
  for (const std::string& line : lines()) {
    if (isSample(line)) {
      std::istringstream words(line.substr(7));
      Received& one = all.emplace_back();
      words >> one.sample.x >> one.sample.y >> one.sample.pressure >> one.sample.touch >>
          one.sample.sequence >> one.nanoseconds;
    }
  }
  return all;
}

std::size_t Client::waitForSamples(int count, std::size_t from) const {
  for (int i = 0; i < count; ++i) {
    from = waitForLine(isSample, from) + 1;
  }
  return from;
}

void Client::write(virtualpads::UhidPad& pad, const TestPad& kind, int first, int count) const {
  std::size_t nextLine = lineCount();
  for (int n = 0; n < count; ++n) {
    if (n >= kUnreadReports) {
      nextLine = waitForSamples(1, nextLine);
    }
    pad.send(kind.report(first + n));
  }
  waitForSamples(std::min(count, kUnreadReports), nextLine);
}
