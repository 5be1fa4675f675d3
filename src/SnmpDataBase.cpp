#include "SnmpDataBase.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "DataBaseAdapter.h"
#include "Output.h"
#include "ResultTable.h"
#include "Sqlite3.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace norva {

namespace {

constexpr char kScalarTable[] = "SNMP_GENERAL_OBJ_TABLE";
constexpr char kCellTable[] = "SNMP_TABLE_OBJ_TABLE";
constexpr char kSlotFreqTable[] = "TABLE_SLOT_FREQ_OBJ";
constexpr char kGenusGroupTable[] = "TABLE_OBJ_GENUS_GROUP";

/// Columns of the scalar table. Type and access are hexadecimal here and decimal in the cell table:
/// deliberate, the databases in the field are written so.
enum ScalarColumn {
  kScalarObjId,
  kScalarAuxByte,
  kScalarMagic,
  kScalarAsnType,
  kScalarAccess,
  kScalarSuffix,
  kScalarCovMethod = kScalarSuffix + kOidSuffixLength,
  kScalarSelectFlag,
  kScalarName,
  kScalarAuxWord,
  kScalarColumns,
};

enum CellColumn {
  kCellObjId,
  kCellAuxByte,
  kCellColumn,
  kCellAsnType,
  kCellAccess,
  kCellAncestorNode,
  kCellCovMethod,
  kCellSelectFlag,
  kCellName,
  kCellRow,
  kCellTableAttr,
  kCellAuxWord,
  kCellExtraWord,
  kCellColumns,
};

SnmpObjRecord scalarRecord(const ResultTable& table, int row, const std::string& name) {
  SnmpObjRecord record;
  record.objId = table.hex<std::uint16_t>(row, kScalarObjId);
  record.info.auxByte = table.dec<std::uint8_t>(row, kScalarAuxByte);
  record.magic = table.dec<std::uint8_t>(row, kScalarMagic);
  record.info.asnType = table.hex<std::uint16_t>(row, kScalarAsnType);
  record.info.access = table.hex<std::uint16_t>(row, kScalarAccess);
  for (std::size_t i = 0; i < kOidSuffixLength; ++i) {
    record.oidSuffix[i] = table.dec<std::uint32_t>(row, kScalarSuffix + static_cast<int>(i));
  }
  record.info.covMethod = table.hex<std::uint16_t>(row, kScalarCovMethod);
  record.info.selectFlag = table.hex<std::uint8_t>(row, kScalarSelectFlag);
  record.info.name = name;
  record.info.auxWord = table.hex<std::uint16_t>(row, kScalarAuxWord);
  return record;
}

SnmpTableObjRecord cellRecord(const ResultTable& table, int row, const std::string& name) {
  SnmpTableObjRecord record;
  record.objId = table.hex<std::uint16_t>(row, kCellObjId);
  record.info.auxByte = table.dec<std::uint8_t>(row, kCellAuxByte);
  record.column = table.dec<std::uint32_t>(row, kCellColumn);
  record.info.asnType = table.dec<std::uint16_t>(row, kCellAsnType);
  record.info.access = table.dec<std::uint16_t>(row, kCellAccess);
  record.ancestorNode = table.text(row, kCellAncestorNode);
  record.info.covMethod = table.hex<std::uint16_t>(row, kCellCovMethod);
  record.info.selectFlag = table.hex<std::uint8_t>(row, kCellSelectFlag);
  record.info.name = name;
  record.row = table.dec<std::uint8_t>(row, kCellRow);
  record.tableAttr = table.dec<std::uint8_t>(row, kCellTableAttr);
  record.info.auxWord = table.hex<std::uint16_t>(row, kCellAuxWord);
  record.extraWord = table.hex<std::uint16_t>(row, kCellExtraWord);
  return record;
}

/// One of the two tables that make up the mapping.
struct MappingTable {
  const char* loader;  ///< what a failed open names
  const char* name;
  int columns;     ///< at least so many
  int nameColumn;  ///< the one that may be NULL
};

/// Hands every row to `useRow(table, row number, object name)`. 0, or -1 after printing what is
/// missing.
template <typename UseRow>
int loadMapping(DataBaseAdapter& adapter, const MappingTable& mapping, int subsite, UseRow useRow) {
  if (adapter.open() != 0) {
    Output::print("%s subsite %d db open error\n", mapping.loader, subsite);
    return -1;
  }
  const OpenDataBase closing(adapter);
  ResultTable table(adapter);
  if (table.getTable(mapping.name) != 0) {
    Output::print(" subsite %d get %s error\n", subsite, mapping.name);
    return -1;
  }
  if (!table.hasColumns(mapping.name, mapping.columns)) return -1;

  std::string name;  // deliberate: a NULL name repeats that of the row before
  for (int row = 1; row <= table.rows(); ++row) {
    if (const char* text = table.text(row, mapping.nameColumn)) name = text;
    if (!table.isFilled(mapping.name, row, mapping.columns, mapping.nameColumn)) continue;
    useRow(table, row, name);
  }
  return 0;
}

/// The tables' texts, as the database's library hands them out, take far more than the catalogue
/// that is made of them meanwhile, and lie below it, where the C library would keep what is free.
void giveMemoryBack() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

}  // namespace

