// What the catalogue needs of a database: whole tables as flat arrays of strings.
//
// One thread at a time. Calling order: open, any number of getTable or query each followed by
// freeTable, close.

#ifndef NORVA_DATA_BASE_ADAPTER_H_
#define NORVA_DATA_BASE_ADAPTER_H_

namespace norva {

class DataBaseAdapter {
 public:
  DataBaseAdapter() = default;
  virtual ~DataBaseAdapter() = default;
  DataBaseAdapter(const DataBaseAdapter&) = delete;
  DataBaseAdapter& operator=(const DataBaseAdapter&) = delete;

  // Every status is 0 on success, -1 on failure.

  virtual int open() = 0;
  virtual int close() = 0;

  /// Reads every row and column of one table. `result` receives (rows + 1) x columns strings: the
  /// column names, then the values of row r (from 1) and column k (from 0) at r x columns + k, null
  /// for NULL. The adapter owns it until freeTable.
  virtual int getTable(const char* tableName, char*** result, int* rows, int* columns) = 0;
  virtual void freeTable(char** result) = 0;

  /// Runs any SQL text; result as getTable.
  virtual int query(const char* sql, char*** result, int* rows, int* columns) = 0;
  /// Runs SQL without a result.
  virtual int exec(const char* sql) = 0;

  /// Why getTable has just failed, if another program has the database locked; else null. Valid
  /// until the next call.
  virtual const char* lockedReason() { return nullptr; }
};

}  // namespace norva

#endif  // NORVA_DATA_BASE_ADAPTER_H_
