#include "Reports.h"

#include <algorithm>
#include <map>
#include <set>

#include "AsnType.h"
#include "Format.h"
#include "NamedMapping.h"
#include "SmiText.h"
#include "SnmpObjConvertStrategy.h"
#include "Text.h"
#include "View.h"

namespace norva::mapping {

namespace {

using dasunit::InputError;

/// Fixed: a date of today would make two texts of one mapping.
constexpr char kLastUpdated[] = "202611210000Z";
/// Where the conformance groups stand below the root, unless the mapping uses it.
constexpr std::uint32_t kGroupArc = 65535;
/// The column that stands for the second index, which has no column in the mapping.
constexpr std::uint32_t kSubIndexColumn = 65535;

/// The modules' common stem: its OID and its name in the static module.
const Oid kStem = {1, 3, 6, 1, 4, 1, 53412, 8, 2, 2};
constexpr char kStemName[] = "norvaUnit";
constexpr char kStemModule[] = "NORVA-NOTIFY-MIB";
const Oid kEnterprises = {1, 3, 6, 1, 4, 1};
/// Compilers warn of Opaque wherever it stands: here it does once.
constexpr char kOpaqueType[] = "NorvaOpaque";

/// What the conversion means to who reads and writes.
std::string conversionText(const NamedObject& object) {
  const std::uint16_t covMethod = object.first->info.covMethod;
  const unsigned e = exponentOf(covMethod);
  switch (static_cast<ConversionMethod>(methodOf(covMethod))) {
    case ConversionMethod::kIpText:
    case ConversionMethod::kIpTextToo:
      return " An IPv4 address as dotted text.";
    case ConversionMethod::kTimeText:
      return " The agent's local time and date: hour:minute:second month/day/year.";
    case ConversionMethod::kFixedText:
      return format(" The unit's number divided by 10^%u, as text with two decimals.%s", e,
                    object.writable ? " A SET takes digits and a point." : "");
    case ConversionMethod::kLowHalf:
      return " The low 16 bits of the unit's number.";
    case ConversionMethod::kScaledInteger:
      if (e == 0 || !object.writable || object.first->type() == kAsnOctetString) return "";
      return format(
          " A SET is multiplied by 10^%u, a GET is not divided: what was written as 1 "
          "reads as %.0f.",
          e, std::stod(format("1e%u", e)));
    default:
      return "";
  }
}

std::string objectText(const NamedObject& object) {
  const ServedObject& first = *object.first;
  std::string text = object.title.empty() ? object.name : object.title;
  if (!object.annotation.description.empty()) text += ". " + object.annotation.description;
  if (text.back() != '.') text += '.';
  text +=
      " Device object" + format(object.instances.size() > 1 ? "s 0x%04x" : " 0x%04x", first.objId);
  if (object.instances.size() > 1) {
    text += format(" (row %u) and on, %zu rows", first.row, object.instances.size());
  }
  text += format(", method %04X.", first.info.covMethod) + conversionText(object);
  if (!object.annotation.severity.empty()) text += " An alarm: " + object.annotation.severity + '.';
  return text;
}

/// Decimals that a convention shows of the object, 0 for none. Not of what is written: a SET would
/// be shifted too, which the agent's own scaling does not expect.
int decimalsOf(const NamedObject& object) {
  const Annotation& annotation = object.annotation;
  const bool isShown = object.first->type() == kAsnInteger && !object.writable &&
                       annotation.values.empty() && annotation.scale < 0;
  return isShown ? -annotation.scale : 0;
}

/// "0.1 dB" for what is shown as it is.
std::string unitOf(const NamedObject& object) {
  const int scale = decimalsOf(object) != 0 ? 0 : object.annotation.scale;
  if (scale == 0) return object.annotation.unit;
  return format("%.*f ", std::max(-scale, 0), std::stod(format("1e%d", scale))) +
         object.annotation.unit;
}

std::string syntaxOf(const NamedObject& object, const std::string& decimalType) {
  if (!object.annotation.values.empty()) {
    std::string list;
    for (const auto& [number, label] : object.annotation.values) {
      list += (list.empty() ? " " : ", ") + label + '(' + std::to_string(number) + ')';
    }
    return "INTEGER {" + list + " }";
  }
  if (decimalsOf(object) != 0) return decimalType + std::to_string(decimalsOf(object));
  switch (object.first->type()) {
    case kAsnOpaque:
      return kOpaqueType;
    case kAsnInteger:
      return "Integer32";
    case kAsnOctetString:
      return "DisplayString (SIZE (0..64))";
    default:
      return typeName(object.first->type());
  }
}

bool isCounter(std::uint16_t type) {
  return type == kAsnCounter32 || type == kAsnCounter64;
}

class ModuleWriter {
 public:
  ModuleWriter(const Mapping& mapping, const Annotations& annotations, const std::string& name)
      : mapping_(mapping),
        moduleName_(name),
        identity_(identityOf(name)),
        decimalType_(capitalized(identity_) + "Decimal"),
        named_(NamedMapping::make(mapping, annotations, reservedNames(name))) {
    leaveOut();
    requireApart();
    for (const NamedObject& scalar : named_.scalars) noteConvention(scalar);
    for (const NamedTable& table : named_.tables) {
      for (const NamedObject& column : table.columns) noteConvention(column);
    }
  }

