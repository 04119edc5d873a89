// hidapi's C functions over the virtual bus.
#include <hidapi.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "virtualpads/hidapi/BusState.h"

namespace {

using virtualpads::BegunCall;
using virtualpads::Bytes;
using virtualpads::ErrorText;
using virtualpads::FaceAccess;
using virtualpads::HidCall;
using virtualpads::PadDescription;
using virtualpads::PadModel;
using virtualpads::PortState;

constexpr int kFailed = -1;

Bytes copied(const unsigned char* data, std::size_t length) {
  return data ? Bytes(data, data + length) : Bytes();
}

// The open handle for a caller's pointer; null, and a misuse, when there is none.
std::shared_ptr<hid_device_> openHandle(FaceAccess::State& bus, const hid_device* dev) {
  const auto found = bus.handles.find(dev);
  if (found == bus.handles.end() || !found->second->open) {
    ++bus.misuses;
    return nullptr;
  }
  return found->second;
}

// One call of the program under test. It is in the log from its construction to `end`. The bus
// stays locked throughout, except while the call waits or calls a model.
struct Call {
  FaceAccess::State& bus = FaceAccess::state();
  std::unique_lock<std::mutex> lock;
  const BegunCall begun;

  Call(HidCall kind, int argument, Bytes bytes = {})
      : lock(bus.mutex), begun(bus.begin(kind, argument, std::move(bytes))) {}

  // For a call that names no pad: an Unplug fault unplugs all pads.
  void unplugAllIfTold() {
    if (begun.unplug)
      for (const auto& [number, port] : bus.ports) bus.unplug(*port);
  }

  // Calls a model while the bus is not locked, so that a slow model does not delay the reports of
  // other pads.
  template <typename Ask>
  auto askModel(const hid_device_& handle, Ask ask) {
    lock.unlock();
    std::unique_lock models(bus.models);
    auto answer = ask(*handle.port->model);
    models.unlock();
    lock.lock();
    return answer;
  }

  // Waits until `over` holds; a negative time-out waits forever. False when the time-out passed
  // first.
  template <typename Condition>
  bool waitFor(std::chrono::milliseconds timeout, Condition over) {
    if (timeout.count() < 0) {
      bus.changed.wait(lock, over);
      return true;
    }
    return bus.changed.wait_until(lock, std::chrono::steady_clock::now() + timeout, over);
  }

  int end(int result) {
    bus.end(begun, result);
    return result;
  }
};

// hidapi frees an error text whenever it is about to set another one. Any other call in flight that
// uses the same text may do the same, and the text is then freed twice.
void freeErrorText(FaceAccess::State& bus, ErrorText& error) {
  if (error.exists && error.callsInFlight > 1) ++bus.misuses;
  error.exists = false;
}

// When a call always frees its old error text. A call that fails also frees it at its end.
enum class OldText { FreedAtStart, FreedAtEnd };

// The calls that exchange reports. `work` takes the call, the handle and the greatest length to
// deliver, and returns the result.
template <typename Work>
int exchange(HidCall kind, OldText oldText, hid_device* dev, std::size_t length, Bytes bytes,
             Work work) {
  const int argument = static_cast<int>(length);
  Call call(kind, argument, std::move(bytes));
  const std::shared_ptr<hid_device_> handle = openHandle(call.bus, dev);
  if (!handle) return call.end(kFailed);
  ErrorText& error = handle->error;
  ++error.callsInFlight;
  if (oldText == OldText::FreedAtStart) freeErrorText(call.bus, error);
  if (call.begun.unplug) call.bus.unplug(*handle->port);
  const int result = call.begun.returns
                         ? *call.begun.returns
                         : call.begun.limited(work(call, *handle, call.begun.limited(argument)));
  call.bus.holdBackLateCall(call.lock, call.begun);
  if (result < 0 || oldText == OldText::FreedAtEnd) freeErrorText(call.bus, error);
  if (result < 0) error.exists = true;
  --error.callsInFlight;
  return call.end(result);
}

// The kernel rejects a feature request without a buffer, and one shorter than the id and one byte.
bool isFeatureRequest(const unsigned char* data, std::size_t length) {
  return data && length >= 2;
}

int readReport(Call& call, hid_device_& handle, unsigned char* data, int capacity,
               std::chrono::milliseconds timeout) {
  const auto gone = [&] { return !handle.open || !handle.port->plugged; };
  if (!call.waitFor(timeout, [&] { return gone() || !handle.unread.empty(); })) return 0;
  if (gone()) return kFailed;
  const Bytes report = std::move(handle.unread.front());
  handle.unread.pop_front();
  call.bus.changed.notify_all();
  const std::size_t length = std::min(report.size(), static_cast<std::size_t>(capacity));
  std::copy_n(report.begin(), length, data);
  return static_cast<int>(length);
}

wchar_t* wideCopy(const std::string& text) {
  auto* copy = static_cast<wchar_t*>(std::calloc(text.size() + 1, sizeof(wchar_t)));
  std::ranges::copy(text, copy);
  return copy;
}

hid_device_info* enumerationEntry(const PadDescription& pad, int port, int index) {
  auto* entry = static_cast<hid_device_info*>(std::calloc(1, sizeof(hid_device_info)));
  const std::string path = "virtual:" + std::to_string(port) + "." + std::to_string(index);
  entry->path = strdup(path.c_str());
  entry->vendor_id = pad.vendor;
  entry->product_id = pad.product;
  entry->product_string = wideCopy(pad.name);
  entry->interface_number = index;
  return entry;
}

bool matches(const PadDescription& pad, unsigned short vendor, unsigned short product) {
  return (vendor == 0 || vendor == pad.vendor) && (product == 0 || product == pad.product);
}

// The first pad, in the order of plugging, that shows a node and has exactly these ids.
std::shared_ptr<PortState> firstMatch(const FaceAccess::State& bus, unsigned short vendor,
                                      unsigned short product) {
  for (const auto& [number, port] : bus.ports) {
    const PadDescription& pad = port->model->description();
    if (port->plugged && port->interfaces > 0 && pad.vendor == vendor && pad.product == product)
      return port;
  }
  return nullptr;
}

}  // namespace

