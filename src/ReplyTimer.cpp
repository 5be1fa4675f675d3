#include "ReplyTimer.h"

#include <sys/ipc.h>
#include <sys/msg.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <thread>

#include "Output.h"

namespace norva {

namespace {

/// First byte of a wake-up; no command of the unit.
constexpr std::uint8_t kWakeUpMark = 0xFF;
/// When a wake-up could not be posted, or the waiter has not taken it.
constexpr std::uint32_t kRepeat = 100;  // milliseconds

std::uint32_t now() {
  const auto sinceStart = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint32_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(sinceStart).count());
}

}  // namespace

void ReplyTimer::limit(std::chrono::seconds limit) {
  if (limit.count() == 0) return;
  // Not before it is wanted: some boards have no random numbers for a while after their start.
  std::random_device random;
  std::generate(_token.begin(), _token.end(), [&] { return static_cast<std::uint8_t>(random()); });
  _begun = now();  // in front of the limit: for the wait that is under way
  _limit = static_cast<std::uint32_t>(std::chrono::milliseconds(limit).count());
  if (startWorker()) return;
  _limit = 0;
  Output::puts(kThreadRefused);
  Output::puts("norvaDeviceTimeout is not in force: waits for the unit have no end");
}

void ReplyTimer::begin() {
  if (isLimited()) _begun = now();
  _wait.fetch_add(1);
}

ReplyTimer::WakeUp ReplyTimer::wakeUp(std::uint32_t wait) const {
  WakeUp payload{kWakeUpMark};
  std::copy(_token.begin(), _token.end(), payload.begin() + 1);
  std::memcpy(payload.data() + 1 + kTokenSize, &wait, sizeof wait);
  return payload;
}

ReplyTimer::Message ReplyTimer::classify(const std::uint8_t* payload, std::size_t size) const {
  if (!isLimited() || size != kWakeUpSize || payload[0] != kWakeUpMark) return Message::kReply;
  const WakeUp expected = wakeUp(_wait.load());
  if (std::equal(expected.begin(), expected.end(), payload)) return Message::kWakeUp;
  return std::equal(_token.begin(), _token.end(), payload + 1) ? Message::kOldWakeUp
                                                               : Message::kReply;
}

void ReplyTimer::post(std::uint32_t wait) const {
  struct {
    long mtype;
    WakeUp payload;
  } const message{1, wakeUp(wait)};
  msgsnd(msgget(_queueKey, 0), &message, kWakeUpSize, IPC_NOWAIT);
}

void ReplyTimer::run() {
  for (;;) {
    // A wait that begins while this thread sleeps ends no sooner than the sleep.
    std::uint32_t pause = _limit;
    const std::uint32_t wait = _wait;
    const std::uint32_t waited = now() - _begun;
    if ((wait & 1) != 0 && _wait == wait) {
      if (waited >= _limit) {
        post(wait);
        pause = kRepeat;
      } else {
        pause -= waited;
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(pause));
  }
}

}  // namespace norva
