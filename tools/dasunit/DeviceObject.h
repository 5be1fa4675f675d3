// One object of the simulated unit: what it is and its present value. A plain value type.

#ifndef NORVA_DASUNIT_DEVICE_OBJECT_H_
#define NORVA_DASUNIT_DEVICE_OBJECT_H_

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "ObjValue.h"
#include "Text.h"

namespace norva::dasunit {

class DeviceObject {
 public:
  /// An object whose value is zero or the empty text. Throws InputError for a width that `kind`
  /// does not have: 1, 2 or 4 bytes for integers, 1 to 64 for texts.
  DeviceObject(std::uint16_t id, ValueKind kind, std::int64_t width, bool writable);

  std::uint16_t id() const { return id_; }
  ValueKind kind() const { return kind_; }
  bool writable() const { return writable_; }
  std::uint8_t objLen() const { return static_cast<std::uint8_t>(kObjLenOverhead + width_); }
  /// The attribute word of a get reply.
  std::uint16_t attr() const;

  /// The value as it travels: integers little-endian, a text zero-padded to the object's width.
  std::span<const std::uint8_t> wireValue() const { return {value_.data(), width_}; }
  /// REQUIRES: `value` has as many bytes as the object is wide.
  void setWireValue(std::span<const std::uint8_t> value);

  /// Throw InputError, the value unchanged, for an integer outside the object's range or a text
  /// longer than the object is wide.
  void setInteger(std::int64_t integer);
  void setText(std::string_view text);

  /// The value as the object file has it: decimal, or a quoted text without its padding.
  std::string formatValue() const;
  /// The object as a line of the object file.
  std::string format() const;

 private:
  std::uint16_t id_;
  ValueKind kind_;
  std::uint8_t width_;
  bool writable_;
  std::array<std::uint8_t, ObjValue::kValueSize> value_{};
};

/// The object file's words for the kinds: unsigned, signed, text, other.
ValueKind parseKind(std::string_view word);

}  // namespace norva::dasunit

#endif  // NORVA_DASUNIT_DEVICE_OBJECT_H_
