// The control process of the benchmark: answers every get and set at once, with as little work as
// the two message queues allow, so that what is measured is not the simulated unit.

#include <sys/ipc.h>
#include <sys/msg.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

#include "ByteOrder.h"
#include "ComPortAdapter.h"
#include "DataManage.h"
#include "Objects.h"

using namespace norva;

namespace {

constexpr std::string_view kRoot = ".1.3.6.1.4.1.53412.8.2.2.4";
constexpr std::uint16_t kAttrInteger = ObjValue::kWritable;
constexpr std::uint16_t kAttrText = ObjValue::kWritable | 0x0200;

struct Message {
  long mtype;
  std::uint8_t payload[kMaxSetRequestSize];
};

/// Fills the value of a text of `width` bytes; the reply's size.
std::size_t answerText(Message& reply, std::string_view text, std::size_t width) {
  reply.payload[kFrameObjLen] = static_cast<std::uint8_t>(kObjLenOverhead + width);
  storeLe16(reply.payload + kReplyAttr, kAttrText);
  std::memset(reply.payload + kReplyValue, 0, width);
  std::memcpy(reply.payload + kReplyValue, text.data(), text.size());
  return kReplyValue + width;
}

std::size_t answerInteger(Message& reply, std::uint32_t integer) {
  reply.payload[kFrameObjLen] = kObjLenLong;
  storeLe16(reply.payload + kReplyAttr, kAttrInteger);
  storeLe32(reply.payload + kReplyValue, integer);
  return kReplyValue + sizeof integer;
}

std::size_t answerByte(Message& reply, std::uint8_t byte) {
  reply.payload[kFrameObjLen] = kObjLenByte;
  storeLe16(reply.payload + kReplyAttr, kAttrInteger);
  reply.payload[kReplyValue] = byte;
  return kReplyValue + 1;
}

std::size_t answerGet(Message& reply, std::uint16_t id, const std::vector<std::uint32_t>& values) {
  reply.payload[kFrameCommand] = kCommandGetReply;
  storeLe16(reply.payload + kReplyOid, id);
  switch (id) {
    case kObjOidPrefix:
      return answerText(reply, kRoot, ObjValue::kValueSize);
    case kObjHeartBeatInterval:
      return answerByte(reply, 255);
    case kObjHeartBeatSwitch:
    case kObjNotificationVersion:
      return answerByte(reply, 0);
    default:
      return bench::isText(id) ? answerText(reply, bench::kTextValue, 20)
                               : answerInteger(reply, values[id]);
  }
}

}  // namespace

int main() {
  const int requests = msgget(kRequestQueueKey, IPC_CREAT | 0666);
  const int replies = msgget(kReplyQueueKey, IPC_CREAT | 0666);
  std::vector<std::uint32_t> values(0x10000);
  for (std::uint32_t id = 0; id < values.size(); ++id) values[id] = id;

  Message request{};
  Message reply{1, {}};
  while (msgrcv(requests, &request, sizeof request.payload, 0, 0) != -1) {
    const std::uint16_t id = loadLe16(request.payload + kRequestOid);
    std::size_t size = 0;
    if (request.payload[kFrameCommand] == kCommandSetRequest) {
      if (!bench::isText(id)) values[id] = loadLe32(request.payload + kRequestValue);
      reply.payload[kFrameCommand] = kCommandSetReply;
      size = kRequestValue;
    } else {
      size = answerGet(reply, id, values);
    }
    if (msgsnd(replies, &reply, size, 0) == -1) return 1;
  }
  return 1;
}
