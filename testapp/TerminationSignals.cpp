#include "TerminationSignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <cerrno>
#include <csignal>

#include "FatalError.h"

namespace {

// A signal handler may hardly do anything but write: it writes a byte into this pipe, and the event
// loop reads it. The pipe stays open until the process ends, for a signal may come at any time.
int pipeEnds[2];

extern "C" void writeToPipe(int /*signal*/) {
  const int savedError = errno;
  // A full pipe holds enough bytes to wake the event loop, so a failing write loses nothing.
  [[maybe_unused]] const auto written = write(pipeEnds[1], "", 1);
  errno = savedError;
}

}  // namespace

TerminationSignals::TerminationSignals(QObject* parent) : QObject(parent) {
  if (pipe(pipeEnds) != 0) {
    FatalError(QStringLiteral("no pipe for the termination signals"));
  }
  for (const int end : pipeEnds) {
    fcntl(end, F_SETFD, FD_CLOEXEC);
    fcntl(end, F_SETFL, O_NONBLOCK);
  }

  auto* notifier = new QSocketNotifier(pipeEnds[0], QSocketNotifier::Read, this);
  connect(notifier, &QSocketNotifier::activated, this, [this] {
    char byte;
    while (read(pipeEnds[0], &byte, 1) == 1) {
    }
    emit received(this);
  });

  struct sigaction action = {};
  action.sa_handler = writeToPipe;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  struct sigaction hangup = {};
  sigaction(SIGHUP, nullptr, &hangup);
  if (hangup.sa_handler != SIG_IGN) {
    sigaction(SIGHUP, &action, nullptr);
  }
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, nullptr);
}
