// UhidPad with a socket in place of the kernel: what it writes to /dev/uhid, and how it handles the
// events that the kernel would send. Runs anywhere.
#include "virtualpads/kernel/UhidPad.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/uhid.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "tests/virtualpads/ToyPad.h"

namespace virtualpads {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// The kernel's end of the socket that replaces /dev/uhid. Starts every requested device.
class FakeKernel {
 public:
  FileDescriptor device() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
      throw std::system_error(errno, std::generic_category());
    const timeval limit{30, 0};
    setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    m_end = FileDescriptor(ends[0]);
    if (startsDevices) sendEmpty(UHID_START);
    return FileDescriptor(ends[1]);
  }

  void send(const uhid_event& event) {
    ASSERT_EQ(::send(m_end.get(), &event, sizeof event, 0), ssize_t{sizeof event});
  }

  // An event without data.
  void sendEmpty(std::uint32_t type) {
    uhid_event event{};
    event.type = type;
    send(event);
  }

  void get(std::uint32_t id, std::uint8_t report, std::uint8_t type = UHID_FEATURE_REPORT) {
    uhid_event event{};
    event.type = UHID_GET_REPORT;
    event.u.get_report = {id, report, type};
    send(event);
  }

  void set(std::uint32_t id, const Bytes& report, std::uint8_t type = UHID_FEATURE_REPORT) {
    uhid_event event{};
    event.type = UHID_SET_REPORT;
    event.u.set_report.id = id;
    event.u.set_report.rnum = report.at(0);
    event.u.set_report.rtype = type;
    event.u.set_report.size = static_cast<std::uint16_t>(report.size());
    std::ranges::copy(report, event.u.set_report.data);
    send(event);
  }

  uhid_event receive() {
    uhid_event event{};
    const ssize_t size = recv(m_end.get(), &event, sizeof event, 0);
    EXPECT_GT(size, 0) << "the pad wrote nothing";
    return event;
  }

  uhid_get_report_reply_req receiveGetReply() {
    const uhid_event event = receive();
    EXPECT_EQ(event.type, std::uint32_t{UHID_GET_REPORT_REPLY});
    return event.u.get_report_reply;
  }

  uhid_set_report_reply_req receiveSetReply() {
    const uhid_event event = receive();
    EXPECT_EQ(event.type, std::uint32_t{UHID_SET_REPORT_REPLY});
    return event.u.set_report_reply;
  }

  // Whether the pad has closed its end without writing anything more.
  bool silent() {
    uhid_event event;
    return recv(m_end.get(), &event, sizeof event, MSG_DONTWAIT) < 0 && errno == EAGAIN;
  }

  bool startsDevices = true;

 private:
  FileDescriptor m_end;
};

Bytes data(const uhid_get_report_reply_req& reply) {
  return {reply.data, reply.data + reply.size};
}

Bytes data(const uhid_input2_req& report) {
  return {report.data, report.data + report.size};
}

// The error of a plug that fails.
std::error_code plugError(UhidPad& pad) {
  try {
    pad.plug();
  } catch (const std::system_error& error) {
    EXPECT_FALSE(pad.plugged());
    return error.code();
  }
  return {};
}

class UhidPadTest : public ::testing::Test {
 protected:
  // Plugs in the pad and reads its request for the device.
  void plug() {
    pad.plug();
    created = kernel.receive();
  }

  std::shared_ptr<ToyPad> model = std::make_shared<ToyPad>();
  FakeKernel kernel;
  const std::function<FileDescriptor()> openDevice = [this] { return kernel.device(); };
  UhidPad pad{model, openDevice};
  uhid_event created{};
};

TEST_F(UhidPadTest, PlugMakesADeviceWithTheModelsIdentityAndDescriptor) {
  EXPECT_FALSE(pad.plugged());
  plug();
  EXPECT_TRUE(pad.plugged());
  ASSERT_EQ(created.type, std::uint32_t{UHID_CREATE2});
  const auto& request = created.u.create2;
  EXPECT_STREQ(reinterpret_cast<const char*>(request.name), "Toy");
  EXPECT_EQ(request.bus, 3);  // USB
  EXPECT_EQ(request.vendor, 0x04DFu);
  EXPECT_EQ(request.product, 0x0102u);
  EXPECT_THAT(Bytes(request.rd_data, request.rd_data + request.rd_size),
              ElementsAre(0x06, 0x00, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0x15, 0x00, 0x26, 0xFF, 0x00,
                          0x75, 0x08, 0x09, 0x02, 0x96, 2, 0, 0x81, 0x02, 0xC0));
}

