// VhciPad with a test in place of the kernel's host controller: all that goes over the socket, byte
// by byte. Runs anywhere.
#include "virtualpads/usb/VhciPad.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "tests/support/Reports.h"
#include "tests/virtualpads/ToyPad.h"

namespace virtualpads {
namespace {

using support::hex;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string toHex(const Bytes& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", byte);
    text += digits;
  }
  return text;
}

// The host controller's end of the connection. All that is sent and received is written in
// hexadecimal digits.
class FakeHost {
 public:
  UsbPort open() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
      throw std::system_error(errno, std::generic_category());
    const timeval limit{30, 0};
    setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    m_end = FileDescriptor(ends[0]);
    if (configures) send(kSetConfiguration);
    return {FileDescriptor(ends[1]), "usb-toy-1", [this] { ++removals; },
            [this] { EXPECT_EQ(removals, ++waits); }};
  }

  void send(const std::string& message) {
    const Bytes bytes = hex(message);
    ASSERT_EQ(::send(m_end.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
  }

  // The pad's next `count` bytes; fewer when it closes the connection.
  std::string receive(std::size_t count) {
    if (count == 0) return {};  // recv would wait for a byte
    Bytes bytes(count);
    const ssize_t size = recv(m_end.get(), bytes.data(), count, MSG_WAITALL);
    bytes.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    return toHex(bytes);
  }

  bool silent() {
    std::uint8_t byte;
    return recv(m_end.get(), &byte, 1, MSG_DONTWAIT) < 0 && errno == EAGAIN;
  }

  // The connection is closed after all that was received.
  bool closed() {
    std::uint8_t byte;
    return recv(m_end.get(), &byte, 1, 0) == 0;
  }

  void hangUp() { m_end = FileDescriptor(); }

  // A control transfer: its number, its direction ("in" or "out"), the length of the buffer, the
  // setup packet, the data.
  void control(const std::string& number, const std::string& direction, const std::string& length,
               const std::string& setup, const std::string& data = "") {
    send("00000001" + number + "00000001" + (direction == "in" ? "00000001" : "00000000") +
         "00000000" + "00000000" + length + "00000000 ffffffff 00000000" + setup + data);
  }

  // The host's poll of the endpoint, for up to 16 bytes.
  void poll(const std::string& number) {
    send("00000001" + number + "00000001 00000001 00000001" +
         "00000000 00000010 00000000 ffffffff 00000001 0000000000000000");
  }

  void unlink(const std::string& number, const std::string& transfer) {
    send("00000002" + number + "00000001 00000000 00000000" + transfer +
         "00000000 00000000 00000000 00000000 00000000 00000000");
  }

  bool configures = true;
  std::atomic<int> removals = 0;
  std::atomic<int> waits = 0;

 private:
  static constexpr const char* kSetConfiguration =
      "00000001 00000001 00000001 00000000 00000000"  // submit 1, device 1, out, endpoint 0
      "00000000 00000000 00000000 ffffffff 00000000"  // no data
      "00 09 0100 0000 0000";                         // SET_CONFIGURATION 1

  FileDescriptor m_end;
};

// Everything after the number and the status of a return.
std::string rest(const std::string& actualLength) {
  return actualLength + "00000000" + "00000000" + "00000000" + "0000000000000000";
}

std::string ret(const std::string& number, const std::string& status,
                const std::string& actualLength) {
  return "00000003" + number + "000000000000000000000000" + status + rest(actualLength);
}

std::string retUnlink(const std::string& number, const std::string& status) {
  return "00000004" + number + "000000000000000000000000" + status + rest("00000000");
}

constexpr const char* kOk = "00000000";
constexpr const char* kStall = "ffffffe0";          // -EPIPE
constexpr const char* kOverflow = "ffffffb5";       // -EOVERFLOW
constexpr const char* kProtocolError = "ffffffb9";  // -EPROTO
constexpr const char* kReset = "ffffff98";          // -ECONNRESET

class VhciPadTest : public ::testing::Test {
 protected:
  // Plugs in the pad; the host configures it.
  void plug() {
    pad.plug();
    ASSERT_EQ(host.receive(48), ret("00000001", kOk, "00000000"));
  }

  // A request of up to 255 bytes from the device: status, length and data of the answer.
  std::string get(const std::string& setup) {
    host.control("00000002", "in", "000000ff", setup);
    const std::string header = host.receive(48);
    EXPECT_EQ(header.substr(0, 40), "0000000300000002000000000000000000000000");
    const std::size_t length = std::stoul(header.substr(48, 8), nullptr, 16);
    const std::string data = host.receive(length);
    return (header.substr(40, 8) == kOk ? "" : header.substr(40, 8)) + data;
  }

  // A request to the device, without data: its status.
  std::string order(const std::string& setup) {
    host.control("00000003", "out", "00000000", setup);
    return host.receive(48).substr(40, 8);
  }

  // Returns when the pad has handled all that the host has sent.
  void waitForPad() { EXPECT_EQ(order("01 0b 0000 0000 0000"), kOk); }

  std::shared_ptr<ToyPad> model = std::make_shared<ToyPad>();
  FakeHost host;
  VhciPad pad{model, 1, [this] { return host.open(); }};
};

TEST_F(VhciPadTest, PlugReturnsWhenTheHostHasConfiguredThePad) {
  EXPECT_FALSE(pad.plugged());
  plug();
  EXPECT_TRUE(pad.plugged());
}

TEST_F(VhciPadTest, PadThatIsNotConfiguredIsTakenAwayAgain) {
  host.configures = false;
  pad.setStartLimit(std::chrono::milliseconds(100));
  EXPECT_THROW(pad.plug(), std::system_error);
  EXPECT_FALSE(pad.plugged());
  EXPECT_TRUE(host.closed());
}

TEST_F(VhciPadTest, DeviceDescriptor) {
  plug();
  EXPECT_EQ(get("80 06 0001 0000 ff00"),
            "12"      // bytes
            "01"      // device descriptor
            "1001"    // USB 1.1
            "000000"  // class, by interface
            "40"      // packets of 64 bytes
            "df04"    // vendor
            "0201"    // product
            "0001"    // version 1.00
            "000100"  // no manufacturer, name 1, no serial number
            "01");    // configuration
}

TEST_F(VhciPadTest, ConfigurationWithItsInterfaceAndEndpoint) {
  plug();
  EXPECT_EQ(get("80 06 0002 0000 ff00"),
            "09022200010100"
            "8032"                // 34 bytes, 1 interface, number 1, bus-powered, 100 mA
            "090400000103000000"  // interface 0 with 1 endpoint, HID
            "092111010001221600"  // HID 1.11, a report descriptor of 22 bytes
            "0705810340"
            "0001");  // endpoint 1 in, interrupt, 64 bytes, every millisecond
}

TEST_F(VhciPadTest, DescriptorsAreCutToWhatTheHostTakes) {
  plug();
  host.control("00000002", "in", "00000009", "80 06 0002 0000 0900");
  EXPECT_EQ(host.receive(48 + 9), ret("00000002", kOk, "00000009") + "090222000101008032");
}

TEST_F(VhciPadTest, StringDescriptors) {
  plug();
  EXPECT_EQ(get("80 06 0003 0000 ff00"), "04030904");  // English
  EXPECT_EQ(get("80 06 0103 0904 ff00"),
            "0803"
            "54006f007900");  // Toy
  EXPECT_EQ(get("80 06 0203 0904 ff00"), kStall);
}

TEST_F(VhciPadTest, HidDescriptors) {
  plug();
  EXPECT_EQ(get("81 06 0021 0000 ff00"), "092111010001221600");
  EXPECT_EQ(get("81 06 0022 0000 ff00"),
            "0600ff0901a101150026ff0075080902960200"
            "8102c0");
}

TEST_F(VhciPadTest, StandardRequests) {
  plug();
  EXPECT_EQ(get("80 08 0000 0000 0100"), "01");      // the configuration
  EXPECT_EQ(get("81 0a 0000 0000 0100"), "00");      // the interface's setting
  EXPECT_EQ(get("80 00 0000 0000 0200"), "0000");    // the device's status
  EXPECT_EQ(get("81 00 0000 0000 0200"), "0000");    // the interface's status
  EXPECT_EQ(order("01 0b 0000 0000 0000"), kOk);     // setting 0
  EXPECT_EQ(order("01 0b 0100 0000 0000"), kStall);  // setting 1
  EXPECT_EQ(order("00 09 0200 0000 0000"), kStall);  // configuration 2
  EXPECT_EQ(get("80 06 0006 0000 0a00"), kStall);    // a device qualifier
  EXPECT_EQ(get("80 06 0102 0000 ff00"), kStall);    // a second configuration
  EXPECT_EQ(get("c0 01 0000 0000 0100"), kStall);    // of a vendor
}

TEST_F(VhciPadTest, IdleRateIsKept) {
  plug();
  EXPECT_EQ(order("21 0a 007d 0000 0000"), kOk);
  EXPECT_EQ(get("a1 02 0000 0000 0100"), "7d");
}

TEST_F(VhciPadTest, FeatureReportsAreGotFromTheModel) {
  plug();
  EXPECT_EQ(get("a1 01 0503 0000 ff00"), "051122");
  EXPECT_EQ(get("a1 01 0603 0000 ff00"), kStall);
  EXPECT_THAT(pad.requests(), ElementsAre(FeatureRequest{FeatureCall::Get, {5}, true},
                                          FeatureRequest{FeatureCall::Get, {6}, false}));
  model->feature = {};
  EXPECT_EQ(get("a1 01 0503 0000 ff00"), "");
}

TEST_F(VhciPadTest, FeatureReportsAreSetInTheModel) {
  plug();
  host.control("00000002", "out", "00000003", "21 09 0503 0000 0300", "053344");
  EXPECT_EQ(host.receive(48), ret("00000002", kOk, "00000003"));
  EXPECT_THAT(model->feature, ElementsAre(5, 0x33, 0x44));
  host.control("00000003", "out", "00000002", "21 09 0603 0000 0200", "0655");
  EXPECT_EQ(host.receive(48), ret("00000003", kStall, "00000000"));
  EXPECT_THAT(pad.requests(), ElementsAre(FeatureRequest{FeatureCall::Set, {5, 0x33, 0x44}, true},
                                          FeatureRequest{FeatureCall::Set, {6, 0x55}, false}));
}

TEST_F(VhciPadTest, LongFeatureReportsAreSet) {
  plug();
  std::string report = "05";
  for (int i = 1; i < 2408; ++i) report += "a5";
  host.control("00000002", "out", "00000968", "21 09 0503 0000 6809", report);
  EXPECT_EQ(host.receive(48), ret("00000002", kOk, "00000968"));
  EXPECT_EQ(toHex(model->feature), report);
}

TEST_F(VhciPadTest, RequestsForInputAndOutputReportsStall) {
  plug();
  EXPECT_EQ(get("a1 01 0501 0000 ff00"), kStall);
  host.control("00000002", "out", "00000001", "21 09 0502 0000 0100", "05");
  EXPECT_EQ(host.receive(48), ret("00000002", kStall, "00000000"));
  EXPECT_THAT(pad.requests(), IsEmpty());
}

TEST_F(VhciPadTest, InputReportAnswersThePoll) {
  plug();
  EXPECT_FALSE(pad.open());
  host.poll("00000010");
  EXPECT_TRUE(pad.waitUntilOpen());
  EXPECT_TRUE(host.silent());
  EXPECT_TRUE(pad.send({0xAB, 0x00, 0xCD}));
  EXPECT_EQ(host.receive(51), ret("00000010", kOk, "00000003") + "ab00cd");
  host.poll("00000011");
  EXPECT_TRUE(pad.sendPen({.touch = true}));
  EXPECT_EQ(host.receive(50), ret("00000011", kOk, "00000002") + "0101");
}

TEST_F(VhciPadTest, ReportsWaitForThePollInTheirOrder) {
  plug();
  host.poll("00000010");
  ASSERT_TRUE(pad.waitUntilOpen());
  pad.send({1});
  pad.send({2});
  pad.send({3});
  EXPECT_EQ(host.receive(49), ret("00000010", kOk, "00000001") + "01");
  host.poll("00000011");
  EXPECT_EQ(host.receive(49), ret("00000011", kOk, "00000001") + "02");
  host.poll("00000012");
  EXPECT_EQ(host.receive(49), ret("00000012", kOk, "00000001") + "03");
}

TEST_F(VhciPadTest, ReportsThatNobodyPollsAreLost) {
  plug();
  EXPECT_TRUE(pad.send({1}));
  host.poll("00000010");
  ASSERT_TRUE(pad.waitUntilOpen());
  pad.send({2});
  EXPECT_EQ(host.receive(49), ret("00000010", kOk, "00000001") + "02");
}

TEST_F(VhciPadTest, ReportsBeyond64AreLost) {
  plug();
  host.poll("00000010");
  ASSERT_TRUE(pad.waitUntilOpen());
  pad.send({0xFF});
  host.receive(49);
  for (std::uint8_t i = 1; i <= 70; ++i) pad.send({i});
  std::string last;
  for (int i = 0; i < 64; ++i) {
    host.poll("00000011");
    last = host.receive(49);
  }
  EXPECT_EQ(last.substr(96), "40");
  host.poll("00000012");
  waitForPad();
  EXPECT_TRUE(host.silent());
}

TEST(VhciPadPaceTest, HostGetsOneReportInEachInterval) {
  FakeHost host;
  VhciPad pad(std::make_shared<ToyPad>(), 10, [&] { return host.open(); });
  pad.plug();
  host.receive(48);
  host.poll("00000010");
  ASSERT_TRUE(pad.waitUntilOpen());
  pad.send({1});
  pad.send({2});
  pad.send({3});
  host.receive(49);
  const auto begin = std::chrono::steady_clock::now();
  host.poll("00000011");
  host.receive(49);
  host.poll("00000012");
  host.receive(49);
  EXPECT_GT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(18));
}

TEST_F(VhciPadTest, EndpointOfAPadThatIsNotConfiguredStalls) {
  plug();
  EXPECT_EQ(order("00 09 0000 0000 0000"), kOk);
  host.poll("00000010");
  EXPECT_EQ(host.receive(48), ret("00000010", kStall, "00000000"));
  EXPECT_FALSE(pad.open());
}

TEST_F(VhciPadTest, HaltedEndpointStallsUntilItIsCleared) {
  plug();
  EXPECT_EQ(order("02 03 0000 8100 0000"), kOk);
  EXPECT_EQ(get("82 00 0000 8100 0200"), "0100");
  host.poll("00000010");
  EXPECT_EQ(host.receive(48), ret("00000010", kStall, "00000000"));
  EXPECT_EQ(order("02 01 0000 8100 0000"), kOk);
  host.poll("00000011");
  waitForPad();
  pad.send({1});
  EXPECT_EQ(host.receive(49), ret("00000011", kOk, "00000001") + "01");
  EXPECT_EQ(order("02 03 0000 8200 0000"), kStall);  // there is no endpoint 2
}

TEST_F(VhciPadTest, UnlinkedPollClosesThePad) {
  plug();
  host.poll("00000010");
  ASSERT_TRUE(pad.waitUntilOpen());
  host.unlink("00000011", "00000010");
  EXPECT_EQ(host.receive(48), retUnlink("00000011", kReset));
  EXPECT_TRUE(pad.waitUntilClosed());
}

TEST_F(VhciPadTest, UnlinkOfATransferThatHasEndedSaysSo) {
  plug();
  host.unlink("00000011", "00000001");
  EXPECT_EQ(host.receive(48), retUnlink("00000011", kOk));
}

TEST_F(VhciPadTest, HostThatDoesNotPollAgainHasClosedThePad) {
  plug();
  host.poll("00000010");
  ASSERT_TRUE(pad.waitUntilOpen());
  pad.send({1});
  EXPECT_TRUE(pad.waitUntilClosed());
}

TEST_F(VhciPadTest, LateAnswersAreHeldBackUntilReleased) {
  plug();
  pad.fail(FeatureCall::Get, 5, FeatureFault::Late);
  host.control("00000002", "in", "000000ff", "a1 01 0503 0000 ff00");
  waitForPad();
  EXPECT_TRUE(host.silent());
  pad.releaseLateAnswers();
  EXPECT_EQ(host.receive(51), ret("00000002", kOk, "00000003") + "051122");
}

TEST_F(VhciPadTest, LateAnswerIsForgottenWhenTheHostGivesUp) {
  plug();
  pad.fail(FeatureCall::Get, 5, FeatureFault::Late);
  host.control("00000002", "in", "000000ff", "a1 01 0503 0000 ff00");
  host.unlink("00000003", "00000002");
  EXPECT_EQ(host.receive(48), retUnlink("00000003", kReset));
  pad.releaseLateAnswers();
  waitForPad();
  EXPECT_TRUE(host.silent());
}

// For a host that takes 16 bytes.
TEST_F(VhciPadTest, InputReportOf17BytesIsBabble) {
  plug();
  host.poll("00000010");
  ASSERT_TRUE(pad.waitUntilOpen());
  pad.send(Bytes(17, 0x5A));
  EXPECT_EQ(host.receive(64),
            ret("00000010", kOverflow, "00000010") + "5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a");
}

TEST_F(VhciPadTest, UnplugEndsTheTransfersUnderWay) {
  plug();
  pad.fail(FeatureCall::Get, 5, FeatureFault::Late);
  host.control("00000002", "in", "000000ff", "a1 01 0503 0000 ff00");
  host.poll("00000010");
  ASSERT_TRUE(pad.waitUntilOpen());
  pad.unplug();
  EXPECT_EQ(host.receive(96), ret("00000002", kProtocolError, "00000000") +
                                  ret("00000010", kProtocolError, "00000000"));
  EXPECT_TRUE(host.closed());
  EXPECT_EQ(host.waits, 1);
  EXPECT_FALSE(pad.plugged());
  EXPECT_FALSE(pad.open());
  EXPECT_FALSE(pad.send({1}));
}

TEST_F(VhciPadTest, UnplugFaultEndsTheRequestAndTheConnection) {
  plug();
  pad.fail(FeatureCall::Set, 5, FeatureFault::Unplug);
  host.control("00000002", "out", "00000003", "21 09 0503 0000 0300", "053344");
  EXPECT_EQ(host.receive(48), ret("00000002", kProtocolError, "00000000"));
  EXPECT_FALSE(pad.plugged());
  // Until the kernel has removed the device, all further transfers fail too.
  host.poll("00000010");
  EXPECT_EQ(host.receive(48), ret("00000010", kProtocolError, "00000000"));
  pad.unplug();
  EXPECT_EQ(host.removals, 1);
  EXPECT_TRUE(host.closed());
  EXPECT_THAT(model->feature, ElementsAre(5, 0x11, 0x22));
  plug();
  EXPECT_EQ(get("a1 01 0503 0000 ff00"), "051122");
}

TEST_F(VhciPadTest, HostThatHangsUpUnplugsThePad) {
  plug();
  host.poll("00000010");
  ASSERT_TRUE(pad.waitUntilOpen());
  host.hangUp();
  EXPECT_TRUE(pad.waitUntilClosed());
  EXPECT_FALSE(pad.plugged());
}

TEST_F(VhciPadTest, HostThatSpeaksAnotherProtocolUnplugsThePad) {
  plug();
  host.send(
      "00000007 00000002 00000001 00000000 00000000"
      "00000000 00000000 00000000 00000000 00000000 0000000000000000");
  EXPECT_TRUE(host.closed());
}

TEST_F(VhciPadTest, TransferOfAbsurdLengthUnplugsThePad) {
  plug();
  host.control("00000002", "out", "ffffffff", "21 09 0503 0000 ffff");
  EXPECT_TRUE(host.closed());
}

TEST(UsbipTest, WaitsUntilTheHostHasReceivedEverything) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const FileDescriptor device(ends[0]);
  const FileDescriptor host(ends[1]);
  EXPECT_TRUE(waitUntilReceived(device.get(), std::chrono::seconds(30)));
  ASSERT_TRUE(returnUnlink(device.get(), 1, 0));
  EXPECT_FALSE(waitUntilReceived(device.get(), std::chrono::milliseconds(20)));
  Bytes message(47);
  ASSERT_EQ(recv(host.get(), message.data(), message.size(), MSG_WAITALL), 47);
  EXPECT_FALSE(waitUntilReceived(device.get(), std::chrono::milliseconds(20)));
  std::thread waiting(
      [&] { EXPECT_TRUE(waitUntilReceived(device.get(), std::chrono::seconds(30))); });
  ASSERT_EQ(recv(host.get(), message.data(), 1, 0), 1);
  waiting.join();
}

}  // namespace
}  // namespace virtualpads