  std::string write() {
    std::string body = identity() + conventions() + nodes() + leftOut_;
    for (const NamedObject& scalar : named_.scalars) body += scalarText(scalar);
    for (const NamedTable& table : named_.tables) body += tableText(table);
    body += groups();
    return moduleName_ + " DEFINITIONS ::= BEGIN\n\n" + imports() + body + "\nEND\n";
  }

 private:
  const Oid& root() const { return mapping_.root(); }

  /// The language has no objects whose last number is 0.
  void leaveOut() {
    std::erase_if(named_.scalars, [this](const NamedObject& scalar) {
      if (scalar.node().back() != 0) return false;
      leftOut_ += comment(scalar.first->oid);
      return true;
    });
    std::erase_if(named_.tables, [this](const NamedTable& table) {
      if (table.table->oid.back() != 0) return false;
      leftOut_ += comment(table.table->oid);
      return true;
    });
  }
  static std::string comment(const Oid& oid) {
    return "\n-- Not expressible: " + oidText(oid) + '\n';
  }

  void requireApart() const {
    if (!isWithin(root(), kEnterprises) || root().size() <= kEnterprises.size()) {
      throw InputError("root " + oidText(root()) + " does not stand below " +
                       oidText(kEnterprises));
    }
    const auto& all = mapping_.registrations();
    for (const Registration& one : all) {
      if (!isWithin(one.oid, root()) || one.oid.size() == root().size()) {
        throw InputError(mapping_.path() + ": " + oidText(one.oid) +
                         " does not stand below the root: no module can be made");
      }
    }
    if (mapping_.overlaps().empty()) return;
    const Overlap& overlap = mapping_.overlaps().front();
    throw InputError(mapping_.path() + ": " + oidText(all[overlap.inner].oid) + " stands inside " +
                     oidText(all[overlap.outer].oid) +
                     ": no module can be made, see 'norvamap check'");
  }

  /// "parent number" of an OID below the root.
  std::string placeOf(Oid oid) const {
    const std::uint32_t last = oid.back();
    oid.pop_back();
    return (oid == root() ? identity_ : nodeName(oid)) + ' ' + std::to_string(last);
  }

  std::string nodeName(const Oid& oid) const {
    std::string name = identity_ + "Node";
    for (std::size_t i = root().size(); i < oid.size(); ++i) {
      name += (i == root().size() ? "" : "x") + std::to_string(oid[i]);
    }
    return name;
  }

  std::string imports() const {
    std::set<std::string> types;
    bool hasText = false;
    bool hasObjects = !named_.tables.empty();
    const auto note = [&](const NamedObject& object) {
      hasObjects = true;
      if (decimalsOf(object) != 0) types.insert("Integer32");
      const std::uint16_t type = object.first->type();
      if (type == kAsnOctetString) {
        hasText = true;
      } else if (type != kAsnInteger) {
        types.insert(typeName(type));
      } else if (object.annotation.values.empty()) {
        types.insert("Integer32");
      }
    };
    for (const NamedObject& scalar : named_.scalars) note(scalar);
    for (const NamedTable& table : named_.tables) {
      types.insert("Integer32");
      for (const NamedObject& column : table.columns) note(column);
    }
    std::string text = "IMPORTS\n    MODULE-IDENTITY";
    if (hasObjects) text += ", OBJECT-TYPE";
    for (const std::string& type : types) text += ", " + type;
    if (!stemmed()) text += ", enterprises";
    text += "\n        FROM SNMPv2-SMI";
    const std::string imported = std::string(conventions_.empty() ? "" : "TEXTUAL-CONVENTION") +
                                 (hasText && !conventions_.empty() ? ", " : "") +
                                 (hasText ? "DisplayString" : "");
    if (!imported.empty()) text += "\n    " + imported + "\n        FROM SNMPv2-TC";
    if (hasGroups()) text += "\n    MODULE-COMPLIANCE, OBJECT-GROUP\n        FROM SNMPv2-CONF";
    if (stemmed()) text += format("\n    %s\n        FROM %s", kStemName, kStemModule);
    return text + ";\n";
  }

