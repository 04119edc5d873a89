// The record queue of the USB pad, the pad II and the ink pad, and the numbers of samples.
#include "PenRecordQueue.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/AllocationCount.h"
#include "support/Patience.h"
#include "support/PenRecorder.h"
#include "support/TimeControl.h"

namespace {

thread_local long locksTaken = 0;

}  // namespace

extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  ++locksTaken;
  return __real_pthread_mutex_lock(mutex);
}

}  // extern "C"

namespace {

using support::liveAllocations;
using support::penRecorder;
using support::recordPen;
using support::Sample;
using support::TimeControl;

static_assert(sizeof(PEN_DATA) == 8);
static_assert(offsetof(PEN_DATA, bReserved) == 0 && offsetof(PEN_DATA, bFlags) == 1);
static_assert(offsetof(PEN_DATA, wX) == 2 && offsetof(PEN_DATA, wY) == 4);
static_assert(offsetof(PEN_DATA, bPressure) == 6 && offsetof(PEN_DATA, bSequence) == 7);
static_assert(std::is_signed_v<decltype(PEN_DATA::wX)> && std::is_signed_v<decltype(PEN_DATA::wY)>);
static_assert(!std::is_same_v<CDataHandler, IICDataHandler> &&
              !std::is_same_v<CDataHandler, InkCDataHandler> &&
              !std::is_same_v<IICDataHandler, InkCDataHandler>);

// A processing loop on a separate thread.
template <class Queue>
class Processing {
 public:
  explicit Processing(Queue& queue) : m_queue(queue) {
    pthread_create(&m_thread, nullptr, run, &queue);
  }
  Processing(const Processing&) = delete;
  Processing& operator=(const Processing&) = delete;

  // Waits for the thread to end and returns its result.
  void* join() {
    void* value = nullptr;
    pthread_join(m_thread, &value);
    return value;
  }

  void* stopAndJoin() {
    RecordChain::requestStop(m_queue);
    return join();
  }

 private:
  static void* run(void* queue) {
    static_cast<Queue*>(queue)->procdata_routine();
    return nullptr;
  }

  Queue& m_queue;
  pthread_t m_thread{};
};

tagDATA_RECORD* recordOf(const PEN_DATA& sample) {
  return new tagDATA_RECORD{new PEN_DATA(sample), nullptr};
}

tagDATA_RECORD* numbered(unsigned sequence) {
  return recordOf({.bReserved = 0,
                   .bFlags = 1,
                   .wX = 10,
                   .wY = 20,
                   .bPressure = 30,
                   .bSequence = static_cast<std::uint8_t>(sequence)});
}

template <class Queue>
void appendThree(Queue& queue) {
  for (const unsigned sequence : {1U, 2U, 3U}) queue.SetRecord(numbered(sequence));
}

constexpr Sample delivered(unsigned sequence) {
  return {10, 20, 30, 1, sequence};
}

template <class Queue>
class QueueTest : public testing::Test {
 protected:
  QueueTest() { penRecorder().reset(); }

  // The number of the sample that GetRecord returns; -1 for none.
  int take(bool remove = true) {
    const std::unique_ptr<PEN_DATA> sample(queue.GetRecord(remove));
    return sample ? sample->bSequence : -1;
  }

