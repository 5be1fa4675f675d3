#include "TableCells.h"

#include <algorithm>
#include <cstdio>
#include <tuple>

namespace norva {

std::string tableKey(const std::string& ancestorNode, unsigned row, std::uint32_t column) {
  char cell[16] = {};
  std::snprintf(cell, sizeof cell, "%02x%08x", row & 0xFF, column);
  return ancestorNode + cell;
}

bool CellKey::operator<(const CellKey& other) const {
  const auto inNode = [](const CellKey& key) { return std::tie(key.row, key.column); };
  if (node == other.node) return inNode(*this) < inNode(other);
  const auto [mine, theirs] =
      std::mismatch(node->begin(), node->end(), other.node->begin(), other.node->end());
  const bool isWhole = mine == node->end();
  const bool isOtherWhole = theirs == other.node->end();
  if (isWhole && isOtherWhole) return inNode(*this) < inNode(other);
  if (isWhole || isOtherWhole) {  // one node begins with the other
    return tableKey(*node, row, column) < tableKey(*other.node, other.row, other.column);
  }
  return static_cast<unsigned char>(*mine) < static_cast<unsigned char>(*theirs);
}

void TableCells::clear() {
  _byObjId.clear();
  _cells.clear();
  _nodes.clear();
  _names.clear();
}

bool TableCells::insert(const SnmpTableObjRecord& record) {
  const auto [known, isFirst] = _nodes.insert(record.ancestorNode);
  const Cell cell{static_cast<std::uint32_t>(_names.size()), record.objId, record.info.attributes(),
                  record.extraWord, record.tableAttr};
  const auto [place, isNew] = _cells.try_emplace({&*known, record.column, record.row}, cell);
  if (isNew) _names.append(record.info.name).push_back('\0');
  _byObjId.try_emplace(record.objId, &*place);
  return isFirst;
}

const TableCells::Entry* TableCells::find(const std::string& node, unsigned row,
                                          std::uint32_t column) const {
  const auto known = _nodes.find(node);
  if (known == _nodes.end()) return nullptr;
  const auto found = _cells.find({&*known, column, static_cast<std::uint8_t>(row)});
  return found == _cells.end() ? nullptr : &*found;
}

const TableCells::Entry* TableCells::findObject(std::uint16_t objId) const {
  const auto found = _byObjId.find(objId);
  return found == _byObjId.end() ? nullptr : found->second;
}

void TableCells::copy(const Entry& entry, ObjInfo& out) const {
  out = {entry.second.attributes, _names.data() + entry.second.name};
}

void TableCells::copy(const Entry& entry, SnmpTableObjRecord& out) const {
  const auto& [key, cell] = entry;
  copy(entry, out.info);
  out.objId = cell.objId;
  out.column = key.column;
  out.ancestorNode = *key.node;
  out.row = key.row;
  out.tableAttr = cell.tableAttr;
  out.extraWord = cell.extraWord;
}

}  // namespace norva
