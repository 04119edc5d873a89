#include "PadWatch.h"

#include <array>
#include <ctime>

namespace {

struct Words {
  const char* text;
  const char* json;
};

// Indexed by kind.
constexpr std::array<Words, 3> kWords{
    {{"present at", "present"}, {"attached at", "attached"}, {"detached from", "detached"}}};

Words wordsOf(PadEvent::Kind kind) {
  return kWords.at(static_cast<std::size_t>(kind));
}

std::string threeDigits(int64_t number) {
  return std::to_string(1000 + number).substr(1);
}

}  // namespace

std::string eventText(const PadEvent& event, int64_t milliseconds) {
  const std::time_t seconds = milliseconds / 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  std::array<char, 16> clock{};
  std::strftime(clock.data(), clock.size(), "%H:%M:%S", &local);
  std::string line = std::string(clock.data()) + "." + threeDigits(milliseconds % 1000) + "  " +
                     event.name + " " + wordsOf(event.kind).text + " " + event.node;
  if (!event.mayBeOpened) line += ", no permission to open it";
  return line;
}

std::string eventJson(const PadEvent& event, int64_t milliseconds) {
  std::string line = R"({"time": )" + std::to_string(milliseconds / 1000) + "." +
                     threeDigits(milliseconds % 1000) + R"(, "name": ")" + event.name +
                     R"(", "event": ")" + wordsOf(event.kind).json + R"(", "node": ")" +
                     event.node + '"';
  if (event.kind != PadEvent::Kind::Detached)
    line += R"(, "may_be_opened": )" + std::string(event.mayBeOpened ? "true" : "false");
  return line + "}";
}
