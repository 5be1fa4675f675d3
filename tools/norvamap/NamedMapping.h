// The mapping with the names that managers' tools use: each scalar and each table column has one of
// its own, made from the database's or given by the annotation file.

#ifndef NORVA_MAPPING_NAMED_MAPPING_H_
#define NORVA_MAPPING_NAMED_MAPPING_H_

#include <set>
#include <string>
#include <vector>

#include "Annotations.h"
#include "Mapping.h"

namespace norva::mapping {

/// A scalar or a column.
struct NamedObject {
  std::string name;   ///< a small letter, then letters and digits
  std::string title;  ///< the database's name; of a column what its rows have in common
  const ServedObject* first = nullptr;  ///< the scalar, or the column's first cell
  std::vector<const ServedObject*> instances;
  bool writable = false;  ///< of a column: any cell
  Annotation annotation;

  /// What the OIDs of all instances begin with.
  Oid node() const;
};

struct NamedTable {
  std::string name;  ///< what its parts' names begin with
  const Table* table = nullptr;
  std::vector<NamedObject> columns;  ///< without column 1
  Annotation annotation;
};

struct NamedMapping {
  /// Scalars by OID, tables in the agent's order. What has no value under its type is left out, and
  /// tables without any other column than their rows' numbers.
  /// The mapping must outlive the result. Names are at most 64 characters long and differ also when
  /// capitals are not told from small letters, from `reserved` too. Throws InputError for an
  /// annotated name that is taken.
  static NamedMapping make(const Mapping& mapping, const Annotations& annotations,
                           const std::vector<std::string>& reserved);

  std::vector<NamedObject> scalars;
  std::vector<NamedTable> tables;
};

/// "PA Temperature" becomes paTemperature; empty for a text without letters and digits.
std::string identifierOf(const std::string& text);

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_NAMED_MAPPING_H_
