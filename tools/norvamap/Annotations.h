// The annotation file (YAML): what the mapping database cannot say of its objects, such as units
// and enumerations. Its format is described in norvamap(1).

#ifndef NORVA_MAPPING_ANNOTATIONS_H_
#define NORVA_MAPPING_ANNOTATIONS_H_

#include <cstdint>
#include <map>
#include <string>

#include "AsnType.h"
#include "Mapping.h"

namespace norva::mapping {

/// Texts are empty where the file has none.
struct Annotation {
  std::string name;
  std::string description;
  std::string unit;
  int scale = 0;         ///< managers get the value, in its unit, times 10 to minus this power
  std::string severity;  ///< of an alarm: critical, major, minor or warning
  std::map<std::int32_t, std::string> values;  ///< enumeration: number to label
  std::string place;                           ///< "FILE:LINE"
};

struct TableAnnotation {
  Annotation table;
  std::map<std::uint32_t, Annotation> columns;
};

struct Annotations {
  std::map<std::uint16_t, Annotation> scalars;    ///< by object id
  std::map<std::string, TableAnnotation> tables;  ///< by node
};

/// Whether numbers of the type may have a scale.
constexpr bool isScalable(std::uint16_t asnType) {
  return asnType == kAsnInteger || asnType == kAsnGauge32;
}

/// Throws InputError, whose text begins with the file and the line, for what cannot be read, is not
/// of the format, or names what the mapping does not serve.
Annotations readAnnotations(const std::string& path, const Mapping& mapping);

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_ANNOTATIONS_H_
