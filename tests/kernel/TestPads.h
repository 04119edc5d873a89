// The pads as the kernel tests use them.
#ifndef TESTS_KERNEL_TESTPADS_H
#define TESTS_KERNEL_TESTPADS_H

#include <array>
#include <cstdint>
#include <memory>
#include <ostream>

#include "virtualpads/kernel/UhidPad.h"

// A pen sample as the SDK's callback gets it, without its time.
struct Sample {
  int x;
  int y;
  int pressure;
  int touch;
  unsigned sequence;
  bool operator==(const Sample&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Sample& sample);

struct TestPad {
  const char* name;
  int provider;
  virtualpads::PadKind kind;
  // The n-th report of a pen that stays down, n from 0 to 999, and the resulting sample if it is
  // the n-th one that the program gets.
  virtualpads::Bytes (*report)(int n);
  Sample (*sample)(int n);
};

// In the order of the providers.
extern const std::array<TestPad, 4> kTestPads;

// How far a test may send ahead of the reading program. The kernel queues 63 unread reports and
// drops further ones.
constexpr int kUnreadReports = 48;

// A feature request.
struct Request {
  virtualpads::FeatureCall call;
  std::uint8_t reportId;
};

// Unplugs the pad when it gets the request, which is not answered.
void unplugAt(virtualpads::UhidPad& pad, Request request);

// A pad of the same vendor that the SDK has no driver for.
std::shared_ptr<virtualpads::PadModel> makeOtherPad();

// Plugs in a pad and returns when it has its node. Throws std::runtime_error if it gets none.
std::unique_ptr<virtualpads::UhidPad> plugged(std::shared_ptr<virtualpads::PadModel> model);
std::unique_ptr<virtualpads::UhidPad> plugged(virtualpads::PadKind kind);
// The same for a pad that was unplugged.
void replug(virtualpads::UhidPad& pad);

#endif
