// What a GET answers: a device object's SNMP presentation under the ASN.1 type of its mapping.
//
// INTEGER is a 32-bit integer, every other type takes the value's text. The library crashes on a
// text under a number's type whose length it does not expect, and never answers an IpAddress that
// is not four bytes. So a text under a type that the library holds as a number is answered as the
// number that its first four bytes make on the unit's processor, and a text that no value of its
// type can hold is no answer.

#ifndef NORVA_ANSWER_VALUE_H_
#define NORVA_ANSWER_VALUE_H_

#include <cstddef>
#include <cstdint>

#include "ObjValue.h"

namespace norva {

class AnswerValue {
 public:
  AnswerValue() = default;
  AnswerValue(std::uint16_t asnType, const ObjValue& record);

  /// False when the value cannot be answered under its type.
  bool valid() const { return _valid; }
  /// The low byte of the mapping's type.
  std::uint8_t type() const { return _type; }
  /// `size` bytes as the library takes them: an integer is a host-order std::int32_t. Valid while
  /// the object is.
  const std::uint8_t* data() const { return _bytes; }
  std::uint8_t* data() { return _bytes; }
  std::size_t size() const { return _size; }

 private:
  void setInteger(std::uint32_t integer);

  alignas(long) std::uint8_t _bytes[ObjValue::kValueSize] = {};
  std::size_t _size = 0;
  std::uint8_t _type = 0;
  bool _valid = false;
};

/// True for the types that the library holds as a host `long`.
bool isHeldAsLong(std::uint8_t asnType);

}  // namespace norva

#endif  // NORVA_ANSWER_VALUE_H_
