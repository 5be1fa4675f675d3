// Handler of the first table of the catalogue; see TableHandler.

#ifndef NORVA_TABLE_HANDLER_ONE_H_
#define NORVA_TABLE_HANDLER_ONE_H_

#include "TableHandler.h"

namespace norva {

class TableHandlerOne : public TableHandler {
 public:
  explicit TableHandlerOne(const SnmpDataBase* catalogue) : TableHandler(_state, catalogue) {}

 private:
  static TableClassState _state;
};

}  // namespace norva

#endif  // NORVA_TABLE_HANDLER_ONE_H_
