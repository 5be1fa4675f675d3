// The database adapter on an SQLite file. A database that another program has locked is waited for,
// kPatience at most in the adapter's life. One thread at a time.

#ifndef NORVA_SQLITE3_H_
#define NORVA_SQLITE3_H_

#include <chrono>
#include <optional>
#include <string>

#include "DataBaseAdapter.h"

struct sqlite3;

namespace norva {

class Sqlite3 : public DataBaseAdapter {
 public:
  static constexpr std::chrono::seconds kPatience{5};

  /// Keeps a copy of the file name; opens nothing.
  explicit Sqlite3(const char* path);
  ~Sqlite3() override;

  /// 0 at once when there is a connection. Deliberate: also after a failed open, whose handle is
  /// kept, so that only the first failure is printed and every statement on it fails by itself.
  int open() override;
  /// 0 when closed already; on failure the connection is kept.
  int close() override;
  /// Fails silently, the caller says what it misses. REQUIRES: open.
  int getTable(const char* tableName, char*** result, int* rows, int* columns) override;
  void freeTable(char** result) override;
  /// A failure is printed with SQLite's reason. REQUIRES: open.
  int query(const char* sql, char*** result, int* rows, int* columns) override;
  int exec(const char* sql) override;
  const char* lockedReason() override;

 private:
  /// Whether to try again, after a pause; called by SQLite for a locked database.
  static int waitForLock(void* adapter, int);
  void forgetMessage();

  const std::string _path;
  sqlite3* _db = nullptr;
  std::optional<std::chrono::steady_clock::time_point> _patienceEnd;  // since first it was locked
  char* _errMsg = nullptr;                                            // of the last statement
};

}  // namespace norva

#endif  // NORVA_SQLITE3_H_
