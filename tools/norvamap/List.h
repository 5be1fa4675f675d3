// `norvamap list`: every instance as a manager sees it.

#ifndef NORVA_MAPPING_LIST_H_
#define NORVA_MAPPING_LIST_H_

#include <string>

#include "Mapping.h"

namespace norva::mapping {

enum class ListFormat { kTable, kCsv, kJson };

std::string list(const Mapping& mapping, ListFormat listFormat);

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_LIST_H_
