// The trap message record: one event of the unit (alarm, remote-unit change, general event) or a
// heartbeat. 213 packed bytes, integers big-endian on every host. A plain value type: it belongs to
// whoever holds it, on one thread at a time.

#ifndef NORVA_TRAP_MESSAGE_H_
#define NORVA_TRAP_MESSAGE_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "ByteOrder.h"

namespace norva {

/// `msgType` of a trap message record.
enum MsgType : std::int32_t {
  kMsgAlarm = 1,         ///< an alarm was raised or cleared
  kMsgRuChange = 2,      ///< a remote unit was added or removed
  kMsgGeneralEvent = 3,  ///< a general event was reported or lost
  kMsgHeartbeat = 4,     ///< made by the agent itself
};

class TrapMessage {
 public:
  static constexpr std::size_t kSize = 213;
  static constexpr std::size_t kTextSize = 64;  ///< bytes of each of the three text fields
  static constexpr std::size_t kRuByteCount = 3;
  static constexpr char kStateCleared = '0';  ///< cleared, removed or lost; any other: the opposite

  /// Where each text field starts. The order in the record differs from that of the bindings.
  enum TextField : std::size_t { kText4 = 21, kText6 = 85, kText5 = 149 };

  TrapMessage() = default;
  /// Takes the first kSize of `size` received bytes; missing ones are zero.
  TrapMessage(const std::uint8_t* received, std::size_t size) {
    std::memcpy(bytes_.data(), received, std::min(size, kSize));
  }

  std::int32_t msgType() const { return static_cast<std::int32_t>(loadBe32(bytes_.data())); }
  /// True when there is a notification for messages of its type.
  bool hasKnownType() const { return msgType() >= kMsgAlarm && msgType() <= kMsgHeartbeat; }
  void setMsgType(std::int32_t msgType) {
    storeBe32(bytes_.data(), static_cast<std::uint32_t>(msgType));
  }

  std::uint16_t objId() const { return loadBe16(bytes_.data() + kObjIdOffset); }
  void setObjId(std::uint16_t objId) { storeBe16(bytes_.data() + kObjIdOffset, objId); }

  /// True when the alarm was cleared, the remote unit removed, the event lost.
  bool cleared() const { return bytes_[kStateOffset] == kStateCleared; }
  void setState(char state) { bytes_[kStateOffset] = static_cast<std::uint8_t>(state); }

  /// The kRuByteCount bytes that describe a remote-unit change.
  const std::uint8_t* ruBytes() const { return bytes_.data() + kRuBytesOffset; }
  std::uint8_t* ruBytes() { return bytes_.data() + kRuBytesOffset; }

  std::uint8_t deviceId() const { return bytes_[kDeviceIdOffset]; }
  void setDeviceId(std::uint8_t deviceId) { bytes_[kDeviceIdOffset] = deviceId; }
  void setDeviceRaw(std::uint8_t deviceRaw) { bytes_[kDeviceRawOffset] = deviceRaw; }

  /// The field up to its first NUL, which its producer is to put there. Deliberate: a field without
  /// one runs into the next; never past the end of the record.
  std::string_view text(TextField field) const {
    const char* start = reinterpret_cast<const char*>(bytes_.data() + field);
    return {start, strnlen(start, kSize - field)};
  }
  /// Stores the text, cut to `limit` bytes, into the zeroed field.
  /// REQUIRES: limit <= kTextSize; kTextSize itself leaves a full field without a NUL.
  void setText(TextField field, std::string_view text, std::size_t limit = kTextSize - 1) {
    std::memset(bytes_.data() + field, 0, kTextSize);
    text.copy(reinterpret_cast<char*>(bytes_.data() + field), limit);
  }

  const std::uint8_t* data() const { return bytes_.data(); }

 private:
  static constexpr std::size_t kObjIdOffset = 9;  // unaligned; bytes 4 to 8 are reserved
  static constexpr std::size_t kStateOffset = 11;
  static constexpr std::size_t kRuBytesOffset = 12;
  static constexpr std::size_t kDeviceRawOffset = 19;  // bytes 15 to 18 are reserved
  static constexpr std::size_t kDeviceIdOffset = 20;

  std::array<std::uint8_t, kSize> bytes_{};
};

static_assert(sizeof(TrapMessage) == TrapMessage::kSize, "the trap message record has 213 bytes");

}  // namespace norva

#endif  // NORVA_TRAP_MESSAGE_H_
