// The mapping catalogue: everything the agent knows about which SNMP object stands for which device
// object. Loaded once from the mapping database by the constructor, unchanged afterwards.
//
// Any thread. One mutex guards the maps; every lookup takes it for its whole search and copy and
// returns copies; loading holds it throughout. It is an innermost lock: none of the agent's other
// locks is taken while it is held.

#ifndef NORVA_SNMP_DATA_BASE_H_
#define NORVA_SNMP_DATA_BASE_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "ObjInfo.h"
#include "TableCells.h"

namespace norva {

class DataBaseAdapter;

class SnmpDataBase {
 public:
  /// Loads the database file `path`. What cannot be read is printed and leaves its maps empty.
  explicit SnmpDataBase(const char* path);
  virtual ~SnmpDataBase() = default;
  SnmpDataBase(const SnmpDataBase&) = delete;
  SnmpDataBase& operator=(const SnmpDataBase&) = delete;

  /// (Re)fills every container from the database file.
  void load(const char* path);

  // Lookups. Every status is 0 on success, -1 on failure; vectors are appended to.

  /// Attributes of any object, scalar first; of a table object, those of the first cell in load
  /// order that carried the id.
  int findObjInfo(std::uint16_t objId, ObjInfo& out) const;
  /// The same without the name.
  int findAttributes(std::uint16_t objId, ObjAttributes& out) const;

  /// Name of a scalar object. A miss is printed and leaves `out` unchanged.
  int getObjName(std::uint16_t objId, std::string& out) const;

  /// One table cell; only the low 8 bits of `row` are meaningful. A miss is printed.
  int getSnmpTableOid(const std::string& ancestorNode, std::uint32_t column, unsigned row,
                      SnmpTableObjRecord& out) const;
  /// The same without the texts.
  int findCell(const std::string& ancestorNode, std::uint32_t column, unsigned row,
               ObjMapping& out) const;

  /// All cells of row 1 of one table, by ascending column; always 0.
  int getTableColumns(const std::string& ancestorNode, std::vector<SnmpTableObjRecord>& out) const;

  /// Number of cells of one table that managers reach, up to column `last`.
  std::size_t countCells(const std::string& ancestorNode, std::uint32_t last) const;

  /// One entry per table in load order, replacing `out`; -1 when there are none.
  int getTableAncestorNodes(std::vector<AncestorNodeEntry>& out) const;

  /// Every scalar by ascending object id; always 0.
  int getAllObjects(std::vector<SnmpObjRecord>& out) const;

  // For tools of the unit; the agent itself uses none of these.

  int getObjRecord(std::uint16_t objId, SnmpObjRecord& out) const;
  /// Object ids with a non-zero selectFlag: scalars by id, then cells by key; always 0.
  int listFlaggedObjects(std::vector<std::uint16_t>& out) const;
  /// Number of cells of one table between column 2 of row 1 and column 2 of row 255, both excluded.
  int countTableRows(const std::string& ancestorNode) const;
  /// Fills the slot-to-frequency map. REQUIRES: no other thread uses the catalogue.
  int loadSlotFreq(DataBaseAdapter& adapter);
  /// Maps `objId` to (channelHigh << 8) + its channel number, or to 0 where the database has none;
  /// always 0. REQUIRES: `adapter` is open; no other thread uses the catalogue.
  int loadGenusGroup(DataBaseAdapter& adapter, std::uint16_t objId, std::uint8_t channelHigh);
  /// Frequency of the channel that loadGenusGroup found for `objId`; 0 in `out` on a miss.
  int getSlotFreq(std::uint16_t objId, std::uint16_t& out) const;

 private:
  /// Copies the object, a scalar before a cell, under the lock. 0, or -1.
  template <typename Out>
  int copyObject(std::uint16_t objId, Out& out) const;
  /// Copies the cell under the lock. 0, or -1 after printing the miss.
  template <typename Out>
  int copyCell(const std::string& ancestorNode, std::uint32_t column, unsigned row, Out& out) const;

  mutable std::mutex _lock;
  std::map<std::uint16_t, SnmpObjRecord> _objects;
  TableCells _tableObjects;
  std::map<std::uint16_t, std::uint16_t> _slotFreqMap;
  std::map<std::uint16_t, std::uint16_t> _genusGroupMap;
  std::vector<AncestorNodeEntry> _ancestorNodes;
  // Zero on every unit so far; non-zero would key every row of a table to row 1.
  std::uint8_t _subsite = 0;
};

}  // namespace norva

#endif  // NORVA_SNMP_DATA_BASE_H_
