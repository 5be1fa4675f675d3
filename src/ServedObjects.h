// Which objects of a mapping managers can reach, and where: what the agent registers, and what
// norvamap says that it will, is decided here.
//
// Value types and functions without state; any thread. Nothing is printed.

#ifndef NORVA_SERVED_OBJECTS_H_
#define NORVA_SERVED_OBJECTS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ObjInfo.h"

namespace norva {

/// Sub-identifiers.
using Oid = std::vector<std::uint32_t>;

/// Where everything stands when the unit does not say.
constexpr char kFixedRoot[] = ".1.3.6.1.4.1.53412.8.2.2.4";

/// The library's registration index has 8 bits; 0 is no object.
constexpr std::size_t kMaxScalars = 255;
/// One for each table class.
constexpr std::size_t kMaxTables = 2;
/// Every table has the rows 1 to 32.
constexpr int kTableRows = 32;
/// The row's number: no device object.
constexpr std::uint32_t kIndexColumn = 1;
/// Sub-identifiers of a table's OID, the root's included.
constexpr std::size_t kMaxNodeLength = 32;
/// Of any OID: the library passes larger ones on as negative numbers, so that nobody reaches what
/// stands there and walks go backwards.
constexpr std::uint32_t kMaxSubIdentifier = 0x7FFFFFFF;

/// `access` of objects that managers may write: a bit of a scalar's, the whole of a cell's.
constexpr std::uint16_t kScalarReadWrite = 2;
constexpr std::uint16_t kCellReadWrite = 3;
constexpr bool isScalarWritable(std::uint16_t access) {
  return (access & kScalarReadWrite) != 0;
}
constexpr bool isCellWritable(std::uint16_t access) {
  return access == kCellReadWrite;
}

/// False for a text without sub-identifiers or with one that is too large: the fixed root is used.
bool isUsableRoot(const std::string& text);

enum class ScalarState {
  kServed,
  kTooMany,        ///< behind the last one that can be registered
  kSubIdentifier,  ///< one is too large
  kSameOid,        ///< as an earlier one's
};

struct ScalarVerdict {
  ScalarState state = ScalarState::kServed;
  std::uint16_t owner = 0;  ///< of kSameOid: the object that has the OID
};

/// For each of `scalars`, which are in the order of their registration, whether it is served.
std::vector<ScalarVerdict> judgeScalars(const std::vector<SnmpObjRecord>& scalars);

/// Where a table stands.
struct TablePlace {
  Oid oid;                  ///< as much of it as kMaxNodeLength allows
  std::uint32_t count = 0;  ///< sub-identifiers of the text

  // A table of which one is false is not served.

  bool hasLength() const { return count > 0 && count <= kMaxNodeLength; }
  bool hasRange() const;  ///< no sub-identifier is too large
};

/// `node`: the root's text and behind it the table's ancestor node.
TablePlace placeTable(const std::string& node);

/// True when `oid` stands at or below `other`. Of two registrations of which one stands inside the
/// other, the library asks the inner one for whatever has an OID below its own; a walk that is in
/// the outer one goes on there.
bool isWithin(const Oid& oid, const Oid& other);

/// The last column of a table whose first row has so many cells: deliberate, also where their
/// numbers have gaps.
constexpr std::uint32_t lastColumn(std::size_t cells) {
  return static_cast<std::uint32_t>(cells) + kIndexColumn;
}

}  // namespace norva

#endif  // NORVA_SERVED_OBJECTS_H_
