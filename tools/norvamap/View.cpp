#include "View.h"

#include <algorithm>

#include "AnswerValue.h"
#include "AsnType.h"
#include "Format.h"
#include "Text.h"

namespace norva::mapping {

namespace {

ObjValue probe(ValueKind kind, std::uint8_t objLen, std::string_view value) {
  ObjValue record;
  record.setAttr(static_cast<std::uint16_t>(static_cast<unsigned>(kind) << 8));
  record.setObjLen(objLen);
  record.setText(value);
  return record;
}

std::string valueText(const AnswerValue& answer) {
  const std::uint8_t* bytes = answer.data();
  switch (answer.type()) {
    case kAsnOctetString:
    case kAsnOpaque:
      return inQuotes(answer.bytes());
    case kAsnIpAddress:
      return format("%d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]);
    default:
      break;
  }
  const std::uint32_t integer = answer.integer();
  return answer.type() == kAsnInteger ? std::to_string(static_cast<std::int32_t>(integer))
                                      : std::to_string(integer);
}

}  // namespace

const char* typeName(std::uint16_t asnType) {
  switch (asnType & 0xFF) {
    case kAsnInteger:
      return "INTEGER";
    case kAsnOctetString:
      return "OCTET STRING";
    case kAsnIpAddress:
      return "IpAddress";
    case kAsnCounter32:
      return "Counter32";
    case kAsnGauge32:
      return "Gauge32";
    case kAsnTimeTicks:
      return "TimeTicks";
    case kAsnOpaque:
      return "Opaque";
    case kAsnCounter64:
      return "Counter64";
    default:
      return nullptr;
  }
}

std::string describeType(std::uint16_t asnType) {
  const char* const name = typeName(asnType);
  return name != nullptr ? name : format("no type (0x%02x)", asnType);
}

std::string describeMethod(std::uint16_t covMethod) {
  const unsigned exponent = exponentOf(covMethod);
  switch (static_cast<ConversionMethod>(methodOf(covMethod))) {
    case ConversionMethod::kScaledInteger:
      return exponent == 0 ? "as it is" : format("SET x 10^%u", exponent);
    case ConversionMethod::kIpText:
    case ConversionMethod::kIpTextToo:
      return "IPv4 address as text";
    case ConversionMethod::kTimeText:
      return "clock of the agent as text";
    case ConversionMethod::kFixedText:
      return format("/ 10^%u as text", exponent);
    case ConversionMethod::kLowHalf:
      return "low 16 bits";
    default:
      return "as it is";
  }
}

View viewOf(const ObjValue& record, std::uint16_t asnType, std::uint16_t covMethod) {
  const AnswerValue answer = answerFor(asnType, covMethod, record);
  if (!answer.valid()) return {};
  return {true, valueText(answer)};
}

bool canBeAnswered(std::uint16_t asnType, std::uint16_t covMethod) {
  const ObjValue probes[] = {
      probe(ValueKind::kUnsigned, kObjLenLong, "1234"),
      probe(ValueKind::kText, kObjLenText20, "10.0.1.7"),
  };
  return std::any_of(std::begin(probes), std::end(probes), [&](const ObjValue& record) {
    return viewOf(record, asnType, covMethod).isAnswered;
  });
}

std::string inQuotes(std::string_view bytes) {
  return dasunit::encodeText(bytes);
}

}  // namespace norva::mapping
