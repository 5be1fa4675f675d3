// The rows of the mapping database as they are written, beside the catalogue that the agent makes
// of them: findings name rows and quote texts.

#ifndef NORVA_MAPPING_RAW_TABLE_H_
#define NORVA_MAPPING_RAW_TABLE_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace norva::mapping {

constexpr char kScalarTable[] = "SNMP_GENERAL_OBJ_TABLE";
constexpr char kCellTable[] = "SNMP_TABLE_OBJ_TABLE";
constexpr int kTableColumns = 13;

/// Columns that both tables have at one position.
constexpr int kObjIdColumn = 0;

/// How the agent reads a column. `base` 0: a text.
struct ColumnLayout {
  const char* name;
  int base;
  int bits;
  bool isUsed;  ///< false: carried along, no manager sees it
};

/// Positions in the scalar table of the columns that findings are about.
enum ScalarColumn {
  kScalarType = 3,
  kScalarAccess = 4,
  kScalarSuffix = 5,
  kScalarMethod = 9,
  kScalarName = 11,
};

/// The same in the cell table.
enum CellColumn {
  kCellColumnNumber = 2,
  kCellType = 3,
  kCellAccess = 4,
  kCellNode = 5,
  kCellMethod = 6,
  kCellName = 8,
  kCellRow = 9,
};

using TableLayout = std::array<ColumnLayout, kTableColumns>;
extern const TableLayout kScalarLayout;
extern const TableLayout kCellLayout;

/// A row; `cells` has no value where the database has NULL.
struct RawRow {
  int number;  ///< as the agent counts them, from 1
  std::vector<std::optional<std::string>> cells;
};

struct RawTable {
  bool exists = false;
  int columns = 0;  ///< known of a table that has rows
  std::vector<RawRow> rows;

  /// False for a table that the agent does not load.
  bool isUsable() const { return exists && (rows.empty() || columns >= kTableColumns); }
};

/// What both tables hold. Throws InputError for a file that is not there, cannot be read or is no
/// database. The file is opened for reading only.
struct RawDataBase {
  explicit RawDataBase(const std::string& path);

  RawTable scalars;
  RawTable cells;
};

/// A number as the agent reads it from a text.
struct ReadNumber {
  std::uint64_t value;  ///< cut to the column's bits
  std::string problem;  ///< empty, or how the value differs from the text
};
ReadNumber readNumber(const std::string& text, const ColumnLayout& column);

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_RAW_TABLE_H_
