// Handler of the second table of the catalogue; see TableHandler.

#ifndef NORVA_TABLE_HANDLER_TWO_H_
#define NORVA_TABLE_HANDLER_TWO_H_

#include "TableHandler.h"

namespace norva {

class TableHandlerTwo : public TableHandler {
 public:
  explicit TableHandlerTwo(const SnmpDataBase* catalogue) : TableHandler(_state, catalogue) {}

 private:
  static TableClassState _state;
};

}  // namespace norva

#endif  // NORVA_TABLE_HANDLER_TWO_H_
