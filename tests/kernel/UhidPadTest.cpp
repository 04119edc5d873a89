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
#include <map>
#include <string>
#include <system_error>
#include <utility>

namespace virtualpads {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::array<std::uint8_t, 4> kDescriptor{0x06, 0x00, 0xFF, 0xC0};

// Feature report 5 holds two bytes; report 6 is refused; pen reports are two bytes.
class ToyPad : public PadModel {
 public:
  Identity identity() const override { return {0x04DF, 0x0102, name}; }
  double widthInches() const override { return 1; }
  double heightInches() const override { return 1; }
  std::span<const std::uint8_t> reportDescriptor() const override { return descriptor; }
  Bytes inputReport(const PenState& pen) override {
    return {static_cast<std::uint8_t>(pen.touch), ++sequence};
  }
  std::optional<Bytes> getFeature(std::uint8_t reportId) override {
    ++gets;
    return reportId == 5 ? std::optional<Bytes>(feature) : std::nullopt;
  }
  bool setFeature(std::span<const std::uint8_t> report) override {
    if (report[0] != 5) return false;
    feature.assign(report.begin(), report.end());
    return true;
  }

  std::string name = "Toy";
  Bytes descriptor{kDescriptor.begin(), kDescriptor.end()};
  Bytes feature{5, 0x11, 0x22};
  std::uint8_t sequence = 0;
  int gets = 0;
};

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

class UhidPadTest : public ::testing::Test {
 protected:
  // Plugs in the pad and reads its request for the device.
  void plug() {
    pad.plug();
    created = kernel.receive();
  }

  std::shared_ptr<ToyPad> model = std::make_shared<ToyPad>();
  FakeKernel kernel;
  UhidPad pad{model, [this] { return kernel.device(); }};
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
              ElementsAre(0x06, 0x00, 0xFF, 0xC0));
}

TEST_F(UhidPadTest, PlugOfAPluggedPadDoesNothing) {
  plug();
  pad.plug();
  EXPECT_TRUE(kernel.silent());
}

TEST_F(UhidPadTest, LongNameIsCutToTheFieldOfTheKernel) {
  model->name = std::string(200, 'n');
  plug();
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
  model->descriptor.resize(4097);
  try {
    pad.plug();
    FAIL() << "no exception";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::message_size);
  }
  EXPECT_FALSE(pad.plugged());
  model->descriptor.resize(4096);
  plug();
  EXPECT_EQ(created.u.create2.rd_size, 4096);
}

TEST_F(UhidPadTest, DeviceThatTheKernelDoesNotStartIsTakenAwayAgain) {
  kernel.startsDevices = false;
  pad.setStartLimit(std::chrono::milliseconds(100));
  try {
    pad.plug();
    FAIL() << "no exception";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::timed_out);
  }
  EXPECT_FALSE(pad.plugged());
  EXPECT_EQ(kernel.receive().type, std::uint32_t{UHID_CREATE2});
  EXPECT_EQ(kernel.receive().type, std::uint32_t{UHID_DESTROY});
}

TEST(UhidPadWithoutUhidTest, PlugReportsWhyUhidCannotBeOpened) {
  bool permitted = false;
  FakeKernel kernel;
  UhidPad pad(std::make_shared<ToyPad>(), [&] {
    if (!permitted) throw std::system_error(EACCES, std::generic_category(), "/dev/uhid");
    return kernel.device();
  });
  try {
    pad.plug();
    FAIL() << "no exception";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::permission_denied);
    EXPECT_THAT(error.what(), HasSubstr("/dev/uhid"));
  }
  EXPECT_FALSE(pad.plugged());
  permitted = true;
  pad.plug();
  EXPECT_TRUE(pad.plugged());
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
TEST(UhidPadWithoutUhidTest, PlugReportsThatItHasNoEventCounter) {
  FakeKernel kernel;
  FileDescriptor device = kernel.device();
  UhidPad pad(std::make_shared<ToyPad>(), [&] { return std::move(device); });
  const NoMoreFiles limit;
  try {
    pad.plug();
    FAIL() << "no exception";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::too_many_files_open);
  }
  EXPECT_FALSE(pad.plugged());
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

