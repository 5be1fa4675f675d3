// What the commands of norvamap write. Functions without state; the mapping is not changed. What
// cannot be written is thrown as InputError.

#ifndef NORVA_MAPPING_REPORTS_H_
#define NORVA_MAPPING_REPORTS_H_

#include <string>
#include <vector>

#include "Annotations.h"
#include "DeviceObject.h"
#include "Finding.h"
#include "Mapping.h"
#include "NamedMapping.h"

namespace norva::mapping {

// `norvamap check`: what is wrong with a mapping, told as what a manager would see of it.

/// Everything that the database alone tells.
void checkDataBase(const Mapping& mapping, Findings& findings);

/// The root that the agent takes from the unit's objects, the text of 0x80BA; empty without one.
std::string rootOf(const std::vector<dasunit::DeviceObject>& objects);

/// What the unit's objects tell beside it. `file` is the object file's name.
void checkUnit(const Mapping& mapping, const std::vector<dasunit::DeviceObject>& objects,
               const std::string& file, Findings& findings);

// `norvamap list`: every instance as a manager sees it.

enum class ListFormat { kTable, kCsv, kJson };

std::string list(const Mapping& mapping, ListFormat listFormat);

// `norvamap mib`: the mapping as an SMIv2 module.

/// The module's text. The same mapping gives the same text; a new row adds lines of its own. Throws
/// InputError for a module name that is none, for a root that does not stand below enterprises, and
/// for objects of which one stands below another.
std::string mibModule(const Mapping& mapping, const Annotations& annotations,
                      const std::string& moduleName);

// `norvamap exporter`: modules for snmp_exporter, which turns the mapping into metrics.

/// Five modules: `norva` for numbers that managers cannot write, decimal texts included;
/// `norva_config` for those that they can; `norva_text` for all other texts, as metrics of value 1
/// with a label of the metric's name, since one text that is not UTF-8 fails a whole scrape and
/// numbers must not suffer from it; `norva_master` for the master's sysUpTime, which it answers
/// without the agent; `norva_agent` for the agent's own objects.
/// `access`: a YAML file with the keys `version` and `auth` for every module, as snmp_exporter has
/// them; empty for SNMPv2c and the exporter's own community, public. Throws InputError for a file
/// that cannot be read or has other keys.
std::string exporterModules(const Mapping& mapping, const Annotations& annotations,
                            const std::string& access);

// `norvamap zabbix`: a template for Zabbix 6.0.

/// Items for what has metrics, in the same units, but for ratios, which are in per cent; discovery
/// of the tables' rows; triggers for alarms and for a unit without answers or values. The same
/// object of a template of the same name always has the same UUID. Throws InputError for a name
/// that Zabbix does not take.
std::string zabbixTemplate(const Mapping& mapping, const Annotations& annotations,
                           const std::string& name);

// `norvamap diff`: what changes for managers between two mappings.

struct Change {
  std::string kind;  ///< added, removed, moved, replaced, type, access, scale, name, metric
  bool breaks;       ///< what a manager did with the old mapping no longer works
  std::string oid;   ///< the old one, where there is one
  std::string name;
  std::string text;   ///< what it was and what it is
  std::size_t count;  ///< cells of one column that changed alike
};

/// By OID; the indexes' own column is left out.
std::vector<Change> compare(const Mapping& before, const Mapping& after);

/// What other names or units the exporter's metrics have of what stands at the same OIDs.
std::vector<Change> compareMetrics(const NamedMapping& before, const NamedMapping& after);

std::string asText(const std::vector<Change>& changes);
std::string asJson(const std::vector<Change>& changes);

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_REPORTS_H_
