// What the request handlers of scalars and of table cells have in common: one device object read
// and answered, or written, while the library gate is lent out. Main thread, inside a request
// handler.

#ifndef NORVA_OBJECT_ACCESS_H_
#define NORVA_OBJECT_ACCESS_H_

#include <cstdint>

#include "AnswerValue.h"
#include "ObjValue.h"
#include "Presentation.h"
#include "SetValue.h"

namespace norva {

class SnmpDataBase;

/// To be called before each turn of the request loop. A manager's request waits for a silent unit
/// once: what is left to read or write in the turn in which a wait ran out fails at once.
void beginTurn();

/// As DataManage::getSnmpValue.
int readObject(ObjValue& record, const SnmpDataBase& catalogue, Presentation& presentation);

/// The answer of the type `asnType` for what readObject left in `record`; not valid, which is
/// printed, when no value of the type can be made of it.
AnswerValue answerFor(std::uint16_t asnType, const ObjValue& record, Presentation presentation);

/// Puts a number or an address into the zeroed value of `record`, as a 32-bit integer.
void setNumber(ObjValue& record, const SetValue& value);

/// As DataManage::setSnmpValue; `value` is what `record` was filled from.
int writeObject(ObjValue& record, const SnmpDataBase& catalogue, const SetValue& value);

/// As DataManage::getObjValue and setObjValue, of the object that `record` names. A write that the
/// unit has not answered may have been carried out; one that it was not asked for was not.
int readRaw(ObjValue& record);
enum class WriteResult { kDone, kRefused, kUnanswered, kNotAsked };
WriteResult writeRaw(const ObjValue& record);

}  // namespace norva

#endif  // NORVA_OBJECT_ACCESS_H_
