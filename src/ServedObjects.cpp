#include "ServedObjects.h"

#include <algorithm>
#include <map>

#include "SnmpObjConvertStrategy.h"

namespace norva {

namespace {

template <typename SubIdentifiers>
bool inRange(const SubIdentifiers& oid) {
  return std::all_of(oid.begin(), oid.end(),
                     [](std::uint32_t number) { return number <= kMaxSubIdentifier; });
}

/// As many sub-identifiers of the text as there is room for, and how many it has.
template <std::size_t kCapacity>
TablePlace parse(const std::string& text) {
  std::uint32_t subIdentifiers[kCapacity] = {};
  const std::uint32_t count = parseOidText(text.c_str(), subIdentifiers, kCapacity);
  const std::size_t stored = std::min<std::size_t>(count, kCapacity);
  return {{subIdentifiers, subIdentifiers + stored}, count};
}

}  // namespace

bool isUsableRoot(const std::string& text) {
  const Oid root = parse<ObjValue::kValueSize>(text).oid;
  return !root.empty() && inRange(root);
}

bool TablePlace::hasRange() const {
  return inRange(oid);
}

std::vector<ScalarVerdict> judgeScalars(const std::vector<SnmpObjRecord>& scalars) {
  std::vector<ScalarVerdict> verdicts;
  verdicts.reserve(scalars.size());
  std::map<OidSuffix, std::uint16_t> owners;
  for (const SnmpObjRecord& scalar : scalars) {
    if (verdicts.size() >= kMaxScalars) {
      verdicts.push_back({ScalarState::kTooMany, 0});
      continue;
    }
    if (!inRange(scalar.oidSuffix)) {
      verdicts.push_back({ScalarState::kSubIdentifier, 0});
      continue;
    }
    const auto [owner, isNew] = owners.try_emplace(scalar.oidSuffix, scalar.objId);
    verdicts.push_back({isNew ? ScalarState::kServed : ScalarState::kSameOid, owner->second});
  }
  return verdicts;
}

TablePlace placeTable(const std::string& node) {
  return parse<kMaxNodeLength>(node);
}

bool isWithin(const Oid& oid, const Oid& other) {
  return oid.size() >= other.size() && std::equal(other.begin(), other.end(), oid.begin());
}

}  // namespace norva
