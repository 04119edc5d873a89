// SharedQueue: a pad kind's queue is released under nobody's hands.
#include "SharedQueue.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <utility>

#include "support/Patience.h"
#include "support/ProcessState.h"

namespace {

using support::comesTrue;

std::atomic<int> destroyed{0};

struct Countable {
  explicit Countable(int number) : m_number(number) {}
  ~Countable() { ++destroyed; }
  Countable(const Countable&) = delete;
  Countable& operator=(const Countable&) = delete;
  int m_number;
};

class SharedQueueTest : public testing::Test {
 protected:
  SharedQueueTest() { destroyed = 0; }
  ~SharedQueueTest() override { shared.release(); }

  // Releases on a thread of its own and returns once that waits, or is through.
  std::thread release() {
    m_released = false;
    std::atomic<pid_t> id{0};
    std::thread thread([this, &id] {
      id = gettid();
      shared.release();
      m_released = true;
    });
    EXPECT_TRUE(
        comesTrue([&] { return m_released || (!exists() && id != 0 && support::sleeps(id)); }));
    return thread;
  }

  bool exists() { return static_cast<bool>(shared); }

  SharedQueue<Countable> shared;
  std::atomic<bool> m_released{false};
};

TEST_F(SharedQueueTest, IsNullAtFirst) {
  EXPECT_FALSE(exists());
  EXPECT_FALSE(shared.lease());
}

TEST_F(SharedQueueTest, CreatesTheQueueOnce) {
  shared.createIfNull(1);
  EXPECT_TRUE(exists());
  shared.createIfNull(2);
  EXPECT_EQ(shared.lease()->m_number, 1);
  EXPECT_EQ(destroyed, 0);
}

TEST_F(SharedQueueTest, ReleasesAQueueThatNobodyUses) {
  shared.createIfNull(1);
  { const auto lease = shared.lease(); }
  shared.release();
  EXPECT_FALSE(exists());
  EXPECT_EQ(destroyed, 1);
  shared.release();
  EXPECT_EQ(destroyed, 1);
}

TEST_F(SharedQueueTest, ReleaseWaitsForEveryLease) {
  shared.createIfNull(1);
  auto first = shared.lease();
  auto second = shared.lease();
  std::thread releasing = release();
  EXPECT_FALSE(exists());
  EXPECT_FALSE(shared.lease());
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(first->m_number, 1);

  { const auto givenBack = std::move(first); }
  EXPECT_FALSE(m_released);
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(second->m_number, 1);

  second = {};
  releasing.join();
  EXPECT_EQ(destroyed, 1);
}

TEST_F(SharedQueueTest, ANewQueueIsCreatedWhileTheOldOneIsReleased) {
  shared.createIfNull(1);
  auto old = shared.lease();
  std::thread releasing = release();
  shared.createIfNull(2);
  EXPECT_EQ(shared.lease()->m_number, 2);
  EXPECT_EQ(old->m_number, 1);
  old = {};
  releasing.join();
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(shared.lease()->m_number, 2);
}

TEST_F(SharedQueueTest, AMovedLeaseIsGivenBackOnce) {
  shared.createIfNull(1);
  auto first = shared.lease();
  auto second = std::move(first);
  EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): empty by definition
  EXPECT_TRUE(second);
  first = std::move(second);
  EXPECT_TRUE(first);
  first = {};
  shared.release();
  EXPECT_EQ(destroyed, 1);
}

}  // namespace
