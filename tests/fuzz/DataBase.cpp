#include "DataBase.h"

#include <sanitizer/asan_interface.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "Fuzz.h"
#include "RawTable.h"

using norva::fuzz::DataBase;

struct sqlite3 {
  int statements = 0;
};

struct sqlite3_stmt {
  sqlite3* connection;
  const DataBase::Table* table = nullptr;
  char** values = nullptr;  ///< none: asks only whether there is the table
  bool isView = false;      ///< asks for a view, and there is none
  std::size_t row = 0;      ///< 0: not yet at the first
};

namespace {

char kError[] = "made to fail";

const DataBase::Table* find(std::string_view sql) {
  if (sql.ends_with(norva::kScalarTable.name)) return &DataBase::get().scalars;
  return sql.ends_with(norva::kCellTable.name) ? &DataBase::get().cells : nullptr;
}

/// Puts `text` at `next`, with poison up to where the one behind it goes.
char* put(std::string_view text, char*& next) {
  constexpr std::size_t kUnit = 8;  // poison begins anywhere and ends at a multiple of it
  char* const start = next;
  std::copy(text.begin(), text.end(), start);
  start[text.size()] = '\0';
  next += (text.size() / kUnit + 2) * kUnit;
  ASAN_POISON_MEMORY_REGION(start + text.size() + 1,
                            static_cast<std::size_t>(next - start) - text.size() - 1);
  return start;
}

/// The columns' names, then the rows' values, null for NULL. The texts are in front of the first.
char** readAll(const DataBase::Table& table) {
  const auto columns = static_cast<std::size_t>(table.columns);
  const std::size_t count = (table.rows.size() + 1) * columns;
  std::size_t room = count * 16;
  for (const std::string& row : table.rows) room += row.size();
  auto** const values = static_cast<char**>(std::malloc((count + 1) * sizeof(char*)));
  char* next = values[0] = static_cast<char*>(std::malloc(room));
  char** value = values + 1;
  for (std::size_t i = 0; i < columns; ++i) *value++ = put("", next);
  for (const std::string_view row : table.rows) {
    std::size_t start = 0;
    for (std::size_t i = 0; i < columns; ++i) {
      const std::size_t end = std::min(row.find('\t', start), row.size());
      const std::string_view text = row.substr(start, end - start);
      *value++ = text == "~" ? nullptr : put(text, next);
      start = std::min(end + 1, row.size());
    }
  }
  return values + 1;
}

}  // namespace

namespace norva::fuzz {

DataBase& DataBase::get() {
  static DataBase dataBase;
  return dataBase;
}

std::string scalarRow(unsigned objId, unsigned suffix, unsigned asnType, unsigned covMethod,
                      const std::string& name) {
  char row[256];
  std::snprintf(row, sizeof row, "%04X\t0\t0\t%X\t2\t1\t1\t1\t%u\t%X\t0\t%s\t0", objId, asnType,
                suffix, covMethod, name.c_str());
  return row;
}

}  // namespace norva::fuzz

int sqlite3_shutdown() {
  return SQLITE_OK;
}

int sqlite3_config(int, ...) {
  return SQLITE_OK;
}

int sqlite3_open(const char* name, sqlite3** connection) {
  MUST(std::strstr(name, DataBase::kPath) != nullptr);
  *connection = new sqlite3;
  return SQLITE_OK;
}

int sqlite3_open_v2(const char* name, sqlite3** connection, int, const char*) {
  return sqlite3_open(name, connection);
}

void sqlite3_progress_handler(sqlite3*, int, int (*)(void*), void*) {}

int sqlite3_close(sqlite3* connection) {
  if (connection != nullptr && connection->statements != 0) return SQLITE_BUSY;
  delete connection;
  return SQLITE_OK;
}

int sqlite3_busy_handler(sqlite3*, int (*)(void*, int), void*) {
  return SQLITE_OK;
}

int sqlite3_errcode(sqlite3*) {
  return SQLITE_ERROR;
}

const char* sqlite3_errmsg(sqlite3*) {
  return kError;
}

int sqlite3_exec(sqlite3*, const char*, int (*)(void*, int, char**, char**), void*, char**) {
  return SQLITE_ERROR;
}

int sqlite3_get_table(sqlite3*, const char* sql, char*** values, int* rows, int* columns,
                      char** error) {
  const DataBase::Table* const table = find(sql);
  *values = nullptr;
  *rows = *columns = 0;
  if (table == nullptr || !table->exists || table->breaks) {
    *error = kError;
    return SQLITE_ERROR;
  }
  *rows = static_cast<int>(table->rows.size());
  if (*rows > 0) *columns = table->columns;
  *values = readAll(*table);
  return SQLITE_OK;
}

/// The only messages are constants.
void sqlite3_free(void*) {}

void sqlite3_free_table(char** values) {
  if (values == nullptr) return;
  std::free(values[-1]);
  std::free(values - 1);
}

int sqlite3_prepare_v2(sqlite3* connection, const char* sql, int, sqlite3_stmt** statement,
                       const char**) {
  const DataBase::Table* const table = find(sql);
  const bool reads = std::strncmp(sql, "SELECT *", 8) == 0;
  const bool isView = std::strstr(sql, "'view'") != nullptr;  // none is
  *statement = nullptr;
  if (reads && (table == nullptr || !table->exists)) return SQLITE_ERROR;
  ++connection->statements;
  *statement = new sqlite3_stmt{connection, table, reads ? readAll(*table) : nullptr, isView};
  return SQLITE_OK;
}

int sqlite3_bind_text(sqlite3_stmt* statement, int, const char* text, int, void (*)(void*)) {
  statement->table = find(text);
  return SQLITE_OK;
}

int sqlite3_step(sqlite3_stmt* statement) {
  const DataBase::Table& table = *statement->table;
  if (statement->values == nullptr) {
    return table.exists && !statement->isView ? SQLITE_ROW : SQLITE_DONE;
  }
  if (++statement->row <= table.rows.size()) return SQLITE_ROW;
  return table.breaks ? SQLITE_CORRUPT : SQLITE_DONE;
}

int sqlite3_column_count(sqlite3_stmt* statement) {
  return statement->table->columns;
}

const unsigned char* sqlite3_column_text(sqlite3_stmt* statement, int column) {
  MUST(column >= 0 && column < statement->table->columns);
  const auto columns = static_cast<std::size_t>(statement->table->columns);
  return reinterpret_cast<const unsigned char*>(
      statement->values[statement->row * columns + static_cast<std::size_t>(column)]);
}

int sqlite3_finalize(sqlite3_stmt* statement) {
  sqlite3_free_table(statement->values);
  --statement->connection->statements;
  delete statement;
  return SQLITE_OK;
}
