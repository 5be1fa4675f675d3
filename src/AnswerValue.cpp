#include "AnswerValue.h"

#include <cstring>
#include <string_view>

#include "AgentLibrary.h"
#include "ObjInfo.h"

namespace norva {

namespace {

constexpr std::size_t kIpAddressSize = 4;

/// Whether a text of `size` bytes can be a value of a type that is no number.
bool canHoldText(std::uint8_t asnType, std::size_t size) {
  switch (asnType) {
    case ASN_OCTET_STR:
    case ASN_OPAQUE:
      return true;
    case ASN_IPADDRESS:
      return size == kIpAddressSize;
    default:
      return false;
  }
}

/// The number that the first bytes of a text, at most four, make on a big-endian processor.
std::uint32_t numberOf(std::string_view text) {
  std::uint32_t number = 0;
  for (const char c : text.substr(0, sizeof number)) {
    number = (number << 8) | static_cast<unsigned char>(c);
  }
  return number;
}

}  // namespace

AnswerValue::AnswerValue(std::uint16_t asnType, const ObjValue& record)
    : _type(static_cast<std::uint8_t>(asnType)) {
  if (asnType == kAsnInteger) {
    setInteger(record.integer32());
    return;
  }
  const std::string_view text = record.text();
  if (isHeldAsLong(_type)) {
    setInteger(numberOf(text));
    return;
  }
  _valid = canHoldText(_type, text.size());
  _size = text.size();
  std::memcpy(_bytes, text.data(), _size);
}

void AnswerValue::setInteger(std::uint32_t integer) {
  _valid = true;
  _size = sizeof integer;
  std::memcpy(_bytes, &integer, sizeof integer);
}

bool isHeldAsLong(std::uint8_t asnType) {
  switch (asnType) {
    case ASN_INTEGER:
    case ASN_COUNTER:
    case ASN_GAUGE:  // Unsigned32 has the same tag
    case ASN_TIMETICKS:
    case ASN_UINTEGER:
      return true;
    default:
      return false;
  }
}

}  // namespace norva
