// The output of vela-padinfo --watch. Whether it receives the events is tested in tests/kernel.
#include "PadWatch.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "Pads.h"

namespace {

constexpr int64_t kTime = 1'700'000'000'042;  // 2023-11-14 22:13:20.042 UTC

class PadWatchWordsTest : public testing::Test {
 protected:
  // Five hours and a half east of Greenwich.
  static void SetUpTestSuite() {
    setenv("TZ", "XXX-5:30", 1);
    tzset();
  }
};

TEST_F(PadWatchWordsTest, ShowTheLocalTimeAndWhatHappened) {
  EXPECT_EQ(eventText({PadEvent::Kind::Present, "Vela Ink", "/dev/hidraw3"}, kTime),
            "03:43:20.042  Vela Ink present at /dev/hidraw3");
  EXPECT_EQ(eventText({PadEvent::Kind::Attached, "Vela Ink", "/dev/hidraw3"}, kTime),
            "03:43:20.042  Vela Ink attached at /dev/hidraw3");
  EXPECT_EQ(eventText({PadEvent::Kind::Detached, "Vela USB", "/dev/hidraw0"}, kTime),
            "03:43:20.042  Vela USB detached from /dev/hidraw0");
}

TEST_F(PadWatchWordsTest, NameANodeThatMayNotBeOpened) {
  EXPECT_EQ(eventText({PadEvent::Kind::Attached, "Vela II", "/dev/hidraw3", false}, kTime),
            "03:43:20.042  Vela II attached at /dev/hidraw3, no permission to open it");
}

TEST_F(PadWatchWordsTest, AreAnObjectInJson) {
  EXPECT_EQ(eventJson({PadEvent::Kind::Present, "Vela Ink", "/dev/hidraw3"}, kTime),
            R"({"time": 1700000000.042, "name": "Vela Ink", "event": "present", )"
            R"("node": "/dev/hidraw3", "may_be_opened": true})");
  EXPECT_EQ(eventJson({PadEvent::Kind::Attached, "Vela II", "/dev/hidraw3", false}, kTime),
            R"({"time": 1700000000.042, "name": "Vela II", "event": "attached", )"
            R"("node": "/dev/hidraw3", "may_be_opened": false})");
  EXPECT_EQ(eventJson({PadEvent::Kind::Detached, "Vela USB", "/dev/hidraw0"}, kTime),
            R"({"time": 1700000000.042, "name": "Vela USB", "event": "detached", )"
            R"("node": "/dev/hidraw0"})");
}

TEST(ProviderOfTest, KnowsThePadsAndNobodyElse) {
  EXPECT_EQ(providerOf("0003:04DF:0012.0001"), 0);
  EXPECT_EQ(providerOf("0003:04DF:001F.000A"), 1);
  EXPECT_EQ(providerOf("0003:04DF:0030.0123"), 2);
  EXPECT_EQ(providerOf("0003:04DF:0038.0001"), 3);
  EXPECT_EQ(providerOf("0003:04DF:0020.0001"), std::nullopt);
  EXPECT_EQ(providerOf("0003:1234:0012.0001"), std::nullopt);
  EXPECT_EQ(providerOf("0005:04DF:0012.0001"), std::nullopt);
  EXPECT_EQ(providerOf(""), std::nullopt);
}

}  // namespace
