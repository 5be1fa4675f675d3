// `norvamap exporter`: modules for snmp_exporter, which turns the mapping into metrics.

#ifndef NORVA_MAPPING_EXPORTER_H_
#define NORVA_MAPPING_EXPORTER_H_

#include <string>

#include "Annotations.h"
#include "Mapping.h"

namespace norva::mapping {

/// Two modules: `norva` for numbers, decimal texts included, and `norva_text` for all other texts,
/// as metrics of value 1 with a label of the metric's name. One text that is not UTF-8 fails a
/// whole scrape: numbers must not suffer from it.
std::string exporterModules(const Mapping& mapping, const Annotations& annotations);

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_EXPORTER_H_