  bool stemmed() const { return isWithin(root(), kStem) && root().size() > kStem.size(); }
  bool hasGroups() const {
    return !named_.scalars.empty() ||
           std::any_of(named_.tables.begin(), named_.tables.end(),
                       [](const NamedTable& table) { return !table.columns.empty(); });
  }

  /// The identity at the root, and the nodes between the stem and it.
  std::string identity() const {
    const Oid& stem = stemmed() ? kStem : kEnterprises;
    std::string parent = stemmed() ? kStemName : "enterprises";
    std::string above;
    for (std::size_t i = stem.size(); i + 1 < root().size(); ++i) {
      const std::string name = identity_ + "Root" + std::to_string(i + 1 - stem.size());
      above +=
          format("\n%s OBJECT IDENTIFIER ::= { %s %u }\n", name.c_str(), parent.c_str(), root()[i]);
      parent = name;
    }
    return '\n' + identity_ + " MODULE-IDENTITY\n    LAST-UPDATED \"" + kLastUpdated +
           "\"\n    ORGANIZATION \"norvaSnmp\"\n    CONTACT-INFO \"The maintainer of the mapping "
           "database.\"\n    DESCRIPTION\n" +
           description(
               "The objects of a unit, generated by norvamap from its mapping database: "
               "change the database, not this text.") +
           "    REVISION     \"" + kLastUpdated + "\"\n    DESCRIPTION  \"Generated.\"\n" +
           format("    ::= { %s %u }\n", parent.c_str(), root().back()) + above;
  }

  /// What the object's type refers to and the standard modules do not have.
  void noteConvention(const NamedObject& object) {
    const auto define = [](const std::string& name, const std::string& hint,
                           const std::string& text, const char* syntax) {
      return '\n' + name + " ::= TEXTUAL-CONVENTION\n" + hint +
             "    STATUS      current\n    DESCRIPTION\n" + description(text) + "    SYNTAX      " +
             syntax + '\n';
    };
    if (const int decimals = decimalsOf(object); decimals != 0) {
      const std::string name = decimalType_ + std::to_string(decimals);
      conventions_[name] =
          define(name, format("    DISPLAY-HINT \"d-%d\"\n", decimals),
                 format("A number with %d decimals: it is sent without the point.", decimals),
                 "Integer32");
    } else if (object.first->type() == kAsnOpaque) {
      conventions_[kOpaqueType] =
          define(kOpaqueType, "    DISPLAY-HINT \"255a\"\n",
                 "Bytes of a text or a number, up to the first zero.", "Opaque");
    }
  }
  std::string conventions() const {
    std::string text;
    for (const auto& [name, definition] : conventions_) text += definition;
    return text;
  }

  /// A line for each node between the root and an object.
  std::string nodes() const {
    std::set<Oid> inner;
    const auto note = [&](Oid oid) {
      for (oid.pop_back(); oid.size() > root().size(); oid.pop_back()) inner.insert(oid);
    };
    for (const NamedObject& scalar : named_.scalars) note(scalar.node());
    for (const NamedTable& table : named_.tables) note(table.table->oid);
    std::string text = inner.empty() ? "" : "\n";
    for (const Oid& oid : inner) {
      text += nodeName(oid) + " OBJECT IDENTIFIER ::= { " + placeOf(oid) + " }\n";
    }
    return text;
  }

  static std::string accessOf(const NamedObject& object) {
    return object.writable && !isCounter(object.first->type()) ? "read-write" : "read-only";
  }

  std::string scalarText(const NamedObject& scalar) const {
    return objectType(scalar.name, syntaxOf(scalar, decimalType_), unitOf(scalar), accessOf(scalar),
                      objectText(scalar), "", placeOf(scalar.node()));
  }

