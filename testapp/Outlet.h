#ifndef TESTAPP_OUTLET_H
#define TESTAPP_OUTLET_H

#include <QPointer>
#include <QString>

#include "FatalError.h"

// A weak reference to a widget of the window, empty before the window is loaded and after the
// widget is gone. Using it while it is empty is a fatal error.
template <typename Widget>
class Outlet : public QPointer<Widget> {
 public:
  // `name` is the outlet's name for the fatal error. It must be a literal.
  explicit Outlet(const char* name) : m_name(name) {}
  using QPointer<Widget>::operator=;

  Widget* operator->() const {
    Widget* widget = this->data();
    if (widget == nullptr)
      FatalError(QStringLiteral("the outlet %1 is empty").arg(QLatin1String(m_name)));
    return widget;
  }

 private:
  const char* m_name;
};

#endif
