#include "Presentation.h"

#include "ObjValue.h"
#include "SnmpObjConvertStrategy.h"

namespace norva {

namespace {

/// Widens the value of a 1- or 2-byte integer object to 32 bits. False for a length that is none of
/// an integer.
bool widenInteger(ObjValue& record) {
  const bool isSigned = record.kind() == ValueKind::kSigned;
  switch (record.objLen()) {
    case kObjLenByte: {
      const std::uint8_t byte = record.value()[0];
      record.setInteger32(isSigned ? static_cast<std::uint32_t>(static_cast<std::int8_t>(byte))
                                   : byte);
      break;
    }
    case kObjLenShort: {
      const std::uint16_t word = record.integer16();
      record.setInteger32(isSigned ? static_cast<std::uint32_t>(static_cast<std::int16_t>(word))
                                   : word);
      break;
    }
    case kObjLenLong:
      break;
    default:
      return false;
  }
  record.setObjLen(kObjLenLong);
  return true;
}

Presentation::Form presentationForm(ValueKind kind, std::uint16_t covMethod) {
  if (SnmpObjConvertStrategy::makesText(covMethod)) return Presentation::kMadeText;
  return kind == ValueKind::kText ? Presentation::kTextField : Presentation::kInteger;
}

}  // namespace

int present(const SnmpObjConvertStrategy& strategy, std::uint16_t covMethod, ObjValue& record,
            Presentation& presentation) {
  const std::uint8_t deviceLen = record.objLen();
  switch (record.kind()) {
    case ValueKind::kText:
      record.setObjLen(static_cast<std::uint8_t>(record.text().size() + kObjLenOverhead));
      break;
    case ValueKind::kUnsigned:
    case ValueKind::kSigned:
      if (!widenInteger(record)) return -1;
      break;
    case ValueKind::kOther:
      break;
  }
  presentation = {presentationForm(record.kind(), covMethod), deviceLen};
  return strategy.convertToSnmp(covMethod, record);
}

}  // namespace norva
