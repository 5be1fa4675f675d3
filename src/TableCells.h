// The table cells of the mapping catalogue. There may be ten thousand of them, so a cell is kept
// without texts of its own and looked up, as a rule, without making any.
//
// No lock; the catalogue's guards it.

#ifndef NORVA_TABLE_CELLS_H_
#define NORVA_TABLE_CELLS_H_

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "ObjInfo.h"

namespace norva {

/// Where a cell is. Ordered as the texts that tableKey makes, so that the cells of one row are
/// contiguous and in column order.
struct CellKey {
  const std::string* node;  ///< not owned
  std::uint32_t column;
  std::uint8_t row;

  bool operator<(const CellKey& other) const;
};

class TableCells {
 public:
  /// What is kept of a cell.
  struct Cell {
    std::uint32_t name;  // where its name begins
    std::uint16_t objId;
    ObjAttributes attributes;
    std::uint16_t extraWord;
    std::uint8_t tableAttr;
  };
  using Map = std::map<CellKey, Cell>;
  using Entry = Map::value_type;

  TableCells() = default;
  TableCells(const TableCells&) = delete;  // its parts point at each other
  TableCells& operator=(const TableCells&) = delete;

  void clear();

  /// Adds a cell. The first one of a place and the first one of an object id win; that of the
  /// object id even where its place was taken before. True for the first cell of its table.
  bool insert(const SnmpTableObjRecord& record);

  const Map& all() const { return _cells; }
  /// Null when there is none. Valid until the next clear. Only the low 8 bits of `row` count.
  const Entry* find(const std::string& node, unsigned row, std::uint32_t column) const;
  /// The cell at the place of the first cell that carried the object id.
  const Entry* findObject(std::uint16_t objId) const;

  // Copies of an entry: all of it, or as much as is asked for.

  void copy(const Entry& entry, SnmpTableObjRecord& out) const;
  void copy(const Entry& entry, ObjInfo& out) const;
  void copy(const Entry& entry, ObjAttributes& out) const { out = entry.second.attributes; }
  void copy(const Entry& entry, ObjMapping& out) const {
    out = {entry.second.objId, entry.second.attributes};
  }

 private:
  std::set<std::string> _nodes;
  Map _cells;
  std::map<std::uint16_t, const Entry*> _byObjId;
  std::string _names;  // each behind the other, each with its NUL
};

/// Key of a table cell as a text: the node, the row as two and the column as eight hexadecimal
/// digits.
std::string tableKey(const std::string& ancestorNode, unsigned row, std::uint32_t column);

}  // namespace norva

#endif  // NORVA_TABLE_CELLS_H_
