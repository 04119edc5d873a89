#include "tools/VhciTrouble.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace virtualpads {
namespace {

std::string troubleOf(int error) {
  return vhciTrouble({error, std::generic_category(), "attach"});
}

TEST(VhciTrouble, ReportsWhatIsMissing) {
  EXPECT_EQ(troubleOf(ENOENT),
            "the kernel's virtual USB host controller is missing; root loads its module: "
            "modprobe vhci-hcd");
  EXPECT_EQ(troubleOf(EACCES), "only root may plug in USB devices; use sudo, or leave out --usb");
  EXPECT_EQ(troubleOf(EBUSY), "all ports of the kernel's virtual USB host controller are taken");
}

TEST(VhciTrouble, ReportsAnyOtherError) {
  EXPECT_EQ(troubleOf(EMFILE), "the pad can't be plugged: attach: Too many open files");
}

}  // namespace
}  // namespace virtualpads
