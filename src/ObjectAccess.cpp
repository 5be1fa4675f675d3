#include "ObjectAccess.h"

#include <optional>

#include "LibraryGate.h"
#include "Output.h"

namespace norva {

namespace {

/// Of the main thread's turn, since it first asked the unit.
std::optional<unsigned> timeoutsBefore;

/// Runs one operation of the facade on the object, unless the unit is silent: then `failed`.
template <typename Result, typename Operation>
Result withUnit(std::uint16_t objId, Result failed, Operation operation) {
  DataManage& unit = *DataManage::getInstance();
  if (!timeoutsBefore) timeoutsBefore = unit.timeouts();
  if (unit.isSilentSince(*timeoutsBefore, objId)) return failed;
  const LibraryGate::DeviceWait lend(LibraryGate::getInstance());
  return operation(unit);
}

}  // namespace

void beginTurn() {
  timeoutsBefore.reset();
}

AnswerValue readAnswer(std::uint16_t objId, std::uint16_t asnType, const SnmpDataBase& catalogue) {
  ObjValue record;
  record.setOid(objId);
  Presentation presentation;
  const bool isRead = readValue(record, catalogue, &presentation) != -1;
  const AnswerValue answer = isRead ? AnswerValue(asnType, record, presentation) : AnswerValue();
  if (isRead && !answer.valid()) {
    Output::print("object 0x%04x: its value, %s, is none of type 0x%02x\n", objId,
                  presentation.form == Presentation::kInteger ? "an integer" : "a text",
                  answer.type());
  }
  return answer;
}

int readValue(ObjValue& record, const SnmpDataBase& catalogue, Presentation* presentation) {
  return withUnit(record.oid(), -1, [&](DataManage& unit) {
    return unit.getSnmpValue(record, catalogue, presentation);
  });
}

int writeValue(ObjValue& record, const SnmpDataBase& catalogue, bool isAddress) {
  return withUnit(record.oid(), -1, [&](DataManage& unit) {
    return unit.setSnmpValue(record, catalogue, isAddress);
  });
}

int readRaw(ObjValue& record) {
  return withUnit(record.oid(), DataManage::kFailed,
                  [&](DataManage& unit) { return unit.getObjValue(record.oid(), record); });
}

WriteResult writeRaw(const ObjValue& record) {
  return withUnit(record.oid(), WriteResult::kNotAsked,
                  [&](DataManage& unit) { return unit.write(record.oid(), record); });
}

}  // namespace norva
