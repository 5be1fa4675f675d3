// Conversion between a device object's value and its SNMP presentation, in place on the record.
// Which conversion applies is fixed per object by the mapping's method code.
//
// No state; any thread. Nothing is printed.

#ifndef NORVA_SNMP_OBJ_CONVERT_STRATEGY_H_
#define NORVA_SNMP_OBJ_CONVERT_STRATEGY_H_

#include <cstddef>
#include <cstdint>

#include "ObjValue.h"

namespace norva {

/// `covMethod`: low 12 bits the method number, high 4 bits a decimal exponent e.
enum class ConversionMethod : std::uint16_t {
  kScaledInteger = 0,  ///< to the device: integer x 10^e, truncated
  kIpText = 1,         ///< to SNMP: dotted text of the first four value bytes
  kIpTextToo = 2,      ///< as 1
  kTimeText = 3,       ///< to SNMP: the agent's own local date and time
  kFixedText = 4,      ///< to SNMP: integer / 10^e with two decimals; to the device: the reverse
  kLowHalf = 11,       ///< to SNMP: the low 16 bits
};                     // every other number changes nothing in either direction

constexpr ConversionMethod methodOf(std::uint16_t covMethod) {
  return static_cast<ConversionMethod>(covMethod & 0xFFF);
}
constexpr unsigned exponentOf(std::uint16_t covMethod) {
  return covMethod >> 12;
}

class SnmpObjConvertStrategy {
 public:
  SnmpObjConvertStrategy() = default;
  virtual ~SnmpObjConvertStrategy() = default;
  SnmpObjConvertStrategy(const SnmpObjConvertStrategy&) = delete;
  SnmpObjConvertStrategy& operator=(const SnmpObjConvertStrategy&) = delete;

  /// Rewrites `record` from the device form (integers widened to 32 bits) into the SNMP
  /// presentation; always 0. `objLen` becomes the text length for methods 1, 2 and 4, the text
  /// length + 3 for method 3.
  int convertToSnmp(std::uint16_t covMethod, ObjValue& record) const;

  /// Rewrites `record` from the SNMP form into the device form (integers 32 bits wide). Returns 0,
  /// or -1 with the record unchanged for a text that method 4 cannot read.
  int convertToObj(std::uint16_t covMethod, ObjValue& record) const;

  /// True when convertToSnmp leaves a text, whatever the device holds.
  static bool makesText(std::uint16_t covMethod);

  // The single conversions, each returning 0 or -1 as said.

  int toIpText(ObjValue& record) const;
  int toTimeText(ObjValue& record) const;
  int toFixedText(std::uint16_t covMethod, ObjValue& record) const;
  /// Integer x 10^e in double precision, truncated; -1 for a text object.
  int scaleUp(std::uint16_t covMethod, ObjValue& record) const;
  /// Integer / 10^e in single precision, truncated; -1 for a text object.
  int scaleDown(std::uint16_t covMethod, ObjValue& record) const;
  /// Decimal text to integer x 10^e, truncated; -1 for a text that isDecimalText refuses.
  int fromDecimalText(std::uint16_t covMethod, ObjValue& record) const;
  /// 0 when the text is not empty and its first 64 characters are digits or '.', else -1.
  static int isDecimalText(const char* text);
};

/// Whatever the locale.
constexpr bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

/// The decimal number at the start of `text`: blanks, '-', digits, '.', digits. Built in single
/// precision step by step, so that 0.29 reads as a little less than 0.29: deliberate, the unit's
/// values depend on it. `end`, if not null, receives the position behind the number. A null text
/// gives 0.
float parseDecimal(const char* text, const char** end);

/// Reads an unsigned decimal number after every '.' of `text` into `oidOut`; what stands before the
/// first '.' is ignored, an empty component gives 0. Returns the number of sub-identifiers in the
/// text, 0 if it has no '.', 0xFFFFFFFF if an argument is null.
/// REQUIRES: `oidOut` has room for all of them.
std::uint32_t parseOidText(const char* text, std::uint32_t* oidOut);

/// The same, storing no more than `capacity` sub-identifiers. The result still counts all of them,
/// so a result above `capacity` tells that the text did not fit.
std::uint32_t parseOidText(const char* text, std::uint32_t* oidOut, std::size_t capacity);

}  // namespace norva

#endif  // NORVA_SNMP_OBJ_CONVERT_STRATEGY_H_
