// What the tools share: finding the attached pads, and not leaving one open.
#ifndef EXAMPLES_PADS_H
#define EXAMPLES_PADS_H

#include <poll.h>

#include <csignal>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "giivela.h"

// The attached pads of one provider.
struct Pads {
  short provider;
  std::string name;
  int attached;
  std::vector<std::string> nodes;    // their device nodes, where the system has such
  std::vector<std::string> refused;  // those of them that may not be opened

  // One line: what may not be opened, and the command that permits it.
  std::string refusal() const;
};

// One line where no provider has that name, nothing where one has. The empty name is that of all
// pads together.
std::optional<std::string> unknownName(gIIVela& vela, const std::string& name);

// All providers with attached pads, or only the one of that name. No provider is open after it.
std::vector<Pads> attachedPads(gIIVela& vela, const std::string& name);

// One line for when there are none.
std::string absence(const std::string& name);

// The device nodes of a provider's pads, where the system has such, in the order of their names.
std::vector<std::string> nodesOf(short provider);

// Whether this user may open the node.
bool mayOpen(const std::string& node);

// The provider whose pads have the HID device as it is called in sysfs, "0003:04DF:0012.0001";
// nothing for the device of somebody else.
std::optional<short> providerOf(const std::string& device);

// Holds SIGINT, SIGTERM and SIGHUP back as long as it lives, in this thread and in those started
// from it, so that a pad can be closed before the program ends. One at a time.
class HeldSignals {
 public:
  HeldSignals();
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  // Waits for one of them, which is then taken, or for events of the descriptors, as poll does.
  // False for a signal.
  bool waitFor(std::span<pollfd> descriptors) const;

 private:
  sigset_t m_before;
};

// A provider and its connection, open as long as it lives. Make HeldSignals before.
class Connection {
 public:
  Connection(gIIVela& vela, short provider, PenEventHandler handler);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

 private:
  gIIVela& m_vela;
};

#endif
