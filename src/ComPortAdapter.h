// The agent's only link to the unit's control process: three System V message queues with fixed
// keys. Stamps a fixed message type on what it sends, strips the type from what it receives, clips
// lengths and traces every payload on standard output as "%02x " per byte.
//
// No lock of its own. flush, read and write are driven by DataManage under its mutex; readAlarm is
// the alarm thread's and touches only the alarm queue. Every operation looks its queue up again by
// key, so a queue that the control process removed and made anew is picked up by the next one.

#ifndef NORVA_COM_PORT_ADAPTER_H_
#define NORVA_COM_PORT_ADAPTER_H_

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace norva {

class ReplyTimer;

/// Keys of the three queues. Constants of the unit, not configurable.
enum QueueKey : std::int32_t {
  kReplyQueueKey = 0x4009,
  kRequestQueueKey = 0x4008,
  kAlarmQueueKey = 0x0040004D,
};

/// Message type of everything the agent sends. What it receives may carry any type.
constexpr long AGENT_MSG_TYPE = 0x9999;

/// What a thread that receives in a loop waits behind a receive that failed.
constexpr std::chrono::milliseconds kPauseAfterFailure{100};

class ComPortAdapter {
 public:
  static constexpr std::size_t kMaxSend = 2048;     ///< longest payload sent; more is cut
  static constexpr std::size_t kMaxReceive = 4096;  ///< longest payload one receive accepts
  static constexpr std::size_t kMaxFlush = 100;     ///< longest payload flush can discard
  /// Room for the message type in front of the payload of a receive buffer.
  static constexpr std::size_t kTypeSize = sizeof(long);

  /// `replyTimer` ends waits in `read` that last too long. Not owned.
  explicit ComPortAdapter(const ReplyTimer& replyTimer) : _replyTimer(replyTimer) {}
  /// Leaves the queues in the system, where they outlive the process.
  virtual ~ComPortAdapter() = default;
  ComPortAdapter(const ComPortAdapter&) = delete;
  ComPortAdapter& operator=(const ComPortAdapter&) = delete;

  /// Attaches to the three queues, creating missing ones; always 0. What waits in existing queues
  /// is kept, except that a second open removes all three queues first and makes them anew.
  int open();
  /// Removes the three queues from the system; always 0.
  int close();

  /// Discards what waits on the reply queue, without blocking, up to the first message of more than
  /// kMaxFlush bytes.
  void flush();

  /// Waits for one reply of at most min(length, kMaxReceive) bytes. Returns the
  /// number of payload bytes, which start at buffer[0], or -1 after printing the failure. A longer
  /// reply fails with E2BIG and stays at the head of the queue. The kTypeSize bytes behind the
  /// payload are zero. After -1, errno tells why; ETIMEDOUT when the reply timer ended the wait.
  /// REQUIRES: `buffer` holds kTypeSize + min(length, kMaxReceive) bytes and is aligned to a long.
  int read(std::uint8_t* buffer, std::size_t length);

  /// As read, on the alarm queue, without limit. -1 with EINTR and nothing printed once endAlarms
  /// was called.
  int readAlarm(std::uint8_t* buffer, std::size_t length) {
    return readAlarm(buffer, length, buffer);
  }
  /// The same; the message is received into `hand`, type first, and stays there, `buffer` gets a
  /// copy. Both hold as much as read requires.
  int readAlarm(std::uint8_t* buffer, std::size_t length, std::uint8_t* hand);
  /// No alarm is taken off the queue from now on; a signal ends a wait that is under way. Any
  /// thread.
  void endAlarms() { _alarmsEnd = true; }
  /// Take the message at the head of the reply or alarm queue off, whatever its size, without
  /// waiting. False when there is none or the queue fails.
  bool dropReply();
  bool dropAlarm();

  /// Takes the requests that an earlier agent left off the request queue, without waiting: a unit
  /// that was silent would answer them first.
  void dropRequests();

  /// Hands min(length, kMaxSend) bytes to the request queue without waiting and returns that
  /// number. Deliberate: also when the send failed (which is printed), so callers cannot tell.
  int write(const std::uint8_t* buffer, std::size_t length);

 private:
  void lookUpQueues();
  void removeQueues() const;
  /// As msgrcv, but for signals: the message type, then the payload.
  static ssize_t receive(int qid, std::uint8_t* buffer, std::size_t length);
  /// What read and readAlarm return: -1, the failure printed and left in errno; or the size of the
  /// payload, moved to the buffer's start and traced.
  static int failed(int error);
  static int delivered(std::uint8_t* buffer, std::size_t size);
  /// Takes the first message of a type off.
  static bool drop(int qid, long type);

  const std::int32_t _readKey = kReplyQueueKey;
  const std::int32_t _writeKey = kRequestQueueKey;
  const std::int32_t _alarmKey = kAlarmQueueKey;
  int _readQid = -1;
  int _writeQid = -1;
  int _alarmQid = -1;
  bool _isOpen = false;
  std::atomic<bool> _alarmsEnd = false;
  const ReplyTimer& _replyTimer;
};

}  // namespace norva

#endif  // NORVA_COM_PORT_ADAPTER_H_
