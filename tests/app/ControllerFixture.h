#ifndef TESTS_APP_CONTROLLERFIXTURE_H
#define TESTS_APP_CONTROLLERFIXTURE_H

#include <gmock/gmock.h>

#include <QEvent>
#include <optional>
#include <string>
#include <vector>

#include "FakeVela.h"
#include "MainWindowController.h"
#include "Queue.h"
#include "RecordingView.h"

// The last line that a process prints when it ends in a fatal error.
inline auto endsIn(const std::string& brokenInvariant) {
  return testing::EndsWith("fatal error: " + brokenInvariant + "\n");
}

// The global state as it is when the process starts.
class FreshApplication : public testing::Test {
 protected:
  FreshApplication() {
    fakevela::reset();
    gpadindex = 0;
    firstPoint = 0;
  }
  ~FreshApplication() override { m_mainWindowController = nullptr; }

  // Returns the log and clears it.
  static std::vector<std::string> takeLog() { return std::exchange(fakevela::state().log, {}); }
};

// A controller as it is after the application has started, with a recording view in place of the
// form's view. Changes of its buttons are logged.
class StartedController : public FreshApplication {
 protected:
  StartedController() {
    controller.emplace();
    controller->showWindow(nullptr);
    view = new RecordingView(controller->m_drawview->parentWidget());
    view->setGeometry(controller->m_drawview->geometry());
    controller->m_drawview = view;
    m_mainWindowController = &*controller;
    controller->initButtons();
    for (QPushButton* button : {controller->m_OpenButton.data(), controller->m_ClearButton.data(),
                                controller->m_ResetButton.data()})
      button->installEventFilter(&m_buttonLog);
    takeLog();
  }

  void open() {
    controller->OpenButton(nullptr);
    takeLog();
  }

  // "open", "clear" and "reset" for the buttons that are enabled, in this order.
  std::vector<std::string> enabledButtons() const {
    std::vector<std::string> enabled;
    if (controller->m_OpenButton->isEnabled()) enabled.emplace_back("open");
    if (controller->m_ClearButton->isEnabled()) enabled.emplace_back("clear");
    if (controller->m_ResetButton->isEnabled()) enabled.emplace_back("reset");
    return enabled;
  }

  std::optional<MainWindowController> controller;
  RecordingView* view;  // the window's

 private:
  class ButtonLog : public QObject {
   protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
      if (event->type() == QEvent::EnabledChange) {
        const bool enabled = static_cast<QWidget*>(watched)->isEnabled();
        fakevela::state().log.push_back(watched->objectName().toStdString() +
                                        (enabled ? " enabled" : " disabled"));
      }
      return false;
    }
  };
  ButtonLog m_buttonLog;
};

#endif
