// Mapping databases made of the input's lines, through the catalogue, the agent's list of scalars
// and norvamap. A line "s" or "c" is a row of the scalars' or the cells' table, its values behind
// tabs, "~" for NULL; any other line is the root OID. A line "=" begins the database that diff
// compares with.

#include <algorithm>
#include <sstream>

#include "AgentLibrary.h"
#include "Check.h"
#include "Diff.h"
#include "Exporter.h"
#include "Fuzz.h"
#include "List.h"
#include "MibModule.h"
#include "ScalarRegistration.h"
#include "SnmpDataBase.h"
#include "Text.h"

namespace norva::fuzz {
namespace {

using dasunit::InputError;
using mapping::Mapping;

struct Rows {
  std::vector<std::string> scalars, cells;
};

std::string asSql(const std::string& line) {
  std::string row = "(";
  std::size_t columns = 0;
  for (std::size_t at = 2; columns < mapping::kTableColumns; ++columns) {
    const std::size_t end = std::min(line.find('\t', at), line.size());
    const std::string value = at < end ? line.substr(at, end - at) : "";
    row += columns == 0 ? "" : ",";
    if (value == "~") {
      row += "NULL";
    } else {
      row += '\'';
      for (const char c : value) row += c == '\'' ? "''" : c == '\0' ? "?" : std::string(1, c);
      row += '\'';
    }
    at = end + 1;
  }
  return row + ')';
}

/// The calls that registration makes of the library.
std::vector<std::vector<oid>> registered;

void checkCatalogue(const std::string& path) {
  const SnmpDataBase catalogue(path.c_str());
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
  std::vector<std::uint16_t> flagged;
  catalogue.listFlaggedObjects(flagged);
}

/// The first byte of the input chooses one of norvamap's commands, or what the agent itself does.
constexpr unsigned kChoices = 6, kCatalogue = 5;

void runTool(unsigned choice, const Mapping& mapping, const Mapping& other) {
  const auto listed =
      std::adjacent_find(mapping.objects().begin(), mapping.objects().end(),
                         [](const auto& a, const auto& b) { return a.oid >= b.oid; });
  MUST(listed == mapping.objects().end());
  mapping::Findings findings;
  switch (choice % kChoices) {
    case 0:
      mapping::checkDataBase(mapping, findings);
      MUST(findings.asText().empty() == findings.all().empty());
      MUST(!findings.asJson().empty());
      break;
    case 1:
      mapping::list(mapping, mapping::ListFormat::kTable);
      mapping::list(mapping, mapping::ListFormat::kCsv);
      MUST(!mapping::list(mapping, mapping::ListFormat::kJson).empty());
      break;
    case 2:
      MUST(!mapping::mibModule(mapping, {}, "FUZZ-MIB").empty());
      break;
    case 3:
      MUST(!mapping::exporterModules(mapping, {}, {}).empty());
      break;
    case 4: {
      const auto changes = mapping::compare(mapping, other);
      mapping::asText(changes);
      mapping::asJson(changes);
      MUST(mapping::compare(mapping, mapping).empty());
      break;
    }
    default:
      break;
  }
}

void run(const std::string& text) {
  std::istringstream lines(text);
  std::string line, root = mapping::kDefaultRoot;
  std::getline(lines, line);
  const unsigned choice = line.empty() ? 0 : static_cast<unsigned char>(line[0]);
  Rows rows[2];
  int database = 0;
  while (std::getline(lines, line)) {
    if (line == "=") {
      database = 1;
    } else if (line.starts_with("s\t")) {
      rows[database].scalars.push_back(asSql(line));
    } else if (line.starts_with("c\t")) {
      rows[database].cells.push_back(asSql(line));
    } else {
      root = line;
    }
  }
  try {
    const auto load = [&](const Rows& of, auto use) {
      const DataBaseFile file(of.scalars, of.cells);
      return use(file.path());
    };
    if (choice % kChoices == kCatalogue) {
      return load(rows[0], [](const std::string& path) { checkCatalogue(path); });
    }
    const auto make = [&](const std::string& path) {
      return std::make_unique<Mapping>(path, root);
    };
    const auto mapping = load(rows[0], make);
    runTool(choice, *mapping, database == 0 ? *mapping : *load(rows[1], make));
  } catch (const InputError& error) {
    MUST(std::string_view(error.what()).size() > 0);
  }
}

}  // namespace
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

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  norva::fuzz::run({data, data + size});
  norva::fuzz::dropOutput();
  return 0;
}
