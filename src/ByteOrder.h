// Fixed-width integers in byte arrays, the same on every host.
//
// Device frames are little-endian, the device object record and the trap message record are
// big-endian. A host-order integer exists only in a local variable between a load and a store;
// no other file knows about byte order.

#ifndef NORVA_BYTE_ORDER_H_
#define NORVA_BYTE_ORDER_H_

#include <cstdint>

namespace norva {

inline std::uint16_t loadLe16(const std::uint8_t* bytes) {
  return static_cast<std::uint16_t>(bytes[0] | (bytes[1] << 8));
}

inline std::uint32_t loadLe32(const std::uint8_t* bytes) {
  return static_cast<std::uint32_t>(loadLe16(bytes)) |
         (static_cast<std::uint32_t>(loadLe16(bytes + 2)) << 16);
}

inline std::uint16_t loadBe16(const std::uint8_t* bytes) {
  return static_cast<std::uint16_t>((bytes[0] << 8) | bytes[1]);
}

inline std::uint32_t loadBe32(const std::uint8_t* bytes) {
  return (static_cast<std::uint32_t>(loadBe16(bytes)) << 16) |
         static_cast<std::uint32_t>(loadBe16(bytes + 2));
}

inline void storeLe16(std::uint8_t* bytes, std::uint16_t value) {
  bytes[0] = static_cast<std::uint8_t>(value);
  bytes[1] = static_cast<std::uint8_t>(value >> 8);
}

inline void storeLe32(std::uint8_t* bytes, std::uint32_t value) {
  storeLe16(bytes, static_cast<std::uint16_t>(value));
  storeLe16(bytes + 2, static_cast<std::uint16_t>(value >> 16));
}

inline void storeBe16(std::uint8_t* bytes, std::uint16_t value) {
  bytes[0] = static_cast<std::uint8_t>(value >> 8);
  bytes[1] = static_cast<std::uint8_t>(value);
}

inline void storeBe32(std::uint8_t* bytes, std::uint32_t value) {
  storeBe16(bytes, static_cast<std::uint16_t>(value >> 16));
  storeBe16(bytes + 2, static_cast<std::uint16_t>(value));
}

}  // namespace norva

#endif  // NORVA_BYTE_ORDER_H_
