// VisionCDataHandler: how its processing loop handles records, and when it keeps the pad alive.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

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
using virtualpads::makePad;
using virtualpads::PadKind;

tagVISDATA_RECORD* penRecord(std::uint16_t x, std::uint32_t length = 12) {
  return new tagVISDATA_RECORD{
      length,
      {{.bKind = 1, .bTouch = 1, .wX = x, .wY = 0xFFFF, .wPressure = 0x8000, .dwTimeStamp = 7}},
      nullptr};
}

tagVISDATA_RECORD* shortRecord() {
  auto* const record = new tagVISDATA_RECORD{7, {}, nullptr};
  for (std::uint8_t i = 0; i < 20; ++i) record->bytes[i] = static_cast<std::uint8_t>(0xF0 + i);
  return record;
}

std::atomic<int> auxCalls{0};
std::atomic<unsigned> auxArguments{0};

void recordAux(std::uint8_t first, std::uint8_t second, std::uint8_t third) {
  auxArguments = static_cast<unsigned>(first) << 16 | static_cast<unsigned>(second) << 8 | third;
  ++auxCalls;
}

class VisionQueueTest : public support::PadTest {
 protected:
  VisionQueueTest() {
    auxCalls = 0;
    time.stopProcessorTime(0);
  }

  void create(PenEventHandler callback, VisionCDataHandler::AuxHandler auxCallback = nullptr) {
    queue.emplace(callback, auxCallback, &engine);
  }

  // Runs the processing loop in a separate thread, as the drivers do.
  void startProcessing() {
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void* argument) -> void* {
                    static_cast<VisionCDataHandler*>(argument)->procdata_routine();
                  },
                  &*queue),
              0);
  }

  void stopProcessing() {
    RecordChain::requestStop(*queue);
    pthread_join(thread, nullptr);
  }

  // Waits until the loop has run once more since this call with an empty queue.
  void waitForRound() { EXPECT_TRUE(time.waitForSleeps(500, 2)); }

  void openEngine() {
    plug(makePad(PadKind::Vision));
    ASSERT_EQ(engine.OpenDevice(0x04DF, 56), 1);
    bus.clearLog();
  }

  support::TimeControl time;
  CVelaIoEngine engine{0x04DF, 56};
  std::optional<VisionCDataHandler> queue;
  pthread_t thread{};
};

using VisionKeepAliveTest = VisionQueueTest;

TEST_F(VisionQueueTest, RecordHasTwentyFourBytesAndThenTheLink) {
  EXPECT_EQ(sizeof(tagVISDATA_RECORD), 24U + sizeof(void*));
  EXPECT_EQ(offsetof(tagVISDATA_RECORD, bytes), 4U);
  EXPECT_EQ(offsetof(tagVISDATA_RECORD, pNext), 24U);
  EXPECT_EQ(sizeof(VISPEN_DATA), 12U);
}

TEST_F(VisionQueueTest, GivesRecordsInTheirOrderAndThenNone) {
  create(nullptr);
  tagVISDATA_RECORD* const records[] = {penRecord(1), penRecord(2), penRecord(3)};
  for (tagVISDATA_RECORD* record : records) queue->SetRecord(record);
  for (tagVISDATA_RECORD* record : records) {
    const std::unique_ptr<tagVISDATA_RECORD> taken(queue->GetRecord(true));
    EXPECT_EQ(taken.get(), record);
  }
  EXPECT_EQ(queue->GetRecord(true), nullptr);
}

TEST_F(VisionQueueTest, GetRecordRemovesWhateverItsArgument) {
  create(nullptr);
  queue->SetRecord(penRecord(1));
  EXPECT_NE(std::unique_ptr<tagVISDATA_RECORD>(queue->GetRecord(false)), nullptr);
  EXPECT_EQ(queue->GetRecord(false), nullptr);
}

TEST_F(VisionQueueTest, NullRecordIsIgnored) {
  create(nullptr);
  queue->SetRecord(nullptr);
  EXPECT_EQ(queue->GetRecord(true), nullptr);
}

