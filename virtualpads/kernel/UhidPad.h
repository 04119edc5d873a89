// The kernel face: puts a pad model behind /dev/uhid, the kernel's interface for HID devices in
// user space.
//
// Making a pad needs read and write permission on /dev/uhid.
#ifndef VIRTUALPADS_KERNEL_UHIDPAD_H
#define VIRTUALPADS_KERNEL_UHIDPAD_H

#include <linux/uhid.h>

#include <functional>
#include <memory>
#include <optional>

#include "virtualpads/kernel/KernelPad.h"

namespace virtualpads {

// Opens /dev/uhid. Throws std::system_error when it is missing or not permitted.
FileDescriptor openUhid();

// `plug` also fails for a report descriptor that the kernel can't parse: it silently rejects it. An
// input report may have 4096 bytes.
class UhidPad : public KernelPad {
 public:
  // A pad that is not plugged. Each plug calls `openDevice`; tests use it to put a socket in place
  // of the kernel.
  explicit UhidPad(std::shared_ptr<PadModel> model,
                   std::function<FileDescriptor()> openDevice = openUhid);
  ~UhidPad() override;

 private:
  Connection connect() override;
  void disconnect() override;
  bool sendReport(const Bytes& report) override;
  std::function<void()> readEvent() override;
  void answer(FeatureCall call, std::uint32_t requestId,
              const std::optional<Bytes>& reply) override;
  void handle(const uhid_event& event);

  const std::function<FileDescriptor()> m_openDevice;
};

}  // namespace virtualpads

#endif
