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

TEST_F(TerminationSignalsTest, SignalsThatCameTogetherAreOne) {
  std::raise(SIGTERM);
  std::raise(SIGINT);
  std::raise(SIGTERM);
  EXPECT_TRUE(waitForSignals(1));
  std::raise(SIGTERM);
  EXPECT_TRUE(waitForSignals(2));
}

TEST_F(TerminationSignalsTest, MoreSignalsThanThePipeHoldsAreSurvived) {
  for (int i = 0; i < 100'000; ++i) std::raise(SIGINT);
  EXPECT_TRUE(waitForSignals(1));
}

TEST_F(TerminationSignalsTest, ErrorNumberOfTheInterruptedCodeIsKept) {
  for (int i = 0; i < 100'000; ++i) std::raise(SIGINT);  // the pipe is full
  errno = 4711;
  std::raise(SIGINT);
  EXPECT_EQ(errno, 4711);
}

TEST(TerminationSignalsDeathTest, NoPipeIsFatal) {
  EXPECT_DEATH(
      {
        const rlimit none{};
        setrlimit(RLIMIT_NOFILE, &none);
        const TerminationSignals terminationSignals;
      },
      testing::EndsWith("fatal error: no pipe for the termination signals\n"));
}

}  // namespace
