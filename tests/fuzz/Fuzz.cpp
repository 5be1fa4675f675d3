#include "Fuzz.h"

#include <sys/msg.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Output.h"

namespace norva::fuzz {

Bytes Input::bytes(std::size_t most) {
  const std::size_t size = std::min(most, static_cast<std::size_t>(_end - _next));
  Bytes taken(_next, _next + size);
  _next += size;
  return taken;
}

Bytes Input::message() {
  constexpr std::size_t kLong = 200;
  std::size_t size = byte();
  if (size >= kLong) size = kLong + (size - kLong) * 16 + byte() % 16;
  return bytes(size);
}

Queues& Queues::get() {
  static Queues queues;
  return queues;
}

}  // namespace norva::fuzz

// The system's message queues. A queue's id is its key.

using norva::fuzz::Bytes;
using norva::fuzz::Queues;

extern "C" int msgget(key_t key, int) {
  return key;
}

extern "C" int msgctl(int, int, msqid_ds*) {
  return 0;
}

extern "C" int msgsnd(int id, const void* message, std::size_t size, int) {
  const auto* payload = static_cast<const std::uint8_t*>(message) + sizeof(long);
  const auto& sent = Queues::get().sent;
  if (!sent || sent(id, Bytes(payload, payload + size))) return 0;
  errno = ENOSPC;
  return -1;
}

extern "C" ssize_t msgrcv(int id, void* message, std::size_t size, long, int flags) {
  std::deque<Bytes>& waiting = Queues::get().waiting[id];
  if (waiting.empty()) {
    if ((flags & IPC_NOWAIT) == 0 && Queues::get().exhausted) Queues::get().exhausted(id);
    errno = (flags & IPC_NOWAIT) != 0 ? ENOMSG : EIDRM;
    return -1;
  }
  if (waiting.front().size() > size && (flags & MSG_NOERROR) == 0) {
    errno = E2BIG;
    return -1;
  }
  const Bytes payload = std::move(waiting.front());
  waiting.pop_front();
  const long type = 1;
  const std::size_t taken = std::min(size, payload.size());
  std::memcpy(message, &type, sizeof type);
  if (taken > 0)
    std::memcpy(static_cast<std::uint8_t*>(message) + sizeof type, payload.data(), taken);
  return static_cast<ssize_t>(taken);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Queues::get() = {};
  norva::fuzz::run({data, size});
  norva::Output::getInstance().drain({});
  return 0;
}
