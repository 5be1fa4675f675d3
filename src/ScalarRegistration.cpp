#include "ScalarRegistration.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>

#include "AgentLibrary.h"
#include "Output.h"
#include "SnmpAgentX.h"

namespace norva {

namespace {

/// The registration index has 8 bits; 0 is no object.
constexpr std::size_t kMaxScalars = std::numeric_limits<std::uint8_t>::max();

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
  const std::size_t served = std::min(objects.size(), kMaxScalars);
  if (served < objects.size()) {
    Output::print("%zu scalars are not served: no more than %zu can be registered\n",
                  objects.size() - served, kMaxScalars);
  }
  // The library stops at the first suffix it knows already and leaves all later entries out, so a
  // repeated one never reaches it.
  std::map<OidSuffix, std::uint16_t> registered;
  std::vector<variable4> entries;
  for (std::size_t i = 0; i < served; ++i) {
    SnmpObjRecord& object = objects[i];
    object.magic = static_cast<std::uint8_t>(i + 1);
    const auto [first, isNew] = registered.try_emplace(object.oidSuffix, object.objId);
    if (!isNew) {
      Output::print("scalar object 0x%04x is not served: object 0x%04x has the same OID\n",
                    object.objId, first->second);
      continue;
    }
    entries.push_back(registrationEntry(object));
  }
  if (entries.empty()) return;
  registerVariables("repeaters", entries, root);
}

}  // namespace norva
