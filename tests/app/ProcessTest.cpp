// The application as a process: its standard output, its signals, its end.
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include "DeskProcess.h"

namespace {

TEST(PrintingTest, LineIsOutAtOnceThroughAPipe) {
  DeskProcess desk;
  desk.order("choose 2");
  desk.order("click m_OpenButton");
  EXPECT_EQ(desk.printedLine(), "No device Vela Ink found\n");
  EXPECT_TRUE(desk.running());
}

TEST(EndTest, EveryWayEndsQuietlyAndLeavesThePadClosed) {
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
    desk.connectPad();
    request(desk);
    desk.expectQuietEnd("opened 1, closed 1, open 0, providers 0");
  }
}

// A pen that touches the pad delays the close.
TEST(EndTest, SecondSignalEndsWhatThePenKeepsWaiting) {
  DeskProcess desk;
  desk.order("keep-moving " + desk.connectPad());
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
  desk.expectQuietEnd("opened 0, closed 0, open 0, providers 0");
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
  desk.expectQuietEnd("opened 0, closed 0, open 0, providers 0");
}

}  // namespace
