// Notifications on their way to the master: the backlog that waits, and what was sent and is not
// yet acknowledged. One object for the whole process, never freed. Any thread; no other lock is
// taken while the queue's is held.
//
// The alarm and heartbeat threads put in; whoever holds the agent library takes out and sends. A
// notification gets its number when it is taken for the first time or dropped, so numbers follow
// the order of the queue. What the master has not acknowledged when its session ends goes back to
// the head and leaves again, with its old number, in the next session.
//
// While the master answers, a full queue holds its producer up and nothing is lost. In an outage
// (no session, or nothing acknowledged for kStall although the master was listened to) alarms are
// taken in all the same and the oldest ones dropped. A heartbeat waits for its turn, holding up its
// own thread, and is given up with the session. With a capacity of 0 nothing is kept: each
// notification is handed to the library in its turn, which drops it where there is no session.

#ifndef NORVA_NOTIFICATION_QUEUE_H_
#define NORVA_NOTIFICATION_QUEUE_H_

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <utility>

#include "TrapMessage.h"

namespace norva {

/// What a notification is made of, but for its number.
struct Notification {
  TrapMessage message;
  std::string name;
  std::string value;
};

class NotificationQueue {
 public:
  /// Notifications that the master may owe its acknowledgement at a time. They do not fill the
  /// connection, so that agent and master never block each other.
  static constexpr std::size_t kMaxOwed = 64;
  static constexpr std::chrono::seconds kStall{3};

  /// The process-wide queue.
  static NotificationQueue& getInstance();

  NotificationQueue() = default;
  NotificationQueue(const NotificationQueue&) = delete;
  NotificationQueue& operator=(const NotificationQueue&) = delete;

  /// Notifications that are kept, sent ones included; up to kMaxOwed more in an outage. Before any
  /// producer.
  void setCapacity(std::size_t capacity);

  /// `tell` is called by a producer when there is something to send and was not before, without a
  /// lock held: the holder of the library has to know. Before any producer.
  void onWork(std::function<void()> tell) { _tell = std::move(tell); }

  /// Puts an alarm in, waiting as said above. Any thread.
  void push(Notification notification);
  /// Puts a heartbeat in, waiting for room, and then until it was taken or given up. True when it
  /// was taken. One thread.
  bool pushHeartbeat(Notification notification);

  // For the library's holder.

  struct Numbered {
    Notification notification;
    std::uint32_t sequence = 0;  ///< 0 until it is taken
  };
  /// The next notification, if one may be sent now, else null. Valid until `sent`, to be called
  /// once it was handed to the library. Prints, in front of the first one after an outage, how many
  /// were dropped.
  const Numbered* take();
  /// What was taken last has left as packet `id` of the session; 0: the library has sent nothing,
  /// which is printed.
  void sent(std::uint32_t id);
  /// True when take would yield one. No lock.
  bool hasWork() const { return _sendable.load(); }

  void sessionStarted();
  void sessionEnded();
  /// Whether the library reads what the master sends: not before the request loop, nor while a
  /// request handler waits for the unit. Main thread.
  void listensToMaster(bool listens);
  /// The master has answered packet `id`, which may be none of ours. An `error` of its is printed;
  /// sending again would not help.
  void acknowledged(std::uint32_t id, unsigned error = 0);

 private:
  using Clock = std::chrono::steady_clock;
  enum class Fate : std::uint8_t { kWaiting, kTaken, kGivenUp };

  struct Entry : Numbered {
    bool isHeartbeat = false;
    std::uint32_t packet = 0;
  };

  // All below REQUIRE the lock.

  bool keeps() const { return _capacity > 0; }
  std::size_t held() const { return _waiting.size() + _owed.size(); }
  bool hasRoom() const { return keeps() ? held() < _capacity : _waiting.empty(); }
  bool isOutage() const;
  /// Waits until something has changed, or for `deadline`.
  void waitForChange(std::unique_lock<std::mutex>& lock, Clock::time_point deadline);
  /// Drops what is too much; releases the lock to tell of it, if there was nothing to send before.
  void append(std::unique_lock<std::mutex>& lock, Entry entry);
  void dropOldest();
  /// What becomes of `entry`, for the producer that waits if it is a heartbeat.
  void settle(const Entry& entry, Fate fate);
  /// Wakes producers once they find more than a little room.
  void tellRoom();
  void update();

  std::function<void()> _tell;
  std::mutex _mutex;                 // guards all below
  std::condition_variable _changed;  // producers wait for room, or for the fate of a heartbeat
  int _producersWaiting = 0;
  std::size_t _capacity = 1000;
  std::deque<Entry> _waiting;
  std::deque<Entry> _owed;
  Fate _heartbeat = Fate::kTaken;  // of the last one
  std::uint32_t _sequence = 0;
  std::size_t _dropped = 0;  // since the last line about it
  bool _connected = false;
  // When the master took something, when it was listened to again, or when the queue was empty.
  Clock::time_point _progress{};
  std::atomic<bool> _sendable = false;
  std::atomic<bool> _holdsAny = false;
  std::atomic<bool> _listens = false;
};

}  // namespace norva

#endif  // NORVA_NOTIFICATION_QUEUE_H_
