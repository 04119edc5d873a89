// A small client of the SDK. Reads commands from standard input, one a line, and prints each result
// on standard output in a line that starts with the command's name.
//
//   provider N   opens provider N                          provider 0|1
//   devices      counts the pads                           devices N
//   connect      opens the connection                      connect 0|1
//   size         asks for the physical size                size X Y
//   serial       asks for the serial number                serial TEXT|none
//                                                          (the vision pad's bytes in hexadecimal)
//   clear        clears the ink                            clear 0|1
//   hammer       clears, asks for the size and the serial  hammer
//                number over and over without a pause,
//                until the next command but the two below
//   progress     while it hammers                          progress ROUNDS
//   thread       prints the thread of the last callback    thread ID
//   disconnect   closes the connection                     disconnect
//   release      closes the provider                       release
//
// Every pen sample makes a line "sample X Y PRESSURE TOUCH SEQUENCE NANOSECONDS", with the time of
// the monotonic clock at which the callback was called. Ends with its input.
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>

#include "giivela.h"

namespace {

constexpr int kVisionProvider = 3;

std::atomic<pid_t> callbackThread{0};

void penEvent(std::int32_t x, std::int32_t y, std::int32_t pressure, std::uint8_t touch,
              std::uint32_t, std::uint32_t sequence) {
  callbackThread = gettid();
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const std::int64_t nanoseconds = now.tv_sec * 1'000'000'000LL + now.tv_nsec;
  std::printf("sample %d %d %d %d %u %" PRId64 "\n", x, y, pressure, touch, sequence, nanoseconds);
}

class Client {
 public:
  void obey(const std::string& command) {
    const std::string word = command.substr(0, command.find(' '));
    if (word == "provider") {
      m_provider = std::stoi(command.substr(word.size() + 1));
      char* const classId = m_facade.GetProviderClassID(static_cast<short>(m_provider));
      std::printf("provider %d\n", m_facade.OpenProvider(classId));
    } else if (word == "devices") {
      std::printf("devices %d\n", m_facade.GetNumDevices());
    } else if (word == "connect") {
      m_facade.RegisterEventHandler(penEvent);
      std::printf("connect %d\n", m_facade.OpenConnection());
    } else if (word == "size") {
      const double width = m_facade.GetPhysicalX();
      std::printf("size %.6g %.6g\n", width, m_facade.GetPhysicalY());
    } else if (word == "serial") {
      std::printf("serial %s\n", serialNumber().c_str());
    } else if (word == "clear") {
      std::printf("clear %d\n", m_facade.ClearInking());
    } else if (word == "hammer") {
      std::puts("hammer");
      hammer();
    } else if (word == "thread") {
      std::printf("thread %d\n", callbackThread.load());
    } else if (word == "disconnect") {
      m_facade.CloseConnection();
      std::puts("disconnect");
    } else if (word == "release") {
      m_facade.CloseProvider();
      std::puts("release");
    } else {
      std::printf("unknown command: %s\n", command.c_str());
    }
  }

 private:
  std::string serialNumber() {
    const std::unique_ptr<char, decltype(&std::free)> serial(m_facade.GetSerialNumber(), std::free);
    if (serial == nullptr) return "none";
    if (m_provider != kVisionProvider) return serial.get();
    std::string text;
    for (int i = 0; i < 16; ++i) {
      char digits[3];
      std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(serial.get()[i]));
      text += digits;
    }
    return text;
  }

  void hammer() {
    for (long rounds = 1;; ++rounds) {
      m_facade.ClearInking();
      m_facade.GetPhysicalX();
      serialNumber();
      pollfd input{STDIN_FILENO, POLLIN, 0};
      if (poll(&input, 1, 0) > 0) {
        std::string command;
        if (!std::getline(std::cin, command)) return;
        if (command == "progress") {
          std::printf("progress %ld\n", rounds);
          continue;
        }
        obey(command);
        if (command != "thread") return;
      }
    }
  }

  gIIVela m_facade;
  int m_provider = -1;
};

}  // namespace

int main() {
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  Client client;
  std::string command;
  while (std::getline(std::cin, command)) client.obey(command);
}
