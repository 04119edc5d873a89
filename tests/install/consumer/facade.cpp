// Uses the facade, and a little of every other class that the library exports.
#include <giivela.h>
#include <velaii.h>
#include <velainkusb.h>
#include <velausb.h>
#include <velavision.h>

#include <condition_variable>
#include <cstdio>
#include <mutex>

namespace {

std::mutex mutex;
std::condition_variable changed;
bool lifted = false;

void showSample(int32_t x, int32_t y, int32_t pressure, uint8_t touch, uint32_t, uint32_t) {
  std::printf("%d %d %d %d\n", x, y, pressure, touch);
  const std::lock_guard lock(mutex);
  lifted = touch == 0;
  changed.notify_one();
}

}  // namespace

int main() {
  std::printf("%d %d %d %d\n", velausb().GetNumDevices(), velaii().GetNumDevices(),
              velainkusb().GetNumDevices(), velavision().GetNumDevices());
  std::printf("%s\n", velavisionutil().base64_encode(nullptr, 0).c_str());

  gIIVela vela;
  if (!vela.OpenProvider(vela.GetProviderClassID(1)) || m_pvelaii == nullptr) return 1;
  if (!vela.RegisterEventHandler(showSample) || !vela.OpenConnection()) return 1;
  std::unique_lock lock(mutex);
  changed.wait(lock, [] { return lifted; });
  lock.unlock();
  vela.CloseConnection();
  vela.CloseProvider();
}
