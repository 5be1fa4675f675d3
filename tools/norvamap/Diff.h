// `norvamap diff`: what changes for managers between two mappings.

#ifndef NORVA_MAPPING_DIFF_H_
#define NORVA_MAPPING_DIFF_H_

#include <string>
#include <vector>

#include "Mapping.h"

namespace norva::mapping {

struct Change {
  std::string kind;  ///< added, removed, moved, replaced, type, access, scale, name
  bool breaks;       ///< what a manager did with the old mapping no longer works
  std::string oid;   ///< the old one, where there is one
  std::string name;
  std::string text;   ///< what it was and what it is
  std::size_t count;  ///< cells of one column that changed alike
};

/// By OID; the indexes' own column is left out.
std::vector<Change> compare(const Mapping& before, const Mapping& after);

std::string asText(const std::vector<Change>& changes);
std::string asJson(const std::vector<Change>& changes);

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_DIFF_H_
