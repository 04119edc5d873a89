/* The flat functions of the Vela pad SDK: one C function for each operation of the provider facade.
 * This header compiles as C11 and as C++. It is all that the application knows of the SDK.
 *
 * Every function but newgIIVela takes the handle that newgIIVela returned, and, deletegIIVela
 * aside, the handle must not be null. Call all of them on one and the same thread; the pen callback
 * alone runs on a thread of the SDK (see PenEventHandler.h). Nothing here throws or reports an
 * error text: a failure is the value named with each function.
 *
 * An open provider serves for one connection: before the next one, close and open it again. */
#ifndef TESTAPP_VELAWRAP_H
#define TESTAPP_VELAWRAP_H

#include <stdbool.h>

#include "PenEventHandler.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Makes a facade with its four providers and none open. Only one should be alive at a time, because
 * a new one forgets the pad that an earlier one has open. */
void* newgIIVela(void);

/* Destroys a facade. Neither the connection nor the provider is closed; close them first. Null is
 * ignored. */
void deletegIIVela(void* vela);

/* The number of providers: 4. */
short GetNumProviders(void* vela);

/* The class id of provider `index`, 32 upper-case hexadecimal digits, or null when index is not
 * 0 to 3. The text belongs to the facade. */
char* GetProviderClassID(void* vela, short index);

/* The display name of provider `index` as UTF-8, or null when index is not 0 to 3. The text belongs
 * to the facade. */
char* GetProviderDescription(void* vela, short index);

/* Does nothing: the provider table is fixed. */
void SetProviderDescription(void* vela, char* classid, char* description);

/* Opens the first provider whose class id begins with `classid` (not null and not written to; case
 * matters; the empty text opens provider 0). False when there is none. Close the open provider
 * first. */
bool OpenProvider(void* vela, char* classid);

/* Closes the open provider; does nothing when none is open. Close the connection first. */
void CloseProvider(void* vela);

/* Opens the pad and starts delivering its samples to the registered handler. False when no provider
 * is open or no handler is registered (one line on standard output then says so). True says nothing
 * about the pad: one that could not be opened also gives true, and then stays silent. SIGUSR1
 * stays blocked in the calling thread. */
bool OpenConnection(void* vela);

/* Stops the delivery and closes the pad; does nothing when no provider is open. Returns once the
 * pad has been quiet for a second, or at once when it is unplugged. After the return the handler is
 * not called any more. */
void CloseConnection(void* vela);

/* The number of attached pads of the open provider's kind; 0 when no provider is open. */
short GetNumDevices(void* vela);

/* The serial number of the open pad in memory that the caller releases with free. For the pad II
 * and the ink pad a hexadecimal text of up to 32 digits, which ends in 16 zeros when the pad is not
 * connected or its request fails, or null for a reply of no bytes; for the vision pad 16 raw bytes
 * with no terminator, or null when they cannot be read. Null for the USB pad, which has none. */
char* GetSerialNumber(void* vela);

/* The ends of the ranges in which the open pad reports x, y and pressure (z), in device units; 0
 * when no provider is open, or for the vision pad no connection. */
int GetDataRangeMinX(void* vela);
int GetDataRangeMinY(void* vela);
int GetDataRangeMinZ(void* vela);
int GetDataRangeMaxX(void* vela);
int GetDataRangeMaxY(void* vela);
int GetDataRangeMaxZ(void* vela);

/* The width and the height of the writing surface in inches, as the pad states them (so any double,
 * not-a-number and infinity included); 0.0 when no provider is open, and before a connection for
 * the pad II and the vision pad. */
double GetPhysicalX(void* vela);
double GetPhysicalY(void* vela);

/* Registers the handler that the next OpenConnection uses. False for null, which leaves an earlier
 * handler in place. */
bool RegisterEventHandler(void* vela, PenEventHandler handler);

/* Clears the ink that the pad itself shows. False when no provider is open, and for the vision pad
 * also without a connection or when it took no bytes; an error counts as success. True for a pad
 * that shows no ink. */
bool ClearInking(void* vela);

#ifdef __cplusplus
}
#endif

#endif