  std::string tableText(const NamedTable& table) const {
    const std::string& name = table.name;
    const std::string entry = name + "Entry";
    std::string text = "The table at " + table.table->node + " below the root.";
    if (!table.annotation.description.empty()) text += ' ' + table.annotation.description;
    std::string definition = objectType(name + "Table", "SEQUENCE OF " + capitalized(entry), "",
                                        "not-accessible", text, "", placeOf(table.table->oid)) +
                             objectType(entry, capitalized(entry), "", "not-accessible", "A row.",
                                        name + "Row, " + name + "Sub", name + "Table 1");
    definition += '\n' + capitalized(entry) + " ::= SEQUENCE {\n    " + name + "Row Integer32,\n";
    for (const NamedObject& column : table.columns) {
      definition += "    " + column.name + ' ' + sequenceType(column) + ",\n";
    }
    definition += "    " + name + "Sub Integer32\n}\n";
    definition +=
        objectType(name + "Row", format("Integer32 (1..%d)", kTableRows), "", "not-accessible",
                   "Number of the row. The agent answers it, too, as column 1.", "", entry + " 1");
    for (const NamedObject& column : table.columns) {
      definition +=
          objectType(column.name, syntaxOf(column, decimalType_), unitOf(column), accessOf(column),
                     objectText(column), "", format("%s %u", entry.c_str(), column.first->column));
    }
    return definition + objectType(name + "Sub", "Integer32 (0..2147483647)", "", "not-accessible",
                                   "The last number of every cell's OID, 0. No column of its own.",
                                   "", format("%s %u", entry.c_str(), kSubIndexColumn));
  }

  std::string sequenceType(const NamedObject& column) const {
    if (!column.annotation.values.empty()) return "INTEGER";
    return column.first->type() == kAsnOctetString ? "DisplayString"
                                                   : syntaxOf(column, decimalType_);
  }

  /// An arc that no object of the mapping stands at.
  std::uint32_t groupArc() const {
    std::set<std::uint32_t> used;
    for (const ServedObject& object : mapping_.objects()) used.insert(object.oid[root().size()]);
    std::uint32_t arc = kGroupArc;
    while (used.count(arc) != 0) --arc;
    return arc;
  }

  std::string group(const std::string& name, const std::vector<NamedObject>& objects,
                    int number) const {
    std::string list;
    // The comma in front: a new object then changes no line of another.
    for (const NamedObject& object : objects) {
      list += std::string(list.empty() ? "\n        " : "\n      , ") + object.name;
    }
    return '\n' + name + " OBJECT-GROUP\n    OBJECTS {" + list +
           "\n    }\n    STATUS      current\n    DESCRIPTION \"Generated.\"\n" +
           format("    ::= { %sGroups %d }\n", identity_.c_str(), number);
  }

  std::string groups() const {
    if (!hasGroups()) return "";
    std::string text = format("\n%sGroups OBJECT IDENTIFIER ::= { %s %u }\n", identity_.c_str(),
                              identity_.c_str(), groupArc());
    std::string mandatory;
    if (!named_.scalars.empty()) {
      mandatory = identity_ + "ScalarGroup";
      text += group(mandatory, named_.scalars, 1);
    }
    int number = 2;
    for (const NamedTable& table : named_.tables) {
      mandatory += (mandatory.empty() ? "" : ", ") + table.name + "Group";
      text += group(table.name + "Group", table.columns, number++);
    }
    return text + '\n' + identity_ +
           "Compliance MODULE-COMPLIANCE\n    STATUS      current\n    DESCRIPTION "
           "\"Generated.\"\n    MODULE\n        MANDATORY-GROUPS { " +
           mandatory + " }\n" + format("    ::= { %sGroups %d }\n", identity_.c_str(), 9);
  }

  const Mapping& mapping_;
  const std::string moduleName_;
  const std::string identity_;
  const std::string decimalType_;  // of as many decimals as the number behind it says
  NamedMapping named_;
  std::map<std::string, std::string> conventions_;  // definitions by name
  std::string leftOut_;                             // comments
};

}  // namespace

std::string mibModule(const Mapping& mapping, const Annotations& annotations,
                      const std::string& moduleName) {
  if (!isModuleName(moduleName)) {
    throw InputError("module name '" + moduleName +
                     "': a capital, then letters, digits and single hyphens");
  }
  return ModuleWriter(mapping, annotations, moduleName).write();
}

}  // namespace norva::mapping
