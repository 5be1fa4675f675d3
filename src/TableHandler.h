// The algorithm that all table classes share: registration with the library's table iterator, the
// walk over the rows, GET and SET on cells. A table class adds its TableTraits and its own
// TableClassState, nothing else.
//
// The library's callbacks get the state of the class, in static storage, and not the object: it may
// call for as long as the process lives. Exactly one live object of each class is intended.
// init_table and every callback run on the main thread. The class's mutex guards the row list
// against addIndex, removeIndex and clearIndexes; no other lock is taken while it is held.

#ifndef NORVA_TABLE_HANDLER_H_
#define NORVA_TABLE_HANDLER_H_

#include <cstdint>
#include <string>

#include "AgentLibrary.h"
#include "ObjValue.h"
#include "SnmpTableStrategy.h"
#include "StrictSet.h"
#include "TableIterator.h"

namespace norva {

class SnmpDataBase;

/// What differs between the table classes.
struct TableTraits {
  const char* registrationName;  ///< name of the handler in the library
  const char* sourceName;        ///< what the read-only message names
  bool printsPrefix;             ///< init_table prints the ancestor node and the OID prefix too
};

/// State of one table class.
struct TableClassState : TableRows {
  explicit TableClassState(const TableTraits& classTraits) : traits(classTraits) {}

  const TableTraits traits;
  ObjValue objectBuffer;  ///< scratch of the request handler
  StrictSet strictSet;
  const SnmpDataBase* catalogue = nullptr;
  std::int32_t tableFlag = 0;  ///< stored, never read
  std::string ancestorNode;    ///< the table's key in the catalogue
};

class TableHandler : public SnmpTableStrategy {
 public:
  ~TableHandler() override;

  void addIndex(std::int32_t index) override;
  void removeIndex(std::int32_t index) override;
  void clearIndexes() override;
  void init_table(std::int32_t tableFlag, const std::string& ancestorNode) override;

 protected:
  /// `state` is the class's own and outlives the object.
  TableHandler(TableClassState& state, const SnmpDataBase* catalogue);

 private:
  TableClassState& _state;
};

}  // namespace norva

#endif  // NORVA_TABLE_HANDLER_H_
