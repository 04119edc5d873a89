// Reports pads that are attached or detached.
#ifndef TOOLS_PADWATCH_H
#define TOOLS_PADWATCH_H

#include <cstdint>
#include <optional>
#include <string>

struct PadEvent {
  enum class Kind { Present, Attached, Detached };
  Kind kind;
  std::string name;  // of the provider
  std::string node;
  bool mayBeOpened = true;
};

// One line without a line end. The time is wall-clock time in milliseconds since 1970; the text
// shows it in the time zone of this process.
std::string eventText(const PadEvent& event, int64_t milliseconds);
std::string eventJson(const PadEvent& event, int64_t milliseconds);

// What happened to a pad's node.
struct NodeEvent {
  PadEvent::Kind kind;
  short provider;
  std::string node;
};

// Watches the nodes from the moment it is created.
class PadWatch {
 public:
  // Throws std::runtime_error when it cannot.
  PadWatch();
  ~PadWatch();  // NOLINT(performance-trivially-destructible): only where there is no udev
  PadWatch(const PadWatch&) = delete;
  PadWatch& operator=(const PadWatch&) = delete;

  // Readable (as in poll) when there is something to take.
  int descriptor() const;
  // Takes the next event; nothing when it is not a pad that was attached or detached.
  std::optional<NodeEvent> take();

 private:
  struct Source;
  Source* const m_source;
};

#endif
