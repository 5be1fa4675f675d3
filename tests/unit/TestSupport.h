// What several unit tests share: bytes written as text, captured output, queues, databases.

#ifndef NORVA_TESTS_UNIT_TEST_SUPPORT_H_
#define NORVA_TESTS_UNIT_TEST_SUPPORT_H_

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <sys/ipc.h>
#include <sys/msg.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "ComPortAdapter.h"

#if defined(__SANITIZE_ADDRESS__)
#define NORVA_TEST_LEAK_CHECKER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define NORVA_TEST_LEAK_CHECKER
#endif
#endif
#ifdef NORVA_TEST_LEAK_CHECKER
#include <sanitizer/lsan_interface.h>
#endif

namespace norva::test {

using Bytes = std::vector<std::uint8_t>;

/// "01 ab" reads as the bytes 0x01, 0xAB.
inline Bytes hex(const std::string& text) {
  std::istringstream in(text);
  Bytes bytes;
  for (unsigned byte = 0; in >> std::hex >> byte;) bytes.push_back(static_cast<std::uint8_t>(byte));
  return bytes;
}

/// `size` bytes that differ from their neighbours.
inline Bytes pattern(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i % 251 + 1);
  return bytes;
}

template <typename Record>
Bytes bytesOf(const Record& record) {
  static_assert(std::is_trivially_copyable_v<Record>);
  Bytes bytes(sizeof record);
  std::memcpy(bytes.data(), &record, sizeof record);
  return bytes;
}

/// What `action` writes to standard output. No assertions inside: their text would be swallowed.
template <typename Action>
std::string printed(const Action& action) {
  testing::internal::CaptureStdout();
  action();
  return testing::internal::GetCapturedStdout();
}

struct Message {
  long type;
  Bytes payload;
};

/// The control process's end of one queue, looked up by key for each operation.
class Queue {
 public:
  explicit Queue(key_t key) : _key(key) {}

  void post(const Bytes& payload, long type = 1) const {
    EXPECT_TRUE(tryPost(payload, type)) << std::strerror(errno);
  }
  bool tryPost(const Bytes& payload, long type = 1) const {
    Raw raw;
    raw.type = type;
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
  bool empty() const { return state().msg_qnum == 0; }
  unsigned mode() const { return state().msg_perm.mode & 0777U; }
  bool exists() const { return msgget(_key, 0) != -1; }
  void remove() const {
    if (exists()) msgctl(msgget(_key, 0), IPC_RMID, nullptr);
  }

 private:
  struct Raw {
    long type;
    std::uint8_t payload[8192];
  };
  int id() const { return msgget(_key, IPC_CREAT | 0600); }
  msqid_ds state() const {
    msqid_ds state{};
    EXPECT_EQ(msgctl(msgget(_key, 0), IPC_STAT, &state), 0);
    return state;
  }

  key_t _key;
};

/// No queue exists when a test begins.
class QueueTest : public testing::Test {
 protected:
  QueueTest() {
    for (const Queue& queue : {requests, replies, alarms}) queue.remove();
  }

  const Queue requests{kRequestQueueKey};
  const Queue replies{kReplyQueueKey};
  const Queue alarms{kAlarmQueueKey};
};

/// A new directory, removed with its files.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "norva-unit-XXXXXX").string();
    EXPECT_NE(mkdtemp(name.data()), nullptr);
    _path = name;
  }
  ~TemporaryDirectory() { std::filesystem::remove_all(_path); }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  std::string file(const std::string& name) const { return (_path / name).string(); }

 private:
  std::filesystem::path _path;
};

inline void runSql(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
      << sqlite3_errmsg(db);
  sqlite3_close(db);
}

constexpr char kMakeScalarTable[] =
    "CREATE TABLE SNMP_GENERAL_OBJ_TABLE"
    " (objId, aux, magic, type, access, s1, s2, s3, s4, method, flag, name, word);";
constexpr char kMakeCellTable[] =
    "CREATE TABLE SNMP_TABLE_OBJ_TABLE"
    " (objId, aux, col, type, access, node, method, flag, name, row, attr, word, extra);";

/// While it lives, leaks are not reported: the text of a failing statement is kept on purpose.
class StatementMayFail {
#ifdef NORVA_TEST_LEAK_CHECKER
  __lsan::ScopedDisabler _disabled;
#endif
 public:
  StatementMayFail() {}
};

}  // namespace norva::test

#endif  // NORVA_TESTS_UNIT_TEST_SUPPORT_H_
