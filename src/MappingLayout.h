// How the two tables of a mapping database are laid out: the position of each column, the base in
// which its numbers are written, the bits that are kept of them. What loads them and what checks
// them read them by it.
//
// Type and access are hexadecimal in the one table and decimal in the other: deliberate, the
// databases in the field are written so.

#ifndef NORVA_MAPPING_LAYOUT_H_
#define NORVA_MAPPING_LAYOUT_H_

#include <array>
#include <cstddef>

#include "ObjInfo.h"

namespace norva {

struct MappingColumn {
  const char* name;
  int base;     ///< 0: a text
  int bits;     ///< a number's low ones, which are kept
  bool isUsed;  ///< false: carried along, no manager sees it
};

/// Both tables have so many; further ones are not read.
constexpr int kMappingColumns = 13;

/// Device object id: the first column of both.
constexpr int kMappingObjId = 0;

enum ScalarColumn {
  kScalarObjId = kMappingObjId,
  kScalarAuxByte,
  kScalarMagic,
  kScalarAsnType,
  kScalarAccess,
  kScalarSuffix,
  kScalarCovMethod = kScalarSuffix + static_cast<int>(kOidSuffixLength),
  kScalarSelectFlag,
  kScalarName,
  kScalarAuxWord,
};

enum CellColumn {
  kCellObjId = kMappingObjId,
  kCellAuxByte,
  kCellColumn,
  kCellAsnType,
  kCellAccess,
  kCellAncestorNode,
  kCellCovMethod,
  kCellSelectFlag,
  kCellName,
  kCellRow,
  kCellTableAttr,
  kCellAuxWord,
  kCellExtraWord,
};

struct MappingTable {
  const char* name;
  int type;  ///< position of the columns that both tables have
  int access;
  int covMethod;
  int objName;  ///< the only one that may be NULL
  std::array<MappingColumn, kMappingColumns> columns;

  constexpr const MappingColumn& operator[](int column) const {
    return columns[static_cast<std::size_t>(column)];
  }
};

inline constexpr MappingTable kScalarTable = {"SNMP_GENERAL_OBJ_TABLE",
                                              kScalarAsnType,
                                              kScalarAccess,
                                              kScalarCovMethod,
                                              kScalarName,
                                              {{{"objId", 16, 16, true},
                                                {"auxByte", 10, 8, false},
                                                {"magic", 10, 8, false},
                                                {"asnType", 16, 16, true},
                                                {"access", 16, 16, true},
                                                {"suffix1", 10, 32, true},
                                                {"suffix2", 10, 32, true},
                                                {"suffix3", 10, 32, true},
                                                {"suffix4", 10, 32, true},
                                                {"covMethod", 16, 16, true},
                                                {"selectFlag", 16, 8, false},
                                                {"name", 0, 0, true},
                                                {"auxWord", 16, 16, false}}}};

inline constexpr MappingTable kCellTable = {"SNMP_TABLE_OBJ_TABLE",
                                            kCellAsnType,
                                            kCellAccess,
                                            kCellCovMethod,
                                            kCellName,
                                            {{{"objId", 16, 16, true},
                                              {"auxByte", 10, 8, false},
                                              {"column", 10, 32, true},
                                              {"asnType", 10, 16, true},
                                              {"access", 10, 16, true},
                                              {"ancestorNode", 0, 0, true},
                                              {"covMethod", 16, 16, true},
                                              {"selectFlag", 16, 8, false},
                                              {"name", 0, 0, true},
                                              {"row", 10, 8, true},
                                              {"tableAttr", 10, 8, false},
                                              {"auxWord", 16, 16, false},
                                              {"extraWord", 16, 16, false}}}};

}  // namespace norva

#endif  // NORVA_MAPPING_LAYOUT_H_
