// Texts of an SMIv2 module. Pure functions, any thread.

#ifndef NORVA_MAPPING_SMI_TEXT_H_
#define NORVA_MAPPING_SMI_TEXT_H_

#include <string>
#include <vector>

namespace norva::mapping {

/// NORVA-MIB becomes norvaMIB.
std::string identityOf(const std::string& moduleName);

/// Names that no object of a module may have: the module's own and those of the modules around it.
std::vector<std::string> reservedNames(const std::string& moduleName);

/// A capital, then letters, digits and single hyphens.
bool isModuleName(const std::string& name);

/// The text in quotes, in lines of its own: printable ASCII without quotes.
std::string description(const std::string& text);

/// With a capital as first letter. REQUIRES: the name is not empty.
std::string capitalized(std::string name);

/// One OBJECT-TYPE. `units` and `index` may be empty; `place` is "parent number".
std::string objectType(const std::string& name, const std::string& syntax, const std::string& units,
                       const std::string& access, const std::string& text, const std::string& index,
                       const std::string& place);

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_SMI_TEXT_H_
