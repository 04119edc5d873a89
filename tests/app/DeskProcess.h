// The application as a separate process, operated by the test through orders.
#ifndef TESTS_APP_DESKPROCESS_H
#define TESTS_APP_DESKPROCESS_H

#include <QProcess>
#include <functional>
#include <string>

class DeskProcess {
 public:
  // Starts the application and waits until its window is shown. `prepare` runs in the new process
  // before the application starts; SIGHUP is not ignored there.
  explicit DeskProcess(
      const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment(),
      const std::function<void()>& prepare = [] {});

  // Kills the process if it is still running.
  ~DeskProcess();

  // Sends an order (listed in VirtualDesk.cpp) and returns the answer, or "no answer" if the
  // process ends instead.
  std::string order(const std::string& line);

  // Plugs the USB pad, presses Open and waits until it is open. Returns its port.
  std::string openPad();
  // Writes the line from a quarter to three quarters of the width, in the middle of the height, and
  // waits until it is in the view.
  void writeLine(const std::string& port);
  // Both.
  std::string connectPad();

  // Waits for a line on standard output and returns it, including its line feed.
  std::string printedLine();

  // Whether the process is running.
  bool running() const;

  // Sends the process a signal.
  void signal(int number);

  // Sends the process a signal repeatedly.
  void signalUntilItEnds(int number);

  struct End {
    bool crashed;          // by a signal
    int status;            // the exit status, or the signal
    std::string printed;   // standard output that printedLine has not returned
    std::string lastSaid;  // the last line on standard error
  };
  // Waits until the process has ended.
  End end();
  // Waits for an end with status 0, nothing more on standard output, and this state of the pads.
  void expectQuietEnd(const std::string& left);

 private:
  std::string answer();

  QProcess m_process;
  std::string m_lastSaid;
};

#endif
