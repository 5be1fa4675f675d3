#include "StrictValue.h"

#include <arpa/inet.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "AnswerValue.h"
#include "AsnType.h"
#include "ObjectProtocol.h"
#include "SnmpObjConvertStrategy.h"

namespace norva {

namespace {

/// Wide enough for every number that a request carries and, ten times it, every one a device holds.
using Number = std::int64_t;
constexpr Number kTooLarge = std::numeric_limits<Number>::max() / 100;

/// Stops growing when no field holds the number any more.
Number timesTen(Number number) {
  return number > kTooLarge || number < -kTooLarge ? number : number * 10;
}

Number scaled(Number number, unsigned exponent) {
  for (; exponent > 0; --exponent) number = timesTen(number);
  return number;
}

/// The decimal number that is the whole text, times 10^exponent, if that is an integer.
std::optional<Number> parseScaled(std::string_view text, unsigned exponent) {
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  const std::size_t point = std::min(text.find('.'), text.size());
  const std::string_view whole = text.substr(0, point);
  std::string_view decimals = text.substr(std::min(point + 1, text.size()));
  while (decimals.ends_with('0')) decimals.remove_suffix(1);
  const bool hasDigits = std::any_of(text.begin(), text.end(), isDigit);
  if (!hasDigits || decimals.size() > exponent) return {};

  Number number = 0;
  for (const std::string_view digits : {whole, decimals}) {
    for (const char c : digits) {
      if (!isDigit(c)) return {};
      number = timesTen(number) + (c - '0');
    }
  }
  number = scaled(number, exponent - static_cast<unsigned>(decimals.size()));
  return isNegative ? -number : number;
}

/// Stores the number in the width and sign of `record`.
StrictError storeNumber(Number number, ObjValue& record) {
  if (record.kind() == ValueKind::kText) return kWrongValue;
  const int bits = 8 * (record.objLen() - kObjLenOverhead);
  const bool isSigned = record.kind() == ValueKind::kSigned;
  const Number end = Number{1} << (isSigned ? bits - 1 : bits);
  if (number >= end || number < (isSigned ? -end : 0)) return kWrongValue;
  record.clearValue();
  record.setInteger32(static_cast<std::uint32_t>(number) << (32 - bits));
  return kNoError;
}

StrictError storeText(std::string_view text, ObjValue& record) {
  if (text.size() + kObjLenOverhead > record.objLen()) return kWrongLength;
  record.setText(text);
  return kNoError;
}

StrictError storeAddress(std::uint32_t address, ObjValue& record) {
  if (record.objLen() == kObjLenLong) {
    record.clearValue();
    record.setInteger32(address);
    return kNoError;
  }
  if (record.kind() != ValueKind::kText) return kWrongValue;
  ObjValue dotted;
  dotted.setInteger32(address);
  SnmpObjConvertStrategy().toIpText(dotted);
  return storeText(dotted.text(), record);
}

StrictError storeTextOf(std::string_view text, std::uint16_t covMethod, ObjValue& record) {
  if (text.size() > ObjValue::kValueSize) return kWrongLength;
  const bool isText = record.kind() == ValueKind::kText;
  switch (methodOf(covMethod)) {
    case ConversionMethod::kFixedText:
      if (const auto number = parseScaled(text, exponentOf(covMethod)); number && !isText) {
        return storeNumber(*number, record);
      }
      break;
    case ConversionMethod::kIpText:
    case ConversionMethod::kIpTextToo:
      if (in_addr address{}; record.objLen() == kObjLenLong &&
                             inet_pton(AF_INET, std::string(text).c_str(), &address) == 1) {
        return storeAddress(ntohl(address.s_addr), record);
      }
      break;
    default:
      break;
  }
  return isText ? storeText(text, record) : kWrongValue;
}

/// The number as the device has it.
Number deviceNumber(const SetValue& value, std::uint16_t covMethod) {
  const bool isScaled = methodOf(covMethod) == ConversionMethod::kScaledInteger;
  return isScaled ? scaled(value.number(), exponentOf(covMethod)) : value.number();
}

/// Whether a GET of the device's `record` shows `value`: the same number, decimal or, where the
/// mapping scales it, scaled; of anything else the same bytes.
bool readsBack(const SetValue& value, std::uint16_t asnType, std::uint16_t covMethod,
               const ObjValue& record) {
  const AnswerValue answer = answerFor(asnType, covMethod, record);
  if (!answer.valid()) return false;
  if (value.isNumber()) {
    const std::uint32_t shown = answer.integer();
    const bool isSigned = answer.type() == kAsnInteger;
    return deviceNumber(value, covMethod) ==
           (isSigned ? Number{static_cast<std::int32_t>(shown)} : Number{shown});
  }
  if (methodOf(covMethod) == ConversionMethod::kFixedText && !value.isAddress()) {
    const auto shown = parseScaled(answer.bytes(), exponentOf(covMethod));
    return shown && shown == parseScaled(value.bytes(), exponentOf(covMethod));
  }
  return answer.bytes() == value.bytes();
}

}  // namespace

StrictError encodeStrictly(const SetValue& value, std::uint16_t asnType, std::uint16_t covMethod,
                           const ObjValue& current, ObjValue& written) {
  if (value.type() != static_cast<std::uint8_t>(asnType)) return kWrongType;
  written = current;
  StrictError error = kWrongType;
  if (value.isNumber()) {
    error = storeNumber(deviceNumber(value, covMethod), written);
  } else if (value.isAddress()) {
    error = storeAddress(value.integer(), written);
  } else if (value.type() == kAsnOctetString || value.type() == kAsnOpaque) {
    error = storeTextOf(value.bytes(), covMethod, written);
  }
  if (error == kNoError && !readsBack(value, asnType, covMethod, written)) error = kWrongValue;
  turnForWriting(written);
  return error;
}

}  // namespace norva
