#include "Sqlite3.h"

#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "Output.h"
#include "SlowReading.h"

namespace norva {

Sqlite3::Sqlite3(const char* path) : _path(path) {}

Sqlite3::~Sqlite3() {
  forgetMessage();
  close();
}

void Sqlite3::forgetMessage() {
  sqlite3_free(_errMsg);
  _errMsg = nullptr;
}

int Sqlite3::open() {
  if (_db != nullptr) return 0;
  if (sqlite3_open(_path.c_str(), &_db) != SQLITE_OK) {
    Output::print("ERROR: open file %s failed! \n", _path.c_str());
    return -1;
  }
  sqlite3_busy_handler(_db, waitForLock, this);
  return 0;
}

int Sqlite3::waitForLock(void* adapter, int) {
  constexpr std::chrono::milliseconds kPause{20};
  auto& end = static_cast<Sqlite3*>(adapter)->_patienceEnd;
  const auto now = std::chrono::steady_clock::now();
  if (!end) end = now + kPatience;
  if (now >= *end) return 0;
  std::this_thread::sleep_for(kPause);
  return 1;
}

const char* Sqlite3::lockedReason() {
  return sqlite3_errcode(_db) == SQLITE_BUSY ? sqlite3_errmsg(_db) : nullptr;
}

int Sqlite3::close() {
  if (_db == nullptr) return 0;
  if (sqlite3_close(_db) != SQLITE_OK) return -1;
  _db = nullptr;
  return 0;
}

int Sqlite3::getTable(const char* tableName, char*** result, int* rows, int* columns) {
  *result = nullptr;  // also behind a failure: the caller gives it back in any case
  char sql[256];
  const int length = std::snprintf(sql, sizeof sql, "SELECT * FROM %s", tableName);
  if (length < 0 || static_cast<std::size_t>(length) >= sizeof sql) return -1;
  forgetMessage();
  const SlowReading watch(
      _db, kPatience, [&] { Output::print("still reading %s of %s\n", tableName, _path.c_str()); });
  return sqlite3_get_table(_db, sql, result, rows, columns, &_errMsg) == SQLITE_OK ? 0 : -1;
}

void Sqlite3::freeTable(char** result) {
  sqlite3_free_table(result);
}

int Sqlite3::query(const char* sql, char*** result, int* rows, int* columns) {
  forgetMessage();
  if (sqlite3_get_table(_db, sql, result, rows, columns, &_errMsg) != SQLITE_OK) {
    Output::print("SQL ERROR  [%s] %s\n", sql, sqlite3_errmsg(_db));
    return -1;
  }
  return 0;
}

int Sqlite3::exec(const char* sql) {
  forgetMessage();
  return sqlite3_exec(_db, sql, nullptr, nullptr, &_errMsg) == SQLITE_OK ? 0 : -1;
}

}  // namespace norva
