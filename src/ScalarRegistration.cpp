#include "ScalarRegistration.h"

#include <algorithm>
#include <utility>

#include "AgentLibrary.h"
#include "Output.h"
#include "RegisteredObjects.h"
#include "ServedObjects.h"
#include "SnmpAgentX.h"

namespace norva {

namespace {

variable4 registrationEntry(const SnmpObjRecord& object) {
  variable4 entry{};
  entry.magic = object.magic;
  entry.type = static_cast<u_char>(object.info.asnType);
  entry.acl = object.info.access;
  entry.findVar = SnmpAgentX::read_Var;
  entry.namelen = kOidSuffixLength;
  std::copy(object.oidSuffix.begin(), object.oidSuffix.end(), entry.name);
  return entry;
}

}  // namespace

void registerScalars(std::vector<SnmpObjRecord>& objects, const std::vector<oid>& root) {
  if (objects.size() > kMaxScalars) {
    Output::print("%zu scalars are not served: no more than %zu can be registered\n",
                  objects.size() - kMaxScalars, kMaxScalars);
  }
  // The library stops at the first suffix it knows already and leaves all later entries out, so a
  // repeated one never reaches it.
  const std::vector<ScalarVerdict> verdicts = judgeScalars(objects);
  std::vector<variable4> entries;
  for (std::size_t i = 0; i < std::min(objects.size(), kMaxScalars); ++i) {
    SnmpObjRecord& object = objects[i];
    object.magic = static_cast<std::uint8_t>(i + 1);
    if (verdicts[i].state == ScalarState::kServed) {
      entries.push_back(registrationEntry(object));
      Oid place(root.begin(), root.end());
      place.insert(place.end(), object.oidSuffix.begin(), object.oidSuffix.end());
      RegisteredObjects::get().addScalar(std::move(place));
    } else if (verdicts[i].state == ScalarState::kSubIdentifier) {
      Output::print("scalar object 0x%04x is not served: a sub-identifier is above %u\n",
                    object.objId, kMaxSubIdentifier);
    } else {
      Output::print("scalar object 0x%04x is not served: object 0x%04x has the same OID\n",
                    object.objId, verdicts[i].owner);
    }
  }
  if (entries.empty()) return;
  registerVariables("repeaters", entries, root);
}

}  // namespace norva
