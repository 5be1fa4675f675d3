#include "ComPortAdapter.h"

#include <sys/ipc.h>
#include <sys/msg.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Output.h"
#include "ReplyTimer.h"
#include "Trace.h"

namespace norva {

namespace {

/// The agent makes a missing queue itself, readable and writable by every user.
constexpr int kQueueFlags = IPC_CREAT | 0666;
constexpr long kAnyType = 0;

struct QueueMsg {
  long mtype;
  std::uint8_t payload[ComPortAdapter::kMaxSend];
};

constexpr std::size_t kByteTextSize = 3;
using ByteText = std::array<char, kByteTextSize + 1>;

/// "%02x " of every byte, filled up to what a processor stores at once.
constexpr auto kByteTexts = [] {
  constexpr char kDigits[] = "0123456789abcdef";
  std::array<ByteText, 256> texts{};
  for (std::size_t byte = 0; byte < texts.size(); ++byte) {
    texts[byte] = {kDigits[byte >> 4], kDigits[byte & 0xF], ' '};
  }
  return texts;
}();

/// Writes the whole payload in one call: it stands on the path of every request.
void tracePayload(const std::uint8_t* payload, std::size_t size) {
  if (!Trace::enabled()) return;
  std::array<char, ComPortAdapter::kMaxReceive * kByteTextSize + 1> line;
  char* end = line.data();
  for (std::size_t i = 0; i < size; ++i, end += kByteTextSize) {
    std::memcpy(end, kByteTexts[payload[i]].data(), sizeof(ByteText));
  }
  Trace::write({line.data(), end});
}

}  // namespace

int ComPortAdapter::open() {
  if (_isOpen) {
    lookUpQueues();
    removeQueues();
    _isOpen = false;
  }
  lookUpQueues();
  _isOpen = true;
  return 0;
}

int ComPortAdapter::close() {
  lookUpQueues();
  removeQueues();
  return 0;
}

void ComPortAdapter::lookUpQueues() {
  _readQid = msgget(_readKey, kQueueFlags);
  _writeQid = msgget(_writeKey, kQueueFlags);
  _alarmQid = msgget(_alarmKey, kQueueFlags);
}

void ComPortAdapter::removeQueues() const {
  msgctl(_alarmQid, IPC_RMID, nullptr);
  msgctl(_readQid, IPC_RMID, nullptr);
  msgctl(_writeQid, IPC_RMID, nullptr);
}

void ComPortAdapter::flush() {
  alignas(long) std::uint8_t discarded[kTypeSize + kMaxFlush];
  _readQid = msgget(_readKey, kQueueFlags);
  while (msgrcv(_readQid, discarded, kMaxFlush, 0, IPC_NOWAIT) != -1) {
  }
}

int ComPortAdapter::read(std::uint8_t* buffer, std::size_t length) {
  _readQid = msgget(_readKey, kQueueFlags);
  for (;;) {
    const ssize_t received = receive(_readQid, buffer, length);
    if (received == -1) return failed(errno);
    const auto size = static_cast<std::size_t>(received);
    switch (_replyTimer.classify(buffer + kTypeSize, size)) {
      case ReplyTimer::Message::kReply:
        return delivered(buffer, size);
      case ReplyTimer::Message::kWakeUp:
        return failed(ETIMEDOUT);
      case ReplyTimer::Message::kOldWakeUp:
        std::memset(buffer, 0, kTypeSize + size);
        break;
    }
  }
}

int ComPortAdapter::readAlarm(std::uint8_t* buffer, std::size_t length, std::uint8_t* hand) {
  _alarmQid = msgget(_alarmKey, kQueueFlags);
  ssize_t received = -1;
  do {
    if (_alarmsEnd) {
      errno = EINTR;
      return -1;
    }
    received = msgrcv(_alarmQid, hand, std::min(length, kMaxReceive), 0, 0);
  } while (received == -1 && errno == EINTR);
  if (received == -1) return failed(errno);
  const auto size = static_cast<std::size_t>(received);
  if (hand != buffer) std::copy_n(hand, kTypeSize + size, buffer);
  return delivered(buffer, size);
}

bool ComPortAdapter::dropReply() {
  _readQid = msgget(_readKey, kQueueFlags);
  return drop(_readQid, kAnyType);
}

bool ComPortAdapter::dropAlarm() {
  _alarmQid = msgget(_alarmKey, kQueueFlags);
  return drop(_alarmQid, kAnyType);
}

void ComPortAdapter::dropRequests() {
  _writeQid = msgget(_writeKey, kQueueFlags);
  while (drop(_writeQid, AGENT_MSG_TYPE)) {
  }
}

bool ComPortAdapter::drop(int qid, long type) {
  long mtype = 0;
  return msgrcv(qid, &mtype, 0, type, IPC_NOWAIT | MSG_NOERROR) != -1;
}

ssize_t ComPortAdapter::receive(int qid, std::uint8_t* buffer, std::size_t length) {
  // A signal must not end the wait: the request in whose middle the process is asked to end would
  // be answered as if the device had failed.
  ssize_t received = -1;
  do {
    received = msgrcv(qid, buffer, std::min(length, kMaxReceive), 0, 0);
  } while (received == -1 && errno == EINTR);
  return received;
}

int ComPortAdapter::failed(int error) {
  Output::print("called, failed: errno: %s, error code:%d\n", std::strerror(error), error);
  errno = error;
  return -1;
}

int ComPortAdapter::delivered(std::uint8_t* buffer, std::size_t size) {
  // The message type was received in front of the payload. Bytes that the move leaves behind are
  // cleared, so that a short message is followed by zeros and not by its own tail.
  std::memmove(buffer, buffer + kTypeSize, size);
  std::memset(buffer + size, 0, kTypeSize);
  tracePayload(buffer, size);
  return static_cast<int>(size);
}

int ComPortAdapter::write(const std::uint8_t* buffer, std::size_t length) {
  const std::size_t size = std::min(length, kMaxSend);
  QueueMsg message;
  message.mtype = AGENT_MSG_TYPE;
  std::copy_n(buffer, size, message.payload);
  _writeQid = msgget(_writeKey, kQueueFlags);
  if (msgsnd(_writeQid, &message, size, IPC_NOWAIT) < 0) {
    Output::puts("ComPortAdapter::write msg_queue error:");
  }
  tracePayload(message.payload, size);
  return static_cast<int>(size);
}

}  // namespace norva
