#include "virtualpads/tools/UhidTrouble.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace virtualpads {
namespace {

std::string troubleOf(int error) {
  return uhidTrouble({error, std::generic_category(), "/dev/uhid"});
}

TEST(UhidTrouble, ReportsHowToGetTheMissingDevice) {
  const std::string line =
      "/dev/uhid is missing; this loads the kernel's module for it: sudo modprobe uhid";
  EXPECT_EQ(troubleOf(ENOENT), line);
  EXPECT_EQ(troubleOf(ENODEV), line);
}

TEST(UhidTrouble, ReportsHowToGetPermission) {
  const std::string line =
      "/dev/uhid may not be opened; this permits it until the next start: "
      "sudo chown $USER /dev/uhid (vela-virtual-pad(1) has a rule that lasts)";
  EXPECT_EQ(troubleOf(EACCES), line);
  EXPECT_EQ(troubleOf(EPERM), line);
}

TEST(UhidTrouble, ReportsAnyOtherError) {
  EXPECT_EQ(troubleOf(EMFILE), "the pad can't be plugged: /dev/uhid: Too many open files");
}

}  // namespace
}  // namespace virtualpads
