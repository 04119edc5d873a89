// Linked with only the application's own main and the virtual pads, this makes the application take
// orders on standard input: what a user would do to the pads and the window. Each order is a line.
// The answer is a line on standard error: "desk: " and the requested value, or "desk: done". When
// the process ends, it reports the state of pads and providers.
//
//   plug KIND            0 to 3 in the order of the provider list; answers the port
//   choose ROW           in the provider list
//   click NAME           the button of that object name
//   pen PORT X Y TOUCH   X and Y from 0 to 1, TOUCH 0 or 1
//   keep-moving PORT     a pen moves there until SIGUSR2; and pads seem quiet as late as real ones
//   wait-points N        until the view has N points
//   wait-enabled NAME    until that widget is enabled
//   where NAME           answers the widget's middle on the screen, in device pixels
//   window               answers the window's id for the window system
//   providers            answers how many providers are open
//   close                the window
//   quit                 by the menu
#include <unistd.h>

#include <QAction>
#include <QApplication>
#include <QPushButton>
#include <QSocketNotifier>
#include <QTextStream>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "DrawView.h"
#include "MainWindowController.h"
#include "giivela.h"
#include "virtualpads/PadModel.h"
#include "virtualpads/hidapi/VirtualBus.h"

namespace {

using virtualpads::HidCall;
using virtualpads::VirtualBus;

std::atomic<bool> penIsLifted = false;

void answer(const QString& text) {
  std::fprintf(stderr, "desk: %s\n", qPrintable(text));
}

int openProviders() {
  return (m_pvelausb != nullptr) + (m_pvelaii != nullptr) + (m_pvelaink != nullptr) +
         (m_pvelavision != nullptr);
}

void reportWhatIsLeft() {
  const VirtualBus& bus = VirtualBus::instance();
  answer(QStringLiteral("opened %1, closed %2, open %3, providers %4")
             .arg(bus.count(HidCall::Open))
             .arg(bus.count(HidCall::Close))
             .arg(bus.openHandles())
             .arg(openProviders()));
}

// Executes the orders once the window is on the screen.
class Desk : public QObject {
 public:
  using QObject::QObject;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override {
    if (event->type() == QEvent::Paint && qobject_cast<DrawView*>(watched) != nullptr) {
      qApp->removeEventFilter(this);
      auto* orders = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
      connect(orders, &QSocketNotifier::activated, this, &Desk::takeOrders);
      answer(QStringLiteral("open"));
    }
    return false;
  }

 private:
  void takeOrders() {
    if (QApplication::overrideCursor() != nullptr) return;  // busy; the orders are kept until later
    char bytes[256];
    const auto length = read(STDIN_FILENO, bytes, sizeof bytes);
    m_orders.append(bytes, length > 0 ? static_cast<int>(length) : 0);
    for (auto end = m_orders.indexOf('\n'); end >= 0; end = m_orders.indexOf('\n')) {
      QString line = QString::fromUtf8(m_orders.left(end));
      m_orders.remove(0, end + 1);
      QTextStream order(&line);
      answer(obey(order));
    }
  }

  static QWidget* named(QTextStream& order) {
    QString name;
    order >> name;
    for (QWidget* widget : QApplication::allWidgets())
      if (widget->objectName() == name) return widget;
    qFatal("the application's window has no %s", qPrintable(name));
  }

  static DrawView& view() { return *m_mainWindowController.load()->m_drawview; }

  static QString obey(QTextStream& order) {
    VirtualBus& bus = VirtualBus::instance();
    QString verb;
    order >> verb;
    if (verb == "plug") {
      int kind;
      order >> kind;
      return QString::number(bus.plug(virtualpads::makePad(virtualpads::PadKind{kind})));
    }
    if (verb == "choose") {
      int row;
      order >> row;
      m_mainWindowController.load()->m_prolist->setCurrentIndex(row);
    } else if (verb == "click") {
      qobject_cast<QPushButton*>(named(order))->click();
    } else if (verb == "pen") {
      VirtualBus::Port port;
      virtualpads::PenState pen;
      int touch;
      order >> port >> pen.x >> pen.y >> touch;
      pen.touch = touch != 0;
      bus.sendPen(port, pen);
    } else if (verb == "keep-moving") {
      VirtualBus::Port port;
      order >> port;
      bus.setReadTimeout(std::chrono::seconds(1));
      std::signal(SIGUSR2, [](int) { penIsLifted = true; });
      std::thread([&bus, port] {
        for (double x = 0.25; !penIsLifted; x = 1 - x) {
          bus.sendPen(port, {.x = x, .y = 0.5, .pressure = 0.5, .touch = true});
          std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
      }).detach();
    } else if (verb == "wait-points") {
      int points;
      order >> points;
      while (view().path().elementCount() != points)
        QApplication::processEvents(QEventLoop::WaitForMoreEvents);
    } else if (verb == "wait-enabled") {
      const QWidget* widget = named(order);
      while (!widget->isEnabled()) QApplication::processEvents(QEventLoop::WaitForMoreEvents);
    } else if (verb == "where") {
      const QWidget* widget = named(order);
      const QPointF middle =
          QPointF(widget->mapToGlobal(widget->rect().center())) * widget->devicePixelRatioF();
      return QStringLiteral("%1 %2").arg(qRound(middle.x())).arg(qRound(middle.y()));
    } else if (verb == "window") {
      return QString::number(view().window()->winId());
    } else if (verb == "providers") {
      return QString::number(openProviders());
    } else if (verb == "close") {
      view().window()->close();
    } else if (verb == "quit") {
      view().window()->findChild<QAction*>("quit")->trigger();
    } else {
      return QStringLiteral("no such order: ") + verb;
    }
    return QStringLiteral("done");
  }

  QByteArray m_orders;
};

void openDesk() {
  // Created before the registration below, so that it still exists at that time. Here pads seem
  // quiet sooner.
  VirtualBus::instance().setReadTimeout(std::chrono::milliseconds(10));
  std::atexit(reportWhatIsLeft);
  qApp->installEventFilter(new Desk(qApp));
}

}  // namespace

Q_COREAPP_STARTUP_FUNCTION(openDesk)
