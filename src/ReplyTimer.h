// Ends the wait for a reply of the unit that does not come.
//
// A wait for a message has no limit of its own, so a thread of the timer looks when the oldest wait
// has had its time and then puts a wake-up message of our own on the reply queue. The request path
// pays no system call for it, and no signal can come too early: a wake-up carries the number of its
// wait, and one that arrives behind the reply is discarded with the other leftovers.
//
// One wait at a time: its begin, its end and classify are called under DataManage's mutex.

#ifndef NORVA_REPLY_TIMER_H_
#define NORVA_REPLY_TIMER_H_

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "Thread.h"

namespace norva {

class ReplyTimer : private Thread {
 public:
  /// `queueKey` is the key of the queue in which replies are waited for.
  explicit ReplyTimer(std::int32_t queueKey);

  /// Limits every wait from now on; one that is under way has its whole time from now. Once, any
  /// thread.
  void limit(std::chrono::seconds limit);
  bool isLimited() const { return _limit.load(std::memory_order_relaxed) > 0; }

  /// A wait for one reply, while the object lives.
  class Wait {
   public:
    explicit Wait(ReplyTimer& timer) : _timer(timer) { _timer.begin(); }
    ~Wait() { _timer.end(); }
    Wait(const Wait&) = delete;
    Wait& operator=(const Wait&) = delete;

   private:
    ReplyTimer& _timer;
  };

  enum class Message { kReply, kWakeUp, kOldWakeUp };
  /// What a message from the reply queue is: a wake-up of this wait, of an earlier one, or none.
  Message classify(const std::uint8_t* payload, std::size_t size) const;

 private:
  static constexpr std::size_t kTokenSize = 8;
  static constexpr std::size_t kWakeUpSize = 1 + kTokenSize + sizeof(std::uint32_t);
  using WakeUp = std::array<std::uint8_t, kWakeUpSize>;

  void run() override;
  void begin();
  void end() { _wait.fetch_add(1); }
  WakeUp wakeUp(std::uint32_t wait) const;
  void post(std::uint32_t wait) const;

  const std::int32_t _queueKey;
  std::array<std::uint8_t, kTokenSize> _token{};  // no other message carries it
  // All of 32 bits, which every processor handles in one piece; times in milliseconds, modulo 2^32.
  std::atomic<std::uint32_t> _limit = 0;
  std::atomic<std::uint32_t> _wait = 0;   // number of the wait, odd while it lasts
  std::atomic<std::uint32_t> _begun = 0;  // told once there is a limit
};

}  // namespace norva

#endif  // NORVA_REPLY_TIMER_H_
