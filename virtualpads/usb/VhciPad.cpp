#include "virtualpads/usb/VhciPad.h"

#include <linux/usb/ch9.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "virtualpads/usb/UsbDescriptors.h"

namespace virtualpads {
namespace {

// A host that has taken a report asks for the next one at once, unless it has ended polling.
constexpr std::chrono::seconds kEndOfPolling{1};

// The status of a transfer, as in the kernel's URBs.
constexpr int kDone = 0;
constexpr int kStall = -EPIPE;
constexpr int kBabble = -EOVERFLOW;
constexpr int kUnlinked = -ECONNRESET;
constexpr int kNoResponse = -EPROTO;

}  // namespace

VhciPad::VhciPad(std::shared_ptr<PadModel> model, std::uint8_t interval,
                 std::function<UsbPort()> openPort)
    : KernelPad(std::move(model)), m_interval(interval), m_openPort(std::move(openPort)) {}

VhciPad::~VhciPad() {
  unplug();
}

KernelPad::Connection VhciPad::connect() {
  m_port = m_openPort();
  m_device.emplace(model(), m_interval);
  m_nextPoll = {};
  return {std::move(m_port.device), m_port.name + "/input" + std::to_string(kInterface)};
}

void VhciPad::disconnect() {
  for (const auto& [sequence, command] : m_controls) returnNoResponse(sequence);
  if (m_poll) returnNoResponse(m_poll->sequence);
  // It takes the drivers from the device, which they may ask for something until then.
  m_removal = std::thread(m_port.remove);
  m_controls.clear();
  m_poll.reset();
  m_reports.clear();
}

void VhciPad::waitUntilGone() {
  m_removal.join();
  m_port.waitUntilGone();
  shutdown(device(), SHUT_RDWR);
}

std::function<void()> VhciPad::readEvent() {
  const auto command = receiveCommand(device());
  if (!command) {
    return [this] {
      breakConnection();
      shutdown(device(), SHUT_RDWR);
      endEvents();
    };
  }
  return [this, command = *command] { handle(command); };
}

// m_mutex is held from here on.

void VhciPad::handle(const UsbipCommand& command) {
  if (!isPlugged() && command.kind == UsbipCommand::Kind::Submit) {
    returnNoResponse(command.sequence);
    return;
  }
  command.kind == UsbipCommand::Kind::Submit ? submit(command) : unlink(command);
}

void VhciPad::submit(const UsbipCommand& command) {
  if (command.endpoint == 0) {
    control(command);
  } else if (command.endpoint == kInputEndpoint && command.in && m_device->configured() &&
             !m_poll) {
    m_poll = Transfer{command.sequence, command.length};
    setOpen(true);
    pollEndpoint();
  } else {
    returnSubmit(device(), command.sequence, kStall, 0);
  }
}

void VhciPad::unlink(const UsbipCommand& command) {
  int status = kDone;
  if (m_poll && m_poll->sequence == command.unlinked) {
    m_poll.reset();
    m_reports.clear();
    setOpen(false);
    status = kUnlinked;
  } else if (m_controls.erase(command.unlinked) > 0) {
    status = kUnlinked;
  }
  returnUnlink(device(), command.sequence, status);
}

void VhciPad::control(const UsbipCommand& command) {
  m_controls[command.sequence] = command;
  const auto request = reportRequest(command.setup);
  if (!request) {
    const bool wasConfigured = m_device->configured();
    returnControl(command.sequence, m_device->control(command.setup));
    if (m_device->configured() && !wasConfigured) setStarted();
  } else if (request->type != ReportRequest::Type::Feature) {
    returnControl(command.sequence, std::nullopt);
  } else if (request->direction == ReportRequest::Direction::Get) {
    takeFeatureRequest(FeatureCall::Get, command.sequence, request->reportId, {request->reportId});
  } else {
    takeFeatureRequest(FeatureCall::Set, command.sequence, request->reportId, command.data);
  }
}

void VhciPad::answer(FeatureCall /*call*/, std::uint32_t requestId,
                     const std::optional<Bytes>& reply) {
  returnControl(requestId, reply);
}

// Nothing for a transfer that the host has taken back.
void VhciPad::returnControl(std::uint32_t sequence, const std::optional<Bytes>& reply) {
  const auto found = m_controls.extract(sequence);
  if (found.empty()) return;
  const UsbipCommand& command = found.mapped();
  if (!reply) {
    returnSubmit(device(), sequence, kStall, 0);
  } else if (command.in) {
    Bytes data = *reply;
    data.resize(std::min<std::size_t>(data.size(), command.length));
    returnSubmit(device(), sequence, kDone, data.size(), data);
  } else {
    returnSubmit(device(), sequence, kDone, command.length);
  }
}

// What a host controller reports of a transfer to a device that no longer responds. The kernel
// makes no report of its own: until its removal of the device ends, its drivers would wait for
// every transfer as long as for a slow device.
void VhciPad::returnNoResponse(std::uint32_t sequence) const {
  returnSubmit(device(), sequence, kNoResponse, 0);
}

bool VhciPad::sendReport(const Bytes& report) {
  if (!isOpen() || m_reports.size() == kKeptReports) {
    // Nobody polls the pad, or it polls too slowly: the report is lost, as with a real pad.
    return true;
  }
  m_reports.push_back(report);
  pollEndpoint();
  wakeEventThread();
  return true;
}

// Answers the host's poll when it is time for it and the pad has a report.
void VhciPad::pollEndpoint() {
  const auto now = Clock::now();
  if (!m_poll || now < m_nextPoll || (m_reports.empty() && !m_device->halted())) return;
  const Transfer poll = *std::exchange(m_poll, std::nullopt);
  m_lastPoll = now;
  m_nextPoll = now + std::chrono::milliseconds(m_interval);
  if (m_device->halted()) {
    returnSubmit(device(), poll.sequence, kStall, 0);
    return;
  }
  Bytes report = std::move(m_reports.front());
  m_reports.pop_front();
  const int status = report.size() > poll.length ? kBabble : kDone;
  report.resize(std::min<std::size_t>(report.size(), poll.length));
  returnSubmit(device(), poll.sequence, status, report.size(), report);
}

std::optional<KernelPad::Clock::time_point> VhciPad::nextTime() const {
  if (m_poll) return m_reports.empty() ? std::nullopt : std::optional(m_nextPoll);
  return isOpen() ? std::optional(m_lastPoll + kEndOfPolling) : std::nullopt;
}

void VhciPad::onTime() {
  pollEndpoint();
  if (!m_poll && isOpen() && Clock::now() >= m_lastPoll + kEndOfPolling) {
    m_reports.clear();
    setOpen(false);
  }
}

}  // namespace virtualpads
