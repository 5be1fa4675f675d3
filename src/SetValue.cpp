#include "SetValue.h"

#include <algorithm>
#include <cstring>

#include "AgentLibrary.h"
#include "ByteOrder.h"

namespace norva {

namespace {

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

}  // namespace

SetValue::SetValue(std::uint8_t asnType, const void* value, std::size_t length)
    : _bytes(static_cast<const std::uint8_t*>(value)), _size(length) {
  if (!isHeldAsLong(asnType) || length != sizeof(long)) return;
  long integer = 0;
  std::memcpy(&integer, value, sizeof integer);
  storeBe32(_integerBytes.data(), static_cast<std::uint32_t>(integer));
  _bytes = _integerBytes.data();
  _size = _integerBytes.size();
}

std::uint32_t SetValue::integer() const {
  std::uint8_t first[4] = {};
  if (_size > 0) std::memcpy(first, _bytes, std::min(_size, sizeof first));
  return loadBe32(first);
}

std::string_view SetValue::text() const {
  if (_size == 0) return {};
  const char* start = reinterpret_cast<const char*>(_bytes);
  return {start, strnlen(start, _size)};
}

}  // namespace norva
