#include "OidPrefix.h"

#include <cstdint>

#include "DataManage.h"
#include "ObjInfo.h"
#include "ObjValue.h"
#include "Output.h"
#include "ServedObjects.h"
#include "SnmpObjConvertStrategy.h"

namespace norva {

namespace {

// No text is longer than a root that leaves room for a suffix and the instance.
static_assert(ObjValue::kValueSize <= MAX_OID_LEN - kOidSuffixLength - 1);

std::vector<oid> parseRoot(const std::string& text) {
  std::uint32_t subIdentifiers[ObjValue::kValueSize];
  const std::uint32_t count = parseOidText(text.c_str(), subIdentifiers, ObjValue::kValueSize);
  return {subIdentifiers, subIdentifiers + count};
}

bool isUsable(const std::string& text) {
  if (isUsableRoot(text)) return true;
  Output::print("object 0x%04x holds no usable OID, the fixed root is used\n", kObjOidPrefix);
  return false;
}

}  // namespace

std::vector<oid> readScalarRoot() {
  ObjValue record;
  if (DataManage::getInstance()->getObjValue(kObjOidPrefix, record) != 0) {
    return parseRoot(kFixedRoot);
  }
  const std::string text(record.text());
  Output::print("MasterAgent::initNormalObj root_variables_oid=%s\n", text.c_str());
  return parseRoot(isUsable(text) ? text : kFixedRoot);
}

std::string readTablePrefix() {
  ObjValue record;
  if (DataManage::getInstance()->getObjValue(kObjOidPrefix, record) != 0) {
    Output::print("object 0x%04x cannot be read, the fixed root is used\n", kObjOidPrefix);
    return kFixedRoot;
  }
  const std::string text(record.text());
  return isUsable(text) ? text : kFixedRoot;
}

}  // namespace norva
