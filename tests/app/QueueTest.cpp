#include "Queue.h"

#include <gmock/gmock.h>

#include <string>
#include <type_traits>

namespace {

using testing::Optional;
using Letters = Queue<std::string>;

Letters abc() {
  Letters queue;
  queue.enQueue("a");
  queue.enQueue("b");
  queue.enQueue("c");
  return queue;
}

TEST(QNodeTest, FreshNodeIsEmpty) {
  const QNode<int> node;
  EXPECT_EQ(node.key, std::nullopt);
  EXPECT_EQ(node.next, nullptr);
  EXPECT_EQ(node.previous, nullptr);
}

TEST(QNodeTest, LongChainIsLetGoWithoutRecursion) {
  auto head = std::make_shared<QNode<int>>();
  std::weak_ptr<QNode<int>> last = head;
  for (int i = 1; i < 1'000'000; ++i) {
    last.lock()->next = std::make_shared<QNode<int>>();
    last = last.lock()->next;
  }
  head.reset();
  EXPECT_TRUE(last.expired());
}

TEST(QNodeTest, PartOfAChainThatIsStillReferencedStays) {
  auto head = std::make_shared<QNode<int>>();
  head->next = std::make_shared<QNode<int>>();
  head->next->next = std::make_shared<QNode<int>>();
  const auto kept = head->next;
  head.reset();
  EXPECT_NE(kept->next, nullptr);
  EXPECT_EQ(kept.use_count(), 1);
}

TEST(QueueTest, FreshQueueIsEmptyAndCountsOne) {
  Queue<int> queue;
  EXPECT_TRUE(queue.isEmpty());
  EXPECT_EQ(queue.count(), 1);
  EXPECT_EQ(queue.deQueue(), std::nullopt);
  EXPECT_EQ(queue.getNext(), std::nullopt);
  EXPECT_EQ(queue.count(), 1);
}

TEST(QueueTest, FirstElementUsesTheFreshNode) {
  Queue<int> queue;
  queue.enQueue(7);
  EXPECT_FALSE(queue.isEmpty());
  EXPECT_EQ(queue.count(), 1);
}

TEST(QueueTest, QueueThatRanEmptyCountsNone) {
  Queue<int> queue;
  queue.enQueue(7);
  EXPECT_THAT(queue.deQueue(), Optional(7));
  EXPECT_TRUE(queue.isEmpty());
  EXPECT_EQ(queue.count(), 0);
  EXPECT_EQ(queue.deQueue(), std::nullopt);
  EXPECT_EQ(queue.getNext(), std::nullopt);
}

TEST(QueueTest, ElementsLeaveInTheOrderInWhichTheyCame) {
  Letters queue = abc();
  EXPECT_EQ(queue.count(), 3);
  EXPECT_THAT(queue.deQueue(), Optional(std::string("a")));
  EXPECT_EQ(queue.count(), 2);
  EXPECT_THAT(queue.deQueue(), Optional(std::string("b")));
  EXPECT_THAT(queue.deQueue(), Optional(std::string("c")));
  EXPECT_EQ(queue.deQueue(), std::nullopt);
}

TEST(QueueTest, CursorGoesRoundWithoutRemoving) {
  Letters queue = abc();
  for (const char* expected : {"a", "b", "c", "a", "b"})
    EXPECT_THAT(queue.getNext(), Optional(std::string(expected)));
  EXPECT_EQ(queue.count(), 3);
}

TEST(QueueTest, CursorReachesElementsThatCameLater) {
  Queue<int> queue;
  queue.enQueue(1);
  queue.enQueue(2);
  EXPECT_THAT(queue.getNext(), Optional(1));
  queue.enQueue(3);
  EXPECT_THAT(queue.getNext(), Optional(2));
  EXPECT_THAT(queue.getNext(), Optional(3));
  EXPECT_THAT(queue.getNext(), Optional(1));
}

TEST(QueueTest, CursorMayStayOnARemovedElement) {
  Letters queue = abc();
  EXPECT_THAT(queue.deQueue(), Optional(std::string("a")));
  EXPECT_THAT(queue.getNext(), Optional(std::string("a")));
  EXPECT_THAT(queue.getNext(), Optional(std::string("b")));
  EXPECT_THAT(queue.getNext(), Optional(std::string("c")));
  EXPECT_THAT(queue.getNext(), Optional(std::string("b")));
}

TEST(QueueTest, ClearedQueueIsEmptyAndStartsANewChain) {
  Letters queue = abc();
  queue.clearAll();
  EXPECT_TRUE(queue.isEmpty());
  EXPECT_EQ(queue.count(), 0);
  EXPECT_EQ(queue.deQueue(), std::nullopt);
  EXPECT_EQ(queue.getNext(), std::nullopt);

  queue.enQueue("d");
  EXPECT_EQ(queue.count(), 1);
  EXPECT_THAT(queue.getNext(), Optional(std::string("d")));
  EXPECT_THAT(queue.getNext(), Optional(std::string("d")));
}

static_assert(std::is_same_v<decltype(penData::penup), std::uint8_t>);
static_assert(std::is_same_v<decltype(penData::xpos), std::int32_t>);
static_assert(std::is_same_v<decltype(penData::ypos), std::int32_t>);

TEST(GlobalQueueTest, IsOneFreshQueue) {
  EXPECT_TRUE(gQueue().isEmpty());
  EXPECT_EQ(gQueue().count(), 1);
  EXPECT_EQ(&gQueue(), &gQueue());
}

// No test in this program writes to them.
TEST(PenInputTest, BeginsAtTheFirstPadWithoutAStroke) {
  EXPECT_EQ(gpadindex, 0);
  EXPECT_EQ(firstPoint, 0);
}

}  // namespace
