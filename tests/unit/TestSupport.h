// What several unit tests share: bytes written as text, captured output, queues, databases.

#ifndef NORVA_TESTS_UNIT_TEST_SUPPORT_H_
#define NORVA_TESTS_UNIT_TEST_SUPPORT_H_

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/msg.h>

#include <cstring>
#include <filesystem>
#include <limits>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "ComPortAdapter.h"
#include "Output.h"

namespace norva::test {

using Bytes = std::vector<std::uint8_t>;

/// Printed for a message that is longer than its receiver takes.
constexpr char kTooLong[] = "called, failed: errno: Argument list too long, error code:7\n";

/// "01 ab" reads as the bytes 0x01, 0xAB; bytes of `filler` follow up to `size`.
inline Bytes hex(const std::string& text, std::size_t size = 0, std::uint8_t filler = 0) {
  std::istringstream in(text);
  Bytes bytes;
  for (unsigned byte = 0; in >> std::hex >> byte;) bytes.push_back(static_cast<std::uint8_t>(byte));
  bytes.resize(std::max(size, bytes.size()), filler);
  return bytes;
}

/// `size` bytes that differ from their neighbours: 01 02 03 ...
inline Bytes pattern(std::size_t size) {
  Bytes bytes;
  while (bytes.size() < size) bytes.push_back(static_cast<std::uint8_t>(bytes.size() % 251 + 1));
  return bytes;
}

inline Bytes bytesOf(const auto& record) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(&record);
  return {bytes, bytes + sizeof record};
}

/// What the channel prints for a payload.
inline std::string trace(const Bytes& payload) {
  std::string text;
  for (const int byte : payload)
    text += {"0123456789abcdef"[byte / 16], "0123456789abcdef"[byte % 16], ' '};
  return text;
}

/// What `action` writes to standard output. The text of an assertion inside shows as a difference.
inline std::string printed(const auto& action) {
  Output::getInstance().drain({});
  testing::internal::CaptureStdout();
  action();
  Output::getInstance().drain({});
  return testing::internal::GetCapturedStdout();
}

/// Does `action` while the system refuses every thread.
inline void withoutThreads(const auto& action) {
  pthread_attr_t usual, impossible;
  ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
  ASSERT_EQ(pthread_getattr_default_np(&impossible), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&impossible, std::numeric_limits<std::size_t>::max() / 2), 0);
  ASSERT_EQ(pthread_setattr_default_np(&impossible), 0);
  action();
  pthread_setattr_default_np(&usual);
}

struct Message {
  long type;
  Bytes payload;
};

/// The control process's end of one queue, looked up by key for each operation.
class Queue {
 public:
  explicit Queue(key_t key) : _key(key) {}

  bool post(const Bytes& payload, long type = 1) const {
    Raw raw{type, {}};
    std::copy(payload.begin(), payload.end(), raw.payload);
    return msgsnd(id(), &raw, payload.size(), IPC_NOWAIT) == 0;
  }
  /// The message at the head; none when the queue is empty and `flags` is IPC_NOWAIT.
  std::optional<Message> take(int flags = IPC_NOWAIT) const {
    Raw raw;
    const ssize_t size = msgrcv(id(), &raw, sizeof raw.payload, 0, flags);
    if (size < 0) return std::nullopt;
    return Message{raw.type, Bytes(raw.payload, raw.payload + size)};
  }
  msqid_ds state() const {
    msqid_ds state{};
    EXPECT_EQ(msgctl(msgget(_key, 0), IPC_STAT, &state), 0);
    return state;
  }
  bool exists() const { return msgget(_key, 0) != -1; }
  void remove() const { msgctl(id(), IPC_RMID, nullptr); }

 private:
  struct Raw {
    long type;
    std::uint8_t payload[8192];
  };
  int id() const { return msgget(_key, IPC_CREAT | 0600); }
  key_t _key;
};

/// No queue exists when a test begins.
class QueueTest : public testing::Test {
 protected:
  QueueTest() {
    for (const Queue& queue : queues) queue.remove();
  }

  const Queue queues[3] = {Queue(kRequestQueueKey), Queue(kReplyQueueKey), Queue(kAlarmQueueKey)};
  const Queue &requests = queues[0], &replies = queues[1], &alarms = queues[2];
};

/// A new directory, removed with its files.
struct TemporaryDirectory {
  TemporaryDirectory() { EXPECT_NE(mkdtemp(path.data()), nullptr); }
  ~TemporaryDirectory() { std::filesystem::remove_all(path); }

  std::string path = std::filesystem::temp_directory_path().string() + "/norva-unit-XXXXXX";
};

}  // namespace norva::test

#endif  // NORVA_TESTS_UNIT_TEST_SUPPORT_H_
