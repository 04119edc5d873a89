// How the application stops when one of its own invariants is broken.
#ifndef TESTAPP_FATALERROR_H
#define TESTAPP_FATALERROR_H

#include <QString>

// Prints "fatal error: " and the broken invariant as one line to standard error, then aborts the
// process. Any thread.
[[noreturn]] void FatalError(const QString& brokenInvariant);

#endif
