// The floor of the benchmark: the least that an AgentX subagent of this library can do to serve the
// same objects. One device round trip a value, two system calls each; no trace, no catalogue, no
// limits, no second thought. Registered as the agent registers: scalars in the library's variable
// table, cells with its table iterator. A SET makes the trips that the agent's rules ask for: a
// read in front of it (a cell: in each of its four phases), a read for length and kind, the write.
//
// With a second argument it keeps the agent's rules for the queues: each is looked up for every
// use, and the reply queue is emptied in front of a request. Six system calls a round trip.
//
// Notifications: a thread takes the events off the alarm queue and hands them through a pipe to the
// main loop, which sends one a turn.

#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <thread>

#include "AgentLibrary.h"
#include "ByteOrder.h"
#include "ComPortAdapter.h"
#include "ObjectProtocol.h"
#include "Objects.h"
#include "TrapMessage.h"

using namespace norva;

namespace {

constexpr oid kRoot[] = {1, 3, 6, 1, 4, 1, 53412, 8, 2, 2, 4};
constexpr oid kTable[] = {1, 3, 6, 1, 4, 1, 53412, 8, 2, 2, 4, 10, 1};

struct Message {
  long mtype;
  std::uint8_t payload[128];
};

int requests = -1;
int replies = -1;
int alarmPipe[2];

bool obeysQueueRules = false;

void lookUp(int& queue, key_t key) {
  queue = msgget(key, IPC_CREAT | 0666);
}

/// One round trip; the reply.
const Message& exchange(Message& request, std::size_t size) {
  static Message reply;
  request.mtype = AGENT_MSG_TYPE;
  if (obeysQueueRules) {
    lookUp(replies, kReplyQueueKey);
    while (msgrcv(replies, &reply, sizeof reply.payload, 0, IPC_NOWAIT) != -1) {
    }
    lookUp(requests, kRequestQueueKey);
    lookUp(replies, kReplyQueueKey);
  }
  if (msgsnd(requests, &request, size, 0) == -1 ||
      msgrcv(replies, &reply, sizeof reply.payload, 0, 0) == -1) {
    std::exit(1);
  }
  return reply;
}

const Message& readObject(std::uint16_t id) {
  Message request{0, {kCommandGetRequest, kObjLenLong}};
  storeLe16(request.payload + kRequestOid, id);
  return exchange(request, kGetRequestSize);
}

/// The read that tells length and kind, then the write.
bool writeObject(std::uint16_t id, std::uint32_t integer) {
  const std::uint8_t objLen = readObject(id).payload[kFrameObjLen];
  Message request{0, {kCommandSetRequest, objLen}};
  storeLe16(request.payload + kRequestOid, id);
  storeLe32(request.payload + kRequestValue, integer);
  return exchange(request, kGetRequestSize).payload[kFrameCommand] == kCommandSetReply;
}

long integerOf(const Message& reply) {
  return static_cast<std::int32_t>(loadLe32(reply.payload + kReplyValue));
}
std::size_t textLength(const Message& reply) {
  return strnlen(reinterpret_cast<const char*>(reply.payload + kReplyValue), 20);
}

std::uint16_t writtenScalar = 0;

int writeScalar(int action, u_char* value, u_char, size_t, u_char*, oid*, size_t) {
  if (action != ACTION) return SNMP_ERR_NOERROR;
  long integer = 0;
  std::memcpy(&integer, value, sizeof integer);
  const bool isWritten = writeObject(writtenScalar, static_cast<std::uint32_t>(integer));
  return isWritten ? SNMP_ERR_NOERROR : SNMP_ERR_GENERR;
}

u_char* readScalar(variable* entry, oid* name, size_t* length, int exact, size_t* size,
                   WriteMethod** writeMethod) {
  static long integer;
  oid instance[MAX_OID_LEN] = {};
  const std::size_t instanceLength = entry->namelen + 1U;
  std::copy_n(entry->name, entry->namelen, instance);
  const int order = snmp_oid_compare(name, *length, instance, instanceLength);
  if (exact != 0 ? order != 0 : order >= 0) return nullptr;
  std::copy_n(instance, instanceLength, name);
  *length = instanceLength;
  *size = sizeof integer;
  const std::uint16_t id = bench::scalarObject(entry->magic);
  writtenScalar = id;
  *writeMethod = writeScalar;
  const Message& reply = readObject(id);
  if (bench::isText(id)) {
    *size = textLength(reply);
    return const_cast<u_char*>(reply.payload + kReplyValue);
  }
  integer = integerOf(reply);
  return reinterpret_cast<u_char*>(&integer);
}

void registerScalars() {
  static variable4 entries[bench::kScalars];
  for (unsigned n = 1; n <= bench::kScalars; ++n) {
    const u_char type = bench::isText(bench::scalarObject(n)) ? ASN_OCTET_STR : ASN_INTEGER;
    entries[n - 1] = {static_cast<u_char>(n), type, RWRITE, readScalar, 4, {1, 1, 1, n}};
  }
  register_mib("floor", reinterpret_cast<variable*>(entries), sizeof(variable4), bench::kScalars,
               const_cast<oid*>(kRoot), std::size(kRoot));
}

int rows[bench::kRows];

netsnmp_variable_list* setRow(int* row, void** loop, void** data, netsnmp_variable_list* index) {
  *loop = *data = row;
  snmp_set_var_value(index, row, sizeof *row);
  return index;
}

netsnmp_variable_list* firstRow(void** loop, void** data, netsnmp_variable_list* index,
                                netsnmp_iterator_info*) {
  return setRow(rows, loop, data, index);
}

netsnmp_variable_list* nextRow(void** loop, void** data, netsnmp_variable_list* index,
                               netsnmp_iterator_info*) {
  int* const next = static_cast<int*>(*loop) + 1;
  return next == std::end(rows) ? nullptr : setRow(next, loop, data, index);
}

void answerCell(netsnmp_variable_list* variable, std::uint16_t id) {
  const Message& reply = readObject(id);
  if (bench::isText(id)) {
    snmp_set_var_typed_value(variable, ASN_OCTET_STR, reply.payload + kReplyValue,
                             textLength(reply));
  } else {
    const long integer = integerOf(reply);
    snmp_set_var_typed_value(variable, ASN_INTEGER, &integer, sizeof integer);
  }
}

int handleCells(netsnmp_mib_handler*, netsnmp_handler_registration*,
                netsnmp_agent_request_info* info, netsnmp_request_info* request) {
  for (; request != nullptr; request = request->next) {
    const auto* row = static_cast<const int*>(netsnmp_extract_iterator_context(request));
    const auto* table = netsnmp_extract_table_info(request);
    if (row == nullptr || table == nullptr) continue;
    const std::uint16_t id = bench::cellObject(table->colnum, static_cast<unsigned>(*row));
    if (info->mode == MODE_GET) {
      answerCell(request->requestvb, id);
      continue;
    }
    readObject(id);
    if (info->mode != MODE_SET_ACTION) continue;
    const auto integer = static_cast<std::uint32_t>(*request->requestvb->val.integer);
    if (!writeObject(id, integer)) return SNMP_ERR_GENERR;
  }
  return SNMP_ERR_NOERROR;
}

void registerCells() {
  for (unsigned row = 0; row < bench::kRows; ++row) rows[row] = static_cast<int>(row + 1);
  auto* table = SNMP_MALLOC_TYPEDEF(netsnmp_table_registration_info);
  auto* iterator = SNMP_MALLOC_TYPEDEF(netsnmp_iterator_info);
  netsnmp_table_helper_add_indexes(table, ASN_INTEGER, ASN_INTEGER, 0);
  table->min_column = bench::kFirstColumn;
  table->max_column = bench::kFirstColumn + bench::kColumns - 1;
  iterator->get_first_data_point = firstRow;
  iterator->get_next_data_point = nextRow;
  iterator->table_reginfo = table;
  iterator->flags = NETSNMP_ITERATOR_FLAG_SORTED;
  netsnmp_register_table_iterator(
      netsnmp_create_handler_registration("floor", handleCells, kTable, std::size(kTable),
                                          HANDLER_CAN_RWRITE),
      iterator);
}

void takeAlarms() {
  const int alarms = msgget(kAlarmQueueKey, IPC_CREAT | 0666);
  struct {
    long mtype;
    std::uint8_t payload[1024];
  } message;
  while (msgrcv(alarms, &message, sizeof message.payload, 0, 0) != -1) {
    if (write(alarmPipe[1], message.payload, TrapMessage::kSize) == -1) return;
  }
}

void sendAlarm(int, void*) {
  static std::uint32_t sequence = 0;
  std::uint8_t payload[TrapMessage::kSize];
  if (read(alarmPipe[0], payload, sizeof payload) != sizeof payload) std::exit(1);
  const TrapMessage alarm(payload, sizeof payload);

  static constexpr oid kTrapOid[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
  static constexpr oid kNotification[] = {1, 3, 6, 1, 4, 1, 53412, 8, 2, 2, 3, 3, 1, 1, 0, 96};
  netsnmp_variable_list* list = nullptr;
  snmp_varlist_add_variable(&list, kTrapOid, std::size(kTrapOid), ASN_OBJECT_ID, kNotification,
                            sizeof kNotification);
  const auto add = [&list](oid last, u_char type, const void* value, std::size_t size) {
    oid name[std::size(kNotification)];
    std::memcpy(name, kNotification, sizeof name);
    name[std::size(name) - 1] = last;
    snmp_varlist_add_variable(&list, name, std::size(name), type, value, size);
  };
  const auto addText = [&add](oid last, std::string_view text) {
    add(last, ASN_OCTET_STR, text.data(), text.size());
  };
  const auto addInteger = [&add](oid last, std::int32_t integer) {
    add(last, ASN_INTEGER, &integer, sizeof integer);
  };
  addText(1, "object");
  addText(2, "New Alarm");
  addInteger(3, alarm.deviceId());
  addText(4, alarm.text(TrapMessage::kText4));
  addText(5, alarm.text(TrapMessage::kText5));
  addText(6, alarm.text(TrapMessage::kText6));
  addInteger(7, static_cast<std::int32_t>(++sequence));
  send_v2trap(list);
  snmp_free_varbind(list);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || pipe(alarmPipe) != 0) return 2;
  obeysQueueRules = argc > 2;
  lookUp(requests, kRequestQueueKey);
  lookUp(replies, kReplyQueueKey);
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
  netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, argv[1]);
  init_agent("demo");
  registerScalars();
  registerCells();
  init_snmp("demo");
  register_readfd(alarmPipe[0], sendAlarm, nullptr);
  std::thread(takeAlarms).detach();
  for (;;) processEvents(true);
}
