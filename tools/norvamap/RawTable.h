// The rows of the mapping database as they are written, beside the catalogue that the agent makes
// of them: findings name rows and quote texts.

#ifndef NORVA_MAPPING_RAW_TABLE_H_
#define NORVA_MAPPING_RAW_TABLE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "MappingLayout.h"

namespace norva::mapping {

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
  bool isUsable() const { return exists && (rows.empty() || columns >= kMappingColumns); }
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
ReadNumber readNumber(const std::string& text, const MappingColumn& column);

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_RAW_TABLE_H_
