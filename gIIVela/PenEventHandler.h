/** \file
 * The pen callback of the Vela pad SDK, in plain C for both the C++ classes and the flat functions.
 */
#ifndef GIIVELA_PENEVENTHANDLER_H
#define GIIVELA_PENEVENTHANDLER_H

#include <stdint.h>

/** Called once for every pen sample, in the order in which the pad sent them.
 *
 * - x, y: the position in device units, y downward; see GetDataRangeMinX and its siblings
 * - pressure: the pen pressure in device units, from 0
 * - touch: 1 while the pen touches the pad, else 0
 * - timestamp: for the vision pad its own clock, in its own unit; for the other pads the wall clock
 *   at delivery in milliseconds, modulo 2^32
 * - sequenceNumber: for the ink pad 0 to 255 as the pad sends it; for the others a count over all
 *   connections of the process: 1 to 127 and again from 1 for the USB pad and the pad II, 1 to 255
 *   and again from 0 for the vision pad
 *
 * Thread: the SDK's processing thread of the open connection, never the thread that opened it. The
 * callback may take its time; samples wait for it in an unbounded queue. It must not throw, and
 * must not call the SDK, whose operations belong to the client's thread. */
typedef void (*PenEventHandler)(int32_t x, int32_t y, int32_t pressure, uint8_t touch,
                                uint32_t timestamp, uint32_t sequenceNumber);

#endif
