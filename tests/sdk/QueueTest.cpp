// The record queues: what comes out of them, how their processing loop delivers it, and when the
// vision pad's keeps the pad alive.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <thread>
#include <type_traits>
#include <vector>

#include "PenRecordQueue.h"
#include "VisionRecordQueue.h"
#include "support/AllocationCount.h"
#include "support/PadTest.h"
#include "support/TimeControl.h"

namespace {

using support::called;
using support::CallRecord;
using support::Calls;
using support::hex;
using support::HidCall;
using support::liveAllocations;
using support::recordPen;
using support::Sample;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(sizeof(PEN_DATA) == 8);
static_assert(offsetof(PEN_DATA, bReserved) == 0 && offsetof(PEN_DATA, bFlags) == 1);
static_assert(offsetof(PEN_DATA, wX) == 2 && offsetof(PEN_DATA, wY) == 4);
static_assert(offsetof(PEN_DATA, bPressure) == 6 && offsetof(PEN_DATA, bSequence) == 7);
static_assert(std::is_signed_v<decltype(PEN_DATA::wX)> && std::is_signed_v<decltype(PEN_DATA::wY)>);
static_assert(sizeof(VISPEN_DATA) == 12);
static_assert(sizeof(tagVISDATA_RECORD) == 24 + sizeof(void*));
static_assert(offsetof(tagVISDATA_RECORD, bytes) == 4 && offsetof(tagVISDATA_RECORD, pNext) == 24);

// The queues of the other two pads are CDataHandler's template, and classes of their own.
static_assert(std::is_same_v<IICDataHandler, PenRecordQueue<PadIiTag>> &&
              std::is_same_v<InkCDataHandler, PenRecordQueue<InkPadTag>> &&
              std::is_same_v<CDataHandler, PenRecordQueue<UsbPadTag>>);

// Gives access to a queue's mutex: an explicit instantiation may name it.
template <class Queue, pthread_mutex_t Queue::*member>
struct Reach {
  friend pthread_mutex_t& mutexOf(Queue& queue) { return queue.*member; }
};
pthread_mutex_t& mutexOf(CDataHandler& queue);
pthread_mutex_t& mutexOf(VisionCDataHandler& queue);
template struct Reach<CDataHandler, &CDataHandler::m_mutex>;
template struct Reach<VisionCDataHandler, &VisionCDataHandler::m_mutex>;

// A processing loop on a separate thread, as the drivers run it.
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

// Records that differ in their x.

struct Pen {
  using Queue = CDataHandler;
  static Queue* make(PenEventHandler callback) { return new Queue(callback); }
  static tagDATA_RECORD* record(int x) {
    return new tagDATA_RECORD{new PEN_DATA{.bReserved = 0,
                                           .bFlags = 1,
                                           .wX = static_cast<std::int16_t>(x),
                                           .wY = 20,
                                           .bPressure = 30,
                                           .bSequence = 40},
                              nullptr};
  }
  static int xOf(PEN_DATA* sample) { return std::unique_ptr<PEN_DATA>(sample)->wX; }
};

struct Vision {
  using Queue = VisionCDataHandler;
  static Queue* make(PenEventHandler callback) { return new Queue(callback, nullptr, &engine()); }
  static tagVISDATA_RECORD* record(int x, std::uint32_t length = 12) {
    return new tagVISDATA_RECORD{length,
                                 {{.bKind = 1,
                                   .bTouch = 1,
                                   .wX = static_cast<std::uint16_t>(x),
                                   .wY = 20,
                                   .wPressure = 30,
                                   .dwTimeStamp = 7}},
                                 nullptr};
  }
  static int xOf(tagVISDATA_RECORD* record) {
    return std::unique_ptr<tagVISDATA_RECORD>(record)->pen.wX;
  }
  static CVelaIoEngine& engine() {
    static CVelaIoEngine engine(0x04DF, 56);
    return engine;
  }
};

class QueueFixture : public support::PadTest {
 protected:
  QueueFixture() { time.stopProcessorTime(0); }

  std::vector<int> deliveredX() {
    std::vector<int> all;
    for (const Sample& sample : recorder.samples()) all.push_back(sample.x);
    return all;
  }

  // Waits until a loop has run once more since this call with an empty queue.
  void waitForRound() { EXPECT_TRUE(time.waitForSleeps(500, 2)); }

  support::TimeControl time;
};

template <class Kind>
class QueueTest : public QueueFixture {
 protected:
  using Queue = typename Kind::Queue;

  // The x of the record that GetRecord returns; -1 for none.
  int take(bool remove = true) {
    auto* const taken = queue->GetRecord(remove);
    return taken != nullptr ? Kind::xOf(taken) : -1;
  }

  void append(std::initializer_list<int> all) {
    for (const int x : all) queue->SetRecord(Kind::record(x));
  }

