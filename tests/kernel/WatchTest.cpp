// vela-padinfo --watch as it is shipped, on a kernel where no udev runs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/kernel/Program.h"
#include "tests/kernel/TestPads.h"

namespace {

using testing::ElementsAre;
using virtualpads::PadKind;

// The lines without the time at their beginning, "12:34:56.789  ".
std::vector<std::string> news(const Program& program) {
  std::vector<std::string> lines = program.lines();
  for (std::string& line : lines) line.erase(0, 14);
  return lines;
}

void waitForEnd(const Program& program, const std::string& end) {
  program.waitForLine([&](const std::string& line) { return line.ends_with(end); });
}

TEST(WatchTest, ReportsEachPadThatComesOrGoesUntilCtrlC) {
  Program program(VELA_PADINFO, {.arguments = {"--watch"}});
  program.waitForLine("vela-padinfo: no pad is attached");  // the list of what is there has ended
  const auto usb = plugged(PadKind::Usb);
  const std::string usbNode = usb->waitForNode();
  waitForEnd(program, "attached at " + usbNode);

  const auto ink = plugged(PadKind::Ink);
  const std::string inkNode = ink->waitForNode();
  waitForEnd(program, "attached at " + inkNode);
  const auto stranger = plugged(makeOtherPad());
  stranger->unplug();
  ink->unplug();
  waitForEnd(program, "detached from " + inkNode);
  usb->unplug();
  waitForEnd(program, "detached from " + usbNode);
  const std::size_t before = program.lineCount();
  replug(*ink);
  const std::string again = ink->waitForNode();
  program.waitForLine(
      [&](const std::string& line) { return line.ends_with("attached at " + again); }, before);

  EXPECT_THAT(news(program),
              ElementsAre("no pad is attached", "Vela USB attached at " + usbNode,
                          "Vela Ink attached at " + inkNode, "Vela Ink detached from " + inkNode,
                          "Vela USB detached from " + usbNode, "Vela Ink attached at " + again));
  program.signal(SIGINT);
  EXPECT_EQ(program.wait(), 0);
}

TEST(ListTest, IsTheSameForAUsbDevice) {
  if (faces().size() == 1) GTEST_SKIP() << "this kernel has no vhci-hcd";
  const auto pad = plugged(PadKind::Ink, Face::Usb);
  Program program(VELA_PADINFO);
  EXPECT_EQ(program.wait(), 0);
  EXPECT_THAT(program.lines(),
              ElementsAre("Vela Ink, 1 attached", "  node      " + pad->waitForNode(),
                          "  serial    99f6f7c515574d19a897867564534231", "  x         0 to 32767",
                          "  y         0 to 32767", "  pressure  0 to 255",
                          "  surface   3.11 x 2.28 inches"));
}

TEST(WatchTest, ReportsThePadsOfOneNameOnly) {
  const auto usb = plugged(PadKind::Usb);
  Program program(VELA_PADINFO, {.arguments = {"--watch", "--pad", "Vela II"}});
  program.waitForLine("vela-padinfo: no Vela II is attached");
  const auto ink = plugged(PadKind::Ink);
  const auto ii = plugged(PadKind::Ii);
  const std::string node = ii->waitForNode();
  waitForEnd(program, "Vela II attached at " + node);
  EXPECT_EQ(program.lineCount(), 2U);
}

TEST(WatchTest, NamesANodeInTheListThatMayNotBeOpened) {
  const auto usb = plugged(PadKind::Usb);
  Program program(VELA_PADINFO, {.arguments = {"--watch"}, .unprivileged = true});
  waitForEnd(program, "Vela USB present at " + usb->waitForNode() + ", no permission to open it");
}

TEST(WatchTest, NamesANewNodeThatMayNotBeOpened) {
  Program program(VELA_PADINFO, {.arguments = {"--watch"}, .unprivileged = true});
  program.waitForLine("vela-padinfo: no pad is attached");  // the list of what is there has ended
  const auto ink = plugged(PadKind::Ink);
  waitForEnd(program, "Vela Ink attached at " + ink->waitForNode() + ", no permission to open it");
}

}  // namespace
