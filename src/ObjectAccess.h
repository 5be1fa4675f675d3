// What the request handlers of scalars and of table cells have in common: one device object read
// and answered, or written, while the library gate is lent out. Main thread, inside a request
// handler.

#ifndef NORVA_OBJECT_ACCESS_H_
#define NORVA_OBJECT_ACCESS_H_

#include <cstdint>

#include "AnswerValue.h"
#include "DataManage.h"
#include "ObjValue.h"

namespace norva {

class SnmpDataBase;

/// To be called before each turn of the request loop. A manager's request waits for a silent unit
/// once: what is left to read or write in the turn in which a wait ran out fails at once.
void beginTurn();

/// What a GET of the object `objId` answers under the type `asnType`; not valid when it cannot be
/// read or, which is printed, when no value of the type can be made of it.
AnswerValue readAnswer(std::uint16_t objId, std::uint16_t asnType, const SnmpDataBase& catalogue);

/// As DataManage::getSnmpValue and setSnmpValue; -1 for a silent unit, too.
int readValue(ObjValue& record, const SnmpDataBase& catalogue,
              Presentation* presentation = nullptr);
int writeValue(ObjValue& record, const SnmpDataBase& catalogue, bool isAddress);

/// As DataManage::getObjValue and write, of the object that `record` names.
int readRaw(ObjValue& record);
WriteResult writeRaw(const ObjValue& record);

}  // namespace norva

#endif  // NORVA_OBJECT_ACCESS_H_
