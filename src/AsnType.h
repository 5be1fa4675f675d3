// ASN.1 tags of SNMP values, as a mapping and a request carry them in the low byte of a type. They
// are the agent library's, which what is built without it does not know.

#ifndef NORVA_ASN_TYPE_H_
#define NORVA_ASN_TYPE_H_

#include <cstdint>

namespace norva {

enum AsnType : std::uint16_t {
  kAsnInteger = 0x02,
  kAsnOctetString = 0x04,
  kAsnObjectId = 0x06,
  kAsnIpAddress = 0x40,
  kAsnCounter32 = 0x41,
  kAsnGauge32 = 0x42,  ///< Unsigned32 too
  kAsnTimeTicks = 0x43,
  kAsnOpaque = 0x44,
  kAsnCounter64 = 0x46,
  kAsnUInteger32 = 0x47,  ///< obsolete
  kAsnOpaqueFloat = 0x78,
  kAsnOpaqueDouble = 0x79,
};

/// True for the types whose values are integers of 32 bits.
constexpr bool isInteger32(std::uint8_t tag) {
  return tag == kAsnInteger || tag == kAsnCounter32 || tag == kAsnGauge32 || tag == kAsnTimeTicks ||
         tag == kAsnUInteger32;
}

}  // namespace norva

#endif  // NORVA_ASN_TYPE_H_
