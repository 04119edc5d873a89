#include "virtualpads/kernel/KernelPad.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include "virtualpads/kernel/HidrawNode.h"

namespace virtualpads {
namespace {

constexpr std::chrono::seconds kWaitLimit{30};

// Waits for events of the descriptors, no longer than until that time.
void waitForEvents(std::span<pollfd> watched,
                   std::optional<std::chrono::steady_clock::time_point> until) {
  timespec left{};
  if (until) {
    using namespace std::chrono;
    const auto time = std::max(*until - steady_clock::now(), steady_clock::duration::zero());
    const auto whole = duration_cast<seconds>(time);
    left = {whole.count(), duration_cast<nanoseconds>(time - whole).count()};
  }
  if (ppoll(watched.data(), watched.size(), until ? &left : nullptr, nullptr) < 0)
    for (pollfd& one : watched) one.revents = 0;
}

}  // namespace

KernelPad::KernelPad(std::shared_ptr<PadModel> model) : m_model(std::move(model)) {}

void KernelPad::plug() {
  std::lock_guard plugLock(m_plugMutex);
  if (plugged()) return;
  takeAway();
  m_wake = FileDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!m_wake) throw std::system_error(errno, std::generic_category(), "making an event counter");
  {
    std::lock_guard lock(m_mutex);
    m_connection = connect();
    m_plugged = true;
    m_started = false;
    m_ending = false;
  }
  m_eventThread = std::thread(&KernelPad::eventLoop, this);
  if (!waitFor(m_startLimit, [this] { return m_started; })) {
    takeAway();
    throw std::system_error(std::make_error_code(std::errc::timed_out), "starting a HID device");
  }
}

void KernelPad::unplug() {
  std::lock_guard plugLock(m_plugMutex);
  takeAway();
}

// Also after the pad was unplugged by a fault, for which nobody has waited yet.
void KernelPad::takeAway() {
  if (m_eventThread.joinable()) {
    {
      std::lock_guard lock(m_mutex);
      breakConnection();
    }
    waitUntilGone();
    {
      std::lock_guard lock(m_mutex);
      endEvents();
      wakeEventThread();
    }
    m_eventThread.join();
  }
}

bool KernelPad::plugged() const {
  std::lock_guard lock(m_mutex);
  return m_plugged;
}

std::string KernelPad::waitForNode() const {
  std::string physicalPath;
  {
    std::lock_guard lock(m_mutex);
    if (!m_plugged) return {};
    physicalPath = m_connection.physicalPath;
  }
  return waitForHidrawNode(physicalPath, kWaitLimit);
}

bool KernelPad::open() const {
  std::lock_guard lock(m_mutex);
  return m_open;
}

bool KernelPad::waitUntilOpen() const {
  return waitFor(kWaitLimit, [this] { return m_open; });
}

bool KernelPad::waitUntilClosed() const {
  return waitFor(kWaitLimit, [this] { return !m_open; });
}

bool KernelPad::send(const Bytes& report) {
  std::lock_guard lock(m_mutex);
  return m_plugged && sendReport(report);
}

bool KernelPad::sendPen(const PenState& pen) {
  std::lock_guard lock(m_mutex);
  return m_plugged && sendReport(m_model->inputReport(pen));
}

void KernelPad::withModel(const std::function<void(PadModel&)>& look) {
  std::lock_guard lock(m_mutex);
  look(*m_model);
}

void KernelPad::fail(FeatureCall call, std::uint8_t reportId, FeatureFault fault) {
  std::lock_guard lock(m_mutex);
  m_faults[{call, reportId}] = fault;
}

void KernelPad::releaseLateAnswers() {
  std::lock_guard lock(m_mutex);
  for (const auto& send : m_lateAnswers) send();
  m_lateAnswers.clear();
}

std::vector<FeatureRequest> KernelPad::requests() const {
  std::lock_guard lock(m_mutex);
  return {m_requests.begin(), m_requests.end()};
}

void KernelPad::clearRequests() {
  std::lock_guard lock(m_mutex);
  m_requests.clear();
}

bool KernelPad::waitForRequest(const std::function<bool(const FeatureRequest&)>& condition) const {
  return waitFor(kWaitLimit, [&] { return std::ranges::any_of(m_requests, condition); });
}

bool KernelPad::waitFor(std::chrono::milliseconds limit,
                        const std::function<bool()>& condition) const {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, limit, condition);
}

void KernelPad::eventLoop() {
  std::array<pollfd, 2> watched{{{device(), POLLIN, 0}, {m_wake.get(), POLLIN, 0}}};
  std::optional<Clock::time_point> time;
  while (true) {
    waitForEvents(watched, time);
    if (watched[1].revents != 0) {
      eventfd_t count = 0;
      eventfd_read(m_wake.get(), &count);
    }
    std::function<void()> handle;
    if (watched[0].revents != 0) handle = readEvent();
    std::lock_guard lock(m_mutex);
    if (handle) handle();
    if (m_plugged) onTime();
    if (m_ending) return;
    time = nextTime();
    m_changed.notify_all();
  }
}

// m_mutex is held from here on.

void KernelPad::setOpen(bool open) {
  m_open = open;
  m_changed.notify_all();
}

void KernelPad::breakConnection() {
  if (!m_plugged) return;
  disconnect();
  m_plugged = false;
  m_open = false;
  m_lateAnswers.clear();
  m_changed.notify_all();
}

void KernelPad::wakeEventThread() const {
  eventfd_write(m_wake.get(), 1);
}

void KernelPad::takeFeatureRequest(FeatureCall call, std::uint32_t requestId, std::uint8_t reportId,
                                   const Bytes& bytes) {
  const auto planned = m_faults.extract({call, reportId});
  const auto meets = [&](FeatureFault fault) { return planned && planned.mapped() == fault; };
  if (meets(FeatureFault::Unplug)) {
    log({call, bytes, false});
    breakConnection();
    return;
  }
  std::optional<Bytes> reply;
  if (call == FeatureCall::Get)
    reply = m_model->getFeature(reportId);
  else if (m_model->setFeature(bytes))
    reply.emplace();
  log({call, bytes, reply.has_value()});
  const auto send = [=, this] { answer(call, requestId, reply); };
  if (meets(FeatureFault::Late))
    m_lateAnswers.emplace_back(send);
  else
    send();
}

void KernelPad::log(FeatureRequest request) {
  if (m_requests.size() == kLoggedRequests) m_requests.pop_front();
  m_requests.push_back(std::move(request));
}

}  // namespace virtualpads