  TimeControl time;
  Queue queue{recordPen<0>};
};

using Queues = testing::Types<CDataHandler, IICDataHandler, InkCDataHandler>;
TYPED_TEST_SUITE(QueueTest, Queues);

TYPED_TEST(QueueTest, ANullRecordIsIgnoredWithoutTakingTheLock) {
  const auto locksTakenBy = [](auto action) {
    locksTaken = 0;
    action();
    return locksTaken;
  };
  tagDATA_RECORD* const record = numbered(1);
  EXPECT_EQ(locksTakenBy([&] { this->queue.SetRecord(record); }), 1);
  EXPECT_EQ(locksTakenBy([&] { this->queue.SetRecord(nullptr); }), 0);
  EXPECT_EQ(this->take(), 1);
  EXPECT_EQ(this->take(), -1);
}

TYPED_TEST(QueueTest, AnEmptyQueueGivesNull) {
  EXPECT_EQ(this->queue.GetRecord(true), nullptr);
  EXPECT_EQ(this->queue.GetRecord(false), nullptr);
}

TYPED_TEST(QueueTest, RecordsComeOutInTheOrderInWhichTheyWentIn) {
  appendThree(this->queue);
  EXPECT_EQ(this->take(), 1);
  EXPECT_EQ(this->take(), 2);
  this->queue.SetRecord(numbered(4));
  EXPECT_EQ(this->take(), 3);
  EXPECT_EQ(this->take(), 4);
  EXPECT_EQ(this->take(), -1);
}

TYPED_TEST(QueueTest, EveryGetRecordRemoves) {
  this->queue.SetRecord(numbered(1));
  EXPECT_EQ(this->take(false), 1);
  EXPECT_EQ(this->take(true), -1);
}

TYPED_TEST(QueueTest, AppendingForgetsWhatTheRecordWasLinkedTo) {
  tagDATA_RECORD* const second = numbered(2);
  tagDATA_RECORD* const first = numbered(1);
  first->pNext = second;
  this->queue.SetRecord(first);
  EXPECT_EQ(this->take(), 1);
  EXPECT_EQ(this->take(), -1);
  this->queue.SetRecord(second);
  EXPECT_EQ(this->take(), 2);
}

TYPED_TEST(QueueTest, TakingOutFreesTheRecordAndHandsOverItsSample) {
  const long before = liveAllocations();
  tagDATA_RECORD* const record = numbered(1);
  PEN_DATA* const sample = record->pData;
  this->queue.SetRecord(record);
  EXPECT_EQ(this->queue.GetRecord(true), sample);
  EXPECT_EQ(liveAllocations(), before + 1);
  delete sample;
}

TYPED_TEST(QueueTest, DeliversEveryFieldAsItsTypeSays) {
  this->queue.SetRecord(recordOf({.bReserved = 9,
                                  .bFlags = 0xFE,
                                  .wX = -32768,
                                  .wY = -1,
                                  .bPressure = 255,
                                  .bSequence = 200}));
  this->queue.SetRecord(recordOf(
      {.bReserved = 9, .bFlags = 0xFF, .wX = 32767, .wY = 256, .bPressure = 127, .bSequence = 1}));
  Processing processing(this->queue);
  ASSERT_TRUE(penRecorder().waitFor(2));
  processing.stopAndJoin();
  EXPECT_EQ(penRecorder().samples(),
            (std::vector<Sample>{{-32768, -1, 255, 0, 200}, {32767, 256, 127, 1, 1}}));
}

TYPED_TEST(QueueTest, DeliversInOrderWhatIsQueuedMeanwhile) {
  Processing processing(this->queue);
  for (unsigned i = 0; i < 5'000; ++i) this->queue.SetRecord(numbered(i % 250));
  ASSERT_TRUE(penRecorder().waitFor(5'000));
  processing.stopAndJoin();
  const std::vector<Sample> samples = penRecorder().samples();
  ASSERT_EQ(samples.size(), 5'000U);
  for (unsigned i = 0; i < 5'000; ++i) ASSERT_EQ(samples[i], delivered(i % 250)) << i;
}

struct Clock {
  long seconds;
  long microseconds;
  std::uint32_t timeStamp;
};

TYPED_TEST(QueueTest, TheTimeStampIsTheWallClockInMilliseconds) {
  // The last millisecond before and the first after the wrap, and a current date: 1700000000 * 1000
  // modulo 2^32 = 3487918080.
  constexpr std::array kClocks{Clock{0, 999, 0},
                               Clock{0, 1000, 1},
                               Clock{1, 999'999, 1999},
                               Clock{4'294'967, 295'999, 4'294'967'295U},
                               Clock{4'294'967, 296'000, 0},
                               Clock{1'700'000'000, 123'456, 3'487'918'203U}};
  Processing processing(this->queue);
  std::vector<std::uint32_t> expected;
  for (const Clock& clock : kClocks) {
    this->time.stopWallClock(clock.seconds, clock.microseconds);
    this->queue.SetRecord(numbered(1));
    expected.push_back(clock.timeStamp);
    ASSERT_TRUE(penRecorder().waitFor(expected.size()));
  }
  processing.stopAndJoin();
  EXPECT_EQ(penRecorder().timeStamps(), expected);
}

TYPED_TEST(QueueTest, SamplesOfTheSameMillisecondCarryTheSameTimeStamp) {
  this->time.stopWallClock(7, 8'000);
  this->queue.SetRecord(numbered(1));
  Processing processing(this->queue);
  ASSERT_TRUE(penRecorder().waitFor(1));
  this->time.stopWallClock(7, 8'999);
  this->queue.SetRecord(numbered(2));
  ASSERT_TRUE(penRecorder().waitFor(2));
  processing.stopAndJoin();
  EXPECT_EQ(penRecorder().timeStamps(), (std::vector<std::uint32_t>{7008, 7008}));
}

TYPED_TEST(QueueTest, TheTimeStampIsThatOfTheDelivery) {
  this->time.stopWallClock(1, 0);
  this->queue.SetRecord(numbered(1));
  this->time.stopWallClock(2, 0);
  Processing processing(this->queue);
  ASSERT_TRUE(penRecorder().waitFor(1));
  processing.stopAndJoin();
  EXPECT_EQ(penRecorder().timeStamps(), (std::vector<std::uint32_t>{2000}));
}

TYPED_TEST(QueueTest, FreesWhatItHasDelivered) {
  // Allocations of the recorder and of the sleep counts do not belong to the queue.
  for (int i = 0; i < 3; ++i) penRecorder().keep(delivered(0), 0);
  penRecorder().reset();
  this->time.sleeps(500);
  const long before = liveAllocations();
  appendThree(this->queue);
  Processing processing(this->queue);
  ASSERT_TRUE(penRecorder().waitFor(3));
  processing.stopAndJoin();
  EXPECT_EQ(liveAllocations(), before);
}

TYPED_TEST(QueueTest, WithoutACallbackSamplesAreTakenOutAndFreed) {
  TypeParam silent(nullptr);
  this->time.sleeps(500);  // the allocation for its count does not belong to the queue
  const long before = liveAllocations();
  appendThree(silent);
  Processing processing(silent);
  EXPECT_TRUE(this->time.waitForSleeps(500, 1));  // the queue is empty
  processing.stopAndJoin();
  EXPECT_EQ(silent.GetRecord(true), nullptr);
  EXPECT_EQ(liveAllocations(), before);
}

TYPED_TEST(QueueTest, PollsEvery500MicrosecondsWhileItIsEmpty) {
  Processing processing(this->queue);
  EXPECT_TRUE(this->time.waitForSleeps(500, 3));
  processing.stopAndJoin();
}

TYPED_TEST(QueueTest, DoesNotSleepBetweenQueuedSamples) {
  penRecorder().reset([this] {
    if (penRecorder().count() == 3) RecordChain::requestStop(this->queue);
  });
  appendThree(this->queue);
  Processing(this->queue).join();
  EXPECT_EQ(penRecorder().count(), 3U);
  EXPECT_EQ(this->time.sleeps(500), 0);
}

TYPED_TEST(QueueTest, AStopBeforeTheStartDeliversNothing) {
  this->queue.SetRecord(numbered(1));
  RecordChain::requestStop(this->queue);
  Processing(this->queue).join();
  EXPECT_EQ(penRecorder().count(), 0U);
  EXPECT_EQ(this->time.sleeps(500), 0);
  EXPECT_EQ(this->take(), 1);
}

TYPED_TEST(QueueTest, AStopDuringADeliveryLeavesTheRestQueued) {
  penRecorder().reset([this] { RecordChain::requestStop(this->queue); });
  appendThree(this->queue);
  Processing(this->queue).join();
  EXPECT_EQ(penRecorder().samples(), (std::vector<Sample>{delivered(1)}));
  EXPECT_EQ(this->take(), 2);
  EXPECT_EQ(this->take(), 3);
}

TYPED_TEST(QueueTest, EndsItsThreadWithAPointerToZero) {
  const void* const value = Processing(this->queue).stopAndJoin();
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(*static_cast<const int*>(value), 0);
}

TYPED_TEST(QueueTest, IsNotLockedDuringTheCallback) {
  std::atomic<bool> appended{false};
  penRecorder().reset([&] {
    if (penRecorder().count() > 1) return;
    std::thread other([&] {
      EXPECT_EQ(this->queue.GetRecord(true), nullptr);
      this->queue.SetRecord(numbered(2));
      appended = true;
    });
    EXPECT_TRUE(support::comesTrue([&] { return appended.load(); }));
    other.join();
  });
  this->queue.SetRecord(numbered(1));
  Processing processing(this->queue);
  EXPECT_TRUE(penRecorder().waitFor(2));
  processing.stopAndJoin();
}

TYPED_TEST(QueueTest, DestructionDropsTheRecordsAndLeavesTheirSamplesAlone) {
  static_assert(std::has_virtual_destructor_v<TypeParam>);
  for (const std::size_t count : {0U, 1U, 2U, 3U, 4U}) {
    std::array<std::unique_ptr<PEN_DATA>, 4> samples;
    auto* const dropped = new TypeParam(recordPen<0>);
    const long before = liveAllocations();
    for (std::size_t i = 0; i < count; ++i) {
      tagDATA_RECORD* const record = numbered(static_cast<unsigned>(i + 1));
      samples[i].reset(record->pData);
      dropped->SetRecord(record);
    }
    delete dropped;
    // One less for the dropped, one more for each sample.
    EXPECT_EQ(liveAllocations(), before - 1 + static_cast<long>(count));
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(samples[i]->bSequence, i + 1);
  }
  EXPECT_EQ(penRecorder().count(), 0U);
}

TYPED_TEST(QueueTest, DestructionDropsWhatWasAppendedBeforeAndAfterATake) {
  std::array<std::unique_ptr<PEN_DATA>, 5> samples;
  auto* const dropped = new TypeParam(recordPen<0>);
  const long before = liveAllocations();
  const auto append = [&](std::size_t i) {
    tagDATA_RECORD* const record = numbered(static_cast<unsigned>(i + 1));
    samples[i].reset(record->pData);
    dropped->SetRecord(record);
  };
  for (const std::size_t i : {0U, 1U, 2U}) append(i);
  EXPECT_EQ(dropped->GetRecord(true), samples[0].get());
  for (const std::size_t i : {3U, 4U}) append(i);
  delete dropped;
  EXPECT_EQ(liveAllocations(), before - 1 + 5);  // the queue is freed, the samples are not
  for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(samples[i]->bSequence, i + 1);
}

TEST(NextNumberTest, RunsFromOneTo127AndAgain) {
  std::atomic<int> count{1};
  for (int number = 1; number <= 127; ++number) ASSERT_EQ(nextNumber(count), number);
  for (int number = 1; number <= 127; ++number) ASSERT_EQ(nextNumber(count), number);
  EXPECT_EQ(nextNumber(count), 1);
}

TEST(NextNumberTest, GivesEachNumberOnceToSeveralThreads) {
  std::atomic<int> count{1};
  std::array<std::array<int, 256>, 2> taken{};
  const auto take = [&](std::array<int, 256>& numbers) {
    for (int i = 0; i < 127 * 100; ++i) ++numbers[nextNumber(count)];
  };
  std::thread first(take, std::ref(taken[0]));
  std::thread second(take, std::ref(taken[1]));
  first.join();
  second.join();
  for (std::size_t number = 0; number < 256; ++number) {
    EXPECT_EQ(taken[0][number] + taken[1][number], number >= 1 && number <= 127 ? 200 : 0)
        << number;
  }
}

}  // namespace
