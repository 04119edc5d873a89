#include "virtualpads/kernel/UhidPad.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "virtualpads/kernel/HidrawNode.h"

namespace virtualpads {
namespace {

constexpr std::chrono::seconds kStartLimit{5};
constexpr std::chrono::seconds kWaitLimit{30};

constexpr std::uint16_t kBusUsb = 3;
constexpr std::uint32_t kDeviceVersion = 0x0100;

std::system_error systemError(const std::string& what) {
  return {errno, std::generic_category(), what};
}

// A name for each plugging of each pad, by which its node can be found in sysfs.
std::string newPhysicalPath() {
  static std::atomic<unsigned> count{0};
  return "virtualpads/" + std::to_string(getpid()) + "." + std::to_string(++count);
}

// Leaves the field's last byte zero as the terminator.
void copyText(std::uint8_t* field, std::size_t size, const std::string& text) {
  std::copy_n(text.data(), std::min(text.size(), size - 1), field);
}

uhid_event createEvent(const PadModel& model, const std::string& physicalPath) {
  const PadModel::Identity identity = model.identity();
  const auto descriptor = model.reportDescriptor();
  uhid_event event{};
  if (descriptor.size() > sizeof event.u.create2.rd_data) {
    throw std::system_error(std::make_error_code(std::errc::message_size),
                            "the pad's report descriptor");
  }
  event.type = UHID_CREATE2;
  copyText(event.u.create2.name, sizeof event.u.create2.name, identity.name);
  copyText(event.u.create2.phys, sizeof event.u.create2.phys, physicalPath);
  event.u.create2.bus = kBusUsb;
  event.u.create2.vendor = identity.vendor;
  event.u.create2.product = identity.product;
  event.u.create2.version = kDeviceVersion;
  event.u.create2.rd_size = static_cast<std::uint16_t>(descriptor.size());
  std::copy(descriptor.begin(), descriptor.end(), event.u.create2.rd_data);
  return event;
}

uhid_event getAnswer(std::uint32_t requestId, const std::optional<Bytes>& reply) {
  uhid_event event{};
  event.type = UHID_GET_REPORT_REPLY;
  auto& answer = event.u.get_report_reply;
  answer.id = requestId;
  if (!reply) {
    answer.err = EIO;
    return event;
  }
  const std::size_t size = std::min(reply->size(), sizeof answer.data);
  answer.size = static_cast<std::uint16_t>(size);
  std::copy_n(reply->begin(), size, answer.data);
  return event;
}

uhid_event setAnswer(std::uint32_t requestId, bool accepted) {
  uhid_event event{};
  event.type = UHID_SET_REPORT_REPLY;
  event.u.set_report_reply.id = requestId;
  event.u.set_report_reply.err = accepted ? 0 : EIO;
  return event;
}

}  // namespace

FileDescriptor openUhid() {
  FileDescriptor device(::open("/dev/uhid", O_RDWR | O_CLOEXEC));
  if (!device) {
    throw systemError("/dev/uhid");
  }
  return device;
}

UhidPad::UhidPad(std::shared_ptr<PadModel> model, std::function<FileDescriptor()> openDevice)
    : m_model(std::move(model)), m_openDevice(std::move(openDevice)) {}

UhidPad::~UhidPad() {
  unplug();
}

void UhidPad::plug() {
  std::lock_guard plugLock(m_plugMutex);
  if (plugged()) {
    return;
  }
  joinEventThread();
  m_stop = FileDescriptor(eventfd(0, EFD_CLOEXEC));
  if (!m_stop) {
    throw systemError("making an event counter");
  }
  {
    std::lock_guard lock(m_mutex);
    m_physicalPath = newPhysicalPath();
    const uhid_event create = createEvent(*m_model, m_physicalPath);
    m_device = m_openDevice();
    if (!write(create)) {
      throw systemError("making a HID device");
    }
    m_plugged = true;
    m_started = false;
  }
  m_eventThread = std::thread(&UhidPad::eventLoop, this);
  if (!waitFor(kStartLimit, [this] { return m_started; })) {
    takeAway();
    throw std::system_error(std::make_error_code(std::errc::timed_out), "starting a HID device");
  }
}

void UhidPad::unplug() {
  std::lock_guard plugLock(m_plugMutex);
  takeAway();
}

void UhidPad::takeAway() {
  {
    std::lock_guard lock(m_mutex);
    destroyDevice();
  }
  joinEventThread();
}

// A pad that was unplugged by a fault has ended its event thread, but nobody has joined it yet.
void UhidPad::joinEventThread() {
  if (m_eventThread.joinable()) {
    eventfd_write(m_stop.get(), 1);
    m_eventThread.join();
  }
}

bool UhidPad::plugged() const {
  std::lock_guard lock(m_mutex);
  return m_plugged;
}

std::string UhidPad::waitForNode() const {
  std::string physicalPath;
  {
    std::lock_guard lock(m_mutex);
    if (!m_plugged) {
      return {};
    }
    physicalPath = m_physicalPath;
  }
  return waitForHidrawNode(physicalPath, kWaitLimit);
}

bool UhidPad::open() const {
  std::lock_guard lock(m_mutex);
  return m_open;
}

bool UhidPad::waitUntilOpen() const {
  return waitFor(kWaitLimit, [this] { return m_open; });
}

bool UhidPad::waitUntilClosed() const {
  return waitFor(kWaitLimit, [this] { return !m_open; });
}

bool UhidPad::send(const Bytes& report) {
  std::lock_guard lock(m_mutex);
  return sendReport(report);
}

bool UhidPad::sendPen(const PenState& pen) {
  std::lock_guard lock(m_mutex);
  return sendReport(m_model->inputReport(pen));
}

void UhidPad::withModel(const std::function<void(PadModel&)>& look) {
  std::lock_guard lock(m_mutex);
  look(*m_model);
}

void UhidPad::fail(FeatureCall call, std::uint8_t reportId, FeatureFault fault, int times) {
  std::lock_guard lock(m_mutex);
  m_faults[{call, reportId}] = {fault, times};
}

void UhidPad::clearFaults() {
  std::lock_guard lock(m_mutex);
  m_faults.clear();
}

void UhidPad::releaseLateAnswers() {
  std::lock_guard lock(m_mutex);
  for (const uhid_event& answer : m_lateAnswers) {
    write(answer);
  }
  m_lateAnswers.clear();
}

std::vector<FeatureRequest> UhidPad::requests() const {
  std::lock_guard lock(m_mutex);
  return {m_requests.begin(), m_requests.end()};
}

void UhidPad::clearRequests() {
  std::lock_guard lock(m_mutex);
  m_requests.clear();
}

bool UhidPad::waitForRequest(const std::function<bool(const FeatureRequest&)>& condition) const {
  return waitFor(kWaitLimit, [&] { return std::ranges::any_of(m_requests, condition); });
}

bool UhidPad::waitFor(std::chrono::seconds limit, const std::function<bool()>& condition) const {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, limit, condition);
}

