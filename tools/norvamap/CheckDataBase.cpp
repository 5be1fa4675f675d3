#include <map>
#include <set>
#include <tuple>

#include "Reports.h"
#include "RowCheck.h"
#include "Text.h"
#include "View.h"

namespace norva::mapping {

namespace {

using dasunit::formatObjectId;

/// Walks over one of the two tables; false for one that the agent does not load.
bool isLoaded(const std::string& file, const MappingTable& layout, const RawTable& table,
              const char* consequence, Findings& findings) {
  if (table.isUsable()) return true;
  const std::string reason =
      table.exists ? format("%d columns, %d are needed", table.columns, kMappingColumns)
                   : std::string("no such table");
  findings.add({file, layout.name, Severity::kError, reason + ": " + consequence, {}, {}, {}});
  return false;
}

class ScalarCheck {
 public:
  ScalarCheck(const Mapping& mapping, Findings& findings) : mapping_(mapping), findings_(findings) {
    for (std::size_t i = 0; i < mapping.scalars().size(); ++i) {
      indexOf_.emplace(mapping.scalars()[i].objId, i);
    }
  }

  void run() {
    const RawTable& table = mapping_.raw().scalars;
    if (!isLoaded(mapping_.path(), kScalarTable, table, "no scalar is served", findings_)) return;
    for (const RawRow& row : table.rows) {
      RowCheck check(mapping_.path(), kScalarTable, row, findings_);
      if (check.checkNumbers() && isUsed(check)) checkUsed(check);
    }
    checkCount();
  }

 private:
  /// False, reported, for a repeated object id.
  bool isUsed(RowCheck& check) {
    const auto [first, isNew] = rowOf_.try_emplace(check.objId(), check.rowNumber());
    if (isNew) return true;
    if (check.isSound(kMappingObjId)) {
      check.error(format("the object is in row %d already: this row is not used", first->second));
    }
    return false;
  }

  void checkUsed(RowCheck& check) {
    const std::size_t position = indexOf_.at(check.objId());
    bool hasOid = true;
    for (int i = 0; i < static_cast<int>(kOidSuffixLength); ++i) {
      hasOid = hasOid && check.isSound(kScalarSuffix + i);
    }
    const ScalarVerdict& verdict = mapping_.verdicts()[position];
    if (hasOid && verdict.state == ScalarState::kSubIdentifier) {
      check.error(format("a number of its OID is above %u: not served", kMaxSubIdentifier));
      return;
    }
    if (hasOid && verdict.state == ScalarState::kSameOid) {
      check.error("object " + formatObjectId(verdict.owner) +
                  " has the same OID: this one is not served");
      return;
    }
    check.checkMeaning(isScalarWritable(mapping_.scalars()[position].info.access));
  }

  void checkCount() {
    const auto& scalars = mapping_.scalars();
    if (scalars.size() <= kMaxScalars) return;
    Finding finding{mapping_.path(), kScalarTable.name, Severity::kError, {}, {}, {}, {}};
    for (std::size_t i = kMaxScalars; i < scalars.size(); ++i) {
      finding.objects.push_back(scalars[i].objId);
      finding.rows.push_back(rowOf_[scalars[i].objId]);
    }
    finding.text = format("%zu scalars, the agent serves the %zu lowest object ids", scalars.size(),
                          kMaxScalars);
    findings_.add(std::move(finding));
  }

  const Mapping& mapping_;
  Findings& findings_;
  std::map<std::uint16_t, std::size_t> indexOf_;  // among the scalars, by object id
  std::map<std::uint16_t, int> rowOf_;
};

class CellCheck {
 public:
  CellCheck(const Mapping& mapping, Findings& findings) : mapping_(mapping), findings_(findings) {
    for (std::size_t i = 0; i < mapping.tables().size(); ++i) {
      tableOf_.emplace(mapping.tables()[i].node, i);
    }
    for (const ServedObject& object : mapping.objects()) {
      if (object.table >= 0) served_.emplace(object.table, object.column, object.row);
    }
  }

