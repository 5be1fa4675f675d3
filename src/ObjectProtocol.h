// Frames of the device object protocol: what the agent puts on the request queue and takes off
// the reply queue. Little-endian. Pure functions over byte arrays; no I/O, any thread.

#ifndef NORVA_OBJECT_PROTOCOL_H_
#define NORVA_OBJECT_PROTOCOL_H_

#include <array>
#include <cstddef>
#include <cstdint>

#include "ObjValue.h"

namespace norva {

/// First byte of every frame.
enum Command : std::uint8_t {
  kCommandSetRequest = 0x01,  ///< agent to device: write one object
  kCommandGetRequest = 0x02,  ///< agent to device: read one object
  kCommandSetReply = 0x11,    ///< device to agent: a set was carried out
  kCommandGetReply = 0x12,    ///< device to agent: attribute word and value of one object
};

/// Offsets within the three frames that carry more than a command.
enum FrameOffset : std::size_t {
  kFrameCommand = 0,
  kFrameObjLen = 1,
  kRequestOid = 2,    ///< get and set request: object id, 2 bytes
  kRequestValue = 4,  ///< set request: value; get request: 4 zero bytes
  kReplyAttr = 2,     ///< get reply: attribute word, 2 bytes
  kReplyOid = 4,      ///< get reply: object id, 2 bytes
  kReplyValue = 6,    ///< get reply: value
};

constexpr std::size_t kGetRequestSize = 8;
/// A set request is `objLen` + 1 bytes, so no length code needs more than this.
constexpr std::size_t kMaxSetRequestSize = 256;
/// Shortest buffer the decoding functions may be given: header and the longest value it looks at.
constexpr std::size_t kMinGetReplyBuffer = kReplyValue + ObjValue::kValueSize;

using GetRequest = std::array<std::uint8_t, kGetRequestSize>;
using SetRequest = std::array<std::uint8_t, kMaxSetRequestSize>;

GetRequest encodeGetRequest(std::uint16_t oid);

/// Fills `frame` with the set request that writes `record` to object `oid`: integers of length
/// code 4, 5 and 7 little-endian, the value bytes of any other length as they stand. Bytes beyond
/// the record's 64 value bytes are zero. Returns the frame's size in bytes, `objLen` + 1.
std::size_t encodeSetRequest(std::uint16_t oid, const ObjValue& record, SetRequest& frame);

/// Makes `record`, of its `objLen` and kind, one that a set request carries to the device as it
/// stands: the request turns every field of two or four bytes around, a get reply only numbers.
void turnForWriting(ObjValue& record);

/// True for the length codes that a set carries without complaint (4, 5, 7 and 23).
bool isSetLength(std::uint8_t objLen);

/// Header of a get reply.
struct GetReplyHeader {
  std::uint8_t command;
  std::uint8_t objLen;
  std::uint16_t attr;
  std::uint16_t oid;
};

/// REQUIRES: `frame` holds at least kMinGetReplyBuffer bytes, zero behind what was received.
GetReplyHeader decodeGetReplyHeader(const std::uint8_t* frame);

/// Brings the value of a get reply into `record`, whose `objLen` and `attr` are the reply's: a text
/// is copied as it stands (never past 64 bytes) into a zeroed value, an integer of length code 4,
/// 5 or 7 is stored big-endian at the start. Returns false, the value untouched, for any other
/// length of an integer.
/// REQUIRES: as decodeGetReplyHeader.
bool decodeGetReplyValue(const std::uint8_t* frame, ObjValue& record);

}  // namespace norva

#endif  // NORVA_OBJECT_PROTOCOL_H_
