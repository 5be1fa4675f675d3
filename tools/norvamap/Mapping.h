// What the agent makes of a mapping database: the objects that managers reach and those that they
// do not. Loaded through the agent's own catalogue, judged by its own rule (ServedObjects); what
// its library makes of that is followed here.
//
// One thread.

#ifndef NORVA_MAPPING_MAPPING_H_
#define NORVA_MAPPING_MAPPING_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Format.h"
#include "ObjInfo.h"
#include "RawTable.h"
#include "ServedObjects.h"
#include "SnmpDataBase.h"

namespace norva::mapping {

/// One instance that a manager can ask for.
struct ServedObject {
  bool isIndex = false;     ///< a table's column 1: the row's number, no device object
  std::uint16_t objId = 0;  ///< device object id
  ObjInfo info;             ///< as its row has it, but covMethod is the one that is applied
  Oid oid;                  ///< of the instance
  int table = -1;           ///< position among the tables, -1 for a scalar
  unsigned row = 0;         ///< cells: row and column
  std::uint32_t column = 0;
  bool writable = false;
};

/// One table of the database, whether it is served or not.
struct Table {
  std::string node;  ///< as the database has it
  Oid oid;           ///< as the agent parses it behind the root
  bool served = false;
  std::string reason;  ///< of one that is not: why
  std::uint32_t maxColumn = 0;
  std::vector<std::string> foreignNodes;  ///< whose cells are counted with this one's
  /// Cells between column 2, row 1 and the last one that have no row, in the order of a walk.
  std::vector<std::pair<std::uint32_t, unsigned>> holes;
};

class Mapping {
 public:
  /// Loads `path`; `root` is the text of object 0x80BA. Throws InputError.
  Mapping(const std::string& path, const std::string& root);

  const std::string& path() const { return path_; }
  const Oid& root() const { return root_; }
  const RawDataBase& raw() const { return raw_; }
  const SnmpDataBase& catalogue() const { return *catalogue_; }

  /// Every instance by ascending OID.
  const std::vector<ServedObject>& objects() const { return objects_; }
  /// In the order in which the agent takes them.
  const std::vector<Table>& tables() const { return tables_; }
  /// The scalars that the catalogue holds, in the order of their registration.
  const std::vector<SnmpObjRecord>& scalars() const { return scalars_; }
  /// Of the same scalars.
  const std::vector<ScalarVerdict>& verdicts() const { return verdicts_; }

  /// The first instance of a device object; null for one that managers cannot reach.
  const ServedObject* findObject(std::uint16_t objId) const;

  /// Throws InputError when a table that the agent reads is missing or has too few columns.
  void requireComplete() const;

 private:
  void addScalars();
  void addTables();
  void addCells(int position);
  /// False where the catalogue has no such cell.
  bool takeCell(const std::string& node, std::uint32_t column, unsigned row,
                ServedObject& object) const;
  /// The registrations that the agent asks instead of the one at `own` for what is below them.
  std::vector<Oid> registeredBelow(const Oid& own) const;

  std::string path_;
  Oid root_;
  std::string rootText_;
  RawDataBase raw_;
  std::unique_ptr<SnmpDataBase> catalogue_;
  std::vector<SnmpObjRecord> scalars_;
  std::vector<ScalarVerdict> verdicts_;
  std::vector<Table> tables_;
  std::vector<Oid> registrations_;
  std::vector<ServedObject> objects_;
  std::map<std::uint16_t, std::size_t> byObjId_;
};

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_MAPPING_H_
