// Notifications on their way to the master: the backlog that waits, and what was sent and is not
// yet acknowledged.
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
//
// Any thread. No other lock is taken while the queue's is held.

#ifndef NORVA_NOTIFICATION_QUEUE_H_
#define NORVA_NOTIFICATION_QUEUE_H_

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>

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

  /// Puts an alarm in, waiting as said above. True when the holder of the library has to be told:
  /// there was nothing to send before.
  bool push(Notification notification);

  struct Heartbeat {
    std::uint32_t id;  ///< 0: there is no session, the heartbeat is given up
    bool mustTell;     ///< as push returns
  };
  /// Puts a heartbeat in, waiting for room.
  Heartbeat pushHeartbeat(Notification notification);
  /// Waits until the heartbeat was taken or given up. True when it was taken.
  bool wasTaken(const Heartbeat& heartbeat);

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
  /// The master has taken packet `id`, which may be none of ours.
  void acknowledged(std::uint32_t id);

 private:
  using Clock = std::chrono::steady_clock;
  enum class Fate : std::uint8_t { kWaiting, kTaken, kGivenUp };

  struct Entry : Numbered {
    std::uint32_t heartbeat = 0;  ///< its id; 0: an alarm
    std::uint32_t packet = 0;

    bool isHeartbeat() const { return heartbeat != 0; }
  };

  // All below REQUIRE the lock.

  bool keeps() const { return _capacity > 0; }
  std::size_t held() const { return _waiting.size() + _owed.size(); }
  bool hasRoom() const { return keeps() ? held() < _capacity : _waiting.empty(); }
  bool isOutage() const;
  /// Waits until something has changed, or for `deadline`.
  void waitForChange(std::unique_lock<std::mutex>& lock, Clock::time_point deadline);
  /// True when there is something to send and was not before.
  bool append(Entry entry);
  void dropOldest();
  void settle(const Entry& entry, Fate fate);
  /// Wakes producers once they find more than a little room.
  void tellRoom();
  void update();

  std::mutex _mutex;                 // guards all below
  std::condition_variable _changed;  // producers wait for room, or for the fate of a heartbeat
  int _producersWaiting = 0;
  std::size_t _capacity = 1000;
  std::deque<Entry> _waiting;
  std::deque<Entry> _owed;
  std::map<std::uint32_t, Fate> _fates;  // of heartbeats whose producers wait
  std::uint32_t _lastHeartbeat = 0;
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
