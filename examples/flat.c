/* The flat functions from C: prints the samples of the first attached pad until Enter is pressed.
 *
 *   cc flat.c $(pkg-config --cflags --libs velawrap) -o flat */
#include <stdio.h>

#include "VelaWrap.h"

/* Called on a thread of the SDK. */
static void showSample(int32_t x, int32_t y, int32_t pressure, uint8_t touch, uint32_t timestamp,
                       uint32_t sequenceNumber) {
  (void)timestamp;
  printf("%u: x %d y %d pressure %d %s\n", sequenceNumber, x, y, pressure, touch ? "down" : "up");
  fflush(stdout);
}

int main(void) {
  void* vela = newgIIVela();
  short attached = 0;
  for (short i = 0; i < GetNumProviders(vela) && attached == 0; ++i) {
    OpenProvider(vela, GetProviderClassID(vela, i));
    attached = GetNumDevices(vela);
    if (attached == 0) {
      CloseProvider(vela);
    } else {
      printf("%s, press Enter to end\n", GetProviderDescription(vela, i));
      fflush(stdout);
    }
  }
  if (attached > 0) {
    RegisterEventHandler(vela, showSample);
    OpenConnection(vela);
    getchar();
    CloseConnection(vela);
    CloseProvider(vela);
  } else {
    puts("No pad is attached.");
  }
  deletegIIVela(vela);
  return attached > 0 ? 0 : 1;
}
