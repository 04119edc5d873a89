// The application's window as the person at the desk has it: a list, three buttons and the drawing
// view. All is found by the widgets' object names, so the application knows nothing of it.
#ifndef VIRTUALPADS_DEMONSTRATION_APPLICATIONWINDOW_H
#define VIRTUALPADS_DEMONSTRATION_APPLICATIONWINDOW_H

#include <QComboBox>
#include <QPushButton>

#include "DrawView.h"

namespace demonstration {

// For the GUI thread.
struct ApplicationWindow {
  // Looks at the window that the drawing view is in.
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
