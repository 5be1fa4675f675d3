#include "ObjectProtocol.h"

#include <algorithm>
#include <cstring>

#include "ByteOrder.h"

namespace norva {

namespace {

/// Value bytes of a length code, never more than a record holds.
std::size_t valueSize(std::uint8_t objLen) {
  if (objLen < kObjLenOverhead) return 0;
  return std::min<std::size_t>(objLen - kObjLenOverhead, ObjValue::kValueSize);
}

}  // namespace

GetRequest encodeGetRequest(std::uint16_t oid) {
  GetRequest frame{};
  frame[kFrameCommand] = kCommandGetRequest;
  frame[kFrameObjLen] = kObjLenLong;
  storeLe16(frame.data() + kRequestOid, oid);
  return frame;
}

std::size_t encodeSetRequest(std::uint16_t oid, const ObjValue& record, SetRequest& frame) {
  frame.fill(0);
  frame[kFrameCommand] = kCommandSetRequest;
  frame[kFrameObjLen] = record.objLen();
  storeLe16(frame.data() + kRequestOid, oid);

  std::uint8_t* value = frame.data() + kRequestValue;
  switch (record.objLen()) {
    case kObjLenShort:
      storeLe16(value, record.integer16());
      break;
    case kObjLenLong:
      storeLe32(value, record.integer32());
      break;
    default:
      std::memcpy(value, record.value(), valueSize(record.objLen()));
      break;
  }
  return record.objLen() + std::size_t{1};
}

void turnForWriting(ObjValue& record) {
  if (record.kind() != ValueKind::kText) return;
  if (record.objLen() != kObjLenShort && record.objLen() != kObjLenLong) return;
  std::reverse(record.value(), record.value() + valueSize(record.objLen()));
}

bool isSetLength(std::uint8_t objLen) {
  return objLen == kObjLenByte || objLen == kObjLenShort || objLen == kObjLenLong ||
         objLen == kObjLenText20;
}

GetReplyHeader decodeGetReplyHeader(const std::uint8_t* frame) {
  return {frame[kFrameCommand], frame[kFrameObjLen], loadLe16(frame + kReplyAttr),
          loadLe16(frame + kReplyOid)};
}

bool decodeGetReplyValue(const std::uint8_t* frame, ObjValue& record) {
  const std::uint8_t* value = frame + kReplyValue;
  if (record.kind() == ValueKind::kText) {
    record.clearValue();
    std::memcpy(record.value(), value, valueSize(record.objLen()));
    return true;
  }
  switch (record.objLen()) {
    case kObjLenByte:
      record.value()[0] = value[0];
      return true;
    case kObjLenShort:
      record.setInteger16(loadLe16(value));
      return true;
    case kObjLenLong:
      record.setInteger32(loadLe32(value));
      return true;
    default:
      return false;
  }
}

}  // namespace norva
