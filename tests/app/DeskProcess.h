// The application as a process of its own, with a person at its desk who does what the test says.
#ifndef TESTS_APP_DESKPROCESS_H
#define TESTS_APP_DESKPROCESS_H

#include <QProcess>
#include <functional>
#include <string>

class DeskProcess {
 public:
  // Starts the application and waits until its window is shown. `prepare` runs in the new process
  // before the application does; a hangup is not ignored there.
  explicit DeskProcess(
      const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment(),
      const std::function<void()>& prepare = [] {});

  // Kills it if it still runs.
  ~DeskProcess();

  // Gives an order (VirtualDesk.cpp lists them) and returns the answer; "no answer" when the
  // process ends instead.
  std::string order(const std::string& line);

  // Waits for a line on standard output, and returns it with its line feed.
  std::string printedLine();

  // Whether it runs.
  bool running() const;

  // Sends it a signal.
  void signal(int number);

  // Sends it a signal again and again.
  void signalUntilItEnds(int number);

  struct End {
    bool crashed;          // by a signal
    int status;            // the exit status, or the signal
    std::string printed;   // what was on standard output and not yet returned by printedLine
    std::string lastSaid;  // the last line on standard error
  };
  // Waits until it has ended.
  End end();

 private:
  std::string answer();

  QProcess m_process;
  std::string m_lastSaid;
};

#endif