  void run() {
    const RawTable& table = mapping_.raw().cells;
    if (!isLoaded(mapping_.path(), kCellTable, table, "no table is served", findings_)) return;
    for (const RawRow& row : table.rows) {
      RowCheck check(mapping_.path(), kCellTable, row, findings_);
      if (row.cells[kCellAncestorNode])
        firstRow_.try_emplace(*row.cells[kCellAncestorNode], row.number);
      if (row.cells[kCellAncestorNode] && row.cells[kCellColumn]) {
        check.setGroup(*row.cells[kCellAncestorNode] + ' ' + *row.cells[kCellColumn]);
      }
      if (!check.checkNumbers() || !isUsed(check)) continue;
      if (isReachable(check)) checkReached(check);
    }
    for (std::size_t i = 0; i < mapping_.tables().size(); ++i) checkTable(i);
    for (const Overlap& overlap : mapping_.overlaps()) checkOverlap(overlap);
  }

 private:
  /// False, reported, for a cell that an earlier row has.
  bool isUsed(RowCheck& check) {
    const bool isSound = check.isSound(kCellColumn) && check.isSound(kCellRow);
    const std::string key =
        tableKey(check.text(kCellAncestorNode), check.number(kCellRow), check.number(kCellColumn));
    const auto [first, isNew] = rowOfKey_.try_emplace(key, check.rowNumber());
    if (!isNew && isSound) {
      check.error(format("the cell is in row %d already: this row is not used", first->second));
    }
    return isNew && isSound;
  }

  bool isReachable(RowCheck& check) {
    const std::size_t position = tableOf_.at(check.text(kCellAncestorNode));
    const Table& table = mapping_.tables()[position];
    if (!table.served) return false;  // reported once for the table
    const std::uint32_t column = check.number(kCellColumn);
    const std::uint32_t row = check.number(kCellRow);
    if (row < 1 || row > unsigned{kTableRows}) {
      check.error(format("a row outside 1 to %d is not served", kTableRows));
    } else if (column <= kIndexColumn) {
      check.error(
          format("column %u is not served: column 1 is the row's number, columns of the "
                 "mapping begin at 2",
                 column));
    } else if (column > table.maxColumn) {
      check.error(
          format("column %u is not served: row 1 of the table has %u cells, so its columns "
                 "end at %u",
                 column, table.maxColumn - 1, table.maxColumn));
    } else {
      return true;
    }
    return false;
  }

  void checkReached(RowCheck& check) {
    SnmpTableObjRecord cell;
    mapping_.catalogue().getSnmpTableOid(check.text(kCellAncestorNode), check.number(kCellColumn),
                                         check.number(kCellRow), cell);
    check.checkMeaning(isCellWritable(cell.info.access));
    if (!check.isSound(kMappingObjId)) return;
    checkConversion(check);
    checkColumn(check);
  }

  /// The conversion belongs to the device object, not to the cell.
  void checkConversion(RowCheck& check) {
    const bool isNew = known_.insert(check.objId()).second;
    SnmpObjRecord scalar;
    const bool isScalar = mapping_.catalogue().getObjRecord(check.objId(), scalar) == 0;
    if (isNew && !isScalar) return;
    const char* const where = isScalar ? "a scalar too" : "in an earlier row too";
    ObjInfo applied;
    mapping_.catalogue().findObjInfo(check.objId(), applied);
    if (applied.covMethod != check.method()) {
      check.error(format("the object is %s, whose covMethod %04X is applied here: %s", where,
                         applied.covMethod, describeMethod(applied.covMethod).c_str()));
    } else {
      check.warning(format("the object is %s: two OIDs show and write one object", where));
    }
  }

