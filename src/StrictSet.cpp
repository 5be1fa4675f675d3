#include "StrictSet.h"

#include "ObjInfo.h"
#include "ObjectProtocol.h"
#include "Output.h"
#include "SnmpDataBase.h"
#include "StrictValue.h"

namespace norva {

int StrictSet::perform(int mode, const Name& name, const Target& target, const SetValue& value,
                       const SnmpDataBase& catalogue) {
  int error = SNMP_ERR_NOERROR;
  switch (mode) {
    case MODE_SET_RESERVE1:
      error = check(name, target, value, catalogue);
      break;
    case MODE_SET_ACTION:
      error = write(name);
      break;
    case MODE_SET_UNDO:
      error = undo(name);
      _writes.erase(name);
      break;
    case MODE_SET_COMMIT:
    case MODE_SET_FREE:
      _writes.erase(name);
      break;
    default:
      break;
  }
  if (error != SNMP_ERR_NOERROR) {
    Output::print("set of object 0x%04x refused: %s\n", target.objId,
                  error == SNMP_ERR_RESOURCEUNAVAILABLE
                      ? "resourceUnavailable (the unit does not give the object)"
                      : snmp_errstring(error));
  }
  return error;
}

int StrictSet::check(const Name& name, const Target& target, const SetValue& value,
                     const SnmpDataBase& catalogue) {
  if (!target.writable) return SNMP_ERR_NOTWRITABLE;
  Write prepared;
  prepared.before.setOid(target.objId);
  ObjAttributes mapping;
  if (readRaw(prepared.before) != 0 || catalogue.findAttributes(target.objId, mapping) != 0) {
    return SNMP_ERR_RESOURCEUNAVAILABLE;
  }
  if (!prepared.before.writable()) return SNMP_ERR_NOTWRITABLE;
  const int error =
      encodeStrictly(value, target.asnType, mapping.covMethod, prepared.before, prepared.after);
  if (error != kNoError) return error;
  turnForWriting(prepared.before);
  _writes[name] = prepared;
  return SNMP_ERR_NOERROR;
}

int StrictSet::write(const Name& name) {
  const auto prepared = _writes.find(name);
  if (prepared == _writes.end()) return SNMP_ERR_COMMITFAILED;
  Write& write = prepared->second;
  write.result = writeRaw(write.after);
  return write.result == WriteResult::kDone ? SNMP_ERR_NOERROR : SNMP_ERR_COMMITFAILED;
}

int StrictSet::undo(const Name& name) {
  const auto written = _writes.find(name);
  if (written == _writes.end()) return SNMP_ERR_NOERROR;
  const Write& write = written->second;
  if (write.result == WriteResult::kRefused || write.result == WriteResult::kNotAsked) {
    return SNMP_ERR_NOERROR;
  }
  // The acknowledgement that was not waited for must not be taken for this write's: a read comes
  // behind it.
  ObjValue present = write.before;
  if (write.result == WriteResult::kUnanswered && readRaw(present) != 0) {
    return SNMP_ERR_UNDOFAILED;
  }
  const bool isUndone = writeRaw(write.before) == WriteResult::kDone;
  // A record holds the first bytes of a wider field's text: of one that goes on the rest is lost.
  constexpr std::size_t kWhole = kObjLenOverhead + ObjValue::kValueSize;
  const bool isWhole =
      write.before.objLen() <= kWhole || write.before.text().size() < ObjValue::kValueSize;
  return isUndone && isWhole ? SNMP_ERR_NOERROR : SNMP_ERR_UNDOFAILED;
}

}  // namespace norva
