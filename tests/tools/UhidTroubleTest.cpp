#include "tools/UhidTrouble.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace virtualpads {
namespace {

std::string troubleOf(int error) {
  return uhidTrouble({error, std::generic_category(), "/dev/uhid"});
}

TEST(UhidTrouble, ReportsHowToGetTheMissingDevice) {
  const std::string line =
      "/dev/uhid is missing; to load its kernel module, run: sudo modprobe uhid";
  EXPECT_EQ(troubleOf(ENOENT), line);
  EXPECT_EQ(troubleOf(ENODEV), line);
}

TEST(UhidTrouble, ReportsHowToGetPermission) {
  const std::string line =
      "no permission to open /dev/uhid; to get it until the next boot, run: "
      "sudo chown $USER /dev/uhid (vela-virtual-pad(1) has a permanent rule)";
  EXPECT_EQ(troubleOf(EACCES), line);
  EXPECT_EQ(troubleOf(EPERM), line);
}

TEST(UhidTrouble, ReportsAnyOtherError) {
  EXPECT_EQ(troubleOf(EMFILE), "cannot plug the pad in: /dev/uhid: Too many open files");
}

}  // namespace
}  // namespace virtualpads
