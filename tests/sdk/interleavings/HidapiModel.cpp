#include "HidapiModel.h"

#include <hidapi.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "../../support/TrackedHeap.h"

namespace interleavings {

namespace {

using support::decide;
using support::fail;
using support::kForever;
using support::kMillisecond;
using support::kSecond;
using support::note;
using support::TestCode;

constexpr std::size_t kUnreadReports = 63;    // the kernel keeps them for each open node
constexpr std::size_t kMaxFailedReads = 100;  // a second
constexpr Time kReadTimeout = kSecond;
constexpr Time kLateFailure = 30 * kMillisecond;  // a read that fails does so within it
constexpr Time kPause = 50 * kMillisecond;        // after a failed read

bool percent(std::uint64_t share) {
  return share > 0 && support::random().below(100) < share;
}

// What register_error does, moment by moment.
void replaceText(TextPlace& place, bool fails) {
  decide();
  ErrorText* const old = place.text;
  decide();
  if (old != nullptr) {
    if (old->freed) fail("%s frees an error text of hidapi a second time", support::threadName());
    if (place.calls > 1)
      fail("%s frees an error text beside a call that may free it, too", support::threadName());
    old->freed = true;
    --thePad->texts;
    decide();
  }
  if (fails) ++thePad->texts;
  place.text = fails ? new ErrorText : nullptr;
}

enum class Side { Reading, Control };

// A call on a handle.
class Call {
 public:
  Call(hid_device* handle, const char* name, Side side) : m_side(side) {
    decide();
    const auto known = std::find_if(thePad->handles.begin(), thePad->handles.end(),
                                    [&](const auto& one) { return one.get() == handle; });
    if (known == thePad->handles.end() || !handle->open)
      fail("%s calls %s on a handle that is not open", support::threadName(), name);
    m_handle = handle;
    m_alone =
        handle->failed &&
        std::any_of(handle->failureOf.begin(), handle->failureOf.end(), [](const auto& failure) {
          return failure.first == support::threadName() || failure.second < idleTime();
        });
    m_failedBefore = handle->failedCalls;
    ++handle->calls;
    ++text().calls;
  }

