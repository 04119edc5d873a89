// How the application stops when one of its own invariants is broken.
#ifndef TESTAPP_FATALERROR_H
#define TESTAPP_FATALERROR_H

#include <QString>

// Writes "fatal error: " and what is wrong as one line to standard error, then aborts the process.
// For any thread.
[[noreturn]] void FatalError(const QString& brokenInvariant);

#endif
