/* The pen callback of the Vela pad SDK. Plain C, so that both the C++ classes and the flat
 * functions can speak of it. */
#ifndef GIIVELA_PENEVENTHANDLER_H
#define GIIVELA_PENEVENTHANDLER_H

#include <stdint.h>

/* Called once for every pen sample, in the order in which the pad sent them.
 *
 * - x, y: position in device units; the ranges are what GetDataRanges reports
 * - pressure: pen pressure in device units, 0 upward
 * - touch: 1 while the pen touches the pad, 0 when it does not
 * - timestamp: milliseconds, wrapping at 2^32: the wall clock at delivery for the USB pad, the pad
 * II and the ink pad, the pad's own clock for the vision pad
 * - sequenceNumber: the sample's number, cycling as the pad's kind defines
 *
 * Thread: the SDK's processing thread of the open connection, never the thread that opened it. The
 * callback may take its time; samples wait for it in an unbounded queue. It must not throw, and it
 * must not close the connection it is called from. */
typedef void (*PenEventHandler)(int32_t x, int32_t y, int32_t pressure, uint8_t touch,
                                uint32_t timestamp, uint32_t sequenceNumber);

#endif
