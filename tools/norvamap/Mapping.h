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

/// Why a manager cannot rely on an instance.
enum class Doubt {
  kNone,        ///< a GET and a walk show it
  kBehindHole,  ///< a walk leaves the table at a cell before it that has no value
  kBehind,      ///< a walk shows it with another last number, behind a registration in its table
  kInside,      ///< stands where another registration is: a GET asks that one, a walk may show it
};

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
  /// The type that managers get.
  std::uint8_t type() const { return static_cast<std::uint8_t>(info.asnType); }

  Doubt doubt = Doubt::kNone;
  std::size_t cause = 0;  ///< of kInside and kBehind: that one, among the registrations
};

/// What the agent's library is given: a scalar, or a whole table.
struct Registration {
  Oid oid;
  int table = -1;  ///< position among the tables, -1 for a scalar
  std::uint16_t objId = 0;
};

/// Two registrations of which one stands inside the other.
struct Overlap {
  std::size_t outer, inner;  ///< among the registrations
  std::size_t doubtful;      ///< instances of the outer one that are doubtful for it
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

  /// Every instance by ascending OID, each OID once.
  const std::vector<ServedObject>& objects() const { return objects_; }
  /// In the order in which the agent takes them.
  const std::vector<Table>& tables() const { return tables_; }
  /// The scalars that the catalogue holds, in the order of their registration.
  const std::vector<SnmpObjRecord>& scalars() const { return scalars_; }
  /// Of the same scalars.
  const std::vector<ScalarVerdict>& verdicts() const { return verdicts_; }

  const std::vector<Registration>& registrations() const { return registrations_; }
  const std::vector<Overlap>& overlaps() const { return overlaps_; }

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
  void findOverlaps();
  /// What the overlap makes doubtful.
  void noteDoubts(const Overlap& overlap);
  void countDoubts();

  std::string path_;
  Oid root_;
  std::string rootText_;
  RawDataBase raw_;
  std::unique_ptr<SnmpDataBase> catalogue_;
  std::vector<SnmpObjRecord> scalars_;
  std::vector<ScalarVerdict> verdicts_;
  std::vector<Table> tables_;
  std::vector<Registration> registrations_;
  std::vector<Overlap> overlaps_;
  std::vector<ServedObject> objects_;
  std::map<std::uint16_t, std::size_t> byObjId_;
};

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_MAPPING_H_
