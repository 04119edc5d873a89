// A pen sample as the SDK's callback gets it, without the time stamp.
#ifndef TESTS_SUPPORT_SAMPLE_H
#define TESTS_SUPPORT_SAMPLE_H

#include <ostream>

namespace support {

struct Sample {
  int x;
  int y;
  int pressure;
  int touch;
  unsigned sequence;
  bool operator==(const Sample&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Sample& sample) {
  return out << "{x " << sample.x << ", y " << sample.y << ", pressure " << sample.pressure
             << ", touch " << sample.touch << ", sequence " << sample.sequence << "}";
}

}  // namespace support

#endif
