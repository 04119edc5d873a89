/* The pen callback of the Vela pad SDK. Plain C, so that both the C++ classes and the flat
 * functions can speak of it. */
#ifndef GIIVELA_PENEVENTHANDLER_H
#define GIIVELA_PENEVENTHANDLER_H

#include <stdint.h>

/* Called once for every pen sample, in the order in which the pad sent them.
 *
 * - x, y: position in device units, y downward; GetDataRangeMinX and its like tell the ranges
 * - pressure: pen pressure in device units, 0 upward
 * - touch: 1 while the pen touches the pad, 0 when it does not
 * - timestamp: for the USB pad, the pad II and the ink pad the wall clock at delivery in
 * milliseconds, wrapping at 2^32; for the vision pad the pad's own clock, in the pad's unit
 * - sequenceNumber: the sample's number: 1 to 127 and again from 1 for the USB pad and the pad II,
 * 1 to 255, 0, 1 and so on for the vision pad, both counted on over all connections of the process;
 * for the ink pad 0 to 255 as the pad gives it
 *
 * Thread: the SDK's processing thread of the open connection, never the thread that opened it. The
 * callback may take its time; samples wait for it in an unbounded queue. It must not throw, and it
 * calls no operation of the SDK: those belong to the client's thread. */
typedef void (*PenEventHandler)(int32_t x, int32_t y, int32_t pressure, uint8_t touch,
                                uint32_t timestamp, uint32_t sequenceNumber);

#endif
