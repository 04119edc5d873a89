#include "Pads.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

// As the kernel writes them into a HID device's HID_ID, by provider.
constexpr std::array kIds{"0003:000004DF:00000012", "0003:000004DF:0000001F",
                          "0003:000004DF:00000030", "0003:000004DF:00000038"};

constexpr std::array kSignals{SIGINT, SIGTERM, SIGHUP};

constexpr const char* kRuleFile = "udev/rules.d/70-vela-pads.rules";
constexpr const char* kRule =
    R"(SUBSYSTEM=="hidraw", KERNELS=="0003:04DF:0012.*|0003:04DF:001F.*|0003:04DF:0030.*|)"
    R"(0003:04DF:0038.*", TAG+="uaccess")";

bool ruleIsInstalled() {
  const auto exists = [](const char* folder) { return fs::exists(fs::path(folder) / kRuleFile); };
  return exists("/etc") || exists("/usr/lib") || exists("/usr/local/lib");
}

std::vector<std::string> nodesOf(short provider) {
  std::vector<std::string> nodes;
  std::error_code none;  // where there is no such folder there are no nodes
  for (const auto& entry : fs::directory_iterator("/sys/class/hidraw", none)) {
    std::ifstream properties(entry.path() / "device/uevent");
    const std::string wanted = std::string("HID_ID=") + kIds.at(static_cast<size_t>(provider));
    for (std::string line; std::getline(properties, line);) {
      if (line == wanted) nodes.push_back("/dev/" + entry.path().filename().string());
    }
  }
  std::sort(nodes.begin(), nodes.end());
  return nodes;
}

}  // namespace

std::string Pads::refusal() const {
  std::string line = name + ":";
  for (const std::string& node : refused) line += " " + node;
  line += " may not be opened by you; this mends it: ";
  if (!ruleIsInstalled()) {
    line += "echo '" + std::string(kRule) + "' | sudo tee /etc/" + kRuleFile +
            " && sudo udevadm control --reload && ";
  }
  return line + "sudo udevadm trigger --subsystem-match=hidraw";
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
                 [](const std::string& node) { return access(node.c_str(), R_OK | W_OK) != 0; });
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

bool HeldSignals::waitFor(int descriptor, short events) const {
  // A signal that comes in before poll waits in the pipe for it.
  static int arrived[2];
  if (pipe(arrived) != 0) return false;
  for (const int signal : kSignals) {
    std::signal(signal, [](int) { [[maybe_unused]] const auto one = write(arrived[1], "", 1); });
  }
  sigset_t held;
  pthread_sigmask(SIG_SETMASK, &m_before, &held);
  pollfd waited[] = {{arrived[0], POLLIN, 0}, {descriptor, events, 0}};
  while (poll(waited, 2, -1) < 0 && errno == EINTR) {
  }
  pthread_sigmask(SIG_SETMASK, &held, nullptr);
  return waited[0].revents == 0;
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
