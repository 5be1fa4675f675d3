#include "SmiText.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace norva::mapping {

namespace {

constexpr std::size_t kLineLength = 96;

/// The text as SMI takes one between quotes: printable ASCII, no quote.
std::string plain(std::string text) {
  for (char& c : text) {
    if (c == '"') c = '\'';
    if (c == '\n' || c == '\t' || c == '\r') c = ' ';
    if (c < ' ' || c > '~') c = '?';
  }
  return text;
}

}  // namespace

std::string identityOf(const std::string& moduleName) {
  std::string name;
  bool isFirst = true;
  for (const char c : moduleName) {
    if (c == '-') {
      isFirst = false;
    } else {
      name += isFirst ? static_cast<char>(std::tolower(static_cast<unsigned char>(c))) : c;
    }
  }
  return name;
}

std::vector<std::string> reservedNames(const std::string& moduleName) {
  const std::string identity = identityOf(moduleName);
  return {identity, identity + "Groups", identity + "ScalarGroup", identity + "Compliance",
          // of the modules around it
          "norva", "norvaProducts", "norvaDas", "norvaUnit", "norvaEvents", "norvaEventModules",
          "iso", "org", "dod", "internet", "directory", "mgmt", "experimental", "private",
          "enterprises", "security", "snmpV2", "system", "snmpMIB", "snmpDomains", "snmpProxys",
          "snmpModules", "zeroDotZero", "transmission", "ccitt", "jointIsoCcitt",
          // types, from which a name must not differ in capitals only
          "integer32", "unsigned32", "ipAddress", "counter32", "counter64", "gauge32", "timeTicks",
          "opaque", "displayString", "physAddress", "macAddress", "truthValue", "testAndIncr",
          "autonomousType", "instancePointer", "variablePointer", "rowPointer", "rowStatus",
          "timeStamp", "timeInterval", "dateAndTime", "storageType", "tDomain", "tAddress", "bits",
          "objectName", "objectSyntax", "notificationName", "simpleSyntax", "applicationSyntax",
          "extUTCTime",
          // words of the language that some parsers read in small letters, too
          "current", "deprecated", "obsolete", "mandatory", "optional", "integer", "sequence",
          "object", "identifier", "octet", "string", "choice", "implicit", "application",
          "universal", "size", "access", "status", "syntax", "units", "index", "description",
          "reference", "augments", "defval", "begin", "end", "imports", "exports", "from", "macro",
          "definitions", "group", "module", "notifications", "objects", "organization", "revision",
          "variables", "enterprise", "null", "counter", "gauge", "of"};
}

bool isModuleName(const std::string& name) {
  return !name.empty() && name.size() <= 64 && std::isupper(static_cast<unsigned char>(name[0])) &&
         name.back() != '-' && name.find("--") == std::string::npos &&
         std::all_of(name.begin(), name.end(), [](unsigned char c) {
           return c < 0x80 && (std::isalnum(c) != 0 || c == '-');
         });
}

std::string description(const std::string& text) {
  const std::string indent(8, ' ');
  std::string lines;
  std::string line = "\"";
  std::istringstream in(plain(text));
  bool isFirst = true;
  for (std::string word; in >> word; isFirst = false) {
    if (!isFirst && indent.size() + line.size() + 1 + word.size() >= kLineLength) {
      lines += indent + line + '\n';
      line = word;
    } else {
      line += (isFirst ? "" : " ") + word;
    }
  }
  return lines + indent + line + "\"\n";
}

std::string capitalized(std::string name) {
  name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
  return name;
}

std::string objectType(const std::string& name, const std::string& syntax, const std::string& units,
                       const std::string& access, const std::string& text, const std::string& index,
                       const std::string& place) {
  std::string definition = '\n' + name + " OBJECT-TYPE\n    SYNTAX      " + syntax + '\n';
  if (!units.empty()) definition += "    UNITS       \"" + plain(units) + "\"\n";
  definition += "    MAX-ACCESS  " + access + "\n    STATUS      current\n    DESCRIPTION\n";
  definition += description(text);
  if (!index.empty()) definition += "    INDEX       { " + index + " }\n";
  return definition + "    ::= { " + place + " }\n";
}

}  // namespace norva::mapping
