#include "SnmpDataBase.h"

#include <algorithm>
#include <iterator>

#include "MappingLoader.h"
#include "Output.h"
#include "ServedObjects.h"
#include "Sqlite3.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace norva {

namespace {

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
  MappingLoader loader(adapter);
  loader.initSnmpObjOid(_subsite, _objects);
  loader.initSnmpTableOid(_subsite, _tableObjects, _ancestorNodes);
  giveMemoryBack();
}

template <typename Out>
int SnmpDataBase::copyObject(std::uint16_t objId, Out& out) const {
  const std::lock_guard lock(_lock);
  if (const auto scalar = _objects.find(objId); scalar != _objects.end()) {
    out = static_cast<const Out&>(scalar->second.info);
    return 0;
  }
  const TableCells::Entry* cell = _tableObjects.findObject(objId);
  if (cell == nullptr) return -1;
  _tableObjects.copy(*cell, out);
  return 0;
}

int SnmpDataBase::findObjInfo(std::uint16_t objId, ObjInfo& out) const {
  return copyObject(objId, out);
}

int SnmpDataBase::findAttributes(std::uint16_t objId, ObjAttributes& out) const {
  return copyObject(objId, out);
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

template <typename Out>
int SnmpDataBase::copyCell(const std::string& ancestorNode, std::uint32_t column, unsigned row,
                           Out& out) const {
  const unsigned keyRow = _subsite != 0 ? 1 : row;
  {
    const std::lock_guard lock(_lock);
    if (const auto* cell = _tableObjects.find(ancestorNode, keyRow, column)) {
      _tableObjects.copy(*cell, out);
      return 0;
    }
  }
  Output::print(" %s %s\n ", "getSnmpTableOid", tableKey(ancestorNode, keyRow, column).c_str());
  return -1;
}

int SnmpDataBase::getSnmpTableOid(const std::string& ancestorNode, std::uint32_t column,
                                  unsigned row, SnmpTableObjRecord& out) const {
  return copyCell(ancestorNode, column, row, out);
}

int SnmpDataBase::findCell(const std::string& ancestorNode, std::uint32_t column, unsigned row,
                           ObjMapping& out) const {
  return copyCell(ancestorNode, column, row, out);
}

int SnmpDataBase::getTableColumns(const std::string& ancestorNode,
                                  std::vector<SnmpTableObjRecord>& out) const {
  const std::lock_guard lock(_lock);
  const auto& cells = _tableObjects.all();
  const auto end = cells.lower_bound({&ancestorNode, 0xFFFFFFFFU, 1});
  for (auto cell = cells.upper_bound({&ancestorNode, 0, 1}); cell != end; ++cell) {
    _tableObjects.copy(*cell, out.emplace_back());
  }
  return 0;
}

std::size_t SnmpDataBase::countCells(const std::string& ancestorNode, std::uint32_t last) const {
  const std::lock_guard lock(_lock);
  const auto& cells = _tableObjects.all();
  return static_cast<std::size_t>(std::count_if(cells.begin(), cells.end(), [&](const auto& entry) {
    const CellKey& key = entry.first;
    return *key.node == ancestorNode && key.row >= 1 && key.row <= kTableRows &&
           key.column > kIndexColumn && key.column <= last;
  }));
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
  return MappingLoader(adapter).loadSlotFreq(_slotFreqMap);
}

int SnmpDataBase::loadGenusGroup(DataBaseAdapter& adapter, std::uint16_t objId,
                                 std::uint8_t channelHigh) {
  MappingLoader(adapter).loadGenusGroup(objId, channelHigh, _genusGroupMap);
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