// m_mutex is held from here on, except at the top of the event loop.

bool UhidPad::write(const uhid_event& event) const {
  return ::write(m_device.get(), &event, sizeof event) == ssize_t{sizeof event};
}

bool UhidPad::sendReport(const Bytes& report) const {
  uhid_event event{};
  auto& input = event.u.input2;
  if (!m_plugged || report.size() > sizeof input.data) {
    return false;
  }
  event.type = UHID_INPUT2;
  input.size = static_cast<std::uint16_t>(report.size());
  std::ranges::copy(report, input.data);
  return write(event);
}

void UhidPad::destroyDevice() {
  if (!m_plugged) {
    return;
  }
  uhid_event destroy{};
  destroy.type = UHID_DESTROY;
  write(destroy);
  m_plugged = false;
  m_open = false;
  m_lateAnswers.clear();
  m_changed.notify_all();
}

void UhidPad::eventLoop() {
  std::array<pollfd, 2> watched{{{m_device.get(), POLLIN, 0}, {m_stop.get(), POLLIN, 0}}};
  while (true) {
    poll(watched.data(), watched.size(), -1);
    if (watched[1].revents != 0) {
      return;
    }
    uhid_event event{};
    if (read(watched[0].fd, &event, sizeof event) <= 0) {
      continue;
    }
    std::lock_guard lock(m_mutex);
    handle(event);
    if (!m_plugged) {
      return;
    }
    m_changed.notify_all();
  }
}

void UhidPad::handle(const uhid_event& event) {
  switch (event.type) {
    case UHID_START:
      m_started = true;
      break;
    case UHID_OPEN:
      m_open = true;
      break;
    case UHID_CLOSE:
      m_open = false;
      break;
    case UHID_GET_REPORT: {
      const auto& request = event.u.get_report;
      if (request.rtype == UHID_FEATURE_REPORT) {
        answerFeature(FeatureCall::Get, request.id, request.rnum, {request.rnum});
      } else {
        write(getAnswer(request.id, std::nullopt));
      }
      break;
    }
    case UHID_SET_REPORT: {
      const auto& request = event.u.set_report;
      if (request.rtype == UHID_FEATURE_REPORT) {
        answerFeature(FeatureCall::Set, request.id, request.rnum,
                      {request.data, request.data + request.size});
      } else {
        write(setAnswer(request.id, false));
      }
      break;
    }
    default:  // UHID_STOP, and output reports, which no pad has
      break;
  }
}

void UhidPad::answerFeature(FeatureCall call, std::uint32_t requestId, std::uint8_t reportId,
                            const Bytes& bytes) {
  const std::optional<FeatureFault> fault = takeFault(call, reportId);
  const auto meets = [&](FeatureFault::Kind kind) { return fault && fault->kind == kind; };
  if (meets(FeatureFault::Kind::Unplug)) {
    log({call, bytes, false});
    destroyDevice();
    return;
  }
  uhid_event answer;
  bool accepted = false;
  if (call == FeatureCall::Get) {
    std::optional<Bytes> reply;
    if (!meets(FeatureFault::Kind::Refuse)) {
      reply = m_model->getFeature(reportId);
    }
    if (reply && meets(FeatureFault::Kind::Short)) {
      reply->resize(std::min(reply->size(), fault->bytes));
    }
    accepted = reply.has_value();
    answer = getAnswer(requestId, reply);
  } else {
    accepted = !meets(FeatureFault::Kind::Refuse) && m_model->setFeature(bytes);
    answer = setAnswer(requestId, accepted);
  }
  log({call, bytes, accepted});
  if (meets(FeatureFault::Kind::Late)) {
    m_lateAnswers.push_back(answer);
  } else {
    write(answer);
  }
}

std::optional<FeatureFault> UhidPad::takeFault(FeatureCall call, std::uint8_t reportId) {
  const auto planned = m_faults.find({call, reportId});
  if (planned == m_faults.end()) {
    return std::nullopt;
  }
  const FeatureFault fault = planned->second.fault;
  if (planned->second.times != kAlways && --planned->second.times == 0) {
    m_faults.erase(planned);
  }
  return fault;
}

void UhidPad::log(FeatureRequest request) {
  if (m_requests.size() == kLoggedRequests) {
    m_requests.pop_front();
  }
  m_requests.push_back(std::move(request));
}

}  // namespace virtualpads
