// The installed udev rule, with the system's own udevd and pads on a real kernel: which nodes it
// opens, and for whom. No login manager runs: the tests write the file in which udevd looks up who
// sits at the machine.
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Client.h"
#include "Program.h"
#include "TestPads.h"
#include "tests/support/Patience.h"

namespace {

using virtualpads::KernelPad;

namespace fs = std::filesystem;

constexpr const char* kUdevd = "/lib/systemd/systemd-udevd";
const fs::path kControl = "/run/udev/control";
const fs::path kRules = "/run/udev/rules.d";
const fs::path kSeat = "/run/systemd/seats/seat0";

// udev's programs ignore requests in a change root, which a guest's root is.
const std::vector<std::string> kInChangeRoot{"SYSTEMD_IGNORE_CHROOT=1"};

void udevadm(const std::vector<std::string>& arguments) {
  Program program("/bin/udevadm", {.arguments = arguments, .environment = kInChangeRoot});
  EXPECT_EQ(program.wait(), 0);
}

std::string installedRule() {
  std::ostringstream text;
  text << std::ifstream(VELA_UDEV_RULE).rdbuf();
  return text.str();
}

bool nobodyMayUse(const std::string& node) {
  Program test("/usr/bin/test",
               {.arguments = {"-r", node, "-a", "-w", node}, .unprivileged = true});
  return test.wait() == 0;
}

struct stat statusOf(const std::string& node) {
  struct stat status {};
  if (stat(node.c_str(), &status) != 0) throw std::runtime_error("no node " + node);
  return status;
}

class UdevTest : public ::testing::TestWithParam<Face> {
 protected:
  void SetUp() override {
    if (!fs::exists(kUdevd)) GTEST_SKIP() << kUdevd << " is not installed";
    if (fs::exists(kControl)) GTEST_SKIP() << "another udevd is running";
    fs::create_directories(kRules);
    fs::create_directories(kSeat.parent_path());
    // It acts on the tag, and is a part of systemd.
    if (!fs::exists("/lib/udev/rules.d/73-seat-late.rules"))
      std::ofstream(kRules / "73-seat-late.rules")
          << "TAG==\"uaccess\", RUN{builtin}+=\"uaccess\"\n";
  }

  void TearDown() override {
    pads.clear();
    if (udevd) {
      udevadm({"control", "--exit"});
      udevd->wait();
    }
    fs::remove(kControl);
    fs::remove(kSeat);
  }

  // Starts udevd with the rule and plugs in one pad of each kind, and a stranger as the last one.
  void plugWithRule(const std::string& rule) {
    std::ofstream(kRules / "70-vela-pads.rules") << rule;
    udevd = std::make_unique<Program>(kUdevd, ProgramOptions{.environment = kInChangeRoot});
    if (!support::comesTrue([] { return fs::exists(kControl); }))
      throw std::runtime_error("udevd does not start");
    udevadm({"control", "--ping"});  // it answers once it also listens to the kernel
    for (const TestPad& kind : kTestPads) pads.push_back(plugged(kind.kind, GetParam()));
    pads.push_back(plugged(makeOtherPad(), GetParam()));
    for (const auto& pad : pads) nodes.push_back(pad->waitForNode());
    udevadm({"settle"});
  }

  std::unique_ptr<Program> udevd;
  std::vector<std::unique_ptr<KernelPad>> pads;
  std::vector<std::string> nodes;
};

TEST_P(UdevTest, RuleOpensThePadsForTheLocalUserOnly) {
  std::ofstream(kSeat) << "IS_SEAT0=1\nACTIVE=1\nACTIVE_UID=" << kNobody << "\n";
  plugWithRule(installedRule());
  for (std::size_t i = 0; i < kTestPads.size(); ++i) {
    EXPECT_TRUE(nobodyMayUse(nodes[i])) << kTestPads[i].name;
    EXPECT_EQ(statusOf(nodes[i]).st_mode & S_IRWXO, 0U) << kTestPads[i].name;
    EXPECT_EQ(statusOf(nodes[i]).st_uid, 0U) << kTestPads[i].name;
  }
  EXPECT_FALSE(nobodyMayUse(nodes.back()));
  EXPECT_EQ(statusOf(nodes.back()).st_mode & 0777, 0600U);

  Client client(GetParam() == Face::Usb ? Route::Usb : Route::Uhid, true);
  EXPECT_EQ(client.connect(kTestPads[1]), 1);
  EXPECT_NO_THROW(client.write(*pads[1], kTestPads[1], 0, 5));
}

TEST_P(UdevTest, RuleOpensNothingForAUserWhoIsNotAtTheMachine) {
  plugWithRule(installedRule());
  for (const std::string& node : nodes) {
    EXPECT_FALSE(nobodyMayUse(node));
    EXPECT_EQ(statusOf(node).st_mode & 0777, 0600U);
  }
}

// As in README.md.
TEST_P(UdevTest, RuleWithAGroupGivesItThePadsOnly) {
  std::string rule = installedRule();
  const std::string tag = "\"uaccess\"";
  for (std::size_t at = 0; (at = rule.find(tag, at)) != std::string::npos; at += tag.size())
    rule.insert(at + tag.size(), ", GROUP=\"plugdev\", MODE=\"0660\"");
  plugWithRule(rule);
  const group* const plugdev = getgrnam("plugdev");
  ASSERT_NE(plugdev, nullptr);
  for (std::size_t i = 0; i < kTestPads.size(); ++i) {
    EXPECT_EQ(statusOf(nodes[i]).st_gid, plugdev->gr_gid) << kTestPads[i].name;
    EXPECT_EQ(statusOf(nodes[i]).st_mode & 0777, 0660U) << kTestPads[i].name;
  }
  EXPECT_EQ(statusOf(nodes.back()).st_gid, 0U);
  EXPECT_EQ(statusOf(nodes.back()).st_mode & 0777, 0600U);
}

INSTANTIATE_TEST_SUITE_P(Faces, UdevTest, ::testing::ValuesIn(faces()),
                         [](const auto& parameter) { return nameOf(parameter.param); });

}  // namespace
