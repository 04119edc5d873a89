// The application's state of pen input, the callback that the SDK calls for every sample, and a
// small first-in first-out queue.
#ifndef TESTAPP_QUEUE_H
#define TESTAPP_QUEUE_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

// A node of a Queue. Deliberate: `previous` stays empty; no operation of the queue assigns it.
template <typename T>
class QNode {
 public:
  QNode() = default;
  QNode(const QNode&) = delete;
  QNode& operator=(const QNode&) = delete;

  // Releases the nodes behind it one after the other: a chain may be longer than the stack is deep.
  ~QNode() {
    auto rest = std::move(next);
    while (rest && rest.use_count() == 1) rest = std::move(rest->next);
  }

  std::optional<T> key;
  std::shared_ptr<QNode> next;
  std::shared_ptr<QNode> previous;
};

// A first-in first-out queue with a read cursor. Not thread-safe. No operation fails; a failed
// allocation throws.
template <typename T>
class Queue {
 public:
  // Appends an element. Walks the whole chain to find its end.
  void enQueue(T element) {
    if (!top) top = std::make_shared<QNode<T>>();
    if (!top->key) {
      top->key = std::move(element);
      middleone = top;
      return;
    }
    auto node = std::make_shared<QNode<T>>();
    node->key = std::move(element);
    QNode<T>* last = top.get();
    while (last->next) last = last->next.get();
    last->next = std::move(node);
  }

  // Removes the oldest element and returns it; nothing when the queue is empty. The cursor does not
  // move, so it may be on a removed element.
  std::optional<T> deQueue() {
    if (isEmpty()) return std::nullopt;
    auto element = top->key;
    top = top->next;
    return element;
  }

  // Returns the element under the cursor and advances the cursor, from the end back to the head;
  // nothing when the queue is empty.
  std::optional<T> getNext() {
    if (isEmpty()) return std::nullopt;
    auto element = middleone->key;
    middleone = middleone->next ? middleone->next : top;
    return element;
  }

  // Drops all elements. The cursor stays where it is.
  void clearAll() { top.reset(); }

  bool isEmpty() const { return !top || !top->key; }

  // The number of nodes. Deliberate: a new queue has one node with nothing in it, so its count is 1
  // while isEmpty() is true. (Memory cannot hold more nodes than this type can count.)
  std::int64_t count() const {
    std::int64_t nodes = 0;
    for (const QNode<T>* node = top.get(); node != nullptr; node = node->next.get()) ++nodes;
    return nodes;
  }

 private:
  std::shared_ptr<QNode<T>> top = std::make_shared<QNode<T>>();
  std::shared_ptr<QNode<T>> middleone = std::make_shared<QNode<T>>();
};

// One pen sample as the application would queue it.
struct penData {
  std::uint8_t penup;
  std::int32_t xpos;  // view units
  std::int32_t ypos;  // view units
};

// The application's queue of samples, created at the first access. Nothing accesses it: samples go
// straight to the drawing view.
Queue<penData>& gQueue();

// The list position of the provider that was last asked to open. Written on the GUI thread, read by
// the callback.
extern std::atomic<std::int64_t> gpadindex;

// 0: the next sample starts a stroke. Any other value: a stroke is in progress. Written by the
// callback and on the GUI thread.
extern std::atomic<std::int8_t> firstPoint;

// The application's PenEventHandler: scales the sample to view units and continues the stroke in
// the drawing view, or starts one. Called on the SDK's thread. Draws nothing while there is no main
// window controller; a controller without a drawing view is a fatal error.
extern "C" void PenDataHandler(std::int32_t x, std::int32_t abs_y, std::int32_t pressure,
                               std::uint8_t fTouch, std::uint32_t dwTimeStamp,
                               std::uint32_t dwSequenceNum);

#endif
