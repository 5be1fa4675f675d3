#include "SnmpTableStrategy.h"

namespace norva {

SnmpTableStrategy::~SnmpTableStrategy() {
  SnmpTableStrategy::clearIndexes();
}

void SnmpTableStrategy::clearIndexes() {
  while (_rowList != nullptr) {
    const RowNode* removed = _rowList;
    _rowList = removed->next;
    delete removed;
  }
}

RowNode** SnmpTableStrategy::findLink(std::int32_t index) {
  RowNode** link = &_rowList;
  while (*link != nullptr && (*link)->index < index) link = &(*link)->next;
  return link;
}

void SnmpTableStrategy::insertRow(std::int32_t index) {
  RowNode** link = findLink(index);
  if (*link != nullptr && (*link)->index == index) return;
  *link = new RowNode{index, *link};
}

void SnmpTableStrategy::eraseRow(std::int32_t index) {
  RowNode** link = findLink(index);
  if (*link == nullptr || (*link)->index != index) return;
  const RowNode* removed = *link;
  *link = removed->next;
  delete removed;
}

}  // namespace norva
