/* VelaWrap.h as a C program sees it: it compiles as C11 and every function has C linkage and the
 * type that a C caller expects. */
#include "VelaWrap.h"

#include <stddef.h>

static void handler(int32_t x, int32_t y, int32_t pressure, uint8_t touch, uint32_t timestamp,
                    uint32_t sequenceNumber) {
  (void)x, (void)y, (void)pressure, (void)touch, (void)timestamp, (void)sequenceNumber;
}

#define REQUIRE(condition) \
  if (!(condition)) return __LINE__

/* Calls every function of the interface with no provider open; 0, or the line of what went wrong.
 */
int callAllFromC(void);

int callAllFromC(void) {
  char classid[] = "7FCD";
  void* vela = newgIIVela();
  short number = GetNumProviders(vela);
  REQUIRE(number == 4);
  REQUIRE(GetProviderClassID(vela, 0)[0] == '7');
  REQUIRE(GetProviderDescription(vela, 0)[0] == 'V');
  SetProviderDescription(vela, classid, classid);
  REQUIRE(GetNumDevices(vela) == 0);
  REQUIRE(GetSerialNumber(vela) == NULL);
  REQUIRE(GetDataRangeMinX(vela) == 0);
  REQUIRE(GetDataRangeMinY(vela) == 0);
  REQUIRE(GetDataRangeMinZ(vela) == 0);
  REQUIRE(GetDataRangeMaxX(vela) == 0);
  REQUIRE(GetDataRangeMaxY(vela) == 0);
  REQUIRE(GetDataRangeMaxZ(vela) == 0);
  REQUIRE(GetPhysicalX(vela) == 0.0);
  REQUIRE(GetPhysicalY(vela) == 0.0);
  REQUIRE(!ClearInking(vela));
  REQUIRE(RegisterEventHandler(vela, handler));
  REQUIRE(!OpenConnection(vela));
  CloseConnection(vela);
  REQUIRE(OpenProvider(vela, classid));
  CloseProvider(vela);
  deletegIIVela(vela);
  return 0;
}
