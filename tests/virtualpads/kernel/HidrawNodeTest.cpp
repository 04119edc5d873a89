// waitForHidrawNode in a container: a made-up /sys and /dev, and no device events. Runs where a
// process may create namespaces.
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
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWNET) != 0) return false;
  std::ofstream("/proc/self/setgroups") << "deny";
  std::ofstream("/proc/self/uid_map") << "0 " + user + " 1";
  std::ofstream("/proc/self/gid_map") << "0 " + group + " 1";
  return mount("none", "/sys", "tmpfs", 0, nullptr) == 0 &&
         mount("none", "/dev", "tmpfs", 0, nullptr) == 0;
}

void listNode() {
  std::filesystem::create_directories("/sys/class/hidraw/hidraw7/device");
  std::ofstream("/sys/class/hidraw/hidraw7/device/uevent") << "HID_PHYS=toy/1\n";
}

void makeNode() {
  std::ofstream("/dev/hidraw7").flush();
}

// Waits for the node in a container. `before` happens first, `after` once the directory has been
// searched in vain. Returns whether the node and its file exist in the end.
int waitInContainer(void (*before)(), void (*after)()) {
  if (!enterContainer()) return kNoContainer;
  std::filesystem::create_directories("/sys/class/hidraw");
  before();
  const FileDescriptor looks(inotify_init1(IN_CLOEXEC));
  inotify_add_watch(looks.get(), "/sys/class/hidraw", IN_CLOSE_NOWRITE);
  if (fork() == 0) {
    std::array<char, 4096> look;
    if (read(looks.get(), look.data(), look.size()) > 0) after();
    _exit(0);
  }
  const std::string node = waitForHidrawNode("toy/1", std::chrono::seconds(2));
  return node == "/dev/hidraw7" && std::filesystem::exists(node) ? kFound : kNotFound;
}

void expectFound(void (*before)(), void (*after)()) {
  const pid_t child = fork();
  if (child == 0) _exit(waitInContainer(before, after));
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == kNoContainer) GTEST_SKIP() << "namespaces of its own are refused";
  EXPECT_EQ(WEXITSTATUS(status), kFound);
}

TEST(HidrawNodeTest, IsFoundAtTheEndOfTheTimeWhereNoNewsComes) {
  expectFound(makeNode, listNode);
}

TEST(HidrawNodeTest, IsNotFoundBeforeItsFileIsThere) {
  expectFound(listNode, makeNode);
}

}  // namespace
}  // namespace virtualpads
