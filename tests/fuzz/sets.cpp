// SETs of every type and length, of scalars and of table cells, in the default mode and the strict
// one, up to what the unit is asked to write.

#include <algorithm>
#include <memory>

#include "AgentLibrary.h"
#include "AsnType.h"
#include "DataBase.h"
#include "DataManage.h"
#include "Fuzz.h"
#include "ObjectAccess.h"
#include "Settings.h"
#include "SnmpAgentX.h"
#include "SnmpDataBase.h"
#include "TableHandlerOne.h"

namespace norva::fuzz {
namespace {

constexpr std::uint16_t kTypes[] = {kAsnInteger,   kAsnOctetString, kAsnObjectId,  kAsnIpAddress,
                                    kAsnCounter32, kAsnGauge32,     kAsnTimeTicks, kAsnOpaque,
                                    kAsnCounter64, kAsnUInteger32};
constexpr std::uint16_t kMethods[] = {0, 0x1000, 0x2000, 0xF000, 1,      2,
                                      3, 4,      0x1004, 0x2004, 0xF004, 11};
constexpr oid kRoot[] = {1, 3, 6, 1, 4, 1, 53412, 8, 2, 2, 4};
constexpr unsigned kFirst = 0x100;

/// A scalar and a cell for every type and method; they share objects.
std::unique_ptr<SnmpDataBase> makeCatalogue() {
  DataBase& dataBase = DataBase::get();
  auto& scalars = dataBase.scalars.rows;
  for (const std::uint16_t type : kTypes) {
    for (const std::uint16_t method : kMethods) {
      const auto number = static_cast<unsigned>(scalars.size());
      scalars.push_back(scalarRow(kFirst + number, number, type, method));
      char cell[128];
      std::snprintf(cell, sizeof cell, "%04X\t0\t%zu\t%u\t3\t.10.1\t%X\t0\tc\t%zu\t1\t0\t0",
                    kFirst + number, 2 + number % std::size(kMethods), type, method,
                    1 + number / std::size(kMethods));
      dataBase.cells.rows.emplace_back(cell);
    }
  }
  return std::make_unique<SnmpDataBase>(DataBase::kPath);
}

struct Agent {
  Agent() : catalogue(makeCatalogue()), table(catalogue.get()) {
    init_agent("fuzz");
    SnmpAgentX::setCatalogue(*catalogue);
    catalogue->getAllObjects(SnmpAgentX::generalObjects());
    for (int row = 1; row <= 32; ++row) table.addIndex(row);
    table.init_table(0, ".10.1");
  }

  std::unique_ptr<SnmpDataBase> catalogue;
  TableHandlerOne table;
};

/// The one object of the unit, as its frames carry it.
struct Device {
  std::uint16_t id = 0;
  std::uint8_t attrLow = 0, kind = 0, objLen = 0;
  Bytes value;
  bool refuses = false;
  int writes = 0;

  bool writable() const { return (attrLow & ObjValue::kWritable) != 0; }

  bool answer(const Bytes& request) {
    MUST(request.size() >= 4 && (request[2] | request[3] << 8) == id);
    Bytes reply;
    if (request[0] == 0x02) {
      reply = {0x12, objLen, attrLow, kind, request[2], request[3]};
      reply.insert(reply.end(), value.begin(), value.end());
    } else {
      MUST(request[0] == 0x01 && request[1] == objLen && request.size() == objLen + 1U);
      MUST(writable());
      MUST(std::all_of(request.begin() + std::min(4 + 64, objLen + 1), request.end(),
                       [](std::uint8_t byte) { return byte == 0; }));
      ++writes;
      reply = {static_cast<std::uint8_t>(refuses ? 0x1F : 0x11)};
      if (!refuses) value.assign(request.begin() + 4, request.end());
    }
    Queues::get().waiting[kReplyQueueKey].push_back(reply);
    return true;
  }

  bool isText() const { return kind == 2; }
  std::uint32_t integer() const {
    std::uint32_t whole = kind == 1 && (value.back() & 0x80) != 0 ? 0xFFFFFFFF : 0;
    for (std::size_t i = value.size(); i-- > 0;) whole = whole << 8 | value[i];
    return whole;
  }
};

/// One SET: what is asked for, and of what.
struct Asked {
  std::uint8_t type;
  Bytes value;  // as the library holds it
  std::uint16_t asnType, covMethod;
  unsigned number;  // of the object
  bool isCell;

  bool isNumber() const { return value.size() == sizeof(long) && isInteger32(type); }
  long held() const {
    long integer = 0;
    std::copy(value.begin(), value.end(), reinterpret_cast<std::uint8_t*>(&integer));
    return integer;
  }
};

int setScalar(const Asked& asked, Bytes& value, int phase) {
  std::vector<oid> name(std::begin(kRoot), std::end(kRoot));
  name.insert(name.end(), {1, 1, 1, asked.number, 0});
  return SnmpAgentX::writeObject(phase, value.data(), asked.type, value.size(), nullptr,
                                 name.data(), name.size());
}

/// A request of one cell on its way through the library's helpers to the table's handler.
class CellRequest {
 public:
  CellRequest(const Asked& asked, Bytes& value) {
    std::vector<oid> name(std::begin(kRoot), std::end(kRoot));
    const auto width = static_cast<oid>(std::size(kMethods));
    name.insert(name.end(), {10, 1, 1, 2 + asked.number % width, 1 + asked.number / width, 0});
    snmp_set_var_objid(&_variable, name.data(), name.size());
    _variable.type = asked.type;
    _variable.val.string = value.data();
    _variable.val_len = value.size();
    _request.requestvb = &_variable;
    _request.agent_req_info = &_info;
    netsnmp_subtree* const tree = netsnmp_subtree_find(name.data(), name.size(), nullptr, "");
    MUST(tree != nullptr && tree->reginfo != nullptr);
    _registration = tree->reginfo;
  }
  ~CellRequest() {
    netsnmp_free_request_data_sets(&_request);
    netsnmp_free_agent_data_sets(&_info);
    _variable.val.string = nullptr;
    snmp_reset_var_buffers(&_variable);
  }
  CellRequest(const CellRequest&) = delete;
  CellRequest& operator=(const CellRequest&) = delete;

