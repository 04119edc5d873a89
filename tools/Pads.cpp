#include "Pads.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <iterator>

#include "PadList.h"

namespace {

namespace fs = std::filesystem;

constexpr std::array kSignals{SIGINT, SIGTERM, SIGHUP};

constexpr const char* kRuleFile = "udev/rules.d/70-vela-pads.rules";

// How sysfs names the HID devices of a pad; an instance number follows.
std::string deviceName(const ListedPad& pad) {
  char name[16];
  std::snprintf(name, sizeof name, "0003:04DF:%04X.", pad.product);
  return name;
}

// The installed rule in one line.
std::string rule() {
  std::string devices;
  for (const ListedPad& pad : kPadList)
    devices += (devices.empty() ? "" : "|") + deviceName(pad) + "*";
  return R"(SUBSYSTEM=="hidraw", KERNELS==")" + devices + R"(", TAG+="uaccess")";
}

bool ruleIsInstalled() {
  const auto exists = [](const char* folder) { return fs::exists(fs::path(folder) / kRuleFile); };
  return exists("/etc") || exists("/usr/lib") || exists("/usr/local/lib");
}

}  // namespace

std::string Pads::refusal() const {
  std::string nodesRefused;
  for (const std::string& node : refused) nodesRefused += " " + node;
  std::string line = name + ": no permission to open" + nodesRefused + "; to get it, run: ";
  if (!ruleIsInstalled()) {
    line += "echo '" + rule() + "' | sudo tee /etc/" + kRuleFile +
            " && sudo udevadm control --reload && ";
  }
  return line + "sudo udevadm trigger" + nodesRefused;
}

std::optional<std::string> unknownName(gIIVela& vela, const std::string& name) {
  if (name.empty()) return std::nullopt;
  std::string names;
  for (short provider = 0; provider < vela.GetNumProviders(); ++provider) {
    const std::string known = vela.GetProviderDescription(provider);
    if (known == name) return std::nullopt;
    names += (names.empty() ? "" : ", ") + known;
  }
  return "unknown pad '" + name + "'; the pads are " + names;
}

std::string absence(const std::string& name) {
  return "no " + (name.empty() ? "pad" : name) + " is attached";
}

std::optional<short> providerOf(const std::string& device) {
  const auto* const found = std::ranges::find_if(
      kPadList, [&](const ListedPad& pad) { return device.starts_with(deviceName(pad)); });
  if (found == std::end(kPadList)) return std::nullopt;
  return static_cast<short>(found - std::begin(kPadList));
}

std::vector<std::string> nodesOf(short provider) {
  std::vector<std::string> nodes;
  std::error_code none;  // a missing folder or a device that has just gone means no node
  for (const auto& entry : fs::directory_iterator("/sys/class/hidraw", none)) {
    const fs::path device = fs::canonical(entry.path() / "device", none);
    if (providerOf(device.filename().string()) == provider)
      nodes.push_back("/dev/" + entry.path().filename().string());
  }
  std::sort(nodes.begin(), nodes.end());
  return nodes;
}

bool mayOpen(const std::string& node) {
  return access(node.c_str(), R_OK | W_OK) == 0;
}

std::vector<Pads> attachedPads(gIIVela& vela, const std::string& name) {
  std::vector<Pads> all;
  for (short provider = 0; provider < vela.GetNumProviders(); ++provider) {
    Pads pads{provider, vela.GetProviderDescription(provider), 0, nodesOf(provider), {}};
    if (!name.empty() && name != pads.name) continue;
    vela.OpenProvider(vela.GetProviderClassID(provider));
    pads.attached = vela.GetNumDevices();
    vela.CloseProvider();
    std::copy_if(pads.nodes.begin(), pads.nodes.end(), std::back_inserter(pads.refused),
                 [](const std::string& node) { return !mayOpen(node); });
    if (pads.attached > 0) all.push_back(pads);
  }
  return all;
}

HeldSignals::HeldSignals() {
  sigset_t held;
  sigemptyset(&held);
  for (const int signal : kSignals) sigaddset(&held, signal);
  pthread_sigmask(SIG_BLOCK, &held, &m_before);
}

HeldSignals::~HeldSignals() {
  pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
}

bool HeldSignals::waitFor(std::span<pollfd> descriptors) const {
  // A signal that arrives before poll waits in the pipe.
  static int arrived[2];
  if (arrived[1] == 0 && pipe(arrived) != 0) return false;
  for (const int signal : kSignals)
    std::signal(signal, [](int) { [[maybe_unused]] const auto one = write(arrived[1], "", 1); });
  sigset_t held;
  pthread_sigmask(SIG_SETMASK, &m_before, &held);
  std::vector<pollfd> waited(descriptors.begin(), descriptors.end());
  waited.push_back({arrived[0], POLLIN, 0});
  while (poll(waited.data(), waited.size(), -1) < 0 && errno == EINTR) {
  }
  pthread_sigmask(SIG_SETMASK, &held, nullptr);
  std::copy_n(waited.begin(), descriptors.size(), descriptors.begin());
  return waited.back().revents == 0;
}

Connection::Connection(gIIVela& vela, short provider, PenEventHandler handler) : m_vela(vela) {
  m_vela.OpenProvider(m_vela.GetProviderClassID(provider));
  m_vela.RegisterEventHandler(handler);
  m_vela.OpenConnection();
}

Connection::~Connection() {
  m_vela.CloseConnection();
  m_vela.CloseProvider();
}
