// SharedQueue: the life of a pad kind's queue. That it is never released while in use is shown in
// interleavings/.
#include "SharedQueue.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <vector>

namespace {

struct Queue {
  explicit Queue(int number) : m_number(number) {}
  ~Queue() { destroyed.push_back(m_number); }
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;

  static int recordOf(int sample) { return sample; }
  void SetRecord(int record) { records.push_back(record); }
  [[noreturn]] void procdata_routine() { RecordChain::endThread(); }

  static inline std::vector<int> destroyed;
  static inline std::vector<int> records;

  int m_number;
  bool m_bStop = false;
  pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
};

class SharedQueueTest : public testing::Test {
 protected:
  SharedQueueTest() {
    Queue::destroyed.clear();
    Queue::records.clear();
  }
  ~SharedQueueTest() override { SharedQueue::release(queue); }

  Queue* queue = nullptr;
};

TEST_F(SharedQueueTest, CreatesTheQueueOnce) {
  SharedQueue::create(queue, 1);
  SharedQueue::create(queue, 2);
  ASSERT_NE(queue, nullptr);
  EXPECT_EQ(queue->m_number, 1);
}

TEST_F(SharedQueueTest, ReleasesTheQueueAndMayCreateAnother) {
  SharedQueue::create(queue, 1);
  SharedQueue::release(queue);
  EXPECT_EQ(queue, nullptr);
  SharedQueue::release(queue);
  EXPECT_EQ(Queue::destroyed, (std::vector<int>{1}));
  SharedQueue::create(queue, 2);
  EXPECT_EQ(queue->m_number, 2);
}

TEST_F(SharedQueueTest, AppendsAndDropsWhatComesWithoutAQueue) {
  SharedQueue::append(queue, 7);
  SharedQueue::create(queue, 1);
  SharedQueue::append(queue, 8);
  SharedQueue::release(queue);
  SharedQueue::append(queue, 9);
  EXPECT_EQ(Queue::records, (std::vector<int>{8}));
}

TEST_F(SharedQueueTest, WithoutAQueueThereIsNothingToProcessOrToStop) {
  SharedQueue::process(queue);
  SharedQueue::requestStop(queue);
  SharedQueue::create(queue, 1);  // nothing is left locked
  EXPECT_NE(queue, nullptr);
}

}  // namespace