  int perform(int mode) {
    _info.mode = mode;
    _request.status = SNMP_ERR_NOERROR;
    const int result = netsnmp_call_handlers(_registration, &_info, &_request);
    return result != SNMP_ERR_NOERROR ? result : _request.status;
  }

 private:
  netsnmp_variable_list _variable{};
  netsnmp_agent_request_info _info{};
  netsnmp_request_info _request{};
  netsnmp_handler_registration* _registration = nullptr;
};

/// All phases of a SET, as the library has them; with `undo` something else of the request fails in
/// the middle. The error of the first that fails, undoFailed before any other.
template <typename Perform>
int performAll(Perform perform, bool undo) {
  for (const int mode : {MODE_SET_RESERVE1, MODE_SET_RESERVE2}) {
    beginTurn();
    if (const int error = perform(mode); error != SNMP_ERR_NOERROR) {
      perform(MODE_SET_FREE);
      return error;
    }
  }
  const int error = perform(MODE_SET_ACTION);
  if (error != SNMP_ERR_NOERROR || undo) {
    if (perform(MODE_SET_UNDO) == SNMP_ERR_UNDOFAILED) return SNMP_ERR_UNDOFAILED;
  } else {
    perform(MODE_SET_COMMIT);
  }
  return error;
}

/// What was accepted is what a GET then shows. Decimal texts are left to their unit test.
void checkStrict(const Asked& asked, const Device& device, const SnmpDataBase& catalogue) {
  MUST(asked.type == static_cast<std::uint8_t>(asked.asnType));
  const AnswerValue answer = readAnswer(device.id, asked.asnType, catalogue);
  MUST(answer.valid());
  const unsigned method = asked.covMethod & 0xFFF;
  if (asked.isNumber()) {
    __extension__ using Number = __int128;
    const bool isSigned = asked.type == kAsnInteger;
    const auto low = static_cast<std::uint32_t>(asked.held());
    Number number = isSigned ? Number{static_cast<std::int32_t>(low)} : Number{low};
    for (unsigned times = method == 0 ? asked.covMethod >> 12 : 0; times > 0; --times) number *= 10;
    const std::uint32_t shown = answer.integer();
    MUST(number == (isSigned ? static_cast<std::int32_t>(shown) : std::int64_t{shown}));
  } else if (method != 4 && asked.type != kAsnCounter64) {
    MUST(Bytes(answer.bytes().begin(), answer.bytes().end()) == asked.value);
  }
}

}  // namespace

void run(Input input) {
  static Agent agent;
  const std::uint8_t flags = input.byte();
  const bool isStrict = (flags & 1) != 0;
  const_cast<Settings&>(Settings::get()).strictSet = isStrict;

  Asked asked;
  asked.isCell = (flags & 2) != 0;
  asked.number = input.byte() % (std::size(kTypes) * std::size(kMethods));
  asked.asnType = kTypes[asked.number / std::size(kMethods)];
  asked.covMethod = kMethods[asked.number % std::size(kMethods)];
  Device device;
  device.id = static_cast<std::uint16_t>(kFirst + asked.number);
  device.refuses = (flags & 4) != 0;
  device.attrLow = input.byte();
  device.kind = (flags >> 4) & 3;
  constexpr std::uint8_t kLengths[] = {4, 5, 7, 23, 67};
  device.objLen = (flags & 8) != 0 ? input.byte() : kLengths[input.byte() % 5];
  device.value = Bytes(device.objLen < 3 ? 0 : device.objLen - 3U, 'd');
  asked.type = (flags & 0x80) != 0 ? input.byte() : static_cast<std::uint8_t>(asked.asnType);
  asked.value = input.bytes(300);
  // The library makes values of these types whole.
  if (isInteger32(asked.type)) asked.value.resize(sizeof(long));
  if (asked.type == kAsnCounter64) asked.value.resize(sizeof(counter64));
  if (asked.type == kAsnObjectId)
    asked.value.resize(asked.value.size() / sizeof(oid) * sizeof(oid));

  Queues::get().sent = [&](int, const Bytes& request) { return device.answer(request); };
  const Device before = device;
  const bool undo = (flags & 0x40) != 0;
  Bytes value = asked.value;
  int error = SNMP_ERR_NOERROR;
  if (asked.isCell) {
    CellRequest request(asked, value);
    error = performAll([&](int mode) { return request.perform(mode); }, undo);
  } else {
    error = performAll([&](int mode) { return setScalar(asked, value, mode); }, undo);
  }
  MUST(value == asked.value);
  const bool isWhole = device.value.size() <= ObjValue::kValueSize;
  const bool mustBeBack = isStrict && (error != SNMP_ERR_NOERROR || undo);
  if (mustBeBack && error != SNMP_ERR_UNDOFAILED) MUST(device.value == before.value);
  MUST(error != SNMP_ERR_UNDOFAILED || device.refuses || !isWhole);
  if (isStrict && error == SNMP_ERR_NOERROR) MUST(device.writes == 1 + undo);
  if (isStrict && !undo && device.writes > 0 && !device.refuses) {
    checkStrict(asked, device, *agent.catalogue);
  }
}

}  // namespace norva::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
  return 0;
}
