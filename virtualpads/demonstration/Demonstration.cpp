// What turns the application into its demonstration: once its window is on the screen, the four
// virtual pads are plugged and somebody works it. The application itself is not changed in any way.
#include <QApplication>
#include <QEvent>
#include <cstdio>
#include <memory>
#include <optional>

#include "ApplicationWindow.h"
#include "SigningPen.h"
#include "UnattendedRun.h"
#include "virtualpads/PadModel.h"

namespace demonstration {

namespace {

using virtualpads::PadKind;
using virtualpads::VirtualBus;

class Demonstration : public QObject {
 public:
  using QObject::QObject;

 protected:
  // The first paint of the drawing view tells that the window is shown.
  bool eventFilter(QObject* watched, QEvent* event) override {
    auto* view = event->type() == QEvent::Paint ? qobject_cast<DrawView*>(watched) : nullptr;
    if (view != nullptr) {
      qApp->removeEventFilter(this);
      QMetaObject::invokeMethod(
          this, [this, view] { begin(*view); }, Qt::QueuedConnection);
    }
    return false;
  }

 private:
  void begin(DrawView& view) {
    m_window.emplace(view);
    std::vector<VirtualBus::Port> ports;
    for (auto kind : {PadKind::Usb, PadKind::Ii, PadKind::Ink, PadKind::Vision}) {
      ports.push_back(VirtualBus::instance().plug(virtualpads::makePad(kind)));
    }
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() == 1) {
      m_pen = std::make_unique<SigningPen>(*m_window, std::move(ports));
      m_window->open.click();
    } else if (arguments.size() == 3 && arguments[1] == "--unattended") {
      QCoreApplication::exit(runUnattended(*m_window, ports, arguments[2]));
    } else {
      std::fputs("usage: vela-demonstration [--unattended DIRECTORY]\n", stderr);
      QCoreApplication::exit(2);
    }
  }

  std::optional<ApplicationWindow> m_window;
  std::unique_ptr<SigningPen> m_pen;
};

void prepare() {
  qApp->installEventFilter(new Demonstration(qApp));
}

Q_COREAPP_STARTUP_FUNCTION(prepare)

}  // namespace

}  // namespace demonstration
