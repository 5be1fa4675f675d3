#include "SetValue.h"

#include <algorithm>
#include <cstring>

#include "AnswerValue.h"
#include "ByteOrder.h"

namespace norva {

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
