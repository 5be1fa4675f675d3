// The value of a SET as the unit's processor would see it, on every host: the library hands a
// number as a `long` of the host and a sub-identifier as an `oid` of the host, the unit knows four
// big-endian bytes. Texts and addresses are bytes anyway.
//
// Borrows the library's bytes for as long as it lives; the thread that serves requests.

#ifndef NORVA_SET_VALUE_H_
#define NORVA_SET_VALUE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace norva {

class SetValue {
 public:
  /// `value` are the `length` bytes that the library holds for a variable of `asnType`.
  SetValue(std::uint8_t asnType, const void* value, std::size_t length);
  SetValue(const SetValue&) = delete;
  SetValue& operator=(const SetValue&) = delete;

  std::uint8_t type() const { return _type; }
  /// Whether the type is a number's, INTEGER or another one's.
  bool isNumber() const;
  bool isAddress() const;

  /// The number, whole; one that no integer of 64 bits holds reads as the largest. REQUIRES:
  /// isNumber.
  std::int64_t number() const;
  /// All bytes of a value that is no number, as the library gave them.
  std::string_view bytes() const;

  /// The number, the low 32 bits of a wider one; of any other type the first four bytes as an
  /// integer, missing ones zero.
  std::uint32_t integer() const;
  /// The bytes up to the first NUL, never more than the library gave.
  std::string_view text() const;
  /// Number of bytes that the unit's library would hold.
  std::size_t size() const { return _size; }

 private:
  /// Puts `integer` in place of what the host holds, `size` telling the unit's size.
  void hold(std::uint32_t integer, std::size_t size);

  std::uint32_t _high = 0;  // of a Counter64
  std::array<std::uint8_t, 8> _converted{};
  const std::uint8_t* _bytes;
  std::size_t _size;      // on the unit
  std::size_t _byteSize;  // of what _bytes points to
  const std::uint8_t _type;
};

}  // namespace norva

#endif  // NORVA_SET_VALUE_H_