TEST_F(VisionQueueTest, LinkOfAnAppendedRecordIsCleared) {
  create(nullptr);
  tagVISDATA_RECORD other{};
  tagVISDATA_RECORD* const record = penRecord(1);
  record->pNext = &other;
  queue->SetRecord(record);
  const std::unique_ptr<tagVISDATA_RECORD> taken(queue->GetRecord(true));
  EXPECT_EQ(taken->pNext, nullptr);
  EXPECT_EQ(queue->GetRecord(true), nullptr);
}

TEST_F(VisionQueueTest, DeliversPenRecordsInTheirOrderUnsigned) {
  create(recordPen, recordAux);
  queue->SetRecord(penRecord(0x9000));
  queue->SetRecord(penRecord(2));
  startProcessing();
  EXPECT_TRUE(recorder.waitFor(2));
  stopProcessing();
  const std::vector<Sample> samples = recorder.samples();
  const unsigned first = samples.at(0).sequence;
  EXPECT_EQ(samples, (std::vector<Sample>{{36864, 65535, 32768, 1, first},
                                          {2, 65535, 32768, 1, (first + 1) % 256}}));
  EXPECT_THAT(recorder.timeStamps(), ElementsAre(7U, 7U));
  EXPECT_EQ(auxCalls, 0);
}

TEST_F(VisionQueueTest, ShortRecordGoesToTheSecondCallbackAndIsNotNumbered) {
  create(recordPen, recordAux);
  queue->SetRecord(penRecord(1));
  queue->SetRecord(shortRecord());
  queue->SetRecord(penRecord(2));
  startProcessing();
  EXPECT_TRUE(recorder.waitFor(2));
  stopProcessing();
  EXPECT_EQ(auxCalls, 1);
  EXPECT_EQ(auxArguments, 0xF2F3F4U);
  const std::vector<Sample> samples = recorder.samples();
  EXPECT_EQ(samples.at(1).sequence, (samples.at(0).sequence + 1) % 256);
}

TEST_F(VisionQueueTest, ShortRecordWithoutASecondCallbackIsDropped) {
  create(recordPen);
  queue->SetRecord(shortRecord());
  queue->SetRecord(penRecord(1));
  startProcessing();
  EXPECT_TRUE(recorder.waitFor(1));
  stopProcessing();
}

TEST_F(VisionQueueTest, RecordOfAnotherLengthIsDropped) {
  create(recordPen, recordAux);
  queue->SetRecord(penRecord(1, 0));
  queue->SetRecord(penRecord(2, 11));
  queue->SetRecord(penRecord(3, 13));
  queue->SetRecord(penRecord(4, 0xFFFFFFFF));
  queue->SetRecord(penRecord(5));
  startProcessing();
  EXPECT_TRUE(recorder.waitFor(1));
  stopProcessing();
  EXPECT_EQ(recorder.count(), 1U);
  EXPECT_EQ(recorder.samples().at(0).x, 5);
  EXPECT_EQ(auxCalls, 0);
}

TEST_F(VisionQueueTest, WithoutACallbackRecordsAreConsumedAndFreed) {
  create(nullptr, recordAux);
  startProcessing();
  waitForRound();
  const long before = liveAllocations();
  queue->SetRecord(penRecord(1));
  queue->SetRecord(shortRecord());
  waitForRound();
  EXPECT_EQ(liveAllocations(), before);
  EXPECT_EQ(queue->GetRecord(true), nullptr);
  stopProcessing();
  EXPECT_EQ(auxCalls, 0);
}

TEST_F(VisionQueueTest, DeliveredRecordsAreFreed) {
  create([](std::int32_t, std::int32_t, std::int32_t, std::uint8_t, std::uint32_t,
            std::uint32_t) { ++auxCalls; },
         nullptr);
  startProcessing();
  waitForRound();
  const long before = liveAllocations();
  queue->SetRecord(penRecord(1));
  queue->SetRecord(penRecord(2, 13));
  queue->SetRecord(penRecord(3));
  waitForRound();
  EXPECT_EQ(auxCalls, 2);
  EXPECT_EQ(liveAllocations(), before);
  stopProcessing();
}

