#include "RawTable.h"

#include <sqlite3.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

#include "Format.h"
#include "OneLine.h"
#include "SlowReading.h"
#include "Text.h"

namespace norva::mapping {

using dasunit::InputError;

namespace {

constexpr std::chrono::seconds kPatience{1};
constexpr std::size_t kMostRows = 200'000;  // more than ten times what managers can be shown

using Connection = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;
using Statement = std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)>;

Connection openForReading(const std::string& path) {
  std::ifstream file(path);
  file.peek();  // a directory can be opened, but not read
  if (!file.is_open() || file.bad()) throw InputError(path + ": " + std::strerror(errno));
  sqlite3* handle = nullptr;
  const int status = sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READONLY, nullptr);
  Connection connection(handle, sqlite3_close);
  if (status != SQLITE_OK) throw InputError(path + ": " + sqlite3_errmsg(handle));
  return connection;
}

Statement prepare(const std::string& path, sqlite3* connection, const std::string& sql) {
  sqlite3_stmt* handle = nullptr;
  if (sqlite3_prepare_v2(connection, sql.c_str(), -1, &handle, nullptr) != SQLITE_OK) {
    throw InputError(path + ": " + sqlite3_errmsg(connection));
  }
  return {handle, sqlite3_finalize};
}

/// Whether there is a `type` (table, view) of this name.
bool has(const std::string& path, sqlite3* connection, const char* type, const char* table) {
  const Statement query = prepare(path, connection,
                                  format("SELECT 1 FROM sqlite_master WHERE type = '%s' "
                                         "AND name = ? COLLATE NOCASE",
                                         type));
  sqlite3_bind_text(query.get(), 1, table, -1, SQLITE_STATIC);
  return sqlite3_step(query.get()) == SQLITE_ROW;
}

RawTable readTable(const std::string& path, sqlite3* connection, const char* table) {
  RawTable result;
  result.exists = has(path, connection, "table", table);
  if (has(path, connection, "view", table)) {
    // Its query may be of any size, endless too.
    throw InputError(format("%s: %s is a view, a table is needed", path.c_str(), table));
  }
  if (!result.exists) return result;
  const SlowReading watch(connection, kPatience, [&] {
    std::fprintf(stderr, "norvamap: reading %s of %s ...\n", table, oneLine(path).c_str());
  });
  const Statement query = prepare(path, connection, std::string("SELECT * FROM ") + table);
  result.columns = sqlite3_column_count(query.get());
  int status = sqlite3_step(query.get());
  for (int number = 1; status == SQLITE_ROW; ++number) {
    RawRow row{number, {}};
    for (int column = 0; column < result.columns; ++column) {
      const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(query.get(), column));
      row.cells.push_back(text == nullptr ? std::nullopt : std::optional<std::string>(text));
    }
    if (result.rows.size() == kMostRows) {
      throw InputError(format("%s: %s has more than %zu rows, which are not read", path.c_str(),
                              table, kMostRows));
    }
    result.rows.push_back(std::move(row));
    status = sqlite3_step(query.get());
  }
  if (status != SQLITE_DONE) {
    throw InputError(format("%s: %s row %zu: %s", path.c_str(), table, result.rows.size() + 1,
                            sqlite3_errmsg(connection)));
  }
  return result;
}

}  // namespace

RawDataBase::RawDataBase(const std::string& path) {
  const Connection connection = openForReading(path);
  scalars = readTable(path, connection.get(), kScalarTable.name);
  cells = readTable(path, connection.get(), kCellTable.name);
}

ReadNumber readNumber(const std::string& text, const MappingColumn& column) {
  const std::uint64_t limit = (std::uint64_t{1} << column.bits) - 1;
  char* end = nullptr;
  errno = 0;
  const std::uint64_t whole = std::strtoull(text.c_str(), &end, column.base);
  const std::uint64_t value = whole & limit;
  const bool isBlank = end[std::strspn(end, " \t\r\n")] == '\0';
  const auto problem = [&](const std::string& what) {
    return std::string(column.name) + " '" + text + "' " + what +
           format(column.base == 16 ? ", read as %llX" : ", read as %llu",
                  static_cast<unsigned long long>(value));
  };
  if (end == text.c_str() || !isBlank) {
    return {value,
            problem(column.base == 16 ? "is no hexadecimal number" : "is no decimal number")};
  }
  if (whole > limit || errno == ERANGE) {
    return {value, problem(format("does not fit %d bits", column.bits))};
  }
  return {value, ""};
}

}  // namespace norva::mapping
