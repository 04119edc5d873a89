#include "FatalError.h"

#include <cstdio>
#include <cstdlib>

void FatalError(const QString& brokenInvariant) {
  std::fprintf(stderr, "fatal error: %s\n", brokenInvariant.toUtf8().constData());
  std::abort();
}
