#include "Mapping.h"

#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <tuple>

#include "AsnType.h"
#include "Text.h"
#include "View.h"

namespace norva::mapping {

using dasunit::InputError;

namespace {

/// Numbers of a row's OID behind its table's: 1, column, row. A 0 follows.
constexpr std::size_t kRowDepth = 3;

bool isOf(const ServedObject& object, const Registration& registration) {
  return object.table == registration.table &&
         (registration.table >= 0 || object.objId == registration.objId);
}

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

Oid parseRoot(const std::string& text) {
  const Oid root = parseStrictOid(text, "root");
  if (isUsableRoot(text)) return root;
  throw InputError(format("root '%s' has a number above %u: the agent uses %s in its place",
                          text.c_str(), kMaxSubIdentifier, kFixedRoot));
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
      root_(parseRoot(root)),
      rootText_(root),
      raw_(path),
      catalogue_(loadCatalogue(path)) {
  addScalars();
  addTables();
  for (std::size_t position = 0; position < tables_.size(); ++position) {
    if (tables_[position].served) addCells(static_cast<int>(position));
  }
  findOverlaps();
  for (const Overlap& overlap : overlaps_) noteDoubts(overlap);
  std::sort(objects_.begin(), objects_.end(), [](const ServedObject& a, const ServedObject& b) {
    return std::tie(a.oid, a.doubt) < std::tie(b.oid, b.doubt);
  });
  // A cell may have the OID of a scalar's instance: that one answers, in a walk too.
  const auto isSame = [](const ServedObject& a, const ServedObject& b) { return a.oid == b.oid; };
  objects_.erase(std::unique(objects_.begin(), objects_.end(), isSame), objects_.end());
  countDoubts();
  for (std::size_t i = 0; i < objects_.size(); ++i) {
    if (!objects_[i].isIndex && objects_[i].doubt != Doubt::kInside)
      byObjId_.try_emplace(objects_[i].objId, i);
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

void Mapping::findOverlaps() {
  for (std::size_t outer = 0; outer < registrations_.size(); ++outer) {
    for (std::size_t inner = 0; inner < registrations_.size(); ++inner) {
      const bool isInside = isWithin(registrations_[inner].oid, registrations_[outer].oid);
      if (isInside && inner != outer) overlaps_.push_back({outer, inner, 0});
    }
  }
}

void Mapping::noteDoubts(const Overlap& overlap) {
  const Registration& outer = registrations_[overlap.outer];
  const Oid& inner = registrations_[overlap.inner].oid;
  // Behind it the walk enters the table in the middle of a row, and keeps the last number of there.
  Oid entry = outer.oid;
  entry.push_back(1);
  const bool isInRow =
      outer.table >= 0 && isWithin(inner, entry) && inner.size() > outer.oid.size() + kRowDepth;
  for (ServedObject& object : objects_) {
    if (!isOf(object, outer)) continue;
    if (isWithin(object.oid, inner)) {
      object.doubt = Doubt::kInside;
      object.cause = overlap.inner;
    } else if (isInRow && object.doubt != Doubt::kInside && inner < object.oid) {
      object.doubt = Doubt::kBehind;
      object.cause = overlap.inner;
    }
  }
}

void Mapping::countDoubts() {
  for (Overlap& overlap : overlaps_) {
    overlap.doubtful = static_cast<std::size_t>(
        std::count_if(objects_.begin(), objects_.end(), [&](const ServedObject& object) {
          return (object.doubt == Doubt::kInside || object.doubt == Doubt::kBehind) &&
                 object.cause == overlap.inner && isOf(object, registrations_[overlap.outer]);
        }));
  }
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
    registrations_.push_back({object.oid, -1, object.objId});
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
    } else if (!place.hasLength()) {
      table.reason = format("with the root its node has %u numbers, %zu are possible", place.count,
                            kMaxNodeLength);
    } else if (!place.hasRange()) {
      table.reason = format("a number of its node is above %u", kMaxSubIdentifier);
    } else if (std::any_of(registrations_.begin(), registrations_.end(),
                           [&](const Registration& other) { return other.oid == table.oid; })) {
      table.reason = "another object has this OID";
    } else {
      table.served = true;
      registrations_.push_back({table.oid, static_cast<int>(tables_.size()), 0});
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
  bool behindHole = false;
  for (std::uint32_t column = kIndexColumn; column <= table.maxColumn; ++column) {
    for (unsigned row = 1; row <= unsigned{kTableRows}; ++row) {
      ServedObject object;
      object.isIndex = column == kIndexColumn;
      if (object.isIndex) {
        object.info.asnType = kAsnInteger;
      } else if (!takeCell(table.node, column, row, object)) {
        table.holes.emplace_back(column, row);
        behindHole = true;
        continue;
      }
      if (behindHole) object.doubt = Doubt::kBehindHole;
      behindHole = behindHole || !canBeAnswered(object.info.asnType, object.info.covMethod);
      object.oid.reserve(table.oid.size() + kRowDepth + 1);
      object.oid = table.oid;
      object.oid.insert(object.oid.end(), {1, column, row, 0});
      object.table = position;
      object.row = row;
      object.column = column;
      objects_.push_back(std::move(object));
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
