// The catalogue's mapping records: what ties an SNMP object to a device object. Plain value types.

#ifndef NORVA_OBJ_INFO_H_
#define NORVA_OBJ_INFO_H_

#include <array>
#include <cstdint>
#include <string>

namespace norva {

/// Attributes that scalars and table cells have in common, without the name: what requests need.
struct ObjAttributes {
  std::uint8_t auxByte = 0;     ///< carried, not interpreted
  std::uint8_t selectFlag = 0;  ///< non-zero: listed by listFlaggedObjects
  std::uint16_t covMethod = 0;  ///< conversion method code, see SnmpObjConvertStrategy
  std::uint16_t auxWord = 0;    ///< carried, not interpreted
  std::uint16_t asnType = 0;    ///< SNMP variable type; its low byte is what is registered
  std::uint16_t access = 0;     ///< scalars: 1 read-only, 2 read-write; cells: 3 read-write
};

/// What a request takes of an object's mapping.
struct ObjMapping {
  std::uint16_t objId = 0;  ///< device object id
  ObjAttributes attributes;
};

/// The attributes and the name.
struct ObjInfo : ObjAttributes {
  const ObjAttributes& attributes() const { return *this; }

  std::string name;  ///< put into alarm notifications
};

constexpr std::size_t kOidSuffixLength = 4;
using OidSuffix = std::array<std::uint32_t, kOidSuffixLength>;

/// One scalar.
struct SnmpObjRecord {
  std::uint16_t objId = 0;  ///< device object id
  ObjInfo info;
  std::uint8_t magic = 0;  ///< in the registered list: 1-based position
  OidSuffix oidSuffix{};   ///< sub-identifiers below the scalar root
  std::string extra;       ///< never loaded, always empty
};

/// One table cell.
struct SnmpTableObjRecord {
  std::uint16_t objId = 0;  ///< device object id
  ObjInfo info;
  std::uint32_t column = 0;     ///< SNMP column number
  std::string ancestorNode;     ///< the table's node: a dotted OID suffix with a leading dot
  std::uint8_t row = 0;         ///< row index
  std::uint8_t tableAttr = 0;   ///< carried, not interpreted
  std::uint16_t extraWord = 0;  ///< carried, not interpreted
};

/// One table.
struct AncestorNodeEntry {
  std::uint8_t tableAttr = 0;  ///< of the table's first row in load order
  std::string ancestorNode;
};

}  // namespace norva

#endif  // NORVA_OBJ_INFO_H_
