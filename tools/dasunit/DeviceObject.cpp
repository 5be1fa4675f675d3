#include "DeviceObject.h"

#include <algorithm>

#include "ByteOrder.h"

namespace norva::dasunit {

namespace {

/// Indexed by ValueKind.
constexpr std::array<std::string_view, 4> kKindWords = {"unsigned", "signed", "text", "other"};

std::uint8_t checkedWidth(ValueKind kind, std::int64_t width) {
  if (kind == ValueKind::kText) {
    if (width < 1 || width > static_cast<std::int64_t>(ObjValue::kValueSize)) {
      throw InputError("the width of a text is 1 to 64 bytes, not " + std::to_string(width));
    }
  } else if (width != 1 && width != 2 && width != 4) {
    throw InputError("the width of an integer is 1, 2 or 4 bytes, not " + std::to_string(width));
  }
  return static_cast<std::uint8_t>(width);
}

}  // namespace

DeviceObject::DeviceObject(std::uint16_t id, ValueKind kind, std::int64_t width, bool writable)
    : id_(id), kind_(kind), width_(checkedWidth(kind, width)), writable_(writable) {}

std::uint16_t DeviceObject::attr() const {
  return static_cast<std::uint16_t>((static_cast<unsigned>(kind_) << 8) |
                                    (writable_ ? unsigned{ObjValue::kWritable} : 0U));
}

void DeviceObject::setWireValue(std::span<const std::uint8_t> value) {
  std::copy(value.begin(), value.end(), value_.begin());
}

void DeviceObject::setInteger(std::int64_t integer) {
  if (kind_ == ValueKind::kText) throw InputError("the value of a text must stand in quotes");
  const std::int64_t span = std::int64_t{1} << (8 * width_);
  const std::int64_t low = kind_ == ValueKind::kSigned ? -span / 2 : 0;
  if (integer < low || integer >= low + span) {
    throw InputError("value " + std::to_string(integer) + " is out of range: " +
                     std::to_string(low) + " to " + std::to_string(low + span - 1));
  }
  const auto bits = static_cast<std::uint32_t>(integer);
  std::array<std::uint8_t, 4> wire{};
  storeLe32(wire.data(), bits);
  std::copy_n(wire.begin(), width_, value_.begin());
}

void DeviceObject::setText(std::string_view text) {
  if (kind_ != ValueKind::kText) throw InputError("the value of an integer is a number");
  if (text.size() > width_) {
    throw InputError("text of " + std::to_string(text.size()) + " bytes is too long for " +
                     std::to_string(width_));
  }
  value_.fill(0);
  std::copy(text.begin(), text.end(), value_.begin());
}

std::string DeviceObject::formatValue() const {
  if (kind_ == ValueKind::kText) {
    std::string_view text{reinterpret_cast<const char*>(value_.data()), width_};
    return encodeText(text.substr(0, text.find_last_not_of('\0') + 1));
  }
  std::array<std::uint8_t, 4> wire{};
  std::copy_n(value_.begin(), width_, wire.begin());
  std::int64_t integer = loadLe32(wire.data());
  const std::int64_t span = std::int64_t{1} << (8 * width_);
  if (kind_ == ValueKind::kSigned && integer >= span / 2) integer -= span;
  return std::to_string(integer);
}

std::string DeviceObject::format() const {
  return formatObjectId(id_) + ' ' + std::string(kKindWords[static_cast<std::size_t>(kind_)]) +
         ' ' + std::to_string(width_) + (writable_ ? " rw " : " ro ") + formatValue();
}

ValueKind parseKind(std::string_view word) {
  const auto* found = std::find(kKindWords.begin(), kKindWords.end(), word);
  if (found == kKindWords.end()) {
    throw InputError("unknown kind '" + std::string(word) + "': unsigned, signed, text or other");
  }
  return static_cast<ValueKind>(found - kKindWords.begin());
}

}  // namespace norva::dasunit
