// Ends a wait for the unit's reply when none comes in time. Owned by DataManage, for the life of
// the process; the functions of one wait and classify are called under its mutex, so there is one
// wait at a time.
//
// Receiving a message knows no time limit. So a thread of the timer watches the wait, and when its
// time is up, posts a wake-up message to the reply queue. That costs the request path no system
// call. A wake-up carries the number of its wait: one that comes too late, behind the reply, is
// recognised and discarded with the other leftovers.

#ifndef NORVA_REPLY_TIMER_H_
#define NORVA_REPLY_TIMER_H_

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "Worker.h"

namespace norva {

class ReplyTimer : private Worker {
 public:
  /// `queueKey` is the key of the queue in which replies are waited for.
  explicit ReplyTimer(std::int32_t queueKey) : _queueKey(queueKey) {}

  /// Limits every wait from now on; one that is under way has its whole time from now. Where the
  /// system refuses a thread, which is printed, waits stay without a limit. Once, any thread.
  void limit(std::chrono::seconds limit);
  bool isLimited() const { return _limit.load(std::memory_order_acquire) > 0; }

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
  std::array<std::uint8_t, kTokenSize> _token{};  // no other message carries it; told with a limit
  // All of 32 bits, which every processor handles in one piece; times in milliseconds, modulo 2^32.
  std::atomic<std::uint32_t> _limit = 0;
  std::atomic<std::uint32_t> _wait = 0;   // number of the wait, odd while it lasts
  std::atomic<std::uint32_t> _begun = 0;  // told once there is a limit
};

}  // namespace norva

#endif  // NORVA_REPLY_TIMER_H_