SnmpDataBase::SnmpDataBase(const char* path) {
  load(path);
}

void SnmpDataBase::load(const char* path) {
  const std::lock_guard lock(_lock);
  _objects.clear();
  _tableObjects.clear();
  _slotFreqMap.clear();
  _genusGroupMap.clear();
  _ancestorNodes.clear();

  Sqlite3 adapter(path);
  initSnmpObjOid(adapter);
  initSnmpTableOid(adapter);
  giveMemoryBack();
}

int SnmpDataBase::initSnmpObjOid(DataBaseAdapter& adapter) {
  const MappingTable scalars{"initSnmpObjOid", kScalarTable, kScalarColumns, kScalarName};
  return loadMapping(adapter, scalars, _subsite,
                     [this](const ResultTable& table, int row, const std::string& name) {
                       SnmpObjRecord record = scalarRecord(table, row, name);
                       _objects.try_emplace(record.objId, std::move(record));
                     });
}

int SnmpDataBase::initSnmpTableOid(DataBaseAdapter& adapter) {
  const MappingTable cells{"initSnmpTableOid", kCellTable, kCellColumns, kCellName};
  return loadMapping(adapter, cells, _subsite,
                     [this](const ResultTable& table, int row, const std::string& name) {
                       insertCell(cellRecord(table, row, name));
                     });
}

void SnmpDataBase::insertCell(const SnmpTableObjRecord& record) {
  const auto known = std::find_if(_ancestorNodes.begin(), _ancestorNodes.end(),
                                  [&record](const AncestorNodeEntry& entry) {
                                    return entry.ancestorNode == record.ancestorNode;
                                  });
  if (known == _ancestorNodes.end()) {
    _ancestorNodes.push_back({record.tableAttr, record.ancestorNode});
  }
  _tableObjects.insert(record);
}

template <typename CopyScalar, typename CopyCell>
int SnmpDataBase::copyObject(std::uint16_t objId, CopyScalar copyScalar, CopyCell copyCell) const {
  const std::lock_guard lock(_lock);
  if (const auto scalar = _objects.find(objId); scalar != _objects.end()) {
    copyScalar(scalar->second);
    return 0;
  }
  const TableCells::Entry* cell = _tableObjects.findObject(objId);
  if (cell == nullptr) return -1;
  copyCell(*cell);
  return 0;
}

int SnmpDataBase::findObjInfo(std::uint16_t objId, ObjInfo& out) const {
  return copyObject(
      objId, [&](const auto& scalar) { out = scalar.info; },
      [&](const auto& cell) { out = _tableObjects.record(cell).info; });
}

int SnmpDataBase::findAttributes(std::uint16_t objId, ObjAttributes& out) const {
  return copyObject(
      objId, [&](const auto& scalar) { out = scalar.info.attributes(); },
      [&](const auto& cell) { out = cell.second.attributes; });
}

int SnmpDataBase::getObjName(std::uint16_t objId, std::string& out) const {
  {
    const std::lock_guard lock(_lock);
    if (const auto scalar = _objects.find(objId); scalar != _objects.end()) {
      out = scalar->second.info.name;
      return 0;
    }
  }
  Output::print("get name is %s\n", out.c_str());
  return -1;
}

template <typename Copy>
int SnmpDataBase::copyCell(const std::string& ancestorNode, std::uint32_t column, unsigned row,
                           Copy copy) const {
  const unsigned keyRow = _subsite != 0 ? 1 : row;
  {
    const std::lock_guard lock(_lock);
    if (const auto* cell = _tableObjects.find(ancestorNode, keyRow, column)) {
      copy(*cell);
      return 0;
    }
  }
  Output::print(" %s %s\n ", "getSnmpTableOid", tableKey(ancestorNode, keyRow, column).c_str());
  return -1;
}

int SnmpDataBase::getSnmpTableOid(const std::string& ancestorNode, std::uint32_t column,
                                  unsigned row, SnmpTableObjRecord& out) const {
  return copyCell(ancestorNode, column, row,
                  [&](const auto& cell) { out = _tableObjects.record(cell); });
}

int SnmpDataBase::findCell(const std::string& ancestorNode, std::uint32_t column, unsigned row,
                           ObjMapping& out) const {
  return copyCell(ancestorNode, column, row, [&](const auto& cell) {
    out = {cell.second.objId, cell.second.attributes};
  });
}