  ~Call() {
    --m_handle->calls;
    if (!m_failed) --text().calls;
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  bool padIsThere() const { return thePad->plugged && m_handle->plug == thePad->plugs; }

  void clearErrorText() { replaceText(text(), false); }

  int end(int result) {
    if (result < 0) {
      replaceText(text(), true);
      m_failed = true;
      --text().calls;
      ++m_handle->failedCalls;
      m_handle->failureOf[support::threadName()] = idleTime();
      if (!m_handle->failed || m_handle->mayHaveRecovered) {
        m_handle->failed = true;
        m_handle->mayHaveRecovered = false;
        m_handle->failing = idleTime();
        ++m_handle->failures;
      }
    } else if (m_side == Side::Control && m_alone && m_handle->failedCalls == m_failedBefore) {
      m_handle->failed = false;
      m_handle->mayHaveRecovered = false;
      m_handle->failureOf.clear();
      m_handle->recovered = idleTime();
    } else if (m_side == Side::Control && m_handle->failed) {
      m_handle->mayHaveRecovered = true;
    }
    decide();
    note("  returns %d", result);
    return result;
  }

 private:
  TextPlace& text() {
    const bool own = m_side == Side::Reading && thePad->faults.readsHaveTheirText;
    return own ? m_handle->readError : m_handle->error;
  }

  hid_device* m_handle = nullptr;
  Side m_side;
  // Began when the SDK had noted a failure; not so, if another call fails beside it.
  bool m_alone = false;
  bool m_failed = false;  // and has stored its text
  int m_failedBefore;     // failedCalls when it began
};

// A feature report; `exchange` does it on the pad, and returns its length or -1.
template <class Exchange>
int feature(hid_device* handle, const char* name, int id, Exchange exchange) {
  const TestCode scope;
  note("%s %d", name, id);
  Call call(handle, name, Side::Control);
  call.clearErrorText();
  const Faults& faults = thePad->faults;
  const bool fails = percent(faults.featureFails) || !call.padIsThere();
  const Time duration =
      call.padIsThere() ? support::random().below(faults.longestFeature + 1) : Time{0};
  ++thePad->features;
  if (thePad->featuresUnderWay++ == 0) thePad->featureBegin = idleTime();
  if (duration > 0) support::sleepFor(duration);
  if (--thePad->featuresUnderWay == 0)
    thePad->finishedFeatures += idleTime() - thePad->featureBegin;
  return call.end(fails || !call.padIsThere() ? -1 : exchange());
}

void checkReadRate(hid_device& handle) {
  handle.pauseEnd = idleTime() + kPause;
  handle.failedReads.push_back(support::now());
  while (handle.failedReads.front() + kSecond < support::now()) handle.failedReads.pop_front();
  if (handle.failedReads.size() >= kMaxFailedReads)
    fail("%zu reads of a failing pad within a second", handle.failedReads.size());
}

// After a failed call, a read waits for the feature report under way.
void checkPromptness(const hid_device& handle, const Report& report) {
  const Time due = std::max({report.sent, handle.firstRead, handle.pauseEnd, handle.lastReport});
  const Time late = idleTime() > due ? idleTime() - due : 0;
  const Time allowed =
      (thePad->failsAfter(due) ? thePad->faults.longestFeature : Time{0}) + kMillisecond;
  if (late > allowed) {
    fail("report %d was read %.3f ms after it came", report.index,
         static_cast<double>(late) / kMillisecond);
  }
}

std::size_t sizeOfReports(virtualpads::PadModel& model) {
  return model.inputReport({}).size();
}

}  // namespace

Pad::Pad(virtualpads::PadKind kind, const Faults& faultsOfRun)
    : faults(faultsOfRun),
      model(virtualpads::makePad(kind)),
      product(model->description().product),
      reportSize(sizeOfReports(*model)) {}

void Pad::send(int index, const Bytes& report) {
  if (!plugged) return;
  for (const auto& handle : handles) {
    if (!handle->open || handle->plug != plugs) continue;
    if (handle->unread.size() >= kUnreadReports)
      fail("a report is lost: %zu have not been read", handle->unread.size());
    handle->unread.push_back({index, report, idleTime()});
  }
}

void Pad::unplug() {
  plugged = false;
  unplugged = idleTime();
  for (const auto& handle : handles) handle->unread.clear();
}

bool Pad::failsAfter(Time begin) const {
  return std::any_of(handles.begin(), handles.end(), [&](const auto& handle) {
    return handle->failures > 0 && (handle->failed || handle->recovered >= begin);
  });
}

Time Pad::longReadEnd(Time begin) const {
  Time end = begin;
  for (const auto& handle : handles)
    if (handle->failures > 0) end = std::max(end, handle->failing + kReadTimeout);
  return end;
}

bool Pad::hasUnread() const {
  return std::any_of(handles.begin(), handles.end(), [&](const auto& handle) {
    return handle->open && handle->firstRead != kForever && !handle->unread.empty();
  });
}

Time Pad::featureTime() const {
  return finishedFeatures + (featuresUnderWay > 0 ? idleTime() - featureBegin : 0);
}

Time Pad::lastReport() const {
  Time last = 0;
  for (const auto& handle : handles) last = std::max(last, handle->lastReport);
  return last;
}

void Pad::checkNothingLeft() const {
  int lost = 0;
  for (const auto& handle : handles) {
    if (handle->open) fail("a handle was not closed");
    lost += handle->failures;
  }
  if (users != 0) fail("hidapi was initialised %d times more than shut down", users);
  if (texts > (faults.readsHaveTheirText ? 0 : lost)) fail("%d error texts were lost", texts);
}

}  // namespace interleavings

using namespace interleavings;

extern "C" {

int hid_init() {
  const TestCode scope;
  replaceText(thePad->globalError, false);
  ++thePad->users;
  return 0;
}

int hid_exit() {
  const TestCode scope;
  replaceText(thePad->globalError, false);
  --thePad->users;
  return 0;
}

hid_device_info* hid_enumerate(unsigned short, unsigned short) {
  const TestCode scope;
  note("hid_enumerate");
  replaceText(thePad->globalError, false);
  if (!thePad->plugged) {
    replaceText(thePad->globalError, true);
    return nullptr;
  }
  auto* const entry = static_cast<hid_device_info*>(std::calloc(1, sizeof(hid_device_info)));
  entry->vendor_id = 0x04DF;
  entry->product_id = thePad->product;
  return entry;
}

void hid_free_enumeration(hid_device_info* devices) {
  decide();
  std::free(devices);
}

hid_device* hid_open(unsigned short, unsigned short product, const wchar_t*) {
  const TestCode scope;
  note("hid_open");
  replaceText(thePad->globalError, false);
  decide();
  if (!thePad->plugged || !thePad->faults.accessible || product != thePad->product) {
    replaceText(thePad->globalError, true);
    note("  returns null");
    return nullptr;
  }
  thePad->handles.push_back(std::make_unique<hid_device_>());
  hid_device* const handle = thePad->handles.back().get();
  handle->plug = thePad->plugs;
  decide();
  return handle;
}

void hid_close(hid_device* handle) {
  const TestCode scope;
  note("hid_close");
  {
    const Call call(handle, "hid_close", Side::Control);
    if (handle->calls > 1) fail("%s closes a handle beside another call", support::threadName());
    handle->open = false;
    if (std::exchange(handle->failed, false)) handle->recovered = idleTime();
  }
  for (ErrorText* const text : {handle->error.text, handle->readError.text}) {
    if (text == nullptr) continue;
    if (text->freed) fail("hid_close frees an error text a second time");
    text->freed = true;
    --thePad->texts;
  }
  decide();
}

int hid_set_nonblocking(hid_device* handle, int) {
  const TestCode scope;
  const Call call(handle, "hid_set_nonblocking", Side::Control);
  return 0;
}

int hid_read_timeout(hid_device* handle, unsigned char* data, size_t length, int milliseconds) {
  const TestCode scope;
  note("hid_read %d ms", milliseconds);
  Call call(handle, "hid_read_timeout", Side::Reading);
  handle->firstRead = std::min(handle->firstRead, idleTime());
  call.clearErrorText();
  const bool fails = percent(thePad->faults.readFails);
  const auto timeout = static_cast<Time>(std::max(milliseconds, 0)) * kMillisecond;
  const Time wait = fails ? std::min(timeout, support::random().below(kLateFailure)) : timeout;
  const bool over = support::waitUntil(
      "reads", [&] { return !call.padIsThere() || !handle->unread.empty(); },
      milliseconds < 0 ? kForever : support::now() + wait);
  if (fails || !call.padIsThere()) {
    checkReadRate(*handle);
    return call.end(-1);
  }
  if (!over) return call.end(0);
  const Report report = std::move(handle->unread.front());
  handle->unread.pop_front();
  checkPromptness(*handle, report);
  handle->lastReport = idleTime();
  std::size_t size = std::min(length, report.bytes.size());
  if (percent(thePad->faults.readIsShort)) size = std::min<std::size_t>(size, 5);
  std::copy_n(report.bytes.begin(), size, data);
  note("  report %d", report.index);
  if (size == report.bytes.size()) thePad->reportRead(*handle, report.index);
  return call.end(static_cast<int>(size));
}

int hid_write(hid_device*, const unsigned char*, size_t) {
  fail("the SDK sends an output report");
}

int hid_get_feature_report(hid_device* handle, unsigned char* data, size_t length) {
  return feature(handle, "gets feature", data[0], [&] {
    const auto reply = thePad->model->getFeature(data[0]);
    if (!reply) return -1;
    const std::size_t size = std::min(length, reply->size());
    std::copy_n(reply->begin(), size, data);
    return static_cast<int>(size);
  });
}

int hid_send_feature_report(hid_device* handle, const unsigned char* data, size_t length) {
  return feature(handle, "sends feature", data[0], [&] {
    return thePad->model->setFeature({data, length}) ? static_cast<int>(length) : -1;
  });
}

}  // extern "C"
