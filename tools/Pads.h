// What the tools share: finding the attached pads, and leaving no pad open.
#ifndef TOOLS_PADS_H
#define TOOLS_PADS_H

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
  std::vector<std::string> nodes;    // their device nodes, on systems that have them
  std::vector<std::string> refused;  // the nodes that this user may not open

  // One line: the nodes that may not be opened, and the command that changes this.
  std::string refusal() const;
};

// One line when no provider has that name, nothing when one has. The empty name stands for all
// pads.
std::optional<std::string> unknownName(gIIVela& vela, const std::string& name);

// All providers with attached pads, or only the one with that name. No provider is open afterwards.
std::vector<Pads> attachedPads(gIIVela& vela, const std::string& name);

// One line that says that no pad of that name is attached.
std::string absence(const std::string& name);

// The device nodes of a provider's pads, sorted by name, on systems that have them.
std::vector<std::string> nodesOf(short provider);

// Whether this user may open the node.
bool mayOpen(const std::string& node);

// The provider of a HID device with this name in sysfs, such as "0003:04DF:0012.0001"; nothing for
// a device that is not a pad.
std::optional<short> providerOf(const std::string& device);

// While it lives, SIGINT, SIGTERM and SIGHUP are held back in this thread and in those started from
// it, so that a pad can be closed before the program ends. One at a time.
class HeldSignals {
 public:
  HeldSignals();
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  // Waits for one of these signals, which it takes, or for events of the descriptors, as poll does.
  // Returns false for a signal.
  bool waitFor(std::span<pollfd> descriptors) const;

 private:
  sigset_t m_before;
};

// A provider and its connection, open as long as the object lives. Create HeldSignals first.
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
