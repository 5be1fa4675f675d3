#include "ObjValue.h"

#include <cstring>

#include "ByteOrder.h"

namespace norva {

std::uint16_t ObjValue::oid() const {
  return loadBe16(_bytes.data() + kOidOffset);
}
void ObjValue::setOid(std::uint16_t oid) {
  storeBe16(_bytes.data() + kOidOffset, oid);
}

std::uint16_t ObjValue::attr() const {
  return loadBe16(_bytes.data() + kAttrOffset);
}
void ObjValue::setAttr(std::uint16_t attr) {
  storeBe16(_bytes.data() + kAttrOffset, attr);
}

std::uint16_t ObjValue::integer16() const {
  return loadBe16(value());
}
std::uint32_t ObjValue::integer32() const {
  return loadBe32(value());
}
void ObjValue::setInteger16(std::uint16_t integer) {
  storeBe16(value(), integer);
}
void ObjValue::setInteger32(std::uint32_t integer) {
  storeBe32(value(), integer);
}

std::string_view ObjValue::text() const {
  const char* start = reinterpret_cast<const char*>(value());
  return {start, strnlen(start, kValueSize)};
}

void ObjValue::setText(std::string_view text) {
  clearValue();
  text.copy(reinterpret_cast<char*>(value()), kValueSize);
}

void ObjValue::clearValue() {
  std::memset(value(), 0, kValueSize);
}

}  // namespace norva
