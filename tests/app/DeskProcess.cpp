#include "DeskProcess.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <QDeadlineTimer>

namespace {

// Long enough for a loaded machine; a passing test never waits that long.
constexpr int kDeadlineMs = 60'000;

constexpr auto kNoAnswer = "no answer";

}  // namespace

DeskProcess::DeskProcess(const QProcessEnvironment& environment,
                         const std::function<void()>& prepare) {
  m_process.setProcessEnvironment(environment);
  m_process.setChildProcessModifier([prepare] {
    ::signal(SIGHUP, SIG_DFL);
    prepare();
  });
  m_process.start(TESTAPP_ON_VIRTUAL_PADS);
  EXPECT_EQ(answer(), "open");
}

DeskProcess::~DeskProcess() {
  m_process.kill();
  m_process.waitForFinished();
}

std::string DeskProcess::order(const std::string& line) {
  m_process.write((line + '\n').c_str());
  return answer();
}

std::string DeskProcess::openPad() {
  std::string port = order("plug 0");
  order("click m_OpenButton");
  EXPECT_EQ(order("wait-enabled m_ResetButton"), "done");
  return port;
}

void DeskProcess::writeLine(const std::string& port) {
  order("pen " + port + " 0.25 0.5 1");
  order("pen " + port + " 0.75 0.5 1");
  order("pen " + port + " 0.75 0.5 0");
  EXPECT_EQ(order("wait-points 3"), "done");
}

std::string DeskProcess::connectPad() {
  std::string port = openPad();
  writeLine(port);
  return port;
}

std::string DeskProcess::printedLine() {
  m_process.setReadChannel(QProcess::StandardOutput);
  while (!m_process.canReadLine() && m_process.waitForReadyRead(kDeadlineMs)) {
  }
  return m_process.readLine().toStdString();
}

bool DeskProcess::running() const {
  return m_process.state() == QProcess::Running;
}

void DeskProcess::signal(int number) {
  kill(static_cast<pid_t>(m_process.processId()), number);
}

void DeskProcess::signalUntilItEnds(int number) {
  const QDeadlineTimer deadline(kDeadlineMs);
  do {
    signal(number);
  } while (!m_process.waitForFinished(20) && !deadline.hasExpired());
}

DeskProcess::End DeskProcess::end() {
  EXPECT_TRUE(!running() || m_process.waitForFinished(kDeadlineMs));
  while (answer() != kNoAnswer) {
  }
  return {.crashed = m_process.exitStatus() == QProcess::CrashExit,
          .status = m_process.exitCode(),
          .printed = m_process.readAllStandardOutput().toStdString(),
          .lastSaid = m_lastSaid};
}

void DeskProcess::expectQuietEnd(const std::string& left) {
  const End ended = end();
  EXPECT_FALSE(ended.crashed);
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.printed, "");
  EXPECT_EQ(ended.lastSaid, "desk: " + left);
}

// The desk's next line on standard error. Qt and the drivers write there too.
std::string DeskProcess::answer() {
  const std::string mark = "desk: ";
  m_process.setReadChannel(QProcess::StandardError);
  for (;;) {
    while (!m_process.canReadLine())
      if (!m_process.waitForReadyRead(kDeadlineMs)) return kNoAnswer;
    m_lastSaid = m_process.readLine().trimmed().toStdString();
    if (m_lastSaid.starts_with(mark)) return m_lastSaid.substr(mark.size());
  }
}
