// What can be said of one row of the mapping, whichever of the two tables it is in.

#ifndef NORVA_MAPPING_ROW_CHECK_H_
#define NORVA_MAPPING_ROW_CHECK_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "Finding.h"
#include "RawTable.h"

namespace norva::mapping {

/// What a manager sees of an object without a value.
const char* noAnswer(bool isCell);

class RowCheck {
 public:
  /// REQUIRES: the row has all columns.
  RowCheck(const std::string& file, const MappingTable& table, const RawRow& row,
           Findings& findings);

  /// Reports NULL, texts that are no numbers, and numbers that are cut. False for a row that the
  /// agent does not use.
  bool checkNumbers();
  /// Reports type, method, access and name, each as far as its column is sound.
  void checkMeaning(bool writable);

  /// Adds a finding about the row. Findings of one `group` and text become one.
  void report(Severity severity, const std::string& text);
  void error(const std::string& text) { report(Severity::kError, text); }
  void warning(const std::string& text) { report(Severity::kWarning, text); }
  /// Merges what follows with the findings of other rows of one table column.
  void setGroup(const std::string& group) { group_ = group; }

  std::uint32_t number(int column) const {
    return static_cast<std::uint32_t>(numbers_[index(column)]);
  }
  std::uint16_t objId() const { return static_cast<std::uint16_t>(number(kMappingObjId)); }
  std::uint16_t method() const { return static_cast<std::uint16_t>(number(table_.covMethod)); }
  /// False where the number differs from the text.
  bool isSound(int column) const { return isSound_[index(column)]; }
  const std::string& text(int column) const { return *row_.cells[index(column)]; }
  int rowNumber() const { return row_.number; }

 private:
  static std::size_t index(int column) { return static_cast<std::size_t>(column); }
  std::uint16_t type() const { return static_cast<std::uint16_t>(number(table_.type)); }

  bool isScalar() const { return &table_ == &kScalarTable; }

  void checkType();
  void checkMethod(bool writable);
  void checkAccess(bool writable);
  void checkName();
  void checkSetting(bool writable);
  /// What the text of a number column would be in the other base; none where it is no number there.
  std::optional<std::uint16_t> otherBase(int column) const;

  const std::string& file_;
  const MappingTable& table_;
  const RawRow& row_;
  Findings& findings_;
  std::string group_;
  std::array<std::uint64_t, kMappingColumns> numbers_{};
  std::array<bool, kMappingColumns> isSound_{};
};

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_ROW_CHECK_H_
