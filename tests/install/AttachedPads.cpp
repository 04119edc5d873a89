// Preloaded into installed programs together with the virtual pads' hidapi face. The programs then
// find the virtual pads named in VELA_PADS instead of real ones. As soon as a program has opened a
// pad, a pen draws a line on it and lifts, unless VELA_PEN is set. When the program ends, the state
// it left behind is written to the file VELA_LEFT.
#include <poll.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "virtualpads/InkPad.h"
#include "virtualpads/VisionPad.h"
#include "virtualpads/hidapi/VirtualBus.h"

namespace {

using namespace virtualpads;

constexpr std::array kNames{"usb", "ii", "ink", "vision"};
constexpr std::array kKinds{PadKind::Usb, PadKind::Ii, PadKind::Ink, PadKind::Vision};

VirtualBus& bus() {
  return VirtualBus::instance();
}

std::array<std::shared_ptr<PadModel>, kKinds.size()> pads;

void drawLine(VirtualBus::Port port) {
  if (!bus().waitUntilOpen(port)) return;
  if (const char* const signal = std::getenv("VELA_SIGNAL")) kill(getpid(), std::atoi(signal));
  if (std::getenv("VELA_PEN") != nullptr) return;
  bus().sendPen(port, {.x = 0.25, .y = 0.5, .pressure = 0.5, .touch = true, .milliseconds = 1000});
  bus().sendPen(port, {.x = 0.75, .y = 0.25, .pressure = 1, .touch = true, .milliseconds = 1010});
  bus().sendPen(port, {.x = 0.75, .y = 0.25, .pressure = 0, .touch = false, .milliseconds = 1020});
}

[[gnu::constructor]] void plug() {
  // The thread sanitizer's library makes a thread's list of deferred signals in the thread's first
  // blocking call, and loses a signal that comes while it does so. The main thread makes that call
  // here, before any signal.
  poll(nullptr, 0, 0);
  const char* const wanted = std::getenv("VELA_PADS");
  if (wanted == nullptr) return;
  const std::string names = wanted;
  bus().setReadTimeout(std::chrono::milliseconds(20));
  // Signals are for the program; the pens' threads block them.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  for (std::size_t i = 0; i < kKinds.size(); ++i) {
    if (names.find(kNames.at(i)) == std::string::npos) continue;
    pads.at(i) = makePad(kKinds.at(i));
    const VirtualBus::Port port = bus().plug(pads.at(i));
    bus().setAccessible(port, std::getenv("VELA_LOCKED") == nullptr);
    std::thread(drawLine, port).detach();
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

[[gnu::destructor]] void reportWhatIsLeft() {
  const char* const path = std::getenv("VELA_LEFT");
  if (path == nullptr) return;
  std::ofstream left(path);
  left << "open " << bus().openHandles() << ", misused " << bus().misuses() << '\n';
  if (const auto* ink = dynamic_cast<InkPad*>(pads[2].get())) {
    left << "ink trace " << ink->inkTrace().mode << ", backlight " << ink->backlight().mode
         << ", layers " << ink->layerState(0) << ink->layerState(1) << ink->layerState(2) << '\n';
  }
  if (const auto* vision = dynamic_cast<VisionPad*>(pads[3].get()))
    left << "vision mode " << vision->mode() << '\n';
}

}  // namespace
