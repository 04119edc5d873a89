// The unplug storm: the pad is unplugged repeatedly while the pen moves and the client's thread
// makes one call after another.
//
// kernel-storm ROUNDS USB_ROUNDS: that many rounds for each pad, on uhid, and on the USB with each
// of hidapi's backends. The kernel takes half a second to configure a USB device.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <tuple>

#include "Client.h"
#include "MovingPen.h"
#include "TestPads.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kCloseLimit{4};
constexpr long kCallsWhileUnplugged = 10;
constexpr double kPercentUnplugged = 5;  // of a core, for the thread that tries to read

int roundsOnUhid = 0;
int roundsOnUsb = 0;

// The rounds of calls that the client has made since "hammer".
long progress(Client& client) {
  return std::stol(client.ask("progress"));
}

class StormTest : public ::testing::TestWithParam<std::tuple<std::size_t, Route>> {};

TEST_P(StormTest, ClientSurvives) {
  const TestPad& kind = kTestPads.at(std::get<0>(GetParam()));
  const Route route = std::get<1>(GetParam());
  const int rounds = route == Route::Uhid ? roundsOnUhid : roundsOnUsb;
  const auto pad = plugged(kind.kind, faceOf(route));
  const MovingPen pen([&](int n) { pad->send(kind.report(n)); });
  Client client(route);
  const auto start = Clock::now();
  auto longestClose = Clock::duration::zero();
  double percentUnplugged = 0;
  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    ASSERT_EQ(client.connect(kind), 1);
    client.waitForSamples(1, client.lineCount());
    client.ask("hammer");
    pad->unplug();
    for (const long before = progress(client); progress(client) < before + kCallsWhileUnplugged;) {
    }
    if (round == 0) {
      percentUnplugged = client.percentOfCore().others;
      EXPECT_LT(percentUnplugged, kPercentUnplugged);
    }
    const auto closing = Clock::now();
    client.disconnect();
    const auto taken = Clock::now() - closing;
    ASSERT_LT(taken, kCloseLimit);
    longestClose = std::max(longestClose, taken);
    replug(*pad);
  }
  client.endInput();
  EXPECT_EQ(client.wait(), EXIT_SUCCESS);
  const auto milliseconds = [](Clock::duration time) {
    return static_cast<long>(std::chrono::ceil<std::chrono::milliseconds>(time).count());
  };
  std::printf(
      "%s pad on %s: %d rounds in %ld ms, the longest close %ld ms, %.1f %% of a core unplugged\n",
      kind.name, nameOf(route), rounds, milliseconds(Clock::now() - start),
      milliseconds(longestClose), percentUnplugged);
}

INSTANTIATE_TEST_SUITE_P(Pads, StormTest, eachPadOn(routes()), nameOfPadOn<Route>);

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (argc == 3) {
    roundsOnUhid = std::atoi(argv[1]);
    roundsOnUsb = std::atoi(argv[2]);
  }
  if (roundsOnUhid < 1 || roundsOnUsb < 1) {
    std::fputs("usage: kernel-storm ROUNDS USB_ROUNDS\n", stderr);
    return EXIT_FAILURE;
  }
  return RUN_ALL_TESTS();
}
