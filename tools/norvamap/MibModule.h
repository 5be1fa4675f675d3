// `norvamap mib`: the mapping as an SMIv2 module.

#ifndef NORVA_MAPPING_MIB_MODULE_H_
#define NORVA_MAPPING_MIB_MODULE_H_

#include <string>

#include "Annotations.h"
#include "Mapping.h"

namespace norva::mapping {

/// The module's text. The same mapping gives the same text; a new row adds lines of its own. Throws
/// InputError for a module name that is none, for a root that does not stand below enterprises, and
/// for objects of which one stands below another.
std::string mibModule(const Mapping& mapping, const Annotations& annotations,
                      const std::string& moduleName);

/// Names that no object of a module may have: the module's own and those of the modules around it.
/// `moduleName` as for mibModule.
std::vector<std::string> reservedNames(const std::string& moduleName);

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_MIB_MODULE_H_
