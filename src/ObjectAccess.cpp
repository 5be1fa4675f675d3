#include "ObjectAccess.h"

#include "DataManage.h"
#include "LibraryGate.h"
#include "Output.h"

namespace norva {

int readObject(ObjValue& record, const SnmpDataBase& catalogue, Presentation& presentation) {
  const LibraryGate::DeviceWait lend(LibraryGate::getInstance());
  return DataManage::getInstance()->getSnmpValue(record, catalogue, &presentation);
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

int writeObject(ObjValue& record, const SnmpDataBase& catalogue, const SetValue& value) {
  const LibraryGate::DeviceWait lend(LibraryGate::getInstance());
  return DataManage::getInstance()->setSnmpValue(record, catalogue, value.isAddress());
}

}  // namespace norva
