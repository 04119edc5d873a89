#include "virtualpads/usb/Usbip.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <span>
#include <thread>

#include "virtualpads/Wire.h"

namespace virtualpads {
namespace {

// Every message begins with a header of this length. Its numbers are big-endian.
constexpr std::size_t kHeaderSize = 48;

// Offsets in all headers.
constexpr std::size_t kCommand = 0;
constexpr std::size_t kSequence = 4;
constexpr std::size_t kDirection = 12;
constexpr std::size_t kEndpoint = 16;
// USBIP_CMD_SUBMIT
constexpr std::size_t kTransferLength = 24;
constexpr std::size_t kSetup = 40;
// USBIP_CMD_UNLINK
constexpr std::size_t kUnlinkedSequence = 20;
// USBIP_RET_SUBMIT and USBIP_RET_UNLINK
constexpr std::size_t kStatus = 20;
constexpr std::size_t kActualLength = 24;

constexpr std::uint32_t kRetSubmit = 3;
constexpr std::uint32_t kRetUnlink = 4;
constexpr std::uint32_t kDirectionIn = 1;

// No transfer to a pad is longer: a feature report has 2408 bytes, and a program that writes to the
// pad's USB node itself may send 4096.
constexpr std::uint32_t kLongestTransfer = 0x10000;

// Nothing tells when the other end of a socket has received something.
constexpr std::chrono::milliseconds kLookInterval{1};

bool receiveAll(int socket, std::span<std::uint8_t> bytes) {
  // Nothing would be waited for too.
  return bytes.empty() || recv(socket, bytes.data(), bytes.size(), MSG_WAITALL) ==
                              static_cast<ssize_t>(bytes.size());
}

bool sendAll(int socket, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(sent));
  }
  return true;
}

Bytes returnHeader(std::uint32_t command, std::uint32_t sequence, int status) {
  Bytes header(kHeaderSize);
  putBe32(header, kCommand, command);
  putBe32(header, kSequence, sequence);
  putBe32(header, kStatus, static_cast<std::uint32_t>(status));
  return header;
}

}  // namespace

std::optional<UsbipCommand> receiveCommand(int socket) {
  std::array<std::uint8_t, kHeaderSize> header;
  if (!receiveAll(socket, header)) return std::nullopt;
  UsbipCommand command{};
  command.kind = UsbipCommand::Kind{be32(header, kCommand)};
  command.sequence = be32(header, kSequence);
  command.in = be32(header, kDirection) == kDirectionIn;
  command.endpoint = be32(header, kEndpoint);
  if (command.kind == UsbipCommand::Kind::Unlink) {
    command.unlinked = be32(header, kUnlinkedSequence);
    return command;
  }
  command.length = be32(header, kTransferLength);
  if (command.kind != UsbipCommand::Kind::Submit || command.length > kLongestTransfer)
    return std::nullopt;
  command.setup = {header[kSetup], header[kSetup + 1], le16(header, kSetup + 2),
                   le16(header, kSetup + 4), le16(header, kSetup + 6)};
  if (!command.in) {
    command.data.resize(command.length);
    if (!receiveAll(socket, command.data)) return std::nullopt;
  }
  return command;
}

bool returnSubmit(int socket, std::uint32_t sequence, int status, std::size_t actualLength,
                  const Bytes& data) {
  Bytes message = returnHeader(kRetSubmit, sequence, status);
  putBe32(message, kActualLength, static_cast<std::uint32_t>(actualLength));
  message.insert(message.end(), data.begin(), data.end());
  return sendAll(socket, message);
}

bool returnUnlink(int socket, std::uint32_t sequence, int status) {
  return sendAll(socket, returnHeader(kRetUnlink, sequence, status));
}

bool waitUntilReceived(int socket, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (true) {
    int waiting = 0;  // in bytes of memory, more than were sent
    if (ioctl(socket, SIOCOUTQ, &waiting) == 0 && waiting == 0) return true;
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(kLookInterval);
  }
}

}  // namespace virtualpads