TEST_F(VisionQueueTest, DestructionFreesWhatIsQueued) {
  const long before = liveAllocations();
  create(nullptr);
  for (std::uint16_t i = 0; i < 3; ++i) queue->SetRecord(penRecord(i));
  EXPECT_EQ(liveAllocations(), before + 3);
  queue.reset();
  EXPECT_EQ(liveAllocations(), before);
}

TEST_F(VisionQueueTest, StopBeforeTheStartDeliversNothing) {
  create(recordPen);
  queue->SetRecord(penRecord(1));
  RecordChain::requestStop(*queue);
  startProcessing();
  pthread_join(thread, nullptr);
  EXPECT_EQ(recorder.count(), 0U);
}

TEST_F(VisionQueueTest, StopWhileDeliveringIsTheEnd) {
  create(recordPen);
  recorder.reset([&] { RecordChain::requestStop(*queue); });
  queue->SetRecord(penRecord(1));
  queue->SetRecord(penRecord(2));
  startProcessing();
  pthread_join(thread, nullptr);
  EXPECT_EQ(recorder.count(), 1U);
}

const CallRecord kKeepAlive = called(HidCall::SendFeature, 17, 17, hex("1A", 17));

TEST_F(VisionKeepAliveTest, ComesTenThousandTicksAfterTheStartOrTheLastOne) {
  openEngine();
  create(recordPen);
  time.stopProcessorTime(777);
  startProcessing();
  waitForRound();
  EXPECT_TRUE(bus.calls().empty());
  time.stopProcessorTime(10'776);
  waitForRound();
  EXPECT_TRUE(bus.calls().empty());
  time.stopProcessorTime(10'777);
  waitForRound();
  EXPECT_EQ(bus.calls(), Calls{kKeepAlive});
  // A long interval also causes only one; the next is counted from then.
  time.stopProcessorTime(50'000);
  waitForRound();
  EXPECT_EQ(bus.calls(), (Calls{kKeepAlive, kKeepAlive}));
  time.stopProcessorTime(59'999);
  waitForRound();
  EXPECT_EQ(bus.calls(), (Calls{kKeepAlive, kKeepAlive}));
  time.stopProcessorTime(60'000);
  waitForRound();
  EXPECT_EQ(bus.calls(), (Calls{kKeepAlive, kKeepAlive, kKeepAlive}));
  stopProcessing();
}

TEST_F(VisionKeepAliveTest, DoesNotWaitForAnEmptyQueue) {
  openEngine();
  create(recordPen);
  // In the callback: the loop has not slept yet.
  recorder.reset(
      [&] { time.stopProcessorTime(static_cast<std::clock_t>(recorder.count()) * 10'000); });
  queue->SetRecord(penRecord(1));
  queue->SetRecord(penRecord(2));
  queue->SetRecord(penRecord(3));
  startProcessing();
  EXPECT_TRUE(bus.waitForReturned(HidCall::SendFeature, 3));
  stopProcessing();
  EXPECT_EQ(bus.calls(), (Calls{kKeepAlive, kKeepAlive, kKeepAlive}));
}

TEST_F(VisionKeepAliveTest, RefusalIsPassedOver) {
  openEngine();
  create(recordPen);
  startProcessing();
  waitForRound();
  bus.fail(HidCall::SendFeature, {support::Fault::Kind::Return, -1}, 1,
           support::VirtualBus::kAlways);
  time.stopProcessorTime(10'000);
  EXPECT_TRUE(bus.waitForReturned(HidCall::SendFeature, 1));
  queue->SetRecord(penRecord(1));
  EXPECT_TRUE(recorder.waitFor(1));
  stopProcessing();
}

}  // namespace
