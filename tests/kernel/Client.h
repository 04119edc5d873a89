// Controls the small client of the SDK (SdkClient.cpp).
#ifndef TESTS_KERNEL_CLIENT_H
#define TESTS_KERNEL_CLIENT_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Program.h"
#include "TestPads.h"

class Client : public Program {
 public:
  struct Received {
    Sample sample;
    std::int64_t nanoseconds;  // of the monotonic clock, when the callback was called
  };

  // Shares of a core, in percent.
  struct Load {
    double processing;  // of the thread of the callbacks, which polls its queue
    double others;      // of the SDK's other threads together
  };

  // On the route Libusb, the client's hidapi is hidapi-libusb.
  explicit Client(Route route = Route::Uhid, bool unprivileged = false);

  // Opens the pad's provider and its connection. Returns the number of pads that the provider
  // reports.
  int connect(const TestPad& pad);
  // Closes both.
  void disconnect();

  // All samples so far.
  std::vector<Received> received() const;
  // Waits for that many samples, looking from line number `from` on, and returns the number of the
  // line after the last of them. Throws std::runtime_error if they do not arrive.
  std::size_t waitForSamples(int count, std::size_t from) const;

  // The processor time that the connection uses after the first sample. This is the least of three
  // measurements, because other load on the machine adds to them.
  Load percentOfCore();

  // Sends reports number `first` to `first` + `count` - 1, never more at a time than the kernel
  // queues, and returns when the client has received as many samples. Throws std::runtime_error if
  // they do not arrive.
  void write(virtualpads::KernelPad& pad, const TestPad& kind, int first, int count) const;
};

#endif
