#include "SetValue.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>

#include "AsnType.h"
#include "ByteOrder.h"

namespace norva {

namespace {

// As the library declares them; its headers are not for what works without it.
using SubIdentifier = unsigned long;
struct Counter64 {
  unsigned long high, low;
};

/// The library's value of a type that it holds as a `Held`.
template <typename Held>
Held held(const void* value) {
  Held result{};
  std::memcpy(&result, value, sizeof result);
  return result;
}

}  // namespace

SetValue::SetValue(std::uint8_t asnType, const void* value, std::size_t length)
    : _bytes(static_cast<const std::uint8_t*>(value)),
      _size(length),
      _byteSize(length),
      _type(asnType) {
  constexpr std::size_t kUnitLong = 4;
  if (isInteger32(asnType) && length == sizeof(long)) {
    hold(static_cast<std::uint32_t>(held<long>(value)), kUnitLong);
  } else if (asnType == kAsnObjectId && length >= sizeof(SubIdentifier)) {
    // Its first sub-identifier is all that can be seen of it: it begins with a zero byte.
    hold(static_cast<std::uint32_t>(held<SubIdentifier>(value)),
         length / sizeof(SubIdentifier) * kUnitLong);
  } else if (asnType == kAsnCounter64 && length == sizeof(Counter64)) {
    const auto wide = held<Counter64>(value);
    _high = static_cast<std::uint32_t>(wide.high);
    hold(static_cast<std::uint32_t>(wide.low), 2 * kUnitLong);
  } else if (asnType == kAsnOpaqueFloat && length == sizeof(float)) {
    hold(std::bit_cast<std::uint32_t>(held<float>(value)), sizeof(float));
  } else if (asnType == kAsnOpaqueDouble && length == sizeof(double)) {
    const auto bits = std::bit_cast<std::uint64_t>(held<double>(value));
    hold(static_cast<std::uint32_t>(bits >> 32), sizeof(double));
    storeBe32(_converted.data() + kUnitLong, static_cast<std::uint32_t>(bits));
    _byteSize = sizeof(double);
  }
}

void SetValue::hold(std::uint32_t integer, std::size_t size) {
  storeBe32(_converted.data(), integer);
  _bytes = _converted.data();
  _size = size;
  _byteSize = sizeof integer;
}

bool SetValue::isNumber() const {
  return isInteger32(_type) || _type == kAsnCounter64;
}

bool SetValue::isAddress() const {
  return _type == kAsnIpAddress && _byteSize == 4;
}

std::int64_t SetValue::number() const {
  if (_type == kAsnInteger) return static_cast<std::int32_t>(integer());
  constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();
  return static_cast<std::int64_t>(std::min((std::uint64_t{_high} << 32) | integer(), kMost));
}

std::string_view SetValue::bytes() const {
  return {reinterpret_cast<const char*>(_bytes), _byteSize};
}

std::uint32_t SetValue::integer() const {
  std::uint8_t first[4] = {};
  if (_byteSize > 0) std::memcpy(first, _bytes, std::min(_byteSize, sizeof first));
  return loadBe32(first);
}

std::string_view SetValue::text() const {
  if (_byteSize == 0) return {};
  const char* start = reinterpret_cast<const char*>(_bytes);
  return {start, strnlen(start, _byteSize)};
}

}  // namespace norva