  /// A column has one type in the management information.
  void checkColumn(RowCheck& check) {
    const auto column = std::make_pair(check.text(kCellAncestorNode), check.number(kCellColumn));
    const auto [first, isNew] =
        typeOf_.try_emplace(column, check.number(kCellAsnType), check.rowNumber());
    if (isNew || first->second.first == check.number(kCellAsnType)) return;
    check.warning(
        format("the type differs from row %d of the same column: a MIB module can "
               "state one only",
               first->second.second));
  }

  void checkTable(std::size_t position) {
    const Table& table = mapping_.tables()[position];
    const auto report = [&](Severity severity, const std::string& text) {
      findings_.add({mapping_.path(),
                     kCellTable.name,
                     severity,
                     "table " + table.node + ": " + text,
                     {},
                     {firstRow_[table.node]},
                     {}});
    };
    try {
      parseStrictOid(table.node, "");
    } catch (const dasunit::InputError&) {
      report(Severity::kError,
             "its node is not of the form .10.1: it stands at " + oidText(table.oid));
    }
    if (!table.served) {
      report(Severity::kError, "not served: " + table.reason);
      return;
    }
    for (const std::string& foreign : table.foreignNodes) {
      report(Severity::kWarning, "the columns of " + foreign +
                                     " are counted with its own: GETs behind its last column "
                                     "answer noSuchInstance, not noSuchObject");
    }
    const std::size_t behind = cellsBehindHole(static_cast<int>(position), table);
    if (behind != 0) {
      report(
          Severity::kError,
          format("column %u, row %u is not mapped%s: a walk leaves the table there, the %zu "
                 "cells behind it answer to GET only",
                 table.holes.front().first, table.holes.front().second,
                 table.holes.size() > 1 ? format(" (and %zu more)", table.holes.size() - 1).c_str()
                                        : "",
                 behind));
    }
  }

  void checkOverlap(const Overlap& overlap) {
    const Registration& outer = mapping_.registrations()[overlap.outer];
    const Registration& inner = mapping_.registrations()[overlap.inner];
    const Registration& table = outer.table >= 0 ? outer : inner;
    Finding finding{mapping_.path(), kCellTable.name, Severity::kError, {}, {}, {}, {}};
    finding.rows.push_back(firstRow_[nodeOf(table)]);
    for (const Registration& one : {outer, inner}) {
      if (one.table < 0) finding.objects.push_back(one.objId);
    }
    finding.text = describe(inner) + " stands inside " + describe(outer) + ": ";
    if (overlap.doubtful == 0) {
      finding.text += "no module can describe that";
    } else if (outer.table < 0) {
      finding.text += "the scalar is not served";
    } else {
      finding.text += format("GET and walk disagree about %zu OIDs there", overlap.doubtful);
    }
    findings_.add(std::move(finding));
  }

  std::string describe(const Registration& registration) const {
    return registration.table >= 0 ? "table " + nodeOf(registration)
                                   : "the scalar " + oidText(registration.oid);
  }
  const std::string& nodeOf(const Registration& table) const {
    return mapping_.tables()[static_cast<std::size_t>(table.table)].node;
  }

  std::size_t cellsBehindHole(int position, const Table& table) const {
    if (table.holes.empty()) return 0;
    const auto [column, row] = table.holes.front();
    const auto first = served_.upper_bound({position, column, row});
    const auto last = served_.lower_bound({position + 1, 0, 0});
    return static_cast<std::size_t>(std::distance(first, last));
  }

  const Mapping& mapping_;
  Findings& findings_;
  std::set<std::tuple<int, std::uint32_t, unsigned>> served_;  // table, column, row
  std::map<std::string, std::size_t> tableOf_;                 // position by node
  std::map<std::string, int> firstRow_;                        // of a node
  std::map<std::string, int> rowOfKey_;
  std::set<std::uint16_t> known_;  // object ids so far
  std::map<std::pair<std::string, std::uint32_t>, std::pair<std::uint32_t, int>> typeOf_;
};

}  // namespace

void checkDataBase(const Mapping& mapping, Findings& findings) {
  ScalarCheck(mapping, findings).run();
  CellCheck(mapping, findings).run();
}

}  // namespace norva::mapping
