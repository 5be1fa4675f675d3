#include "MessageQueue.h"

#include <sys/ipc.h>
#include <sys/msg.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace norva::dasunit {

namespace {

constexpr int kCreate = IPC_CREAT | 0666;
/// The agent takes any type on the queues it reads.
constexpr long kMessageType = 1;

/// Both errors mean that the queue of this id is gone: EIDRM while waiting in it, EINVAL after.
bool isRemoved(int error) {
  return error == EIDRM || error == EINVAL;
}

}  // namespace

MessageQueue::MessageQueue(QueueKey key) : key_(key), id_(lookUp()) {}

int MessageQueue::lookUp() {
  const int id = msgget(key_, kCreate);
  if (id < 0) {
    throw InputError("message queue " + std::to_string(key_) + ": " + std::strerror(errno));
  }
  return id;
}

bool MessageQueue::send(std::span<const std::uint8_t> payload) {
  struct {
    long type;
    std::uint8_t payload[kMaxPayload];
  } message;
  if (payload.size() > sizeof message.payload) throw InputError("message of over 8000 bytes");
  message.type = kMessageType;
  if (!payload.empty()) std::memcpy(message.payload, payload.data(), payload.size());

  for (bool lookedUp = false;;) {
    if (msgsnd(id_, &message, payload.size(), IPC_NOWAIT) == 0) return true;
    if (errno == EAGAIN) return false;
    if (errno == EINTR) continue;
    if (!isRemoved(errno) || lookedUp) {
      throw InputError(std::string("message queue: ") + std::strerror(errno));
    }
    id_ = lookUp();
    lookedUp = true;
  }
}

std::optional<std::span<const std::uint8_t>> MessageQueue::receive() {
  const ssize_t size = msgrcv(id_, &received_, sizeof received_.payload, 0, MSG_NOERROR);
  if (size >= 0) return std::span(received_.payload).first(static_cast<std::size_t>(size));
  if (isRemoved(errno)) {
    id_ = lookUp();
  } else if (errno != EINTR) {
    throw InputError(std::string("message queue: ") + std::strerror(errno));
  }
  return std::nullopt;
}

void MessageQueue::remove() {
  if (msgctl(lookUp(), IPC_RMID, nullptr) != 0) {
    throw InputError(std::string("message queue: ") + std::strerror(errno));
  }
}

}  // namespace norva::dasunit
