// Turns the application into its demonstration: once its window is on the screen, plugs the
// virtual pads and operates the window. The application itself is not changed.
#include <QApplication>
#include <QEvent>
#include <cstdio>
#include <iterator>
#include <memory>
#include <optional>

#include "ApplicationWindow.h"
#include "PadBeside.h"
#include "PadList.h"
#include "SigningPen.h"
#include "UnattendedRun.h"
#include "virtualpads/PadModel.h"

namespace demonstration {

namespace {

using virtualpads::PadKind;
using virtualpads::VirtualBus;
using virtualpads::WatchedPad;

class Demonstration : public QObject {
 public:
  using QObject::QObject;

 protected:
  // The window is on the screen when the drawing view is painted for the first time.
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
    std::vector<DemonstrationPad> pads;
    for (std::size_t row = 0; row < std::size(kPadList); ++row) {
      auto pad = std::make_shared<WatchedPad>(virtualpads::makePad(PadKind(row)));
      pads.push_back({VirtualBus::instance().plug(pad), pad});
    }
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() == 1) {
      m_pen = std::make_unique<SigningPen>(*m_window, pads);
      m_padBeside = std::make_unique<PadBeside>(*m_window, pads, [this] { m_pen->standBack(); });
      // No window may outlive the application object, but this object does.
      connect(qApp, &QCoreApplication::aboutToQuit, this, [this] { m_padBeside.reset(); });
      m_window->open.click();
    } else if (arguments.size() == 3 && arguments[1] == "--unattended") {
      QCoreApplication::exit(runUnattended(*m_window, pads, arguments[2]));
    } else {
      std::fputs("usage: vela-demonstration [--unattended DIRECTORY]\n", stderr);
      QCoreApplication::exit(2);
    }
  }

  std::optional<ApplicationWindow> m_window;
  std::unique_ptr<SigningPen> m_pen;
  std::unique_ptr<PadBeside> m_padBeside;
};

void prepare() {
  qApp->installEventFilter(new Demonstration(qApp));
}

Q_COREAPP_STARTUP_FUNCTION(prepare)

}  // namespace

}  // namespace demonstration
