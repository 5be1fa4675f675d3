#include "Mapping.h"

#include <sqlite3.h>

#include <algorithm>
#include <filesystem>

#include "AsnType.h"
#include "Text.h"

namespace norva::mapping {

using dasunit::InputError;

namespace {

/// The file as an SQLite URI that opens it for reading only. The agent's adapter opens what it is
/// given for writing, and makes a file that is missing.
std::string readOnlyUri(const std::string& path) {
  std::string uri = "file:";
  for (const char c : std::filesystem::absolute(path).string()) {
    if (c == '%' || c == '?' || c == '#') {
      uri += format("%%%02X", static_cast<unsigned>(c));
    } else {
      uri += c;
    }
  }
  return uri + "?mode=ro";
}

std::unique_ptr<SnmpDataBase> loadCatalogue(const std::string& path) {
  // What the catalogue prints waits in the memory of its Output, which nobody drains here.
  sqlite3_shutdown();
  sqlite3_config(SQLITE_CONFIG_URI, 1);
  return std::make_unique<SnmpDataBase>(readOnlyUri(path).c_str());
}

void requireUsable(const std::string& path, const MappingTable& layout, const RawTable& table) {
  if (!table.exists) throw InputError(path + ": " + layout.name + ": no such table");
  if (!table.isUsable()) {
    throw InputError(format("%s: %s has %d columns, %d are needed", path.c_str(), layout.name,
                            table.columns, kMappingColumns));
  }
}

}  // namespace

Mapping::Mapping(const std::string& path, const std::string& root)
    : path_(path),
      root_(parseStrictOid(root, "root")),
      rootText_(root),
      raw_(path),
      catalogue_(loadCatalogue(path)) {
  addScalars();
  addTables();
  for (std::size_t position = 0; position < tables_.size(); ++position) {
    if (tables_[position].served) addCells(static_cast<int>(position));
  }
  std::sort(objects_.begin(), objects_.end(),
            [](const ServedObject& a, const ServedObject& b) { return a.oid < b.oid; });
  for (std::size_t i = 0; i < objects_.size(); ++i) {
    if (!objects_[i].isIndex) byObjId_.try_emplace(objects_[i].objId, i);
  }
}

void Mapping::requireComplete() const {
  requireUsable(path_, kScalarTable, raw_.scalars);
  requireUsable(path_, kCellTable, raw_.cells);
}

const ServedObject* Mapping::findObject(std::uint16_t objId) const {
  const auto found = byObjId_.find(objId);
  return found == byObjId_.end() ? nullptr : &objects_[found->second];
}

std::vector<Oid> Mapping::registeredBelow(const Oid& own) const {
  std::vector<Oid> below;
  for (const Oid& other : registrations_) {
    if (other.size() > own.size() && isWithin(other, own)) below.push_back(other);
  }
  return below;
}

void Mapping::addScalars() {
  catalogue_->getAllObjects(scalars_);
  verdicts_ = judgeScalars(scalars_);
  for (std::size_t i = 0; i < scalars_.size(); ++i) {
    const SnmpObjRecord& scalar = scalars_[i];
    if (verdicts_[i].state != ScalarState::kServed) continue;
    ServedObject object;
    object.objId = scalar.objId;
    object.info = scalar.info;
    object.oid = root_;
    object.oid.insert(object.oid.end(), scalar.oidSuffix.begin(), scalar.oidSuffix.end());
    registrations_.push_back(object.oid);
    object.oid.push_back(0);
    object.writable = isScalarWritable(scalar.info.access);
    objects_.push_back(std::move(object));
  }
}

void Mapping::addTables() {
  std::vector<AncestorNodeEntry> nodes;
  catalogue_->getTableAncestorNodes(nodes);
  for (const AncestorNodeEntry& entry : nodes) {
    Table table;
    table.node = entry.ancestorNode;
    const TablePlace place = placeTable(rootText_ + table.node);
    table.oid = place.oid;
    if (tables_.size() >= kMaxTables) {
      table.reason = format("the agent serves the first %zu tables only", kMaxTables);
    } else if (!place.isPossible()) {
      table.reason = format("with the root its node has %u numbers, %zu are possible", place.count,
                            kMaxNodeLength);
    } else if (std::count(registrations_.begin(), registrations_.end(), table.oid) != 0) {
      table.reason = "another object has this OID";
    } else {
      table.served = true;
      registrations_.push_back(table.oid);
    }
    std::vector<SnmpTableObjRecord> columns;
    catalogue_->getTableColumns(table.node, columns);
    table.maxColumn = lastColumn(columns.size());
    for (const SnmpTableObjRecord& cell : columns) {
      const std::string& node = cell.ancestorNode;
      auto& foreign = table.foreignNodes;
      if (node != table.node && std::count(foreign.begin(), foreign.end(), node) == 0) {
        foreign.push_back(node);
      }
    }
    tables_.push_back(std::move(table));
  }
}

void Mapping::addCells(int position) {
  Table& table = tables_[static_cast<std::size_t>(position)];
  const std::vector<Oid> others = registeredBelow(table.oid);
  for (std::uint32_t column = kIndexColumn; column <= table.maxColumn; ++column) {
    for (unsigned row = 1; row <= unsigned{kTableRows}; ++row) {
      ServedObject object;
      object.isIndex = column == kIndexColumn;
      if (object.isIndex) {
        object.info.asnType = kAsnInteger;
      } else if (!takeCell(table.node, column, row, object)) {
        table.holes.emplace_back(column, row);
        continue;
      }
      object.oid.reserve(table.oid.size() + 4);
      object.oid = table.oid;
      object.oid.insert(object.oid.end(), {1, column, row, 0});
      object.table = position;
      object.row = row;
      object.column = column;
      const bool isHidden = std::any_of(others.begin(), others.end(), [&](const Oid& other) {
        return isWithin(object.oid, other);
      });
      if (!isHidden) objects_.push_back(std::move(object));
    }
  }
}

bool Mapping::takeCell(const std::string& node, std::uint32_t column, unsigned row,
                       ServedObject& object) const {
  SnmpTableObjRecord cell;
  if (catalogue_->getSnmpTableOid(node, column, row, cell) != 0) return false;
  ObjAttributes applied;
  catalogue_->findAttributes(cell.objId, applied);
  object.objId = cell.objId;
  object.info = std::move(cell.info);
  object.info.covMethod = applied.covMethod;
  object.writable = isCellWritable(object.info.access);
  return true;
}

}  // namespace norva::mapping
