#include "virtualpads/hidapi/VirtualBus.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

#include "virtualpads/hidapi/BusState.h"

namespace virtualpads {

namespace {

constexpr std::chrono::seconds kPatience{30};

std::size_t indexOf(HidCall kind) {
  return static_cast<std::size_t>(kind);
}

template <typename Condition>
bool waitPatiently(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                   Condition condition) {
  return changed.wait_until(lock, std::chrono::steady_clock::now() + kPatience, condition);
}

bool hasRoom(const hid_device_* handle) {
  return handle->unread.size() < VirtualBus::kUnreadReports;
}

}  // namespace

int BegunCall::limited(int length) const {
  return cut ? std::min(length, *cut) : length;
}

BegunCall VirtualBus::State::begin(HidCall kind, int argument, Bytes bytes) {
  const long ordinalOfKind = ++ordinals[indexOf(kind)];
  BegunCall call{.kind = kind,
                 .number = firstLogged + static_cast<long>(log.size()),
                 .lateEpoch = lateEpoch,
                 .returns = {},
                 .cut = {}};
  for (const FaultRule& rule : faults) {
    if (rule.call != kind || ordinalOfKind < rule.first || ordinalOfKind > rule.last) continue;
    switch (rule.fault.kind) {
      case Fault::Kind::Return:
        call.returns = rule.fault.value;
        break;
      case Fault::Kind::Short:
        call.cut = rule.fault.value;
        break;
      case Fault::Kind::Late:
        call.late = true;
        break;
      case Fault::Kind::Unplug:
        call.unplug = true;
        break;
    }
  }
  log.push_back({kind, std::move(bytes), argument, 0});
  ++begun[indexOf(kind)];
  changed.notify_all();
  return call;
}

void VirtualBus::State::holdBackLateCall(std::unique_lock<std::mutex>& lock,
                                         const BegunCall& call) {
  if (call.late) changed.wait(lock, [&] { return lateEpoch != call.lateEpoch; });
}

void VirtualBus::State::end(const BegunCall& call, int result) {
  if (call.number >= firstLogged)
    log[static_cast<std::size_t>(call.number - firstLogged)].result = result;
  ++returned[indexOf(call.kind)];
  changed.notify_all();
}

PortState& VirtualBus::State::portAt(Port port) const {
  return *ports.at(port);
}

bool VirtualBus::State::send(PortState& port, const Bytes& report) {
  if (!port.plugged || report.empty()) return false;
  bool taken = false;
  for (hid_device_* handle : port.open) {
    if (hasRoom(handle)) {
      handle->unread.push_back(report);
      taken = true;
    }
  }
  changed.notify_all();
  return taken;
}

void VirtualBus::State::unplug(PortState& port) {
  port.plugged = false;
  for (hid_device_* handle : port.open) discardUnread(*handle);
  changed.notify_all();
}

void VirtualBus::State::discardUnread(hid_device_& handle) {
  if (!handle.unread.empty()) {
    ++handle.port->discarded;
    handle.unread.clear();
  }
}

void VirtualBus::State::releaseLateCalls() {
  std::erase_if(faults, [](const FaultRule& rule) { return rule.fault.kind == Fault::Kind::Late; });
  ++lateEpoch;
  changed.notify_all();
}

void VirtualBus::State::clearLog() {
  firstLogged += static_cast<long>(log.size());
  log.clear();
  begun = {};
  returned = {};
}

VirtualBus& VirtualBus::instance() {
  // Never destroyed: a reading thread of the program under test may outlive main.
  static VirtualBus* const bus = new VirtualBus;
  return *bus;
}

VirtualBus::VirtualBus() : m_state(std::make_unique<State>()) {}

VirtualBus::~VirtualBus() = default;

void VirtualBus::reset() {
  std::lock_guard lock(m_state->mutex);
  for (const auto& [number, port] : m_state->ports) m_state->unplug(*port);
  m_state->ports.clear();
  m_state->handles.clear();
  m_state->readTimeout = std::chrono::milliseconds{0};
  m_state->releaseLateCalls();
  m_state->faults.clear();
  m_state->clearLog();
  m_state->misuses = 0;
}

VirtualBus::Port VirtualBus::plug(std::shared_ptr<PadModel> pad, int interfaces) {
  if (!pad || interfaces < 0) throw std::invalid_argument("VirtualBus::plug");
  auto state = std::make_shared<PortState>();
  state->model = std::move(pad);
  state->interfaces = interfaces;
  std::lock_guard lock(m_state->mutex);
  const Port port = ++m_state->lastPort;
  m_state->ports[port] = std::move(state);
  return port;
}

void VirtualBus::unplug(Port port) {
  std::lock_guard lock(m_state->mutex);
  m_state->unplug(m_state->portAt(port));
}

void VirtualBus::setAccessible(Port port, bool accessible) {
  std::lock_guard lock(m_state->mutex);
  m_state->portAt(port).accessible = accessible;
}

bool VirtualBus::send(Port port, const Bytes& report) {
  std::lock_guard lock(m_state->mutex);
  return m_state->send(m_state->portAt(port), report);
}

bool VirtualBus::sendWhenRoom(Port port, const Bytes& report) {
  std::unique_lock lock(m_state->mutex);
  const std::shared_ptr<PortState> state = m_state->ports.at(port);
  m_state->changed.wait(
      lock, [&] { return !state->plugged || std::ranges::all_of(state->open, hasRoom); });
  return m_state->send(*state, report);
}

bool VirtualBus::sendPen(Port port, const PenState& pen) {
  Bytes report;
  withModel(port, [&](PadModel& model) { report = model.inputReport(pen); });
  return sendWhenRoom(port, report);
}

bool VirtualBus::waitUntilRead(Port port) {
  std::unique_lock lock(m_state->mutex);
  const std::shared_ptr<PortState> state = m_state->ports.at(port);
  if (!state->plugged || state->open.empty()) return false;
  const long discarded = state->discarded;
  m_state->changed.wait(lock, [&] {
    return std::ranges::all_of(state->open,
                               [](const hid_device_* handle) { return handle->unread.empty(); });
  });
  return state->discarded == discarded;
}

void VirtualBus::withModel(Port port, const std::function<void(PadModel&)>& look) {
  std::shared_ptr<PadModel> model;
  {
    std::lock_guard lock(m_state->mutex);
    model = m_state->portAt(port).model;
  }
  std::lock_guard lock(m_state->models);
  look(*model);
}

void VirtualBus::setReadTimeout(std::chrono::milliseconds timeout) {
  std::lock_guard lock(m_state->mutex);
  m_state->readTimeout = timeout;
}

void VirtualBus::fail(HidCall call, Fault fault, int nth, int times) {
  const bool impossible = fault.kind == Fault::Kind::Short && fault.value < 0;
  if (impossible || nth < 1 || (times < 1 && times != kAlways))
    throw std::invalid_argument("VirtualBus::fail");
  std::lock_guard lock(m_state->mutex);
  const long first = m_state->ordinals[indexOf(call)] + nth;
  const long last = times == kAlways ? std::numeric_limits<long>::max() : first + times - 1;
  m_state->faults.push_back({call, fault, first, last});
}

void VirtualBus::releaseLateCalls() {
  std::lock_guard lock(m_state->mutex);
  m_state->releaseLateCalls();
}

std::vector<CallRecord> VirtualBus::calls() const {
  std::lock_guard lock(m_state->mutex);
  std::vector<CallRecord> records;
  std::ranges::copy_if(m_state->log, std::back_inserter(records),
                       [](const CallRecord& record) { return record.call != HidCall::Read; });
  return records;
}

std::vector<CallRecord> VirtualBus::calls(std::initializer_list<HidCall> kinds) const {
  std::lock_guard lock(m_state->mutex);
  std::vector<CallRecord> records;
  std::ranges::copy_if(m_state->log, std::back_inserter(records), [&](const CallRecord& record) {
    return std::ranges::find(kinds, record.call) != kinds.end();
  });
  return records;
}

long VirtualBus::count(HidCall call) const {
  std::lock_guard lock(m_state->mutex);
  return m_state->returned[indexOf(call)];
}

void VirtualBus::clearLog() {
  std::lock_guard lock(m_state->mutex);
  m_state->clearLog();
}

bool VirtualBus::waitForBegun(HidCall call, long count) const {
  std::unique_lock lock(m_state->mutex);
  return waitPatiently(m_state->changed, lock,
                       [&] { return m_state->begun[indexOf(call)] >= count; });
}

bool VirtualBus::waitForReturned(HidCall call, long count) const {
  std::unique_lock lock(m_state->mutex);
  return waitPatiently(m_state->changed, lock,
                       [&] { return m_state->returned[indexOf(call)] >= count; });
}

int VirtualBus::openHandles() const {
  std::lock_guard lock(m_state->mutex);
  return static_cast<int>(std::ranges::count_if(
      m_state->handles, [](const auto& entry) { return entry.second->open; }));
}

int VirtualBus::openHandles(Port port) const {
  std::lock_guard lock(m_state->mutex);
  return static_cast<int>(m_state->portAt(port).open.size());
}

bool VirtualBus::waitUntilOpen(Port port) const {
  std::unique_lock lock(m_state->mutex);
  const std::shared_ptr<PortState> state = m_state->ports.at(port);
  return waitPatiently(m_state->changed, lock, [&] { return !state->open.empty(); });
}

long VirtualBus::misuses() const {
  std::lock_guard lock(m_state->mutex);
  return m_state->misuses;
}

}  // namespace virtualpads
