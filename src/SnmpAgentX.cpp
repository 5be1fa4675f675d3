#include "SnmpAgentX.h"

#include <algorithm>
#include <cstring>

#include "AnswerValue.h"
#include "DeviceForm.h"
#include "ObjValue.h"
#include "ObjectAccess.h"
#include "Output.h"
#include "ServedObjects.h"
#include "SetValue.h"
#include "Settings.h"
#include "SnmpDataBase.h"
#include "StrictSet.h"
#include "Trace.h"

namespace norva {

namespace {

/// What the handlers keep between calls.
struct HandlerState {
  std::vector<SnmpObjRecord> generalObjects;
  const SnmpDataBase* catalogue = nullptr;
  ObjMapping writable;     // the writable object that was looked up last
  ObjValue writeTemplate;  // zero but for object id and attribute word
  AnswerValue answer;      // handed to the library as the value of a GET
  StrictSet strictSet;
};

HandlerState& state() {
  static HandlerState instance;
  return instance;
}

/// Instance OID of a scalar: its registered name, then 0.
struct InstanceOid {
  oid name[MAX_OID_LEN + 1];
  size_t length;

  explicit InstanceOid(const struct variable& entry) : length(entry.namelen) {
    std::copy_n(entry.name, length, name);
    name[length++] = 0;
  }
};

/// The scalar that `name` (root, suffix, 0) names, if managers may write it, else null.
const SnmpObjRecord* findWritable(const oid* name, size_t nameLen) {
  if (nameLen < kOidSuffixLength + 1) return nullptr;
  const oid* suffix = name + nameLen - (kOidSuffixLength + 1);
  const auto& objects = state().generalObjects;
  const auto named = std::find_if(objects.begin(), objects.end(), [suffix](const auto& object) {
    return std::equal(object.oidSuffix.begin(), object.oidSuffix.end(), suffix);
  });
  if (named == objects.end() || !isScalarWritable(named->info.access)) return nullptr;
  return &*named;
}

/// A phase of a strict SET.
int setStrictly(int mode, const SetValue& value, const oid* name, size_t nameLen) {
  const SnmpObjRecord* object = findWritable(name, nameLen);
  if (object == nullptr) return SNMP_ERR_NOTWRITABLE;
  return state().strictSet.perform(mode, {name, name + nameLen},
                                   {object->objId, object->info.asnType, true}, value,
                                   *state().catalogue);
}

}  // namespace

std::vector<SnmpObjRecord>& SnmpAgentX::generalObjects() {
  return state().generalObjects;
}

void SnmpAgentX::setCatalogue(const SnmpDataBase& catalogue) {
  state().catalogue = &catalogue;
}

u_char* SnmpAgentX::read_Var(struct variable* vp, oid* name, size_t* length, int exact,
                             size_t* varLen, WriteMethod** writeMethod) {
  const InstanceOid instance(*vp);
  const int order = snmp_oid_compare(name, *length, instance.name, instance.length);
  if (exact != 0 ? order != 0 : order >= 0) return nullptr;
  if (exact == 0) std::copy_n(instance.name, instance.length, name);
  *length = instance.length;
  *writeMethod = nullptr;
  *varLen = sizeof(std::int32_t);

  const auto& objects = state().generalObjects;
  if (vp->magic == 0 || vp->magic > objects.size()) return nullptr;
  const SnmpObjRecord& object = objects[vp->magic - 1U];
  if (isScalarWritable(object.info.access)) {
    state().writable = {object.objId, object.info.attributes()};
    *writeMethod = writeObject;
  }

  AnswerValue& answer = state().answer;
  answer = readAnswer(object.objId, object.info.asnType, *state().catalogue);
  if (!answer.valid()) {
    Output::print("SnmpAgentX::read_Var  getObjValue ERROR  oid = %X !!!!!!!!!!!\n", object.objId);
    return nullptr;
  }
  *varLen = answer.size();
  return answer.data();
}

int SnmpAgentX::writeObject(int action, u_char* varVal, u_char varValType, size_t varValLen,
                            u_char* /*statP*/, oid* name, size_t nameLen) {
  const SetValue value(varValType, varVal, varValLen);
  if (Settings::get().strictSet) return setStrictly(action, value, name, nameLen);

  if (action != ACTION) return SNMP_ERR_NOERROR;
  // In a request with several scalars every one is looked up before the first is written.
  if (const SnmpObjRecord* named = findWritable(name, nameLen)) {
    state().writable = {named->objId, named->info.attributes()};
  }
  ObjValue& writeTemplate = state().writeTemplate;
  writeTemplate.setOid(state().writable.objId);
  writeTemplate.setAttr(state().writable.attributes.covMethod);

  ObjValue record = writeTemplate;
  if (!takeScalarValue(value, record) ||
      writeValue(record, *state().catalogue, value.isAddress()) == -1) {
    return SNMP_ERR_BADVALUE;
  }
  if (Trace::enabled()) {
    TraceLine line;
    line.text("set 'ACTION'  oid = ").hex(record.oid());
    line.text("   set length = ").decimal(static_cast<int>(value.size())).text("..\n").print();
  }
  return SNMP_ERR_NOERROR;
}

}  // namespace norva