TEST_F(UhidPadTest, PlugOfAPluggedPadDoesNothing) {
  plug();
  pad.plug();
  EXPECT_TRUE(kernel.silent());
}

TEST_F(UhidPadTest, LongNameIsCutToTheFieldOfTheKernel) {
  UhidPad longNamed(std::make_shared<ToyPad>(std::string(200, 'n')), openDevice);
  longNamed.plug();
  created = kernel.receive();
  EXPECT_EQ(reinterpret_cast<const char*>(created.u.create2.name), std::string(127, 'n'));
}

TEST_F(UhidPadTest, PluggingsHaveDifferentPhysicalPaths) {
  plug();
  const uhid_event first = created;
  FakeKernel otherKernel;
  UhidPad other(model, [&] { return otherKernel.device(); });
  other.plug();
  const uhid_event second = otherKernel.receive();
  pad.unplug();
  plug();
  const auto path = [](const uhid_event& event) {
    return std::string(reinterpret_cast<const char*>(event.u.create2.phys));
  };
  EXPECT_THAT(path(first), HasSubstr("virtualpads/"));
  EXPECT_NE(path(first), path(second));
  EXPECT_NE(path(first), path(created));
  EXPECT_NE(path(second), path(created));
}

TEST_F(UhidPadTest, DescriptorThatUhidCannotCarryIsRefused) {
  // A report takes 7 bytes of the descriptor, one with an id 9, and the collection 15.
  std::vector<PadReport> reports(578, kToyReport);
  reports.resize(582, {PadReport::Way::Input, 1, 2, "Pen"});
  UhidPad tooLong(std::make_shared<ToyPad>("Toy", reports), openDevice);  // 4097 bytes
  EXPECT_EQ(plugError(tooLong), std::errc::message_size);
  UhidPad longest(std::make_shared<ToyPad>("Toy", std::vector(583, kToyReport)), openDevice);
  longest.plug();
  EXPECT_EQ(kernel.receive().u.create2.rd_size, 4096);
}

TEST_F(UhidPadTest, DeviceThatTheKernelDoesNotStartIsTakenAwayAgain) {
  kernel.startsDevices = false;
  pad.setStartLimit(std::chrono::milliseconds(100));
  EXPECT_EQ(plugError(pad), std::errc::timed_out);
  EXPECT_EQ(kernel.receive().type, std::uint32_t{UHID_CREATE2});
  EXPECT_EQ(kernel.receive().type, std::uint32_t{UHID_DESTROY});
}

TEST_F(UhidPadTest, PlugReportsWhyUhidCannotBeOpened) {
  bool permitted = false;
  UhidPad refused(model, [&] {
    if (!permitted) throw std::system_error(EACCES, std::generic_category(), "/dev/uhid");
    return kernel.device();
  });
  EXPECT_EQ(plugError(refused), std::errc::permission_denied);
  permitted = true;
  refused.plug();
  EXPECT_TRUE(refused.plugged());
}

