#include "virtualpads/kernel/UhidPad.h"

#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace virtualpads {
namespace {

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
  const PadDescription& pad = model.description();
  const Bytes& descriptor = model.reportDescriptor();
  uhid_event event{};
  if (descriptor.size() > sizeof event.u.create2.rd_data) {
    throw std::system_error(std::make_error_code(std::errc::message_size),
                            "the pad's report descriptor");
  }
  event.type = UHID_CREATE2;
  copyText(event.u.create2.name, sizeof event.u.create2.name, pad.name);
  copyText(event.u.create2.phys, sizeof event.u.create2.phys, physicalPath);
  event.u.create2.bus = kBusUsb;
  event.u.create2.vendor = pad.vendor;
  event.u.create2.product = pad.product;
  event.u.create2.version = kDeviceVersion;
  event.u.create2.rd_size = static_cast<std::uint16_t>(descriptor.size());
  std::copy(descriptor.begin(), descriptor.end(), event.u.create2.rd_data);
  return event;
}

bool write(int device, const uhid_event& event) {
  return ::write(device, &event, sizeof event) == ssize_t{sizeof event};
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
  if (!device) throw systemError("/dev/uhid");
  return device;
}

UhidPad::UhidPad(std::shared_ptr<PadModel> model, std::function<FileDescriptor()> openDevice)
    : KernelPad(std::move(model)), m_openDevice(std::move(openDevice)) {}

UhidPad::~UhidPad() {
  unplug();
}

KernelPad::Connection UhidPad::connect() {
  std::string physicalPath = newPhysicalPath();
  const uhid_event create = createEvent(model(), physicalPath);
  FileDescriptor device = m_openDevice();
  if (!write(device.get(), create)) throw systemError("making a HID device");
  return {std::move(device), std::move(physicalPath)};
}

void UhidPad::disconnect() {
  uhid_event destroy{};
  destroy.type = UHID_DESTROY;
  write(device(), destroy);
}

bool UhidPad::sendReport(const Bytes& report) {
  uhid_event event{};
  auto& input = event.u.input2;
  if (report.size() > sizeof input.data) return false;
  event.type = UHID_INPUT2;
  input.size = static_cast<std::uint16_t>(report.size());
  std::ranges::copy(report, input.data);
  return write(device(), event);
}

std::function<void()> UhidPad::readEvent() {
  uhid_event event{};
  if (read(device(), &event, sizeof event) <= 0) return {};
  return [this, event] { handle(event); };
}

void UhidPad::handle(const uhid_event& event) {
  if (!isPlugged()) return;
  switch (event.type) {
    case UHID_START:
      setStarted();
      break;
    case UHID_OPEN:
      setOpen(true);
      break;
    case UHID_CLOSE:
      setOpen(false);
      break;
    case UHID_GET_REPORT: {
      const auto& request = event.u.get_report;
      if (request.rtype == UHID_FEATURE_REPORT)
        takeFeatureRequest(FeatureCall::Get, request.id, request.rnum, {request.rnum});
      else
        answer(FeatureCall::Get, request.id, std::nullopt);
      break;
    }
    case UHID_SET_REPORT: {
      const auto& request = event.u.set_report;
      if (request.rtype == UHID_FEATURE_REPORT) {
        takeFeatureRequest(FeatureCall::Set, request.id, request.rnum,
                           {request.data, request.data + request.size});
      } else {
        answer(FeatureCall::Set, request.id, std::nullopt);
      }
      break;
    }
    default:  // UHID_STOP, and output reports, which no pad has
      break;
  }
}

void UhidPad::answer(FeatureCall call, std::uint32_t requestId, const std::optional<Bytes>& reply) {
  write(device(), call == FeatureCall::Get ? getAnswer(requestId, reply)
                                           : setAnswer(requestId, reply.has_value()));
}

}  // namespace virtualpads
