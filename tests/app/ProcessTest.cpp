// The application as a process: its standard output, its signals, its end.
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include "DeskProcess.h"

namespace {

// Opens a pad of the given kind, writes on it and returns its port.
std::string connectPad(DeskProcess& desk, int kind) {
  const std::string port = desk.order("plug " + std::to_string(kind));
  desk.order("choose " + std::to_string(kind));
  desk.order("click m_OpenButton");
  desk.order("pen " + port + " 0.25 0.5 1");
  desk.order("pen " + port + " 0.75 0.5 1");
  desk.order("pen " + port + " 0.75 0.5 0");
  EXPECT_EQ(desk.order("wait-points 3"), "done");
  return port;
}

void expectQuietEnd(DeskProcess& desk) {
  const auto end = desk.end();
  EXPECT_FALSE(end.crashed);
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(end.printed, "");
  EXPECT_EQ(end.lastSaid, "desk: opened 1, closed 1, open 0, providers 0");
}

TEST(PrintingTest, LineIsOutAtOnceThroughAPipe) {
  DeskProcess desk;
  desk.order("choose 2");
  desk.order("click m_OpenButton");
  EXPECT_EQ(desk.printedLine(), "No device Vela Ink found\n");
  EXPECT_TRUE(desk.running());
}

TEST(PrintingTest, LineOfADriverIsOutAtOnceToo) {
  DeskProcess desk;
  desk.order("lock " + desk.order("plug 1"));
  desk.order("choose 1");
  desk.order("click m_OpenButton");
  EXPECT_EQ(desk.printedLine(), "velaii:opendevice failed\n");
  EXPECT_TRUE(desk.running());
}

TEST(EndTest, SuccessfulRunPrintsNothing) {
  DeskProcess desk;
  connectPad(desk, 0);
  desk.order("click m_ClearButton");
  desk.order("click m_ResetButton");
  desk.order("close");
  expectQuietEnd(desk);
}

class PadTest : public testing::TestWithParam<int> {};

TEST_P(PadTest, TerminationSignalLeavesThePadClosed) {
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
    DeskProcess desk;
    connectPad(desk, GetParam());
    desk.signal(number);
    expectQuietEnd(desk);
  }
}

TEST_P(PadTest, ClosingTheWindowLeavesThePadClosed) {
  DeskProcess desk;
  connectPad(desk, GetParam());
  desk.order("close");
  expectQuietEnd(desk);
}

TEST_P(PadTest, QuittingLeavesThePadClosed) {
  DeskProcess desk;
  connectPad(desk, GetParam());
  desk.order("quit");
  expectQuietEnd(desk);
}

INSTANTIATE_TEST_SUITE_P(Pads, PadTest, testing::Values(0, 1, 2, 3));

TEST(EndTest, EveryWayEndsAnIdleApplicationToo) {
  const std::pair<const char*, std::function<void(DeskProcess&)>> ways[] = {
      {"Quit", [](DeskProcess& desk) { desk.order("quit"); }},
      {"closing the window", [](DeskProcess& desk) { desk.order("close"); }},
      {"SIGINT", [](DeskProcess& desk) { desk.signal(SIGINT); }},
      {"SIGTERM", [](DeskProcess& desk) { desk.signal(SIGTERM); }},
      {"SIGHUP", [](DeskProcess& desk) { desk.signal(SIGHUP); }},
  };
  for (const auto& [name, request] : ways) {
    SCOPED_TRACE(name);
    DeskProcess desk;
    request(desk);
    const auto end = desk.end();
    EXPECT_FALSE(end.crashed);
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.printed, "");
    EXPECT_EQ(end.lastSaid, "desk: opened 0, closed 0, open 0, providers 0");
  }
}

// A pen that touches the pad delays the close.
TEST(EndTest, SecondSignalEndsWhatThePenKeepsWaiting) {
  DeskProcess desk;
  desk.order("keep-moving " + connectPad(desk, 0));
  desk.signalUntilItEnds(SIGTERM);
  const auto end = desk.end();
  EXPECT_TRUE(end.crashed);
  EXPECT_EQ(end.status, SIGTERM);
  EXPECT_EQ(end.lastSaid, "desk: done");  // and not the summary of a regular end
}

TEST(EndTest, OutlivesItsTerminalWhenHangupsAreIgnored) {
  DeskProcess desk(QProcessEnvironment::systemEnvironment(), [] { signal(SIGHUP, SIG_IGN); });
  desk.signal(SIGHUP);
  // The first order may be processed together with the signal.
  for (int i = 0; i < 2; ++i) EXPECT_EQ(desk.order("providers"), "0");
  desk.order("close");
  EXPECT_EQ(desk.end().status, 0);
}

TEST(EndTest, LineThatNobodyReadsEndsNothing) {
  const auto printToNobody = [] {
    int ends[2];
    if (pipe(ends) == 0) dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    close(ends[1]);
  };
  DeskProcess desk(QProcessEnvironment::systemEnvironment(), printToNobody);
  desk.order("click m_OpenButton");  // the pad is not there, which is reported in a line
  EXPECT_EQ(desk.order("providers"), "1");
  desk.order("close");
  const auto end = desk.end();
  EXPECT_FALSE(end.crashed);
  EXPECT_EQ(end.status, 0);
}

TEST(EndTest, ProviderLeftOpenByAFailureIsClosed) {
  DeskProcess desk;
  desk.order("click m_OpenButton");
  EXPECT_EQ(desk.printedLine(), "No device Vela USB found\n");
  EXPECT_EQ(desk.order("providers"), "1");
  desk.order("close");
  const auto end = desk.end();
  EXPECT_FALSE(end.crashed);
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(end.lastSaid, "desk: opened 0, closed 0, open 0, providers 0");
}

TEST(EndTest, BrokenInvariantStopsTheProcess) {
  DeskProcess desk;
  connectPad(desk, 0);
  desk.order("destroy m_drawview");
  desk.order("click m_ClearButton");
  const auto end = desk.end();
  EXPECT_TRUE(end.crashed);
  EXPECT_EQ(end.status, SIGABRT);
  EXPECT_EQ(end.lastSaid, "fatal error: the outlet m_drawview is empty");
}

}  // namespace
