// `norvamap exporter`: modules for snmp_exporter, which turns the mapping into metrics.

#ifndef NORVA_MAPPING_EXPORTER_H_
#define NORVA_MAPPING_EXPORTER_H_

#include <string>

#include "Annotations.h"
#include "Mapping.h"

namespace norva::mapping {

/// Three modules: `norva` for numbers, decimal texts included; `norva_text` for all other texts, as
/// metrics of value 1 with a label of the metric's name, since one text that is not UTF-8 fails a
/// whole scrape and numbers must not suffer from it; `norva_master` for the master's sysUpTime,
/// which it answers without the agent.
/// `access`: a YAML file with the keys `version` and `auth` for every module, as snmp_exporter has
/// them; empty for SNMPv2c and the exporter's own community, public. Throws InputError for a file
/// that cannot be read or has other keys.
std::string exporterModules(const Mapping& mapping, const Annotations& annotations,
                            const std::string& access);

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_EXPORTER_H_
