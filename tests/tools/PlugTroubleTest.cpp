#include "tools/PlugTrouble.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace virtualpads {
namespace {

struct Trouble {
  std::string (*explain)(const std::system_error&);
  int error;
  const char* line;
};

class PlugTroubleTest : public testing::TestWithParam<Trouble> {};

TEST_P(PlugTroubleTest, ReportsHowToFixIt) {
  const auto& [explain, error, line] = GetParam();
  EXPECT_EQ(explain({error, std::generic_category(), "the call"}), line);
}

constexpr const char* kMissing =
    "/dev/uhid is missing; to load its kernel module, run: sudo modprobe uhid";
constexpr const char* kNoPermission =
    "no permission to open /dev/uhid; to get it until the next boot, run: "
    "sudo chown $USER /dev/uhid (vela-virtual-pad(1) has a permanent rule)";
constexpr const char* kOther = "cannot plug the pad in: the call: Too many open files";

INSTANTIATE_TEST_SUITE_P(
    Errors, PlugTroubleTest,
    testing::Values(
        Trouble{uhidTrouble, ENOENT, kMissing}, Trouble{uhidTrouble, ENODEV, kMissing},
        Trouble{uhidTrouble, EACCES, kNoPermission}, Trouble{uhidTrouble, EPERM, kNoPermission},
        Trouble{uhidTrouble, EMFILE, kOther}, Trouble{vhciTrouble, EMFILE, kOther},
        Trouble{vhciTrouble, ENOENT,
                "the kernel's virtual USB host controller is missing; root loads its module: "
                "modprobe vhci-hcd"},
        Trouble{vhciTrouble, EACCES,
                "only root may plug in USB devices; use sudo, or leave out --usb"},
        Trouble{vhciTrouble, EBUSY,
                "all ports of the kernel's virtual USB host controller are taken"}));

}  // namespace
}  // namespace virtualpads
