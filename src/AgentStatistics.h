// What the agent counts of itself: told by its own objects (AgentObjects) and to the service
// manager (ServiceStatus).
//
// One set for the process, never freed. Any thread counts and reads, without a lock or a system
// call; counters go on at 0 behind 2^32 - 1, as SNMP's Counter32 does.

#ifndef NORVA_AGENT_STATISTICS_H_
#define NORVA_AGENT_STATISTICS_H_

#include <atomic>
#include <chrono>
#include <cstdint>

namespace norva {

class Counter {
 public:
  void add(std::uint32_t count = 1) { _count.fetch_add(count, std::memory_order_relaxed); }
  std::uint32_t value() const { return _count.load(std::memory_order_relaxed); }

 private:
  std::atomic<std::uint32_t> _count{0};
};

struct AgentStatistics {
  static AgentStatistics& get();

  Counter unitReads;     ///< that the unit was asked for
  Counter unitWrites;    ///< the same
  Counter unitFailures;  ///< of both
  Counter unitTimeouts;  ///< among the failures

  Counter masterSessions;

  Counter notificationsTaken;
  Counter notificationsSent;          ///< each time
  Counter notificationsAcknowledged;  ///< by the master
  Counter notificationsRepeated;      ///< among those sent: not for the first time
  Counter notificationsDropped;

  Counter outputBytesDropped;
};

/// When the unit was asked, and when it replied. Measured, by two looks at the clock for each
/// exchange, only once somebody wants to know.
class ReplyTimes {
 public:
  using Clock = std::chrono::steady_clock;

  static ReplyTimes& get();

  /// Measures from now on. Main thread.
  void start();

  // Milliseconds; the largest number stands for more. All 0 until `start`.

  /// Since the last reply; before the first one since `start`.
  std::uint32_t sinceLastReply() const;
  std::uint32_t slowestReply() const { return _slowest.load(std::memory_order_relaxed); }
  /// For how long the unit has owed a reply: since it was first asked after its last one.
  std::uint32_t silence() const;

 private:
  friend class UnitExchange;

  Clock::time_point asked();
  void replied(Clock::time_point asked);

  // Of 32 bits, which every processor handles in one piece. Points in time are hundredths of a
  // second, good for more than a year; 0: none.
  std::atomic<std::uint32_t> _lastReply = 0;
  std::atomic<std::uint32_t> _owedSince = 0;
  std::atomic<std::uint32_t> _slowest = 0;  // milliseconds
};

/// One read or write of the unit, which begins with the object and is counted as failed unless it
/// succeeds. One at a time: under DataManage's mutex.
class UnitExchange {
 public:
  /// `kind` is unitReads or unitWrites.
  explicit UnitExchange(Counter& kind);
  ~UnitExchange();
  UnitExchange(const UnitExchange&) = delete;
  UnitExchange& operator=(const UnitExchange&) = delete;

  /// A reply has come, whatever it says.
  void replied() const { ReplyTimes::get().replied(_asked); }
  void succeeded() { _hasSucceeded = true; }

 private:
  const ReplyTimes::Clock::time_point _asked;
  bool _hasSucceeded = false;
};

}  // namespace norva

#endif  // NORVA_AGENT_STATISTICS_H_
