// What the master sends on a session, in reads of any size.

#include <algorithm>
#include <array>

#include "AgentXStream.h"
#include "Fuzz.h"

namespace norva::fuzz {

void run(Input input) {
  const Bytes sizes = input.bytes(4);  // of the reads, in turn, less 1
  const Bytes stream = input.bytes(2000);
  using Found = std::vector<std::array<std::uint32_t, 3>>;
  const auto add = [](Found& found, const AgentXPdu& pdu) {
    found.push_back({pdu.type(), pdu.packetId(), pdu.error()});
  };

  Found found;
  AgentXStream received;
  std::size_t at = 0;
  for (std::size_t reads = 0; at < stream.size(); ++reads) {
    const std::size_t size = std::min<std::size_t>(stream.size() - at, sizes[reads % 4] + 1U);
    const Bytes piece(&stream[at], &stream[at] + size);
    received.feed(piece.data(), size, [&](const AgentXPdu& pdu) { add(found, pdu); });
    at += size;
  }

  Found due;  // in the stream as a whole
  for (at = 0; at + AgentXPdu::kHeaderSize <= stream.size();) {
    const AgentXPdu pdu(&stream[at]);
    const std::size_t end = at + AgentXPdu::kHeaderSize + pdu.payloadSize();
    if (std::min(end, stream.size()) >= at + AgentXPdu::kLookSize) add(due, pdu);
    at = end;
  }
  MUST(found == due);
}

}  // namespace norva::fuzz
