// What the tools share: finding the attached pads, and not leaving one open.
#ifndef EXAMPLES_PADS_H
#define EXAMPLES_PADS_H

#include <csignal>
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

  // One line: what may not be opened, and the command that mends it.
  std::string refusal() const;
};

// All providers with attached pads, or only the one of that name. No provider is open after it.
std::vector<Pads> attachedPads(gIIVela& vela, const std::string& name);

// Holds SIGINT, SIGTERM and SIGHUP back as long as it lives, in this thread and in those started
// from it, so that a pad can be closed before the program ends. One at a time.
class HeldSignals {
 public:
  HeldSignals();
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  // Waits for one of them, which is then taken, or for these events (as in poll) of a descriptor.
  // True for the descriptor.
  bool waitFor(int descriptor, short events) const;

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
