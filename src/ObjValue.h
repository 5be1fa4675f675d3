// The device object record: one device object's length code, id, attribute word and value.
//
// 70 packed bytes, integers big-endian on every host. A plain value type: copying copies the
// bytes, no thread owns it.

#ifndef NORVA_OBJ_VALUE_H_
#define NORVA_OBJ_VALUE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace norva {

/// What the value bytes of an object hold; bits 8 to 9 of the attribute word.
enum class ValueKind : std::uint8_t {
  kUnsigned = 0,  ///< unsigned integer
  kSigned = 1,    ///< signed integer
  kText = 2,      ///< text or octets, copied as they stand
  kOther = 3,     ///< not distinguished: an integer whose width is never normalised
};

/// `objLen` codes: 3 plus the number of value bytes.
enum ObjLen : std::uint8_t {
  kObjLenOverhead = 3,  ///< what every code counts beside the value bytes
  kObjLenByte = 4,      ///< one-byte integer
  kObjLenShort = 5,     ///< two-byte integer
  kObjLenLong = 7,      ///< four-byte integer
  kObjLenText20 = 23,   ///< the 20-byte text, the one text length a set takes without complaint
};

class ObjValue {
 public:
  static constexpr std::size_t kValueSize = 64;
  static constexpr std::uint16_t kWritable = 0x0010;  ///< attribute bit: the object may be written

  std::uint8_t objLen() const { return _bytes[kObjLenOffset]; }
  void setObjLen(std::uint8_t objLen) { _bytes[kObjLenOffset] = objLen; }

  std::uint16_t oid() const;
  void setOid(std::uint16_t oid);

  std::uint16_t attr() const;
  void setAttr(std::uint16_t attr);
  ValueKind kind() const { return static_cast<ValueKind>((attr() >> 8) & 3); }
  bool writable() const { return (attr() & kWritable) != 0; }

  /// The kValueSize value bytes.
  std::uint8_t* value() { return _bytes.data() + kValueOffset; }
  const std::uint8_t* value() const { return _bytes.data() + kValueOffset; }

  /// The integer at the start of the value, `setIntegerN` leaving the bytes behind it alone.
  std::uint16_t integer16() const;
  std::uint32_t integer32() const;
  void setInteger16(std::uint16_t integer);
  void setInteger32(std::uint32_t integer);

  /// The value bytes up to the first NUL, all 64 where there is none. Valid while the record is.
  std::string_view text() const;
  /// Zeroes the value, then stores the text, cut to kValueSize bytes (64 leave no NUL).
  void setText(std::string_view text);
  void clearValue();

 private:
  static constexpr std::size_t kObjLenOffset = 0;
  static constexpr std::size_t kOidOffset = 1;
  static constexpr std::size_t kAttrOffset = 3;
  static constexpr std::size_t kValueOffset = 6;  // byte 5 is reserved
  static constexpr std::size_t kRecordSize = kValueOffset + kValueSize;

  std::array<std::uint8_t, kRecordSize> _bytes{};
};

static_assert(sizeof(ObjValue) == 70, "the device object record has 70 bytes");

}  // namespace norva

#endif  // NORVA_OBJ_VALUE_H_
