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
// (no session, or nothing acknowledged for `stall`, whatever the main thread waits for) alarms are
// taken in all the same and the oldest ones dropped: a control process that posts alarms before it
// replies gets to its reply. A heartbeat waits for its turn, holding up its own thread, and is
// given up with the session. With a capacity of 0 nothing is kept: each notification is handed to
// the library in its turn, which drops it where there is no session.
//
// With a BacklogFile, alarms are kept there too, from their arrival to their acknowledgement or
// loss, and the numbers go on from one life of the agent to the next.

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

#include "BacklogFile.h"
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
  /// The same for the bytes of their texts, which mapping databases may make long. One notification
  /// may be owed whatever its size.
  static constexpr std::size_t kMaxOwedBytes = 32 * 1024;

  struct Times {
    std::chrono::milliseconds stall{3000};  ///< without an acknowledgement: an outage
    /// Without an acknowledgement from a master that is full and says other things: forsaken.
    std::chrono::milliseconds forsaken{30'000};
  };

  /// The process-wide queue.
  static NotificationQueue& getInstance();

  explicit NotificationQueue(Times times) : _times(times) {}
  NotificationQueue() : NotificationQueue(Times()) {}
  NotificationQueue(const NotificationQueue&) = delete;
  NotificationQueue& operator=(const NotificationQueue&) = delete;

  /// Notifications that are kept, sent ones included; up to kMaxOwed more in an outage. Before any
  /// producer.
  void setCapacity(std::size_t capacity);

  /// Keeps alarms in `file` too, which may be null and is not owned; the number after
  /// `lastSequence` is the next one. Before any producer.
  void useFile(BacklogFile* file, std::uint32_t lastSequence);
  /// Puts in what a file held, as it stands there; one that has no slot gets one. Before any
  /// producer, in the file's order.
  void restore(Notification notification, const BacklogFile::Kept& kept);
  /// Frees what a file held and nobody wants.
  void forget(const BacklogFile::Kept& kept);

  /// `tell` is called by a producer when there is something to send and was not before, without a
  /// lock held: the holder of the library has to know. Before any producer.
  void onWork(std::function<void()> tell) { _tell = std::move(tell); }

  /// Puts an alarm in, waiting as said above. Any thread.
  void push(Notification notification);
  /// Puts a heartbeat in, waiting for room, and then until it was taken or given up. True when it
  /// was taken. One thread.
  bool pushHeartbeat(Notification notification);

  /// Notifications that wait, or were sent and are not yet acknowledged. Any thread.
  std::size_t size();

  /// Waits, at most for `limit`, until all has left and was acknowledged, or there is no session
  /// for it to leave in. Heartbeats are taken no more. Any thread.
  void drain(std::chrono::milliseconds limit);

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
  /// A request handler waits for the unit from now on, or no longer: nobody hears the master
  /// meanwhile. Main thread.
  void deviceWait(bool begins);
  /// The master has said something. True when its session is to be ended: it owes as much as it may
  /// and has gone on saying other things for `forsaken`, not counted while nobody heard it.
  bool isForsakenOnHearing();
  /// The master has answered packet `id`, which may be none of ours. An `error` of its is printed;
  /// sending again would not help.
  void acknowledged(std::uint32_t id, unsigned error = 0);

 private:
  using Clock = std::chrono::steady_clock;
  enum class Fate : std::uint8_t { kWaiting, kTaken, kGivenUp };

  struct Entry : Numbered {
    bool isHeartbeat = false;
    std::uint32_t packet = 0;
    BacklogFile::Slot slot = BacklogFile::kNoSlot;

    std::size_t textSize() const;
  };

  // All below REQUIRE the lock.

  bool keeps() const { return _capacity > 0; }
  std::size_t held() const { return _waiting.size() + _owed.size(); }
  bool hasRoom() const { return keeps() ? held() < _capacity : _waiting.empty(); }
  bool isOutage() const { return !canLeave() || Clock::now() - _progress >= _times.stall; }
  bool canLeave() const { return _connected || !keeps(); }
  bool owesAll() const;
  void number(Entry& entry);
  /// Waits until something has changed, or for `deadline`.
  void waitForChange(std::unique_lock<std::mutex>& lock, Clock::time_point deadline);
  /// Drops what waits beyond `most`; releases the lock to tell of it, if there was nothing to send
  /// before.
  void append(std::unique_lock<std::mutex>& lock, Entry entry, std::size_t most);
  void dropOldest();
  /// Of what is owed, for good.
  void remove(const std::deque<Entry>::const_iterator& entry);
  /// What becomes of `entry`, for the producer that waits if it is a heartbeat.
  void settle(const Entry& entry, Fate fate);
  /// Wakes producers once they find more than a little room.
  void tellRoom();
  /// The master took something, or there was nothing for it to take.
  void madeProgress();
  void update();

  const Times _times;
  std::function<void()> _tell;
  BacklogFile* _file = nullptr;
  std::mutex _mutex;                 // guards all below
  std::condition_variable _changed;  // producers wait for room, or for the fate of a heartbeat
  std::condition_variable _left;     // drain waits until all has left
  int _producersWaiting = 0;
  std::size_t _capacity = 1000;
  std::deque<Entry> _waiting;
  std::deque<Entry> _owed;
  std::size_t _owedBytes = 0;
  Fate _heartbeat = Fate::kTaken;  // of the last one
  std::uint32_t _sequence = 0;
  std::size_t _dropped = 0;  // since the last line about it
  bool _connected = false;
  bool _isEnding = false;
  Clock::time_point _progress{};
  // Of a master that owes all it may: when it was heard last, and for how long in all.
  Clock::time_point _heard{};
  Clock::duration _heardFor{};
  Clock::time_point _deaf{};  // since when nobody hears it; the main thread's
  std::atomic<bool> _sendable = false;
  std::atomic<bool> _owesAll = false;
};

}  // namespace norva

#endif  // NORVA_NOTIFICATION_QUEUE_H_