extern "C" {

int hid_init() {
  Call call(HidCall::Init, 0);
  call.unplugAllIfTold();
  return call.end(call.begun.returns.value_or(0));
}

int hid_exit() {
  Call call(HidCall::Exit, 0);
  call.unplugAllIfTold();
  return call.end(call.begun.returns.value_or(0));
}

hid_device_info* hid_enumerate(unsigned short vendor_id, unsigned short product_id) {
  Call call(HidCall::Enumerate, 0);
  call.unplugAllIfTold();
  hid_device_info* first = nullptr;
  hid_device_info** end = &first;
  int entries = 0;
  for (const auto& [number, port] : call.bus.ports) {
    const PadDescription& pad = port->model->description();
    if (call.begun.returns || !port->plugged || !matches(pad, vendor_id, product_id)) continue;
    for (int index = 0; index < port->interfaces && entries < call.begun.limited(entries + 1);
         ++index) {
      *end = enumerationEntry(pad, number, index);
      end = &(*end)->next;
      ++entries;
    }
  }
  call.end(entries);
  return first;
}

void hid_free_enumeration(hid_device_info* devs) {
  Call call(HidCall::FreeEnumeration, 0);
  call.unplugAllIfTold();
  while (devs) {
    hid_device_info* next = devs->next;
    std::free(devs->path);
    std::free(devs->product_string);
    std::free(devs);
    devs = next;
  }
  call.end(0);
}

hid_device* hid_open(unsigned short vendor_id, unsigned short product_id,
                     const wchar_t* serial_number) {
  Call call(HidCall::Open, product_id);
  hid_device* opened = nullptr;
  const std::shared_ptr<PortState> port = firstMatch(call.bus, vendor_id, product_id);
  if (port && call.begun.unplug) call.bus.unplug(*port);
  // The pads have no serial number string on the bus.
  const bool serialFits = !serial_number || *serial_number == L'\0';
  if (port && port->plugged && port->accessible && serialFits && !call.begun.returns) {
    auto handle = std::make_shared<hid_device_>();
    opened = handle.get();
    handle->port = port;
    port->open.push_back(opened);
    call.bus.handles[opened] = std::move(handle);
  }
  call.bus.changed.notify_all();
  call.end(opened ? 1 : 0);
  return opened;
}

void hid_close(hid_device* dev) {
  Call call(HidCall::Close, 0);
  if (!dev) {  // hidapi accepts it
    call.end(0);
    return;
  }
  if (const std::shared_ptr<hid_device_> handle = openHandle(call.bus, dev)) {
    if (handle->error.callsInFlight > 0) ++call.bus.misuses;
    if (call.begun.unplug) call.bus.unplug(*handle->port);
    handle->open = false;
    call.bus.discardUnread(*handle);
    std::erase(handle->port->open, dev);
    call.bus.changed.notify_all();
  }
  call.end(0);
}

int hid_set_nonblocking(hid_device* dev, int nonblock) {
  Call call(HidCall::SetNonblocking, nonblock);
  const std::shared_ptr<hid_device_> handle = openHandle(call.bus, dev);
  if (!handle) return call.end(kFailed);
  if (call.begun.unplug) call.bus.unplug(*handle->port);
  return call.end(call.begun.returns.value_or(0));
}

int hid_read_timeout(hid_device* dev, unsigned char* data, size_t length, int milliseconds) {
  return exchange(HidCall::Read, OldText::FreedAtStart, dev, length, {},
                  [&](Call& call, hid_device_& handle, int capacity) {
                    const bool shortened = call.bus.readTimeout.count() > 0;
                    return readReport(
                        call, handle, data, capacity,
                        shortened ? call.bus.readTimeout : std::chrono::milliseconds(milliseconds));
                  });
}

int hid_write(hid_device* dev, const unsigned char* data, size_t length) {
  // No pad has output reports.
  return exchange(HidCall::Write, OldText::FreedAtEnd, dev, length, copied(data, length),
                  [](Call&, hid_device_&, int) { return kFailed; });
}

int hid_get_feature_report(hid_device* dev, unsigned char* data, size_t length) {
  return exchange(HidCall::GetFeature, OldText::FreedAtStart, dev, length, copied(data, length),
                  [&](Call& call, const hid_device_& handle, int capacity) {
                    if (!isFeatureRequest(data, length) || !handle.port->plugged) return kFailed;
                    const std::optional<Bytes> reply = call.askModel(
                        handle, [&](PadModel& model) { return model.getFeature(data[0]); });
                    if (!reply || !handle.port->plugged) return kFailed;
                    const std::size_t delivered =
                        std::min(reply->size(), static_cast<std::size_t>(capacity));
                    std::copy_n(reply->begin(), delivered, data);
                    return static_cast<int>(delivered);
                  });
}

int hid_send_feature_report(hid_device* dev, const unsigned char* data, size_t length) {
  return exchange(HidCall::SendFeature, OldText::FreedAtStart, dev, length, copied(data, length),
                  [&](Call& call, const hid_device_& handle, int) {
                    if (!isFeatureRequest(data, length) || !handle.port->plugged) return kFailed;
                    const bool accepted = call.askModel(handle, [&](PadModel& model) {
                      return model.setFeature({data, length});
                    });
                    return accepted && handle.port->plugged ? static_cast<int>(length) : kFailed;
                  });
}

}  // extern "C"
