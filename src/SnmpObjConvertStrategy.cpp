#include "SnmpObjConvertStrategy.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <string>

namespace norva {

namespace {

/// The record's 32-bit integer, signed for a signed object; float or double.
template <typename Real>
Real integerAs(const ObjValue& record) {
  const std::uint32_t integer = record.integer32();
  return record.kind() == ValueKind::kSigned ? static_cast<Real>(static_cast<std::int32_t>(integer))
                                             : static_cast<Real>(integer);
}

double timesPowerOfTen(double number, unsigned exponent) {
  for (; exponent > 0; --exponent) number *= 10.0;
  return number;
}

float dividedByPowerOfTen(float number, unsigned exponent) {
  for (; exponent > 0; --exponent) number /= 10.0F;
  return number;
}

/// Truncates toward zero; a negative number gives its two's-complement pattern. Saturates.
std::uint32_t truncateToUnsigned32(double number) {
  if (number < 0) {
    if (number <= std::numeric_limits<std::int32_t>::min()) return 0x80000000U;
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(number));
  }
  if (number >= std::numeric_limits<std::uint32_t>::max()) return 0xFFFFFFFFU;
  return static_cast<std::uint32_t>(number);
}

/// The number at the start of `text` as on the unit, where a long has 32 bits: a negative one
/// modulo 2^32, one of more bits as the largest.
std::uint32_t subIdentifier(const char* text) {
  constexpr long long kMost = 0xFFFFFFFF;
  const long long number = std::strtoll(text, nullptr, 10);
  return static_cast<std::uint32_t>(number < -kMost || number > kMost ? kMost : number);
}

}  // namespace

int SnmpObjConvertStrategy::convertToSnmp(std::uint16_t covMethod, ObjValue& record) const {
  switch (methodOf(covMethod)) {
    case ConversionMethod::kIpText:
    case ConversionMethod::kIpTextToo:
      return toIpText(record);
    case ConversionMethod::kTimeText:
      return toTimeText(record);
    case ConversionMethod::kFixedText:
      return toFixedText(covMethod, record);
    case ConversionMethod::kLowHalf:
      record.setInteger32(record.integer32() & 0xFFFF);
      return 0;
    default:
      return 0;
  }
}

int SnmpObjConvertStrategy::convertToObj(std::uint16_t covMethod, ObjValue& record) const {
  switch (methodOf(covMethod)) {
    case ConversionMethod::kScaledInteger:
      if (record.kind() != ValueKind::kText) scaleUp(covMethod, record);
      return 0;
    case ConversionMethod::kFixedText:
      return fromDecimalText(covMethod, record);
    default:
      return 0;
  }
}

bool SnmpObjConvertStrategy::makesText(std::uint16_t covMethod) {
  switch (methodOf(covMethod)) {
    case ConversionMethod::kIpText:
    case ConversionMethod::kIpTextToo:
    case ConversionMethod::kTimeText:
    case ConversionMethod::kFixedText:
      return true;
    default:
      return false;
  }
}

int SnmpObjConvertStrategy::toIpText(ObjValue& record) const {
  char text[ObjValue::kValueSize] = {};
  const std::uint8_t* value = record.value();
  const int length =
      std::snprintf(text, sizeof text, "%d.%d.%d.%d", value[0], value[1], value[2], value[3]);
  record.setText(text);
  record.setObjLen(static_cast<std::uint8_t>(length));
  return 0;
}

int SnmpObjConvertStrategy::toTimeText(ObjValue& record) const {
  const std::time_t now = std::time(nullptr);
  // The library formats times of its own, so no shared result; a new time zone counts at once.
  tzset();
  std::tm local{};
  localtime_r(&now, &local);
  char text[ObjValue::kValueSize] = {};
  const int length =
      std::snprintf(text, sizeof text, "%d:%d:%d %d/%d/%d", local.tm_hour, local.tm_min,
                    local.tm_sec, local.tm_mon + 1, local.tm_mday, local.tm_year + 1900);
  record.setText(text);
  record.setObjLen(static_cast<std::uint8_t>(length + kObjLenOverhead));
  return 0;
}

int SnmpObjConvertStrategy::toFixedText(std::uint16_t covMethod, ObjValue& record) const {
  const float number = dividedByPowerOfTen(integerAs<float>(record), exponentOf(covMethod));
  char text[ObjValue::kValueSize] = {};
  const int length = std::snprintf(text, sizeof text, "%.2f", static_cast<double>(number));
  record.setText(text);
  record.setObjLen(static_cast<std::uint8_t>(length));
  return 0;
}

int SnmpObjConvertStrategy::scaleUp(std::uint16_t covMethod, ObjValue& record) const {
  if (record.kind() == ValueKind::kText) return -1;
  const double product = timesPowerOfTen(integerAs<double>(record), exponentOf(covMethod));
  record.setInteger32(truncateToUnsigned32(product));
  return 0;
}

int SnmpObjConvertStrategy::scaleDown(std::uint16_t covMethod, ObjValue& record) const {
  if (record.kind() == ValueKind::kText) return -1;
  const float quotient = dividedByPowerOfTen(integerAs<float>(record), exponentOf(covMethod));
  record.setInteger32(truncateToUnsigned32(static_cast<double>(quotient)));
  return 0;
}

int SnmpObjConvertStrategy::fromDecimalText(std::uint16_t covMethod, ObjValue& record) const {
  const std::string text(record.text());
  if (isDecimalText(text.c_str()) != 0) return -1;
  const auto number = static_cast<double>(parseDecimal(text.c_str(), nullptr));
  record.setInteger32(truncateToUnsigned32(timesPowerOfTen(number, exponentOf(covMethod))));
  return 0;
}

int SnmpObjConvertStrategy::isDecimalText(const char* text) {
  const std::size_t length = strnlen(text, ObjValue::kValueSize);
  if (length == 0) return -1;
  for (std::size_t i = 0; i < length; ++i) {
    if (!isDigit(text[i]) && text[i] != '.') return -1;
  }
  return 0;
}

float parseDecimal(const char* text, const char** end) {
  if (text == nullptr) return 0;
  while (std::isspace(static_cast<unsigned char>(*text)) != 0) ++text;
  float sign = 1.0F;
  if (*text == '-') {
    sign = -1.0F;
    ++text;
  }
  // Single precision with fused multiply-adds, as the unit's processor computes it: the last digit
  // of what reaches the device depends on it.
  float number = 0;
  for (; isDigit(*text); ++text) {
    number = std::fma(number, 10.0F, static_cast<float>(*text - '0'));
  }
  if (*text == '.') {
    float scale = 1.0F;
    for (++text; isDigit(*text); ++text) {
      scale = static_cast<float>(static_cast<double>(scale) * 0.1);
      number = std::fma(static_cast<float>(*text - '0'), scale, number);
    }
  }
  if (end != nullptr) *end = text;
  return sign * number;
}

std::uint32_t parseOidText(const char* text, std::uint32_t* oidOut) {
  return parseOidText(text, oidOut, std::numeric_limits<std::size_t>::max());
}

std::uint32_t parseOidText(const char* text, std::uint32_t* oidOut, std::size_t capacity) {
  if (text == nullptr || oidOut == nullptr) return 0xFFFFFFFFU;
  std::uint32_t count = 0;
  for (const char* dot = std::strchr(text, '.'); dot != nullptr; dot = std::strchr(dot + 1, '.')) {
    if (count < capacity) oidOut[count] = subIdentifier(dot + 1);
    ++count;
  }
  return count;
}

}  // namespace norva
