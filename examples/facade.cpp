// The SDK from C++: prints the samples of a Vela USB pad until Enter is pressed.
//
//   c++ -std=c++20 facade.cpp $(pkg-config --cflags --libs gIIVela) -o facade
#include <cstdio>

#include "giivela.h"

// Called on a thread of the SDK.
static void showSample(int32_t x, int32_t y, int32_t pressure, uint8_t touch, uint32_t timestamp,
                       uint32_t sequenceNumber) {
  std::printf("%u at %u ms: %d %d, pressure %d, %s\n", sequenceNumber, timestamp, x, y, pressure,
              touch ? "down" : "up");
}

int main() {
  gIIVela vela;
  vela.OpenProvider(vela.GetProviderClassID(0));
  if (vela.GetNumDevices() < 1) {
    std::fprintf(stderr, "No %s is attached.\n", vela.GetProviderDescription(0));
    return 1;
  }
  vela.RegisterEventHandler(showSample);
  vela.OpenConnection();
  std::puts("Write on the pad; press Enter to end.");
  std::getchar();
  vela.CloseConnection();
  vela.CloseProvider();
}
