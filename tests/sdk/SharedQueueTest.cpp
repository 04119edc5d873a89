// SharedQueue: a pad kind's queue is never released while in use.
#include "SharedQueue.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "support/Patience.h"
#include "support/ProcessState.h"

namespace {

using support::comesTrue;
using support::Event;

// A queue with a processing loop and an append that a test can block.
struct HeldQueue {
  explicit HeldQueue(int number) : m_number(number) {}
  ~HeldQueue() { destroyed.push_back(m_number); }
  HeldQueue(const HeldQueue&) = delete;
  HeldQueue& operator=(const HeldQueue&) = delete;

  static int recordOf(int sample) { return sample; }
  void SetRecord(int record) {
    records.push_back(record);
    if (whileAppending) whileAppending();
  }
  [[noreturn]] void procdata_routine() {
    processing->happen();
    while (!RecordChain::stopRequested(*this)) RecordChain::poll();
    stopped->happen();
    mayEnd->wait();
    RecordChain::endThread();
  }

  static inline std::vector<int> destroyed;
  static inline std::vector<int> records;
  static inline std::function<void()> whileAppending;
  static inline Event* processing = nullptr;
  static inline Event* stopped = nullptr;
  static inline Event* mayEnd = nullptr;

  int m_number;
  bool m_bStop = false;
  pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
};

class SharedQueueTest : public testing::Test {
 protected:
  SharedQueueTest() {
    HeldQueue::destroyed.clear();
    HeldQueue::records.clear();
    HeldQueue::whileAppending = nullptr;
    HeldQueue::processing = &m_processing;
    HeldQueue::stopped = &m_stopped;
    HeldQueue::mayEnd = &m_mayEnd;
  }
  ~SharedQueueTest() override { SharedQueue::release(queue); }

  static void* process(void* test) {
    SharedQueue::process(static_cast<SharedQueueTest*>(test)->queue);
    return test;
  }

  // Releases on a separate thread and returns once that thread waits or has finished.
  std::thread release() {
    std::atomic<pid_t> id{0};
    std::thread thread([this, &id] {
      id = gettid();
      SharedQueue::release(queue);
      m_released = true;
    });
    EXPECT_TRUE(comesTrue([&] { return m_released || (id != 0 && support::sleeps(id)); }));
    return thread;
  }

  HeldQueue* queue = nullptr;
  Event m_processing;
  Event m_stopped;
  Event m_mayEnd;
  std::atomic<bool> m_released{false};
};

TEST_F(SharedQueueTest, CreatesTheQueueOnce) {
  SharedQueue::create(queue, 1);
  SharedQueue::create(queue, 2);
  ASSERT_NE(queue, nullptr);
  EXPECT_EQ(queue->m_number, 1);
  EXPECT_EQ(HeldQueue::destroyed, (std::vector<int>{}));
}

TEST_F(SharedQueueTest, ReleasesTheQueueAndMayCreateAnother) {
  SharedQueue::create(queue, 1);
  SharedQueue::release(queue);
  EXPECT_EQ(queue, nullptr);
  EXPECT_EQ(HeldQueue::destroyed, (std::vector<int>{1}));
  SharedQueue::release(queue);
  EXPECT_EQ(HeldQueue::destroyed, (std::vector<int>{1}));
  SharedQueue::create(queue, 2);
  EXPECT_EQ(queue->m_number, 2);
}

TEST_F(SharedQueueTest, AppendsAndDropsWhatComesWithoutAQueue) {
  SharedQueue::append(queue, 7);
  SharedQueue::create(queue, 1);
  SharedQueue::append(queue, 8);
  SharedQueue::release(queue);
  SharedQueue::append(queue, 9);
  EXPECT_EQ(HeldQueue::records, (std::vector<int>{8}));
}

TEST_F(SharedQueueTest, WithoutAQueueThereIsNothingToProcessOrToStop) {
  SharedQueue::process(queue);
  SharedQueue::requestStop(queue);
  SharedQueue::create(queue, 1);  // nothing is left locked
  EXPECT_NE(queue, nullptr);
}

TEST_F(SharedQueueTest, ReleaseWaitsForTheProcessingThreadToEnd) {
  SharedQueue::create(queue, 1);
  pthread_t thread{};
  ASSERT_EQ(pthread_create(&thread, nullptr, process, this), 0);
  ASSERT_TRUE(m_processing.wait());
  SharedQueue::create(queue, 2);  // there is one, so this does not wait
  SharedQueue::requestStop(queue);
  ASSERT_TRUE(m_stopped.wait());

  std::thread releasing = release();
  EXPECT_FALSE(m_released);
  EXPECT_EQ(HeldQueue::destroyed, (std::vector<int>{}));

  m_mayEnd.happen();
  releasing.join();
  EXPECT_EQ(HeldQueue::destroyed, (std::vector<int>{1}));
  pthread_join(thread, nullptr);
}

TEST_F(SharedQueueTest, ReleaseWaitsForAnAppendUnderWay) {
  SharedQueue::create(queue, 1);
  Event appending;
  Event mayReturn;
  HeldQueue::whileAppending = [&] {
    appending.happen();
    EXPECT_TRUE(mayReturn.wait());
  };
  std::thread reader([&] { SharedQueue::append(queue, 7); });
  ASSERT_TRUE(appending.wait());
  std::thread releasing = release();
  EXPECT_FALSE(m_released);
  EXPECT_EQ(HeldQueue::destroyed, (std::vector<int>{}));
  mayReturn.happen();
  reader.join();
  releasing.join();
  EXPECT_EQ(HeldQueue::destroyed, (std::vector<int>{1}));
}

}  // namespace