  std::unique_ptr<Queue> queue{Kind::make(recordPen)};
};

using Kinds = testing::Types<Pen, Vision>;
TYPED_TEST_SUITE(QueueTest, Kinds);

TYPED_TEST(QueueTest, ANullRecordIsIgnoredWithoutTakingTheLock) {
  pthread_mutex_lock(&mutexOf(*this->queue));
  this->queue->SetRecord(nullptr);
  pthread_mutex_unlock(&mutexOf(*this->queue));
  EXPECT_EQ(this->take(), -1);
}

TYPED_TEST(QueueTest, RecordsComeOutInTheOrderInWhichTheyWentInWhateverTheArgument) {
  this->append({1, 2, 3});
  EXPECT_EQ(this->take(true), 1);
  EXPECT_EQ(this->take(false), 2);
  this->append({4});
  EXPECT_EQ(this->take(false), 3);
  EXPECT_EQ(this->take(true), 4);
  EXPECT_EQ(this->take(true), -1);
  EXPECT_EQ(this->take(false), -1);
}

TYPED_TEST(QueueTest, AppendingForgetsWhatTheRecordWasLinkedTo) {
  auto* const second = TypeParam::record(2);
  auto* const first = TypeParam::record(1);
  first->pNext = second;
  this->queue->SetRecord(first);
  EXPECT_EQ(this->take(), 1);
  EXPECT_EQ(this->take(), -1);
  this->queue->SetRecord(second);
  EXPECT_EQ(this->take(), 2);
}

TYPED_TEST(QueueTest, FreesWhatItHasDeliveredOrDroppedForWantOfACallback) {
  for (PenEventHandler const callback : {PenEventHandler{recordPen}, PenEventHandler{}}) {
    this->queue.reset(TypeParam::make(callback));
    // Allocations of the recorder and of the sleep counts do not belong to the queue.
    for (int i = 0; i < 3; ++i) this->recorder.keep({}, 0);
    this->recorder.reset();
    this->time.sleeps(500);
    const long before = liveAllocations();
    this->append({1, 2, 3});
    Processing processing(*this->queue);
    this->waitForRound();  // the queue is empty
    processing.stopAndJoin();
    EXPECT_EQ(liveAllocations(), before);
    EXPECT_EQ(this->take(), -1);
    EXPECT_EQ(this->recorder.count(), callback != nullptr ? 3U : 0U);
  }
}

TYPED_TEST(QueueTest, PollsEvery500MicrosecondsWhileItIsEmpty) {
  Processing processing(*this->queue);
  EXPECT_TRUE(this->time.waitForSleeps(500, 3));
  processing.stopAndJoin();
}

TYPED_TEST(QueueTest, DoesNotSleepBetweenQueuedSamples) {
  this->recorder.reset([this] {
    if (this->recorder.count() == 3) RecordChain::requestStop(*this->queue);
  });
  this->append({1, 2, 3});
  Processing(*this->queue).join();
  EXPECT_THAT(this->deliveredX(), ElementsAre(1, 2, 3));
  EXPECT_EQ(this->time.sleeps(500), 0);
}

TYPED_TEST(QueueTest, AStopBeforeTheStartDeliversNothing) {
  this->append({1});
  RecordChain::requestStop(*this->queue);
  Processing(*this->queue).join();
  EXPECT_EQ(this->recorder.count(), 0U);
  EXPECT_EQ(this->time.sleeps(500), 0);
  EXPECT_EQ(this->take(), 1);
}

TYPED_TEST(QueueTest, AStopDuringADeliveryLeavesTheRestQueued) {
  this->recorder.reset([this] { RecordChain::requestStop(*this->queue); });
  this->append({1, 2, 3});
  Processing(*this->queue).join();
  EXPECT_THAT(this->deliveredX(), ElementsAre(1));
  EXPECT_EQ(this->take(), 2);
  EXPECT_EQ(this->take(), 3);
}

TYPED_TEST(QueueTest, EndsItsThreadWithAPointerToZero) {
  const void* const value = Processing(*this->queue).stopAndJoin();
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(*static_cast<const int*>(value), 0);
}

TYPED_TEST(QueueTest, IsNotLockedDuringTheCallback) {
  std::atomic<int> locked{-1};
  this->recorder.reset([&] {
    locked = pthread_mutex_trylock(&mutexOf(*this->queue));
    if (locked == 0) pthread_mutex_unlock(&mutexOf(*this->queue));
  });
  this->append({1});
  Processing processing(*this->queue);
  EXPECT_TRUE(this->recorder.waitFor(1));
  processing.stopAndJoin();
  EXPECT_EQ(locked, 0);
}

// The USB pad's queue, and so the pad II's and the ink pad's.

using PenQueueTest = QueueTest<Pen>;

TEST_F(PenQueueTest, TakingOutFreesTheRecordAndHandsOverItsSample) {
  const long before = liveAllocations();
  tagDATA_RECORD* const record = Pen::record(1);
  PEN_DATA* const sample = record->pData;
  queue->SetRecord(record);
  EXPECT_EQ(queue->GetRecord(true), sample);
  EXPECT_EQ(liveAllocations(), before + 1);
  delete sample;
}

TEST_F(PenQueueTest, DeliversEveryFieldAsItsTypeSays) {
  queue->SetRecord(CDataHandler::recordOf({.bReserved = 9,
                                           .bFlags = 0xFE,
                                           .wX = -32768,
                                           .wY = -1,
                                           .bPressure = 255,
                                           .bSequence = 200}));
  queue->SetRecord(CDataHandler::recordOf(
      {.bReserved = 9, .bFlags = 0xFF, .wX = 32767, .wY = 256, .bPressure = 127, .bSequence = 1}));
  Processing processing(*queue);
  ASSERT_TRUE(recorder.waitFor(2));
  processing.stopAndJoin();
  EXPECT_THAT(recorder.samples(),
              ElementsAre(Sample{-32768, -1, 255, 0, 200}, Sample{32767, 256, 127, 1, 1}));
}

struct Clock {
  long seconds;
  long microseconds;
  std::uint32_t timeStamp;
};

TEST_F(PenQueueTest, TheTimeStampIsTheWallClockAtTheDeliveryInMilliseconds) {
  // The last millisecond before and the first after the wrap, and a current date: 1700000000 * 1000
  // modulo 2^32 = 3487918080.
  constexpr std::array kClocks{Clock{0, 999, 0},
                               Clock{0, 1000, 1},
                               Clock{1, 999'999, 1999},
                               Clock{4'294'967, 295'999, 4'294'967'295U},
                               Clock{4'294'967, 296'000, 0},
                               Clock{1'700'000'000, 123'456, 3'487'918'203U}};
  for (const Clock& clock : kClocks) {
    recorder.reset([this] { RecordChain::requestStop(*queue); });
    queue.reset(Pen::make(recordPen));
    time.stopWallClock(5, 0);
    append({1});
    time.stopWallClock(clock.seconds, clock.microseconds);
    Processing(*queue).join();
    EXPECT_THAT(recorder.timeStamps(), ElementsAre(clock.timeStamp));
  }
}

TEST_F(PenQueueTest, DestructionDropsTheRecordsAndLeavesTheirSamplesAlone) {
  static_assert(std::has_virtual_destructor_v<CDataHandler>);
  for (const std::size_t count : {0U, 1U, 2U, 3U, 4U}) {
    std::array<std::unique_ptr<PEN_DATA>, 4> samples;
    queue.reset(Pen::make(recordPen));
    const long before = liveAllocations();
    for (std::size_t i = 0; i < count; ++i) {
      tagDATA_RECORD* const record = Pen::record(static_cast<int>(i));
      samples[i].reset(record->pData);
      queue->SetRecord(record);
    }
    queue.reset();
    // One less for the dropped, one more for each sample.
    EXPECT_EQ(liveAllocations(), before - 1 + static_cast<long>(count));
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(samples[i]->wX, i);
  }
  EXPECT_EQ(recorder.count(), 0U);
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

// The vision pad's queue.

tagVISDATA_RECORD* shortRecord() {
  auto* const record = new tagVISDATA_RECORD{7, {}, nullptr};
  for (std::uint8_t i = 0; i < 20; ++i) record->bytes[i] = static_cast<std::uint8_t>(0xF0 + i);
  return record;
}

int auxCalls = 0;
unsigned auxArguments = 0;

void recordAux(std::uint8_t first, std::uint8_t second, std::uint8_t third) {
  auxArguments = static_cast<unsigned>(first) << 16 | static_cast<unsigned>(second) << 8 | third;
  ++auxCalls;
}

class VisionQueueTest : public QueueTest<Vision> {
 protected:
  VisionQueueTest() { auxCalls = 0; }

  // Delivers all that is queued, which is `samples` samples.
  void deliver(std::size_t samples) {
    Processing processing(*queue);
    EXPECT_TRUE(recorder.waitFor(samples));
    waitForRound();
    processing.stopAndJoin();
    EXPECT_EQ(recorder.count(), samples);
  }
};

TEST_F(VisionQueueTest, DeliversPenRecordsUnsignedAndNumbered) {
  queue->SetRecord(VisionCDataHandler::recordOf({.bKind = 1,
                                                 .bTouch = 0,
                                                 .wX = 0x9000,
                                                 .wY = 0xFFFF,
                                                 .wPressure = 0x8000,
                                                 .dwTimeStamp = 0x89ABCDEF}));
  append({2});
  deliver(2);
  const unsigned first = recorder.samples().at(0).sequence;
  EXPECT_THAT(recorder.samples(), ElementsAre(Sample{36864, 65535, 32768, 0, first},
                                              Sample{2, 20, 30, 1, (first + 1) % 256}));
  EXPECT_THAT(recorder.timeStamps(), ElementsAre(0x89ABCDEFU, 7U));
}

TEST_F(VisionQueueTest, AShortRecordGoesToTheSecondCallbackAndIsNotNumbered) {
  queue = std::make_unique<VisionCDataHandler>(PenEventHandler{recordPen}, recordAux,
                                               &Vision::engine());
  append({1});
  queue->SetRecord(shortRecord());
  append({2});
  deliver(2);
  EXPECT_EQ(auxCalls, 1);
  EXPECT_EQ(auxArguments, 0xF2F3F4U);
  EXPECT_EQ(recorder.samples().at(1).sequence, (recorder.samples().at(0).sequence + 1) % 256);
}

TEST_F(VisionQueueTest, AShortRecordWithoutEitherCallbackIsDropped) {
  queue->SetRecord(shortRecord());
  append({1});
  deliver(1);
  queue = std::make_unique<VisionCDataHandler>(nullptr, recordAux, &Vision::engine());
  recorder.reset();
  queue->SetRecord(shortRecord());
  deliver(0);
  EXPECT_EQ(auxCalls, 0);
}

TEST_F(VisionQueueTest, ARecordOfAnotherLengthIsDropped) {
  queue = std::make_unique<VisionCDataHandler>(PenEventHandler{recordPen}, recordAux,
                                               &Vision::engine());
  for (const std::uint32_t length : {0U, 11U, 13U, 0xFFFFFFFFU})
    queue->SetRecord(Vision::record(9, length));
  append({5});
  deliver(1);
  EXPECT_THAT(deliveredX(), ElementsAre(5));
  EXPECT_EQ(auxCalls, 0);
}

TEST_F(VisionQueueTest, DestructionFreesWhatIsQueued) {
  const long before = liveAllocations();
  append({1, 2, 3});
  EXPECT_EQ(liveAllocations(), before + 3);
  queue.reset();
  EXPECT_EQ(liveAllocations(), before - 1);
}

// Keeping the pad alive.

class KeepAliveTest : public VisionQueueTest {
 protected:
  KeepAliveTest() {
    plug(virtualpads::makePad(virtualpads::PadKind::Vision));
    EXPECT_EQ(Vision::engine().OpenDevice(0x04DF, 56), 1);
    bus.clearLog();
  }

  ~KeepAliveTest() override { Vision::engine().CloseDevice(); }

  const CallRecord kKeepAlive = called(HidCall::SendFeature, 17, 17, hex("1A", 17));
};

TEST_F(KeepAliveTest, ComesTenThousandTicksAfterTheStartOrTheLastOne) {
  time.stopProcessorTime(777);
  Processing processing(*queue);
  waitForRound();
  const auto callsAt = [this](std::clock_t ticks) {
    time.stopProcessorTime(ticks);
    waitForRound();
    return bus.calls();
  };
  EXPECT_THAT(callsAt(10'776), IsEmpty());
  EXPECT_THAT(callsAt(10'777), ElementsAre(kKeepAlive));
  // A long interval also causes only one; the next is counted from then.
  EXPECT_THAT(callsAt(50'000), ElementsAre(kKeepAlive, kKeepAlive));
  EXPECT_THAT(callsAt(59'999), ElementsAre(kKeepAlive, kKeepAlive));
  EXPECT_THAT(callsAt(60'000), ElementsAre(kKeepAlive, kKeepAlive, kKeepAlive));
  processing.stopAndJoin();
}

TEST_F(KeepAliveTest, DoesNotWaitForAnEmptyQueue) {
  // In the callback: the loop has not slept yet.
  recorder.reset(
      [&] { time.stopProcessorTime(static_cast<std::clock_t>(recorder.count()) * 10'000); });
  append({1, 2, 3});
  Processing processing(*queue);
  EXPECT_TRUE(bus.waitForReturned(HidCall::SendFeature, 3));
  processing.stopAndJoin();
  EXPECT_THAT(bus.calls(), ElementsAre(kKeepAlive, kKeepAlive, kKeepAlive));
}

TEST_F(KeepAliveTest, ARefusalIsPassedOver) {
  Processing processing(*queue);
  waitForRound();
  bus.fail(HidCall::SendFeature, {support::Fault::Kind::Return, -1});
  time.stopProcessorTime(10'000);
  EXPECT_TRUE(bus.waitForReturned(HidCall::SendFeature, 1));
  append({1});
  EXPECT_TRUE(recorder.waitFor(1));
  processing.stopAndJoin();
}

}  // namespace
