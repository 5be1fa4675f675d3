#include "DeviceForm.h"

#include "AsnType.h"
#include "ObjValue.h"
#include "ObjectProtocol.h"
#include "SetValue.h"
#include "SnmpObjConvertStrategy.h"

namespace norva {

namespace {

bool isIntegerLength(std::uint8_t objLen) {
  return objLen == kObjLenByte || objLen == kObjLenShort || objLen == kObjLenLong;
}

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

/// The reverse: cuts the 32-bit integer to the width of the record's `objLen`.
bool narrowInteger(ObjValue& record) {
  const std::uint32_t integer = record.integer32();
  switch (record.objLen()) {
    case kObjLenByte:
      record.setInteger32((integer & 0xFF) << 24);
      return true;
    case kObjLenShort:
      record.setInteger32((integer & 0xFFFF) << 16);
      return true;
    case kObjLenLong:
      return true;
    default:
      return false;
  }
}

Presentation::Form presentationForm(ValueKind kind, std::uint16_t covMethod) {
  if (SnmpObjConvertStrategy::makesText(covMethod)) return Presentation::kMadeText;
  return kind == ValueKind::kText ? Presentation::kTextField : Presentation::kInteger;
}

/// Brings the address in `record` into the form of the text field.
void toTextField(const SnmpObjConvertStrategy& strategy, ObjValue& record) {
  const std::uint8_t objLen = record.objLen();
  if (objLen == kObjLenLong) {
    turnForWriting(record);  // a read is to give the address itself
  } else {
    strategy.toIpText(record);
    record.setObjLen(objLen);
  }
}

void takeNumber(const SetValue& value, ObjValue& record) {
  record.clearValue();
  record.setInteger32(value.integer());
}

}  // namespace

int toManager(const SnmpObjConvertStrategy& strategy, std::uint16_t covMethod, ObjValue& record,
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
    case ValueKind::kOther:  // deliberate: not widened
      if (!isIntegerLength(record.objLen())) return -1;
      break;
  }
  presentation = {presentationForm(record.kind(), covMethod), deviceLen};
  return strategy.convertToSnmp(covMethod, record);
}

int toDevice(const SnmpObjConvertStrategy& strategy, std::uint16_t covMethod,
             const ObjValue& current, bool isAddress, ObjValue& record) {
  record.setObjLen(current.objLen());
  record.setAttr(current.attr());  // the device knows whether the integer is signed
  const bool isText = current.kind() == ValueKind::kText;
  if (isAddress && isText) toTextField(strategy, record);
  if (strategy.convertToObj(covMethod, record) == -1) return -1;
  const bool fits =
      isText ? record.text().size() + kObjLenOverhead <= current.objLen() : narrowInteger(record);
  return fits ? 0 : -1;
}

bool takeScalarValue(const SetValue& value, ObjValue& record) {
  if (value.isNumber() || value.isAddress()) {
    takeNumber(value, record);
    return true;
  }
  const std::string_view text = value.text();
  if (text.size() > ObjValue::kValueSize) return false;
  record.setText(text);
  return true;
}

void takeCellValue(const SetValue& value, std::uint16_t asnType, ObjValue& record) {
  const auto tag = static_cast<std::uint8_t>(asnType);
  const bool isOfText = !isInteger32(tag) && tag != kAsnCounter64 && tag != kAsnIpAddress;
  if (asnType == kAsnInteger && !value.isAddress()) {
    record.setInteger32(value.integer());
  } else if (value.type() == kAsnInteger ? !isOfText : value.isNumber() || value.isAddress()) {
    takeNumber(value, record);
  } else {
    record.setText(value.text());
  }
}

}  // namespace norva
