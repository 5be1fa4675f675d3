// The little of the AgentX protocol that the library does not tell: which notification the master
// has acknowledged. Looks at the bytes of a session as they pass; no I/O. One object for each
// session, MasterSession's; one thread at a time.

#ifndef NORVA_AGENT_X_STREAM_H_
#define NORVA_AGENT_X_STREAM_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "ByteOrder.h"

namespace norva {

enum AgentXType : std::uint8_t {
  kAgentXNotify = 12,
  kAgentXResponse = 18,
};

/// Header of a PDU, and of a Response the error that begins its payload.
class AgentXPdu {
 public:
  static constexpr std::size_t kHeaderSize = 20;
  /// As far as this class looks into a Response: the header, the time, the error.
  static constexpr std::size_t kLookSize = kHeaderSize + 6;
  static constexpr std::uint16_t kNotOpen = 257;  ///< error: the master knows no such session

  /// `bytes` are at least kHeaderSize, for `error` at least kLookSize.
  explicit AgentXPdu(const std::uint8_t* bytes) : _bytes(bytes) {}

  std::uint8_t type() const { return _bytes[1]; }
  std::uint32_t packetId() const { return load32(12); }
  std::uint32_t payloadSize() const { return load32(16); }
  std::uint16_t error() const {
    return isBigEndian() ? loadBe16(_bytes + 24) : loadLe16(_bytes + 24);
  }

 private:
  bool isBigEndian() const { return (_bytes[2] & 0x10) != 0; }
  std::uint32_t load32(std::size_t offset) const {
    return isBigEndian() ? loadBe32(_bytes + offset) : loadLe32(_bytes + offset);
  }

  const std::uint8_t* _bytes;
};

/// Finds the PDUs in what is received from the master, in pieces of any size.
class AgentXStream {
 public:
  /// Calls `use` with each PDU whose payload is that of a Response or longer, once enough has come.
  template <typename Use>
  void feed(const std::uint8_t* bytes, std::size_t size, Use use) {
    while (size > 0) {
      const std::size_t wanted = _skip > 0 ? _skip : AgentXPdu::kHeaderSize + _look - _held;
      const std::size_t taken = std::min(wanted, size);
      if (_skip > 0) {
        _skip -= taken;
      } else {
        std::copy_n(bytes, taken, _start.data() + _held);
        _held += taken;
        if (taken == wanted) look(use);
      }
      bytes += taken;
      size -= taken;
    }
  }

 private:
  /// All that was wanted of the PDU's start is there.
  template <typename Use>
  void look(Use use) {
    const AgentXPdu pdu(_start.data());
    constexpr std::size_t kLook = AgentXPdu::kLookSize - AgentXPdu::kHeaderSize;
    if (_look == 0 && pdu.payloadSize() > 0) {
      _look = std::min<std::size_t>(pdu.payloadSize(), kLook);
      return;
    }
    if (_look == kLook) use(pdu);
    _skip = pdu.payloadSize() - _look;
    _held = _look = 0;
  }

  std::array<std::uint8_t, AgentXPdu::kLookSize> _start{};
  std::size_t _held = 0;  // bytes of the PDU's start that have come
  std::size_t _look = 0;  // bytes of its payload that are looked at, once its size is known
  std::size_t _skip = 0;  // bytes of its payload still to come that are not
};

}  // namespace norva

#endif  // NORVA_AGENT_X_STREAM_H_
