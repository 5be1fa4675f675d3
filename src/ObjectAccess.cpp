#include "ObjectAccess.h"

#include "DataManage.h"
#include "LibraryGate.h"
#include "Output.h"

namespace norva {

namespace {

/// Main thread: the unit was silent in this turn of the request loop.
bool isSilent = false;

/// Runs one operation of the facade on `record`, unless the unit is silent. -1 when it fails.
template <typename Operation>
int withUnit(const ObjValue& record, Operation operation) {
  if (isSilent) {
    Output::print("object 0x%04x: not asked for, the unit is silent\n", record.oid());
    return -1;
  }
  DataManage& unit = *DataManage::getInstance();
  const unsigned before = unit.timeouts();
  const LibraryGate::DeviceWait lend(LibraryGate::getInstance());
  const int result = operation(unit);
  isSilent = result != 0 && unit.timeouts() != before;
  return result;
}

}  // namespace

void beginTurn() {
  isSilent = false;
}

int readObject(ObjValue& record, const SnmpDataBase& catalogue, Presentation& presentation) {
  return withUnit(record, [&](DataManage& unit) {
    return unit.getSnmpValue(record, catalogue, &presentation);
  });
}

AnswerValue answerFor(std::uint16_t asnType, const ObjValue& record, Presentation presentation) {
  const AnswerValue answer(asnType, record, presentation);
  if (!answer.valid()) {
    Output::print("object 0x%04x: its value, %s, is none of type 0x%02x\n", record.oid(),
                  presentation.form == Presentation::kInteger ? "an integer" : "a text",
                  answer.type());
  }
  return answer;
}

void setNumber(ObjValue& record, const SetValue& value) {
  record.clearValue();
  record.setInteger32(value.integer());
}

int readRaw(ObjValue& record) {
  return withUnit(record, [&](DataManage& unit) { return unit.getObjValue(record.oid(), record); });
}

WriteResult writeRaw(const ObjValue& record) {
  const bool wasSilent = isSilent;
  const int result =
      withUnit(record, [&](DataManage& unit) { return unit.setObjValue(record.oid(), record); });
  if (result == 0) return WriteResult::kDone;
  if (wasSilent) return WriteResult::kNotAsked;
  return isSilent ? WriteResult::kUnanswered : WriteResult::kRefused;
}

int writeObject(ObjValue& record, const SnmpDataBase& catalogue, const SetValue& value) {
  return withUnit(record, [&](DataManage& unit) {
    return unit.setSnmpValue(record, catalogue, value.isAddress());
  });
}

}  // namespace norva
