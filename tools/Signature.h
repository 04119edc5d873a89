// A signature, and the formats in which vela-capture writes it.
#ifndef TOOLS_SIGNATURE_H
#define TOOLS_SIGNATURE_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

struct Sample {
  int32_t x, y, pressure;
  uint8_t touch;
  uint32_t timestamp, sequenceNumber;
};

// A range of device units, and the length on the pad that it represents.
struct Axis {
  int low = 0;
  int high = 0;
  double inches = 0;

  bool usable() const;
  double points(int value) const;  // 72 per inch
  double points() const;           // of the whole range
};

struct Signature {
  std::string pad;
  Axis x, y;
  int pressureLow = 0;
  int pressureHigh = 0;
  uint64_t start = 0;  // when the first sample came, in milliseconds since 1970
  std::vector<Sample> samples;

  // True when no sample touches the surface.
  bool empty() const;
};

// Writes the signature; false, with errno set, when that fails.
using Writer = bool (*)(const Signature&, std::FILE*);

// The writer for the format of the path's suffix, in upper or lower case; null for an unknown
// suffix.
Writer writerFor(const std::string& path);

// As a message lists them.
constexpr const char* kSuffixes = ".svg, .png, .inkml, .csv";

#endif
