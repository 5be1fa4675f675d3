#include "TableHandler.h"

#include <cstdlib>
#include <vector>

#include "AnswerValue.h"
#include "DeviceForm.h"
#include "ObjectAccess.h"
#include "OidPrefix.h"
#include "OneLine.h"
#include "Output.h"
#include "RegisteredObjects.h"
#include "ServedObjects.h"
#include "SetValue.h"
#include "Settings.h"
#include "SnmpDataBase.h"

namespace norva {

namespace {

constexpr char kCellReadError[] = " get_ data is ERROR !!!!!!!!!!!!!!!!!!!";

void answerInteger(netsnmp_variable_list* variable, std::int32_t integer) {
  snmp_set_var_typed_value(variable, ASN_INTEGER, &integer, sizeof integer);
}

void answerCell(const ObjMapping& cell, const SnmpDataBase& catalogue,
                netsnmp_variable_list* variable) {
  const AnswerValue answer = readAnswer(cell.objId, cell.attributes.asnType, catalogue);
  if (!answer.valid()) {
    Output::puts(kCellReadError);
    return;
  }
  snmp_set_var_typed_value(variable, answer.type(), answer.data(), answer.size());
}

/// Writes what `variable` holds. Returns an SNMP error status.
int writeCell(const netsnmp_variable_list& variable, const ObjAttributes& mapping, ObjValue record,
              const SnmpDataBase& catalogue) {
  const SetValue value(variable.type, variable.val.string, variable.val_len);
  takeCellValue(value, mapping.asnType, record);
  if (writeValue(record, catalogue, value.isAddress()) != -1) return SNMP_ERR_NOERROR;
  Output::puts("SNMP_ERR_BADVALUE");
  return SNMP_ERR_BADVALUE;
}

/// Reads a cell's object into the class's buffer. What an earlier cell left there goes first, so
/// that a failed read is never answered with another cell's value.
int readCell(TableClassState& state, const ObjMapping& cell) {
  ObjValue& buffer = state.objectBuffer;
  buffer = ObjValue();
  buffer.setOid(cell.objId);
  return readValue(buffer, *state.catalogue);
}

int findCell(const TableClassState& state, const netsnmp_table_request_info& table,
             const RowContext& row, ObjMapping& cell) {
  return state.catalogue->findCell(state.ancestorNode, table.colnum,
                                   static_cast<unsigned>(row.index) & 0xFF, cell);
}

/// One request of a PDU. `first` is the first request of its list. Returns an SNMP error status.
int handleCell(TableClassState& state, int mode, netsnmp_request_info* request,
               const netsnmp_request_info& first) {
  const auto* row = static_cast<const RowContext*>(netsnmp_extract_iterator_context(request));
  const netsnmp_table_request_info* table = netsnmp_extract_table_info(request);
  if (row == nullptr || table == nullptr) return SNMP_ERR_NOERROR;
  if (table->colnum == kIndexColumn) {
    answerInteger(request->requestvb, row->index);  // deliberate: in every mode
    return SNMP_ERR_NOERROR;
  }

  ObjMapping cell;
  if (findCell(state, *table, *row, cell) == -1) return SNMP_ERR_NOERROR;
  if (mode == MODE_GET) {
    answerCell(cell, *state.catalogue, request->requestvb);
    return SNMP_ERR_NOERROR;
  }
  // Deliberate: every phase of a SET reads first, so a cell that cannot be read is skipped before
  // its access is tested, and a SET on it succeeds without writing.
  if (readCell(state, cell) == -1) {
    Output::puts(kCellReadError);
    return SNMP_ERR_NOERROR;
  }

  switch (mode) {
    case MODE_SET_RESERVE1:
      if (isCellWritable(cell.attributes.access)) return SNMP_ERR_NOERROR;
      Output::print(" %s SNMP_ERR_READONLY\n", state.traits.sourceName);
      return SNMP_ERR_READONLY;
    case MODE_SET_ACTION:
      // Deliberate: the first request's value goes to every cell of the list.
      return writeCell(*first.requestvb, cell.attributes, state.objectBuffer, *state.catalogue);
    default:
      return SNMP_ERR_NOERROR;
  }
}

/// A phase of a strict SET of one cell. Returns an SNMP error status.
int setCellStrictly(TableClassState& state, int mode, netsnmp_request_info* request) {
  const auto* row = static_cast<const RowContext*>(netsnmp_extract_iterator_context(request));
  const netsnmp_table_request_info* table = netsnmp_extract_table_info(request);
  ObjMapping cell;
  if (row == nullptr || table == nullptr || table->colnum == kIndexColumn ||
      findCell(state, *table, *row, cell) == -1) {
    // Refused in the first phase, so that there is nothing to write, put back or forget.
    if (mode != MODE_SET_RESERVE1) return SNMP_ERR_NOERROR;
    const bool isIndex = table != nullptr && table->colnum == kIndexColumn;
    const int error = isIndex ? SNMP_ERR_NOTWRITABLE : SNMP_ERR_NOCREATION;
    Output::print("set of column %u of table %s refused: %s\n",
                  table != nullptr ? table->colnum : 0, state.ancestorNode.c_str(),
                  snmp_errstring(error));
    return error;
  }
  const netsnmp_variable_list& variable = *request->requestvb;
  const SetValue value(variable.type, variable.val.string, variable.val_len);
  return state.strictSet.perform(
      mode, {variable.name, variable.name + variable.name_length},
      {cell.objId, cell.attributes.asnType, isCellWritable(cell.attributes.access)}, value,
      *state.catalogue);
}

int handleRequest(netsnmp_mib_handler* handler, netsnmp_handler_registration*,
                  netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
  if (requests == nullptr) return SNMP_ERR_GENERR;
  auto& state = *static_cast<TableClassState*>(handler->myvoid);
  const bool isStrict = info->mode != MODE_GET && Settings::get().strictSet;
  for (netsnmp_request_info* request = requests; request != nullptr; request = request->next) {
    const int error = isStrict ? setCellStrictly(state, info->mode, request)
                               : handleCell(state, info->mode, request, *requests);
    if (error == SNMP_ERR_NOERROR) continue;
    // A bare return would reach the manager as genErr.
    netsnmp_set_request_error(info, request, error);
    // What was written is put back whether or not something before it could not be.
    if (info->mode != MODE_SET_UNDO) return error;
  }
  return SNMP_ERR_NOERROR;
}

/// Registers the table with the library. What is allocated here lives until the process ends.
void registerTable(TableClassState& state, const std::vector<oid>& node) {
  netsnmp_handler_registration* registration = netsnmp_create_handler_registration(
      state.traits.registrationName, handleRequest, node.data(), node.size(), HANDLER_CAN_RWRITE);
  if (registration == nullptr) {
    Output::puts("netsnmp_handler_registration* my_handler is NULL");
    return;
  }
  // With the handler and not with the registration: when the library splits the table around
  // another object's registration, it copies the handler's pointer only.
  registration->handler->myvoid = &state;

  auto* table = static_cast<netsnmp_table_registration_info*>(
      std::calloc(1, sizeof(netsnmp_table_registration_info)));
  netsnmp_iterator_info* iterator = makeRowIterator(state);
  if (table == nullptr || iterator == nullptr) {
    std::free(table);
    std::free(iterator);
    std::free(registration);
    return;
  }
  netsnmp_table_helper_add_indexes(table, ASN_INTEGER, ASN_INTEGER, 0);
  table->min_column = kIndexColumn;

  std::vector<SnmpTableObjRecord> columns;
  if (state.catalogue->getTableColumns(state.ancestorNode, columns) == -1) return;
  table->max_column = lastColumn(columns.size());
  iterator->table_reginfo = table;
  if (netsnmp_register_table_iterator(registration, iterator) != MIB_REGISTERED_OK) return;
  RegisteredObjects::get().addTable(
      {node.begin(), node.end()},
      state.catalogue->countCells(state.ancestorNode, table->max_column));
}

}  // namespace

TableHandler::TableHandler(TableClassState& state, const SnmpDataBase* catalogue) : _state(state) {
  _state.catalogue = catalogue;
}

TableHandler::~TableHandler() {
  // Under the mutex, and so after a walk's first step that is under way.
  TableHandler::clearIndexes();
}

void TableHandler::addIndex(std::int32_t index) {
  const std::lock_guard lock(_state.mutex);
  insertRow(index);
  _state.rowListHead = rowList();
}

void TableHandler::removeIndex(std::int32_t index) {
  const std::lock_guard lock(_state.mutex);
  eraseRow(index);
  _state.rowListHead = rowList();
}

void TableHandler::clearIndexes() {
  const std::lock_guard lock(_state.mutex);
  SnmpTableStrategy::clearIndexes();
  _state.rowListHead = rowList();
}

void TableHandler::init_table(std::int32_t tableFlag, const std::string& ancestorNode) {
  _state.ancestorNode = ancestorNode;
  _state.tableFlag = tableFlag;

  const std::string prefix = readTablePrefix();
  const std::string node = prefix + ancestorNode;
  // Deliberate: every class prints the first one's name.
  if (_state.traits.printsPrefix) {
    Output::print("TableHandlerOne::init_table ancestorNode=%s\n", ancestorNode.c_str());
    Output::print("TableHandlerOne::init_table OId(0x80BA)=%s\n", prefix.c_str());
  }
  Output::print("TableHandlerOne::init_table node=%s\n", node.c_str());

  const TablePlace place = placeTable(node);
  if (!place.hasLength()) {
    Output::print("%s: table node of %u sub-identifiers is not served, 1 to %zu are possible\n",
                  _state.traits.registrationName, place.count, kMaxNodeLength);
    return;
  }
  if (!place.hasRange()) {
    Output::print("%s: table node %s is not served: a sub-identifier is above %u\n",
                  _state.traits.registrationName, oneLine(ancestorNode).c_str(), kMaxSubIdentifier);
    return;
  }
  registerTable(_state, {place.oid.begin(), place.oid.end()});
}

}  // namespace norva
