// The walk of the library's table iterator over the rows of a table class. Main thread.

#ifndef NORVA_TABLE_ITERATOR_H_
#define NORVA_TABLE_ITERATOR_H_

#include <cstdint>
#include <mutex>

#include "AgentLibrary.h"
#include "SnmpTableStrategy.h"

namespace norva {

/// The rows of a table class as the walk sees them.
struct TableRows {
  std::mutex mutex;                ///< guards the list
  RowNode* rowListHead = nullptr;  ///< of the class's one object
};

/// A row as the library carries it, as loop context of a walk and as data context of a request.
/// Allocated with malloc and released by the library with free.
struct RowContext {
  std::int32_t index;
  RowNode* next;  ///< points into the live row list
};

/// Iterator information for `rows`, which outlive it and whose callbacks are the functions below;
/// null when there is no memory. Allocated with calloc; the library uses it until the process ends.
netsnmp_iterator_info* makeRowIterator(TableRows& rows);

// The callbacks, with the library's signatures. `info->myvoid` are the TableRows. Only the
// first of the two indexes is ever filled; the second takes what the request carries.

/// The smallest row; null when there is none.
netsnmp_variable_list* firstRow(void** loopContext, void** dataContext,
                                netsnmp_variable_list* index, netsnmp_iterator_info* info);
/// The row behind that of the loop context; null, the loop context unchanged, behind the last one.
netsnmp_variable_list* nextRow(void** loopContext, void** dataContext, netsnmp_variable_list* index,
                               netsnmp_iterator_info* info);
/// A data context of its own for each request: the library frees one per request, so a shared one
/// would be freed twice by a PDU with two cells.
void* makeRowContext(void* loopContext, netsnmp_iterator_info* info);

}  // namespace norva

#endif  // NORVA_TABLE_ITERATOR_H_
