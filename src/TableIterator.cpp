#include "TableIterator.h"

#include <cstdlib>

namespace norva {

namespace {

void setRowIndex(netsnmp_variable_list* index, std::int32_t row) {
  snmp_set_var_value(index, &row, sizeof row);
}

void freeRowContext(void* context, netsnmp_iterator_info*) {
  std::free(context);
}

}  // namespace

netsnmp_iterator_info* makeRowIterator(TableRows& rows) {
  auto* info = static_cast<netsnmp_iterator_info*>(std::calloc(1, sizeof(netsnmp_iterator_info)));
  if (info == nullptr) return nullptr;
  info->get_first_data_point = firstRow;
  info->get_next_data_point = nextRow;
  info->make_data_context = makeRowContext;
  info->free_loop_context = nullptr;
  info->free_data_context = freeRowContext;
  info->free_loop_context_at_end = freeRowContext;
  info->flags = NETSNMP_ITERATOR_FLAG_SORTED;
  info->myvoid = &rows;
  return info;
}

netsnmp_variable_list* firstRow(void** loopContext, void** dataContext,
                                netsnmp_variable_list* index, netsnmp_iterator_info* info) {
  auto& rows = *static_cast<TableRows*>(info->myvoid);
  const std::lock_guard lock(rows.mutex);
  // The library puts a hint of its own there, which it would free behind an empty table.
  *loopContext = nullptr;
  *dataContext = nullptr;
  if (rows.rowListHead == nullptr) return nullptr;
  const RowContext first{rows.rowListHead->index, rows.rowListHead->next};
  *loopContext = makeRowContext(const_cast<RowContext*>(&first), info);
  setRowIndex(index, first.index);
  return index;
}

netsnmp_variable_list* nextRow(void** loopContext, void** dataContext, netsnmp_variable_list* index,
                               netsnmp_iterator_info*) {
  if (loopContext == nullptr || *loopContext == nullptr) return nullptr;
  auto* row = static_cast<RowContext*>(*loopContext);
  if (row->next == nullptr) return nullptr;
  *row = {row->next->index, row->next->next};
  *dataContext = nullptr;
  setRowIndex(index, row->index);
  return index;
}

void* makeRowContext(void* loopContext, netsnmp_iterator_info*) {
  // calloc would pass by what the C library keeps at hand of small blocks.
  auto* context = static_cast<RowContext*>(std::malloc(sizeof(RowContext)));
  *context = loopContext != nullptr ? *static_cast<const RowContext*>(loopContext) : RowContext{};
  return context;
}

}  // namespace norva
