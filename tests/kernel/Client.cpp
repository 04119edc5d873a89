#include "Client.h"

#include <algorithm>
#include <chrono>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

bool isSample(const std::string& line) {
  return line.starts_with("sample ");
}

}  // namespace

Client::Client(Route route, bool unprivileged)
    : Program(route == Route::Libusb ? SDK_CLIENT_ON_LIBUSB : SDK_CLIENT,
              {.unprivileged = unprivileged}) {}

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
  for (int i = 0; i < count; ++i) from = waitForLine(isSample, from) + 1;
  return from;
}

Client::Load Client::percentOfCore() {
  constexpr std::chrono::milliseconds kInterval{500};
  const pid_t processing = std::stoi(ask("thread"));
  std::vector<pid_t> others = threads();
  std::erase_if(others, [&](pid_t thread) { return thread == id() || thread == processing; });
  const auto timeOfOthers = [&] {
    std::chrono::nanoseconds sum{0};
    for (const pid_t thread : others) sum += processorTime(thread);
    return sum;
  };
  Load least{100, 100};
  for (int i = 0; i < 3; ++i) {
    const auto begin = Clock::now();
    const auto processingBefore = processorTime(processing);
    const auto othersBefore = timeOfOthers();
    std::this_thread::sleep_for(kInterval);
    const std::chrono::duration<double> taken = Clock::now() - begin;
    const auto percent = [&](std::chrono::nanoseconds time) { return time / taken * 100; };
    least.processing =
        std::min(least.processing, percent(processorTime(processing) - processingBefore));
    least.others = std::min(least.others, percent(timeOfOthers() - othersBefore));
  }
  return least;
}

void Client::write(virtualpads::KernelPad& pad, const TestPad& kind, int first, int count) const {
  if (!pad.waitUntilOpen()) throw std::runtime_error("the client does not open the pad");
  std::size_t nextLine = lineCount();
  for (int n = 0; n < count; ++n) {
    if (n >= kUnreadReports) nextLine = waitForSamples(1, nextLine);
    pad.send(kind.report(first + n));
  }
  waitForSamples(std::min(count, kUnreadReports), nextLine);
}
