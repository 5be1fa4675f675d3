#include "ServedObjects.h"

#include <algorithm>
#include <map>

#include "SnmpObjConvertStrategy.h"

namespace norva {

std::vector<ScalarVerdict> judgeScalars(const std::vector<SnmpObjRecord>& scalars) {
  std::vector<ScalarVerdict> verdicts;
  verdicts.reserve(scalars.size());
  std::map<OidSuffix, std::uint16_t> owners;
  for (const SnmpObjRecord& scalar : scalars) {
    if (verdicts.size() >= kMaxScalars) {
      verdicts.push_back({ScalarState::kTooMany, 0});
      continue;
    }
    const auto [owner, isNew] = owners.try_emplace(scalar.oidSuffix, scalar.objId);
    verdicts.push_back({isNew ? ScalarState::kServed : ScalarState::kSameOid, owner->second});
  }
  return verdicts;
}

TablePlace placeTable(const std::string& node) {
  std::uint32_t subIdentifiers[kMaxNodeLength] = {};
  const std::uint32_t count = parseOidText(node.c_str(), subIdentifiers, kMaxNodeLength);
  const std::size_t stored = std::min<std::size_t>(count, kMaxNodeLength);
  return {{subIdentifiers, subIdentifiers + stored}, count};
}

}  // namespace norva
