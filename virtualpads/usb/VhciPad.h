// The USB face: plugs a pad model into a port of the kernel's virtual host controller (the module
// vhci-hcd). The kernel then has a real USB device with descriptors, control transfers and an
// interrupt endpoint, which its own driver usbhid drives. lsusb lists it, and libusb opens it.
//
// Plugging a pad needs root's permissions.
#ifndef VIRTUALPADS_USB_VHCIPAD_H
#define VIRTUALPADS_USB_VHCIPAD_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <thread>

#include "virtualpads/kernel/KernelPad.h"
#include "virtualpads/usb/UsbDevice.h"
#include "virtualpads/usb/Usbip.h"
#include "virtualpads/usb/VhciPort.h"

namespace virtualpads {

// `plug` returns when the host has configured the device. The pad counts as open while the host
// polls its interrupt endpoint; usbhid does that while a program has the node open. The transfer of
// an input report that has more bytes than the host asks for fails as babble.
class VhciPad : public KernelPad {
 public:
  static constexpr std::uint8_t kInterval = 1;  // milliseconds
  // The pad keeps this many reports for a host that polls slowly, and drops further ones.
  static constexpr std::size_t kKeptReports = 64;

  // A pad that is not plugged. The host gets at most one report in `interval` milliseconds. Each
  // plug calls `openPort`; tests use it to put a socket in place of the kernel.
  explicit VhciPad(std::shared_ptr<PadModel> model, std::uint8_t interval = kInterval,
                   std::function<UsbPort()> openPort = openVhciPort);
  ~VhciPad() override;

 private:
  struct Transfer {
    std::uint32_t sequence;
    std::uint32_t length;
  };

  Connection connect() override;
  void disconnect() override;
  void waitUntilGone() override;
  bool sendReport(const Bytes& report) override;
  std::function<void()> readEvent() override;
  void answer(FeatureCall call, std::uint32_t requestId,
              const std::optional<Bytes>& reply) override;
  std::optional<Clock::time_point> nextTime() const override;
  void onTime() override;

  void handle(const UsbipCommand& command);
  void submit(const UsbipCommand& command);
  void unlink(const UsbipCommand& command);
  void control(const UsbipCommand& command);
  void returnControl(std::uint32_t sequence, const std::optional<Bytes>& reply);
  void returnNoResponse(std::uint32_t sequence) const;
  void pollEndpoint();

  const std::uint8_t m_interval;
  const std::function<UsbPort()> m_openPort;
  std::thread m_removal;
  UsbPort m_port;  // its `device` has moved to the base class
  std::optional<UsbDevice> m_device;
  std::map<std::uint32_t, UsbipCommand> m_controls;  // that have no answer yet
  std::optional<Transfer> m_poll;                    // the host's transfer for the next report
  std::deque<Bytes> m_reports;                       // that the host has not got yet
  Clock::time_point m_nextPoll;                      // the earliest time for the next one
  Clock::time_point m_lastPoll;
};

}  // namespace virtualpads

#endif
