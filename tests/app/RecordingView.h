#ifndef TESTS_APP_RECORDINGVIEW_H
#define TESTS_APP_RECORDINGVIEW_H

#include <functional>
#include <string>

#include "DrawView.h"
#include "FakeVela.h"

// A drawing view that logs its calls among those of the flat functions.
class RecordingView : public DrawView {
 public:
  using DrawView::DrawView;

  // Called at the beginning of each SetMoveTo.
  std::function<void()> onMoveTo = [] {};

  void setNeedsDisplay(bool needed) override {
    note(needed ? "setNeedsDisplay true" : "setNeedsDisplay false");
    DrawView::setNeedsDisplay(needed);
  }
  void ClearContext() override {
    note("ClearContext");
    DrawView::ClearContext();
  }
  void SetMoveTo(std::int32_t x, std::int32_t ypos) override {
    onMoveTo();
    note("SetMoveTo " + std::to_string(x) + " " + std::to_string(ypos));
    DrawView::SetMoveTo(x, ypos);
  }
  void SetLineTo(std::int32_t x, std::int32_t ypos) override {
    note("SetLineTo " + std::to_string(x) + " " + std::to_string(ypos));
    DrawView::SetLineTo(x, ypos);
  }
  void resize(double w, double height) override {
    note("resize " + std::to_string(w) + " " + std::to_string(height));
    DrawView::resize(w, height);
  }

 private:
  static void note(const std::string& call) { fakevela::state().log.push_back(call); }
};

#endif
