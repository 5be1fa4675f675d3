// What a GET answers: a device object's SNMP presentation under the ASN.1 type of its mapping.
//
// INTEGER takes the first four bytes of the presentation, whatever they are. Every other number's
// type takes an integer and no text: the library crashes on a text under a number's tag whose
// length it does not expect, and shows another number for any other. OCTET STRING and Opaque take
// the value bytes up to the first NUL. An IpAddress is four bytes, or the library never answers.
//
// A plain value type; no thread owns it.

#ifndef NORVA_ANSWER_VALUE_H_
#define NORVA_ANSWER_VALUE_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "DeviceForm.h"
#include "ObjValue.h"

namespace norva {

class AnswerValue {
 public:
  AnswerValue() = default;
  AnswerValue(std::uint16_t asnType, const ObjValue& record, Presentation presentation);

  /// False when the value cannot be answered under its type.
  bool valid() const { return _valid; }
  /// The low byte of the mapping's type.
  std::uint8_t type() const { return _type; }
  /// `size` bytes as the library takes them: an integer is a host-order std::int32_t, a Counter64
  /// two host `long`s, the high one first. Valid while the object is.
  const std::uint8_t* data() const { return _bytes; }
  std::uint8_t* data() { return _bytes; }
  std::size_t size() const { return _size; }

  /// The number of a valid answer of a number's type; of a Counter64 the low 32 bits, all it has.
  std::uint32_t integer() const;
  /// All bytes of a valid answer. Valid while the object is.
  std::string_view bytes() const { return {reinterpret_cast<const char*>(_bytes), _size}; }

 private:
  void set(const void* bytes, std::size_t size);
  void setInteger(std::uint32_t integer);
  void setAddress(const ObjValue& record, Presentation presentation);

  alignas(long) std::uint8_t _bytes[ObjValue::kValueSize] = {};
  std::size_t _size = 0;
  std::uint8_t _type = 0;
  bool _valid = false;
};

/// What a GET answers of `record`, an object as its device gave it: toManager, then AnswerValue.
AnswerValue answerFor(std::uint16_t asnType, std::uint16_t covMethod, ObjValue record);

}  // namespace norva

#endif  // NORVA_ANSWER_VALUE_H_
