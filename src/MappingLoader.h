// Fills the catalogue's containers from a mapping database.
//
// For the thread that loads, as long as the adapter lives. Every status is 0, or -1 after printing
// what is missing; rows that cannot be used are printed and left out.

#ifndef NORVA_MAPPING_LOADER_H_
#define NORVA_MAPPING_LOADER_H_

#include <cstdint>
#include <map>
#include <vector>

#include "ObjInfo.h"

namespace norva {

class DataBaseAdapter;
class TableCells;

class MappingLoader {
 public:
  explicit MappingLoader(DataBaseAdapter& adapter) : _adapter(adapter) {}

  /// The scalars by object id; of several rows of one id the first wins. `subsite` is printed.
  int initSnmpObjOid(int subsite, std::map<std::uint16_t, SnmpObjRecord>& objects);
  /// The cells, and one entry for each table in load order.
  int initSnmpTableOid(int subsite, TableCells& cells, std::vector<AncestorNodeEntry>& nodes);

  // As the operations of SnmpDataBase that are named so. An entry that is there already stays.

  int loadSlotFreq(std::map<std::uint16_t, std::uint16_t>& frequencies);
  void loadGenusGroup(std::uint16_t objId, std::uint8_t channelHigh,
                      std::map<std::uint16_t, std::uint16_t>& channels);

 private:
  DataBaseAdapter& _adapter;
};

}  // namespace norva

#endif  // NORVA_MAPPING_LOADER_H_
