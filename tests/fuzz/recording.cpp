// The reader of recordings: the bytes are a file.
#include "virtualpads/Recording.h"

#include <algorithm>
#include <sstream>

#include "Expect.h"
#include "Input.h"

namespace {

using fuzz::expect;
using virtualpads::Bytes;
using virtualpads::Recording;

bool hasReportLength(const Bytes& bytes) {
  return !bytes.empty() && bytes.size() <= 4096;
}

bool isBlank(char character) {
  return character == ' ' || character == '\t';
}

void checkContent(const Recording& recording) {
  expect(hasReportLength(recording.descriptor), "the descriptor has 1 to 4096 bytes");
  const std::string& name = recording.name;
  expect(name.empty() || (!isBlank(name.front()) && !isBlank(name.back())),
         "no blanks are around the name");
  auto time = std::chrono::microseconds::zero();
  for (const Recording::Event& event : recording.events) {
    expect(hasReportLength(event.report), "a report has 1 to 4096 bytes");
    expect(event.time >= time, "time does not go back");
    time = event.time;
  }
}

// A writer's bus is always USB, and its time begins with the first report.
void checkWriting(Recording recording) {
  std::ostringstream text;
  virtualpads::RecordingWriter writer(
      text, {.vendor = recording.vendor, .product = recording.product, .name = recording.name},
      recording.descriptor);
  for (const Recording::Event& event : recording.events)
    expect(writer.write(event.time, event.report), "the stream takes what is written");
  const Recording again = virtualpads::parseRecording(text.str());

  recording.bus = 3;
  if (!recording.events.empty()) {
    const auto begin = recording.events.front().time;
    for (Recording::Event& event : recording.events) event.time -= begin;
  }
  expect(again == recording, "what is written and read again is the same");
}

void checkPlace(const virtualpads::RecordingError& error, std::string_view text) {
  for (std::size_t line = 1; line < error.line(); ++line) {
    expect(!text.empty(), "the error is in a line of the text or in the one after");
    text.remove_prefix(std::min(text.find('\n'), text.size() - 1) + 1);
  }
  const std::size_t length = std::min(text.find('\n'), text.size());
  expect(error.line() >= 1 && error.column() >= 1 && error.column() <= length + 1,
         "the error is within its line or at its end");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  std::optional<Recording> recording;
  try {
    recording = virtualpads::parseRecording(text);
  } catch (const virtualpads::RecordingError& error) {
    checkPlace(error, text);
  }
  if (recording) {
    checkContent(*recording);
    checkWriting(*recording);
  }
  return 0;
}
