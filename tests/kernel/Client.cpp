#include "Client.h"

#include <algorithm>
#include <chrono>
#include <map>
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
  return waitForLine([&](const std::string& line) { return isSample(line) && --count == 0; },
                     from) +
         1;
}

Client::Load Client::percentOfCore() {
  constexpr std::chrono::milliseconds kInterval{500};
  const pid_t processing = std::stoi(ask("thread"));
  const std::vector<pid_t> all = threads();
  Load least{100, 100};
  for (int i = 0; i < 3; ++i) {
    const auto begin = Clock::now();
    std::map<pid_t, std::chrono::nanoseconds> before;
    for (const pid_t thread : all)
      if (const auto time = processorTime(thread)) before[thread] = *time;
    std::this_thread::sleep_for(kInterval);
    const std::chrono::duration<double> taken = Clock::now() - begin;
    Load load{0, 0};
    for (const auto& [thread, time] : before) {
      // The reading thread of hidapi-libusb ends when the pad is unplugged.
      const auto after = processorTime(thread);
      if (!after || thread == id()) continue;
      (thread == processing ? load.processing : load.others) += (*after - time) / taken * 100;
    }
    least.processing = std::min(least.processing, load.processing);
    least.others = std::min(least.others, load.others);
  }
  return least;
}

void Client::write(virtualpads::KernelPad& pad, const TestPad& kind, int first, int count) const {
  if (!pad.waitUntilOpen()) throw std::runtime_error("the client does not open the pad");
  // In blocks, which cost an emulated processor less than a wait for each sample.
  constexpr int kBlock = kUnreadReports / 2;
  std::size_t nextLine = lineCount();
  int received = 0;
  for (int n = 0; n < count; ++n) {
    if (n == received + kUnreadReports) {
      nextLine = waitForSamples(kBlock, nextLine);
      received += kBlock;
    }
    pad.send(kind.report(first + n));
  }
  waitForSamples(count - received, nextLine);
}
