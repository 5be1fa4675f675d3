// `norvamap check`: what is wrong with a mapping, told as what a manager would see of it.

#ifndef NORVA_MAPPING_CHECK_H_
#define NORVA_MAPPING_CHECK_H_

#include <string>
#include <vector>

#include "DeviceObject.h"
#include "Finding.h"
#include "Mapping.h"

namespace norva::mapping {

/// Everything that the database alone tells.
void checkDataBase(const Mapping& mapping, Findings& findings);

/// What the unit's objects tell beside it. `file` is the object file's name.
void checkUnit(const Mapping& mapping, const std::vector<dasunit::DeviceObject>& objects,
               const std::string& file, Findings& findings);

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_CHECK_H_
