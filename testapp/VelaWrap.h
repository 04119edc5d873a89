/** \file
 * The flat functions of the Vela pad SDK: one C function for each operation of the provider facade.
 * This header compiles as C11 and as C++. It is all that the application knows of the SDK.
 *
 * Every function except newgIIVela takes the handle that newgIIVela returned. It must not be null,
 * except for deletegIIVela. Call all functions on one and the same thread; only the pen callback
 * runs on a thread of the SDK (see PenEventHandler.h). A failure is the value given for each
 * function; there are no error texts. Only an allocation can throw a C++ exception.
 *
 * An open provider serves for one connection: close it and open it again before the next one. */
#ifndef TESTAPP_VELAWRAP_H
#define TESTAPP_VELAWRAP_H

#include <stdbool.h>

#include "PenEventHandler.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Creates a facade with its four providers, none open. Only one should be alive at a time: a new
 * one forgets the pad that an earlier one has open. */
void* newgIIVela(void);

/** Destroys a facade. Neither the connection nor the provider is closed; close them first. Null is
 * ignored. */
void deletegIIVela(void* vela);

/** The number of providers: 4. */
short GetNumProviders(void* vela);

/** The class id of provider `index`, 0 to 3: 32 upper-case hexadecimal digits; null for other
 * indexes. The facade owns the text. */
char* GetProviderClassID(void* vela, short index);

/** The display name of provider `index`, 0 to 3, in UTF-8; null for other indexes. The facade owns
 * the text. */
char* GetProviderDescription(void* vela, short index);

/** Does nothing: the provider table is fixed. */
void SetProviderDescription(void* vela, char* classid, char* description);

/** Opens the first provider whose class id begins with `classid`: a shortened id is enough, and the
 * empty text opens provider 0. Case matters. The text must not be null; it is not written to. False
 * when no id matches. Close the open provider first. */
bool OpenProvider(void* vela, char* classid);

/** Closes the open provider, if there is one. Close the connection first. */
void CloseProvider(void* vela);

/** Opens the pad and starts delivering its samples to the registered handler. False when no
 * provider is open and, after a line on standard output, when no handler is registered. Deliberate:
 * true in all other cases, also when the pad could not be opened; then no samples come. SIGUSR1
 * stays blocked in the calling thread. */
bool OpenConnection(void* vela);

/** Ends the delivery and closes the pad, if a provider is open. Returns once the pad has been quiet
 * for a second, or at once when it is unplugged; the handler is not called any more then. */
void CloseConnection(void* vela);

/** The number of attached pads of the open provider's kind; 0 when no provider is open. */
short GetNumDevices(void* vela);

/** The serial number of the open pad, in memory that the caller releases with free. For the pad II
 * and the ink pad: a hexadecimal text of up to 32 digits, which ends in 16 zeros when the pad is
 * not connected or the request fails; null for a reply of no bytes. For the vision pad: 16 raw
 * bytes without a terminator; null when they cannot be read. For the USB pad, which has none: null.
 */
char* GetSerialNumber(void* vela);

/** @{ */
/** One end of the range in which the open pad reports x, y or pressure (z), in device units; 0 when
 * no provider is open and, for the vision pad, without a connection. */
int GetDataRangeMinX(void* vela);
int GetDataRangeMinY(void* vela);
int GetDataRangeMinZ(void* vela);
int GetDataRangeMaxX(void* vela);
int GetDataRangeMaxY(void* vela);
int GetDataRangeMaxZ(void* vela);
/** @} */

/** The width of the writing surface in inches as the pad states it, which may be any double,
 * infinity and not-a-number included; 0.0 when no provider is open and, for the pad II and the
 * vision pad, before a connection. */
double GetPhysicalX(void* vela);

/** The height, likewise. */
double GetPhysicalY(void* vela);

/** Registers the handler that the next OpenConnection uses. False for null, which leaves an earlier
 * handler in place. */
bool RegisterEventHandler(void* vela, PenEventHandler handler);

/** Clears the ink that the pad shows. False when no provider is open and, for the vision pad,
 * without a connection or when it accepted no bytes. Deliberate: an error (-1) counts as success.
 * True for a pad that shows no ink. */
bool ClearInking(void* vela);

#ifdef __cplusplus
}
#endif

#endif
