// waitForHidrawNode in a container: a made-up /sys, and no news of devices. Runs where a process
// may have namespaces of its own.
#include "virtualpads/kernel/HidrawNode.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>

#include "virtualpads/kernel/FileDescriptor.h"

namespace virtualpads {
namespace {

constexpr int kFound = 0;
constexpr int kNotFound = 1;
constexpr int kNoContainer = 77;

bool enterContainer() {
  const std::string user = std::to_string(getuid());
  const std::string group = std::to_string(getgid());
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWNET) != 0) {
    return false;
  }
  std::ofstream("/proc/self/setgroups") << "deny";
  std::ofstream("/proc/self/uid_map") << "0 " + user + " 1";
  std::ofstream("/proc/self/gid_map") << "0 " + group + " 1";
  return mount("none", "/sys", "tmpfs", 0, nullptr) == 0;
}

// Waits until somebody has looked through the directory in vain.
void makeNodeAfterALook(const FileDescriptor& looks) {
  std::array<char, 4096> look;
  if (read(looks.get(), look.data(), look.size()) > 0) {
    std::filesystem::create_directories("/sys/class/hidraw/hidraw7/device");
    std::ofstream("/sys/class/hidraw/hidraw7/device/uevent") << "HID_PHYS=toy/1\n";
  }
}

int waitInContainer() {
  if (!enterContainer()) {
    return kNoContainer;
  }
  std::filesystem::create_directories("/sys/class/hidraw");
  const FileDescriptor looks(inotify_init1(IN_CLOEXEC));
  inotify_add_watch(looks.get(), "/sys/class/hidraw", IN_CLOSE_NOWRITE);
  if (fork() == 0) {
    makeNodeAfterALook(looks);
    _exit(0);
  }
  return waitForHidrawNode("toy/1", std::chrono::seconds(2)) == "/dev/hidraw7" ? kFound : kNotFound;
}

TEST(HidrawNodeTest, IsFoundAtTheEndOfTheTimeWhereNoNewsComes) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(waitInContainer());
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == kNoContainer) {
    GTEST_SKIP() << "namespaces of its own are refused";
  }
  EXPECT_EQ(WEXITSTATUS(status), kFound);
}

}  // namespace
}  // namespace virtualpads
