// What comes from the unit's reply queue, through the read of one object up to its SNMP value, and
// as the acknowledgement of a write. With NORVA_FUZZ_LIMITED_WAITS late replies are skipped.

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>

#include "AnswerValue.h"
#include "AsnType.h"
#include "DataBase.h"
#include "DataManage.h"
#include "DeviceForm.h"
#include "Fuzz.h"
#include "Output.h"
#include "SnmpDataBase.h"
#include "Trace.h"

namespace norva::fuzz {
namespace {

#ifdef NORVA_FUZZ_LIMITED_WAITS
constexpr bool kIsLimited = true;
#else
constexpr bool kIsLimited = false;
#endif

constexpr std::size_t kMost = 1024;  // bytes of a reply to a read
constexpr std::uint16_t kMethods[] = {0,      0x1000, 0x2000, 0xF000, 1,  2,  3,  4,
                                      0x1004, 0x2004, 0xF004, 7,      10, 11, 12, 0x2FFF};

std::unique_ptr<SnmpDataBase> makeCatalogue() {
  DataBase& dataBase = DataBase::get();
  for (const std::uint16_t method : kMethods) {
    const auto number = static_cast<unsigned>(dataBase.scalars.rows.size());
    dataBase.scalars.rows.push_back(scalarRow(0x100 + number, number, kAsnInteger, method));
  }
  return std::make_unique<SnmpDataBase>(DataBase::kPath);
}

/// The object that `replies` make of a read of `oid` into `before`; none where it fails, with what
/// it leaves in `before`.
std::optional<ObjValue> expected(std::uint16_t oid, ObjValue& before,
                                 const std::vector<Bytes>& replies) {
  for (const Bytes& reply : replies) {
    if (reply.size() > kMost) return {};
    Bytes frame = reply;
    frame.resize(6 + 256);
    const int replyOid = frame[4] | frame[5] << 8;
    if (kIsLimited && (frame[0] == 0x11 || (frame[0] == 0x12 && replyOid != oid))) continue;
    if (frame[0] != 0x12) return {};
    before.setObjLen(frame[1]);
    before.setAttr(static_cast<std::uint16_t>(frame[2] | frame[3] << 8));
    const std::size_t size = frame[1] < 3 ? 0 : std::min<std::size_t>(frame[1] - 3U, 64);
    std::uint8_t* const value = before.value();
    if ((frame[3] & 3) == 2) {
      std::fill_n(value, 64, std::uint8_t{0});
      std::copy_n(frame.begin() + 6, size, value);
    } else if (size == 1 || size == 2 || size == 4) {
      std::reverse_copy(frame.begin() + 6, frame.begin() + 6 + static_cast<int>(size), value);
    } else {
      return {};
    }
    return before;
  }
  return {};
}

void checkAnswer(std::uint8_t type, const ObjValue& record, Presentation presentation) {
  const AnswerValue answer(type, record, presentation);
  if (!answer.valid()) return;
  MUST(answer.size() <= ObjValue::kValueSize);
  if (isInteger32(type) || type == kAsnIpAddress) MUST(answer.size() == 4);
  if (type == kAsnCounter64) MUST(answer.size() == 2 * sizeof(long));
}

}  // namespace

void run(Input input) {
  static const auto catalogue = makeCatalogue();
  DataManage& unit = *DataManage::getInstance();
  const std::uint8_t choice = input.byte();
  const auto oid = static_cast<std::uint16_t>(0x100 + choice % (std::size(kMethods) + 1));
  const std::uint8_t type = input.byte();
  std::vector<Bytes> replies;
  while (!input.empty() && replies.size() < 8) {
    replies.push_back(input.message());
    // The agent's own wake-ups look so, behind a secret that a fuzzer finds.
    if (replies.back().size() == 13 && replies.back()[0] == 0xFF) replies.back()[0] = 0;
  }
  int requests = 0;
  Queues::get().sent = [&](int key, const Bytes& request) {
    const Bytes get{2, 7, static_cast<std::uint8_t>(oid), 1, 0, 0, 0, 0};
    MUST(key == kRequestQueueKey && (requests == 2 || request == get));
    ++requests;
    Queues::get().waiting[kReplyQueueKey].assign(replies.begin(), replies.end());
    return true;
  };

  ObjValue record;
  record.setOid(oid);
  record.setText("left by an earlier read");
  ObjValue model = record;
  const auto read = expected(oid, model, replies);
  MUST((unit.getObjValue(oid, record) == 0) == read.has_value());
  MUST(std::memcmp(&record, &model, sizeof model) == 0 && requests == 1);

  ObjValue shown;
  shown.setOid(oid);
  Presentation presentation;
  if (unit.getSnmpValue(shown, *catalogue, &presentation) == 0) {
    checkAnswer(type, shown, presentation);
  }
  MUST(requests == 2);

  const int result = unit.setObjValue(oid, record);
  const auto answer = std::find_if(replies.begin(), replies.end(), [](const Bytes& reply) {
    return !kIsLimited || reply.empty() || reply[0] != 0x12;
  });
  const bool isDone = answer != replies.end() && !answer->empty() && (*answer)[0] == 0x11;
  MUST((result == 0) == isDone && requests == 3);
}

}  // namespace norva::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  norva::Trace::enable(true);
  if (norva::fuzz::kIsLimited) norva::DataManage::matchReplies();
  norva::DataManage::getInstance()->limitWaits(std::chrono::hours(norva::fuzz::kIsLimited));
  return 0;
}
