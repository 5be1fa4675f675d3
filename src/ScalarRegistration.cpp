#include "ScalarRegistration.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <map>
#include <string>

#include "AgentLibrary.h"
#include "DataManage.h"
#include "ObjValue.h"
#include "SnmpAgentX.h"
#include "SnmpObjConvertStrategy.h"

namespace norva {

namespace {

constexpr oid kFixedRoot[] = {1, 3, 6, 1, 4, 1, 53412, 8, 2, 2, 4};

/// Longest root that leaves room for a suffix and the instance in an OID of the library.
constexpr std::size_t kMaxRootLength = MAX_OID_LEN - kOidSuffixLength - 1;

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

std::vector<oid> readScalarRoot() {
  const std::vector<oid> fixedRoot(std::begin(kFixedRoot), std::end(kFixedRoot));
  ObjValue record;
  if (DataManage::getInstance()->getObjValue(kObjOidPrefix, record) != 0) return fixedRoot;
  const std::string text(record.text());
  std::printf("MasterAgent::initNormalObj root_variables_oid=%s\n", text.c_str());

  std::uint32_t subIdentifiers[kMaxRootLength];
  const std::uint32_t count = parseOidText(text.c_str(), subIdentifiers, kMaxRootLength);
  if (count == 0 || count > kMaxRootLength) {
    std::printf("object 0x%04x holds no usable OID, the fixed root is used\n", kObjOidPrefix);
    return fixedRoot;
  }
  return {subIdentifiers, subIdentifiers + count};
}

void registerScalars(std::vector<SnmpObjRecord>& objects, const std::vector<oid>& root) {
  const std::size_t served = std::min(objects.size(), kMaxScalars);
  if (served < objects.size()) {
    std::printf("%zu scalars are not served: no more than %zu can be registered\n",
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
      std::printf("scalar object 0x%04x is not served: object 0x%04x has the same OID\n",
                  object.objId, first->second);
      continue;
    }
    entries.push_back(registrationEntry(object));
  }
  if (entries.empty()) return;
  // Entries of any name length are taken by their size; the library copies them.
  register_mib("repeaters", reinterpret_cast<struct variable*>(entries.data()),
               sizeof(struct variable4), entries.size(), root.data(), root.size());
}

}  // namespace norva
