/* Uses the flat functions from C. */
#include <VelaWrap.h>
#include <stdio.h>

int main(void) {
  void* vela = newgIIVela();
  short i;
  for (i = 0; i < GetNumProviders(vela); ++i) {
    OpenProvider(vela, GetProviderClassID(vela, i));
    printf("%s %d\n", GetProviderDescription(vela, i), GetNumDevices(vela));
    CloseProvider(vela);
  }
  deletegIIVela(vela);
  return 0;
}
