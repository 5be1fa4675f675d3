#include "MappingLoader.h"

#include <cstdio>
#include <string>
#include <utility>

#include "MappingLayout.h"
#include "Output.h"
#include "ResultTable.h"
#include "TableCells.h"

namespace norva {

namespace {

constexpr char kSlotFreqTable[] = "TABLE_SLOT_FREQ_OBJ";
constexpr char kGenusGroupTable[] = "TABLE_OBJ_GENUS_GROUP";
constexpr int kHexadecimal = 16;
constexpr int kManyRows = 100'000;  // several times what managers can be shown

/// A row of one of the two tables, read by the table's layout.
template <const MappingTable& kTable>
struct MappingRow {
  const ResultTable& table;
  const int number;
  const std::string& name;  ///< of the object; the row itself may lack it

  template <int kColumn, typename Integer>
  void read(Integer& field) const {
    static_assert(kTable[kColumn].bits == 8 * sizeof field);
    field = table.number<Integer>(number, kColumn, kTable[kColumn].base);
  }
};

using ScalarRow = MappingRow<kScalarTable>;
using CellRow = MappingRow<kCellTable>;

SnmpObjRecord scalarRecord(const ScalarRow& row) {
  SnmpObjRecord record;
  row.read<kScalarObjId>(record.objId);
  row.read<kScalarAuxByte>(record.info.auxByte);
  row.read<kScalarMagic>(record.magic);
  row.read<kScalarAsnType>(record.info.asnType);
  row.read<kScalarAccess>(record.info.access);
  row.read<kScalarSuffix>(record.oidSuffix[0]);
  row.read<kScalarSuffix + 1>(record.oidSuffix[1]);
  row.read<kScalarSuffix + 2>(record.oidSuffix[2]);
  row.read<kScalarSuffix + 3>(record.oidSuffix[3]);
  row.read<kScalarCovMethod>(record.info.covMethod);
  row.read<kScalarSelectFlag>(record.info.selectFlag);
  record.info.name = row.name;
  row.read<kScalarAuxWord>(record.info.auxWord);
  return record;
}

SnmpTableObjRecord cellRecord(const CellRow& row) {
  SnmpTableObjRecord record;
  row.read<kCellObjId>(record.objId);
  row.read<kCellAuxByte>(record.info.auxByte);
  row.read<kCellColumn>(record.column);
  row.read<kCellAsnType>(record.info.asnType);
  row.read<kCellAccess>(record.info.access);
  record.ancestorNode = row.table.text(row.number, kCellAncestorNode);
  row.read<kCellCovMethod>(record.info.covMethod);
  row.read<kCellSelectFlag>(record.info.selectFlag);
  record.info.name = row.name;
  row.read<kCellRow>(record.row);
  row.read<kCellTableAttr>(record.tableAttr);
  row.read<kCellAuxWord>(record.info.auxWord);
  row.read<kCellExtraWord>(record.extraWord);
  return record;
}

/// Hands every row that can be used to `useRow`. 0, or -1 after printing what is missing.
template <const MappingTable& kTable, typename UseRow>
int readRows(DataBaseAdapter& adapter, int subsite, UseRow useRow) {
  ResultTable table(adapter);
  if (table.getTable(kTable.name) != 0) {
    Output::print(" subsite %d get %s error\n", subsite, kTable.name);
    if (const char* reason = adapter.lockedReason()) Output::print("%s: %s\n", kTable.name, reason);
    return -1;
  }
  if (!table.hasColumns(kTable.name, kMappingColumns)) return -1;
  if (table.rows() > kManyRows) {
    Output::print("%s has %d rows, which cost time and memory\n", kTable.name, table.rows());
  }

  std::string name;  // deliberate: a NULL name repeats that of the row before
  for (int row = 1; row <= table.rows(); ++row) {
    if (const char* text = table.text(row, kTable.objName)) name = text;
    if (!table.isFilled(kTable.name, row, kMappingColumns, kTable.objName)) continue;
    useRow(MappingRow<kTable>{table, row, name});
  }
  return 0;
}

/// The same around opening and closing; `loader` is what a failed open names.
template <const MappingTable& kTable, typename UseRow>
int loadRows(DataBaseAdapter& adapter, const char* loader, int subsite, UseRow useRow) {
  if (adapter.open() != 0) {
    Output::print("%s subsite %d db open error\n", loader, subsite);
    return -1;
  }
  const int status = readRows<kTable>(adapter, subsite, useRow);
  adapter.close();
  return status;
}

int readFrequencies(DataBaseAdapter& adapter, std::map<std::uint16_t, std::uint16_t>& frequencies) {
  constexpr int kLowKey = 0;
  constexpr int kFrequency = 1;
  constexpr int kHighKey = 2;
  constexpr int kColumns = 3;
  ResultTable table(adapter);
  if (table.getTable(kSlotFreqTable) != 0) {
    Output::puts(" db get table error");
    return -1;
  }
  if (!table.hasColumns(kSlotFreqTable, kColumns)) return -1;
  for (int row = 1; row <= table.rows(); ++row) {
    if (!table.isFilled(kSlotFreqTable, row, kColumns, kColumns)) continue;
    const auto high = table.number<std::uint8_t>(row, kHighKey, kHexadecimal);
    const auto low = table.number<std::uint8_t>(row, kLowKey, kHexadecimal);
    frequencies.try_emplace(static_cast<std::uint16_t>((high << 8) | low),
                            table.number<std::uint16_t>(row, kFrequency, kHexadecimal));
  }
  return 0;
}

}  // namespace

int MappingLoader::initSnmpObjOid(int subsite, std::map<std::uint16_t, SnmpObjRecord>& objects) {
  return loadRows<kScalarTable>(_adapter, "initSnmpObjOid", subsite,
                                [&objects](const ScalarRow& row) {
                                  SnmpObjRecord record = scalarRecord(row);
                                  objects.try_emplace(record.objId, std::move(record));
                                });
}

int MappingLoader::initSnmpTableOid(int subsite, TableCells& cells,
                                    std::vector<AncestorNodeEntry>& nodes) {
  return loadRows<kCellTable>(_adapter, "initSnmpTableOid", subsite, [&](const CellRow& row) {
    const SnmpTableObjRecord record = cellRecord(row);
    if (cells.insert(record)) nodes.push_back({record.tableAttr, record.ancestorNode});
  });
}

int MappingLoader::loadSlotFreq(std::map<std::uint16_t, std::uint16_t>& frequencies) {
  if (_adapter.open() != 0) {
    Output::puts(" db open error");
    return -1;
  }
  const int status = readFrequencies(_adapter, frequencies);
  _adapter.close();
  return status;
}

void MappingLoader::loadGenusGroup(std::uint16_t objId, std::uint8_t channelHigh,
                                   std::map<std::uint16_t, std::uint16_t>& channels) {
  constexpr int kObjId = 0;
  constexpr int kChannel = 1;
  char sql[256] = {};
  std::snprintf(sql, sizeof sql, "select objId,channelNum FROM %s where objId=\"%04X\"",
                kGenusGroupTable, objId);
  ResultTable table(_adapter);
  const bool found = table.query(sql) == 0 && table.columns() >= 2 && table.rows() >= 1 &&
                     table.isFilled(kGenusGroupTable, 1, 2, 2);
  if (!found) {
    channels.try_emplace(objId, std::uint16_t{0});
    return;
  }
  const auto channel = table.number<std::uint8_t>(1, kChannel, kHexadecimal);
  channels.try_emplace(table.number<std::uint16_t>(1, kObjId, kHexadecimal),
                       static_cast<std::uint16_t>((channelHigh << 8) + channel));
}

}  // namespace norva
