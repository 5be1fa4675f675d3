// One System V message queue, found by its key. Whenever the queue turns out to be removed it is
// looked up again, created if need be, and the operation goes on there.
//
// Any thread may send and remove; one thread receives.

#ifndef NORVA_DASUNIT_MESSAGE_QUEUE_H_
#define NORVA_DASUNIT_MESSAGE_QUEUE_H_

#include <atomic>
#include <cstdint>
#include <optional>
#include <span>

#include "ComPortAdapter.h"
#include "Text.h"

namespace norva::dasunit {

/// Longest payload the unit puts on a queue; below the system's usual limit of 8192.
constexpr std::int64_t kMaxPayload = 8000;

class MessageQueue {
 public:
  /// Attaches to the queue, creating it if missing; what waits in it is kept. Throws InputError
  /// when the system gives no queue.
  explicit MessageQueue(QueueKey key);
  MessageQueue(const MessageQueue&) = delete;
  MessageQueue& operator=(const MessageQueue&) = delete;

  /// Hands over one message without waiting. False when the queue is full.
  bool send(std::span<const std::uint8_t> payload);

  /// Waits for the next message, whose payload is valid until the next call. Nothing after a signal
  /// and when the queue was removed meanwhile; the next call then waits in its successor.
  std::optional<std::span<const std::uint8_t>> receive();

  /// Removes the queue from the system, with all that waits in it.
  void remove();

 private:
  int lookUp();

  const QueueKey key_;
  std::atomic<int> id_;
  struct {
    long type;
    std::uint8_t payload[8192];
  } received_{};
};

}  // namespace norva::dasunit

#endif  // NORVA_DASUNIT_MESSAGE_QUEUE_H_