// While it exists, the process cannot open anything.
class NoMoreFiles {
 public:
  NoMoreFiles() {
    getrlimit(RLIMIT_NOFILE, &m_before);
    const rlimit none{0, m_before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoMoreFiles() { setrlimit(RLIMIT_NOFILE, &m_before); }
  NoMoreFiles(const NoMoreFiles&) = delete;
  NoMoreFiles& operator=(const NoMoreFiles&) = delete;

 private:
  rlimit m_before{};
};

// Without it, its event thread could not be ended.
TEST_F(UhidPadTest, PlugReportsThatItHasNoEventCounter) {
  FileDescriptor device = kernel.device();
  UhidPad counterless(model, [&] { return std::move(device); });
  const NoMoreFiles limit;
  EXPECT_EQ(plugError(counterless), std::errc::too_many_files_open);
}

TEST_F(UhidPadTest, UnplugTakesTheDeviceAway) {
  plug();
  pad.unplug();
  EXPECT_EQ(kernel.receive().type, std::uint32_t{UHID_DESTROY});
  EXPECT_FALSE(pad.plugged());
  EXPECT_FALSE(pad.send({1}));
  EXPECT_FALSE(pad.sendPen({}));
  EXPECT_EQ(pad.waitForNode(), "");
  pad.unplug();
  EXPECT_TRUE(kernel.silent());
}

TEST_F(UhidPadTest, CanBePluggedAgain) {
  plug();
  pad.unplug();
  plug();
  EXPECT_EQ(created.type, std::uint32_t{UHID_CREATE2});
  kernel.get(1, 5);
  EXPECT_THAT(data(kernel.receiveGetReply()), ElementsAre(5, 0x11, 0x22));
}

TEST_F(UhidPadTest, EndOfLifeUnplugs) {
  {
    UhidPad mortal(model, openDevice);
    mortal.plug();
    kernel.receive();
  }
  EXPECT_EQ(kernel.receive().type, std::uint32_t{UHID_DESTROY});
}

TEST_F(UhidPadTest, ReportsWhetherAProgramHasTheNodeOpen) {
  plug();
  EXPECT_FALSE(pad.open());
  kernel.sendEmpty(UHID_OPEN);
  EXPECT_TRUE(pad.waitUntilOpen());
  EXPECT_TRUE(pad.open());
  kernel.sendEmpty(UHID_CLOSE);
  EXPECT_TRUE(pad.waitUntilClosed());
  EXPECT_FALSE(pad.open());
}

TEST_F(UhidPadTest, NoProgramHasAnUnpluggedNodeOpen) {
  plug();
  kernel.sendEmpty(UHID_OPEN);
  ASSERT_TRUE(pad.waitUntilOpen());
  pad.unplug();
  EXPECT_FALSE(pad.open());
  plug();
  EXPECT_FALSE(pad.open());
}

TEST_F(UhidPadTest, InputReportsGoOutAsTheyAre) {
  plug();
  EXPECT_TRUE(pad.send({0xAB, 0x00, 0xCD}));
  const uhid_event event = kernel.receive();
  EXPECT_EQ(event.type, std::uint32_t{UHID_INPUT2});
  EXPECT_THAT(data(event.u.input2), ElementsAre(0xAB, 0x00, 0xCD));
}

TEST_F(UhidPadTest, PenStatesAreEncodedByTheModel) {
  plug();
  EXPECT_TRUE(pad.sendPen({.touch = true}));
  EXPECT_TRUE(pad.sendPen({.touch = false}));
  EXPECT_THAT(data(kernel.receive().u.input2), ElementsAre(1, 1));
  EXPECT_THAT(data(kernel.receive().u.input2), ElementsAre(0, 2));
}

TEST_F(UhidPadTest, ReportThatUhidCannotCarryIsRefused) {
  plug();
  EXPECT_FALSE(pad.send(Bytes(4097)));
  EXPECT_TRUE(kernel.silent());
  EXPECT_TRUE(pad.send(Bytes(4096)));
  EXPECT_EQ(kernel.receive().u.input2.size, 4096);
}

TEST_F(UhidPadTest, FeatureReportsAreGotFromTheModel) {
  plug();
  kernel.get(77, 5);
  const auto reply = kernel.receiveGetReply();
  EXPECT_EQ(reply.id, 77u);
  EXPECT_EQ(reply.err, 0);
  EXPECT_THAT(data(reply), ElementsAre(5, 0x11, 0x22));
  kernel.get(78, 6);
  const auto refusal = kernel.receiveGetReply();
  EXPECT_EQ(refusal.id, 78u);
  EXPECT_EQ(refusal.err, EIO);
  EXPECT_EQ(refusal.size, 0);
  EXPECT_THAT(pad.requests(), ElementsAre(FeatureRequest{FeatureCall::Get, {5}, true},
                                          FeatureRequest{FeatureCall::Get, {6}, false}));
}

TEST_F(UhidPadTest, FeatureReportsAreSetInTheModel) {
  plug();
  kernel.set(79, {5, 0x33, 0x44});
  const auto reply = kernel.receiveSetReply();
  EXPECT_EQ(reply.id, 79u);
  EXPECT_EQ(reply.err, 0);
  EXPECT_THAT(model->feature, ElementsAre(5, 0x33, 0x44));
  kernel.set(80, {6, 0x33});
  const auto refusal = kernel.receiveSetReply();
  EXPECT_EQ(refusal.id, 80u);
  EXPECT_EQ(refusal.err, EIO);
  EXPECT_THAT(pad.requests(), ElementsAre(FeatureRequest{FeatureCall::Set, {5, 0x33, 0x44}, true},
                                          FeatureRequest{FeatureCall::Set, {6, 0x33}, false}));
}

TEST_F(UhidPadTest, RequestsForInputAndOutputReportsFail) {
  plug();
  kernel.get(81, 5, UHID_INPUT_REPORT);
  EXPECT_EQ(kernel.receiveGetReply().err, EIO);
  kernel.set(82, {5, 0x33, 0x44}, UHID_OUTPUT_REPORT);
  EXPECT_EQ(kernel.receiveSetReply().err, EIO);
  EXPECT_EQ(model->gets, 0);
  EXPECT_THAT(model->feature, ElementsAre(5, 0x11, 0x22));
  EXPECT_THAT(pad.requests(), IsEmpty());
}

TEST_F(UhidPadTest, OutputReportsAreIgnored) {
  plug();
  kernel.sendEmpty(UHID_OUTPUT);
  kernel.get(83, 5);
  EXPECT_EQ(kernel.receiveGetReply().id, 83u);
}

TEST_F(UhidPadTest, LateAnswersAreHeldBackUntilReleased) {
  plug();
  pad.fail(FeatureCall::Set, 5, FeatureFault::Late);
  kernel.set(1, {5, 0x33, 0x44});
  EXPECT_TRUE(pad.waitForRequest(
      [](const FeatureRequest& request) { return request.call == FeatureCall::Set; }));
  EXPECT_TRUE(kernel.silent());
  // Meanwhile the pad keeps working.
  kernel.sendEmpty(UHID_OPEN);
  EXPECT_TRUE(pad.waitUntilOpen());
  EXPECT_TRUE(kernel.silent());
  pad.releaseLateAnswers();
  const auto reply = kernel.receiveSetReply();
  EXPECT_EQ(reply.id, 1u);
  EXPECT_EQ(reply.err, 0);
  pad.releaseLateAnswers();
  EXPECT_TRUE(kernel.silent());
}

TEST_F(UhidPadTest, LateAnswersAreForgottenWithTheDevice) {
  plug();
  pad.fail(FeatureCall::Get, 5, FeatureFault::Late);
  kernel.get(1, 5);
  EXPECT_TRUE(pad.waitForRequest([](const FeatureRequest&) { return true; }));
  pad.unplug();
  plug();
  pad.releaseLateAnswers();
  EXPECT_TRUE(kernel.silent());
}

TEST_F(UhidPadTest, UnplugFaultTakesTheDeviceAwayInsteadOfAnAnswer) {
  plug();
  pad.fail(FeatureCall::Get, 5, FeatureFault::Unplug);
  kernel.get(1, 5);
  EXPECT_EQ(kernel.receive().type, std::uint32_t{UHID_DESTROY});
  EXPECT_TRUE(pad.waitForRequest([](const FeatureRequest& request) { return !request.accepted; }));
  EXPECT_FALSE(pad.plugged());
  EXPECT_EQ(model->gets, 0);
  pad.unplug();
  EXPECT_TRUE(kernel.silent());
  plug();
  kernel.get(2, 5);
  EXPECT_THAT(data(kernel.receiveGetReply()), ElementsAre(5, 0x11, 0x22));
}

TEST_F(UhidPadTest, FaultsMeetOnlyTheirOwnReportAndDirection) {
  plug();
  pad.fail(FeatureCall::Get, 6, FeatureFault::Late);
  pad.fail(FeatureCall::Set, 5, FeatureFault::Late);
  kernel.get(1, 5);
  EXPECT_EQ(kernel.receiveGetReply().err, 0);
}

TEST_F(UhidPadTest, LogForgetsTheOldestRequestsBeyondItsSize) {
  plug();
  kernel.get(1, 6);
  kernel.receiveGetReply();
  for (std::size_t i = 0; i < 10000; ++i) {
    kernel.get(2, 5);
    kernel.receiveGetReply();
  }
  const auto requests = pad.requests();
  EXPECT_EQ(requests.size(), 10000u);
  EXPECT_EQ(requests.front(), (FeatureRequest{FeatureCall::Get, {5}, true}));
  pad.clearRequests();
  EXPECT_THAT(pad.requests(), IsEmpty());
}

TEST_F(UhidPadTest, ModelCanBeLookedAtWhileThePadWorks) {
  plug();
  Bytes seen;
  pad.withModel([&](PadModel& toy) { seen = toy.getFeature(5).value(); });
  EXPECT_THAT(seen, ElementsAre(5, 0x11, 0x22));
}

}  // namespace
}  // namespace virtualpads
