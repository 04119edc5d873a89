#include "TerminationSignals.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <QApplication>
#include <QTest>
#include <csignal>

namespace {

class TerminationSignalsTest : public testing::Test {
 protected:
  TerminationSignalsTest() {
    QObject::connect(&terminationSignals, &TerminationSignals::received,
                     [this](QObject* sender) { senders.push_back(sender); });
  }
  ~TerminationSignalsTest() override {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    std::signal(SIGHUP, SIG_DFL);
  }

  bool waitForSignals(std::size_t count) {
    return QTest::qWaitFor([&] { return senders.size() == count; });
  }

  TerminationSignals terminationSignals;
  std::vector<QObject*> senders;
};

TEST_F(TerminationSignalsTest, SigtermIsReceivedOnTheEventLoop) {
  std::raise(SIGTERM);
  EXPECT_TRUE(senders.empty());
  EXPECT_TRUE(waitForSignals(1));
  EXPECT_EQ(senders[0], &terminationSignals);
}

TEST_F(TerminationSignalsTest, SigintToo) {
  std::raise(SIGINT);
  EXPECT_TRUE(waitForSignals(1));
}

// As when a terminal is closed: one from the shell, one from the kernel.
TEST_F(TerminationSignalsTest, HangupsThatComeTogetherAreOne) {
  std::raise(SIGHUP);
  EXPECT_TRUE(waitForSignals(1));
  std::raise(SIGHUP);
  QApplication::processEvents();
  EXPECT_EQ(senders.size(), 1u);
}

TEST_F(TerminationSignalsTest, ErrorNumberOfTheInterruptedCodeIsKept) {
  errno = 4711;
  std::raise(SIGINT);
  EXPECT_EQ(errno, 4711);
  std::raise(SIGHUP);
  EXPECT_EQ(errno, 4711);
}

using TerminationSignalsDeathTest = TerminationSignalsTest;

TEST_F(TerminationSignalsDeathTest, SecondSignalEndsTheProcess) {
  for (const int first : {SIGINT, SIGTERM, SIGHUP}) {
    for (const int second : {SIGINT, SIGTERM}) {
      EXPECT_EXIT(
          {
            std::raise(first);
            std::raise(second);
          },
          testing::KilledBySignal(second), "");
    }
  }
}

TEST_F(TerminationSignalsDeathTest, LaterHangupEndsTheProcess) {
  EXPECT_EXIT(
      {
        std::raise(SIGHUP);
        for (;;) std::raise(SIGHUP);
      },
      testing::KilledBySignal(SIGHUP), "");
}

TEST(TerminationSignalsPipeDeathTest, NoPipeIsFatal) {
  EXPECT_DEATH(
      {
        const rlimit none{};
        setrlimit(RLIMIT_NOFILE, &none);
        const TerminationSignals terminationSignals;
      },
      testing::EndsWith("fatal error: no pipe for the termination signals\n"));
}

}  // namespace
