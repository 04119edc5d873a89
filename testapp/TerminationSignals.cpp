#include "TerminationSignals.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <atomic>
#include <cerrno>
#include <csignal>

#include "FatalError.h"

namespace {

// The first signal wakes the event loop through this pipe: a signal handler can do little more than
// write. The pipe stays open until the process ends, since a signal may arrive at any time.
int pipeEnds[2];

// When the first signal arrived, in seconds of the monotonic clock.
constexpr time_t kNever = -1;
std::atomic<time_t> firstSignal = kNever;
static_assert(decltype(firstSignal)::is_always_lock_free);

// Deliberate: a hangup within this many seconds of the first signal is not a second request. A
// terminal that is closed sends more than one, and a session that ends sends one after SIGTERM.
constexpr time_t kHangupsTogether = 1;

extern "C" void onSignal(int number) {
  const int savedError = errno;
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  time_t first = kNever;
  if (firstSignal.compare_exchange_strong(first, now.tv_sec)) {
    [[maybe_unused]] const auto written = write(pipeEnds[1], "", 1);
  } else if (number != SIGHUP || now.tv_sec - first > kHangupsTogether) {
    signal(number, SIG_DFL);
    raise(number);  // takes effect when the handler returns
  }
  errno = savedError;
}

}  // namespace

TerminationSignals::TerminationSignals(QObject* parent) : QObject(parent) {
  if (pipe(pipeEnds) != 0) FatalError(QStringLiteral("no pipe for the termination signals"));
  for (const int end : pipeEnds) fcntl(end, F_SETFD, FD_CLOEXEC);
  firstSignal = kNever;

  auto* notifier = new QSocketNotifier(pipeEnds[0], QSocketNotifier::Read, this);
  connect(notifier, &QSocketNotifier::activated, this, [this, notifier] {
    notifier->setEnabled(false);
    emit received(this);
  });

  struct sigaction action = {};
  action.sa_handler = onSignal;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  struct sigaction hangup = {};
  sigaction(SIGHUP, nullptr, &hangup);
  if (hangup.sa_handler != SIG_IGN) sigaction(SIGHUP, &action, nullptr);
  action.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &action, nullptr);
}
