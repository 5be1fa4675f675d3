#include "Fuzz.h"

#include <sqlite3.h>
#include <sys/msg.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "Output.h"
#include "RawTable.h"

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

void Queues::reset() {
  *this = Queues();
}

DataBaseFile::DataBaseFile(const std::vector<std::string>& scalars,
                           const std::vector<std::string>& cells)
    : _path(std::filesystem::temp_directory_path() / ("fuzz-" + std::to_string(getpid()) + ".db")) {
  sqlite3* memory = nullptr;
  MUST(sqlite3_open(":memory:", &memory) == SQLITE_OK);
  std::string sql;
  for (const auto& [table, rows] :
       {std::pair(mapping::kScalarTable, &scalars), std::pair(mapping::kCellTable, &cells)}) {
    sql += std::string("CREATE TABLE ") + table + " (c0";
    for (int column = 1; column < mapping::kTableColumns; ++column)
      sql += ",c" + std::to_string(column);
    sql += ");";
    for (const std::string& row : *rows)
      sql += std::string("INSERT INTO ") + table + " VALUES " + row + ";";
  }
  MUST(sqlite3_exec(memory, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK);
  sqlite3_int64 size = 0;
  unsigned char* image = sqlite3_serialize(memory, "main", &size, 0);
  std::FILE* file = std::fopen(_path.c_str(), "w");
  MUST(image != nullptr && file != nullptr);
  MUST(std::fwrite(image, static_cast<std::size_t>(size), 1, file) == 1);
  std::fclose(file);
  sqlite3_free(image);
  sqlite3_close(memory);
}

DataBaseFile::~DataBaseFile() {
  unlink(_path.c_str());
}

std::string scalarRow(unsigned objId, unsigned suffix, unsigned asnType, unsigned covMethod,
                      const std::string& name) {
  char row[256];
  std::snprintf(row, sizeof row, "('%04X','0','0','%X','2','1','1','1','%u','%X','0','%s','0')",
                objId, asnType, suffix, covMethod, name.c_str());
  return row;
}

void dropOutput() {
  Output::getInstance().drain({});
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
