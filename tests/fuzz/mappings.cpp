// Mapping databases made of the input's lines, through the catalogue, the agent's list of scalars
// and norvamap. A line "s" or "c" is a row of the scalars' or the cells' table, its values behind
// tabs, "~" for NULL. "s+" repeats the last one to many rows, each with its number for every "#".
// "s-" leaves the table out, "s!" makes reading it fail behind its rows, "s7" gives it 5 + 7
// columns. A line "=" begins the database that diff compares with; any other line is the root OID.
// All of it is also a trace for norvamap to decode, with the root behind it.

#include <algorithm>
#include <cctype>
#include <memory>
#include <sstream>

#include "AgentLibrary.h"
#include "DataBase.h"
#include "Fuzz.h"
#include "Reports.h"
#include "ScalarRegistration.h"
#include "SnmpDataBase.h"
#include "Text.h"
#include "TraceDecoder.h"

namespace norva::fuzz {
namespace {

using dasunit::InputError;
using mapping::Mapping;

/// The calls that registration makes of the library.
std::vector<std::vector<oid>> registered;

void checkCatalogue() {
  const SnmpDataBase catalogue(DataBase::kPath);
  std::vector<SnmpObjRecord> objects;
  catalogue.getAllObjects(objects);
  registered.clear();
  registerScalars(objects, {1, 3, 6});
  MUST(registered.size() <= 255);
  std::sort(registered.begin(), registered.end());
  MUST(std::adjacent_find(registered.begin(), registered.end()) == registered.end());

  std::vector<AncestorNodeEntry> nodes;
  catalogue.getTableAncestorNodes(nodes);
  for (const AncestorNodeEntry& node : nodes) {
    std::vector<SnmpTableObjRecord> columns;
    catalogue.getTableColumns(node.ancestorNode, columns);
    MUST(catalogue.countTableRows(node.ancestorNode) >= 0);
    for (const SnmpTableObjRecord& cell : columns) {
      ObjInfo info;
      MUST(catalogue.findObjInfo(cell.objId, info) == 0);
    }
  }
}

/// What the first byte of the input chooses: what the agent itself does, or a command of norvamap.
enum Choice { kCheck, kList, kMib, kExporter, kDiff, kCatalogue, kChoices };

void checkFindings(const Mapping& mapping) {
  mapping::Findings findings;
  mapping::checkDataBase(mapping, findings);
  MUST(!findings.asJson().empty() && findings.asText().empty() == findings.all().empty());
}

/// What decoding makes of a trace that comes in pieces of `size` bytes.
std::string decoded(const Mapping& mapping, const std::string& trace, std::size_t size) {
  std::string lines;
  mapping::TraceDecoder decoder(mapping, [&lines](const std::string& line, bool isFrame) {
    lines += (isFrame ? '|' : ' ') + line + '\n';
  });
  for (std::size_t at = 0; at < trace.size(); at += size) decoder.feed(trace.substr(at, size));
  decoder.finish();
  return lines;
}

void report(Choice choice, const Mapping& mapping) {
  using mapping::ListFormat;
  mapping.requireComplete();
  if (choice == kMib) MUST(!mapping::mibModule(mapping, {}, "FUZZ-MIB").empty());
  if (choice == kExporter) MUST(!mapping::exporterModules(mapping, {}, {}).empty());
  if (choice == kExporter) MUST(!mapping::zabbixTemplate(mapping, {}, "unit").empty());
  if (choice != kList) return;
  for (const auto format : {ListFormat::kTable, ListFormat::kCsv, ListFormat::kJson})
    MUST(!mapping::list(mapping, format).empty());
}

void checkDiff(const Mapping& mapping, const Mapping& other) {
  mapping.requireComplete();
  other.requireComplete();
  const auto changes = mapping::compare(mapping, other);
  MUST(!mapping::asJson(changes).empty() && mapping::asText(changes).empty() == changes.empty());
  MUST(mapping::compare(mapping, mapping).empty());
}

/// Of the registrations around an OID the innermost one answers: it is the object's own, or the
/// object is said to be inside another.
void checkPlaces(const Mapping& mapping) {
  for (const mapping::ServedObject& object : mapping.objects()) {
    std::size_t innermost = 0;
    bool isOwn = false;
    for (const mapping::Registration& one : mapping.registrations()) {
      if (!isWithin(object.oid, one.oid) || one.oid.size() <= innermost) continue;
      innermost = one.oid.size();
      isOwn = one.table == object.table && (one.table >= 0 || one.objId == object.objId);
    }
    MUST(isOwn == (object.doubt != mapping::Doubt::kInside));
  }
}

std::unique_ptr<Mapping> load(const std::string& root) {
  auto mapping = std::make_unique<Mapping>(DataBase::kPath, root);
  const auto listed =
      std::adjacent_find(mapping->objects().begin(), mapping->objects().end(),
                         [](const auto& a, const auto& b) { return a.oid >= b.oid; });
  MUST(listed == mapping->objects().end());
  checkPlaces(*mapping);
  return mapping;
}

/// Takes a line of the input. False for one that is about no table.
bool takeLine(DataBase& dataBase, const std::string& line, std::size_t most) {
  if (line.size() < 2 || (line[0] != 's' && line[0] != 'c')) return false;
  DataBase::Table& table = line[0] == 's' ? dataBase.scalars : dataBase.cells;
  if (line[1] == '\t') {
    table.rows.push_back(line.substr(2));
  } else if (line[1] == '+' && !table.rows.empty()) {
    const std::string pattern = table.rows.back();
    while (table.rows.size() < most) {
      std::string row;
      for (const char c : pattern) {
        row += c == '#' ? std::to_string(table.rows.size()) : std::string(1, c);
      }
      table.rows.push_back(std::move(row));
    }
  } else if (line[1] == '-') {
    table.exists = false;
  } else if (line[1] == '!') {
    table.breaks = true;
  } else if (std::isdigit(static_cast<unsigned char>(line[1])) != 0) {
    table.columns = line[1] - '0' + 5;
  } else {
    return false;
  }
  return true;
}

void check(const std::string& text) {
  std::istringstream lines(text);
  std::string line, root = kFixedRoot;
  std::getline(lines, line);
  const unsigned first = line.empty() ? 0 : static_cast<unsigned char>(line[0]);
  const auto choice = static_cast<Choice>(first % kChoices);
  // More scalars than can be registered; for norvamap, which is slower, more than a table's rows.
  const std::size_t most = choice == kCatalogue ? 260 : 34;
  DataBase dataBases[2];
  int number = 0;
  while (std::getline(lines, line)) {
    if (line == "=") {
      number = 1;
    } else if (!takeLine(dataBases[number], line, most)) {
      root = line;
    }
  }
  DataBase::get() = std::move(dataBases[0]);
  try {
    if (choice == kCatalogue) return checkCatalogue();
    const auto mapping = load(root);
    if (choice == kCheck) {
      checkFindings(*mapping);
    } else if (choice == kDiff) {
      if (number == 1) DataBase::get() = std::move(dataBases[1]);
      checkDiff(*mapping, *load(root));
    } else {
      report(choice, *mapping);
      MUST(decoded(*mapping, text, 1) == decoded(*mapping, text, text.size()));
    }
  } catch (const InputError& error) {
    MUST(std::string_view(error.what()).size() > 0);
  }
}

}  // namespace

void run(Input input) {
  check(input.rest());
  // Nothing is kept: the library would look for a leak, which takes longer than an input.
  DataBase::get() = {};
  registered = {};
}

}  // namespace norva::fuzz

// In place of the library's.
extern "C" int register_mib(const char*, const struct variable* variables, std::size_t size,
                            std::size_t count, const oid*, std::size_t) {
  for (std::size_t i = 0; i < count; ++i) {
    const auto* entry = reinterpret_cast<const struct variable4*>(
        reinterpret_cast<const char*>(variables) + i * size);
    norva::fuzz::registered.emplace_back(entry->name, entry->name + entry->namelen);
  }
  return 0;
}
