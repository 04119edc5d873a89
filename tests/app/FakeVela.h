// Flat functions that are linked in place of the SDK's. They log each call and return the values
// set by the test.
#ifndef TESTS_APP_FAKEVELA_H
#define TESTS_APP_FAKEVELA_H

#include <functional>
#include <string>
#include <vector>

#include "VelaWrap.h"

namespace fakevela {

struct Provider {
  const char* classid;
  const char* description;
};

// GUI thread only.
struct State {
  // The events in order; tests add their own.
  std::vector<std::string> log;

  std::vector<Provider> providers = {
      {"A0", "Vela USB"}, {"B1", "Vela II"}, {"C2", "Vela Ink"}, {"D3", "Vela Vision"}};
  short numProviders = 4;
  bool providerOpens = true;
  short numDevices = 1;
  bool connectionOpens = true;
  double physicalX = 3.685;
  double physicalY = 2.23;
  std::function<void()> onCloseConnection = [] {};

  PenEventHandler handler = nullptr;
  int handles = 0;  // created by newgIIVela
};

State& state();

// Restores the initial state.
void reset();

}  // namespace fakevela

#endif
