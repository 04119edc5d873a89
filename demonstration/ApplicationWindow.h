// The application's window as its user sees it: a list, three buttons and the drawing view. They
// are found by the widgets' object names, so the application knows nothing of it.
#ifndef DEMONSTRATION_APPLICATIONWINDOW_H
#define DEMONSTRATION_APPLICATIONWINDOW_H

#include <QComboBox>
#include <QPushButton>

#include "DrawView.h"

namespace demonstration {

// GUI thread only.
struct ApplicationWindow {
  // Finds them in the window of the drawing view.
  explicit ApplicationWindow(DrawView& drawView);

  QWidget& window;
  QComboBox& providers;
  QPushButton& open;
  QPushButton& clear;
  QPushButton& reset;
  DrawView& view;
};

}  // namespace demonstration

#endif
