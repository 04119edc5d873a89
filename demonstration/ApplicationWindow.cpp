#include "ApplicationWindow.h"

namespace demonstration {

namespace {

template <typename Widget>
Widget& named(QWidget& window, const char* name) {
  auto* widget = window.findChild<Widget*>(name);
  if (widget == nullptr) qFatal("the application's window has no %s", name);
  return *widget;
}

}  // namespace

ApplicationWindow::ApplicationWindow(DrawView& drawView)
    : window(*drawView.window()),
      providers(named<QComboBox>(window, "m_prolist")),
      open(named<QPushButton>(window, "m_OpenButton")),
      clear(named<QPushButton>(window, "m_ClearButton")),
      reset(named<QPushButton>(window, "m_ResetButton")),
      view(drawView) {}

}  // namespace demonstration