int SnmpDataBase::getTableColumns(const std::string& ancestorNode,
                                  std::vector<SnmpTableObjRecord>& out) const {
  const std::lock_guard lock(_lock);
  const auto& cells = _tableObjects.all();
  const auto end = cells.lower_bound({&ancestorNode, 0xFFFFFFFFU, 1});
  for (auto cell = cells.upper_bound({&ancestorNode, 0, 1}); cell != end; ++cell) {
    out.push_back(_tableObjects.record(*cell));
  }
  return 0;
}

int SnmpDataBase::getTableAncestorNodes(std::vector<AncestorNodeEntry>& out) const {
  const std::lock_guard lock(_lock);
  if (_ancestorNodes.empty()) return -1;
  out = _ancestorNodes;
  return 0;
}

int SnmpDataBase::getAllObjects(std::vector<SnmpObjRecord>& out) const {
  const std::lock_guard lock(_lock);
  for (const auto& [objId, record] : _objects) out.push_back(record);
  return 0;
}

int SnmpDataBase::getObjRecord(std::uint16_t objId, SnmpObjRecord& out) const {
  const std::lock_guard lock(_lock);
  const auto scalar = _objects.find(objId);
  if (scalar == _objects.end()) return -1;
  out = scalar->second;
  return 0;
}

int SnmpDataBase::listFlaggedObjects(std::vector<std::uint16_t>& out) const {
  const std::lock_guard lock(_lock);
  for (const auto& [objId, record] : _objects) {
    if (record.info.selectFlag != 0) out.push_back(objId);
  }
  for (const auto& [key, cell] : _tableObjects.all()) {
    if (cell.attributes.selectFlag != 0) out.push_back(cell.objId);
  }
  return 0;
}

int SnmpDataBase::countTableRows(const std::string& ancestorNode) const {
  const std::lock_guard lock(_lock);
  const auto& cells = _tableObjects.all();
  const auto first = cells.upper_bound({&ancestorNode, 2, 1});
  const auto end = cells.lower_bound({&ancestorNode, 2, 255});
  return static_cast<int>(std::distance(first, end));
}

int SnmpDataBase::loadSlotFreq(DataBaseAdapter& adapter) {
  if (adapter.open() != 0) {
    Output::puts(" db open error");
    return -1;
  }
  const OpenDataBase closing(adapter);
  ResultTable table(adapter);
  if (table.getTable(kSlotFreqTable) != 0) {
    Output::puts(" db get table error");
    return -1;
  }
  constexpr int kLowKey = 0;
  constexpr int kFrequency = 1;
  constexpr int kHighKey = 2;
  constexpr int kColumns = 3;
  if (!table.hasColumns(kSlotFreqTable, kColumns)) return -1;
  for (int row = 1; row <= table.rows(); ++row) {
    if (!table.isFilled(kSlotFreqTable, row, kColumns, kColumns)) continue;
    const auto key = static_cast<std::uint16_t>((table.hex<std::uint8_t>(row, kHighKey) << 8) |
                                                table.hex<std::uint8_t>(row, kLowKey));
    _slotFreqMap.try_emplace(key, table.hex<std::uint16_t>(row, kFrequency));
  }
  return 0;
}

int SnmpDataBase::loadGenusGroup(DataBaseAdapter& adapter, std::uint16_t objId,
                                 std::uint8_t channelHigh) {
  char sql[256] = {};
  std::snprintf(sql, sizeof sql, "select objId,channelNum FROM %s where objId=\"%04X\"",
                kGenusGroupTable, objId);
  ResultTable table(adapter);
  constexpr int kObjId = 0;
  constexpr int kChannel = 1;
  const bool found = table.query(sql) == 0 && table.columns() >= 2 && table.rows() >= 1 &&
                     table.isFilled(kGenusGroupTable, 1, 2, 2);
  if (!found) {
    _genusGroupMap.try_emplace(objId, std::uint16_t{0});
    return 0;
  }
  const auto channel =
      static_cast<std::uint16_t>((channelHigh << 8) + table.hex<std::uint8_t>(1, kChannel));
  _genusGroupMap.try_emplace(table.hex<std::uint16_t>(1, kObjId), channel);
  return 0;
}

int SnmpDataBase::getSlotFreq(std::uint16_t objId, std::uint16_t& out) const {
  out = 0;
  const std::lock_guard lock(_lock);
  const auto channel = _genusGroupMap.find(objId);
  if (channel == _genusGroupMap.end()) return -1;
  const auto frequency = _slotFreqMap.find(channel->second);
  if (frequency == _slotFreqMap.end()) return -1;
  out = frequency->second;
  return 0;
}

}  // namespace norva