TEST(UhidPadLifeTest, EndOfLifeUnplugs) {
  FakeKernel kernel;
  {
    UhidPad pad(std::make_shared<ToyPad>(), [&] { return kernel.device(); });
    pad.plug();
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
  EXPECT_THAT(Bytes(event.u.input2.data, event.u.input2.data + event.u.input2.size),
              ElementsAre(0xAB, 0x00, 0xCD));
}

TEST_F(UhidPadTest, PenStatesAreEncodedByTheModel) {
  plug();
  EXPECT_TRUE(pad.sendPen({.touch = true}));
  EXPECT_TRUE(pad.sendPen({.touch = false}));
  const uhid_event first = kernel.receive();
  const uhid_event second = kernel.receive();
  EXPECT_THAT(Bytes(first.u.input2.data, first.u.input2.data + first.u.input2.size),
              ElementsAre(1, 1));
  EXPECT_THAT(Bytes(second.u.input2.data, second.u.input2.data + second.u.input2.size),
              ElementsAre(0, 2));
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
  EXPECT_THAT(pad.requests(), ElementsAre(FeatureRequest{FeatureCall::Get, {5}, true}));
}

TEST_F(UhidPadTest, FeatureReportThatTheModelDoesNotHaveFails) {
  plug();
  kernel.get(78, 6);
  const auto reply = kernel.receiveGetReply();
  EXPECT_EQ(reply.id, 78u);
  EXPECT_EQ(reply.err, EIO);
  EXPECT_EQ(reply.size, 0);
  EXPECT_THAT(pad.requests(), ElementsAre(FeatureRequest{FeatureCall::Get, {6}, false}));
}

TEST_F(UhidPadTest, FeatureReportsAreSetInTheModel) {
  plug();
  kernel.set(79, {5, 0x33, 0x44});
  const auto reply = kernel.receiveSetReply();
  EXPECT_EQ(reply.id, 79u);
  EXPECT_EQ(reply.err, 0);
  EXPECT_THAT(model->feature, ElementsAre(5, 0x33, 0x44));
  EXPECT_THAT(pad.requests(), ElementsAre(FeatureRequest{FeatureCall::Set, {5, 0x33, 0x44}, true}));
}

TEST_F(UhidPadTest, FeatureReportThatTheModelRefusesFails) {
  plug();
  kernel.set(80, {6, 0x33});
  const auto reply = kernel.receiveSetReply();
  EXPECT_EQ(reply.id, 80u);
  EXPECT_EQ(reply.err, EIO);
  EXPECT_THAT(pad.requests(), ElementsAre(FeatureRequest{FeatureCall::Set, {6, 0x33}, false}));
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

TEST_F(UhidPadTest, RefusedRequestsDoNotReachTheModel) {
  plug();
  pad.fail(FeatureCall::Get, 5, {FeatureFault::Kind::Refuse});
  pad.fail(FeatureCall::Set, 5, {FeatureFault::Kind::Refuse});
  kernel.get(1, 5);
  EXPECT_EQ(kernel.receiveGetReply().err, EIO);
  kernel.set(2, {5, 0x33, 0x44});
  EXPECT_EQ(kernel.receiveSetReply().err, EIO);
  EXPECT_EQ(model->gets, 0);
  EXPECT_THAT(model->feature, ElementsAre(5, 0x11, 0x22));
  EXPECT_THAT(pad.requests(),
              ElementsAre(FeatureRequest{FeatureCall::Get, {5}, false},
                          FeatureRequest{FeatureCall::Set, {5, 0x33, 0x44}, false}));
}

TEST_F(UhidPadTest, ShortAnswersAreCut) {
  plug();
  pad.fail(FeatureCall::Get, 5, {FeatureFault::Kind::Short, 2});
  pad.fail(FeatureCall::Set, 5, {FeatureFault::Kind::Short, 2});
  kernel.get(1, 5);
  EXPECT_THAT(data(kernel.receiveGetReply()), ElementsAre(5, 0x11));
  kernel.set(2, {5, 0x33, 0x44});
  EXPECT_EQ(kernel.receiveSetReply().err, 0);
  EXPECT_THAT(model->feature, ElementsAre(5, 0x33, 0x44));
}

TEST_F(UhidPadTest, ShortAnswersAreNeverLongerThanTheReport) {
  plug();
  pad.fail(FeatureCall::Get, 5, {FeatureFault::Kind::Short, 9});
  kernel.get(1, 5);
  EXPECT_THAT(data(kernel.receiveGetReply()), ElementsAre(5, 0x11, 0x22));
}

TEST_F(UhidPadTest, LateAnswersAreHeldBackUntilReleased) {
  plug();
  pad.fail(FeatureCall::Set, 5, {FeatureFault::Kind::Late});
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
  pad.fail(FeatureCall::Get, 5, {FeatureFault::Kind::Late});
  kernel.get(1, 5);
  EXPECT_TRUE(pad.waitForRequest([](const FeatureRequest&) { return true; }));
  pad.unplug();
  plug();
  pad.releaseLateAnswers();
  EXPECT_TRUE(kernel.silent());
}

TEST_F(UhidPadTest, UnplugFaultTakesTheDeviceAwayInsteadOfAnAnswer) {
  plug();
  pad.fail(FeatureCall::Get, 5, {FeatureFault::Kind::Unplug});
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
  pad.fail(FeatureCall::Get, 6, {FeatureFault::Kind::Refuse});
  pad.fail(FeatureCall::Set, 5, {FeatureFault::Kind::Refuse});
  kernel.get(1, 5);
  EXPECT_EQ(kernel.receiveGetReply().err, 0);
}

TEST_F(UhidPadTest, FaultsMeetAsManyRequestsAsTheyAreGiven) {
  plug();
  pad.fail(FeatureCall::Get, 5, {FeatureFault::Kind::Refuse}, 2);
  std::vector<int> errors;
  for (std::uint32_t id = 0; id < 3; ++id) {
    kernel.get(id, 5);
    errors.push_back(kernel.receiveGetReply().err);
  }
  EXPECT_THAT(errors, ElementsAre(EIO, EIO, 0));
}

TEST_F(UhidPadTest, FaultsForAlwaysLastUntilTheyAreCleared) {
  plug();
  pad.fail(FeatureCall::Get, 5, {FeatureFault::Kind::Refuse}, UhidPad::kAlways);
  for (std::uint32_t id = 0; id < 20; ++id) {
    kernel.get(id, 5);
    EXPECT_EQ(kernel.receiveGetReply().err, EIO);
  }
  pad.clearFaults();
  kernel.get(20, 5);
  EXPECT_EQ(kernel.receiveGetReply().err, 0);
}

TEST_F(UhidPadTest, NewFaultReplacesTheOldOne) {
  plug();
  pad.fail(FeatureCall::Get, 5, {FeatureFault::Kind::Refuse});
  pad.fail(FeatureCall::Get, 5, {FeatureFault::Kind::Short, 1});
  kernel.get(1, 5);
  EXPECT_THAT(data(kernel.receiveGetReply()), ElementsAre(5));
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
